#include "app/main_window.h"

#include "app/window_reporter.h"
#include "app/window_dialogs.h"
#include "device/device_info.h"
#include "device/discovery.h"
#include "device/identify.h"
#include "device/readout.h"
#include "device/self_update.h"
#include "editor/window/form2.h"
#include "editor/codec.h"
#include "remote/window/form3.h"
#include "flash/jobs.h"
#include "platform/cancel.h"
#include "platform/port_numbering.h"
#include "platform/program_folder.h"
#include "platform/endpoints.h"
#include "platform/internet.h"
#include "platform/qt_serial_link.h"
#include "platform/tcp_client.h"
#include "remote/remote_service.h"
#include "remote/remote_session.h"
#include "terminal/terminal_port.h"
#include "terminal/window/terminal_view.h"
#include "util/runtime_error.h"

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QEvent>
#include <QKeyEvent>
#include <QScrollBar>
#include <QSerialPort>
#include <QTextCursor>
#include <QComboBox>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QTextEdit>
#include <QTimer>
#include <QVBoxLayout>

namespace veltro {

namespace {
QPushButton* button(const QString& caption, QWidget* parent, const char* name)
{
    auto* b = new QPushButton(caption, parent);
    b->setObjectName(name);
    return b;
}

QLabel* label(const QString& caption, QWidget* parent, const char* name)
{
    auto* l = new QLabel(caption, parent);
    l->setObjectName(name);
    return l;
}

// Chooser entries of a controller carry this flag.
constexpr int kControllerRole = Qt::UserRole + 1;

// The one child of a panel that holds its controls, and the column they stand in.
QVBoxLayout* panelBody(QGroupBox* panel, QWidget*& body, int spacing)
{
    body = new QWidget(panel);
    (new QVBoxLayout(panel))->addWidget(body);
    auto* column = new QVBoxLayout(body);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(spacing);
    return column;
}

QTimer* timer(int intervalMs, QObject* parent, const char* name)
{
    auto* t = new QTimer(parent);
    t->setObjectName(name);
    t->setInterval(intervalMs);
    return t;
}
} // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle("MARDEKO VELTRO V1.05");
    dialogs = std::make_shared<WindowDialogs>(this);
    // A main window is a new session of the tool: transfers run until it closes.
    resetTransferCancel();
    buildControls();
}

MainWindow::~MainWindow()
{
    // The tool's own windows go with it.
    delete tunnel_.data();
    delete editor_.data();
}

