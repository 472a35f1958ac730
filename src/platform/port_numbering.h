#pragma once
// Port numbers 1 to 99 as the tool speaks of them. On Windows number n is COMn. Elsewhere the
// machine's serial ports, sorted by system location, get the numbers 1, 2, 3, ...; the
// VELTRO_PORTS list ("4=/dev/pts/3,7=/dev/pts/5") adds or replaces numbers, so a
// pseudo-terminal can stand on a chosen number. VELTRO_SYSTEM_PORTS=0 leaves the machine's own
// ports out (tests, the demo).
#include <map>
#include <string>

namespace veltro {

inline constexpr int kFirstPortNumber = 1;
inline constexpr int kLastPortNumber = 99;

// number -> system location ("/dev/ttyUSB0", "COM3")
std::map<int, std::string> numberedPorts();
// The system location of a number, empty when the number has no port.
std::string portLocation(int number);
// Parses "N=/dev/path" pairs separated by commas or semicolons; malformed pairs are skipped.
std::map<int, std::string> parsePortOverrides(const std::string& text);

} // namespace veltro
