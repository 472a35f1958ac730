#include "app/window/main_window.h"

#include "app/history.h"
#include "app/window/history_dialog.h"
#include "app/window/window_dialogs.h"
#include "app/window/window_reporter.h"
#include "device/discovery.h"
#include "device/identify.h"
#include "device/readout.h"
#include "device/self_update.h"
#include "editor/window/form2.h"
#include "flash/jobs.h"
#include "platform/cancel.h"
#include "platform/program_folder.h"
#include "platform/qt_serial_link.h"
#include "remote/window/form3.h"
#include "util/twips.h"

#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QTimer>

namespace veltro {

namespace {
// Chooser entries of a controller carry this flag.
constexpr int kControllerRole = Qt::UserRole + 1;
} // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setupUi(this);
    dialogs = std::make_shared<WindowDialogs>(this);
    // A main window is a new session of the tool: transfers run until it closes.
    resetTransferCancel();
    // Status bar: one status text; a busy indicator while ports are probed and a progress bar
    // while blocks go out, neither of which changes the text.
    statusbar->addWidget(StatusBar1, 1);
    statusbar->addPermanentWidget(scanIndicator);
    statusbar->addPermanentWidget(transferProgress);
    for (auto [t, ms, name] : {std::tuple{&Timer1, 500, "Timer1"}, {&Timer2, 4000, "Timer2"},
                               {&Timer3, 500, "Timer3"}, {&Timer5, 1000, "Timer5"}}) {
        *t = new QTimer(this);
        (*t)->setObjectName(name);
        (*t)->setInterval(ms);
    }
    // The tooltips of these three are rebuilt whenever the mouse moves over them.
    for (QLabel* l : {Label5, vers, hwversion})
        l->installEventFilter(this);
    telnet->attach(state, *Label5);
    connectControls();
}

MainWindow::~MainWindow()
{
    // The tool's own windows go with it.
    delete tunnel_.data();
    delete editor_.data();
}

void MainWindow::connectControls()
{
    for (auto [button, slot] : {std::pair{verbinden, &MainWindow::verbinden_Click},
                                {Command100, &MainWindow::Command100_Click}, {Command17, &MainWindow::Command17_Click},
                                {Command7, &MainWindow::Command7_Click}, {Command4, &MainWindow::Command4_Click},
                                {Command10, &MainWindow::Command10_Click}, {Command6, &MainWindow::Command6_Click},
                                {Command1, &MainWindow::Command1_Click}, {Command8, &MainWindow::Command8_Click},
                                {Command15, &MainWindow::Command15_Click}, {Command5, &MainWindow::Command5_Click},
                                {olderFirmware, &MainWindow::olderFirmwareUpdate},
                                {olderTrennen, &MainWindow::Command8_Click}})
        connect(button, &QPushButton::clicked, this, slot);
    // Service functions have no place in the normal layout: a right click on the
    // configuration panel reaches them.
    for (auto [action, slot] : {std::pair{actionReadDataBlock, &MainWindow::readDataBlock},
                                {actionCommand15, &MainWindow::Command15_Click},
                                {actionCopySerialNumber, &MainWindow::copySerialNumber},
                                {actionCommand5, &MainWindow::Command5_Click},
                                {actionOlderFirmware, &MainWindow::olderFirmwareUpdate},
                                {actionEarlierConfiguration, &MainWindow::earlierConfiguration}})
        connect(action, &QAction::triggered, this, slot);
    connect(Timer2, &QTimer::timeout, this, &MainWindow::Timer2_Timer);
    connect(Timer3, &QTimer::timeout, this, &MainWindow::Timer3_Timer);
    connect(Timer5, &QTimer::timeout, this, &MainWindow::Timer5_Timer);
    connect(Comboport, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0) Comboport_Click();
    });
    // Only a choice made by the user stops the scan from selecting the controllers it finds.
    connect(Comboport, &QComboBox::activated, this, [this] { userChosePort_ = true; });
    // "BEENDEN": 20 twips narrower than at start-up; the window has always done so.
    connect(telnet, &TerminalPanel::closed, this, [this] { resize(tw(3780), tw(4380)); });
}

