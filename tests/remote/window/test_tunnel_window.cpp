// "CAN-BUS TUNNEL" over real links: the record from a web server on 127.0.0.1, a tunnel server
// in the test, the virtual controller on a pseudo-terminal.
#include "local_servers.h"
#include "platform/internet.h"
#include "remote/window/form3.h"
#include "remote/tunnel_link.h"
#include "sim/virtual_controller.h"
#include "test_files.h"
#include "accessible_tree.h"

#include <QAccessible>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>


#include <memory>
#include <vector>

using namespace veltro;
using namespace veltro::test;

namespace {
// The virtual controller as the CAN interface on serial port 7, taking bytes at its line's pace.
struct Controller : sim::VirtualController {
    Controller()
    {
        start();
        setTunnelMode(true);
        setPacedInput(true);
        qputenv("VELTRO_SYSTEM_PORTS", "0");
        qputenv("VELTRO_PORTS", QByteArray("7=") + path().c_str());
    }
};

QByteArray body(char first)
{
    QByteArray b(15, '\0');
    for (int i = 0; i < 15; ++i)
        b[i] = char(first + i);
    return b;
}

QStringList logLines(const Form3& f)
{
    return f.log->toPlainText().split('\n');
}

// A window with the web server serving `record` (none: a missing record) for connect-ID
// 1A2B3C4D, after its query.
struct Tunnel {
    QTemporaryDir folder, web;
    LocalHttpServer server;
    std::unique_ptr<Form3> form;
    explicit Tunnel(const QByteArray* record, const QString& id = "1A2B3C4D")
    {
        if (record)
            writeFile(web.path() + "/CAN/1A2B3C4D.dat", *record);
        QVERIFY(server.start(web.path()));
        server.exportEnvironment();
        form = std::make_unique<Form3>(folder.path().toStdString());
        form->show();
        // The state poll's first line comes before the query's, however slow the machine.
        QTRY_COMPARE(form->laststatus->text(), QString("0"));
        form->log->clear();
        QSignalSpy done(form.get(), &Form3::queryFinished);
        form->start(id, 7);
        if (done.isEmpty())
            QVERIFY(done.wait(20000));
    }
};
// A tunnel server in the test and a window connected to it through its record.
struct Session {
    QTcpServer server;
    std::unique_ptr<Tunnel> t;
    std::unique_ptr<QTcpSocket> peer;
    QByteArray atServer;
    Session()
    {
        QVERIFY(server.listen(QHostAddress::LocalHost, 0));
        const QByteArray record = "127,0,0,1," + QByteArray::number(server.serverPort()) + ",921600,0";
        t = std::make_unique<Tunnel>(&record);
        QTest::mouseClick(t->form->command1, Qt::LeftButton);
        QTRY_VERIFY(server.hasPendingConnections());
        peer.reset(server.nextPendingConnection());
        QTRY_COMPARE(t->form->laststatus->text(), QString("7"));
    }
    QByteArray& serverGot() { return atServer += peer->readAll(); }
};
} // namespace

class TestTunnelWindow : public QObject {
    Q_OBJECT
private slots:
    // The window as it opens: a window to a screen reader, every control found by its caption,
    // nothing to connect or disconnect yet.
    void opening()
    {
        QTemporaryDir folder;
        Form3 form(folder.path().toStdString());
        form.show();
        QVERIFY(accessibleControls(&form).contains({int(QAccessible::Window), "CAN-BUS TUNNEL"}));
        QCOMPARE(controlsWithoutCaption(&form), QString());
        QCOMPARE(accessibleCaption(form.connectid), QString("CONNECT-ID:"));
        QVERIFY(!form.command1->isEnabled() && !form.Command3->isEnabled());
    }

