// The open terminal under a long stream: the virtual controller sends 20 MB of text at the
// 921600-baud line rate (92,160 bytes/s, about 3.6 minutes) into the main window's terminal.
// For each MB: the wall time until the terminal holds it, and the CPU time the window's thread
// spent in it (reading the port, keeping the text, showing it). The append cost must not grow
// with the length of the view, and the window must keep up using a small share of one core.
// `bench_terminal MB` streams another amount.
#include "app/main_window.h"
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
    const std::size_t start = w.terminalText().text().size();
    controller.streamText(std::size_t(megabytes) * mb);
    std::vector<double> wall, cpu;
    double lastWall = wallMs(), lastCpu = threadCpuMs();
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        while (w.terminalText().text().size() - start >= (wall.size() + 1) * mb) {
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
    return 0;
}
