#include "device/discovery.h"
#include "platform/port_numbering.h"
#include "platform/qt_serial_link.h"
#include "sim_ports.h"

#include <QTest>

using namespace veltro;
using veltro::test::SimPorts;

class TestDiscovery : public QObject {
    Q_OBJECT
private slots:
    void portOverrides_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("parsed");
        QTest::newRow("two pairs") << "4=/dev/pts/3,7=/dev/pts/5" << "4=/dev/pts/3;7=/dev/pts/5";
        QTest::newRow("blanks and semicolons") << " 4 = /dev/a ; 12=/dev/b" << "4=/dev/a;12=/dev/b";
        QTest::newRow("out of range and malformed dropped") << "0=/dev/a,100=/dev/b,x=/dev/c,5,6=" << "";
        QTest::newRow("later pair wins") << "3=/dev/a,3=/dev/b" << "3=/dev/b";
    }
    void portOverrides()
    {
        QFETCH(QString, text);
        QFETCH(QString, parsed);
        QStringList out;
        for (const auto& [n, path] : parsePortOverrides(text.toStdString()))
            out << QString::number(n) + "=" + QString::fromStdString(path);
        QCOMPARE(out.join(';'), parsed);
    }

    void fatalPortErrors()
    {
        QVERIFY(isFatalPortError(QSerialPort::ResourceError));
        QVERIFY(isFatalPortError(QSerialPort::DeviceNotFoundError));
        QVERIFY(isFatalPortError(QSerialPort::ReadError));
        QVERIFY(!isFatalPortError(QSerialPort::TimeoutError));
        QVERIFY(!isFatalPortError(QSerialPort::NoError));
        QVERIFY(!isFatalPortError(QSerialPort::UnsupportedOperationError));
    }

    // One scan over a mix of ports: controllers, silent ports, a firmware word with its top bit
    // set, a checksum error and a number whose device is missing.
    void scanMix()
    {
        SimPorts ports;
        ports.add(3).setFirmware(166);
        ports.addSilent(5);
        ports.add(7).setFirmware(200);
        ports.add(9).setFirmware(0x8001);
        auto& bad = ports.add(11);
        bad.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
        ports.addSilent(1);
        // A number whose device does not exist is left out silently.
        ::setenv("VELTRO_PORTS", (std::string(std::getenv("VELTRO_PORTS")) + ",13=/dev/nonexistent-veltro").c_str(), 1);

        const ScanResult scan = scanMachinePorts();
        QStringList texts;
        QList<int> numbers;
        for (const ScanEntry& e : scan.entries) {
            texts << QString::fromStdString(e.text);
            numbers << e.port;
        }
        QCOMPARE(texts, QStringList({"COM1 verfügbar", "VELTRO FW V166 (COMPORT: 3)", "COM5 verfügbar",
                                     "VELTRO FW V200 (COMPORT: 7)", "COM9 verfügbar", "COM11 verfügbar"}));
        QCOMPARE(numbers, QList<int>({1, 3, 5, 7, 9, 11}));
        QCOMPARE(scan.selected, 3); // the last controller found: port 7
        QCOMPARE(QString::fromStdString(scan.entries[1].location), QString::fromStdString(ports.at(3).path()));
    }

    void busyPortLeftOut()
    {
        SimPorts ports;
        ports.add(2);
        QtSerialLink holder(ports.at(2).path());
        QVERIFY(holder.open()); // another program holds the port
        const ScanResult scan = scanMachinePorts();
        QVERIFY(scan.entries.empty());
        QCOMPARE(scan.selected, -1);
    }

    void noPorts()
    {
        SimPorts ports;
        const ScanResult scan = scanMachinePorts();
        QVERIFY(scan.entries.empty());
        QCOMPARE(scan.selected, -1);
    }
};

QTEST_GUILESS_MAIN(TestDiscovery)
#include "test_discovery.moc"
