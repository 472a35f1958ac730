#include "flash/transfer.h"

#include "platform/waits.h"
#include "util/runtime_error.h"

#include <array>
#include <cmath>
#include <fstream>
#include <iterator>

namespace veltro {

Bytes transferImageOf(const Bytes& file)
{
    const std::size_t length = file.size();
    Bytes image(length + kBlockSize - length % kBlockSize, 0);
    std::copy(file.begin(), file.end(), image.begin());
    return image; // the byte after the file is the terminating zero; the rest stays zero
}

Bytes loadImageFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw RuntimeError(ErrNo::FileNotFound, path);
    Bytes file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        throw RuntimeError(ErrNo::FileNotFound, path);
    return file;
}

Bytes LoadTransferImage(const std::string& path)
{
    return transferImageOf(loadImageFile(path));
}

int blockComplement(int n, int previous)
{
    if (n <= 255) return 255 - n;
    if (n <= 510) return 510 - n;
    if (n <= 765) return 765 - n;
    if (n <= 1020) return 1020 - n;
    if (n <= 1275) return 1275 - n;
    return previous;
}

std::optional<std::uint8_t> blockNumberByte(int n)
{
    if (n < 256) return std::uint8_t(n);
    if (n <= 511) return std::uint8_t(n - 256);
    if (n <= 767) return std::uint8_t(n - 512);
    return std::nullopt;
}

std::uint8_t blockChecksum(int n, int complement, const std::uint8_t* data)
{
    TransferChecksum sum;
    sum.value = 1; // the SOH byte
    sum.add(n);    // the full block number, not the byte that goes out
    sum.add(complement);
    for (std::size_t k = 0; k < kBlockSize; ++k)
        sum.add(data[k]);
    return std::uint8_t(sum.value);
}

int transferPercent(int block, int count)
{
    return int(std::nearbyint(double(block) / double(count) * 100.0));
}

TransferParams TransferParams::firmware()
{
    TransferParams p;
    p.modeByte = boot::FirmwareMode;
    p.answerWait = waits::kBlockAnswerFirmware;
    p.resetText = "auf Reset warten...";
    p.percent = true;
    p.eotText = "sende 'EOT' !";
    p.successText = "Erfolgreich geflasht!";
    p.resetTextFirst = true;
    return p;
}

TransferParams TransferParams::configuration()
{
    TransferParams p;
    p.modeByte = boot::ConfigurationMode;
    p.answerWait = waits::kBlockAnswerConfig;
    p.resetText = "auf Controllerreset warten...";
    p.handshakeFailText = "Handshake fehlgeschlagen!";
    p.eotText = "sende 'End of transmitted'";
    p.successText = "Erfolgreich übertragen!";
    p.textsToStatus = true;
    return p;
}

namespace {

class Exchange {
public:
    Exchange(SerialLink& link, const TransferParams& p, Reporter& r) : link_(link), p_(p), r_(r) {}

    void say(const std::string& text)
    {
        r_.step(text);
        if (p_.textsToStatus) r_.status(text);
    }

    // True once the port has gone (unplugged adapter); says so once.
    bool lostLine()
    {
        if (!link_.lost()) return false;
        if (!reportedLoss_) say(kLinkLostText);
        reportedLoss_ = true;
        return true;
    }

    // Waits for a read that is exactly `expected`; anything else read is dropped.
    bool readExactly(std::uint8_t expected, Deadline deadline)
    {
        for (;;) {
            if (link_.bytesWaiting() > 0) {
                const Bytes got = link_.readAll();
                if (got.size() == 1 && got[0] == expected) return true;
            }
            if (link_.lost() || link_.now() >= deadline) return false;
            link_.waitForData(deadline);
        }
    }

    // ACK, NAK or nothing within the deadline.
    enum class Answer { Ack, Nak, None };
    Answer blockAnswer(Deadline deadline)
    {
        for (;;) {
            if (link_.bytesWaiting() > 0) {
                const Bytes got = link_.readAll();
                if (got.size() == 1 && got[0] == boot::ACK) return Answer::Ack;
                if (got.size() == 1 && got[0] == boot::NAK) return Answer::Nak;
            }
            if (link_.lost() || link_.now() >= deadline) return Answer::None;
            link_.waitForData(deadline);
        }
    }

