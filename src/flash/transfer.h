#pragma once
// The controller's bootloader exchange: the mode byte wakes the bootloader (it echoes it after
// its reset), 0x15 says it is ready, then numbered 128-byte blocks go out, each answered with
// ACK or NAK, and EOT ends the transfer. Close to XMODEM, but the block byte, the complement
// and the checksum follow the device's own rules from block 256 on; those rules are its
// contract and are kept exactly.
#include "platform/reporter.h"
#include "platform/serial_link.h"
#include "util/hex.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace veltro {

inline constexpr std::size_t kBlockSize = 128;
inline constexpr int kMaxBlocks = 767; // the block byte cannot express block 768 and up
inline constexpr int kRetryBudget = 10; // refusals tolerated over the whole transfer

namespace boot {
inline constexpr std::uint8_t SOH = 0x01;
inline constexpr std::uint8_t EOT = 0x04;
inline constexpr std::uint8_t ACK = 0x06;
inline constexpr std::uint8_t NAK = 0x15; // also "ready" after the reset
inline constexpr std::uint8_t CAN = 0x18;
inline constexpr std::uint8_t FirmwareMode = 0x7B;      // "{"
inline constexpr std::uint8_t ConfigurationMode = 0x7C; // "|"
} // namespace boot

// The transfer buffer: the file's bytes, one terminating zero, zeros up to the next whole
// block. A length that is already a multiple of 128 still gets a whole extra block; an empty
// file gives one block. A file that cannot be read raises error 53.
Bytes LoadTransferImage(const std::string& path);
// The file's bytes as they are (what is checked before a transfer); error 53 as above.
Bytes loadImageFile(const std::string& path);
Bytes transferImageOf(const Bytes& file);

// Block numbers count from 1. The complement by range of n; above 1275 the previous value
// stays (pass it in).
int blockComplement(int n, int previous);
// The block byte by range of n; none for 768 and up (the ranges there go negative).
std::optional<std::uint8_t> blockNumberByte(int n);

// The running block checksum: 16-bit, reduced by 256 at most once after every addition.
struct TransferChecksum {
    std::int16_t value = 0;
    void ReduceChecksum()
    {
        if (value > 255) value = std::int16_t(value - 256);
    }
    void add(int v)
    {
        value = std::int16_t(value + v);
        ReduceChecksum();
    }
};
// (1 + n + complement + data bytes) reduced as the device does it.
std::uint8_t blockChecksum(int n, int complement, const std::uint8_t* data);

enum class TransferOutcome {
    Success,
    ResetNotRecognised, // "Reset nicht erkannt!"
    HandshakeTimedOut,  // no 0x15 after the echo
    RetryError,         // eleventh NAK or no answer: 0x18 sent, "Retry error!"
    Error,              // the port failed or was lost, the image is too large
};

struct TransferParams {
    std::uint8_t modeByte = boot::FirmwareMode;
    std::chrono::milliseconds answerWait{};
    std::string resetText;
    std::string handshakeFailText; // empty: the job ends silently
    bool percent = false;          // percent + " % übertragen!" in the status bar
    std::string eotText;
    std::string successText;
    bool textsToStatus = false;    // step texts also to the status bar
    bool resetTextFirst = false;   // reset text before "öffne COM-Port"
    // Called with (0, count) once the bootloader has taken the handshake and with (n, count)
    // after each accepted block; for a caller that follows several transfers at once.
    std::function<void(int block, int count)> progress;

    static TransferParams firmware();
    static TransferParams configuration();
};

// Runs the whole exchange on the link (opening it unless it is open already) and closes the
// link on every outcome.
TransferOutcome runTransfer(SerialLink& link, const Bytes& image, const TransferParams& params,
                            Reporter& reporter);

// Rounded to the nearest whole number, halves to even, as the percent display always did.
int transferPercent(int block, int count);

} // namespace veltro
