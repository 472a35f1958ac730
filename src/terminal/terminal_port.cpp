#include "terminal/terminal_port.h"

#include "platform/qt_serial_link.h"
#include "platform/serial_link.h"
#include "platform/serial_writer.h"
#include "platform/windows1252.h"

#include <QSerialPort>

namespace veltro {

namespace {
constexpr int kBaud = 921600;

// A failed mail's line with its reason, in the terminal's code page like the device's text.
std::string mailFailedText(const MailResult& r)
{
    return qStringToWindows1252(QString::fromStdString(mailFailedLine(r.why)));
}
} // namespace

TerminalPort::TerminalPort(TerminalDisplay& view, QObject* parent)
    : QObject(parent), view_(view), port_(new QSerialPort(this)), writer_(new SerialWriter(port_))
{
    port_->setObjectName("MSComm3");
    connect(port_, &QSerialPort::readyRead, this, &TerminalPort::readyRead);
    connect(port_, &QSerialPort::errorOccurred, this, [this](QSerialPort::SerialPortError error) {
        if (port_->isOpen() && isFatalPortError(error))
            lost();
    });
    connect(writer_, &SerialWriter::progressed, this, &TerminalPort::updateHold);
}

void TerminalPort::lost()
{
    // A port that goes away (adapter pulled) reports once and is closed, no flood.
    close();
    view_.append(std::string("\r\n++TERMINAL: ") + kLinkLostText + "\r\n");
}

void TerminalPort::newServer()
{
    serverDropShown_ = false;
    // A new socket reads freely: hold it again if the line is still busy.
    holding_ = false;
    updateHold();
}

void TerminalPort::updateHold()
{
    const bool hold = port_->isOpen() && writer_->queued() > serialQueueLimit(kBaud);
    if (hold != holding_) {
        holding_ = hold;
        emit serverHold(hold);
    }
}

void TerminalPort::open(int number, const std::string& location)
{
    close();
    if (const std::string why = openPort(*port_, location, kBaud); !why.empty())
        // The terminal's text is Windows-1252, the reason is UTF-8 like every text of the tool's.
        view_.append(qStringToWindows1252(QString::fromStdString("\r\n++TERMINAL: Com-Port " + std::to_string(number) +
                                                                 " kann nicht geöffnet werden: " + why + "\r\n")));
    else
        serverDropShown_ = false;
}

void TerminalPort::close()
{
    writer_->discard();
    if (port_->isOpen())
        port_->close();
    port_->clearError();
    updateHold();
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
        jobs_.run<MailResult>([imageMail] { return sendMail(imageMail); }, [this](const MailResult& r) {
            if (!r.sent())
                view_.appendLine(mailFailedText(r));
            emit imageMailFinished(QString::fromStdString(r.text));
        });
    } else if (port_->isOpen()) {
        if (!writer_->write(QByteArray::fromStdString(entry.bytes)))
            lost();
    } else {
        view_.append("\r\n++TERMINAL: Com-Port nicht offen\r\n");
    }
}

void TerminalPort::report(const std::string& folder, const MailRequest& mail)
{
    const bool saved = writeTerminalLog(folder, view_.text().text());
    view_.append(saved ? "\rDATEI GESPEICHERT!\r" : "\rDATEI KONNTE NICHT GESPEICHERT WERDEN!\r");
    view_.append("\rDATEI SENDEN...\r");
    jobs_.run<MailResult>([mail] { return sendMail(mail); }, [this](const MailResult& r) {
        // A failed mail's reason stands where the success text would.
        view_.append("\r" + (r.sent() ? r.text : mailFailedText(r)) + "\r");
        emit reportFinished(QString::fromStdString(r.text));
    });
}

void TerminalPort::fromServer(const QByteArray& data)
{
    if (port_->isOpen()) {
        if (!writer_->write(data))
            lost();
        updateHold();
    } else if (!serverDropShown_) {
        // Said once, not for every chunk the server sends.
        serverDropShown_ = true;
        view_.append("\r\n++TERMINAL: Com-Port nicht offen, Daten vom Server verworfen\r\n");
    }
}

} // namespace veltro
