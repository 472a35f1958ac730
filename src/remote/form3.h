#pragma once
// "CAN-BUS TUNNEL": relays CAN frames between the interface on a serial port and a tunnel
// server over TCP. The window gets its connection data by connect-ID from the maker's web
// server, shows what happens in its log, and flashes two lamps on traffic; the relay itself
// runs on a thread of its own (TunnelLink).
#include "platform/job_runner.h"
#include "remote/remote_service.h"

#include <QWidget>

#include <atomic>
#include <memory>
#include <string>

class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QThread;
class QTimer;

namespace veltro {

class TunnelLink;
struct TunnelEvents;

class Form3 : public QWidget {
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

    // Controls
    QLineEdit* connectid = nullptr;
    QLabel* Label4 = nullptr;       // "CONNECT-ID:"
    QPushButton* Command4 = nullptr;
    QLineEdit* host = nullptr;
    QLineEdit* tcpport = nullptr;
    QLabel* Label2 = nullptr;       // "COMPORT:"
    QComboBox* Comboport = nullptr;
    QCheckBox* loopbacktest = nullptr;
    QPushButton* command1 = nullptr;
    QPushButton* Command3 = nullptr;
    QPlainTextEdit* log = nullptr;
    QLabel* state = nullptr;        // "Status: " and the last state line
    QLabel* laststatus = nullptr;   // hidden: the last state shown
    QLabel* counts = nullptr;       // frames relayed, refused and lost
    QFrame* rx1 = nullptr;
    QLabel* rx2 = nullptr;
    QFrame* tx1 = nullptr;
    QLabel* tx2 = nullptr;
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
