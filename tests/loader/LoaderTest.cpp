#include "LoaderTestSupport.h"
#include "formats/Validation.h"

#include <QPointer>
#include <QThread>
#include <future>
#include <gtest/gtest.h>
#include <thread>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace kavri::test;
using kavri::ColourDescription;
using kavri::ColourMatrix;
using kavri::ColourRange;

namespace {

class Loader : public ::testing::Test {
protected:
    TempDir dir;
    TestOwner owner;
    KavriLoader *loader = nullptr;

    void TearDown() override { close(); }

    KavriLoader::Options options(int stdinFd = 0) const
    {
        KavriLoader::Options o;
        o.useRemembered = false;
        o.rememberFormats = false;
        o.stdinDescriptor = stdinFd;
        o.streamHeaderWaitMs = 0; // the tests' writers start after the loader is made
        return o;
    }

    // Opens `path` as 16x16 luma (or w x h) at `rate` and attaches the test owner; waits for the first init.
    void open(const QString &path, const QString &diff = {}, double rate = 1000.0, int stdinFd = 0, int32_t w = kW,
              int32_t h = kH)
    {
        loader = KavriLoader::create(path, diff, options(stdinFd));
        describeAndAttach(rate, w, h);
    }

    // Gives the loader just created a 16x16 (or w x h) luma record at `rate`, attaches the test owner and
    // waits for the first init.
    void describeAndAttach(double rate = 1000.0, int32_t w = kW, int32_t h = kH)
    {
        ASSERT_NE(loader, nullptr);
        VideoProps &p = loader->pendingProps();
        p.width = w;
        p.height = h;
        p.format = BW;
        p.bitDepth = 8;
        p.frameRate = rate;
        loader->validate();
        owner.loader = loader;
        loader->attach(&owner, &owner);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    }

    void close()
    {
        if (!loader) return;
        owner.release();
        KavriLoader *l = loader;
        loader = nullptr;
        EXPECT_TRUE(returnsWithin([l] { l->detach(); })) << "detach did not return";
    }

    bool waitFrames(uint64_t n) { return owner.waitForFrames(n, kWaitMs); }
    // The window's way of changing what is shown: read the view, edit it, hand it back.
    void changeView(const std::function<void(KavriLoader::View &)> &edit)
    {
        KavriLoader::View v = loader->view();
        edit(v);
        loader->setView(v);
    }
    bool waitStopped(int n = 1)
    {
        return owner.waitUntil([&] { return owner.stoppedCount() >= n; }, kWaitMs);
    }
    // A seek to a frame nobody else asks for, and the wait for it: everything posted before has been
    // handled once its frame is seen.
    void settle(uint64_t sentinel)
    {
        const size_t before = owner.seen().size();
        emit owner.seek(sentinel, false, false);
        ASSERT_TRUE(owner.waitUntil(
            [&] {
                const auto s = owner.seen();
                return s.size() > before && s.back().content == sentinel;
            },
            kWaitMs));
    }
};

TEST_F(Loader, CreateReturnsNullForAMissingFileOrDifferenceFile)
{
    EXPECT_EQ(KavriLoader::create(dir.path("absent.yuv"), {}, options()), nullptr);
    const QString f = dir.write("a.bw", markedFrames(0, 2));
    EXPECT_EQ(KavriLoader::create(f, dir.path("absent.yuv"), options()), nullptr);
}

TEST_F(Loader, StandardInputOpensEvenWithNothingPiped)
{
    KavriLoader l(QStringLiteral("-"), {}, options());
    EXPECT_TRUE(l.isOpened());
    EXPECT_TRUE(l.isStdin());
    EXPECT_EQ(l.pendingProps().frameCount, 0u);
}

TEST_F(Loader, TenSeeksPostedWhileBusyCollapseToTheLast)
{
    open(dir.write("a.bw", markedFrames(0, 100)));
    owner.hold();
    emit owner.seek(5, false, false);
    ASSERT_TRUE(owner.waitUntilHeld());
    for (uint64_t i = 10; i < 20; ++i) emit owner.seek(i, false, false);
    owner.release();
    ASSERT_TRUE(waitFrames(2));
    settle(42); // posted only now, so it cannot join the burst
    EXPECT_EQ(owner.contents(), (std::vector<uint64_t>{5, 19, 42}));
}

TEST_F(Loader, HundredsOfSeeksInABurstEndOnTheLast)
{
    open(dir.write("a.bw", markedFrames(0, 100)));
    emit owner.play();
    for (uint64_t i = 0; i < 500; ++i) emit owner.seek(i % 97, i % 2 == 0, i % 3 == 0);
    settle(77);
    const auto s = owner.seen();
    EXPECT_EQ(s.back().index, 77u);
    EXPECT_LT(s.size(), 500u); // collapsed, not replayed one by one
}

struct SeekCase {
    const char *name;
    uint64_t argument;
    uint64_t shown;
};

TEST_F(Loader, SeekClampsAndTakesTheLow32BitsAsSigned)
{
    open(dir.write("a.bw", markedFrames(0, 100)));
    const SeekCase cases[] = {
        {"inside", 50, 50},
        {"last", 99, 99},
        {"beyond the end", 1000, 99},
        {"-5 as a 64-bit pattern", uint64_t(int64_t(-5)), 0},
        {"-5 in the low 32 bits only", 0xfffffffbu, 0},
        {"high bits are dropped", (uint64_t(1) << 32) + 7, 7},
        {"first", 0, 0},
    };
    uint64_t sentinel = 60;
    for (const SeekCase &c : cases) {
        const size_t before = owner.seen().size();
        emit owner.seek(c.argument, false, false);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before; }, kWaitMs)) << c.name;
        const auto s = owner.seen();
        EXPECT_EQ(s[before].content, c.shown) << c.name;
        EXPECT_EQ(s[before].index, c.shown) << c.name;
        settle(sentinel++);
    }
}

