// The metrics panel: the background pass over a pair, its cache, the buttons that ask for frames, the
// exports, and the panel in the player window following the shown frame.
#include "ui/MetricsDock.h"
#include "formats/FrameSize.h"
#include "formats/Y4mHeader.h"
#include "loader/Frame.h"
#include "pixel/PatternGenerator.h"
#include "support/QtWait.h"
#include "support/TempFiles.h"
#include "ui/MetricsPair.h"
#include "ui/frame.h"

#include <QAction>
#include <QChartView>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::ui::MetricsDock;

namespace {

constexpr int32_t kW = 64, kH = 48, kFrames = 6;

// A pattern sequence and a copy with one changed luma sample in frame 4 and a changed chroma sample
// in frame 5; returns the record of the pair.
VideoProps writePair(const test::TempDir &dir)
{
    PatternSpec s;
    s.width = kW;
    s.height = kH;
    QByteArray a, b;
    std::vector<uint8_t> f(patternFrameBytes(s));
    for (int i = 0; i < kFrames; ++i) {
        writePatternFrame(s, uint64_t(i), f.data(), f.size());
        QByteArray frame(reinterpret_cast<const char *>(f.data()), int(f.size()));
        a += frame;
        if (i == 4) frame[kW * 10 + 7] = char(frame[kW * 10 + 7] ^ 4);
        if (i == 5) frame[kW * kH + 3] = char(frame[kW * kH + 3] ^ 8);
        b += frame;
    }
    VideoProps p;
    p.fileName = dir.write("a.yuv", a);
    p.diffFileName = dir.write("b.yuv", b);
    p.width = kW;
    p.height = kH;
    p.format = YUV_p420;
    p.bitDepth = 8;
    p.containerBits = 8;
    p.frameBytes = uint32_t(f.size());
    p.frameCount = kFrames;
    return p;
}

TEST(MetricsDock, WorksOutThePairInTheBackground)
{
    test::TempDir dir;
    const VideoProps p = writePair(dir);
    MetricsDock dock;
    dock.show();
    QSignalSpy done(&dock, &MetricsDock::computed);
    dock.setPair(p);
    KAVRI_TRY_COMPARE(done.count(), 1, 20000);
    const pixel::SequenceSummary &s = dock.summary();
    ASSERT_EQ(s.frames().size(), size_t(kFrames));
    const pixel::SequenceSummary::Mismatch mm = s.firstMismatch();
    EXPECT_EQ(mm.frame, 4);
    EXPECT_EQ(mm.component, 0);
    EXPECT_EQ(mm.x, 7);
    EXPECT_EQ(mm.y, 10);
    EXPECT_TRUE(std::isinf(s.frames()[0].psnr[0]));
    EXPECT_LT(s.frames()[4].ssim[0], 1.0);

    // The buttons ask for the worst frame (by PSNR, the first luma change) and the first mismatch.
    QSignalSpy asked(&dock, &MetricsDock::frameRequested);
    dock.findChild<QPushButton *>("metricsWorst")->click();
    dock.findChild<QPushButton *>("metricsFirstMismatch")->click();
    ASSERT_EQ(asked.count(), 2);
    EXPECT_EQ(asked[0][0].toULongLong(), 4u);
    EXPECT_EQ(asked[1][0].toULongLong(), 4u);
    // By SSIM of the first component too.
    dock.setMetric(pixel::Metric::Ssim);
    dock.findChild<QPushButton *>("metricsWorst")->click();
    EXPECT_EQ(asked.last()[0].toULongLong(), 4u);

    // A click on the graph asks for the frame under it.
    QChartView *view = dock.chartView();
    const QPointF at = view->chart()->mapToPosition(QPointF(2, view->chart()->plotArea().center().y()));
    const QPointF onPlot(at.x(), view->chart()->plotArea().center().y());
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, onPlot.toPoint());
    EXPECT_EQ(asked.last()[0].toULongLong(), 2u);

    // Exports: the engine's CSV table and a picture of the graph.
    const QString csv = dir.path("m.csv"), png = dir.path("m.png");
    ASSERT_TRUE(dock.exportCsv(csv));
    QFile f(csv);
    ASSERT_TRUE(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().trimmed().split('\n');
    ASSERT_EQ(lines.size(), 1 + kFrames + 2);
    EXPECT_TRUE(lines[0].startsWith("frame,mse_1,mse_2,mse_3,psnr_1"));
    EXPECT_TRUE(lines[1].startsWith("0,0.0,0.0,0.0,inf,inf,inf,1.0"));
    ASSERT_TRUE(dock.exportPng(png));
    EXPECT_FALSE(QImage(png).isNull());
}

TEST(MetricsDock, CachedWhileTheFilesAreUnchanged)
{
    test::TempDir dir;
    VideoProps p = writePair(dir);
    MetricsDock dock;
    dock.show();
    QSignalSpy done(&dock, &MetricsDock::computed);
    dock.setPair(p);
    KAVRI_TRY_COMPARE(done.count(), 1, 20000);
    // Another panel (as after closing and opening it) finds the table at once.
    MetricsDock other;
    QSignalSpy again(&other, &MetricsDock::computed);
    other.setPair(p);
    EXPECT_EQ(again.count(), 1);
    EXPECT_FALSE(other.busy());
    EXPECT_EQ(other.summary().frames().size(), size_t(kFrames));
    // A changed second file is worked out afresh: now identical.
    QFile::remove(p.diffFileName);
    ASSERT_TRUE(QFile::copy(p.fileName, p.diffFileName));
    QFile touched(p.diffFileName);
    ASSERT_TRUE(touched.open(QIODevice::ReadWrite));
    touched.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime);
    touched.close();
    other.setPair(p);
    KAVRI_TRY_COMPARE(again.count(), 2, 20000);
    EXPECT_TRUE(other.summary().identical());
    // No second file: an empty panel.
    p.diffFileName.clear();
    other.setPair(p);
    EXPECT_TRUE(other.summary().frames().empty());
}

