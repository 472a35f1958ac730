// The virtual controller over a real pseudo-terminal, seen from the tool's side of the line.
#include "sim/virtual_controller.h"

#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace veltro::sim;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(veltro::sim::Bytes)
Q_DECLARE_METATYPE(veltro::sim::AnswerFaults)
Q_DECLARE_METATYPE(veltro::sim::BootFaults)

namespace {

// The tool's end of the line, in plain POSIX.
class Port {
public:
    explicit Port(const std::string& path)
    {
        fd_ = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (fd_ >= 0) {
            termios tio{};
            ::tcgetattr(fd_, &tio);
            ::cfmakeraw(&tio);
            ::tcsetattr(fd_, TCSANOW, &tio);
        }
    }
    ~Port()
    {
        if (fd_ >= 0) ::close(fd_);
    }
    bool isOpen() const { return fd_ >= 0; }

    void write(const Bytes& bytes)
    {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
            if (n > 0) done += static_cast<std::size_t>(n);
            else if (n < 0 && errno != EAGAIN) return;
        }
    }
    void write(std::uint8_t b) { write(Bytes{b}); }

    // Everything that arrives within the window.
    Bytes readFor(std::chrono::milliseconds window) { return read(SIZE_MAX, window); }

    // Up to `count` bytes, or what came before the deadline.
    Bytes read(std::size_t count, std::chrono::milliseconds timeout)
    {
        Bytes out;
        const auto deadline = Clock::now() + timeout;
        while (out.size() < count) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() < 0) break;
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) break;
            if (p.revents & (POLLHUP | POLLERR)) {
                hungUp_ = true;
                break;
            }
            std::uint8_t buf[2048];
            const ssize_t n = ::read(fd_, buf, std::min(sizeof buf, count - out.size()));
            if (n < 0 && errno == EIO) {
                hungUp_ = true;
                break;
            }
            if (n > 0) out.insert(out.end(), buf, buf + n);
        }
        return out;
    }
    bool hungUp() const { return hungUp_; }

    int waiting() const
    {
        int n = 0;
        ::ioctl(fd_, FIONREAD, &n);
        return n;
    }

private:
    int fd_ = -1;
    bool hungUp_ = false;
};

unsigned sum(const Bytes& b, std::size_t from, std::size_t to)
{
    unsigned s = 0;
    for (std::size_t i = from; i < to; ++i) s += b[i];
    return s;
}

// Block n as the tool sends it; header sums 0 / 255 / 254 for blocks 1-255 / 256-510 / 511-765.
Bytes frame(int n, std::uint8_t fill)
{
    const unsigned headerSum = n <= 255 ? 0 : n <= 510 ? 255 : 254;
    Bytes f{0x01, static_cast<std::uint8_t>(n % 256),
            static_cast<std::uint8_t>((headerSum + 1024 - 1 - n) % 256)};
    for (int i = 0; i < 128; ++i) f.push_back(static_cast<std::uint8_t>(fill ^ i));
    f.push_back(static_cast<std::uint8_t>((headerSum + sum(f, 3, 131)) % 256));
    return f;
}

}  // namespace

class TestVirtualController : public QObject {
    Q_OBJECT
private slots:
    void identification_data();
    void identification();
    void requestFaults_data();
    void requestFaults();
    void readouts_data();
    void readouts();
    void portCanBeClosedAndReopened();
    void bootloader_data();
    void bootloader();
    void unplug_data();
    void unplug();
};

