// The bootloader's transfer buffer and the checks that keep a file away from the bootloader.
// The input is the file (as downloaded or picked); its first bytes also give a file size, and
// for a share of inputs it is stretched to the bootloader limit, which no corpus file reaches.
#include "flash/image_check.h"
#include "flash/transfer.h"
#include "fuzz_check.h"
#include "util/runtime_error.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

using namespace veltro;

namespace {

// The file's bytes, one terminating zero, zeros up to the next whole block.
void checkTransferImage(const Bytes& file, const Bytes& image)
{
    FUZZ_CHECK(image.size() % kBlockSize == 0);
    FUZZ_CHECK(image.size() > file.size() && image.size() - file.size() <= kBlockSize);
    FUZZ_CHECK(std::equal(file.begin(), file.end(), image.begin()));
    FUZZ_CHECK(std::all_of(image.begin() + std::ptrdiff_t(file.size()), image.end(), [](std::uint8_t b) { return b == 0; }));
}

const std::string& scratchFile()
{
    static const std::string path = (std::filesystem::temp_directory_path() /
                                     ("veltro-fuzz-transfer-" + std::to_string(::getpid()) + ".bin"))
                                        .string();
    return path;
}

// The same buffer from the file on disk; once the file is gone, file not found.
void checkLoadedFromDisk(const Bytes& file, const Bytes& image)
{
    const std::string& path = scratchFile();
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
        FUZZ_CHECK(out.good());
    }
    FUZZ_CHECK(LoadTransferImage(path) == image);
    std::remove(path.c_str());
    try {
        LoadTransferImage(path);
        FUZZ_CHECK(!"a missing file loads");
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 53);
    }
}

// A firmware is refused exactly when it is empty, too large or a page; a configuration image
// only when it is too large. The size check says why, in the same words.
void checkRefusals(const Bytes& file)
{
    const auto tooLarge = sizeRefusal(file.size());
    for (const char* type : {"", "application/octet-stream", "text/html; charset=UTF-8", "Text/Plain"}) {
        const bool page = looksLikePage(file, type);
        const auto firmware = imageRefusal(file, ImageKind::Firmware, type);
        const auto configuration = imageRefusal(file, ImageKind::Configuration, type);
        FUZZ_CHECK(firmware.has_value() == (file.empty() || tooLarge || page));
        FUZZ_CHECK(configuration == tooLarge);
        if (tooLarge)
            FUZZ_CHECK(firmware == tooLarge);
    }
}

// What makes a page: the server's text type, or markup after leading blanks.
void checkPageRecognition(const Bytes& file)
{
    const bool page = looksLikePage(file, "");
    FUZZ_CHECK(looksLikePage(file, "TEXT/HTML") && looksLikePage(file, "text/plain;charset=iso-8859-1"));

    const auto firstByte = std::find_if(file.begin(), file.end(), [](std::uint8_t c) { return !std::isspace(c); });
    if (firstByte == file.end() || *firstByte != '<')
        FUZZ_CHECK(!page);

    Bytes indented = {' ', '\r', '\n', '\t'};
    indented.insert(indented.end(), file.begin(), file.end());
    FUZZ_CHECK(looksLikePage(indented, "") == page);

    if (page) {
        Bytes longer = file;
        longer.insert(longer.end(), {0x00, 0x01, 0xFF});
        FUZZ_CHECK(looksLikePage(longer, ""));
    }
    for (const std::string markup : {"<!DOCTYPE html>", "  <html lang=\"de\">", "<?xml version=\"1.0\"?>\n"}) {
        Bytes marked(markup.begin(), markup.end());
        marked.insert(marked.end(), file.begin(), file.end());
        FUZZ_CHECK(looksLikePage(marked, ""));
    }
}

// A size fits the bootloader exactly when its transfer buffer takes no more blocks than the
// block byte can number.
void checkSizeLimit(std::uintmax_t size)
{
    FUZZ_CHECK(!sizeRefusal(size) == (size / kBlockSize + 1 <= std::uintmax_t(kMaxBlocks)));
}

// The input stretched (repeated) to two bytes below up to two above the largest file the
// bootloader takes.
void checkAtTheLimit(const Bytes& file)
{
    const std::size_t size = kMaxImageFileSize - 2 + (file.empty() ? 0 : file.back() % 5);
    Bytes big(size, 0x5A);
    if (!file.empty())
        for (std::size_t i = 0; i < size; ++i)
            big[i] = file[i % file.size()];
    const bool fits = size <= kMaxImageFileSize;
    FUZZ_CHECK(imageRefusal(big, ImageKind::Configuration).has_value() == !fits);
    FUZZ_CHECK(imageRefusal(big, ImageKind::Firmware).has_value() == (!fits || looksLikePage(big, "")));
    const Bytes image = transferImageOf(big);
    checkTransferImage(big, image);
    FUZZ_CHECK((image.size() / kBlockSize <= std::size_t(kMaxBlocks)) == fits);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Bytes file(data, data + size);
    const Bytes image = transferImageOf(file);
    checkTransferImage(file, image);
    checkRefusals(file);
    checkPageRecognition(file);

    std::uintmax_t number = 0;
    for (std::size_t i = 0; i < std::min<std::size_t>(size, 8); ++i)
        number |= std::uintmax_t(data[i]) << (8 * i);
    checkSizeLimit(number);
    checkSizeLimit(number % (2 * kMaxImageFileSize));

    // Disk and the 98 KB stretch cost far more than the rest: one input in sixteen, by length.
    if (size % 16 == 0) {
        checkLoadedFromDisk(file, image);
        checkAtTheLimit(file);
    }
    return 0;
}
