#include "app/main_window.h"
#include "local_http_server.h"
#include "test_files.h"
#include "scripted_dialogs.h"
#include "sim_ports.h"

#include <QDir>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace veltro;
using namespace veltro::test;

namespace {
QStringList lines(QListWidget* list)
{
    QStringList out;
    for (int i = 0; i < list->count(); ++i)
        out << list->item(i)->text();
    return out;
}
} // namespace

class TestFlashWindow : public QObject {
    Q_OBJECT
    QTemporaryDir served_;
    LocalHttpServer server_;

    void connectWindow(MainWindow& w)
    {
        QSignalSpy started(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(started.wait(30000));
        QSignalSpy connected(&w, &MainWindow::connectFinished);
        QTest::mouseClick(w.verbinden, Qt::LeftButton);
        QVERIFY(connected.wait(30000));
        QCOMPARE(w.statusText(), QString("CHECKSUMME OK - VERBUNDEN!"));
    }

private slots:
    void initTestCase()
    {
        writeFile(served_.path() + "/fwupdate/VELTRO_3_180.txt", "170,1.70");
        writeFile(served_.path() + "/fwupdate/3_180_lastfw", QByteArray(3000, 'F'));
        writeFile(served_.path() + "/fwupdate/R-77", QByteArray(500, 'R'));
        QVERIFY(server_.start(served_.path()));
        server_.exportEnvironment();
    }

    // "FIRMWARE-UPDATE" from the questions to the flashed controller; afterwards the wait
    // countdown runs, the button is back, the status reads READY and the name is used up.
    void firmwareUpdate()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        MainWindow w;
        ScriptedDialogs dialogs;
        w.dialogs = &dialogs;
        connectWindow(w);
        QSignalSpy done(&w, &MainWindow::firmwareFinished);
        QSignalSpy percent(w.transferProgress, &QProgressBar::valueChanged);
        QTest::mouseClick(w.Command7, Qt::LeftButton);
        QVERIFY(!w.Command7->isEnabled());
        QVERIFY(done.wait(60000));
        QTRY_VERIFY_WITH_TIMEOUT(c.transferComplete(), 5000); // EOT goes out unanswered
        QCOMPARE(c.receivedImage().size(), std::size_t(3072));
        const QStringList log = lines(w.List1);
        QCOMPARE(log.first(), QString("Starte Download..."));
        QCOMPARE(log.last(), QString("Erfolgreich geflasht!"));
        QVERIFY(w.List1->isVisible());
        QVERIFY(!percent.isEmpty());
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(w.Command7->isEnabled());
        QVERIFY(w.Timer5->isActive());
        QCOMPARE(w.state.fwupdateser, QString("KJS"));
        QCOMPARE(w.frame_config->title(), QString("Firmware-Update"));
        QTRY_COMPARE_WITH_TIMEOUT(w.frame_config->title(), QString("Warten ... (1)"), 5000);
        QVERIFY(!w.Timer5->isActive());
    }

    // "RECOVERY" takes the number as typed; the firmware button then finds that file.
    void recovery()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        MainWindow w;
        ScriptedDialogs dialogs;
        w.dialogs = &dialogs;
        QSignalSpy started(&w, &MainWindow::startupFinished);
        w.show();
        w.Form_Load();
        QVERIFY(started.wait(30000));

        w.Command17_Click(); // cancelled: the name is empty, the window unchanged
        QCOMPARE(w.state.fwupdateser, QString());
        QVERIFY(!w.frame_config->isVisible());

        dialogs.inputAnswer = "R-77";
        QTest::mouseClick(w.Command17, Qt::LeftButton);
        QCOMPARE(w.state.fwupdateser, QString("R-77"));
        QCOMPARE(w.vers->text(), QString("RECOVERY"));
        QVERIFY(w.frame_config->isVisible());
        QVERIFY(!w.Command6->isEnabled());
        QVERIFY(w.Command1->isEnabled() && w.Command4->isEnabled());

        QSignalSpy done(&w, &MainWindow::firmwareFinished);
        QTest::mouseClick(w.Command7, Qt::LeftButton);
        QVERIFY(done.wait(60000));
        QVERIFY(dialogs.asked().last().contains("speziell für die Seriennummer"));
        QCOMPARE(c.receivedImage().size(), std::size_t(512));
        QCOMPARE(w.state.fwupdateser, QString("KJS"));
    }

    void configUploadCancelAndWaitingImage()
    {
        SimPorts ports;
        auto& c = ports.add(3);
        MainWindow w;
        ScriptedDialogs dialogs;
        w.dialogs = &dialogs;
        connectWindow(w);
        const QString tmp = ports.homePath() + "/1A2B3C4D.tmp";
        writeFile(tmp, QByteArray(1023, 0x11));

        // Cancelled dialog: nothing sent, the temporary image removed, Timer2 and Timer5 run.
        QSignalSpy done(&w, &MainWindow::uploadFinished);
        QTest::mouseClick(w.Command4, Qt::LeftButton);
        QCOMPARE(w.frame_config->title(), QString("Konfiguration auf Controller laden"));
        QVERIFY(done.wait(30000));
        QVERIFY(!QFile::exists(tmp));
        QVERIFY(w.Timer2->isActive() && w.Timer5->isActive());
        QVERIFY(c.bootReport().frames.empty());

        writeFile(tmp, QByteArray(1023, 0x22));
        w.state.eepromdirect = tmp;
        c.setHandshakeDelay(std::chrono::milliseconds(700));
        QTest::mouseClick(w.Command4, Qt::LeftButton);
        // While the transfer runs the window refuses to close and says why.
        QTRY_VERIFY_WITH_TIMEOUT(w.List1->isVisible(), 5000);
        QVERIFY(!w.close());
        QVERIFY(dialogs.asked().last().contains("Übertragung zum Controller läuft noch"));
        QVERIFY(done.wait(60000));
        QVERIFY(w.state.eepromdirect.isEmpty());
        QCOMPARE(lines(w.List1).last(), QString("Erfolgreich übertragen!"));
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(w.Command4->isEnabled());
        QCOMPARE(int(c.receivedMode()), 0x7C);
        QCOMPARE(c.receivedImage().size(), std::size_t(1024));
    }
};

QTEST_MAIN(TestFlashWindow)
#include "test_flash_window.moc"
