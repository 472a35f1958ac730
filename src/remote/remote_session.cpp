#include "remote/remote_session.h"

#include "platform/endpoints.h"
#include "platform/internet.h"
#include "platform/tcp_client.h"
#include "platform/windows1252.h"
#include "remote/remote_service.h"

namespace veltro {

namespace {
// The tool's German texts in the terminal's code page, like the device's text around them.
std::string terminalText(const std::string& utf8)
{
    return qStringToWindows1252(QString::fromStdString(utf8));
}
} // namespace

RemoteSession::RemoteSession(QObject* parent) : QObject(parent), socket_(new TcpClient(this))
{
    socket_->setObjectName("Winsock1");
}

void RemoteSession::start(const std::string& serial, std::function<MailResult()> mailImage)
{
    socket_->close();
    dropped_ = 0;
    mailImage_ = std::move(mailImage);
    fetching_ = true;
    const std::string url = endpoints::webHttpRoot() + remoteRecordPath(serial);
    jobs_.run<FetchResult>([url] { return fetchPage(url); }, [this](FetchResult reply) {
        fetching_ = false;
        const RemoteRecord record = reply.ok ? parseRemoteRecord(reply.body) : RemoteRecord{};
        if (!reply.ok) {
            // No reply at all, not even an error page: the web server is not reachable.
            emit line(terminalText("++WEBSERVER NICHT ERREICHBAR: " + reply.error));
        }
        if (!record.found) {
            emit line("++NO CONNECTIONDATA FOUND!");
        } else {
            emit line("++CONNECTIONDATA FOUND!");
            emit line("++BAUDRATE: " + record.baud);
            socket_->close();
            // A port that is not a number fails like a refused connect: state 9.
            socket_->connectTo(QString::fromStdString(record.host), record.port.value_or(-1));
            emit line("++TRY TO CONNECT TO SERVER...");
        }
        emit recordHandled(record.found);
    });
}

std::optional<int> RemoteSession::poll(const std::string& laststatus)
{
    const std::optional<int> changed = stateChange(socket_->state(), laststatus);
    if (changed && *tcpStateLine(*changed))
        emit line(tcpStateLine(*changed));
    return changed;
}

void RemoteSession::reply(const char* text)
{
    emit line(text);
    socket_->send(QByteArray(text) + '\r');
    emit commandAnswered();
}

void RemoteSession::serverData(const QByteArray& data)
{
    switch (serverCommand(std::string(data.constData(), std::size_t(data.size())))) {
    case ServerCommand::SendEeprom:
        // The reply follows the mail, sent or not, so the server finds it in its mailbox; the
        // technician reads below it why it is not there.
        jobs_.run<MailResult>(mailImage_ ? mailImage_ : [] { return MailResult{}; },
                              [this](const MailResult& r) {
                                  reply(kSendEepromLine);
                                  if (!r.sent())
                                      emit line(terminalText(mailFailedLine(r.why)));
                              });
        return;
    case ServerCommand::GetEeprom:
        reply(kGetEepromLine);
        return;
    case ServerCommand::None:
        emit forDevice(data);
        return;
    }
}

void RemoteSession::deviceOutput(const QByteArray& data)
{
    if (socket_->state() != 7)
        return;
    // The controller cannot be held back: its output waits for a server that does not read
    // up to a bound, then is dropped, said once with what it cost.
    if (socket_->queued() > TcpClient::kMaxQueued) {
        if (dropped_ == 0)
            emit line("++SERVER LIEST NICHT MIT: Ausgaben des Controllers werden verworfen");
        dropped_ += data.size();
        return;
    }
    if (dropped_ > 0) {
        emit line("++SERVER LIEST WIEDER: " + std::to_string(dropped_) + " Bytes verworfen");
        dropped_ = 0;
    }
    socket_->send(data);
}

} // namespace veltro
