#include "local_servers.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace veltro::test {

namespace {

QJsonObject startFixture(QProcess& process, const QString& script, const QStringList& args)
{
    // The system's python first: aiosmtpd belongs to it, and a python shim on PATH may be slow
    // to start or lack ssl.
    const QString python = QFile::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
    const QString support = QFileInfo(__FILE__).absolutePath();
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(python, QStringList{support + "/" + script} + args);
    while (!process.canReadLine())
        if (!process.waitForReadyRead(15000))
            return {};
    return QJsonDocument::fromJson(process.readLine()).object();
}

void stopFixture(QProcess& process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.closeWriteChannel(); // the server ends when its input closes
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

QList<QJsonObject> readJsonLines(const QString& path)
{
    QList<QJsonObject> entries;
    QFile log(path);
    if (log.open(QIODevice::ReadOnly))
        while (!log.atEnd())
            entries << QJsonDocument::fromJson(log.readLine()).object();
    return entries;
}

bool makeTestCertificate(const QString& dir)
{
    QProcess openssl;
    openssl.setProcessChannelMode(QProcess::MergedChannels);
    openssl.start("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", dir + "/server.key", "-out",
                              dir + "/ca.pem", "-days", "2", "-subj", "/CN=VELTRO test CA", "-addext",
                              "subjectAltName=IP:127.0.0.1"});
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0) {
        qWarning("openssl failed: %s", openssl.readAll().constData());
        return false;
    }
    return true;
}

constexpr const char* kVariables[] = {"VELTRO_UPDATE_HTTP", "VELTRO_UPDATE_HTTPS", "VELTRO_WEB_HTTP", "VELTRO_CA_FILE"};

} // namespace

LocalHttpServer::~LocalHttpServer()
{
    stopFixture(process_);
    if (exported_)
        clearEnvironment();
}

bool LocalHttpServer::start(const QString& servedDir)
{
    const QString key = certs_.path() + "/server.key";
    if (!makeTestCertificate(certs_.path()))
        return false;
    const QJsonObject ports =
        startFixture(process_, "http_server.py", {servedDir, caFile(), key, certs_.path() + "/requests.log"});
    httpPort_ = ports.value("http").toInt();
    httpsPort_ = ports.value("https").toInt();
    return httpPort_ > 0 && httpsPort_ > 0;
}

QStringList LocalHttpServer::requestedPaths() const
{
    QStringList paths;
    for (const QJsonObject& entry : readJsonLines(certs_.path() + "/requests.log"))
        paths << entry.value("path").toString();
    return paths;
}

QString LocalHttpServer::requestHeader(int index, const QString& name) const
{
    const QJsonObject headers = readJsonLines(certs_.path() + "/requests.log").value(index).value("headers").toObject();
    return headers.value(name.toLower()).toString();
}

void LocalHttpServer::exportEnvironment()
{
    const QString values[] = {httpRoot(), httpsRoot(), httpRoot(), caFile()};
    for (int i = 0; i < 4; ++i)
        qputenv(kVariables[i], values[i].toUtf8());
    exported_ = true;
}

void LocalHttpServer::clearEnvironment()
{
    for (const char* name : kVariables)
        qunsetenv(name);
}

LocalSmtpServer::~LocalSmtpServer()
{
    stopFixture(process_);
}

bool LocalSmtpServer::start(const QString& user, const QString& password, bool starttls)
{
    QStringList args{user, password, dir_.path() + "/mail.log"};
    if (starttls) {
        if (!makeTestCertificate(dir_.path()))
            return false;
        args << caFile() << dir_.path() + "/server.key";
    }
    ports_ = startFixture(process_, "smtp_server.py", args);
    for (const char* kind : {"smtp", "silent", "drop", "busy"})
        if (port(kind) <= 0)
            return false;
    return true;
}

QList<QJsonObject> LocalSmtpServer::messages() const
{
    return readJsonLines(dir_.path() + "/mail.log");
}

} // namespace veltro::test
