#include "sim_ports.h"

#include <cstdlib>

namespace veltro::test {

SimPorts::SimPorts()
{
    ::setenv("VELTRO_SYSTEM_PORTS", "0", 1);
    ::setenv("VELTRO_HOME", home_.path().toUtf8().constData(), 1);
    exportPorts();
}

SimPorts::~SimPorts()
{
    controllers_.clear();
    ::unsetenv("VELTRO_PORTS");
    ::unsetenv("VELTRO_HOME");
}

sim::VirtualController& SimPorts::add(int port)
{
    auto& c = *(controllers_[port] = std::make_unique<sim::VirtualController>());
    c.start();
    exportPorts();
    return c;
}

sim::VirtualController& SimPorts::addSilent(int port)
{
    auto& c = add(port);
    c.setSilent(true);
    return c;
}

void SimPorts::exportPorts()
{
    std::string list;
    for (const auto& [port, c] : controllers_) {
        if (!list.empty()) list += ",";
        list += std::to_string(port) + "=" + c->path();
    }
    ::setenv("VELTRO_PORTS", list.c_str(), 1);
}

} // namespace veltro::test
