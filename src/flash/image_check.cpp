#include "flash/image_check.h"

#include <algorithm>
#include <cctype>

namespace veltro {

namespace {
std::string lower(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

bool isBlank(std::uint8_t c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}
} // namespace

bool looksLikePage(const Bytes& file, const std::string& contentType)
{
    const std::string type = lower(contentType.substr(0, contentType.find(';')));
    if (type.rfind("text/html", 0) == 0 || type.rfind("text/plain", 0) == 0)
        return true;
    std::size_t i = 0;
    while (i < file.size() && isBlank(file[i]))
        ++i;
    if (i + 1 >= file.size() || file[i] != '<')
        return false;
    // A firmware image may begin with 0x3C by chance; markup goes on with a tag name, "!",
    // "?" or "/" and reads as text up to the tag's end.
    const std::uint8_t next = file[i + 1];
    if (!std::isalpha(next) && next != '!' && next != '?' && next != '/')
        return false;
    const std::size_t end = std::min(file.size(), i + 512);
    for (std::size_t k = i; k < end; ++k) {
        const std::uint8_t c = file[k];
        if (c == '>')
            return true;
        if (c < 0x20 && !isBlank(c))
            return false;
    }
    return false;
}

std::optional<std::string> sizeRefusal(std::uintmax_t size)
{
    if (size <= kMaxImageFileSize)
        return std::nullopt;
    return "Abbruch: die Datei ist zu groß für den Bootloader (" + std::to_string(size) + " Bytes, höchstens "
           + std::to_string(kMaxImageFileSize) + "). Der Controller bleibt unverändert.";
}

std::optional<std::string> imageRefusal(const Bytes& file, ImageKind kind, const std::string& contentType)
{
    if (kind == ImageKind::Firmware && file.empty())
        return std::string("Abbruch: die Datei ist leer. Der Controller bleibt unverändert.");
    if (auto tooLarge = sizeRefusal(file.size()))
        return tooLarge;
    if (kind == ImageKind::Firmware && looksLikePage(file, contentType))
        return std::string("Abbruch: der Server hat eine Textseite statt einer Firmware geliefert. Der Controller "
                           "bleibt unverändert.");
    return std::nullopt;
}

} // namespace veltro
