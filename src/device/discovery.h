#pragma once
// Finding controllers on the ports: the open test, the probe (a quiet identification
// exchange that yields the firmware word) and the scan of port numbers 1 to 99.
#include "platform/serial_link.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace veltro {

// True when the port can be opened; the port is closed again either way.
bool PortTest(SerialLink& link);

// Firmware version of a controller answering on the link with a valid image, else 0.
// Opens and closes the link. Signed 16-bit: a word with its top bit set is negative.
std::int32_t portmap2maf(SerialLink& link);

// Chooser entry texts.
std::string controllerEntryText(int port, std::int32_t firmware); // "VELTRO FW V166 (COMPORT: 4)"
std::string freePortEntryText(int port);                         // "COM1 verfügbar"

struct ScanEntry {
    int port = 0;
    std::int32_t firmware = 0; // > 0: a controller answered
    std::string text;          // chooser text
    std::string location;      // system location, for the tooltip
};

struct ScanResult {
    std::vector<ScanEntry> entries; // ascending port numbers; missing and busy ports left out
    int selected = -1;              // index of the last controller entry, -1 when none
};

using LinkMaker = std::function<std::unique_ptr<SerialLink>(const std::string& location)>;
// Called on the probing thread as soon as one port's probe has ended, for every port that
// opens; calls for different ports may come at the same time and in any order.
using EntryFound = std::function<void(const ScanEntry&)>;

// Tests and probes every numbered port concurrently (each on its own thread) and returns the
// entries in ascending port order, as a scan one port after the other would list them.
ScanResult scanPorts(const std::map<int, std::string>& ports, const LinkMaker& makeLink,
                     const EntryFound& found = {});

// The same over the machine's numbered ports with real serial links.
ScanResult scanMachinePorts(const EntryFound& found = {});

} // namespace veltro
