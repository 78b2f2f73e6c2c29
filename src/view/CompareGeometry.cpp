#include "view/CompareGeometry.h"

#include <QString>
#include <algorithm>
#include <cmath>

namespace kavri::view {

std::vector<QRect> tileRects(CompareMode mode, int count, QSize widget, int gap)
{
    const int w = std::max(0, widget.width()), h = std::max(0, widget.height());
    if (mode != CompareMode::SideBySide || count <= 1) return {QRect(0, 0, w, h)};
    // The left/top tile takes the odd pixel: (w - gap + 1) / 2.
    const int leftW = std::max(0, (w - gap + 1) / 2), rightW = std::max(0, w - gap - leftW);
    if (count == 2) return {QRect(0, 0, leftW, h), QRect(w - rightW, 0, rightW, h)};
    const int topH = std::max(0, (h - gap + 1) / 2), bottomH = std::max(0, h - gap - topH);
    std::vector<QRect> r = {QRect(0, 0, leftW, topH), QRect(w - rightW, 0, rightW, topH),
                            QRect(0, h - bottomH, leftW, bottomH), QRect(w - rightW, h - bottomH, rightW, bottomH)};
    r.resize(size_t(std::min(count, 4)));
    return r;
}

int wipeLine(const Wipe &w, const QRect &picture)
{
    const double p = std::clamp(w.position, 0.0, 1.0);
    if (w.orientation == WipeOrientation::Vertical) return picture.left() + int(std::lround(p * picture.width()));
    return picture.top() + int(std::lround(p * picture.height()));
}

int wipeSide(const Wipe &w, const QRect &picture, QPoint p)
{
    const int line = wipeLine(w, picture);
    const int c = w.orientation == WipeOrientation::Vertical ? p.x() : p.y();
    return c < line ? 0 : 1;
}

std::pair<QRect, QRect> wipeParts(const Wipe &w, const QRect &picture)
{
    const int line = wipeLine(w, picture);
    if (w.orientation == WipeOrientation::Vertical) {
        const int firstW = line - picture.left();
        return {QRect(picture.left(), picture.top(), firstW, picture.height()),
                QRect(line, picture.top(), picture.width() - firstW, picture.height())};
    }
    const int firstH = line - picture.top();
    return {QRect(picture.left(), picture.top(), picture.width(), firstH),
            QRect(picture.left(), line, picture.width(), picture.height() - firstH)};
}

double wipePositionAt(WipeOrientation o, const QRect &picture, QPoint p)
{
    const bool v = o == WipeOrientation::Vertical;
    const int length = v ? picture.width() : picture.height();
    if (length <= 0) return 0.5;
    const double at = v ? p.x() - picture.left() : p.y() - picture.top();
    return std::clamp(at / length, 0.0, 1.0);
}

double clampFreeZoom(double zoom)
{
    if (!(zoom > 0)) return 1.0; // NaN and non-positive zooms come from no sensible input
    return std::clamp(zoom, kMinFreeZoom, kMaxFreeZoom);
}

QPointF viewToImage(QPointF v, const FreeZoom &z) { return (v - z.offset) / z.zoom; }

QPointF imageToView(QPointF image, const FreeZoom &z) { return image * z.zoom + z.offset; }

QPoint viewToImagePixel(QPointF v, const FreeZoom &z)
{
    const QPointF p = viewToImage(v, z);
    return QPoint(int(std::floor(p.x())), int(std::floor(p.y())));
}

double steppedZoom(double zoom, int steps)
{
    // Half-octave k is the zoom 2^(k/2); the nearest k is found in the log domain, so a zoom that is
    // already on the grid (up to rounding) moves by exactly `steps` of them.
    const double k = std::round(2.0 * std::log2(clampFreeZoom(zoom)));
    return clampFreeZoom(std::exp2((k + steps) / 2.0));
}

FreeZoom zoomAbout(const FreeZoom &z, double newZoom, QPointF anchor)
{
    const double nz = clampFreeZoom(newZoom);
    const QPointF under = viewToImage(anchor, z);
    return FreeZoom{nz, anchor - under * nz};
}

FreeZoom clampPan(const FreeZoom &z, QSize image, QSize view)
{
    FreeZoom r = z;
    auto axis = [](double offset, double picture, double room) {
        if (picture <= room) return std::round((room - picture) / 2.0);
        return std::clamp(offset, room - picture, 0.0);
    };
    r.offset.setX(axis(z.offset.x(), image.width() * z.zoom, view.width()));
    r.offset.setY(axis(z.offset.y(), image.height() * z.zoom, view.height()));
    return r;
}

QRectF zoomedPicture(const FreeZoom &z, QSize image)
{
    return QRectF(z.offset, QSizeF(image.width() * z.zoom, image.height() * z.zoom));
}

QString zoomText(double zoom)
{
    // Four significant digits: 6.25 % and 6400 % exactly, the half-octaves between as 141.4 %.
    return QStringLiteral("Zoom %1%").arg(QString::number(zoom * 100.0, 'g', 4));
}

} // namespace kavri::view