TEST_F(Loader, SeekFlagsReachTheFrameRecord)
{
    open(dir.write("a.bw", markedFrames(0, 10)));
    const struct {
        bool remote, dragged;
        uint32_t flags;
    } cases[] = {{false, false, 0},
                 {true, false, kFrameRemote},
                 {false, true, kFrameDragged},
                 {true, true, kFrameRemote | kFrameDragged}};
    uint64_t target = 1;
    for (const auto &c : cases) {
        const size_t before = owner.seen().size();
        emit owner.seek(target++, c.remote, c.dragged);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before; }, kWaitMs));
        EXPECT_EQ(owner.seen()[before].flags, c.flags) << c.remote << c.dragged;
    }
}

TEST_F(Loader, WithoutLoopTheEndStopsAndShowsFrameZero)
{
    open(dir.write("a.bw", markedFrames(0, 5)));
    emit owner.play();
    ASSERT_TRUE(waitStopped());
    ASSERT_TRUE(waitFrames(6));
    EXPECT_EQ(owner.contents(), (std::vector<uint64_t>{0, 1, 2, 3, 4, 0}));
}

TEST_F(Loader, StopLeavesIndexOneWhileTheStreamsStandAtFrameZero)
{
    open(dir.write("a.bw", markedFrames(0, 10)));
    emit owner.seek(6, false, false);
    ASSERT_TRUE(waitFrames(1));
    emit owner.stop();
    ASSERT_TRUE(waitStopped());
    ASSERT_TRUE(waitFrames(2));
    EXPECT_EQ(owner.seen()[1].content, 0u);
    EXPECT_EQ(owner.seen()[1].index, 0u);
    // The next delivery reads frame 0 again but reports index 1.
    owner.setFrameLimit(3);
    emit owner.play();
    ASSERT_TRUE(waitFrames(3));
    EXPECT_EQ(owner.seen()[2].content, 0u);
    EXPECT_EQ(owner.seen()[2].index, 1u);
}

TEST_F(Loader, WithLoopTheFilesWrapAround)
{
    open(dir.write("a.bw", markedFrames(0, 3)));
    loader->setLoop(true);
    owner.setFrameLimit(8);
    emit owner.play();
    ASSERT_TRUE(waitFrames(8));
    const auto c = owner.contents();
    EXPECT_EQ(std::vector<uint64_t>(c.begin(), c.begin() + 8), (std::vector<uint64_t>{0, 1, 2, 0, 1, 2, 0, 1}));
}

TEST_F(Loader, OneFrameFileStopsEvenWithLoop)
{
    open(dir.write("a.bw", markedFrames(0, 1)));
    loader->setLoop(true);
    emit owner.play();
    ASSERT_TRUE(waitStopped());
    ASSERT_TRUE(waitFrames(2));
    EXPECT_EQ(owner.contents(), (std::vector<uint64_t>{0, 0}));
}

