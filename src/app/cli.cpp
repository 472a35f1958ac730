#include "app/cli.h"

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
#include <fstream>
#include <iterator>
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
         "  ports                         chooser entries of a port scan, one a line\n"
         "  identify --port N             connect, identify, print the controller's data, save its image\n"
         "  flash-firmware FILE --port N  bootloader transfer of FILE in firmware mode\n"
         "  upload-config FILE --port N   bootloader transfer of FILE in configuration mode\n"
         "  readout --port N              data block and word readout (serial, date, lambda, word)\n"
         "  --help, -h                    this text\n"
         "  --version                     the tool's version\n"
         "exit codes: 0 success, 1 the device or server failed, 2 wrong arguments\n";
}

int usage(std::ostream& err)
{
    printUsage(err);
    return 2;
}

int portArgument(const std::vector<std::string>& args)
{
    for (std::size_t i = 0; i + 1 < args.size(); ++i)
        if (args[i] == "--port") {
            // The whole argument must be the number: "6x" is no port 6.
            const std::string& text = args[i + 1];
            int port = 0;
            const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), port);
            return ec == std::errc() && end == text.data() + text.size() ? port : 0;
        }
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
    // Refused before the bootloader is woken: the controller stays as it is.
    std::ifstream in(file, std::ios::binary);
    const Bytes raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.is_open()) {
        if (const auto why = imageRefusal(raw, firmware ? ImageKind::Firmware : ImageKind::Configuration)) {
            err << file << ": " << *why << '\n';
            return 1;
        }
    }
    Bytes image;
    try {
        image = LoadTransferImage(file);
    } catch (const RuntimeError& e) {
        err << file << ": " << e.text() << '\n';
        return 1;
    }
    StreamReporter reporter(err);
    auto link = PortSerialLinkFactory().create(port);
    const TransferOutcome outcome = runTransfer(
        *link, image, firmware ? TransferParams::firmware() : TransferParams::configuration(), reporter);
    return outcome == TransferOutcome::Success ? 0 : 1;
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
    return usage(err);
}

} // namespace veltro
