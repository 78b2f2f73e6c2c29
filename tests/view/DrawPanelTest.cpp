#include "formats/Settings.h"
#include "view/KavriDrawPanel.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gtest/gtest.h>

namespace {

// Writes a frame the way the loader does: ask for the buffer, fill it, present it.
void deliver(KavriDrawPanel &panel, QSize size, QRgb colour, VideoProps *context = nullptr)
{
    uint8_t *p = nullptr;
    panel.get_buffer(&p, size, context);
    ASSERT_NE(p, nullptr);
    auto *px = reinterpret_cast<QRgb *>(p);
    std::fill(px, px + size.width() * size.height(), colour);
    panel.presentFrame();
}

void wheel(KavriDrawPanel &panel, int delta)
{
    QWheelEvent e(QPointF(10, 10), QPointF(10, 10), QPoint(), QPoint(0, delta), Qt::NoButton, Qt::NoModifier,
                  Qt::NoScrollPhase, false);
    QApplication::sendEvent(&panel, &e);
}

TEST(DrawPanel, StartsWithTheStartupPicture)
{
    KavriDrawPanel panel;
    EXPECT_TRUE(panel.showingStartup());
    EXPECT_TRUE(panel.currentFrame().isNull());
    EXPECT_FALSE(panel.frameSize().isEmpty()) << "the start-up picture is embedded";
}

TEST(DrawPanel, BufferHandOffAndSwap)
{
    KavriDrawPanel panel;
    QSignalSpy sizeSpy(&panel, &KavriDrawPanel::size_changed);
    VideoProps ctx;
    ctx.width = 64;
    deliver(panel, {64, 32}, qRgb(10, 20, 30), &ctx);
    EXPECT_FALSE(panel.showingStartup());
    EXPECT_EQ(panel.frameSize(), QSize(64, 32));
    EXPECT_EQ(panel.currentFrame().pixel(5, 5), qRgb(10, 20, 30));
    EXPECT_EQ(panel.formatContext().width, 64);
    ASSERT_EQ(sizeSpy.count(), 1);
    EXPECT_EQ(sizeSpy.at(0).at(0).toSize(), QSize(64, 32));

    // Same size: no new images, and the loader writes into the image that is not shown.
    uint8_t *p1 = nullptr;
    panel.get_buffer(&p1, {64, 32}, nullptr);
    std::fill_n(reinterpret_cast<QRgb *>(p1), 64 * 32, qRgb(1, 2, 3));
    EXPECT_EQ(panel.currentFrame().pixel(0, 0), qRgb(10, 20, 30)) << "the shown frame is untouched until presented";
    panel.presentFrame();
    EXPECT_EQ(panel.currentFrame().pixel(0, 0), qRgb(1, 2, 3));
    EXPECT_EQ(sizeSpy.count(), 1);

    deliver(panel, {16, 16}, qRgb(0, 0, 0));
    EXPECT_EQ(sizeSpy.count(), 2);
}

TEST(DrawPanel, AnamorphicSizeRequestRounds)
{
    QSettings().setValue(kavri::settings::AnamorphicScale.name, 1.77);
    KavriDrawPanel panel;
    panel.setAnamorphic(true);
    QSignalSpy sizeSpy(&panel, &KavriDrawPanel::size_changed);
    deliver(panel, {10, 10}, qRgb(0, 0, 0));
    ASSERT_EQ(sizeSpy.count(), 1);
    EXPECT_EQ(sizeSpy.at(0).at(0).toSize(), QSize(18, 10));
}

TEST(DrawPanel, ForcedSizeIsTheHint)
{
    KavriDrawPanel panel;
    QSignalSpy spy(&panel, &KavriDrawPanel::notify_size_changed);
    panel.on_force_size({200, 100});
    EXPECT_EQ(panel.sizeHint(), QSize(200, 100));
    EXPECT_EQ(panel.minimumSize(), QSize(200, 100));
    EXPECT_EQ(panel.maximumSize(), QSize(200, 100));
    EXPECT_EQ(spy.count(), 1);
}

TEST(DrawPanel, WheelDrivesTheMagnifier)
{
    QSettings().setValue(kavri::settings::MagnFactor.name, 520);
    KavriDrawPanel panel;
    deliver(panel, {64, 64}, qRgb(0, 0, 0));
    QSignalSpy on(&panel, &KavriDrawPanel::magnifier_on), off(&panel, &KavriDrawPanel::magnifier_off);
    wheel(panel, 120);
    EXPECT_TRUE(panel.magnifierOn());
    EXPECT_EQ(on.count(), 1);
    EXPECT_EQ(panel.magnificationFactor(), 640);
    // Backwards until the factor reaches 1x: the magnifier switches off.
    for (int i = 0; i < 10 && panel.magnifierOn(); ++i) wheel(panel, -120);
    EXPECT_FALSE(panel.magnifierOn());
    EXPECT_EQ(off.count(), 1);
    EXPECT_EQ(panel.magnificationFactor(), 256);
}

TEST(DrawPanel, MagnifierCannotToggleOnTheStartupPicture)
{
    KavriDrawPanel panel;
    panel.setMagnifier(true, true);
    EXPECT_FALSE(panel.magnifierOn());
}

TEST(DrawPanel, PaintEnlargesWithHardEdges)
{
    QSettings().setValue(kavri::settings::MaintainAR.name, true);
    KavriDrawPanel panel;
    panel.resize(40, 20);
    uint8_t *p = nullptr;
    panel.get_buffer(&p, {2, 1}, nullptr);
    auto *px = reinterpret_cast<QRgb *>(p);
    px[0] = qRgb(255, 0, 0);
    px[1] = qRgb(0, 0, 255);
    panel.presentFrame();
    const QImage shot = panel.grab().toImage();
    EXPECT_EQ(panel.displayRect().width, 40);
    EXPECT_EQ(QColor(shot.pixel(19, 10)).rgb(), qRgb(255, 0, 0));
    EXPECT_EQ(QColor(shot.pixel(20, 10)).rgb(), qRgb(0, 0, 255));
}

} // namespace