void MainWindow::Form_Load()
{
    resize(tw(3800), tw(4380));
    setStatus("READY");
    PortScan();
}

std::shared_ptr<WindowReporter> MainWindow::makeReporter()
{
    return std::make_shared<WindowReporter>(
        [this](const QString& t) { setStatus(t); }, [this](const QString& t) { Add_Item(t); },
        [this](int p) {
            transferProgress->setVisible(true);
            transferProgress->setValue(p);
        });
}

int MainWindow::chosenPort() const
{
    const int i = Comboport->currentIndex();
    if (i < 0 || i >= List3->count()) return 0;
    return List3->item(i)->text().toInt();
}

void MainWindow::softwareUpdateCheck()
{
    const std::string local = state.programmversion.toStdString();
    jobs_.run<std::optional<SelfUpdateOffer>>(
        [local] { return checkSelfUpdate(local); },
        [this](std::optional<SelfUpdateOffer> offer) {
            if (offer && dialogs->question(kSelfUpdateTitle, selfUpdateQuestion(offer->versionText))) {
                runSelfUpdate();
                return;
            }
            emit startupFinished();
        });
}

void MainWindow::runSelfUpdate()
{
    setEnabled(false);
    const std::string folder = programFolder();
    jobs_.run<int>([folder] { return downloadInstaller(folder); },
                   [this, folder](int rc) {
                       if (rc == 0 && startInstaller(folder + "/setup.exe")) {
                           emit startupFinished();
                           close();
                           return;
                       }
                       // Nothing to wait for after a failed download: the tool stays usable.
                       setEnabled(true);
                       emit startupFinished();
                   });
}

template <typename Result, typename Work, typename Done>
bool MainWindow::runDeviceJob(Work work, Done done)
{
    if (deviceJob_)
        return false;
    deviceJob_ = true;
    lockDeviceControls(true);
    // Both lambdas hold the reporter and the dialogs; the result handler runs last, on this
    // thread, so neither can go away under the worker whatever the window does meanwhile.
    std::shared_ptr<WindowReporter> reporter = makeReporter();
    std::shared_ptr<Dialogs> jobDialogs = dialogs;
    jobs_.run<Result>([work, reporter, jobDialogs] { return work(*reporter, *jobDialogs); },
                      [this, done, reporter](Result r) {
                          reporter->flush();
                          deviceJob_ = false;
                          lockDeviceControls(false);
                          done(r);
                      });
    return true;
}

template <typename Result, typename Work, typename Done>
bool MainWindow::runOnChosenPort(Work work, Done done)
{
    const int port = chosenPort();
    return runDeviceJob<Result>(
        [port, work](Reporter& reporter, Dialogs&) {
            auto link = PortSerialLinkFactory().create(port);
            return work(*link, reporter);
        },
        done);
}

void MainWindow::lockDeviceControls(bool locked)
{
    // Panel contents are switched off as a whole, so that each control keeps its own enabled
    // state for afterwards; so are the service entries that start a device job.
    for (QWidget* body : {connectBody, configBody, olderBody})
        body->setEnabled(!locked);
    for (QAction* a : {actionReadDataBlock, actionCommand15, actionOlderFirmware, actionEarlierConfiguration})
        a->setEnabled(!locked);
}

void MainWindow::verbinden_Click()
{
    if (deviceJob_)
        return;
    // Connecting takes the chosen entry: a scan still running must not move the selection
    // away from the controller the later jobs talk to.
    userChosePort_ = true;
    Command4->setVisible(true);
    verbinden->setEnabled(false);
    connectProblem->clear();
    connectProblem->setVisible(false);
    const std::string folder = programFolder();
    struct Connected {
        ConnectResult r;
        std::string historyProblem;
    };
    runOnChosenPort<Connected>(
        [folder](SerialLink& link, Reporter& reporter) {
            Connected c{runConnect(link, reporter), {}};
            if (c.r.currentLayout) {
                c.r.savedFile = saveImageFile(folder, c.r.serial, c.r.image);
                c.historyProblem = keepImage(folder, c.r.serial, c.r.image, factsOf(c.r));
            }
            return c;
        },
        [this](const Connected& c) { applyConnect(c.r, c.historyProblem); });
}

