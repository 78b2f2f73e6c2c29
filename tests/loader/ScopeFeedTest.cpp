// The scopes' hand-off: a delivered frame's samples reach the scope worker and come back as a result, a
// busy worker makes frames be skipped (never queued), a frame of playback is copied in the pause after it,
// and closing or reopening a file while work is in flight neither crashes nor shows the old file's scopes.
#include "loader/ScopeFeed.h"
#include "LoaderTestSupport.h"
#include "formats/FrameSize.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/PatternGenerator.h"

#include <QSignalSpy>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

using namespace kavri;
using namespace kavri::test;

namespace {

// Holds the scope worker at the start of its work until opened; counts how often it was entered.
class Gate {
public:
    void close()
    {
        std::lock_guard l(m_mutex);
        m_open = false;
    }
    void open()
    {
        std::lock_guard l(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    void pass()
    {
        std::unique_lock l(m_mutex);
        ++m_entered;
        m_changed.notify_all();
        m_changed.wait(l, [this] { return m_open; });
    }
    bool waitEntered(int n)
    {
        std::unique_lock l(m_mutex);
        return m_changed.wait_for(l, std::chrono::milliseconds(kWaitMs), [&] { return m_entered >= n; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = true;
    int m_entered = 0;
};

PatternSpec pattern(int32_t w, int32_t h)
{
    PatternSpec s;
    s.layout = YUV_p420;
    s.width = w;
    s.height = h;
    s.bits = 10;
    s.containerBits = 16;
    return s;
}

std::vector<uint8_t> patternFrame(const PatternSpec &s, uint64_t index)
{
    std::vector<uint8_t> bytes(patternFrameBytes(s));
    EXPECT_TRUE(writePatternFrame(s, index, bytes.data(), bytes.size()));
    return bytes;
}

QByteArray patternFile(const PatternSpec &s, uint64_t frames)
{
    QByteArray all;
    for (uint64_t i = 0; i < frames; ++i) {
        const std::vector<uint8_t> f = patternFrame(s, i);
        all.append(reinterpret_cast<const char *>(f.data()), qsizetype(f.size()));
    }
    return all;
}

class ScopeFeedTest : public ::testing::Test {
protected:
    TempDir dir;
    HeadlessFrameSink owner;
    Gate gate; // declared before the feed: the feed's worker may use it until the feed is gone
    std::unique_ptr<ScopeFeed> feed = std::make_unique<ScopeFeed>();
    KavriLoader *loader = nullptr;

    void TearDown() override
    {
        gate.open();
        closeLoader();
    }

    // Opens a pattern file and offers every delivered frame to the feed, from the loader thread.
    void openPattern(const PatternSpec &s, uint64_t frames, const QString &name)
    {
        const QString path = dir.write(name, patternFile(s, frames));
        KavriLoader::Options o;
        o.useRemembered = false;
        o.rememberFormats = false;
        loader = KavriLoader::create(path, {}, o);
        ASSERT_NE(loader, nullptr);
        VideoProps &p = loader->pendingProps();
        const VideoProps rec = patternRecord(s);
        p.width = rec.width;
        p.height = rec.height;
        p.format = rec.format;
        p.bitDepth = rec.bitDepth;
        p.containerBits = rec.containerBits;
        p.frameRate = 1000.0;
        loader->validate();
        ScopeFeed *f = feed.get();
        QObject::connect(
            loader, &KavriLoader::new_frame, loader, [f](frame_t *frame) { f->offer(*frame); }, Qt::DirectConnection);
        const int inits = owner.initializedCount();
        loader->attach(&owner, &owner);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() > inits; }, kWaitMs));
    }

    void closeLoader()
    {
        if (!loader) return;
        KavriLoader *l = loader;
        loader = nullptr;
        EXPECT_TRUE(returnsWithin([l] { l->detach(); })) << "detach did not return";
    }

    // Takes results until one satisfies `wanted`, handling events meanwhile.
    std::shared_ptr<const ScopeResult> waitForResult(const std::function<bool(const ScopeResult &)> &wanted)
    {
        std::shared_ptr<const ScopeResult> found;
        owner.waitUntil(
            [&] {
                if (auto r = feed->take(); r && wanted(*r)) found = r;
                return bool(found);
            },
            kWaitMs);
        return found;
    }
};

TEST_F(ScopeFeedTest, ADeliveredFrameComesBackWithItsStatistics)
{
    const PatternSpec s = pattern(64, 32);
    openPattern(s, 6, QStringLiteral("p420_10.yuv"));
    QSignalSpy ready(feed.get(), &ScopeFeed::resultReady);
    emit owner.seek(4, false, false);
    const auto r = waitForResult([](const ScopeResult &x) { return x.frameIndex == 4; });
    ASSERT_TRUE(r);
    EXPECT_GE(ready.count(), 1);
    EXPECT_EQ(r->format.layout, YUV_p420);
    EXPECT_EQ(r->format.bits, 10);
    const std::vector<uint8_t> bytes = patternFrame(s, 4);
    const pixel::FrameStatistics want =
        pixel::computeFrameStatistics(pixel::statisticsFormatOf(patternRecord(s)), bytes.data(), bytes.size(), 1);
    ASSERT_EQ(r->data.statistics.components.size(), want.components.size());
    for (size_t c = 0; c < want.components.size(); ++c) {
        SCOPED_TRACE(want.components[c].name);
        EXPECT_EQ(r->data.statistics.components[c].min, want.components[c].min);
        EXPECT_EQ(r->data.statistics.components[c].max, want.components[c].max);
        EXPECT_DOUBLE_EQ(r->data.statistics.components[c].mean, want.components[c].mean);
        EXPECT_EQ(r->data.statistics.components[c].histogram, want.components[c].histogram);
    }
}

TEST_F(ScopeFeedTest, ABusyWorkerMakesFramesBeSkippedNotQueued)
{
    feed->setWorkGate([this] { gate.pass(); });
    gate.close();
    const PatternSpec s = pattern(16, 16);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    const pixel::StatisticsFormat f = pixel::statisticsFormatOf(patternRecord(s));
    ASSERT_TRUE(feed->offer(1, f, {}, bytes.data(), bytes.size()));
    ASSERT_TRUE(gate.waitEntered(1));
    for (uint64_t i = 2; i < 52; ++i) EXPECT_FALSE(feed->offer(i, f, {}, bytes.data(), bytes.size()));
    EXPECT_EQ(feed->accepted(), 1u);
    EXPECT_EQ(feed->skipped(), 50u);
    gate.open();
    const auto r = waitForResult([](const ScopeResult &) { return true; });
    ASSERT_TRUE(r);
    EXPECT_EQ(r->frameIndex, 1u);
    // Nothing else was kept for later: the worker finished one frame and has no other.
    ASSERT_TRUE(owner.waitUntil([&] { return !feed->isBusy(); }, kWaitMs));
    EXPECT_EQ(feed->finished(), 1u);
    EXPECT_FALSE(feed->take());
    // Idle again, it takes the next frame.
    EXPECT_TRUE(feed->offer(60, f, {}, bytes.data(), bytes.size()));
    const auto next = waitForResult([](const ScopeResult &) { return true; });
    ASSERT_TRUE(next);
    EXPECT_EQ(next->frameIndex, 60u);
}

// During playback the window asks for a gap between the frames the worker takes; a frame offered
// inside it is skipped without a copy, and a gap of zero takes whatever comes while the worker is idle.
TEST_F(ScopeFeedTest, FramesInsideTheMinimumGapAreSkipped)
{
    using namespace std::chrono_literals;
    std::chrono::steady_clock::time_point now{};
    feed->setClock([&now] { return now; }); // read on this thread only: every offer below is made here
    const PatternSpec s = pattern(16, 16);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    const pixel::StatisticsFormat f = pixel::statisticsFormatOf(patternRecord(s));
    const auto idle = [&] { return owner.waitUntil([&] { return !feed->isBusy(); }, kWaitMs); };
    feed->setMinimumGap(100ms);
    const struct {
        std::chrono::milliseconds at;
        bool taken;
    } steps[] = {{0ms, true}, {40ms, false}, {99ms, false}, {100ms, true}, {150ms, false}, {260ms, true}};
    uint64_t index = 0;
    for (const auto &step : steps) {
        SCOPED_TRACE(step.at.count());
        ASSERT_TRUE(idle());
        now = std::chrono::steady_clock::time_point(step.at);
        EXPECT_EQ(feed->offer(++index, f, {}, bytes.data(), bytes.size()), step.taken);
    }
    EXPECT_EQ(feed->accepted(), 3u);
    EXPECT_EQ(feed->skipped(), 3u);
    feed->setMinimumGap(0ms);
    ASSERT_TRUE(idle());
    EXPECT_TRUE(feed->offer(++index, f, {}, bytes.data(), bytes.size())) << "no gap once playback stops";
}

TEST_F(ScopeFeedTest, ResultsWaitingForTheWindowAreReplacedByNewerOnes)
{
    const PatternSpec s = pattern(16, 16);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    const pixel::StatisticsFormat f = pixel::statisticsFormatOf(patternRecord(s));
    QSignalSpy ready(feed.get(), &ScopeFeed::resultReady);
    // No events are handled in between: the window is "busy painting" while three results come in.
    for (uint64_t i = 1; i <= 3; ++i) {
        const uint64_t before = feed->finished();
        ASSERT_TRUE(returnsWithin([&] {
            while (!feed->offer(i, f, {}, bytes.data(), bytes.size())) std::this_thread::yield();
            while (feed->finished() == before) std::this_thread::yield();
        }));
    }
    const auto r = feed->take();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->frameIndex, 3u);
    EXPECT_FALSE(feed->take());
    // One announcement for the three, however many results the worker finished.
    QCoreApplication::processEvents();
    EXPECT_EQ(ready.count(), 1);
}

TEST_F(ScopeFeedTest, ForgettingWhileWorkIsInFlightDropsTheOldResult)
{
    feed->setWorkGate([this] { gate.pass(); });
    gate.close();
    const PatternSpec s = pattern(16, 16);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    const pixel::StatisticsFormat f = pixel::statisticsFormatOf(patternRecord(s));
    ASSERT_TRUE(feed->offer(7, f, {}, bytes.data(), bytes.size()));
    ASSERT_TRUE(gate.waitEntered(1));
    feed->forget();
    gate.open();
    ASSERT_TRUE(owner.waitUntil([&] { return feed->finished() == 1 && !feed->isBusy(); }, kWaitMs));
    EXPECT_FALSE(feed->take());
    ASSERT_TRUE(feed->offer(8, f, {}, bytes.data(), bytes.size()));
    const auto r = waitForResult([](const ScopeResult &) { return true; });
    ASSERT_TRUE(r);
    EXPECT_EQ(r->frameIndex, 8u);
}

TEST_F(ScopeFeedTest, ClosingAndReopeningAFileWhileWorkIsInFlightIsSafe)
{
    feed->setWorkGate([this] { gate.pass(); });
    gate.close();
    openPattern(pattern(64, 32), 8, QStringLiteral("first.yuv"));
    emit owner.play();
    // The worker holds a copy of a frame of the first file while that file is closed.
    ASSERT_TRUE(gate.waitEntered(1));
    closeLoader();
    feed->forget();
    openPattern(pattern(32, 16), 8, QStringLiteral("second.yuv"));
    gate.open();
    // The first file's frame is finished (and dropped) before the second file's is offered.
    ASSERT_TRUE(owner.waitUntil([&] { return !feed->isBusy(); }, kWaitMs));
    emit owner.seek(5, false, false);
    const auto r = waitForResult([](const ScopeResult &x) { return x.frameIndex == 5; });
    ASSERT_TRUE(r);
    EXPECT_EQ(r->format.width, 32);
    EXPECT_EQ(r->format.height, 16);
}

TEST_F(ScopeFeedTest, DestroyingTheFeedWhileWorkIsInFlightWaitsForIt)
{
    const PatternSpec s = pattern(256, 128);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    ASSERT_TRUE(feed->offer(1, pixel::statisticsFormatOf(patternRecord(s)), {}, bytes.data(), bytes.size()));
    EXPECT_TRUE(returnsWithin([&] { feed.reset(); }));
}

// A Y210 frame is shown without unpacking its samples (the picture is converted from the stored rows a
// band at a time); the scopes ask for them, and get the samples of the reference unpack.
TEST_F(ScopeFeedTest, SamplesLeftOutOfAFrameAreUnpackedForTheScopes)
{
    PatternSpec s = pattern(66, 34);
    s.layout = YUV_y210;
    // Shared with the loader's thread, which may deliver a frame until the loader is closed.
    const auto leftOut = std::make_shared<std::atomic<int>>(0);
    openPattern(s, 6, QStringLiteral("y210.yuv"));
    QObject::connect(
        loader, &KavriLoader::new_frame, loader,
        [leftOut](frame_t *f) {
            if (!f->samples && f->unpackSamples && hasSamples(*f)) ++*leftOut;
        },
        Qt::DirectConnection);
    emit owner.seek(3, false, false);
    const auto r = waitForResult([](const ScopeResult &x) { return x.frameIndex == 3; });
    ASSERT_TRUE(r);
    EXPECT_GE(leftOut->load(), 1);
    const VideoProps rec = patternRecord(s);
    const VideoProps canon = pixel::canonicalProps(rec);
    EXPECT_EQ(r->format.layout, canon.format);
    const std::vector<uint8_t> bytes = patternFrame(s, 3);
    std::vector<uint8_t> samples(allocationSize(canon.format, canon.containerBits, canon.width, canon.height));
    pixel::unpackFrameReference(rec, bytes.data(), int64_t(bytes.size()), samples.data(), int64_t(samples.size()));
    const pixel::FrameStatistics want =
        pixel::computeFrameStatistics(pixel::statisticsFormatOf(canon), samples.data(), samples.size(), 1);
    ASSERT_EQ(r->data.statistics.components.size(), want.components.size());
    for (size_t c = 0; c < want.components.size(); ++c) {
        SCOPED_TRACE(want.components[c].name);
        EXPECT_EQ(r->data.statistics.components[c].histogram, want.components[c].histogram);
        EXPECT_DOUBLE_EQ(r->data.statistics.components[c].mean, want.components[c].mean);
    }
}

// With the scopes off nobody asks for a Y210 frame's samples while it is delivered; the frame buffer an
// owner inspects afterwards holds them all the same, unpacked when asked for.
TEST_F(ScopeFeedTest, TheFrameBufferOfAFrameShownWithoutItsSamplesHoldsThem)
{
    feed->setEnabled(false);
    PatternSpec s = pattern(66, 34);
    s.layout = YUV_y210;
    openPattern(s, 6, QStringLiteral("y210.yuv"));
    const auto delivered = std::make_shared<std::atomic<uint64_t>>(UINT64_MAX);
    QObject::connect(
        loader, &KavriLoader::new_frame, loader, [delivered](frame_t *f) { delivered->store(f->frameIndex); },
        Qt::DirectConnection);
    emit owner.seek(2, false, false);
    ASSERT_TRUE(owner.waitUntil([&] { return delivered->load() == 2; }, kWaitMs));
    EXPECT_EQ(feed->accepted(), 0u);
    const VideoProps rec = patternRecord(s);
    const VideoProps canon = pixel::canonicalProps(rec);
    const std::vector<uint8_t> bytes = patternFrame(s, 2);
    std::vector<uint8_t> samples(frameBytes(canon.format, canon.containerBits, canon.width, canon.height));
    pixel::unpackFrameReference(rec, bytes.data(), int64_t(bytes.size()), samples.data(), int64_t(samples.size()));
    const uint8_t *buffer = loader->frameBuffer(KavriLoader::Buffer::Main);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(0, std::memcmp(buffer, samples.data(), samples.size()));
}

// Where nothing was left out, or there are no samples at all, frameSamples gives what the record holds
// and never calls the unpack.
TEST(FrameRecord, FrameSamplesUnpacksOnlyWhatWasLeftOut)
{
    const std::vector<uint8_t> held(16, 7), unpacked(16, 9);
    int calls = 0;
    const std::function<const uint8_t *()> unpack = [&] {
        ++calls;
        return unpacked.data();
    };
    frame_t f;
    EXPECT_FALSE(hasSamples(f));
    EXPECT_EQ(frameSamples(f), nullptr);
    f.unpackSamples = &unpack;
    EXPECT_TRUE(hasSamples(f));
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(frameSamples(f), unpacked.data());
    EXPECT_EQ(calls, 1);
    f.samples = held.data();
    EXPECT_EQ(frameSamples(f), held.data());
    EXPECT_EQ(calls, 1);
    const std::function<const uint8_t *()> none;
    f.samples = nullptr;
    f.unpackSamples = &none;
    EXPECT_FALSE(hasSamples(f));
    EXPECT_EQ(frameSamples(f), nullptr);
}

TEST_F(ScopeFeedTest, ASwitchedOffFeedCopiesNothing)
{
    feed->setEnabled(false);
    const PatternSpec s = pattern(16, 16);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    EXPECT_FALSE(feed->offer(1, pixel::statisticsFormatOf(patternRecord(s)), {}, bytes.data(), bytes.size()));
    EXPECT_EQ(feed->accepted(), 0u);
    EXPECT_FALSE(feed->isBusy());
}

} // namespace

namespace {

// A frame record as the loader hands it out, pointing at `bytes`.
frame_t recordOf(const VideoProps &props, const std::vector<uint8_t> &bytes, uint64_t index, uint32_t flags)
{
    frame_t f;
    f.frameIndex = index;
    f.flags = flags;
    f.samples = bytes.data();
    f.sampleBytes = uint32_t(bytes.size());
    f.sampleProps = &props;
    return f;
}

// A frame of playback is copied in the pause after it, never inside new_frame; any other frame at once.
// The pause must leave room for twice the copy the feed expects; a pause too short skips the frame and
// lowers the expectation, so the scopes come back after a slow copy or a run of late frames.
TEST_F(ScopeFeedTest, PlaybackFramesAreCopiedOnlyInAPauseLongEnoughForIt)
{
    using namespace std::chrono_literals;
    const PatternSpec s = pattern(640, 360); // large enough for the copy to be timed
    const VideoProps props = patternRecord(s);
    const std::vector<uint8_t> bytes = patternFrame(s, 0);
    const auto idle = [&] { return owner.waitUntil([&] { return !feed->isBusy(); }, kWaitMs); };

    EXPECT_FALSE(feed->offerShown(recordOf(props, bytes, 1, kFramePlayback)));
    EXPECT_EQ(feed->accepted(), 0u) << "a frame of playback waits for its pause";
    EXPECT_FALSE(feed->offerInPause(recordOf(props, bytes, 1, kFramePlayback), 0ns));
    EXPECT_EQ(feed->accepted(), 0u) << "a late frame has no pause to copy in";
    EXPECT_TRUE(feed->offerInPause(recordOf(props, bytes, 1, kFramePlayback), 1s));
    ASSERT_TRUE(idle());
    EXPECT_TRUE(feed->offerShown(recordOf(props, bytes, 2, kFrameRemote))) << "a seek is copied at once";
    ASSERT_TRUE(idle());
    EXPECT_EQ(feed->accepted(), 2u);

    // The expectation follows the copies made, in proportion to their size.
    const std::chrono::nanoseconds expected = feed->expectedCopyTime(bytes.size());
    EXPECT_GT(expected.count(), 0);
    EXPECT_NEAR(double(feed->expectedCopyTime(2 * bytes.size()).count()), 2.0 * double(expected.count()), 2.0);

    // A pause of just the expected copy is too short, until the skips have lowered the expectation.
    int tries = 0;
    const uint64_t before = feed->accepted();
    while (feed->accepted() == before && tries < 100) {
        ++tries;
        feed->offerInPause(recordOf(props, bytes, 3, kFramePlayback), expected);
    }
    EXPECT_EQ(feed->accepted(), before + 1);
    EXPECT_GT(tries, 1);
    EXPECT_LT(tries, 40);
    ASSERT_TRUE(idle());
}

// The loader announces the pause after each frame of playback with the record new_frame reported, its
// samples still those of that frame; frames from a seek have no pause.
TEST_F(ScopeFeedTest, TheLoaderAnnouncesThePauseAfterEachFrameOfPlayback)
{
    const PatternSpec s = pattern(64, 32);
    openPattern(s, 8, QStringLiteral("paused.yuv"));
    struct Event {
        char kind; // 'N' new_frame, 'P' frame_pause
        uint64_t index;
        uint32_t flags;
        bool samplesMatch;
        qint64 pauseNs;
    };
    // Shared with the loader thread's handlers, which may outlive this body when an assertion ends it early.
    struct Log {
        std::mutex m;
        std::vector<Event> events;
        void add(char kind, const frame_t &f, bool match, qint64 ns)
        {
            std::lock_guard l(m);
            events.push_back({kind, f.frameIndex, f.flags, match, ns});
        }
        long pauses()
        {
            std::lock_guard l(m);
            return long(std::count_if(events.begin(), events.end(), [](const Event &e) { return e.kind == 'P'; }));
        }
    };
    const auto log = std::make_shared<Log>();
    const auto matches = [s](const frame_t &f) {
        const std::vector<uint8_t> want = patternFrame(s, f.frameIndex);
        return f.samples && f.sampleBytes == want.size() && std::memcmp(f.samples, want.data(), want.size()) == 0;
    };
    QObject::connect(
        loader, &KavriLoader::new_frame, loader, [log, matches](frame_t *f) { log->add('N', *f, matches(*f), 0); },
        Qt::DirectConnection);
    QObject::connect(
        loader, &KavriLoader::frame_pause, loader,
        [log, matches](const frame_t *f, qint64 ns) { log->add('P', *f, matches(*f), ns); }, Qt::DirectConnection);
    loader->setLoop(true);
    emit owner.seek(2, false, false);
    emit owner.play();
    // 1000 frames a second of a tiny frame: nearly every frame has a pause; a late one simply has none.
    ASSERT_TRUE(owner.waitUntil([&] { return log->pauses() >= 5; }, kWaitMs));
    emit owner.stop();
    ASSERT_TRUE(owner.waitUntil([&] { return !loader->isPlaying(); }, kWaitMs));
    closeLoader();
    const std::vector<Event> &events = log->events;
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.front().kind, 'N');
    EXPECT_EQ(events.front().index, 2u);
    EXPECT_FALSE(events.front().flags & kFramePlayback) << "the seek's frame";
    for (size_t i = 1; i < events.size(); ++i) {
        const Event &e = events[i];
        SCOPED_TRACE(testing::Message() << e.kind << e.index);
        if (e.kind == 'N') {
            EXPECT_TRUE(e.samplesMatch);
            continue;
        }
        const Event &shown = events[i - 1];
        EXPECT_EQ(shown.kind, 'N') << "one pause per frame, right after it";
        EXPECT_EQ(e.index, shown.index);
        EXPECT_TRUE(e.flags & kFramePlayback);
        EXPECT_TRUE(e.samplesMatch);
        EXPECT_GT(e.pauseNs, 0);
        EXPECT_LE(e.pauseNs, 1000000) << "within the period of 1000 frames a second";
    }
}

} // namespace
