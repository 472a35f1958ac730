#pragma once
// veltro-cli: scripted service work with the same logic objects as the window.
//   veltro-cli ports                       chooser entries of a scan, one a line
//   veltro-cli identify --port N           connect and identify, print the controller's data
//   veltro-cli flash-firmware FILE --port N  the bootloader exchange with the firmware mode byte
//   veltro-cli upload-config FILE --port N   the same with the configuration mode byte
//   (these three also on several ports at once: --port 4,7 / --port 4 --port 7 / --all)
//   veltro-cli readout --port N            data block and word readout, print their values
//   veltro-cli config show FILE [--vehicle N]  a configuration image in words, one item a line
//   veltro-cli --help | -h | --version
// Exit codes: 0 success, 1 the device, server or a file failed, 2 wrong arguments.
#include <atomic>
#include <iosfwd>
#include <string>
#include <vector>

namespace veltro {

// Ctrl-C during a batch of controllers: `armed` while one runs, `requested` once pressed.
struct CliStop {
    std::atomic<bool> armed{false};
    std::atomic<bool> requested{false};
};

// What the program knows of where it runs.
struct CliContext {
    int columns = 0;           // width of the terminal `err` writes to; 0: not a terminal
    CliStop* stop = nullptr;
};

// Runs one command; returns the process exit code. Output to `out`, status texts and errors
// to `err`.
int runCli(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
           const CliContext& context = {});

} // namespace veltro
