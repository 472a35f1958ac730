#include "remote/window/form3.h"

#include "platform/endpoints.h"
#include "platform/port_numbering.h"
#include "remote/remote_service.h"
#include "remote/tunnel_link.h"
#include "remote/tunnel_query.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QCloseEvent>
#include <QThread>
#include <QTimer>

#include <optional>

namespace veltro {

namespace {
// A plain QWidget is role Client to assistive technology even as a window of its own (a
// "filler" on the Linux accessibility bus, not announced); the tunnel window says it is one.
QAccessibleInterface* tunnelWindowInterface(const QString& className, QObject* object)
{
    if (className != QLatin1String(Form3::staticMetaObject.className()) || !object->isWidgetType())
        return nullptr;
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Window);
}

QTimer* timer(int ms, QObject* parent, const char* name, bool singleShot)
{
    auto* t = new QTimer(parent);
    t->setObjectName(name);
    t->setInterval(ms);
    t->setSingleShot(singleShot);
    return t;
}
} // namespace

Form3::Form3(std::string folder, QWidget* parent) : QWidget(parent, Qt::Window), folder_(std::move(folder))
{
    QAccessible::installFactory(tunnelWindowInterface); // first: Qt keeps the first interface it makes
    setupUi(this);

    Timer1 = timer(100, this, "Timer1", false);
    rxtimer = timer(150, this, "rxtimer", true);
    TXTIMER = timer(150, this, "TXTIMER", true);
    connect(Timer1, &QTimer::timeout, this, &Form3::Timer1_Timer);
    connect(rxtimer, &QTimer::timeout, this, [this] { showLamp(rx1, rx2, false); });
    connect(TXTIMER, &QTimer::timeout, this, [this] { showLamp(tx1, tx2, false); });
    connect(Command4, &QPushButton::clicked, this, &Form3::Command4_Click);
    connect(command1, &QPushButton::clicked, this, &Form3::command1_Click);
    connect(Command3, &QPushButton::clicked, this, &Form3::Command3_Click);

    thread_ = new QThread(this);
    thread_->setObjectName("tunnel relay");
    link_ = new TunnelLink;
    link_->moveToThread(thread_);
    connect(thread_, &QThread::finished, link_, &QObject::deleteLater);
    connect(link_, &TunnelLink::events, this, &Form3::showEvents);
    connect(link_, &TunnelLink::serverClosed, this, [this] {
        Command3->setEnabled(false);
        command1->setEnabled(true);
    });
    // The device's port gone: the link has ended the tunnel, the window follows.
    connect(link_, &TunnelLink::portLost, this, &Form3::Command3_Click);
    connect(link_, &TunnelLink::opened, this, [this](bool portOpen) {
        if (!portOpen)
            Command3_Click();
    });
    connect(loopbacktest, &QCheckBox::toggled, link_, &TunnelLink::setLoopback);
    thread_->start();
    Timer1->start();
}

Form3::~Form3()
{
    // A query still running gives up at once, so closing never waits for a slow server.
    closing_->store(true);
    QMetaObject::invokeMethod(link_, &TunnelLink::close, Qt::BlockingQueuedConnection);
    thread_->quit();
    thread_->wait();
}

void Form3::start(const QString& serial, int portNumber)
{
    connectid->setText(serial);
    Comboport->clear();
    Comboport->addItem(QString::number(portNumber));
    Comboport->setCurrentIndex(0);
    Command4_Click();
}

// The log keeps its last 5000 lines (form3.ui): a long session should not make each batch dearer.
void Form3::logLine(const QString& line)
{
    log->appendPlainText(line);
}

