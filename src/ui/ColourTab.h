// The format dialog's "Colour" tab: the colour reading of the sequence (matrix, range, chroma siting,
// transfer and peak), filled from a description and read back as one.
#pragma once

#include "formats/ColourDescription.h"

#include <QWidget>

class QComboBox;
class QSpinBox;

namespace kavri::ui {

class ColourTab : public QWidget {
    Q_OBJECT
public:
    explicit ColourTab(const ColourDescription &c, QWidget *parent = nullptr);
    void setDescription(const ColourDescription &c);
    ColourDescription description() const;

private:
    QComboBox *m_matrix = nullptr;
    QComboBox *m_range = nullptr;
    QComboBox *m_chroma = nullptr;
    QComboBox *m_transfer = nullptr;
    QSpinBox *m_peak = nullptr;
};

} // namespace kavri::ui
