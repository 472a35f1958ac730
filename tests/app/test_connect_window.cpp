#include "app/main_window.h"
#include "local_http_server.h"
#include "test_files.h"
#include "platform/dialogs.h"
#include "scripted_dialogs.h"
#include "sim_ports.h"

#include <QComboBox>
#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace veltro;
using veltro::test::writeFile;
using veltro::test::readFile;
using veltro::test::LocalHttpServer;
using veltro::test::ScriptedDialogs;
using veltro::test::SimPorts;

namespace {
struct Window {
    MainWindow w;
    ScriptedDialogs dialogs;
    Window()
    {
        dialogs.rest = false;
        w.dialogs = &dialogs;
        QSignalSpy done(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        done.wait(30000);
    }
    void connectNow()
    {
        QSignalSpy connected(&w, &MainWindow::connectFinished);
        QTest::mouseClick(w.verbinden, Qt::LeftButton);
        QVERIFY(!w.verbinden->isEnabled());
        QVERIFY(connected.wait(30000));
    }
};
} // namespace

class TestConnectWindow : public QObject {
    Q_OBJECT
private slots:
    // A connect with newer firmware on the server: labels, link state, panels, saved image,
    // and the blinking notice.
    void connectWithNewerFirmware()
    {
        QTemporaryDir served;
        writeFile(served.path() + "/fwupdate/VELTRO_3_180.txt", "170,1.70\r\n");
        LocalHttpServer server;
        QVERIFY(server.start(served.path()));
        server.exportEnvironment();

        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x0F0B1703);
        c.setFirmware(166);
        c.setHardware(3);
        c.setLayout(180);
        c.setControllerType(2);
        Window win;
        MainWindow& w = win.w;
        QCOMPARE(w.Comboport->currentText(), QString("VELTRO FW V166 (COMPORT: 4)"));
        QSignalSpy checked(&w, &MainWindow::firmwareCheckFinished);
        win.connectNow();

        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QVERIFY(!w.Frame_verbinden->isVisible());
        QVERIFY(w.frame_config->isVisible());
        QVERIFY(w.verbinden->isEnabled());
        QCOMPARE(w.Label5->text(), QString("SERIENNUMMER: 0F0B1703"));
        QCOMPARE(w.vers->text(), QString("FIRMWARE V166"));
        QCOMPARE(w.hwversion->text(), QString("HARDWAREVERSION: V3"));
        QCOMPARE(w.state.fwupdateser, QString("0F0B1703"));
        QCOMPARE(w.state.firmwareversion, QString("166"));
        QCOMPARE(w.state.btversion, QString("180"));
        QCOMPARE(w.state.hwrevision, QString("3"));
        QCOMPARE(w.state.ECUTYP, QString("2"));
        QVERIFY(w.Command4->isVisible() && w.Command4->isEnabled());
        QVERIFY(w.Command6->isEnabled() && w.Command1->isEnabled());
        QVERIFY(w.Timer1->isActive());
        // The port list keeps its port number first, the image bytes follow it.
        QCOMPARE(w.List3->count(), 1 + 1026);
        QCOMPARE(w.List3->item(0)->text(), QString("4"));
        QCOMPARE(QFileInfo(ports.homePath() + "/0F0B1703.eep").size(), 1026);

        QVERIFY(checked.wait(30000));
        QVERIFY(w.Timer3->isActive());
        QVERIFY(server.requestedPaths().contains("/fwupdate/VELTRO_3_180.txt"));

        // Tooltips of the three labels tell the manufacturing date and the build level.
        QTest::mouseMove(w.vers);
        QCoreApplication::sendEvent(w.vers, new QEvent(QEvent::ToolTip));
        QCOMPARE(w.vers->toolTip(), QString("Herstellungsdatum des VELTRO Interfaces: 15.11.23! Das Gerät wurde "
                                            "in der Ausbaustufe HB4 ausgeliefert!"));

        QTest::mouseClick(w.Command8, Qt::LeftButton);
        QVERIFY(!w.Timer3->isActive());
        QVERIFY(w.Frame_verbinden->isVisible());
    }

