#include "app/cli.h"
#include "sim_ports.h"

#include <QFile>
#include <QFileInfo>
#include <QTest>

#include <sstream>

using namespace veltro;
using veltro::test::SimPorts;

class TestCli : public QObject {
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
    }

    void portsListsChooserEntries()
    {
        SimPorts ports;
        ports.addSilent(2);
        ports.add(6).setFirmware(166);
        std::ostringstream out, err;
        QCOMPARE(runCli({"ports"}, out, err), 0);
        QCOMPARE(QString::fromStdString(out.str()), QString("COM2 verfügbar\nVELTRO FW V166 (COMPORT: 6)\n"));
    }

    void identifyPrintsTheController()
    {
        SimPorts ports;
        auto& c = ports.add(6);
        c.setSerial(0x1A2B3C4D);
        c.setFirmware(166);
        c.setHardware(3);
        c.setLayout(180);
        std::ostringstream out, err;
        QCOMPARE(runCli({"identify", "--port", "6"}, out, err), 0);
        const QString text = QString::fromStdString(out.str());
        QVERIFY2(text.contains("Seriennummer: 1A2B3C4D\n"), qPrintable(text));
        QVERIFY(text.contains("Firmware: 166\n"));
        QVERIFY(text.contains("Hardware: 3\n"));
        QVERIFY(text.contains("Layout: 180\n"));
        QVERIFY(text.contains("Datei: " + ports.homePath() + "/1A2B3C4D.eep\n"));
        QCOMPARE(QFileInfo(ports.homePath() + "/1A2B3C4D.eep").size(), 1026);
    }

    // The bootloader transfers with the window's texts on stderr and a progress line.
    void transfers()
    {
        SimPorts ports;
        auto& c = ports.add(5);
        const QString file = ports.homePath() + "/fw.bin";
        QFile f(file);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(300, 'x'));
        f.close();

        std::ostringstream out, err;
        QCOMPARE(runCli({"flash-firmware", file.toStdString(), "--port", "5"}, out, err), 0);
        const QString log = QString::fromStdString(err.str());
        QVERIFY2(log.contains("Blöcke gesamt: 3\n") && log.contains("100 % übertragen!\n")
                     && log.endsWith("Erfolgreich geflasht!\n"),
                 qPrintable(log));
        QCOMPARE(int(c.receivedMode()), 0x7B);
        QCOMPARE(c.receivedImage().size(), std::size_t(384));

        c.setBootFaults(sim::BootFaults{.noHandshake = true});
        std::ostringstream out2, err2;
        QCOMPARE(runCli({"upload-config", file.toStdString(), "--port", "5"}, out2, err2), 1);
        QVERIFY(QString::fromStdString(err2.str()).endsWith("Handshake fehlgeschlagen!\n"));

        std::ostringstream out3, err3;
        QCOMPARE(runCli({"upload-config", "/nonexistent/x.tmp", "--port", "5"}, out3, err3), 1);
        QVERIFY(QString::fromStdString(err3.str()).contains("Datei nicht gefunden"));
    }

    void identifyFailures_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("silent controller") << QStringList({"identify", "--port", "6"}) << 1 << "ERROR";
        QTest::newRow("number without port") << QStringList({"identify", "--port", "8"}) << 1 << "ERROR";
        QTest::newRow("no port given") << QStringList({"identify"}) << 2 << "--port";
        QTest::newRow("unknown command") << QStringList({"frobnicate"}) << 2 << "usage";
    }
    void identifyFailures()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, message);
        SimPorts ports;
        ports.addSilent(6);
        std::vector<std::string> a;
        for (const QString& s : args)
            a.push_back(s.toStdString());
        std::ostringstream out, err;
        QCOMPARE(runCli(a, out, err), code);
        QVERIFY2(QString::fromStdString(err.str()).contains(message), err.str().c_str());
        QVERIFY(out.str().empty());
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
