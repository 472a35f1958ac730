// The editor's start-up reading of a ".eep" image, and its save of what it read over the same
// file. The input is the file; files longer than the reader's buffer (readImageFile refuses
// them) are left out.
#include "editor/config_image.h"
#include "fuzz_check.h"
#include "util/runtime_error.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace veltro;

namespace {

std::uint8_t byteAt(const Bytes& file, std::size_t offset) { return offset < file.size() ? file[offset] : 0; }

Record recordAt(const Bytes& file, std::size_t offset)
{
    Record record;
    for (std::size_t i = 0; i < record.size(); ++i)
        record[i] = byteAt(file, offset + i);
    return record;
}

// "0Ax00x...": eight pairs of upper-case hex digits joined by "x".
bool isRow(const std::string& row)
{
    if (row.size() != 23)
        return false;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const char c = row[i];
        if (i % 3 == 2 ? c != 'x' : !((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')))
            return false;
    }
    return true;
}

constexpr std::size_t kRowOffsets[9] = {0, 8, 16, 24, 32, 40, 48, 56, 928};

// Record rows in their text form, converting back to the file's records (0 past its end) the
// way the editor converts them when it saves.
void checkRows(const Bytes& file, const ImageReading& reading)
{
    for (std::size_t i = 0; i < reading.rows.size(); ++i) {
        FUZZ_CHECK(isRow(reading.rows[i]));
        FUZZ_CHECK(hextobytearray(reading.rows[i]) == recordAt(file, kRowOffsets[i]));
    }
}

// The image as the editor saves it unchanged: the records from the rows it read, the other
// fields from the file itself. Values X and Y of slots 1 and 2 take the file's bytes too, so
// that their being left out shows. The unused bytes 155..160 give the six texts' lengths
// (0..16), so short texts and texts running on into the next line both occur.
ConfigImage imageAsRead(const Bytes& file, const ImageReading& reading)
{
    ConfigImage image;
    for (int slot = 0; slot < kSlotCount; ++slot) {
        image.recordA[slot] = hextobytearray(reading.rows[slot]);
        image.recordB[slot] = recordAt(file, 64 + 8 * std::size_t(slot));
        image.valueX[slot] = byteAt(file, 137 + std::size_t(slot));
        image.valueY[slot] = byteAt(file, 145 + std::size_t(slot));
    }
    image.switchA = hextobytearray(reading.rows[8]);
    image.switchB = recordAt(file, 936);
    image.flags = reading.flags;
    image.threshold = reading.threshold;
    image.speed = reading.speed;
    image.switching = reading.switching;
    for (int line = 0; line < kDisplayLineCount; ++line) {
        const std::size_t length = byteAt(file, 155 + std::size_t(line)) % 17;
        for (std::size_t i = 0; i < length; ++i)
            image.texts[line].push_back(char(byteAt(file, 512 + 8 * std::size_t(line) + i)));
    }
    return image;
}

// The saved file byte by byte: as long as the input or 1023 bytes, whichever is more; where no
// field lies 0xFF on 0..1021 and 0x00 on 1022; the fields at their offsets, slots 1 and 2 without
// values X and Y; the texts in line order, each covering what the one before ran into; from
// 1023 on everything as it was.
Bytes expectedSave(const Bytes& file, const ConfigImage& image)
{
    Bytes out = file;
    out.resize(std::max(file.size(), kImageSize), 0);
    std::fill(out.begin(), out.begin() + 1022, 0xFF);
    out[1022] = 0x00;
    const auto put = [&](std::size_t offset, const Record& r) { std::copy(r.begin(), r.end(), out.begin() + offset); };
    for (int slot = 0; slot < kSlotCount; ++slot) {
        put(8 * std::size_t(slot), image.recordA[slot]);
        put(64 + 8 * std::size_t(slot), image.recordB[slot]);
        if (slot != 1 && slot != 2) {
            out[137 + slot] = image.valueX[slot];
            out[145 + slot] = image.valueY[slot];
        }
    }
    put(928, image.switchA);
    put(936, image.switchB);
    out[128] = image.flags;
    out[136] = image.threshold;
    out[153] = std::uint8_t(image.speed & 0xFF);
    out[154] = image.switching;
    for (int line = 0; line < kDisplayLineCount; ++line)
        for (std::size_t i = 0; i < image.texts[line].size(); ++i)
            out[512 + 8 * std::size_t(line) + i] = std::uint8_t(image.texts[line][i]);
    return out;
}

// The controls show the bytes read, and saving what they show gives the bytes back. An erased
// speed (255) shows the first entry and a zero one no choice; switching 0 and 255 both mean
// none and are saved as 255. The threshold shows in tenths of a volt and comes back within one
// step, except the top byte: it shows as 17,0, beyond the range.
void checkControls(const ImageReading& reading)
{
    const std::uint8_t speed = reading.speed;
    try {
        const int index = speedIndex(speed);
        if (speed == 0)
            FUZZ_CHECK(index == -1);
        else
            FUZZ_CHECK(speedValue(index) == (speed == 255 ? 1 : speed));
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 380 && speed > speedNames().size() && speed != 255);
    }

    const std::uint8_t switching = reading.switching;
    try {
        FUZZ_CHECK(switchingValue(switchingIndex(switching)) == (switching == 0 ? 255 : switching));
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 380 && switching >= switchingNames().size() && switching != 255);
    }

    for (const char separator : {',', '.'}) {
        try {
            const int back = thresholdByte(thresholdText(reading.threshold, separator), separator);
            FUZZ_CHECK(std::abs(back - int(reading.threshold)) <= 1);
        } catch (const RuntimeError& e) {
            FUZZ_CHECK(e.number() == 6 && reading.threshold == 255);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size > kMaxImageFile)
        return 0;
    const Bytes file(data, data + size);
    const ImageReading reading = readImage(file);
    checkRows(file, reading);
    checkControls(reading);

    // Saved over a copy of the same bytes and read again: the same fields.
    const ConfigImage image = imageAsRead(file, reading);
    Bytes saved = file;
    writeImage(saved, image);
    FUZZ_CHECK(saved == expectedSave(file, image));
    const ImageReading again = readImage(saved);
    FUZZ_CHECK(again.rows == reading.rows && again.flags == reading.flags && again.threshold == reading.threshold);
    FUZZ_CHECK(again.speed == reading.speed && again.switching == reading.switching);
    return 0;
}
