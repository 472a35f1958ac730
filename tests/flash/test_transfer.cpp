#include "flash/transfer.h"
#include "util/runtime_error.h"
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
} // namespace

Q_DECLARE_METATYPE(veltro::sim::BootFaults)
Q_DECLARE_METATYPE(veltro::TransferOutcome)

class TestTransfer : public QObject {
    Q_OBJECT
private slots:
    // Block byte, complement and checksum as the bootloader checks them.
    void frameRules_data()
    {
        QTest::addColumn<int>("n");
        QTest::addColumn<int>("blockByte");
        QTest::addColumn<int>("complement");
        QTest::addColumn<int>("header"); // (1 + n + complement) mod 256
        QTest::newRow("1") << 1 << 0x01 << 0xFE << 0;
        QTest::newRow("255") << 255 << 0xFF << 0x00 << 0;
        QTest::newRow("256") << 256 << 0x00 << 0xFE << 255;
        QTest::newRow("510") << 510 << 0xFE << 0x00 << 255;
        QTest::newRow("511") << 511 << 0xFF << 0xFE << 254;
        QTest::newRow("766") << 766 << 0xFE << 0xFE << 253;
        QTest::newRow("767") << 767 << 0xFF << 0xFD << 253;
    }
    void frameRules()
    {
        QFETCH(int, n);
        QFETCH(int, blockByte);
        QFETCH(int, complement);
        QFETCH(int, header);
        QCOMPARE(int(*blockNumberByte(n)), blockByte);
        const int c = blockComplement(n, 0);
        QCOMPARE(c, complement);
        const Bytes data = pattern(128);
        int sum = 0;
        for (auto b : data)
            sum += b;
        QCOMPARE(int(blockChecksum(n, c, data.data())), (header + sum) % 256);
        QCOMPARE(int(blockChecksum(n, c, Bytes(128, 0).data())), header);
    }

    void limits()
    {
        QVERIFY(!blockNumberByte(768).has_value());
        QCOMPARE(blockComplement(1276, 42), 42); // above 1275 the last value stays
        QCOMPARE(blockComplement(1020, 0), 0);
        QCOMPARE(transferPercent(1, 3), 33);
        QCOMPARE(transferPercent(1, 8), 12); // 12.5 rounds to even
        QCOMPARE(transferPercent(3, 8), 38); // 37.5 rounds to even
        QCOMPARE(transferPercent(767, 767), 100);
    }

