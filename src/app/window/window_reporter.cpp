#include "app/window/window_reporter.h"

#include <QMetaObject>
#include <QThread>

namespace veltro {

WindowReporter::WindowReporter(TextSink status, TextSink step, PercentSink percent, QObject* parent)
    : QObject(parent), status_(std::move(status)), step_(std::move(step)), percent_(std::move(percent))
{
}

void WindowReporter::schedule()
{
    // called with mutex_ held
    if (scheduled_) return;
    scheduled_ = true;
    QMetaObject::invokeMethod(this, [this] { flush(); }, Qt::QueuedConnection);
}

void WindowReporter::status(const std::string& text)
{
    std::lock_guard lock(mutex_);
    pendingStatus_ = QString::fromStdString(text);
    schedule();
}

void WindowReporter::percent(int value)
{
    std::lock_guard lock(mutex_);
    pendingPercent_ = value;
    schedule();
}

void WindowReporter::step(const std::string& line)
{
    // Status texts reported before this line are shown before it.
    QString text = QString::fromStdString(line);
    QMetaObject::invokeMethod(this, [this, text] {
        flush();
        step_(text);
    }, Qt::QueuedConnection);
}

void WindowReporter::flush()
{
    std::optional<QString> s;
    std::optional<int> p;
    {
        std::lock_guard lock(mutex_);
        s.swap(pendingStatus_);
        p.swap(pendingPercent_);
        scheduled_ = false;
    }
    if (s) status_(*s);
    if (p) percent_(*p);
}

} // namespace veltro
