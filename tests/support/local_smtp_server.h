#pragma once
// A real SMTP server on 127.0.0.1 (see smtp_server.py) taking AUTH LOGIN for one account,
// STARTTLS if asked for, and beside it servers that fail on purpose: one that accepts and never
// answers, one that drops the connection after the login, one that
// refuses the sender for now, one that never confirms a mail. The
// servers end with this object.
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
    // The port of `kind`: "smtp" (the working server), "silent", "drop", "busy" or "stall".
    int port(const QString& kind = "smtp") const { return ports_.value(kind).toInt(); }
    // Every mail received so far, as smtp_server.py logs it.
    QList<QJsonObject> messages() const;

private:
    QTemporaryDir dir_;
    QProcess process_;
    QJsonObject ports_;
};

} // namespace veltro::test
