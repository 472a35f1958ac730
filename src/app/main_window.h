#pragma once
// The main window: the connect panel, the configuration panel, the terminal panel, the status
// bar, the step list and the hidden state labels. Handlers do what a click does in the window
// and hand the work to logic objects on worker threads.
#include "platform/job_runner.h"
#include "app/link_state.h"
#include "terminal/terminal.h"
#include "util/twips.h"

#include <QMainWindow>
#include <QPointer>

#include <functional>
#include <memory>

class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QTextEdit;
class QSerialPort;
class QTimer;
class QAction;

namespace veltro {

class WindowReporter;
struct ScanEntry;
struct ConnectResult;
class Dialogs;
class Form2;
class Form3;
class TcpClient;
class TerminalView;
class TerminalPort;
class RemoteSession;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Start-up routine: layout, port scan, then the remaining steps when the scan is done.
    void Form_Load();

    void Add_Item(const QString& text);
    void setStatus(const QString& text);
    QString statusText() const;
    bool busy() const;
    // True while a job holds the device port; the controls that would start another are off.
    bool deviceJobRunning() const { return deviceJob_; }

    LinkState state;
    // Questions and messages of the jobs; the window's own message boxes unless a test puts
    // scripted answers here. Shared: a running job keeps the one it started with.
    std::shared_ptr<Dialogs> dialogs;

    // Connect panel
    QGroupBox* Frame_verbinden = nullptr;
    QLabel* Label1 = nullptr; // "COM-PORT:"
    QLabel* connectProblem = nullptr; // why the last connect could not use the port; hidden when none
    QComboBox* Comboport = nullptr;
    QPushButton* verbinden = nullptr;
    QPushButton* Command100 = nullptr;
    QPushButton* Command17 = nullptr;
    // Configuration panel
    QGroupBox* frame_config = nullptr;
    QLabel* Label5 = nullptr;
    QLabel* vers = nullptr;
    QLabel* hwversion = nullptr;
    QLabel* Label2 = nullptr;
    QLabel* LabelDatum = nullptr;  // date text of the data readout
    QLabel* LabelLambda = nullptr; // lambda calibration text of the data readout
    QPushButton* Command7 = nullptr;
    QPushButton* Command4 = nullptr;
    QPushButton* Command10 = nullptr;
    QPushButton* Command6 = nullptr;
    QPushButton* Command1 = nullptr;
    QPushButton* Command8 = nullptr;
    // Panel of a controller with the older image layout: its serial, its firmware caption and
    // what can be done with it.
    QGroupBox* frame_older = nullptr;
    QLabel* olderSerial = nullptr;
    QLabel* olderVers = nullptr;
    QPushButton* olderFirmware = nullptr; // "FIRMWARE-UPDATE (ÄLTERE FORM)"
    QPushButton* olderTrennen = nullptr;  // "VERBINDUNG TRENNEN"
    // Terminal panel
    QGroupBox* telnet = nullptr;
    QPushButton* Command9 = nullptr;
    QPushButton* Command3 = nullptr;
    QPushButton* Command2 = nullptr;
    QLineEdit* telnetsendbox = nullptr;
    QTextEdit* terminal = nullptr;  // a view of the terminal's text (terminalText())
    QLabel* lastkey = nullptr;      // hidden: the last key released in the input line, "27-0"
    QSerialPort* MSComm3 = nullptr; // the device's text port, open while the terminal is
    const TerminalText& terminalText() const;
    // Remote service ("REMOTE"): the socket to the service server and the last state the
    // poll (Timer4) has shown, hidden.
    TcpClient* Winsock1 = nullptr;
    QLabel* laststatus = nullptr;
    // Service buttons, not in the visible layout
    QPushButton* Command15 = nullptr;
    QPushButton* Command5 = nullptr;
    // Window-wide
    QLabel* StatusBar1 = nullptr;
    QProgressBar* scanIndicator = nullptr;
    QProgressBar* transferProgress = nullptr;
    QListWidget* List1 = nullptr;
    QListWidget* List3 = nullptr; // port numbers parallel to Comboport, never shown
    QTimer* Timer1 = nullptr;
    QTimer* Timer2 = nullptr;
    QTimer* Timer3 = nullptr;
    QTimer* Timer4 = nullptr;
    QTimer* Timer5 = nullptr;

