#include "remote/tunnel_log.h"

#include <QFileInfo>

namespace veltro {

namespace {
// Written out before the batch grows larger than this, whatever the timer does.
constexpr qsizetype kBatch = 256 * 1024;
} // namespace

QString TunnelLog::olderPath(const QString& path)
{
    const QFileInfo info(path);
    const QString suffix = info.suffix().isEmpty() ? QString() : "." + info.suffix();
    return info.path() + "/" + info.completeBaseName() + ".1" + suffix;
}

bool TunnelLog::open(const QString& path)
{
    close();
    file_.setFileName(path);
    if (!file_.open(QIODevice::WriteOnly | QIODevice::Append))
        return false;
    size_ = file_.size();
    return true;
}

void TunnelLog::write(const QByteArray& line)
{
    if (!file_.isOpen())
        return;
    if (size_ + line.size() + 2 > limit_ && size_ > 0)
        rotate();
    pending_ += line;
    pending_ += "\r\n";
    size_ += line.size() + 2;
    if (pending_.size() >= kBatch)
        flush();
}

void TunnelLog::flush()
{
    if (!file_.isOpen() || pending_.isEmpty())
        return;
    file_.write(pending_);
    file_.flush();
    pending_.clear();
}

void TunnelLog::close()
{
    flush();
    file_.close();
    size_ = 0;
}

void TunnelLog::rotate()
{
    flush();
    const QString path = file_.fileName();
    const QString older = olderPath(path);
    file_.close();
    QFile::remove(older);
    QFile::rename(path, older);
    size_ = 0;
    if (!file_.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    const QByteArray note = "++" + QFileInfo(path).fileName().toLatin1() + " voll (" +
                            QByteArray::number(limit_ / (1024 * 1024)) + " MiB): " +
                            "die \xE4lteren Eintr\xE4ge stehen in " + QFileInfo(older).fileName().toLatin1();
    write(note);
}

} // namespace veltro
