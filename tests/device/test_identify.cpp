#include "device/identify.h"
#include "device/readout.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QTest>

#include <functional>

using namespace veltro;
using veltro::test::RecordingReporter;
using veltro::test::SimPorts;
using veltro::test::readFile;
using veltro::test::writeFile;

using Setup = std::function<void(sim::VirtualController&)>;

namespace {
// A controller set-up, then the outcome, layout flags, last status texts and port error.
struct ConnectRow {
    Setup setup;
    ConnectOutcome outcome;
    bool current, older;
    QStringList tail;
    QString portError;
};
} // namespace
Q_DECLARE_METATYPE(ConnectRow)

namespace {
ConnectResult connectTo(sim::VirtualController& c, RecordingReporter& reporter)
{
    QtSerialLink link(c.path());
    ConnectResult r = runConnect(link, reporter);
    if (link.isOpen())
        QTest::qFail("port left open", __FILE__, __LINE__);
    return r;
}

Setup layout(int value)
{
    return [value](sim::VirtualController& c) { c.setLayout(std::uint8_t(value)); };
}
Setup faults(sim::AnswerFaults f)
{
    return [f](sim::VirtualController& c) { c.setFaults(sim::Request::Identify, f); };
}
} // namespace

class TestIdentify : public QObject {
    Q_OBJECT
private slots:
    // Serial 1A2B3C4D, firmware 166 and layout 180 unless the row changes them. `tail`: the
    // last status texts.
    void connect_data()
    {
        QTest::addColumn<ConnectRow>("row");
        const QStringList ok{"CHECKSUMME OK - VERBUNDEN!"};
        const auto checked = ConnectOutcome::Checked;
        QTest::newRow("late echo after several requests")
            << ConnectRow{faults({.echoFromRequest = 7}), checked, true, false, ok, QString()};
        // The current layouts are 179..181; their first neighbours outside are not.
        for (int value : {178, 179, 181, 182}) {
            const bool current = value >= 179 && value <= 181;
            QTest::addRow("layout %d", value)
                << ConnectRow{layout(value), checked, current, false, current ? ok : QStringList{"0"}, QString()};
        }
        QTest::newRow("older layout") << ConnectRow{[](sim::VirtualController& c) {
            c.setLayout(120);
            c.setImageByte(127, 5);
        }, checked, false, true, ok, QString()};
        QTest::newRow("current layout with byte 127 = 5")
            << ConnectRow{[](sim::VirtualController& c) { c.setImageByte(127, 5); }, checked, true, true, ok, QString()};
        // The status stays at the value of byte 1025 (firmware high byte 2).
        QTest::newRow("checksum error") << ConnectRow{[](sim::VirtualController& c) {
            c.setFirmware(0x02A6);
            c.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
        }, checked, false, false, QStringList{"2"}, QString()};
        QTest::newRow("no echo") << ConnectRow{[](sim::VirtualController& c) { c.setSilent(true); },
                                               ConnectOutcome::ResetNotRecognised, false, false,
                                               {"Datenanforderung...", "Reset nicht erkannt!", "ERROR"}, QString()};
        QTest::newRow("another byte for the echo")
            << ConnectRow{faults({.echoByte = 0x00}), ConnectOutcome::ResetNotRecognised, false, false,
                          {"Datenanforderung...", "Reset nicht erkannt!", "ERROR"}, QString()};
        QTest::newRow("short image") << ConnectRow{faults({.shortAnswer = std::size_t(600)}), ConnectOutcome::ImageTimeout,
                                                   false, false, {"Datenanforderung...", "ERROR0"}, QString()};
        QTest::newRow("unplugged") << ConnectRow{[](sim::VirtualController& c) { c.unplug(); }, ConnectOutcome::PortFailed,
                                                 false, false, {"Öffne Com-Port", "ERROR"}, "Port nicht vorhanden"};
        QTest::newRow("unplugged during the image")
            << ConnectRow{faults({.shortAnswer = std::size_t(600), .unplugAfterAnswer = true}), ConnectOutcome::PortFailed,
                          false, false, {"Datenanforderung...", "ERROR"}, "Verbindung zum Controller unterbrochen!"};
    }
    void connect()
    {
        QFETCH(ConnectRow, row);
        const auto& [setup, outcome, current, older, tail, portError] = row;
        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x1A2B3C4D);
        c.setFirmware(166);
        setup(c);
        RecordingReporter reporter;
        const ConnectResult r = connectTo(c, reporter);

        QCOMPARE(r.outcome, outcome);
        QCOMPARE(r.currentLayout, current);
        QCOMPARE(r.olderLayout, older);
        const QStringList s = reporter.statuses();
        QCOMPARE(s.mid(s.size() - tail.size()), tail);
        QCOMPARE(QString::fromStdString(r.portError), portError);
        if (outcome != ConnectOutcome::Checked)
            return;
        QCOMPARE(QString::fromStdString(r.serial), QString("1A2B3C4D"));
        // Requests go on until one is answered, and stop there.
        QCOMPARE(c.requestCount(sim::Request::Identify), QTest::currentDataTag() == QString("late echo after several requests") ? 7 : 1);
        // Then the status counts through the image: the values of bytes 0..1025.
        QCOMPARE(s.mid(0, 3), QStringList({"Öffne Com-Port", "Com-Port geöffnet", "Datenanforderung..."}));
        QCOMPARE(int(r.byteTexts.size()), 1026);
        QCOMPARE(s.at(3), QString::fromStdString(r.byteTexts.front()));
        QCOMPARE(s.at(3 + 1025), QString::fromStdString(r.byteTexts.back()));
        QCOMPARE(s.at(3 + 1025), QString::number(r.image[1025]));
    }

    // The saved image holds positions 0..1025; a second connect overwrites it in place.
    void savedImage()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x0F0B1703);
        RecordingReporter reporter;
        const QString path = ports.homePath() + "/0F0B1703.eep";
        auto connectAndSave = [&] {
            const ConnectResult r = connectTo(c, reporter);
            QVERIFY(r.currentLayout);
            QCOMPARE(QString::fromStdString(saveImageFile(ports.home(), r.serial, r.image)), path);
        };
        auto image = [&] { return QByteArray(reinterpret_cast<const char*>(c.image().data()), 1026); };
        connectAndSave();
        QCOMPARE(readFile(path), image());

        writeFile(path, readFile(path) + "tail"); // a longer file keeps what lies beyond 1025
        c.setImageByte(0, 0xEE);
        connectAndSave();
        QCOMPARE(readFile(path), image() + "tail");
        QCOMPARE(quint8(readFile(path).at(0)), quint8(0xEE));
    }

    // The readouts where the command line's rows leave off: a word with its top bit set reads
    // negative; a block cut short is read and thrown away before the waiting bytes are counted.
    void readouts()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setWord(0xFF00);
        RecordingReporter reporter;
        QtSerialLink link(c.path());
        const WordResult w = runWordReadout(link, reporter);
        QVERIFY(w.ok);
        QCOMPARE(int(w.word), -256);
        c.setFaults(sim::Request::DataBlock, sim::AnswerFaults{.shortAnswer = std::size_t(60)});
        QVERIFY(!runDataBlockReadout(link, reporter).ok);
        QCOMPARE(reporter.lastStatus(), QString("ERROR0"));
    }
};

QTEST_GUILESS_MAIN(TestIdentify)
#include "test_identify.moc"
