#include "flash/transfer.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "sim_ports.h"

#include <QTest>


using namespace veltro;
using veltro::test::RecordingReporter;
using veltro::test::SimPorts;

namespace {
Bytes pattern(std::size_t size)
{
    Bytes b(size);
    for (std::size_t i = 0; i < size; ++i)
        b[i] = std::uint8_t(i * 13 + 7);
    return b;
}

// A whole transfer: file length, firmware (else configuration) parameters, garbage before the
// echo, bootloader faults, then the outcome, blocks accepted and the last step shown.
struct TransferRow {
    int length;
    bool firmware, garbageEcho;
    sim::BootFaults faults;
    TransferOutcome outcome;
    int accepted;
    QString lastStep;
};
} // namespace

Q_DECLARE_METATYPE(TransferRow)

class TestTransfer : public QObject {
    Q_OBJECT
private slots:
    // The percentage shown halves to even. (Block numbers, complements and checksums are checked
    // by the virtual controller's bootloader in the transfers below, past block 510 included.)
    void percent()
    {
        QCOMPARE(transferPercent(1, 8), 12); // 12.5
        QCOMPARE(transferPercent(3, 8), 38); // 37.5
    }

    // Whole transfers against the virtual controller's bootloader over a pty.
    void transfer_data()
    {
        QTest::addColumn<TransferRow>("row");
        using Faults = sim::BootFaults;
        using Outcome = TransferOutcome;
        const QString flashed = "Erfolgreich geflasht!";
        const QString retry = "Retry error!";
        QTest::newRow("128 bytes, 2 blocks") << TransferRow{128, false, false, {}, Outcome::Success, 2,
                                                            "Erfolgreich übertragen!"};
        QTest::newRow("ten NAKs spread over blocks")
            << TransferRow{600, true, false, Faults{.nakBlock = {{1, 3}, {3, 4}, {5, 3}}}, Outcome::Success, 5, flashed};
        QTest::newRow("the eleventh NAK")
            << TransferRow{600, true, false, Faults{.nakBlock = {{2, 6}, {4, 5}}}, Outcome::RetryError, 3, retry};
        QTest::newRow("no answer to block 2")
            << TransferRow{600, true, false, Faults{.silentFromBlock = 2}, Outcome::RetryError, 1, retry};
        QTest::newRow("garbled answer is no answer")
            << TransferRow{600, true, false, Faults{.garbledBlock = 2}, Outcome::RetryError, 1, retry};
        QTest::newRow("unplugged after block 2") << TransferRow{600, true, false, Faults{.unplugAfterBlock = 2},
                                                                Outcome::Error, 2, "Verbindung zum Controller unterbrochen!"};
        QTest::newRow("echo with other characters is no reset")
            << TransferRow{10, false, true, {}, Outcome::ResetNotRecognised, 0, "Reset nicht erkannt!"};
        QTest::newRow("768 blocks") << TransferRow{98176, true, false, {}, Outcome::Error, 767,
                                                   "Abbruch: das Abbild ist zu groß für den Bootloader (mehr als 767 Blöcke)"};
    }
    void transfer()
    {
        QFETCH(TransferRow, row);
        const auto& [length, firmware, garbageEcho, faults, outcome, accepted, lastStep] = row;
        SimPorts ports;
        auto& c = ports.add(3);
        if (garbageEcho)
            c.setFaults(sim::Request::Bootloader, {.garbageBeforeEcho = {0x41}});
        c.setBootFaults(faults);
        const Bytes image = transferImageOf(pattern(std::size_t(length)));
        QtSerialLink link(c.path());
        RecordingReporter reporter;
        const auto params = firmware ? TransferParams::firmware() : TransferParams::configuration();
        QCOMPARE(runTransfer(link, image, params, reporter), outcome);
        QVERIFY(!link.isOpen());
        QCOMPARE(c.blocksAccepted(), accepted);
        QCOMPARE(int(c.receivedMode()), firmware ? 0x7B : 0x7C);
        const QStringList steps = reporter.steps();
        QCOMPARE(steps.last(), lastStep);
        if (garbageEcho)
            QVERIFY(c.bootReport().frames.empty()); // not a block went out
        if (outcome == TransferOutcome::Success) {
            QTRY_VERIFY_WITH_TIMEOUT(c.transferComplete(), 5000); // EOT goes out unanswered
            QCOMPARE(c.receivedImage(), image);
            QVERIFY(steps.contains(QString("Blöcke gesamt: %1").arg(image.size() / 128)));
            QVERIFY(steps.contains(firmware ? "sende 'EOT' !" : "sende 'End of transmitted'"));
            QCOMPARE(steps.mid(0, 2), firmware ? QStringList({"auf Reset warten...", "öffne COM-Port"})
                                               : QStringList({"öffne COM-Port", "auf Controllerreset warten..."}));
            if (firmware)
                QCOMPARE(reporter.percents().back(), 100);
            QCOMPARE(reporter.lastStatus(), QString(firmware ? "100 % übertragen!" : "Erfolgreich übertragen!"));
        }
        if (outcome == TransferOutcome::RetryError) {
            QTRY_VERIFY_WITH_TIMEOUT(c.transferCancelled(), 5000); // 0x18 reached the controller
            QVERIFY(!c.transferComplete());
        }
    }
};

QTEST_GUILESS_MAIN(TestTransfer)
#include "test_transfer.moc"
