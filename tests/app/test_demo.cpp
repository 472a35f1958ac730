// The demo end to end through the window: connect to the demo's controller, its image kept
// under the serial number and read by the editor against the demo program folder; the tunnel
// and REMOTE on the demo's servers.
#include "app/demo.h"
#include "app/history.h"
#include "editor/editor_logic.h"
#include "remote/window/form3.h"
#include "sim_ports.h"
#include "window_fixture.h"

#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QRegularExpression>

#include <algorithm>

using namespace veltro;
using namespace veltro::test;

class TestDemo : public QObject {
    Q_OBJECT
    std::unique_ptr<SimPorts> ports_;
    std::unique_ptr<DemoSetup> demo_;

private slots:
    void initTestCase()
    {
        ports_ = std::make_unique<SimPorts>(); // the program folder, no machine ports
        demo_ = std::make_unique<DemoSetup>();
    }

    void cleanupTestCase()
    {
        demo_.reset();
        ports_.reset();
    }

    // The tunnel without hardware: the demo's record and echo server, the controller reporting
    // frames while the window is open; its frames come back to it. Then REMOTE from the
    // terminal: the demo's service server greets the controller, asks for the image (answered
    // by the tool) and for version and serial number, once each, and sends nothing back.
    void serversRoad()
    {
        Window win;
        MainWindow& w = win.w;
        connect(&w, &MainWindow::tunnelOpened, this, [this] { demo_->setTunnelOpen(true); });
        connect(&w, &MainWindow::tunnelClosed, this, [this] { demo_->setTunnelOpen(false); });
        win.connectNow();
        const std::string serial = w.state.fwupdateser.toStdString();
        // Two earlier configurations came with the demo; the connect kept the third.
        QCOMPARE(readHistory(demo_->programFolder(), serial).size(), std::size_t(3));

        // Saving the choices the editor opens with unchanged gives the controller's configuration
        // bytes back (the identification bytes from 1008 on aside): records B, the KLEMME15 and
        // FELDREGENERATION slots, values X and Y and the line texts included. So every record
        // of the demo controller is in the demo catalogue.
        const QString image = QString::fromStdString(demo_->programFolder() + "/" + serial + ".eep");
        const QByteArray read = readFile(image);
        const EditorView view = openEditor(demo_->programFolder(), {w.state.ECUTYP.toStdString(), serial, w.state.btversion.toStdString()}, ',');
        saveEditor(demo_->programFolder(), serial, view, ',');
        QCOMPARE(readFile(image).left(1008).toHex(' '), read.left(1008).toHex(' '));

        QTest::mouseClick(w.Command6, Qt::LeftButton);
        // On the controller's serial number and port; the configuration panel waits for it.
        Form3* tunnel = w.tunnel();
        QVERIFY(tunnel && !w.frame_config->isEnabled());
        QCOMPARE(QStringList({tunnel->connectid->text(), tunnel->Comboport->currentText()}),
                 QStringList({QString::fromStdString(serial), QString::number(demo_->portNumber())}));
        QTRY_VERIFY(tunnel->log->toPlainText().contains("++CONNECTIONDATA FOUND!"));
        QCOMPARE(tunnel->tcpport->text(), QString::number(demo_->tunnelServerPort()));
        QTest::mouseClick(tunnel->command1, Qt::LeftButton);
        QTRY_COMPARE(tunnel->laststatus->text(), QString("7"));
        QTRY_VERIFY_WITH_TIMEOUT(tunnel->counts->text().contains(QRegularExpression("Zum Gerät: [1-9]")), 10000);
        tunnel->close();
        QVERIFY(w.frame_config->isEnabled());
        // The controller answers requests again.
        win.connectNow();
        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));

        QTest::mouseClick(w.Command1, Qt::LeftButton);
        QTest::mouseClick(w.telnet->Command9, Qt::LeftButton);
        const auto text = [&w] { return terminalBytes(w); };
        const QByteArray request = "++DOWNLOAD DEVICE EEPROM...";
        const auto afterRequest = [&] { return text().mid(std::max(text().indexOf(request), qsizetype(0))); };
        QTRY_VERIFY_WITH_TIMEOUT(text().contains("++CONNECTED TO SERVER!") && text().contains(request) &&
                                     afterRequest().contains("SERIAL " + QByteArray::fromStdString(serial) + "\r\n"),
                                 20000);
        const QByteArray shown = text();
        QVERIFY(shown.indexOf("\r\nOK DEMO-SERVICE: verbunden\r\n") >= 0);
        QVERIFY(shown.indexOf("\r\nOK DEMO-SERVICE: verbunden\r\n") < shown.indexOf(request));
        QVERIFY(afterRequest().contains("\r\nFIRMWARE "));
        QCOMPARE(shown.count(request), 1);
        QCOMPARE(shown.count("OK "), 1); // nothing the controller printed went back to it
        QCOMPARE(w.state.laststatus, QString("7"));
    }
};

QTEST_MAIN(TestDemo)
#include "test_demo.moc"
