// The three scope pictures of the shown frame, drawn from the counts the scope worker finished
// (pixel/ScopeData.h): a histogram per component, a waveform (luma, or an RGB parade) and a vectorscope
// with the 75 % colour-bar targets. Each turns its counts into a small picture when given a new frame and
// only scales that picture when painted.
#pragma once

#include "pixel/ScopeData.h"

#include <QImage>
#include <QWidget>

#include <memory>

namespace kavri::view {

using ScopeDataPtr = std::shared_ptr<const pixel::ScopeData>;

// The colour a component is drawn in, by its name ("Y", "U", "V", "R", "G", "B", "A").
QColor componentColour(const std::string &name);

// Brightness of a cell holding `count` of at most `peak` samples: a square root, so a few samples in an
// otherwise empty place still show. 0 for an empty cell, at least 40 for any other.
int cellBrightness(uint32_t count, uint32_t peak);

class ScopeView : public QWidget {
    Q_OBJECT
public:
    using QWidget::QWidget;
    // A null pointer clears the view.
    void setData(ScopeDataPtr data);
    const ScopeDataPtr &data() const { return m_data; }
    // The picture the view scales into its area (null when it shows nothing).
    const QImage &picture() const { return m_picture; }
    QSize sizeHint() const override { return {240, 170}; }

protected:
    // Builds the picture from the data (non-null).
    virtual QImage render(const pixel::ScopeData &d) const = 0;
    // Draws what goes over the picture (scales, targets) in the rectangle the picture occupies.
    virtual void paintOverlay(QPainter &, const QRectF &) const {}
    // Where the picture goes: the view less a margin.
    virtual QRectF pictureArea() const;
    void paintEvent(QPaintEvent *) override;
    void rebuild();

private:
    ScopeDataPtr m_data;
    QImage m_picture;
};

class HistogramView : public ScopeView {
    Q_OBJECT
public:
    using ScopeView::ScopeView;
    void setLogarithmic(bool on);
    bool logarithmic() const { return m_log; }
    // The height (0..1 of the view) a bin of `count` gets, when the fullest bin holds `peak`.
    static double barHeight(uint64_t count, uint64_t peak, bool logarithmic);

protected:
    QImage render(const pixel::ScopeData &d) const override;

private:
    bool m_log = false;
};

class WaveformView : public ScopeView {
    Q_OBJECT
public:
    using ScopeView::ScopeView;

protected:
    QImage render(const pixel::ScopeData &d) const override;
    void paintOverlay(QPainter &p, const QRectF &r) const override;
};

class VectorscopeView : public ScopeView {
    Q_OBJECT
public:
    using ScopeView::ScopeView;
    QSize sizeHint() const override { return {240, 240}; }
    // Where a target lands in a picture area (v grows upwards).
    static QPointF targetPoint(const pixel::ScopeTarget &t, const QRectF &area);

protected:
    QImage render(const pixel::ScopeData &d) const override;
    void paintOverlay(QPainter &p, const QRectF &r) const override;
    // A square in the middle of the view: both colour differences get the same scale.
    QRectF pictureArea() const override;
};

} // namespace kavri::view
