#pragma once
// A throw-away self-signed certificate for 127.0.0.1, made with openssl for one test run: it
// is the servers' certificate and the CA the client is told to trust at once.
#include <QString>

namespace veltro::test {

// Writes dir/ca.pem and dir/server.key; false (with a warning) when openssl fails.
bool makeTestCertificate(const QString& dir);

} // namespace veltro::test
