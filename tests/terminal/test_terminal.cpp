// The terminal's files and mails. What a typed line sends and how the text keeps the device's
// bytes are decided by the fuzz model of the terminal on its corpus.
#include "terminal/terminal.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

class TestTerminal : public QObject {
    Q_OBJECT
private slots:
    // The report's file: the text and CR LF, also for an empty terminal, over an older longer one.
    void terminalLog()
    {
        QTemporaryDir dir;
        for (const QByteArray& text : {QByteArray(), QByteArray("\rTERMINAL READY...\rx\r\ny")}) {
            writeFile(dir.path() + "/terminal_log.txt", "an older, longer report");
            QVERIFY(writeTerminalLog(dir.path().toStdString(), text.toStdString()));
            QCOMPARE(readFile(dir.path() + "/terminal_log.txt"), text + "\r\n");
        }
        QVERIFY(!writeTerminalLog(dir.path().toStdString() + "/missing", "x"));
    }

    // Both mails go to the support mailbox with the account's port unless the server names one.
    void mails()
    {
        qputenv("VELTRO_SUPPORT_MAIL", "support@veltro.example");
        qputenv("VELTRO_SMTP", "mail.veltro.example");
        MailRequest m = reportMail("1A2B3C4D", "/home");
        QCOMPARE(QString::fromStdString(m.subject + " " + m.file), QString("Nachricht VELTRO S/N:1A2B3C4D /home/terminal_log.txt"));
        QCOMPARE(QString::fromStdString(m.server + ":" + std::to_string(m.port)), QString("mail.veltro.example:25"));
        QCOMPARE(QString::fromStdString(m.to + " " + m.from + " " + m.body),
                 QString("support@veltro.example support@veltro.example Datenlog anbei"));
        qputenv("VELTRO_SMTP", "127.0.0.1:2525");
        m = imageMail("1A2B3C4D", "/home");
        QCOMPARE(QString::fromStdString(m.subject + " " + m.file), QString("EEPROM DOWNLOAD VELTRO S/N:1A2B3C4D /home/1A2B3C4D.eep"));
        QCOMPARE(QString::fromStdString(m.server + ":" + std::to_string(m.port)), QString("127.0.0.1:2525"));
        QVERIFY(!m.ssl);
    }
};

QTEST_GUILESS_MAIN(TestTerminal)
#include "test_terminal.moc"