    void query_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<QByteArray>("record"); // "-": none on the server
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<int>("baud"); // 0: not connectable
        const QString closed = "++TCP/IP-CONNECTION CLOSED!", found = "++CONNECTIONDATA FOUND!";
        QTest::newRow("found") << "1A2B3C4D" << QByteArray("10,1,2,3,4711,115200,1\r\n")
                               << QStringList{closed, found, "++BAUDRATE: 115200"} << 115200;
        QTest::newRow("ID of 7 characters") << "1A2B3C4" << QByteArray("10,1,2,3,4711,115200,1")
                                            << QStringList{"++CONNECT-ID TO SHORT"} << 0;
        QTest::newRow("missing record") << "1A2B3C4D" << QByteArray("-")
                                        << QStringList{closed, "++NO CONNECTIONDATA FOUND!"} << 0;
        QTest::newRow("port not a number") << "1A2B3C4D" << QByteArray("10,1,2,3,port,115200,0")
                                           << QStringList{closed, "++CONNECTIONDATA FEHLERHAFT: Feld 5 ist keine Zahl: \"port\""}
                                           << 0;
        const QString unusable = "++CONNECTIONDATA FEHLERHAFT: Baudrate %1 ist nicht nutzbar (50 bis 4000000)";
        QTest::newRow("baud 1") << "1A2B3C4D" << QByteArray("10,1,2,3,4711,1,1") << QStringList{closed, unusable.arg(1)} << 0;
    }
    void query()
    {
        QFETCH(QString, id);
        QFETCH(QByteArray, record);
        QFETCH(QStringList, lines);
        QFETCH(int, baud);
        const bool connectable = baud > 0;
        Tunnel t(record == "-" ? nullptr : &record, id);
        QCOMPARE(logLines(*t.form), lines);
        QCOMPARE(t.form->command1->isEnabled(), connectable);
        QVERIFY(!QFile::exists(t.folder.path() + "/connectid.sys"));
        QCOMPARE(t.server.requestedPaths().size(), id.size() < 8 ? 0 : 1);
        if (connectable) {
            QCOMPARE(t.form->host->text(), QString("10.1.2.3"));
            QCOMPARE(t.form->tcpport->text(), QString("4711"));
            QCOMPARE(t.form->baud(), baud);
            QVERIFY(t.form->loopbacktest->isChecked());
        }
    }

    // The virtual controller at 921,600 baud: a burst of its frames (some holding "CAN") reaches
    // the server byte for byte; the server's messages reach it, one 0x7D a chunk, a body holding
    // "CAN" whole, and come back in loopback; its error records show in the log view; a server
    // that sends far more at once than the line carries gets every message to it, whole and in
    // order, counted and logged once. The server closing ends the tunnel and its log; on a new
    // connection, pulling the controller out ends the tunnel and the server's connection.
    void relay()
    {
        Controller c;
        Session session;
        Form3& f = *session.t->form;
        QVERIFY(!f.command1->isEnabled() && f.Command3->isEnabled());
        QCOMPARE(f.state->text(), QString("Status: ++CONNECTED TO SERVER!"));
        QTcpSocket* peer = session.peer.get();

        c.tunnelBurst(20);
        QTRY_VERIFY(f.tx1->isVisible());
        QTRY_COMPARE(c.tunnelSentBodies().size(), std::size_t(20));
        QByteArray expected;
        for (const sim::Bytes& b : c.tunnelSentBodies())
            expected += "CAN" + qbytes(b);
        QVERIFY(expected.count("CAN") > 20);
        QTRY_COMPARE(session.serverGot(), expected);

        const QByteArray withCan = "xxCANyyyyyyyyyy", a = body('a');
        peer->write("CAN" + withCan + "CAN" + a);
        QTRY_VERIFY(f.rx1->isVisible());
        QTRY_COMPARE(c.tunnelBodies().size(), std::size_t(2));
        QCOMPARE(qbytes(c.tunnelBodies()[0]) + qbytes(c.tunnelBodies()[1]), withCan + a);
        QCOMPARE(c.tunnelPackets(), 1);
        session.atServer.clear();
        f.loopbacktest->setChecked(true);
        peer->write("CAN" + a + "CAN" + withCan);
        QTRY_COMPARE(session.serverGot(), "CAN" + a + "CAN" + withCan);
        QTRY_COMPARE(c.tunnelBodies().size(), std::size_t(4)); // the controller gets them too
        f.loopbacktest->setChecked(false);

        c.tunnelChecksumError();
        c.tunnelSendError(42);
        QTRY_VERIFY(logLines(f).contains("CAN TX-ERROR CLIENT: 42"));
        QVERIFY(logLines(f).contains("CKS-ERROR"));

        const int flood = 20000; // 360 KB: four seconds of line time, far more than any buffer on the way
        QByteArray messages;
        std::vector<sim::Bytes> bodies = c.tunnelBodies();
        for (int k = 0; k < flood; ++k) {
            bodies.push_back(sim::VirtualController::tunnelFrameBody(std::uint32_t(1000 + k)));
            messages += "CAN" + qbytes(bodies.back());
        }
        peer->write(messages);
        QTRY_COMPARE_WITH_TIMEOUT(c.tunnelBodies().size(), bodies.size(), 60000);
        QVERIFY(c.tunnelBodies() == bodies);
        QTRY_COMPARE(f.counts->text(),
                     QString("Zum Server: 20   Nicht gesendet: 0   Zum Gerät: %1   Verloren: 0").arg(flood + 4));

        peer->close();
        QTRY_VERIFY(f.command1->isEnabled());
        QVERIFY(!f.Command3->isEnabled());
        const QString closed = "++REMOTE HOST CLOSED CONNECTION!";
        QTRY_COMPARE(logLines(f).mid(logLines(f).indexOf(closed), 2), (QStringList{closed, "++TCP/IP-CONNECTION CLOSED!"}));
        const QByteArray file = readFile(session.t->folder.path() + "/CAN_LOG.txt");
        QVERIFY(file.startsWith("++TRY TO CONNECT TO SERVER...\r\n++CONNECTED TO SERVER!\r\n"));
        for (const QByteArray& line : {"TX TO SERVER:}x" + expected.mid(3, 15), "RX FROM SERVER:" + withCan,
                                       QByteArray("CAN TX-ERROR42")})
            QVERIFY2(file.contains(line + "\r\n"), line.constData());
        QCOMPARE(file.count("\r\nRX FROM SERVER:"), flood + 4);
        QVERIFY(file.endsWith("++REMOTE HOST CLOSED CONNECTION!\r\n"));
        // Nothing more is written to the closed log, and the port is closed too.
        c.tunnelChecksumError();
        QTest::qWait(100);
        QCOMPARE(logLines(f).count("CKS-ERROR"), 1);
        QCOMPARE(readFile(session.t->folder.path() + "/CAN_LOG.txt"), file);

        QTest::mouseClick(f.command1, Qt::LeftButton);
        QTRY_VERIFY(session.server.hasPendingConnections());
        std::unique_ptr<QTcpSocket> again(session.server.nextPendingConnection());
        QTRY_COMPARE(f.laststatus->text(), QString("7"));
        c.unplug();
        QTRY_VERIFY(f.command1->isEnabled());
        QVERIFY(logLines(f).contains("++COMPORT: Verbindung zum Controller unterbrochen!"));
        QTRY_COMPARE(again->state(), QAbstractSocket::UnconnectedState);
    }

    // A tunnel server that refuses, a serial port that cannot be opened: the error lines, then
    // the tunnel disconnects itself and the window stays usable.
    void connectFails_data()
    {
        QTest::addColumn<bool>("serverUp");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("server refuses") << false << QStringList{"++TRY TO CONNECT TO SERVER...", "++TCP/IP-CONNECTION ERROR!",
                                                                "++TCP/IP-CONNECTION CLOSED!"};
        QTest::newRow("no serial port") << true << QStringList{"++COMPORT KANN NICHT GEÖFFNET WERDEN: Port nicht vorhanden"};
    }
    void connectFails()
    {
        QFETCH(bool, serverUp);
        QFETCH(QStringList, lines);
        Controller c;
        if (serverUp)
            qputenv("VELTRO_PORTS", "");
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost, 0));
        const QByteArray record = "127,0,0,1," + QByteArray::number(server.serverPort()) + ",9600,0";
        if (!serverUp)
            server.close();
        Tunnel t(&record);
        QTest::mouseClick(t.form->command1, Qt::LeftButton);
        // The poll shows the closed socket after the disconnect too, when it next looks.
        QTRY_COMPARE(logLines(*t.form).mid(logLines(*t.form).indexOf(lines.first()), lines.size()), lines);
        QTRY_VERIFY(t.form->command1->isEnabled());
        QVERIFY(!t.form->Command3->isEnabled());
    }

    // Closing the window while the web server holds the query gives the query up: the window
    // does not wait for the download, which would run for an hour.
    void closeDuringQuery()
    {
        QTemporaryDir folder;
        LocalHttpServer web;
        QVERIFY(web.start(folder.path()));
        qputenv("VELTRO_WEB_HTTP", (web.httpRoot() + "/stall").toUtf8());
        setTransferTimeouts(10000, 3600000, 3600000);
        auto form = std::make_unique<Form3>(folder.path().toStdString());
        form->start("1A2B3C4D", 7);
        QTRY_COMPARE(web.requestedPaths(), QStringList{"/stall/CAN/1A2B3C4D.dat"});
        form.reset();
        setTransferTimeouts(10000, 20000, 120000);
        qunsetenv("VELTRO_WEB_HTTP");
    }
};

QTEST_MAIN(TestTunnelWindow)
#include "test_tunnel_window.moc"