TEST(MetricsDock, CancelStopsThePass)
{
    test::TempDir dir;
    VideoProps p;
    // A long pair (sparse files of hours of frames), so that the pass is still running when cancelled.
    const int32_t w = 640, h = 360;
    const qint64 frameBytes = qint64(w) * h * 3 / 2;
    p.fileName = dir.path("a.yuv");
    p.diffFileName = dir.path("b.yuv");
    for (const QString &name : {p.fileName, p.diffFileName}) {
        QFile f(name);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        ASSERT_TRUE(f.resize(frameBytes * 100000));
    }
    p.width = w;
    p.height = h;
    p.format = YUV_p420;
    p.bitDepth = 8;
    p.containerBits = 8;
    p.frameBytes = uint32_t(frameBytes);
    p.frameCount = 100000;
    MetricsDock dock;
    dock.show();
    QSignalSpy done(&dock, &MetricsDock::computed);
    dock.setPair(p);
    dock.findChild<QPushButton *>("metricsCancel")->click();
    EXPECT_FALSE(dock.busy());
    EXPECT_EQ(done.count(), 1);
    EXPECT_LT(dock.summary().frames().size(), size_t(100000));
}

// While the window plays the pass waits, says so, and finishes when playback stops; a cancel while it
// waits ends it.
TEST(MetricsDock, ThePassWaitsWhilePlaying)
{
    for (const bool cancelWhileWaiting : {false, true}) {
        SCOPED_TRACE(cancelWhileWaiting ? "cancelled while waiting" : "resumed");
        test::TempDir dir;
        const VideoProps p = writePair(dir);
        MetricsDock dock;
        dock.show();
        QSignalSpy done(&dock, &MetricsDock::computed);
        QSignalSpy paused(&dock, &MetricsDock::passPaused);
        dock.setPlaying(true);
        dock.setPair(p);
        KAVRI_TRY_VERIFY(dock.passWaiting(), 20000);
        KAVRI_TRY_COMPARE(paused.count(), 1, 20000);
        EXPECT_TRUE(paused[0][0].toBool());
        EXPECT_TRUE(dock.busy());
        EXPECT_EQ(done.count(), 0);
        EXPECT_TRUE(dock.summary().frames().empty());
        EXPECT_TRUE(dock.findChild<QProgressBar *>("metricsProgress")->text().contains("paused while playing"));
        EXPECT_TRUE(dock.findChild<QLabel *>("metricsSummary")->text().startsWith("Paused while the window plays"));
        if (cancelWhileWaiting) {
            dock.cancel();
            EXPECT_FALSE(dock.busy());
            EXPECT_EQ(done.count(), 1);
            EXPECT_TRUE(dock.summary().frames().empty());
            continue;
        }
        // Frames shown while playing: the cursor follows in steps and ends on the last one.
        frame_t shown;
        for (uint64_t i = 1; i <= 5; ++i) {
            shown.frameIndex = i;
            dock.frameShown(&shown);
        }
        KAVRI_TRY_COMPARE(dock.cursorFrame(), uint64_t(5), 20000);
        shown.frameIndex = 3;
        dock.frameShown(&shown);
        dock.setPlaying(false);
        // Stopped: at the last shown frame at once.
        KAVRI_TRY_COMPARE(dock.cursorFrame(), uint64_t(3), 20000);
        KAVRI_TRY_COMPARE(done.count(), 1, 20000);
        EXPECT_EQ(dock.summary().frames().size(), size_t(kFrames));
        EXPECT_FALSE(dock.findChild<QProgressBar *>("metricsProgress")->text().contains("paused"));
    }
}

