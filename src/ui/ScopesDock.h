// The scopes panel: histogram, waveform, vectorscope and the statistics table of the frame on screen.
// Frames reach it from the loader's thread through a scope feed, which skips them while its worker is
// busy; the panel only paints the results it is handed, so playback never waits for it.
#pragma once

#include "loader/ScopeFeed.h"

#include <QDockWidget>
#include <atomic>

#include <memory>

class QCheckBox;
class QLabel;
class QTableWidget;
struct frame_t;

namespace kavri::view {
class HistogramView;
class WaveformView;
class VectorscopeView;
} // namespace kavri::view

namespace kavri::ui {

class ScopesDock : public QDockWidget {
    Q_OBJECT
public:
    explicit ScopesDock(QWidget *parent = nullptr);
    ~ScopesDock() override;

    // From the loader's thread for every delivered frame (see frame_t::samples): offers it to the feed,
    // which copies it only when its worker is idle. Does nothing while the panel is hidden. A frame of
    // playback is offered in the pause after it instead (framePause), so the copy does not lengthen its
    // period.
    void frameShown(const frame_t *f);
    void framePause(const frame_t *f, qint64 pauseNs);
    // Forgets the frame shown and any result on its way (the file was closed).
    void clear();
    // The window's play state (GUI thread). While playing the panel takes at most kPlayingRate frames a
    // second; once stopped, a frame on screen that the feed skipped is asked for again (frameWanted).
    void setPlaying(bool playing);
    static constexpr int kPlayingRate = 15;
    // Whether the last frame offered was skipped, so the scopes show an earlier one.
    bool isBehind() const { return m_behind.load(); }

    ScopeFeed &feed() { return *m_feed; }
    // The frame whose scopes are shown, or -1 for none.
    qint64 shownFrame() const { return m_shownFrame; }
    view::HistogramView *histogram() const { return m_histogram; }
    view::WaveformView *waveform() const { return m_waveform; }
    view::VectorscopeView *vectorscope() const { return m_vectorscope; }
    QTableWidget *table() const { return m_table; }
    QCheckBox *logarithmic() const { return m_log; }
    QCheckBox *parade() const { return m_parade; }

signals:
    // A result was put on screen.
    void shown(qint64 frame);
    // The user closed the panel.
    void closed();
    // Playback has stopped and the scopes show an earlier frame than the one on screen: the window hands the
    // frame on screen again (a redisplay, no read).
    void frameWanted();

protected:
    void closeEvent(QCloseEvent *e) override;
    void showEvent(QShowEvent *e) override;
    void hideEvent(QHideEvent *e) override;

private:
    void showResult();
    void fillTable(const pixel::FrameStatistics &s);

    std::unique_ptr<ScopeFeed> m_feed;
    QLabel *m_title = nullptr;
    QCheckBox *m_log = nullptr;
    QCheckBox *m_parade = nullptr;
    view::HistogramView *m_histogram = nullptr;
    view::WaveformView *m_waveform = nullptr;
    view::VectorscopeView *m_vectorscope = nullptr;
    QTableWidget *m_table = nullptr;
    qint64 m_shownFrame = -1;
    bool m_playing = false;
    std::atomic<bool> m_behind{false}; // written on the loader thread by frameShown and framePause
};

} // namespace kavri::ui
