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
    ports_ = startFixture(process_, "smtp_server.py", args);
    for (const char* kind : {"smtp", "silent", "drop", "stall"})
        if (port(kind) <= 0)
            return false;
    return true;
}

QList<QJsonObject> LocalSmtpServer::messages() const
{
    return readJsonLines(dir_.path() + "/mail.log");
}

} // namespace veltro::test