void TestVirtualController::identification_data()
{
    QTest::addColumn<bool>("custom");
    QTest::addColumn<AnswerFaults>("faults");
    QTest::addColumn<int>("imageLength");
    QTest::addColumn<Bytes>("fields");  // bytes 1008..1015 and 1024..1025
    QTest::addColumn<bool>("checksumOk");

    AnswerFaults none;
    AnswerFaults badSum;
    badSum.wrongChecksum = true;
    AnswerFaults shortImage;
    shortImage.shortAnswer = 1000;

    const Bytes defaults{0x1A, 0x2B, 0x3C, 0x4D, 180, 3, 1, 0, 166, 0};
    const Bytes custom{0xDE, 0xAD, 0x00, 0x01, 178, 7, 3, 0, 0x34, 0x82};
    QTest::newRow("defaults") << false << none << 1028 << defaults << true;
    QTest::newRow("custom fields") << true << none << 1028 << custom << true;
    QTest::newRow("wrong checksum") << false << badSum << 1028 << defaults << false;
    QTest::newRow("short image") << false << shortImage << 1000 << Bytes{} << false;
}

void TestVirtualController::identification()
{
    QFETCH(bool, custom);
    QFETCH(AnswerFaults, faults);
    QFETCH(int, imageLength);
    QFETCH(Bytes, fields);
    QFETCH(bool, checksumOk);

    VirtualController sim;
    if (custom) {
        sim.setSerial(0xDEAD0001);
        sim.setLayout(178);
        sim.setHardware(7);
        sim.setControllerType(3);
        sim.setFirmware(0x8234);
        sim.setImageByte(1015, 0);
    }
    sim.setFaults(Request::Identify, faults);
    sim.start();
    Port port(sim.path());
    QVERIFY(port.isOpen());

    port.write(200);
    // The echo is alone on the line for a while: the tool takes it only as a single byte.
    QCOMPARE(port.read(1, 1s), Bytes{200});
    QCOMPARE(port.waiting(), 0);
    const Bytes image = port.readFor(300ms);
    QCOMPARE(static_cast<int>(image.size()), imageLength);
    if (imageLength < 1028) return;

    Bytes got(image.begin() + 1008, image.begin() + 1016);
    got.insert(got.end(), image.begin() + 1024, image.begin() + 1026);
    QCOMPARE(got, fields);
    QCOMPARE(sum(image, 0, 1026) % 256 == image[1027], checksumOk);
    // A believable configuration: no erased cells, and not the older layout's marker.
    QVERIFY(std::none_of(image.begin(), image.begin() + 1008, [](std::uint8_t b) { return b == 0xFF; }));
    QVERIFY(image[127] != 5);
    QCOMPARE(sim.requestCount(Request::Identify), 1);
}

void TestVirtualController::requestFaults_data()
{
    QTest::addColumn<AnswerFaults>("faults");
    QTest::addColumn<int>("requests");        // how many requests the tool sends, 50 ms apart
    QTest::addColumn<int>("answeredAt");      // the request that got the echo, 0: none
    QTest::addColumn<Bytes>("firstChunk");    // what arrived right after it

    AnswerFaults late3;
    late3.echoFromRequest = 3;
    AnswerFaults silent;
    silent.silent = true;
    AnswerFaults garbage;
    garbage.garbageBeforeEcho = {0x00, 0x55};

    QTest::newRow("at once") << AnswerFaults{} << 3 << 1 << Bytes{200};
    QTest::newRow("from the third request") << late3 << 5 << 3 << Bytes{200};
    QTest::newRow("late beyond the tries") << late3 << 2 << 0 << Bytes{};
    QTest::newRow("silent") << silent << 5 << 0 << Bytes{};
    QTest::newRow("garbage before the echo") << garbage << 1 << 1 << Bytes{0x00, 0x55, 200};
}

void TestVirtualController::requestFaults()
{
    QFETCH(AnswerFaults, faults);
    QFETCH(int, requests);
    QFETCH(int, answeredAt);
    QFETCH(Bytes, firstChunk);

    VirtualController sim;
    sim.setFaults(Request::Identify, faults);
    sim.setResetDelay(100ms);  // room for a loaded machine between echo and image
    sim.start();
    Port port(sim.path());

    int answered = 0;
    for (int i = 1; i <= requests && answered == 0; ++i) {
        port.write(200);
        const Bytes got = port.readFor(50ms);
        if (!got.empty()) {
            answered = i;
            QCOMPARE(got, firstChunk);
        }
    }
    QCOMPARE(answered, answeredAt);
    if (answered) QCOMPARE(port.readFor(300ms).size(), std::size_t{1028});
}

