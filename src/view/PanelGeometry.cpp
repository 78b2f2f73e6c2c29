#include "view/PanelGeometry.h"

#include <algorithm>

namespace kavri::view {

int anamorphicWidth(int width, bool anamorphic, double scale) { return anamorphic ? int(width * scale + 0.5) : width; }

DisplayRect paintGeometry(QSize widget, QSize image, bool maintainAspect, bool anamorphic, double scale)
{
    const int W = widget.width(), H = widget.height();
    const int w = anamorphicWidth(image.width(), anamorphic, scale), h = image.height();
    DisplayRect d{0, 0, W, H};
    if (!maintainAspect || w <= 0 || h <= 0 || W <= 0 || H <= 0) return d;
    // Compared in single precision, so that a widget whose shape matches the frame's exactly counts as equal.
    const float a = float(w) / float(h);
    const float b = float(W) / float(H);
    if (b > a) {
        d.width = int(int64_t(H) * w / h);
        d.x = (W - d.width) >> 1;
    } else if (b < a) {
        d.height = int(int64_t(W) * h / w);
        d.y = (H - d.height) >> 1;
    }
    return d;
}

QPoint widgetToImage(QPoint p, const DisplayRect &d, QSize image)
{
    const int w = image.width(), h = image.height();
    if (w <= 0 || h <= 0 || d.width <= 0 || d.height <= 0) return {0, 0};
    const int64_t x = (int64_t(w) * (p.x() - d.x) + d.width - 1) / d.width;
    const int64_t y = (int64_t(h) * (p.y() - d.y) + d.height - 1) / d.height;
    return {int(std::clamp<int64_t>(x, 0, w - 1)), int(std::clamp<int64_t>(y, 0, h - 1))};
}

QPoint imageToWidget(QPoint p, const DisplayRect &d, QSize image)
{
    const int w = image.width(), h = image.height();
    if (w <= 0 || h <= 0) return {d.x, d.y};
    return {int(d.x + int64_t(p.x()) * d.width / w), int(d.y + int64_t(p.y()) * d.height / h)};
}

int32_t zoomFactor(ZoomStep s)
{
    switch (s) {
    case ZoomStep::Z25: return 1024;
    case ZoomStep::Z33: return 1365;
    case ZoomStep::Z50: return 2048;
    case ZoomStep::Z100: return 4096;
    case ZoomStep::Z200: return 8192;
    }
    return 4096;
}

QSize zoomTarget(ZoomStep s, QSize v)
{
    switch (s) {
    case ZoomStep::Z25: return {v.width() / 4, v.height() / 4};
    case ZoomStep::Z33: return {v.width() / 3, v.height() / 3};
    case ZoomStep::Z50: return {v.width() / 2, v.height() / 2};
    case ZoomStep::Z100: return v;
    case ZoomStep::Z200: return {v.width() * 2, v.height() * 2};
    }
    return v;
}

std::optional<ZoomStep> smallerStep(QSize panel, QSize v)
{
    const int W = panel.width() - 8, H = panel.height() - 8;
    const int vw = v.width(), vh = v.height();
    if (W > 2 * vw || H > 2 * vh) return ZoomStep::Z200;
    if (W > vw || H > vh) return ZoomStep::Z100;
    if (W > vw / 2 || H > vh / 2) return ZoomStep::Z50;
    if (W > vw / 3 || H > vh / 3) return ZoomStep::Z33;
    if (W <= vw / 4 && H <= vh / 4) return std::nullopt;
    return ZoomStep::Z25;
}

std::optional<ZoomStep> largerStep(QSize panel, QSize v)
{
    const int W = panel.width() + 8, H = panel.height() + 8;
    const int vw = v.width(), vh = v.height();
    if (W < vw / 4 || H < vh / 4) return ZoomStep::Z25;
    if (W < vw / 3 || H < vh / 3) return ZoomStep::Z33;
    if (W < vw / 2 || H < vh / 2) return ZoomStep::Z50;
    if (W < vw || H < vh) return ZoomStep::Z100;
    if (W < 2 * vw || H < 2 * vh) return ZoomStep::Z200;
    return std::nullopt;
}

std::optional<ZoomStep> stepOfFactor(int32_t factor)
{
    for (ZoomStep s : kZoomSteps)
        if (zoomFactor(s) == factor) return s;
    return std::nullopt;
}

ZoomStep largestStepThatFits(ZoomStep wanted, QSize video, QSize room)
{
    for (auto it = kZoomSteps.rbegin(); it != kZoomSteps.rend(); ++it) {
        if (*it > wanted) continue;
        const QSize target = zoomTarget(*it, video);
        if (target.width() <= room.width() && target.height() <= room.height()) return *it;
    }
    return ZoomStep::Z25;
}

QSize zoomVideoSize(QSize video, bool anamorphic, double scale)
{
    return {anamorphic ? int(video.width() * scale) : video.width(), video.height()};
}

MagnifierGeometry magnifierGeometry(int factor, QSize nominal)
{
    const int f = std::clamp(factor, kMinMagnFactor, kMaxMagnFactor);
    const int W0 = std::max(1, nominal.width()), H0 = std::max(1, nominal.height());
    MagnifierGeometry g;
    int sw = std::max(1, W0 * 256 / f), sh = std::max(1, H0 * 256 / f);
    // An odd count puts one image pixel exactly in the middle, the one the readout reports.
    if (sw % 2 == 0) ++sw;
    if (sh % 2 == 0) ++sh;
    g.source = {sw, sh};
    // Rounded up, so the magnified pixels always cover the nominal size (at 32x: 202 x 122, not 201 x 121).
    const int pw = (W0 * 256 + sw - 1) / sw, ph = (H0 * 256 + sh - 1) / sh;
    g.pixel = {pw, ph};
    g.drawn = {(pw * sw + 255) / 256, (ph * sh + 255) / 256};
    return g;
}

QRect magnifierSourceRect(QPoint point, QSize source)
{
    return {point.x() - source.width() / 2, point.y() - source.height() / 2, source.width(), source.height()};
}

QRect magnifierDrawnRect(QPoint centre, QSize drawn, QSize widget)
{
    int x = centre.x() - drawn.width() / 2, y = centre.y() - drawn.height() / 2;
    if (x < 0) x = 0;
    if (y < 0) y = 0;
    if (x + drawn.width() > widget.width()) x = widget.width() - drawn.width();
    if (y + drawn.height() > widget.height()) y = widget.height() - drawn.height();
    return {x, y, drawn.width(), drawn.height()};
}

QRect magnifierCentrePixel(const QRect &r, const MagnifierGeometry &g)
{
    // Widget pixels whose centres fall into the magnified pixel: its edges rounded to the nearest pixel.
    const int cx = g.source.width() / 2, cy = g.source.height() / 2;
    const int x0 = (cx * g.pixel.width() + 128) / 256, x1 = ((cx + 1) * g.pixel.width() + 128) / 256;
    const int y0 = (cy * g.pixel.height() + 128) / 256, y1 = ((cy + 1) * g.pixel.height() + 128) / 256;
    return {r.x() + x0, r.y() + y0, std::max(1, x1 - x0), std::max(1, y1 - y0)};
}

std::vector<int> magnifierGridLines(int sourceStart, int sourceLength, int pixel256, int gridSize)
{
    std::vector<int> lines;
    if (gridSize <= 0 || sourceLength <= 0) return lines;
    // First multiple of the grid size at or after the start (the start may be negative near the top/left).
    int64_t first = int64_t(sourceStart) / gridSize * gridSize;
    if (first < sourceStart) first += gridSize;
    for (int64_t v = first; v < int64_t(sourceStart) + sourceLength; v += gridSize)
        lines.push_back(int(((v - sourceStart) * pixel256 + 128) / 256));
    return lines;
}

int clampGridSize(int gridSize) { return std::clamp(gridSize, kMinGridSize, kMaxGridSize); }

int gridStep8(double scale, int gridSize) { return int(8.0 * scale * gridSize + 0.5); }

std::vector<int> gridLinePositions(int step8, int length)
{
    std::vector<int> lines;
    if (step8 < 1 || length <= 0) return lines;
    // Steps are kept in 1/8 pixel so the lines do not drift over a wide display.
    for (int64_t acc = step8; acc < int64_t(8) * length; acc += step8) lines.push_back(int(acc / 8));
    return lines;
}

int64_t gridBlockNumber(QPoint p, int imageWidth, int gridSize)
{
    if (gridSize <= 0) return 0;
    const int64_t perRow = (int64_t(imageWidth) + gridSize - 1) / gridSize;
    return int64_t(p.y() / gridSize) * perRow + p.x() / gridSize;
}

} // namespace kavri::view
