#include "app/demo.h"


#include "device/protocol.h"
#include "editor/demo_catalogue.h"
#include "platform/port_numbering.h"
#include "sim/virtual_controller.h"

#include <QDir>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdlib>
#include <iterator>
#include <memory>

namespace veltro {

namespace {
// Answers GET `remotePath` (the demo controller's remote-service record) with `remote`, any
// other GET /CAN/<id>.dat with `tunnel` (the tunnel's connection data) and anything else with
// an error page, as the maker's web server does.
void serveRecords(QTcpServer& web, const QByteArray& remotePath, const QByteArray& remote, const QByteArray& tunnel)
{
    QObject::connect(&web, &QTcpServer::newConnection, &web, [&web, remotePath, remote, tunnel] {
        while (QTcpSocket* client = web.nextPendingConnection()) {
            QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
            QObject::connect(client, &QTcpSocket::readyRead, client, [client, remotePath, remote, tunnel] {
                if (!client->canReadLine())
                    return;
                const QList<QByteArray> request = client->readLine().split(' ');
                const QByteArray path = request.size() > 1 ? request[1] : QByteArray();
                QByteArray body;
                if (!remotePath.isEmpty() && path == remotePath)
                    body = remote;
                else if (path.startsWith("/CAN/") && !path.startsWith("/CAN/R_") && path.endsWith(".dat"))
                    body = tunnel;
                const bool found = !body.isEmpty();
                if (!found)
                    body = "<html><body>404 Not Found</body></html>";
                client->write(QByteArray(found ? "HTTP/1.1 200 OK" : "HTTP/1.1 404 Not Found") +
                              "\r\nContent-Length: " + QByteArray::number(body.size()) +
                              "\r\nConnection: close\r\n\r\n" + body);
                client->disconnectFromHost();
            });
        }
    });
}

// The service server of the demo. The tool hands everything the server sends to the
// controller's terminal and everything the controller prints to the server, so this server
// must never send back what it gets: that would go round for ever. It plays a short script
// instead, each step once and only after the answer to the one before has come back (so no
// two steps reach the tool as one chunk, where a command would no longer lead): a greeting,
// which the controller answers as a line it does not know, the image request, which the tool
// answers itself, and the controller's version and serial number. After that it only listens.
void serveRemote(QTcpServer& service)
{
    struct Step {
        const char* send;
        const char* until; // what ends the step when it has come back
    };
    static constexpr Step script[] = {
        {"DEMO-SERVICE: verbunden\r", "> "}, // each answer of the controller ends with its prompt
        {"GETEEPROM", "++DOWNLOAD DEVICE EEPROM..."},
        {"VER\r", "> "},
        {"SER\r", "> "},
    };
    QObject::connect(&service, &QTcpServer::newConnection, &service, [&service] {
        while (QTcpSocket* client = service.nextPendingConnection()) {
            QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
            struct Progress {
                std::size_t step = 0;
                bool sent = false;
                QByteArray seen; // since the step was sent
            };
            auto progress = std::make_shared<Progress>();
            QObject::connect(client, &QTcpSocket::readyRead, client, [client, progress] {
                const QByteArray got = client->readAll();
                Progress& p = *progress;
                if (!p.sent || p.step == std::size(script))
                    return;
                const QByteArray until = script[p.step].until;
                p.seen += got;
                if (!p.seen.contains(until)) {
                    p.seen = p.seen.right(until.size() - 1); // an answer may come in pieces
                    return;
                }
                p.seen.clear();
                if (++p.step < std::size(script))
                    client->write(script[p.step].send);
            });
            // A moment first, so that the tool's own line for the connection comes before the
            // controller's answers in the terminal.
            QTimer::singleShot(300, client, [client, progress] {
                progress->sent = true;
                client->write(script[0].send);
            });
        }
    });
}

// The tunnel server of the demo: sends every byte back, so each frame the controller reports
// returns to it as a frame for the bus.
void echoFrames(QTcpServer& tunnel)
{
    QObject::connect(&tunnel, &QTcpServer::newConnection, &tunnel, [&tunnel] {
        while (QTcpSocket* client = tunnel.nextPendingConnection()) {
            client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            QObject::connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
            QObject::connect(client, &QTcpSocket::readyRead, client, [client] { client->write(client->readAll()); });
        }
    });
}
} // namespace

struct DemoSetup::Impl {
    sim::VirtualController controller;
    std::string path;
    QTcpServer web;
    QTcpServer tunnel;
    QTcpServer service;
};

DemoSetup::DemoSetup() : impl_(std::make_unique<Impl>())
{
    // The controller's own image already holds a configuration of the sample tractor (vehicle
    // 1 of the demo catalogue). Layout 181 is the one the configuration editor fully serves.
    impl_->controller.setLayout(181);
    impl_->controller.start();
    impl_->path = impl_->controller.path();

    // The first number that the machine's own ports leave free.
    const auto ports = numberedPorts();
    port_ = kFirstPortNumber;
    while (ports.count(port_) && port_ < kLastPortNumber)
        ++port_;
    std::string overrides;
    if (const char* old = std::getenv("VELTRO_PORTS"); old && *old)
        overrides = std::string(old) + ",";
    overrides += std::to_string(port_) + "=" + impl_->path;
    ::setenv("VELTRO_PORTS", overrides.c_str(), 1);

    if (const char* home = std::getenv("VELTRO_HOME"); home && *home) {
        folder_ = home;
    } else {
        QString base = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
        if (base.isEmpty()) base = QDir::tempPath();
        folder_ = (base + "/veltro-demo").toStdString();
        ::setenv("VELTRO_HOME", folder_.c_str(), 1);
    }
    QDir().mkpath(QString::fromStdString(folder_));
    // The sample vehicle catalogue, without touching files the user already has there.
    installDemoCatalogue(demoCatalogueDir(), folder_);
    seedDemoHistory(folder_, imageSerial(impl_->controller.image()), impl_->controller.image());

    if (impl_->tunnel.listen(QHostAddress::LocalHost, 0))
        echoFrames(impl_->tunnel);
    const char* web = std::getenv("VELTRO_WEB_HTTP");
    if ((!web || !*web) && impl_->web.listen(QHostAddress::LocalHost, 0)) {
        QByteArray remotePath;
        if (impl_->service.listen(QHostAddress::LocalHost, 0)) {
            serveRemote(impl_->service);
            remotePath = QByteArray::fromStdString("/CAN/R_" + imageSerial(impl_->controller.image()) + ".dat");
        }
        serveRecords(impl_->web, remotePath,
                     "127,0,0,1," + QByteArray::number(impl_->service.serverPort()) + ",921600,0\r\n",
                     "127,0,0,1," + QByteArray::number(impl_->tunnel.serverPort()) + ",115200,0\r\n");
        ::setenv("VELTRO_WEB_HTTP", ("http://127.0.0.1:" + std::to_string(impl_->web.serverPort())).c_str(), 1);
    }
}

DemoSetup::~DemoSetup() = default;

void DemoSetup::setTunnelOpen(bool open)
{
    impl_->controller.setTunnelMode(open);
    if (open)
        impl_->controller.setTunnelFrameRate(2);
}

int DemoSetup::tunnelServerPort() const
{
    return impl_->tunnel.serverPort();
}

const std::string& DemoSetup::ptyPath() const
{
    return impl_->path;
}

} // namespace veltro
