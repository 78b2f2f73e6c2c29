// Up to four sequences in one window, played in lock-step. The window's own loader shows the first; each
// further one has a loader of its own that follows the first frame by frame. The workspace composes the
// panel from all of them (side by side, one at a time, wipe, flicker or the difference of two) and holds
// the free zoom and pan that every view shares.
#pragma once

#include "formats/CompareSet.h"
#include "loader/Frame.h"
#include "ui/CompareDifference.h"
#include "view/CompareGeometry.h"
#include "view/PanelCompositor.h"

#include <QImage>
#include <QMutex>
#include <QObject>
#include <QPointF>
#include <QStringList>
#include <QTimer>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class KavriDrawPanel;
class KavriLoader;
class PlaybackController;

namespace kavri::ui {

class CompareSource;

class CompareWorkspace : public QObject, public view::IPanelCompositor {
    Q_OBJECT
public:
    CompareWorkspace(KavriDrawPanel *panel, PlaybackController *playback, QObject *parent = nullptr);
    ~CompareWorkspace() override;

    // The first sequence: the window's loader (null when no file is open). A new one ends the workspace.
    void setPrimary(KavriLoader *loader);
    // Asked when a file added has no playable format; calls `changed` once the user has set one.
    void setFormatAsker(std::function<void(KavriLoader *, std::function<void()>)> ask) { m_askFormat = std::move(ask); }

    // Adds a sequence; an empty string when it was added, otherwise why not.
    QString add(const QString &path);
    // Removes sequence `index` (1..count-1; the first is the window's own file).
    bool remove(int index);
    int count() const { return 1 + int(m_sources.size()); }
    QStringList files() const;
    // Frames all sequences have (the window's count alone with one sequence).
    uint64_t frameCount() const;
    // Whether every sequence holds frame `index` now.
    bool ready(uint64_t index) const;

    // Called on the window's loader thread for every frame it delivered: the others follow.
    void primaryShown(const frame_t &f);

    view::CompareMode mode() const { return m_mode; }
    void setMode(view::CompareMode mode);
    // Single view of sequence `index` (0-based).
    void showSingle(int index);
    // The two sequences wipe, flicker and difference use.
    void setPair(int first, int second);
    std::pair<int, int> pair() const { return {m_first, m_second}; }
    void toggleFlicker();
    void setAutoFlicker(bool on);
    bool autoFlickerOn() const { return m_flickerTimer.isActive(); }
    bool flickerShowsSecond() const { return m_flickerSecond; }
    void setWipe(const view::Wipe &w);
    view::Wipe wipe() const { return m_wipe; }
    // Status-line text of the mode: "Compare 4: side by side", "wipe 1|2", ...
    QString modeText() const;

    // Free zoom: off until the first zoom step; zooms about `anchor` (panel coordinates).
    void zoomSteps(int steps, QPointF anchor);
    void endFreeZoom();
    bool freeZoomOn() const { return m_freeZoom; }
    view::FreeZoom freeZoom() const { return m_zoom; }
    QString zoomText() const;

    // The difference view's text: PSNR and MSE of the pair at the frame last differenced, or why the two
    // cannot be differenced; empty outside that view.
    QString differenceText() const { return m_differenceText; }
    // The frame the difference picture was last formed for (UINT64_MAX: none yet).
    uint64_t differenceIndex() const { return m_differenceIndex; }

    // The readout of every shown sequence at image pixel `p`.
    QString readoutAt(QPoint p, bool hex) const;

    // IPanelCompositor
    bool composing() const override;
    QRect paintComposed(QPainter &p, const QImage &front, uint64_t frontIndex, QSize widget,
                        const view::PanelOverlays &overlays) override;
    QPoint imageAt(QPoint widgetPos) const override;
    QPoint viewOf(QPoint imagePos) const override;
    bool mousePress(QMouseEvent *e) override;
    bool mouseMove(QMouseEvent *e) override;
    bool mouseRelease(QMouseEvent *e) override;
    bool wheel(QWheelEvent *e) override;
    QImage composedImage() const override;
    // Pictures composed from a new set of frames since the workspace was made (for measuring).
    uint64_t composedCount() const { return m_composedCount; }

signals:
    // Sequences, mode or zoom changed: the window updates its status line and actions.
    void changed();

private:
    // One view on screen: whose picture, and where.
    struct View {
        int sequence = 0; // 0 the window's, 1.. the sources; -1 the difference pair
        QRect tile;
    };
    std::vector<View> views(QSize widget) const;
    // Where the picture of a view lies in its tile.
    QRectF pictureIn(const QRect &tile, QSize image) const;
    QSize imageSize() const;
    QString nameOf(int sequence) const;
    // The difference view takes the pair's stored samples as their loaders deliver them.
    void keepPairSamples(bool on);
    // Forms the difference of the pair once both hold the first sequence's frame (GUI thread).
    void updateDifference();
    void onDelivered();
    void refreshReadout();
    void afterChange();

    KavriDrawPanel *m_panel;
    PlaybackController *m_playback;
    KavriLoader *m_primary = nullptr;
    // Guards the list against the window's loader thread, which asks the sources to follow.
    mutable QMutex m_sourcesLock;
    std::vector<std::unique_ptr<CompareSource>> m_sources;
    std::function<void(KavriLoader *, std::function<void()>)> m_askFormat;
    std::atomic<uint64_t> m_primaryIndex{0};
    std::atomic<bool> m_overrun{false};

    // The difference view: each of the pair read with its own record, brought to a common one.
    CompareDifference m_differ;
    QImage m_differencePicture;
    uint64_t m_differenceIndex = UINT64_MAX;
    QString m_differenceText;
    std::atomic<bool> m_differenceQueued{false};
    // The first sequence's samples, copied on its loader thread while the difference view needs them.
    std::atomic<bool> m_keepPrimary{false};
    mutable QMutex m_primarySamplesLock;
    std::vector<uint8_t> m_primarySamples;
    VideoProps m_primarySampleProps;
    uint64_t m_primarySamplesIndex = UINT64_MAX;

    view::CompareMode m_mode = view::CompareMode::Single;
    int m_single = 0;
    int m_first = 0, m_second = 1;
    bool m_flickerSecond = false;
    QTimer m_flickerTimer;
    view::Wipe m_wipe;
    bool m_draggingWipe = false;

    bool m_freeZoom = false;
    view::FreeZoom m_zoom;
    QSize m_zoomView; // tile size the zoom was clamped for
    QPoint m_panStart{-1, -1};
    QPointF m_panOffset;

    // The last composed picture: shown again while the sequences do not all hold the same frame.
    QImage m_composite;
    uint64_t m_compositeIndex = UINT64_MAX;
    uint64_t m_composedCount = 0;
    // The multi-sequence readout, computed on the GUI thread outside painting.
    mutable QPoint m_readoutPoint{-1, -1};
    QString m_readout;
    bool m_hex = false;
};

} // namespace kavri::ui