    // Service functions reached through the configuration panel's context menu.
    void readDataBlock();
    void copySerialNumber();
    // The older firmware workflow (version file over HTTP, no hardware part).
    void olderFirmwareUpdate();

    // The configuration editor while it is open ("DISPLAY KONFIGURIEREN").
    Form2* editor() const;
    // The tunnel window while it is open ("CAN-BUS TUNNEL").
    Form3* tunnel() const;
    // How the editor ends the program after a fatal error; tests replace it.
    std::function<void(int code)> editorEndProgram;

signals:
    void scanFinished();
    void startupFinished();
    void connectFinished();
    void firmwareCheckFinished();
    void readoutFinished();
    void firmwareFinished();
    void uploadFinished();
    void reportFinished(const QString& result);
    void imageMailFinished(const QString& result);
    // The remote service's record has been fetched and handled ("REMOTE").
    void remoteRecordHandled();
    // A command of the service server has been answered.
    void remoteCommandAnswered();
    // The tunnel window has opened / closed.
    void tunnelOpened();
    void tunnelClosed();
    // Asked before the installer download; tests answer it instead of the message box.

public slots:
    void verbinden_Click();
    void Command7_Click();
    void Command4_Click();
    void Command10_Click();
    void Command6_Click();  // "CAN-BUS TUNNEL"
    void Command1_Click();  // "TELNET TERMINAL"
    void Command3_Click();  // "BERICHT SENDEN"
    void telnetsendbox_KeyPress(int keyAscii);
    void telnetsendbox_KeyUp(int keyCode, int shift);
    void Command9_Click();  // "REMOTE"
    void Timer4_Timer();
    void Winsock1_DataArrival(const QByteArray& data);
    void Command17_Click();
    void Command15_Click();
    void Command5_Click();
    void Comboport_Click();
    void Command100_Click();
    void Command8_Click();
    void Command2_Click();
    void Timer2_Timer();
    void Timer3_Timer();
    void Timer5_Timer();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    // A transfer to the bootloader is never cut off by closing the window.
    void closeEvent(QCloseEvent* event) override;

private:
    void buildControls();
    int chosenPort() const;
    void applyConnect(const ConnectResult& r);
    void startFirmwareCheck(const QString& hwrevision, const QString& btversion, const QString& firmware);
    void softwareUpdateCheck();
    void runSelfUpdate(const QString& versionText);
    std::shared_ptr<WindowReporter> makeReporter();
    // Starts `work(reporter, dialogs)` on a worker thread as the one job on the device port.
    // The job owns its reporter and shares the dialogs until `done` has run on this thread
    // with the result, after the reporter's last texts are shown and the controls are back.
    // Refuses (false) while another device job runs.
    template <typename Result, typename Work, typename Done>
    bool runDeviceJob(Work work, Done done);
    // The same for `work(link, reporter)` on the chosen port.
    template <typename Result, typename Work, typename Done>
    bool runOnChosenPort(Work work, Done done);
    void lockDeviceControls(bool locked);
    void showOlderPanel();
    void showConnectPanel();
    void runFirmware(bool olderForm);
    // For a job on a worker thread: shows the step list on the window's thread.
    std::function<void()> showListFromJob();
    void PortScan();
    void addScanEntry(const ScanEntry& entry);
    void startupAfterScan();
    void setPanelGeometry();
    void reset();

    // Panel contents: switched off as a whole while a device job runs, so that each control
    // keeps its own enabled state for afterwards.
    QWidget* connectBody_ = nullptr;
    QWidget* configBody_ = nullptr;
    QWidget* olderBody_ = nullptr;
    QList<QAction*> deviceActions_; // service menu entries that start a device job
    bool scanning_ = false;
    bool transferring_ = false;
    bool deviceJob_ = false;
    bool userChosePort_ = false; // the scan stops moving the selection once the user has chosen
    int scanGeneration_ = 0;     // entries of an earlier scan are dropped
    QPointer<Form2> editor_;
    QPointer<Form3> tunnel_;
    TerminalView* terminalView_ = nullptr;
    TerminalPort* terminalPort_ = nullptr;
    RemoteSession* remote_ = nullptr;
    bool pollBeforeFetch_ = false;
    void terminalAppend(const std::string& bytes);
    JobRunner jobs_;             // last: waits for running jobs before anything else goes
};

} // namespace veltro
