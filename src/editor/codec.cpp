#include "editor/codec.h"

#include "util/runtime_error.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace veltro {

std::string CodeDecode(std::string_view text, std::string_view key)
{
    if (key.empty())
        throw RuntimeError(ErrNo::InvalidCall, "CodeDecode without a key");
    std::string out(text);
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = char(static_cast<unsigned char>(out[i]) ^ static_cast<unsigned char>(key[i % key.size()]));
    return out;
}

std::string txt_ReadAll(const std::string& path)
{
    if (!std::filesystem::is_regular_file(path))
        return {};
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw RuntimeError(ErrNo::PathAccess, "cannot open " + path);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (bytes.size() < 2)
        throw RuntimeError(ErrNo::InvalidCall, "vehicle data file shorter than two bytes: " + path);
    bytes.resize(bytes.size() - 2);
    return bytes;
}

void EncodeArrayB(Bytes& bytes, std::string_view password, int lowerBound)
{
    const std::size_t length = password.size();
    const auto code = [&](std::size_t pos, std::uint8_t p) {
        const unsigned index = unsigned(lowerBound + int(pos));
        bytes[pos] = std::uint8_t((bytes[pos] ^ p ^ index) & 0xFF);
    };
    if (length == 0) {
        for (std::size_t pos = 0; pos < bytes.size(); ++pos)
            code(pos, 0xFF); // NOT b XOR i
        return;
    }
    for (std::size_t j = 0; j < length; ++j) {
        const std::uint8_t p = static_cast<unsigned char>(password[j]) ^ 0xFF;
        for (std::size_t pos = j; pos < bytes.size(); pos += length)
            code(pos, p);
    }
}

void EncodeString(std::string& text, std::string_view password)
{
    if (text.empty())
        return;
    Bytes bytes(text.begin(), text.end());
    EncodeArrayB(bytes, password);
    text.assign(bytes.begin(), bytes.end());
}

std::string EncodeStr(std::string text, std::string_view password)
{
    EncodeString(text, password);
    return text;
}

void EncodeControlText(const std::function<std::string()>& getText,
                       const std::function<void(const std::string&)>& setText)
{
    setText(EncodeStr(getText(), kCodecKey));
}

std::uint8_t BinStrToByte(std::string_view bits)
{
    std::uint8_t value = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        if (i < bits.size() && bits[i] == '1')
            value |= std::uint8_t(0x80 >> i);
    }
    return value;
}

int GetBit(std::uint8_t value, int bit)
{
    if (bit < 0 || bit > 7)
        throw RuntimeError(ErrNo::InvalidCall, "GetBit: bit " + std::to_string(bit));
    return (value >> bit) & 1;
}

} // namespace veltro
