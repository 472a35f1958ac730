// The main window over virtual controllers and real local servers: the connect, the one-job
// rule, the scan, the firmware notice and self-update, the configuration road, the terminal and
// its report, REMOTE, and Qt's German dialogs.
#include "accessible_tree.h"
#include "app/history.h"
#include "app/window/history_dialog.h"
#include "editor/config_image.h"
#include "editor/editor_logic.h"
#include "app/translations.h"
#include "editor/demo_catalogue.h"
#include "editor/window/form2.h"
#include "flash/transfer.h"
#include "platform/internet.h"
#include "platform/mail.h"
#include "platform/windows1252.h"
#include "sim_ports.h"
#include "util/twips.h"
#include "window_fixture.h"

#include <QAccessible>
#include <QAction>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGroupBox>
#include <QJsonArray>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSerialPort>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTextEdit>
#include <QTimer>

#include <algorithm>
#include <functional>
#include <memory>

Q_DECLARE_METATYPE(veltro::sim::Request)

using namespace veltro;
using namespace veltro::test;

namespace {
QString lastStep(const MainWindow& w) { return w.List1->count() ? w.List1->item(w.List1->count() - 1)->text() : QString(); }

// The "++" lines the terminal shows, in order.
QStringList remoteLines(const MainWindow& w)
{
    QStringList lines;
    for (const QByteArray& line : terminalBytes(w).split('\n'))
        if (line.startsWith("++"))
            lines << QString::fromLatin1(line.trimmed());
    return lines;
}

// A connected main window with its terminal open on a virtual controller at port 4.
struct OpenTerminal {
    SimPorts ports;
    sim::VirtualController& c = ports.add(4);
    Window win;
    MainWindow& w = win.w;
    OpenTerminal()
    {
        win.connectNow();
        QTest::mouseClick(w.Command1, Qt::LeftButton);
    }
    // "REMOTE", until its record has been handled.
    bool remote()
    {
        QSignalSpy handled(w.telnet, &TerminalPanel::remoteRecordHandled);
        QTest::mouseClick(w.telnet->Command9, Qt::LeftButton);
        return handled.wait(20000);
    }
};

// The record that points at `service`.
QByteArray recordFor(const QTcpServer& service, const char* baud)
{
    return "127,0,0,1," + QByteArray::number(service.serverPort()) + "," + baud + ",0\r\n";
}

// The lines shown since `from`, without the state lines a slow machine may catch on the way.
QStringList linesSince(const MainWindow& w, qsizetype from)
{
    QStringList lines = remoteLines(w).mid(from);
    lines.removeAll("++SOLVE IP...");
    lines.removeAll("++CONNECTING TO SERVER...");
    return lines;
}
} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    void init() { noUpdateServer(); }

    // A port another program holds is named under the button. A good connect shows its status
    // texts in order, then the configuration panel with its buttons, labels and link state, and
    // saves the image under the serial number.
    void connectToController()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setSerial(0x0F0B1703);
        c.setControllerType(2);
        Window win;
        MainWindow& w = win.w;

        // Another program holds the port: the panel says so under the button.
        auto other = std::make_unique<QSerialPort>(QString::fromStdString(c.path()));
        QVERIFY(other->open(QIODevice::ReadWrite));
        win.connectNow();
        QCOMPARE(w.statusText(), QString("ERROR"));
        QVERIFY(w.connectProblem->isVisible());
        QCOMPARE(w.connectProblem->text(),
                 QString("Com-Port kann nicht geöffnet werden: Port wird von einem anderen Programm benutzt"));
        other.reset();

        c.setResetDelay(std::chrono::milliseconds(300)); // "Datenanforderung..." stays long enough to see
        QSignalSpy connected(&w, &MainWindow::connectFinished);
        QTest::mouseClick(w.verbinden, Qt::LeftButton);
        QTRY_COMPARE(w.statusText(), QString("Datenanforderung..."));
        QVERIFY(connected.wait(30000));
        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QVERIFY(!w.Frame_verbinden->isVisible());
        QVERIFY(w.frame_config->isVisible());
        QVERIFY(w.Command4->isVisible() && w.Command4->isEnabled());
        QCOMPARE(QStringList({w.Label5->text(), w.vers->text(), w.hwversion->text()}),
                 QStringList({"SERIENNUMMER: 0F0B1703", "FIRMWARE V166", "HARDWAREVERSION: V3"}));
        QCOMPARE(w.state.ECUTYP, QString("2"));
        QCOMPARE(QFileInfo(ports.homePath() + "/0F0B1703.eep").size(), 1026);
        // A screen reader finds the panels and their controls by their captions.
        QCOMPARE(controlsWithoutCaption(&w), QString());
    }

    // After a connect the firmware information is checked on the server: a newer number starts
    // the blinking notice; an equal number leaves the connect as it was (so does a server that
    // is down, as in every other test here).
    // An image that passes both layout tests (byte 127 = 5, older minor 10 at byte 126) is
    // checked with the current layout's values, which come first: hardware 3, layout 180,
    // firmware 166; then the older values take the labels of the older layout's panel. (Its
    // firmware update is the one of the service menu, in the one-job test.)
    void firmwareNotice_data()
    {
        QTest::addColumn<QByteArray>("info");
        QTest::addColumn<bool>("bothLayouts");
        QTest::addColumn<bool>("blinks");
        QTest::newRow("newer") << QByteArray("170,1.70\r\n") << false << true;
        QTest::newRow("equal") << QByteArray("166,1.66") << false << false;
        QTest::newRow("both layouts, newer") << QByteArray("170,1.70") << true << true;
    }
    void firmwareNotice()
    {
        QFETCH(QByteArray, info);
        QFETCH(bool, bothLayouts);
        QFETCH(bool, blinks);
        // The second file holds the older values.
        Served served({{"/fwupdate/VELTRO_3_180.txt", info}, {"/fwupdate/VELTRO_3_5.txt", "9,1.09"}});
        SimPorts ports;
        auto& c = ports.add(4);
        c.setFirmware(166);
        if (bothLayouts) {
            c.setImageByte(127, 5);
            c.setImageByte(126, 10);
        }
        Window win;
        QSignalSpy checked(&win.w, &MainWindow::firmwareCheckFinished);
        win.connectNow();
        QVERIFY(checked.wait(30000));
        QCOMPARE(win.w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        QCOMPARE(win.w.frame_config->isVisible(), !bothLayouts);
        QCOMPARE(win.w.Timer3->isActive(), blinks);
        QVERIFY(served.server.requestedPaths().contains("/fwupdate/VELTRO_3_180.txt"));
        QVERIFY(!served.server.requestedPaths().contains("/fwupdate/VELTRO_3_5.txt"));
        if (!bothLayouts)
            return;
        QCOMPARE(QStringList({win.w.state.btversion, win.w.state.firmwareversion, win.w.olderVers->text()}),
                 QStringList({"5", "10", "FIRMWARE V1.10"}));
        // The older layout's panel: its serial and firmware, and the way back to the connect panel.
        QVERIFY(win.w.frame_older->isVisible());
        QCOMPARE(win.w.olderSerial->text(), QString("SERIENNUMMER: 1A2B3C4D"));
        QTest::mouseClick(win.w.olderTrennen, Qt::LeftButton);
        QVERIFY(win.w.Frame_verbinden->isVisible() && !win.w.frame_older->isVisible());
        QCOMPARE(win.w.statusText(), QString("READY"));
    }

    // One device job at a time: while one runs, every control and service entry that would
    // start another on the port is off, and calling its handler anyway starts nothing. The
    // running job ends as it would alone, the chooser still maps to the port, and everything
    // is enabled again afterwards. "FIRMWARE-UPDATE" also keeps the window open while blocks
    // go out; afterwards the status reads READY and the countdown runs and stops at 1.
    void oneDeviceJobAtATime_data()
    {
        QTest::addColumn<QString>("job");
        QTest::addColumn<sim::Request>("own"); // the request the job sends, and no other
        for (const char* job : {"firmware", "older firmware", "config upload"})
            QTest::newRow(job) << QString(job) << sim::Request::Bootloader;
        QTest::newRow("connect") << QString("connect") << sim::Request::Identify;
        QTest::newRow("data readout") << QString("data readout") << sim::Request::DataBlock;
        QTest::newRow("word readout") << QString("word readout") << sim::Request::Word;
    }
    void oneDeviceJobAtATime()
    {
        QFETCH(QString, job);
        QFETCH(sim::Request, own);
        Served served({{"/fwupdate/VELTRO_3_180.txt", "170,1.70"}, {"/fwupdate/3_180_lastfw", QByteArray(3000, 'F')},
                       {"/fwupdate/180.txt", "170,1.70"}, {"/fwupdate/180_lastfw", QByteArray(3000, 'F')}});
        SimPorts ports;
        auto& c = ports.add(4);
        c.setWord(1234);
        Window win;
        MainWindow& w = win.w;
        if (job != "connect")
            win.connectNow();
        const QByteArray config(300, 'C');
        const QString configFile = ports.homePath() + "/upload.tmp";
        writeFile(configFile, config);
        w.state.eepromdirect = configFile;
        c.setResetDelay(std::chrono::milliseconds(400));
        c.setHandshakeDelay(std::chrono::milliseconds(400));
        auto service = [&](const QString& text) {
            const auto actions = w.frame_config->actions();
            return *std::find_if(actions.begin(), actions.end(), [&](QAction* a) { return a->text() == text; });
        };
        const QList<QAction*> serviceJobs = {service("Datenblock auslesen"), service("Wort auslesen (Command15)"),
                                             service("Firmware-Update (ältere Form)"), service("Frühere Konfiguration…")};
        std::map<sim::Request, int> before;
        for (sim::Request r : {sim::Request::Identify, sim::Request::DataBlock, sim::Request::Word, sim::Request::Bootloader})
            before[r] = c.requestCount(r);
        QSignalSpy percent(w.transferProgress, &QProgressBar::valueChanged);
        // The buttons start their jobs; the rest come from the service menu.
        if (QPushButton* b = job == "connect" ? w.verbinden : job == "firmware" ? w.Command7
                             : job == "config upload" ? w.Command4 : nullptr)
            QTest::mouseClick(b, Qt::LeftButton);
        else
            serviceJobs[job == "data readout" ? 0 : job == "word readout" ? 1 : 2]->trigger();
        QVERIFY(w.deviceJobRunning());

        const QList<QPushButton*> controls = {w.verbinden, w.Command100, w.Command17, w.Command7, w.Command4,
                                              w.Command10, w.Command6, w.Command1, w.Command8,
                                              w.olderFirmware, w.olderTrennen};
        for (QPushButton* b : controls) {
            QVERIFY2(!b->isEnabled(), qPrintable(b->objectName()));
            QTest::mouseClick(b, Qt::LeftButton);
        }
        QVERIFY(!w.Comboport->isEnabled());
        for (QAction* a : serviceJobs) {
            QVERIFY2(!a->isEnabled(), qPrintable(a->text()));
            a->trigger();
        }
        for (auto handler : {&MainWindow::verbinden_Click, &MainWindow::Command100_Click, &MainWindow::Command17_Click,
                             &MainWindow::Command7_Click, &MainWindow::Command4_Click, &MainWindow::Command8_Click,
                             &MainWindow::Command15_Click, &MainWindow::readDataBlock, &MainWindow::olderFirmwareUpdate,
                             &MainWindow::earlierConfiguration})
            (w.*handler)();
        QVERIFY(!w.historyDialog());
        QVERIFY(w.deviceJobRunning());
        if (job == "firmware") {
            QTRY_VERIFY_WITH_TIMEOUT(w.List1->isVisible(), 10000);
            QVERIFY(!w.close());
            QCOMPARE(win.dialogs->asked().last(), QString("MARDEKO VELTRO V1.05|Die Übertragung zum Controller "
                                                         "läuft noch. Bitte warten, bis sie beendet ist."));
        }

        QTRY_VERIFY_WITH_TIMEOUT(!w.deviceJobRunning(), 60000);
        if (job == "firmware") {
            QCOMPARE(w.statusText(), QString("READY"));
            QCOMPARE(w.frame_config->title(), QString("Firmware-Update"));
            QVERIFY(w.Timer5->isActive() && !percent.isEmpty());
        }
        if (job == "connect") {
            QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
            QVERIFY(w.frame_config->isVisible());
        } else if (job == "firmware" || job == "older firmware") {
            QCOMPARE(lastStep(w), QString("Erfolgreich geflasht!"));
        } else if (job == "config upload") {
            QCOMPARE(lastStep(w), QString("Erfolgreich übertragen!"));
        } else if (job == "data readout") {
            QCOMPARE(w.statusText(), QString("CHECKSUMME OK - DATEN GELADEN!"));
        } else {
            QCOMPARE(w.List3->item(w.List3->count() - 1)->text(), QString("1234"));
        }
        for (const auto& [request, count] : before) {
            if (request == own)
                QVERIFY(c.requestCount(request) > count);
            else
                QCOMPARE(c.requestCount(request), count);
        }
        // No rescan came in between: the chooser's entry still maps to the controller's port.
        QCOMPARE(w.Comboport->count(), 1);
        QCOMPARE(w.List3->item(0)->text(), QString("4"));

        for (QPushButton* b : controls)
            QVERIFY2(b->isEnabled(), qPrintable(b->objectName()));
        QVERIFY(w.Comboport->isEnabled());
        for (QAction* a : serviceJobs)
            QVERIFY2(a->isEnabled(), qPrintable(a->text()));
        if (job == "firmware") {
            QTRY_COMPARE_WITH_TIMEOUT(w.frame_config->title(), QString("Warten ... (1)"), 5000);
            QVERIFY(!w.Timer5->isActive());
            QVERIFY(w.close());
        }
    }

    // Entries show as their probes end, in port order. The highest controller found so far is
    // selected until the user chooses; connecting counts as choosing, so a controller found
    // later never moves later jobs to another port.
    void scanShowsEntriesAsFound_data()
    {
        QTest::addColumn<QString>("choice"); // "", "connect 4"
        QTest::addColumn<int>("selectedPort");
        QTest::newRow("no choice") << QString() << 7;
        QTest::newRow("connect to 4 while scanning") << QString("connect 4") << 4;
    }
    void scanShowsEntriesAsFound()
    {
        QFETCH(QString, choice);
        QFETCH(int, selectedPort);
        SimPorts ports;
        ports.addSilent(2);
        ports.add(4);
        ports.add(7).setResetDelay(std::chrono::milliseconds(1500)); // answers well after port 4
        MainWindow w;
        w.dialogs = std::make_shared<ScriptedDialogs>();
        QSignalSpy scanned(&w, &MainWindow::scanFinished);
        w.show();
        w.Form_Load();
        QTRY_VERIFY_WITH_TIMEOUT(w.Comboport->count() >= 1, 20000);
        // A silent port holds out for its whole echo wait; port 4 is listed long before that.
        QVERIFY(scanned.isEmpty());
        QCOMPARE(w.Comboport->currentText(), QString("VELTRO FW V166 (COMPORT: 4)"));
        QVERIFY(w.verbinden->isEnabled());
        if (choice == "connect 4") {
            QSignalSpy connected(&w, &MainWindow::connectFinished);
            QTest::mouseClick(w.verbinden, Qt::LeftButton);
            QVERIFY(connected.wait(30000));
            QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
        }
        QVERIFY(scanned.wait(30000));
        QCOMPARE(w.Comboport->count(), 3); // the entries' texts and order: test_device
        QCOMPARE(w.List3->item(0)->text() + w.List3->item(1)->text() + w.List3->item(2)->text(), QString("247"));
        QCOMPARE(w.List3->count(), choice == "connect 4" ? 3 + 1026 : 3);
        QCOMPARE(w.List3->item(w.Comboport->currentIndex())->text(), QString::number(selectedPort));
    }

    // The self-update check at the end of start-up: the question names the server's version;
    // No downloads nothing and the tool goes on; Yes downloads the installer, starts it and
    // closes the tool.
    void selfUpdate_data()
    {
        QTest::addColumn<bool>("answer");
        QTest::newRow("no") << false;
        QTest::newRow("yes") << true;
    }
    void selfUpdate()
    {
        QFETCH(bool, answer);
        QTemporaryDir marker;
        const QString ran = marker.path() + "/installer-ran";
        Served served({{"/fwupdate/VELTRO.txt", "6,1.06\r\n"},
                       {"/fwupdate/VELTRO-setup.exe", QByteArray("#!/bin/sh\necho ok > '") + ran.toUtf8() + "'\n"}});
        SimPorts ports;
        Window win(answer);
        MainWindow& w = win.w;
        QCOMPARE(win.dialogs->asked(), QStringList({"Software-Update runterladen?|Auf dem Server befindet sich "
                                               "Softwareversion 1.06. Soll die aktuelle Version runtergeladen "
                                               "und installiert werden?"}));
        QCOMPARE(QFile::exists(ports.homePath() + "/setup.exe"), answer);
        QCOMPARE(served.server.requestedPaths().contains("/fwupdate/VELTRO-setup.exe"), answer);
        if (answer)
            QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(ran), 10000);
        QCOMPARE(w.isVisible(), !answer); // Yes: the tool closed itself for the installer
        if (answer)
            return;
        // No: the tool goes on with no ports, READY and nothing to connect to; "BEENDEN" leaves
        // the window 20 twips narrower and hides the terminal.
        QCOMPARE(w.statusText(), QString("READY"));
        QCOMPARE(w.Comboport->count(), 0);
        QVERIFY(!w.verbinden->isEnabled());
        QCOMPARE(w.size(), QSize(tw(3800), tw(4380)));
        w.telnet->setVisible(true);
        w.telnet->Command2_Click();
        QCOMPARE(w.size(), QSize(tw(3780), tw(4380)));
        QVERIFY(!w.telnet->isVisible());
    }

    // The terminal on the controller's port: opening lines, typed lines as the controller gets
    // them, its output kept byte for byte, the report mail, closing; failed mails say why; a
    // port another program holds and a controller pulled out say so once each.
    // (Which typed lines mail the image is the fuzz model's of the terminal.)
    void terminalRoad()
    {
        Mailbox mailbox;
        LocalSmtpServer& smtp = mailbox.smtp;
        OpenTerminal t;
        auto& c = t.c;
        MainWindow& w = t.w;
        QVERIFY(w.telnet->isVisible() && w.telnet->MSComm3->isOpen());
        QCOMPARE(w.width(), tw(10200));
        QCOMPARE(controlsWithoutCaption(w.telnet), QString());
        QCOMPARE(terminalBytes(w),
                 QByteArray("\rTERMINAL READY...\rSERIALNUMBER: 1A2B3C4D\r"));

        // Typed lines as the controller receives them (Escape before "AT": no CR); nothing typed
        // shows in the terminal.
        const qsizetype before = qsizetype(c.received().size());
        for (const QString typed : {"ver", "AT\x1b", "", "sendeeprom", "a{b"}) {
            QTest::keyClicks(w.telnet->telnetsendbox, QString(typed).remove('\x1b'));
            if (typed.endsWith('\x1b'))
                QTest::keyClick(w.telnet->telnetsendbox, Qt::Key_Escape);
            QTest::keyClick(w.telnet->telnetsendbox, Qt::Key_Return);
            QVERIFY(w.telnet->telnetsendbox->text().isEmpty());
        }
        QTRY_COMPARE(qbytes(c.received()).mid(before), QByteArray("ver\rAT\rsendeeprom\ra{b\r"));
        QTRY_VERIFY(terminalBytes(w).contains("OK a{b"));
        QVERIFY(!terminalBytes(w).contains("ver\r"));

        // BERICHT SENDEN: the file holds the terminal's text and CR LF, over an older longer
        // report; the mail carries it.
        const QByteArray text = terminalBytes(w);
        QVERIFY(writeFile(t.ports.homePath() + "/terminal_log.txt", QByteArray(100000, 'x')));
        QSignalSpy reported(w.telnet, &TerminalPanel::reportFinished);
        QTest::mouseClick(w.telnet->Command3, Qt::LeftButton);
        QVERIFY(reported.wait(20000));
        const QByteArray log = readFile(t.ports.homePath() + "/terminal_log.txt");
        QCOMPARE(log, text + "\r\n");
        QCOMPARE(terminalBytes(w),
                 text + "\rDATEI GESPEICHERT!\r\rDATEI SENDEN...\r\rDATEI ERFOLGREICH GESENDET!\r");
        QCOMPARE(smtp.messages().size(), 1);
        const QJsonObject report = smtp.messages().last();
        QVERIFY(report["authenticated"].toBool());
        QCOMPARE(report["subject"].toString() + "|" + report["body"].toString().trimmed() + "|" + report["to"].toArray().at(0).toString(),
                 QString("Nachricht VELTRO S/N:1A2B3C4D|Datenlog anbei|support@veltro.example"));
        QCOMPARE(QByteArray::fromBase64(report["attachments"].toArray().at(0).toObject().value("data").toString().toLatin1()), log);

        // The image mail to a mailbox that would add commands to the envelope: refused, and the
        // reason shown below its line, in the terminal's code page.
        qputenv("VELTRO_SUPPORT_MAIL", "support@veltro.example\r\nRCPT TO:<evil@veltro.example>");
        QSignalSpy imageMailed(w.telnet, &TerminalPanel::imageMailFinished);
        QTest::keyClicks(w.telnet->telnetsendbox, "SENDEEPROM");
        QTest::keyClick(w.telnet->telnetsendbox, Qt::Key_Return);
        QVERIFY(imageMailed.wait(20000));
        QCOMPARE(imageMailed.last().at(0).toString(), QString());
        const QString refused = "++MAIL NICHT GESENDET: Empfängeradresse ungültig (Zeilenumbruch)";
        const std::string shown = qStringToWindows1252("\r\n++SEND DEVICE EEPROM TO SERVER...\r\n" + refused);
        QVERIFY(terminalBytes(w).endsWith(QByteArray::fromStdString(shown)));
        QTRY_VERIFY(w.telnet->terminal->toPlainText().endsWith(refused));

        // BEENDEN closes the port: another program can have it now, and the terminal cannot.
        QTest::mouseClick(w.telnet->Command2, Qt::LeftButton);
        QVERIFY(!w.telnet->MSComm3->isOpen() && !w.telnet->isVisible());
        {
            QSerialPort other(QString::fromStdString(c.path()));
            QVERIFY(other.open(QIODevice::ReadWrite));
            QTest::mouseClick(w.Command1, Qt::LeftButton);
            QVERIFY(!w.telnet->MSComm3->isOpen());
            QTRY_VERIFY(w.telnet->terminal->toPlainText().contains(
                "++TERMINAL: Com-Port 4 kann nicht geöffnet werden: Port wird von einem anderen Programm benutzt"));
        }
        // Pulled out while open: one line, and typing says the port is not open.
        QTest::mouseClick(w.Command1, Qt::LeftButton);
        QVERIFY(w.telnet->MSComm3->isOpen());
        c.unplug();
        QTRY_VERIFY(!w.telnet->MSComm3->isOpen());
        QTest::qWait(200);
        QCOMPARE(terminalBytes(w).count("Verbindung zum Controller unterbrochen!"), 1);
        QTest::keyClicks(w.telnet->telnetsendbox, "ver");
        QTest::keyClick(w.telnet->telnetsendbox, Qt::Key_Return);
        QVERIFY(terminalBytes(w).endsWith("++TERMINAL: Com-Port nicht offen\r\n"));
    }

    // "REMOTE" in the terminal, everything real on 127.0.0.1: the record from a web server, a
    // service server in the test, the virtual controller's terminal on a pty, a mail server.
    // Connect, server to controller byte for byte and back, the server's two commands,
    // commands that are not commands, the terminal closed under a live session, the server closing, a refused
    // connect.
    void remoteRoad()
    {
        Mailbox mailbox;
        LocalSmtpServer& smtp = mailbox.smtp;
        QTcpServer service;
        QVERIFY(service.listen(QHostAddress::LocalHost, 0));
        Served web({{"/CAN/R_1A2B3C4D.dat", recordFor(service, "921600")}});
        OpenTerminal t;
        auto& c = t.c;
        MainWindow& w = t.w;
        QTRY_VERIFY(terminalBytes(w).contains("SERIALNUMBER"));

        // A second click while the record is fetched is ignored: one request, one connection.
        QSignalSpy handled(w.telnet, &TerminalPanel::remoteRecordHandled);
        QTest::mouseClick(w.telnet->Command9, Qt::LeftButton);
        w.telnet->Command9_Click();
        QVERIFY(!w.telnet->Command9->isEnabled());
        QVERIFY(handled.wait(20000));
        QCOMPARE(web.server.requestedPaths().filter("/CAN/"), QStringList{"/CAN/R_1A2B3C4D.dat"});
        QTRY_VERIFY(service.hasPendingConnections());
        std::unique_ptr<QTcpSocket> peer(service.nextPendingConnection());
        QTRY_COMPARE(w.state.laststatus, QString("7"));
        QCOMPARE(linesSince(w, 0), (QStringList{"++CONNECTIONDATA FOUND!", "++BAUDRATE: 921600",
                                                  "++TRY TO CONNECT TO SERVER...", "++CONNECTED TO SERVER!"}));
        QVERIFY(!w.telnet->Command9->isEnabled());
        QVERIFY(!service.hasPendingConnections());

        QByteArray atServer;
        const auto serverGot = [&] { return atServer += peer->readAll(); };

        // Server -> device: what is not a command reaches the controller unchanged (which chunks
        // are commands is the fuzz model's); the controller's answer goes back to the server.
        const auto deviceGot = [&, before = c.received().size()] {
            return QByteArray(qbytes(c.received()).mid(qsizetype(before)));
        };
        peer->write("sendeeprom\r");
        QTRY_COMPARE(deviceGot(), QByteArray("sendeeprom\r"));
        QTRY_VERIFY(serverGot().endsWith("OK sendeeprom\r\n> "));
        QVERIFY(smtp.messages().isEmpty());

        // The two commands are answered by the tool; the controller hears nothing of them.
        atServer.clear();
        QSignalSpy answered(w.telnet, &TerminalPanel::remoteCommandAnswered);
        peer->write("GETEEPROM\r");
        QVERIFY(answered.wait(20000));
        QTRY_COMPARE(serverGot(), QByteArray("++DOWNLOAD DEVICE EEPROM...\r"));
        atServer.clear();
        peer->write("SENDEEPROM please");
        QVERIFY(answered.wait(20000));
        QTRY_COMPARE(serverGot(), QByteArray("++SEND DEVICE EEPROM TO SERVER...\r"));
        QCOMPARE(smtp.messages().size(), 1);
        const QJsonObject mail = smtp.messages().first();
        QCOMPARE(mail["subject"].toString(), QString("EEPROM DOWNLOAD VELTRO S/N:1A2B3C4D"));
        QCOMPARE(QByteArray::fromBase64(mail["attachments"].toArray().at(0).toObject().value("data").toString().toLatin1()),
                 readFile(t.ports.homePath() + "/1A2B3C4D.eep"));
        QCOMPARE(deviceGot(), QByteArray("sendeeprom\r"));
        QCOMPARE(linesSince(w, 4), (QStringList{"++DOWNLOAD DEVICE EEPROM...", "++SEND DEVICE EEPROM TO SERVER..."}));

        // With the image gone no mail goes out: the server gets the same reply, the terminal
        // says why.
        const QString image = t.ports.homePath() + "/1A2B3C4D.eep";
        QVERIFY(QFile::remove(image));
        atServer.clear();
        peer->write("SENDEEPROM");
        QVERIFY(answered.wait(20000));
        QTRY_COMPARE(serverGot(), QByteArray("++SEND DEVICE EEPROM TO SERVER...\r"));
        QCOMPARE(smtp.messages().size(), 1);
        QCOMPARE(linesSince(w, 6), (QStringList{"++SEND DEVICE EEPROM TO SERVER...",
                                                  "++MAIL NICHT GESENDET: Anhang nicht gefunden (" + image + ")"}));

        // With the terminal closed the session goes on: what the server sends is dropped, said
        // once, and nothing reaches the controller. The terminal opens again on the session.
        QTest::mouseClick(w.telnet->Command2, Qt::LeftButton);
        const std::size_t heard = c.received().size();
        const auto dropLines = [&] { return terminalBytes(w).count("Daten vom Server verworfen"); };
        peer->write("VER\r");
        QTRY_COMPARE(dropLines(), 1);
        peer->write("SER\r");
        QTest::qWait(200);
        QCOMPARE(dropLines(), 1);
        QCOMPARE(c.received().size(), heard);
        QTest::mouseClick(w.Command1, Qt::LeftButton);

        // The server closes: the line, "REMOTE" usable again, the poll still running.
        const qsizetype shown = remoteLines(w).size();
        peer->close();
        QTRY_COMPARE(w.state.laststatus, QString("8"));
        QCOMPARE(linesSince(w, shown), QStringList{"++REMOTE HOST CLOSED CONNECTION!"});
        QVERIFY(w.telnet->Command9->isEnabled() && w.telnet->Timer4->isActive());

        // Again, with the service server gone: refused, "REMOTE" usable again.
        service.close();
        QVERIFY(t.remote());
        QTRY_COMPARE(w.state.laststatus, QString("9"));
        const QStringList refused{"++CONNECTIONDATA FOUND!", "++BAUDRATE: 921600", "++TRY TO CONNECT TO SERVER...",
                                  "++TCP/IP-CONNECTION ERROR!"};
        QCOMPARE(linesSince(w, shown + 1), refused);
        QVERIFY(w.telnet->Command9->isEnabled());
        // Refused once more, the same state as before: said again, and "REMOTE" comes back.
        QVERIFY(t.remote());
        QTRY_VERIFY(w.telnet->Command9->isEnabled());
        QCOMPARE(linesSince(w, shown + 5), refused);
    }

    // A record missing on the web server, and a web server that is down, end in the lines a
    // technician can read, and "REMOTE" stays usable.
    void badRecords()
    {
        for (const bool down : {false, true}) {
            Served web({});
            if (down)
                qputenv("VELTRO_WEB_HTTP", "http://127.0.0.1:9");
            OpenTerminal t;
            QVERIFY(t.remote());
            QStringList lines{"++NO CONNECTIONDATA FOUND!"};
            if (down)
                lines.prepend("++WEBSERVER NICHT ERREICHBAR: keine Verbindung zum Server");
            QTRY_COMPARE(linesSince(t.w, 0), lines);
            QTRY_VERIFY(t.w.telnet->Command9->isEnabled());
            qunsetenv("VELTRO_WEB_HTTP");
        }
    }

    // Closing the window while a transfer waits on a server that stays silent gives the
    // transfer up: the window does not wait out the transfer's own limit, here an hour.
    void closingGivesUp_data()
    {
        QTest::addColumn<bool>("mail");
        QTest::newRow("REMOTE record fetch") << false;
        QTest::newRow("report mail") << true;
    }
    void closingGivesUp()
    {
        QFETCH(bool, mail);
        QTcpServer silent; // its connections wait in the backlog, never answered
        QVERIFY(silent.listen(QHostAddress::LocalHost, 0));
        const QByteArray address = "127.0.0.1:" + QByteArray::number(silent.serverPort());
        qputenv(mail ? "VELTRO_SMTP" : "VELTRO_WEB_HTTP", mail ? address : "http://" + address);
        qputenv("VELTRO_SUPPORT_MAIL", "support@veltro.example");
        setTransferTimeouts(3600000, 3600000, 3600000);
        setMailTimeouts(3600000, 3600000);
        auto t = std::make_unique<OpenTerminal>();
        QTest::mouseClick(mail ? t->w.telnet->Command3 : t->w.telnet->Command9, Qt::LeftButton);
        QTRY_VERIFY(silent.hasPendingConnections());
        t->w.close();
        t.reset();
        setTransferTimeouts(10000, 20000, 120000);
        setMailTimeouts(30000, 300000);
        qunsetenv("VELTRO_SMTP");
        qunsetenv("VELTRO_WEB_HTTP");
        qunsetenv("VELTRO_SUPPORT_MAIL");
    }

    // The road of a configuration change and of going back. Each connect keeps the controller's
    // image in its history (a history that cannot be written is said once; the connect goes on).
    // "DISPLAY KONFIGURIEREN" opens the editor over the disabled main window; closed without
    // saving it writes nothing but the selection file. "Frühere Konfiguration…" lists the kept
    // images with what differs from the connect's image; the older one opens in the editor, two
    // display lines are changed, and "Speichern und auf VELTRO laden!" uploads what the editor
    // wrote, as the main window's job, and the history logs the upload.
    void configurationRoad()
    {
        SimPorts ports;
        auto& c = ports.add(4);
        c.setLayout(181);
        c.setControllerType(1);
        QVERIFY(installDemoCatalogue(demoCatalogueDir(), ports.home()) > 0);
        QVERIFY(writeFile(ports.homePath() + "/history", "x")); // no folder can be made there
        Window win;
        MainWindow& w = win.w;
        win.connectNow();
        QCOMPARE(w.List1->findItems("Servicehistorie nicht gespeichert: ", Qt::MatchStartsWith).size(), 1);
        QVERIFY(QFile::remove(ports.homePath() + "/history"));
        win.connectNow();
        const Bytes older = c.image(); // display line 3 now shows what line 4 showed
        for (std::size_t k = 0; k < 8; ++k)
            c.setImageByte(8 * std::size_t(displayLineSlot(2)) + k, older[8 * std::size_t(displayLineSlot(3)) + k]);
        win.connectNow();
        QCOMPARE(readHistory(ports.home(), "1A2B3C4D").size(), std::size_t(2));
        const QString eep = ports.homePath() + "/1A2B3C4D.eep", tmp = ports.homePath() + "/1A2B3C4D.tmp";
        const QByteArray image = readFile(eep);

        QTest::mouseClick(w.Command10, Qt::LeftButton);
        Form2* form = w.editor();
        QVERIFY(form && form->isVisible() && !w.isEnabled());
        QCOMPARE(form->windowTitle(), QString("VELTRO KONFIGURATION"));
        QVERIFY(!form->Combo1->isEnabled() && !form->Command1->isEnabled());
        QCOMPARE(form->Combo1->currentIndex(), 1);
        QCOMPARE(form->height(), tw(kEditorHeightFull));
        QTest::mouseClick(form->Command4, Qt::LeftButton);
        const std::size_t xLength = form->view.vehicleData.displayValues.at(0).valueX.size();
        QCOMPARE(win.dialogs->asked().last(), QString("VELTRO|%1").arg(xLength));
        const QString line3 = form->displayzeile[2]->currentText();
        form->close();
        QVERIFY(w.isEnabled());
        QCOMPARE(readFile(ports.homePath() + "/lastsel.inc"), QByteArray(" 1 \r\n"));
        QCOMPARE(readFile(eep), image);
        QVERIFY(!QFile::exists(tmp));
        QTRY_VERIFY(w.editor() == nullptr);

        const auto actions = w.frame_config->actions();
        QAction* back = *std::find_if(actions.begin(), actions.end(),
                                      [](QAction* a) { return a->text() == "Frühere Konfiguration…"; });
        QVERIFY(back->isEnabled() && back->isVisible());
        back->trigger();
        HistoryDialog* dialog = w.historyDialog();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(controlsWithoutCaption(dialog), QString());
        QCOMPARE(dialog->entries->count(), 2);
        QVERIFY(dialog->entries->item(0)->text().endsWith("Firmware 166  wie die jetzige Konfiguration"));
        QVERIFY2(dialog->entries->item(1)->text().contains("Firmware 166  Anzeigezeile 3: "),
                 qPrintable(dialog->entries->item(1)->text()));
        dialog->entries->setCurrentRow(1);
        QTest::mouseClick(dialog->buttons->button(QDialogButtonBox::Open), Qt::LeftButton);
        form = w.editor();
        QVERIFY(form && form->isVisible());
        QVERIFY(form->displayzeile[2]->currentText() != line3); // the older image's line 3
        for (int k : {1, 2}) {
            QComboBox* box = form->displayzeile[std::size_t(k)];
            box->setCurrentIndex((box->currentIndex() + 1) % box->count());
        }
        QSignalSpy uploaded(&w, &MainWindow::uploadFinished);
        QTest::mouseClick(form->Command3, Qt::LeftButton);
        QVERIFY(!form->isVisible());
        QVERIFY(uploaded.wait(30000));
        const QByteArray sent = readFile(tmp);
        QCOMPARE(sent.size(), 1023);
        QCOMPARE(readFile(eep).left(1023), sent);
        QCOMPARE(int(c.receivedMode()), 0x7C);
        QCOMPARE(c.receivedImage(), transferImageOf(Bytes(sent.begin(), sent.end())));
        QVERIFY(w.isEnabled());
        QTRY_VERIFY(w.editor() == nullptr);
        const HistoryEntry upload = readHistory(ports.home(), "1A2B3C4D").front();
        QCOMPARE(QString::fromStdString(upload.event + ": " + upload.outcome),
                 QString("Konfiguration übertragen: Erfolgreich übertragen!"));
    }

    // Qt's own dialogs speak German once the tool has installed Qt's German translation. Last:
    // the translation stays.
    void germanButtons()
    {
        QMessageBox box(QMessageBox::Question, "Firmware", "Firmware aktualisieren?", QMessageBox::Yes | QMessageBox::No);
        const auto yesNo = [&box] {
            return box.button(QMessageBox::Yes)->text().remove('&') + "/" + box.button(QMessageBox::No)->text().remove('&');
        };
        QVERIFY2(installQtGermanTranslation(), "qtbase_de.qm not found in Qt's translation folder (package qt6-translations-l10n)");
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No); // buttons made after the install
        QCOMPARE(yesNo(), QString("Ja/Nein"));
        QFileDialog files;
        files.setOption(QFileDialog::DontUseNativeDialog);
        files.show();
        QCOMPARE(files.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Cancel)->text().remove('&'),
                 QString("Abbrechen"));
    }
};

QTEST_MAIN(TestMainWindow)
#include "test_main_window.moc"
