#include "terminal/terminal.h"

#include "test_files.h"

#include <QTemporaryDir>
#include <QTest>

using namespace veltro;
using namespace veltro::test;

class TestTerminal : public QObject {
    Q_OBJECT
private slots:
    // Enter in the input line: what goes to the device, or the image mail.
    void lineEntry_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("lastKey");
        QTest::addColumn<bool>("mail");
        QTest::addColumn<QByteArray>("sent");
        QTest::newRow("a line gets one CR") << "ver" << "86-0" << false << QByteArray("ver\r");
        QTest::newRow("empty line: a lone CR") << "" << "13-0" << false << QByteArray("\r");
        QTest::newRow("after Escape: no terminator") << "AT" << "27-0" << false << QByteArray("AT");
        QTest::newRow("Shift+Escape is not Escape") << "AT" << "27-1" << false << QByteArray("AT\r");
        QTest::newRow("SENDEEPROM mails") << "SENDEEPROM" << "77-1" << true << QByteArray();
        QTest::newRow("SENDEEPROM with trailing text") << "SENDEEPROM bitte" << "0-0" << true << QByteArray();
        QTest::newRow("SENDEEPROM after Escape still mails") << "SENDEEPROM" << "27-0" << true << QByteArray();
        QTest::newRow("lower case goes to the device") << "sendeeprom" << "77-0" << false << QByteArray("sendeeprom\r");
        QTest::newRow("not at the start") << " SENDEEPROM" << "0-0" << false << QByteArray(" SENDEEPROM\r");
        QTest::newRow("nine characters are no command") << "SENDEEPRO" << "79-1" << false << QByteArray("SENDEEPRO\r");
    }
    void lineEntry()
    {
        QFETCH(QString, line);
        QFETCH(QString, lastKey);
        QFETCH(bool, mail);
        QFETCH(QByteArray, sent);
        const LineEntry e = veltro::lineEntry(line.toStdString(), lastKey.toStdString());
        QCOMPARE(e.mailImage, mail);
        QCOMPARE(QByteArray::fromStdString(e.bytes), sent);
    }

    // The text keeps what the device sent, bare CR and split CR LF included; the view takes
    // each part once.
    void textKeepsTheBytes()
    {
        TerminalText t;
        t.append(terminalGreeting("1A2B3C4D"));
        QCOMPARE(QByteArray::fromStdString(std::string(t.takeUnshown())), QByteArray("\rTERMINAL READY...\rSERIALNUMBER: 1A2B3C4D\r"));
        t.append("a\r");
        t.append("\nb\rc");
        QVERIFY(t.hasUnshown());
        QCOMPARE(QByteArray::fromStdString(std::string(t.takeUnshown())), QByteArray("a\r\nb\rc"));
        QVERIFY(!t.hasUnshown());
        QVERIFY(QByteArray::fromStdString(t.text()).endsWith("SERIALNUMBER: 1A2B3C4D\ra\r\nb\rc"));
        QCOMPARE(QString::fromStdString(lastKeyText(27, 0)), QString("27-0"));
    }

    // The report's file: the text and CR LF, also for an empty terminal.
    void terminalLog_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("bare CR and CR LF") << QByteArray("\rTERMINAL READY...\rx\r\ny");
    }
    void terminalLog()
    {
        QFETCH(QByteArray, text);
        QTemporaryDir dir;
        writeFile(dir.path() + "/terminal_log.txt", "an older, longer report");
        QVERIFY(writeTerminalLog(dir.path().toStdString(), text.toStdString()));
        QCOMPARE(readFile(dir.path() + "/terminal_log.txt"), text + "\r\n");
        QVERIFY(!writeTerminalLog(dir.path().toStdString() + "/missing", "x"));
    }

    // Both mails go to the support mailbox with the account's port unless the server names one.
    void mails()
    {
        qputenv("VELTRO_SUPPORT_MAIL", "support@veltro.example");
        qputenv("VELTRO_SMTP", "mail.veltro.example");
        MailRequest m = reportMail("1A2B3C4D", "/home");
        QCOMPARE(QString::fromStdString(m.subject), QString("Nachricht VELTRO S/N:1A2B3C4D"));
        QCOMPARE(QString::fromStdString(m.file), QString("/home/terminal_log.txt"));
        QCOMPARE(QString::fromStdString(m.server + ":" + std::to_string(m.port)), QString("mail.veltro.example:25"));
        QCOMPARE(QString::fromStdString(m.to + " " + m.from + " " + m.body),
                 QString("support@veltro.example support@veltro.example Datenlog anbei"));
        qputenv("VELTRO_SMTP", "127.0.0.1:2525");
        m = imageMail("1A2B3C4D", "/home");
        QCOMPARE(QString::fromStdString(m.subject), QString("EEPROM DOWNLOAD VELTRO S/N:1A2B3C4D"));
        QCOMPARE(QString::fromStdString(m.file), QString("/home/1A2B3C4D.eep"));
        QCOMPARE(QString::fromStdString(m.server + ":" + std::to_string(m.port)), QString("127.0.0.1:2525"));
        QVERIFY(!m.ssl);
    }
};

QTEST_MAIN(TestTerminal)
#include "test_terminal.moc"
