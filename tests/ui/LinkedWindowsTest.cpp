#include "link/LinkProtocol.h"
#include "loader/KavriLoader.h"
#include "support/QtWait.h"
#include "support/TempFiles.h"
#include "ui/frame.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {

constexpr int kWaitMs = 20000;

KavriStartupConfig cif(const QString &file)
{
    KavriStartupConfig c;
    c.file = file;
    c.width = 352;
    c.height = 288;
    c.format = YUV_p420;
    c.rate = 25;
    return c;
}

TEST(LinkedWindows, SeekPlayAndQuitCrossWithoutEcho)
{
    kavri::test::TempDir dir;
    const QString a = dir.writeSized("a.yuv", 152064 * 20);
    const QString b = dir.writeSized("b.yuv", 152064 * 10);
    KavriStartupConfig ca = cif(a), cb = cif(b);
    frame wa(&ca), wb(&cb);
    KAVRI_TRY_VERIFY(wa.loader() && wb.loader(), kWaitMs);

    const QString name = kavri::link::newLinkName();
    wa.startLink(name, true);
    wb.startLink(name, false);
    ASSERT_TRUE(wa.isLinked());
    ASSERT_TRUE(wb.isLinked());

    QSignalSpy seeksOfA(&wa, &frame::seek), seeksOfB(&wb, &frame::seek);
    wa.action("actionLast_Frame")->trigger();
    // B shows the same frame (clamped to its own length) and does not send it back to A.
    KAVRI_TRY_COMPARE(wb.currentFrame(), uint64_t(9), kWaitMs);
    ASSERT_GE(seeksOfB.count(), 1);
    EXPECT_TRUE(seeksOfB.last().at(1).toBool()) << "a remote seek carries the remote flag";
    QTest::qWait(300);
    EXPECT_EQ(seeksOfA.count(), 1) << "no echo";

    wb.action("actionFirst_Frame")->trigger();
    KAVRI_TRY_COMPARE(wa.currentFrame(), uint64_t(0), kWaitMs);

    wa.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(wb.isPlaying(), kWaitMs);
    wa.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(!wb.isPlaying(), kWaitMs);

    wa.endLink();
    KAVRI_TRY_VERIFY(!wb.isLinked(), kWaitMs);
}

// After a pause both players stand on the same frame, whichever frame each had reached when "paus"
// arrived: the pausing side follows it with a seek to the frame it shows.
TEST(LinkedWindows, PausedPlayersStandOnTheSameFrame)
{
    kavri::test::TempDir dir;
    const QString a = dir.writeSized("pa.yuv", 4608 * 2000);
    const QString b = dir.writeSized("pb.yuv", 4608 * 2000);
    KavriStartupConfig ca = cif(a), cb = cif(b);
    for (KavriStartupConfig *c : {&ca, &cb}) {
        c->width = 64;
        c->height = 48;
        c->rate = 200; // fast, so the players are often a frame apart when the pause arrives
    }
    frame wa(&ca), wb(&cb);
    KAVRI_TRY_VERIFY(wa.loader() && wb.loader() && wa.loader()->isInitialized() && wb.loader()->isInitialized(),
                     kWaitMs);
    const QString name = kavri::link::newLinkName();
    wa.startLink(name, true);
    wb.startLink(name, false);
    ASSERT_TRUE(wa.isLinked() && wb.isLinked());
    for (int round = 0; round < 5; ++round) {
        SCOPED_TRACE(round);
        wa.action("actionPlay")->trigger();
        KAVRI_TRY_VERIFY(wb.loader()->isPlaying(), kWaitMs);
        QTest::qWait(37 + 11 * round); // let both run a while, pausing at varied moments
        wa.action("actionPlay")->trigger();
        KAVRI_TRY_VERIFY(!wb.loader()->isPlaying() && !wa.loader()->isPlaying(), kWaitMs);
        KAVRI_TRY_COMPARE(wb.currentFrame(), wa.currentFrame(), kWaitMs);
    }
    wa.endLink();
    KAVRI_TRY_VERIFY(!wb.isLinked(), kWaitMs);
}

} // namespace
