// The controller model without a pty: bootloader frame rules, byte-by-byte parsing, wire pacing.
#include "sim/device_model.h"

#include <QtTest>

using namespace veltro::sim;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(veltro::sim::Bytes)

namespace {

const Clock::time_point T0 = Clock::time_point{} + 1h;

// A frame as the tool must send block n. The header rules are the device's documented ones:
// block byte = n mod 256; (SOH + n + complement) mod 256 is 0 for blocks 1-255, 255 for
// 256-510 and 254 for 511-765; the checksum adds the data to that.
Bytes frame(int n, std::uint8_t fill)
{
    const unsigned headerSum = n <= 255 ? 0 : n <= 510 ? 255 : 254;
    const auto complement = static_cast<std::uint8_t>((headerSum + 256 * 4 - 1 - n) % 256);
    Bytes f{0x01, static_cast<std::uint8_t>(n % 256), complement};
    unsigned sum = headerSum;
    for (int i = 0; i < 128; ++i) {
        f.push_back(static_cast<std::uint8_t>(fill + i * 3));
        sum += f.back();
    }
    f.push_back(static_cast<std::uint8_t>(sum % 256));
    return f;
}

// Puts the model into its bootloader and drops the echo and the ready byte.
void enterBootloader(DeviceModel& m, std::uint8_t mode = 0x7B)
{
    m.setHandshakeDelay(0ms);
    m.receive(mode, T0);
    QCOMPARE(m.take(T0).bytes, (Bytes{mode, 0x15}));
}

}  // namespace

class TestDeviceModel : public QObject {
    Q_OBJECT
private slots:
    void frameRules_data();
    void frameRules();
    void oneByteAtATimeGivesTheSameResult();
    void lineRatePacing();
};

void TestDeviceModel::frameRules_data()
{
    QTest::addColumn<int>("block");
    QTest::addColumn<int>("byteIndex");  // which frame byte to spoil, -1: none
    QTest::addColumn<bool>("accepted");

    for (int n : {1, 255, 256, 511}) {
        const QByteArray b = QByteArray::number(n);
        QTest::newRow("block " + b + " correct") << n << -1 << true;
        QTest::newRow("block " + b + " bad block byte") << n << 1 << false;
        QTest::newRow("block " + b + " bad complement") << n << 2 << false;
        QTest::newRow("block " + b + " bad data") << n << 70 << false;
        QTest::newRow("block " + b + " bad checksum") << n << 131 << false;
    }
    // The XMODEM complement (255 - block byte) is wrong from block 256 on.
    QTest::newRow("block 256 with XMODEM complement") << 256 << -2 << false;
}

void TestDeviceModel::frameRules()
{
    QFETCH(int, block);
    QFETCH(int, byteIndex);
    QFETCH(bool, accepted);

    DeviceModel m;
    enterBootloader(m);
    for (int n = 1; n < block; ++n) {
        m.receive(frame(n, static_cast<std::uint8_t>(n)), T0);
        QCOMPARE(m.take(T0).bytes, Bytes{0x06});
    }
    Bytes f = frame(block, 0x55);
    if (byteIndex >= 0) f[static_cast<std::size_t>(byteIndex)] ^= 0x01;
    if (byteIndex == -2) f[2] = static_cast<std::uint8_t>(255 - f[1]);
    m.receive(f, T0);

    QCOMPARE(m.take(T0).bytes, Bytes{static_cast<std::uint8_t>(accepted ? 0x06 : 0x15)});
    QCOMPARE(m.boot().blocksAccepted, accepted ? block : block - 1);
    QCOMPARE(m.boot().naks, accepted ? 0 : 1);
    QCOMPARE(m.boot().image.size(), static_cast<std::size_t>(m.boot().blocksAccepted) * 128);
    if (accepted) {
        QVERIFY(std::equal(f.begin() + 3, f.begin() + 131, m.boot().image.end() - 128));
        // The same number again is not the next block.
        m.receive(f, T0);
        QCOMPARE(m.take(T0).bytes, Bytes{0x15});
    }
}

