// veltro-sim: virtual controllers on pseudo-terminals, for trying the tool without hardware.
// Prints one pty path a line, then serves until SIGINT or SIGTERM.
#include "sim/virtual_controller.h"

#include <csignal>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace {

const char* const Usage =
    "usage: veltro-sim [options]\n"
    "Opens a pseudo-terminal that behaves like a VELTRO controller and prints its path\n"
    "on the first line. Runs until interrupted.\n"
    "\n"
    "  --count N        N controllers (1 to 64), one pty path a line in that order, each\n"
    "                   with the options below; the serial numbers count up from --serial\n"
    "  --serial HEX     serial number, 8 hex digits (default 1A2B3C4D)\n"
    "  --firmware N     firmware version word (default 166)\n"
    "  --hw N           hardware version (default 3)\n"
    "  --layout N       layout/boot version byte (default 180)\n"
    "  --type N         controller type (default 1)\n"
    "  --older MINOR    an image of the older layout: byte 127 = 5, firmware minor at byte 126\n"
    "  --silent         never answer anything (a port without a controller)\n"
    "  --line-rate      pace answers like a 921600-baud line\n"
    "  --paced-input    take bytes from the tool no faster than the speed it set on the\n"
    "                   port carries them (10 bits a byte); a tool that writes faster\n"
    "                   finds the port full, as on a real line\n"
    "  --stream BYTES   after each terminal banner, BYTES of test text at line rate\n"
    "                   (92,160 bytes/s; lines ending CR LF, now and then a bare CR)\n"
    "  --tunnel         be the tool's CAN interface (tunnel mode) instead of answering\n"
    "  --tunnel-rate N  in tunnel mode, N CAN frames per second to the tool (implies\n"
    "                   --tunnel; may be a fraction, 0: none, the default)\n"
    "  --help           this text\n"
    "\n"
    "Text terminal: printable ASCII ending in CR is a command line; the answer ends with\n"
    "the prompt \"> \". An empty line (a lone CR) shows the banner. Commands: HELP, VER,\n"
    "SER, STREAM N (N bytes of test text at line rate); anything else is answered\n"
    "\"OK <line>\". '{' and '|' start the bootloader only at the start of a line.\n"
    "\n"
    "Tunnel mode: no requests, terminal or bootloader. Frames from the bus go to the tool as\n"
    "\"}x\" and a 15-byte body (a counter, length 8, eight data bytes, filler), paced at the\n"
    "speed the tool set on the port; what the tool sends (0x7D, then 15-byte bodies) is\n"
    "taken in and not answered.\n";

[[noreturn]] void usageError(const std::string& message)
{
    std::cerr << "veltro-sim: " << message << "\n" << Usage;
    std::exit(2);
}

unsigned long number(const char* text, int base, unsigned long max, const char* option)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long v = std::strtoul(text, &end, base);
    if (errno != 0 || end == text || *end != '\0' || v > max)
        usageError(std::string("bad value for ") + option + ": " + text);
    return v;
}

double rate(const char* text, const char* option)
{
    char* end = nullptr;
    errno = 0;
    const double v = std::strtod(text, &end);
    if (errno != 0 || end == text || *end != '\0' || !(v >= 0 && v <= 1'000'000))
        usageError(std::string("bad value for ") + option + ": " + text);
    return v;
}

}  // namespace

int main(int argc, char** argv)
{
    // Block the stop signals before the controller's thread exists, so only sigwait sees them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    try {
        using veltro::sim::VirtualController;
        // Options are collected first and applied to every controller.
        std::vector<std::function<void(VirtualController&)>> settings;
        auto set = [&](auto f) { settings.emplace_back(f); };
        unsigned long count = 1;
        std::uint32_t serial = 0x1A2B3C4D;
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            auto value = [&]() -> const char* {
                if (i + 1 >= argc) usageError(arg + " needs a value");
                return argv[++i];
            };
            if (arg == "--help" || arg == "-h") {
                std::cout << Usage;
                return 0;
            } else if (arg == "--count") {
                count = number(value(), 10, 64, "--count");
                if (count == 0) usageError("--count takes 1 to 64");
            } else if (arg == "--serial") {
                const char* v = value();
                if (std::strlen(v) != 8) usageError("--serial takes 8 hex digits");
                serial = static_cast<std::uint32_t>(number(v, 16, 0xFFFFFFFFul, "--serial"));
            } else if (arg == "--firmware") {
                const auto v = static_cast<std::uint16_t>(number(value(), 10, 0xFFFF, "--firmware"));
                set([v](VirtualController& c) { c.setFirmware(v); });
            } else if (arg == "--hw") {
                const auto v = static_cast<std::uint8_t>(number(value(), 10, 255, "--hw"));
                set([v](VirtualController& c) { c.setHardware(v); });
            } else if (arg == "--layout") {
                const auto v = static_cast<std::uint8_t>(number(value(), 10, 255, "--layout"));
                set([v](VirtualController& c) { c.setLayout(v); });
            } else if (arg == "--type") {
                const auto v = static_cast<std::uint8_t>(number(value(), 10, 255, "--type"));
                set([v](VirtualController& c) { c.setControllerType(v); });
            } else if (arg == "--older") {
                const auto v = static_cast<std::uint8_t>(number(value(), 10, 255, "--older"));
                set([v](VirtualController& c) {
                    c.setImageByte(126, v);
                    c.setImageByte(127, 5);
                });
            } else if (arg == "--silent") {
                set([](VirtualController& c) { c.setSilent(true); });
            } else if (arg == "--line-rate") {
                set([](VirtualController& c) { c.setLineRate(true); });
            } else if (arg == "--paced-input") {
                set([](VirtualController& c) { c.setPacedInput(true); });
            } else if (arg == "--stream") {
                const auto v = number(value(), 10, 4'000'000'000ul, "--stream");
                set([v](VirtualController& c) { c.setStreamOnOpen(v); });
            } else if (arg == "--tunnel") {
                set([](VirtualController& c) { c.setTunnelMode(true); });
            } else if (arg == "--tunnel-rate") {
                const double v = rate(value(), "--tunnel-rate");
                set([v](VirtualController& c) {
                    c.setTunnelMode(true);
                    c.setTunnelFrameRate(v);
                });
            } else {
                usageError("unknown option " + arg);
            }
        }

        std::vector<std::unique_ptr<VirtualController>> controllers;
        for (unsigned long k = 0; k < count; ++k) {
            auto& c = *controllers.emplace_back(std::make_unique<VirtualController>());
            c.setSerial(serial + static_cast<std::uint32_t>(k));
            for (const auto& apply : settings)
                apply(c);
            c.start();
        }
        for (const auto& c : controllers)
            std::cout << c->path() << '\n';
        std::cout.flush();

        int signal = 0;
        sigwait(&stopSignals, &signal);
        for (const auto& c : controllers)
            c->stop();
    } catch (const std::exception& e) {
        std::cerr << "veltro-sim: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
