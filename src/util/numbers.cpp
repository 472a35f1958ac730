#include "util/numbers.h"

#include <cctype>
#include <cstdlib>

namespace veltro {

std::optional<double> leadingNumber(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    const char* start = text.c_str() + i;
    const unsigned char first = static_cast<unsigned char>(*start);
    if (!(std::isdigit(first) || first == '-' || first == '+' || first == '.'))
        return std::nullopt; // strtod would also take "inf", "nan" and hex
    char* end = nullptr;
    const double value = std::strtod(start, &end);
    if (end == start)
        return std::nullopt;
    return value;
}

} // namespace veltro
