#pragma once
// Text codec of the vehicle data files and the editor's small bit helpers. Texts here are byte
// strings, one char per byte in the Windows-1252 code page, exactly as they are stored.
#include "platform/windows1252.h"
#include "util/hex.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace veltro {

// The key the vehicle data files are coded with.
inline constexpr std::string_view kCodecKey = "hwoR52N8FTkv";

// Repeating-key XOR; coding and decoding are the same call. An empty key is an invalid call (5).
std::string CodeDecode(std::string_view text, std::string_view key);

// A vehicle data file's text: the file less its last two bytes. No file gives an empty text;
// a file shorter than two bytes is an invalid call (5).
std::string txt_ReadAll(const std::string& path);

// The second coding family, its own inverse. `lowerBound` is the index of bytes[0] (0 for
// arrays made from text); the index takes part in the coding.
void EncodeArrayB(Bytes& bytes, std::string_view password = {}, int lowerBound = 0);
void EncodeString(std::string& text, std::string_view password = {});
std::string EncodeStr(std::string text, std::string_view password = {});

// Codes a text property in place with EncodeStr and the codec key.
void EncodeControlText(const std::function<std::string()>& getText,
                       const std::function<void(const std::string&)>& setText);
// Any object with QString text()/setText(QString), e.g. a line edit; its characters are taken
// as Windows-1252 bytes.
template <class Control>
void EncodeControlText(Control& control)
{
    EncodeControlText([&] { return qStringToWindows1252(control.text()); },
                      [&](const std::string& coded) { control.setText(windows1252ToQString(coded)); });
}

// "00000101" -> 5: the first character is bit 7, a bit is set when its character is "1".
std::uint8_t BinStrToByte(std::string_view bits);
// Bit 0..7 of value as 0 or 1; another bit number is an invalid call (5).
int GetBit(std::uint8_t value, int bit);

} // namespace veltro
