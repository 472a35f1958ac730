#include "local_smtp_server.h"
#include "fixture.h"

namespace veltro::test {

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
    const QJsonObject ports = startFixture(process_, "smtp_server.py", args);
    port_ = ports.value("smtp").toInt();
    silentPort_ = ports.value("silent").toInt();
    return port_ > 0 && silentPort_ > 0;
}

QList<QJsonObject> LocalSmtpServer::messages() const
{
    return readJsonLines(dir_.path() + "/mail.log");
}

} // namespace veltro::test
