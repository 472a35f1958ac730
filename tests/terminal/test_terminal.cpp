// The terminal's report file and mail server. What a typed line sends and how the text keeps
// the device's bytes are decided by the fuzz model of the terminal on its corpus.
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

    // A mail server named without a port gets the account's port 25. (What the mails carry is
    // checked where the terminal and REMOTE send them.)
    void mailServerPort()
    {
        qputenv("VELTRO_SMTP", "mail.veltro.example");
        const MailRequest m = reportMail("1A2B3C4D", "/home");
        QCOMPARE(QString::fromStdString(m.server + ":" + std::to_string(m.port)), QString("mail.veltro.example:25"));
        QVERIFY(!m.ssl);
    }
};

QTEST_GUILESS_MAIN(TestTerminal)
#include "test_terminal.moc"
