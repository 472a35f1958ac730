#include "platform/mail.h"

#include "local_smtp_server.h"
#include "test_files.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {
const QString kUser = "w519e27c";
const QString kPassword = "Hr5nWqa8LpteUy2KmbXo";
} // namespace

// Mails against a real SMTP server. FILE stands for the attachment the row writes.
class TestMail : public QObject {
    Q_OBJECT
    LocalSmtpServer server;
    LocalSmtpServer tlsServer;
    QTemporaryDir dir;

private slots:
    void initTestCase()
    {
        QVERIFY(server.start(kUser, kPassword));
        QVERIFY(tlsServer.start(kUser, kPassword, true));
        setMailTimeouts(2000, 10000); // the silent server costs the connect limit
    }

    void send_data()
    {
        QTest::addColumn<QByteArray>("file");   // written to FILE unless null
        QTest::addColumn<QString>("path");      // sFilePath
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("where");     // "smtp", "tls", "tls untrusted", "silent" or "closed"
        QTest::addColumn<QString>("why");       // empty: sent; else the start of the reason
        QByteArray image(1026, '\0');
        for (int i = 0; i < image.size(); ++i)
            image[i] = char(i * 7);
        QByteArray log;
        for (int i = 0; log.size() < 70 * 1024; ++i)
            log += "Zeile " + QByteArray::number(i) + (i % 3 ? "\r\n" : "\r") + (i % 5 ? "" : "\n");
        const QString sent;
        QTest::newRow("binary image") << image << "FILE" << kPassword << "smtp" << sent;
        QTest::newRow("log over 64 KiB with bare CR and LF") << log << "FILE" << kPassword << "smtp" << sent;
        QTest::newRow("empty log") << QByteArray("") << "FILE" << kPassword << "smtp" << sent;
        QTest::newRow("STARTTLS with the trusted test CA") << image << "FILE" << kPassword << "tls" << sent;
        QTest::newRow("STARTTLS, certificate not trusted") << image << "FILE" << kPassword << "tls untrusted"
                                                            << "Zertifikat des Mailservers nicht vertrauenswürdig";
        QTest::newRow("blank path: no attachment") << QByteArray() << "   " << kPassword << "smtp" << sent;
        QTest::newRow("missing attachment") << QByteArray() << "FILE" << kPassword << "smtp"
                                            << "Anhang nicht lesbar";
        QTest::newRow("wrong password") << image << "FILE" << "falsch" << "smtp"
                                        << "Anmeldung am Mailserver abgelehnt";
        QTest::newRow("server down") << image << "FILE" << kPassword << "closed"
                                     << "Mailserver nicht erreichbar";
        QTest::newRow("server never answers") << image << "FILE" << kPassword << "silent"
                                              << "Mailserver antwortet nicht";
    }
    void send()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, path);
        QFETCH(QString, password);
        QFETCH(QString, where);
        QFETCH(QString, why);
        const QString attachment = dir.path() + "/" + QTest::currentDataTag()[0] + "_1A2B3C4D.eep";
        QFile::remove(attachment);
        if (!file.isNull())
            QVERIFY(writeFile(attachment, file));
        const bool tls = where.startsWith("tls");
        const LocalSmtpServer& to = tls ? tlsServer : server;
        const int port = where == "silent" ? server.silentPort() : where == "closed" ? 9 : to.port();
        if (where == "tls")
            qputenv("VELTRO_CA_FILE", tlsServer.caFile().toUtf8());
        const qsizetype before = to.messages().size();

        std::string reason;
        const std::string got =
            SendMail("support@veltro.example", "Nachricht VELTRO S/N:1A2B3C4D", "support@veltro.example",
                     "Datenlog anbei", "127.0.0.1", port, kUser.toStdString(), password.toStdString(),
                     (path == "FILE" ? attachment : path).toStdString(), false, &reason);
        qunsetenv("VELTRO_CA_FILE");
        QCOMPARE(QString::fromStdString(got), why.isEmpty() ? QString(kMailSent) : QString());
        QVERIFY2(QString::fromStdString(reason).startsWith(why), reason.c_str());

        const QList<QJsonObject> mails = to.messages();
        if (!why.isEmpty()) {
            QCOMPARE(mails.size(), before);
            return;
        }
        QCOMPARE(mails.size(), before + 1);
        const QJsonObject m = mails.last();
        QVERIFY(m["authenticated"].toBool());
        QCOMPARE(m["tls"].toBool(), tls);
        QCOMPARE(m["login"].toString(), kUser);
        QCOMPARE(m["mechanism"].toString(), QString("LOGIN"));
        QCOMPARE(m["subject"].toString(), QString("Nachricht VELTRO S/N:1A2B3C4D"));
        QCOMPARE(m["header_from"].toString(), QString("support@veltro.example"));
        QCOMPARE(m["to"].toArray().first().toString(), QString("support@veltro.example"));
        QVERIFY(m["date"].toBool() && m["message_id"].toBool());
        QCOMPARE(m["body"].toString().trimmed(), QString("Datenlog anbei"));
        const QJsonArray parts = m["attachments"].toArray();
        if (path != "FILE") {
            QVERIFY(parts.isEmpty());
            return;
        }
        QCOMPARE(parts.size(), 1);
        QCOMPARE(parts[0]["filename"].toString(), QFileInfo(attachment).fileName());
        QCOMPARE(QByteArray::fromBase64(parts[0]["data"].toString().toLatin1()), file);
    }
};

QTEST_GUILESS_MAIN(TestMail)
#include "test_mail.moc"
