#include "app/cli.h"

#include "device/discovery.h"
#include "device/identify.h"
#include "device/readout.h"
#include "editor/catalogue.h"
#include "editor/codec.h"
#include "editor/config_image.h"
#include "editor/vehicle_image.h"
#include "flash/image_check.h"
#include "flash/transfer.h"
#include "util/runtime_error.h"
#include "platform/program_folder.h"
#include "platform/qt_serial_link.h"
#include "platform/reporter.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>

namespace veltro {

namespace {

// Status texts to stderr, each once (the image count is summed up in its last value).
class StreamReporter : public Reporter {
public:
    explicit StreamReporter(std::ostream& err) : err_(err) {}
    void status(const std::string& text) override { last_ = text; }
    void step(const std::string& line) override { err_ << line << '\n'; }
    void percent(int value) override
    {
        if (value != lastPercent_) err_ << value << " % übertragen!\n";
        lastPercent_ = value;
    }
    const std::string& last() const { return last_; }

private:
    std::ostream& err_;
    std::string last_;
    int lastPercent_ = -1;
};

#ifndef VELTRO_VERSION
#error "VELTRO_VERSION comes from the project version in CMake"
#endif

// One line per command, then the exit codes. --help prints it to stdout; wrong arguments
// print it to stderr.
void printUsage(std::ostream& s)
{
    s << "usage: veltro-cli COMMAND\n"
         "  ports                           chooser entries of a port scan, one a line\n"
         "  identify --port N               connect, identify, print the controller's data, save its image\n"
         "  flash-firmware FILE --port N    bootloader transfer of FILE in firmware mode\n"
         "  upload-config FILE --port N     bootloader transfer of FILE in configuration mode\n"
         "  readout --port N                data block and word readout (serial, date, lambda, word)\n"
         "  config show FILE [--vehicle N]  a configuration image (.eep, .tmp) in words, one item a line\n"
         "  --help, -h                      this text\n"
         "  --version                       the tool's version\n"
         "exit codes: 0 success, 1 the device, server or a file failed, 2 wrong arguments\n";
}

int usage(std::ostream& err)
{
    printUsage(err);
    return 2;
}

// The whole text as a number from 0: "6x" is no 6, "-1" no number.
std::optional<int> wholeNumber(const std::string& text)
{
    int number = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (ec != std::errc() || end != text.data() + text.size() || number < 0)
        return std::nullopt;
    return number;
}

int portArgument(const std::vector<std::string>& args)
{
    for (std::size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == "--port")
            return wholeNumber(args[i + 1]).value_or(0);
    return 0;
}

int cmdPorts(std::ostream& out)
{
    const ScanResult scan = scanMachinePorts();
    for (const ScanEntry& e : scan.entries)
        out << e.text << '\n';
    return 0;
}

int cmdIdentify(int port, std::ostream& out, std::ostream& err)
{
    StreamReporter reporter(err);
    auto link = PortSerialLinkFactory().create(port);
    ConnectResult r = runConnect(*link, reporter);
    if (r.currentLayout)
        r.savedFile = saveImageFile(programFolder(), r.serial, r.image);
    if (!r.connected()) {
        err << r.finalStatus;
        if (!r.portError.empty()) err << " (" << r.portError << ")";
        err << '\n';
        return 1;
    }
    const int layout = r.currentLayout && !r.olderLayout ? r.layoutByte() : r.olderMarker();
    out << "Seriennummer: " << r.serial << '\n';
    if (r.olderLayout)
        out << "Firmware: " << olderFirmwareCaption(r.olderMinor()).substr(9) << '\n';
    else
        out << "Firmware: " << r.firmware() << '\n';
    out << "Hardware: " << r.hardwareVersion() << '\n';
    out << "Layout: " << layout << '\n';
    err << r.finalStatus << '\n';
    if (r.currentLayout && r.savedFile.empty()) {
        err << "Abbild konnte nicht gespeichert werden: " << programFolder() << "/" << r.serial << ".eep\n";
        return 1;
    }
    if (!r.savedFile.empty())
        out << "Datei: " << r.savedFile << '\n';
    return 0;
}

// The status text of a failed readout, with the port's own reason when it has one.
int readoutFailed(const std::string& finalStatus, const SerialLink& link, std::ostream& err)
{
    err << finalStatus;
    if (const std::string why = linkFailureText(link); !why.empty()) err << " (" << why << ")";
    err << '\n';
    return 1;
}

int cmdReadout(int port, std::ostream& out, std::ostream& err)
{
    StreamReporter reporter(err);
    auto link = PortSerialLinkFactory().create(port);
    const DataBlockResult block = runDataBlockReadout(*link, reporter);
    if (!block.ok)
        return readoutFailed(block.finalStatus, *link, err);
    out << "SERIENNUMMER: " << block.serial << '\n';
    out << block.dateText << '\n';
    out << block.lambdaText << '\n';
    err << block.finalStatus << '\n';
    // The window shows the word as a signed number; so does the command line.
    const WordResult word = runWordReadout(*link, reporter);
    if (!word.ok)
        return readoutFailed(word.finalStatus, *link, err);
    out << "Wort: " << word.word << '\n';
    return 0;
}

int cmdTransfer(bool firmware, const std::string& file, int port, std::ostream& err)
{
    Bytes raw;
    try {
        raw = loadImageFile(file);
    } catch (const RuntimeError& e) {
        err << file << ": " << e.text() << '\n';
        return 1;
    }
    // Refused before the bootloader is woken: the controller stays as it is.
    if (const auto why = imageRefusal(raw, firmware ? ImageKind::Firmware : ImageKind::Configuration)) {
        err << file << ": " << *why << '\n';
        return 1;
    }
    const Bytes image = transferImageOf(raw);
    StreamReporter reporter(err);
    auto link = PortSerialLinkFactory().create(port);
    const TransferOutcome outcome = runTransfer(
        *link, image, firmware ? TransferParams::firmware() : TransferParams::configuration(), reporter);
    return outcome == TransferOutcome::Success ? 0 : 1;
}

// config show FILE [--vehicle N]: the image's choices as the editor would show them, for an
// image that came by mail. Only reads: unlike the editor's start-up it never creates the file.

// The controller type that identify leaves in the image is the vehicle's number in the
// catalogue. 0xFF there is erased EEPROM, or a file the editor's writer created: no vehicle.
constexpr std::size_t kImageVehicleByte = 1014;
// Offsets 0 to 943 carry the display configuration; a shorter file reads as 0 from its end.
constexpr std::size_t kConfigurationBytes = 944;

struct ShowArguments {
    std::string file;
    std::optional<int> vehicle;
};

// The arguments after "config show", or the reason they are wrong.
std::optional<ShowArguments> showArguments(const std::vector<std::string>& args, std::string& why)
{
    ShowArguments a;
    for (std::size_t i = 2; i < args.size(); ++i) {
        if (args[i] == "--vehicle") {
            a.vehicle = i + 1 < args.size() ? wholeNumber(args[i + 1]) : std::nullopt;
            if (!a.vehicle) {
                why = "--vehicle braucht eine Fahrzeugnummer ab 0";
                return std::nullopt;
            }
            ++i;
        } else if (args[i].size() > 1 && args[i][0] == '-') {
            why = "unbekannte Option " + args[i];
            return std::nullopt;
        } else if (!a.file.empty()) {
            why = "nur eine Datei angeben";
            return std::nullopt;
        } else {
            a.file = args[i];
        }
    }
    if (a.file.empty()) {
        why = "FILE fehlt";
        return std::nullopt;
    }
    return a;
}

// Catalogue and vehicle data texts are Windows-1252; the terminal gets UTF-8.
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

int cmdConfigShow(const ShowArguments& a, std::ostream& out, std::ostream& err)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (!fs::exists(a.file, error)) {
        err << a.file << ": Datei nicht gefunden\n";
        return 1;
    }
    if (fs::is_directory(a.file, error)) {
        err << a.file << ": ein Ordner, kein Abbild\n";
        return 1;
    }
    std::ifstream in(a.file, std::ios::binary);
    Bytes image(kMaxImageFile + 1);
    in.read(reinterpret_cast<char*>(image.data()), std::streamsize(image.size()));
    image.resize(std::size_t(in.gcount()));
    if (!in.is_open() || in.bad()) {
        err << a.file << ": Datei nicht lesbar\n";
        return 1;
    }
    if (image.size() > kMaxImageFile) {
        err << a.file << ": kein Konfigurationsabbild, mehr als " << kMaxImageFile << " Bytes\n";
        return 1;
    }
    if (image.size() < kConfigurationBytes)
        err << a.file << ": nur " << image.size() << " Bytes, der Rest wird als 0 gelesen\n";

