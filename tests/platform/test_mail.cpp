#include "platform/mail.h"

#include "local_servers.h"
#include "test_files.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

namespace {
const QString kUser = "w519e27c";
const QString kPassword = "Hr5nWqa8LpteUy2KmbXo";
const QString kMailbox = "support@veltro.example";
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
        QTest::addColumn<QString>("where");     // "smtp", "tls", "tls untrusted", "closed", or a failing server
        QTest::addColumn<QString>("mailbox");   // recipient and sender, as the tool mails
        QTest::addColumn<QString>("why");       // empty: sent; else the start of the reason
        QByteArray image(1026, '\0');
        for (int i = 0; i < image.size(); ++i)
            image[i] = char(i * 7);
        QByteArray log;
        for (int i = 0; log.size() < 70 * 1024; ++i)
            log += "Zeile " + QByteArray::number(i) + (i % 3 ? "\r\n" : "\r") + (i % 5 ? "" : "\n");
        const QString sent;
        QTest::newRow("binary image") << image << "FILE" << kPassword << "smtp" << kMailbox << sent;
        QTest::newRow("log over 64 KiB with bare CR and LF") << log << "FILE" << kPassword << "smtp" << kMailbox << sent;
        QTest::newRow("STARTTLS with the trusted test CA") << image << "FILE" << kPassword << "tls" << kMailbox << sent;
        QTest::newRow("STARTTLS, certificate not trusted") << image << "FILE" << kPassword << "tls untrusted" << kMailbox
                                                            << "Zertifikat des Mailservers nicht vertrauenswürdig";
        QTest::newRow("blank path: no attachment") << QByteArray() << "   " << kPassword << "smtp" << kMailbox << sent;
        QTest::newRow("missing attachment") << QByteArray() << "FILE" << kPassword << "smtp" << kMailbox
                                            << "Anhang nicht gefunden (";
        QTest::newRow("wrong password") << image << "FILE" << "falsch" << "smtp" << kMailbox
                                        << "Anmeldung am Mailserver abgelehnt";
        QTest::newRow("server down") << image << "FILE" << kPassword << "closed" << kMailbox
                                     << "keine Verbindung zum Mailserver";
        QTest::newRow("server never answers") << image << "FILE" << kPassword << "silent" << kMailbox
                                              << "Mailserver antwortet nicht (Zeitüberschreitung)";
        QTest::newRow("server drops the connection after the login") << image << "FILE" << kPassword << "drop"
                                                                      << kMailbox
                                                                      << "Verbindung zum Mailserver unterbrochen";
        QTest::newRow("server refuses for now") << image << "FILE" << kPassword << "busy" << kMailbox
                                                << "Mailserver lehnt ab (Antwort 451)";
        // Refused before any connection: in the envelope these would end the address or add
        // commands (a line break: the terminal road mails to one).
        QTest::newRow("mailbox with a blank") << image << "FILE" << kPassword << "smtp" << "support @veltro.example"
                                              << "Empfängeradresse ungültig (Leerzeichen)";
        QTest::newRow("mailbox with DEL") << image << "FILE" << kPassword << "smtp" << "support\x7f@veltro.example"
                                          << "Empfängeradresse ungültig (Steuerzeichen)";
        QTest::newRow("mailbox with a bracket") << image << "FILE" << kPassword << "smtp" << "evil@veltro.example>"
                                                << "Empfängeradresse ungültig (spitze Klammer)";
    }
    void send()
    {
        QFETCH(QByteArray, file);
        QFETCH(QString, path);
        QFETCH(QString, password);
        QFETCH(QString, where);
        QFETCH(QString, mailbox);
        QFETCH(QString, why);
        const QString attachment = dir.path() + "/" + QTest::currentDataTag()[0] + "_1A2B3C4D.eep";
        QFile::remove(attachment);
        if (!file.isNull())
            QVERIFY(writeFile(attachment, file));
        const bool tls = where.startsWith("tls");
        const LocalSmtpServer& to = tls ? tlsServer : server;
        const int port = where == "closed" ? 9 : tls ? to.port() : to.port(where);
        if (where == "tls")
            qputenv("VELTRO_CA_FILE", tlsServer.caFile().toUtf8());
        const qsizetype before = to.messages().size();
        std::string reason;
        const std::string got = SendMail(mailbox.toStdString(), "Nachricht VELTRO S/N:1A2B3C4D", mailbox.toStdString(),
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
        QVERIFY(m["authenticated"].toBool() && m["message_id"].toBool());
        QCOMPARE(m["tls"].toBool(), tls);
        QCOMPARE(QStringList({m["login"].toString(), m["mechanism"].toString(), m["subject"].toString(),
                              m["header_from"].toString(), m["to"].toArray().first().toString()}),
                 QStringList({kUser, "LOGIN", "Nachricht VELTRO S/N:1A2B3C4D", kMailbox, kMailbox}));
        // Sent just now: the header's day is today's or, around midnight, yesterday's.
        const QDateTime date = QDateTime::fromString(m["date"].toString(), Qt::RFC2822Date);
        QVERIFY2(date.isValid(), qPrintable(m["date"].toString()));
        QVERIFY(date.daysTo(QDateTime::currentDateTimeUtc()) <= 1 && date <= QDateTime::currentDateTimeUtc());
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
