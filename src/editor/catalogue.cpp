#include "editor/catalogue.h"

#include "editor/codec.h"
#include "util/runtime_error.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace veltro {

namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isLineEnd(char c) { return c == '\r' || c == '\n'; }

// Consumes one separator at pos: a comma, or a line end (CR LF counts once).
void skipSeparator(std::string_view text, std::size_t& pos)
{
    if (pos >= text.size())
        return;
    if (text[pos] == ',') {
        ++pos;
    } else if (text[pos] == '\r') {
        ++pos;
        if (pos < text.size() && text[pos] == '\n') ++pos;
    } else if (text[pos] == '\n') {
        ++pos;
    }
}

bool onlyBlankLinesFrom(std::string_view text, std::size_t pos)
{
    for (; pos < text.size(); ++pos) {
        if (!isBlank(text[pos]) && !isLineEnd(text[pos]))
            return false;
    }
    return true;
}

std::vector<std::string_view> split(std::string_view text, std::string_view separator)
{
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) {
            parts.push_back(text.substr(start));
            return parts;
        }
        parts.push_back(text.substr(start, end - start));
        start = end + separator.size();
    }
}

} // namespace

std::vector<std::string> readInputFields(std::string_view text)
{
    std::vector<std::string> fields;
    std::size_t pos = 0;
    while (!onlyBlankLinesFrom(text, pos)) {
        while (pos < text.size() && isBlank(text[pos]))
            ++pos;
        std::string field;
        if (pos < text.size() && text[pos] == '"') {
            const std::size_t close = text.find('"', pos + 1);
            const std::size_t end = close == std::string_view::npos ? text.size() : close;
            field.assign(text.substr(pos + 1, end - pos - 1));
            pos = close == std::string_view::npos ? text.size() : close + 1;
            while (pos < text.size() && text[pos] != ',' && !isLineEnd(text[pos]))
                ++pos;
        } else {
            const std::size_t start = pos;
            while (pos < text.size() && text[pos] != ',' && !isLineEnd(text[pos]))
                ++pos;
            std::string_view raw = text.substr(start, pos - start);
            while (!raw.empty() && isBlank(raw.back()))
                raw.remove_suffix(1);
            field.assign(raw);
        }
        skipSeparator(text, pos);
        fields.push_back(std::move(field));
    }
    return fields;
}

std::vector<CatalogueEntry> parseCatalogue(std::string_view text)
{
    const std::vector<std::string> fields = readInputFields(text);
    if (fields.size() % 2 != 0)
        throw RuntimeError(ErrNo::InputPastEnd, "vehicles.inc ends inside a record");
    std::vector<CatalogueEntry> entries;
    for (std::size_t i = 0; i < fields.size(); i += 2)
        entries.push_back({fields[i], fields[i + 1]});
    return entries;
}

std::vector<CatalogueEntry> readCatalogue(const std::string& path)
{
    if (!std::filesystem::is_regular_file(path))
        throw RuntimeError(ErrNo::FileNotFound, path);
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw RuntimeError(ErrNo::PathAccess, "cannot open " + path);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return parseCatalogue(text);
}

VehicleDescription parseVehicleData(std::string_view decoded)
{
    VehicleDescription vehicle;
    if (decoded.empty())
        return vehicle;
    int lineNumber = 0;
    for (std::string_view line : split(decoded, "\r\n")) {
        ++lineNumber;
        // An empty line has no fields at all, so it fails like a short one.
        const std::vector<std::string_view> f =
            line.empty() ? std::vector<std::string_view>{} : split(line, "-");
        const auto field = [&](std::size_t i) -> std::string {
            if (i >= f.size())
                throw RuntimeError(ErrNo::SubscriptRange,
                                   "vehicle data line " + std::to_string(lineNumber) +
                                       " has no field " + std::to_string(i));
            return std::string(f[i]);
        };
        if (field(0) == "KLEMME15") {
            vehicle.klemme15A = field(1);
            vehicle.klemme15B = field(2);
        }
        if (field(0) == "FELDREGENERATION") {
            vehicle.feldregenerationA = field(1);
            vehicle.feldregenerationB = field(2);
        }
        if (field(6) == "DISPLAY")
            vehicle.displayValues.push_back({field(0), field(1), field(2), field(3), field(4), field(5)});
        if (field(6) == "SCHALTER")
            vehicle.switches.push_back({field(0), field(1), field(2)});
        vehicle.lineNames.push_back(field(0));
    }
    return vehicle;
}

VehicleDescription loadVehicleData(const std::string& path)
{
    return parseVehicleData(CodeDecode(txt_ReadAll(path), kCodecKey));
}

std::string encodeVehicleData(std::string_view decoded)
{
    parseVehicleData(decoded);
    return CodeDecode(decoded, kCodecKey) + "\r\n";
}

std::string lastSelectionText(int vehicleNumber)
{
    // Numbers print with a sign position (blank or "-") and one blank after.
    const std::string digits = std::to_string(vehicleNumber < 0 ? -static_cast<long long>(vehicleNumber)
                                                                : static_cast<long long>(vehicleNumber));
    return (vehicleNumber < 0 ? "-" : " ") + digits + " \r\n";
}

void writeLastSelection(const std::string& path, int vehicleNumber)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << lastSelectionText(vehicleNumber);
    if (!out)
        throw RuntimeError(ErrNo::PathAccess, "cannot write " + path);
}

} // namespace veltro
