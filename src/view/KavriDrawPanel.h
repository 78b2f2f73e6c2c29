// The widget in the centre of the player that shows the current frame. The loader converts each frame
// straight into the panel's back image (handed out by get_buffer on the loader's thread); presentFrame
// swaps back and front under the lock, and painting scales only the part that is shown.
#pragma once

#include "formats/VideoProps.h"
#include "view/OverlayText.h"
#include "view/PanelCompositor.h"
#include "view/PanelGeometry.h"

#include <QFont>
#include <QImage>
#include <QMutex>
#include <QPen>
#include <QWidget>
#include <atomic>
#include <deque>
#include <memory>
#include <utility>

class QPainter;

namespace kavri::view {
// White text on a black outline, readable over any picture (the panel's texts and the compare labels).
void drawOutlined(QPainter &p, const QRect &r, int flags, const QString &text);
} // namespace kavri::view

class KavriDrawPanel : public QWidget {
    Q_OBJECT
public:
    // Starts a drag of the shown frame out of the panel; the main window supplies it.
    class IDragHandler {
    public:
        virtual ~IDragHandler() = default;
        virtual void startFrameDrag() = 0;
    };

    explicit KavriDrawPanel(QWidget *parent = nullptr);
    ~KavriDrawPanel() override;

    void setDragHandler(IDragHandler *h) { m_dragHandler = h; }
    // Several sequences in one panel: while the compositor says it is composing, it draws the panel and
    // takes its gestures (null: the panel draws alone, as always).
    void setCompositor(kavri::view::IPanelCompositor *c) { m_compositor = c; }
    bool composing() const { return m_compositor && m_compositor->composing(); }
    // Number of the frame in the front image (delivered with presentFrame(index)).
    uint64_t frontIndex() const { return m_frontIndex.load(); }

    // Called on the loader thread after a frame was written into the back image: exchanges the images
    // (and whatever else is double-buffered) under the lock and asks for a repaint.
    void presentFrame();
    // The same, also recording the number of the frame presented.
    void presentFrame(uint64_t index);
    // Back to the start-up picture (construction, file closed).
    void resetToStartup();

    void setMaintainAspectRatio(bool on);
    void setAnamorphic(bool on);
    bool maintainAspectRatio() const { return m_maintainAR; }
    bool anamorphic() const { return m_anamorphic; }
    double anamorphicScale() const { return m_anamorphicScale; }
    bool showingStartup() const { return m_showingStartup; }

    void setMagnifier(bool on, bool raiseFactor);
    bool magnifierOn() const { return m_magnifierOn; }
    int magnificationFactor() const { return m_magnFactor; }
    // Image pixel under the magnifier, and where the magnifier was last drawn (empty before).
    QPoint magnifierPoint() const { return m_magnPoint; }
    QRect magnifierRect() const { return m_magnRect; }
    // The readout shown with the magnifier: position text and value text.
    std::pair<QString, QString> readoutTexts() const;

    void setGrid(bool on);
    bool gridOn() const { return m_gridOn; }
    // The cached grid of the last paint (null before the grid was first drawn).
    const QImage &gridCache() const { return m_gridCache; }

    void setHevcOverlay(bool on, int depth, int cuSize);
    bool hevcOverlayOn() const { return m_hevcOn; }

    // The corner texts for the next frame (any thread); presentFrame shows them together with the image.
    void setCornerTexts(const QString &timeText, const QString &differenceText);
    // Which corner texts are drawn: the time text, and the difference text (only with a difference shown).
    void setCornerTextsShown(bool timeText, bool differenceText);
    // The corner texts on screen now.
    std::pair<QString, QString> cornerTexts() const;

    // A copy of the frame on screen (empty while the start-up picture is shown).
    QImage currentFrame() const;
    // Size of the frame images (not widened), or an empty size.
    QSize frameSize() const;
    // Geometry of the last paint.
    kavri::view::DisplayRect displayRect() const { return m_display; }
    // The format record that came with the newest buffer request.
    VideoProps formatContext() const;

    QPoint mapToImage(QPoint widgetPos) const;
    QPoint mapToView(QPoint imagePos) const;

