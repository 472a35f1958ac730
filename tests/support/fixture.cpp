#include "fixture.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace veltro::test {

QJsonObject startFixture(QProcess& process, const QString& script, const QStringList& args)
{
    // The system's python first: aiosmtpd belongs to it, and a python shim on PATH may be slow
    // to start or lack ssl.
    const QString python = QFile::exists("/usr/bin/python3") ? "/usr/bin/python3" : "python3";
    const QString support = qEnvironmentVariable("VELTRO_TEST_SUPPORT", QFileInfo(__FILE__).absolutePath());
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

} // namespace veltro::test
