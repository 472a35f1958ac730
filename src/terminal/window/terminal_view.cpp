#include "terminal/window/terminal_view.h"

#include "platform/windows1252.h"

#include <QAbstractTextDocumentLayout>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>
#include <QTimer>

namespace veltro {

namespace {
constexpr int kQuietMs = 20;
constexpr int kShowAtLeastMs = 250;
} // namespace

TerminalView::TerminalView(QTextEdit* view) : QObject(view), view_(view), flush_(new QTimer(this))
{
    view_->setReadOnly(true);
    view_->setAcceptRichText(false);
    // Nothing is ever undone in a read-only box, and an undo history would keep every insert
    // and every cut line.
    view_->document()->setUndoRedoEnabled(false);
    // All of the terminal is green: set once here instead of recolouring the text. Bright
    // green on white is hard to read, so the terminal is dark.
    QPalette green = view_->palette();
    green.setColor(QPalette::Text, QColor(0, 255, 0));
    green.setColor(QPalette::Base, QColor(0, 0, 0));
    view_->setPalette(green);
    flush_->setSingleShot(true);
    flush_->setInterval(kQuietMs);
    connect(flush_, &QTimer::timeout, this, &TerminalView::show);
}

void TerminalView::append(const std::string& bytes)
{
    text_.append(bytes);
    if (!pending_.isValid())
        pending_.start();
    if (!flush_->isActive() || pending_.elapsed() < kShowAtLeastMs - kQuietMs)
        flush_->start();
}

void TerminalView::show()
{
    pending_.invalidate();
    if (!text_.hasUnshown())
        return;
    QScrollBar* bar = view_->verticalScrollBar();
    const bool atBottom = bar->value() >= bar->maximum() - 2;
    QTextCursor end(view_->document());
    end.movePosition(QTextCursor::End);
    end.insertText(windows1252ToQString(text_.takeUnshown()));
    cutOlderLines();
    // Follows the output only while the user has not scrolled back to read.
    if (atBottom)
        bar->setValue(bar->maximum());
}

// Cuts in steps of kCutStep lines, not a few lines on every update: each cut moves every line
// the box keeps, which costs about as much as showing a batch of new ones.
void TerminalView::cutOlderLines()
{
    QTextDocument* doc = view_->document();
    const int note = cut_ ? 1 : 0;
    const int lines = doc->blockCount() - note;
    if (lines <= kShownLines + kCutStep)
        return;
    const QTextBlock firstKept = doc->findBlockByNumber(note + lines - kShownLines);
    QAbstractTextDocumentLayout* layout = doc->documentLayout();
    const qreal topBefore = layout->blockBoundingRect(firstKept).top();
    QScrollBar* bar = view_->verticalScrollBar();
    const int readAt = bar->value(); // the cut shortens the bar's range, which may move it

    QTextCursor cut(doc);
    cut.beginEditBlock();
    if (!cut_) {
        cut.insertText(olderOutputNote());
        cut.insertBlock();
        cut_ = true;
    } else {
        cut.setPosition(doc->firstBlock().next().position());
    }
    cut.setPosition(firstKept.position(), QTextCursor::KeepAnchor);
    cut.removeSelectedText();
    cut.endEditBlock();

    // Someone reading further up keeps the same lines in front of them.
    bar->setValue(readAt - qRound(topBefore - layout->blockBoundingRect(firstKept).top()));
}

QString olderOutputNote()
{
    return QString::fromUtf8("... ältere Ausgaben sind hier ausgeblendet, vollständig stehen sie im Bericht "
                             "(BERICHT SENDEN) ...");
}

int windowsKeyCode(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_Escape: return 27;
    case Qt::Key_Return:
    case Qt::Key_Enter: return 13;
    case Qt::Key_Backspace: return 8;
    case Qt::Key_Tab: return 9;
    case Qt::Key_Shift: return 16;
    case Qt::Key_Control: return 17;
    case Qt::Key_Alt: return 18;
    case Qt::Key_Left: return 37;
    case Qt::Key_Up: return 38;
    case Qt::Key_Right: return 39;
    case Qt::Key_Down: return 40;
    case Qt::Key_Delete: return 46;
    default:
        if (qtKey >= Qt::Key_F1 && qtKey <= Qt::Key_F12) return 112 + (qtKey - Qt::Key_F1);
        return qtKey < 256 ? qtKey : 0; // letters, digits and blank have their ASCII codes
    }
}

int windowsShiftState(Qt::KeyboardModifiers m)
{
    return (m & Qt::ShiftModifier ? 1 : 0) | (m & Qt::ControlModifier ? 2 : 0) | (m & Qt::AltModifier ? 4 : 0);
}

} // namespace veltro
