#pragma once
// A real SMTP server on 127.0.0.1 (see smtp_server.py) taking AUTH LOGIN for one account,
// STARTTLS if asked for, and a port that accepts and never answers. The servers end with this object.
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

    // With `starttls` the server offers STARTTLS with a certificate made for this run.
    bool start(const QString& user, const QString& password, bool starttls = false);
    QString caFile() const { return dir_.path() + "/ca.pem"; }
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
