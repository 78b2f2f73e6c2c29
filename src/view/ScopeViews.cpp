#include "view/ScopeViews.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace kavri::view {

QColor componentColour(const std::string &name)
{
    if (name == "R") return QColor(230, 60, 60);
    if (name == "G") return QColor(70, 210, 70);
    if (name == "B") return QColor(80, 120, 255);
    if (name == "U") return QColor(90, 140, 255);
    if (name == "V") return QColor(240, 90, 90);
    if (name == "A") return QColor(160, 160, 160);
    return QColor(230, 230, 230);
}

int cellBrightness(uint32_t count, uint32_t peak)
{
    if (count == 0 || peak == 0) return 0;
    return std::clamp(int(40.0 + 215.0 * std::sqrt(double(count) / double(peak))), 40, 255);
}

void ScopeView::setData(ScopeDataPtr data)
{
    m_data = std::move(data);
    rebuild();
}

void ScopeView::rebuild()
{
    m_picture = m_data ? render(*m_data) : QImage();
    update();
}

void ScopeView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), QColor(16, 16, 16));
    if (m_picture.isNull()) {
        p.setPen(QColor(120, 120, 120));
        p.drawText(rect(), Qt::AlignCenter, tr("No frame"));
        return;
    }
    const QRectF area = pictureArea();
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    p.drawImage(area, m_picture);
    p.setRenderHint(QPainter::Antialiasing, true);
    paintOverlay(p, area);
}

QRectF ScopeView::pictureArea() const { return QRectF(rect()).adjusted(4, 4, -4, -4); }

// ---- histogram ----

void HistogramView::setLogarithmic(bool on)
{
    if (m_log == on) return;
    m_log = on;
    rebuild();
}

double HistogramView::barHeight(uint64_t count, uint64_t peak, bool logarithmic)
{
    if (count == 0 || peak == 0) return 0.0;
    if (!logarithmic) return double(count) / double(peak);
    return std::log1p(double(count)) / std::log1p(double(peak));
}

QImage HistogramView::render(const pixel::ScopeData &d) const
{
    // One column per bin of the widest histogram, the components drawn over each other, added up where
    // they overlap so none hides another.
    int bins = 0;
    uint64_t peak = 0;
    for (const pixel::ComponentStatistics &c : d.statistics.components) {
        bins = std::max(bins, int(c.histogram.size()));
        for (uint64_t n : c.histogram) peak = std::max(peak, n);
    }
    if (bins == 0) return {};
    constexpr int kHeight = 200;
    QImage img(bins, kHeight, QImage::Format_RGB32);
    img.fill(QColor(16, 16, 16));
    for (const pixel::ComponentStatistics &c : d.statistics.components) {
        const QColor col = componentColour(c.name);
        const int n = int(c.histogram.size());
        for (int x = 0; x < bins && n > 0; ++x) {
            const uint64_t count = c.histogram[size_t(int64_t(x) * n / bins)];
            const int h = int(std::lround(barHeight(count, peak, m_log) * kHeight));
            for (int y = kHeight - h; y < kHeight; ++y) {
                QRgb *px = reinterpret_cast<QRgb *>(img.scanLine(y)) + x;
                const QColor old = QColor::fromRgb(*px);
                *px = qRgb(std::min(255, old.red() + col.red() / 2), std::min(255, old.green() + col.green() / 2),
                           std::min(255, old.blue() + col.blue() / 2));
            }
        }
    }
    return img;
}

// ---- waveform ----

QImage WaveformView::render(const pixel::ScopeData &d) const
{
    const pixel::Waveform &w = d.waveform;
    if (w.counts.empty()) return {};
    const int width = w.parts * w.columns;
    uint32_t peak = 0;
    for (uint32_t n : w.counts) peak = std::max(peak, n);
    QImage img(width, w.levels, QImage::Format_RGB32);
    for (int level = 0; level < w.levels; ++level) {
        // Row 0 of the picture is the highest level.
        QRgb *row = reinterpret_cast<QRgb *>(img.scanLine(w.levels - 1 - level));
        for (int part = 0; part < w.parts; ++part) {
            const QColor tint = w.parts == 1 ? QColor(120, 255, 140) : componentColour(w.names[size_t(part)]);
            for (int x = 0; x < w.columns; ++x) {
                const int b = cellBrightness(w.at(part, x, level), peak);
                row[part * w.columns + x] =
                    qRgb(16 + tint.red() * b / 255 * 239 / 255, 16 + tint.green() * b / 255 * 239 / 255,
                         16 + tint.blue() * b / 255 * 239 / 255);
            }
        }
    }
    return img;
}