    QSize sizeHint() const override;

signals:
    void size_changed(QSize size);
    void notify_size_changed();
    void getNativeAt(bool *ok, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                     int32_t *alpha);
    void magnifier_on();
    void magnifier_off();
    void _update();

public slots:
    // The loader's request for the image to convert the next frame into (synchronous, loader thread).
    void get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data);
    void get_buffer(uint8_t **pp_frame, QSize size) { get_buffer(pp_frame, size, nullptr); }
    void on_size_changed(QSize size);
    void on_force_size(QSize size);
    // Reads the values under the magnifier again (GUI thread; after a new frame or a format change).
    void refreshReadout();

protected:
    void paintEvent(QPaintEvent *e) override;
    void mousePressEvent(QMouseEvent *e) override;
    void mouseMoveEvent(QMouseEvent *e) override;
    void mouseReleaseEvent(QMouseEvent *e) override;
    void wheelEvent(QWheelEvent *e) override;
    void keyPressEvent(QKeyEvent *e) override;
    void keyReleaseEvent(QKeyEvent *e) override;
    bool eventFilter(QObject *watched, QEvent *e) override;

private:
    QSize wantedSize(QSize image) const;
    // Asks the loader for the stored samples at the magnifier point and formats them into the spare pair.
    void readValues();
    void moveMagnifierPoint(int dx, int dy);
    void endAltTemporary();
    void clearMarks();
    // Painting helpers; all run with m_lock held.
    void paintMarks(const QSize &image);
    void paintGrid(QPainter &p, const QSize &image);
    void paintMagnifier(QPainter &p, const QImage &front);
    void paintCornerTexts(QPainter &p);

    mutable QMutex m_lock; // guards the image objects against the loader thread
    std::unique_ptr<QImage> m_back, m_front, m_overlay;
    bool m_overlayUsed = false; // a mark has been drawn into the overlay since it was last cleared
    bool m_showingStartup = true;
    VideoProps m_context;
    QSize m_pendingSize{-1, -1};

    bool m_maintainAR = true;
    bool m_anamorphic = false;
    double m_anamorphicScale = 1.77;
    bool m_magnifierOn = false;
    int m_magnFactor = 520;
    int m_savedMagnFactor = 520;

    // Magnifier: the image pixel it shows, its widget position (centre) and the offset of a drag inside it.
    QPoint m_magnPoint{-1, -1};
    QPoint m_magnPos;
    QPoint m_grabOffset;
    bool m_magnMoving = false;
    QRect m_magnRect;
    bool m_altTemporary = false; // switched on by holding Alt; off again when it is released
    bool m_hexValues = false;
    std::atomic<bool> m_refreshQueued{false};

    bool m_gridOn = false;
    int m_gridSize = 16;
    QImage m_gridCache;
    int m_gridCacheSize = -1; // grid size the cache was built for, -1 = none
    float m_gridScaleX = 0.f, m_gridScaleY = 0.f;

    bool m_hevcOn = false;
    kavri::view::HevcOverlay m_hevc;

    // Readout and corner texts: built into the spare strings, exchanged under the text lock.
    mutable QMutex m_textLock;
    QString m_posText, m_valueText, m_sparePos, m_spareValue;
    QString m_timeText, m_diffText, m_spareTime, m_spareDiff;
    bool m_timeTextOn = false, m_diffTextOn = false;

    // Freehand mark: previous point in image pixels, current point in widget coordinates.
    QPoint m_markPrev{-1, -1}, m_markCur{-1, -1};
    bool m_marking = false;

    kavri::view::DisplayRect m_display;
    QPoint m_mousePos;
    QPoint m_dragStart{-1, -1};
    std::deque<int> m_wheelHistory;
    QSize m_wanted{-1, -1};
    QSize m_forcedSize{-1, -1};
    QFont m_font;
    QPen m_markPen;
    IDragHandler *m_dragHandler = nullptr;
    kavri::view::IPanelCompositor *m_compositor = nullptr;
    std::atomic<uint64_t> m_frontIndex{0};
    uint64_t m_pendingIndex = 0; // under m_lock: the number presentFrame(index) makes the front's
};
