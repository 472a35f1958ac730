#include "remote/tunnel_link.h"

#include "platform/qt_serial_link.h"
#include "platform/serial_link.h"
#include "platform/tcp_client.h"
#include "remote/remote_service.h"

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
// A peer that takes nothing for this long a queue loses what comes next, instead of the
// tool's memory growing without end: about 4,000 frames either way.
constexpr qint64 kMaxQueued = 64 * 1024;
} // namespace

TunnelLink::TunnelLink()
    : serial_(new QSerialPort(this)), socket_(new TcpClient(this)), recordWait_(new QTimer(this)),
      batchTimer_(new QTimer(this))
{
    qRegisterMetaType<veltro::TunnelEvents>();
    recordWait_->setSingleShot(true);
    batchTimer_->setSingleShot(true);
    batchTimer_->setInterval(kBatchMs);
    connect(batchTimer_, &QTimer::timeout, this, [this] {
        pending_.counts = relay_.counts();
        emit events(pending_);
        pending_ = TunnelEvents{};
    });
    connect(recordWait_, &QTimer::timeout, this,
            [this] { apply(relay_.serialWaitOver(socket_->state() == 7)); });
    connect(serial_, &QSerialPort::readyRead, this, &TunnelLink::serialReadyRead);
    connect(serial_, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError error) {
        // An adapter pulled out: said once, the port closed.
        if (serial_->isOpen() && isFatalPortError(error)) {
            serial_->close();
            pending_.lines << QString("++COMPORT: ") + QString::fromUtf8(kLinkLostText);
            queueEvents();
        }
    });
    connect(socket_, &TcpClient::dataArrived, this, &TunnelLink::serverData);
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
    socket_->close();
    relay_.reset();
    socket_->connectTo(host, port);
    if (serial_->isOpen())
        serial_->close();
    waitMs_ = TunnelRelay::recordWaitMs(baud);
    const std::string why = openPort(*serial_, serialPort.toStdString(), baud > 0 ? baud : 9600);
    const bool portOpen = why.empty();
    if (!portOpen) {
        pending_.lines << QString("++COMPORT KANN NICHT GEÖFFNET WERDEN: ") + QString::fromStdString(why);
        queueEvents();
    }
    if (log_.isOpen())
        log_.close();
    log_.setFileName(logPath);
    log_.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered);
    writeLog("++TRY TO CONNECT TO SERVER...");
    emit opened(portOpen);
}

void TunnelLink::close()
{
    socket_->close();
    if (serial_->isOpen())
        serial_->close();
    recordWait_->stop();
    relay_.reset();
    log_.close();
}

void TunnelLink::setLoopback(bool on)
{
    loopback_ = on;
}

void TunnelLink::writeLog(const QByteArray& line)
{
    if (log_.isOpen())
        log_.write(line + "\r\n");
}

void TunnelLink::serialReadyRead()
{
    const QByteArray data = serial_->readAll();
    if (data.isEmpty())
        return;
    recordWait_->stop();
    RelayOutput out = relay_.serialRead(std::string_view(data.constData(), std::size_t(data.size())),
                                        socket_->state() == 7);
    const bool waiting = out.waiting;
    apply(std::move(out));
    if (waiting)
        recordWait_->start(waitMs_);
}

void TunnelLink::serverData(const QByteArray& data)
{
    apply(relay_.serverChunk(std::string_view(data.constData(), std::size_t(data.size())), loopback_));
}

void TunnelLink::apply(RelayOutput&& out)
{
    // The peers first, then the record of it.
    if (!out.toServer.empty() && socket_->socket()->bytesToWrite() > kMaxQueued) {
        out.toServer.clear();
        out.add(relay_.overrun(TunnelRelay::Overrun::Receive));
    }
    for (const std::string& message : out.toServer)
        socket_->send(bytes(message));
    if (!out.toDevice.empty() && serial_->isOpen()) {
        if (serial_->bytesToWrite() > kMaxQueued) {
            out.add(relay_.overrun(TunnelRelay::Overrun::Transmit));
        } else {
            serial_->write(bytes(out.toDevice));
            serial_->flush();
        }
    }
    for (const std::string& line : out.file)
        writeLog(bytes(line));
    for (const std::string& line : out.view)
        pending_.lines << QString::fromLatin1(bytes(line));
    pending_.tx = pending_.tx || out.txLamp;
    pending_.rx = pending_.rx || out.rxLamp;
    queueEvents();
}

void TunnelLink::queueEvents()
{
    if (!batchTimer_->isActive())
        batchTimer_->start();
}

} // namespace veltro
