#include "app/cli.h"

#include "app/batch.h"
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

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
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
         "  PORTS for the three above       --port 4,7,9 or --port 4 --port 7 or --all (every port where\n"
         "                                  a controller answers): all at once, a line each while they run,\n"
         "                                  then a table; --json prints the table as JSON lines\n"
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
    const Identified id = identifyAndKeep(*link, reporter, programFolder());
    const ConnectResult& r = id.r;
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
    if (!id.historyProblem.empty())
        err << historyProblemLine(id.historyProblem) << '\n';
    if (!id.imageProblem.empty()) {
        err << id.imageProblem << '\n';
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

// The transfer image of FILE, checked as the firmware check does before any controller is
// touched; nothing (with the reason on `err`) when it is refused.
std::optional<Bytes> checkedImage(bool firmware, const std::string& file, std::ostream& err)
{
    Bytes raw;
    try {
        raw = loadImageFile(file);
    } catch (const RuntimeError& e) {
        err << file << ": " << e.text() << '\n';
        return std::nullopt;
    }
    if (const auto why = imageRefusal(raw, firmware ? ImageKind::Firmware : ImageKind::Configuration)) {
        err << file << ": " << *why << '\n';
        return std::nullopt;
    }
    return transferImageOf(raw);
}

int cmdTransfer(bool firmware, const std::string& file, int port, std::ostream& err)
{
    // Refused before the bootloader is woken: the controller stays as it is.
    const auto image = checkedImage(firmware, file, err);
    if (!image)
        return 1;
    StreamReporter reporter(err);
    auto link = PortSerialLinkFactory().create(port);
    const TransferOutcome outcome = runTransfer(
        *link, *image, firmware ? TransferParams::firmware() : TransferParams::configuration(), reporter);
    return outcome == TransferOutcome::Success ? 0 : 1;
}

// The ports of identify, flash-firmware and upload-config: --port N, --port N,M,..., the option
// again, or --all; with --json, FILE for the transfers.
struct PortSelection {
    std::vector<int> ports; // ascending, each once
    bool all = false;
    bool json = false;
    std::vector<std::string> files;
};

std::optional<PortSelection> portSelection(const std::vector<std::string>& args, std::string& why)
{
    PortSelection p;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--port") {
            std::string list = i + 1 < args.size() ? args[++i] : "";
            do {
                const std::size_t comma = list.find(',');
                const auto port = wholeNumber(list.substr(0, comma));
                if (!port || *port < 1 || *port > 99) {
                    why = "--port N mit N von 1 bis 99 angeben";
                    return std::nullopt;
                }
                p.ports.push_back(*port);
                list = comma == std::string::npos ? "" : list.substr(comma + 1);
            } while (!list.empty());
        } else if (args[i] == "--all") {
            p.all = true;
        } else if (args[i] == "--json") {
            p.json = true;
        } else if (args[i].size() > 1 && args[i][0] == '-') {
            why = "unbekannte Option " + args[i];
            return std::nullopt;
        } else {
            p.files.push_back(args[i]);
        }
    }
    std::sort(p.ports.begin(), p.ports.end());
    p.ports.erase(std::unique(p.ports.begin(), p.ports.end()), p.ports.end());
    if (p.all == !p.ports.empty())
        why = "--port N mit N von 1 bis 99 angeben (mehrere: --port 4,7 oder --all)";
    return why.empty() ? std::optional(p) : std::nullopt;
}

