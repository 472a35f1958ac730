#pragma once
// A real HTTP and HTTPS server on 127.0.0.1 serving a folder (see http_server.py), with a
// throw-away CA made for this run. The server ends with this object.
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace veltro::test {

class LocalHttpServer {
public:
    LocalHttpServer() = default;
    ~LocalHttpServer();
    LocalHttpServer(const LocalHttpServer&) = delete;
    LocalHttpServer& operator=(const LocalHttpServer&) = delete;

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

} // namespace veltro::test
