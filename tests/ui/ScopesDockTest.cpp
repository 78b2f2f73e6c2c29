// The scopes panel: it shows the result of a frame offered to it, only paints what the worker finished,
// copies nothing while hidden, and the window's Scopes action opens it on the frame on screen.
#include "ui/ScopesDock.h"
#include "formats/RememberedFormats.h"
#include "loader/Frame.h"
#include "loader/KavriLoader.h"
#include "pixel/PatternGenerator.h"
#include "support/QtWait.h"
#include "support/TempFiles.h"
#include "ui/frame.h"
#include "view/ScopeViews.h"

#include <QAction>
#include <QCheckBox>
#include <QMenu>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTest>
#include <condition_variable>
#include <gtest/gtest.h>
#include <mutex>

using namespace kavri;

namespace {

constexpr int kWaitMs = 20000;

// Six 75 % bars with the BT.601 limited-range codes, 4:4:4 8 bits, 10 columns each; luma 16 in the first
// row so the minimum is known.
struct BarsFrame {
    static constexpr int32_t W = 60, H = 4;
    std::vector<uint8_t> bytes = std::vector<uint8_t>(size_t(W) * H * 3);
    VideoProps props;
    frame_t frame;
    BarsFrame(uint64_t index)
    {
        const int32_t cb[6] = {100, 184, 212, 156, 72, 44}, cr[6] = {212, 198, 114, 44, 58, 142};
        for (int32_t y = 0; y < H; ++y)
            for (int32_t x = 0; x < W; ++x) {
                bytes[size_t(y * W + x)] = uint8_t(y == 0 ? 16 : 120);
                bytes[size_t(W * H + y * W + x)] = uint8_t(cb[x / 10]);
                bytes[size_t(2 * W * H + y * W + x)] = uint8_t(cr[x / 10]);
            }
        props.format = YUV_p444;
        props.width = W;
        props.height = H;
        props.bitDepth = 8;
        props.containerBits = 8;
        props.colour.matrix = ColourMatrix::BT601;
        props.colour.range = ColourRange::Limited;
        frame.frameIndex = index;
        frame.samples = bytes.data();
        frame.sampleBytes = uint32_t(bytes.size());
        frame.sampleProps = &props;
    }
};

TEST(ScopesDock, ShowsTheScopesOfAnOfferedFrame)
{
    ui::ScopesDock dock;
    dock.show();
    BarsFrame bars(7);
    dock.frameShown(&bars.frame);
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(7), kWaitMs);

    QTableWidget *t = dock.table();
    ASSERT_EQ(t->rowCount(), 3);
    EXPECT_EQ(t->verticalHeaderItem(0)->text(), "Y");
    EXPECT_EQ(t->verticalHeaderItem(2)->text(), "V");
    EXPECT_EQ(t->item(0, 0)->text(), "16");  // min
    EXPECT_EQ(t->item(0, 1)->text(), "120"); // max
    EXPECT_EQ(t->item(1, 0)->text(), "44");
    EXPECT_EQ(t->item(1, 1)->text(), "212");
    EXPECT_EQ(t->item(0, 2)->text(), "94.00"); // (16 + 3 * 120) / 4

    // Each bar lights the vectorscope where its target box is drawn (V grows upwards in the picture).
    const QImage &scope = dock.vectorscope()->picture();
    ASSERT_EQ(scope.size(), QSize(256, 256));
    const QRgb background = qRgb(16, 16, 16);
    for (const pixel::ScopeTarget &target : dock.vectorscope()->data()->targets) {
        SCOPED_TRACE(std::string(1, target.name));
        const QPointF at = view::VectorscopeView::targetPoint(target, QRectF(0, 0, 256, 256));
        EXPECT_NE(scope.pixel(int(at.x()), int(at.y())), background);
    }
    EXPECT_EQ(scope.pixel(128, 128), background); // no grey in the frame
    EXPECT_EQ(dock.waveform()->picture().size(), QSize(60, 256));
    EXPECT_FALSE(dock.histogram()->picture().isNull());
}

TEST(ScopesDock, TheParadeSwitchTurnsTheLumaWaveformIntoRedGreenAndBlue)
{
    ui::ScopesDock dock;
    dock.show();
    BarsFrame first(1), second(2);
    dock.frameShown(&first.frame);
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(1), kWaitMs);
    EXPECT_EQ(dock.waveform()->data()->waveform.parts, 1);
    dock.parade()->setChecked(true);
    KAVRI_TRY_VERIFY(!dock.feed().isBusy(), kWaitMs);
    dock.frameShown(&second.frame);
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(2), kWaitMs);
    EXPECT_EQ(dock.waveform()->data()->waveform.parts, 3);
    EXPECT_EQ(dock.waveform()->picture().size(), QSize(3 * 60, 256));
}

