#include "editor/config_image.h"

#include "util/runtime_error.h"

#include <QLocale>

#include <cfenv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace veltro {

namespace {

// Writes into the file image like a binary put: the file grows when a write reaches past
// its end, and nothing is ever cut off.
class ImagePut {
public:
    explicit ImagePut(Bytes& file) : file_(file) {}

    void byte(std::size_t offset, std::uint8_t value)
    {
        if (file_.size() <= offset)
            file_.resize(offset + 1, 0);
        file_[offset] = value;
    }
    void word(std::size_t offset, std::uint16_t value) // little-endian
    {
        byte(offset, std::uint8_t(value & 0xFF));
        byte(offset + 1, std::uint8_t(value >> 8));
    }
    void record(std::size_t offset, const Record& record)
    {
        for (std::size_t i = 0; i < record.size(); ++i)
            byte(offset + i, record[i]);
    }
    void text(std::size_t offset, const std::string& text)
    {
        for (std::size_t i = 0; i < text.size(); ++i)
            byte(offset + i, static_cast<std::uint8_t>(text[i]));
    }

private:
    Bytes& file_;
};

Bytes readWholeFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return {};
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void storeWholeFile(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out)
        throw RuntimeError(ErrNo::PathAccess, "cannot write " + path);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out)
        throw RuntimeError(ErrNo::PathAccess, "cannot write " + path);
}

} // namespace

// Offsets in the order of the device tool's save; the overlaps of the 16-bit writes (138/139,
// 146/147, 153) are resolved by the write that follows each of them.
void writeImage(Bytes& file, const ImageFieldSource& f)
{
    ImagePut put(file);

    // 255 as a 16-bit number at every position leaves 0xFF on 0..1021 and 0x00 on 1022.
    for (std::size_t p = 0; p <= 1021; ++p)
        put.word(p, 255);

    for (int slot = 0; slot < kSlotCount; ++slot)
        put.record(0 + 8 * std::size_t(slot), f.recordA(slot));
    for (int slot = 0; slot < kSlotCount; ++slot)
        put.record(64 + 8 * std::size_t(slot), f.recordB(slot));
    put.record(928, f.switchA());
    put.record(936, f.switchB());

    put.byte(128, f.flags());
    put.byte(136, f.threshold());

    put.byte(137, f.valueX(0));
    put.word(138, 255);
    put.word(139, 255);
    for (int slot = 3; slot < kSlotCount; ++slot)
        put.byte(137 + std::size_t(slot), f.valueX(slot)); // 140..144

    put.byte(145, f.valueY(0));
    put.word(146, 255);
    put.word(147, 255);
    for (int slot = 3; slot < kSlotCount; ++slot)
        put.byte(145 + std::size_t(slot), f.valueY(slot)); // 148..152

    put.word(153, f.speed());
    put.byte(154, f.switching());

    for (int k = 0; k < kDisplayLineCount; ++k)
        put.text(512 + 8 * std::size_t(k), f.text(k));
}

void writeImage(Bytes& file, const ConfigImage& image)
{
    writeImage(file, ConfigImageSource(image));
}

void writeImageFile(const std::string& path, const ImageFieldSource& fields)
{
    Bytes file = readWholeFile(path);
    try {
        writeImage(file, fields);
    } catch (...) {
        storeWholeFile(path, file);
        throw;
    }
    storeWholeFile(path, file);
}

void writeImageFile(const std::string& path, const ConfigImage& image)
{
    writeImageFile(path, ConfigImageSource(image));
}

std::string recordRow(const Record& record)
{
    std::string row;
    for (std::size_t i = 0; i < record.size(); ++i) {
        if (i) row.push_back('x');
        row += HexByte2Char(record[i]);
    }
    return row;
}

ImageReading readImage(const Bytes& file)
{
    const auto at = [&](std::size_t offset) -> std::uint8_t {
        return offset < file.size() ? file[offset] : 0;
    };
    const auto row = [&](std::size_t offset) {
        Record r;
        for (std::size_t i = 0; i < r.size(); ++i)
            r[i] = at(offset + i);
        return recordRow(r);
    };
    ImageReading reading;
    constexpr std::size_t rowOffsets[9] = {0, 8, 16, 24, 32, 40, 48, 56, 928};
    for (std::size_t i = 0; i < 9; ++i)
        reading.rows[i] = row(rowOffsets[i]);
    reading.flags = at(128);
    reading.threshold = at(136);
    reading.speed = at(153);
    reading.switching = at(154);
    return reading;
}

ImageReading readImageFile(const std::string& path)
{
    namespace fs = std::filesystem;
    if (!fs::exists(path)) {
        // Opening the image for binary access leaves an empty file behind.
        std::ofstream create(path, std::ios::binary);
        if (!create)
            throw RuntimeError(ErrNo::PathAccess, "cannot create " + path);
        return readImage({});
    }
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw RuntimeError(ErrNo::PathAccess, "cannot open " + path);
    Bytes file;
    file.reserve(kMaxImageFile);
    for (char c; in.get(c);) {
        if (file.size() == kMaxImageFile)
            throw RuntimeError(ErrNo::SubscriptRange, "image longer than 2000 bytes: " + path);
        file.push_back(static_cast<std::uint8_t>(c));
    }
    return readImage(file);
}

