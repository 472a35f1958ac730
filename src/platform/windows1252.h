#pragma once
// Text as the device and its files hold it: one char per byte in the Windows-1252 code page.
#include <QString>

#include <string>
#include <string_view>

namespace veltro {

// Every byte maps to one character and back; the five codes Windows-1252 leaves unassigned
// keep their C1 code points. A character outside the code page becomes "?".
QString windows1252ToQString(std::string_view bytes);
std::string qStringToWindows1252(const QString& text);

} // namespace veltro
