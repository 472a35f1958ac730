#pragma once
// The tunnel's two links, the device's serial port and the socket to the tunnel server, on a
// thread of their own: frames are relayed there as they come, whatever the window is doing.
// The window gets what it shows (log lines, lamps, counts) in batches, and asks for connect,
// disconnect and log lines through queued calls. CAN_LOG.txt is written here too.
//
// Neither side loses what the other cannot take at once. The server is held back: while more
// than 200 ms of line time waits for the device, the socket is not read, and TCP's own flow
// control slows the server down. The device cannot be held back, so its frames wait in the
// socket's queue up to a bound (about ten seconds of the busiest bus); only a server that
// takes nothing for that long loses frames, each one counted.
#include "remote/tunnel_log.h"
#include "remote/tunnel_relay.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <atomic>
#include <deque>

class QSerialPort;
class QTimer;

namespace veltro {

class SerialWriter;
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
    // Bodies from the server that never reached the device are counted lost.
    void close();
    void setLoopback(bool on);
    // A line of the window's (a state line) for the log file; skipped while it is closed.
    void writeLog(const QByteArray& line);

signals:
    void opened(bool serialPortOpen);
    // The server closed the connection: the serial port is closed, the log file stays open.
    void serverClosed();
    // The device's port failed (adapter pulled, I/O error): the tunnel has closed both links.
    void portLost();
    void events(const veltro::TunnelEvents& batch);

private:
    void serialReadyRead();
    void serverData(const QByteArray& data);
    void apply(RelayOutput&& out);
    void countWritten();
    void throttle();
    void endForLostPort();
    void updateState();
    void queueEvents();
    void sendEvents();
    long serverRoom() const;

    QSerialPort* serial_;
    SerialWriter* writer_;
    TcpClient* socket_;
    QTimer* recordWait_;
    QTimer* messageWait_;
    QTimer* batchTimer_;
    QTimer* logFlush_;
    TunnelLog log_;
    TunnelRelay relay_;
    TunnelEvents pending_;
    // The log lines of the bodies queued for the device, written once the port has taken them.
    std::deque<QByteArray> bodyLines_;
    int baud_ = 9600;
    qint64 serialLimit_ = 0;
    bool loopback_ = false;
    std::atomic<int> state_{0};
};

} // namespace veltro

Q_DECLARE_METATYPE(veltro::TunnelEvents)