void TestVirtualController::readouts_data()
{
    QTest::addColumn<std::uint8_t>("request");
    QTest::addColumn<AnswerFaults>("faults");
    QTest::addColumn<Bytes>("head");      // the first bytes of the answer
    QTest::addColumn<int>("length");
    QTest::addColumn<bool>("checksumOk");

    AnswerFaults badSum;
    badSum.wrongChecksum = true;
    AnswerFaults shortAnswer;
    shortAnswer.shortAnswer = 100;
    AnswerFaults late2;
    late2.echoFromRequest = 2;

    // 2023-11-05, serial byte 0x0A, lambda calibration 0x003C
    const Bytes block{223, 11, 5, 0x0A};
    QTest::newRow("data block") << std::uint8_t{199} << AnswerFaults{} << block << 129 << true;
    QTest::newRow("data block, wrong checksum") << std::uint8_t{199} << badSum << block << 129 << false;
    QTest::newRow("data block, short") << std::uint8_t{199} << shortAnswer << block << 100 << false;
    QTest::newRow("data block, late echo") << std::uint8_t{199} << late2 << block << 129 << true;
    QTest::newRow("word") << std::uint8_t{128} << AnswerFaults{} << Bytes{0xA6, 0x81} << 2 << true;
}

void TestVirtualController::readouts()
{
    QFETCH(std::uint8_t, request);
    QFETCH(AnswerFaults, faults);
    QFETCH(Bytes, head);
    QFETCH(int, length);
    QFETCH(bool, checksumOk);

    VirtualController sim;
    sim.setManufacturingDate(2023, 11, 5);
    sim.setDataSerialByte(0x0A);
    sim.setLambdaCalibration(0x003C);
    sim.setWord(0x81A6);
    sim.setFaults(request == 199 ? Request::DataBlock : Request::Word, faults);
    sim.setResetDelay(100ms);
    sim.start();
    Port port(sim.path());

    Bytes echo;
    for (int i = 0; i < 3 && echo.empty(); ++i) {
        port.write(request);
        echo = port.readFor(50ms);
    }
    QCOMPARE(echo, Bytes{request});
    const Bytes answer = port.readFor(300ms);
    QCOMPARE(static_cast<int>(answer.size()), length);
    QCOMPARE(Bytes(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(head.size())), head);
    if (length == 129) {
        QCOMPARE(answer[6], std::uint8_t{0x3C});
        QCOMPARE(answer[7], std::uint8_t{0x00});
        QCOMPARE(sum(answer, 0, 128) % 256 == answer[128], checksumOk);
    }
}

void TestVirtualController::portCanBeClosedAndReopened()
{
    VirtualController sim;
    sim.start();
    for (int round = 0; round < 3; ++round) {
        Port port(sim.path());
        QVERIFY(port.isOpen());
        port.write(200);
        QCOMPARE(port.read(1, 1s), Bytes{200});
        QCOMPARE(port.read(1028, 1s).size(), std::size_t{1028});
    }
    QCOMPARE(sim.requestCount(Request::Identify), 3);
}

void TestVirtualController::bootloader_data()
{
    QTest::addColumn<std::uint8_t>("mode");
    QTest::addColumn<BootFaults>("faults");
    QTest::addColumn<bool>("trickle");       // frames written one byte at a time
    QTest::addColumn<QByteArray>("answers");  // per frame sent: A(ck) N(ak) G(arbled) -(none)
    QTest::addColumn<bool>("complete");

    BootFaults nak2;
    nak2.nakBlock[2] = 2;
    BootFaults garbled2;
    garbled2.garbledBlock = 2;
    BootFaults silent2;
    silent2.silentFromBlock = 2;

    QTest::newRow("firmware") << std::uint8_t{0x7B} << BootFaults{} << false << QByteArray("AAA") << true;
    QTest::newRow("configuration, trickled") << std::uint8_t{0x7C} << BootFaults{} << true << QByteArray("AAA") << true;
    QTest::newRow("block 2 refused twice") << std::uint8_t{0x7B} << nak2 << false << QByteArray("ANNAA") << true;
    QTest::newRow("block 2 garbled") << std::uint8_t{0x7B} << garbled2 << false << QByteArray("AG") << false;
    QTest::newRow("silent from block 2") << std::uint8_t{0x7B} << silent2 << false << QByteArray("A-") << false;
}

