// Many controllers flashed at once: a 767-block firmware image (the largest the bootloader
// takes) to 1, 4 and 8 virtual controllers at line pace, through `veltro-cli flash-firmware
// --port 1,2,... --json` (one controller goes the same batch road with --json). The
// controllers run in a veltro-sim process of their own, so this process's CPU time is the
// tool's alone. Prints, for each size, the wall time of the whole batch (identify, reset,
// handshake, blocks, end), its ratio to one controller alone in the same run, and the tool's
// CPU time per block. Each size runs three times; the median is shown.
#include "app/cli.h"

#include <QCoreApplication>
#include <QProcess>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int kBlocks = 767;

double cpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) * 1e-6;
}

struct Figures {
    double wall = 0;
    double cpu = 0;
};

// One batch of `count` controllers; false when a controller did not take the image.
bool flashBatch(int count, const std::string& file, Figures& f)
{
    QProcess sim;
    sim.start(VELTRO_SIM_PATH, {"--count", QString::number(count), "--line-rate", "--paced-input"});
    QString ports;
    for (int n = 1; n <= count; ++n) {
        while (!sim.canReadLine() && sim.waitForReadyRead(5000)) {
        }
        const QString pty = QString::fromUtf8(sim.readLine()).trimmed();
        if (pty.isEmpty())
            return false;
        ports += QString("%1%2=%3").arg(n > 1 ? "," : "").arg(n).arg(pty);
    }
    qputenv("VELTRO_PORTS", ports.toUtf8());
    std::string list;
    for (int n = 1; n <= count; ++n)
        list += (n > 1 ? "," : "") + std::to_string(n);

    std::ostringstream out, err;
    const double cpu0 = cpuSeconds();
    const auto t0 = std::chrono::steady_clock::now();
    const int code = veltro::runCli({"flash-firmware", file, "--port", list, "--json"}, out, err);
    f.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    f.cpu = cpuSeconds() - cpu0;
    sim.terminate();
    sim.waitForFinished();
    if (code != 0)
        std::fprintf(stderr, "batch of %d failed:\n%s%s", count, out.str().c_str(), err.str().c_str());
    return code == 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    qputenv("VELTRO_HOME", home.path().toUtf8());
    // 98,175 bytes and the terminating zero fill 767 blocks exactly.
    const std::string file = home.path().toStdString() + "/fw.bin";
    {
        std::ofstream f(file, std::ios::binary);
        for (int i = 0; i < kBlocks * 128 - 1; ++i)
            f.put(char(i * 31 + 7));
    }

    std::printf("flash-firmware, %d blocks to each controller at line pace (921600 baud), median of 3:\n", kBlocks);
    std::printf("%12s %10s %14s %16s\n", "controllers", "wall s", "x one alone", "tool CPU/block");
    double alone = 0;
    for (const int count : {1, 4, 8}) {
        std::vector<Figures> runs(3);
        for (Figures& f : runs)
            if (!flashBatch(count, file, f))
                return 1;
        std::sort(runs.begin(), runs.end(), [](const Figures& a, const Figures& b) { return a.wall < b.wall; });
        const Figures& m = runs[1];
        if (count == 1)
            alone = m.wall;
        std::printf("%12d %10.2f %14.2f %13.1f us\n", count, m.wall, m.wall / alone, m.cpu / (count * kBlocks) * 1e6);
    }
    std::printf("target: 8 at once within 1.15 x one alone\n");
    return 0;
}
