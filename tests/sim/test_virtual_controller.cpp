// The virtual controller's terminal through its pseudo-terminal, opened as the tool opens it.
#include "sim/virtual_controller.h"

#include <QtTest>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <string_view>

using namespace veltro::sim;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(veltro::sim::Bytes)

namespace {

Bytes text(std::string_view s)
{
    return Bytes(s.begin(), s.end());
}

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

// The controller's port, raw, as a serial port is opened.
class Port {
public:
    explicit Port(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
        termios tio{};
        if (fd_ >= 0 && ::tcgetattr(fd_, &tio) == 0) {
            ::cfmakeraw(&tio);
            ::tcsetattr(fd_, TCSANOW, &tio);
        }
    }
    ~Port()
    {
        if (fd_ >= 0) ::close(fd_);
    }
    bool isOpen() const { return fd_ >= 0; }
    bool write(const Bytes& bytes) { return ::write(fd_, bytes.data(), bytes.size()) == ssize_t(bytes.size()); }

    // Reads until `count` bytes have come or nothing has come for `quiet` (a stall, not a speed limit).
    Bytes read(std::size_t count, std::chrono::milliseconds quiet = 10s)
    {
        Bytes got;
        std::uint8_t buf[4096];
        while (got.size() < count) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, int(quiet.count())) <= 0) break;
            const ssize_t n = ::read(fd_, buf, std::min(sizeof buf, count - got.size()));
            if (n > 0) got.insert(got.end(), buf, buf + n);
        }
        return got;
    }

private:
    int fd_;
};

} // namespace

class TestVirtualController : public QObject {
    Q_OBJECT
private slots:
    // What goes in and what comes back, written as the tool writes it, one script after another.
    void terminal_data()
    {
        QTest::addColumn<QList<Bytes>>("writes");
        QTest::addColumn<QList<Bytes>>("answers");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QString>("partial");
        const Bytes ser = text("\r\nSERIAL 1A2B3C4D\r\n> ");
        VirtualController c;
        const Bytes banner = join({text("\r\n"), c.banner(), text("> ")});
        const Bytes echoAndImage = join({{200}, c.image()});
        QTest::newRow("one line with CR") << QList<Bytes>{text("ser\r")} << QList<Bytes>{ser} << QStringList{"ser"}
                                          << "";
        QTest::newRow("empty line, then a line") << QList<Bytes>{text("\r"), text("ser\r")} << QList<Bytes>{banner, ser}
                                                 << QStringList{"", "ser"} << "";
        QTest::newRow("no CR, then identify") << QList<Bytes>{text("se"), Bytes{200}}
                                              << QList<Bytes>{Bytes{}, echoAndImage} << QStringList{} << "";
        QTest::newRow("line left open") << QList<Bytes>{text("ser\r"), text("ver")} << QList<Bytes>{ser, Bytes{}}
                                        << QStringList{"ser"} << "ver";
    }
    void terminal()
    {
        QFETCH(QList<Bytes>, writes);
        QFETCH(QList<Bytes>, answers);
        QFETCH(QStringList, lines);
        QFETCH(QString, partial);
        VirtualController c;
        c.start();
        Port port(c.path());
        QVERIFY(port.isOpen());
        Bytes all;
        for (qsizetype i = 0; i < writes.size(); ++i) {
            QVERIFY(port.write(writes[i]));
            all = join({all, writes[i]});
            if (answers[i].empty()) // nothing comes back: wait until the controller has it
                QTRY_COMPARE(c.received(), all);
            QCOMPARE(port.read(answers[i].size()), answers[i]);
        }
        QTRY_COMPARE(c.received(), all);
        QStringList got;
        for (const std::string& l : c.terminalLines())
            got << QString::fromStdString(l);
        QCOMPARE(got, lines);
        QCOMPARE(QString::fromStdString(c.partialLine()), partial);
        QCOMPARE(port.read(1, 50ms), Bytes{}); // and nothing more
    }

    // Stream text reaches the port complete and in order; the rate is reported, not checked.
    void stream_data()
    {
        QTest::addColumn<bool>("onOpen");
        QTest::addColumn<int>("bytes");
        QTest::newRow("streamText, one second") << false << 92160;
        QTest::newRow("after the banner (--stream)") << true << 50000;
    }
    void stream()
    {
        QFETCH(bool, onOpen);
        QFETCH(int, bytes);
        VirtualController c;
        c.start();
        Port port(c.path());
        QVERIFY(port.isOpen());
        const Bytes pattern = VirtualController::streamPattern(std::size_t(bytes));
        Bytes expected = pattern;
        const auto start = Clock::now();
        if (onOpen) {
            c.setStreamOnOpen(std::size_t(bytes));
            QVERIFY(port.write(text("\r")));
            expected = join({text("\r\n"), c.banner(), pattern, text("> ")});
        } else {
            c.streamText(std::size_t(bytes));
        }
        const Bytes got = port.read(expected.size());
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        QCOMPARE(got.size(), expected.size());
        QVERIFY(got == expected);
        QTRY_VERIFY(c.streamFinished());
        QCOMPARE(c.streamedBytes(), std::size_t(bytes));
        qInfo("%d bytes of stream text in %.3f s: %.0f bytes/s (the wire: 92160)", bytes, seconds,
              double(bytes) / seconds);
    }
};

QTEST_GUILESS_MAIN(TestVirtualController)
#include "test_virtual_controller.moc"
