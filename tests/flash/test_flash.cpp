// The bootloader transfer and the jobs around it (firmware from the update server, the
// configuration upload) against virtual controllers and a real web server.
#include "flash/jobs.h"
#include "flash/transfer.h"
#include "local_servers.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "scripted_dialogs.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace veltro;
using namespace veltro::test;

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

Bytes padded(const QByteArray& file)
{
    return transferImageOf(Bytes(file.begin(), file.end()));
}

const QString kOffer = "Firmware-Update runterladen?|Auf dem Server befindet sich ";
const QString kSafety = " Bitte stellen Sie sicher, dass die Stromversorgung des Gerätes stabil ist. Das "
                        "Firmware-Update erfolgt auf eigene Gefahr.";

// A controller on port 3, the program folder, and the doubles a job runs with.
struct Rig {
    SimPorts ports;
    sim::VirtualController& c = ports.add(3);
    ScriptedDialogs dialogs;
    RecordingReporter reporter;
    PortSerialLinkFactory factory;

    FirmwareResult flash(const QString& serial, const QString& ecutyp, bool olderForm, const QString& fw = "166",
                         const QString& hw = "3")
    {
        const FirmwareInputs in{serial.toStdString(), hw.toStdString(), "180", fw.toStdString(), ecutyp.toStdString(),
                                3, ports.home(), olderForm};
        return runFirmwareUpdate(in, dialogs, reporter, factory);
    }
};

// A firmware run: serial, controller type, older form, the block from which the controller
// stops answering (0: never), the image file on the server and the offer's text.
struct RunRow {
    QString serial, ecutyp;
    bool olderForm;
    int silentFrom;
    QString file, offer;
};
} // namespace

Q_DECLARE_METATYPE(TransferRow)
Q_DECLARE_METATYPE(RunRow)

