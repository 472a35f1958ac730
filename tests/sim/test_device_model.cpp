// The controller model without a pty: bootloader frame rules, fault knobs, the text terminal.
#include "sim/device_model.h"

#include <QtTest>

#include <functional>
#include <numeric>
#include <string_view>

using namespace veltro::sim;
using namespace std::chrono_literals;

using Setup = std::function<void(DeviceModel&)>;
Q_DECLARE_METATYPE(veltro::sim::Bytes)
Q_DECLARE_METATYPE(Setup)

namespace {

const Clock::time_point T0 = Clock::time_point{} + 1h;

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

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
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

Bytes slice(const Bytes& b, std::size_t from, std::size_t to)
{
    return Bytes(b.begin() + std::ptrdiff_t(from), b.begin() + std::ptrdiff_t(to));
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

} // namespace

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

    // On a paced line a frame written at once is still 132 bytes long and the ACK follows it;
    // the image follows the echo and the 20 ms restart at one byte per 10.85 us.
    void lineRatePacing_data()
    {
        QTest::addColumn<Bytes>("script");
        QTest::addColumn<QList<qint64>>("lookAt"); // nanoseconds after T0
        QTest::addColumn<QList<int>>("sentSoFar");
        constexpr qint64 bt = 10'851; // one byte time in ns
        constexpr qint64 image = 2 * bt + 20'000'000;
        QTest::newRow("frame then ACK") << join({Bytes{0x7B}, frame(1, 0)})
                                        << QList<qint64>{0, 132 * bt, 134 * bt} << QList<int>{0, 0, 1};
        QTest::newRow("echo, restart, image")
            << Bytes{200} << QList<qint64>{0, 2 * bt, image, image + 514 * bt, image + 1027 * bt, image + 1029 * bt}
            << QList<int>{0, 1, 1, 515, 1028, 1029};
    }
    void lineRatePacing()
    {
        QFETCH(Bytes, script);
        QFETCH(QList<qint64>, lookAt);
        QFETCH(QList<int>, sentSoFar);
        DeviceModel m;
        m.setHandshakeDelay(0ms);
        if (script.size() > 1) { // into the bootloader first, unpaced
            m.receive(script.front(), T0);
            m.take(T0);
            script.erase(script.begin());
        }
        m.setLineRate(true);
        m.receive(script, T0);
        QList<int> sent;
        int total = 0;
        for (qint64 ns : lookAt) {
            total += int(m.take(T0 + std::chrono::nanoseconds(ns)).bytes.size());
            sent << total;
        }
        QCOMPARE(sent, sentSoFar);
    }

    // Terminal text between the single-byte requests: printable ASCII up to CR is a line, the
    // mode bytes count only at the start of one, a request byte drops a half line.
    void terminal_data()
    {
        QTest::addColumn<Bytes>("script");
        QTest::addColumn<Bytes>("expected");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("partial");
        QTest::addColumn<int>("bootMode");
        const Bytes image = DeviceModel().image();
        const Bytes ser = reply("SERIAL 1A2B3C4D\r\n");
        QTest::newRow("unknown line") << text("hello world\r") << reply("OK hello world\r\n")
                                      << QStringList{"hello world"} << "" << 0;
        QTest::newRow("VER, any case and blanks") << text(" Ver \r") << reply("FIRMWARE 166 HW 3 LAYOUT 180 TYPE 1\r\n")
                                                  << QStringList{" Ver "} << "" << 0;
        QTest::newRow("empty line: banner")
            << text("\r")
            << reply("VELTRO CONTROLLER\r\nSERIAL 1A2B3C4D\r\nFIRMWARE 166 HW 3 LAYOUT 180 TYPE 1\r\nHELP: COMMANDS\r\n")
            << QStringList{""} << "" << 0;
        QTest::newRow("STREAM typed") << text("stream 300\r")
                                      << join({text("\r\n"), DeviceModel::streamPattern(300), text("> ")})
                                      << QStringList{"stream 300"} << "" << 0;
        QTest::newRow("no CR: no answer") << text("abc") << Bytes{} << QStringList{} << "abc" << 0;
        QTest::newRow("LF and TAB ignored") << text("a\n\tb\r") << reply("OK ab\r\n") << QStringList{"ab"} << "" << 0;
        QTest::newRow("'{' and '|' inside a line") << text("a{|\r") << reply("OK a{|\r\n") << QStringList{"a{|"}
                                                   << "" << 0;
        QTest::newRow("'{' on an empty line") << text("{") << Bytes{0x7B, 0x15} << QStringList{} << "" << 0x7B;
        QTest::newRow("'|' after a line") << text("ser\r|") << join({ser, {0x7C, 0x15}}) << QStringList{"ser"} << ""
                                          << 0x7C;
        QTest::newRow("identify after a half line") << join({text("ab"), {200}}) << join({{200}, image})
                                                    << QStringList{} << "" << 0;
        QTest::newRow("word drops the half line, then '{'")
            << join({text("x"), {128}, text("{")}) << Bytes{128, 0x34, 0x12, 0x7B, 0x15} << QStringList{} << "" << 0x7B;
        QTest::newRow("word between lines") << join({text("a\r"), {128}, text("ser\r")})
                                            << join({reply("OK a\r\n"), {128, 0x34, 0x12}, ser})
                                            << QStringList{"a", "ser"} << "" << 0;
    }
    void terminal()
    {
        QFETCH(Bytes, script);
        QFETCH(Bytes, expected);
        QFETCH(QStringList, lines);
        QFETCH(QString, partial);
        QFETCH(int, bootMode);
        DeviceModel m;
        m.setHandshakeDelay(0ms);
        QCOMPARE(drive(m, script), expected);
        QStringList got;
        for (const std::string& l : m.terminalLines())
            got << QString::fromStdString(l);
        QCOMPARE(got, lines);
        QCOMPARE(QString::fromStdString(m.partialLine()), partial);
        QCOMPARE(int(m.boot().mode), bootMode);
        QCOMPARE(m.received(), script);
    }

