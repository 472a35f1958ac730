#pragma once
// A real SMTP server on 127.0.0.1 (see smtp_server.py) taking AUTH LOGIN for one account, and
// a port that accepts and never answers. The servers end with this object.
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QTemporaryDir>

namespace veltro::test {

class LocalSmtpServer {
public:
    LocalSmtpServer() = default;
    ~LocalSmtpServer();
    LocalSmtpServer(const LocalSmtpServer&) = delete;
    LocalSmtpServer& operator=(const LocalSmtpServer&) = delete;

    bool start(const QString& user, const QString& password);
    int port() const { return port_; }
    int silentPort() const { return silentPort_; }
    // Every mail received so far, as smtp_server.py logs it.
    QList<QJsonObject> messages() const;

private:
    QTemporaryDir dir_;
    QProcess process_;
    int port_ = 0;
    int silentPort_ = 0;
};

} // namespace veltro::test