void MainWindow::buildControls()
{
    auto* central = new QWidget(this);
    setCentralWidget(central);

    // Connect panel
    Frame_verbinden = new QGroupBox("Verbindung mit VELTRO herstellen:", central);
    Frame_verbinden->setObjectName("Frame_verbinden");
    {
        auto* v = panelBody(Frame_verbinden, connectBody_, 4);
        Label1 = label("COM-PORT:", connectBody_, "Label1");
        Comboport = new QComboBox(connectBody_);
        Comboport->setObjectName("Comboport");
        verbinden = button("VERBINDEN", connectBody_, "verbinden");
        Command100 = button("LISTE AKTUALISIEREN", connectBody_, "Command100");
        Command17 = button("RECOVERY", connectBody_, "Command17");
        v->addWidget(Label1);
        v->addWidget(Comboport);
        v->addWidget(verbinden);
        connectProblem = label(QString(), connectBody_, "connectProblem");
        connectProblem->setWordWrap(true);
        connectProblem->setStyleSheet("color: #b00000;");
        connectProblem->setVisible(false);
        v->addWidget(connectProblem);
        v->addStretch(1);
        v->addWidget(Command100);
        v->addWidget(Command17);
        verbinden->setEnabled(false);
        Command100->setEnabled(false);
        Command17->setEnabled(false);
    }

    // Configuration panel
    frame_config = new QGroupBox("Konfiguration", central);
    frame_config->setObjectName("frame_config");
    {
        auto* v = panelBody(frame_config, configBody_, 2);
        Label5 = label("SERIENNUMMER: ", configBody_, "Label5");
        vers = label("FIRMWARE V", configBody_, "vers");
        hwversion = label("HARDWARE: ", configBody_, "hwversion");
        Label2 = label("UPDATE VERFÜGBAR", configBody_, "Label2");
        Label2->setStyleSheet("color: #c00000; font-weight: bold;");
        Label2->setVisible(false);
        Command7 = button("FIRMWARE-UPDATE", configBody_, "Command7");
        Command4 = button("CONFIG-UPLOAD", configBody_, "Command4");
        Command10 = button("DISPLAY KONFIGURIEREN", configBody_, "Command10");
        Command6 = button("CAN-BUS TUNNEL", configBody_, "Command6");
        Command1 = button("TELNET TERMINAL", configBody_, "Command1");
        Command8 = button("VERBINDUNG TRENNEN", configBody_, "Command8");
        LabelDatum = label("", configBody_, "LabelDatum");
        LabelLambda = label("", configBody_, "LabelLambda");
        LabelDatum->setVisible(false);
        LabelLambda->setVisible(false);
        for (QWidget* w : {static_cast<QWidget*>(Label5), static_cast<QWidget*>(LabelDatum),
                           static_cast<QWidget*>(LabelLambda), static_cast<QWidget*>(vers),
                           static_cast<QWidget*>(hwversion), static_cast<QWidget*>(Label2)})
            v->addWidget(w);
        // The tooltips of these three are rebuilt whenever the mouse moves over them.
        for (QLabel* l : {Label5, vers, hwversion}) {
            l->setMouseTracking(true);
            l->installEventFilter(this);
        }
        for (QPushButton* b : {Command7, Command4, Command10, Command6, Command1, Command8})
            v->addWidget(b);
        // A connect shows "CONFIG-UPLOAD" and enables it together with tunnel and terminal.
        Command4->setVisible(false);
        Command4->setEnabled(false);
        Command6->setEnabled(false);
        Command1->setEnabled(false);
    }
    frame_config->setVisible(false);

    // A controller with the older image layout has none of the configuration functions; what
    // it can do is the older firmware update, and the user must be able to leave it again.
    frame_older = new QGroupBox("VELTRO (ältere Form)", central);
    frame_older->setObjectName("frame_older");
    {
        auto* v = panelBody(frame_older, olderBody_, 2);
        olderSerial = label("SERIENNUMMER: ", olderBody_, "olderSerial");
        olderVers = label("FIRMWARE V", olderBody_, "olderVers");
        olderFirmware = button("FIRMWARE-UPDATE (ÄLTERE FORM)", olderBody_, "olderFirmware");
        olderTrennen = button("VERBINDUNG TRENNEN", olderBody_, "olderTrennen");
        v->addWidget(olderSerial);
        v->addWidget(olderVers);
        v->addStretch(1);
        v->addWidget(olderFirmware);
        v->addWidget(olderTrennen);
    }
    frame_older->setVisible(false);
    for (QGroupBox* panel : {Frame_verbinden, frame_config, frame_older})
        panel->setAutoFillBackground(true);

    // Terminal panel
    telnet = new QGroupBox("TELNET - TERMINAL", central);
    telnet->setObjectName("telnet");
    {
        auto* v = new QVBoxLayout(telnet);
        terminal = new QTextEdit(telnet);
        terminal->setObjectName("terminal");
        terminal->setAccessibleName("TELNET - TERMINAL");
        terminalView_ = new TerminalView(terminal);
        telnetsendbox = new QLineEdit(telnet);
        telnetsendbox->setObjectName("telnetsendbox");
        telnetsendbox->setAccessibleName("Eingabe");
        telnetsendbox->installEventFilter(this);
        lastkey = label("Label3", telnet, "lastkey");
        lastkey->setVisible(false);
        auto* buttons = new QHBoxLayout;
        Command9 = button("REMOTE", telnet, "Command9");
        Command3 = button("BERICHT SENDEN", telnet, "Command3");
        Command2 = button("BEENDEN", telnet, "Command2");
        buttons->addWidget(Command9);
        buttons->addWidget(Command3);
        buttons->addStretch(1);
        buttons->addWidget(Command2);
        v->addWidget(terminal, 1);
        v->addWidget(telnetsendbox);
        v->addLayout(buttons);
    }
    telnet->setVisible(false);
    telnet->setAutoFillBackground(true);
    terminalPort_ = new TerminalPort(*terminalView_, this);
    MSComm3 = terminalPort_->port();
    connect(terminalPort_, &TerminalPort::imageMailFinished, this, &MainWindow::imageMailFinished);
    connect(terminalPort_, &TerminalPort::reportFinished, this, [this](const QString& r) {
        Command3->setEnabled(true);
        emit reportFinished(r);
    });
    remote_ = new RemoteSession(this);
    Winsock1 = remote_->socket();
    connect(Winsock1, &TcpClient::dataArrived, this, &MainWindow::Winsock1_DataArrival);
    connect(remote_, &RemoteSession::line, this, [this](const std::string& line) { terminalView_->appendLine(line); });
    connect(remote_, &RemoteSession::commandAnswered, this, &MainWindow::remoteCommandAnswered);
    connect(remote_, &RemoteSession::recordHandled, this, [this](bool found) {
        if (found) {
            terminalPort_->newServer();
            // Each connect is compared afresh: its first poll says the state it finds, even
            // the same as the last attempt's (a second refused connect), and "REMOTE" comes back.
            laststatus->setText("500");
            Timer4->start();
        } else {
            Command9->setEnabled(true);
            if (pollBeforeFetch_)
                Timer4->start();
        }
        emit remoteRecordHandled();
    });
    connect(remote_, &RemoteSession::forDevice, terminalPort_, &TerminalPort::fromServer);
    connect(terminalPort_, &TerminalPort::output, remote_, &RemoteSession::deviceOutput);
    connect(terminalPort_, &TerminalPort::serverHold, Winsock1, &TcpClient::holdReading);
    laststatus = label("500", telnet, "laststatus");
    laststatus->setVisible(false);

    // Service buttons: their captions are their names; they have no place in the layout.
    Command15 = button("Command15", central, "Command15");
    Command5 = button("Command5", central, "Command5");
    Command15->setVisible(false);
    Command5->setVisible(false);

    List1 = new QListWidget(central);
    List1->setObjectName("List1");
    List1->setVisible(false);
    List3 = new QListWidget(central);
    List3->setObjectName("List3");
    List3->setVisible(false);

    // Status bar: one status text; a busy indicator while ports are probed and a progress
    // bar while blocks go out, neither of which changes the text.
    StatusBar1 = new QLabel(this);
    StatusBar1->setObjectName("StatusBar1");
    statusBar()->addWidget(StatusBar1, 1);
    scanIndicator = new QProgressBar(this);
    scanIndicator->setObjectName("scanIndicator");
    scanIndicator->setRange(0, 0);
    scanIndicator->setMaximumWidth(60);
    scanIndicator->setMaximumHeight(12);
    scanIndicator->setTextVisible(false);
    scanIndicator->setVisible(false);
    statusBar()->addPermanentWidget(scanIndicator);
    transferProgress = new QProgressBar(this);
    transferProgress->setObjectName("transferProgress");
    transferProgress->setRange(0, 100);
    transferProgress->setMaximumWidth(70);
    transferProgress->setMaximumHeight(12);
    transferProgress->setVisible(false);
    statusBar()->addPermanentWidget(transferProgress);
    statusBar()->setSizeGripEnabled(false);

    Timer1 = timer(500, this, "Timer1");
    Timer2 = timer(4000, this, "Timer2");
    Timer3 = timer(500, this, "Timer3");
    Timer4 = timer(50, this, "Timer4");
    Timer5 = timer(1000, this, "Timer5");
    connect(Timer2, &QTimer::timeout, this, &MainWindow::Timer2_Timer);
    connect(Timer3, &QTimer::timeout, this, &MainWindow::Timer3_Timer);
    connect(Timer5, &QTimer::timeout, this, &MainWindow::Timer5_Timer);
    connect(Timer4, &QTimer::timeout, this, &MainWindow::Timer4_Timer);

    connect(Comboport, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0) Comboport_Click();
    });
    connect(verbinden, &QPushButton::clicked, this, &MainWindow::verbinden_Click);
    connect(Command100, &QPushButton::clicked, this, &MainWindow::Command100_Click);
    connect(Command7, &QPushButton::clicked, this, &MainWindow::Command7_Click);
    connect(Command4, &QPushButton::clicked, this, &MainWindow::Command4_Click);
    connect(Command10, &QPushButton::clicked, this, &MainWindow::Command10_Click);
    connect(Command6, &QPushButton::clicked, this, &MainWindow::Command6_Click);
    connect(Command1, &QPushButton::clicked, this, &MainWindow::Command1_Click);
    connect(Command3, &QPushButton::clicked, this, &MainWindow::Command3_Click);
    connect(Command9, &QPushButton::clicked, this, &MainWindow::Command9_Click);
    connect(Command17, &QPushButton::clicked, this, &MainWindow::Command17_Click);
    connect(Command15, &QPushButton::clicked, this, &MainWindow::Command15_Click);
    connect(Command5, &QPushButton::clicked, this, &MainWindow::Command5_Click);

    // Service functions have no place in the normal layout: a right click on the
    // configuration panel reaches them.
    frame_config->setContextMenuPolicy(Qt::ActionsContextMenu);
    auto addService = [this](const QString& text, auto slot, bool deviceJob) {
        auto* a = new QAction(text, frame_config);
        connect(a, &QAction::triggered, this, slot);
        frame_config->addAction(a);
        if (deviceJob) deviceActions_ << a;
    };
    addService("Datenblock auslesen", &MainWindow::readDataBlock, true);
    addService("Wort auslesen (Command15)", &MainWindow::Command15_Click, true);
    addService("Seriennummer kopieren", &MainWindow::copySerialNumber, false);
    addService("Listeneinträge zählen (Command5)", &MainWindow::Command5_Click, false);
    addService("Firmware-Update (ältere Form)", &MainWindow::olderFirmwareUpdate, true);
    connect(Command8, &QPushButton::clicked, this, &MainWindow::Command8_Click);
    connect(Command2, &QPushButton::clicked, this, &MainWindow::Command2_Click);
    connect(olderFirmware, &QPushButton::clicked, this, &MainWindow::olderFirmwareUpdate);
    connect(olderTrennen, &QPushButton::clicked, this, &MainWindow::Command8_Click);
    // Only a choice made by the user stops the scan from selecting the controllers it finds.
    connect(Comboport, &QComboBox::activated, this, [this] { userChosePort_ = true; });

    setPanelGeometry();
}

