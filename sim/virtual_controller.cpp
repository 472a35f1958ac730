#include "sim/virtual_controller.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <stdexcept>
#include <termios.h>
#include <time.h>
#include <unistd.h>

namespace veltro::sim {

namespace {

[[noreturn]] void fail(const char* what)
{
    throw std::runtime_error(std::string("virtual controller: ") + what + ": " + std::strerror(errno));
}

void setFlags(int fd, int statusFlags)
{
    const int fl = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, fl | statusFlags);
    ::fcntl(fd, F_SETFD, ::fcntl(fd, F_GETFD) | FD_CLOEXEC);
}

// How long before a due byte the controller stops sleeping and yields instead.
constexpr auto kYieldStretch = std::chrono::microseconds(250);

// Tunnel output taken from the model but not yet in the pty, above which the controller stops
// taking more until the tool reads.
constexpr std::size_t kTunnelPending = 4096;
constexpr auto kTunnelRetry = std::chrono::milliseconds(10);

// Paced input takes at most this much at a time, about 2.8 ms of a 921600-baud line: a tool
// that writes faster than the line finds room in the pty again as bytes cross the wire, in
// small steps, and the controller's thread wakes a few hundred times a second, not per byte.
constexpr std::size_t kPacedRead = 256;

// The baud rate of a termios speed code; 0 for codes outside the table (B0, BOTHER).
std::uint32_t baudOf(speed_t speed)
{
    struct Entry {
        speed_t code;
        std::uint32_t baud;
    };
    static constexpr Entry table[] = {
        {B50, 50},           {B75, 75},           {B110, 110},         {B134, 134},
        {B150, 150},         {B200, 200},         {B300, 300},         {B600, 600},
        {B1200, 1200},       {B1800, 1800},       {B2400, 2400},       {B4800, 4800},
        {B9600, 9600},       {B19200, 19200},     {B38400, 38400},     {B57600, 57600},
        {B115200, 115200},   {B230400, 230400},
#ifdef B460800
        {B460800, 460800},   {B500000, 500000},   {B576000, 576000},   {B921600, 921600},
        {B1000000, 1000000}, {B1152000, 1152000}, {B1500000, 1500000}, {B2000000, 2000000},
        {B2500000, 2500000}, {B3000000, 3000000}, {B3500000, 3500000}, {B4000000, 4000000},
#endif
    };
    for (const Entry& e : table)
        if (e.code == speed) return e.baud;
    return 0;
}

// The output speed set on the line through any of its descriptors.
std::uint32_t speedOf(int fd)
{
    termios tio{};
    if (fd < 0 || ::tcgetattr(fd, &tio) != 0) return 0;
    return baudOf(::cfgetospeed(&tio));
}

}  // namespace

VirtualController::VirtualController()
{
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0) fail("posix_openpt");
    setFlags(master_, O_NONBLOCK);
    if (::grantpt(master_) != 0 || ::unlockpt(master_) != 0) {
        ::close(master_);
        fail("grantpt/unlockpt");
    }
    std::array<char, 128> name{};
    if (::ptsname_r(master_, name.data(), name.size()) != 0) {
        ::close(master_);
        fail("ptsname");
    }
    path_ = name.data();

    slave_ = ::open(path_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0) {
        ::close(master_);
        fail("open slave");
    }
    termios tio{};
    if (::tcgetattr(slave_, &tio) == 0) {
        ::cfmakeraw(&tio);
        ::cfsetispeed(&tio, B921600);
        ::cfsetospeed(&tio, B921600);
        ::tcsetattr(slave_, TCSANOW, &tio);
    }

    int fds[2];
    if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0) {
        ::close(slave_);
        ::close(master_);
        fail("pipe");
    }
    wakeRead_ = fds[0];
    wakeWrite_ = fds[1];
}

VirtualController::~VirtualController()
{
    stop();
    closeMaster();
    if (slave_ >= 0) ::close(slave_);
    ::close(wakeRead_);
    ::close(wakeWrite_);
}

void VirtualController::start()
{
    if (running_.exchange(true)) return;
    thread_ = std::thread([this] { run(); });
}

void VirtualController::stop()
{
    if (!running_.exchange(false)) return;
    wake();
    if (thread_.joinable()) thread_.join();
}

void VirtualController::wake()
{
    const char b = 1;
    [[maybe_unused]] auto r = ::write(wakeWrite_, &b, 1);
}

void VirtualController::closeMaster()
{
    if (master_ >= 0) {
        ::close(master_);
        master_ = -1;
    }
}

void VirtualController::changed(const std::function<void(DeviceModel&)>& change)
{
    {
        std::lock_guard lock(mutex_);
        change(model_);
    }
    wake();
}

void VirtualController::withModel(const std::function<void(DeviceModel&)>& change) { changed(change); }