class TestFlash : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;

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

    void initTestCase()
    {
        writeFile(served_.path() + "/fwupdate/VELTRO_3_180.txt", "170,1.70\r\n");
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", QByteArray(1000, 'a'));
        writeFile(served_.path() + "/fwupdate/3_180_3_lastfw", QByteArray(700, 'b'));
        writeFile(served_.path() + "/fwupdate/0F0B1703", QByteArray(500, 'c'));
        writeFile(served_.path() + "/fwupdate/180.txt", "171,1.71"); // the older form's version file
        writeFile(served_.path() + "/fwupdate/180_lastfw", QByteArray(400, 'e'));
        const QByteArray page = "\r\n  <!DOCTYPE html>\n<html><body>Nicht gefunden</body></html>\n";
        for (const char* hw : {"5", "8"})
            writeFile(served_.path() + "/fwupdate/VELTRO_" + hw + "_180.txt", "170,1.70");
        writeFile(served_.path() + "/fwupdate/5_180_lastfw", page);
        writeFile(served_.path() + "/fwupdate/8_180_lastfw", QByteArray(2 * 1024 * 1024, 'h'));
        writeFile(served_.path() + "/fwupdate/5E1A1000", page); // a "device-specific" page
        QVERIFY(server_.start(served_.path()));
        server_.exportEnvironment();
    }

    // What is not a firmware image never wakes the bootloader: a page (sent as text/html or
    // reading as markup), a download past the cap (the other refusals are the fuzz model's). A
    // page is no device-specific file either: the general path follows.
    void refusedImages_data()
    {
        QTest::addColumn<QString>("hw");
        QTest::addColumn<QString>("serial");
        QTest::addColumn<QString>("lastStep"); // starts with; empty: every path answers a page
        QTest::newRow("image reads as a page") << "5" << "1A2B3C4D"
                                               << "Abbruch: der Server hat eine Textseite statt einer Firmware";
        QTest::newRow("download past the cap") << "8" << "1A2B3C4D" << "Die Datei ist größer als 1 MiB";
        QTest::newRow("device-specific page, general image flashed") << "3" << "5E1A1000" << "Erfolgreich geflasht!";
        QTest::newRow("every path answers a page") << "3" << "1A2B3C4D" << "";
    }
    void refusedImages()
    {
        QFETCH(QString, hw);
        QFETCH(QString, serial);
        QFETCH(QString, lastStep);
        if (lastStep.isEmpty()) {
            qputenv("VELTRO_UPDATE_HTTP", (server_.httpRoot() + "/page200").toUtf8());
            qputenv("VELTRO_UPDATE_HTTPS", (server_.httpsRoot() + "/page200").toUtf8());
        }
        Rig rig;
        const FirmwareResult r = rig.flash(serial, "1", false, "166", hw);
        server_.exportEnvironment();
        const QStringList asked = rig.dialogs.asked();
        QVERIFY(!asked.join("\n").contains("speziell für die Seriennummer"));
        const QStringList steps = rig.reporter.steps();
        if (lastStep.isEmpty()) {
            QVERIFY(steps.isEmpty());
            QCOMPARE(asked.last(), QString("Suche fehlgeschlagen!|Informationen konnten nicht runtergeladen werden"));
        } else {
            QVERIFY2(steps.last().startsWith(lastStep), qPrintable(steps.last()));
        }
        const bool flashed = lastStep == "Erfolgreich geflasht!";
        QCOMPARE(r.flashed, flashed);
        QCOMPARE(rig.c.requestCount(sim::Request::Bootloader) > 0, flashed);
        if (flashed)
            QCOMPARE(rig.c.receivedImage(), padded(readFile(served_.path() + "/fwupdate/3_180_lastfw")));
    }

    // From the offer to the flashed controller: it holds the file plus padding, the downloaded
    // image is gone after success and kept after a failure, and the name is used up.
    void firmwareRun_data()
    {
        QTest::addColumn<RunRow>("row");
        const QString latest = "Firmwareversion 1.70. Soll die aktuelle Firmwareversion runtergeladen und auf dem "
                               "Gerät installiert werden?";
        const QString forDevice = "ein Update speziell für die Seriennummer des Gerätes! Möchten Sie das Update "
                                 "einspielen?";
        QTest::newRow("controller type 1") << RunRow{"1A2B3C4D", "1", false, 0, "3_180_lastfw", latest};
        QTest::newRow("controller type 3") << RunRow{"1A2B3C4D", "3", false, 0, "3_180_3_lastfw", latest};
        QTest::newRow("serial number") << RunRow{"0F0B1703", "1", false, 0, "0F0B1703", forDevice};
        QTest::newRow("older form, layout byte only")
            << RunRow{"1A2B3C4D", "1", true, 0, "180_lastfw", QString(latest).replace("1.70", "1.71")};
        QTest::newRow("controller stops answering") << RunRow{"1A2B3C4D", "1", false, 3, "3_180_lastfw", latest};
    }
    void firmwareRun()
    {
        QFETCH(RunRow, row);
        const auto& [serial, ecutyp, olderForm, silentFrom, file, offer] = row;
        Rig rig;
        rig.c.setBootFaults({.silentFromBlock = silentFrom});
        const qsizetype before = server_.requestedPaths().size();
        const FirmwareResult r = rig.flash(serial, ecutyp, olderForm);
        QCOMPARE(rig.dialogs.asked(),
                 QStringList({"Firmware-Update suchen?|Soll im Internet nach einem Softwareupdate gesucht werden?",
                              kOffer + offer + kSafety}));
        QCOMPARE(QString::fromStdString(r.fwupdateser), QString("KJS"));
        const QStringList paths = server_.requestedPaths().mid(before);
        QCOMPARE(paths.first(), "/fwupdate/" + QString::fromLatin1(QUrl::toPercentEncoding(serial))); // probed first
        QCOMPARE(paths.last(), "/fwupdate/" + QString::fromLatin1(QUrl::toPercentEncoding(file)));
        const QStringList steps = rig.reporter.steps();
        QCOMPARE(steps.mid(0, 2), QStringList({"Starte Download...", "Download erfolgreich"}));
        QCOMPARE(r.flashed, silentFrom == 0);
        QCOMPARE(QFile::exists(rig.ports.homePath() + "/jdwiii.hzg"), !r.flashed);
        QCOMPARE(QFile::exists(rig.ports.homePath() + "/firmware.txt"), file == serial); // the probe's download
        if (r.flashed) {
            QCOMPARE(steps.last(), QString("Erfolgreich geflasht!"));
            QCOMPARE(rig.c.receivedImage(), padded(readFile(served_.path() + "/fwupdate/" + file)));
        } else {
            QCOMPARE(*r.transfer, TransferOutcome::RetryError);
            QCOMPARE(steps.last(), QString("Retry error!"));
        }
    }

    // Ways the workflow ends without flashing, each with "KJS" at the end.
    void endsWithoutFlashing_data()
    {
        QTest::addColumn<QString>("fw");
        QTest::addColumn<QList<bool>>("answers");
        QTest::addColumn<QString>("lastDialog");
        QTest::newRow("no search") << "166" << QList<bool>{false} << "Firmware-Update suchen?";
        QTest::newRow("equal number is up to date")
            << "170" << QList<bool>{true}
            << "Firmware ist aktuell!|Die aktuelle Firmware ist auf dem Gerät installiert!";
        QTest::newRow("offer declined") << "166" << QList<bool>{true, false} << "Firmware-Update runterladen?";
    }
    void endsWithoutFlashing()
    {
        QFETCH(QString, fw);
        QFETCH(QList<bool>, answers);
        QFETCH(QString, lastDialog);
        Rig rig;
        rig.dialogs.answers.assign(answers.begin(), answers.end());
        rig.dialogs.rest = false;
        const qsizetype before = server_.requestedPaths().size();
        const FirmwareResult r = rig.flash("1A2B3C4D", "1", false, fw);
        QVERIFY(!r.flashed && !r.transfer);
        QCOMPARE(QString::fromStdString(r.fwupdateser), QString("KJS"));
        QVERIFY(rig.dialogs.asked().last().startsWith(lastDialog));
        QVERIFY(rig.c.received().empty()); // not a byte to the controller
        if (answers == QList<bool>{false})
            QCOMPARE(server_.requestedPaths().size(), before);
    }

    // The waiting image is used once; the next upload asks with the file dialog, and a cancel
    // there removes the editor's temporary image and sends nothing. (A file given directly:
    // the command line's upload-config rows.)
    void configUpload()
    {
        Rig rig;
        const QString tmp = rig.ports.homePath() + "/1A2B3C4D.tmp";
        writeFile(tmp, QByteArray(1023, 'f'));
        ConfigUploadInputs in{tmp.toStdString(), "1A2B3C4D", 3, rig.ports.home()};
        ConfigUploadResult r = runConfigUpload(in, rig.dialogs, rig.reporter, rig.factory);
        QVERIFY(r.eepromdirectTaken);
        QCOMPARE(*r.transfer, TransferOutcome::Success);
        QCOMPARE(rig.c.receivedImage(), padded(QByteArray(1023, 'f')));
        QVERIFY(rig.dialogs.asked().isEmpty());
        QVERIFY(QFile::exists(tmp)); // left alone after a successful upload

        in.eepromdirect.clear();
        // The job returns once its end of transmission is written; the controller may read it
        // a moment later.
        QTRY_VERIFY(rig.c.bootReport().complete);
        const std::size_t sent = rig.c.received().size();
        r = runConfigUpload(in, rig.dialogs, rig.reporter, rig.factory);
        QVERIFY(r.cancelled);
        QCOMPARE(rig.dialogs.asked(), QStringList({"openFile"}));
        QVERIFY(!r.transfer);
        QVERIFY(!QFile::exists(tmp));
        QCOMPARE(rig.c.received().size(), sent);
    }
};

QTEST_GUILESS_MAIN(TestFlash)
#include "test_flash.moc"
