#include "view/PanelGeometry.h"

#include <algorithm>

namespace kavri::view {

int anamorphicWidth(int width, bool anamorphic, double scale)
{
    return anamorphic ? int(width * scale + 0.5) : width;
}

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

QSize zoomVideoSize(QSize video, bool anamorphic, double scale)
{
    return {anamorphic ? int(video.width() * scale) : video.width(), video.height()};
}

} // namespace kavri::view