void VirtualController::run()
{
#ifdef __linux__
    // Line-rate pacing sleeps for tens of microseconds; the default timer slack is 50 us.
    ::prctl(PR_SET_TIMERSLACK, 1UL);
#endif
    Bytes pending;  // due, not yet taken by the pty
    // "}x" records taken from the model whose last byte is not in the pty yet: where they end,
    // counted in all the output taken so far, and their frame numbers.
    std::deque<std::pair<std::uint64_t, std::uint32_t>> unstamped;
    std::uint64_t takenTotal = 0;
    std::uint64_t writtenTotal = 0;
    // Paced input: the wire has carried lineBytes bytes at inBaud since lineStart without a
    // pause. It pauses whenever the controller has taken all the pty held; the next byte the
    // tool writes starts on it when the controller sees it.
    bool lineIdle = true;
    Clock::time_point lineStart{};
    std::uint64_t lineBytes = 0;
    std::uint32_t inBaud = wire::Baud;
    std::array<std::uint8_t, 4096> buf{};
    while (running_) {
        std::optional<Clock::time_point> wakeAt;
        bool looseWake = false;
        bool unplugNow = false;
        {
            std::lock_guard lock(mutex_);
            // In tunnel mode a pty nobody reads holds up the model instead, whose backlog of
            // frames is bounded; the write below waits for the pty to take bytes again.
            if (!model_.tunnelMode() || pending.size() < kTunnelPending || unplugRequested_) {
                if (model_.tunnelMode()) model_.setTunnelBaud(speedOf(slave_));  // 0: the default
                DeviceModel::Output out = model_.take(Clock::now());
                for (const DeviceModel::FrameEnd& f : out.frames) unstamped.emplace_back(takenTotal + f.end, f.frame);
                takenTotal += out.bytes.size();
                pending.insert(pending.end(), out.bytes.begin(), out.bytes.end());
                wakeAt = out.wake;
                looseWake = out.looseWake;
                unplugNow = out.unplug;
            } else {
                // A flush on the tool's side does not always report the pty writable again.
                wakeAt = Clock::now() + kTunnelRetry;
                looseWake = true;
            }
            unwritten_ = pending.size();
        }
        if (master_ >= 0 && !pending.empty()) {
            const ssize_t n = ::write(master_, pending.data(), pending.size());
            if (n > 0) {
                const Clock::time_point now = Clock::now();
                pending.erase(pending.begin(), pending.begin() + n);
                writtenTotal += static_cast<std::uint64_t>(n);
                std::lock_guard lock(mutex_);
                unwritten_ = pending.size();
                for (; !unstamped.empty() && unstamped.front().first <= writtenTotal; unstamped.pop_front()) {
                    if (sentTimes_.size() == DeviceModel::MaxSentKept) sentTimes_.pop_front();
                    sentTimes_.push_back({unstamped.front().second, now});
                }
            }
        }
        if (unplugNow) {
            closeMaster();
            pending.clear();
            unstamped.clear();
            {
                std::lock_guard lock(mutex_);
                lineClosed_ = true;
            }
            lineClosedCv_.notify_all();
        }

        // Paced input: take what has crossed the wire by now, a little at a time, and wait for
        // the rest; the pty keeps it meanwhile and so fills up under a tool that writes faster.
        const bool paced = pacedInput_;
        bool watchInput = true;
        if (paced && master_ >= 0) {
            int queued = 0;
            if (::ioctl(master_, FIONREAD, &queued) != 0) queued = 0;
            if (queued <= 0) {
                lineIdle = true;
            } else {
                const Clock::time_point now = Clock::now();
                const std::uint32_t baud = lineBaud();
                if (lineIdle || baud != inBaud) {
                    const Clock::time_point lineEnd = lineStart + wireTime(lineBytes, inBaud);
                    lineStart = lineIdle ? std::max(now, lineEnd) : lineEnd;
                    lineBytes = 0;
                    inBaud = baud;
                    lineIdle = false;
                }
                const std::size_t want = std::min(static_cast<std::size_t>(queued), kPacedRead);
                const Clock::time_point due = lineStart + wireTime(lineBytes + want, inBaud);
                if (now >= due) {
                    const ssize_t n = ::read(master_, buf.data(), want);
                    if (n > 0) {
                        {
                            std::lock_guard lock(mutex_);
                            for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i)
                                model_.receive(buf[i], lineStart + wireTime(lineBytes + i + 1, inBaud));
                        }
                        lineBytes += static_cast<std::uint64_t>(n);
                        if (n == queued) lineIdle = true;
                        continue;  // more may be due already, and the model may have answered
                    }
                } else {
                    watchInput = false;
                    if (!wakeAt || due < *wakeAt) {
                        wakeAt = due;
                        looseWake = true;  // arrival times are reckoned, not read off the clock
                    }
                }
            }
        }

        std::array<pollfd, 2> fds{};
        fds[0] = {wakeRead_, POLLIN, 0};
        nfds_t count = 1;
        if (master_ >= 0) {
            fds[1] = {master_, static_cast<short>((watchInput ? POLLIN : 0) | (pending.empty() ? 0 : POLLOUT)), 0};
            count = 2;
        }
        timespec ts{};
        timespec* timeout = nullptr;
        if (wakeAt) {
            // A timed sleep here overshoots by 50 to 200 us, a tenth of a block on a paced
            // line. Sleep until shortly before the byte is due and give the processor away
            // for the last stretch, so a waiting kernel worker (the pty's) still gets to run.
            // Stream text is handed over by the millisecond and may be a little late: no need
            // to keep the processor for it.
            const auto left = *wakeAt - Clock::now();
            const auto sleep =
                std::max(Clock::duration::zero(), looseWake ? left : left - kYieldStretch);
            if (sleep == Clock::duration::zero() && left > Clock::duration::zero()) ::sched_yield();
            const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(sleep).count();
            ts.tv_sec = static_cast<time_t>(ns / 1'000'000'000);
            ts.tv_nsec = static_cast<long>(ns % 1'000'000'000);
            timeout = &ts;
        }
        if (::ppoll(fds.data(), count, timeout, nullptr) < 0 && errno != EINTR) break;

        if (fds[0].revents & POLLIN) {
            char drain[64];
            while (::read(wakeRead_, drain, sizeof drain) > 0) {
            }
        }
        if (count == 2 && (fds[1].revents & POLLIN)) {
            // Paced, the next round takes it.
            if (!paced) {
                const ssize_t n = ::read(master_, buf.data(), buf.size());
                if (n > 0) {
                    const Clock::time_point now = Clock::now();
                    std::lock_guard lock(mutex_);
                    model_.receive(Bytes(buf.begin(), buf.begin() + n), now);
                }
            }
        } else if (count == 2 && (fds[1].revents & (POLLHUP | POLLERR))) {
            // Should not happen while the slave is held open; do not spin if it does.
            ::usleep(1000);
        }
    }
}

void VirtualController::setConfiguration(const Bytes& data)
{
    changed([&](DeviceModel& m) { m.setConfiguration(data); });
}
void VirtualController::setImageByte(std::size_t position, std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setImageByte(position, value); });
}
void VirtualController::setSerial(std::uint32_t serial)
{
    changed([&](DeviceModel& m) { m.setSerial(serial); });
}
void VirtualController::setLayout(std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setLayout(value); });
}
void VirtualController::setHardware(std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setHardware(value); });
}
void VirtualController::setControllerType(std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setControllerType(value); });
}
void VirtualController::setFirmware(std::uint16_t value)
{
    changed([&](DeviceModel& m) { m.setFirmware(value); });
}
Bytes VirtualController::image() const
{
    return locked([](const DeviceModel& m) { return m.image(); });
}