TEST_F(Loader, SynchronousInitDuringPlayEndsThePlayLoopAndReturnsAfterIt)
{
    open(dir.write("a.bw", markedFrames(0, 100)), {}, 200.0);
    loader->setLoop(true);
    emit owner.play();
    ASSERT_TRUE(owner.waitUntil([&] { return loader->isPlaying(); }, kWaitMs));
    ASSERT_TRUE(waitFrames(3));
    loader->pendingProps().height = kH / 2; // a new geometry: the buffers must be rebuilt
    const uint32_t mask = loader->validate();
    EXPECT_EQ(mask & 23u, 23u);
    // The poster resumed only after the loader took the init, which it does between frames.
    EXPECT_TRUE(loader->isInitialized());
    EXPECT_FALSE(loader->isPlaying());
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 2; }, kWaitMs));
    const size_t before = owner.seen().size();
    emit owner.seek(3, false, false);
    ASSERT_TRUE(
        owner.waitUntil([&] { return owner.seen().size() > before && owner.seen().back().index == 3; }, kWaitMs));
    EXPECT_EQ(owner.bufferSize(), QSize(kW, kH / 2));
}

TEST_F(Loader, ReloadRecountsAFileThatGrew)
{
    const QString f = dir.write("a.bw", markedFrames(0, 5));
    open(f);
    emit owner.seek(3, false, false);
    ASSERT_TRUE(waitFrames(1));
    emit owner.seek(9, false, false); // clamped: only five frames are known
    ASSERT_TRUE(waitFrames(2));
    EXPECT_EQ(owner.seen()[1].content, 4u);
    appendTo(f, markedFrames(5, 5));
    emit owner.seek(3, false, false);
    ASSERT_TRUE(waitFrames(3));
    emit owner.reload();
    ASSERT_TRUE(waitStopped());
    ASSERT_TRUE(waitFrames(4));
    EXPECT_EQ(owner.seen()[3].content, 3u); // the frame shown before the reload
    EXPECT_EQ(loader->frameCount(), 10u);
    // The record the GUI owns changes only when the GUI takes the count up.
    EXPECT_EQ(loader->pendingProps().frameCount, 5u);
    loader->adoptRecount();
    EXPECT_EQ(loader->pendingProps().frameCount, 10u);
    settle(9);
}

TEST_F(Loader, DifferenceViewChoosesTheBufferAndFillsTheMetrics)
{
    const QString a = dir.write("a.bw", markedFrames(0, 6));
    const QString b = dir.write("b.bw", markedFrames(100, 4)); // shorter: four frames are compared
    open(a, b);
    EXPECT_TRUE(loader->hasDifference());
    EXPECT_EQ(loader->pendingProps().frameCount, 4u);
    const struct {
        int32_t view;
        KavriLoader::Buffer buffer;
    } cases[] = {{1, KavriLoader::Buffer::Main},
                 {2, KavriLoader::Buffer::DiffFile},
                 {0, KavriLoader::Buffer::DiffPicture},
                 {5, KavriLoader::Buffer::DiffPicture}};
    for (const auto &c : cases) {
        changeView([&](KavriLoader::View &v) { v.picture.view = c.view; });
        const size_t before = owner.seen().size();
        emit owner.seek(2, false, false);
        // The view change itself may show frame 2 again before the seek does; either shows the new view.
        ASSERT_TRUE(owner.waitUntil(
            [&] { return owner.seen().size() > before && owner.seen().back().buffer == c.buffer; }, kWaitMs));
        const auto s = owner.seen().back();
        EXPECT_EQ(s.buffer, c.buffer) << c.view;
        EXPECT_EQ(s.index, 2u);
        if (c.buffer == KavriLoader::Buffer::DiffFile) {
            EXPECT_EQ(s.content, 102u);
        }
        if (c.buffer == KavriLoader::Buffer::Main) {
            EXPECT_EQ(s.content, 2u);
        }
    }
    // The metrics in the frame record are the difference computer's, copied per frame.
    const frame_t f = owner.lastFrame();
    ASSERT_NE(f.props, nullptr);
    EXPECT_EQ(f.props->width, kW);
    for (int k = 0; k < 3; ++k) {
        EXPECT_TRUE(std::isfinite(f.mse[k]) && f.mse[k] >= 0) << k;
        EXPECT_GE(f.psnr[k], 0) << k;
    }
    EXPECT_EQ(loader->pendingProps().frameCount, 4u);
    const size_t before = owner.seen().size();
    emit owner.seek(1000, false, false); // clamped to the shorter file
    ASSERT_TRUE(
        owner.waitUntil([&] { return owner.seen().size() > before && owner.seen().back().index == 3u; }, kWaitMs));
}