void WaveformView::paintOverlay(QPainter &p, const QRectF &r) const
{
    // Quarters of the code range, and the edges between the panels of a parade.
    p.setPen(QPen(QColor(255, 255, 255, 60), 1, Qt::DotLine));
    for (int q = 0; q <= 4; ++q) {
        const double y = r.bottom() - r.height() * q / 4.0;
        p.drawLine(QPointF(r.left(), y), QPointF(r.right(), y));
    }
    const pixel::ScopeData &d = *data();
    p.setPen(QPen(QColor(255, 255, 255, 110), 1));
    for (int part = 1; part < d.waveform.parts; ++part) {
        const double x = r.left() + r.width() * part / d.waveform.parts;
        p.drawLine(QPointF(x, r.top()), QPointF(x, r.bottom()));
    }
}

// ---- vectorscope ----

QPointF VectorscopeView::targetPoint(const pixel::ScopeTarget &t, const QRectF &area)
{
    return {area.left() + t.u * area.width(), area.bottom() - t.v * area.height()};
}

QImage VectorscopeView::render(const pixel::ScopeData &d) const
{
    const pixel::Vectorscope &s = d.vectorscope;
    if (s.counts.empty()) return {};
    uint32_t peak = 0;
    for (uint32_t n : s.counts) peak = std::max(peak, n);
    // Each cell also lights its eight neighbours (at the brightest of them): a flat colour fills one cell
    // of 256, which would vanish when the picture is drawn smaller than the grid.
    std::vector<int> lit(size_t(s.size) * size_t(s.size), 0);
    for (int v = 0; v < s.size; ++v)
        for (int u = 0; u < s.size; ++u) {
            const int b = cellBrightness(s.at(u, v), peak);
            if (!b) continue;
            for (int dv = std::max(0, v - 1); dv <= std::min(s.size - 1, v + 1); ++dv)
                for (int du = std::max(0, u - 1); du <= std::min(s.size - 1, u + 1); ++du) {
                    int &cell = lit[size_t(dv) * size_t(s.size) + size_t(du)];
                    cell = std::max(cell, b);
                }
        }
    QImage img(s.size, s.size, QImage::Format_RGB32);
    for (int v = 0; v < s.size; ++v) {
        QRgb *row = reinterpret_cast<QRgb *>(img.scanLine(s.size - 1 - v));
        for (int u = 0; u < s.size; ++u) {
            const int b = lit[size_t(v) * size_t(s.size) + size_t(u)];
            row[u] = b ? qRgb(b * 3 / 4, b, b * 3 / 4) : qRgb(16, 16, 16);
        }
    }
    return img;
}

QRectF VectorscopeView::pictureArea() const
{
    const QRectF all = ScopeView::pictureArea();
    const double side = std::min(all.width(), all.height());
    return QRectF(all.center().x() - side / 2, all.center().y() - side / 2, side, side);
}

void VectorscopeView::paintOverlay(QPainter &p, const QRectF &r) const
{
    const QPointF centre = r.center();
    p.setPen(QPen(QColor(255, 255, 255, 70), 1));
    p.drawLine(QPointF(r.left(), centre.y()), QPointF(r.right(), centre.y()));
    p.drawLine(QPointF(centre.x(), r.top()), QPointF(centre.x(), r.bottom()));
    p.drawEllipse(centre, r.width() / 2, r.height() / 2);
    const pixel::ScopeData &d = *data();
    QFont f = p.font();
    f.setPointSizeF(std::max(6.0, f.pointSizeF() * 0.8));
    p.setFont(f);
    for (const pixel::ScopeTarget &t : d.targets) {
        const QPointF c = targetPoint(t, r);
        const double box = std::max(6.0, r.width() / 28.0);
        p.setPen(QPen(QColor(255, 200, 60), 1.5));
        p.setBrush(Qt::NoBrush);
        p.drawRect(QRectF(c.x() - box / 2, c.y() - box / 2, box, box));
        p.drawText(QPointF(c.x() + box * 0.7, c.y() - box * 0.7), QString(QChar(t.name)));
    }
}

} // namespace kavri::view
