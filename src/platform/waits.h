#pragma once
// Every wait on the device link, named after what it waits for. The controller's firmware
// was written against poll loops on a PC; each deadline here is at least as generous as
// those loops take on a typical machine (one poll of the waiting-byte count ~ 5 us).
#include <chrono>

namespace veltro::waits {

using namespace std::chrono_literals;
using Ms = std::chrono::milliseconds;

// Reset handshake of connect and readouts: 600 attempts of 1,000 polls each.
inline constexpr int kEchoAttempts = 600;
inline constexpr Ms kEchoPerAttempt = 5ms;
// The port probe polls twice as long per attempt.
inline constexpr Ms kProbeEchoPerAttempt = 10ms;
// Identification image or data block: 500,000 polls.
inline constexpr Ms kImage = 2500ms;
// Bootloader reset echo: 600 rounds of 1,000 polls; a person may have to power-cycle the
// controller in this time.
inline constexpr int kBootResetRounds = 600;
inline constexpr Ms kBootResetPerRound = 20ms;
// Bootloader ready signal (0x15) after the echo: 1,000,000 polls.
inline constexpr Ms kBootHandshake = 5000ms;
// Answer to one block: firmware 100,000 polls, configuration 1,000,000 polls.
inline constexpr Ms kBlockAnswerFirmware = 500ms;
inline constexpr Ms kBlockAnswerConfig = 5000ms;

} // namespace veltro::waits
