#include "platform/serial_writer.h"

#include <QSerialPort>

#include <algorithm>
#include <cerrno>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace veltro {

SerialWriter::SerialWriter(QSerialPort* port) : QObject(port), port_(port)
{
    connect(port_, &QSerialPort::bytesWritten, this, [this](qint64 bytes) {
        took(bytes);
        emit progressed();
    });
}

bool SerialWriter::write(const QByteArray& bytes, long units)
{
    if (!port_->isOpen())
        return false;
    offered_ += bytes.size();
    for (long i = 0; i < units; ++i)
        unitEnds_.push_back(offered_);
    qint64 direct = 0;
#ifdef Q_OS_UNIX
    // Straight to the driver while nothing waits in the port's queue: out now, not on the next
    // turn of the event loop. The port's own flush() would do the same but reports a full
    // driver buffer as a write error.
    if (port_->bytesToWrite() == 0 && !bytes.isEmpty()) {
        const ssize_t n = ::write(port_->handle(), bytes.constData(), std::size_t(bytes.size()));
        if (n < 0 && errno != EAGAIN && errno != EINTR) {
            // EIO: the line hung up (unplugged adapter, closed pty).
            offered_ -= bytes.size();
            unitEnds_.resize(unitEnds_.size() - std::size_t(units));
            return false;
        }
        direct = std::max<qint64>(n, 0);
    }
#endif
    if (direct < bytes.size() && port_->write(bytes.constData() + direct, bytes.size() - direct) < 0) {
        offered_ -= bytes.size() - direct;
        took(direct);
        return false;
    }
    took(direct);
    return true;
}

void SerialWriter::took(qint64 bytes)
{
    if (bytes <= 0)
        return;
    taken_ = std::min(taken_ + bytes, offered_);
    while (!unitEnds_.empty() && unitEnds_.front() <= taken_) {
        unitEnds_.pop_front();
        ++unitsWritten_;
    }
}

long SerialWriter::discard()
{
    const long dropped = long(unitEnds_.size());
    unitEnds_.clear();
    // A port that has failed is not asked to clear: it would only fail again.
    if (port_->isOpen() && port_->error() == QSerialPort::NoError)
        port_->clear(QSerialPort::Output);
    offered_ = taken_ = 0;
    return dropped;
}

qint64 serialQueueLimit(int baud)
{
    return std::max<qint64>(qint64(baud > 0 ? baud : 9600) / 10 / 5, 64);
}

} // namespace veltro
