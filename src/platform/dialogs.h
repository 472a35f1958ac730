#pragma once
// Questions and messages in the middle of a job. The window answers them on its own thread
// (the worker waits); tests answer with scripted replies.
#include <optional>
#include <string>

namespace veltro {

class Dialogs {
public:
    virtual ~Dialogs() = default;
    // Yes/No question; true for Yes.
    virtual bool question(const std::string& title, const std::string& text) = 0;
    // A message with an OK button.
    virtual void message(const std::string& title, const std::string& text) = 0;
    // Input box; nullopt when cancelled.
    virtual std::optional<std::string> input(const std::string& title, const std::string& prompt) = 0;
    // Open-file dialog; nullopt when cancelled.
    virtual std::optional<std::string> openFile(const std::string& title) = 0;
};

} // namespace veltro
