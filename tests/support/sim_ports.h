#pragma once
// Virtual controllers on chosen port numbers, with the machine's own ports left out and a
// fresh program folder: what a test of anything that touches a port starts from.
#include "sim/virtual_controller.h"

#include <QTemporaryDir>

#include <map>
#include <memory>
#include <string>

namespace veltro::test {

class SimPorts {
public:
    SimPorts();
    ~SimPorts();

    // A started controller on `port`.
    sim::VirtualController& add(int port);
    // A pty on `port` on which nothing answers.
    sim::VirtualController& addSilent(int port);
    sim::VirtualController& at(int port) { return *controllers_.at(port); }

    std::string home() const { return home_.path().toStdString(); }
    QString homePath() const { return home_.path(); }

private:
    void exportPorts();

    QTemporaryDir home_;
    std::map<int, std::unique_ptr<sim::VirtualController>> controllers_;
};

} // namespace veltro::test
