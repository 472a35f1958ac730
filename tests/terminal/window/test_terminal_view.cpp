// The terminal's text box over the terminal's text.
#include "terminal/window/terminal_view.h"

#include <QScrollBar>
#include <QTest>
#include <QTextBlock>
#include <QTextEdit>

using namespace veltro;

class TestTerminalView : public QObject {
    Q_OBJECT
private slots:
    // The box keeps the newest lines, once it cuts with one note on top, and someone reading
    // further up keeps their lines in view through a cut; the text keeps every byte.
    void viewKeepsTheNewestLines_data()
    {
        QTest::addColumn<int>("batch"); // lines shown in one go
        QTest::addColumn<int>("lines");
        QTest::newRow("below the limit, no cut") << 1000 << TerminalView::kShownLines;
        QTest::newRow("one batch over it") << 2 * TerminalView::kShownLines << 2 * TerminalView::kShownLines;
        QTest::newRow("several cuts") << 2000 << TerminalView::kShownLines + 3 * TerminalView::kCutStep;
    }
    void viewKeepsTheNewestLines()
    {
        QFETCH(int, batch);
        QFETCH(int, lines);
        QTextEdit box;
        box.resize(400, 300);
        box.show();
        auto* view = new TerminalView(&box);
        auto topLine = [&] { return box.cursorForPosition(QPoint(0, 0)).block().text(); };
        QString reading;
        std::string all;
        for (int n = 0; n < lines;) {
            std::string part;
            for (const int end = std::min(lines, n + batch); n < end; ++n)
                part += "line " + std::to_string(n) + "\r\n";
            view->append(part);
            all += part;
            QTRY_VERIFY(!view->text().hasUnshown());
            if (!reading.isEmpty()) {
                QCOMPARE(topLine(), reading);
                reading.clear();
            } else if (n > TerminalView::kShownLines && n + batch < lines) {
                // The next batch cuts; scroll up a little before it.
                box.verticalScrollBar()->setValue(box.verticalScrollBar()->maximum() - 500);
                reading = topLine();
            }
        }
        QVERIFY(view->text().text() == all);
        QStringList shown = box.toPlainText().split('\n');
        if (lines > TerminalView::kShownLines + TerminalView::kCutStep)
            QCOMPARE(shown.takeFirst(), olderOutputNote());
        QVERIFY(shown.size() >= std::min(lines + 1, TerminalView::kShownLines));
        QVERIFY(shown.size() <= TerminalView::kShownLines + TerminalView::kCutStep);
        QStringList newest;
        for (int n = lines - int(shown.size()) + 1; n < lines; ++n)
            newest << QString("line %1").arg(n);
        newest << QString(); // the line the next output starts
        QCOMPARE(shown, newest);
    }

    // The key codes the last-key label shows are the ones the device tool showed.
    void keyCodes()
    {
        QCOMPARE(QList<int>({windowsKeyCode(Qt::Key_Escape), windowsKeyCode(Qt::Key_F1), windowsKeyCode(Qt::Key_F12),
                             windowsKeyCode(Qt::Key_A), windowsShiftState(Qt::ShiftModifier | Qt::AltModifier)}),
                 QList<int>({27, 112, 123, 65, 5}));
    }
};

QTEST_MAIN(TestTerminalView)
#include "test_terminal_view.moc"
