#include "util/hex.h"

#include "util/runtime_error.h"

#include <array>
#include <cstdint>

namespace veltro {

namespace {
constexpr char kDigits[] = "0123456789ABCDEF";

int hexValue(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}
} // namespace

std::string HexByte2Char(std::uint8_t value)
{
    return {kDigits[value >> 4], kDigits[value & 0x0F]};
}

std::string ByteArrayToHexStr(const Bytes& bytes)
{
    if (bytes.empty())
        throw RuntimeError(ErrNo::InvalidCall, "ByteArrayToHexStr of an empty array");
    std::string text(3 * (bytes.size() - 1) + 2, ' ');
    const std::string first = HexByte2Char(bytes.front());
    text[0] = first[0];
    text[1] = first[1];
    return text;
}

std::int16_t MakeWord04(std::uint8_t lo, std::uint8_t hi)
{
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(lo | (hi << 8)));
}

std::uint8_t RGBsplit(std::int64_t color, int which)
{
    switch (which) {
    case 1: return std::uint8_t(color & 0xFF);
    case 2: return std::uint8_t((color & 0xFF00) / 256);
    case 3: return std::uint8_t((color & 0xFF0000) / 65536);
    default: return 0;
    }
}

std::int32_t RGBreturn(int r, int g, int b)
{
    auto component = [](int v) {
        if (v < INT16_MIN || v > INT16_MAX)
            throw RuntimeError(ErrNo::Overflow, "RGBreturn: component beyond 16 bits");
        return std::int64_t(v);
    };
    const std::int64_t color = component(r) + 256 * component(g) + 65536 * component(b);
    if (color < INT32_MIN || color > INT32_MAX)
        throw RuntimeError(ErrNo::Overflow, "RGBreturn: colour beyond 32 bits");
    return std::int32_t(color);
}

namespace {
// 23 x 23 table indexed by (digit char - '0'): "0"-"9" are 0-9, "A"-"F" are 17-22; the cells
// between hold 0, as on the device tool.
const std::array<std::array<std::uint8_t, 23>, 23>& hexTable()
{
    static const auto table = [] {
        std::array<std::array<std::uint8_t, 23>, 23> t{};
        for (int v = 0; v < 256; ++v) {
            const std::string pair = HexByte2Char(std::uint8_t(v));
            t[pair[0] - '0'][pair[1] - '0'] = std::uint8_t(v);
        }
        return t;
    }();
    return table;
}

int tableIndex(std::string_view text, std::size_t pos)
{
    if (pos >= text.size())
        throw RuntimeError(ErrNo::InvalidCall, "HexToStr: text ends inside a pair");
    const int index = static_cast<unsigned char>(text[pos]) - '0';
    if (index < 0 || index > 22)
        throw RuntimeError(ErrNo::SubscriptRange, "HexToStr: not an upper-case hex digit");
    return index;
}
} // namespace

std::string HexToStr(std::string_view hexText, int separators)
{
    const auto& table = hexTable();
    // The count and the stride are 32-bit numbers, as the callers pass them.
    const std::int64_t stride = std::int64_t(separators) + 2;
    if (stride > INT32_MAX)
        throw RuntimeError(ErrNo::Overflow, "HexToStr: separator count");
    std::int64_t count = 1;
    if (hexText.size() != 2) {
        if (stride == 0)
            throw RuntimeError(ErrNo::DivisionByZero, "HexToStr: -2 separators");
        // Integer division truncates toward zero; a negative count is no array size.
        count = (std::int64_t(hexText.size()) + 1) / stride;
        if (count < 0)
            throw RuntimeError(ErrNo::SubscriptRange, "HexToStr: negative byte count");
    }
    std::string out;
    out.reserve(count);
    for (std::int64_t k = 0; k < count; ++k) {
        const std::size_t pos = std::size_t(k * stride);
        const int row = tableIndex(hexText, pos);
        const int col = tableIndex(hexText, pos + 1);
        out.push_back(static_cast<char>(table[row][col]));
    }
    return out;
}

std::string StrToHex(std::string_view text, std::string_view separator)
{
    std::string out;
    out.reserve(text.size() * (2 + separator.size()));
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (i) out.append(separator);
        out += HexByte2Char(static_cast<std::uint8_t>(text[i]));
    }
    return out;
}

Bytes HexStringToByteArray(std::string_view hexString)
{
    Bytes out(hexString.size() / 2);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const int hi = hexValue(hexString[2 * i]);
        const int lo = hexValue(hexString[2 * i + 1]);
        if (hi < 0 || lo < 0)
            throw RuntimeError(ErrNo::TypeMismatch, "HexStringToByteArray: not a hex pair");
        out[i] = std::uint8_t(hi * 16 + lo);
    }
    return out;
}

std::string HexBytesBlank(const std::uint8_t* data, std::size_t size)
{
    std::string out;
    out.reserve(size * 3);
    for (std::size_t i = 0; i < size; ++i) {
        if (i) out.push_back(' ');
        out += HexByte2Char(data[i]);
    }
    return out;
}

std::string HexBytesBlank(const Bytes& bytes)
{
    return HexBytesBlank(bytes.data(), bytes.size());
}

std::uint32_t ReadHexPrefix(std::string_view text)
{
    std::uint32_t value = 0;
    for (char c : text) {
        const int d = hexValue(c);
        if (d < 0) break;
        if (value > 0x0FFFFFFFu) break; // far beyond any byte or word read this way
        value = value * 16 + std::uint32_t(d);
    }
    return value;
}

} // namespace veltro

namespace veltro {

std::array<std::uint8_t, 8> hextobytearray(std::string_view value)
{
    std::array<std::uint8_t, 8> bytes{};
    if (value.empty())
        return bytes;
    std::size_t index = 0;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = value.find('x', start);
        const std::string_view piece =
            value.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
        if (index >= bytes.size())
            throw RuntimeError(ErrNo::SubscriptRange, "hextobytearray: more than eight pieces");
        const std::uint32_t number = ReadHexPrefix(piece);
        if (number > 0xFF)
            throw RuntimeError(ErrNo::Overflow, "hextobytearray: piece above FF");
        bytes[index++] = std::uint8_t(number);
        if (end == std::string_view::npos)
            break;
        start = end + 1;
    }
    return bytes;
}

} // namespace veltro
