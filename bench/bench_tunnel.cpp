// The CAN-bus tunnel's relay under load: TunnelLink on a thread of its own, as the tunnel window
// runs it, between a virtual controller on a pty (tunnel mode; it takes bytes no faster than
// its 921,600-baud line carries them) and a tunnel server on TCP. The same traffic also goes
// through a bare relay, socat between a second controller's pty and a second server, in the
// same run. Four runs, each for the tool and for socat, which of them first alternating:
//   a) device -> server: frames at the line's highest rate (5,420 a second) for 3 s
//   b) device -> server: 40 bursts of 100 frames back to back, 50 ms apart
//   c) server -> device: 58,254 messages (1 MB as "CAN" + body) handed to the socket at once
//   d) server -> device: 10 s of messages at 51,200 a second, ten times what the line carries
// The server sends the tool "CAN" + body per message, socat "}" + body (the device's own
// framing, since socat passes bytes as they are). Bodies are the controller's test bodies, so
// each message carries its number: a message counts as delivered when it arrives whole, with
// the right body, and after every message numbered before it that arrived. A run ends when all
// that was sent has arrived, or nothing has arrived for 3 s, or after a drain of 60 s at most.
// Per run and path: sent, delivered, lost (sent - delivered), bad (garbled, repeated or out of
// order), the tool's own counts over the run (from its last TunnelEvents), and latency p50 and
// p99: device -> server from the controller handing a record to the pty to the server's read
// of the message; server -> device from the server's write that completed the message to the
// controller completing the body (at the time its last byte crossed the line). In c) and d)
// the line is the bottleneck, so their latency is mostly queueing: printed, not held to a
// target. Peak RSS is the process's high-water mark during a run above its resident size at
// the run's start (the heap given back first), so what earlier runs left in the virtual
// controllers' records does not count against a later one; what a run adds to those records
// does, and socat's rows show that part alone. socat's own memory is in its own process
// (printed at the end, with the peak of all runs above the idle size before the first).
// The servers' send buffers are fixed at 64 KB, so what waits in them drains within seconds.
// Prints a last line with the targets: 0 lost in every run; p99 in a) and b) within 1.5 x the
// bare relay's and under 2 ms; peak RSS no more than 30 MB above idle.
// Exits 1 only when a path does not work at all (no connection, no frame through it).
#include "bench_support.h"
#include "remote/tunnel_link.h"
#include "sim/virtual_controller.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QThread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

using namespace veltro;
using veltro::bench::listenLocal;
using veltro::bench::percentile;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

constexpr int kBaud = 921600;
constexpr double kFloodRate = 51'200;          // messages a second in run d
constexpr std::size_t kBody = 15;
constexpr std::size_t kChunkBytes = 1 << 20;
constexpr std::size_t kFloodWrite = 64 * 1024;  // at most this much per write in a flood
constexpr auto kConnectWait = 5s;
constexpr auto kQuiet = 3s;         // a run ends when nothing has arrived for this long
constexpr auto kMaxDrain = 60s;     // or at the latest this long after the last message went out
constexpr std::size_t kMaxReceived = 200'000;  // messages the servers record, all runs together
constexpr std::size_t kMaxSent = 600'000;      // messages one server -> device run can send

std::int64_t nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count();
}
std::int64_t ns(Clock::time_point t)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