void MainWindow::setPanelGeometry()
{
    Frame_verbinden->setGeometry(tw(30), tw(30), tw(3655), tw(3555));
    frame_config->setGeometry(tw(30), tw(30), tw(3655), tw(3555));
    frame_older->setGeometry(tw(30), tw(30), tw(3655), tw(3555));
    telnet->setGeometry(tw(30), tw(30), tw(10000), tw(3555));
}

void MainWindow::Form_Load()
{
    List1->move(tw(90), tw(210));
    // Over the labels of the configuration panel, clear of its buttons.
    List1->resize(tw(3500), tw(1000));
    resize(tw(3800), tw(4380));
    setStatus("READY");
    PortScan();
}

void MainWindow::startupAfterScan()
{
    setPanelGeometry();
    softwareUpdateCheck();
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
                runSelfUpdate(QString::fromStdString(offer->versionText));
                return;
            }
            emit startupFinished();
        });
}

void MainWindow::runSelfUpdate(const QString&)
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
    for (QWidget* body : {connectBody_, configBody_, olderBody_})
        body->setEnabled(!locked);
    for (QAction* a : std::as_const(deviceActions_))
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
    runOnChosenPort<ConnectResult>(
        [folder](SerialLink& link, Reporter& reporter) {
            ConnectResult r = runConnect(link, reporter);
            if (r.currentLayout)
                r.savedFile = saveImageFile(folder, r.serial, r.image);
            return r;
        },
        [this](const ConnectResult& r) { applyConnect(r); });
}

