// The demo end to end: connect to the demo's controller, keep its image under the serial
// number and open it against the demo program folder; the tunnel and REMOTE on its servers.
#include "app/demo.h"
#include "device/identify.h"
#include "editor/codec.h"
#include "editor/editor_logic.h"
#include "platform/qt_serial_link.h"
#include "recording_reporter.h"
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
    std::string serial_;
    QByteArray file_; // the saved image
    EditorView view_;

private slots:
    void initTestCase()
    {
        ports_ = std::make_unique<SimPorts>(); // the program folder, no machine ports
        demo_ = std::make_unique<DemoSetup>();
        QtSerialLink link(demo_->ptyPath());
        RecordingReporter reporter;
        const ConnectResult r = runConnect(link, reporter);
        QVERIFY(r.currentLayout);
        QCOMPARE(r.layoutByte(), 181);
        serial_ = r.serial;
        const std::string saved = saveImageFile(demo_->programFolder(), r.serial, r.image);
        QVERIFY(!saved.empty());
        file_ = readFile(QString::fromStdString(saved));
        view_ = openEditor(demo_->programFolder(),
                           {std::to_string(r.controllerType()), r.serial, std::to_string(r.layoutByte())}, ',');
    }

    void cleanupTestCase()
    {
        demo_.reset();
        ports_.reset();
    }

    // Saving the choices the editor opens with unchanged gives the controller's configuration bytes back: records B,
    // the KLEMME15 and FELDREGENERATION slots, values X and Y and the line texts included.
    void savedUnchangedIsTheSame()
    {
        saveEditor(demo_->programFolder(), serial_, view_, ',');
        constexpr qsizetype configuration = 1008; // the identification bytes follow
        const QByteArray saved = readFile(QString::fromStdString(demo_->programFolder() + "/" + serial_ + ".eep"));
        QCOMPARE(saved.left(configuration).toHex(' '), file_.left(configuration).toHex(' '));
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
        QTest::mouseClick(w.Command6, Qt::LeftButton);
        // On the controller's serial number and port; the configuration panel waits for it.
        Form3* tunnel = w.tunnel();
        QVERIFY(tunnel && !w.frame_config->isEnabled());
        QCOMPARE(QStringList({tunnel->connectid->text(), tunnel->Comboport->currentText()}),
                 QStringList({QString::fromStdString(serial_), QString::number(demo_->portNumber())}));
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
                                     afterRequest().contains("SERIAL " + QByteArray::fromStdString(serial_) + "\r\n"),
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
