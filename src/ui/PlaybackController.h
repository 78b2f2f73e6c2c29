// The playback state of one window: whether it plays, the frame on screen, and what play, pause, stop
// and the seeks ask of the loader and of a linked partner. It has no widgets, so it can be driven and
// checked without a screen.
#pragma once

#include "link/LinkProtocol.h"

#include <QObject>
#include <QString>
#include <atomic>
#include <cstdint>

class KavriLoader;

class PlaybackController : public QObject {
    Q_OBJECT
public:
    explicit PlaybackController(QObject *parent = nullptr);

    // The loader the requests go to (null: no file; every request does nothing). Resets the state.
    void setLoader(KavriLoader *loader);
    KavriLoader *loader() const { return m_loader; }
    // Whether a partner takes our commands; a pause then ends with a seek to the frame on screen.
    void setLinked(bool linked) { m_linked = linked; }

    bool isPlaying() const { return m_playing; }
    uint64_t currentFrame() const { return m_current.load(); }
    // Called on the loader thread for each delivered frame.
    void frameShown(uint64_t index) { m_current.store(index); }
    uint64_t frameCount() const;
    // Frames a workspace of several sequences shares (0: no limit beyond the loader's count).
    void setFrameLimit(uint64_t frames) { m_limit.store(frames); }

    // The user's requests; each is passed on to a linked partner.
    void playPause();
    void stopPlayback();
    // Clamped to the sequence; ends playback.
    void seekTo(int64_t frame);
    void step(int64_t delta) { seekTo(int64_t(currentFrame()) + delta); }
    // One second of video (at least one frame) forward or back.
    void fastStep(int direction);
    // A frame the user picked (slider, go-to dialog): the loader clamps it, and so does the partner for its
    // own length.
    void seekPicked(uint64_t frame, bool dragged);
    void reload();
    // Playback ends without a stop (a seek, a rebuilt record): the play icon comes back, so one Space
    // resumes.
    void endForSeek();
    // The loader ended playback by itself (end of file, a frame that cannot be shown).
    void playbackEnded();
    // Starts playing without telling the partner (a start-up request).
    void startPlaying();

    // A linked partner's commands: performed here and never sent back.
    void remotePlay();
    void remotePause();
    void remoteStop();
    void remoteReload();
    void remoteSeek(uint32_t frame);

signals:
    // To the loader.
    void play();
    void pause();
    void stop();
    void reload_file();
    void seek(uint64_t frame, bool b_remote, bool b_dragged);
    // To the partner.
    void to_partner(kavri::link::Command command, uint32_t argument);
    void playing_changed(bool playing);
    // A sentence for the status bar, shown for a while.
    void hint(const QString &text);

private:
    void setPlaying(bool on);

    KavriLoader *m_loader = nullptr;
    bool m_playing = false;
    bool m_linked = false;
    std::atomic<uint64_t> m_current{0};
    std::atomic<uint64_t> m_limit{0};
};
