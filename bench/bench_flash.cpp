// A 767-block firmware image (the largest the bootloader takes) flashed to the virtual
// controller, in one run:
//  (a) the controller answers at once: the tool's own time per block, measured as the CPU
//      time of the thread that runs the exchange (waiting for the answer costs no CPU);
//  (b) the controller paces its bytes like a 921600-baud wire: the share of the line rate
//      reached (132 frame bytes + 1 answer byte per block, 10 bits per byte);
//  (c) the same paced controller driven by a bare client (precomputed frames, raw write and
//      poll on the pty, no checks, texts or Qt): the ceiling that the pseudo-terminal and the
//      machine's scheduler leave, so (b) against (c) is what the tool itself costs.
#include "flash/transfer.h"
#include "platform/qt_serial_link.h"
#include "platform/reporter.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

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
    int outcome = 0;
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
    c.start();
    QtSerialLink link(c.path());
    TimingReporter reporter;
    Run r;
    const TransferOutcome outcome = runTransfer(link, image, TransferParams::firmware(), reporter);
    r.ok = outcome == TransferOutcome::Success;
    r.outcome = int(outcome);
    r.wall = std::chrono::duration<double>(reporter.wall1 - reporter.wall0).count();
    r.cpu = reporter.cpu1 - reporter.cpu0;
    r.blocks = c.blocksAccepted();
    if (!r.ok || r.blocks != 767)
        std::printf("%s run failed: outcome %d after %d blocks\n", lineRate ? "line-rate" : "fast", r.outcome,
                    r.blocks);
    return r;
}
// Waits up to `ms` for one byte; -1 on time-out.
int readByte(int fd, int ms)
{
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, ms) != 1) return -1;
    std::uint8_t b = 0;
    return ::read(fd, &b, 1) == 1 ? b : -1;
}

// Share of the line rate a bare client reaches on the paced controller; negative on failure.
double bareClientShare(const Bytes& image)
{
    const int count = int(image.size() / kBlockSize);
    std::vector<Bytes> frames;
    int complement = 0;
    for (int n = 1; n <= count; ++n) {
        complement = blockComplement(n, complement);
        const std::uint8_t* data = image.data() + std::size_t(n - 1) * kBlockSize;
        Bytes f(3 + kBlockSize + 1);
        f[0] = boot::SOH;
        f[1] = *blockNumberByte(n);
        f[2] = std::uint8_t(complement);
        std::copy(data, data + kBlockSize, f.begin() + 3);
        f[3 + kBlockSize] = blockChecksum(n, complement, data);
        frames.push_back(std::move(f));
    }

    sim::VirtualController c;
    c.setLineRate(true);
    c.start();
    const int fd = ::open(c.path().c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0) return -1;
    termios tio{};
    ::tcgetattr(fd, &tio);
    ::cfmakeraw(&tio);
    ::tcsetattr(fd, TCSANOW, &tio);

    double share = -1;
    const std::uint8_t mode = boot::FirmwareMode;
    bool echoed = false;
    for (int round = 0; round < 50 && !echoed; ++round) {
        if (::write(fd, &mode, 1) != 1) break;
        echoed = readByte(fd, 100) == mode;
    }
    if (echoed && readByte(fd, 5000) == boot::NAK) {
        const auto t0 = Clock::now();
        int n = 0;
        for (; n < count; ++n) {
            if (::write(fd, frames[n].data(), frames[n].size()) != ssize_t(frames[n].size())) break;
            if (readByte(fd, 500) != boot::ACK) break;
        }
        const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
        if (n == count) share = count * 133 * 10.0 / 921600.0 / wall * 100.0;
    }
    ::close(fd);
    return share;
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
    std::vector<double> cpu, wall, share, bare;
    bool ok = true;
    for (int i = 0; i < kRuns; ++i) {
        const Run fast = flash(false, image);
        ok = ok && fast.ok && fast.blocks == 767;
        cpu.push_back(fast.cpu / fast.blocks * 1e6);
        wall.push_back(fast.wall / fast.blocks * 1e6);
        const Run line = flash(true, image);
        ok = ok && line.ok && line.blocks == 767;
        share.push_back(line.blocks * 133 * 10.0 / 921600.0 / line.wall * 100.0);
        bare.push_back(bareClientShare(image));
        ok = ok && bare.back() > 0;
    }
    std::sort(cpu.begin(), cpu.end());
    std::sort(wall.begin(), wall.end());
    std::sort(share.begin(), share.end());
    std::sort(bare.begin(), bare.end());
    std::printf("767-block image, %d runs each%s\n", kRuns, ok ? "" : " (A RUN FAILED)");
    std::printf("(a) controller answering at once: tool CPU per block median %.1f us (best %.1f); "
                "round trip per block median %.1f us\n", cpu[kRuns / 2], cpu.front(), wall[kRuns / 2]);
    std::printf("(b) line-rate controller: median %.1f %% of the 921600-baud line rate (best %.1f %%)\n",
                share[kRuns / 2], share.back());
    std::printf("(c) bare client on the same paced controller: median %.1f %% (best %.1f %%)\n",
                bare[kRuns / 2], bare.back());
    std::printf("targets: at most 50 us tool time per block; at least 90 %% of line rate\n");
    return 0;
}
