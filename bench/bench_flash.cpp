// A 767-block firmware image (the largest the bootloader takes) flashed to the virtual
// controller, in one run:
//  (a) the controller answers at once: the tool's own time per block, measured as the CPU
//      time of the thread that runs the exchange (waiting for the answer costs no CPU);
//  (b) the controller paces its bytes like a 921600-baud wire: the share of the line rate
//      reached (132 frame bytes + 1 answer byte per block, 10 bits per byte).
#include "flash/transfer.h"
#include "platform/qt_serial_link.h"
#include "platform/reporter.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <vector>

using namespace veltro;
using Clock = std::chrono::steady_clock;

namespace {
double threadCpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

struct Run {
    double wall = 0;       // from the first block to EOT
    double cpu = 0;        // CPU time of the exchange thread in that span
    int blocks = 0;
    bool ok = false;
};

// Times the block phase only: from "Blöcke gesamt" to the end byte.
class TimingReporter : public Reporter {
public:
    void status(const std::string&) override {}
    void percent(int) override {}
    void step(const std::string& line) override
    {
        if (line.rfind("Blöcke gesamt", 0) == 0) {
            wall0 = Clock::now();
            cpu0 = threadCpuSeconds();
        } else if (line.rfind("sende 'EOT'", 0) == 0) {
            wall1 = Clock::now();
            cpu1 = threadCpuSeconds();
        }
    }
    Clock::time_point wall0, wall1;
    double cpu0 = 0, cpu1 = 0;
};

Run flash(bool lineRate, const Bytes& image)
{
    sim::VirtualController c;
    c.setLineRate(lineRate);
    c.setHandshakeDelay(std::chrono::milliseconds(1));
    c.start();
    QtSerialLink link(c.path());
    TimingReporter reporter;
    Run r;
    r.ok = runTransfer(link, image, TransferParams::firmware(), reporter) == TransferOutcome::Success;
    r.wall = std::chrono::duration<double>(reporter.wall1 - reporter.wall0).count();
    r.cpu = reporter.cpu1 - reporter.cpu0;
    r.blocks = c.blocksAccepted();
    return r;
}
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    Bytes file(98175);
    for (std::size_t i = 0; i < file.size(); ++i)
        file[i] = std::uint8_t(i * 31 + 5);
    const Bytes image = transferImageOf(file);

    // The machine's scheduling is noisy: five runs of each, median and best.
    constexpr int kRuns = 5;
    std::vector<double> cpu, wall, share;
    bool ok = true;
    for (int i = 0; i < kRuns; ++i) {
        const Run fast = flash(false, image);
        ok = ok && fast.ok && fast.blocks == 767;
        cpu.push_back(fast.cpu / fast.blocks * 1e6);
        wall.push_back(fast.wall / fast.blocks * 1e6);
        const Run line = flash(true, image);
        ok = ok && line.ok && line.blocks == 767;
        share.push_back(line.blocks * 133 * 10.0 / 921600.0 / line.wall * 100.0);
    }
    std::sort(cpu.begin(), cpu.end());
    std::sort(wall.begin(), wall.end());
    std::sort(share.begin(), share.end());
    std::printf("767-block image, %d runs each%s\n", kRuns, ok ? "" : " (A RUN FAILED)");
    std::printf("(a) controller answering at once: tool CPU per block median %.1f us (best %.1f); "
                "round trip per block median %.1f us\n", cpu[kRuns / 2], cpu.front(), wall[kRuns / 2]);
    std::printf("(b) line-rate controller: median %.1f %% of the 921600-baud line rate (best %.1f %%)\n",
                share[kRuns / 2], share.back());
    std::printf("targets: at most 50 us tool time per block; at least 90 %% of line rate\n");
    return 0;
}
