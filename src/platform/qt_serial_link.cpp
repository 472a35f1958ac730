#include "platform/qt_serial_link.h"

#include "platform/port_numbering.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif
#ifdef Q_OS_LINUX
#include <linux/serial.h>
#include <sys/ioctl.h>
#endif

namespace veltro {

bool isFatalPortError(QSerialPort::SerialPortError error)
{
    switch (error) {
    case QSerialPort::ResourceError:       // device vanished (unplugged USB adapter, closed pty)
    case QSerialPort::ReadError:           // a hung-up line reads as an endless read error
    case QSerialPort::WriteError:
    case QSerialPort::DeviceNotFoundError:
    case QSerialPort::PermissionError:
    case QSerialPort::NotOpenError:
        return true;
    default:
        return false;
    }
}

std::string portOpenFailureText(QSerialPort::SerialPortError error, const QString& qtText)
{
    switch (error) {
    case QSerialPort::DeviceNotFoundError:
        return "Port nicht vorhanden";
    case QSerialPort::PermissionError:
        // Qt reports missing rights, a lock of another program and a line opened exclusively
        // alike; only the system's text of the failed open tells them apart. The device is
        // not opened again to ask: some controllers reset when their line is opened.
        if (qtText == qt_error_string(EACCES) || qtText == qt_error_string(EPERM))
            return "Keine Berechtigung für den Port (Benutzer in die Gruppe dialout aufnehmen)";
        return "Port wird von einem anderen Programm benutzt";
    case QSerialPort::OpenError:
        return "Port ist bereits geöffnet";
    default:
        return "Port kann nicht geöffnet werden (" + qtText.toStdString() + ")";
    }
}

QtSerialLink::QtSerialLink(std::string systemLocation, qint32 baudRate)
    : location_(std::move(systemLocation)), baud_(baudRate)
{
}

QtSerialLink::~QtSerialLink()
{
    close();
}

std::string openPort(QSerialPort& port, const std::string& location, qint32 baud)
{
    if (location.empty())
        return "Port nicht vorhanden";
    port.setPortName(QString::fromStdString(location));
    port.setBaudRate(baud);
    port.setDataBits(QSerialPort::Data8);
    port.setParity(QSerialPort::NoParity);
    port.setStopBits(QSerialPort::OneStop);
    port.setFlowControl(QSerialPort::NoFlowControl);
    if (port.open(QIODevice::ReadWrite))
        return {};
    const std::string why = portOpenFailureText(port.error(), port.errorString());
    port.clearError();
    return why;
}

bool QtSerialLink::open()
{
    close();
    lost_ = false;
    port_ = std::make_unique<QSerialPort>();
    port_->setReadBufferSize(0);
    error_ = openPort(*port_, location_, baud_);
    if (!error_.empty()) {
        port_.reset();
        return false;
    }
    // Pseudo-terminals and some adapters refuse line controls ("Inappropriate ioctl for
    // device"); that is a warning, not a failed open.
    if (!port_->setRequestToSend(true))
        port_->clearError();
#ifdef Q_OS_LINUX
    // USB-serial adapters hold back lone bytes for up to 16 ms unless asked for low latency.
    serial_struct ss{};
    if (::ioctl(port_->handle(), TIOCGSERIAL, &ss) == 0) {
        ss.flags |= ASYNC_LOW_LATENCY;
        ::ioctl(port_->handle(), TIOCSSERIAL, &ss);
    }
#endif
    return true;
}

void QtSerialLink::close()
{
    if (port_) {
        if (port_->isOpen())
            port_->close();
        port_.reset();
    }
}

bool QtSerialLink::isOpen() const
{
    return port_ && port_->isOpen();
}

std::string QtSerialLink::errorText() const
{
    return error_;
}

bool QtSerialLink::lost() const
{
    return lost_;
}

void QtSerialLink::noteError()
{
    if (!port_) return;
    const auto err = port_->error();
    if (err == QSerialPort::NoError || err == QSerialPort::TimeoutError) {
        port_->clearError();
        return;
    }
    error_ = port_->errorString().toStdString();
    if (isFatalPortError(err)) {
        lost_ = true;
        port_->close();
    } else {
        port_->clearError();
    }
}

bool QtSerialLink::write(const std::uint8_t* data, std::size_t size)
{
    if (!isOpen() || lost_) return false;
#ifdef Q_OS_UNIX
    // Straight to the driver while nothing of ours is queued: the bootloader answers every
    // block, and going through the port's own buffer costs a poll before each write.
    if (port_->bytesToWrite() == 0) {
        const ssize_t n = ::write(port_->handle(), data, size);
        if (n == ssize_t(size)) return true;
        if (n > 0) {
            data += n;
            size -= std::size_t(n);
        } else if (n < 0 && errno != EAGAIN && errno != EINTR) {
            error_ = std::strerror(errno); // EIO: the line hung up (unplugged adapter, closed pty)
            lost_ = true;
            port_->close();
            return false;
        }
    }
#endif
    const qint64 n = port_->write(reinterpret_cast<const char*>(data), qint64(size));
    if (n != qint64(size)) {
        noteError();
        lost_ = true;
        return false;
    }
    // Nothing pumps the port's write buffer on a worker thread but this wait.
    while (port_->bytesToWrite() > 0) {
        if (!port_->waitForBytesWritten(1000)) {
            noteError();
            if (lost_ || !port_->isOpen()) return false;
            if (port_->bytesToWrite() > 0) {
                error_ = "Schreiben auf den Port blockiert";
                lost_ = true;
                return false;
            }
        }
    }
    return true;
}

void QtSerialLink::pull()
{
    if (!isOpen()) return;
    // Bytes already taken from the driver are what is waiting; the next wait fetches more.
    if (port_->bytesAvailable() > 0) return;
    if (!port_->waitForReadyRead(0))
        noteError();
}

std::size_t QtSerialLink::bytesWaiting()
{
    if (!isOpen()) return 0;
    pull();
    return port_ ? std::size_t(port_->bytesAvailable()) : 0;
}

std::vector<std::uint8_t> QtSerialLink::readAll()
{
    if (!isOpen()) return {};
    pull();
    if (!port_) return {};
    const QByteArray data = port_->readAll();
    return std::vector<std::uint8_t>(data.begin(), data.end());
}

void QtSerialLink::discardInput()
{
    if (!isOpen()) return;
    pull();
    if (!port_) return;
    port_->clear(QSerialPort::Input);
    port_->readAll();
}

bool QtSerialLink::waitForData(Deadline deadline)
{
    if (!isOpen()) return false;
    const qint64 before = port_->bytesAvailable();
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const int ms = int(std::max<std::int64_t>(0, left.count()));
        if (port_->waitForReadyRead(ms)) {
            if (port_->bytesAvailable() > before) return true;
        } else {
            noteError();
            if (!isOpen()) return false;
        }
        if (Clock::now() >= deadline)
            return port_->bytesAvailable() > 0;
    }
}

std::unique_ptr<SerialLink> PortSerialLinkFactory::create(int portNumber)
{
    return std::make_unique<QtSerialLink>(portLocation(portNumber));
}

bool canOpenPort(const std::string& systemLocation)
{
    QtSerialLink link(systemLocation);
    const bool ok = link.open();
    link.close();
    return ok;
}

} // namespace veltro
