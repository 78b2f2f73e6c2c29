// What the draw panel hands its picture to when several sequences (or a freely zoomed one) are shown: the
// compositor draws the whole panel from the panel's own frame and the frames it holds itself, and takes
// the mouse gestures that belong to it (the wipe line, panning, free zoom).
#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <cstdint>

class QMouseEvent;
class QPainter;
class QWheelEvent;

namespace kavri::view {

// The panel's own overlays, for the compositor to draw over every view.
struct PanelOverlays {
    bool grid = false;
    int gridSize = 16;
    bool magnifier = false;
    QPoint magnifierPoint{-1, -1}; // image pixel
    int magnifierFactor = 520;     // 1/256
    QPoint magnifierPos;           // widget position of the magnifier the user moves
};

class IPanelCompositor {
public:
    virtual ~IPanelCompositor() = default;
    // Whether the compositor draws the panel now (otherwise the panel draws as it always does).
    virtual bool composing() const = 0;
    // Draws the whole widget. `front` is the panel's frame (the first sequence), number `frontIndex`;
    // called from paintEvent with the panel's image lock held. Returns where the magnifier of the view
    // under the mouse was drawn (empty without one), for the panel's hit test.
    virtual QRect paintComposed(QPainter &p, const QImage &front, uint64_t frontIndex, QSize widget,
                                const PanelOverlays &overlays) = 0;
    // Image pixel under a widget point, and the widget point of an image pixel in the first view.
    virtual QPoint imageAt(QPoint widgetPos) const = 0;
    virtual QPoint viewOf(QPoint imagePos) const = 0;
    // Gestures the compositor takes; true when it took the event.
    virtual bool mousePress(QMouseEvent *e) = 0;
    virtual bool mouseMove(QMouseEvent *e) = 0;
    virtual bool mouseRelease(QMouseEvent *e) = 0;
    virtual bool wheel(QWheelEvent *e) = 0;
    // The picture on screen, as composed (for saving and copying).
    virtual QImage composedImage() const = 0;
};

} // namespace kavri::view