void MainWindow::applyConnect(const ConnectResult& r, const std::string& historyProblem)
{
    takeConnect(state, r);
    if (r.outcome == ConnectOutcome::Checked) {
        for (const std::string& b : r.byteTexts)
            List3->addItem(QString::fromStdString(b));
        Label5->setText("SERIENNUMMER: " + QString::fromStdString(r.serial));
    }
    if (r.connected()) {
        setStatus("CHECKSUMME OK - VERBUNDEN!");
        Frame_verbinden->setVisible(false);
    }
    if (r.currentLayout) {
        frame_config->setVisible(true);
        Timer1->start();
        vers->setText("FIRMWARE V" + QString::number(r.firmware()));
        hwversion->setText("HARDWAREVERSION: V" + QString::number(r.hardwareVersion()));
        Command4->setEnabled(true);
        Command6->setEnabled(true);
        Command1->setEnabled(true);
        if (r.savedFile.empty())
            Add_Item("Abbild konnte nicht gespeichert werden: " + QString::fromStdString(programFolder()));
        if (!historyProblem.empty())
            Add_Item(QString::fromStdString(historyProblemLine(historyProblem)));
        connectImage_ = r.image;
        connectSerial_ = r.serial;
    }
    // An image that passes both layout tests shows as the older layout, as the device expects.
    if (r.olderLayout) {
        frame_config->setVisible(false);
        vers->setText(QString::fromStdString(olderFirmwareCaption(r.olderMinor())));
        showOlderPanel();
    } else if (r.currentLayout) {
        frame_older->setVisible(false);
    }
    // The status bar only says "ERROR"; the connect panel says why.
    const QString problem = QString::fromStdString(connectProblemText(r));
    StatusBar1->setToolTip(problem.isEmpty() ? QString() : "Com-Port: " + QString::fromStdString(r.portError));
    connectProblem->setText(problem);
    connectProblem->setVisible(!problem.isEmpty());
    verbinden->setEnabled(true);
    // The check belongs to the current-layout ending, which comes before the older one: it
    // asks with that ending's hardware, layout byte and firmware, not with the older values
    // that may have replaced them in the state.
    if (r.currentLayout)
        startFirmwareCheck(std::to_string(r.hardwareVersion()), std::to_string(r.layoutByte()),
                           std::to_string(r.firmware()));
    emit connectFinished();
}

void MainWindow::showOlderPanel()
{
    olderSerial->setText(Label5->text());
    olderVers->setText(vers->text());
    frame_older->setVisible(true);
    frame_older->raise();
}

void MainWindow::startFirmwareCheck(const std::string& hw, const std::string& bt, const std::string& fw)
{
    jobs_.run<bool>([hw, bt, fw] { return newerFirmwareOnServer(hw, bt, fw); },
                    [this](bool newer) {
                        if (newer)
                            Timer3->start();
                        emit firmwareCheckFinished();
                    });
}

void MainWindow::readDataBlock()
{
    if (deviceJob_)
        return;
    runOnChosenPort<DataBlockResult>(
        [](SerialLink& link, Reporter& reporter) { return runDataBlockReadout(link, reporter); },
        [this](const DataBlockResult& r) {
            // The block's bytes go to the hidden list after the port numbers, which the
            // chooser still needs.
            for (const std::string& b : r.byteTexts)
                List3->addItem(QString::fromStdString(b));
            if (r.ok) {
                setStatus("CHECKSUMME OK - DATEN GELADEN!");
                Frame_verbinden->setVisible(false);
                frame_config->setVisible(true);
                Label5->setText("SERIENNUMMER: " + QString::fromStdString(r.serial));
                state.fwupdateser = QString::fromStdString(r.serial);
                LabelDatum->setText(QString::fromStdString(r.dateText));
                LabelDatum->setToolTip(QString::fromStdString(r.dateText));
                LabelDatum->setVisible(true);
                LabelLambda->setText(QString::fromStdString(r.lambdaText));
                LabelLambda->setVisible(true);
            }
            emit readoutFinished();
        });
}

