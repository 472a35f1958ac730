#include "local_servers.h"
#include "test_files.h"
#include "platform/cancel.h"
#include "platform/internet.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace veltro;
using veltro::test::writeFile;
using veltro::test::readFile;
using veltro::test::LocalHttpServer;

class TestInternet : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;
    QByteArray binary_;

private slots:
    void initTestCase()
    {
        for (int i = 0; i < 60000; ++i)
            binary_.append(char(i * 31 + i / 256));
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", binary_);
        for (int size : {65536, 65537, 1048576, 1048577})
            writeFile(served_.path() + "/limit/" + QString::number(size), QByteArray(size, '7'));
        QVERIFY(server_.start(served_.path()));
    }
    void cleanupTestCase() { LocalHttpServer::clearEnvironment(); }
    void init()
    {
        resetTransferCancel();
        qputenv("VELTRO_CA_FILE", server_.caFile().toUtf8());
        setTransferTimeouts(5000, 15000, 15000);
    }

    // Both calls against every kind of answer. `status`: the HTTP status a failure reports
    // (0: no HTTP answer, the download then returns some other non-zero code); `error`: the
    // text fetch's reason for the user.
    void transfers_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("trustTestCa");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error");
        const QString http = server_.httpRoot(), https = server_.httpsRoot(), file = "/fwupdate/3_180_lastfw";
        const QString missing = "Datei nicht auf dem Server gefunden (HTTP 404)",
                      stalled = "Server antwortet nicht (Zeitüberschreitung)";
        QTest::newRow("https, test CA trusted") << https + file << true << true << 0 << "";
        QTest::newRow("https, certificate no trusted CA signed") << https + file << false << false << 0
                                                                 << "Zertifikat des Servers nicht vertrauenswürdig";
        QTest::newRow("http, missing file") << http + "/fwupdate/none.txt" << true << false << 404 << missing;
        QTest::newRow("server down") << "http://127.0.0.1:9" + file << true << false << 0
                                     << "keine Verbindung zum Server";
        QTest::newRow("http, stalled server") << http + "/stall/a" << true << false << 0 << stalled;
        // Once the tool closes nothing starts: no request reaches the server.
        QTest::newRow("tool closing") << http + file << true << false << 0 << "abgebrochen";
    }
    void transfers()
    {
        QFETCH(QString, url);
        QFETCH(bool, trustTestCa);
        QFETCH(bool, ok);
        QFETCH(int, status);
        QFETCH(QString, error);
        if (!trustTestCa)
            qunsetenv("VELTRO_CA_FILE");
        if (url.contains("/stall/"))
            setTransferTimeouts(2000, 800, 800);
        const qsizetype requests = server_.requestedPaths().size();
        if (error == "abgebrochen")
            cancelAllTransfers();
        // Every request that reaches the server asks caches on the way for a fresh copy.
        auto checkNoCache = [&] {
            if (!ok && !status)
                return;
            const int last = server_.requestedPaths().size() - 1;
            QCOMPARE(server_.requestedPaths().value(last), QUrl(url).path());
            QCOMPARE(server_.requestHeader(last, "Cache-Control"), QString("no-cache"));
            QCOMPARE(server_.requestHeader(last, "Pragma"), QString("no-cache"));
        };

        const FetchResult text = fetchText(url.toStdString());
        QCOMPARE(text.ok, ok);
        QCOMPARE(QByteArray::fromStdString(text.body), ok ? binary_ : QByteArray());
        QCOMPARE(QString::fromStdString(text.error), error);
        QCOMPARE(text.httpStatus, long(ok ? 200 : status));
        checkNoCache();

        // A download goes to a temporary file renamed at the end: a failure keeps the old file
        // and leaves nothing else behind.
        QTemporaryDir target;
        const QString file = target.path() + "/3_180_lastfw";
        writeFile(file, "old content");
        const int rc = downloadToFile(url.toStdString(), file.toStdString());
        if (ok || status)
            QCOMPARE(rc, status);
        else
            QVERIFY(rc != 0);
        QCOMPARE(readFile(file), ok ? binary_ : QByteArray("old content"));
        QCOMPARE(QDir(target.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"3_180_lastfw"}));
        checkNoCache();
        if (error == "abgebrochen")
            QCOMPARE(server_.requestedPaths().size(), requests);
    }

    // Text fetches stop past 64 KiB and downloads past 1 MiB, with a clear text and nothing
    // left on disk; a body that never ends is one of them.
    void limits_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("textOk");
        QTest::addColumn<int>("downloadRc");
        QTest::newRow("text at the limit") << "/limit/65536" << true << 0;
        QTest::newRow("text one byte over") << "/limit/65537" << false << 0;
        QTest::newRow("image at the limit") << "/limit/1048576" << false << 0;
        QTest::newRow("image one byte over") << "/limit/1048577" << false << kDownloadOverLimit;
        QTest::newRow("endless body") << "/endless/a" << false << kDownloadOverLimit;
    }
    void limits()
    {
        QFETCH(QString, path);
        QFETCH(bool, textOk);
        QFETCH(int, downloadRc);
        const std::string url = (server_.httpRoot() + path).toStdString();
        const FetchResult text = fetchText(url);
        QCOMPARE(text.ok, textOk);
        if (!textOk) {
            QCOMPARE(QString::fromStdString(text.error), QString("Antwort zu groß (mehr als 64 KiB)"));
            QVERIFY(text.body.empty());
        }
        QTemporaryDir target;
        const QString file = target.path() + "/jdwiii.hzg";
        writeFile(file, "old content");
        QCOMPARE(downloadToFile(url, file.toStdString()), downloadRc);
        if (downloadRc != 0)
            QCOMPARE(readFile(file), QByteArray("old content"));
        QCOMPARE(QDir(target.path()).entryList(QDir::Files | QDir::Hidden), QStringList({"jdwiii.hzg"}));
    }
};

QTEST_GUILESS_MAIN(TestInternet)
#include "test_internet.moc"
