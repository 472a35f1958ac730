// The links to devices and servers: why a serial port could not be opened, in the words the
// windows show; the socket's state numbers, as a table of what Qt reports and with a real
// client against real servers on 127.0.0.1. And where the program folder is.
#include "platform/program_folder.h"
#include "platform/qt_serial_link.h"
#include "platform/serial_rights.h"
#include "platform/tcp_client.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>


#include <cerrno>

#include <memory>

using namespace veltro;
using S = QAbstractSocket;
using E = QSerialPort;

class TestLinks : public QObject {
    Q_OBJECT
private slots:
    // A build tree's executable keeps its files beside it; an installed one (bin/ beside
    // share/veltro/) in the user's data folder; VELTRO_HOME wins over both. Only a user outside
    // an existing dialout group is told how to get the serial ports.
    void installedTool()
    {
        QTemporaryDir root;
        QVERIFY(QDir(root.path()).mkpath("usr/bin") && QDir(root.path()).mkpath("build/src/app"));
        const std::string bin = root.path().toStdString() + "/usr/bin";
        const std::string build = root.path().toStdString() + "/build/src/app";
        QCOMPARE(programFolderFor(bin, nullptr, "/home/u/.local/share"), bin);
        QVERIFY(QDir(root.path()).mkpath("usr/share/veltro"));
        QCOMPARE(programFolderFor(bin, nullptr, "/home/u/.local/share"), "/home/u/.local/share/veltro");
        QCOMPARE(installedDataFolder(bin), root.path().toStdString() + "/usr/share/veltro");
        QCOMPARE(programFolderFor(bin, "", "/home/u/.local/share"), "/home/u/.local/share/veltro");
        QCOMPARE(programFolderFor(bin, "/tmp/bench//", "/home/u/.local/share"), "/tmp/bench");
        QCOMPARE(programFolderFor(build, nullptr, "/home/u/.local/share"), build);
        QCOMPARE(installedDataFolder(build), std::string());

        QVERIFY(serialRightsNote(1000, {100}, 20, "anna").find("\nsudo usermod -aG dialout anna\n") != std::string::npos);
        QCOMPARE(serialRightsNote(0, {0}, 20, "root") + serialRightsNote(1000, {100, 20}, 20, "anna")
                     + serialRightsNote(1000, {100}, -1, "anna"),
                 std::string());
    }

    // The reason comes from the error the open itself met. The device is not opened a second
    // time to find out: some controllers reset when their line is opened.
    void openFailure_data()
    {
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("qtText");
        QTest::addColumn<QString>("text");
        QTest::newRow("no rights") << int(E::PermissionError) << qt_error_string(EACCES)
                                   << "Keine Berechtigung für den Port (Benutzer in die Gruppe dialout aufnehmen)";
        QTest::newRow("held by another program") << int(E::PermissionError) << qt_error_string(EBUSY)
                                                 << "Port wird von einem anderen Programm benutzt";
        QTest::newRow("locked") << int(E::PermissionError) << "Permission error while locking the device"
                                << "Port wird von einem anderen Programm benutzt";
        QTest::newRow("gone") << int(E::DeviceNotFoundError) << qt_error_string(ENOENT) << "Port nicht vorhanden";
    }
    void openFailure()
    {
        QFETCH(int, error);
        QFETCH(QString, qtText);
        QFETCH(QString, text);
        QCOMPARE(QString::fromStdString(portOpenFailureText(E::SerialPortError(error), qtText)), text);
    }

    void mapping_data()
    {
        QTest::addColumn<int>("state");
        QTest::addColumn<int>("error");
        QTest::addColumn<bool>("closedByUs");
        QTest::addColumn<int>("number");
        // The server's close is reported while the socket is still connected.
        QTest::newRow("server closing, not yet gone") << int(S::ConnectedState) << int(S::RemoteHostClosedError) << false << 7;
        QTest::newRow("timed out") << int(S::UnconnectedState) << int(S::SocketTimeoutError) << false << 9;
        // Qt keeps the error after close(): the tool's own close still reads closed. (The states
        // a real socket passes through are in the tests below.)
        QTest::newRow("closed by us after an error") << int(S::UnconnectedState) << int(S::ConnectionRefusedError) << true << 0;
    }
    void mapping()
    {
        QFETCH(int, state);
        QFETCH(int, error);
        QFETCH(bool, closedByUs);
        QFETCH(int, number);
        QCOMPARE(tcpStateNumber(S::SocketState(state), S::SocketError(error), closedByUs), number);
    }

    // Accepted -> 7 with no Nagle delay, data out at once (the way in is the REMOTE and tunnel
    // roads'), the server closes -> 8, the tool closes -> 0.
    void realServer()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost, 0));
        TcpClient client;
        QCOMPARE(client.state(), 0);
        client.connectTo("127.0.0.1", server.serverPort());
        QTRY_COMPARE(client.state(), 7);
        QTRY_VERIFY(server.hasPendingConnections());
        std::unique_ptr<QTcpSocket> peer(server.nextPendingConnection());
        QCOMPARE(client.socket()->socketOption(S::LowDelayOption).toInt(), 1);

        // Out at once, not on the next turn of the event loop: the peer's blocking wait sees it.
        QVERIFY(client.send("to the server"));
        QVERIFY(peer->waitForReadyRead(5000));
        QCOMPARE(peer->readAll(), QByteArray("to the server"));

        peer->close();
        QTRY_COMPARE(client.state(), 8);
        QVERIFY(!client.send("gone"));
        client.close();
        QCOMPARE(client.state(), 0);
    }

    // Connects that cannot succeed all end in 9: a refused port, the host of an empty record,
    // a port that is not a number or beyond 65535.
    void failedConnects()
    {
        quint16 closedPort = 0;
        {
            QTcpServer gone;
            QVERIFY(gone.listen(QHostAddress::LocalHost, 0));
            closedPort = gone.serverPort();
        }
        TcpClient client;
        client.connectTo("127.0.0.1", closedPort);
        QTRY_COMPARE(client.state(), 9);
        client.connectTo("...", 4000);
        QTRY_COMPARE(client.state(), 9);
        client.connectTo("127.0.0.1", -1);
        QCOMPARE(client.state(), 9);
        // A record's port beyond 16 bits would wrap to another port, here one that listens.
        QTcpServer listening;
        QVERIFY(listening.listen(QHostAddress::LocalHost, 0));
        client.connectTo("127.0.0.1", 65536 + listening.serverPort());
        QCOMPARE(client.state(), 9);
        client.close();
        QCOMPARE(client.state(), 0);
    }
};

QTEST_MAIN(TestLinks)
#include "test_links.moc"
