#include "device/identify.h"
#include "device/readout.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "sim_ports.h"

#include <QFile>
#include <QTest>

#include <functional>

using namespace veltro;
using veltro::test::RecordingReporter;
using veltro::test::SimPorts;

using Setup = std::function<void(sim::VirtualController&)>;
Q_DECLARE_METATYPE(Setup)
Q_DECLARE_METATYPE(veltro::ConnectOutcome)

namespace {
ConnectResult connectTo(sim::VirtualController& c, RecordingReporter& reporter)
{
    QtSerialLink link(c.path());
    ConnectResult r = runConnect(link, reporter);
    if (link.isOpen())
        qWarning("port left open");
    return r;
}
} // namespace

class TestIdentify : public QObject {
    Q_OBJECT
private slots:
    void connect_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<bool>("current");
        QTest::addColumn<bool>("older");
        QTest::addColumn<QString>("lastStatus");
        QTest::addColumn<QString>("serial");

        auto none = [](sim::VirtualController&) {};
        QTest::newRow("current layout") << Setup(none) << true << false << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("late echo after several requests")
            << Setup([](sim::VirtualController& c) {
                   c.setFaults(sim::Request::Identify, sim::AnswerFaults{.echoFromRequest = 7});
               })
            << true << false << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("garbage with the echo, then a clean echo")
            << Setup([](sim::VirtualController& c) {
                   c.setFaults(sim::Request::Identify,
                               sim::AnswerFaults{.garbageBeforeEcho = {0x55, 0x66}, .garbageRequests = 2});
               })
            << true << false << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        // Checksum error: the status stays at the last byte value (byte 1025), serial shown.
        QTest::newRow("checksum error")
            << Setup([](sim::VirtualController& c) {
                   c.setFirmware(0x02A6);
                   c.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
               })
            << false << false << "2" << "1A2B3C4D";
        QTest::newRow("layout 178") << Setup([](sim::VirtualController& c) { c.setLayout(178); }) << false << false
                                    << "0" << "1A2B3C4D";
        QTest::newRow("layout 179") << Setup([](sim::VirtualController& c) { c.setLayout(179); }) << true << false
                                    << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("layout 181") << Setup([](sim::VirtualController& c) { c.setLayout(181); }) << true << false
                                    << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("layout 182") << Setup([](sim::VirtualController& c) { c.setLayout(182); }) << false << false
                                    << "0" << "1A2B3C4D";
        QTest::newRow("older layout")
            << Setup([](sim::VirtualController& c) {
                   c.setLayout(120);
                   c.setImageByte(127, 5);
                   c.setImageByte(126, 7);
               })
            << false << true << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("current layout with byte 127 = 5")
            << Setup([](sim::VirtualController& c) {
                   c.setImageByte(127, 5);
                   c.setImageByte(126, 66);
               })
            << true << true << "CHECKSUMME OK - VERBUNDEN!" << "1A2B3C4D";
        QTest::newRow("older layout with a checksum error")
            << Setup([](sim::VirtualController& c) {
                   c.setLayout(120);
                   c.setImageByte(127, 5);
                   c.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
               })
            << false << false << "0" << "1A2B3C4D";
    }
    void connect()
    {
        QFETCH(Setup, setup);
        QFETCH(bool, current);
        QFETCH(bool, older);
        QFETCH(QString, lastStatus);
        QFETCH(QString, serial);

        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x1A2B3C4D);
        c.setFirmware(166);
        setup(c);
        RecordingReporter reporter;
        const ConnectResult r = connectTo(c, reporter);

        QCOMPARE(r.outcome, ConnectOutcome::Checked);
        QCOMPARE(r.currentLayout, current);
        QCOMPARE(r.olderLayout, older);
        QCOMPARE(reporter.lastStatus(), lastStatus);
        QCOMPARE(QString::fromStdString(r.serial), serial);
        const QStringList s = reporter.statuses();
        QCOMPARE(s.mid(0, 3), QStringList({"Öffne Com-Port", "Com-Port geöffnet", "Datenanforderung..."}));
        // The status counts through the image: 1026 byte values follow.
        QCOMPARE(int(r.byteTexts.size()), 1026);
        QCOMPARE(s.at(3), QString::fromStdString(r.byteTexts.front()));
        QCOMPARE(s.at(3 + 1025), QString::fromStdString(r.byteTexts.back()));
    }

    void failures_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<ConnectOutcome>("outcome");
        QTest::addColumn<QStringList>("tail");
        QTest::newRow("no echo") << Setup([](sim::VirtualController& c) { c.setSilent(true); })
                                 << ConnectOutcome::ResetNotRecognised
                                 << QStringList({"Datenanforderung...", "Reset nicht erkannt!", "ERROR"});
        QTest::newRow("short image")
            << Setup([](sim::VirtualController& c) {
                   c.setFaults(sim::Request::Identify, sim::AnswerFaults{.shortAnswer = std::size_t(600)});
               })
            << ConnectOutcome::ImageTimeout << QStringList({"Datenanforderung...", "ERROR600"});
        QTest::newRow("echo only, no image")
            << Setup([](sim::VirtualController& c) {
                   c.setFaults(sim::Request::Identify, sim::AnswerFaults{.shortAnswer = std::size_t(0)});
               })
            << ConnectOutcome::ImageTimeout << QStringList({"Datenanforderung...", "ERROR0"});
    }
    void failures()
    {
        QFETCH(Setup, setup);
        QFETCH(ConnectOutcome, outcome);
        QFETCH(QStringList, tail);
        SimPorts ports;
        auto& c = ports.add(4);
        setup(c);
        RecordingReporter reporter;
        const ConnectResult r = connectTo(c, reporter);
        QCOMPARE(r.outcome, outcome);
        QVERIFY(!r.connected());
        QCOMPARE(reporter.statuses().mid(reporter.statuses().size() - tail.size()), tail);
    }

    void unplugged()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.unplug();
        RecordingReporter reporter;
        QtSerialLink link(c.path());
        const ConnectResult r = runConnect(link, reporter);
        QVERIFY(!r.connected());
        QVERIFY(!link.isOpen());
        QCOMPARE(reporter.lastStatus(), QString("ERROR"));
    }

    // The saved image holds positions 0..1025; a second connect overwrites it in place.
    void savedImage()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x0F0B1703);
        Bytes config(1008);
        for (std::size_t i = 0; i < config.size(); ++i)
            config[i] = std::uint8_t(i * 7);
        c.setConfiguration(config);
        RecordingReporter reporter;
        ConnectResult r = connectTo(c, reporter);
        QVERIFY(r.currentLayout);
        const std::string path = saveImageFile(ports.home(), r.serial, r.image);
        QCOMPARE(QString::fromStdString(path), ports.homePath() + "/0F0B1703.eep");
        QFile f(QString::fromStdString(path));
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray saved = f.readAll();
        f.close();
        const Bytes expected = c.image();
        QCOMPARE(saved.size(), 1026);
        QCOMPARE(QByteArray(reinterpret_cast<const char*>(expected.data()), 1026), saved);

        c.setImageByte(0, 0xEE);
        r = connectTo(c, reporter);
        QCOMPARE(saveImageFile(ports.home(), r.serial, r.image), path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray again = f.readAll();
        QCOMPARE(again.size(), 1026);
        QCOMPARE(quint8(again[0]), quint8(0xEE));
    }

    void dataBlockReadout()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setManufacturingDate(2023, 11, 5);
        c.setDataSerialByte(0x0A);
        c.setLambdaCalibration(0x003C);
        RecordingReporter reporter;
        QtSerialLink link(c.path());
        const DataBlockResult r = runDataBlockReadout(link, reporter);
        QVERIFY(r.ok);
        QCOMPARE(QString::fromStdString(r.dateText), QString("Herstellungsdatum des Gerätes: 5.11.2023"));
        QCOMPARE(QString::fromStdString(r.lambdaText), QString("Lambda-CAL: &H003C"));
        QCOMPARE(QString::fromStdString(r.serial), QString("A5BDF"));
        QCOMPARE(reporter.lastStatus(), QString("CHECKSUMME OK - DATEN GELADEN!"));
        QCOMPARE(int(r.byteTexts.size()), 128);

        c.setFaults(sim::Request::DataBlock, sim::AnswerFaults{.wrongChecksum = true});
        RecordingReporter bad;
        const DataBlockResult wrong = runDataBlockReadout(link, bad);
        QVERIFY(!wrong.ok);
        QCOMPARE(bad.lastStatus(), QString::fromStdString(wrong.byteTexts.back()));
    }

    void wordReadout()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setWord(0xFF00);
        RecordingReporter reporter;
        QtSerialLink link(c.path());
        const WordResult r = runWordReadout(link, reporter);
        QVERIFY(r.ok);
        QCOMPARE(int(r.word), -256);
        c.setSilent(true);
        const WordResult none = runWordReadout(link, reporter);
        QVERIFY(!none.ok);
        QCOMPARE(reporter.lastStatus(), QString("ERROR"));
    }
};

QTEST_GUILESS_MAIN(TestIdentify)
#include "test_identify.moc"
