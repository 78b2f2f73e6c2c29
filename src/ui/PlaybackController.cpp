#include "ui/PlaybackController.h"

#include "loader/KavriLoader.h"

#include <algorithm>

namespace {
const char *const kNoRateHint = "No frame rate to play at: give one with -r RATE, or set it in Format (Ctrl+F)";
}

PlaybackController::PlaybackController(QObject *parent) : QObject(parent) {}

void PlaybackController::setLoader(KavriLoader *loader)
{
    m_loader = loader;
    m_current.store(0);
    setPlaying(false);
}

uint64_t PlaybackController::frameCount() const
{
    if (!m_loader) return 0;
    const uint64_t n = m_loader->frameCount(), limit = m_limit.load();
    return limit > 0 ? std::min(n, limit) : n;
}

void PlaybackController::setPlaying(bool on)
{
    if (m_playing == on) return;
    m_playing = on;
    emit playing_changed(on);
}

void PlaybackController::playPause()
{
    if (!m_loader) return;
    // A rate of 0 has no period: the loader would wait forever for the next frame. Say how to get one
    // instead of showing a pause icon over a still picture.
    if (!m_playing && !(m_loader->pendingProps().frameRate > 0)) {
        emit hint(QString::fromLatin1(kNoRateHint));
        return;
    }
    const bool playing = !m_playing;
    setPlaying(playing);
    if (playing)
        emit play();
    else
        emit pause();
    emit to_partner(playing ? kavri::link::Command::Play : kavri::link::Command::Pause, 0);
    if (!playing && m_linked && !m_loader->isStdin()) {
        // The partner may have shown one frame more or less when the pause reaches it. Once our loader
        // has taken the pause (a synchronous post: no frame is delivered after it) the frame on screen is
        // final, and a seek to it puts both players on the same frame. An older partner that ignores the
        // seek simply stays where it paused.
        m_loader->postCommand(KavriLoader::kCmdPause, 0);
        emit to_partner(kavri::link::Command::Seek, uint32_t(currentFrame()));
    }
}

void PlaybackController::startPlaying()
{
    if (!m_loader) return;
    setPlaying(true);
    emit play();
}

void PlaybackController::stopPlayback()
{
    if (!m_loader) return;
    setPlaying(false);
    emit stop();
    emit to_partner(kavri::link::Command::Stop, 0);
}

void PlaybackController::seekTo(int64_t f)
{
    if (!m_loader) return;
    const uint64_t n = frameCount();
    if (f < 0) f = 0;
    if (n > 0 && uint64_t(f) >= n) f = int64_t(n - 1);
    endForSeek();
    emit seek(uint64_t(f), false, false);
    emit to_partner(kavri::link::Command::Seek, uint32_t(f));
}

void PlaybackController::fastStep(int direction)
{
    if (!m_loader) return;
    const int64_t second = std::max<int64_t>(1, int64_t(m_loader->pendingProps().frameRate + 0.5));
    step(direction < 0 ? -second : second);
}

void PlaybackController::seekPicked(uint64_t frame, bool dragged)
{
    if (!m_loader) return;
    endForSeek();
    emit seek(frame, false, dragged);
    emit to_partner(kavri::link::Command::Seek, uint32_t(frame));
}

void PlaybackController::reload()
{
    if (!m_loader) return;
    emit reload_file();
    emit to_partner(kavri::link::Command::Reload, 0);
}

void PlaybackController::endForSeek()
{
    // A seek or a rebuilt record ends the loader's play loop and playback does not resume by itself.
    setPlaying(false);
}

void PlaybackController::playbackEnded() { setPlaying(false); }

void PlaybackController::remotePlay()
{
    if (!m_loader) return;
    setPlaying(true);
    emit play();
}

void PlaybackController::remotePause()
{
    if (!m_loader) return;
    setPlaying(false);
    emit pause();
}

void PlaybackController::remoteStop()
{
    if (!m_loader) return;
    setPlaying(false);
    emit stop();
}

void PlaybackController::remoteReload()
{
    if (m_loader) emit reload_file();
}

void PlaybackController::remoteSeek(uint32_t f)
{
    if (!m_loader) return;
    setPlaying(false);
    // The loader clamps a frame beyond the end.
    emit seek(uint64_t(f), true, false);
}
