#pragma once
// CAN_LOG.txt: the tunnel's log, one line per event with CR LF, as raw bytes. Lines are
// gathered in memory and written in one go (the link flushes at least every 100 ms and when
// the tunnel closes), so a busy bus costs one write a batch, not one a frame. The file is
// bounded: once it would grow past the limit it becomes CAN_LOG.1.txt (one older file is
// kept) and a new one starts with a line that says so.
#include <QByteArray>
#include <QFile>
#include <QString>

namespace veltro {

class TunnelLog {
public:
    static constexpr qint64 kDefaultLimit = 64LL * 1024 * 1024;
    explicit TunnelLog(qint64 limit = kDefaultLimit) : limit_(limit) {}
    ~TunnelLog() { close(); }

    // Opens `path` for appending; false when it cannot be (the tunnel runs without a log).
    bool open(const QString& path);
    bool isOpen() const { return file_.isOpen(); }
    // One line, without its CR LF; nothing while the log is closed.
    void write(const QByteArray& line);
    void flush();
    void close();

    // The older file beside `path`: CAN_LOG.txt -> CAN_LOG.1.txt.
    static QString olderPath(const QString& path);

private:
    void rotate();

    QFile file_;
    QByteArray pending_;
    qint64 size_ = 0; // of the file, pending lines included
    qint64 limit_;
};

} // namespace veltro
