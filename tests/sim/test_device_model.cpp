// The controller model without a pty: bootloader frame rules and fault knobs.
#include "sim/device_model.h"

#include <QtTest>

#include <functional>
#include <numeric>

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

// Feeds the script one byte at a time and collects everything the model sends, letting its
// clock run on to each wake-up it asks for.
Bytes drive(DeviceModel& m, const Bytes& script)
{
    Bytes out;
    Clock::time_point t = T0;
    for (std::uint8_t b : script) {
        m.receive(b, t);
        for (auto o = m.take(t);; o = m.take(t)) {
            out.insert(out.end(), o.bytes.begin(), o.bytes.end());
            if (!o.wake) break;
            t = *o.wake;
        }
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
};

QTEST_GUILESS_MAIN(TestDeviceModel)
#include "test_device_model.moc"
