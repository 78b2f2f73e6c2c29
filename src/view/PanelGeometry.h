// The draw panel's geometry as small pure functions: where the scaled frame sits in the widget, how widget
// positions map to image pixels and back, and the zoom steps of the Size menu.
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace kavri::view {

struct DisplayRect {
    int x = 0, y = 0;          // top-left corner of the scaled frame inside the widget
    int width = 0, height = 0; // size of the scaled frame
};

// Width of a frame shown anamorphically: round(w * scale), as the paint path and the size request use it.
int anamorphicWidth(int width, bool anamorphic, double scale);

// Where a frame of `image` pixels is drawn in a widget of `widget` pixels. Without the aspect ratio kept
// it fills the widget; with it, it is centred with integer halving of the border.
DisplayRect paintGeometry(QSize widget, QSize image, bool maintainAspect, bool anamorphic, double anamorphicScale);

// Widget point to image pixel, rounding up, clamped into the image. `image` is the unwidened frame size.
QPoint widgetToImage(QPoint widgetPos, const DisplayRect &d, QSize image);
// Image pixel to the widget position of its top-left corner (rounding down; a round trip is not the identity).
QPoint imageToWidget(QPoint imagePos, const DisplayRect &d, QSize image);

enum class ZoomStep { Z25, Z33, Z50, Z100, Z200 };
inline constexpr std::array<ZoomStep, 5> kZoomSteps = {ZoomStep::Z25, ZoomStep::Z33, ZoomStep::Z50, ZoomStep::Z100,
                                                       ZoomStep::Z200};
// Zoom factor of a step in 1/4096: 1024, 1365, 2048, 4096, 8192.
int32_t zoomFactor(ZoomStep step);
// The panel size a step asks for, given the video size (already widened when anamorphic).
QSize zoomTarget(ZoomStep step, QSize video);
// The step "Smaller" / "Larger" picks for a panel of the given size; none when already at the end.
// An 8-pixel slack keeps a panel a few pixels off a step from counting as beyond it.
std::optional<ZoomStep> smallerStep(QSize panel, QSize video);
std::optional<ZoomStep> largerStep(QSize panel, QSize video);
// The step of a stored zoom factor (1/4096 units); none for a factor that is not one of the five.
std::optional<ZoomStep> stepOfFactor(int32_t factor);
// `wanted`, or the largest smaller step whose panel fits in `room` (the screen less the window's own
// menus, bars and frame); 25 % when none fits.
ZoomStep largestStepThatFits(ZoomStep wanted, QSize video, QSize room);
// The video size the zoom menu works with: width truncated after the anamorphic widening.
QSize zoomVideoSize(QSize video, bool anamorphic, double scale);

// ---- magnifier ----

// Widget size the magnifier aims for; the drawn size differs by the rounding of whole magnified pixels.
inline constexpr QSize kMagnifierSize{201, 121};
inline constexpr int kMinMagnFactor = 256;  // 1x, in 1/256
inline constexpr int kMaxMagnFactor = 8192; // 32x

struct MagnifierGeometry {
    QSize source; // image pixels shown, both odd so there is a centre pixel
    QSize pixel;  // size of one magnified pixel in 1/256 widget pixels
    QSize drawn;  // widget pixels covered
};
// Geometry at magnification `factor` (1/256 units; clamped to the magnifier's range).
MagnifierGeometry magnifierGeometry(int factor, QSize nominal = kMagnifierSize);
// The image pixels shown around `point` (may reach outside the image).
QRect magnifierSourceRect(QPoint point, QSize source);
// Where the magnifier is drawn: centred on `centre`, then moved to lie inside the widget (left/top first).
QRect magnifierDrawnRect(QPoint centre, QSize drawn, QSize widget);
// Widget rectangle of the centre pixel inside `drawnRect`.
QRect magnifierCentrePixel(const QRect &drawnRect, const MagnifierGeometry &g);
// Offsets (widget pixels from the drawn edge, rounded) of the grid lines inside the magnifier along one axis: one
// line at each multiple of `gridSize` image pixels within the `sourceLength` pixels starting at `sourceStart`.
std::vector<int> magnifierGridLines(int sourceStart, int sourceLength, int pixel256, int gridSize);

// ---- pixel grid ----

inline constexpr int kMinGridSize = 4;
inline constexpr int kMaxGridSize = 128;
int clampGridSize(int gridSize);
// Distance between grid lines in 1/8 widget pixels: trunc(8 * scale * gridSize + 0.5).
int gridStep8(double scale, int gridSize);
// Line positions (widget pixels) for a display `length` pixels long; none for a step below 1/8 pixel.
std::vector<int> gridLinePositions(int step8, int length);
// Number of the grid block holding image pixel `p`, counted row by row.
int64_t gridBlockNumber(QPoint p, int imageWidth, int gridSize);

} // namespace kavri::view
