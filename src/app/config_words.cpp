#include "app/config_words.h"

#include "app/history.h"

#include "editor/catalogue.h"
#include "editor/config_image.h"
#include "editor/vehicle_image.h"
#include "platform/windows1252.h"
#include "util/runtime_error.h"

#include <filesystem>
#include <fstream>

namespace veltro {

namespace {

// The controller type that identify leaves in the image is the vehicle's number in the
// catalogue. 0xFF there is erased EEPROM, or a file the editor's writer created: no vehicle.
constexpr std::size_t kImageVehicleByte = 1014;
// Offsets 0 to 943 carry the display configuration; a shorter file reads as 0 from its end.
constexpr std::size_t kConfigurationBytes = 944;

// Catalogue and vehicle data texts are Windows-1252; the words are UTF-8.
std::string utf8(const std::string& windows1252) { return windows1252ToQString(windows1252).toStdString(); }

// The list entry the editor selects for an image byte; the byte with a note when the list has
// none for it (speed 0 and 5..254, switching 31..254).
template <class IndexOf>
std::string listEntry(std::uint8_t byte, const std::vector<std::string>& names, IndexOf indexOf)
{
    int index = -1;
    try {
        index = indexOf(byte);
    } catch (const RuntimeError&) {
    }
    if (index < 0 || index >= int(names.size()))
        return std::to_string(byte) + " (kein Eintrag der Liste)";
    return names[std::size_t(index)];
}

ConfigWords failed(std::string why)
{
    ConfigWords w;
    w.error = std::move(why);
    return w;
}

} // namespace

ConfigWords describeImage(const Bytes& image, std::optional<int> vehicle, const std::string& folder)
{
    namespace fs = std::filesystem;
    const bool fromImage = !vehicle && image.size() > kImageVehicleByte && image[kImageVehicleByte] != 0xFF;
    if (fromImage)
        vehicle = image[kImageVehicleByte];

    ConfigItem vehicleItem{"Fahrzeug", "keines angegeben (--vehicle N), Datensätze in Hex"};
    std::string dataFile;
    VehicleDescription data;
    if (vehicle) {
        const std::string cataloguePath = folder + "/vehicles.inc";
        std::vector<CatalogueEntry> catalogue;
        try {
            catalogue = readCatalogue(cataloguePath);
        } catch (const RuntimeError& e) {
            return failed(cataloguePath + ": " + e.text());
        }
        if (std::size_t(*vehicle) >= catalogue.size())
            return failed("Fahrzeug " + std::to_string(*vehicle) + (fromImage ? " (laut Abbild)" : "") +
                          " steht nicht in " + cataloguePath + " (" + std::to_string(catalogue.size()) +
                          " Fahrzeuge ab 0)" + (fromImage ? "; mit --vehicle N ein Fahrzeug wählen" : ""));
        const CatalogueEntry& entry = catalogue[std::size_t(*vehicle)];
        const std::string dataPath = folder + "/" + entry.dataFile;
        std::error_code error;
        if (!fs::is_regular_file(dataPath, error))
            return failed(dataPath + ": Datei nicht gefunden");
        try {
            data = loadVehicleData(dataPath);
        } catch (const RuntimeError& e) {
            return failed(dataPath + ": " + e.text());
        }
        dataFile = utf8(entry.dataFile);
        vehicleItem = {fromImage ? "Fahrzeug laut Abbild" : "Fahrzeug", std::to_string(*vehicle) + " " + utf8(entry.name)};
    }

    // The entry the editor preselects for a row; the row itself when there is none.
    const auto named = [&](const std::string& row, int match, auto nameOf) -> std::string {
        if (match >= 0)
            return utf8(nameOf(std::size_t(match)));
        return vehicle ? row + " (kein Eintrag in " + dataFile + ")" : row;
    };
    const ImageReading r = readImage(image);
    ConfigWords w;
    w.items.push_back(vehicleItem);
    for (int line = 0; line < kDisplayLineCount; ++line) {
        const std::string& row = r.rows[std::size_t(displayLineSlot(line))];
        w.items.push_back({"Anzeigezeile " + std::to_string(line + 1),
                           named(row, matchingDisplayValue(data, row),
                                 [&](std::size_t k) { return data.displayValues[k].name; })});
    }
    w.items.push_back({"Schalteingang", named(r.rows[8], matchingSwitch(data, r.rows[8]),
                                              [&](std::size_t k) { return data.switches[k].name; })});
    w.items.push_back({"Anzeigegeschwindigkeit", listEntry(r.speed, speedNames(), speedIndex)});
    w.items.push_back({"Automatische Umschaltung", listEntry(r.switching, switchingNames(), switchingIndex)});
    w.items.push_back({"Unterspannungsschwelle", thresholdText(r.threshold, ',') + " V"});
    const auto yesNo = [&](ImageFlag flag) { return r.flags & flag ? "ja" : "nein"; };
    w.items.push_back({"Anzeige \"bei Zündung aus\" aktiv", yesNo(FlagIgnitionOffDisplay)});
    w.items.push_back({"Warnung Unterspannung aktiv", yesNo(FlagUndervoltageWarning)});
    w.items.push_back({"Sleepmodus nach 24h aktivieren (Strom sparen)", yesNo(FlagSleepAfter24h)});
    return w;
}

ConfigWords describeImageFile(const std::string& file, std::optional<int> vehicle, const std::string& folder)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::exists(file, error))
        return failed(file + ": Datei nicht gefunden");
    if (fs::is_directory(file, error))
        return failed(file + ": ein Ordner, kein Abbild");
    std::ifstream in(file, std::ios::binary);
    Bytes image(kMaxImageFile + 1);
    in.read(reinterpret_cast<char*>(image.data()), std::streamsize(image.size()));
    image.resize(std::size_t(in.gcount()));
    if (!in.is_open() || in.bad())
        return failed(file + ": Datei nicht lesbar");
    if (image.size() > kMaxImageFile)
        return failed(file + ": kein Konfigurationsabbild, mehr als " + std::to_string(kMaxImageFile) + " Bytes");
    ConfigWords w = describeImage(image, vehicle, folder);
    if (image.size() < kConfigurationBytes)
        w.warning = file + ": nur " + std::to_string(image.size()) + " Bytes, der Rest wird als 0 gelesen";
    return w;
}

std::vector<std::string> configDifferences(const ConfigWords& before, const ConfigWords& after)
{
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < std::min(before.items.size(), after.items.size()); ++i)
        if (before.items[i].value != after.items[i].value)
            lines.push_back((i == 0 ? std::string("Fahrzeug") : after.items[i].label) + ": " + before.items[i].value +
                            " -> " + after.items[i].value);
    return lines;
}

std::vector<EarlierConfiguration> earlierConfigurations(const std::string& folder, const std::string& serial,
                                                        const Bytes& current)
{
    const ConfigWords now = describeImage(current, std::nullopt, folder);
    std::vector<EarlierConfiguration> list;
    for (const HistoryEntry& e : readHistory(folder, serial)) {
        if (e.image.empty())
            continue;
        const ConfigWords then = describeImageFile(e.image, std::nullopt, folder);
        std::string words = then.error;
        for (const std::string& line : configDifferences(now, then))
            words += (words.empty() ? "" : "; ") + line;
        list.push_back({e.date + "  Firmware " + e.firmware + "  " + (words.empty() ? "wie die jetzige Konfiguration" : words),
                        e.image});
    }
    return list;
}

} // namespace veltro
