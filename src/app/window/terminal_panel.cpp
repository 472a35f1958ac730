#include "app/window/terminal_panel.h"

#include "app/link_state.h"
#include "device/readout.h"
#include "platform/port_numbering.h"
#include "platform/program_folder.h"
#include "platform/tcp_client.h"
#include "platform/windows1252.h"
#include "remote/remote_service.h"
#include "remote/remote_session.h"
#include "terminal/terminal_port.h"
#include "terminal/window/terminal_view.h"

#include <QKeyEvent>
#include <QTimer>

namespace veltro {

TerminalPanel::TerminalPanel(QWidget* parent) : QGroupBox(parent)
{
    setupUi(this);
    telnetsendbox->installEventFilter(this);
    view_ = new TerminalView(terminal);
    port_ = new TerminalPort(*view_, this);
    MSComm3 = port_->port();
    remote_ = new RemoteSession(this);
    Winsock1 = remote_->socket();
    Timer4 = new QTimer(this);
    Timer4->setObjectName("Timer4");
    Timer4->setInterval(50);

    connect(Command9, &QPushButton::clicked, this, &TerminalPanel::Command9_Click);
    connect(Command3, &QPushButton::clicked, this, &TerminalPanel::Command3_Click);
    connect(Command2, &QPushButton::clicked, this, &TerminalPanel::Command2_Click);
    connect(Timer4, &QTimer::timeout, this, &TerminalPanel::Timer4_Timer);
    connect(Winsock1, &TcpClient::dataArrived, this, &TerminalPanel::Winsock1_DataArrival);
    connect(port_, &TerminalPort::imageMailFinished, this, &TerminalPanel::imageMailFinished);
    connect(port_, &TerminalPort::reportFinished, this, [this](const QString& r) {
        Command3->setEnabled(true);
        emit reportFinished(r);
    });
    connect(remote_, &RemoteSession::line, this, [this](const std::string& line) { view_->appendLine(line); });
    connect(remote_, &RemoteSession::commandAnswered, this, &TerminalPanel::remoteCommandAnswered);
    connect(remote_, &RemoteSession::recordHandled, this, [this](bool found) {
        if (found) {
            port_->newServer();
            // Each connect is compared afresh: its first poll says the state it finds, even
            // the same as the last attempt's (a second refused connect), and "REMOTE" comes back.
            state_->laststatus = "500";
            Timer4->start();
        } else {
            Command9->setEnabled(true);
            if (pollBeforeFetch_)
                Timer4->start();
        }
        emit remoteRecordHandled();
    });
    connect(remote_, &RemoteSession::forDevice, port_, &TerminalPort::fromServer);
    connect(port_, &TerminalPort::output, remote_, &RemoteSession::deviceOutput);
    connect(port_, &TerminalPort::serverHold, Winsock1, &TcpClient::holdReading);
}

void TerminalPanel::attach(LinkState& state, const QLabel& serialCaption)
{
    state_ = &state;
    serialCaption_ = &serialCaption;
}

std::string TerminalPanel::shownSerial() const
{
    return serialFromLabel(serialCaption_->text().toStdString());
}

const TerminalText& TerminalPanel::terminalText() const
{
    return view_->text();
}

void TerminalPanel::open(int port)
{
    setVisible(true);
    raise();
    telnetsendbox->setFocus();
    port_->open(port, portLocation(port));
    view_->append(terminalGreeting(shownSerial()));
}

void TerminalPanel::Command2_Click()
{
    port_->close();
    setVisible(false);
    emit closed();
}

void TerminalPanel::Command9_Click()
{
    if (remote_->fetching())
        return;
    // "REMOTE" waits for the record, and so does the state poll, which would otherwise show
    // the closed socket in between.
    Command9->setEnabled(false);
    pollBeforeFetch_ = Timer4->isActive();
    Timer4->stop();
    const std::string serial = state_->fwupdateser.toStdString();
    const MailRequest mail = imageMail(serial, programFolder());
    remote_->start(serial, [mail] { return sendMail(mail); });
}

void TerminalPanel::Timer4_Timer()
{
    const std::optional<int> changed = remote_->poll(state_->laststatus.toStdString());
    if (!changed)
        return;
    if (remoteReady(*changed))
        Command9->setEnabled(true);
    state_->laststatus = QString::number(*changed);
}

void TerminalPanel::Winsock1_DataArrival(const QByteArray& data)
{
    remote_->serverData(data);
}

void TerminalPanel::telnetsendbox_KeyUp(int keyCode, int shift)
{
    lastkey->setText(QString::fromStdString(lastKeyText(keyCode, shift)));
}

void TerminalPanel::telnetsendbox_KeyPress(int keyAscii)
{
    if (keyAscii != 13)
        return;
    port_->enter(lineEntry(qStringToWindows1252(telnetsendbox->text()), lastkey->text().toStdString()),
                 imageMail(shownSerial(), programFolder()));
    telnetsendbox->clear();
    telnetsendbox->setFocus();
}

void TerminalPanel::Command3_Click()
{
    // One report at a time; the mail runs on a worker so the window stays usable.
    Command3->setEnabled(false);
    const std::string folder = programFolder();
    port_->report(folder, reportMail(shownSerial(), folder));
}

bool TerminalPanel::eventFilter(QObject* watched, QEvent* event)
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
    return QGroupBox::eventFilter(watched, event);
}

} // namespace veltro