// A frame skipped while the worker was busy leaves the scopes an earlier frame behind; once playback has
// stopped nothing else comes, so the panel asks for the frame on screen again.
TEST(ScopesDock, AfterPlaybackAFrameSkippedWhileBusyIsAskedForAgain)
{
    ui::ScopesDock dock;
    dock.show();
    QSignalSpy wanted(&dock, &ui::ScopesDock::frameWanted);
    std::mutex m;
    std::condition_variable cv;
    bool open = false, entered = false;
    dock.feed().setWorkGate([&] {
        std::unique_lock l(m);
        entered = true;
        cv.notify_all();
        cv.wait(l, [&] { return open; });
    });
    dock.setPlaying(true);
    BarsFrame first(1), second(2);
    dock.frameShown(&first.frame);
    {
        std::unique_lock l(m);
        ASSERT_TRUE(cv.wait_for(l, std::chrono::milliseconds(kWaitMs), [&] { return entered; }));
    }
    dock.frameShown(&second.frame); // the worker is busy with frame 1
    EXPECT_TRUE(dock.isBehind());
    dock.setPlaying(false); // frame 1's result is still on its way: it will ask
    EXPECT_EQ(wanted.count(), 0);
    {
        std::lock_guard l(m);
        open = true;
    }
    cv.notify_all();
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(1), kWaitMs);
    EXPECT_EQ(wanted.count(), 1);
    // The window answers with the frame on screen; the panel catches up and asks no more.
    dock.frameShown(&second.frame);
    EXPECT_FALSE(dock.isBehind());
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(2), kWaitMs);
    EXPECT_EQ(wanted.count(), 1);
}

TEST(ScopesDock, AHiddenPanelCopiesNoFrame)
{
    ui::ScopesDock dock;
    BarsFrame bars(1);
    dock.frameShown(&bars.frame);
    EXPECT_EQ(dock.feed().accepted(), 0u);
    dock.show();
    dock.hide();
    dock.frameShown(&bars.frame);
    EXPECT_EQ(dock.feed().accepted(), 0u);
}

TEST(ScopesDock, ClearForgetsTheShownFrame)
{
    ui::ScopesDock dock;
    dock.show();
    BarsFrame bars(3);
    dock.frameShown(&bars.frame);
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(3), kWaitMs);
    dock.clear();
    EXPECT_EQ(dock.shownFrame(), -1);
    EXPECT_EQ(dock.table()->rowCount(), 0);
    EXPECT_TRUE(dock.vectorscope()->picture().isNull());
}

TEST(ScopesDock, TheLogarithmicHistogramLiftsSmallBins)
{
    const struct {
        uint64_t count, peak;
        bool log;
        double height;
    } rows[] = {
        {0, 100, false, 0.0},  {0, 100, true, 0.0}, {100, 100, false, 1.0}, {100, 100, true, 1.0},
        {1, 100, false, 0.01}, {9, 99, true, 0.5},  {50, 100, false, 0.5},  {5, 0, false, 0.0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(std::to_string(r.count) + "/" + std::to_string(r.peak) + (r.log ? " log" : ""));
        EXPECT_NEAR(view::HistogramView::barHeight(r.count, r.peak, r.log), r.height, 1e-9);
    }
    ui::ScopesDock dock;
    dock.show();
    BarsFrame bars(2);
    dock.frameShown(&bars.frame);
    KAVRI_TRY_COMPARE(dock.shownFrame(), qint64(2), kWaitMs);
    const QImage linear = dock.histogram()->picture();
    dock.logarithmic()->setChecked(true);
    EXPECT_NE(dock.histogram()->picture(), linear);
}

TEST(ScopesDock, TheWindowOpensThePanelOnTheFrameOnScreen)
{
    test::TempDir dir;
    PatternSpec s;
    s.layout = YUV_p420;
    s.width = 64;
    s.height = 32;
    std::vector<uint8_t> one(patternFrameBytes(s));
    QByteArray file;
    for (uint64_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(writePatternFrame(s, i, one.data(), one.size()));
        file.append(reinterpret_cast<const char *>(one.data()), qsizetype(one.size()));
    }
    KavriStartupConfig c;
    c.file = dir.write("scopes.yuv", file);
    c.width = s.width;
    c.height = s.height;
    c.format = YUV_p420;
    {
        frame w(&c);
        w.show();
        KAVRI_TRY_VERIFY(w.loader() && w.loader()->hasShownAFrame(), kWaitMs);
        QAction *a = w.action("actionScopes");
        ASSERT_NE(a, nullptr);
        EXPECT_TRUE(a->isCheckable());
        auto *menu = w.findChild<QMenu *>("menuScopes");
        ASSERT_NE(menu, nullptr);
        EXPECT_TRUE(menu->actions().contains(a));
        a->trigger();
        auto *dock = w.findChild<ui::ScopesDock *>();
        ASSERT_NE(dock, nullptr);
        EXPECT_TRUE(dock->isVisible());
        // Paused on frame 0: the panel gets it without a new delivery being asked for.
        KAVRI_TRY_COMPARE(dock->shownFrame(), qint64(0), kWaitMs);
        EXPECT_EQ(dock->table()->rowCount(), 3);
        w.action("actionNext")->trigger();
        KAVRI_TRY_COMPARE(dock->shownFrame(), qint64(1), kWaitMs);
        a->trigger();
        EXPECT_FALSE(dock->isVisible());
        w.action("actionCloseFile")->trigger();
        EXPECT_EQ(dock->shownFrame(), -1);
    }
    forgetRemembered(c.file);
}

} // namespace
