// Round trip of short lines through the remote service: the service server sends "PING nnnn"
// and CR, the tool passes it to the controller's terminal, the controller answers
// "\r\nOK PING nnnn\r\n> " and the tool passes that back (server -> tool -> device -> tool ->
// server). The same lines also go through a bare relay, socat between a second controller's
// pty and TCP, in the same run. 2,000 timed lines per path after 50 warm-up lines, one line in
// flight at a time, in alternating blocks of 500 (tool, relay, relay, tool, ...) so a busy
// moment of the machine falls on both alike. Prints p50, p90, p99 and max per path and the
// p99 ratio against the target: within 1.5 x the bare relay's p99, and under 2 ms.
// The service servers and the web server that hands out the connection record run on their
// own threads with plain sockets, so the window's event loop serves only the tool.
// Exits 1 only when a path does not work (no connection, a reply missing for 5 s).
#include "bench_support.h"
#include "app/window/main_window.h"
#include "terminal_window.h"
#include "platform/tcp_client.h"
#include "sim/virtual_controller.h"

#include <QApplication>
#include <QLabel>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <arpa/inet.h>
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
#include <string>
#include <thread>
#include <vector>

extern char** environ;

using namespace veltro;
using veltro::bench::listenLocal;
using veltro::bench::percentile;
using Clock = std::chrono::steady_clock;

namespace {
constexpr int kLines = 2000, kWarmUp = 50, kBlocks = 4;
constexpr int kWaitMs = 5000;

// The next connection within `ms`, with Nagle off; -1 when none came.
int acceptWithin(int listenFd, int ms)
{
    pollfd p{listenFd, POLLIN, 0};
    if (::poll(&p, 1, ms) != 1)
        return -1;
    const int fd = ::accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    const int one = 1;
    if (fd >= 0)
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return fd;
}

std::string visible(std::string bytes)
{
    for (std::size_t at; (at = bytes.find_first_of("\r\n")) != std::string::npos;)
        bytes.replace(at, 1, bytes[at] == '\r' ? "\\r" : "\\n");
    return bytes;
}

// The web server: answers every request with the connection record until stopped.
struct RecordServer {
    int listenFd = -1;
    std::string record;
    std::string request;  // the first line of the last request; read it after stop()
    std::atomic<bool> stopping{false};
    std::thread thread;

