#include "remote/tunnel_link.h"

#include "platform/qt_serial_link.h"
#include "platform/serial_link.h"
#include "platform/serial_writer.h"
#include "platform/tcp_client.h"
#include "platform/windows1252.h"

#include <QSerialPort>
#include <QTcpSocket>
#include <QTimer>

namespace veltro {

namespace {
QByteArray bytes(const std::string& s)
{
    return QByteArray(s.data(), qsizetype(s.size()));
}
// Batches reach the window at most this often; lamps and the log view need no more.
constexpr int kBatchMs = 40;
constexpr int kLogFlushMs = 100;

QTimer* singleShot(QObject* parent)
{
    auto* t = new QTimer(parent);
    t->setSingleShot(true);
    return t;
}
} // namespace

TunnelLink::TunnelLink()
    : serial_(new QSerialPort(this)), writer_(new SerialWriter(serial_)), socket_(new TcpClient(this)),
      recordWait_(singleShot(this)), messageWait_(singleShot(this)), batchTimer_(singleShot(this)),
      logFlush_(new QTimer(this))
{
    qRegisterMetaType<veltro::TunnelEvents>();
    batchTimer_->setInterval(kBatchMs);
    connect(batchTimer_, &QTimer::timeout, this, &TunnelLink::sendEvents);
    logFlush_->setInterval(kLogFlushMs);
    connect(logFlush_, &QTimer::timeout, this, [this] { log_.flush(); });
    connect(recordWait_, &QTimer::timeout, this,
            [this] { apply(relay_.serialWaitOver(socket_->state() == 7, serverRoom())); });
    connect(messageWait_, &QTimer::timeout, this, [this] {
        // Only a server that stays silent: bytes still unread are the rest on its way.
        if (socket_->unread() == 0)
            apply(relay_.serverWaitOver(loopback_));
    });
    connect(serial_, &QSerialPort::readyRead, this, &TunnelLink::serialReadyRead);
    connect(serial_, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError error) {
        if (serial_->isOpen() && isFatalPortError(error))
            endForLostPort();
    });
    connect(writer_, &SerialWriter::progressed, this, [this] {
        countWritten();
        throttle();
    });
    connect(socket_, &TcpClient::dataArrived, this, &TunnelLink::serverData);
    connect(socket_->socket(), &QTcpSocket::bytesWritten, this, &TunnelLink::throttle);
    connect(socket_, &TcpClient::stateMayHaveChanged, this, &TunnelLink::updateState);
}

TunnelLink::~TunnelLink() = default;

void TunnelLink::updateState()
{
    const int now = socket_->state();
    const int before = state_.exchange(now);
    if (now == 8 && before != 8 && serial_->isOpen()) {
        serial_->close();
        emit serverClosed();
    }
}

void TunnelLink::open(const QString& host, int port, const QString& serialPort, int baud, const QString& logPath)
{
    close();
    baud_ = baud;
    serialLimit_ = serialQueueLimit(baud);
    socket_->setMaxChunk(serialLimit_);
    socket_->connectTo(host, port);
    const std::string why = openPort(*serial_, serialPort.toStdString(), baud);
    const bool portOpen = why.empty();
    if (!portOpen) {
        pending_.lines << QString("++COMPORT KANN NICHT GEÖFFNET WERDEN: ") + QString::fromStdString(why);
        queueEvents();
    }
    if (!log_.open(logPath)) {
        pending_.lines << "++" + logPath + " KANN NICHT GESCHRIEBEN WERDEN";
        queueEvents();
    }
    logFlush_->start();
    writeLog("++TRY TO CONNECT TO SERVER...");
    emit opened(portOpen);
}

void TunnelLink::close()
{
    recordWait_->stop();
    messageWait_->stop();
    // What the server sent and the device never got is lost: what waits for the port, and
    // what still waits in the socket.
    countWritten();
    long lost = writer_->discard();
    if (socket_->unread() > 0) {
        const QByteArray rest = socket_->socket()->readAll();
        lost += long(relay_.serverChunk(std::string_view(rest.constData(), std::size_t(rest.size())), false).toDevice.size());
    }
    bodyLines_.clear();
    apply(relay_.discarded(lost));
    socket_->close();
    if (serial_->isOpen())
        serial_->close();
    relay_.reset();
    logFlush_->stop();
    log_.close();
}

