// Sets the keyboard focus chain of a dialog in one call.
#pragma once

#include <QWidget>
#include <initializer_list>

namespace kavri::ui {

inline void chainTabOrder(std::initializer_list<QWidget *> widgets)
{
    QWidget *previous = nullptr;
    for (QWidget *w : widgets) {
        if (previous) QWidget::setTabOrder(previous, w);
        previous = w;
    }
}

} // namespace kavri::ui
