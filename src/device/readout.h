#pragma once
// Further readouts on the device link: the data block (request 199: manufacturing date,
// serial, calibration values) and the word readout (request 128).
#include "platform/reporter.h"
#include "platform/serial_link.h"
#include "util/hex.h"

#include <cstdint>
#include <string>
#include <vector>

namespace veltro {

struct DataBlockResult {
    bool ok = false;                     // checksum right: "CHECKSUMME OK - DATEN GELADEN!"
    bool arrived = false;                // a block arrived (its bytes are in byteTexts)
    Bytes block;
    std::vector<std::string> byteTexts;  // bytes 0..127 in decimal (List3 is refilled with them)
    std::string finalStatus;
    // Values derived from a good block
    std::string serial;       // hex of bytes 3, 2, 1, 0 without padding: "A10FF"
    std::string dateText;     // "Herstellungsdatum des Gerätes: 5.11.2023"
    std::string passwortcal;  // decimal of byte3 + 256*byte2 + 65536*byte0
    std::string lambdaText;   // "Lambda-CAL: &H003C"
};

// Values of a data block (exposed for the window and tests).
std::string dataBlockSerial(const Bytes& block);
std::string dataBlockDate(const Bytes& block);
std::string dataBlockPasswortcal(const Bytes& block);
std::string dataBlockLambda(const Bytes& block);

DataBlockResult runDataBlockReadout(SerialLink& link, Reporter& reporter);

struct WordResult {
    bool ok = false;
    std::int16_t word = 0;
    std::string finalStatus;
};
WordResult runWordReadout(SerialLink& link, Reporter& reporter);

// Characters 15 to 25 of the serial label's caption (the text after "SERIENNUMMER: ").
std::string serialFromLabel(const std::string& caption);

} // namespace veltro