    std::optional<int> vehicle = a.vehicle;
    const bool fromImage = !vehicle && image.size() > kImageVehicleByte && image[kImageVehicleByte] != 0xFF;
    if (fromImage)
        vehicle = image[kImageVehicleByte];

    std::string vehicleLine = "Fahrzeug: keines angegeben (--vehicle N), Datensätze in Hex";
    std::string dataFile;
    VehicleDescription data;
    if (vehicle) {
        const std::string cataloguePath = programFile("vehicles.inc");
        std::vector<CatalogueEntry> catalogue;
        try {
            catalogue = readCatalogue(cataloguePath);
        } catch (const RuntimeError& e) {
            err << cataloguePath << ": " << e.text() << '\n';
            return 1;
        }
        if (std::size_t(*vehicle) >= catalogue.size()) {
            err << "Fahrzeug " << *vehicle << (fromImage ? " (laut Abbild)" : "") << " steht nicht in "
                << cataloguePath << " (" << catalogue.size() << " Fahrzeuge ab 0)";
            if (fromImage)
                err << "; mit --vehicle N ein Fahrzeug wählen";
            err << '\n';
            return 1;
        }
        const CatalogueEntry& entry = catalogue[std::size_t(*vehicle)];
        const std::string dataPath = programFile(entry.dataFile);
        if (!fs::is_regular_file(dataPath, error)) {
            err << dataPath << ": Datei nicht gefunden\n";
            return 1;
        }
        try {
            data = loadVehicleData(dataPath);
        } catch (const RuntimeError& e) {
            err << dataPath << ": " << e.text() << '\n';
            return 1;
        }
        dataFile = utf8(entry.dataFile);
        vehicleLine = std::string(fromImage ? "Fahrzeug laut Abbild: " : "Fahrzeug: ") + std::to_string(*vehicle) +
                      " " + utf8(entry.name);
    }