TEST_F(Loader, ADifferenceFileThatLostItsFramesDeliversNothing)
{
    const QString a = dir.write("a.bw", markedFrames(0, 6));
    const QString b = dir.write("b.bw", markedFrames(100, 6));
    open(a, b);
    changeView([](KavriLoader::View &v) { v.picture.view = 1; });
    settle(1);
    ASSERT_TRUE(QFile::resize(b, kFrameBytes * 3 + kFrameBytes / 2)); // frame 3 is cut in half
    emit owner.seek(3, false, false);
    emit owner.stop(); // queued behind the seek; it shows frame 0
    ASSERT_TRUE(waitStopped());
    EXPECT_EQ(owner.contents(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(Loader, FirstDifferencePositionsArePackedPerComponent)
{
    EXPECT_EQ(packFirstDifference(-1, -1), ~uint64_t(0));
    const uint64_t p = packFirstDifference(1919, 1079);
    EXPECT_EQ(firstDifferenceColumn(p), 1919);
    EXPECT_EQ(firstDifferenceRow(p), 1079);
    EXPECT_EQ(firstDifferenceColumn(packFirstDifference(-1, 5)), -1);
}

TEST_F(Loader, AVanishedFileKeepsTheLastFrameAndStillStops)
{
    const QString f = dir.write("a.bw", markedFrames(0, 5));
    open(f);
    settle(2);
    ASSERT_TRUE(QFile::remove(f));
    emit owner.stop();
    ASSERT_TRUE(waitStopped());
    // The reopened stream has nothing to give: playing ends at once and nothing new is shown.
    loader->setLoop(true);
    emit owner.play();
    ASSERT_TRUE(waitStopped(2));
    emit owner.seek(1, false, false);
    emit owner.stop();
    ASSERT_TRUE(waitStopped(3));
    EXPECT_EQ(owner.contents(), (std::vector<uint64_t>{2}));
}

TEST_F(Loader, AShrunkFileEndsPlaybackEarly)
{
    const QString f = dir.write("a.bw", markedFrames(0, 10));
    open(f);
    ASSERT_TRUE(QFile::resize(f, kFrameBytes * 4));
    emit owner.play();
    ASSERT_TRUE(waitStopped());
    const auto c = owner.contents();
    ASSERT_GE(c.size(), 2u);
    EXPECT_EQ(std::vector<uint64_t>(c.begin(), c.begin() + 4), (std::vector<uint64_t>{0, 1, 2, 3}));
    EXPECT_EQ(c.back(), 0u);
}

TEST_F(Loader, AZeroFrameRecordNeitherCrashesNorLoops)
{
    const QString f = dir.write("empty.bw", QByteArray());
    loader = KavriLoader::create(f, {}, options());
    ASSERT_NE(loader, nullptr);
    VideoProps &p = loader->pendingProps();
    p.width = kW;
    p.height = kH;
    p.format = BW;
    EXPECT_NE(loader->validate() & 23u, 23u);
    owner.loader = loader;
    loader->setLoop(true);
    loader->attach(&owner, &owner);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    emit owner.play();
    ASSERT_TRUE(waitStopped());
    EXPECT_EQ(owner.framesDelivered(), 0u);
}

TEST_F(Loader, QuitWhilePlayingSlowlyReturns)
{
    open(dir.write("a.bw", markedFrames(0, 10)), {}, 0.01); // a period of 100 s
    emit owner.play();
    ASSERT_TRUE(waitFrames(1));
    QPointer<KavriLoader> guard(loader);
    close();
    EXPECT_TRUE(guard.isNull());
}

TEST_F(Loader, QuitWithARateOfZeroReturns)
{
    open(dir.write("a.bw", markedFrames(0, 10)), {}, 0.0);
    emit owner.play();
    ASSERT_TRUE(waitFrames(1));
    close();
}

TEST_F(Loader, SeeksBeyondFourGibibytes)
{
    // A sparse file of more than 4 GiB and far more than 65536 frames; only two frames hold data.
    const QString f = dir.path("big.bw");
    const uint64_t frames = (uint64_t(1) << 32) / kFrameBytes + 1000;
    const uint64_t target = frames - 10;
    {
        QFile out(f);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        if (!out.resize(qint64(frames * kFrameBytes))) GTEST_SKIP() << "no room for a sparse 4 GiB file";
        ASSERT_TRUE(out.seek(qint64(target * kFrameBytes)));
        out.write(markedFrame(target));
        ASSERT_TRUE(out.seek(qint64((target - 65536) * kFrameBytes)));
        out.write(markedFrame(target - 65536));
    }
    open(f);
    EXPECT_EQ(loader->pendingProps().frameCount, frames);
    emit owner.seek(target, false, false);
    ASSERT_TRUE(waitFrames(1));
    EXPECT_EQ(owner.seen()[0].content, target);
    EXPECT_EQ(owner.seen()[0].index, target);
    emit owner.seek(target - 65536, false, false);
    ASSERT_TRUE(waitFrames(2));
    EXPECT_EQ(owner.seen()[1].content, target - 65536);
}

TEST_F(Loader, FramesReadAheadArriveWholeAndInOrderThroughPausesSeeksAndLoops)
{
    // Frames of a few read-ahead chunks each, and a file that ends with a partial frame.
    constexpr int32_t w = 1024, h = 641;
    constexpr uint32_t bytes = uint32_t(w) * h;
    QByteArray data;
    for (uint64_t i = 0; i < 6; ++i) data += markedFrame(i, bytes);
    data += markedFrame(6, bytes / 3);
    const QString f = dir.write("big.bw", data);
    const QString g = dir.write("big2.bw", data);
    open(f, g, 1000.0, 0, w, h);
    changeView([](KavriLoader::View &v) { v.picture.view = 1; }); // the first file's own bytes are shown
    owner.wholeBytes = bytes;
    ASSERT_EQ(loader->pendingProps().frameCount, 6u);

    // Pausing inside get_buffer leaves a read ahead pending; playing on must show the very next frame.
    owner.hold();
    emit owner.play();
    ASSERT_TRUE(owner.waitUntilHeld());
    emit owner.pause();
    owner.release();
    settle(4); // the read ahead of frame 1 is dropped by the seek, not shown later by mistake
    loader->setLoop(true);
    owner.setFrameLimit(12);
    emit owner.play();
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() >= 12; }, kWaitMs));
    emit owner.pause();
    const auto seen = owner.seen();
    std::vector<uint64_t> got;
    for (const auto &s : seen) {
        EXPECT_TRUE(s.whole) << "frame " << s.content << " was not read whole";
        EXPECT_EQ(s.content, s.index);
        got.push_back(s.content);
    }
    // Frame 0 (held), 4 (the seek), then from 5 on around the loop.
    const std::vector<uint64_t> want{0, 4, 5, 0, 1, 2, 3, 4, 5, 0, 1, 2};
    ASSERT_GE(got.size(), want.size());
    EXPECT_EQ(std::vector<uint64_t>(got.begin(), got.begin() + long(want.size())), want);
}

