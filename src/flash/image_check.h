#pragma once
// What may go to the bootloader. A controller given a page of text or a block of zeros as its
// firmware does not start again, and one given more than the bootloader takes is left with a
// partial image: such files are refused before the bootloader is woken.
#include "util/hex.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace veltro {

// The largest file the bootloader takes: 767 blocks of 128 bytes less the terminating zero.
inline constexpr std::size_t kMaxImageFileSize = 767 * 128 - 1; // 98,175

enum class ImageKind { Firmware, Configuration };

// True when the bytes are a text page rather than an image: the server called them text/html
// or text/plain, or after leading blanks they open with markup ("<!DOCTYPE", "<html", "<?xml").
bool looksLikePage(const Bytes& file, const std::string& contentType);

// Why a file of `size` bytes cannot go to the bootloader; nothing when it fits.
std::optional<std::string> sizeRefusal(std::uintmax_t size);

// Why the file must not be sent, as a line for the step list; nothing when it may go.
// Firmware must be a non-empty binary image that fits; a configuration image must fit (an
// empty one is a valid block of zeros for the display configuration).
std::optional<std::string> imageRefusal(const Bytes& file, ImageKind kind, const std::string& contentType = "");

} // namespace veltro
