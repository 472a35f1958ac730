#pragma once
// The tooltip of the serial, firmware and hardware labels: the manufacturing date encoded in
// the serial number and the build level (layout byte) the controller was delivered with.
#include <string>

namespace veltro {

// "Herstellungsdatum des VELTRO Interfaces: 15.11.23! Das Gerät wurde in der Ausbaustufe HB4
// ausgeliefert!" for serial 0F0B1703 and btversion 180. A btversion that does not fit a byte
// raises an overflow (6), one that is not a number a type mismatch (13).
std::string deviceInfoTooltip(const std::string& fwupdateser, const std::string& btversion);

} // namespace veltro