// A view change while paused converts the frame the loader holds again: the same frame comes back, with
// the same samples, and nothing is read from the file.
TEST_F(Loader, ViewChangesShowTheCurrentFrameAgainWhenNotPlaying)
{
    open(dir.write("a.bw", markedFrames(0, 8)));
    settle(5);
    const size_t before = owner.seen().size();
    changeView([](KavriLoader::View &v) { v.picture.channel = 1; });
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before; }, kWaitMs));
    EXPECT_EQ(owner.seen().back().content, 5u);
    EXPECT_EQ(owner.seen().back().index, 5u);
    EXPECT_EQ(loader->channelSelection(), 1);
    changeView([](KavriLoader::View &v) { v.deinterlace = true; });
    EXPECT_TRUE(loader->pendingProps().interlaced) << "a remembered record keeps the switch";
    EXPECT_TRUE(loader->deinterlace());
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before + 1; }, kWaitMs));
    EXPECT_EQ(owner.seen().back().content, 5u);
    // The next step reads on from where the file was, not from a frame read again.
    emit owner.seek(6, false, false);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before + 2; }, kWaitMs));
    EXPECT_EQ(owner.seen().back().content, 6u);
}

// A colour reading chosen in the window (View > Colour) is a view change: the frame on screen is
// converted again while paused, playback goes on while playing, and the reading stays with the record.
TEST_F(Loader, AColourReadingShowsAtOnceAndDoesNotStopPlayback)
{
    // Limited-range white and black alternate: 4:4:4 8-bit, Y 235 or 16, chroma at the middle.
    constexpr int32_t w = 16, h = 16;
    QByteArray bytes;
    for (int f = 0; f < 40; ++f) {
        bytes.append(QByteArray(w * h, char(f % 2 ? 16 : 235)));
        bytes.append(QByteArray(2 * w * h, char(128)));
    }
    loader = KavriLoader::create(dir.write("white.yuv", bytes), {}, options());
    ASSERT_NE(loader, nullptr);
    VideoProps &p = loader->pendingProps();
    p.width = w;
    p.height = h;
    p.format = YUV_p444;
    p.bitDepth = 8;
    p.frameRate = 1000.0;
    loader->validate();
    owner.loader = loader;
    loader->attach(&owner, &owner);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    const auto grey = [](const TestOwner::Seen &s) { return int(s.firstPixel & 0xff); };
    // The frames carry no number in their bytes, so a seek is waited for by its index.
    const auto show = [&](uint64_t index) {
        const size_t n = owner.seen().size();
        emit owner.seek(index, false, false);
        return owner.waitUntil(
            [&] {
                const auto s = owner.seen();
                return s.size() > n && s.back().index == index;
            },
            kWaitMs);
    };

    ASSERT_TRUE(show(2));
    const int fixed = grey(owner.seen().back()); // the fixed full-range reading leaves white below 255
    EXPECT_NEAR(fixed, 235, 1);
    size_t before = owner.seen().size();
    ColourDescription limited;
    limited.matrix = ColourMatrix::BT709;
    limited.range = ColourRange::Limited;
    loader->setColour(limited);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before; }, kWaitMs));
    EXPECT_EQ(owner.seen().back().content, owner.seen()[before - 1].content) << "the same frame, not read again";
    EXPECT_EQ(grey(owner.seen().back()), 255);
    EXPECT_EQ(loader->pendingProps().colour, limited);
    const int inits = owner.initializedCount();

    // While playing: the loader is held inside a delivery, the reading changes, and the frames after it
    // come in the new reading without a stop or a new init.
    loader->setColour(ColourDescription{});
    ASSERT_TRUE(show(4));
    EXPECT_EQ(grey(owner.seen().back()), fixed);
    owner.hold();
    emit owner.play();
    ASSERT_TRUE(owner.waitUntilHeld());
    loader->setColour(limited);
    before = owner.seen().size();
    owner.release();
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before + 2; }, kWaitMs));
    emit owner.pause();
    const auto s = owner.seen();
    for (size_t i = before + 1; i < s.size(); ++i)
        EXPECT_EQ(grey(s[i]), s[i].content % 2 ? 255 : 0) << "frame " << s[i].index;
    EXPECT_EQ(owner.initializedCount(), inits);
}

