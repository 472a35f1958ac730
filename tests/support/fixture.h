#pragma once
// What the local server fixtures share: a python script started with the system's python that
// prints its ports as one JSON line and ends when its input closes, its JSON-lines log, and a
// throw-away self-signed certificate for 127.0.0.1 (the servers' certificate and the CA the
// client is told to trust at once).
#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace veltro::test {

// Starts tests/support/`script` with `args`; the JSON object it prints first (empty on failure).
QJsonObject startFixture(QProcess& process, const QString& script, const QStringList& args);
// Closes its input and waits for it to end (killed after 3 s).
void stopFixture(QProcess& process);
// One object per line of a JSON-lines log; none when the file is missing.
QList<QJsonObject> readJsonLines(const QString& path);

// Writes dir/ca.pem and dir/server.key; false (with a warning) when openssl fails.
bool makeTestCertificate(const QString& dir);

} // namespace veltro::test