    // The stream text depends on the amount alone: printable lines ending CR LF (a bare CR now
    // and then), the whole ending CR LF, a longer stream beginning with the full lines of a
    // shorter one.
    void streamPattern_data()
    {
        QTest::addColumn<int>("bytes");
        for (int n : {0, 1, 2, 3, 25, 26, 27, 28, 1000, 92160, 1 << 20})
            QTest::addRow("%d bytes", n) << n;
    }
    void streamPattern()
    {
        QFETCH(int, bytes);
        const Bytes p = DeviceModel::streamPattern(std::size_t(bytes));
        QCOMPARE(p.size(), std::size_t(bytes));
        QCOMPARE(DeviceModel::streamPattern(std::size_t(bytes)), p);
        if (bytes >= 2) QCOMPARE(slice(p, p.size() - 2, p.size()), text("\r\n"));
        int bareCr = 0;
        for (std::size_t i = 0; i < p.size(); ++i) {
            QVERIFY2((p[i] >= 0x20 && p[i] <= 0x7E) || p[i] == '\r' || p[i] == '\n', qPrintable(QString::number(i)));
            if (p[i] == '\n') QCOMPARE(p[i - 1], std::uint8_t('\r'));
            if (p[i] == '\r' && (i + 1 == p.size() || p[i + 1] != '\n')) ++bareCr;
        }
        if (bytes >= 10'000) QVERIFY(bareCr > 0);
        // Up to the start of its last line this stream is the beginning of a longer one.
        const Bytes longer = DeviceModel::streamPattern(std::size_t(bytes) + 1000);
        std::size_t lastLine = p.size() >= 3 ? p.size() - 3 : 0;
        while (lastLine > 0 && p[lastLine - 1] != '\r' && p[lastLine - 1] != '\n')
            --lastLine;
        QCOMPARE(slice(p, 0, lastLine), slice(longer, 0, lastLine));
        QCOMPARE(slice(longer, 0, 26), text("0000000 ()*+,-./01234567\r\n"));
    }
    // Stream text goes out in order in pieces of at most a millisecond, never ahead of the wire,
    // and ends one wire time after its start; lines typed meanwhile are answered after it, a
    // request or a mode byte restarts the controller and cuts it off.
    void streamOut_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<int>("receivedAfter"); // stream text out when the script arrives (whole pieces)
        QTest::addColumn<Bytes>("script");
        QTest::addColumn<Bytes>("expected");
        QTest::addColumn<int>("streamed");
        const Bytes p = DeviceModel::streamPattern(5000);
        const Bytes image = DeviceModel().image();
        QTest::newRow("alone") << 5000 << 0 << Bytes{} << p << 5000;
        QTest::newRow("line typed meanwhile") << 5000 << 92 << text("ser\r")
                                              << join({p, reply("SERIAL 1A2B3C4D\r\n")}) << 5000;
        QTest::newRow("identify cuts it") << 5000 << 184 << Bytes{200} << join({slice(p, 0, 184), {200}, image}) << 184;
        QTest::newRow("'{' cuts it") << 5000 << 276 << text("{") << join({slice(p, 0, 276), {0x7B, 0x15}}) << 276;
        QTest::newRow("'{' inside a line does not") << 5000 << 276 << text("x{") << p << 5000;
    }
    void streamOut()
    {
        QFETCH(int, bytes);
        QFETCH(int, receivedAfter);
        QFETCH(Bytes, script);
        QFETCH(Bytes, expected);
        QFETCH(int, streamed);
        DeviceModel m;
        m.setHandshakeDelay(0ms);
        m.streamText(std::size_t(bytes), T0);
        QVERIFY(m.streaming());
        const Clock::time_point arrival = T0 + wireTime(std::size_t(receivedAfter));
        Bytes out;
        Clock::time_point t = T0;
        for (auto o = m.take(t);; o = m.take(t)) {
            QVERIFY(o.bytes.size() <= 92);
            out.insert(out.end(), o.bytes.begin(), o.bytes.end());
            QVERIFY(wireTime(out.size()) <= t - T0);
            if (!o.wake || (!script.empty() && *o.wake > arrival)) break;
            QVERIFY(o.looseWake);
            t = *o.wake;
        }
        if (script.empty()) {
            QCOMPARE(t, T0 + wireTime(std::size_t(bytes)));
        } else {
            t = arrival;
            const auto o = m.take(t);
            out.insert(out.end(), o.bytes.begin(), o.bytes.end());
            QCOMPARE(out.size(), std::size_t(receivedAfter));
            m.receive(script, t);
            runOn(m, t, out);
        }
        QCOMPARE(out, expected);
        QCOMPARE(m.streamedBytes(), std::size_t(streamed));
        QVERIFY(!m.streaming());
    }
};

QTEST_GUILESS_MAIN(TestDeviceModel)
#include "test_device_model.moc"