// The tone sliders act on the file's own picture; while the difference is shown the contrast slider
// moves the difference gain and brightness and gamma wait for the file's picture to come back.
TEST(ToneSliders, FollowWhatIsShown)
{
    const struct {
        const char *name;
        bool second;
        int32_t view;
        kavri::ToneSlider slider;
        int32_t brightness, contrast, gamma, differenceContrast;
    } cases[] = {
        {"own picture brightness", false, 0, kavri::ToneSlider::Brightness, 40, 0, 256, 0},
        {"own picture contrast", false, 0, kavri::ToneSlider::Contrast, 0, 40, 256, 0},
        {"own picture gamma", false, 0, kavri::ToneSlider::Gamma, 0, 0, 40, 0},
        {"difference contrast", true, 0, kavri::ToneSlider::Contrast, 0, 0, 256, 40},
        {"difference brightness", true, 0, kavri::ToneSlider::Brightness, 0, 0, 256, 0},
        {"difference gamma", true, 3, kavri::ToneSlider::Gamma, 0, 0, 256, 0},
        {"first file of a pair", true, 1, kavri::ToneSlider::Contrast, 0, 40, 256, 0},
        {"second file of a pair", true, 2, kavri::ToneSlider::Brightness, 40, 0, 256, 0},
    };
    for (const auto &c : cases) {
        kavri::ViewSettings v;
        v.view = c.view;
        kavri::moveToneSlider(v, c.second, c.slider, 40);
        EXPECT_EQ(v.brightness, c.brightness) << c.name;
        EXPECT_EQ(v.contrast, c.contrast) << c.name;
        EXPECT_EQ(v.gamma, c.gamma) << c.name;
        EXPECT_EQ(v.differenceContrast, c.differenceContrast) << c.name;
    }
}