void TestVirtualController::bootloader()
{
    QFETCH(std::uint8_t, mode);
    QFETCH(BootFaults, faults);
    QFETCH(bool, trickle);
    QFETCH(QByteArray, answers);
    QFETCH(bool, complete);

    VirtualController sim;
    sim.setBootFaults(faults);
    sim.start();
    Port port(sim.path());

    port.write(mode);
    QCOMPARE(port.read(1, 1s), Bytes{mode});
    QCOMPARE(port.waiting(), 0);  // the ready byte comes later, on its own
    QCOMPARE(port.read(1, 1s), Bytes{0x15});

    QByteArray got;
    Bytes sent;
    for (int n = 1; n <= 3;) {
        const Bytes f = frame(n, static_cast<std::uint8_t>(0x30 + n));
        if (trickle) {
            for (std::uint8_t b : f) {
                port.write(b);
                std::this_thread::sleep_for(100us);
            }
        } else {
            port.write(f);
        }
        const Bytes a = port.read(1, 200ms);
        if (a.empty()) {
            got += '-';
            break;
        }
        if (a[0] == 0x15) {
            got += 'N';
            continue;
        }
        if (a[0] != 0x06) {
            got += 'G';
            break;
        }
        got += 'A';
        sent.insert(sent.end(), f.begin() + 3, f.begin() + 131);
        ++n;
    }
    QCOMPARE(got, answers);
    port.write(complete ? 0x04 : 0x18);
    QTRY_COMPARE(complete ? sim.transferComplete() : sim.transferCancelled(), true);

    QCOMPARE(sim.receivedMode(), mode);
    QCOMPARE(sim.receivedImage(), sent);
    QCOMPARE(sim.nakCount(), static_cast<int>(answers.count('N')));
    // Nothing but the answers came back.
    QCOMPARE(port.readFor(30ms), Bytes{});
}

void TestVirtualController::unplug_data()
{
    QTest::addColumn<int>("afterBlock");  // 0: unplug() while the tool waits for a block answer

    QTest::newRow("unplug()") << 0;
    QTest::newRow("after block 1") << 1;
    QTest::newRow("after block 2") << 2;
}

void TestVirtualController::unplug()
{
    QFETCH(int, afterBlock);

    VirtualController sim;
    BootFaults faults;
    faults.unplugAfterBlock = afterBlock;
    faults.silentFromBlock = afterBlock == 0 ? 1 : 0;
    sim.setBootFaults(faults);
    sim.start();
    Port port(sim.path());

    port.write(0x7B);
    QCOMPARE(port.read(2, 1s), (Bytes{0x7B, 0x15}));
    for (int n = 1; n <= afterBlock; ++n) {
        port.write(frame(n, 0));
        QCOMPARE(port.read(1, 1s), Bytes{0x06});
    }
    port.write(frame(afterBlock + 1, 0));
    if (afterBlock == 0) {
        QCOMPARE(port.readFor(20ms), Bytes{});
        sim.unplug();
    }
    QCOMPARE(port.read(1, 1s), Bytes{});
    QVERIFY(port.hungUp());
    QVERIFY(sim.unplugged());
    QCOMPARE(sim.blocksAccepted(), afterBlock);
}

QTEST_GUILESS_MAIN(TestVirtualController)
#include "test_virtual_controller.moc"
