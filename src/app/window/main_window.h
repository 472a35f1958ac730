#pragma once
// The main window: the connect panel, the configuration panel, the panel of an older
// controller, the terminal panel, the status bar and the step list; the link state. Handlers do
// what a click does in the window and hand the work to logic objects on worker threads.
#include "app/link_state.h"
#include "platform/job_runner.h"
#include "ui_main_window.h"

#include <QMainWindow>
#include <QPointer>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QTimer;

namespace veltro {

class WindowReporter;
struct ScanEntry;
struct ConnectResult;
class Dialogs;
class Form2;
class Form3;
class HistoryDialog;

// The controls are the form's (main_window.ui), under their names.
class MainWindow : public QMainWindow, public Ui::MainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Start-up routine: layout, port scan, then the remaining steps when the scan is done.
    void Form_Load();

    void Add_Item(const QString& text);
    void setStatus(const QString& text);
    QString statusText() const;
    // True while a job holds the device port; the controls that would start another are off.
    bool deviceJobRunning() const { return deviceJob_; }

    LinkState state;
    // Questions and messages of the jobs; the window's own message boxes unless a test puts
    // scripted answers here. Shared: a running job keeps the one it started with.
    std::shared_ptr<Dialogs> dialogs;

    // The timers (the remote service's poll, Timer4, is the terminal panel's). List3 holds the
    // port numbers parallel to Comboport and is never shown.
    QTimer* Timer1 = nullptr;
    QTimer* Timer2 = nullptr;
    QTimer* Timer3 = nullptr;
    QTimer* Timer5 = nullptr;

    // Service functions reached through the configuration panel's context menu.
    void readDataBlock();
    void copySerialNumber();
    // The older firmware workflow (version file over HTTP, no hardware part).
    void olderFirmwareUpdate();
    // "Frühere Konfiguration…": the connected controller's kept images; the chosen one opens
    // in the configuration editor, whose save uploads it as any other.
    void earlierConfiguration();
    HistoryDialog* historyDialog() const;

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
    // The tunnel window has opened / closed.
    void tunnelOpened();
    void tunnelClosed();

public slots:
    void verbinden_Click();
    void Command7_Click();
    void Command4_Click();
    void Command10_Click();
    void Command6_Click();  // "CAN-BUS TUNNEL"
    void Command1_Click();  // "TELNET TERMINAL"
    void Command17_Click();
    void Command15_Click();
    void Command5_Click();
    void Comboport_Click();
    void Command100_Click();
    void Command8_Click();
    void Timer2_Timer();
    void Timer3_Timer();
    void Timer5_Timer();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    // A transfer to the bootloader is never cut off by closing the window.
    void closeEvent(QCloseEvent* event) override;

private:
    void connectControls();
    int chosenPort() const;
    // `historyProblem`: why the connect's image was not kept in the history (empty: kept).
    void applyConnect(const ConnectResult& r, const std::string& historyProblem);
    void startFirmwareCheck(const std::string& hwrevision, const std::string& btversion, const std::string& firmware);
    void softwareUpdateCheck();
    void runSelfUpdate();
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
    // The configuration editor on the connected controller, preselected from `imageFile`
    // (empty: the controller's image file).
    void openEditor(const QString& imageFile);
    // A job's outcome in the service history of the controller connected on the port; a failed
    // write is said in the step list.
    void recordInHistory(const std::string& event, const std::string& file);
    void showOlderPanel();
    void showConnectPanel();
    void runFirmware(bool olderForm);
    // For a job on a worker thread: shows the step list on the window's thread.
    std::function<void()> showListFromJob();
    void PortScan();
    void addScanEntry(const ScanEntry& entry);

    bool transferring_ = false;
    bool deviceJob_ = false;
    bool userChosePort_ = false; // the scan stops moving the selection once the user has chosen
    int scanGeneration_ = 0;     // entries of an earlier scan are dropped
    QPointer<Form2> editor_;
    QPointer<Form3> tunnel_;
    QPointer<HistoryDialog> history_;
    std::vector<std::uint8_t> connectImage_; // the image read at this connect
    std::string connectSerial_;              // its serial: the jobs on the port are its history's
    JobRunner jobs_;             // last: waits for running jobs before anything else goes
};

} // namespace veltro
