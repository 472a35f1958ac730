// The controller model without a pty: bootloader frame rules, fault knobs, the text terminal.
// Line pacing and stream text are exercised over the pty by the window's terminal road.
#include "sim/device_model.h"
#include "sim_bytes.h"

#include <QtTest>

#include <numeric>
#include <string_view>

using namespace veltro::sim;

namespace {

// Block n as the tool sends it: block byte n mod 256; (SOH + n + complement) mod 256 is 0 for
// blocks 1-255, 255 for 256-510 and 254 for 511-765; the checksum adds the data to that.
Bytes frame(int n, std::uint8_t fill)
{
    const unsigned headerSum = n <= 255 ? 0 : n <= 510 ? 255 : 254;
    Bytes f{0x01, std::uint8_t(n % 256), std::uint8_t((headerSum + 1023 - n) % 256)};
    for (int i = 0; i < 128; ++i)
        f.push_back(std::uint8_t(fill + i * 3));
    f.push_back(std::uint8_t(std::accumulate(f.begin() + 3, f.end(), headerSum) % 256));
    return f;
}

// Row set-ups: faults for one kind of request, or for the bootloader.
Setup faulty(Request request, const AnswerFaults& faults)
{
    return [=](DeviceModel& m) { m.setFaults(request, faults); };
}

Setup faultyBoot(const BootFaults& faults)
{
    return [=](DeviceModel& m) { m.setBootFaults(faults); };
}

Bytes text(std::string_view s)
{
    return Bytes(s.begin(), s.end());
}

// The controller's answer to a terminal line: CR LF, the answer's lines, the prompt.
Bytes reply(std::string_view answer)
{
    return join({text("\r\n"), text(answer), text("> ")});
}

// Collects everything the model sends from `t` on, letting its clock run on to each wake-up
// it asks for.
void runOn(DeviceModel& m, Clock::time_point& t, Bytes& out)
{
    for (auto o = m.take(t);; o = m.take(t)) {
        out.insert(out.end(), o.bytes.begin(), o.bytes.end());
        if (!o.wake) break;
        t = *o.wake;
    }
}

// Feeds the script one byte at a time and collects what the model sends.
Bytes drive(DeviceModel& m, const Bytes& script)
{
    Bytes out;
    Clock::time_point t = T0;
    for (std::uint8_t b : script) {
        m.receive(b, t);
        runOn(m, t, out);
    }
    return out;
}

// Terminal bytes in, bytes sent back, then the complete lines, the half line and the boot mode.
struct TerminalRow {
    Bytes script, expected;
    QStringList lines;
    QString partial;
    int bootMode = 0;
};

} // namespace

Q_DECLARE_METATYPE(TerminalRow)

class TestDeviceModel : public QObject {
    Q_OBJECT
private slots:
    // The bootloader's frame rules by block range, then each fault knob, against the bytes the
    // model sends back.
    void bytesSentBack_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<Bytes>("script");
        QTest::addColumn<Bytes>("expected");
        QTest::addColumn<bool>("unplugged");
        const Setup none = [](DeviceModel&) {};
        // The frame byte to spoil (-1: none, -2: put in the XMODEM complement 255 - block byte).
        const std::pair<int, const char*> spoilt[] = {{-1, "correct"},      {1, "bad block byte"},
                                                      {2, "bad complement"}, {70, "bad data"},
                                                      {131, "bad checksum"}, {-2, "XMODEM complement"}};
        for (int n : {1, 255, 256, 511}) {
            Bytes before{0x7B}; // the mode byte, then every block before n
            for (int k = 1; k < n; ++k)
                before = join({before, frame(k, std::uint8_t(k))});
            Bytes answered{0x7B, 0x15}; // echo and ready, then an ACK for every block before n
            answered.resize(std::size_t(n) + 1, 0x06);
            for (const auto& [index, name] : spoilt) {
                Bytes f = frame(n, 0x55);
                if (index >= 0) f[std::size_t(index)] ^= 0x01;
                if (index == -2) f[2] = std::uint8_t(255 - f[1]); // the device's own only up to block 255
                const bool ok = index == -1 || (index == -2 && n < 256);
                const Bytes answer{std::uint8_t(ok ? 0x06 : 0x15)};
                QTest::addRow("block %d %s", n, name) << none << join({before, f}) << join({answered, answer}) << false;
            }
        }

