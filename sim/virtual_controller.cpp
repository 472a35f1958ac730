#include "sim/virtual_controller.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
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
    std::array<std::uint8_t, 4096> buf{};
    while (running_) {
        std::optional<Clock::time_point> wakeAt;
        bool looseWake = false;
        bool unplugNow = false;
        {
            std::lock_guard lock(mutex_);
            DeviceModel::Output out = model_.take(Clock::now());
            pending.insert(pending.end(), out.bytes.begin(), out.bytes.end());
            unwritten_ = pending.size();
            wakeAt = out.wake;
            looseWake = out.looseWake;
            unplugNow = out.unplug;
        }
        if (master_ >= 0 && !pending.empty()) {
            const ssize_t n = ::write(master_, pending.data(), pending.size());
            if (n > 0) {
                pending.erase(pending.begin(), pending.begin() + n);
                std::lock_guard lock(mutex_);
                unwritten_ = pending.size();
            }
        }
        if (unplugNow) {
            closeMaster();
            pending.clear();
            {
                std::lock_guard lock(mutex_);
                lineClosed_ = true;
            }
            lineClosedCv_.notify_all();
        }

        std::array<pollfd, 2> fds{};
        fds[0] = {wakeRead_, POLLIN, 0};
        nfds_t count = 1;
        if (master_ >= 0) {
            fds[1] = {master_, static_cast<short>(POLLIN | (pending.empty() ? 0 : POLLOUT)), 0};
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
            const ssize_t n = ::read(master_, buf.data(), buf.size());
            if (n > 0) {
                const Clock::time_point now = Clock::now();
                std::lock_guard lock(mutex_);
                model_.receive(Bytes(buf.begin(), buf.begin() + n), now);
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

void VirtualController::unplug()
{
    changed([](DeviceModel& m) { m.unplug(); });
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