    // The entry the editor preselects for a row; the row itself when there is none.
    const auto named = [&](const std::string& row, int match, auto nameOf) -> std::string {
        if (match >= 0)
            return utf8(nameOf(std::size_t(match)));
        return vehicle ? row + " (kein Eintrag in " + dataFile + ")" : row;
    };
    const ImageReading r = readImage(image);
    out << vehicleLine << '\n';
    for (int line = 0; line < kDisplayLineCount; ++line) {
        const std::string& row = r.rows[std::size_t(displayLineSlot(line))];
        out << "Anzeigezeile " << line + 1 << ": "
            << named(row, matchingDisplayValue(data, row), [&](std::size_t k) { return data.displayValues[k].name; })
            << '\n';
    }
    out << "Schalteingang: "
        << named(r.rows[8], matchingSwitch(data, r.rows[8]), [&](std::size_t k) { return data.switches[k].name; })
        << '\n';
    out << "Anzeigegeschwindigkeit: " << listEntry(r.speed, speedNames(), speedIndex) << '\n';
    out << "Automatische Umschaltung: " << listEntry(r.switching, switchingNames(), switchingIndex) << '\n';
    out << "Unterspannungsschwelle: " << thresholdText(r.threshold, ',') << " V\n";
    const auto yesNo = [&](ImageFlag flag) { return r.flags & flag ? "ja" : "nein"; };
    out << "Anzeige \"bei Zündung aus\" aktiv: " << yesNo(FlagIgnitionOffDisplay) << '\n';
    out << "Warnung Unterspannung aktiv: " << yesNo(FlagUndervoltageWarning) << '\n';
    out << "Sleepmodus nach 24h aktivieren (Strom sparen): " << yesNo(FlagSleepAfter24h) << '\n';
    return 0;
}

} // namespace

int runCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err)
{
    if (args.empty())
        return usage(err);
    if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
        printUsage(out);
        return 0;
    }
    if (args.size() == 1 && args[0] == "--version") {
        out << "veltro-cli " << VELTRO_VERSION << '\n';
        return 0;
    }
    if (args[0] == "ports")
        return cmdPorts(out);
    if (args[0] == "identify") {
        const int port = portArgument(args);
        if (port < 1 || port > 99) {
            err << "identify: --port N mit N von 1 bis 99 angeben\n";
            return 2;
        }
        return cmdIdentify(port, out, err);
    }
    if (args[0] == "readout") {
        const int port = portArgument(args);
        if (port < 1 || port > 99) {
            err << "readout: --port N mit N von 1 bis 99 angeben\n";
            return 2;
        }
        return cmdReadout(port, out, err);
    }
    if (args[0] == "flash-firmware" || args[0] == "upload-config") {
        const int port = portArgument(args);
        std::string file;
        for (std::size_t i = 1; i < args.size(); ++i) {
            if (args[i] == "--port") {
                ++i;
                continue;
            }
            file = args[i];
        }
        if (port < 1 || port > 99 || file.empty()) {
            err << args[0] << ": FILE und --port N mit N von 1 bis 99 angeben\n";
            return 2;
        }
        return cmdTransfer(args[0] == "flash-firmware", file, port, err);
    }
    if (args[0] == "config" && args.size() > 1 && args[1] == "show") {
        std::string why;
        const auto a = showArguments(args, why);
        if (!a) {
            err << "config show: " << why << "\nusage: veltro-cli config show FILE [--vehicle N]\n";
            return 2;
        }
        return cmdConfigShow(*a, out, err);
    }
    return usage(err);
}

} // namespace veltro
