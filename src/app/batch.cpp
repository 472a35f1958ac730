#include "app/batch.h"

#include "app/history.h"
#include "flash/transfer.h"
#include "platform/qt_serial_link.h"
#include "util/runtime_error.h"

#include <QThread>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>

namespace veltro {

Identified identifyAndKeep(SerialLink& link, Reporter& reporter, const std::string& folder)
{
    Identified id;
    id.r = runConnect(link, reporter);
    if (id.r.currentLayout) {
        id.r.savedFile = saveImageFile(folder, id.r.serial, id.r.image);
        if (id.r.savedFile.empty())
            id.imageProblem = "Abbild konnte nicht gespeichert werden: " + folder + "/" + id.r.serial + ".eep";
        id.historyProblem = keepImage(folder, id.r.serial, id.r.image, factsOf(id.r));
    }
    return id;
}

std::string batchLine(const BatchRow& row)
{
    char head[40];
    std::snprintf(head, sizeof head, "Port %2d  %-8s  ", row.port, row.serial.empty() ? "-" : row.serial.c_str());
    std::string line = head;
    if (row.percent >= 0) {
        char percent[16];
        std::snprintf(percent, sizeof percent, "%3d %%", row.percent);
        line += percent;
    } else {
        line += "     ";
    }
    return line + "  " + row.state;
}

namespace {

// A link that the stop request takes away: from then on it reads as lost and refuses to open
// or write, so every exchange ends at its next look at the line, as it does when an adapter is
// pulled out, and closes the port. Its waits are cut into slices so that the look comes soon.
class StoppableLink : public SerialLink {
public:
    StoppableLink(SerialLink& inner, const std::atomic<bool>& stop) : inner_(inner), stop_(stop) {}
    bool open() override { return !stop_ && inner_.open(); }
    void close() override { inner_.close(); }
    bool isOpen() const override { return inner_.isOpen(); }
    std::string errorText() const override { return stop_ ? kBatchStopped : inner_.errorText(); }
    bool lost() const override { return stop_ || inner_.lost(); }
    bool write(const std::uint8_t* data, std::size_t size) override { return !stop_ && inner_.write(data, size); }
    std::size_t bytesWaiting() override { return inner_.bytesWaiting(); }
    std::vector<std::uint8_t> readAll() override { return inner_.readAll(); }
    void discardInput() override { inner_.discardInput(); }
    bool stopped() const { return stop_; }
    bool waitForData(Deadline deadline) override { return inner_.waitForData(std::min(deadline, now() + kSlice)); }

private:
    static constexpr std::chrono::milliseconds kSlice{50};
    SerialLink& inner_;
    const std::atomic<bool>& stop_;
};

struct Shared {
    std::mutex mutex;
    std::condition_variable ended;
    std::vector<BatchRow> rows;
    std::size_t running = 0;
};

// One job's texts into its row. While it identifies, the status texts are its state; during
// the transfer the step lines are, without the two lines of every block (the percent counts
// those).
class RowReporter : public Reporter {
public:
    RowReporter(Shared& shared, std::size_t index) : shared_(shared), index_(index) {}
    template <class F> void change(F f)
    {
        std::lock_guard lock(shared_.mutex);
        f(shared_.rows[index_]);
    }
    void status(const std::string& text) override
    {
        if (!transferring) change([&](BatchRow& r) { r.state = text; });
    }
    void step(const std::string& line) override
    {
        if (line == "ACK" || line == "NAK" || line.rfind("sende Blocknummer", 0) == 0) return;
        change([&](BatchRow& r) { r.state = line; });
    }
    void percent(int) override {}
    bool transferring = false;

private:
    Shared& shared_;
    std::size_t index_;
};

// The outcome of the job on one port: its text, as the window words it, and success.
struct Outcome {
    std::string text;
    bool ok = false;
};

Outcome runJob(const BatchWork& work, StoppableLink& link, RowReporter& reporter)
{
    // A job the stop request ended says so, whatever its last step was.
    const auto failed = [&](const std::string& text) { return Outcome{link.stopped() ? kBatchStopped : text}; };
    const Identified id = identifyAndKeep(link, reporter, work.folder);
    const ConnectResult& r = id.r;
    if (r.connected())
        reporter.change([&](BatchRow& row) { row.serial = r.serial; });
    if (work.job == BatchJob::Identify) {
        if (!r.connected()) {
            const std::string why = linkFailureText(link);
            return failed(r.finalStatus + (why.empty() ? "" : " (" + why + ")"));
        }
        if (!id.imageProblem.empty())
            return failed(id.imageProblem);
        return {r.finalStatus + (id.historyProblem.empty() ? "" : "; " + historyProblemLine(id.historyProblem)), true};
    }
    // A port that would not open is not tried again; a controller that did not answer may be
    // one whose firmware is broken and whose bootloader still answers.
    if (r.outcome == ConnectOutcome::PortFailed)
        return failed(connectProblemText(r));

    const bool firmware = work.job == BatchJob::Firmware;
    TransferParams params = firmware ? TransferParams::firmware() : TransferParams::configuration();
    params.progress = [&](int block, int count) {
        reporter.change([&](BatchRow& row) {
            row.percent = transferPercent(block, count);
            row.halfWritten = true;
        });
    };
    reporter.transferring = true;
    reporter.change([](BatchRow& row) { row.state.clear(); });
    const TransferOutcome outcome = runTransfer(link, work.image, params, reporter);
    Outcome o{{}, outcome == TransferOutcome::Success};
    reporter.change([&](BatchRow& row) { o.text = row.state; });
    // The firmware mode says nothing when the bootloader never got ready; the configuration
    // mode's words say it.
    if (outcome == TransferOutcome::HandshakeTimedOut)
        o.text = "Handshake fehlgeschlagen!";
    if (!o.ok)
        o = failed(o.text);
    if (r.connected())
        if (const std::string why = recordJob(work.folder, r.serial, firmware ? kEventFirmware : kEventUpload,
                                              work.file, factsOf(r).firmware, o.text);
            !why.empty())
            o.text += "; " + historyProblemLine(why);
    return o;
}

void runOnPort(const BatchWork& work, std::size_t index, Shared& shared, const std::atomic<bool>& stop)
{
    const auto start = Clock::now();
    RowReporter reporter(shared, index);
    Outcome o;
    try {
        // Made on this thread: the port lives and dies with the job.
        const auto port = PortSerialLinkFactory().create(work.ports[index]);
        StoppableLink link(*port, stop);
        o = runJob(work, link, reporter);
    } catch (const RuntimeError& e) {
        o.text = e.text();
    } catch (const std::exception& e) {
        o.text = e.what();
    }
    std::lock_guard lock(shared.mutex);
    BatchRow& row = shared.rows[index];
    row.ok = o.ok;
    row.state = o.text;
    row.halfWritten = row.halfWritten && !o.ok;
    row.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    --shared.running;
    shared.ended.notify_all();
}

} // namespace

std::vector<BatchRow> runBatch(const BatchWork& work, const std::atomic<bool>& stop,
                               const std::function<void(const std::vector<BatchRow>&)>& show)
{
    Shared shared;
    for (const int port : work.ports)
        shared.rows.push_back({.port = port, .state = "wartet"});
    shared.running = work.ports.size();
    // QThreads, not bare threads: the serial port's notifiers need a Qt thread.
    std::vector<std::unique_ptr<QThread>> threads;
    for (std::size_t i = 0; i < work.ports.size(); ++i) {
        threads.emplace_back(QThread::create([&work, &shared, &stop, i] { runOnPort(work, i, shared, stop); }));
        threads.back()->start();
    }
    std::vector<BatchRow> rows;
    for (bool last = false; !last;) {
        {
            std::unique_lock lock(shared.mutex);
            last = shared.ended.wait_for(lock, std::chrono::milliseconds(50), [&] { return shared.running == 0; });
            rows = shared.rows;
        }
        show(rows);
    }
    for (auto& t : threads)
        t->wait();
    return rows;
}

} // namespace veltro