    TransferOutcome run(const Bytes& image)
    {
        if (p_.resetTextFirst) say(p_.resetText);
        if (!link_.isOpen()) {
            say("öffne COM-Port");
            if (!link_.open()) {
                say("Com-Port kann nicht geöffnet werden: " + link_.errorText());
                return TransferOutcome::Error;
            }
        }
        if (!p_.resetTextFirst) say(p_.resetText);

        // Reset detection: the person resets or power-cycles the controller now; its
        // bootloader echoes the mode byte right after the reset.
        bool echoed = false;
        for (int round = 0; round < waits::kBootResetRounds && !echoed; ++round) {
            if (!link_.writeByte(p_.modeByte) || lostLine()) return TransferOutcome::Error;
            echoed = readExactly(p_.modeByte, link_.now() + waits::kBootResetPerRound);
            if (lostLine()) return TransferOutcome::Error;
        }
        if (!echoed) {
            say("Reset nicht erkannt!");
            return TransferOutcome::ResetNotRecognised;
        }

        say("Controllerreset empfangen");
        if (!readExactly(boot::NAK, link_.now() + waits::kBootHandshake)) {
            if (lostLine()) return TransferOutcome::Error;
            if (!p_.handshakeFailText.empty()) say(p_.handshakeFailText);
            return TransferOutcome::HandshakeTimedOut;
        }
        say("Handshake abgeschlossen");

        const int count = int(image.size() / kBlockSize);
        say("Blöcke gesamt: " + std::to_string(count));
        if (p_.progress) p_.progress(0, count);

        int n = 0;
        int complement = 0;
        int retries = 0;
        for (std::size_t i = 0; i < image.size();) {
            ++n;
            if (p_.percent) {
                const int percent = transferPercent(n, count);
                r_.status(std::to_string(percent) + " % übertragen!");
                r_.percent(percent);
            }
            complement = blockComplement(n, complement);
            const std::uint8_t* data = image.data() + i;
            const std::uint8_t checksum = blockChecksum(n, complement, data);

            const auto blockByte = blockNumberByte(n);
            if (!blockByte) {
                // The block byte cannot be formed: the start byte has gone out, nothing more.
                if (!link_.writeByte(boot::SOH) || lostLine()) return TransferOutcome::Error;
                say("sende Blocknummer: " + std::to_string(n));
                say("Abbruch: das Abbild ist zu groß für den Bootloader (mehr als "
                    + std::to_string(kMaxBlocks) + " Blöcke)");
                return TransferOutcome::Error;
            }
            // SOH, block byte, complement, data, checksum: the bytes and their order are what
            // the bootloader checks; they go out in one write so the line never idles
            // between them.
            frame_[0] = boot::SOH;
            frame_[1] = *blockByte;
            frame_[2] = std::uint8_t(complement);
            std::copy(data, data + kBlockSize, frame_.begin() + 3);
            frame_[3 + kBlockSize] = checksum;
            if (!link_.write(frame_.data(), frame_.size())) {
                if (!lostLine()) say(kLinkLostText);
                return TransferOutcome::Error;
            }
            say("sende Blocknummer: " + std::to_string(n));

            switch (blockAnswer(link_.now() + p_.answerWait)) {
            case Answer::Ack:
                say("ACK");
                i += kBlockSize;
                if (p_.progress) p_.progress(n, count);
                break;
            case Answer::Nak:
                say("NAK");
                if (retries == kRetryBudget) return retryError();
                ++retries;
                --n; // the same block again, under the same number
                break;
            case Answer::None:
                if (lostLine()) return TransferOutcome::Error;
                return retryError();
            }
        }

        say(p_.eotText);
        if (!link_.writeByte(boot::EOT) || lostLine()) return TransferOutcome::Error;
        say(p_.successText);
        return TransferOutcome::Success;
    }

    TransferOutcome retryError()
    {
        link_.writeByte(boot::CAN);
        say("Retry error!");
        return TransferOutcome::RetryError;
    }

private:
    SerialLink& link_;
    const TransferParams& p_;
    Reporter& r_;
    bool reportedLoss_ = false;
    std::array<std::uint8_t, 3 + kBlockSize + 1> frame_{};
};

} // namespace

TransferOutcome runTransfer(SerialLink& link, const Bytes& image, const TransferParams& params, Reporter& reporter)
{
    const TransferOutcome outcome = Exchange(link, params, reporter).run(image);
    link.close();
    return outcome;
}

} // namespace veltro
