#include "device/readout.h"

#include "device/protocol.h"
#include "platform/waits.h"

namespace veltro {

namespace {
std::string hexNoPad(std::uint8_t b)
{
    const std::string two = HexByte2Char(b);
    return b < 16 ? two.substr(1) : two;
}

// Error ending shared by the readouts: what is waiting is read and thrown away, then what is
// still waiting after that is counted.
void errorEnding(SerialLink& link, const Handshake& hs, std::string& finalStatus, Reporter& reporter)
{
    std::size_t waiting = 0;
    if (link.isOpen() && !link.lost()) {
        link.readAll();
        waiting = link.bytesWaiting();
    }
    finalStatus = hs.counter == 1 || link.lost() ? std::string("ERROR") : "ERROR" + std::to_string(waiting);
    reporter.status(finalStatus);
}

// Opens the port and runs the handshake for `request`; false ends the job.
bool openAndRequest(SerialLink& link, std::uint8_t request, Reporter& reporter, std::string& finalStatus,
                    Handshake& hs)
{
    auto status = [&](const std::string& t) {
        finalStatus = t;
        reporter.status(t);
    };
    status("Öffne Com-Port");
    if (!link.open()) {
        status("ERROR");
        return false;
    }
    status("Com-Port geöffnet");
    status("Datenanforderung...");
    hs = resetHandshake(link, request, waits::kEchoAttempts, waits::kEchoPerAttempt);
    if (!hs.ok) {
        if (!link.lost())
            status("Reset nicht erkannt!");
        errorEnding(link, hs, finalStatus, reporter);
        return false;
    }
    link.discardInput();
    return true;
}
} // namespace

std::string dataBlockSerial(const Bytes& b)
{
    return hexNoPad(b[3]) + hexNoPad(b[2]) + hexNoPad(b[1]) + hexNoPad(b[0]);
}

std::string dataBlockDate(const Bytes& b)
{
    return "Herstellungsdatum des Gerätes: " + std::to_string(b[2]) + "." + std::to_string(b[1]) + ".20"
           + std::to_string(int(b[0]) - 200);
}

std::string dataBlockPasswortcal(const Bytes& b)
{
    return std::to_string(long(b[3]) + 256L * b[2] + 65536L * b[0]);
}

std::string dataBlockLambda(const Bytes& b)
{
    auto part = [](std::uint8_t v) { return v == 0 ? std::string("00") : hexNoPad(v); };
    return "Lambda-CAL: &H" + part(b[7]) + part(b[6]);
}

DataBlockResult runDataBlockReadout(SerialLink& link, Reporter& reporter)
{
    DataBlockResult r;
    Handshake hs;
    if (openAndRequest(link, kRequestDataBlock, reporter, r.finalStatus, hs)) {
        if (!waitForBytes(link, kDataBlockSize, waits::kImage)) {
            errorEnding(link, hs, r.finalStatus, reporter);
        } else {
            r.block = link.readAll();
            r.arrived = true;
            unsigned sum = 0;
            for (std::size_t i = 0; i < 128; ++i) {
                r.byteTexts.push_back(std::to_string(r.block[i]));
                sum = (sum + r.block[i]) & 0xFF;
                reporter.status(r.byteTexts.back());
            }
            r.finalStatus = r.byteTexts.back();
            if (sum == r.block[128]) {
                r.ok = true;
                r.finalStatus = "CHECKSUMME OK - DATEN GELADEN!";
                reporter.status(r.finalStatus);
                r.serial = dataBlockSerial(r.block);
                r.dateText = dataBlockDate(r.block);
                r.passwortcal = dataBlockPasswortcal(r.block);
                r.lambdaText = dataBlockLambda(r.block);
            }
        }
    }
    link.close();
    return r;
}

WordResult runWordReadout(SerialLink& link, Reporter& reporter)
{
    WordResult r;
    Handshake hs;
    if (openAndRequest(link, kRequestWord, reporter, r.finalStatus, hs)) {
        if (!waitForBytes(link, 2, waits::kImage)) {
            errorEnding(link, hs, r.finalStatus, reporter);
        } else {
            const Bytes b = link.readAll();
            r.ok = true;
            r.word = MakeWord04(b[0], b[1]);
        }
    }
    link.close();
    return r;
}

std::string serialFromLabel(const std::string& caption)
{
    // "SERIENNUMMER: " is 14 characters; the serial starts at character 15 (1-based).
    return caption.size() > 14 ? caption.substr(14, 11) : std::string();
}

} // namespace veltro