    ~RecordServer() { stop(); }
    void start()
    {
        thread = std::thread([this] {
            while (!stopping) {
                const int fd = acceptWithin(listenFd, 100);
                if (fd < 0)
                    continue;
                std::string in;
                char buf[1024];
                pollfd p{fd, POLLIN, 0};
                while (in.find("\r\n\r\n") == std::string::npos && ::poll(&p, 1, kWaitMs) == 1) {
                    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
                    if (n <= 0)
                        break;
                    in.append(buf, std::size_t(n));
                }
                request = in.substr(0, in.find("\r\n"));
                const std::string out = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(record.size()) +
                                        "\r\nConnection: close\r\n\r\n" + record;
                ::send(fd, out.data(), out.size(), MSG_NOSIGNAL);
                ::close(fd);
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

// One service server connection and its round-trip times.
struct Path {
    const char* name;
    int fd = -1;
    std::string pending;  // bytes after the last complete answer
    std::vector<double> ms;

    // Sends `line` with CR and waits for the controller's whole answer. False with `why` set
    // when it does not come within 5 s or the connection breaks.
    bool roundTrip(const std::string& line, bool timed, std::string& why)
    {
        const std::string expected = "\r\nOK " + line + "\r\n> ";
        const std::string out = line + "\r";
        const auto start = Clock::now();
        const auto deadline = start + std::chrono::milliseconds(kWaitMs);
        if (::send(fd, out.data(), out.size(), MSG_NOSIGNAL) != ssize_t(out.size())) {
            why = std::string(name) + ": sending \"" + line + "\" failed";
            return false;
        }
        std::size_t at;
        char buf[512];
        while ((at = pending.find(expected)) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            pollfd p{fd, POLLIN, 0};
            if (left <= 0 || ::poll(&p, 1, int(left)) != 1) {
                why = std::string(name) + ": no answer to \"" + line + "\" within 5 s, received \"" +
                      visible(pending) + "\"";
                return false;
            }
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n <= 0) {
                why = std::string(name) + ": the connection closed while waiting for \"" + line + "\"";
                return false;
            }
            pending.append(buf, std::size_t(n));
        }
        if (timed)
            ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        pending.erase(0, at + expected.size());
        return true;
    }
};

std::string lineText(const char* word, int n)
{
    char text[32];
    std::snprintf(text, sizeof text, "%s %04d", word, n);
    return text;
}

// Nearest-rank percentile of sorted values.
// Prints the figures of one path and returns its p99.
double printPath(const char* label, std::vector<double> ms)
{
    std::sort(ms.begin(), ms.end());
    const double p99 = percentile(ms, 0.99);
    std::printf("  %-38s lines %zu  p50 %.3f ms  p90 %.3f ms  p99 %.3f ms  max %.3f ms\n", label, ms.size(),
                percentile(ms, 0.50), percentile(ms, 0.90), p99, ms.back());
    return p99;
}
} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const char* socat = "/usr/bin/socat";
    if (::access(socat, X_OK) != 0) {
        std::fprintf(stderr, "bench_remote: %s not found; the bare relay needs it (apt-get install socat)\n", socat);
        return 1;
    }
    QTemporaryDir home;
    sim::VirtualController device, bareDevice;
    device.start();
    bareDevice.start();

    Path tool{"tool"}, relay{"bare relay"};
    int toolPort = 0, relayPort = 0, webPort = 0;
    const int toolListen = listenLocal(toolPort), relayListen = listenLocal(relayPort);
    RecordServer web;
    web.listenFd = listenLocal(webPort);
    if (toolListen < 0 || relayListen < 0 || web.listenFd < 0) {
        std::fprintf(stderr, "bench_remote: cannot listen on 127.0.0.1\n");
        return 1;
    }
    web.record = "127,0,0,1," + std::to_string(toolPort) + ",921600,0";
    web.start();

    ::setenv("VELTRO_WEB_HTTP", ("http://127.0.0.1:" + std::to_string(webPort)).c_str(), 1);
    MainWindow w;
    if (!openTerminalWindow(w, device.path(), home.path().toStdString()))
        return 1;
    QSignalSpy handled(w.telnet, &TerminalPanel::remoteRecordHandled);
    w.telnet->Command9_Click();
    if (!handled.wait(10000) || !QTest::qWaitFor([&] { return w.state.laststatus == "7"; }, kWaitMs)) {
        web.stop();
        std::fprintf(stderr, "bench_remote: the tool did not connect to the service server at port %d "
                             "(laststatus %s, web server saw \"%s\")\n",
                     toolPort, qPrintable(w.state.laststatus), web.request.c_str());
        return 1;
    }

    // The bare relay: socat between the second controller's pty and the second server.
    const std::string target = "TCP:127.0.0.1:" + std::to_string(relayPort) + ",nodelay";
    const std::string file = "FILE:" + bareDevice.path() + ",raw,echo=0";
    char* args[] = {const_cast<char*>("socat"), const_cast<char*>(target.c_str()), const_cast<char*>(file.c_str()),
                    nullptr};
    pid_t socatPid = -1;
    if (::posix_spawn(&socatPid, socat, nullptr, nullptr, args, environ) != 0) {
        std::fprintf(stderr, "bench_remote: cannot start %s\n", socat);
        return 1;
    }

    std::string why;
    std::thread server([&] {
        const auto run = [&] {
            if ((tool.fd = acceptWithin(toolListen, kWaitMs)) < 0)
                return why = "the tool's connection did not reach the service server", false;
            if ((relay.fd = acceptWithin(relayListen, kWaitMs)) < 0)
                return why = "socat did not connect to the relay's server", false;
            for (Path* p : {&tool, &relay})
                for (int i = 1; i <= kWarmUp; ++i)
                    if (!p->roundTrip(lineText("WARM", i), false, why))
                        return false;
            // Blocks in the order tool, relay, relay, tool, ...: neither path always goes first.
            const int perBlock = kLines / kBlocks;
            for (int b = 0; b < kBlocks; ++b) {
                Path* order[2] = {&tool, &relay};
                if (b % 2)
                    std::swap(order[0], order[1]);
                for (Path* p : order)
                    for (int i = b * perBlock + 1; i <= (b + 1) * perBlock; ++i)
                        if (!p->roundTrip(lineText("PING", i), true, why))
                            return false;
            }
            return true;
        };
        run();
        QMetaObject::invokeMethod(&app, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    std::printf("remote service round trip, %d lines \"PING nnnn\" per path after %d warm-up, %d blocks each\n",
                kLines, kWarmUp, kBlocks);
    std::fflush(stdout);
    app.exec();
    server.join();

    int socatStatus = 0;
    const bool socatEnded = ::waitpid(socatPid, &socatStatus, WNOHANG) == socatPid;
    if (!socatEnded) {
        ::kill(socatPid, SIGTERM);
        ::waitpid(socatPid, nullptr, 0);
    }
    ::close(tool.fd);
    ::close(relay.fd);
    web.stop();
    if (!why.empty()) {
        std::fprintf(stderr, "bench_remote: %s%s\n", why.c_str(),
                     socatEnded ? " (socat had already ended)" : "");
        return 1;
    }

    const double toolP99 = printPath("tool (server-tool-device-tool-server)", tool.ms);
    const double relayP99 = printPath("bare relay (socat)", relay.ms);
    const double ratio = toolP99 / relayP99;
    std::printf("  p99 ratio tool / bare relay: %.2f x\n", ratio);
    std::printf("  target: p99 within 1.5 x the bare relay's p99, and under 2 ms: %.2f x, %.3f ms (%s)\n", ratio,
                toolP99, ratio <= 1.5 && toolP99 < 2.0 ? "met" : "missed");
    return 0;
}
