// The device jobs against virtual controllers: the connect and the port scan (the readouts:
// test_cli); and the texts the controller's data turn into.
#include "device/device_info.h"
#include "device/discovery.h"
#include "device/identify.h"
#include "device/self_update.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "util/runtime_error.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QSet>
#include <QTest>

#include <functional>
#include <mutex>

using namespace veltro;
using namespace veltro::test;

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

class TestDevice : public QObject {
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
        QCOMPARE(s.at(3 + 1025), QString::number(r.image[1025]));
    }

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
    }

    // Texts the controller's data turn into, and the reading of the server's version file.
    // The tooltip's date and build level, or the run-time error number raised instead (0: none).
    void tooltip_data()
    {
        QTest::addColumn<QStringList>("in");  // serial, btversion
        QTest::addColumn<QStringList>("out"); // date, level; or the error number
        QTest::newRow("example") << QStringList{"0F0B1703", "180"} << QStringList{"15.11.23", "HB4"};
        QTest::newRow("day 5 without zero") << QStringList{"050B1703", "180"} << QStringList{"5.11.23", "HB4"};
        QTest::newRow("build level 7") << QStringList{"0F0B1703", "7"} << QStringList{"15.11.23", "H07"};
        QTest::newRow("non-hex pair reads as far as digits go") << QStringList{"1Z0B1703", "255"} << QStringList{"1.11.23", "HFF"};
        QTest::newRow("build level just past a byte") << QStringList{"0F0B1703", "256"} << QStringList{"6"};
        QTest::newRow("build level not a number") << QStringList{"0F0B1703", "B4"} << QStringList{"13"};
    }
    void tooltip()
    {
        QFETCH(QStringList, in);
        QFETCH(QStringList, out);
        try {
            QCOMPARE(QString::fromStdString(deviceInfoTooltip(in[0].toStdString(), in[1].toStdString())),
                     "Herstellungsdatum des VELTRO Interfaces: " + out.value(0) + "! Das Gerät wurde in der Ausbaustufe "
                         + out.value(1) + " ausgeliefert!");
            QCOMPARE(out.size(), 2);
        } catch (const RuntimeError& e) {
            QCOMPARE(QString::number(e.number()), out.value(0));
        }
    }

    // The older layout's firmware caption: a minor below 10 with its leading zero.
    void olderCaption()
    {
        QCOMPARE(QString::fromStdString(olderFirmwareCaption(9) + "|" + olderFirmwareCaption(10)),
                 QString("FIRMWARE V1.09|FIRMWARE V1.10"));
    }

    // The server's version file against the tool's version "5"; `shown` is empty when nothing
    // is offered.
    void selfUpdateDecision_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("shown");
        QTest::newRow("newer, line end and more fields") << "6,1.06,x\r\n" << "1.06";
        QTest::newRow("equal") << "5,1.05" << "";
    }
    void selfUpdateDecision()
    {
        QFETCH(QString, reply);
        QFETCH(QString, shown);
        const auto offer = selfUpdateOfferFrom(reply.toStdString(), "5");
        QCOMPARE(offer ? QString::fromStdString(offer->versionText) : QString(), shown);
        QCOMPARE(offer.has_value(), !shown.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestDevice)
#include "test_device.moc"
