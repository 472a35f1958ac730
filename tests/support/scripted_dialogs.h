#pragma once
// Dialogs answered from a script: each question takes the next answer (Yes when the script has
// run out, unless `rest` says otherwise); everything asked is recorded as "title|text".
#include "platform/dialogs.h"

#include <QStringList>

#include <deque>
#include <mutex>
#include <optional>

namespace veltro::test {

class ScriptedDialogs : public Dialogs {
public:
    std::deque<bool> answers;
    bool rest = true;
    std::optional<std::string> inputAnswer;
    std::optional<std::string> fileAnswer;

    bool question(const std::string& title, const std::string& text) override
    {
        std::lock_guard lock(mutex_);
        asked_ << QString::fromStdString(title) + "|" + QString::fromStdString(text);
        if (answers.empty()) return rest;
        const bool a = answers.front();
        answers.pop_front();
        return a;
    }
    void message(const std::string& title, const std::string& text) override
    {
        std::lock_guard lock(mutex_);
        asked_ << QString::fromStdString(title) + "|" + QString::fromStdString(text);
    }
    std::optional<std::string> input(const std::string& title, const std::string& prompt) override
    {
        std::lock_guard lock(mutex_);
        asked_ << QString::fromStdString(title) + "|" + QString::fromStdString(prompt);
        return inputAnswer;
    }
    std::optional<std::string> openFile(const std::string&) override
    {
        std::lock_guard lock(mutex_);
        asked_ << "openFile";
        return fileAnswer;
    }
    QStringList asked() const
    {
        std::lock_guard lock(mutex_);
        return asked_;
    }
    QStringList titles() const
    {
        QStringList t;
        for (const QString& a : asked())
            t << a.section('|', 0, 0);
        return t;
    }

private:
    mutable std::mutex mutex_;
    QStringList asked_;
};

} // namespace veltro::test
