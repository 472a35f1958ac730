#pragma once
// What a screen reader finds in a window: every (role, name) in its accessibility tree, and the
// caption that labels a control. Header only: window tests include it, logic tests never do.
#include <QAbstractButton>
#include <QAbstractScrollArea>
#include <QAccessible>
#include <QComboBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPair>
#include <QSet>
#include <QStringList>
#include <QWidget>

#include <functional>

namespace veltro::test {

inline QSet<QPair<int, QString>> accessibleControls(QWidget* widget)
{
    QSet<QPair<int, QString>> found;
    std::function<void(QAccessibleInterface*)> walk = [&](QAccessibleInterface* node) {
        if (!node || !node->isValid())
            return;
        found.insert({int(node->role()), node->text(QAccessible::Name)});
        for (int i = 0; i < node->childCount(); ++i)
            walk(node->child(i));
    };
    walk(QAccessible::queryAccessibleInterface(widget));
    return found;
}

// The caption of `control`'s first label relation, empty when none labels it.
inline QString accessibleCaption(QWidget* control)
{
    const auto labels = QAccessible::queryAccessibleInterface(control)->relations(QAccessible::Label);
    return labels.isEmpty() ? QString() : labels.first().first->text(QAccessible::Name);
}

// The controls of `window` a screen reader cannot find by their caption, as "objectName (name
// found)" joined by commas: a button, check box, label or group must be in the window's tree under its own text;
// an input (line, list, text box) under a name of its own, so that a caption says what it is.
inline QString controlsWithoutCaption(QWidget* window)
{
    const auto tree = accessibleControls(window);
    QStringList missing;
    for (QWidget* control : window->findChildren<QWidget*>()) {
        if (control->window() != window->window())
            continue; // a list's pop-up
        QString caption;
        if (auto* button = qobject_cast<QAbstractButton*>(control))
            caption = button->text().remove('&');
        else if (auto* label = qobject_cast<QLabel*>(control))
            caption = label->text();
        else if (auto* group = qobject_cast<QGroupBox*>(control))
            caption = group->title();
        else if (!qobject_cast<QLineEdit*>(control) && !qobject_cast<QComboBox*>(control)
                 && !qobject_cast<QAbstractScrollArea*>(control))
            continue;
        if (qobject_cast<QLabel*>(control) && caption.isEmpty())
            continue; // a lamp or a picture
        QAccessibleInterface* node = QAccessible::queryAccessibleInterface(control);
        const QString name = node ? node->text(QAccessible::Name) : QString();
        if (name.isEmpty() || !tree.contains({int(node->role()), name}) || (!caption.isEmpty() && name != caption))
            missing << control->objectName() + " (" + name + ")";
    }
    return missing.join(", ");
}

} // namespace veltro::test
