#pragma once
// Dialogs answered from a script: each question takes the next answer (Yes when the script has
// run out, unless `rest` says otherwise); everything asked is recorded as "title|text", a file
// dialog as "openFile".
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
        record(title + "|" + text);
        std::lock_guard lock(mutex_);
        if (answers.empty()) return rest;
        const bool a = answers.front();
        answers.pop_front();
        return a;
    }
    void message(const std::string& title, const std::string& text) override { record(title + "|" + text); }
    std::optional<std::string> input(const std::string& title, const std::string& prompt) override
    {
        record(title + "|" + prompt);
        return inputAnswer;
    }
    std::optional<std::string> openFile(const std::string&) override
    {
        record("openFile");
        return fileAnswer;
    }
    QStringList asked() const
    {
        std::lock_guard lock(mutex_);
        return asked_;
    }

private:
    void record(const std::string& line)
    {
        std::lock_guard lock(mutex_);
        asked_ << QString::fromStdString(line);
    }

    mutable std::mutex mutex_;
    QStringList asked_;
};

} // namespace veltro::test
