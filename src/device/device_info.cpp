#include "device/device_info.h"

#include "util/hex.h"
#include "util/runtime_error.h"

#include <algorithm>
#include <cctype>

namespace veltro {

namespace {
std::string pair(const std::string& s, std::size_t pos)
{
    return pos < s.size() ? s.substr(pos, 2) : std::string();
}

std::uint8_t toByte(const std::string& text)
{
    std::size_t i = 0;
    while (i < text.size() && text[i] == ' ') ++i;
    std::size_t j = text.size();
    while (j > i && text[j - 1] == ' ') --j;
    const std::string t = text.substr(i, j - i);
    if (t.empty() || !std::all_of(t.begin(), t.end(), [](char c) { return std::isdigit(static_cast<unsigned char>(c)); }))
        throw RuntimeError(ErrNo::TypeMismatch, "Ausbaustufe '" + text + "'");
    if (t.size() > 3 || std::stoi(t) > 255)
        throw RuntimeError(ErrNo::Overflow, "Ausbaustufe '" + text + "'");
    return std::uint8_t(std::stoi(t));
}
} // namespace

std::string deviceInfoTooltip(const std::string& fwupdateser, const std::string& btversion)
{
    const auto day = ReadHexPrefix(pair(fwupdateser, 0));
    const auto month = ReadHexPrefix(pair(fwupdateser, 2));
    const auto year = ReadHexPrefix(pair(fwupdateser, 4));
    const std::string level = HexByte2Char(toByte(btversion));
    return "Herstellungsdatum des VELTRO Interfaces: " + std::to_string(day) + "." + std::to_string(month) + "."
           + std::to_string(year) + "! Das Gerät wurde in der Ausbaustufe H" + level + " ausgeliefert!";
}

} // namespace veltro