// Code points, for columns of German text.
std::size_t textWidth(const std::string& text)
{
    return std::size_t(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// While a batch runs: on a terminal one line per controller, drawn over in place (cut to the
// terminal's width so that none wraps); otherwise a plain line whenever a controller's state
// changes or its percent passes a tenth.
class LiveLines {
public:
    LiveLines(std::ostream& err, int columns) : err_(err), columns_(std::size_t(std::max(columns, 0))) {}
    void operator()(const std::vector<BatchRow>& rows)
    {
        std::vector<std::string> lines;
        for (const BatchRow& row : rows)
            lines.push_back(batchLine(row));
        if (columns_ == 0) {
            shown_.resize(rows.size());
            for (std::size_t i = 0; i < rows.size(); ++i) {
                const std::string key = std::to_string(rows[i].percent < 0 ? -1 : rows[i].percent / 10) + rows[i].state;
                if (key != shown_[i])
                    err_ << lines[i] << '\n';
                shown_[i] = key;
            }
            return;
        }
        if (lines == shown_)
            return;
        if (!shown_.empty())
            err_ << "\x1b[" << shown_.size() << 'A';
        for (std::string line : lines) {
            while (textWidth(line) >= columns_)
                line.pop_back();
            while (!line.empty() && (line.back() & 0xC0) == 0x80) // a cut character
                line.pop_back();
            err_ << "\r\x1b[2K" << line << '\n';
        }
        err_.flush();
        shown_ = lines;
    }

private:
    std::ostream& err_;
    std::size_t columns_;
    std::vector<std::string> shown_;
};

void printTable(const std::vector<BatchRow>& rows, std::ostream& out)
{
    std::size_t width = textWidth("Ergebnis");
    for (const BatchRow& row : rows)
        width = std::max(width, textWidth(row.state));
    const auto padded = [width](const std::string& text) { return text + std::string(width - textWidth(text), ' '); };
    out << "Port  Seriennummer  " << padded("Ergebnis") << "  Zeit\n";
    for (const BatchRow& row : rows) {
        char head[32], time[24];
        std::snprintf(head, sizeof head, "%4d  %-12s  ", row.port, row.serial.empty() ? "-" : row.serial.c_str());
        std::snprintf(time, sizeof time, "%.1f s", row.seconds);
        std::string seconds = time;
        std::replace(seconds.begin(), seconds.end(), '.', ',');
        out << head << padded(row.state) << "  " << seconds << '\n';
    }
}

void printJson(const std::vector<BatchRow>& rows, std::ostream& out)
{
    for (const BatchRow& row : rows) {
        const QJsonObject o{{"port", row.port},
                            {"serial", QString::fromStdString(row.serial)},
                            {"ok", row.ok},
                            {"outcome", QString::fromStdString(row.state)},
                            {"seconds", std::round(row.seconds * 1000) / 1000},
                            {"halfWritten", row.halfWritten}};
        out << QJsonDocument(o).toJson(QJsonDocument::Compact).toStdString() << '\n';
    }
}

// The same job on every selected port at once; the files are checked before any controller
// is touched, the scan of --all included.
int cmdBatch(BatchJob job, const PortSelection& selection, const CliContext& context, std::ostream& out,
             std::ostream& err)
{
    BatchWork work{.job = job, .ports = selection.ports, .folder = programFolder()};
    if (job != BatchJob::Identify) {
        work.file = selection.files.front();
        const auto image = checkedImage(job == BatchJob::Firmware, work.file, err);
        if (!image)
            return 1;
        work.image = *image;
    }
    if (selection.all) {
        err << "Suche Controller an allen Ports...\n";
        for (const ScanEntry& e : scanMachinePorts().entries)
            if (e.firmware > 0)
                work.ports.push_back(e.port);
        if (work.ports.empty()) {
            err << "kein Controller gefunden\n";
            return 1;
        }
    }
    CliStop noSignal;
    CliStop& stop = context.stop ? *context.stop : noSignal;
    stop.armed = true;
    LiveLines live(err, context.columns);
    const std::vector<BatchRow> rows = runBatch(work, stop.requested, std::ref(live));
    stop.armed = false;

    if (selection.json)
        printJson(rows, out);
    else
        printTable(rows, out);
    const auto failed = std::count_if(rows.begin(), rows.end(), [](const BatchRow& r) { return !r.ok; });
    err << rows.size() << " Controller: " << rows.size() - std::size_t(failed) << " erfolgreich, " << failed
        << " fehlgeschlagen\n";
    std::string half;
    for (const BatchRow& row : rows)
        if (row.halfWritten)
            half += (half.empty() ? " Port " : ", Port ") + std::to_string(row.port) + " ("
                    + (row.serial.empty() ? "-" : row.serial) + ")";
    if (!half.empty())
        err << "Möglicherweise halb beschrieben, bitte erneut übertragen:" << half << '\n';
    if (stop.requested)
        err << "Abgebrochen: keine neue Übertragung gestartet, alle Ports geschlossen.\n";
    return failed == 0 ? 0 : 1;
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

int runCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, const CliContext& context)
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
    if (args[0] == "readout") {
        const int port = portArgument(args);
        if (port < 1 || port > 99) {
            err << "readout: --port N mit N von 1 bis 99 angeben\n";
            return 2;
        }
        return cmdReadout(port, out, err);
    }
    if (args[0] == "identify" || args[0] == "flash-firmware" || args[0] == "upload-config") {
        const bool identify = args[0] == "identify";
        std::string why;
        const auto selection = portSelection(args, why);
        if (selection && selection->files.size() != (identify ? 0u : 1u))
            why = identify ? "unerwartetes Argument " + selection->files.front() : "eine Datei FILE angeben";
        if (!why.empty()) {
            err << args[0] << ": " << why << '\n';
            return 2;
        }
        // One port without --json: the output of a single job, as it always was.
        if (selection->ports.size() == 1 && !selection->json) {
            const int port = selection->ports.front();
            if (identify)
                return cmdIdentify(port, out, err);
            return cmdTransfer(args[0] == "flash-firmware", selection->files.front(), port, err);
        }
        const BatchJob job = identify                       ? BatchJob::Identify
                             : args[0] == "flash-firmware" ? BatchJob::Firmware
                                                           : BatchJob::Configuration;
        return cmdBatch(job, *selection, context, out, err);
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
