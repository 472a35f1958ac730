#include "app/demo.h"

#include "editor/demo_catalogue.h"
#include "platform/port_numbering.h"
#include "sim/virtual_controller.h"

#include <QDir>
#include <QStandardPaths>

#include <cstdlib>

namespace veltro {

struct DemoSetup::Impl {
    sim::VirtualController controller;
    std::string path;
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
}

DemoSetup::~DemoSetup() = default;

const std::string& DemoSetup::ptyPath() const
{
    return impl_->path;
}

} // namespace veltro
