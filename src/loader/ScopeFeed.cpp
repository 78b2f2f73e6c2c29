#include "loader/ScopeFeed.h"

#include "loader/Frame.h"

#include <QThread>
#include <algorithm>
#include <cstring>

#ifdef Q_OS_LINUX
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace kavri {

ScopeFeed::ScopeFeed(const pixel::ScopeOptions &options, QObject *parent) : QObject(parent), m_options(options)
{
    m_thread = QThread::create([this] { work(); });
    m_thread->setObjectName(QStringLiteral("scopes"));
    m_thread->start();
}

ScopeFeed::~ScopeFeed()
{
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
    m_thread->wait();
    delete m_thread;
}

bool ScopeFeed::offer(const frame_t &frame)
{
    if (!hasSamples(frame) || !frame.sampleProps) return false;
    if (!m_enabled.load()) return false; // before the record is looked at: nothing is shown
    return offer(frame.frameIndex, pixel::statisticsFormatOf(*frame.sampleProps), frame.sampleProps->colour,
                 frameSamples(frame), frame.sampleBytes);
}

bool ScopeFeed::offerShown(const frame_t &frame)
{
    if (frame.flags & kFramePlayback) return false; // its pause comes next
    return offer(frame);
}

bool ScopeFeed::offerInPause(const frame_t &frame, std::chrono::nanoseconds pause)
{
    if (!hasSamples(frame) || !m_enabled.load()) return false;
    // Twice the expected copy: the scope worker's input is copied on the loader's thread, which a busy
    // system may take off its core for a while; a frame whose pause is shorter goes without scopes.
    if (pause < 2 * expectedCopyTime(frame.sampleBytes)) {
        m_skipped.fetch_add(1);
        // Each such skip lowers the estimate a little, so one slow copy cannot keep the scopes off for
        // good: a later pause tries again and measures anew.
        const int64_t ps = m_copyPsPerByte.load();
        if (ps > 1) m_copyPsPerByte.store(ps - std::max<int64_t>(1, ps / 16));
        return false;
    }
    return offer(frame);
}

std::chrono::nanoseconds ScopeFeed::expectedCopyTime(size_t bytes) const
{
    // Before the first copy: 8 GB/s, what a copy between two buffers larger than the caches manages on an
    // ordinary desktop; the first copy measures the real figure.
    constexpr int64_t kFirstGuessPsPerByte = 125;
    int64_t ps = m_copyPsPerByte.load();
    if (ps <= 0) ps = kFirstGuessPsPerByte;
    return std::chrono::nanoseconds(int64_t((double(bytes) * double(ps)) / 1000.0));
}

bool ScopeFeed::offer(uint64_t frameIndex, const pixel::StatisticsFormat &format, const ColourDescription &colour,
                      const uint8_t *samples, size_t bytes)
{
    if (!m_enabled.load() || !samples || bytes == 0) return false;
    const int64_t gap = m_minimumGap.load();
    int64_t now = 0;
    if (gap > 0) {
        now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                  (m_now ? m_now() : std::chrono::steady_clock::now()).time_since_epoch())
                  .count();
        const int64_t last = m_lastTaken.load();
        if (last != std::numeric_limits<int64_t>::min() && now - last < gap) {
            m_skipped.fetch_add(1);
            return false;
        }
    }
    bool idle = false;
    if (!m_busy.compare_exchange_strong(idle, true)) {
        m_skipped.fetch_add(1);
        return false;
    }
    if (gap > 0) m_lastTaken.store(now);
    // The worker is idle and cannot start until m_hasJob is set: the input is ours to fill.
    m_input.frameIndex = frameIndex;
    m_input.generation = m_generation.load();
    m_input.format = format;
    m_input.colour = colour;
    if (m_input.samples.size() < bytes) {
        try {
            m_input.samples.resize(bytes);
        } catch (const std::bad_alloc &) {
            // The scopes go without this frame rather than take the memory the player needs.
            m_input.samples.clear();
            m_input.samples.shrink_to_fit();
            m_busy.store(false);
            m_skipped.fetch_add(1);
            return false;
        }
    }
    const auto copyStart = std::chrono::steady_clock::now();
    std::memcpy(m_input.samples.data(), samples, bytes);
    noteCopyTime(bytes, std::chrono::steady_clock::now() - copyStart);
    m_input.bytes = bytes;
    m_accepted.fetch_add(1);
    {
        std::lock_guard lock(m_mutex);
        m_hasJob = true;
    }
    m_wake.notify_one();
    return true;
}

void ScopeFeed::noteCopyTime(size_t bytes, std::chrono::nanoseconds took)
{
    if (bytes < (size_t(1) << 16)) return; // too small to time
    const int64_t ps = std::max<int64_t>(1, took.count() * 1000 / int64_t(bytes));
    const int64_t mean = m_copyPsPerByte.load();
    // A quarter of the new figure: one copy slowed by a busy moment moves the estimate a little, not all
    // the way.
    m_copyPsPerByte.store(mean <= 0 ? ps : mean + (ps - mean) / 4);
}

void ScopeFeed::forget()
{
    m_generation.fetch_add(1);
    std::lock_guard lock(m_mutex);
    m_result.reset();
    // A resultReady still on its way finds nothing; the next result must be announced again.
    m_signalled = false;
}

std::shared_ptr<const ScopeResult> ScopeFeed::take()
{
    std::lock_guard lock(m_mutex);
    m_signalled = false;
    return std::move(m_result);
}

void ScopeFeed::work()
{
#ifdef Q_OS_LINUX
    // The scopes yield to playback: with every core busy the loader and the window get the time and the
    // scopes skip more frames. Thread priorities mean nothing to the normal scheduler, a thread's nice
    // value does (10: about a tenth of the share of a thread at 0).
    setpriority(PRIO_PROCESS, id_t(gettid()), 10);
#endif
    for (;;) {
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_hasJob || m_quit; });
            if (m_quit) return;
            m_hasJob = false;
        }
        if (m_gate) m_gate();
        auto result = std::make_shared<ScopeResult>();
        result->frameIndex = m_input.frameIndex;
        result->format = m_input.format;
        result->colour = m_input.colour;
        pixel::ScopeOptions options = m_options;
        options.yuvParade = m_parade.load();
        result->data =
            pixel::computeScopeData(m_input.format, m_input.colour, m_input.samples.data(), m_input.bytes, options);
        const uint64_t generation = m_input.generation;
        bool signal = false;
        {
            std::lock_guard lock(m_mutex);
            // A result of a frame offered before forget() is dropped: the file it belongs to is gone.
            if (generation == m_generation.load()) {
                m_result = std::move(result);
                signal = !m_signalled;
                m_signalled = true;
            }
        }
        m_finished.fetch_add(1);
        // Only now may the next offer write the input.
        m_busy.store(false);
        if (signal) emit resultReady();
    }
}

} // namespace kavri
