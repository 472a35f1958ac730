#include "local_smtp_server.h"
#include "test_certificate.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

namespace veltro::test {

LocalSmtpServer::~LocalSmtpServer()
{
    if (process_.state() != QProcess::NotRunning) {
        process_.closeWriteChannel(); // the server ends when its input closes
        if (!process_.waitForFinished(3000)) {
            process_.kill();
            process_.waitForFinished(3000);
        }
    }
}

bool LocalSmtpServer::start(const QString& user, const QString& password, bool starttls)
{
    QStringList args{QString(), user, password, dir_.path() + "/mail.log"};
    if (starttls) {
        if (!makeTestCertificate(dir_.path()))
            return false;
        args << caFile() << dir_.path() + "/server.key";
    }
    // aiosmtpd belongs to the system's python.
    const QString support = qEnvironmentVariable("VELTRO_TEST_SUPPORT", QFileInfo(__FILE__).absolutePath());
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    args[0] = support + "/smtp_server.py";
    process_.start("/usr/bin/python3", args);
    while (!process_.canReadLine())
        if (!process_.waitForReadyRead(15000))
            return false;
    const QJsonObject ports = QJsonDocument::fromJson(process_.readLine()).object();
    port_ = ports.value("smtp").toInt();
    silentPort_ = ports.value("silent").toInt();
    return port_ > 0 && silentPort_ > 0;
}

QList<QJsonObject> LocalSmtpServer::messages() const
{
    QList<QJsonObject> out;
    QFile log(dir_.path() + "/mail.log");
    if (log.open(QIODevice::ReadOnly))
        while (!log.atEnd())
            out << QJsonDocument::fromJson(log.readLine()).object();
    return out;
}

} // namespace veltro::test
