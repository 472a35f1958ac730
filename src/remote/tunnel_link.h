#pragma once
// The tunnel's two links, the device's serial port and the socket to the tunnel server, on a
// thread of their own: frames are relayed there as they come, whatever the window is doing.
// The window gets what it shows (log lines, lamps, counts) in batches, and asks for connect,
// disconnect and log lines through queued calls. CAN_LOG.txt is written here too, one line per
// event with CR LF, as raw bytes.
#include "remote/tunnel_relay.h"

#include <QByteArray>
#include <QFile>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>

class QSerialPort;
class QTimer;

namespace veltro {

class TcpClient;

// What happened on the links since the last batch.
struct TunnelEvents {
    QStringList lines;  // for the log view
    bool tx = false;    // something came from the device
    bool rx = false;    // something came from the server
    RelayCounts counts;
};

class TunnelLink : public QObject {
    Q_OBJECT
public:
    TunnelLink();
    ~TunnelLink() override;

    // The socket's state number (0 to 9); read from any thread.
    int state() const { return state_.load(); }

public slots:
    // Connects to host:port, opens the serial port at baud,n,8,1 and the log file for
    // appending, and writes "++TRY TO CONNECT TO SERVER..." to the file. A port that cannot be
    // opened is said in a line; opened() tells the window either way.
    void open(const QString& host, int port, const QString& serialPort, int baud, const QString& logPath);
    // Closes the socket, the serial port and the log file; harmless when nothing is open.
    void close();
    void setLoopback(bool on);
    // A line of the window's (a state line) for the log file; skipped while it is closed.
    void writeLog(const QByteArray& line);

signals:
    void opened(bool serialPortOpen);
    // The server closed the connection: the serial port is closed, the log file stays open.
    void serverClosed();
    void events(const veltro::TunnelEvents& batch);

private:
    void serialReadyRead();
    void serverData(const QByteArray& data);
    void apply(RelayOutput&& out);
    void updateState();
    void queueEvents();

    QSerialPort* serial_;
    TcpClient* socket_;
    QTimer* recordWait_;
    QTimer* batchTimer_;
    QFile log_;
    TunnelRelay relay_;
    TunnelEvents pending_;
    int waitMs_ = 3;
    bool loopback_ = false;
    std::atomic<int> state_{0};
};

} // namespace veltro

Q_DECLARE_METATYPE(veltro::TunnelEvents)
