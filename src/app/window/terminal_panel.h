#pragma once
// The terminal panel ("TELNET - TERMINAL"): the device's text port in a text box, the input
// line, the report mail ("BERICHT SENDEN") and the remote service ("REMOTE") with its state
// poll (Timer4). The main window opens it on the chosen port; "BEENDEN" closes it.
#include "terminal/terminal.h"
#include "ui_terminal_panel.h"

#include <QGroupBox>

class QLabel;
class QSerialPort;
class QTimer;

namespace veltro {

struct LinkState;
class RemoteSession;
class TcpClient;
class TerminalPort;
class TerminalView;

class TerminalPanel : public QGroupBox, public Ui::TerminalPanel {
    Q_OBJECT
public:
    explicit TerminalPanel(QWidget* parent = nullptr);

    // Where the serial number comes from: the configuration panel's caption for the terminal's
    // mails, the link state for REMOTE, which also keeps the poll's last state.
    void attach(LinkState& state, const QLabel& serialCaption);
    // Opens the device's text port `port` and greets with the serial number.
    void open(int port);

    const TerminalText& terminalText() const;

    QSerialPort* MSComm3 = nullptr; // the device's text port, open while the terminal is
    TcpClient* Winsock1 = nullptr;  // the socket to the service server
    QTimer* Timer4 = nullptr;       // state poll of the remote service

signals:
    void closed();
    void reportFinished(const QString& result);
    void imageMailFinished(const QString& result);
    // The remote service's record has been fetched and handled ("REMOTE").
    void remoteRecordHandled();
    // A command of the service server has been answered.
    void remoteCommandAnswered();

public slots:
    void Command9_Click(); // "REMOTE"
    void Command3_Click(); // "BERICHT SENDEN"
    void Command2_Click(); // "BEENDEN"
    void Timer4_Timer();
    void Winsock1_DataArrival(const QByteArray& data);
    void telnetsendbox_KeyPress(int keyAscii);
    void telnetsendbox_KeyUp(int keyCode, int shift);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    std::string shownSerial() const;

    LinkState* state_ = nullptr;
    const QLabel* serialCaption_ = nullptr;
    TerminalView* view_ = nullptr;
    TerminalPort* port_ = nullptr;
    RemoteSession* remote_ = nullptr;
    bool pollBeforeFetch_ = false;
};

} // namespace veltro
