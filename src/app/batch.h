#pragma once
// Many controllers at once: the same job (identify, firmware, configuration) on several ports,
// each on a thread of its own with a link of its own, so that a controller that goes silent,
// refuses the bootloader or is pulled out ends its own job and no other. The calling thread
// only draws: it reads each job's row under a lock every few tens of milliseconds.
#include "device/identify.h"
#include "platform/reporter.h"
#include "util/hex.h"

#include <atomic>
#include <functional>
#include <string>
#include <vector>

namespace veltro {

enum class BatchJob { Identify, Firmware, Configuration };

struct BatchRow {
    int port = 0;
    std::string serial;   // empty while unknown (not yet identified, or no answer)
    int percent = -1;     // -1 until the blocks go out
    std::string state;    // the job's latest line; when done, its outcome as the window words it
    bool ok = false;
    bool halfWritten = false;  // the bootloader took the handshake, but the transfer did not finish
    double seconds = 0;        // from the job's start to its end
};

// The outcome of a job that the stop request ended.
inline constexpr char kBatchStopped[] = "abgebrochen (Strg+C)";

struct BatchWork {
    BatchJob job = BatchJob::Identify;
    std::vector<int> ports;
    Bytes image;          // the transfer image, for firmware and configuration
    std::string file;     // the file it came from, for the service history
    std::string folder;   // the program folder (images, history)
};

// Connects and identifies, and keeps what was read: the image as folder/serial.eep and in the
// service history. `imageProblem` says that serial.eep could not be written (the identify
// failed); `historyProblem` that the history could not (the identify still counts).
struct Identified {
    ConnectResult r;
    std::string historyProblem;
    std::string imageProblem;
};
Identified identifyAndKeep(SerialLink& link, Reporter& reporter, const std::string& folder);

// Identifies each controller first (serial number, image kept as identify keeps it), then
// runs the transfer; a controller that does not identify is still tried, as a half-written
// one may only answer its bootloader. `show` is called on the calling thread while the jobs
// run and once when all have ended. Setting `stop` ends every job at its next wait: no new
// step starts, each port is closed. Returns the rows in the order of work.ports.
std::vector<BatchRow> runBatch(const BatchWork& work, const std::atomic<bool>& stop,
                               const std::function<void(const std::vector<BatchRow>&)>& show);

// One row as a status line: "Port  6  1A2B3C4D   42 %  Handshake abgeschlossen".
std::string batchLine(const BatchRow& row);

} // namespace veltro