// A field of /proc/<who>/status in kB; -1 when it cannot be read.
long statusKb(const std::string& who, const char* key)
{
    std::ifstream in("/proc/" + who + "/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(key, 0) == 0)
            return std::strtol(line.c_str() + std::strlen(key), nullptr, 10);
    return -1;
}
// Starts the high-water mark of the resident size afresh (Linux 4.0 on); false when refused.
bool resetPeak()
{
    std::ofstream out("/proc/self/clear_refs");
    out << "5";
    out.flush();
    return bool(out);
}
// The resident size now, with the heap the last run's figures left behind given back, and
// the high-water mark started afresh from it.
long runStartKb()
{
    ::malloc_trim(0);
    const long kb = statusKb("self", "VmRSS:");
    resetPeak();
    return kb;
}

// The next connection within `wait`: non-blocking, Nagle off, a 64 KB send buffer; -1 when
// none came.
int acceptWithin(int listenFd, std::chrono::milliseconds wait)
{
    pollfd p{listenFd, POLLIN, 0};
    if (::poll(&p, 1, int(wait.count())) != 1)
        return -1;
    const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return -1;
    const int one = 1, sendBuffer = 64 * 1024;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    return fd;
}

std::uint32_t numberOf(const std::uint8_t* body)
{
    return std::uint32_t(body[0]) << 24 | std::uint32_t(body[1]) << 16 | std::uint32_t(body[2]) << 8 | body[3];
}
bool isTestBody(const std::uint8_t* body)
{
    const sim::Bytes expected = sim::VirtualController::tunnelFrameBody(numberOf(body));
    return std::equal(expected.begin(), expected.end(), body);
}

// A tunnel server's connection: a thread reads it all the time and records each message
// (prefix + 15-byte body) with the time it was read; bytes that start no message are skipped.
struct Server {
    struct Message {
        std::uint32_t number = 0;
        bool whole = false;  // the body is the test body of its number
        std::int64_t at = 0;
    };
    std::string prefix;  // "CAN" from the tool, "}x" through socat
    int fd = -1;
    std::vector<Message> messages = std::vector<Message>(kMaxReceived);
    std::atomic<std::size_t> count{0};
    std::atomic<std::size_t> skipped{0};  // bytes, and messages beyond kMaxReceived
    std::atomic<bool> stopping{false};
    std::atomic<bool> closed{false};
    std::thread thread;

    void start()
    {
        thread = std::thread([this] {
            std::string pending;
            std::vector<char> buf(64 * 1024);
            const std::size_t size = prefix.size() + kBody;
            while (!stopping) {
                pollfd p{fd, POLLIN, 0};
                if (::poll(&p, 1, 100) != 1)
                    continue;
                const ssize_t n = ::recv(fd, buf.data(), buf.size(), 0);
                if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                    closed = true;
                    return;
                }
                if (n < 0)
                    continue;
                const std::int64_t at = nowNs();
                pending.append(buf.data(), std::size_t(n));
                std::size_t pos = 0;
                while (pending.size() - pos >= size) {
                    if (pending.compare(pos, prefix.size(), prefix) != 0) {
                        ++skipped, ++pos;
                        continue;
                    }
                    const auto* body = reinterpret_cast<const std::uint8_t*>(pending.data() + pos + prefix.size());
                    const std::size_t i = count.load(std::memory_order_relaxed);
                    if (i < messages.size()) {
                        messages[i] = {numberOf(body), isTestBody(body), at};
                        count.store(i + 1, std::memory_order_release);
                    } else {
                        ++skipped;
                    }
                    pos += size;
                }
                pending.erase(0, pos);
            }
        });
    }
    void stop()
    {
        stopping = true;
        if (thread.joinable())
            thread.join();
    }
};

// Everything the bench measures one path with.
struct Path {
    const char* name = "";
    bool tool = false;
    std::string toDevicePrefix;  // what the server puts before each body
    sim::VirtualController device;
    Server server;
};

// The tool's counts, as its last batch of events said.
struct ToolCounts {
    std::mutex mutex;
    RelayCounts last;
    RelayCounts get()
    {
        std::lock_guard lock(mutex);
        return last;
    }
};

struct Result {
    std::size_t sent = 0, delivered = 0, bad = 0;
    std::size_t dropped = 0;  // frames the controller could not put into a full pty
    std::optional<double> p50, p99;  // ms
    std::optional<RelayCounts> counts;  // the tool's, over the run
    long startKb = 0;                   // resident size at the run's start
    long peakKb = 0;                    // the run's high-water mark
};

void setLatency(Result& r, std::vector<double> ms)
{
    if (ms.empty())
        return;
    std::sort(ms.begin(), ms.end());
    r.p50 = percentile(ms, 0.50);
    r.p99 = percentile(ms, 0.99);
}

// Waits until `arrived()` reaches `expected()`, or nothing new has arrived for kQuiet, or
// `latest` has passed.
template <class Arrived, class Expected>
void drain(Arrived arrived, Expected expected, Clock::time_point latest)
{
    std::size_t seen = arrived();
    Clock::time_point lastChange = Clock::now();
    while (Clock::now() < latest) {
        std::this_thread::sleep_for(20ms);
        const std::size_t now = arrived();
        if (now >= expected())
            return;
        if (now != seen)
            seen = now, lastChange = Clock::now();
        else if (Clock::now() - lastChange > kQuiet)
            return;
    }
}