// A difference file that states a depth of its own (a y4m header, a name) is read at that depth and both
// are compared at the larger one, as kavri-cli metrics --bits2 compares them: the first file's samples
// shifted up are then identical to it. A file at the pair's depth is read as before.
TEST(MetricsDock, ADifferenceFileOfItsOwnDepthIsComparedAtTheLargerDepth)
{
    struct Case {
        const char *name;
        int32_t bitsA, bitsB;
        const char *secondName;
        bool y4m, changeOne;
        bool wantOwnDepth, wantIdentical;
    };
    const Case cases[] = {
        {"y4m of 12 bits against 10", 10, 12, "b.y4m", true, false, true, true},
        {"name of 10 bits against 8", 8, 10, "b_10bit.yuv", false, false, true, true},
        {"name of 16 bits against 9", 9, 16, "b_16bit.yuv", false, false, true, true},
        {"name of the same depth", 8, 8, "b_8bit.yuv", false, true, false, false},
        {"no depth of its own", 10, 10, "b.yuv", false, false, false, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        test::TempDir dir;
        PatternSpec s;
        s.width = kW;
        s.height = kH;
        s.bits = c.bitsA;
        s.containerBits = c.bitsA > 8 ? 16 : 8;
        const int32_t containerB = c.bitsB > 8 ? 16 : 8;
        const int64_t samples = int64_t(kW) * kH * 3 / 2;
        QByteArray a, b;
        VideoProps second;
        second.width = kW;
        second.height = kH;
        second.format = YUV_p420;
        second.bitDepth = c.bitsB;
        second.containerBits = containerB;
        if (c.y4m) b += y4mHeaderLine(second);
        std::vector<uint8_t> f(patternFrameBytes(s));
        for (int i = 0; i < kFrames; ++i) {
            writePatternFrame(s, uint64_t(i), f.data(), f.size());
            a += QByteArray(reinterpret_cast<const char *>(f.data()), qsizetype(f.size()));
            if (c.y4m) b += "FRAME\n";
            for (int64_t k = 0; k < samples; ++k) {
                uint32_t v =
                    s.containerBits == 16 ? uint32_t(f[size_t(2 * k)] | f[size_t(2 * k + 1)] << 8) : f[size_t(k)];
                v <<= (c.bitsB - c.bitsA);
                if (c.changeOne && i == 2 && k == 100) v ^= 1;
                b += char(v & 0xff);
                if (containerB == 16) b += char(v >> 8);
            }
        }
        VideoProps p;
        p.fileName = dir.write("a.yuv", a);
        p.diffFileName = dir.write(c.secondName, b);
        p.width = kW;
        p.height = kH;
        p.format = YUV_p420;
        p.bitDepth = c.bitsA;
        p.containerBits = s.containerBits;
        p.frameBytes = uint32_t(f.size());
        p.frameCount = kFrames;

        const kavri::ui::MetricsSecondFile read = kavri::ui::metricsSecondFile(p);
        EXPECT_TRUE(read.error.isEmpty()) << read.error.toStdString();
        EXPECT_EQ(read.ownDepth, c.wantOwnDepth);
        EXPECT_EQ(read.props.bitDepth, c.wantOwnDepth ? c.bitsB : c.bitsA);
        EXPECT_EQ(read.props.frameCount, uint64_t(kFrames));

        MetricsDock dock;
        dock.show();
        QSignalSpy done(&dock, &MetricsDock::computed);
        dock.setPair(p);
        KAVRI_TRY_COMPARE(done.count(), 1, 20000);
        const pixel::SequenceSummary &sum = dock.summary();
        ASSERT_EQ(sum.frames().size(), size_t(kFrames));
        EXPECT_EQ(sum.identical(), c.wantIdentical);
        if (c.wantIdentical) {
            EXPECT_TRUE(std::isinf(sum.frames()[3].psnr[0]));
            EXPECT_EQ(sum.frames()[3].ssim[1], 1.0);
        } else {
            EXPECT_EQ(sum.firstMismatch().frame, 2);
            EXPECT_EQ(sum.firstMismatch().x, 100 % kW);
            EXPECT_EQ(sum.firstMismatch().y, 100 / kW);
        }
    }
}

TEST(MetricsDock, ThePlayerOpensItAndItFollowsTheShownFrame)
{
    test::TempDir dir;
    const VideoProps p = writePair(dir);
    KavriStartupConfig c;
    c.file = p.fileName;
    c.diff = p.diffFileName;
    c.width = kW;
    c.height = kH;
    c.format = YUV_p420;
    frame w(&c);
    w.show();
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    QAction *a = w.action("actionMetrics");
    ASSERT_NE(a, nullptr);
    EXPECT_TRUE(a->isCheckable());
    a->trigger();
    auto *dock = w.findChild<MetricsDock *>("metricsDock");
    ASSERT_NE(dock, nullptr);
    EXPECT_TRUE(dock->isVisible());
    KAVRI_TRY_COMPARE(dock->summary().frames().size(), size_t(kFrames), 20000);
    // Playing holds the panel's pass; pausing lets it go.
    EXPECT_FALSE(dock->passHeld());
    w.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(w.isPlaying(), 20000);
    EXPECT_TRUE(dock->passHeld());
    w.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(!w.isPlaying(), 20000);
    EXPECT_FALSE(dock->passHeld());
    // The first mismatch button moves the player there, and the cursor follows the shown frame.
    dock->findChild<QPushButton *>("metricsFirstMismatch")->click();
    KAVRI_TRY_COMPARE(dock->cursorFrame(), uint64_t(4), 20000);
    a->trigger();
    EXPECT_FALSE(dock->isVisible());
}

} // namespace
