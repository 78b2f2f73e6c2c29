#include "ui/ColourMenu.h"

#include <QActionGroup>

namespace kavri::ui {

ColourMenu::ColourMenu(Getter get, Setter set, QWidget *parent)
    : QMenu(tr("Colour"), parent), m_get(std::move(get)), m_set(std::move(set))
{
    setObjectName(QStringLiteral("menuColour"));
    auto *matrices = new QActionGroup(this);
    const std::pair<const char *, ColourMatrix> kMatrices[] = {
        {"Default conversion", ColourMatrix::Default},
        {"BT.601", ColourMatrix::BT601},
        {"BT.709", ColourMatrix::BT709},
        {"BT.2020", ColourMatrix::BT2020},
        {"SMPTE 240M", ColourMatrix::SMPTE240M},
        {"YCgCo", ColourMatrix::YCgCo},
    };
    for (const auto &[text, m] : kMatrices)
        addChoice(
            matrices, tr(text), [m = m](ColourDescription &c) { c.matrix = m; },
            [m = m](const ColourDescription &c) { return c.matrix == m; });
    addSeparator();
    auto *ranges = new QActionGroup(this);
    for (ColourRange r : {ColourRange::Full, ColourRange::Limited})
        addChoice(
            ranges, r == ColourRange::Full ? tr("Full range") : tr("Limited range"),
            [r](ColourDescription &c) { c.range = r; }, [r](const ColourDescription &c) { return c.range == r; });
    addSeparator();
    auto *transfers = new QActionGroup(this);
    const std::pair<const char *, ColourTransfer> kTransfers[] = {{"SDR", ColourTransfer::SDR},
                                                                  {"PQ (tone-mapped)", ColourTransfer::PQ},
                                                                  {"HLG (tone-mapped)", ColourTransfer::HLG}};
    for (const auto &[text, t] : kTransfers)
        addChoice(
            transfers, tr(text), [t = t](ColourDescription &c) { c.transfer = t; },
            [t = t](const ColourDescription &c) { return c.transfer == t; });
    connect(this, &QMenu::aboutToShow, this, &ColourMenu::refresh);
}

QAction *ColourMenu::addChoice(QActionGroup *group, const QString &text,
                               const std::function<void(ColourDescription &)> &apply,
                               const std::function<bool(const ColourDescription &)> &isChosen)
{
    QAction *a = addAction(text);
    a->setCheckable(true);
    group->addAction(a);
    m_checks.emplace_back(a, isChosen);
    connect(a, &QAction::triggered, this, [this, apply] {
        ColourDescription c = m_get ? m_get() : ColourDescription{};
        apply(c);
        if (m_set) m_set(c);
        refresh();
    });
    return a;
}

void ColourMenu::refresh()
{
    const ColourDescription c = m_get ? m_get() : ColourDescription{};
    for (const auto &[action, isChosen] : m_checks) action->setChecked(isChosen(c));
}

} // namespace kavri::ui
