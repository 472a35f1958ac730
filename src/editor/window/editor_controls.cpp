#include "editor/window/editor_controls.h"

#include <QPainter>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QStyleOptionGroupBox>
#include <qdrawutil.h>

#include <algorithm>

namespace veltro {

void FixedWidthCombo::setCharacters(int characters)
{
    characters_ = characters;
    updateGeometry();
}

QSize FixedWidthCombo::sizeHint() const
{
    QStyleOptionComboBox option;
    initStyleOption(&option);
    const QFontMetrics& fm = fontMetrics();
    const QSize text(characters_ * fm.horizontalAdvance(u'X'), std::max(fm.height(), 14) + 2);
    return style()->sizeFromContents(QStyle::CT_ComboBox, &option, text, this);
}

void EtchedFrame::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    QStyleOptionGroupBox option;
    initStyleOption(&option);
    const QRect label = style()->subControlRect(QStyle::CC_GroupBox, &option, QStyle::SC_GroupBoxLabel, this);
    const QRect frame = rect().adjusted(0, label.center().y(), 0, 0);
    qDrawShadeRect(&painter, frame, palette(), true, 1);
    const QRect caption = label.translated(8, 0).adjusted(-2, 0, 2, 0);
    painter.fillRect(caption, palette().window());
    style()->drawItemText(&painter, caption, Qt::AlignCenter | Qt::TextShowMnemonic, palette(), isEnabled(), title(),
                          QPalette::WindowText);
}

} // namespace veltro
