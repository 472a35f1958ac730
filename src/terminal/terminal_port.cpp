#include "terminal/terminal_port.h"

#include "platform/qt_serial_link.h"
#include "platform/serial_link.h"
#include "terminal/terminal_view.h"

#include <QSerialPort>

namespace veltro {

TerminalPort::TerminalPort(TerminalView& view, QObject* parent)
    : QObject(parent), view_(view), port_(new QSerialPort(this))
{
    port_->setObjectName("MSComm3");
    connect(port_, &QSerialPort::readyRead, this, &TerminalPort::readyRead);
    connect(port_, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError error) {
        // A port that goes away (adapter pulled) reports once and is closed, no flood.
        if (port_->isOpen() && isFatalPortError(error)) {
            close();
            view_.append(std::string("\r\n++TERMINAL: ") + kLinkLostText + "\r\n");
        }
    });
}

void TerminalPort::open(int number, const std::string& location)
{
    close();
    if (const std::string why = openPort(*port_, location, 921600); !why.empty())
        view_.append("\r\n++TERMINAL: Com-Port " + std::to_string(number) + " kann nicht geöffnet werden: " + why + "\r\n");
    else
        serverDropShown_ = false;
}

void TerminalPort::close()
{
    if (port_->isOpen())
        port_->close();
    port_->clearError();
}

void TerminalPort::readyRead()
{
    const QByteArray data = port_->readAll();
    if (data.isEmpty())
        return;
    emit output(data); // a remote server first, the view after
    view_.append(std::string(data.constData(), std::size_t(data.size())));
}

void TerminalPort::enter(const LineEntry& entry, const MailRequest& imageMail)
{
    if (entry.mailImage) {
        view_.append(kImageMailLine);
        jobs_.run<std::string>([imageMail] { return sendMail(imageMail); },
                               [this](const std::string& r) { emit imageMailFinished(QString::fromStdString(r)); });
    } else if (port_->isOpen()) {
        port_->write(entry.bytes.data(), qint64(entry.bytes.size()));
    } else {
        view_.append("\r\n++TERMINAL: Com-Port nicht offen\r\n");
    }
}

void TerminalPort::report(const std::string& folder, const MailRequest& mail)
{
    const bool saved = writeTerminalLog(folder, view_.text().text());
    view_.append(saved ? "\rDATEI GESPEICHERT!\r" : "\rDATEI KONNTE NICHT GESPEICHERT WERDEN!\r");
    view_.append("\rDATEI SENDEN...\r");
    jobs_.run<std::string>([mail] { return sendMail(mail); }, [this](const std::string& r) {
        view_.append("\r" + r + "\r");
        emit reportFinished(QString::fromStdString(r));
    });
}

void TerminalPort::fromServer(const QByteArray& data)
{
    if (port_->isOpen()) {
        port_->write(data);
        port_->flush();
    } else if (!serverDropShown_) {
        // Said once, not for every chunk the server sends.
        serverDropShown_ = true;
        view_.append("\r\n++TERMINAL: Com-Port nicht offen, Daten vom Server verworfen\r\n");
    }
}

} // namespace veltro