void MainWindow::applyConnect(const ConnectResult& r)
{
    if (r.outcome == ConnectOutcome::Checked) {
        for (const std::string& b : r.byteTexts)
            List3->addItem(QString::fromStdString(b));
        Label5->setText("SERIENNUMMER: " + QString::fromStdString(r.serial));
        state.fwupdateser = QString::fromStdString(r.serial);
    }
    if (r.currentLayout) {
        setStatus("CHECKSUMME OK - VERBUNDEN!");
        Frame_verbinden->setVisible(false);
        frame_config->setVisible(true);
        Timer1->start();
        vers->setText("FIRMWARE V" + QString::number(r.firmware()));
        state.btversion = QString::number(r.layoutByte());
        state.firmwareversion = QString::number(r.firmware());
        state.hwrevision = QString::number(r.hardwareVersion());
        state.ECUTYP = QString::number(r.controllerType());
        hwversion->setText("HARDWAREVERSION: V" + QString::number(r.hardwareVersion()));
        Command4->setEnabled(true);
        Command6->setEnabled(true);
        Command1->setEnabled(true);
        if (r.savedFile.empty())
            Add_Item("Abbild konnte nicht gespeichert werden: " + QString::fromStdString(programFolder()));
    }
    if (r.olderLayout) {
        // An older-layout image; its values win when both tests pass, as the device expects.
        setStatus("CHECKSUMME OK - VERBUNDEN!");
        Frame_verbinden->setVisible(false);
        frame_config->setVisible(false);
        state.btversion = QString::number(r.olderMarker());
        state.firmwareversion = QString::number(r.olderMinor());
        vers->setText(QString::fromStdString(olderFirmwareCaption(r.olderMinor())));
        showOlderPanel();
    } else if (r.currentLayout) {
        frame_older->setVisible(false);
    }
    if (r.outcome == ConnectOutcome::PortFailed && !r.portError.empty()) {
        const QString why = QString::fromStdString(r.portError);
        StatusBar1->setToolTip("Com-Port: " + why);
        // The status bar only says "ERROR"; the connect panel says why.
        connectProblem->setText(r.portError == kLinkLostText ? why : "Com-Port kann nicht geöffnet werden: " + why);
        connectProblem->setVisible(true);
    } else
        StatusBar1->setToolTip(QString());
    verbinden->setEnabled(true);
    // The check belongs to the current-layout ending, which comes before the older one: it
    // asks with that ending's hardware, layout byte and firmware, not with the older values
    // that may have replaced them in the labels.
    if (r.currentLayout)
        startFirmwareCheck(QString::number(r.hardwareVersion()), QString::number(r.layoutByte()),
                           QString::number(r.firmware()));
    emit connectFinished();
}

