#include "device/discovery.h"

#include "device/protocol.h"
#include "platform/port_numbering.h"
#include "platform/qt_serial_link.h"
#include "platform/waits.h"

#include <QThread>

#include <memory>

namespace veltro {

bool PortTest(SerialLink& link)
{
    const bool ok = link.open();
    link.close();
    return ok;
}

std::int32_t portmap2maf(SerialLink& link)
{
    if (!link.open())
        return 0;
    std::int32_t firmware = 0;
    const Handshake hs = resetHandshake(link, kRequestIdentify, waits::kEchoAttempts,
                                        waits::kProbeEchoPerAttempt);
    if (hs.ok) {
        link.discardInput();
        if (waitForBytes(link, kImageSize, waits::kImage)) {
            const Bytes image = link.readAll();
            if (byteSum(image, 0, kImageFileSize - 1) == image[kImageChecksumPos])
                firmware = MakeWord04(image[kPosFirmwareLo], image[kPosFirmwareHi]);
        }
    }
    link.close();
    return firmware;
}

std::string controllerEntryText(int port, std::int32_t firmware)
{
    return "VELTRO FW V" + std::to_string(firmware) + " (COMPORT: " + std::to_string(port) + ")";
}

std::string freePortEntryText(int port)
{
    return "COM" + std::to_string(port) + " verfügbar";
}

namespace {
ScanEntry entryFor(int port, std::int32_t firmware, const std::string& location)
{
    return {port, firmware, firmware > 0 ? controllerEntryText(port, firmware) : freePortEntryText(port), location};
}
} // namespace

ScanResult scanPorts(const std::map<int, std::string>& ports, const LinkMaker& makeLink, const EntryFound& found)
{
    struct Probe {
        int port;
        std::string location;
        bool opens = false;
        std::int32_t firmware = 0;
    };
    std::vector<Probe> probes;
    for (const auto& [port, location] : ports)
        if (port >= kFirstPortNumber && port <= kLastPortNumber)
            probes.push_back({port, location});

    // A silent port costs the whole echo wait, so every port is probed at the same time and
    // each entry is handed on as soon as its probe ends; the result lists them in ascending
    // order.
    // QThreads, not bare threads: the serial port's notifiers need a Qt thread.
    std::vector<std::unique_ptr<QThread>> threads;
    threads.reserve(probes.size());
    for (Probe& p : probes) {
        threads.emplace_back(QThread::create([&p, &makeLink, &found] {
            auto link = makeLink(p.location);
            p.opens = PortTest(*link);
            if (p.opens)
                p.firmware = portmap2maf(*link);
            if (p.opens && found)
                found(entryFor(p.port, p.firmware, p.location));
        }));
        threads.back()->start();
    }
    for (auto& t : threads)
        t->wait();

    ScanResult result;
    for (const Probe& p : probes) {
        if (!p.opens)
            continue;
        if (p.firmware > 0)
            result.selected = int(result.entries.size());
        result.entries.push_back(entryFor(p.port, p.firmware, p.location));
    }
    return result;
}

ScanResult scanMachinePorts(const EntryFound& found)
{
    return scanPorts(numberedPorts(), [](const std::string& location) {
        return std::make_unique<QtSerialLink>(location);
    }, found);
}

} // namespace veltro
