#pragma once
// A Reporter that keeps everything it is told, safe to call from a worker thread.
#include "platform/reporter.h"

#include <QStringList>

#include <mutex>
#include <vector>

namespace veltro::test {

class RecordingReporter : public Reporter {
public:
    void status(const std::string& text) override
    {
        std::lock_guard lock(mutex_);
        statuses_ << QString::fromStdString(text);
    }
    void step(const std::string& line) override
    {
        std::lock_guard lock(mutex_);
        steps_ << QString::fromStdString(line);
    }
    void percent(int value) override
    {
        std::lock_guard lock(mutex_);
        percents_.push_back(value);
    }
    QStringList statuses() const
    {
        std::lock_guard lock(mutex_);
        return statuses_;
    }
    QStringList steps() const
    {
        std::lock_guard lock(mutex_);
        return steps_;
    }
    std::vector<int> percents() const
    {
        std::lock_guard lock(mutex_);
        return percents_;
    }
    QString lastStatus() const
    {
        std::lock_guard lock(mutex_);
        return statuses_.isEmpty() ? QString() : statuses_.last();
    }

private:
    mutable std::mutex mutex_;
    QStringList statuses_;
    QStringList steps_;
    std::vector<int> percents_;
};

} // namespace veltro::test