void MainWindow::showOlderPanel()
{
    olderSerial->setText(Label5->text());
    olderVers->setText(vers->text());
    frame_older->setVisible(true);
    frame_older->raise();
}

void MainWindow::startFirmwareCheck(const QString& hwrevision, const QString& btversion, const QString& firmware)
{
    const std::string hw = hwrevision.toStdString();
    const std::string bt = btversion.toStdString();
    const std::string fw = firmware.toStdString();
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
                state.passwortcal = QString::fromStdString(r.passwortcal);
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
    FirmwareInputs in;
    in.fwupdateser = state.fwupdateser.toStdString();
    in.hwrevision = state.hwrevision.toStdString();
    in.btversion = state.btversion.toStdString();
    in.firmwareversion = state.firmwareversion.toStdString();
    in.ECUTYP = state.ECUTYP.toStdString();
    in.port = chosenPort();
    in.programFolder = programFolder();
    in.olderForm = olderForm;
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
    ConfigUploadInputs in;
    in.eepromdirect = state.eepromdirect.toStdString();
    in.fwupdateser = state.fwupdateser.toStdString();
    in.port = chosenPort();
    in.programFolder = programFolder();
    auto showList = showListFromJob();
    transferring_ = true;
    runDeviceJob<ConfigUploadResult>(
        [in, showList](Reporter& reporter, Dialogs& d) {
            PortSerialLinkFactory ports;
            return runConfigUpload(in, d, reporter, ports, showList);
        },
        [this](const ConfigUploadResult& r) {
            transferring_ = false;
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

const TerminalText& MainWindow::terminalText() const
{
    return terminalView_->text();
}

Form2* MainWindow::editor() const
{
    return editor_.data();
}

void MainWindow::Command10_Click()
{
    if (deviceJob_ || editor_)
        return;
    const EditorLink link{state.ECUTYP.toStdString(), state.fwupdateser.toStdString(),
                          state.btversion.toStdString()};
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
    Command6->setEnabled(false);
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
    if (watched == telnetsendbox && (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)) {
        auto* key = static_cast<QKeyEvent*>(event);
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        if (event->type() == QEvent::KeyRelease && !key->isAutoRepeat()) {
            telnetsendbox_KeyUp(windowsKeyCode(key->key()), windowsShiftState(key->modifiers()));
        } else if (event->type() == QEvent::KeyPress && enter) {
            telnetsendbox_KeyPress(13);
            return true;
        }
    }
    if ((event->type() == QEvent::MouseMove || event->type() == QEvent::ToolTip)
        && (watched == Label5 || watched == vers || watched == hwversion)) {
        try {
            static_cast<QWidget*>(watched)->setToolTip(QString::fromStdString(
                deviceInfoTooltip(state.fwupdateser.toStdString(), state.btversion.toStdString())));
        } catch (const RuntimeError&) {
            // Before any connect the layout byte reads 65535 and the device tool ends with a
            // run-time error here; an empty tooltip serves the user better.
            static_cast<QWidget*>(watched)->setToolTip(QString());
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::PortScan()
{
    Comboport->clear();
    List3->clear();
    verbinden->setEnabled(false);
    userChosePort_ = false;
    scanning_ = true;
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
                              scanning_ = false;
                              scanIndicator->setVisible(false);
                              Command100->setEnabled(true);
                              Command17->setEnabled(true);
                              emit scanFinished();
                              startupAfterScan();
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

void MainWindow::reset()
{
    showConnectPanel();
    setStatus("READY");
}

void MainWindow::Command1_Click()
{
    if (deviceJob_)
        return;
    resize(tw(10200), height());
    telnet->setVisible(true);
    telnet->raise();
    telnetsendbox->setFocus();
    const int port = chosenPort();
    terminalPort_->open(port, portLocation(port));
    terminalAppend(terminalGreeting(serialFromLabel(Label5->text().toStdString())));
}

void MainWindow::terminalAppend(const std::string& bytes)
{
    terminalView_->append(bytes);
}

void MainWindow::Command9_Click()
{
    if (remote_->fetching())
        return;
    // "REMOTE" waits for the record, and so does the state poll, which would otherwise show
    // the closed socket in between.
    Command9->setEnabled(false);
    pollBeforeFetch_ = Timer4->isActive();
    Timer4->stop();
    const MailRequest mail = imageMail(state.fwupdateser.toStdString(), programFolder());
    remote_->start(state.fwupdateser.toStdString(), [mail] { return sendMail(mail); });
}

void MainWindow::Timer4_Timer()
{
    const std::optional<int> changed = remote_->poll(laststatus->text().toStdString());
    if (!changed)
        return;
    if (remoteReady(*changed))
        Command9->setEnabled(true);
    laststatus->setText(QString::number(*changed));
}

void MainWindow::Winsock1_DataArrival(const QByteArray& data)
{
    remote_->serverData(data);
}

void MainWindow::telnetsendbox_KeyUp(int keyCode, int shift)
{
    lastkey->setText(QString::fromStdString(lastKeyText(keyCode, shift)));
}

void MainWindow::telnetsendbox_KeyPress(int keyAscii)
{
    if (keyAscii != 13)
        return;
    terminalPort_->enter(lineEntry(qStringToWindows1252(telnetsendbox->text()), lastkey->text().toStdString()),
                         imageMail(serialFromLabel(Label5->text().toStdString()), programFolder()));
    telnetsendbox->clear();
    telnetsendbox->setFocus();
}

void MainWindow::Command3_Click()
{
    // One report at a time; the mail runs on a worker so the window stays usable.
    Command3->setEnabled(false);
    const std::string folder = programFolder();
    terminalPort_->report(folder, reportMail(serialFromLabel(Label5->text().toStdString()), folder));
}

void MainWindow::Command2_Click()
{
    terminalPort_->close();
    // 20 twips narrower than at start-up; the window has always done so.
    resize(tw(3780), tw(4380));
    telnet->setVisible(false);
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
    const int count = state.Label3.toInt() - 1;
    state.Label3 = QString::number(count);
    frame_config->setTitle("Warten ... (" + QString::number(count) + ")");
    if (count <= 1) {
        state.Label3 = "4";
        Timer5->stop();
    }
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

bool MainWindow::busy() const
{
    return scanning_ || jobs_.runningCount() > 0;
}

} // namespace veltro
