#include "app/demo.h"
#include "app/main_window.h"
#include "sim_ports.h"

#include <QComboBox>
#include <QFile>
#include <QGroupBox>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace veltro;
using veltro::test::SimPorts;

namespace {
void startUp(MainWindow& w)
{
    QSignalSpy done(&w, &MainWindow::startupFinished);
    w.show();
    w.Form_Load();
    QVERIFY(done.wait(30000));
}
} // namespace

class TestMainWindow : public QObject {
    Q_OBJECT
private slots:
    void initTestCase()
    {
        // No update server in these tests: a closed port on this machine answers at once.
        qputenv("VELTRO_UPDATE_HTTP", "http://127.0.0.1:9");
        qputenv("VELTRO_UPDATE_HTTPS", "https://127.0.0.1:9");
    }

    void designState()
    {
        MainWindow w;
        QCOMPARE(w.windowTitle(), QString("MARDEKO VELTRO V1.05"));
        QCOMPARE(w.Frame_verbinden->title(), QString("Verbindung mit VELTRO herstellen:"));
        QCOMPARE(w.frame_config->title(), QString("Konfiguration"));
        QCOMPARE(w.telnet->title(), QString("TELNET - TERMINAL"));
        const QList<QPair<QPushButton*, QString>> captions = {
            {w.verbinden, "VERBINDEN"}, {w.Command100, "LISTE AKTUALISIEREN"}, {w.Command17, "RECOVERY"},
            {w.Command7, "FIRMWARE-UPDATE"}, {w.Command4, "CONFIG-UPLOAD"}, {w.Command10, "DISPLAY KONFIGURIEREN"},
            {w.Command6, "CAN-BUS TUNNEL"}, {w.Command1, "TELNET TERMINAL"}, {w.Command8, "VERBINDUNG TRENNEN"},
            {w.Command9, "REMOTE"}, {w.Command3, "BERICHT SENDEN"}, {w.Command2, "BEENDEN"},
            {w.Command15, "Command15"}, {w.Command5, "Command5"}};
        for (const auto& [b, caption] : captions)
            QCOMPARE(b->text(), caption);
        QCOMPARE(w.Label1->text(), QString("COM-PORT:"));
        QCOMPARE(w.Label2->text(), QString("UPDATE VERFÜGBAR"));
        QCOMPARE(w.hwversion->text(), QString("HARDWARE: "));
        // Hidden labels and their design-time texts
        QCOMPARE(w.state.fwupdateser, QString("drgdf"));
        QCOMPARE(w.state.firmwareversion, QString("7"));
        QCOMPARE(w.state.btversion, QString("65535"));
        QCOMPARE(w.state.programmversion, QString("5"));
        QCOMPARE(w.state.laststatus, QString("500"));
        QCOMPARE(w.state.Label3, QString("4"));
        QVERIFY(w.state.hwrevision.isEmpty() && w.state.ECUTYP.isEmpty() && w.state.eepromdirect.isEmpty());
        // Timers: intervals, none running
        const QList<QPair<QTimer*, int>> timers = {
            {w.Timer1, 500}, {w.Timer2, 4000}, {w.Timer3, 500}, {w.Timer4, 50}, {w.Timer5, 1000}};
        for (const auto& [t, ms] : timers) {
            QCOMPARE(t->interval(), ms);
            QVERIFY(!t->isActive());
        }
        // Panels at 30/30 twips with their start-up sizes
        QCOMPARE(w.Frame_verbinden->geometry(), QRect(tw(30), tw(30), tw(3655), tw(3555)));
        QCOMPARE(w.telnet->geometry(), QRect(tw(30), tw(30), tw(10000), tw(3555)));
    }

    void startWithNoPorts()
    {
        SimPorts ports;
        MainWindow w;
        startUp(w);
        QCOMPARE(w.statusText(), QString("READY"));
        QCOMPARE(w.Comboport->count(), 0);
        QCOMPARE(w.List3->count(), 0);
        QVERIFY(!w.verbinden->isEnabled());
        QVERIFY(w.Command100->isEnabled());
        QVERIFY(w.Command17->isEnabled());
        QCOMPARE(w.size(), QSize(tw(3800), tw(4380)));
    }

