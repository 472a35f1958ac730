#pragma once
// The device's text port as the terminal uses it (921600 baud, 8N1): what the device prints
// goes into the terminal's display and out through output(); typed lines, the report and the
// image mail go from here. A port that cannot be opened or goes away says so in the terminal
// once, as does server data that finds the port closed.
#include "platform/job_runner.h"
#include "terminal/terminal.h"

#include <QByteArray>
#include <QObject>

#include <string>

class QSerialPort;

namespace veltro {

class SerialWriter;

class TerminalPort : public QObject {
    Q_OBJECT
public:
    // `view`: the terminal's display; in the tool, the main window's text box.
    TerminalPort(TerminalDisplay& view, QObject* parent);

    QSerialPort* port() const { return port_; }
    // Opens port `number` at `location` (closing it first); a line when it cannot.
    void open(int number, const std::string& location);
    void close();
    // Enter in the input line: the image mail, the bytes to the device, or a line that the
    // port is not open.
    void enter(const LineEntry& entry, const MailRequest& imageMail);
    // "BERICHT SENDEN": terminal_log.txt in `folder`, then the mail on a worker.
    void report(const std::string& folder, const MailRequest& mail);
    // Data from a remote service's server for the device; newServer() when one connects.
    // The port takes them at its line's pace: while more than 200 ms of line time waits,
    // serverHold(true) asks the server's side to stop reading until the line has drained.
    void fromServer(const QByteArray& data);
    void newServer();

signals:
    void output(const QByteArray& data);  // the device printed this
    void serverHold(bool hold);
    void imageMailFinished(const QString& result);
    void reportFinished(const QString& result);

private:
    void readyRead();
    void lost();
    void updateHold();

    TerminalDisplay& view_;
    QSerialPort* port_;
    SerialWriter* writer_;
    bool holding_ = false;
    bool serverDropShown_ = false;
    JobRunner jobs_;
};

} // namespace veltro
