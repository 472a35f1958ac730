#include "test_certificate.h"

#include <QProcess>

namespace veltro::test {

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
