// The draw panel's geometry as small pure functions: where the scaled frame sits in the widget, how widget
// positions map to image pixels and back, and the zoom steps of the Size menu.
#pragma once

#include <QPoint>
#include <QSize>
#include <array>
#include <cstdint>
#include <optional>

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
// The video size the zoom menu works with: width truncated after the anamorphic widening.
QSize zoomVideoSize(QSize video, bool anamorphic, double scale);

} // namespace kavri::view