void TunnelLink::endForLostPort()
{
    // An adapter pulled out: said once, and the tunnel ends rather than taking the server's
    // frames for a device that is gone.
    if (!serial_->isOpen())
        return; // said already
    serial_->close();
    pending_.lines << QString("++COMPORT: ") + QString::fromUtf8(kLinkLostText);
    writeLog(QByteArray("++COMPORT: ") + kLinkLostText);
    close();
    sendEvents(); // the reason shows before the window's own lines
    emit portLost();
}

void TunnelLink::setLoopback(bool on)
{
    loopback_ = on;
}

void TunnelLink::writeLog(const QByteArray& line)
{
    log_.write(line);
}

long TunnelLink::serverRoom() const
{
    return long(std::max<qint64>(0, TcpClient::kMaxQueued - socket_->queued()) / qint64(TunnelRelay::kMessageSize));
}

void TunnelLink::serialReadyRead()
{
    const QByteArray data = serial_->readAll();
    if (data.isEmpty())
        return;
    recordWait_->stop();
    RelayOutput out = relay_.serialRead(std::string_view(data.constData(), std::size_t(data.size())),
                                        socket_->state() == 7, serverRoom());
    const bool waiting = out.waiting;
    apply(std::move(out));
    if (waiting)
        recordWait_->start(TunnelRelay::recordWaitMs(baud_));
}

void TunnelLink::serverData(const QByteArray& data)
{
    RelayOutput out = relay_.serverChunk(std::string_view(data.constData(), std::size_t(data.size())), loopback_);
    const bool waiting = out.serverWaiting;
    apply(std::move(out));
    if (waiting)
        messageWait_->start(TunnelRelay::messageWaitMs(baud_));
    else
        messageWait_->stop();
    throttle();
}

void TunnelLink::apply(RelayOutput&& out)
{
    // The peers first, then the record of it. The messages of one read go out in one send.
    if (!out.toServer.empty()) {
        QByteArray messages;
        messages.reserve(qsizetype(out.toServer.size() * TunnelRelay::kMessageSize));
        for (const std::string& message : out.toServer)
            messages += bytes(message);
        socket_->send(messages);
    }
    if (serial_->isOpen()) {
        bool written = !out.deviceStart || writer_->write(QByteArray(1, '}'));
        for (const std::string& body : out.toDevice) {
            if (!written)
                break;
            written = writer_->write(bytes(body), 1);
            bodyLines_.push_back("RX FROM SERVER:" + bytes(body));
        }
        if (!written) {
            // A write the driver refused outright: the port is gone.
            for (const std::string& line : out.file)
                writeLog(bytes(line));
            endForLostPort();
            return;
        }
    } else if (!out.toDevice.empty()) {
        out.add(relay_.discarded(long(out.toDevice.size())));
    }
    for (const std::string& line : out.file)
        writeLog(bytes(line));
    countWritten();
    for (const std::string& line : out.view)
        pending_.lines << windows1252ToQString(line);
    pending_.tx = pending_.tx || out.txLamp;
    pending_.rx = pending_.rx || out.rxLamp;
    queueEvents();
}

void TunnelLink::countWritten()
{
    const long more = writer_->takeUnitsWritten();
    if (more <= 0)
        return;
    relay_.delivered(more);
    for (long i = 0; i < more && !bodyLines_.empty(); ++i) {
        writeLog(bodyLines_.front());
        bodyLines_.pop_front();
    }
    queueEvents();
}

void TunnelLink::throttle()
{
    const bool deviceBusy = writer_->queued() > serialLimit_;
    const bool serverBusy = loopback_ && socket_->queued() > TcpClient::kMaxQueued;
    socket_->holdReading(deviceBusy || serverBusy);
}

void TunnelLink::sendEvents()
{
    batchTimer_->stop();
    pending_.counts = relay_.counts();
    emit events(pending_);
    pending_ = TunnelEvents{};
}

void TunnelLink::queueEvents()
{
    if (!batchTimer_->isActive())
        batchTimer_->start();
}

} // namespace veltro
