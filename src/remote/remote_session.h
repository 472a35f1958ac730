#pragma once
// The remote service's connection as the terminal drives it ("REMOTE"): the record fetched on a
// worker, the connect, the state poll's lines, and the server's data (its two commands answered
// here, everything else handed on for the device). Progress comes out as "++" lines.
#include "platform/job_runner.h"
#include "platform/mail.h"

#include <QByteArray>
#include <QObject>

#include <functional>
#include <optional>
#include <string>

namespace veltro {

class TcpClient;

class RemoteSession : public QObject {
    Q_OBJECT
public:
    explicit RemoteSession(QObject* parent = nullptr);

    TcpClient* socket() const { return socket_; }
    bool fetching() const { return fetching_; }

    // Closes the socket, fetches the record of `serial` and, when there is one, connects.
    // `mailImage` sends the controller's image to the support mailbox when the server asks.
    void start(const std::string& serial, std::function<MailResult()> mailImage);
    // The state poll against the last state shown: the new state, its line emitted.
    std::optional<int> poll(const std::string& laststatus);
    // Data from the server. "SENDEEPROM" runs the image mail on a worker and replies after it
    // (a mail that failed adds a line with its reason), "GETEEPROM" is acknowledged, anything
    // else comes back through forDevice().
    void serverData(const QByteArray& data);
    // What the device printed, for the server while connected.
    void deviceOutput(const QByteArray& data);

signals:
    void line(const std::string& text);
    void recordHandled(bool found);
    void commandAnswered();
    void forDevice(const QByteArray& data);

private:
    void reply(const char* text);

    TcpClient* socket_;
    bool fetching_ = false;
    qint64 dropped_ = 0; // device output dropped since the server stopped reading
    std::function<MailResult()> mailImage_;
    JobRunner jobs_;
};

} // namespace veltro
