#include "app/window/window_dialogs.h"

#include <QApplication>
#include <QFileDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QThread>

namespace veltro {

template <typename F>
auto WindowDialogs::onWindowThread(F&& f) -> decltype(f())
{
    using R = decltype(f());
    if (closing_ || !parent_)
        return R{};
    if (QThread::currentThread() == qApp->thread())
        return f();
    R result{};
    QMetaObject::invokeMethod(qApp, [&] { result = f(); }, Qt::BlockingQueuedConnection);
    return result;
}

bool WindowDialogs::question(const std::string& title, const std::string& text)
{
    return onWindowThread([&] {
        return QMessageBox::question(parent_, QString::fromStdString(title), QString::fromStdString(text),
                                     QMessageBox::Yes | QMessageBox::No)
               == QMessageBox::Yes;
    });
}

void WindowDialogs::message(const std::string& title, const std::string& text)
{
    onWindowThread([&] {
        QMessageBox::information(parent_, QString::fromStdString(title), QString::fromStdString(text));
        return true;
    });
}

std::optional<std::string> WindowDialogs::input(const std::string& title, const std::string& prompt)
{
    return onWindowThread([&]() -> std::optional<std::string> {
        bool ok = false;
        const QString text = QInputDialog::getText(parent_, QString::fromStdString(title),
                                                   QString::fromStdString(prompt), QLineEdit::Normal,
                                                   QString(), &ok);
        if (!ok) return std::nullopt;
        return text.toStdString();
    });
}

std::optional<std::string> WindowDialogs::openFile(const std::string& title)
{
    return onWindowThread([&]() -> std::optional<std::string> {
        const QString file = QFileDialog::getOpenFileName(parent_, QString::fromStdString(title));
        if (file.isEmpty()) return std::nullopt;
        return file.toStdString();
    });
}

} // namespace veltro