void TestDeviceModel::oneByteAtATimeGivesTheSameResult()
{
    // A short transfer with a spoilt frame and its resend, stray bytes between frames, a
    // forced NAK, then EOT; and an identification request once the bootloader has ended.
    Bytes script{0x7C};
    Bytes spoilt = frame(2, 9);
    spoilt[131] ^= 0xFF;
    for (const Bytes& part : {frame(1, 7), Bytes{0x7C, 0x33}, spoilt, frame(2, 9), frame(3, 11),
                              frame(3, 11), Bytes{0x04}}) {
        script.insert(script.end(), part.begin(), part.end());
    }
    BootFaults faults;
    faults.nakBlock[3] = 1;

    auto run = [&](std::size_t chunk) {
        DeviceModel m;
        m.setHandshakeDelay(0ms);
        m.setBootFaults(faults);
        Bytes out;
        for (std::size_t i = 0; i < script.size(); i += chunk) {
            const Bytes piece(script.begin() + static_cast<std::ptrdiff_t>(i),
                              script.begin() + static_cast<std::ptrdiff_t>(std::min(script.size(), i + chunk)));
            m.receive(piece, T0);
            const Bytes now = m.take(T0).bytes;
            out.insert(out.end(), now.begin(), now.end());
        }
        return std::pair{out, m.boot()};
    };

    const auto [outWhole, bootWhole] = run(script.size());
    for (std::size_t chunk : {std::size_t{1}, std::size_t{5}, std::size_t{131}}) {
        const auto [out, boot] = run(chunk);
        QCOMPARE(out, outWhole);
        QCOMPARE(boot.image, bootWhole.image);
        QCOMPARE(boot.naks, bootWhole.naks);
        QCOMPARE(boot.complete, bootWhole.complete);
    }
    QCOMPARE(outWhole, (Bytes{0x7C, 0x15, 0x06, 0x15, 0x06, 0x15, 0x06}));
    QCOMPARE(bootWhole.mode, std::uint8_t{0x7C});
    QCOMPARE(bootWhole.blocksAccepted, 3);
    QCOMPARE(bootWhole.naks, 2);
    QVERIFY(bootWhole.complete);
}

void TestDeviceModel::lineRatePacing()
{
    const auto byteTime = 10'851ns;  // 10 bits at 921600 baud, rounded up
    auto bytesOutAt = [](DeviceModel& m, std::initializer_list<Clock::time_point> times) {
        std::vector<std::size_t> counts;
        std::size_t total = 0;
        for (Clock::time_point t : times) {
            total += m.take(t).bytes.size();
            counts.push_back(total);
        }
        return counts;
    };

    // A frame written all at once is still 132 bytes long on the wire; the ACK follows it.
    {
        DeviceModel m;
        enterBootloader(m);
        m.setLineRate(true);
        m.receive(frame(1, 0), T0);
        QCOMPARE(bytesOutAt(m, {T0, T0 + 132 * byteTime, T0 + 134 * byteTime}),
                 (std::vector<std::size_t>{0, 0, 1}));
    }
    // The image: echo, 20 ms restart, then 1028 bytes at line rate (about 11.16 ms).
    {
        DeviceModel m;
        m.setLineRate(true);
        m.receive(200, T0);
        const auto echoed = T0 + 2 * byteTime;
        const auto imageStart = echoed + 20ms;
        // counts include the echo
        QCOMPARE(bytesOutAt(m, {T0, echoed, imageStart, imageStart + 514 * byteTime,
                                imageStart + 1027 * byteTime, imageStart + 1029 * byteTime}),
                 (std::vector<std::size_t>{0, 1, 1, 1 + 514, 1 + 1027, 1 + 1028}));
    }
}

QTEST_GUILESS_MAIN(TestDeviceModel)
#include "test_device_model.moc"
