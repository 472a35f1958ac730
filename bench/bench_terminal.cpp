// The open terminal under a long stream: the virtual controller sends 20 MB of text at the
// 921600-baud line rate (92,160 bytes/s, about 3.6 minutes) into the main window's terminal.
// For each MB: the wall time until the terminal holds it, and the CPU time the window's thread
// spent in it (reading the port, keeping the text, showing it). The append cost must not grow
// with the length of the view, and the window must keep up using a small share of one core.
// Memory: the resident size with the terminal open and idle, its peak over the stream, and the
// bytes the terminal's text holds; the view keeps only the newest lines, so the peak should stay
// near what the text itself needs.
// `bench_terminal MB` streams another amount.
#include "app/window/main_window.h"
#include "terminal_window.h"
#include "sim/virtual_controller.h"

#include <QApplication>
#include <QDir>
#include <QPushButton>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

using namespace veltro;

namespace {
double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}
double wallMs()
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
// A field of /proc/self/status in MB ("VmRSS", "VmHWM": now and the peak so far); -1 without it.
double statusMb(const std::string& field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field + ":", 0) == 0)
            return std::stod(line.substr(field.size() + 1)) / 1024.0; // the figure is in kB
    return -1;
}
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const int megabytes = argc > 1 ? std::atoi(argv[1]) : 20;
    QApplication app(argc, argv);
    QTemporaryDir home;
    sim::VirtualController controller;
    controller.start();
    MainWindow w;
    if (!openTerminalWindow(w, controller.path(), home.path().toStdString()))
        return 1;

    const std::size_t mb = 1 << 20;
    const std::size_t start = w.telnet->terminalText().text().size();
    QTimer::singleShot(500, &app, &QApplication::quit); // the window settles with the terminal open
    app.exec();
    const double idleMb = statusMb("VmRSS");
    controller.streamText(std::size_t(megabytes) * mb);
    std::vector<double> wall, cpu;
    double lastWall = wallMs(), lastCpu = threadCpuMs();
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        while (w.telnet->terminalText().text().size() - start >= (wall.size() + 1) * mb) {
            const double nowWall = wallMs(), nowCpu = threadCpuMs();
            wall.push_back(nowWall - lastWall);
            cpu.push_back(nowCpu - lastCpu);
            lastWall = nowWall;
            lastCpu = nowCpu;
            std::printf("  MB %2zu: %7.0f ms wall, %6.1f ms CPU of the window thread (%.1f %%)\n", wall.size(),
                        wall.back(), cpu.back(), 100.0 * cpu.back() / wall.back());
            std::fflush(stdout);
        }
        if (int(wall.size()) >= megabytes) app.quit();
    });
    std::printf("terminal under a %d MB stream at 921600 baud\n", megabytes);
    poll.start(20);
    app.exec();

    double cpuSum = 0, wallSum = 0;
    for (std::size_t i = 0; i < wall.size(); ++i) {
        cpuSum += cpu[i];
        wallSum += wall[i];
    }
    std::printf("  rate %.0f bytes/s (line 92160), window thread %.1f %% of one core on average\n",
                double(megabytes) * mb / (wallSum / 1e3), 100.0 * cpuSum / wallSum);
    std::printf("  last MB / first MB: wall %.2f x, CPU %.2f x (target: <= 1.2 x, under 20 %% of a core)\n",
                wall.back() / wall.front(), cpu.back() / cpu.front());
    const double heldMb = double(w.telnet->terminalText().text().size()) / mb;
    const double peakMb = statusMb("VmHWM");
    std::printf("  RSS idle before the stream %.1f MB, peak %.1f MB, now %.1f MB; the text holds %.1f MB\n", idleMb,
                peakMb, statusMb("VmRSS"), heldMb);
    std::printf("  RSS under 2 x bytes held + 60 MB: peak %.1f MB, limit %.1f MB\n", peakMb, 2 * heldMb + 60);
    return 0;
}