TEST_F(Loader, NativeReadoutRejectsCoordinatesOutsideThePicture)
{
    open(dir.write("a.bw", markedFrames(0, 2)));
    settle(1);
    const struct {
        int32_t x, y;
    } outside[] = {{-1, 0}, {0, -1}, {kW, 0}, {0, kH}, {INT32_MIN, INT32_MIN}};
    for (const auto &c : outside) {
        bool ok = true;
        colorSpace_t space = FMT_UNKNOWN;
        int32_t c1 = 7, c2 = 7, c3 = 7, alpha = 7;
        emit owner.getNativeAt(&ok, c.x, c.y, space, c1, c2, c3, &alpha);
        EXPECT_FALSE(ok) << c.x << "," << c.y;
        EXPECT_EQ(space, FMT_UNKNOWN); // nothing else is written
        EXPECT_EQ(c1, 7);
    }
    bool ok = false;
    colorSpace_t space = FMT_UNKNOWN;
    int32_t c1 = 0, c2 = 0, c3 = 0;
    emit owner.getNativeAt(&ok, kW - 1, kH - 1, space, c1, c2, c3, nullptr);
    EXPECT_EQ(space, BW);
}

#ifdef Q_OS_UNIX
TEST_F(Loader, StandardInputThroughAPipeEndsWithStopped)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    open(QStringLiteral("-"), {}, 1000.0, fds[0]);
    emit owner.play();
    // Three whole frames and half of a fourth, then the end of the input.
    QByteArray data = markedFrames(0, 3) + markedFrame(3).left(int(kFrameBytes / 2));
    std::thread writer([&] {
        const char *p = data.constData();
        qint64 left = data.size();
        while (left > 0) {
            const ssize_t k = ::write(fds[1], p, size_t(std::min<qint64>(left, 100)));
            if (k <= 0) break;
            p += k;
            left -= k;
        }
        ::close(fds[1]);
    });
    writer.join();
    ASSERT_TRUE(waitStopped());
    const auto s = owner.seen();
    ASSERT_EQ(s.size(), 4u);
    for (uint64_t i = 0; i < 4; ++i) {
        EXPECT_EQ(s[i].index, i);
        EXPECT_EQ(s[i].content, i); // the partial frame is shown with the bytes it has
    }
    close();
    ::close(fds[0]);
}

// Standard input cannot be read twice: a view change while paused converts the frame already read, and
// the next frame read is the one after it in the stream.
TEST_F(Loader, StandardInputShowsAViewChangeWhilePaused)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    open(QStringLiteral("-"), {}, 1000.0, fds[0]);
    const QByteArray first = markedFrame(0);
    ASSERT_EQ(::write(fds[1], first.constData(), size_t(first.size())), first.size());
    emit owner.seek(0, false, false);
    ASSERT_TRUE(waitFrames(1));
    const size_t before = owner.seen().size();
    changeView([](KavriLoader::View &v) { v.picture.channel = 2; });
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before; }, kWaitMs)) << "the change was not shown";
    EXPECT_EQ(owner.seen().back().content, 0u);
    EXPECT_EQ(owner.seen().back().index, 0u);
    const QByteArray second = markedFrame(1);
    ASSERT_EQ(::write(fds[1], second.constData(), size_t(second.size())), second.size());
    emit owner.seek(1, false, false);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.seen().size() > before + 1; }, kWaitMs));
    EXPECT_EQ(owner.seen().back().content, 1u);
    ::close(fds[1]);
    close();
    ::close(fds[0]);
}

// A named pipe a decoder writes into plays as standard input does: opening it never waits for the
// writer (create returns at once, on the thread that must stay responsive), it has no frame count, and
// it plays front to back until the writer closes it. Either file of a pair may be the pipe.
struct PipeCase {
    const char *name;
    bool mainIsPipe, diffIsPipe;
};

class NamedPipe : public Loader, public ::testing::WithParamInterface<PipeCase> {};

