#pragma once
// The main window: the connect panel, the configuration panel, the terminal panel, the status
// bar, the step list and the hidden state labels. Handlers do what a click does in the window
// and hand the work to logic objects on worker threads.
#include "app/job.h"
#include "app/link_state.h"

#include <QMainWindow>

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
class QTimer;

namespace veltro {

class UiReporter;
struct ScanResult;
struct ConnectResult;
class Dialogs;

// 15 twips are one pixel at 100 % scale; Qt scales for high DPI.
constexpr int tw(int twips) { return (twips + 7) / 15; }

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

    LinkState state;
    // Questions and messages of the jobs; the window's own message boxes unless a test puts
    // scripted answers here.
    Dialogs* dialogs = nullptr;

    // Connect panel
    QGroupBox* Frame_verbinden = nullptr;
    QLabel* Label1 = nullptr; // "COM-PORT:"
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
    // Terminal panel
    QGroupBox* telnet = nullptr;
    QPushButton* Command9 = nullptr;
    QPushButton* Command3 = nullptr;
    QPushButton* Command2 = nullptr;
    QLineEdit* telnetsendbox = nullptr;
    QTextEdit* terminal = nullptr;
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

signals:
    void scanFinished();
    void startupFinished();
    void connectFinished();
    void firmwareCheckFinished();
    void readoutFinished();
    void firmwareFinished();
    void uploadFinished();
    // Asked before the installer download; tests answer it instead of the message box.

public slots:
    void verbinden_Click();
    void Command7_Click();
    void Command4_Click();
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
    void startFirmwareCheck();
    void softwareUpdateCheck();
    void runSelfUpdate(const QString& versionText);
    std::unique_ptr<UiReporter> makeReporter();
    // Runs `work(link, reporter)` on the chosen port on a worker thread with a fresh reporter;
    // `done` gets the result on this thread once the reporter's last texts are shown.
    template <typename Result, typename Work, typename Done>
    void runOnChosenPort(Work work, Done done);
    void runFirmware(bool olderForm);
    // For a job on a worker thread: shows the step list on the window's thread.
    std::function<void()> showListFromJob();
    void PortScan();
    void applyScan(const ScanResult& scan);
    void startupAfterScan();
    void setPanelGeometry();
    void reset();

    JobRunner jobs_;
    std::unique_ptr<UiReporter> reporter_;
    std::unique_ptr<Dialogs> ownDialogs_;
    bool scanning_ = false;
    bool transferring_ = false;
};

} // namespace veltro
