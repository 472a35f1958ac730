#pragma once
// `veltro --demo`: a virtual controller on a pseudo-terminal, put on a free port number, and a
// demo program folder, so the tool can be tried without hardware.
#include <memory>
#include <string>

namespace veltro {

class DemoSetup {
public:
    DemoSetup();
    ~DemoSetup();
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
