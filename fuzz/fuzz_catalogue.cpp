// The vehicle catalogue and the vehicle data files. Every input is taken three ways: as a
// catalogue "vehicles.inc", as decoded vehicle data, and as a stored (coded) vehicle data file.
#include "editor/catalogue.h"
#include "editor/codec.h"
#include "fuzz_check.h"
#include "util/runtime_error.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using namespace veltro;

namespace {

// The fields written back the way the catalogue is kept, "name","file" CR LF. A field holding
// a quote cannot be quoted and goes as it is: the reader gives such a field only unquoted, so
// it has no separator in it and no blank at either end.
std::string writtenBack(const std::vector<std::string>& fields)
{
    std::string text;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string& field = fields[i];
        text += field.find('"') == std::string::npos ? '"' + field + '"' : field;
        text += i % 2 == 0 ? "," : "\r\n";
    }
    return text;
}

// Fields written back read as the same fields; the catalogue pairs them in order and refuses an
// odd count.
void checkCatalogue(std::string_view text)
{
    const std::vector<std::string> fields = readInputFields(text);
    FUZZ_CHECK(readInputFields(writtenBack(fields)) == fields);
    try {
        const std::vector<CatalogueEntry> entries = parseCatalogue(text);
        FUZZ_CHECK(entries.size() * 2 == fields.size());
        for (std::size_t i = 0; i < entries.size(); ++i)
            FUZZ_CHECK(entries[i].name == fields[2 * i] && entries[i].dataFile == fields[2 * i + 1]);
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 62 && fields.size() % 2 == 1);
    }
}

std::vector<std::string> splitAt(std::string_view text, std::string_view separator)
{
    std::vector<std::string> parts(1);
    for (std::size_t i = 0; i < text.size();) {
        if (text.substr(i, separator.size()) == separator) {
            parts.emplace_back();
            i += separator.size();
        } else {
            parts.back().push_back(text[i++]);
        }
    }
    return parts;
}

// Decoded vehicle data as described line by line: lines at CR LF, fields at "-", at least seven
// fields a line (an empty line has none, an empty text no line). KLEMME15 and FELDREGENERATION
// lines give their records, a later one replacing an earlier one; DISPLAY and SCHALTER lines
// (field 6) their entries in order; every line its name. Nothing when a line is short.
std::optional<VehicleDescription> described(std::string_view decoded)
{
    VehicleDescription vehicle;
    if (decoded.empty())
        return vehicle;
    for (const std::string& line : splitAt(decoded, "\r\n")) {
        const std::vector<std::string> f = line.empty() ? std::vector<std::string>{} : splitAt(line, "-");
        if (f.size() < 7)
            return std::nullopt;
        if (f[0] == "KLEMME15") {
            vehicle.klemme15A = f[1];
            vehicle.klemme15B = f[2];
        } else if (f[0] == "FELDREGENERATION") {
            vehicle.feldregenerationA = f[1];
            vehicle.feldregenerationB = f[2];
        }
        if (f[6] == "DISPLAY")
            vehicle.displayValues.push_back({f[0], f[1], f[2], f[3], f[4], f[5]});
        else if (f[6] == "SCHALTER")
            vehicle.switches.push_back({f[0], f[1], f[2]});
        vehicle.lineNames.push_back(f[0]);
    }
    return vehicle;
}

// The description as above, or a range error exactly when a line is short; stored, the text is
// coded with the codec key and CR LF follows, and decoding it gives the text back.
void checkVehicleData(std::string_view decoded)
{
    const std::optional<VehicleDescription> expected = described(decoded);
    try {
        const VehicleDescription vehicle = parseVehicleData(decoded);
        FUZZ_CHECK(expected && vehicle == *expected);
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 9 && !expected);
    }
    try {
        const std::string stored = encodeVehicleData(decoded);
        FUZZ_CHECK(expected && stored.size() == decoded.size() + 2 && stored.ends_with("\r\n"));
        FUZZ_CHECK(CodeDecode(std::string_view(stored).substr(0, decoded.size()), kCodecKey) == decoded);
    } catch (const RuntimeError& e) {
        FUZZ_CHECK(e.number() == 9 && !expected);
    }
}

const std::string& scratchFile()
{
    static const std::string path = (std::filesystem::temp_directory_path() /
                                     ("veltro-fuzz-catalogue-" + std::to_string(::getpid()) + ".fzd"))
                                        .string();
    return path;
}

// The outcome of a call: its result, or the number of the runtime error it raised.
struct Loaded {
    VehicleDescription vehicle;
    int error = 0;
    bool operator==(const Loaded&) const = default;
};
template <class Call>
Loaded outcome(Call call)
{
    try {
        return {call(), 0};
    } catch (const RuntimeError& e) {
        return {{}, e.number()};
    }
}

// The input as a stored file: its text is the file less its last two bytes, decoded. A file
// that describes a vehicle is stored again as itself, its last two bytes as CR LF. Loaded from
// disk (for a share of inputs) it describes the same; a missing file describes nothing.
void checkStoredFile(std::string_view file)
{
    std::optional<std::string> decoded;
    if (file.size() >= 2) {
        decoded = CodeDecode(file.substr(0, file.size() - 2), kCodecKey);
        checkVehicleData(*decoded);
        if (described(*decoded))
            FUZZ_CHECK(encodeVehicleData(*decoded) == std::string(file.substr(0, file.size() - 2)) + "\r\n");
    }
    if (file.size() % 16 != 0) // disk costs far more than the rest: one input in sixteen, by length
        return;
    const std::string& path = scratchFile();
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(file.data(), std::streamsize(file.size()));
        FUZZ_CHECK(out.good());
    }
    const Loaded loaded = outcome([&] { return loadVehicleData(path); });
    if (decoded)
        FUZZ_CHECK(loaded == outcome([&] { return parseVehicleData(*decoded); }));
    else
        FUZZ_CHECK(loaded.error == 5);
    std::remove(path.c_str());
    FUZZ_CHECK(outcome([&] { return loadVehicleData(path); }) == Loaded{});
}

// Each coding is its own inverse; text shown from stored bytes is stored as the same bytes.
void checkCodings(std::string_view text)
{
    const std::string_view password = text.substr(0, 12);
    const std::string plain(text);
    for (const std::string_view key : {password, kCodecKey}) {
        try {
            FUZZ_CHECK(CodeDecode(CodeDecode(text, key), key) == text);
            FUZZ_CHECK(!key.empty());
        } catch (const RuntimeError& e) {
            FUZZ_CHECK(e.number() == 5 && key.empty());
        }
    }
    for (const std::string_view key : {std::string_view(), password, kCodecKey})
        FUZZ_CHECK(EncodeStr(EncodeStr(plain, key), key) == plain);
    for (const int lowerBound : {0, 1}) {
        Bytes bytes(text.begin(), text.end());
        EncodeArrayB(bytes, password, lowerBound);
        EncodeArrayB(bytes, password, lowerBound);
        FUZZ_CHECK(bytes == Bytes(text.begin(), text.end()));
    }
    FUZZ_CHECK(qStringToWindows1252(windows1252ToQString(text)) == plain);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    checkCatalogue(text);
    checkVehicleData(text);
    checkStoredFile(text);
    checkCodings(text);
    return 0;
}