TEST_P(NamedPipe, PlaysAsAStreamWithoutBlockingTheOpener)
{
    const PipeCase c = GetParam();
    const QString pipeA = dir.path("a.fifo"), pipeB = dir.path("b.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipeA).constData(), 0600), 0);
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipeB).constData(), 0600), 0);
    const QByteArray data = markedFrames(0, 3);
    const QString main = c.mainIsPipe ? pipeA : dir.write("a.bw", data);
    const QString diff = c.diffIsPipe ? pipeB : dir.write("b.bw", data);
    ASSERT_TRUE(returnsWithin([&] { loader = KavriLoader::create(main, diff, options()); }, 5000))
        << "opening waited for a writer";
    describeAndAttach();
    EXPECT_TRUE(loader->isStdin());
    EXPECT_EQ(loader->frameCount(), 0u);
    EXPECT_TRUE(kavri::isPlayable(loader->validityMask()));
    emit owner.play();
    std::vector<std::thread> writers;
    if (c.mainIsPipe)
        writers.emplace_back([pipeA, data] {
            QFile w(pipeA);
            if (w.open(QIODevice::WriteOnly)) w.write(data);
        });
    if (c.diffIsPipe)
        writers.emplace_back([pipeB, data] {
            QFile w(pipeB);
            if (w.open(QIODevice::WriteOnly)) w.write(data);
        });
    for (std::thread &t : writers) t.join();
    ASSERT_TRUE(waitStopped());
    const auto seen = owner.seen();
    ASSERT_EQ(seen.size(), 3u);
    for (uint64_t i = 0; i < 3; ++i) {
        EXPECT_EQ(seen[i].index, i);
        // The difference picture is shown: frames read in step from both sources do not differ.
        EXPECT_EQ(seen[i].frame.mse[0], 0.0) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Loader, NamedPipe,
                         ::testing::Values(PipeCase{"Main", true, false}, PipeCase{"Difference", false, true},
                                           PipeCase{"Both", true, true}),
                         [](const auto &info) { return std::string(info.param.name); });

// Nobody ever writes: the window can still close the loader.
TEST_F(Loader, QuitWhileANamedPipeHasNoWriter)
{
    const QString pipe = dir.path("silent.fifo");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    ASSERT_TRUE(returnsWithin([&] { loader = KavriLoader::create(pipe, {}, options()); }, 5000));
    describeAndAttach();
    emit owner.play();
    close();
}

TEST_F(Loader, QuitWhileStandardInputStallsMidFrame)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    open(QStringLiteral("-"), {}, 1000.0, fds[0]);
    const QByteArray half = markedFrame(0).left(int(kFrameBytes / 2));
    ASSERT_EQ(::write(fds[1], half.constData(), size_t(half.size())), half.size());
    emit owner.play();
    close(); // the writer never finishes the frame
    ::close(fds[1]);
    ::close(fds[0]);
}
#endif

} // namespace

namespace {
// A record whose container is not 8 or 16 (a hand-edited or older stored record, a side file) used to
// size the buffers for one byte a sample while the difference walked two: every source's record is now
// brought to a container that holds its depth before a buffer is made.
TEST_F(Loader, OddContainersAreNormalisedBeforeBuffersAreMade)
{
    const struct {
        int32_t bits, container, want;
    } rows[] = {{10, 12, 16}, {12, 24, 16}, {8, 12, 8}, {9, 0, 16}, {8, 16, 16}, {10, 8, 16}};
    for (const auto &r : rows) {
        SCOPED_TRACE(testing::Message() << r.bits << " bits in " << r.container);
        const QString a = dir.write(QStringLiteral("a%1_%2.bw").arg(r.bits).arg(r.container), markedFrames(0, 8));
        const QString b = dir.write(QStringLiteral("b%1_%2.bw").arg(r.bits).arg(r.container), markedFrames(3, 8));
        KavriLoader *l = KavriLoader::create(a, b, options());
        ASSERT_NE(l, nullptr);
        VideoProps &p = l->pendingProps();
        p.width = 8;
        p.height = 8; // 64 samples: 64 or 128 bytes a frame, inside the 256-byte frames of the files
        p.format = BW;
        p.bitDepth = r.bits;
        p.containerBits = r.container;
        p.frameRate = 1000.0;
        ASSERT_TRUE(kavri::isPlayable(l->validate()));
        EXPECT_EQ(l->pendingProps().containerBits, r.want);
        TestOwner local;
        local.loader = l;
        l->attach(&local, &local);
        ASSERT_TRUE(local.waitUntil([&] { return local.initializedCount() >= 1; }, kWaitMs));
        EXPECT_GE(l->frameBufferSize(), uint32_t(64 * r.want / 8));
        emit local.seek(1, false, false);
        ASSERT_TRUE(local.waitForFrames(1, kWaitMs));
        const frame_t f = local.lastFrame();
        EXPECT_TRUE(std::isfinite(f.mse[0]) && f.mse[0] > 0);
        EXPECT_TRUE(returnsWithin([l] { l->detach(); }));
    }
}
} // namespace
