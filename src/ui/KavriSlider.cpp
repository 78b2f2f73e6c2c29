#include "ui/KavriSlider.h"

KavriSlider::KavriSlider(QWidget *parent) : QSlider(Qt::Horizontal, parent)
{
    setStyleSheet(
        QStringLiteral("QSlider { margin-right: 6px; }"
                       "QSlider::groove:horizontal { height: 4px; border-radius: 2px; background: #c8ccd4; }"
                       "QSlider::sub-page:horizontal { height: 4px; border-radius: 2px;"
                       "  background: qlineargradient(x1:0, y1:0, x2:1, y2:0, stop:0 #1d4ed8, stop:1 #60a5fa); }"
                       "QSlider::handle:horizontal { width: 12px; margin: -5px 0; border-radius: 6px;"
                       "  background: #ffffff; border: 1px solid #64748b; }"));
    setMinimum(0);
    setMaximum(0);
    setTracking(true);
}