        const Bytes image = DeviceModel().image();
        Bytes wrongSum = join({{200}, image});
        ++wrongSum.back();
        const Bytes boot = join({{0x7B}, frame(1, 1)});
        QTest::newRow("silent line") << Setup([](DeviceModel& m) { m.setSilent(true); }) << Bytes{200, 128}
                                     << Bytes{} << false;
        QTest::newRow("silent to identification") << faulty(Request::Identify, {.silent = true}) << Bytes{200}
                                                  << Bytes{} << false;
        QTest::newRow("echo on the third request") << faulty(Request::Word, {.echoFromRequest = 3})
                                                   << Bytes{128, 128, 128, 128} << Bytes{128, 0x34, 0x12} << false;
        QTest::newRow("wrong checksum") << faulty(Request::Identify, {.wrongChecksum = true}) << Bytes{200}
                                        << wrongSum << false;
        QTest::newRow("short image") << faulty(Request::Identify, {.shortAnswer = 10}) << Bytes{200}
                                     << join({{200}, Bytes(image.begin(), image.begin() + 10)}) << false;
        QTest::newRow("garbage before the first echo")
            << faulty(Request::Word, {.garbageBeforeEcho = {0x41, 0x42}, .garbageRequests = 1}) << Bytes{128, 128}
            << Bytes{0x41, 0x42, 128, 0x34, 0x12, 128, 0x34, 0x12} << false;
        QTest::newRow("no handshake") << faultyBoot({.noHandshake = true}) << Bytes{0x7C} << Bytes{0x7C} << false;
        QTest::newRow("block 2 refused twice") << faultyBoot({.nakBlock = {{2, 2}}})
                                               << join({boot, frame(2, 2), frame(2, 2), frame(2, 2)})
                                               << Bytes{0x7B, 0x15, 0x06, 0x15, 0x15, 0x06} << false;
        QTest::newRow("no answer from block 2") << faultyBoot({.silentFromBlock = 2}) << join({boot, frame(2, 2)})
                                                << Bytes{0x7B, 0x15, 0x06} << false;
        QTest::newRow("garbled answer to block 1, once") << faultyBoot({.garbledBlock = 1}) << join({boot, frame(1, 1)})
                                                         << Bytes{0x7B, 0x15, 0x41, 0x06} << false;
        QTest::newRow("unplugged after block 1") << faultyBoot({.unplugAfterBlock = 1}) << join({boot, frame(2, 2)})
                                                 << Bytes{0x7B, 0x15, 0x06} << true;
    }
    void bytesSentBack()
    {
        QFETCH(Setup, setup);
        QFETCH(Bytes, script);
        QFETCH(Bytes, expected);
        QFETCH(bool, unplugged);
        DeviceModel m;
        setup(m);
        QCOMPARE(drive(m, script), expected);
        QCOMPARE(m.unplugged(), unplugged);
    }

    // Terminal text between the single-byte requests: printable ASCII up to CR is a line, the
    // mode bytes count only at the start of one, a request byte drops a half line.
    void terminal_data()
    {
        QTest::addColumn<TerminalRow>("row");
        const Bytes ser = reply("SERIAL 1A2B3C4D\r\n");
        QTest::newRow("unknown line") << TerminalRow{text("hello world\r"), reply("OK hello world\r\n"), {"hello world"}};
        QTest::newRow("no CR: no answer") << TerminalRow{text("abc"), {}, {}, "abc"};
        QTest::newRow("'{' and '|' inside a line") << TerminalRow{text("a{|\r"), reply("OK a{|\r\n"), {"a{|"}};
        QTest::newRow("'{' on an empty line") << TerminalRow{text("{"), {0x7B, 0x15}, {}, "", 0x7B};
        QTest::newRow("'|' after a line") << TerminalRow{text("ser\r|"), join({ser, {0x7C, 0x15}}), {"ser"}, "", 0x7C};
        QTest::newRow("word drops the half line, then '{'")
            << TerminalRow{join({text("x"), {128}, text("{")}), {128, 0x34, 0x12, 0x7B, 0x15}, {}, "", 0x7B};
    }
    void terminal()
    {
        QFETCH(TerminalRow, row);
        DeviceModel m;
        m.setHandshakeDelay(0ms);
        QCOMPARE(drive(m, row.script), row.expected);
        QStringList got;
        for (const std::string& l : m.terminalLines())
            got << QString::fromStdString(l);
        QCOMPARE(got, row.lines);
        QCOMPARE(QString::fromStdString(m.partialLine()), row.partial);
        QCOMPARE(int(m.boot().mode), row.bootMode);
        QCOMPARE(m.received(), row.script);
    }
};

QTEST_GUILESS_MAIN(TestDeviceModel)
#include "test_device_model.moc"
