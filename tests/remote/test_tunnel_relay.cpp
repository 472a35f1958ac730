// The tunnel relay without ports or sockets: device reads and server chunks in, device writes,
// server sends and log lines out.
#include "remote/tunnel_relay.h"

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
} // namespace

class TestTunnelRelay : public QObject {
    Q_OBJECT
private slots:
    // One device read, connected or not: what goes to the server, the view and the file.
    void deviceRecords()
    {
        const std::string a = body('a'), high = std::string(15, char(0xE4));
        struct Row {
            const char* name;
            std::string read;
            bool connected;
            Strings toServer, view, file;
        };
        const std::vector<Row> rows = {
            {"frame, connected", frame(a), true, {"CAN" + a}, {}, {"TX TO SERVER:" + frame(a)}},
            {"frame, not connected", frame(a), false, {}, {"61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F"}, {"NO TX:" + frame(a)}},
            {"bytes above 0x7F stay one byte", frame(high), true, {"CAN" + high}, {}, {"TX TO SERVER:" + frame(high)}},
            {"two frames in one read", frame(a) + frame(high), true, {"CAN" + a, "CAN" + high}, {},
             {"TX TO SERVER:" + frame(a), "TX TO SERVER:" + frame(high)}},
            {"checksum error", "}\xF0", true, {}, {"CKS-ERROR"}, {"CKS-ERROR"}},
            {"send error", sendError(42), true, {}, {"CAN TX-ERROR CLIENT: 42"}, {"CAN TX-ERROR42"}},
            {"send error code above 127", sendError(200), false, {}, {"CAN TX-ERROR CLIENT: 200"}, {"CAN TX-ERROR200"}},
            {"frame then send error", frame(a) + sendError(7), true, {"CAN" + a}, {"CAN TX-ERROR CLIENT: 7"},
             {"TX TO SERVER:" + frame(a), "CAN TX-ERROR7"}},
            {"frame then a checksum error", frame(a) + "}\xF0", true, {"CAN" + a}, {"CKS-ERROR"},
             {"TX TO SERVER:" + frame(a), "CKS-ERROR"}},
            // The command-error rule needs both first bytes to differ from "}" and "x".
            {"command error", "AT\r", true, {}, {"COMMAND-ERROR: AT\r"}, {"COMMAND-ERROR:AT\r"}},
            {"x second is no command error", "Ax12", true, {}, {}, {}},
            {"} first with anything is none", "}A12", true, {}, {}, {}},
            {"a lone byte is one", "A", true, {}, {"COMMAND-ERROR: A"}, {"COMMAND-ERROR:A"}},
            {"frame then garbage", frame(a) + "ZZ", true, {"CAN" + a}, {"COMMAND-ERROR: ZZ"},
             {"TX TO SERVER:" + frame(a), "COMMAND-ERROR:ZZ"}},
        };
        for (const Row& row : rows) {
            TunnelRelay relay;
            const RelayOutput out = relay.serialRead(row.read, row.connected);
            QVERIFY2(out.toServer == row.toServer, row.name);
            QVERIFY2(out.view == row.view, row.name);
            QVERIFY2(out.file == row.file, row.name);
            QVERIFY2(out.toDevice.empty() && out.txLamp && !out.waiting, row.name);
        }
    }

    // A record cut by the end of a read waits for its rest; when the wait ends first it is
    // relayed with the bytes it has.
    void cutRecords()
    {
        const std::string a = body('a');
        TunnelRelay relay;
        RelayOutput out = relay.serialRead(frame(a).substr(0, 9), true);
        QVERIFY(out.waiting && out.toServer.empty());
        out = relay.serialRead(frame(a).substr(9) + frame(a).substr(0, 1), true);
        QCOMPARE(out.toServer, Strings{"CAN" + a});
        QVERIFY(out.waiting); // the lone "}" may begin the next record
        out = relay.serialWaitOver(true);
        QVERIFY(out.toServer.empty() && out.view.empty());

        relay.serialRead("}x123", true);
        out = relay.serialWaitOver(true);
        QCOMPARE(out.toServer, Strings{"CAN123"});
        relay.serialRead(sendError(9).substr(0, 10), true);
        out = relay.serialWaitOver(false);
        QCOMPARE(out.view, Strings{"CAN TX-ERROR CLIENT: 0"});
        QVERIFY(relay.serialWaitOver(true).file.empty());
        QCOMPARE(relay.counts().relayed, 2L);

        QCOMPARE(TunnelRelay::recordWaitMs(921600), 3);
        QCOMPARE(TunnelRelay::recordWaitMs(115200), 4);
        QCOMPARE(TunnelRelay::recordWaitMs(9600), 20);
    }

    // Server chunks: one 0x7D before the bodies each chunk completes, bodies whole whatever
    // bytes they hold, messages joined across chunks, loopback in order.
    void serverChunks()
    {
        const std::string a = body('a'), b = body('0');
        const std::string withCan = "xxCANyyyyyyyyyy";
        struct Row {
            const char* name;
            Strings chunks;
            bool loopback;
            Strings toDevice, toServer;
        };
        const std::vector<Row> rows = {
            {"one message", {"CAN" + a}, false, {"}" + a}, {}},
            {"two in one chunk", {"CAN" + a + "CAN" + b}, false, {"}" + a + b}, {}},
            {"no CAN at all", {"hello"}, false, {"}"}, {}},
            {"bytes before the message skipped", {"junk" + std::string("CAN") + a}, false, {"}" + a}, {}},
            {"a body holding CAN stays whole", {"CAN" + withCan + "CAN" + a}, false, {"}" + withCan + a}, {}},
            {"split after the tag", {"CAN" + a.substr(0, 4), a.substr(4)}, false, {"", "}" + a}, {}},
            {"split inside the tag", {"junkCA", "N" + a}, false, {"", "}" + a}, {}},
            {"split message, then one whole", {"CAN" + a.substr(0, 14), a.substr(14) + "CAN" + b}, false, {"", "}" + a + b}, {}},
            {"loopback in order", {"CAN" + a + "CAN" + b}, true, {"}" + a + b}, {"CAN" + a, "CAN" + b}},
        };
        for (const Row& row : rows) {
            TunnelRelay relay;
            Strings toDevice, toServer, file;
            for (const std::string& chunk : row.chunks) {
                RelayOutput out = relay.serverChunk(chunk, row.loopback);
                QVERIFY2(out.rxLamp && out.view.empty(), row.name);
                toDevice.push_back(out.toDevice);
                toServer.insert(toServer.end(), out.toServer.begin(), out.toServer.end());
                file.insert(file.end(), out.file.begin(), out.file.end());
            }
            QVERIFY2(toDevice == row.toDevice, row.name);
            QVERIFY2(toServer == row.toServer, row.name);
            QCOMPARE(long(file.size()), relay.counts().toDevice);
        }
        TunnelRelay relay;
        QCOMPARE(relay.serverChunk("CAN" + a, false).file, Strings{"RX FROM SERVER:" + a});
    }

    void overruns()
    {
        TunnelRelay relay;
        QCOMPARE(relay.overrun(TunnelRelay::Overrun::Receive).file, Strings{"RECEIVE-BUFFER OVERUN"});
        QCOMPARE(relay.overrun(TunnelRelay::Overrun::Transmit).view, Strings{"TRANSMIT-BUFFER OVERUN"});
        relay.serialRead(frame(body('a')), false);
        QCOMPARE(relay.counts().lost, 2L);
        QCOMPARE(relay.counts().refused, 1L);
    }
};

QTEST_MAIN(TestTunnelRelay)
#include "test_tunnel_relay.moc"
