#pragma once
// Runs device and network jobs on worker threads and hands each result to the owner's thread.
// The runner waits for jobs that are still running when it is destroyed, so a job never
// outlives the window it reports to; only when the tool is closing (every transfer told to
// give up) it waits a moment at most: a worker that cannot end by then (a server that stays
// silent until libcurl next looks) is left to end with the process, its result unused.
#include "platform/cancel.h"

#include <QDeadlineTimer>
#include <QObject>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <set>

namespace veltro {

class JobRunner : public QObject {
public:
    explicit JobRunner(QObject* parent = nullptr) : QObject(parent) {}
    ~JobRunner() override
    {
        const QDeadlineTimer closing(transfersCancelled() ? kClosingWaitMs : QDeadlineTimer::Forever);
        for (QThread* t : running_) {
            if (t->wait(closing))
                delete t;
            else
                abandoned().fetch_add(1);
        }
    }
    // How long a closing tool waits for its workers, all together.
    static constexpr int kClosingWaitMs = 300;
    // Workers left running by runners that were destroyed while the tool was closing.
    static std::atomic<int>& abandoned()
    {
        static std::atomic<int> count{0};
        return count;
    }

    template <typename Result>
    void run(std::function<Result()> work, std::function<void(Result)> done)
    {
        auto result = std::make_shared<Result>();
        QThread* thread = QThread::create([work = std::move(work), result] { *result = work(); });
        running_.insert(thread);
        connect(thread, &QThread::finished, this, [this, thread, result, done = std::move(done)] {
            running_.erase(thread);
            thread->deleteLater();
            done(std::move(*result));
        });
        thread->start();
    }

    int runningCount() const { return int(running_.size()); }

private:
    std::set<QThread*> running_;
};

} // namespace veltro
