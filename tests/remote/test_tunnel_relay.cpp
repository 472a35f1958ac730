// The tunnel relay without ports or sockets: device reads and server chunks in, device writes,
// server sends and log lines out.
#include "remote/tunnel_relay.h"
#include "remote/tunnel_log.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <string>
#include <vector>

using namespace veltro;

namespace {
using Strings = std::vector<std::string>;

std::string body(char first)
{
    std::string b(TunnelRelay::kBodySize, '\0');
    for (std::size_t i = 0; i < b.size(); ++i)
        b[i] = char(first + i);
    return b;
}
std::string frame(const std::string& b) { return "}x" + b; }
std::string sendError(std::uint8_t code) { return "}\xC8" + std::string(14, '\0') + char(code); }
const std::string checksumError = "}\xF0" + std::string(15, '\0');

// What the device gets from one output: the 0x7D, then the bodies.
std::string deviceBytes(const RelayOutput& out)
{
    std::string bytes = out.deviceStart ? "}" : "";
    for (const std::string& b : out.toDevice)
        bytes += b;
    return bytes;
}
} // namespace

class TestTunnelRelay : public QObject {
    Q_OBJECT
private slots:
    // One device read: what goes to the server, the view and the file, with the server link
    // up, down, or full after `room` messages. (Frames relayed in order whatever the reads and
    // their lines in the file are the fuzz model's.)
    void deviceRecords()
    {
        const std::string a = body('a'), high = std::string(15, char(0xE4));
        struct Row {
            const char* name;
            std::string read;
            bool connected;
            long room;
            Strings toServer, view, file;
            long lost;
        };
        const long any = TunnelRelay::kNoLimit;
        const std::vector<Row> rows = {
            {"frame, not connected", frame(a), false, any, {}, {"61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F"}, {"NO TX:" + frame(a)}, 0},
            {"send error code above 127, then a frame", sendError(200) + frame(a), false, any, {},
             {"CAN TX-ERROR CLIENT: 200", "61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F"}, {"CAN TX-ERROR200", "NO TX:" + frame(a)}, 0},
            // The checksum-error record is 17 bytes like the others: the frame behind it is relayed.
            {"checksum error, then a frame", checksumError + frame(a), true, any, {"CAN" + a}, {"CKS-ERROR"},
             {"CKS-ERROR", "TX TO SERVER:" + frame(a)}, 0},
            // The command-error rule needs both first bytes to differ from "}" and "x"; bytes
            // that start no record end where the next record starts.
            {"command error", "AT\r", true, any, {}, {"COMMAND-ERROR: AT\r"}, {"COMMAND-ERROR:AT\r"}, 0},
            {"x second is no command error", "Ax12", true, any, {}, {}, {}, 0},
            {"noise, then a frame", "ZZ" + frame(a), true, any, {"CAN" + a}, {"COMMAND-ERROR: ZZ"},
             {"COMMAND-ERROR:ZZ", "TX TO SERVER:" + frame(a)}, 0},
            // A server link that takes nothing more: the frames are lost, said once, and
            // neither logged nor counted as relayed.
            {"server full after one", frame(a) + frame(high) + frame(a), true, 1, {"CAN" + a}, {"RECEIVE-BUFFER OVERUN"},
             {"TX TO SERVER:" + frame(a), "RECEIVE-BUFFER OVERUN"}, 2},
        };
        for (const Row& row : rows) {
            TunnelRelay relay;
            const RelayOutput out = relay.serialRead(row.read, row.connected, row.room);
            QVERIFY2(out.toServer == row.toServer, row.name);
            QVERIFY2(out.view == row.view, row.name);
            QVERIFY2(out.file == row.file, row.name);
            QVERIFY2(out.toDevice.empty() && out.txLamp && !out.waiting, row.name);
            QVERIFY2(relay.counts().lost == row.lost, row.name);
            QVERIFY2(relay.counts().relayed == long(row.toServer.size()), row.name);
        }
        // Said once a stretch: a frame that gets through ends one.
        TunnelRelay relay;
        QCOMPARE(relay.serialRead(frame(a) + frame(a), true, 1).view, Strings{"RECEIVE-BUFFER OVERUN"});
        QVERIFY(relay.serialRead(frame(a), true, 0).view.empty());
        QVERIFY(relay.serialRead(frame(a), true, 1).view.empty());
        QCOMPARE(relay.serialRead(frame(a), true, 0).view, Strings{"RECEIVE-BUFFER OVERUN"});
    }

