#include "platform/windows1252.h"

namespace veltro {

namespace {
// 0x80..0x9F of Windows-1252; the five unassigned codes keep their C1 code points, as Windows
// converts them, so every byte survives a round trip.
constexpr char16_t kHigh[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};
} // namespace

QString windows1252ToQString(std::string_view bytes)
{
    QString text(qsizetype(bytes.size()), Qt::Uninitialized);
    QChar* out = text.data();
    for (char c : bytes) {
        const unsigned char b = static_cast<unsigned char>(c);
        *out++ = QChar(b >= 0x80 && b <= 0x9F ? kHigh[b - 0x80] : char16_t(b));
    }
    return text;
}

std::string qStringToWindows1252(const QString& text)
{
    std::string bytes;
    bytes.reserve(std::size_t(text.size()));
    for (QChar ch : text) {
        const char16_t u = ch.unicode();
        if (u < 0x80 || (u >= 0xA0 && u <= 0xFF)) {
            bytes.push_back(char(u));
            continue;
        }
        char mapped = '?';
        for (int i = 0; i < 32; ++i) {
            if (kHigh[i] == u) {
                mapped = char(0x80 + i);
                break;
            }
        }
        bytes.push_back(mapped);
    }
    return bytes;
}

} // namespace veltro
