#pragma once
// `veltro --demo`: a virtual controller on a pseudo-terminal, put on a free port number, and a
// demo program folder, so the tool can be tried without hardware. It also serves the connection
// records on 127.0.0.1 (unless VELTRO_WEB_HTTP names a server) and runs the servers they name
// there: for "REMOTE" a service server that greets the controller, asks for its image and for
// its version and serial number once, and then only listens; for the CAN-bus tunnel a server
// that sends every frame back. While the tunnel window is open the controller is the CAN
// interface and reports a frame every half second.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace veltro {

// Two earlier configurations of the demo controller (`image`, serial `serial`) in the service
// history of `folder`, unless it already has one.
void seedDemoHistory(const std::string& folder, const std::string& serial, const std::vector<std::uint8_t>& image);

class DemoSetup {
public:
    DemoSetup();
    ~DemoSetup();
    // The controller is the CAN interface while the tunnel window is open.
    void setTunnelOpen(bool open);
    int tunnelServerPort() const;
    int portNumber() const { return port_; }
    const std::string& programFolder() const { return folder_; }
    const std::string& ptyPath() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    int port_ = 0;
    std::string folder_;
};

} // namespace veltro
