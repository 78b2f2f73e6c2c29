#include "ui/ColourTab.h"

#include <QComboBox>
#include <QFormLayout>
#include <QSpinBox>

namespace kavri::ui {

namespace {
QComboBox *combo(const char *name, const QStringList &items, QWidget *parent)
{
    auto *c = new QComboBox(parent);
    c->setObjectName(QString::fromLatin1(name));
    c->addItems(items);
    return c;
}
} // namespace

// The items follow the order of the enumerations, so an item's index is the value.
ColourTab::ColourTab(const ColourDescription &c, QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("tab_colour"));
    m_matrix = combo("cb_matrix",
                     {tr("Default conversion"), QStringLiteral("BT.601"), QStringLiteral("BT.709"),
                      QStringLiteral("BT.2020 (non-constant luminance)"), QStringLiteral("SMPTE 240M"),
                      QStringLiteral("YCgCo")},
                     this);
    m_range = combo("cb_range", {tr("Full"), tr("Limited (16..235)")}, this);
    m_chroma = combo("cb_chroma",
                     {tr("Nearest sample"), tr("Bilinear, left (MPEG-2)"), tr("Bilinear, center (JPEG)"),
                      tr("Bilinear, top left (co-sited)")},
                     this);
    m_transfer = combo("cb_transfer", {QStringLiteral("SDR"), tr("PQ, tone-mapped"), tr("HLG, tone-mapped")}, this);
    m_peak = new QSpinBox(this);
    m_peak->setObjectName(QStringLiteral("sb_peak"));
    m_peak->setRange(kMinPeakNits, kMaxPeakNits);
    m_peak->setSuffix(QStringLiteral(" cd/m²"));
    auto *form = new QFormLayout(this);
    form->addRow(tr("Matrix"), m_matrix);
    form->addRow(tr("Range"), m_range);
    form->addRow(tr("Chroma"), m_chroma);
    form->addRow(tr("Transfer"), m_transfer);
    form->addRow(tr("Peak"), m_peak);
    setDescription(c);
}

void ColourTab::setDescription(const ColourDescription &c)
{
    m_matrix->setCurrentIndex(int(c.matrix));
    m_range->setCurrentIndex(int(c.range));
    m_chroma->setCurrentIndex(int(c.chroma));
    m_transfer->setCurrentIndex(int(c.transfer));
    m_peak->setValue(c.peakNits);
}

ColourDescription ColourTab::description() const
{
    ColourDescription c;
    c.matrix = ColourMatrix(m_matrix->currentIndex());
    c.range = ColourRange(m_range->currentIndex());
    c.chroma = ChromaSiting(m_chroma->currentIndex());
    c.transfer = ColourTransfer(m_transfer->currentIndex());
    c.peakNits = m_peak->value();
    return c;
}

} // namespace kavri::ui
