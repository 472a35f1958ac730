// The terminal's mail server. What a typed line sends and how the text keeps the device's bytes
// are decided by the fuzz model of the terminal on its corpus; the report's file is the
// terminal road's in the main window suite.
#include "terminal/terminal.h"

#include <QTest>

using namespace veltro;

class TestTerminal : public QObject {
    Q_OBJECT
private slots:
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
