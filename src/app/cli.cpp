#include "app/cli.h"

#include "app/config_words.h"
#include "app/history.h"
#include "device/discovery.h"
#include "device/identify.h"
#include "device/readout.h"
#include "flash/image_check.h"
#include "flash/transfer.h"
#include "util/runtime_error.h"
#include "platform/program_folder.h"
#include "platform/qt_serial_link.h"
#include "platform/reporter.h"

#include <charconv>
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
         "  config diff A B [--vehicle N]   what differs between two images, one item a line (exit 1: differ)\n"
         "  history SERIAL                  a controller's service history, newest first\n"
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
    std::string historyProblem;
    if (r.currentLayout) {
        r.savedFile = saveImageFile(programFolder(), r.serial, r.image);
        historyProblem = keepImage(programFolder(), r.serial, r.image, factsOf(r));
    }
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
    if (!historyProblem.empty())
        err << historyProblemLine(historyProblem) << '\n';
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

// config show FILE [--vehicle N] and config diff A B [--vehicle N]: images in words, for an
// image that came by mail or one from a controller's history. Only reads: unlike the editor's
// start-up it never creates a file.
struct ConfigArguments {
    std::vector<std::string> files;
    std::optional<int> vehicle;
};

// The arguments after "config show" or "config diff" (`count` files), or the reason they are
// wrong.
std::optional<ConfigArguments> configArguments(const std::vector<std::string>& args, std::size_t count,
                                               std::string& why)
{
    ConfigArguments a;
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
        } else if (a.files.size() == count) {
            why = count == 1 ? "nur eine Datei angeben" : "nur zwei Dateien angeben";
            return std::nullopt;
        } else {
            a.files.push_back(args[i]);
        }
    }
    if (a.files.size() < count) {
        why = count == 1 ? "FILE fehlt" : "zwei Dateien angeben (A B)";
        return std::nullopt;
    }
    return a;
}

// The words of one image; false (with the reason on `err`) when it cannot be read.
bool describe(const std::string& file, std::optional<int> vehicle, ConfigWords& words, std::ostream& err)
{
    words = describeImageFile(file, vehicle, programFolder());
    if (!words.warning.empty())
        err << words.warning << '\n';
    if (!words.error.empty())
        err << words.error << '\n';
    return words.error.empty();
}

int cmdConfigShow(const ConfigArguments& a, std::ostream& out, std::ostream& err)
{
    ConfigWords words;
    if (!describe(a.files[0], a.vehicle, words, err))
        return 1;
    for (const ConfigItem& item : words.items)
        out << item.label << ": " << item.value << '\n';
    return 0;
}

// Like diff: 0 when the images say the same, 1 when they differ, 2 when one cannot be read.
int cmdConfigDiff(const ConfigArguments& a, std::ostream& out, std::ostream& err)
{
    ConfigWords before, after;
    if (!describe(a.files[0], a.vehicle, before, err) || !describe(a.files[1], a.vehicle, after, err))
        return 2;
    const std::vector<std::string> lines = configDifferences(before, after);
    for (const std::string& line : lines)
        out << line << '\n';
    return lines.empty() ? 0 : 1;
}

// history SERIAL: the controller's service history, newest first.
int cmdHistory(const std::string& serial, std::ostream& out, std::ostream& err)
{
    const std::vector<HistoryEntry> entries = readHistory(programFolder(), serial);
    if (entries.empty()) {
        err << "keine Servicehistorie für " << serial << " (" << historyFolder(programFolder(), serial) << ")\n";
        return 1;
    }
    for (const HistoryEntry& e : entries) {
        out << e.date << "  Firmware " << (e.firmware.empty() ? "?" : e.firmware) << "  " << e.event;
        if (!e.file.empty())
            out << " (" << e.file << ")";
        out << ": " << e.outcome;
        if (!e.image.empty())
            out << "  " << e.image;
        out << '\n';
    }
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
    if (args[0] == "config" && args.size() > 1 && (args[1] == "show" || args[1] == "diff")) {
        const bool show = args[1] == "show";
        std::string why;
        const auto a = configArguments(args, show ? 1 : 2, why);
        if (!a) {
            err << "config " << args[1] << ": " << why << "\nusage: veltro-cli config "
                << (show ? "show FILE" : "diff A B") << " [--vehicle N]\n";
            return 2;
        }
        return show ? cmdConfigShow(*a, out, err) : cmdConfigDiff(*a, out, err);
    }
    if (args[0] == "history") {
        if (args.size() != 2 || !isControllerSerial(args[1])) {
            err << "history: SERIENNUMMER angeben (acht Hex-Ziffern, wie identify sie zeigt)\n";
            return 2;
        }
        return cmdHistory(args[1], out, err);
    }
    return usage(err);
}

} // namespace veltro