// Device -> server: `drive` makes the controller send; afterwards every record it handed to
// the pty is looked for at the server.
template <class Drive>
Result deviceToServer(Path& p, Drive drive)
{
    const std::size_t sentBefore = p.device.tunnelSentTimes().size();
    const std::size_t receivedBefore = p.server.count.load();
    Result r;
    r.startKb = runStartKb();
    drive(p.device);
    const auto sentCount = [&] { return p.device.tunnelSentTimes().size() - sentBefore; };
    const auto received = [&] { return p.server.count.load(std::memory_order_acquire) - receivedBefore; };
    drain(received, sentCount, Clock::now() + kMaxDrain);
    r.peakKb = statusKb("self", "VmHWM:");

    const std::vector<sim::VirtualController::TunnelSent> all = p.device.tunnelSentTimes();
    const std::vector<sim::VirtualController::TunnelSent> sent(all.begin() + std::ptrdiff_t(sentBefore), all.end());
    r.sent = sent.size();
    if (!sent.empty())
        r.dropped = sent.back().frame - sent.front().frame + 1 - sent.size();
    const std::size_t end = p.server.count.load(std::memory_order_acquire);
    std::vector<double> ms;
    std::optional<std::uint32_t> last;
    for (std::size_t i = receivedBefore; i < end; ++i) {
        const Server::Message& m = p.server.messages[i];
        const auto it = std::lower_bound(sent.begin(), sent.end(), m.number,
                                         [](const auto& s, std::uint32_t k) { return s.frame < k; });
        if (!m.whole || it == sent.end() || it->frame != m.number || (last && m.number <= *last)) {
            ++r.bad;
            continue;
        }
        last = m.number;
        ++r.delivered;
        ms.push_back(double(m.at - ns(it->at)) / 1e6);
    }
    setLatency(r, std::move(ms));
    return r;
}

// Server -> device: messages `base`, `base` + 1, ... at `rate` a second for `duration`, or, with
// rate 0, `count` of them handed to the socket at once. Each is stamped when the write that
// completed it returned. Afterwards every body the controller completed is looked for.
Result serverToDevice(Path& p, std::vector<std::int64_t>& sentAt, std::vector<char>& out,
                      std::uint32_t base, double rate, std::chrono::milliseconds duration, std::size_t count)
{
    // A body cut off by an earlier run would swallow this run's first packet start.
    p.device.setTunnelMode(false);
    p.device.setTunnelMode(true);
    const std::size_t bodiesBefore = p.device.tunnelBodyCount();
    const std::size_t size = p.toDevicePrefix.size() + kBody;
    const std::size_t perWrite = rate > 0 ? kFloodWrite / size : count;
    std::size_t made = 0, sent = 0;  // messages put into `out`, messages completely written
    std::size_t outEnd = 0, outPos = 0;
    const auto fill = [&](std::size_t n) {
        n = std::min({n, perWrite, sentAt.size() - made});
        outEnd = outPos = 0;
        for (std::size_t i = 0; i < n; ++i, ++made) {
            std::memcpy(out.data() + outEnd, p.toDevicePrefix.data(), p.toDevicePrefix.size());
            const sim::Bytes body = sim::VirtualController::tunnelFrameBody(base + std::uint32_t(made));
            std::memcpy(out.data() + outEnd + p.toDevicePrefix.size(), body.data(), kBody);
            outEnd += size;
        }
    };

    Result r;
    r.startKb = runStartKb();
    const Clock::time_point start = Clock::now();
    const Clock::time_point stopMaking = rate > 0 ? start + duration : start;
    const Clock::time_point giveUp = start + duration + kMaxDrain;
    if (rate <= 0)
        fill(count);
    bool broken = false;
    while (!broken) {
        const Clock::time_point now = Clock::now();
        if (outPos == outEnd) {
            if (now >= stopMaking && (rate > 0 || made == count))
                break;
            const auto due = std::size_t(std::chrono::duration<double>(now - start).count() * rate);
            if (due > made)
                fill(due - made);
            if (outPos == outEnd) {
                std::this_thread::sleep_for(1ms);
                continue;
            }
        }
        if (now >= giveUp)
            break;
        const ssize_t n = ::send(p.server.fd, out.data() + outPos, outEnd - outPos, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            outPos += std::size_t(n);
            const std::int64_t at = nowNs();
            const std::size_t complete = made - (outEnd - outPos + size - 1) / size;
            for (; sent < complete; ++sent)
                sentAt[sent] = at;
        } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
            broken = true;
        } else {
            pollfd q{p.server.fd, POLLOUT, 0};
            ::poll(&q, 1, 1);
        }
    }
    const auto bodies = [&] { return p.device.tunnelBodyCount() - bodiesBefore; };
    drain(bodies, [&] { return sent; }, Clock::now() + kMaxDrain);
    r.peakKb = statusKb("self", "VmHWM:");
    r.sent = sent;

    const std::vector<sim::Bytes> got = p.device.tunnelBodies();
    const std::vector<Clock::time_point> times = p.device.tunnelBodyTimes();
    const std::size_t first = bodiesBefore - (p.device.tunnelBodyCount() - got.size());
    std::vector<double> ms;
    std::optional<std::uint32_t> last;
    for (std::size_t i = first; i < got.size(); ++i) {
        const std::uint32_t k = numberOf(got[i].data());
        if (!isTestBody(got[i].data()) || k < base || k - base >= sent || (last && k <= *last)) {
            ++r.bad;
            continue;
        }
        last = k;
        ++r.delivered;
        ms.push_back(double(ns(times[i]) - sentAt[k - base]) / 1e6);
    }
    setLatency(r, std::move(ms));
    return r;
}

