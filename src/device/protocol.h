#pragma once
// The controller's identification and readout exchange: a single request byte, the echo of
// that byte when the controller restarts into its output, then a fixed-length answer with a
// checksum (sum of the bytes modulo 256).
#include "platform/serial_link.h"
#include "util/hex.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace veltro {

inline constexpr std::uint8_t kRequestIdentify = 200;
inline constexpr std::uint8_t kRequestDataBlock = 199;
inline constexpr std::uint8_t kRequestWord = 128;

inline constexpr std::size_t kImageSize = 1028;      // identification image on the wire
inline constexpr std::size_t kImageFileSize = 1026;  // positions 0..1025 as saved to disk
inline constexpr std::size_t kImageChecksumPos = 1027;
inline constexpr std::size_t kDataBlockSize = 129;

// Image positions
inline constexpr std::size_t kPosSerial = 1008;
inline constexpr std::size_t kPosLayout = 1012;
inline constexpr std::size_t kPosHardware = 1013;
inline constexpr std::size_t kPosControllerType = 1014;
inline constexpr std::size_t kPosFirmwareLo = 1024;
inline constexpr std::size_t kPosFirmwareHi = 1025;
inline constexpr std::size_t kPosOlderMinor = 126;
inline constexpr std::size_t kPosOlderMarker = 127;

// Sum of bytes [from, to] modulo 256.
std::uint8_t byteSum(const Bytes& bytes, std::size_t from, std::size_t to);

// Reset handshake: up to `attempts` attempts, each discarding what is waiting, writing the
// request byte and waiting `perAttempt` for exactly one waiting byte equal to the request.
// `counter` counts the attempts down from `attempts`; it is left at the attempt that
// succeeded, or at 1 when none did. A lost port ends the handshake at once.
struct Handshake {
    bool ok = false;
    int counter = 0;
};
Handshake resetHandshake(SerialLink& link, std::uint8_t request, int attempts,
                         std::chrono::milliseconds perAttempt);

// Waits until at least `count` bytes are waiting or the deadline passes; then reads them all.
// Returns false on time-out (the bytes stay waiting).
bool waitForBytes(SerialLink& link, std::size_t count, std::chrono::milliseconds limit);

// Serial number text of an image: bytes 1008..1011 as 8 upper-case hex digits.
std::string imageSerial(const Bytes& image);

} // namespace veltro