void MainWindow::Command15_Click()
{
    if (deviceJob_)
        return;
    runOnChosenPort<WordResult>(
        [](SerialLink& link, Reporter& reporter) { return runWordReadout(link, reporter); },
        [this](const WordResult& r) {
            if (r.ok)
                List3->addItem(QString::number(r.word));
            emit readoutFinished();
        });
}

std::function<void()> MainWindow::showListFromJob()
{
    return [this] {
        QMetaObject::invokeMethod(this, [this] {
            List1->setVisible(true);
            List1->raise();
        }, Qt::QueuedConnection);
    };
}

void MainWindow::Command7_Click()
{
    runFirmware(false);
}

void MainWindow::olderFirmwareUpdate()
{
    runFirmware(true);
}

void MainWindow::runFirmware(bool olderForm)
{
    if (deviceJob_)
        return;
    List1->clear();
    Command7->setEnabled(false);
    const FirmwareInputs in = firmwareInputs(state, chosenPort(), olderForm);
    // Window changes asked for in the middle of the job happen on the window's thread.
    FirmwareHooks hooks;
    hooks.setFrameTitle = [this](const std::string& title) {
        const QString t = QString::fromStdString(title);
        QMetaObject::invokeMethod(this, [this, t] { frame_config->setTitle(t); }, Qt::QueuedConnection);
    };
    hooks.showList = showListFromJob();
    transferring_ = true;
    runDeviceJob<FirmwareResult>(
        [in, hooks](Reporter& reporter, Dialogs& d) {
            PortSerialLinkFactory ports;
            return runFirmwareUpdate(in, d, reporter, ports, hooks);
        },
        [this](const FirmwareResult& r) {
            transferring_ = false;
            if (!r.file.empty())
                recordInHistory(kEventFirmware, r.file);
            Timer5->start();
            Command7->setEnabled(true);
            setStatus("READY");
            transferProgress->setVisible(false);
            state.fwupdateser = QString::fromStdString(r.fwupdateser);
            emit firmwareFinished();
        });
}

void MainWindow::Command4_Click()
{
    if (deviceJob_)
        return;
    List1->clear();
    frame_config->setTitle("Konfiguration auf Controller laden");
    Command4->setEnabled(false);
    const ConfigUploadInputs in = configUploadInputs(state, chosenPort());
    auto showList = showListFromJob();
    transferring_ = true;
    runDeviceJob<ConfigUploadResult>(
        [in, showList](Reporter& reporter, Dialogs& d) {
            PortSerialLinkFactory ports;
            return runConfigUpload(in, d, reporter, ports, showList);
        },
        [this](const ConfigUploadResult& r) {
            transferring_ = false;
            if (r.transfer)
                recordInHistory(kEventUpload, r.file);
            if (r.eepromdirectTaken)
                state.eepromdirect.clear();
            // Enabled again after every outcome: the device tool leaves it off after a
            // cancelled dialog or a port that would not open, which strands the user until the
            // next connect.
            Command4->setEnabled(true);
            if (r.cancelled) {
                Timer2->start();
                Timer5->start();
            } else if (r.transfer) {
                setStatus("READY");
            }
            emit uploadFinished();
        });
}

Form2* MainWindow::editor() const
{
    return editor_.data();
}

void MainWindow::Command10_Click()
{
    openEditor({});
}