    void equalFirmwareAndUnreachableServer_data()
    {
        QTest::addColumn<bool>("serverUp");
        QTest::addColumn<QByteArray>("info");
        QTest::newRow("equal number") << true << QByteArray("166,1.66");
        QTest::newRow("malformed file") << true << QByteArray("neu");
        QTest::newRow("server down") << false << QByteArray();
    }
    void equalFirmwareAndUnreachableServer()
    {
        QFETCH(bool, serverUp);
        QFETCH(QByteArray, info);
        QTemporaryDir served;
        writeFile(served.path() + "/fwupdate/VELTRO_3_180.txt", info);
        LocalHttpServer server;
        if (serverUp) {
            QVERIFY(server.start(served.path()));
            server.exportEnvironment();
        } else {
            qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
            qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
        }
        SimPorts ports;
        ports.add(4);
        Window win;
        QSignalSpy checked(&win.w, &MainWindow::firmwareCheckFinished);
        win.connectNow();
        QVERIFY(checked.wait(30000));
        QCOMPARE(win.w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QVERIFY(win.w.frame_config->isVisible());
        QVERIFY(!win.w.Timer3->isActive());
    }

    // Failures leave the connect panel, enable VERBINDEN again and close the port.
    void failedConnect()
    {
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
        SimPorts ports;
        auto& c = ports.add(4);
        Window win;
        MainWindow& w = win.w;
        c.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
        c.setFirmware(0x05A6);
        win.connectNow();
        QCOMPARE(w.statusText(), QString("5"));
        QVERIFY(w.Frame_verbinden->isVisible());
        QVERIFY(!w.frame_config->isVisible());
        QCOMPARE(w.Label5->text(), QString("SERIENNUMMER: 1A2B3C4D"));
        QVERIFY(w.verbinden->isEnabled());

        // An older-layout image: both panels hidden, the older values shown.
        c.setFaults(sim::Request::Identify, {});
        c.setLayout(100);
        c.setImageByte(127, 5);
        c.setImageByte(126, 7);
        win.connectNow();
        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QVERIFY(!w.Frame_verbinden->isVisible());
        QVERIFY(!w.frame_config->isVisible());
        QCOMPARE(w.vers->text(), QString("FIRMWARE V1.07"));
        QCOMPARE(w.state.btversion, QString("5"));
        QCOMPARE(w.state.firmwareversion, QString("7"));

        // The controller goes silent: "Reset nicht erkannt!" then "ERROR".
        QTest::mouseClick(w.Command8, Qt::LeftButton);
        c.setSilent(true);
        win.connectNow();
        QCOMPARE(w.statusText(), QString("ERROR"));
        QVERIFY(w.verbinden->isEnabled());
    }

    void dataReadoutFromServiceMenu()
    {
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
        SimPorts ports;
        auto& c = ports.add(4);
        c.setManufacturingDate(2023, 11, 5);
        c.setDataSerialByte(0x0A);
        c.setLambdaCalibration(0x003C);
        c.setWord(0x0102);
        Window win;
        MainWindow& w = win.w;
        QSignalSpy read(&w, &MainWindow::readoutFinished);
        w.readDataBlock();
        QVERIFY(read.wait(30000));
        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - DATEN GELADEN!"));
        QCOMPARE(w.Label5->text(), QString("SERIENNUMMER: A5BDF"));
        QCOMPARE(w.state.fwupdateser, QString("A5BDF"));
        QCOMPARE(w.LabelDatum->text(), QString("Herstellungsdatum des Gerätes: 5.11.2023"));
        QCOMPARE(w.LabelLambda->text(), QString("Lambda-CAL: &H003C"));
        QCOMPARE(w.state.passwortcal, QString::number(0x0A + 256 * 5 + 65536 * 223));
        QVERIFY(w.frame_config->isVisible());

        const int before = w.List3->count();
        w.Command15_Click();
        QVERIFY(read.wait(30000));
        QCOMPARE(w.List3->count(), before + 1);
        QCOMPARE(w.List3->item(before)->text(), QString::number(0x0102));
        // The chooser's port number is still where it was.
        QCOMPARE(w.List3->item(0)->text(), QString("4"));
    }

    // The self-update check at the end of start-up: the question names the server's version;
    // No downloads nothing; Yes downloads the installer, starts it and closes the tool.
    void selfUpdate_data()
    {
        QTest::addColumn<bool>("answer");
        QTest::newRow("no") << false;
        QTest::newRow("yes") << true;
    }
    void selfUpdate()
    {
        QFETCH(bool, answer);
        QTemporaryDir served;
        QTemporaryDir marker;
        const QString ran = marker.path() + "/installer-ran";
        writeFile(served.path() + "/fwupdate/VELTRO.txt", "6,1.06\r\n");
        writeFile(served.path() + "/fwupdate/VELTRO-setup.exe",
                  QByteArray("#!/bin/sh\necho ok > '") + ran.toUtf8() + "'\n");
        LocalHttpServer server;
        QVERIFY(server.start(served.path()));
        server.exportEnvironment();
        SimPorts ports;

        auto* w = new MainWindow;
        ScriptedDialogs dialogs;
        dialogs.rest = answer;
        w->dialogs = &dialogs;
        w->setAttribute(Qt::WA_DeleteOnClose, false);
        QSignalSpy done(w, &MainWindow::startupFinished);
        w->show();
        w->Form_Load();
        QVERIFY(done.wait(30000));
        QCOMPARE(dialogs.asked(), QStringList({"Software-Update runterladen?|Auf dem Server befindet sich "
                                             "Softwareversion 1.06. Soll die aktuelle Version runtergeladen "
                                             "und installiert werden?"}));
        const QString setup = ports.homePath() + "/setup.exe";
        if (!answer) {
            QVERIFY(!QFile::exists(setup));
            QVERIFY(!server.requestedPaths().contains("/fwupdate/VELTRO-setup.exe"));
            QVERIFY(w->isVisible());
        } else {
            QVERIFY(QFile::exists(setup));
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(ran), 10000);
            QVERIFY(!w->isVisible()); // the tool closed itself
        }
        delete w;
    }

    void selfUpdateFailedDownloadKeepsWindowUsable()
    {
        QTemporaryDir served;
        writeFile(served.path() + "/fwupdate/VELTRO.txt", "6,1.06");
        LocalHttpServer server; // no installer on the server: 404
        QVERIFY(server.start(served.path()));
        server.exportEnvironment();
        SimPorts ports;
        MainWindow w;
        ScriptedDialogs dialogs;
        dialogs.rest = true;
        w.dialogs = &dialogs;
        QSignalSpy done(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(done.wait(30000));
        QVERIFY(w.isEnabled());
        QVERIFY(w.isVisible());
        QVERIFY(!QFile::exists(ports.homePath() + "/setup.exe"));
    }
};

QTEST_MAIN(TestConnectWindow)
#include "test_connect_window.moc"