std::string thresholdText(std::uint8_t threshold, char decimalSeparator)
{
    // In thousandths of a volt the value is exact: 63 * b + 900. Tenths round halves to even,
    // as the stored value does.
    const int thousandths = 63 * int(threshold) + 900;
    int tenths = thousandths / 100;
    const int rest = thousandths % 100;
    if (rest > 50 || (rest == 50 && tenths % 2 == 1))
        ++tenths;
    return std::to_string(tenths / 10) + decimalSeparator + std::to_string(tenths % 10);
}

char systemDecimalSeparator()
{
    const QString point = QLocale::system().decimalPoint();
    return point.size() == 1 && point.at(0).unicode() < 0x80 ? char(point.at(0).unicode()) : '.';
}

std::string thresholdText(std::uint8_t threshold)
{
    return thresholdText(threshold, systemDecimalSeparator());
}

std::uint8_t thresholdByte(double volts)
{
    const int oldMode = std::fegetround();
    std::fesetround(FE_TONEAREST);
    const double stored = std::nearbyint((volts - 0.9) / 0.063);
    std::fesetround(oldMode);
    if (!(stored >= 0.0 && stored <= 255.0))
        throw RuntimeError(ErrNo::Overflow, "threshold outside 0..255");
    return std::uint8_t(stored);
}

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trimBlanks(std::string_view text)
{
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

// Sign, digits, optionally the decimal separator and more digits; nothing else.
bool parseDecimal(std::string_view text, char separator, double& value)
{
    text = trimBlanks(text);
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    double number = 0;
    double scale = 1;
    bool digits = false;
    bool fraction = false;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            digits = true;
            if (fraction) {
                scale /= 10;
                number += (c - '0') * scale;
            } else {
                number = number * 10 + (c - '0');
            }
        } else if (c == separator && !fraction) {
            fraction = true;
        } else {
            return false;
        }
    }
    if (!digits)
        return false;
    value = negative ? -number : number;
    return true;
}

} // namespace

std::uint8_t thresholdByte(std::string_view text, char decimalSeparator)
{
    double volts = 0;
    if (!parseDecimal(text, decimalSeparator, volts))
        throw RuntimeError(ErrNo::TypeMismatch, "threshold is not a number: " + std::string(text));
    return thresholdByte(volts);
}

std::uint8_t thresholdByte(std::string_view text)
{
    return thresholdByte(text, systemDecimalSeparator());
}

std::uint8_t valueByte(std::string_view text)
{
    double value = 0;
    if (!parseDecimal(text, '.', value))
        throw RuntimeError(ErrNo::TypeMismatch, "value is not a number: " + std::string(text));
    const int oldMode = std::fegetround();
    std::fesetround(FE_TONEAREST);
    const double rounded = std::nearbyint(value);
    std::fesetround(oldMode);
    if (!(rounded >= 0.0 && rounded <= 255.0))
        throw RuntimeError(ErrNo::Overflow, "value outside 0..255: " + std::string(text));
    return std::uint8_t(rounded);
}

const std::vector<std::string>& speedNames()
{
    static const std::vector<std::string> names = {"SEHR SCHNELL", "SCHNELL", "MITTEL", "LANGSAM"};
    return names;
}

const std::vector<std::string>& switchingNames()
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> n = {"Keine Autoumschaltung", "Jede Sekunde umschalten"};
        for (int seconds = 2; seconds <= 30; ++seconds)
            n.push_back("Nach " + std::to_string(seconds) + " Sekunden umschalten");
        return n;
    }();
    return names;
}

int speedIndex(std::uint8_t speedByte)
{
    if (speedByte == 255)
        return 0; // erased EEPROM
    const int index = int(speedByte) - 1;
    if (index >= int(speedNames().size()))
        throw RuntimeError(ErrNo::InvalidProperty, "speed byte " + std::to_string(speedByte));
    return index;
}

int switchingIndex(std::uint8_t switchingByte)
{
    if (switchingByte == 255)
        return 0;
    if (switchingByte >= switchingNames().size())
        throw RuntimeError(ErrNo::InvalidProperty, "switching byte " + std::to_string(switchingByte));
    return switchingByte;
}

std::uint16_t speedValue(int index)
{
    if (index < 0 || index >= int(speedNames().size()))
        throw RuntimeError(ErrNo::InvalidProperty, "no speed selected");
    return std::uint16_t(index + 1);
}

std::uint8_t switchingValue(int index)
{
    if (index < 0 || index >= int(switchingNames().size()))
        throw RuntimeError(ErrNo::InvalidProperty, "no switching selected");
    return index == 0 ? 255 : std::uint8_t(index);
}

} // namespace veltro
