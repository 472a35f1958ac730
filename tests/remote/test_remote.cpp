// The remote service's rules without sockets: reading the record, the state poll, the
// server's commands.
#include "remote/remote_service.h"

#include <QTest>

#include <vector>

using namespace veltro;

class TestRemote : public QObject {
    Q_OBJECT
private slots:
    void record_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("found");
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("port"); // -1: not a number
        QTest::addColumn<QString>("baud");
        QTest::newRow("record") << QByteArray("192,168,10,7,4000,921600,0\r\n") << true << "192.168.10.7" << 4000 << "921600";
        QTest::newRow("blanks around the port") << QByteArray("10,0,0,1, 4000 ,9600") << true << "10.0.0.1" << 4000 << "9600";
        QTest::newRow("error page") << QByteArray("<!DOCTYPE HTML>\n<html>404</html>") << false << "" << -1 << "";
        QTest::newRow("empty reply connects to ...") << QByteArray() << true << "..." << -1 << "";
        QTest::newRow("fewer than six fields") << QByteArray("10,0,0,1") << true << "10.0.0.1" << -1 << "";
        QTest::newRow("port not a number") << QByteArray("10,0,0,1,http,9600") << true << "10.0.0.1" << -1 << "9600";
        QTest::newRow("port with a unit") << QByteArray("10,0,0,1,4000a,9600") << true << "10.0.0.1" << -1 << "9600";
        QTest::newRow("host taken as text") << QByteArray("a,b,,d,1,2") << true << "a.b..d" << 1 << "2";
        QTest::newRow("blank before <") << QByteArray(" <html>") << true << " <html>..." << -1 << "";
    }
    void record()
    {
        QFETCH(QByteArray, reply);
        const RemoteRecord r = parseRemoteRecord(reply.toStdString());
        QFETCH(bool, found);
        QCOMPARE(r.found, found);
        QFETCH(QString, host);
        QCOMPARE(QString::fromStdString(r.host), host);
        QFETCH(int, port);
        QCOMPARE(r.port.value_or(-1), port);
        QFETCH(QString, baud);
        QCOMPARE(QString::fromStdString(r.baud), baud);
    }

    // What the 50 ms poll shows for the states it happens to see: one line per change, the
    // first poll always, states between two polls never.
    void poll()
    {
        struct Row { const char* name; std::vector<int> seen; std::vector<int> shown; };
        const Row rows[] = {
            {"local connect, then the server closes", {7, 7, 7, 8, 8}, {7, 8}},
            {"slow link", {4, 4, 6, 7}, {4, 6, 7}},
            {"refused before the first poll", {9, 9}, {9}},
            {"closed at start is shown too", {0, 0}, {0}},
            {"back to connected after an error", {9, 7, 9}, {9, 7, 9}},
        };
        for (const Row& row : rows) {
            std::string laststatus = "500";
            std::vector<int> shown;
            for (int state : row.seen) {
                if (const auto changed = stateChange(state, laststatus)) {
                    shown.push_back(*changed);
                    laststatus = std::to_string(*changed);
                }
            }
            QVERIFY2(shown == row.shown, row.name);
        }
    }

    void commands_data()
    {
        QTest::addColumn<QByteArray>("chunk");
        QTest::addColumn<int>("command");
        QTest::newRow("send") << QByteArray("SENDEEPROM") << int(ServerCommand::SendEeprom);
        QTest::newRow("send with more text") << QByteArray("SENDEEPROM\r\nVER\r") << int(ServerCommand::SendEeprom);
        QTest::newRow("get") << QByteArray("GETEEPROM\r") << int(ServerCommand::GetEeprom);
        QTest::newRow("lower case") << QByteArray("sendeeprom") << int(ServerCommand::None);
        QTest::newRow("first part only") << QByteArray("SENDEE") << int(ServerCommand::None);
        QTest::newRow("second part") << QByteArray("PROM") << int(ServerCommand::None);
        QTest::newRow("not at the start") << QByteArray("\rGETEEPROM") << int(ServerCommand::None);
        QTest::newRow("send, not at the start") << QByteArray("VER\rSENDEEPROM") << int(ServerCommand::None);
        QTest::newRow("get is not send") << QByteArray("GETEEPRO") << int(ServerCommand::None);
    }
    void commands()
    {
        QFETCH(QByteArray, chunk);
        QFETCH(int, command);
        QCOMPARE(int(serverCommand(chunk.toStdString())), command);
    }
};

QTEST_MAIN(TestRemote)
#include "test_remote.moc"
