#include "app/demo.h"
#include "app/main_window.h"
#include "flash/transfer.h"
#include "local_http_server.h"
#include "scripted_dialogs.h"
#include "sim_ports.h"
#include "test_files.h"

#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace veltro;
using namespace veltro::test;

namespace {
// A started main window; connectNow() clicks VERBINDEN and keeps the status texts shown until
// the connect has finished (byte values left out).
struct Window {
    MainWindow w;
    ScriptedDialogs dialogs;
    QStringList statuses;
    Window()
    {
        w.dialogs = &dialogs;
        QSignalSpy done(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(done.wait(30000));
    }
    void connectNow()
    {
        statuses.clear();
        const auto sample = [this] {
            const QString s = w.statusText();
            if (!s.isEmpty() && !s.front().isDigit() && (statuses.isEmpty() || s != statuses.last()))
                statuses << s;
        };
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, sample);
        poll.start(0);
        QSignalSpy connected(&w, &MainWindow::connectFinished);
        QTest::mouseClick(w.verbinden, Qt::LeftButton);
        QVERIFY(!w.verbinden->isEnabled());
        QVERIFY(connected.wait(30000));
        sample();
    }
};
} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        // No update server unless a test starts one: a closed port on this machine answers at once.
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
    }

    // No ports: READY and nothing to connect to; "BEENDEN" leaves the window 20 twips narrower
    // and hides the terminal.
    void noPortsAndEnd()
    {
        SimPorts ports;
        Window win;
        MainWindow& w = win.w;
        QCOMPARE(w.statusText(), QString("READY"));
        QCOMPARE(w.Comboport->count(), 0);
        QVERIFY(!w.verbinden->isEnabled());
        QVERIFY(w.Command100->isEnabled() && w.Command17->isEnabled());
        QCOMPARE(w.size(), QSize(tw(3800), tw(4380)));
        w.telnet->setVisible(true);
        w.Command2_Click();
        QCOMPARE(w.size(), QSize(tw(3780), tw(4380)));
        QVERIFY(!w.telnet->isVisible());
    }

    // Timer5 counts the panel title down from 3 and stops.
    void waitCountdown()
    {
        MainWindow w;
        QStringList titles;
        for (int i = 0; i < 3; ++i) {
            w.Timer5->start();
            w.Timer5_Timer();
            titles << w.frame_config->title();
        }
        QCOMPARE(titles, QStringList({"Warten ... (3)", "Warten ... (2)", "Warten ... (1)"}));
        QVERIFY(!w.Timer5->isActive());
        QCOMPARE(w.state.Label3, QString("4")); // ready for the next countdown
    }

    // `veltro --demo`: a virtual controller on the first free number, found and selected, and
    // the sample vehicle catalogue in the program folder.
    void demoStartUp()
    {
        SimPorts ports; // leaves the machine's ports out and gives the program folder
        DemoSetup demo;
        Window win;
        MainWindow& w = win.w;
        QCOMPARE(w.Comboport->count(), 1);
        QCOMPARE(w.Comboport->currentText(), QString("VELTRO FW V166 (COMPORT: %1)").arg(demo.portNumber()));
        QVERIFY(w.verbinden->isEnabled());
        QVERIFY(QFile::exists(ports.homePath() + "/vehicles.inc"));
    }

    // A wrong checksum leaves the connect panel with the last byte in the status bar. A good
    // connect shows its status texts in order, then the configuration panel with its buttons,
    // labels and link state, and saves the image under the serial number.
    void connectToController()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x0F0B1703);
        c.setControllerType(2);
        Window win;
        MainWindow& w = win.w;
        c.setFaults(sim::Request::Identify, sim::AnswerFaults{.wrongChecksum = true});
        c.setFirmware(0x05A6);
        win.connectNow();
        QCOMPARE(w.statusText(), QString("5"));
        QVERIFY(w.Frame_verbinden->isVisible());
        QVERIFY(!w.frame_config->isVisible());
        QCOMPARE(w.Label5->text(), QString("SERIENNUMMER: 0F0B1703"));
        QVERIFY(w.verbinden->isEnabled());

        c.setFaults(sim::Request::Identify, {});
        c.setFirmware(166);
        c.setResetDelay(std::chrono::milliseconds(300)); // "Datenanforderung..." stays long enough to see
        win.connectNow();
        // Texts set in quick succession may reach the status bar as the last of them only.
        const QStringList order = {"Öffne Com-Port", "Com-Port geöffnet", "Datenanforderung...",
                                   "CHECKSUMME OK - VERBUNDEN!"};
        QVERIFY2(win.statuses.contains("Datenanforderung...") && win.statuses.last() == order.last(),
                 qPrintable(win.statuses.join(" / ")));
        for (qsizetype i = 1; i < win.statuses.size(); ++i)
            QVERIFY2(order.indexOf(win.statuses[i - 1]) < order.indexOf(win.statuses[i]),
                     qPrintable(win.statuses.join(" / ")));
        QVERIFY(!w.Frame_verbinden->isVisible());
        QVERIFY(w.frame_config->isVisible());
        QVERIFY(w.verbinden->isEnabled());
        QVERIFY(w.Command4->isVisible() && w.Command4->isEnabled());
        QVERIFY(w.Command6->isEnabled() && w.Command1->isEnabled());
        QCOMPARE(QStringList({w.Label5->text(), w.vers->text(), w.hwversion->text()}),
                 QStringList({"SERIENNUMMER: 0F0B1703", "FIRMWARE V166", "HARDWAREVERSION: V3"}));
        QCOMPARE(w.state.ECUTYP, QString("2"));
        QCOMPARE(QFileInfo(ports.homePath() + "/0F0B1703.eep").size(), 1026);

        // "VERBINDUNG TRENNEN": the job has closed the port already; back to the connect panel.
        w.Timer3->start();
        w.Label2->setVisible(true);
        QTest::mouseClick(w.Command8, Qt::LeftButton);
        QVERIFY(!w.frame_config->isVisible());
        QVERIFY(w.Frame_verbinden->isVisible());
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(!w.Timer3->isActive());
        QVERIFY(!w.Label2->isVisible());
    }

    // After a connect the firmware information is checked on the server: a newer number starts
    // the blinking notice; an equal number, a file without a number or a server that is down
    // leave the connect as it was.
    void firmwareNotice_data()
    {
        QTest::addColumn<QByteArray>("info"); // empty: server down
        QTest::addColumn<bool>("blinks");
        QTest::newRow("newer") << QByteArray("170,1.70\r\n") << true;
        QTest::newRow("equal") << QByteArray("166,1.66") << false;
        QTest::newRow("no number") << QByteArray("neu") << false;
        QTest::newRow("server down") << QByteArray() << false;
    }
    void firmwareNotice()
    {
        QFETCH(QByteArray, info);
        QFETCH(bool, blinks);
        QTemporaryDir served;
        writeFile(served.path() + "/fwupdate/VELTRO_3_180.txt", info);
        LocalHttpServer server;
        if (!info.isEmpty()) {
            QVERIFY(server.start(served.path()));
            server.exportEnvironment();
        }
        SimPorts ports;
        ports.add(4).setFirmware(166);
        Window win;
        QSignalSpy checked(&win.w, &MainWindow::firmwareCheckFinished);
        win.connectNow();
        QVERIFY(checked.wait(30000));
        QCOMPARE(win.w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QVERIFY(win.w.frame_config->isVisible());
        QCOMPARE(win.w.Timer3->isActive(), blinks);
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
        MainWindow w;
        ScriptedDialogs dialogs;
        dialogs.rest = answer;
        w.dialogs = &dialogs;
        QSignalSpy done(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(done.wait(30000));
        QCOMPARE(dialogs.asked(), QStringList({"Software-Update runterladen?|Auf dem Server befindet sich "
                                               "Softwareversion 1.06. Soll die aktuelle Version runtergeladen "
                                               "und installiert werden?"}));
        QCOMPARE(QFile::exists(ports.homePath() + "/setup.exe"), answer);
        QCOMPARE(server.requestedPaths().contains("/fwupdate/VELTRO-setup.exe"), answer);
        if (answer)
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(ran), 10000);
        QCOMPARE(w.isVisible(), !answer); // Yes: the tool closed itself for the installer
    }

    // "FIRMWARE-UPDATE" from the questions to the flashed controller. While blocks go out the
    // window refuses to close; afterwards the countdown runs, the button is back, the status
    // reads READY and the name is used up.
    void firmwareUpdate()
    {
        QTemporaryDir served;
        writeFile(served.path() + "/fwupdate/VELTRO_3_180.txt", "170,1.70");
        writeFile(served.path() + "/fwupdate/3_180_lastfw", QByteArray(3000, 'F'));
        LocalHttpServer server;
        QVERIFY(server.start(served.path()));
        server.exportEnvironment();
        SimPorts ports;
        auto& c = ports.add(3);
        Window win;
        MainWindow& w = win.w;
        win.connectNow();
        c.setHandshakeDelay(std::chrono::milliseconds(700)); // time to try closing

        QSignalSpy done(&w, &MainWindow::firmwareFinished);
        QSignalSpy percent(w.transferProgress, &QProgressBar::valueChanged);
        QTest::mouseClick(w.Command7, Qt::LeftButton);
        QVERIFY(!w.Command7->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(w.List1->isVisible(), 10000);
        QVERIFY(!w.close());
        QCOMPARE(win.dialogs.asked().last(), QString("MARDEKO VELTRO V1.05|Die Übertragung zum Controller läuft "
                                                     "noch. Bitte warten, bis sie beendet ist."));
        QVERIFY(done.wait(60000));
        QTRY_VERIFY_WITH_TIMEOUT(c.transferComplete(), 5000); // EOT goes out unanswered
        QCOMPARE(c.receivedImage(), transferImageOf(Bytes(3000, 'F')));
        QCOMPARE(w.List1->item(0)->text(), QString("Starte Download..."));
        QCOMPARE(w.List1->item(w.List1->count() - 1)->text(), QString("Erfolgreich geflasht!"));
        QVERIFY(!percent.isEmpty());
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(w.Command7->isEnabled());
        QCOMPARE(w.state.fwupdateser, QString("KJS"));
        QCOMPARE(w.frame_config->title(), QString("Firmware-Update"));
        QVERIFY(w.Timer5->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(w.frame_config->title(), QString("Warten ... (1)"), 5000);
        QVERIFY(!w.Timer5->isActive());
        QVERIFY(w.close());
    }
};

QTEST_MAIN(TestMainWindow)
#include "test_main_window.moc"
