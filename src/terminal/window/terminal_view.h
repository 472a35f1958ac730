#pragma once
// The terminal's text box: green on black, a view of the terminal's text. Device output is
// gathered and shown in one go once the device has been quiet for 20 ms, and at least every
// 250 ms while it keeps sending: a view update takes the window's thread for a while, and while
// output flows (to a remote service too) it should happen rarely.
//
// The box shows only the newest lines: a text box keeps each of its lines laid out, many times
// the bytes they hold, so a long session would fill the memory. Once older lines are cut, a
// first line says that they are in the report; the terminal's text keeps every byte.
#include "terminal/terminal.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>

#include <string>

class QTextEdit;
class QTimer;

namespace veltro {

class TerminalView : public QObject, public TerminalDisplay {
public:
    // Takes `view` over: read-only, plain text, green on black.
    explicit TerminalView(QTextEdit* view);

    void append(const std::string& bytes) override;
    const TerminalText& text() const override { return text_; }

    // Lines the box keeps at least once it cuts; it cuts when it holds kCutStep more.
    static constexpr int kShownLines = 10000;
    static constexpr int kCutStep = 2500;

private:
    void show();
    void cutOlderLines();

    QTextEdit* view_;
    TerminalText text_;
    QTimer* flush_;
    QElapsedTimer pending_; // since the oldest output not yet shown
    bool cut_ = false;      // the first line of the box is the note on the cut lines
};

// The first line of the box once older lines have been cut.
QString olderOutputNote();

// A key as the terminal records it: the Windows key code, and the shift state (1 Shift,
// 2 Ctrl, 4 Alt, added up).
int windowsKeyCode(int qtKey);
int windowsShiftState(Qt::KeyboardModifiers modifiers);

} // namespace veltro
