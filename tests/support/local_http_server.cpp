#include "local_http_server.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace veltro::test {

namespace {
bool run(const QString& program, const QStringList& args, const QString& dir)
{
    QProcess p;
    p.setWorkingDirectory(dir);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForFinished(30000) || p.exitCode() != 0) {
        qWarning("%s failed: %s", qPrintable(program), p.readAll().constData());
        return false;
    }
    return true;
}

// The system's python first: a user's python shim on PATH may be slow to start or missing ssl.
QString python()
{
    return QFile::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}

QString serverScript()
{
    const QString support = qEnvironmentVariable("VELTRO_TEST_SUPPORT");
    if (!support.isEmpty())
        return support + "/http_server.py";
    return QFileInfo(QStringLiteral(__FILE__)).absolutePath() + "/http_server.py";
}

QList<QJsonObject> readLog(const QString& path)
{
    QList<QJsonObject> entries;
    QFile log(path);
    if (!log.open(QIODevice::ReadOnly))
        return entries;
    while (!log.atEnd())
        entries << QJsonDocument::fromJson(log.readLine()).object();
    return entries;
}
} // namespace

LocalHttpServer::~LocalHttpServer()
{
    stop();
    if (exported_)
        clearEnvironment();
}

void LocalHttpServer::stop()
{
    if (process_.state() != QProcess::NotRunning) {
        process_.closeWriteChannel();
        if (!process_.waitForFinished(3000)) {
            process_.kill();
            process_.waitForFinished(3000);
        }
    }
}

bool LocalHttpServer::start(const QString& servedDir)
{
    servedDir_ = servedDir;
    const QString dir = certs_.path();
    QFile ext(dir + "/san.ext");
    if (!ext.open(QIODevice::WriteOnly))
        return false;
    ext.write("subjectAltName=IP:127.0.0.1,DNS:localhost\nbasicConstraints=CA:FALSE\n");
    ext.close();
    const QString openssl = "openssl";
    if (!run(openssl, {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out", "ca.pem",
                       "-days", "2", "-subj", "/CN=VELTRO test CA"}, dir)
        || !run(openssl, {"req", "-newkey", "rsa:2048", "-nodes", "-keyout", "server.key", "-out", "server.csr",
                          "-subj", "/CN=127.0.0.1"}, dir)
        || !run(openssl, {"x509", "-req", "-in", "server.csr", "-CA", "ca.pem", "-CAkey", "ca.key",
                          "-CAcreateserial", "-out", "server.pem", "-days", "2", "-extfile", "san.ext"}, dir))
        return false;

    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(python(), {serverScript(), servedDir, dir + "/server.pem", dir + "/server.key",
                              dir + "/requests.log"});
    if (!process_.waitForStarted(10000))
        return false;
    while (!process_.canReadLine()) {
        if (!process_.waitForReadyRead(15000))
            return false;
    }
    const QJsonObject ports = QJsonDocument::fromJson(process_.readLine()).object();
    httpPort_ = ports.value("http").toInt();
    httpsPort_ = ports.value("https").toInt();
    return httpPort_ > 0 && httpsPort_ > 0;
}

QStringList LocalHttpServer::requestedPaths() const
{
    QStringList paths;
    for (const QJsonObject& entry : readLog(certs_.path() + "/requests.log"))
        paths << entry.value("path").toString();
    return paths;
}

QString LocalHttpServer::requestHeader(int index, const QString& name) const
{
    const QList<QJsonObject> entries = readLog(certs_.path() + "/requests.log");
    if (index < 0 || index >= entries.size())
        return {};
    const QJsonObject headers = entries[index].value("headers").toObject();
    for (auto it = headers.begin(); it != headers.end(); ++it)
        if (it.key().compare(name, Qt::CaseInsensitive) == 0)
            return it.value().toString();
    return {};
}

void LocalHttpServer::setRule(const QString& path, int status, const QByteArray& body, double delaySeconds)
{
    QFile file(servedDir_ + "/.control.json");
    QJsonObject rules;
    if (file.open(QIODevice::ReadOnly)) {
        rules = QJsonDocument::fromJson(file.readAll()).object();
        file.close();
    }
    rules.insert(path, QJsonObject{{"status", status}, {"body", QString::fromUtf8(body)}, {"delay", delaySeconds}});
    // Written beside and renamed, so the server never reads half a file.
    QFile temp(file.fileName() + ".new");
    if (temp.open(QIODevice::WriteOnly)) {
        temp.write(QJsonDocument(rules).toJson());
        temp.close();
        QFile::remove(file.fileName());
        temp.rename(file.fileName());
    }
}

void LocalHttpServer::exportEnvironment()
{
    qputenv("VELTRO_UPDATE_HTTP", httpRoot().toUtf8());
    qputenv("VELTRO_UPDATE_HTTPS", httpsRoot().toUtf8());
    qputenv("VELTRO_WEB_HTTP", httpRoot().toUtf8());
    qputenv("VELTRO_CA_FILE", caFile().toUtf8());
    exported_ = true;
}

void LocalHttpServer::clearEnvironment()
{
    for (const char* name : {"VELTRO_UPDATE_HTTP", "VELTRO_UPDATE_HTTPS", "VELTRO_WEB_HTTP", "VELTRO_CA_FILE"})
        qunsetenv(name);
}

} // namespace veltro::test
