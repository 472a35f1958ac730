#pragma once
// Where a job's progress goes. The window implementation forwards to the status bar, the step
// list and a progress bar through queued signals; tests record the calls.
#include <string>

namespace veltro {

class Reporter {
public:
    virtual ~Reporter() = default;
    virtual void status(const std::string& text) = 0; // status bar text
    virtual void step(const std::string& line) = 0;   // a line appended to the step list
    virtual void percent(int value) = 0;              // 0..100 while blocks go out
};

// A reporter that drops everything (probes show nothing).
class NullReporter : public Reporter {
public:
    void status(const std::string&) override {}
    void step(const std::string&) override {}
    void percent(int) override {}
};

} // namespace veltro
