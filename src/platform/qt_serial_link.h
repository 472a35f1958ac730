#pragma once
// The device link over QSerialPort: 921600 baud, 8 data bits, no parity, one stop bit, no flow
// control, RTS on. Blocking calls, made for a worker thread: create, use and destroy the link
// on the same thread.
#include "platform/serial_link.h"

#include <QSerialPort>

#include <memory>
#include <string>

namespace veltro {

// An error after which the port is of no further use (adapter unplugged, device gone):
// close it at once and report once.
bool isFatalPortError(QSerialPort::SerialPortError error);

// Why a port could not be opened, in German: missing, held by another program, no rights.
std::string portOpenFailureText(QSerialPort::SerialPortError error, const QString& qtText);

// Opens `port` on `location` at baud,8,N,1 without flow control: "" when it is open, else why
// not, in German ("Port nicht vorhanden" for an empty location).
std::string openPort(QSerialPort& port, const std::string& location, qint32 baud);

class QtSerialLink : public SerialLink {
public:
    explicit QtSerialLink(std::string systemLocation, qint32 baudRate = 921600);
    ~QtSerialLink() override;

    bool open() override;
    void close() override;
    bool isOpen() const override;
    std::string errorText() const override;
    bool lost() const override;

    using SerialLink::write;
    bool write(const std::uint8_t* data, std::size_t size) override;
    std::size_t bytesWaiting() override;
    std::vector<std::uint8_t> readAll() override;
    void discardInput() override;
    bool waitForData(Deadline deadline) override;

    const std::string& location() const { return location_; }

private:
    void noteError();
    void pull(); // when the port's buffer is empty, fetch what the driver holds, without blocking

    std::string location_;
    qint32 baud_;
    std::unique_ptr<QSerialPort> port_;
    std::string error_;
    bool lost_ = false;
};

// Opens links by port number through the port numbering.
class PortSerialLinkFactory : public SerialLinkFactory {
public:
    std::unique_ptr<SerialLink> create(int portNumber) override;
};

// The port can be opened at all (missing and busy ports cannot). Closes it again.
bool canOpenPort(const std::string& systemLocation);

} // namespace veltro
