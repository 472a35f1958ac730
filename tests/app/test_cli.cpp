#include "app/cli.h"
#include "flash/transfer.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QTest>

#include <sstream>

using namespace veltro;
using namespace veltro::test;

// Controllers on 6 and 7 (7 never finishes the bootloader handshake), a silent port on 2.
// FILE stands for a 300-byte file and HOME for the program folder.
class TestCli : public QObject {
    Q_OBJECT
private slots:
    void initTestCase()
    {
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
    }

    void commands_data()
    {
        QTest::addColumn<QString>("args");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err"); // starts of stderr lines in order, the last one starts the last line
        QTest::newRow("ports") << "ports" << 0
                               << "COM2 verfügbar\nVELTRO FW V166 (COMPORT: 6)\nVELTRO FW V166 (COMPORT: 7)\n" << "";
        QTest::newRow("identify") << "identify --port 6" << 0
                                  << "Seriennummer: 1A2B3C4D\nFirmware: 166\nHardware: 3\nLayout: 180\n"
                                     "Datei: HOME/1A2B3C4D.eep\n"
                                  << "CHECKSUMME OK - VERBUNDEN!";
        QTest::newRow("flash-firmware")
            << "flash-firmware FILE --port 6" << 0 << ""
            << "auf Reset warten...\nBlöcke gesamt: 3\n100 % übertragen!\nErfolgreich geflasht!";
        QTest::newRow("upload-config") << "upload-config FILE --port 6" << 0 << ""
                                       << "auf Controllerreset warten...\nBlöcke gesamt: 3\nErfolgreich übertragen!";
        // Failures
        QTest::newRow("silent controller") << "identify --port 2" << 1 << "" << "ERROR";
        QTest::newRow("number without port") << "identify --port 8" << 1 << "" << "ERROR";
        QTest::newRow("no port given") << "identify" << 2 << "" << "identify: --port N";
        QTest::newRow("port with trailing text") << "identify --port 6x" << 2 << "" << "identify: --port N";
        QTest::newRow("unknown command") << "frobnicate" << 2 << "" << "usage: veltro-cli ports\n       veltro-cli up";
        QTest::newRow("no handshake") << "upload-config FILE --port 7" << 1 << "" << "Handshake fehlgeschlagen!";
        QTest::newRow("missing file") << "flash-firmware /nonexistent/fw.bin --port 6" << 1 << ""
                                      << "/nonexistent/fw.bin: Datei nicht gefunden";
    }
    void commands()
    {
        QFETCH(QString, args);
        QFETCH(int, code);
        QFETCH(QString, out);
        QFETCH(QString, err);
        SimPorts ports;
        ports.addSilent(2);
        auto& c = ports.add(6);
        ports.add(7).setBootFaults({.noHandshake = true});
        const QString file = ports.homePath() + "/fw.bin";
        QVERIFY(writeFile(file, QByteArray(300, 'x')));
        std::vector<std::string> a;
        for (const QString& s : args.split(' '))
            a.push_back((s == "FILE" ? file : s).toStdString());
        std::ostringstream stdOut, stdErr;
        QCOMPARE(runCli(a, stdOut, stdErr), code);
        QCOMPARE(QString::fromStdString(stdOut.str()), out.replace("HOME", ports.homePath()));
        const QStringList lines = QString::fromStdString(stdErr.str()).split('\n', Qt::SkipEmptyParts);
        qsizetype at = -1;
        for (const QString& expected : err.split('\n', Qt::SkipEmptyParts)) {
            ++at;
            while (at < lines.size() && !lines[at].startsWith(expected))
                ++at;
            QVERIFY2(at < lines.size(), qPrintable(expected + " missing in:\n" + lines.join('\n')));
        }
        if (!err.isEmpty())
            QCOMPARE(at, lines.size() - 1);
        if (code == 0 && args.contains("FILE")) {
            QCOMPARE(int(c.receivedMode()), args.startsWith("flash-firmware") ? 0x7B : 0x7C);
            QCOMPARE(c.receivedImage(), transferImageOf(Bytes(300, 'x')));
        }
    }
};

QTEST_GUILESS_MAIN(TestCli)
#include "test_cli.moc"
