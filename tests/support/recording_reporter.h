#pragma once
// A Reporter that keeps everything it is told, safe to call from a worker thread.
#include "platform/reporter.h"

#include <QStringList>

#include <mutex>
#include <vector>

namespace veltro::test {

class RecordingReporter : public Reporter {
public:
    void status(const std::string& text) override { keep(statuses_, QString::fromStdString(text)); }
    void step(const std::string& line) override { keep(steps_, QString::fromStdString(line)); }
    void percent(int value) override { keep(percents_, value); }

    QStringList statuses() const { return copy(statuses_); }
    QStringList steps() const { return copy(steps_); }
    std::vector<int> percents() const { return copy(percents_); }
    QString lastStatus() const
    {
        const QStringList all = statuses();
        return all.isEmpty() ? QString() : all.last();
    }

private:
    template <class List, class Value> void keep(List& list, const Value& value)
    {
        std::lock_guard lock(mutex_);
        list.push_back(value);
    }
    template <class List> List copy(const List& list) const
    {
        std::lock_guard lock(mutex_);
        return list;
    }

    mutable std::mutex mutex_;
    QStringList statuses_;
    QStringList steps_;
    std::vector<int> percents_;
};

} // namespace veltro::test