RelayCounts minus(const RelayCounts& a, const RelayCounts& b)
{
    RelayCounts d;
    d.relayed = a.relayed - b.relayed;
    d.refused = a.refused - b.refused;
    d.toDevice = a.toDevice - b.toDevice;
    d.lost = a.lost - b.lost;
    return d;
}

std::string msText(const std::optional<double>& v)
{
    char text[32];
    if (!v)
        return "-";
    std::snprintf(text, sizeof text, "%.3f ms", *v);
    return text;
}

void print(const Path& p, const Result& r)
{
    std::printf("  %-10s sent %6zu  delivered %6zu  lost %6zd  bad %zu  p50 %s  p99 %s  peak RSS %+.1f MB\n", p.name,
                r.sent, r.delivered, static_cast<ssize_t>(r.sent - r.delivered), r.bad, msText(r.p50).c_str(),
                msText(r.p99).c_str(), double(r.peakKb - r.startKb) / 1024);
    if (r.dropped > 0)
        std::printf("  %-10s the controller dropped %zu frames it could not put into the full pty (not in sent)\n", "",
                    r.dropped);
    if (r.counts)
        std::printf("  %-10s counts over the run: Zum Server %ld  nicht gesendet %ld  Zum Gerät %ld  Verloren %ld\n", "",
                    r.counts->relayed, r.counts->refused, r.counts->toDevice, r.counts->lost);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const char* socat = "/usr/bin/socat";
    if (::access(socat, X_OK) != 0) {
        std::fprintf(stderr, "bench_tunnel: %s not found; the bare relay needs it (apt-get install socat)\n", socat);
        return 1;
    }
    QTemporaryDir home;
    Path tool, bare;
    tool.name = "tool";
    tool.tool = true;
    tool.toDevicePrefix = "CAN";
    tool.server.prefix = "CAN";
    bare.name = "bare relay";
    bare.toDevicePrefix = "}";
    bare.server.prefix = "}x";
    for (Path* p : {&tool, &bare}) {
        p->device.setTunnelMode(true);
        p->device.setPacedInput(true);
        p->device.start();
    }
    int toolPort = 0, barePort = 0;
    const int toolListen = listenLocal(toolPort), bareListen = listenLocal(barePort);
    if (toolListen < 0 || bareListen < 0) {
        std::fprintf(stderr, "bench_tunnel: cannot listen on 127.0.0.1\n");
        return 1;
    }

    // The tool's relay on its own thread, as the tunnel window runs it.
    QThread relayThread;
    relayThread.setObjectName("tunnel relay");
    auto* link = new TunnelLink;
    link->moveToThread(&relayThread);
    QObject::connect(&relayThread, &QThread::finished, link, &QObject::deleteLater);
    ToolCounts toolCounts;
    QObject::connect(
        link, &TunnelLink::events, link,
        [&toolCounts](const TunnelEvents& batch) {
            std::lock_guard lock(toolCounts.mutex);
            toolCounts.last = batch.counts;
        },
        Qt::DirectConnection);
    relayThread.start();
    const QString logPath = home.filePath("CAN_LOG.txt");
    const QString ptyPath = QString::fromStdString(tool.device.path());
    QMetaObject::invokeMethod(link, [link, toolPort, ptyPath, logPath] {
        link->setLoopback(false);
        link->open("127.0.0.1", toolPort, ptyPath, kBaud, logPath);
    });
    tool.server.fd = acceptWithin(toolListen, kConnectWait);

    // The bare relay: socat between the second controller's pty, at the same speed, and the
    // second server.
    const std::string file = "FILE:" + bare.device.path() + ",raw,echo=0,b921600";
    const std::string target = "TCP:127.0.0.1:" + std::to_string(barePort) + ",nodelay";
    char* args[] = {const_cast<char*>("socat"), const_cast<char*>(file.c_str()), const_cast<char*>(target.c_str()),
                    nullptr};
    pid_t socatPid = -1;
    if (::posix_spawn(&socatPid, socat, nullptr, nullptr, args, environ) != 0) {
        std::fprintf(stderr, "bench_tunnel: cannot start %s\n", socat);
        return 1;
    }
    bare.server.fd = acceptWithin(bareListen, kConnectWait);

    int status = 0;
    const auto finish = [&] {
        for (Path* p : {&tool, &bare})
            p->server.stop();
        QMetaObject::invokeMethod(link, &TunnelLink::close, Qt::BlockingQueuedConnection);
        relayThread.quit();
        relayThread.wait();
        if (::waitpid(socatPid, nullptr, WNOHANG) != socatPid) {
            ::kill(socatPid, SIGTERM);
            ::waitpid(socatPid, nullptr, 0);
        }
        for (int fd : {tool.server.fd, bare.server.fd, toolListen, bareListen})
            if (fd >= 0)
                ::close(fd);
        return status;
    };
    const Clock::time_point connectBy = Clock::now() + kConnectWait;
    while (link->state() != 7 && Clock::now() < connectBy)
        std::this_thread::sleep_for(10ms);
    if (tool.server.fd < 0 || link->state() != 7 || bare.server.fd < 0) {
        std::fprintf(stderr, "bench_tunnel: %s\n",
                     tool.server.fd < 0 || link->state() != 7 ? "the tool did not connect to the tunnel server"
                                                              : "socat did not connect to the bare relay's server");
        status = 1;
        return finish();
    }
    for (Path* p : {&tool, &bare})
        p->server.start();

    // A few frames through each path first: a path that passes none does not work.
    for (Path* p : {&tool, &bare}) {
        p->device.tunnelBurst(10);
        const Clock::time_point by = Clock::now() + kConnectWait;
        while (p->server.count.load() < 10 && Clock::now() < by)
            std::this_thread::sleep_for(10ms);
        if (p->server.count.load() == 0) {
            std::fprintf(stderr, "bench_tunnel: no frame came through the %s within 5 s\n", p->name);
            status = 1;
            return finish();
        }
    }

    // Everything a run records is in place before the resident size counts as idle.
    std::vector<std::int64_t> sentAt(kMaxSent, 0);
    std::vector<char> out(kChunkBytes + 64, 0);
    std::this_thread::sleep_for(200ms);
    const long idleKb = runStartKb();
    const bool peakPerRun = resetPeak();
    std::printf("CAN-bus tunnel relay at %d baud, the tool (TunnelLink) and a bare relay (socat) in turn; "
                "idle RSS %.1f MB; peak RSS per run above the run's start%s\n",
                kBaud, double(idleKb) / 1024, peakPerRun ? "" : " (not resettable here: cumulative)");
    std::fflush(stdout);

    struct Run {
        const char* title;
        std::function<Result(Path&)> run;
    };
    const std::size_t chunkMessages = kChunkBytes / (3 + kBody);  // through socat the same messages, 15/16 MB
    const std::vector<Run> runs = {
        {"a) device -> server, 5,420 frames/s for 3 s",
         [&](Path& p) {
             return deviceToServer(p, [](sim::VirtualController& d) {
                 d.setTunnelFrameRate(5420);
                 std::this_thread::sleep_for(3s);
                 d.setTunnelFrameRate(0);
             });
         }},
        {"b) device -> server, 40 bursts of 100 frames, 50 ms apart",
         [&](Path& p) {
             return deviceToServer(p, [](sim::VirtualController& d) {
                 for (int i = 0; i < 40; ++i) {
                     d.tunnelBurst(100);
                     std::this_thread::sleep_for(50ms);
                 }
             });
         }},
        {"c) server -> device, one 1 MB chunk written at once",
         [&](Path& p) {
             return serverToDevice(p, sentAt, out, 1'000'000, 0, 0ms, chunkMessages);
         }},
        {"d) server -> device, 51,200 messages/s for 10 s (the line carries about 5,120)",
         [&](Path& p) { return serverToDevice(p, sentAt, out, 2'000'000, kFloodRate, 10'000ms, 0); }},
    };

    bool noLoss = true, latencyMet = true;
    long toolPeakKb = 0, allPeakKb = 0;
    std::string latencyText;
    for (std::size_t i = 0; i < runs.size(); ++i) {
        std::printf("%s\n", runs[i].title);
        std::fflush(stdout);
        Result results[2];
        // Alternate which path goes first, so a busy moment of the machine falls on both alike.
        Path* order[2] = {&tool, &bare};
        if (i % 2)
            std::swap(order[0], order[1]);
        for (Path* p : order) {
            const RelayCounts before = toolCounts.get();
            Result r = runs[i].run(*p);
            if (p->tool) {
                std::this_thread::sleep_for(200ms);  // the batch with the last counts
                r.counts = minus(toolCounts.get(), before);
            }
            results[p->tool ? 0 : 1] = r;
        }
        for (Path* p : {&tool, &bare})
            print(*p, results[p->tool ? 0 : 1]);
        const Result& t = results[0];
        const Result& b = results[1];
        noLoss = noLoss && t.delivered == t.sent && t.bad == 0;
        toolPeakKb = std::max(toolPeakKb, t.peakKb - t.startKb);
        allPeakKb = std::max({allPeakKb, t.peakKb, b.peakKb});
        if (t.p99 && b.p99) {
            char text[96];
            std::snprintf(text, sizeof text, "%s%c) %.2f x, %.3f ms", latencyText.empty() ? "" : "; ",
                          runs[i].title[0], *t.p99 / *b.p99, *t.p99);
            if (i < 2) {
                latencyText += text;
                latencyMet = latencyMet && *t.p99 <= 1.5 * *b.p99 && *t.p99 < 2.0;
            }
            std::printf("  p99 ratio tool / bare relay: %.2f x%s\n", *t.p99 / *b.p99,
                        i < 2 ? "" : " (queueing on a full line; not held to the latency target)");
        } else if (i < 2) {
            latencyMet = false;
        }
        std::fflush(stdout);
    }
    for (Path* p : {&tool, &bare})
        if (p->server.closed)
            std::printf("note: the %s's connection was closed during the runs\n", p->name);
    std::printf("peak RSS of all runs %.1f MB above idle (with the virtual controllers' records of every run); "
                "socat's own peak RSS (its own process) %.1f MB\n",
                double(allPeakKb - idleKb) / 1024, double(statusKb(std::to_string(socatPid), "VmHWM:")) / 1024);
    std::printf("targets: 0 lost in every run (%s); p99 in a) and b) within 1.5 x the bare relay's and under 2 ms "
                "(%s: %s); peak RSS no more than 30 MB above idle (the tool's runs: %.1f MB: %s)\n",
                noLoss ? "met" : "missed", latencyText.c_str(), latencyMet ? "met" : "missed",
                double(toolPeakKb) / 1024, toolPeakKb <= 30 * 1024 ? "met" : "missed");
    return finish();
}
