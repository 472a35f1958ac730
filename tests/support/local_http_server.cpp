#include "local_http_server.h"
#include "test_certificate.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace veltro::test {

namespace {
constexpr const char* kVariables[] = {"VELTRO_UPDATE_HTTP", "VELTRO_UPDATE_HTTPS", "VELTRO_WEB_HTTP", "VELTRO_CA_FILE"};

QList<QJsonObject> readLog(const QString& path)
{
    QList<QJsonObject> entries;
    QFile log(path);
    if (log.open(QIODevice::ReadOnly))
        while (!log.atEnd())
            entries << QJsonDocument::fromJson(log.readLine()).object();
    return entries;
}
} // namespace

LocalHttpServer::~LocalHttpServer()
{
    if (process_.state() != QProcess::NotRunning) {
        process_.closeWriteChannel(); // the server ends when its input closes
        if (!process_.waitForFinished(3000)) {
            process_.kill();
            process_.waitForFinished(3000);
        }
    }
    if (exported_)
        clearEnvironment();
}

bool LocalHttpServer::start(const QString& servedDir)
{
    const QString key = certs_.path() + "/server.key";
    if (!makeTestCertificate(certs_.path()))
        return false;
    // The system's python first: a python shim on PATH may be slow to start or lack ssl.
    const QString python = QFile::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
    const QString support = qEnvironmentVariable("VELTRO_TEST_SUPPORT", QFileInfo(__FILE__).absolutePath());
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(python, {support + "/http_server.py", servedDir, caFile(), key, certs_.path() + "/requests.log"});
    while (!process_.canReadLine())
        if (!process_.waitForReadyRead(15000))
            return false;
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
    const QJsonObject headers = readLog(certs_.path() + "/requests.log").value(index).value("headers").toObject();
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

} // namespace veltro::test
