// Port scan against the probe of one silent port: 16 pseudo-terminal ports, 2 with virtual
// controllers and 14 on which nothing answers. A silent port costs the whole echo wait, so
// the scan is only as long as one silent probe if the ports are probed side by side.
#include "device/discovery.h"
#include "platform/qt_serial_link.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>

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
    return 0;
}
