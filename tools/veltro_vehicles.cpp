// veltro-vehicles: the maintainer's tool for vehicle data files.
//   veltro-vehicles decode FILE              prints the decoded text (CR LF between lines)
//   veltro-vehicles encode TEXTFILE OUTFILE  checks a text and writes its stored form
// Texts are Windows-1252 bytes, as the editor stores and shows them. The encoder accepts LF or
// CR LF line ends and drops line ends at the end of the text; it refuses a text the editor
// would stop at, and records or values the editor could not match or write.
// The sample catalogue keeps the texts of its vehicles in data/demo/text.
#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/config_image.h"
#include "util/runtime_error.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

using namespace veltro;

namespace {

int usage()
{
    std::cerr << "usage: veltro-vehicles decode FILE\n"
                 "       veltro-vehicles encode TEXTFILE OUTFILE\n";
    return 2;
}

bool readFile(const std::string& path, std::string& bytes)
{
    if (!std::filesystem::is_regular_file(path)) {
        std::cerr << "veltro-vehicles: " << path << ": no such file\n";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (!in.eof() && !in) {
        std::cerr << "veltro-vehicles: " << path << ": cannot read\n";
        return false;
    }
    return true;
}

std::string withCrLf(const std::string& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r'))
            out += '\r';
        out += text[i];
    }
    while (out.size() >= 2 && out.compare(out.size() - 2, 2, "\r\n") == 0)
        out.resize(out.size() - 2);
    return out;
}

// Problems the editor would not report but would get wrong: a record it cannot match with the
// image's rows, a value or text it cannot write as intended.
std::vector<std::string> contentProblems(const VehicleDescription& vehicle)
{
    std::vector<std::string> problems;
    const auto record = [&](const std::string& where, const std::string& text) {
        try {
            if (recordRow(hextobytearray(text)) != text)
                problems.push_back(where + ": record \"" + text +
                                   "\" is not eight upper-case hex pairs joined by x");
        } catch (const RuntimeError& e) {
            problems.push_back(where + ": record \"" + text + "\": " + e.text());
        }
    };
    const auto value = [&](const std::string& where, const std::string& text) {
        try {
            valueByte(text);
        } catch (const RuntimeError& e) {
            problems.push_back(where + ": value \"" + text + "\" is not 0 to 255");
        }
    };
    if (!vehicle.klemme15A.empty() || !vehicle.klemme15B.empty()) {
        record("KLEMME15", vehicle.klemme15A);
        record("KLEMME15", vehicle.klemme15B);
    }
    if (!vehicle.feldregenerationA.empty() || !vehicle.feldregenerationB.empty()) {
        record("FELDREGENERATION", vehicle.feldregenerationA);
        record("FELDREGENERATION", vehicle.feldregenerationB);
    }
    for (const DisplayValue& d : vehicle.displayValues) {
        record(d.name, d.recordA);
        record(d.name, d.recordB);
        value(d.name, d.valueX);
        value(d.name, d.valueY);
        if (d.text.size() != 8)
            problems.push_back(d.name + ": display text \"" + d.text + "\" is not 8 characters");
    }
    for (const SwitchInput& s : vehicle.switches) {
        record(s.name, s.recordA);
        record(s.name, s.recordB);
    }
    return problems;
}

int decode(const std::string& path)
{
    std::string stored;
    if (!readFile(path, stored))
        return 1;
    if (stored.size() < 2) {
        std::cerr << "veltro-vehicles: " << path << ": shorter than two bytes, not a vehicle data file\n";
        return 1;
    }
    const std::string text = CodeDecode(txt_ReadAll(path), kCodecKey);
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
    try {
        parseVehicleData(text);
    } catch (const RuntimeError& e) {
        std::cerr << "veltro-vehicles: " << path << ": the editor would stop here: " << e.what() << "\n";
        return 1;
    }
    return 0;
}

int encode(const std::string& textPath, const std::string& outPath)
{
    std::string raw;
    if (!readFile(textPath, raw))
        return 1;
    const std::string text = withCrLf(raw);
    if (text.empty()) {
        std::cerr << "veltro-vehicles: " << textPath << ": empty text\n";
        return 1;
    }
    VehicleDescription vehicle;
    try {
        vehicle = parseVehicleData(text);
    } catch (const RuntimeError& e) {
        std::cerr << "veltro-vehicles: " << textPath << ": " << e.what()
                  << " (every line needs seven fields separated by \"-\")\n";
        return 1;
    }
    const std::vector<std::string> problems = contentProblems(vehicle);
    for (const std::string& p : problems)
        std::cerr << "veltro-vehicles: " << textPath << ": " << p << "\n";
    if (!problems.empty())
        return 1;
    const std::string stored = encodeVehicleData(text);
    std::ofstream out(outPath, std::ios::binary | std::ios::trunc);
    out.write(stored.data(), std::streamsize(stored.size()));
    out.close();
    if (!out) {
        std::cerr << "veltro-vehicles: " << outPath << ": cannot write\n";
        return 1;
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 2 && args[0] == "decode")
        return decode(args[1]);
    if (args.size() == 3 && args[0] == "encode")
        return encode(args[1], args[2]);
    return usage();
}
