#include "flash/jobs.h"
#include "local_http_server.h"
#include "test_files.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
#include "scripted_dialogs.h"
#include "sim_ports.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {
QByteArray firmwareFile(int size, char seed)
{
    QByteArray b(size, 0);
    for (int i = 0; i < size; ++i)
        b[i] = char(seed + i * 7);
    return b;
}

Bytes padded(const QByteArray& file)
{
    return transferImageOf(Bytes(file.begin(), file.end()));
}

const QString kSafety = " Bitte stellen Sie sicher, dass die Stromversorgung des Gerätes stabil ist. Das "
                        "Firmware-Update erfolgt auf eigene Gefahr.";
} // namespace

class TestJobs : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;

    FirmwareInputs inputs(const SimPorts& ports) const
    {
        FirmwareInputs in;
        in.fwupdateser = "1A2B3C4D";
        in.hwrevision = "3";
        in.btversion = "180";
        in.firmwareversion = "166";
        in.ECUTYP = "1";
        in.port = 3;
        in.programFolder = ports.home();
        return in;
    }

private slots:
    void initTestCase()
    {
        writeFile(served_.path() + "/fwupdate/VELTRO_3_180.txt", "170,1.70\r\n");
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", firmwareFile(1000, 1));
        writeFile(served_.path() + "/fwupdate/3_180_3_lastfw", firmwareFile(700, 2));
        writeFile(served_.path() + "/fwupdate/VELTRO_4_180.txt", "166,1.66");
        writeFile(served_.path() + "/fwupdate/0F0B1703", firmwareFile(500, 3));
        writeFile(served_.path() + "/fwupdate/12 34", firmwareFile(300, 4));
        writeFile(served_.path() + "/fwupdate/181.txt", "171,1.71");
        writeFile(served_.path() + "/fwupdate/181_lastfw", firmwareFile(400, 5));
        QVERIFY(server_.start(served_.path()));
        server_.exportEnvironment();
    }

    // From the offer to "Erfolgreich geflasht!": the controller holds the file plus padding,
    // the downloaded image is gone.
    void latestFirmware_data()
    {
        QTest::addColumn<QString>("ecutyp");
        QTest::addColumn<QString>("image");
        QTest::newRow("controller type 1") << "1" << "/fwupdate/3_180_lastfw";
        QTest::newRow("controller type 3") << "3" << "/fwupdate/3_180_3_lastfw";
    }
    void latestFirmware()
    {
        QFETCH(QString, ecutyp);
        QFETCH(QString, image);
        SimPorts ports;
        auto& c = ports.add(3);
        ScriptedDialogs dialogs;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        FirmwareInputs in = inputs(ports);
        in.ECUTYP = ecutyp.toStdString();
        QString title;
        FirmwareHooks hooks;
        hooks.setFrameTitle = [&](const std::string& t) { title = QString::fromStdString(t); };
        const FirmwareResult r = runFirmwareUpdate(in, dialogs, reporter, factory, hooks);

        QVERIFY(r.flashed);
        QCOMPARE(QString::fromStdString(r.fwupdateser), QString("KJS"));
        QCOMPARE(title, QString("Firmware-Update"));
        QCOMPARE(dialogs.asked(),
                 QStringList({"Firmware-Update suchen?|Soll im Internet nach einem Softwareupdate gesucht werden?",
                              "Firmware-Update runterladen?|Auf dem Server befindet sich Firmwareversion 1.70. Soll "
                              "die aktuelle Firmwareversion runtergeladen und auf dem Gerät installiert werden?"
                                  + kSafety}));
        QFile f(served_.path() + image);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(c.receivedImage(), padded(f.readAll()));
        QTRY_VERIFY_WITH_TIMEOUT(c.transferComplete(), 5000); // EOT goes out unanswered
        QVERIFY(!QFile::exists(ports.homePath() + "/jdwiii.hzg"));
        const QStringList steps = reporter.steps();
        QCOMPARE(steps.mid(0, 2), QStringList({"Starte Download...", "Download erfolgreich"}));
        QCOMPARE(steps.last(), QString("Erfolgreich geflasht!"));
        const QStringList paths = server_.requestedPaths();
        QVERIFY(paths.contains("/fwupdate/1A2B3C4D")); // the device-specific probe came first
        QVERIFY(paths.contains("/fwupdate/VELTRO_3_180.txt"));
        QVERIFY(paths.contains(image));
    }

    void failedFlashKeepsTheImage()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        c.setBootFaults(sim::BootFaults{.silentFromBlock = 3});
        ScriptedDialogs dialogs;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        const FirmwareResult r = runFirmwareUpdate(inputs(ports), dialogs, reporter, factory);
        QVERIFY(!r.flashed);
        QCOMPARE(*r.transfer, TransferOutcome::RetryError);
        QCOMPARE(reporter.steps().last(), QString("Retry error!"));
        QVERIFY(QFile::exists(ports.homePath() + "/jdwiii.hzg"));
        QCOMPARE(QString::fromStdString(r.fwupdateser), QString("KJS"));
    }

    // Every way the workflow ends without flashing, each with "KJS" at the end.
    void endsWithoutFlashing_data()
    {
        QTest::addColumn<QString>("hw");
        QTest::addColumn<QString>("fw");
        QTest::addColumn<QList<bool>>("answers");
        QTest::addColumn<QString>("lastDialog");
        QTest::newRow("no search") << "3" << "166" << QList<bool>{false} << "Firmware-Update suchen?";
        QTest::newRow("equal number is up to date")
            << "4" << "166" << QList<bool>{true} << "Firmware ist aktuell!|Die aktuelle Firmware ist auf dem Gerät installiert!";
        QTest::newRow("newer on the controller") << "4" << "200" << QList<bool>{true} << "Firmware ist aktuell!";
        QTest::newRow("no version information")
            << "9" << "166" << QList<bool>{true} << "Suche fehlgeschlagen!|Informationen konnten nicht runtergeladen werden";
        QTest::newRow("offer declined") << "3" << "166" << QList<bool>{true, false} << "Firmware-Update runterladen?";
    }
    void endsWithoutFlashing()
    {
        QFETCH(QString, hw);
        QFETCH(QString, fw);
        QFETCH(QList<bool>, answers);
        QFETCH(QString, lastDialog);
        SimPorts ports;
        auto& c = ports.add(3);
        ScriptedDialogs dialogs;
        dialogs.answers.assign(answers.begin(), answers.end());
        dialogs.rest = false;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        FirmwareInputs in = inputs(ports);
        in.hwrevision = hw.toStdString();
        in.firmwareversion = fw.toStdString();
        const int before = server_.requestedPaths().size();
        const FirmwareResult r = runFirmwareUpdate(in, dialogs, reporter, factory);
        QVERIFY(!r.flashed);
        QVERIFY(!r.transfer);
        QCOMPARE(QString::fromStdString(r.fwupdateser), QString("KJS"));
        QVERIFY(dialogs.asked().last().startsWith(lastDialog));
        QVERIFY(c.received().empty()); // not a byte to the controller
        if (answers == QList<bool>{false})
            QCOMPARE(server_.requestedPaths().size(), before);
    }

    // A file for this very device, or a recovery number as support typed it.
    void deviceSpecific_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("olderForm");
        QTest::newRow("serial number") << "0F0B1703" << "/fwupdate/0F0B1703" << false;
        QTest::newRow("recovery number with a blank") << "12 34" << "/fwupdate/12%2034" << false;
        QTest::newRow("older form asks with a question mark") << "0F0B1703" << "/fwupdate/0F0B1703" << true;
    }
    void deviceSpecific()
    {
        QFETCH(QString, name);
        QFETCH(QString, path);
        QFETCH(bool, olderForm);
        SimPorts ports;
        auto& c = ports.add(3);
        ScriptedDialogs dialogs;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        FirmwareInputs in = inputs(ports);
        in.fwupdateser = name.toStdString();
        in.olderForm = olderForm;
        const FirmwareResult r = runFirmwareUpdate(in, dialogs, reporter, factory);
        QVERIFY(r.flashed);
        QCOMPARE(dialogs.asked().size(), 2);
        QCOMPARE(dialogs.asked().at(1),
                 QString("Firmware-Update runterladen?|Auf dem Server befindet sich ein Update speziell für die "
                         "Seriennummer des Gerätes%1 Möchten Sie das Update einspielen?")
                         .arg(olderForm ? "?" : "!")
                     + kSafety);
        QFile f(served_.path() + "/fwupdate/" + name);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(c.receivedImage(), padded(f.readAll()));
        QVERIFY(server_.requestedPaths().contains(path));
        QVERIFY(QFile::exists(ports.homePath() + "/firmware.txt"));
    }

    void olderFormUsesTheLayoutByteOnly()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        ScriptedDialogs dialogs;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        FirmwareInputs in = inputs(ports);
        in.btversion = "181";
        in.olderForm = true;
        const FirmwareResult r = runFirmwareUpdate(in, dialogs, reporter, factory);
        QVERIFY(r.flashed);
        QVERIFY(dialogs.asked().at(1).contains("Firmwareversion 1.71."));
        const QStringList paths = server_.requestedPaths();
        QVERIFY(paths.contains("/fwupdate/181.txt"));
        QVERIFY(paths.contains("/fwupdate/181_lastfw"));
        QVERIFY(!QFile::exists(ports.homePath() + "/firmware.txt")); // read, then deleted
        QFile f(served_.path() + "/fwupdate/181_lastfw");
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(c.receivedImage(), padded(f.readAll()));
    }

    // The waiting image is used once; the next upload asks with the file dialog.
    void configUpload()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        const QString tmp = ports.homePath() + "/1A2B3C4D.tmp";
        writeFile(tmp, firmwareFile(1023, 9));
        ScriptedDialogs dialogs;
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        ConfigUploadInputs in{tmp.toStdString(), "1A2B3C4D", 3, ports.home()};
        ConfigUploadResult r = runConfigUpload(in, dialogs, reporter, factory);
        QVERIFY(r.eepromdirectTaken);
        QCOMPARE(*r.transfer, TransferOutcome::Success);
        QCOMPARE(int(c.receivedMode()), 0x7C);
        QCOMPARE(c.receivedImage(), padded(firmwareFile(1023, 9)));
        QVERIFY(dialogs.asked().isEmpty());
        QCOMPARE(reporter.steps().first(), QString("öffne COM-Port"));
        QCOMPARE(reporter.steps().last(), QString("Erfolgreich übertragen!"));
        QVERIFY(QFile::exists(tmp)); // left alone after a successful upload

        // Next time the dialog asks; an empty file still sends one block of zeros.
        const QString empty = ports.homePath() + "/empty.eep";
        writeFile(empty, QByteArray());
        dialogs.fileAnswer = empty.toStdString();
        in.eepromdirect.clear();
        r = runConfigUpload(in, dialogs, reporter, factory);
        QVERIFY(!r.eepromdirectTaken);
        QCOMPARE(dialogs.asked(), QStringList({"openFile"}));
        QCOMPARE(*r.transfer, TransferOutcome::Success);
        QCOMPARE(c.receivedImage(), Bytes(128, 0));
    }

    void configUploadCancelled()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        const QString tmp = ports.homePath() + "/1A2B3C4D.tmp";
        writeFile(tmp, "left over");
        ScriptedDialogs dialogs; // no file chosen
        RecordingReporter reporter;
        PortSerialLinkFactory factory;
        const ConfigUploadResult r = runConfigUpload({"", "1A2B3C4D", 3, ports.home()}, dialogs, reporter, factory);
        QVERIFY(r.cancelled);
        QVERIFY(!r.transfer);
        QVERIFY(!QFile::exists(tmp));
        QVERIFY(c.received().empty());
    }

    void recoveryNumber()
    {
        ScriptedDialogs dialogs;
        dialogs.inputAnswer = " 12 ab ";
        QCOMPARE(QString::fromStdString(askRecoveryNumber(dialogs)), QString(" 12 ab "));
        QVERIFY(dialogs.asked().first().startsWith("Recovery|Diese Funktion ist dafür gedacht, falls ein "
                                                   "Firmwareupdate fehlschlug."));
        dialogs.inputAnswer.reset();
        QCOMPARE(QString::fromStdString(askRecoveryNumber(dialogs)), QString());
    }
};

QTEST_GUILESS_MAIN(TestJobs)
#include "test_jobs.moc"