    // A record cut by the end of a read waits for its rest; when the wait ends first it is
    // handled with the bytes it has.
    void cutRecords()
    {
        const std::string a = body('a');
        TunnelRelay relay;
        RelayOutput out = relay.serialRead(frame(a).substr(0, 9), true);
        QVERIFY(out.waiting && out.toServer.empty());
        out = relay.serialRead(frame(a).substr(9) + checksumError.substr(0, 1), true);
        QCOMPARE(out.toServer, Strings{"CAN" + a});
        QVERIFY(out.waiting); // the lone "}" may begin the next record
        out = relay.serialRead(checksumError.substr(1), true);
        QCOMPARE(out.view, Strings{"CKS-ERROR"});

        relay.serialRead("}x123", true);
        QCOMPARE(relay.serialWaitOver(true).toServer, Strings{"CAN123"});
        relay.serialRead(sendError(9).substr(0, 10), true);
        QCOMPARE(relay.serialWaitOver(false).view, Strings{"CAN TX-ERROR CLIENT: 0"});
        QVERIFY(relay.serialWaitOver(true).file.empty());
        QCOMPARE(relay.counts().relayed, 2L);

    }

    // Server chunks where the fuzz model (every message once, whole, in order, after a 0x7D)
    // leaves off: a chunk without a message, a message whose rest stays away handled as it
    // stands ("wait" between chunks), loopback.
    void serverChunks()
    {
        const std::string a = body('a'), b = body('0');
        struct Row {
            const char* name;
            Strings chunks;
            bool loopback;
            Strings toDevice, toServer;
        };
        const std::vector<Row> rows = {
            {"no CAN at all", {"hello"}, false, {"}"}, {}},
            {"short message, its rest never comes", {"CAN12345", "wait", "CAN" + a}, false, {"", "}12345", "}" + a}, {}},
            {"first letters of a tag, then silence", {"xxCA", "wait", "CAN" + a}, false, {"", "", "}" + a}, {}},
            {"loopback in order", {"CAN" + a + "CAN" + b}, true, {"}" + a + b}, {"CAN" + a, "CAN" + b}},
        };
        for (const Row& row : rows) {
            TunnelRelay relay;
            Strings toDevice, toServer;
            for (const std::string& chunk : row.chunks) {
                RelayOutput out = chunk == "wait" ? relay.serverWaitOver(row.loopback) : relay.serverChunk(chunk, row.loopback);
                QVERIFY2(out.view.empty() && out.file.empty(), row.name);
                toDevice.push_back(deviceBytes(out));
                toServer.insert(toServer.end(), out.toServer.begin(), out.toServer.end());
            }
            QVERIFY2(toDevice == row.toDevice, row.name);
            QVERIFY2(toServer == row.toServer, row.name);
        }
        // Bodies count once the port took them; those it never took are lost and said.
        TunnelRelay relay;
        relay.delivered(3);
        QCOMPARE(relay.discarded(2).file, Strings{"NICHT ZUM GER\xC4T: 2 Frames verworfen"});
        QVERIFY(relay.discarded(0).file.empty());
        QCOMPARE(relay.counts().toDevice, 3L);
        QCOMPARE(relay.counts().lost, 2L);
    }

    // CAN_LOG.txt past its limit becomes CAN_LOG.1.txt (one older file kept), and the new file
    // starts with a line that says so; nothing is written before a flush or close.
    void logRotation()
    {
        QTemporaryDir dir;
        const QString path = dir.path() + "/CAN_LOG.txt";
        TunnelLog log(200);
        QVERIFY(log.open(path));
        const QByteArray line(38, 'a'); // 40 bytes with CR LF
        for (int i = 0; i < 4; ++i)
            log.write(line);
        QCOMPARE(QFile(path).size(), 0);
        log.flush();
        QCOMPARE(QFile(path).size(), 160);
        log.write(line + "!");
        log.close();
        QFile older(TunnelLog::olderPath(path)), newer(path);
        QVERIFY(older.open(QIODevice::ReadOnly) && newer.open(QIODevice::ReadOnly));
        QCOMPARE(older.size(), 160);
        const QList<QByteArray> lines = newer.readAll().split('\n');
        QVERIFY(lines.first().startsWith("++CAN_LOG.txt voll"));
        QVERIFY(lines.first().endsWith("CAN_LOG.1.txt\r"));
        QCOMPARE(lines.at(1), line + "!\r");
        QCOMPARE(TunnelLog::olderPath("/x/CAN_LOG.txt"), QString("/x/CAN_LOG.1.txt"));
    }
};

QTEST_MAIN(TestTunnelRelay)
#include "test_tunnel_relay.moc"
