#include "local_http_server.h"
#include "platform/endpoints.h"
#include "platform/internet.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using veltro::test::LocalHttpServer;

namespace {
void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(content);
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
} // namespace

class TestInternet : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;

private slots:
    void initTestCase()
    {
        QByteArray binary;
        for (int i = 0; i < 70000; ++i)
            binary.append(char(i * 31));
        writeFile(served_.path() + "/fwupdate/VELTRO.txt", "6,1.06\r\n");
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", binary);
        QVERIFY(server_.start(served_.path()));
        setTransferTimeouts(2000, 2000, 2000);
    }

    void transfers_data()
    {
        QTest::addColumn<bool>("https");
        QTest::addColumn<bool>("trusted");
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("ok");
        QTest::newRow("http text") << false << false << "/fwupdate/VELTRO.txt" << true;
        QTest::newRow("https text, test CA trusted") << true << true << "/fwupdate/VELTRO.txt" << true;
        QTest::newRow("https, certificate not trusted") << true << false << "/fwupdate/VELTRO.txt" << false;
        QTest::newRow("http 404") << false << false << "/fwupdate/VELTRO_9_9.txt" << false;
        QTest::newRow("https 404") << true << true << "/fwupdate/nothing" << false;
        QTest::newRow("directory is not a file") << false << false << "/fwupdate/" << false;
        QTest::newRow("binary image") << false << false << "/fwupdate/3_180_lastfw" << true;
        QTest::newRow("connection cut mid-body") << false << false << "/cut/x" << false;
        QTest::newRow("stalled server ends by the time-out") << false << false << "/stall/x" << false;
    }
    void transfers()
    {
        QFETCH(bool, https);
        QFETCH(bool, trusted);
        QFETCH(QString, path);
        QFETCH(bool, ok);
        if (trusted)
            qputenv("VELTRO_CA_FILE", server_.caFile().toUtf8());
        else
            qunsetenv("VELTRO_CA_FILE");
        const QString url = (https ? server_.httpsRoot() : server_.httpRoot()) + path;

        const FetchResult text = fetchText(url.toStdString());
        QCOMPARE(text.ok, ok);
        if (ok)
            QCOMPARE(QByteArray::fromStdString(text.body), readFile(served_.path() + path));
        else
            QVERIFY(!text.error.empty());

        // A download over an existing file replaces it only when the transfer succeeded.
        QTemporaryDir target;
        const QString file = target.path() + "/jdwiii.hzg";
        writeFile(file, "old content");
        const int rc = downloadToFile(url.toStdString(), file.toStdString());
        QCOMPARE(rc == 0, ok);
        QCOMPARE(readFile(file), ok ? readFile(served_.path() + path) : QByteArray("old content"));
        QCOMPARE(QDir(target.path()).entryList(QDir::Files), QStringList({"jdwiii.hzg"}));
    }

    void asksForAFreshCopy()
    {
        const int before = server_.requestedPaths().size();
        QVERIFY(fetchText((server_.httpRoot() + "/fwupdate/VELTRO.txt").toStdString()).ok);
        QCOMPARE(server_.requestHeader(before, "Cache-Control"), QString("no-cache"));
        QCOMPARE(server_.requestHeader(before, "Pragma"), QString("no-cache"));
    }

    void serverDown()
    {
        const FetchResult r = fetchText("http://127.0.0.1:9/fwupdate/VELTRO.txt");
        QVERIFY(!r.ok);
        QVERIFY(downloadToFile("http://127.0.0.1:9/x", (served_.path() + "/never").toStdString()) != 0);
        QVERIFY(!QFile::exists(served_.path() + "/never"));
    }

    void endpointsAndEncoding()
    {
        qunsetenv("VELTRO_UPDATE_HTTP");
        QVERIFY(QString::fromStdString(endpoints::updateHttpRoot()).endsWith(".example"));
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:8080/");
        QCOMPARE(QString::fromStdString(endpoints::updateHttpRoot()), QString("http://127.0.0.1:8080"));
        qputenv("VELTRO_SMTP", "127.0.0.1:2525");
        QCOMPARE(QString::fromStdString(endpoints::smtpServer()), QString("127.0.0.1:2525"));
        qunsetenv("VELTRO_UPDATE_HTTP");
        qunsetenv("VELTRO_SMTP");
        QCOMPARE(QString::fromStdString(urlEncodePathSegment("12 34/ä")), QString("12%2034%2F%C3%A4"));
        QCOMPARE(QString::fromStdString(urlEncodePathSegment("A-1_b.c~")), QString("A-1_b.c~"));
    }
};

QTEST_GUILESS_MAIN(TestInternet)
#include "test_internet.moc"