    void imageRounding_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("blocks");
        QTest::newRow("empty") << 0 << 1;
        QTest::newRow("1") << 1 << 1;
        QTest::newRow("127") << 127 << 1;
        QTest::newRow("128 gets a whole extra block") << 128 << 2;
        QTest::newRow("300") << 300 << 3;
        QTest::newRow("largest for the bootloader") << 98175 << 767;
    }
    void imageRounding()
    {
        QFETCH(int, length);
        QFETCH(int, blocks);
        const Bytes file = pattern(std::size_t(length));
        const Bytes image = transferImageOf(file);
        QCOMPARE(int(image.size()), blocks * 128);
        QVERIFY(std::equal(file.begin(), file.end(), image.begin()));
        QVERIFY(std::all_of(image.begin() + length, image.end(), [](auto b) { return b == 0; }));
        QVERIFY_THROWS_EXCEPTION(RuntimeError, LoadTransferImage("/nonexistent/veltro.bin"));
    }

    // Whole transfers against the virtual controller's bootloader over a pty.
    void transfer_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("firmware");
        QTest::addColumn<sim::BootFaults>("faults");
        QTest::addColumn<TransferOutcome>("outcome");
        QTest::addColumn<QString>("lastStep");
        QTest::newRow("128 bytes, 2 blocks") << 128 << false << sim::BootFaults{} << TransferOutcome::Success
                                             << "Erfolgreich übertragen!";
        QTest::newRow("300 bytes, firmware") << 300 << true << sim::BootFaults{} << TransferOutcome::Success
                                             << "Erfolgreich geflasht!";
        QTest::newRow("ten NAKs spread over blocks")
            << 600 << true << sim::BootFaults{.nakBlock = {{1, 3}, {3, 4}, {5, 3}}} << TransferOutcome::Success
            << "Erfolgreich geflasht!";
        QTest::newRow("the eleventh NAK") << 600 << true << sim::BootFaults{.nakBlock = {{2, 6}, {4, 5}}}
                                          << TransferOutcome::RetryError << "Retry error!";
        QTest::newRow("no answer to block 2") << 600 << true << sim::BootFaults{.silentFromBlock = 2}
                                              << TransferOutcome::RetryError << "Retry error!";
        QTest::newRow("garbled answer is no answer")
            << 600 << true << sim::BootFaults{.garbledBlock = 2} << TransferOutcome::RetryError << "Retry error!";
        QTest::newRow("no handshake, configuration") << 128 << false << sim::BootFaults{.noHandshake = true}
                                                     << TransferOutcome::HandshakeTimedOut
                                                     << "Handshake fehlgeschlagen!";
        QTest::newRow("unplugged after block 2") << 600 << true << sim::BootFaults{.unplugAfterBlock = 2}
                                                 << TransferOutcome::Error
                                                 << "Verbindung zum Controller unterbrochen!";
    }
    void transfer()
    {
        QFETCH(int, length);
        QFETCH(bool, firmware);
        QFETCH(sim::BootFaults, faults);
        QFETCH(TransferOutcome, outcome);
        QFETCH(QString, lastStep);
        SimPorts ports;
        auto& c = ports.add(3);
        c.setBootFaults(faults);
        const Bytes file = pattern(std::size_t(length));
        const Bytes image = transferImageOf(file);
        QtSerialLink link(c.path());
        RecordingReporter reporter;
        const auto params = firmware ? TransferParams::firmware() : TransferParams::configuration();
        QCOMPARE(runTransfer(link, image, params, reporter), outcome);
        QVERIFY(!link.isOpen());
        const QStringList steps = reporter.steps();
        QCOMPARE(steps.last(), lastStep);
        QCOMPARE(int(c.receivedMode()), firmware ? 0x7B : 0x7C);
        if (outcome == TransferOutcome::Success) {
            QTRY_VERIFY_WITH_TIMEOUT(c.transferComplete(), 5000); // EOT goes out unanswered
            QCOMPARE(c.receivedImage(), image);
            QVERIFY(steps.contains(QString("Blöcke gesamt: %1").arg(image.size() / 128)));
            QVERIFY(steps.contains(firmware ? "sende 'EOT' !" : "sende 'End of transmitted'"));
            QCOMPARE(steps.mid(0, 2), firmware ? QStringList({"auf Reset warten...", "öffne COM-Port"})
                                               : QStringList({"öffne COM-Port", "auf Controllerreset warten..."}));
            if (firmware) {
                QCOMPARE(reporter.percents().back(), 100);
                QVERIFY(reporter.statuses().contains("100 % übertragen!"));
            } else {
                QCOMPARE(reporter.lastStatus(), QString("Erfolgreich übertragen!"));
            }
        }
        if (outcome == TransferOutcome::RetryError) {
            QTRY_VERIFY_WITH_TIMEOUT(c.transferCancelled(), 5000); // 0x18 reached the controller
            QVERIFY(!c.transferComplete());
        }
    }

    // The bootloader's echo arrives together with other characters: that is no reset, so no
    // block goes out.
    void echoWithOtherCharactersIsNoReset()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        c.setFaults(sim::Request::Bootloader, sim::AnswerFaults{.garbageBeforeEcho = {0x41}});
        QtSerialLink link(c.path());
        RecordingReporter reporter;
        QCOMPARE(runTransfer(link, transferImageOf(pattern(10)), TransferParams::configuration(), reporter),
                 TransferOutcome::ResetNotRecognised);
        QCOMPARE(reporter.steps().last(), QString("Reset nicht erkannt!"));
        QVERIFY(c.bootReport().frames.empty());
        QVERIFY(!link.isOpen());
    }

    // 768 blocks: the first 767 go out, block 768 cannot be numbered and ends the job with a
    // line that says why.
    void tooLargeForTheBootloader()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        QtSerialLink link(c.path());
        RecordingReporter reporter;
        QCOMPARE(runTransfer(link, transferImageOf(pattern(98176)), TransferParams::firmware(), reporter),
                 TransferOutcome::Error);
        QCOMPARE(c.blocksAccepted(), 767);
        const QStringList steps = reporter.steps();
        QCOMPARE(steps.at(steps.size() - 2), QString("sende Blocknummer: 768"));
        QVERIFY(steps.last().contains("767"));
        QVERIFY(!link.isOpen());
    }
};

QTEST_GUILESS_MAIN(TestTransfer)
#include "test_transfer.moc"
