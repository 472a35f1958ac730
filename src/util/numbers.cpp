#include "util/numbers.h"

#include <cctype>
#include <charconv>

namespace veltro {

std::optional<double> leadingNumber(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    if (i < text.size() && text[i] == '+')
        ++i;
    const char* start = text.data() + i;
    const char* const last = text.data() + text.size();
    // A digit must follow an optional sign and point, so "inf", "-inf" and "nan" are no numbers.
    const char* p = start;
    if (p < last && *p == '-') ++p;
    if (p < last && *p == '.') ++p;
    if (!(p < last && std::isdigit(static_cast<unsigned char>(*p))))
        return std::nullopt;
    // from_chars reads "1.06" with a point whatever the process locale says; strtod would
    // stop at the point under a German locale, which the window sets up at start.
    double value = 0;
    const auto [end, ec] = std::from_chars(start, last, value);
    if (ec != std::errc() || end == start)
        return std::nullopt;
    return value;
}

} // namespace veltro
