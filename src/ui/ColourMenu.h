// View > Colour: switches the matrix, range and transfer the shown sequence is read with. The window
// says where the reading lives (its getter) and what a change does (its setter: hand it to the loader,
// which keeps it with the file and shows it like a view change); the menu only offers the choices and
// marks the one in use.
#pragma once

#include "formats/ColourDescription.h"

#include <QMenu>
#include <functional>

class QActionGroup;

namespace kavri::ui {

class ColourMenu : public QMenu {
    Q_OBJECT
public:
    using Getter = std::function<ColourDescription()>;
    using Setter = std::function<void(const ColourDescription &)>;
    ColourMenu(Getter get, Setter set, QWidget *parent = nullptr);

    // Marks the items of the reading the getter gives (also done each time the menu opens).
    void refresh();

private:
    QAction *addChoice(QActionGroup *group, const QString &text, const std::function<void(ColourDescription &)> &apply,
                       const std::function<bool(const ColourDescription &)> &isChosen);

    Getter m_get;
    Setter m_set;
    std::vector<std::pair<QAction *, std::function<bool(const ColourDescription &)>>> m_checks;
};

} // namespace kavri::ui
