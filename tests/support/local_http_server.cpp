#include "local_http_server.h"

#include <QFile>
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

QString python()
{
    return QFile::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
}
} // namespace

LocalHttpServer::~LocalHttpServer()
{
    stop();
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

    const QString script = qEnvironmentVariable("VELTRO_TEST_SUPPORT") + "/http_server.py";
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(python(), {script, servedDir, dir + "/server.pem", dir + "/server.key", dir + "/requests.log"});
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
    QFile log(certs_.path() + "/requests.log");
    if (!log.open(QIODevice::ReadOnly))
        return paths;
    while (!log.atEnd())
        paths << QJsonDocument::fromJson(log.readLine()).object().value("path").toString();
    return paths;
}

QString LocalHttpServer::requestHeader(int index, const QString& name) const
{
    QFile log(certs_.path() + "/requests.log");
    if (!log.open(QIODevice::ReadOnly))
        return {};
    for (int i = 0; !log.atEnd(); ++i) {
        const QByteArray line = log.readLine();
        if (i != index) continue;
        const QJsonObject headers = QJsonDocument::fromJson(line).object().value("headers").toObject();
        for (auto it = headers.begin(); it != headers.end(); ++it)
            if (it.key().compare(name, Qt::CaseInsensitive) == 0)
                return it.value().toString();
    }
    return {};
}

void LocalHttpServer::exportEnvironment() const
{
    qputenv("VELTRO_UPDATE_HTTP", httpRoot().toUtf8());
    qputenv("VELTRO_UPDATE_HTTPS", httpsRoot().toUtf8());
    qputenv("VELTRO_WEB_HTTP", httpRoot().toUtf8());
    qputenv("VELTRO_CA_FILE", caFile().toUtf8());
}

} // namespace veltro::test