void Form3::Command4_Click()
{
    const std::string id = connectid->text().toStdString();
    if (id.size() < kConnectIdMinLength) {
        logLine("++CONNECT-ID TO SHORT");
        command1->setEnabled(false);
        emit queryFinished();
        return;
    }
    Command3_Click();
    // The record is downloaded on a worker; QUERY waits for it.
    Command4->setEnabled(false);
    const std::string url = endpoints::webHttpRoot() + tunnelRecordPath(id);
    const std::string file = fileInFolder(folder_, "connectid.sys");
    jobs_.run<std::optional<std::string>>(
        [url, file, closing = closing_] {
            return fetchTunnelRecord(url, file, [closing] { return !closing->load(); });
        },
        [this](const std::optional<std::string>& text) {
            Command4->setEnabled(true);
            const TunnelQuery query = tunnelQuery(text);
            for (const std::string& line : query.lines)
                logLine(QString::fromStdString(line));
            command1->setEnabled(query.record.has_value());
            if (const auto& record = query.record) {
                host->setText(QString::fromStdString(record->host));
                tcpport->setText(QString::number(record->port));
                baud_ = record->baud;
                loopbacktest->setChecked(record->loopback);
            }
            emit queryFinished();
        });
}

void Form3::command1_Click()
{
    bool isNumber = false;
    const int port = tcpport->text().trimmed().toInt(&isNumber);
    const QString serialPort = QString::fromStdString(portLocation(Comboport->currentText().toInt()));
    QMetaObject::invokeMethod(link_, [link = link_, h = host->text(), port = isNumber ? port : -1, serialPort,
                                      b = baud_, path = QString::fromStdString(fileInFolder(folder_, "CAN_LOG.txt")),
                                      loop = loopbacktest->isChecked()] {
        link->setLoopback(loop);
        link->open(h, port, serialPort, b, path);
    });
    command1->setEnabled(false);
    Command3->setEnabled(true);
    logLine("++TRY TO CONNECT TO SERVER...");
}

void Form3::Command3_Click()
{
    QMetaObject::invokeMethod(link_, &TunnelLink::close, Qt::BlockingQueuedConnection);
    Command3->setEnabled(false);
    command1->setEnabled(true);
    logLine("++TCP/IP-CONNECTION CLOSED!");
}

void Form3::Timer1_Timer()
{
    const int now = link_->state();
    const std::optional<int> changed = stateChange(now, laststatus->text().toStdString());
    if (!changed)
        return;
    const QString line = QString::fromLatin1(tcpStateLine(*changed));
    state->setText("Status: " + line);
    logLine(line);
    QMetaObject::invokeMethod(link_, [link = link_, l = line.toLatin1()] { link->writeLog(l); });
    if (*changed == 8 || *changed == 9)
        Command3_Click();
    laststatus->setText(QString::number(*changed));
}

void Form3::showEvents(const TunnelEvents& batch)
{
    if (!batch.lines.isEmpty())
        log->appendPlainText(batch.lines.join('\n'));
    // Each batch re-arms its lamp's timer, so steady traffic keeps the lamp lit.
    if (batch.tx) {
        showLamp(tx1, tx2, true);
        TXTIMER->start();
    }
    if (batch.rx) {
        showLamp(rx1, rx2, true);
        rxtimer->start();
    }
    counts->setText(QString("Zum Server: %1   Nicht gesendet: %2   Zum Gerät: %3   Verloren: %4")
                        .arg(batch.counts.relayed)
                        .arg(batch.counts.refused)
                        .arg(batch.counts.toDevice)
                        .arg(batch.counts.lost));
}

void Form3::showLamp(QFrame* shape, QLabel* caption, bool on)
{
    shape->setVisible(on);
    caption->setVisible(on);
}

void Form3::hideLamps()
{
    showLamp(rx1, rx2, false);
    showLamp(tx1, tx2, false);
}

void Form3::closeEvent(QCloseEvent* event)
{
    // Form_Unload
    QMetaObject::invokeMethod(link_, &TunnelLink::close, Qt::BlockingQueuedConnection);
    hideLamps();
    if (!unloaded_) {
        unloaded_ = true;
        emit unloaded();
    }
    event->accept();
}

} // namespace veltro