void MainWindow::openEditor(const QString& imageFile)
{
    if (deviceJob_ || editor_)
        return;
    EditorLink link = editorLink(state);
    link.imageFile = imageFile.toStdString();
    // A window of its own, not a child: a child would be disabled with the main window.
    auto* form = new Form2(programFolder(), link, dialogs);
    form->setAttribute(Qt::WA_DeleteOnClose);
    if (editorEndProgram)
        form->endProgram = editorEndProgram;
    editor_ = form;
    connect(form, &Form2::unloaded, this, [this] { setEnabled(true); });
    connect(form, &Form2::saved, this, [this, form](const QString& upload) {
        // The upload runs with its texts and progress here; the editor closes once it returns.
        state.eepromdirect = upload;
        connect(this, &MainWindow::uploadFinished, form, &QWidget::close, Qt::SingleShotConnection);
        Command4_Click();
    });
    setEnabled(false);
    // Loaded before it shows, so it appears once, filled and at its full height.
    form->Form_Load();
    form->show();
}

HistoryDialog* MainWindow::historyDialog() const
{
    return history_.data();
}

void MainWindow::earlierConfiguration()
{
    if (deviceJob_ || editor_ || history_ || connectImage_.empty())
        return;
    history_ = new HistoryDialog(earlierConfigurations(programFolder(), connectSerial_, connectImage_), this);
    history_->setAttribute(Qt::WA_DeleteOnClose);
    connect(history_, &HistoryDialog::chosen, this, &MainWindow::openEditor);
    history_->show();
}

void MainWindow::recordInHistory(const std::string& event, const std::string& file)
{
    const QString last = List1->count() ? List1->item(List1->count() - 1)->text() : QString("abgebrochen");
    const std::string why = recordJob(programFolder(), connectSerial_, event, file, state.firmwareversion.toStdString(),
                                      last.toStdString());
    if (!why.empty())
        Add_Item(QString::fromStdString(historyProblemLine(why)));
}

Form3* MainWindow::tunnel() const
{
    return tunnel_.data();
}

void MainWindow::Command6_Click()
{
    if (deviceJob_ || tunnel_)
        return;
    // A window of its own; the configuration panel waits until it is closed, since the
    // tunnel holds the device's port.
    auto* form = new Form3(programFolder());
    form->setAttribute(Qt::WA_DeleteOnClose);
    tunnel_ = form;
    connect(form, &Form3::unloaded, this, [this] {
        frame_config->setEnabled(true);
        emit tunnelClosed();
    });
    emit tunnelOpened();
    form->show();
    form->start(state.fwupdateser, chosenPort());
    frame_config->setEnabled(false);
}

void MainWindow::Command17_Click()
{
    if (deviceJob_)
        return;
    const std::string number = askRecoveryNumber(*dialogs);
    state.fwupdateser = QString::fromStdString(number);
    if (number.empty())
        return;
    vers->setText("RECOVERY");
    frame_config->setVisible(true);
    frame_config->raise();
    Command6->setEnabled(false);
    Command1->setEnabled(true);
    Command4->setEnabled(true);
}

void MainWindow::Command5_Click()
{
    dialogs->message("", std::to_string(List3->count()));
}