void VirtualController::setDataBlockByte(std::size_t position, std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setDataBlockByte(position, value); });
}
void VirtualController::setManufacturingDate(int year, int month, int day)
{
    changed([&](DeviceModel& m) { m.setManufacturingDate(year, month, day); });
}
void VirtualController::setDataSerialByte(std::uint8_t value)
{
    changed([&](DeviceModel& m) { m.setDataSerialByte(value); });
}
void VirtualController::setLambdaCalibration(std::uint16_t value)
{
    changed([&](DeviceModel& m) { m.setLambdaCalibration(value); });
}
Bytes VirtualController::dataBlock() const
{
    return locked([](const DeviceModel& m) { return m.dataBlock(); });
}
void VirtualController::setWord(std::uint16_t value)
{
    changed([&](DeviceModel& m) { m.setWord(value); });
}

void VirtualController::setResetDelay(Clock::duration delay)
{
    changed([&](DeviceModel& m) { m.setResetDelay(delay); });
}
void VirtualController::setHandshakeDelay(Clock::duration delay)
{
    changed([&](DeviceModel& m) { m.setHandshakeDelay(delay); });
}
void VirtualController::setLineRate(bool on)
{
    changed([&](DeviceModel& m) { m.setLineRate(on); });
}
void VirtualController::setSilent(bool on)
{
    changed([&](DeviceModel& m) { m.setSilent(on); });
}
void VirtualController::setPacedInput(bool on)
{
    pacedInput_ = on;
    wake();
}
void VirtualController::setFaults(Request request, const AnswerFaults& faults)
{
    changed([&](DeviceModel& m) { m.setFaults(request, faults); });
}
void VirtualController::setBootFaults(const BootFaults& faults)
{
    changed([&](DeviceModel& m) { m.setBootFaults(faults); });
}

