#include "local_http_server.h"
#include "test_files.h"
#include "platform/endpoints.h"
#include "platform/internet.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>
#include <vector>

using namespace veltro;
using veltro::test::writeFile;
using veltro::test::readFile;
using veltro::test::LocalHttpServer;

namespace {
// Generous for transfers that should work on a busy machine, short where a test waits for a
// time-out to end a transfer.
void normalTimeouts() { setTransferTimeouts(5000, 15000, 15000); }
void shortTimeouts() { setTransferTimeouts(2000, 800, 800); }

const char* const kExisting = "old content";
} // namespace

class TestInternet : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;
    QByteArray binary_;

    QString root(bool https) const { return https ? server_.httpsRoot() : server_.httpRoot(); }

private slots:
    void initTestCase()
    {
        for (int i = 0; i < 70000; ++i)
            binary_.append(char(i * 31 + i / 256));
        writeFile(served_.path() + "/fwupdate/VELTRO.txt", "6,1.06\r\n");
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", binary_);
        writeFile(served_.path() + "/fwupdate/empty.txt", "");
        QVERIFY(server_.start(served_.path()));
        qputenv("VELTRO_CA_FILE", server_.caFile().toUtf8());
        normalTimeouts();
    }
    void cleanupTestCase() { LocalHttpServer::clearEnvironment(); }
    void init()
    {
        qputenv("VELTRO_CA_FILE", server_.caFile().toUtf8());
        normalTimeouts();
    }

    // Every server answer, over both schemes, through both calls. `status` is the HTTP error
    // a download reports (0: a transport failure, any non-zero code will do).
    void transfers_data()
    {
        QTest::addColumn<bool>("https");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("stalls");
        struct Row {
            const char* name;
            const char* path;
            bool ok;
            int status;
            bool stalls;
        };
        const Row rows[] = {
            {"text file", "/fwupdate/VELTRO.txt", true, 0, false},
            {"binary image, exact bytes", "/fwupdate/3_180_lastfw", true, 0, false},
            {"empty file", "/fwupdate/empty.txt", true, 0, false},
            {"redirect is followed", "/redirect/fwupdate/VELTRO.txt", true, 0, false},
            {"missing file is 404", "/fwupdate/VELTRO_9_9.txt", false, 404, false},
            {"folder is not a file", "/fwupdate/", false, 404, false},
            {"server error", "/status/500/x", false, 500, false},
            {"forbidden", "/status/403/x", false, 403, false},
            {"connection cut mid-body", "/cut/x", false, 0, false},
            {"no answer ends by the time-out", "/stall/x", false, 0, true},
            {"body stops, ends by the time-out", "/stall-body/x", false, 0, true},
        };
        for (bool https : {false, true})
            for (const Row& r : rows)
                QTest::addRow("%s %s", https ? "https" : "http", r.name)
                    << https << QString(r.path) << r.ok << r.status << r.stalls;
    }
    void transfers()
    {
        QFETCH(bool, https);
        QFETCH(QString, path);
        QFETCH(bool, ok);
        QFETCH(int, status);
        QFETCH(bool, stalls);
        if (stalls)
            shortTimeouts();
        const std::string url = (root(https) + path).toStdString();
        const QString servedPath = served_.path() + QString(path).remove("/redirect");

        const FetchResult text = fetchText(url);
        QCOMPARE(text.ok, ok);
        if (ok) {
            QCOMPARE(QByteArray::fromStdString(text.body), readFile(servedPath));
            QVERIFY(text.error.empty());
            QCOMPARE(text.httpStatus, 200L);
        } else {
            QVERIFY(!text.error.empty());
            QVERIFY(text.body.empty());
            if (status)
                QCOMPARE(text.httpStatus, long(status));
        }

        // A download over an existing file replaces it only when the transfer succeeded, and
        // leaves nothing else behind either way.
        QTemporaryDir target;
        const QString file = target.path() + "/jdwiii.hzg";
        writeFile(file, kExisting);
        const int rc = downloadToFile(url, file.toStdString());
        if (ok)
            QCOMPARE(rc, 0);
        else if (status)
            QCOMPARE(rc, status);
        else
            QVERIFY(rc != 0);
        QCOMPARE(readFile(file), ok ? readFile(servedPath) : QByteArray(kExisting));
        QCOMPARE(QDir(target.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"jdwiii.hzg"}));
    }

    // HTTPS is always verified: the throw-away CA is trusted only through VELTRO_CA_FILE.
    void certificateTrust_data()
    {
        QTest::addColumn<QString>("caFile");
        QTest::addColumn<bool>("ok");
        QTest::newRow("no extra CA") << QString() << false;
        QTest::newRow("test CA added") << server_.caFile() << true;
        QTest::newRow("extra CA file missing") << served_.path() + "/no-such-ca.pem" << false;
        QTest::newRow("extra file is not a certificate") << served_.path() + "/fwupdate/VELTRO.txt" << false;
    }
    void certificateTrust()
    {
        QFETCH(QString, caFile);
        QFETCH(bool, ok);
        if (caFile.isEmpty())
            qunsetenv("VELTRO_CA_FILE");
        else
            qputenv("VELTRO_CA_FILE", caFile.toUtf8());
        const std::string url = (server_.httpsRoot() + "/fwupdate/VELTRO.txt").toStdString();
        QCOMPARE(fetchText(url).ok, ok);

        QTemporaryDir target;
        const QString file = target.path() + "/VELTRO.txt";
        QCOMPARE(downloadToFile(url, file.toStdString()) == 0, ok);
        QCOMPARE(QFile::exists(file), ok);
    }

    // Both calls ask every cache on the way for a fresh copy.
    void asksForAFreshCopy_data()
    {
        QTest::addColumn<bool>("https");
        QTest::addColumn<bool>("download");
        for (bool https : {false, true})
            for (bool download : {false, true})
                QTest::addRow("%s %s", https ? "https" : "http", download ? "download" : "text")
                    << https << download;
    }
    void asksForAFreshCopy()
    {
        QFETCH(bool, https);
        QFETCH(bool, download);
        const QString path = QString("/fwupdate/VELTRO.txt?fresh-%1-%2").arg(https).arg(download);
        const std::string url = (root(https) + path).toStdString();
        QTemporaryDir target;
        if (download)
            QCOMPARE(downloadToFile(url, (target.path() + "/f").toStdString()), 0);
        else
            QVERIFY(fetchText(url).ok);
        const int index = server_.requestedPaths().lastIndexOf(path);
        QVERIFY(index >= 0);
        QCOMPARE(server_.requestHeader(index, "Cache-Control"), QString("no-cache"));
        QCOMPARE(server_.requestHeader(index, "Pragma"), QString("no-cache"));
    }

    void serverDown_data()
    {
        QTest::addColumn<QString>("url");
        QTest::newRow("http, nothing listening") << "http://127.0.0.1:9/fwupdate/VELTRO.txt";
        QTest::newRow("https, nothing listening") << "https://127.0.0.1:9/fwupdate/VELTRO.txt";
        QTest::newRow("host that does not resolve") << "http://update.veltro.invalid/fwupdate/VELTRO.txt";
        QTest::newRow("scheme other than http(s)") << "file:///etc/hostname";
    }
    void serverDown()
    {
        QFETCH(QString, url);
        const FetchResult r = fetchText(url.toStdString());
        QVERIFY(!r.ok);
        QVERIFY(!r.error.empty());
        QTemporaryDir target;
        QVERIFY(downloadToFile(url.toStdString(), (target.path() + "/never").toStdString()) != 0);
        QVERIFY(QDir(target.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    }

    void downloadIntoMissingFolderFails()
    {
        QTemporaryDir target;
        const QString file = target.path() + "/no/such/folder/VELTRO.txt";
        QVERIFY(downloadToFile((server_.httpRoot() + "/fwupdate/VELTRO.txt").toStdString(), file.toStdString()) != 0);
        QVERIFY(!QFile::exists(file));
    }

    // The progress report reaches the announced size; a cancel keeps the old file.
    void downloadProgress_data()
    {
        QTest::addColumn<bool>("cancel");
        QTest::newRow("runs to the end") << false;
        QTest::newRow("cancelled") << true;
    }
    void downloadProgress()
    {
        QFETCH(bool, cancel);
        QTemporaryDir target;
        const QString file = target.path() + "/3_180_lastfw";
        writeFile(file, kExisting);
        std::int64_t lastReceived = 0, lastTotal = 0;
        bool wentBack = false;
        const int rc = downloadToFile((server_.httpRoot() + "/fwupdate/3_180_lastfw").toStdString(),
                                      file.toStdString(), [&](std::int64_t received, std::int64_t total) {
                                          wentBack = wentBack || received < lastReceived;
                                          lastReceived = received;
                                          lastTotal = total;
                                          return !(cancel && received > 0);
                                      });
        QVERIFY(!wentBack);
        if (cancel) {
            QVERIFY(rc != 0);
            QCOMPARE(readFile(file), QByteArray(kExisting));
        } else {
            QCOMPARE(rc, 0);
            QCOMPARE(lastReceived, std::int64_t(binary_.size()));
            QCOMPARE(lastTotal, std::int64_t(binary_.size()));
            QCOMPARE(readFile(file), binary_);
        }
        QCOMPARE(QDir(target.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"3_180_lastfw"}));
    }

    // Transfers run on worker threads, several at once.
    void concurrentTransfers()
    {
        const std::string textUrl = (server_.httpsRoot() + "/fwupdate/VELTRO.txt").toStdString();
        const std::string imageUrl = (server_.httpRoot() + "/fwupdate/3_180_lastfw").toStdString();
        QTemporaryDir target;
        std::atomic<int> good{0};
        std::vector<std::thread> workers;
        for (int i = 0; i < 6; ++i)
            workers.emplace_back([&, i] {
                const bool textOk = fetchText(textUrl).body == "6,1.06\r\n";
                const std::string file = (target.path() + QString("/image%1").arg(i)).toStdString();
                if (textOk && downloadToFile(imageUrl, file) == 0 && readFile(QString::fromStdString(file)) == binary_)
                    ++good;
            });
        for (auto& w : workers)
            w.join();
        QCOMPARE(good.load(), 6);
    }

    void endpointOverrides_data()
    {
        QTest::addColumn<QByteArray>("variable");
        QTest::addColumn<int>("which");
        QTest::addColumn<QByteArray>("value");  // null: unset
        QTest::addColumn<QString>("expected");
        struct Endpoint {
            const char* variable;
            const char* fallback;
            const char* value;
            bool isRoot;
        };
        const Endpoint endpoints[] = {
            {"VELTRO_UPDATE_HTTP", "http://update.veltro.example", "http://127.0.0.1:8080", true},
            {"VELTRO_UPDATE_HTTPS", "https://update.veltro.example", "https://127.0.0.1:8443", true},
            {"VELTRO_WEB_HTTP", "http://www.veltro.example", "http://127.0.0.1:8081", true},
            {"VELTRO_SMTP", "mail.veltro.example:25", "127.0.0.1:2525", false},
            {"VELTRO_SUPPORT_MAIL", "support@veltro.example", "bench@example.org", false},
            {"VELTRO_CA_FILE", "", "/tmp/test-ca.pem", false},
        };
        int which = 0;
        for (const Endpoint& e : endpoints) {
            QTest::addRow("%s unset", e.variable) << QByteArray(e.variable) << which << QByteArray() << e.fallback;
            QTest::addRow("%s empty", e.variable) << QByteArray(e.variable) << which << QByteArray("") << e.fallback;
            QTest::addRow("%s set", e.variable) << QByteArray(e.variable) << which << QByteArray(e.value) << e.value;
            if (e.isRoot)
                QTest::addRow("%s with trailing slash", e.variable)
                    << QByteArray(e.variable) << which << QByteArray(e.value) + "/" << e.value;
            ++which;
        }
    }
    void endpointOverrides()
    {
        QFETCH(QByteArray, variable);
        QFETCH(int, which);
        QFETCH(QByteArray, value);
        QFETCH(QString, expected);
        std::string (*const read[])() = {endpoints::updateHttpRoot, endpoints::updateHttpsRoot,
                                         endpoints::webHttpRoot,    endpoints::smtpServer,
                                         endpoints::supportMail,    endpoints::caFile};
        const QByteArray saved = qgetenv(variable.constData());
        const bool wasSet = qEnvironmentVariableIsSet(variable.constData());
        if (value.isNull())
            qunsetenv(variable.constData());
        else
            qputenv(variable.constData(), value);
        const QString actual = QString::fromStdString(read[which]());
        if (wasSet)
            qputenv(variable.constData(), saved);
        else
            qunsetenv(variable.constData());
        QCOMPARE(actual, expected);
    }

    void pathSegmentEncoding_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("encoded");
        QTest::newRow("unreserved stay") << QByteArray("AZaz09-._~") << "AZaz09-._~";
        QTest::newRow("blank") << QByteArray("12 34") << "12%2034";
        QTest::newRow("slash cannot open a folder") << QByteArray("../x") << "..%2Fx";
        QTest::newRow("query and fragment") << QByteArray("a?b#c") << "a%3Fb%23c";
        QTest::newRow("percent itself") << QByteArray("50%") << "50%25";
        QTest::newRow("UTF-8 bytes") << QByteArray("\xC3\xA4") << "%C3%A4";
        QTest::newRow("control byte") << QByteArray("a\nb") << "a%0Ab";
        QTest::newRow("empty") << QByteArray("") << "";
    }
    void pathSegmentEncoding()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, encoded);
        QCOMPARE(QString::fromStdString(urlEncodePathSegment(text.toStdString())), encoded);
    }
};

QTEST_GUILESS_MAIN(TestInternet)
#include "test_internet.moc"
