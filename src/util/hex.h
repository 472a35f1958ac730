#pragma once
// Byte, hex and colour conversions shared by every window. Texts that stand for bytes
// (HexToStr, StrToHex) hold one char per byte, in the Windows-1252 code page.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltro {

using Bytes = std::vector<std::uint8_t>;

// Two upper-case hex digits: 0x05 -> "05", 0xAB -> "AB".
std::string HexByte2Char(std::uint8_t value);

// Only the first element is converted; the text is 3 * (n - 1) + 2 long, the rest blanks.
// {0x0A, 0x1B, 0x2C} -> "0A      ". An empty array is an invalid call (error 5).
std::string ByteArrayToHexStr(const Bytes& bytes);

// LoByte + 256 * HiByte taken as a signed 16-bit value (0x00, 0xFF -> -256).
std::int16_t MakeWord04(std::uint8_t lo, std::uint8_t hi);

// Colour values in the 0x00BBGGRR layout. which: 1 red, 2 green, 3 blue, else 0.
std::uint8_t RGBsplit(std::int64_t color, int which);
std::int32_t RGBreturn(int r, int g, int b);

// Pairs of upper-case hex digits to one char per byte. separators = characters between pairs.
// The byte count is 1 for a two-character text, else (length + 1) / (separators + 2): with
// two or more separators the last pair is left out, as the device tool has always done it.
// A digit outside '0'..'F' (lower case included) is a range error (9); -2 separators divide
// by zero (11), a negative count is a range error (9), a stride beyond 32 bits an overflow (6).
std::string HexToStr(std::string_view hexText, int separators = 0);

// One char per byte to two upper-case hex digits each, separator between pairs.
std::string StrToHex(std::string_view text, std::string_view separator = {});

// "0A1B" -> {0x0A, 0x1B}; an odd trailing digit is ignored; a pair that is not hex is a
// type mismatch (13).
Bytes HexStringToByteArray(std::string_view hexString);

// The tunnel window's rendering: "0A 1B 2C", no blank after the last pair.
std::string HexBytesBlank(const Bytes& bytes);
std::string HexBytesBlank(const std::uint8_t* data, std::size_t size);

// Reads hex digits as far as they go, like "&H" + text (empty or no digit -> 0).
std::uint32_t ReadHexPrefix(std::string_view text);

} // namespace veltro

// ---- the configuration editor's record conversion ----
#include <array>

namespace veltro {

// A record text "0Ax1Fx..." split at every lower-case "x"; piece i (from 0) becomes byte i,
// read as hex as far as its digits go (no digit -> 0). Missing pieces leave 0; an empty text
// gives eight zeros. A ninth piece is a range error (9), a piece above FF an overflow (6).
std::array<std::uint8_t, 8> hextobytearray(std::string_view value);

} // namespace veltro
