#pragma once
// A Reporter that a worker thread can call: texts reach the window through queued calls.
// Status texts and percent values are coalesced (only the latest matters to the eye, and a
// job may count through a thousand values); step lines are delivered one by one, in order.
#include "platform/reporter.h"

#include <QObject>
#include <QString>

#include <functional>
#include <mutex>
#include <optional>

namespace veltro {

class WindowReporter : public QObject, public Reporter {
    Q_OBJECT
public:
    using TextSink = std::function<void(const QString&)>;
    using PercentSink = std::function<void(int)>;
    WindowReporter(TextSink status, TextSink step, PercentSink percent, QObject* parent = nullptr);

    void status(const std::string& text) override;
    void step(const std::string& line) override;
    void percent(int value) override;

    // Delivers what is still pending (call on the window's thread when a job has ended).
    void flush();

private:
    void schedule();

    TextSink status_;
    TextSink step_;
    PercentSink percent_;
    std::mutex mutex_;
    std::optional<QString> pendingStatus_;
    std::optional<int> pendingPercent_;
    bool scheduled_ = false;
};

} // namespace veltro