void MainWindow::copySerialNumber()
{
    QClipboard* clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(QString::fromStdString(serialFromLabel(Label5->text().toStdString())));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (transferring_) {
        // A controller left half-written would not start; the job ends by itself (done, failed
        // or timed out), and then the window can close.
        dialogs->message("MARDEKO VELTRO V1.05",
                         "Die Übertragung zum Controller läuft noch. Bitte warten, bis sie beendet ist.");
        event->ignore();
        return;
    }
    // The tool ends: transfers still running give up at once, and a worker that was about to
    // ask something gets no answer instead of waiting for a window that is going.
    cancelAllTransfers();
    if (auto* windowDialogs = dynamic_cast<WindowDialogs*>(dialogs.get()))
        windowDialogs->windowClosing();
    QMainWindow::closeEvent(event);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if ((event->type() == QEvent::MouseMove || event->type() == QEvent::ToolTip)
        && (watched == Label5 || watched == vers || watched == hwversion))
        static_cast<QWidget*>(watched)->setToolTip(deviceInfoText(state));
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::PortScan()
{
    Comboport->clear();
    List3->clear();
    verbinden->setEnabled(false);
    userChosePort_ = false;
    scanIndicator->setVisible(true);
    const int generation = ++scanGeneration_;
    // Each entry is shown as soon as its port's probe ends: a controller that answers at once
    // is there to connect while silent ports are still being given up on.
    auto found = [this, generation](const ScanEntry& e) {
        QMetaObject::invokeMethod(this, [this, generation, e] {
            if (generation == scanGeneration_)
                addScanEntry(e);
        }, Qt::QueuedConnection);
    };
    jobs_.run<ScanResult>([found] { return scanMachinePorts(found); },
                          [this](ScanResult) {
                              scanIndicator->setVisible(false);
                              Command100->setEnabled(true);
                              Command17->setEnabled(true);
                              emit scanFinished();
                              softwareUpdateCheck();
                          });
}

void MainWindow::addScanEntry(const ScanEntry& e)
{
    // Entries stay in ascending port order, with List3's numbers at the same index. List3 may
    // carry byte texts of a connect after the chooser's numbers; those stay behind them.
    int at = 0;
    while (at < Comboport->count() && List3->item(at)->text().toInt() < e.port)
        ++at;
    const int before = Comboport->currentIndex();
    Comboport->blockSignals(true);
    Comboport->insertItem(at, QString::fromStdString(e.text));
    Comboport->setItemData(at, QString::fromStdString(e.location), Qt::ToolTipRole);
    Comboport->setItemData(at, e.firmware > 0, kControllerRole);
    if (before < 0)
        Comboport->setCurrentIndex(-1); // a free port is listed, not chosen
    Comboport->blockSignals(false);
    List3->insertItem(at, QString::number(e.port));
    // Until the user picks an entry, the highest controller found so far is selected, as a
    // scan one port after the other ends with the last controller it found. Selecting raises
    // the chooser's click, which enables VERBINDEN.
    if (e.firmware > 0 && !userChosePort_) {
        const int current = Comboport->currentIndex();
        if (current < 0 || !Comboport->itemData(current, kControllerRole).toBool() || current < at)
            Comboport->setCurrentIndex(at);
    }
}

void MainWindow::Comboport_Click()
{
    verbinden->setEnabled(true);
    const int i = Comboport->currentIndex();
    Comboport->setToolTip(i >= 0 ? Comboport->itemData(i, Qt::ToolTipRole).toString() : QString());
}

void MainWindow::Command100_Click()
{
    if (deviceJob_)
        return;
    Command100->setEnabled(false);
    Command17->setEnabled(false);
    Form_Load();
}

void MainWindow::Command8_Click()
{
    if (deviceJob_)
        return;
    showConnectPanel();
    setStatus("READY");
    Timer3->stop();
    Label2->setVisible(false);
    // The device port is opened and closed by each job; nothing stays open between them.
}

void MainWindow::showConnectPanel()
{
    frame_config->setVisible(false);
    frame_older->setVisible(false);
    Frame_verbinden->setVisible(true);
}

void MainWindow::Command1_Click()
{
    if (deviceJob_)
        return;
    resize(tw(10200), height());
    telnet->open(chosenPort());
}

void MainWindow::Timer2_Timer()
{
    List1->setVisible(false);
    frame_config->setTitle("Konfiguration");
    Timer2->stop();
}

void MainWindow::Timer3_Timer()
{
    Label2->setVisible(!Label2->isVisible());
}

void MainWindow::Timer5_Timer()
{
    const CountdownStep step = countDown(state);
    frame_config->setTitle("Warten ... (" + QString::number(step.shown) + ")");
    if (step.over)
        Timer5->stop();
}

void MainWindow::Add_Item(const QString& text)
{
    List1->addItem(text);
    List1->setCurrentRow(List1->count() - 1);
    List1->item(List1->count() - 1)->setSelected(false);
    List1->scrollToBottom();
}

void MainWindow::setStatus(const QString& text)
{
    StatusBar1->setText(text);
}

QString MainWindow::statusText() const
{
    return StatusBar1->text();
}

} // namespace veltro