    // Controllers on 3 and 7, silent ports on 1 and 5: the chooser and its port list stay in
    // step, the last controller is selected and VERBINDEN is enabled by that selection.
    void scanFillsChooser()
    {
        SimPorts ports;
        ports.addSilent(1);
        ports.add(3).setFirmware(166);
        ports.addSilent(5);
        ports.add(7).setFirmware(170);
        MainWindow w;
        QSignalSpy scanned(&w, &MainWindow::scanFinished);
        w.show();
        w.Form_Load();
        // While ports are probed the window answers and shows that it is busy.
        QVERIFY(w.scanIndicator->isVisible());
        QVERIFY(!w.verbinden->isEnabled());
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(scanned.wait(30000));
        QVERIFY(!w.scanIndicator->isVisible());

        QStringList entries;
        QStringList numbers;
        for (int i = 0; i < w.Comboport->count(); ++i) {
            entries << w.Comboport->itemText(i);
            numbers << w.List3->item(i)->text();
        }
        QCOMPARE(entries, QStringList({"COM1 verfügbar", "VELTRO FW V166 (COMPORT: 3)", "COM5 verfügbar",
                                       "VELTRO FW V170 (COMPORT: 7)"}));
        QCOMPARE(numbers, QStringList({"1", "3", "5", "7"}));
        QCOMPARE(w.Comboport->currentIndex(), 3);
        QVERIFY(w.verbinden->isEnabled());
        QCOMPARE(w.Comboport->itemData(1, Qt::ToolTipRole).toString(), QString::fromStdString(ports.at(3).path()));

        // "LISTE AKTUALISIEREN" rescans: the controller on 7 is gone, 3 is still there.
        ports.remove(7);
        QSignalSpy rescanned(&w, &MainWindow::scanFinished);
        QTest::mouseClick(w.Command100, Qt::LeftButton);
        QVERIFY(!w.Command100->isEnabled());
        QVERIFY(!w.Command17->isEnabled());
        QVERIFY(rescanned.wait(30000));
        QCOMPARE(w.Comboport->count(), 3);
        QCOMPARE(w.Comboport->currentIndex(), 1);
        QCOMPARE(w.List3->item(1)->text(), QString("3"));
        QVERIFY(w.Command100->isEnabled());
    }

    void disconnectAndEnd()
    {
        SimPorts ports;
        MainWindow w;
        startUp(w);
        w.frame_config->setVisible(true);
        w.Frame_verbinden->setVisible(false);
        w.Timer3->start();
        w.Label2->setVisible(true);
        w.setStatus("CHECKSUMME OK - VERBUNDEN!");
        QTest::mouseClick(w.Command8, Qt::LeftButton); // the port is already closed: no error
        QVERIFY(!w.frame_config->isVisible());
        QVERIFY(w.Frame_verbinden->isVisible());
        QCOMPARE(w.statusText(), QString("READY"));
        QVERIFY(!w.Timer3->isActive());
        QVERIFY(!w.Label2->isVisible());

        w.telnet->setVisible(true);
        w.Command2_Click();
        QCOMPARE(w.width(), tw(3780));
        QCOMPARE(w.height(), tw(4380));
        QVERIFY(!w.telnet->isVisible());
    }

    void waitCountdown()
    {
        MainWindow w;
        QStringList titles;
        for (int i = 0; i < 3; ++i) {
            w.Timer5->start();
            w.Timer5_Timer();
            titles << w.frame_config->title();
        }
        QCOMPARE(titles, QStringList({"Warten ... (3)", "Warten ... (2)", "Warten ... (1)"}));
        QVERIFY(!w.Timer5->isActive());
        QCOMPARE(w.state.Label3, QString("4"));
        // Timer2 gives the panel its title back and hides the step list.
        w.List1->setVisible(true);
        w.Timer2->start();
        w.Timer2_Timer();
        QCOMPARE(w.frame_config->title(), QString("Konfiguration"));
        QVERIFY(!w.List1->isVisible());
        QVERIFY(!w.Timer2->isActive());
    }

    void updateNoticeBlinks()
    {
        MainWindow w;
        w.show();
        w.frame_config->setVisible(true);
        w.Timer3_Timer();
        QVERIFY(w.Label2->isVisible());
        w.Timer3_Timer();
        QVERIFY(!w.Label2->isVisible());
    }

    // `veltro --demo`: a virtual controller on the first free number, found and selected.
    void demoStartUp()
    {
        SimPorts ports; // leaves the machine's ports out and gives a program folder
        DemoSetup demo;
        QCOMPARE(demo.programFolder(), ports.home());
        MainWindow w;
        startUp(w);
        QCOMPARE(w.Comboport->count(), 1);
        QCOMPARE(w.Comboport->currentText(),
                 QString("VELTRO FW V166 (COMPORT: %1)").arg(demo.portNumber()));
        QVERIFY(w.verbinden->isEnabled());
        // The demo program folder holds the sample vehicle catalogue.
        QVERIFY(QFile::exists(ports.homePath() + "/vehicles.inc"));
    }

    void addItemKeepsLastLineCurrent()
    {
        MainWindow w;
        w.Add_Item("eins");
        w.Add_Item("zwei");
        QCOMPARE(w.List1->count(), 2);
        QCOMPARE(w.List1->currentRow(), 1);
        QVERIFY(w.List1->selectedItems().isEmpty());
    }
};

QTEST_MAIN(TestMainWindow)
#include "test_main_window.moc"
