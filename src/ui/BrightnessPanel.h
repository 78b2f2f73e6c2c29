// The small semi-transparent panel over the top left of the picture with the brightness, contrast and
// gamma sliders.
#pragma once

#include <QFrame>

class QSlider;
class QLabel;

class BrightnessPanel : public QFrame {
    Q_OBJECT
public:
    // Slider ranges in the tone curve's own units: brightness is added to 8-bit levels, contrast adds to a
    // 4096-based gain, gamma is 256 for a straight line.
    static constexpr int kBrightnessMin = -128, kBrightnessMax = 128;
    static constexpr int kContrastMin = -3072, kContrastMax = 4096;
    static constexpr int kGammaMin = 64, kGammaMax = 1024, kGammaNeutral = 256;

    explicit BrightnessPanel(QWidget *parent = nullptr);
    QSlider *brightnessSlider() const { return m_brightness; }
    QSlider *contrastSlider() const { return m_contrast; }
    QSlider *gammaSlider() const { return m_gamma; }

public slots:
    void resetAll();

signals:
    void resetPressed();

private:
    QSlider *addRow(const QString &label, int min, int max, int value);
    QSlider *m_brightness = nullptr;
    QSlider *m_contrast = nullptr;
    QSlider *m_gamma = nullptr;
};
