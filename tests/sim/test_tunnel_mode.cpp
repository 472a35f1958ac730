// The controller as CAN interface: what it takes from the tool, what it sends, how it paces it.
// Frame contents and the pty side (line speed, bursts, split bodies) are exercised by the
// tunnel window's virtual-controller test.
#include "sim/virtual_controller.h"
#include "sim_bytes.h"

#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using namespace veltro::sim;

using Writes = std::vector<Bytes>;
Q_DECLARE_METATYPE(Writes)

namespace {

Bytes frame(std::uint32_t k) { return join({{0x7D, 0x78}, DeviceModel::tunnelFrameBody(k)}); }

// Bodies from the tool: 0x7D, 200 and bytes above 0x7F are data in them.
const Bytes A{1, 2, 0x7D, 0x78, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 0x7D};
const Bytes B{200, 0x80, 0xFF, 0, 0x7B, 'C', 'A', 'N', 0x0D, 0x7D, 0xF0, 0xC8, 0x18, 0x04, 0x01};

// The writes the model hands out from T0 to `until`, its clock run on to each wake-up it asks
// for; `last` is when the last went out.
Writes writes(DeviceModel& m, Clock::time_point until, Clock::time_point& last)
{
    Writes out;
    for (Clock::time_point t = T0;;) {
        const auto o = m.take(t);
        if (!o.bytes.empty()) out.push_back(o.bytes), last = t;
        if (!o.wake || *o.wake > until) return out;
        t = *o.wake;
    }
}

} // namespace

class TestTunnelMode : public QObject {
    Q_OBJECT
private slots:
    void input_data()
    {
        QTest::addColumn<QList<Bytes>>("reads");
        QTest::addColumn<Writes>("bodies");
        QTest::addColumn<int>("packets");
        QTest::addColumn<int>("stray");
        const Bytes a1(A.begin(), A.begin() + 7), a2(A.begin() + 7, A.end());
        const Bytes cut = join({a1, {0x7D}, Bytes(a2.begin(), a2.end() - 1)}); // a2's last 0x7D: a packet
        QTest::newRow("two bodies") << QList<Bytes>{join({{0x7D}, A, B})} << Writes{A, B} << 1 << 0;
        QTest::newRow("body across reads") << QList<Bytes>{join({{0x7D}, a1}), a2, {0x7D}} << Writes{A} << 2 << 0;
        QTest::newRow("lone 0x7D") << QList<Bytes>{{0x7D}, {0x7D}} << Writes{} << 2 << 0;
        QTest::newRow("stray, requests among them") << QList<Bytes>{{'s', 200, 128, 0x7B, '\r'}, join({{0x7D}, B})}
                                                    << Writes{B} << 1 << 5;
        QTest::newRow("0x7D in a body, after it") << QList<Bytes>{join({{0x7D}, a1, {0x7D}, a2})} << Writes{cut} << 2
                                                  << 0;
    }
    void input()
    {
        QFETCH(QList<Bytes>, reads);
        QFETCH(Writes, bodies);
        QFETCH(int, packets);
        QFETCH(int, stray);
        DeviceModel m;
        m.setTunnelMode(true);
        for (const Bytes& r : reads) m.receive(r, T0);
        Clock::time_point last;
        QCOMPARE(writes(m, T0 + 1s, last), Writes{}); // no echo, no answer, no prompt
        QCOMPARE(m.tunnelBodies(), bodies);
        QCOMPARE(m.tunnelPackets(), packets);
        QCOMPARE(m.tunnelStrayBytes(), std::size_t(stray));
        QCOMPARE(m.requestCount(Request::Identify) + m.requestCount(Request::Word), 0);
    }

    // Byte for byte, a write each (a burst is one), handed over once the last byte has crossed
    // a 115200-baud wire, back to back. Out of tunnel mode none of it (that requests are
    // answered again afterwards is checked by the demo's tunnel road).
    void output_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<Writes>("expected");
        QTest::addColumn<int>("frames");
        QTest::addColumn<qint64>("lastAt"); // ns after T0
        const auto wt = [](std::size_t n, qint64 after = 0) { return after + wireTime(n, 115200).count(); };
        const Bytes error = join({{0x7D, 0xC8}, Bytes(14, 0), {0x2A}});
        QTest::newRow("100 frames/s") << Setup([](DeviceModel& m) { m.setTunnelFrameRate(100); })
                                      << Writes{frame(0), frame(1), frame(2)} << 3 << wt(17, 20'000'000);
        QTest::newRow("burst of 3") << Setup([](DeviceModel& m) { m.tunnelBurst(3, T0); })
                                    << Writes{join({frame(0), frame(1), frame(2)})} << 3 << wt(51);
        QTest::newRow("checksum error") << Setup([](DeviceModel& m) { m.tunnelChecksumError(T0); })
                                        << Writes{join({{0x7D, 0xF0}, Bytes(15, 0)})} << 0 << wt(17);
        QTest::newRow("burst, send error")
            << Setup([](DeviceModel& m) { m.tunnelBurst(2, T0), m.tunnelSendError(0x2A, T0); })
            << Writes{join({frame(0), frame(1)}), error} << 2 << wt(17, wt(34));
        QTest::newRow("switched off: dropped, then ignored") << Setup([](DeviceModel& m) {
            m.tunnelBurst(2, T0), m.setTunnelMode(false), m.tunnelBurst(1, T0), m.tunnelChecksumError(T0);
        }) << Writes{} << 0 << qint64(0);
    }
    void output()
    {
        QFETCH(Setup, setup);
        QFETCH(Writes, expected);
        QFETCH(int, frames);
        QFETCH(qint64, lastAt);
        DeviceModel m;
        m.setTunnelMode(true);
        m.setTunnelBaud(115200);
        setup(m);
        Clock::time_point last = T0;
        QCOMPARE(writes(m, T0 + 25ms, last), expected);
        QCOMPARE((last - T0).count(), lastAt);
        Writes sent;
        for (std::uint32_t k = 0; k < std::uint32_t(frames); ++k)
            sent.push_back(DeviceModel::tunnelFrameBody(k));
        QCOMPARE(m.tunnelSentBodies(), sent);
    }

    // Paced input on a 50-baud line (5 bytes a second): a burst the size of the pty's buffers
    // stays in the pty, so the tool's non-blocking write is refused (EAGAIN) while the
    // controller has not yet completed a single body.
    void pacedInputFillsThePty()
    {
        VirtualController c;
        c.setTunnelMode(true);
        c.setPacedInput(true);
        c.start();
        const int fd = ::open(c.path().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(fd >= 0);
        termios tio{};
        ::tcgetattr(fd, &tio);
        ::cfmakeraw(&tio);
        ::cfsetispeed(&tio, B50);
        ::cfsetospeed(&tio, B50);
        ::tcsetattr(fd, TCSANOW, &tio);
        Bytes burst{0x7D};
        for (std::uint32_t k = 0; burst.size() < 1'000'000; ++k) {
            const Bytes body = DeviceModel::tunnelFrameBody(k);
            burst.insert(burst.end(), body.begin(), body.end());
        }
        std::size_t written = 0;
        ssize_t n = 0;
        while (written < burst.size() &&
               (n = ::write(fd, burst.data() + written, std::min<std::size_t>(4096, burst.size() - written))) > 0)
            written += std::size_t(n);
        const int error = errno;
        ::close(fd);
        QCOMPARE(n, ssize_t(-1));
        QCOMPARE(error, EAGAIN);
        QCOMPARE(c.tunnelBodyCount(), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestTunnelMode)
#include "test_tunnel_mode.moc"
