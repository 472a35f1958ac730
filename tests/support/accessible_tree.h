#pragma once
// What a screen reader finds in a window: every (role, name) in its accessibility tree, and the
// caption that labels a control. Header only: window tests include it, logic tests never do.
#include <QAccessible>
#include <QPair>
#include <QSet>
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

} // namespace veltro::test
