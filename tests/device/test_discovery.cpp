#include "device/discovery.h"
#include "platform/qt_serial_link.h"
#include "sim_ports.h"

#include <QSet>
#include <QTest>

#include <mutex>

using namespace veltro;
using veltro::test::SimPorts;

class TestDiscovery : public QObject {
    Q_OBJECT
private slots:
    // One scan over controllers, silent ports, a firmware word with its top bit set, a checksum
    // error on the last port number, a number beyond it, a number whose device is missing and a
    // port another program holds.
    void scanMix()
    {
        SimPorts ports;
        ports.add(3).setFirmware(166);
        ports.addSilent(5);
        ports.add(7).setFirmware(300); // both bytes of the word count in the sum
        ports.add(9).setFirmware(0x8001);
        ports.add(99).setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
        ports.add(100); // beyond the last port number: never scanned
        ports.addSilent(1);
        ports.add(12);
        QtSerialLink holder(ports.at(12).path());
        QVERIFY(holder.open());
        ::setenv("VELTRO_PORTS", (std::string(std::getenv("VELTRO_PORTS")) + ",13=/dev/nonexistent-veltro").c_str(), 1);

        std::mutex mutex;
        QList<int> foundOrder;
        const ScanResult scan = scanMachinePorts([&](const ScanEntry& e) {
            std::lock_guard lock(mutex);
            foundOrder << e.port;
        });
        QStringList texts;
        QList<int> numbers;
        for (const ScanEntry& e : scan.entries) {
            texts << QString::fromStdString(e.text);
            numbers << e.port;
        }
        // The chooser's texts and List3's numbers stay index by index side by side.
        QCOMPARE(texts, QStringList({"COM1 verfügbar", "VELTRO FW V166 (COMPORT: 3)", "COM5 verfügbar",
                                     "VELTRO FW V300 (COMPORT: 7)", "COM9 verfügbar", "COM99 verfügbar"}));
        QCOMPARE(numbers, QList<int>({1, 3, 5, 7, 9, 99}));
        QCOMPARE(scan.selected, 3); // the last controller found: port 7
        // Each entry was handed on when its own probe ended: the answering ports long before
        // the two silent ones, which hold out for the whole echo wait.
        QCOMPARE(int(foundOrder.size()), 6);
        QCOMPARE(QSet<int>(foundOrder.begin() + 4, foundOrder.end()), QSet<int>({1, 5}));
        QCOMPARE(QString::fromStdString(scan.entries[1].location), QString::fromStdString(ports.at(3).path()));
    }
};

QTEST_GUILESS_MAIN(TestDiscovery)
#include "test_discovery.moc"
