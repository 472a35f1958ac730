// Connect time against a virtual controller that paces its bytes like a 921600-baud wire:
// 1028 image bytes take 11.2 ms on the line, plus the controller's own restart delay between
// the echo and the image. Prints the time of a whole connect and its ratio to that floor.
#include "device/identify.h"
#include "platform/qt_serial_link.h"
#include "platform/reporter.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

using namespace veltro;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const auto resetDelay = std::chrono::milliseconds(20);
    sim::VirtualController c;
    c.setLineRate(true);
    c.setResetDelay(resetDelay);
    c.start();

    const double line = std::chrono::duration<double, std::milli>(sim::wireTime(1 + 1 + 1028)).count();
    const double reset = std::chrono::duration<double, std::milli>(resetDelay).count();
    std::vector<double> times;
    for (int i = 0; i < 20; ++i) {
        NullReporter reporter;
        QtSerialLink link(c.path());
        const auto t0 = Clock::now();
        const ConnectResult r = runConnect(link, reporter);
        const double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
        if (!r.currentLayout) {
            std::printf("connect failed: %s\n", r.finalStatus.c_str());
            return 1;
        }
        times.push_back(ms);
    }
    std::sort(times.begin(), times.end());
    const double median = times[times.size() / 2];
    std::printf("line time (request, echo, 1028-byte image): %.2f ms; controller restart: %.1f ms\n", line, reset);
    std::printf("connect, median of %zu: %.2f ms (min %.2f, max %.2f)\n", times.size(), median, times.front(), times.back());
    std::printf("connect / (line time + restart): %.3f (target <= 1.5 x line time + restart: %.3f)\n",
                median / (line + reset), (1.5 * line + reset) / (line + reset));
    std::printf("connect - restart = %.2f ms = %.3f x line time (target <= 1.5)\n", median - reset, (median - reset) / line);
    return 0;
}
