#include "platform/tcp_client.h"

#include <QTcpSocket>

namespace veltro {

int tcpStateNumber(QAbstractSocket::SocketState state, QAbstractSocket::SocketError error, bool closedByUs)
{
    // A client socket never reports 1, 2, 3 or 5: Qt's bound and listening states belong to
    // servers, a pending connection is a server's notion, and "host found" is only a signal
    // sent when the socket already connects. They stay in the table for the lines' sake.
    if (closedByUs)
        return 0;
    switch (state) {
    case QAbstractSocket::UnconnectedState:
        if (error == QAbstractSocket::UnknownSocketError)
            return 0;
        return error == QAbstractSocket::RemoteHostClosedError ? 8 : 9;
    case QAbstractSocket::HostLookupState: return 4;
    case QAbstractSocket::ConnectingState: return 6;
    case QAbstractSocket::ConnectedState: return 7;
    case QAbstractSocket::BoundState: return 1;
    case QAbstractSocket::ListeningState: return 2;
    case QAbstractSocket::ClosingState: return 8;
    }
    return 9;
}

TcpClient::TcpClient(QObject* parent)
    : QObject(parent), socket_(new QTcpSocket(this)), connectTimer_(new QTimer(this))
{
    // The connect time-out covers the name lookup too; Qt's own ends only the connect itself.
    connectTimer_->setSingleShot(true);
    connectTimer_->setInterval(30000);
    connect(connectTimer_, &QTimer::timeout, this, [this] {
        if (socket_->state() == QAbstractSocket::ConnectedState)
            return;
        error_ = QAbstractSocket::SocketTimeoutError;
        socket_->abort();
        emit stateMayHaveChanged();
    });
    connect(socket_, &QTcpSocket::connected, this, [this] {
        connectTimer_->stop();
        // Short lines go out at once instead of waiting for the previous one's acknowledgement.
        socket_->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        // A small kernel buffer too: what a held-back reader leaves unread stays with the server.
        socket_->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 64 * 1024);
    });
    connect(socket_, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError e) {
        if (!closedByUs_)
            error_ = e;
        connectTimer_->stop();
        emit stateMayHaveChanged();
    });
    connect(socket_, &QTcpSocket::stateChanged, this, &TcpClient::stateMayHaveChanged);
    connect(socket_, &QTcpSocket::readyRead, this, &TcpClient::deliver);
    // Bounded, so that a server faster than its receiver fills the kernel's buffers, not ours.
    socket_->setReadBufferSize(64 * 1024);
}

void TcpClient::deliver()
{
    if (delivering_)
        return; // a receiver that releases reading while it handles a chunk: the loop goes on
    delivering_ = true;
    while (!held_ && socket_->bytesAvailable() > 0) {
        const QByteArray data = socket_->read(maxChunk_);
        if (data.isEmpty())
            break;
        emit dataArrived(data);
    }
    delivering_ = false;
}

void TcpClient::holdReading(bool hold)
{
    if (hold == held_)
        return;
    held_ = hold;
    if (!held_)
        deliver();
}

qint64 TcpClient::unread() const
{
    return socket_->bytesAvailable();
}

qint64 TcpClient::queued() const
{
    return socket_->bytesToWrite();
}

void TcpClient::connectTo(const QString& host, int port)
{
    socket_->abort();
    held_ = false;
    closedByUs_ = false;
    error_ = QAbstractSocket::UnknownSocketError;
    if (port < 1 || port > 65535) {
        error_ = QAbstractSocket::UnsupportedSocketOperationError;
        emit stateMayHaveChanged();
        return;
    }
    connectTimer_->start();
    socket_->connectToHost(host, quint16(port));
}

void TcpClient::close()
{
    closedByUs_ = true;
    connectTimer_->stop();
    socket_->abort();
    emit stateMayHaveChanged();
}

int TcpClient::state() const
{
    return tcpStateNumber(socket_->state(), error_, closedByUs_);
}

bool TcpClient::send(const QByteArray& data)
{
    if (socket_->state() != QAbstractSocket::ConnectedState)
        return false;
    const bool whole = socket_->write(data) == data.size();
    // Out now rather than on the next turn of the event loop: a relay waits for nothing.
    socket_->flush();
    return whole;
}

} // namespace veltro
