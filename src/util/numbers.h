#pragma once
// Numbers in server files and link texts are read the way the tool always has: the leading
// decimal number of the text, blanks before it skipped, anything after it ignored
// ("170,1.70" field "170" -> 170, "12abc" -> 12). No number at all gives nothing.
#include <optional>
#include <string>

namespace veltro {

std::optional<double> leadingNumber(const std::string& text);

} // namespace veltro
