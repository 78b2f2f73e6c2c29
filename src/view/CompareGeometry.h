// Geometry of a window showing several sequences at once, as pure functions: where each view's tile
// lies, which sequence a wipe shows at a widget pixel, and the free zoom and pan that all views share.
#pragma once

#include <QPointF>
#include <QRect>
#include <QSize>
#include <QSizeF>
#include <vector>

namespace kavri::view {

// How a workspace is shown. Single shows one sequence; SideBySide puts two next to each other and three
// or four in a 2x2 grid; Wipe and Flicker show two chosen ones in one picture; Difference shows the
// difference of two chosen ones.
enum class CompareMode { Single, SideBySide, Wipe, Flicker, Difference };

// Pixels left between tiles, so the eye can tell where one picture ends.
inline constexpr int kTileGap = 2;

// The tiles of `count` views (1..4) in a widget: one tile for everything but side by side, which gives two
// views left and right halves and three or four the quarters of a 2x2 grid (row by row). Tiles never
// overlap and stay inside the widget; an odd pixel goes to the left or top tile.
std::vector<QRect> tileRects(CompareMode mode, int count, QSize widget, int gap = kTileGap);

// A wipe's split line: vertical (the first sequence left of it) or horizontal (the first above it).
enum class WipeOrientation { Vertical, Horizontal };
struct Wipe {
    WipeOrientation orientation = WipeOrientation::Vertical;
    double position = 0.5; // of the picture's width (vertical) or height (horizontal), 0..1
};

// Widget coordinate of the split line over a picture drawn at `picture`.
int wipeLine(const Wipe &w, const QRect &picture);
// Which of the two sequences (0 the first, 1 the second) the wipe shows at widget pixel `p`.
int wipeSide(const Wipe &w, const QRect &picture, QPoint p);
// The part of `picture` each side shows: first and second.
std::pair<QRect, QRect> wipeParts(const Wipe &w, const QRect &picture);
// The split position a mouse at `p` drags the line to, clamped to the picture.
double wipePositionAt(WipeOrientation o, const QRect &picture, QPoint p);

// ---- free zoom and pan ----

inline constexpr double kMinFreeZoom = 1.0 / 16.0;
inline constexpr double kMaxFreeZoom = 64.0;

// Widget pixels per image pixel, and where the image's top-left corner lies relative to the view's
// top-left corner. The same transform applies inside every tile.
struct FreeZoom {
    double zoom = 1.0;
    QPointF offset;
};

double clampFreeZoom(double zoom);
// Image position (fractional) under view position `v`, and back.
QPointF viewToImage(QPointF v, const FreeZoom &z);
QPointF imageToView(QPointF image, const FreeZoom &z);
// Image pixel under view position `v` (may lie outside the image).
QPoint viewToImagePixel(QPointF v, const FreeZoom &z);
// The zoom `steps` half-octaves away from `zoom`, on the grid of powers of the square root of two, so
// repeated steps pass through 100 % exactly; clamped to 1/16 .. 64.
double steppedZoom(double zoom, int steps);
// Changes the zoom to `newZoom` (clamped) keeping the image point under `anchor` where it is.
FreeZoom zoomAbout(const FreeZoom &z, double newZoom, QPointF anchor);
// Keeps the picture reachable in a view of `view` pixels: along an axis where the zoomed picture is
// larger than the view it can be moved until its edge meets the view's edge, never further; where it is
// smaller it is centred.
FreeZoom clampPan(const FreeZoom &z, QSize image, QSize view);
// The view rectangle the zoomed picture covers.
QRectF zoomedPicture(const FreeZoom &z, QSize image);
// Status-line text of a zoom: "Zoom 100%", "Zoom 6.25%", "Zoom 6400%".
QString zoomText(double zoom);

} // namespace kavri::view
