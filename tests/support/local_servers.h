#pragma once
// Real servers on 127.0.0.1 for the tests, each a python script (tests/support/*.py) started
// with the system's python: it prints its ports as one JSON line, logs what it gets as JSON
// lines, and ends with its object (when its input closes). Certificates are throw-away ones
// made for the run: the server's certificate is at once the CA the client is told to trust.
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace veltro::test {

// HTTP and HTTPS serving a folder (http_server.py).
class LocalHttpServer {
public:
    ~LocalHttpServer();

    bool start(const QString& servedDir);

    QString httpRoot() const { return QString("http://127.0.0.1:%1").arg(httpPort_); }
    QString httpsRoot() const { return QString("https://127.0.0.1:%1").arg(httpsPort_); }
    QString caFile() const { return certs_.path() + "/ca.pem"; }
    // Paths asked for so far, in order of arrival, over both schemes.
    QStringList requestedPaths() const;
    // The value of a header of the n-th request ("" when absent).
    QString requestHeader(int index, const QString& name) const;

    // VELTRO_UPDATE_HTTP/HTTPS, VELTRO_WEB_HTTP and VELTRO_CA_FILE pointing at this server;
    // undone by clearEnvironment() and by the destructor.
    void exportEnvironment();
    static void clearEnvironment();

private:
    QTemporaryDir certs_;
    QProcess process_;
    int httpPort_ = 0;
    int httpsPort_ = 0;
    bool exported_ = false;
};

// SMTP (smtp_server.py) taking AUTH LOGIN for one account, STARTTLS if asked for, and beside it
// servers that fail on purpose: one that accepts and never answers, one that drops the
// connection after the login, one that refuses the sender for now, one that never confirms a
// mail.
class LocalSmtpServer {
public:
    ~LocalSmtpServer();

    // With `starttls` the server offers STARTTLS with a certificate made for this run.
    bool start(const QString& user, const QString& password, bool starttls = false);
    QString caFile() const { return dir_.path() + "/ca.pem"; }
    // The port of `kind`: "smtp" (the working server), "silent", "drop" or "busy".
    int port(const QString& kind = "smtp") const { return ports_.value(kind).toInt(); }
    // Every mail received so far, as smtp_server.py logs it.
    QList<QJsonObject> messages() const;

private:
    QTemporaryDir dir_;
    QProcess process_;
    QJsonObject ports_;
};

} // namespace veltro::test
