#pragma once
// The display configuration inside the controller's EEPROM image, as the editor reads and
// writes it. The image file is the device's serial number + ".eep" (or ".tmp" for the upload
// copy) in the program folder; offsets 0 to 943 carry the display configuration, 1008 and up
// the identification bytes that the connect step stores.
//
// Slots: 0 = display line 1, 1 = the vehicle's "KLEMME15" entry, 2 = its "FELDREGENERATION"
// entry, 3 to 7 = display lines 2 to 6. Display line n (1..6) is slot displayLineSlot(n - 1).
#include "util/hex.h"

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltro {

using Record = std::array<std::uint8_t, 8>;

constexpr int kSlotCount = 8;
constexpr int kDisplayLineCount = 6;
constexpr std::size_t kImageSize = 1023;     // what the writer leaves in a new file
constexpr std::size_t kMaxImageFile = 2000;  // the reader's buffer; a longer file is an error

// Slot of display line k (0..5): 0, 3, 4, 5, 6, 7.
constexpr int displayLineSlot(int k) { return k == 0 ? 0 : k + 2; }

// Option flag bits at offset 128.
enum ImageFlag : std::uint8_t {
    FlagIgnitionOffDisplay = 1 << 0,  // "Anzeige "bei Zündung aus" aktiv"
    FlagUndervoltageWarning = 1 << 1, // "Warnung Unterspannung aktiv"
    FlagSleepAfter24h = 1 << 2,       // "Sleepmodus nach 24h aktivieren (Strom sparen)"
};

// Every field the editor writes, by name. Values X and Y of slots 1 and 2 are kept for
// symmetry but never written: the device expects 0xFF there.
struct ConfigImage {
    std::array<Record, kSlotCount> recordA{};
    std::array<Record, kSlotCount> recordB{};
    Record switchA{};
    Record switchB{};
    std::uint8_t flags = 0;
    std::uint8_t threshold = 0;       // volts = threshold * 0.063 + 0.9
    std::array<std::uint8_t, kSlotCount> valueX{};
    std::array<std::uint8_t, kSlotCount> valueY{};
    std::uint16_t speed = 1;          // 1..4, written as a 16-bit number over 153 and 154
    std::uint8_t switching = 255;     // 255 none, 1..30 seconds
    // Display line texts, one byte per character (Windows-1252). Eight bytes fill the line's
    // slot; a longer text runs on into the next line's, a shorter one leaves 0xFF behind it.
    std::array<std::string, kDisplayLineCount> texts;

    bool operator==(const ConfigImage&) const = default;
};

// Where the writer takes its fields from, asked in writing order. The editor's save can answer
// from its controls and throw at a bad entry, which stops the write at that field.
class ImageFieldSource {
public:
    virtual ~ImageFieldSource() = default;
    virtual Record recordA(int slot) const = 0;
    virtual Record recordB(int slot) const = 0;
    virtual Record switchA() const = 0;
    virtual Record switchB() const = 0;
    virtual std::uint8_t flags() const = 0;
    virtual std::uint8_t threshold() const = 0;
    virtual std::uint8_t valueX(int slot) const = 0;   // asked for slots 0 and 3..7
    virtual std::uint8_t valueY(int slot) const = 0;
    virtual std::uint16_t speed() const = 0;
    virtual std::uint8_t switching() const = 0;
    virtual std::string text(int line) const = 0;      // line 0..5
};

// The plain value as a source.
class ConfigImageSource : public ImageFieldSource {
public:
    explicit ConfigImageSource(const ConfigImage& image) : image_(image) {}
    Record recordA(int slot) const override { return image_.recordA.at(slot); }
    Record recordB(int slot) const override { return image_.recordB.at(slot); }
    Record switchA() const override { return image_.switchA; }
    Record switchB() const override { return image_.switchB; }
    std::uint8_t flags() const override { return image_.flags; }
    std::uint8_t threshold() const override { return image_.threshold; }
    std::uint8_t valueX(int slot) const override { return image_.valueX.at(slot); }
    std::uint8_t valueY(int slot) const override { return image_.valueY.at(slot); }
    std::uint16_t speed() const override { return image_.speed; }
    std::uint8_t switching() const override { return image_.switching; }
    std::string text(int line) const override { return image_.texts.at(line); }

private:
    const ConfigImage& image_;
};

// Writes the configuration over `file` (the existing file's bytes; it grows as needed and is
// never cut). Fills 0..1022 first, then the fields in their fixed order, so overlapping writes
// come out as on the device tool. Throws whatever the source throws, leaving `file` as far as
// written.
void writeImage(Bytes& file, const ImageFieldSource& fields);
void writeImage(Bytes& file, const ConfigImage& image);

// Writes the image into the file at `path` without truncating it (created when missing). On an
// error from the source the part written so far is stored before the error goes on.
void writeImageFile(const std::string& path, const ImageFieldSource& fields);
void writeImageFile(const std::string& path, const ConfigImage& image);

// What the editor's start-up takes from an image.
struct ImageReading {
    // Record rows as texts "0Ax00x...": offsets 0, 8, 16, 24, 32, 40, 48, 56 and 928.
    std::array<std::string, 9> rows;
    std::uint8_t flags = 0;
    std::uint8_t threshold = 0;
    std::uint8_t speed = 0;      // offset 153
    std::uint8_t switching = 0;  // offset 154

    bool flag(int bit) const { return (flags >> bit) & 1; }
};

// Bytes beyond the end of a short image read as 0.
ImageReading readImage(const Bytes& file);
// Reads the ".eep" file, creating an empty one when none exists. A file longer than
// kMaxImageFile bytes is a range error (9).
ImageReading readImageFile(const std::string& path);

// Eight bytes as "0Ax00xFFx12x00x00x00x00".
std::string recordRow(const Record& record);

// The threshold byte in volts with one decimal: 168 -> "11,5" with ',' as separator.
std::string thresholdText(std::uint8_t threshold, char decimalSeparator);
std::string thresholdText(std::uint8_t threshold); // the system's decimal separator
// A volt value to its byte: round((V - 0.9) / 0.063), halves to even; outside 0..255 an
// overflow (6).
std::uint8_t thresholdByte(double volts);
// A threshold text in the given decimal separator ("11,5") to its byte. Not a number: type
// mismatch (13).
std::uint8_t thresholdByte(std::string_view text, char decimalSeparator);
std::uint8_t thresholdByte(std::string_view text); // the system's decimal separator
char systemDecimalSeparator();

// A decimal value X or Y ("0" to "255", blanks around allowed) to its byte: not a number is a
// type mismatch (13), outside 0..255 an overflow (6).
std::uint8_t valueByte(std::string_view text);

// The editor's lists for the speed and switching bytes.
const std::vector<std::string>& speedNames();      // "SEHR SCHNELL" .. "LANGSAM"
const std::vector<std::string>& switchingNames();  // index = seconds, 0 = none
// List index shown for an image byte: speed 255 -> 0, else byte - 1 (0 gives -1, no
// selection); switching 0 and 255 -> 0, else the byte. A byte beyond the list is an invalid
// property value (380).
int speedIndex(std::uint8_t speedByte);
int switchingIndex(std::uint8_t switchingByte);
// Bytes written for a list index: speed index + 1; switching 0 -> 255.
std::uint16_t speedValue(int index);
std::uint8_t switchingValue(int index);

} // namespace veltro
