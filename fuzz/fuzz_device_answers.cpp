// The identification exchange and the two readouts against a controller played from the input
// (see scripted_link.h). The first byte picks the job (low 7 bits % 3: identify, data block,
// word) and bit 7 makes the port fail to open.
//
// Whatever the controller does, the job must: end within the waits it declares, send nothing
// but its request byte, close the port, leave the status bar at its final text, and take an
// answer only after an echo that arrived on its own and only with a right checksum.
#include "device/identify.h"
#include "device/protocol.h"
#include "device/readout.h"
#include "fuzz_check.h"
#include "platform/waits.h"
#include "scripted_link.h"

#include <cctype>
#include <string>
#include <vector>

using namespace veltro;

namespace {

class LastStatus : public Reporter {
public:
    void status(const std::string& text) override { last = text; ++count; }
    void step(const std::string&) override { ++steps; }
    void percent(int) override {}
    std::string last;
    int count = 0;
    int steps = 0;
};

bool isUpperHex(const std::string& text)
{
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)) && !(c >= 'A' && c <= 'F')) return false;
    return true;
}

// The budget every job declares: the reset handshake's attempts, then one answer wait.
constexpr auto kBudget = waits::kEchoAttempts * waits::kEchoPerAttempt + waits::kImage;

void checkCommon(const fuzz::ScriptedLink& link, std::uint8_t request, const LastStatus& reporter,
                 const std::string& finalStatus)
{
    FUZZ_CHECK(!link.isOpen());
    FUZZ_CHECK(link.opens() == 1);
    FUZZ_CHECK(link.elapsed() <= kBudget);
    FUZZ_CHECK(link.written().size() <= std::size_t(waits::kEchoAttempts));
    for (std::uint8_t b : link.written())
        FUZZ_CHECK(b == request);
    FUZZ_CHECK(reporter.count > 0 && reporter.last == finalStatus);
    FUZZ_CHECK(reporter.steps == 0);
}

void identify(fuzz::ScriptedLink& link)
{
    LastStatus reporter;
    const ConnectResult r = runConnect(link, reporter);
    checkCommon(link, kRequestIdentify, reporter, r.finalStatus);
    FUZZ_CHECK((r.outcome == ConnectOutcome::Checked) == !r.image.empty());
    if (r.outcome == ConnectOutcome::PortFailed)
        FUZZ_CHECK(!r.portError.empty() && r.finalStatus == "ERROR");
    if (r.outcome != ConnectOutcome::Checked) {
        FUZZ_CHECK(!r.connected());
        FUZZ_CHECK(r.finalStatus.rfind("ERROR", 0) == 0);
        return;
    }
    FUZZ_CHECK(link.loneEchoReads() >= 1);
    FUZZ_CHECK(r.image.size() >= kImageSize);
    FUZZ_CHECK(r.byteTexts.size() == kImageFileSize);
    FUZZ_CHECK(r.byteTexts.back() == std::to_string(r.image[kImageFileSize - 1]));
    FUZZ_CHECK(r.serial.size() == 8 && isUpperHex(r.serial));
    const bool sumOk = byteSum(r.image, 0, kImageFileSize - 1) == r.image[kImageChecksumPos];
    FUZZ_CHECK(r.currentLayout == (sumOk && r.layoutByte() >= 179 && r.layoutByte() <= 181));
    FUZZ_CHECK(r.olderLayout == (sumOk && r.olderMarker() == 5));
    FUZZ_CHECK((r.finalStatus == "CHECKSUMME OK - VERBUNDEN!") == r.connected());
}

void dataBlock(fuzz::ScriptedLink& link)
{
    LastStatus reporter;
    const DataBlockResult r = runDataBlockReadout(link, reporter);
    checkCommon(link, kRequestDataBlock, reporter, r.finalStatus);
    if (!r.arrived) {
        FUZZ_CHECK(!r.ok && r.finalStatus.rfind("ERROR", 0) == 0);
        return;
    }
    FUZZ_CHECK(link.loneEchoReads() >= 1);
    FUZZ_CHECK(r.block.size() >= kDataBlockSize && r.byteTexts.size() == 128);
    FUZZ_CHECK(r.ok == (byteSum(r.block, 0, 127) == r.block[128]));
    if (r.ok) {
        FUZZ_CHECK(r.finalStatus == "CHECKSUMME OK - DATEN GELADEN!");
        FUZZ_CHECK(!r.serial.empty() && r.serial.size() <= 8 && isUpperHex(r.serial));
        FUZZ_CHECK(r.lambdaText.rfind("Lambda-CAL: &H", 0) == 0 && r.lambdaText.size() >= 16);
    } else {
        FUZZ_CHECK(r.finalStatus == r.byteTexts.back());
    }
}

void word(fuzz::ScriptedLink& link)
{
    LastStatus reporter;
    const WordResult r = runWordReadout(link, reporter);
    checkCommon(link, kRequestWord, reporter, r.finalStatus);
    if (r.ok)
        FUZZ_CHECK(link.loneEchoReads() >= 1);
    else
        FUZZ_CHECK(r.finalStatus.rfind("ERROR", 0) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const int job = (data[0] & 0x7F) % 3;
    const bool openFails = (data[0] & 0x80) != 0;
    const auto answer = job == 0 ? fuzz::Answer::Image : job == 1 ? fuzz::Answer::DataBlock : fuzz::Answer::Word;
    fuzz::ScriptedLink link(data + 1, size - 1, answer, openFails);
    switch (job) {
    case 0: identify(link); break;
    case 1: dataBlock(link); break;
    default: word(link); break;
    }
    return 0;
}
