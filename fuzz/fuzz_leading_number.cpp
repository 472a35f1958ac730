// Leading numbers of server files and link texts. The input is read as such a text; its first
// eight bytes are also taken as a double that is printed and read back.
#include "fuzz_check.h"
#include "util/numbers.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

using namespace veltro;

namespace {

bool isDigit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }

// Where the number of a text starts: after blanks and an optional "+", at a digit, "-" digit,
// "." digit or "-." digit. npos when the text holds no number there.
std::size_t numberStart(const std::string& text)
{
    std::size_t i = text.find_first_not_of(" \t");
    if (i == std::string::npos) return std::string::npos;
    if (text[i] == '+') ++i;
    std::size_t p = i;
    if (p < text.size() && text[p] == '-') ++p;
    if (p < text.size() && text[p] == '.') ++p;
    return p < text.size() && isDigit(text[p]) ? i : std::string::npos;
}

// The text's number as the C library reads it ("C" locale, so the point is the decimal
// separator). A "0x" prefix is no hex number here: its "0" is the number.
void checkAgainstStrtod(const std::string& text, const std::optional<double>& got)
{
    const std::size_t start = numberStart(text);
    if (got) {
        FUZZ_CHECK(std::isfinite(*got));
        FUZZ_CHECK(start != std::string::npos);
    }
    if (start == std::string::npos)
        return;
    std::string number = text.substr(start);
    const std::size_t zero = number[0] == '-' ? 1 : 0;
    if (number.size() > zero + 1 && number[zero] == '0' && (number[zero + 1] == 'x' || number[zero + 1] == 'X'))
        number.resize(zero + 1);
    errno = 0;
    const double expected = std::strtod(number.c_str(), nullptr);
    if (errno == ERANGE) {
        // Beyond the double range or below its normal numbers: no number, or the same value.
        FUZZ_CHECK(!got || (*got == expected && std::signbit(*got) == std::signbit(expected)));
        return;
    }
    FUZZ_CHECK(got && *got == expected && std::signbit(*got) == std::signbit(expected));
}

// Any finite double printed in each of the usual forms, with blanks before and a field after,
// reads back as itself.
void checkPrinted(double value, std::uint8_t choice)
{
    if (!std::isfinite(value))
        return;
    static const char* const before[] = {"", " ", "\t ", "+"};
    static const char* const after[] = {"", ",1.70", " V", ";x"};
    static const std::chars_format formats[] = {std::chars_format::general, std::chars_format::scientific,
                                                std::chars_format::fixed};
    const char* const prefix = std::signbit(value) && choice % 4 == 3 ? " " : before[choice % 4];
    const char* const suffix = after[(choice / 4) % 4];
    char buffer[400];
    const auto print = [&](auto... how) {
        const auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value, how...);
        FUZZ_CHECK(ec == std::errc());
        return prefix + std::string(buffer, end) + suffix;
    };
    const auto same = [&](const std::string& text) {
        const std::optional<double> back = leadingNumber(text);
        FUZZ_CHECK(back && *back == value && std::signbit(*back) == std::signbit(value));
    };
    same(print()); // shortest
    for (const std::chars_format format : formats)
        same(print(format));
    same(print(std::chars_format::general, 17));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    checkAgainstStrtod(text, leadingNumber(text));
    if (size >= 9) {
        double value;
        std::memcpy(&value, data, sizeof value);
        checkPrinted(value, data[8]);
    }
    return 0;
}
