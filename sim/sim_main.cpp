// veltro-sim: a virtual controller on a pseudo-terminal, for trying the tool without hardware.
// Prints the pty path on the first line, then serves until SIGINT or SIGTERM.
#include "sim/virtual_controller.h"

#include <csignal>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>

namespace {

const char* const Usage =
    "usage: veltro-sim [options]\n"
    "Opens a pseudo-terminal that behaves like a VELTRO controller and prints its path\n"
    "on the first line. Runs until interrupted.\n"
    "\n"
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
        veltro::sim::VirtualController controller;
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            auto value = [&]() -> const char* {
                if (i + 1 >= argc) usageError(arg + " needs a value");
                return argv[++i];
            };
            if (arg == "--help" || arg == "-h") {
                std::cout << Usage;
                return 0;
            } else if (arg == "--serial") {
                const char* v = value();
                if (std::strlen(v) != 8) usageError("--serial takes 8 hex digits");
                controller.setSerial(static_cast<std::uint32_t>(number(v, 16, 0xFFFFFFFFul, "--serial")));
            } else if (arg == "--firmware") {
                controller.setFirmware(static_cast<std::uint16_t>(number(value(), 10, 0xFFFF, "--firmware")));
            } else if (arg == "--hw") {
                controller.setHardware(static_cast<std::uint8_t>(number(value(), 10, 255, "--hw")));
            } else if (arg == "--layout") {
                controller.setLayout(static_cast<std::uint8_t>(number(value(), 10, 255, "--layout")));
            } else if (arg == "--type") {
                controller.setControllerType(static_cast<std::uint8_t>(number(value(), 10, 255, "--type")));
            } else if (arg == "--older") {
                controller.setImageByte(126, static_cast<std::uint8_t>(number(value(), 10, 255, "--older")));
                controller.setImageByte(127, 5);
            } else if (arg == "--silent") {
                controller.setSilent(true);
            } else if (arg == "--line-rate") {
                controller.setLineRate(true);
            } else if (arg == "--paced-input") {
                controller.setPacedInput(true);
            } else if (arg == "--stream") {
                controller.setStreamOnOpen(number(value(), 10, 4'000'000'000ul, "--stream"));
            } else if (arg == "--tunnel") {
                controller.setTunnelMode(true);
            } else if (arg == "--tunnel-rate") {
                controller.setTunnelMode(true);
                controller.setTunnelFrameRate(rate(value(), "--tunnel-rate"));
            } else {
                usageError("unknown option " + arg);
            }
        }

        controller.start();
        std::cout << controller.path() << std::endl;

        int signal = 0;
        sigwait(&stopSignals, &signal);
        controller.stop();
    } catch (const std::exception& e) {
        std::cerr << "veltro-sim: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
