// Small pieces the dialogs share: named controls and the keyboard focus chain.
#pragma once

#include <QCheckBox>
#include <QString>
#include <QWidget>
#include <initializer_list>

namespace kavri::ui {

// Sets the keyboard focus chain of a dialog in one call.
inline void chainTabOrder(std::initializer_list<QWidget *> widgets)
{
    QWidget *previous = nullptr;
    for (QWidget *w : widgets) {
        if (previous) QWidget::setTabOrder(previous, w);
        previous = w;
    }
}

// A check box found by its object name (tests and style sheets reach the controls by name).
inline QCheckBox *checkBox(const char *name, const QString &text, bool on, QWidget *parent)
{
    auto *c = new QCheckBox(text, parent);
    c->setObjectName(QLatin1String(name));
    c->setChecked(on);
    return c;
}

} // namespace kavri::ui
