// The hex helpers against the bytes their texts stand for. An input is an optional first line
// with a separator count for HexToStr (any 32-bit value: negative and huge ones included) and
// the text; without such a line the whole input is the text and the count is 0. The text is
// read as hex and, taken as bytes, rendered and read back.
#include "fuzz_check.h"
#include "util/hex.h"
#include "util/runtime_error.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using namespace veltro;

namespace {

int hexDigit(char c) // either case
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool isUpperHexDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'); }

// The leading hex digits as a number. Past eight significant digits (more than 32 bits)
// the reading stops, leading zeros do not count.
std::uint32_t hexPrefix(std::string_view text)
{
    std::size_t i = 0;
    while (i < text.size() && text[i] == '0')
        ++i;
    std::uint32_t value = 0;
    for (int taken = 0; i < text.size() && taken < 8 && hexDigit(text[i]) >= 0; ++i, ++taken)
        value = value * 16 + std::uint32_t(hexDigit(text[i]));
    return value;
}

// HexToStr reads the pair at k * (separators + 2) as byte k. Characters between '9' and 'A'
// are inside the digit table and read as 0; anything else raises 9 before a byte is made.
void checkHexToStr(std::string_view text, int separators)
{
    std::string out;
    try {
        out = HexToStr(text, separators);
    } catch (const RuntimeError& e) {
        // 5: the text ends inside a pair, 6: a stride beyond 32 bits, 9: no hex digit or a
        // negative byte count, 11: -2 separators.
        FUZZ_CHECK(e.number() == 5 || e.number() == 6 || e.number() == 9 || e.number() == 11);
        return;
    }
    const std::int64_t stride = std::int64_t(separators) + 2;
    for (std::size_t k = 0; k < out.size(); ++k) {
        const std::size_t pos = text.size() == 2 ? 0 : std::size_t(std::int64_t(k) * stride);
        FUZZ_CHECK(pos + 1 < text.size());
        const char hi = text[pos], lo = text[pos + 1];
        FUZZ_CHECK(hi >= '0' && hi <= 'F' && lo >= '0' && lo <= 'F');
        const int expected = isUpperHexDigit(hi) && isUpperHexDigit(lo) ? hexDigit(hi) * 16 + hexDigit(lo) : 0;
        FUZZ_CHECK(static_cast<unsigned char>(out[k]) == expected);
    }
    // With no or one separator every whole pair of the text is read (2 and more separators
    // make the count (length + 1) / stride, which leaves the last pair out).
    if (text.size() != 2 && (separators == 0 || separators == 1))
        FUZZ_CHECK(std::int64_t(out.size()) == (std::int64_t(text.size()) + separators) / stride);
}

void checkRoundTrips(std::string_view text)
{
    const Bytes bytes(text.begin(), text.end());

    // Bytes to hex and back, packed, with one separator of any kind, in lower case.
    const std::string packed = StrToHex(text);
    FUZZ_CHECK(HexToStr(packed, 0) == text);
    FUZZ_CHECK(HexStringToByteArray(packed) == bytes);
    const std::string separator(1, text.empty() ? ' ' : text.front());
    FUZZ_CHECK(HexToStr(StrToHex(text, separator), 1) == text);
    std::string lower = packed;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return c >= 'A' && c <= 'F' ? char(c + 32) : c; });
    FUZZ_CHECK(HexStringToByteArray(lower) == bytes);

    // The tunnel rendering: pairs with one blank between, read back with one separator.
    const std::string blank = HexBytesBlank(bytes);
    FUZZ_CHECK(blank.size() == (bytes.empty() ? 0 : 3 * bytes.size() - 1));
    for (std::size_t i = 2; i < blank.size(); i += 3)
        FUZZ_CHECK(blank[i] == ' ');
    FUZZ_CHECK(HexToStr(blank, 1) == text);

    // A record row of the first eight bytes ("0Ax1Fx...") gives them back, zeros after.
    const std::string_view head = text.substr(0, 8);
    std::array<std::uint8_t, 8> record{};
    std::copy(head.begin(), head.end(), record.begin());
    FUZZ_CHECK(hextobytearray(StrToHex(head, "x")) == record);

    // Colour parts in range come back out of the colour value.
    const int r = record[0], g = record[1], b = record[2];
    const std::int32_t color = RGBreturn(r, g, b);
    FUZZ_CHECK(RGBsplit(color, 1) == r && RGBsplit(color, 2) == g && RGBsplit(color, 3) == b);
}

// The text read as it comes: hex pairs of either case, a record row, a hex number.
void checkReadings(std::string_view text)
{
    FUZZ_CHECK(ReadHexPrefix(text) == hexPrefix(text));

    bool allPairsHex = true;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        allPairsHex = allPairsHex && hexDigit(text[i]) >= 0 && hexDigit(text[i + 1]) >= 0;
    try {
        const Bytes bytes = HexStringToByteArray(text);
        FUZZ_CHECK(allPairsHex && bytes.size() == text.size() / 2);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            FUZZ_CHECK(bytes[i] == hexDigit(text[2 * i]) * 16 + hexDigit(text[2 * i + 1]));
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 13 && !allPairsHex);
    }

    // Pieces split at "x": the first one above FF is an overflow; with none, a ninth piece is
    // out of range; otherwise piece i is byte i.
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0;;) {
        const std::size_t end = text.find('x', start);
        pieces.push_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    if (text.empty()) pieces.clear();
    int expectedError = 0;
    for (std::size_t i = 0; i < pieces.size() && expectedError == 0; ++i) {
        if (i == 8) expectedError = 9;
        else if (hexPrefix(pieces[i]) > 0xFF) expectedError = 6;
    }
    try {
        const std::array<std::uint8_t, 8> record = hextobytearray(text);
        FUZZ_CHECK(expectedError == 0);
        for (std::size_t i = 0; i < record.size(); ++i)
            FUZZ_CHECK(record[i] == (i < pieces.size() ? hexPrefix(pieces[i]) : 0));
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == expectedError);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string_view text(reinterpret_cast<const char*>(data), size);
    int separators = 0;
    if (const std::size_t line = text.find('\n'); line != std::string_view::npos) {
        std::int64_t count = 0;
        const char* const first = text.data();
        const auto [end, ec] = std::from_chars(first, first + line, count);
        if (ec == std::errc() && end == first + line) {
            separators = static_cast<int>(static_cast<std::uint32_t>(count)); // wraps like a 32-bit value
            text.remove_prefix(line + 1);
        }
    }
    checkHexToStr(text, separators);
    checkRoundTrips(text);
    checkReadings(text);
    return 0;
}
