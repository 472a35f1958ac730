#pragma once
// "CAN-BUS TUNNEL": relays CAN frames between the interface on a serial port and a tunnel
// server over TCP. The window gets its connection data by connect-ID from the maker's web
// server, shows what happens in its log, and flashes two lamps on traffic; the relay itself
// runs on a thread of its own (TunnelLink). Its controls, captions and layout are in form3.ui.
#include "platform/job_runner.h"
#include "remote/remote_service.h"

#include "ui_form3.h"

#include <QWidget>

#include <atomic>
#include <memory>
#include <string>

class QThread;
class QTimer;

namespace veltro {

class TunnelLink;
struct TunnelEvents;

// The controls are the form's members: connectid with Label4 "CONNECT-ID:" and Command4 "QUERY",
// host and tcpport, Comboport with Label2 "COMPORT:", loopbacktest, command1 "CONNECT!",
// Command3 "DISCONNECT", the lamps tx1/tx2 and rx1/rx2, log, counts (frames relayed, refused
// and lost), state ("Status: " and the last state line) and the hidden laststatus (the last
// state shown).
class Form3 : public QWidget, public ::Ui::Form3 {
    Q_OBJECT
public:
    // `folder`: the program folder (connectid.sys, CAN_LOG.txt).
    explicit Form3(std::string folder, QWidget* parent = nullptr);
    ~Form3() override;

    // Opening from the main window: the serial number as connect-ID, the device's port number
    // as the only port, and the query at once.
    void start(const QString& serial, int portNumber);

    // Handlers
    void Command4_Click(); // "QUERY"
    void command1_Click(); // "CONNECT!"
    void Command3_Click(); // "DISCONNECT"
    void Timer1_Timer();

    // The state poll (every 100 ms) and the lamps' afterglow (150 ms after the last traffic).
    QTimer* Timer1 = nullptr;
    QTimer* rxtimer = nullptr;
    QTimer* TXTIMER = nullptr;

    int baud() const { return baud_; }
    TunnelLink* link() const { return link_; }

signals:
    void queryFinished();
    // Form_Unload: the main window enables its working frame again.
    void unloaded();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void logLine(const QString& line);
    void showEvents(const TunnelEvents& batch);
    void hideLamps();
    static void showLamp(QFrame* shape, QLabel* caption, bool on);

    std::string folder_;
    std::shared_ptr<std::atomic<bool>> closing_ = std::make_shared<std::atomic<bool>>(false);
    int baud_ = kDefaultTunnelBaud; // the port's stored speed until a record sets one
    bool unloaded_ = false;
    QThread* thread_ = nullptr;
    TunnelLink* link_ = nullptr;
    JobRunner jobs_;
};

} // namespace veltro
