#pragma once
// The TCP client socket of the remote service and the tunnel, reporting its state as the
// numbers the tool has always shown:
//   0 closed, 1 open, 2 listening, 3 connection pending, 4 resolving host, 5 host resolved,
//   6 connecting, 7 connected, 8 closing (the server closed the connection), 9 error.
// Qt knows no error state: a failed socket goes back to "unconnected" and keeps the reason in
// error(). So the number comes from the Qt state, the last error and whether the tool closed
// the socket itself; Qt keeps error() after close(), which is why the last flag is needed.
#include <QAbstractSocket>
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

class QTcpSocket;

namespace veltro {

// `error` is QAbstractSocket::UnknownSocketError when none has happened since the last connect.
int tcpStateNumber(QAbstractSocket::SocketState state, QAbstractSocket::SocketError error, bool closedByUs);

class TcpClient : public QObject {
    Q_OBJECT
public:
    explicit TcpClient(QObject* parent = nullptr);

    // Connects to host:port. A port outside 1..65535 fails at once (state 9), as does a host
    // that does not resolve; a server that neither accepts nor refuses ends in 9 after the
    // connect time-out.
    void connectTo(const QString& host, int port);
    // Drops the connection at once, whatever its state: state 0.
    void close();
    int state() const;
    // Sends while connected; false (and nothing sent) otherwise.
    bool send(const QByteArray& data);

    // Bytes handed to send() that the kernel has not taken yet.
    qint64 queued() const;
    // What a relay lets wait for a server that does not read before it drops data: a device
    // cannot be held back, and this is about ten seconds of its busiest output.
    static constexpr qint64 kMaxQueued = 1024 * 1024;

    // A receiver that cannot keep up holds reading back instead of dropping: the data wait in
    // the socket (at most readBufferSize bytes), then in the kernel, whose full receive window
    // makes TCP slow the server down. Released, what waits is delivered at once, in chunks of
    // at most `maxChunk` bytes.
    void holdReading(bool hold);
    bool readingHeld() const { return held_; }
    void setMaxChunk(qint64 bytes) { maxChunk_ = bytes; }
    // Data the server sent that have not been delivered yet.
    qint64 unread() const;

    void setConnectTimeout(int ms) { connectTimer_->setInterval(ms); }
    int connectTimeout() const { return connectTimer_->interval(); }
    QTcpSocket* socket() const { return socket_; }

signals:
    // What was waiting when the socket reported data (up to the chunk size), as one chunk.
    void dataArrived(const QByteArray& data);
    // The state number may have changed (Qt's state or error did, or the tool closed).
    void stateMayHaveChanged();

private:
    void deliver();

    QTcpSocket* socket_;
    QTimer* connectTimer_;
    QAbstractSocket::SocketError error_ = QAbstractSocket::UnknownSocketError;
    bool closedByUs_ = false;
    bool held_ = false;
    bool delivering_ = false;
    qint64 maxChunk_ = 64 * 1024;
};

} // namespace veltro