Bytes VirtualController::banner() const
{
    return locked([](const DeviceModel& m) { return m.banner(); });
}
void VirtualController::setStreamOnOpen(std::size_t bytes)
{
    changed([&](DeviceModel& m) { m.setStreamOnOpen(bytes); });
}
void VirtualController::streamText(std::size_t bytes)
{
    changed([&](DeviceModel& m) { m.streamText(bytes, Clock::now()); });
}
std::size_t VirtualController::streamedBytes() const
{
    return locked([](const DeviceModel& m) { return m.streamedBytes(); });
}
bool VirtualController::streamFinished() const
{
    std::lock_guard lock(mutex_);
    return !model_.streaming() && unwritten_ == 0;
}
std::vector<std::string> VirtualController::terminalLines() const
{
    return locked([](const DeviceModel& m) { return m.terminalLines(); });
}
std::string VirtualController::partialLine() const
{
    return locked([](const DeviceModel& m) { return m.partialLine(); });
}

void VirtualController::setTunnelMode(bool on)
{
    changed([&](DeviceModel& m) { m.setTunnelMode(on); });
}
void VirtualController::setTunnelFrameRate(double framesPerSecond)
{
    changed([&](DeviceModel& m) { m.setTunnelFrameRate(framesPerSecond); });
}
void VirtualController::tunnelBurst(int n)
{
    changed([&](DeviceModel& m) { m.tunnelBurst(n, Clock::now()); });
}
void VirtualController::tunnelChecksumError()
{
    changed([&](DeviceModel& m) { m.tunnelChecksumError(Clock::now()); });
}
void VirtualController::tunnelSendError(std::uint8_t code)
{
    changed([&](DeviceModel& m) { m.tunnelSendError(code, Clock::now()); });
}
std::vector<Bytes> VirtualController::tunnelBodies() const
{
    return locked([](const DeviceModel& m) { return m.tunnelBodies(); });
}
std::vector<Clock::time_point> VirtualController::tunnelBodyTimes() const
{
    return locked([](const DeviceModel& m) { return m.tunnelBodyTimes(); });
}
std::size_t VirtualController::tunnelBodyCount() const
{
    return locked([](const DeviceModel& m) { return m.tunnelBodyCount(); });
}
int VirtualController::tunnelPackets() const
{
    return locked([](const DeviceModel& m) { return m.tunnelPackets(); });
}
std::size_t VirtualController::tunnelStrayBytes() const
{
    return locked([](const DeviceModel& m) { return m.tunnelStrayBytes(); });
}
std::vector<Bytes> VirtualController::tunnelSentBodies() const
{
    return locked([](const DeviceModel& m) { return m.tunnelSentBodies(); });
}
std::vector<VirtualController::TunnelSent> VirtualController::tunnelSentTimes() const
{
    std::lock_guard lock(mutex_);
    return {sentTimes_.begin(), sentTimes_.end()};
}
std::uint32_t VirtualController::lineBaud() const
{
    const std::uint32_t baud = speedOf(slave_);
    return baud > 0 ? baud : wire::Baud;
}

void VirtualController::unplug()
{
    changed([this](DeviceModel& m) {
        m.unplug();
        unplugRequested_ = true;
    });
    std::unique_lock lock(mutex_);
    if (running_) {
        // The thread closes the line; return only when it has.
        lineClosedCv_.wait_for(lock, std::chrono::seconds(5), [this] { return lineClosed_; });
    } else {
        model_.take(Clock::now());
        closeMaster();
        lineClosed_ = true;
    }
}

bool VirtualController::unplugged() const
{
    return locked([](const DeviceModel& m) { return m.unplugged(); });
}

int VirtualController::requestCount(Request request) const
{
    return locked([&](const DeviceModel& m) { return m.requestCount(request); });
}
Bytes VirtualController::received() const
{
    return locked([](const DeviceModel& m) { return m.received(); });
}
BootReport VirtualController::bootReport() const
{
    return locked([](const DeviceModel& m) { return m.boot(); });
}
Bytes VirtualController::receivedImage() const
{
    return locked([](const DeviceModel& m) { return m.boot().image; });
}
std::uint8_t VirtualController::receivedMode() const
{
    return locked([](const DeviceModel& m) { return m.boot().mode; });
}
int VirtualController::blocksAccepted() const
{
    return locked([](const DeviceModel& m) { return m.boot().blocksAccepted; });
}
int VirtualController::nakCount() const
{
    return locked([](const DeviceModel& m) { return m.boot().naks; });
}
bool VirtualController::transferComplete() const
{
    return locked([](const DeviceModel& m) { return m.boot().complete; });
}
bool VirtualController::transferCancelled() const
{
    return locked([](const DeviceModel& m) { return m.boot().cancelled; });
}

}  // namespace veltro::sim
