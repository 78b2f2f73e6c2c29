#include "ui/BrightnessPanel.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>

BrightnessPanel::BrightnessPanel(QWidget *parent) : QFrame(parent)
{
    setObjectName(QStringLiteral("brightnessPanel"));
    setStyleSheet(QStringLiteral("#brightnessPanel { background-color: rgba(60, 60, 60, 75%);"
                                 "  border-bottom-right-radius: 10px; }"
                                 "QLabel { color: white; font-size: 10px; }"
                                 "QPushButton { color: white; font-size: 10px; background: rgba(255,255,255,25%);"
                                 "  border: 1px solid rgba(255,255,255,40%); border-radius: 3px; padding: 2px 8px; }"));
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(10, 8, 10, 8);
    grid->setHorizontalSpacing(8);
    grid->setVerticalSpacing(4);
    m_brightness = addRow(QStringLiteral("Brightness"), kBrightnessMin, kBrightnessMax, 0);
    m_contrast = addRow(QStringLiteral("Contrast"), kContrastMin, kContrastMax, 0);
    m_gamma = addRow(QStringLiteral("Gamma"), kGammaMin, kGammaMax, kGammaNeutral);
    auto *reset = new QPushButton(QStringLiteral("Reset All"), this);
    reset->setObjectName(QStringLiteral("resetButton"));
    reset->setFocusPolicy(Qt::NoFocus);
    grid->addWidget(reset, 3, 0, 1, 3, Qt::AlignRight);
    connect(reset, &QPushButton::pressed, this, &BrightnessPanel::resetPressed);
    setFixedWidth(260);
    adjustSize();
}

QSlider *BrightnessPanel::addRow(const QString &label, int min, int max, int value)
{
    auto *grid = static_cast<QGridLayout *>(layout());
    const int row = grid->rowCount() - (grid->count() == 0 ? 1 : 0);
    auto *l = new QLabel(label, this);
    auto *s = new QSlider(Qt::Horizontal, this);
    auto *v = new QLabel(QString::number(value), this);
    s->setRange(min, max);
    s->setValue(value);
    s->setFocusPolicy(Qt::NoFocus);
    v->setMinimumWidth(32);
    v->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    connect(s, &QSlider::valueChanged, v, [v](int x) { v->setNum(x); });
    grid->addWidget(l, row, 0);
    grid->addWidget(s, row, 1);
    grid->addWidget(v, row, 2);
    return s;
}

void BrightnessPanel::resetAll()
{
    m_brightness->setValue(0);
    m_contrast->setValue(0);
    m_gamma->setValue(kGammaNeutral);
}
