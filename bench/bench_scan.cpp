// Port scan against the probe of one silent port: 16 pseudo-terminal ports, 2 with virtual
// controllers and 14 on which nothing answers. A silent port costs the whole echo wait, so
// the scan is only as long as one silent probe if the ports are probed side by side.
// Then the time until a controller is listed: one controller on a paced line and one silent
// port, from the start of the scan to the controller's entry, next to one connect.
#include "device/discovery.h"
#include "device/identify.h"
#include "platform/reporter.h"
#include "platform/qt_serial_link.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>

#include <algorithm>
#include <atomic>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <vector>

using namespace veltro;
using Clock = std::chrono::steady_clock;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::vector<std::unique_ptr<sim::VirtualController>> controllers;
    std::map<int, std::string> ports;
    for (int n = 1; n <= 16; ++n) {
        auto c = std::make_unique<sim::VirtualController>();
        if (n == 4 || n == 12)
            c->setFirmware(std::uint16_t(160 + n));
        else
            c->setSilent(true);
        c->start();
        ports[n] = c->path();
        controllers.push_back(std::move(c));
    }
    auto makeLink = [](const std::string& location) { return std::make_unique<QtSerialLink>(location); };

    const auto t0 = Clock::now();
    QtSerialLink silent(ports[1]);
    const auto firmware = portmap2maf(silent);
    const double single = std::chrono::duration<double>(Clock::now() - t0).count();

    const auto t1 = Clock::now();
    const ScanResult scan = scanPorts(ports, makeLink);
    const double whole = std::chrono::duration<double>(Clock::now() - t1).count();

    int found = 0;
    for (const auto& e : scan.entries)
        found += e.firmware > 0;
    std::printf("one silent probe:          %.3f s (result %d)\n", single, int(firmware));
    std::printf("scan of 16 ports:          %.3f s (%zu entries, %d controllers)\n", whole, scan.entries.size(), found);
    std::printf("scan / one silent probe:   %.3f (target <= 1.3)\n", whole / single);
    controllers.clear();

    // First entry: a controller answering like the real one (921600 baud, 20 ms restart)
    // beside a silent port.
    sim::VirtualController controller;
    controller.setLineRate(true);
    controller.setResetDelay(std::chrono::milliseconds(20));
    controller.start();
    sim::VirtualController quiet;
    quiet.setSilent(true);
    quiet.start();
    const std::map<int, std::string> pair = {{1, quiet.path()}, {4, controller.path()}};

    auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    std::vector<double> connects;
    for (int i = 0; i < 9; ++i) {
        NullReporter reporter;
        QtSerialLink link(controller.path());
        const auto t = Clock::now();
        if (!runConnect(link, reporter).currentLayout) {
            std::printf("connect failed\n");
            return 1;
        }
        connects.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t).count());
    }
    std::vector<double> firsts;
    std::vector<double> ends;
    for (int i = 0; i < 3; ++i) {
        const auto t = Clock::now();
        std::atomic<double> first{-1};
        scanPorts(pair, makeLink, [&](const ScanEntry& e) {
            if (e.firmware > 0)
                first = std::chrono::duration<double, std::milli>(Clock::now() - t).count();
        });
        ends.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t).count());
        if (first < 0) {
            std::printf("the controller was not found\n");
            return 1;
        }
        firsts.push_back(first);
    }
    const double connect = median(connects);
    const double firstEntry = median(firsts);
    std::printf("one connect, median of %zu:        %.2f ms\n", connects.size(), connect);
    std::printf("scan start to controller entry:   %.2f ms (median of %zu; whole scan %.0f ms)\n", firstEntry,
                firsts.size(), median(ends));
    std::printf("controller entry / one connect:   %.3f (target <= 2)\n", firstEntry / connect);
    return 0;
}
