#pragma once
// Runs device and network jobs on worker threads and hands each result to the owner's thread.
// The runner waits for jobs that are still running when it is destroyed, so a job never
// outlives the window it reports to.
#include <QObject>
#include <QThread>

#include <functional>
#include <memory>
#include <set>

namespace veltro {

class JobRunner : public QObject {
public:
    explicit JobRunner(QObject* parent = nullptr) : QObject(parent) {}
    ~JobRunner() override
    {
        for (QThread* t : running_) {
            t->wait();
            delete t;
        }
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
