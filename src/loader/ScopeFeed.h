// Hands the samples of the frame on screen to the scopes without ever making the loader wait: a frame is
// copied only when the scope worker is idle (otherwise it is skipped, never queued), the scopes are
// worked out on the feed's own thread, and the newest result waits in one slot for the window to take.
#pragma once

#include "formats/ColourDescription.h"
#include "pixel/ScopeData.h"

#include <QObject>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

class QThread;
struct frame_t;

namespace kavri {

// The scopes of one frame, as the worker finished them.
struct ScopeResult {
    uint64_t frameIndex = 0;
    pixel::StatisticsFormat format;
    ColourDescription colour;
    pixel::ScopeData data;
};

class ScopeFeed : public QObject {
    Q_OBJECT
public:
    explicit ScopeFeed(const pixel::ScopeOptions &options = {}, QObject *parent = nullptr);
    ~ScopeFeed() override;

    // Any thread; in the player the loader's, from inside new_frame. Copies the frame's samples for the
    // worker when it is idle and returns true; returns false at once when it is busy or the feed is
    // switched off (the frame is skipped). The samples must stay put only for the call.
    bool offer(const frame_t &frame);
    bool offer(uint64_t frameIndex, const pixel::StatisticsFormat &format, const ColourDescription &colour,
               const uint8_t *samples, size_t bytes);

    // The player's two doors (loader thread). A frame that playback delivered is not copied inside
    // new_frame, where the copy would lengthen the frame's period, but in the pause after it
    // (offerInPause), and only when the pause is long enough for the copy with room to spare; any other
    // frame (a seek, a step, a redisplay) is offered at once. Both return whether the frame was taken.
    bool offerShown(const frame_t &frame);
    bool offerInPause(const frame_t &frame, std::chrono::nanoseconds pause);
    // What a copy of `bytes` bytes is expected to take: from the copies made so far, or a cautious guess
    // before the first.
    std::chrono::nanoseconds expectedCopyTime(size_t bytes) const;

    // The waveform of YUV layouts as red, green and blue instead of luma (ScopeOptions::yuvParade), from
    // the next frame the worker takes.
    void setYuvParade(bool on) { m_parade.store(on); }

    // The shortest time between two frames the worker takes (zero, the default: whenever it is free). A
    // frame offered sooner is skipped like one that finds the worker busy. During playback the player asks
    // for a gap, so that the copy and the scope work leave the cores to playback.
    void setMinimumGap(std::chrono::nanoseconds gap) { m_minimumGap.store(gap.count()); }
    // Tests: the clock the gap is measured with (the steady clock when unset). Set before the first offer.
    void setClock(std::function<std::chrono::steady_clock::time_point()> now) { m_now = std::move(now); }

    // Off: every offer is refused without a copy (no scope is shown). On by default.
    void setEnabled(bool on) { m_enabled.store(on); }
    bool isEnabled() const { return m_enabled.load(); }

    // Forgets what was offered so far: a result of a frame offered before this call is never handed out
    // (a closed or reopened file must not show the scopes of the old one).
    void forget();

    // The newest finished result, or null when there is none since the last take (GUI thread).
    std::shared_ptr<const ScopeResult> take();

    // Tests: called on the worker before each frame's work, to hold it busy for as long as they need. Set
    // before the first offer; whatever it uses must outlive the feed.
    void setWorkGate(std::function<void()> gate) { m_gate = std::move(gate); }

    // Counters for tests and benchmarks.
    uint64_t accepted() const { return m_accepted.load(); }
    uint64_t skipped() const { return m_skipped.load(); }
    uint64_t finished() const { return m_finished.load(); }
    bool isBusy() const { return m_busy.load(); }

signals:
    // A result is waiting to be taken. Emitted on the worker thread once per result that is waiting, so a
    // queued connection never piles up more than one.
    void resultReady();

private:
    void work();
    void noteCopyTime(size_t bytes, std::chrono::nanoseconds took);

    const pixel::ScopeOptions m_options;
    std::atomic<bool> m_enabled{true};
    std::atomic<bool> m_parade{false};
    // Set by the offer that wins the worker, cleared by the worker when its result is stored: while set,
    // the input below belongs to the worker and offers are skipped.
    std::atomic<bool> m_busy{false};
    std::atomic<uint64_t> m_generation{0};
    std::atomic<int64_t> m_minimumGap{0};                                  // nanoseconds
    std::atomic<int64_t> m_lastTaken{std::numeric_limits<int64_t>::min()}; // clock, in nanoseconds
    std::function<std::chrono::steady_clock::time_point()> m_now;
    std::atomic<uint64_t> m_accepted{0}, m_skipped{0}, m_finished{0};
    // Picoseconds a byte of the copies so far took (a running mean; 0 before the first copy).
    std::atomic<int64_t> m_copyPsPerByte{0};

    // The worker's input; written only by the offer that set m_busy.
    struct Input {
        uint64_t frameIndex = 0, generation = 0;
        pixel::StatisticsFormat format;
        ColourDescription colour;
        std::vector<uint8_t> samples;
        size_t bytes = 0;
    } m_input;

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_hasJob = false, m_quit = false;
    std::shared_ptr<const ScopeResult> m_result; // guarded by m_mutex
    bool m_signalled = false;                    // resultReady emitted and not yet taken (m_mutex)

    std::function<void()> m_gate;
    QThread *m_thread = nullptr;
};

} // namespace kavri
