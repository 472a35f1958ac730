#pragma once
// Message boxes, input box and file dialog for the jobs. A job on a worker thread waits while
// the window's thread shows the dialog.
#include "platform/dialogs.h"

#include <QPointer>
#include <QWidget>

namespace veltro {

class WindowDialogs : public Dialogs {
public:
    explicit WindowDialogs(QWidget* parent) : parent_(parent) {}
    bool question(const std::string& title, const std::string& text) override;
    void message(const std::string& title, const std::string& text) override;
    std::optional<std::string> input(const std::string& title, const std::string& prompt) override;
    std::optional<std::string> openFile(const std::string& title) override;

private:
    template <typename F>
    auto onWindowThread(F&& f) -> decltype(f());

    QPointer<QWidget> parent_;
};

} // namespace veltro
