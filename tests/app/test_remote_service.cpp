// "REMOTE" in the terminal, everything real on 127.0.0.1: the record from a web server, a
// service server in the test, the virtual controller's terminal on a pty, a mail server.
#include "platform/internet.h"
#include "platform/mail.h"
#include "sim_ports.h"
#include "window_fixture.h"

#include <QComboBox>
#include <QGroupBox>
#include <QJsonArray>
#include <QLineEdit>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QSerialPort>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

using namespace veltro;
using namespace veltro::test;

namespace {
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

class TestRemoteService : public QObject {
    Q_OBJECT
private slots:
    void init() { noUpdateServer(); }

    // Connect, relay both ways byte for byte, the server's two commands, commands that are
    // not commands, the terminal closed under a live session, the server closing, a refused
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

        // Device -> server: a long stream arrives unchanged.
        QByteArray atServer;
        const auto serverGot = [&] { return atServer += peer->readAll(); };
        const sim::Bytes pattern = sim::VirtualController::streamPattern(50000);
        c.streamText(pattern.size());
        QTRY_VERIFY_WITH_TIMEOUT(c.streamFinished(), 20000);
        QTRY_COMPARE(serverGot().size(), qsizetype(pattern.size()));
        QCOMPARE(atServer, qbytes(pattern));

        // Server -> device: what is not a command reaches the controller unchanged (which chunks
        // are commands is the fuzz model's); the controller's answer goes back to the server.
        atServer.clear();
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

    // A service server that sends far more at once than the controller's line carries: all
    // of it reaches the controller, in order, at the line's pace; a full port is waited out,
    // not taken for a lost controller, and the controller's answers still reach the server.
    void serverFlood()
    {
        QTcpServer service;
        QVERIFY(service.listen(QHostAddress::LocalHost, 0));
        Served web({{"/CAN/R_1A2B3C4D.dat", recordFor(service, "921600")}});
        OpenTerminal t;
        t.c.setPacedInput(true);
        QVERIFY(t.remote());
        QTRY_VERIFY(service.hasPendingConnections());
        std::unique_ptr<QTcpSocket> peer(service.nextPendingConnection());
        QTRY_COMPARE(t.w.state.laststatus, QString("7"));
        const std::size_t before = t.c.received().size();
        QByteArray text;
        for (int i = 0; text.size() < 300 * 1024; ++i)
            text += "LINE " + QByteArray::number(i).rightJustified(8, '0') + QByteArray(45, 'x') + "\r";
        peer->write(text);
        QTRY_COMPARE_WITH_TIMEOUT(t.c.received().size() - before, std::size_t(text.size()), 60000);
        QCOMPARE(qbytes(t.c.received()).mid(qsizetype(before)), text);
        QByteArray atServer;
        QTRY_VERIFY((atServer += peer->readAll()).contains("OK LINE " + QByteArray::number(text.count('\r') - 1).rightJustified(8, '0')));
        QVERIFY(t.w.telnet->MSComm3->isOpen());
        QVERIFY(!terminalBytes(t.w).contains("Verbindung zum Controller unterbrochen"));
    }

    // Records that lead nowhere, and a web server that is down, end in the lines a technician
    // can read, and "REMOTE" stays usable.
    void badRecords_data()
    {
        QTest::addColumn<QByteArray>("record"); // "missing": no file on the server; "down": no server
        QTest::addColumn<QStringList>("lines");
        const QString found = "++CONNECTIONDATA FOUND!", tryLine = "++TRY TO CONNECT TO SERVER...",
                      error = "++TCP/IP-CONNECTION ERROR!";
        QTest::newRow("missing record") << QByteArray("missing") << QStringList{"++NO CONNECTIONDATA FOUND!"};
        QTest::newRow("web server down") << QByteArray("down") << QStringList{
            "++WEBSERVER NICHT ERREICHBAR: keine Verbindung zum Server", "++NO CONNECTIONDATA FOUND!"};
        QTest::newRow("port not a number") << QByteArray("127,0,0,1,port,9600")
                                           << QStringList{found, "++BAUDRATE: 9600", tryLine, error};
    }
    void badRecords()
    {
        QFETCH(QByteArray, record);
        QFETCH(QStringList, lines);
        std::map<QString, QByteArray> files;
        if (record != "missing" && record != "down")
            files["/CAN/R_1A2B3C4D.dat"] = record;
        Served web(files);
        if (record == "down")
            qputenv("VELTRO_WEB_HTTP", "http://127.0.0.1:9");
        OpenTerminal t;
        QVERIFY(t.remote());
        QTRY_COMPARE(linesSince(t.w, 0), lines);
        QTRY_VERIFY(t.w.telnet->Command9->isEnabled());
        qunsetenv("VELTRO_WEB_HTTP");
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
};

QTEST_MAIN(TestRemoteService)
#include "test_remote_service.moc"
