#include "local_http_server.h"
#include "fixture.h"

#include <QJsonObject>

namespace veltro::test {

namespace {
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

} // namespace veltro::test
