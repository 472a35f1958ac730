#pragma once
// The terminal's text box: green on black, a view of the terminal's text. Device output is
// gathered and shown in one go once the device has been quiet for 20 ms, and at least every
// 250 ms while it keeps sending: a view update takes the window's thread for a while, and while
// output flows (to a remote service too) it should happen rarely.
#include "terminal/terminal.h"

#include <QElapsedTimer>
#include <QObject>

#include <string>

class QTextEdit;
class QTimer;

namespace veltro {

class TerminalView : public QObject {
public:
    // Takes `view` over: read-only, plain text, green on black.
    explicit TerminalView(QTextEdit* view);

    // Bytes as they stand (device output, the tool's own texts).
    void append(const std::string& bytes);
    // One of the tool's "++" lines: CR LF, then the line.
    void appendLine(const std::string& line) { append("\r\n" + line); }
    const TerminalText& text() const { return text_; }

private:
    void show();

    QTextEdit* view_;
    TerminalText text_;
    QTimer* flush_;
    QElapsedTimer pending_; // since the oldest output not yet shown
};

// A key as the terminal records it: the Windows key code, and the shift state (1 Shift,
// 2 Ctrl, 4 Alt, added up).
int windowsKeyCode(int qtKey);
int windowsShiftState(Qt::KeyboardModifiers modifiers);

} // namespace veltro
