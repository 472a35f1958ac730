#pragma once
// Writes to an open serial port without ever blocking and without taking a full driver buffer
// for a lost port. A controller takes bytes at its line's pace; when the tool has more to say,
// the driver's buffer fills and a write takes fewer bytes than offered (EAGAIN). That is a
// reason to wait, not an error: what the driver does not take at once waits in the port's own
// queue and goes out as the line drains. Only a failed write (unplugged adapter, I/O error)
// reports the port as gone.
//
// Bytes can be written as units (one frame body each, say): takeUnitsWritten() tells how many
// more units the driver has taken whole since it was last asked, so a relay counts what really went out, and discard()
// says how many never did.
#include <QByteArray>
#include <QObject>

#include <deque>
#include <utility>

class QSerialPort;

namespace veltro {

class SerialWriter : public QObject {
    Q_OBJECT
public:
    explicit SerialWriter(QSerialPort* port);

    // Queues `bytes` behind what waits; `units` of them end with its last byte. False (and
    // nothing queued) when the port is closed or the write failed for good.
    bool write(const QByteArray& bytes, long units = 0);
    // Bytes not yet taken by the driver.
    qint64 queued() const { return offered_ - taken_; }
    long takeUnitsWritten() { return std::exchange(unitsWritten_, 0); }
    // Drops what waits (before closing the port); returns the units that never went out.
    long discard();

signals:
    // The driver took queued bytes as the line drained: queued() is smaller, more units may
    // have gone out. Not sent from within write().
    void progressed();

private:
    void took(qint64 bytes);

    QSerialPort* port_;
    qint64 offered_ = 0; // bytes handed to write() since the last discard
    qint64 taken_ = 0;   // of those, taken by the driver
    // Where each unit ends, as an offset into the offered bytes, oldest first.
    std::deque<qint64> unitEnds_;
    long unitsWritten_ = 0;
};

// Bytes a relay keeps queued for a line of `baud` before it stops taking more from the other
// side: 200 ms of line time (10 bits a byte), at least one frame's worth.
qint64 serialQueueLimit(int baud);

} // namespace veltro
