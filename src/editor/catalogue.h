#pragma once
// The vehicle catalogue "vehicles.inc", the coded vehicle data files it names, and the
// selection file "lastsel.inc". Texts are Windows-1252 byte strings as stored.
#include <string>
#include <string_view>
#include <vector>

namespace veltro {

struct CatalogueEntry {
    std::string name;      // shown in the vehicle list; its index is the vehicle number
    std::string dataFile;  // vehicle data file, relative to the program folder
};

// Fields of the comma-delimited input format: separated by a comma or a line end (CR LF, LF
// or CR), leading blanks skipped, a field in double quotes taken without them (anything after
// the closing quote up to the separator is dropped), trailing blanks of an unquoted field
// dropped. Blank lines at the end of the text end it.
std::vector<std::string> readInputFields(std::string_view text);

// Records of two fields; an odd field count reads past the end (62).
std::vector<CatalogueEntry> parseCatalogue(std::string_view text);
// A missing file is file not found (53).
std::vector<CatalogueEntry> readCatalogue(const std::string& path);

struct DisplayValue {
    std::string name;     // field 0
    std::string recordA;  // field 1, "0Ax00x..."
    std::string recordB;  // field 2
    std::string text;     // field 3, the line's text on the device display
    std::string valueY;   // field 4, decimal
    std::string valueX;   // field 5, decimal

    bool operator==(const DisplayValue&) const = default;
};

struct SwitchInput {
    std::string name;     // field 0
    std::string recordA;  // field 1
    std::string recordB;  // field 2

    bool operator==(const SwitchInput&) const = default;
};

// A vehicle data file, line by line. Record and value fields stay texts: the editor compares
// records with the image's rows as texts and converts them only when it writes.
struct VehicleDescription {
    std::string klemme15A, klemme15B;                  // the "KLEMME15" line's fields 1, 2
    std::string feldregenerationA, feldregenerationB;  // the "FELDREGENERATION" line's
    std::vector<DisplayValue> displayValues;           // lines whose field 6 is "DISPLAY"
    std::vector<SwitchInput> switches;                 // lines whose field 6 is "SCHALTER"
    std::vector<std::string> lineNames;                // field 0 of every line

    bool operator==(const VehicleDescription&) const = default;
};

// The decoded text: lines separated by CR LF, fields by "-". An empty line or one with fewer
// than seven fields is a range error (9). An empty text describes nothing.
VehicleDescription parseVehicleData(std::string_view decoded);
// txt_ReadAll + CodeDecode with the codec key + parseVehicleData. No file: nothing described.
VehicleDescription loadVehicleData(const std::string& path);

// Checks a decoded text as parseVehicleData does and codes it into the stored form (the coded
// text and CR LF).
std::string encodeVehicleData(std::string_view decoded);

// " 3 " CR LF: the vehicle number as printed, sign position included.
std::string lastSelectionText(int vehicleNumber);
void writeLastSelection(const std::string& path, int vehicleNumber);

} // namespace veltro
