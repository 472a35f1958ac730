#pragma once
// The main window as the window tests start it, and an update server for them.
#include "app/window/main_window.h"
#include "local_servers.h"
#include "scripted_dialogs.h"
#include "test_files.h"

#include <QPushButton>
#include <QSignalSpy>
#include <QStringList>
#include <QTemporaryDir>
#include <QTest>

#include <map>
#include <memory>

namespace veltro::test {

// No update server unless a test starts one: a closed port on this machine answers at once.
inline void noUpdateServer()
{
    qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
    qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
}

// What the terminal holds, byte for byte.
inline QByteArray terminalBytes(const MainWindow& w) { return QByteArray::fromStdString(w.telnet->terminalText().text()); }

// An update server on 127.0.0.1 serving these files (path under the root -> content), with
// the tool's server roots pointing at it.
struct Served {
    QTemporaryDir dir;
    LocalHttpServer server;
    explicit Served(const std::map<QString, QByteArray>& files)
    {
        for (const auto& [path, content] : files)
            writeFile(dir.path() + path, content);
        QVERIFY(server.start(dir.path()));
        server.exportEnvironment();
    }
};

// The support mailbox on a mail server on 127.0.0.1 that takes the tool's login, with the
// tool's mail settings pointing at it until the end of the test.
struct Mailbox {
    LocalSmtpServer smtp;
    Mailbox()
    {
        QVERIFY(smtp.start("w519e27c", "Hr5nWqa8LpteUy2KmbXo"));
        qputenv("VELTRO_SMTP", QByteArray("127.0.0.1:") + QByteArray::number(smtp.port()));
        qputenv("VELTRO_SUPPORT_MAIL", "support@veltro.example");
    }
    ~Mailbox()
    {
        qunsetenv("VELTRO_SMTP");
        qunsetenv("VELTRO_SUPPORT_MAIL");
    }
};

// A started main window (questions nobody scripted answered with `rest`); connectNow() clicks
// VERBINDEN and waits until the connect has finished.
struct Window {
    MainWindow w;
    std::shared_ptr<ScriptedDialogs> dialogs = std::make_shared<ScriptedDialogs>();
    explicit Window(bool rest = true)
    {
        dialogs->rest = rest;
        w.dialogs = dialogs;
        QSignalSpy done(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(done.wait(30000));
    }
    void connectNow()
    {
        QSignalSpy connected(&w, &MainWindow::connectFinished);
        QTest::mouseClick(w.verbinden, Qt::LeftButton);
        QVERIFY(!w.verbinden->isEnabled());
        QVERIFY(connected.wait(30000));
    }
};

} // namespace veltro::test
