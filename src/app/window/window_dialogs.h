#pragma once
// Message boxes, input box and file dialog for the jobs. A job on a worker thread waits while
// the window's thread shows the dialog.
#include "platform/dialogs.h"

#include <QPointer>
#include <atomic>
#include <QWidget>

namespace veltro {

class WindowDialogs : public Dialogs {
public:
    explicit WindowDialogs(QWidget* parent) : parent_(parent) {}
    bool question(const std::string& title, const std::string& text) override;
    void message(const std::string& title, const std::string& text) override;
    std::optional<std::string> input(const std::string& title, const std::string& prompt) override;
    std::optional<std::string> openFile(const std::string& title) override;
    // The window is going away: from now on every dialog is answered at once, as if cancelled
    // (no, nothing entered), so no worker waits on a window that will not answer.
    void windowClosing() { closing_ = true; }

private:
    template <typename F>
    auto onWindowThread(F&& f) -> decltype(f());

    QPointer<QWidget> parent_;
    std::atomic<bool> closing_{false};
};

} // namespace veltro
