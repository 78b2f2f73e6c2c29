#include "formats/Settings.h"
#include "view/KavriDrawPanel.h"

#include <QMouseEvent>
#include <QSettings>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QWheelEvent>
#include <gtest/gtest.h>
#include <thread>

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

// ---- inspection tools ----

void mouse(KavriDrawPanel &panel, QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::MouseButtons buttons)
{
    QMouseEvent e(type, QPointF(pos), panel.mapToGlobal(QPointF(pos)), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&panel, &e);
}

// A panel showing a 1:1 frame of `size` (grey, one red pixel), painted once so the geometry is known.
void showFrame(KavriDrawPanel &panel, QSize size, QPoint red = {-1, -1})
{
    panel.resize(size);
    uint8_t *p = nullptr;
    panel.get_buffer(&p, size, nullptr);
    auto *px = reinterpret_cast<QRgb *>(p);
    std::fill(px, px + size.width() * size.height(), qRgb(100, 100, 100));
    if (red.x() >= 0) px[red.y() * size.width() + red.x()] = qRgb(255, 0, 0);
    panel.presentFrame();
    QCoreApplication::processEvents();
    (void)panel.grab();
}

// Stands in for the loader: answers with the position and a per-frame counter, and notes the thread.
struct FakeLoader {
    int frame = 0;
    int calls = 0;
    bool offGuiThread = false;
    void connectTo(KavriDrawPanel &panel)
    {
        QObject::connect(
            &panel, &KavriDrawPanel::getNativeAt, &panel,
            [this](bool *ok, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                   int32_t *) {
                ++calls;
                if (QThread::currentThread() != qApp->thread()) offGuiThread = true;
                space = YUV_p420;
                c1 = x;
                c2 = y;
                c3 = frame;
                *ok = true;
            },
            Qt::DirectConnection);
    }
};

void setDefaults()
{
    QSettings s;
    s.setValue(kavri::settings::MagnFactor.name, 520);
    s.setValue(kavri::settings::HexValues.name, false);
    s.setValue(kavri::settings::Gridsize.name, 16);
    s.setValue(kavri::settings::MaintainAR.name, true);
}

TEST(Inspection, MagnifierAtTheEdgeStaysInsideAndShowsThePixel)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {400, 300}, {395, 295});
    mouse(panel, QEvent::MouseMove, {395, 295}, Qt::NoButton, Qt::NoButton);
    panel.setMagnifier(true, true);
    const QImage shot = panel.grab().toImage();
    EXPECT_EQ(panel.magnifierPoint(), QPoint(395, 295));
    // 202 x 122 at the default factor, pushed back from the bottom-right corner.
    EXPECT_EQ(panel.magnifierRect(), QRect(198, 178, 202, 122));
    const QRect r = panel.magnifierRect();
    const QRect centre = kavri::view::magnifierCentrePixel(r, kavri::view::magnifierGeometry(520));
    EXPECT_EQ(shot.pixel(centre.center()), qRgb(255, 0, 0)) << "the centre shows the pixel under the point";
    // The source reaches beyond the frame's right edge: that part is not frame content.
    EXPECT_NE(shot.pixel(r.right() - 2, r.top() + 30), qRgb(100, 100, 100));
    EXPECT_EQ(shot.pixel(r.left() + 20, r.top() + 30), qRgb(100, 100, 100));
}

TEST(Inspection, ReadoutComesFromTheLoaderAndFollowsTheKeys)
{
    setDefaults();
    KavriDrawPanel panel;
    FakeLoader loader;
    loader.connectTo(panel);
    showFrame(panel, {64, 48});
    mouse(panel, QEvent::MouseMove, {10, 20}, Qt::NoButton, Qt::NoButton);
    panel.setMagnifier(true, true);
    EXPECT_EQ(panel.readoutTexts(), std::make_pair(QStringLiteral("@10,20"), QStringLiteral("Y:  10\nU:  20\nV:   0")));
    QTest::keyClick(&panel, Qt::Key_E);
    QTest::keyClick(&panel, Qt::Key_S);
    QTest::keyClick(&panel, Qt::Key_S);
    EXPECT_EQ(panel.readoutTexts().first, QStringLiteral("@11,22"));
    QTest::keyClick(&panel, Qt::Key_Q);
    QTest::keyClick(&panel, Qt::Key_W);
    EXPECT_EQ(panel.readoutTexts().first, QStringLiteral("@10,21"));
    for (int i = 0; i < 70; ++i) QTest::keyClick(&panel, Qt::Key_E);
    EXPECT_EQ(panel.magnifierPoint(), QPoint(63, 21)) << "the point stays in the image";

    QSettings().setValue(kavri::settings::HexValues.name, true);
    panel.setMagnifier(false, false);
    panel.setMagnifier(true, false);
    EXPECT_EQ(panel.readoutTexts().second, QStringLiteral("Y: 0xa\nU: 0x14\nV: 0x0"));

    panel.setHevcOverlay(true, 4, 64);
    EXPECT_EQ(panel.readoutTexts().first, QStringLiteral("@10,20\n[CU #0, part 9]"));
}

TEST(Inspection, NewFrameFromAnotherThreadReReadsOnTheGuiThread)
{
    setDefaults();
    KavriDrawPanel panel;
    FakeLoader loader;
    loader.connectTo(panel);
    showFrame(panel, {32, 32});
    panel.setMagnifier(true, true);
    const int before = loader.calls;
    loader.frame = 7;
    std::thread worker([&] {
        uint8_t *p = nullptr;
        panel.get_buffer(&p, {32, 32}, nullptr);
        std::fill_n(reinterpret_cast<QRgb *>(p), 32 * 32, qRgb(1, 2, 3));
        panel.presentFrame();
        panel.presentFrame(); // a second frame before the GUI gets round to it: one re-read covers both
    });
    worker.join();
    EXPECT_EQ(loader.calls, before) << "nothing is read on the loader's thread";
    QCoreApplication::processEvents();
    EXPECT_EQ(loader.calls, before + 1);
    EXPECT_FALSE(loader.offGuiThread);
    EXPECT_TRUE(panel.readoutTexts().second.endsWith(QStringLiteral("V:   7")));

    // With the magnifier off a new frame asks for nothing.
    panel.setMagnifier(false, false);
    const int off = loader.calls;
    panel.presentFrame();
    QCoreApplication::processEvents();
    EXPECT_EQ(loader.calls, off);
}

TEST(Inspection, DraggingTheMagnifierMovesItsPoint)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {400, 300});
    mouse(panel, QEvent::MouseMove, {200, 150}, Qt::NoButton, Qt::NoButton);
    panel.setMagnifier(true, true);
    (void)panel.grab();
    // Grab 10 pixels right of its centre and drag by (-30, +20).
    mouse(panel, QEvent::MouseButtonPress, {210, 150}, Qt::LeftButton, Qt::LeftButton);
    mouse(panel, QEvent::MouseMove, {180, 170}, Qt::NoButton, Qt::LeftButton);
    mouse(panel, QEvent::MouseButtonRelease, {180, 170}, Qt::LeftButton, Qt::NoButton);
    EXPECT_EQ(panel.magnifierPoint(), QPoint(170, 170));
    // A press outside it does not move it.
    mouse(panel, QEvent::MouseButtonPress, {5, 5}, Qt::LeftButton, Qt::LeftButton);
    mouse(panel, QEvent::MouseMove, {50, 50}, Qt::NoButton, Qt::LeftButton);
    mouse(panel, QEvent::MouseButtonRelease, {50, 50}, Qt::LeftButton, Qt::NoButton);
    EXPECT_EQ(panel.magnifierPoint(), QPoint(170, 170));
}

TEST(Inspection, AltHeldShowsTheMagnifierForAWhile)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {64, 64});
    QTest::keyPress(&panel, Qt::Key_Alt);
    EXPECT_TRUE(panel.magnifierOn());
    QTest::keyRelease(&panel, Qt::Key_Alt);
    EXPECT_FALSE(panel.magnifierOn());
    // A magnifier that was on already stays on when Alt comes and goes.
    panel.setMagnifier(true, true);
    QTest::keyPress(&panel, Qt::Key_Alt);
    QTest::keyRelease(&panel, Qt::Key_Alt);
    EXPECT_TRUE(panel.magnifierOn());
}

TEST(Inspection, GridCacheIsReusedUntilTheGeometryChanges)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {256, 256});
    panel.setGrid(true);
    (void)panel.grab();
    const qint64 first = panel.gridCache().cacheKey();
    ASSERT_EQ(panel.gridCache().size(), QSize(256, 256));
    // 1:1, 16-pixel grid: a line at column 16, nothing at 8.
    EXPECT_GT(qAlpha(panel.gridCache().pixel(16, 5)), 100);
    EXPECT_EQ(qAlpha(panel.gridCache().pixel(8, 5)), 0);
    panel.repaint();
    (void)panel.grab();
    EXPECT_EQ(panel.gridCache().cacheKey(), first) << "a repaint reuses the cache";

    // A new grid size is read when the grid is switched on again; 200 is drawn as 128.
    QSettings().setValue(kavri::settings::Gridsize.name, 200);
    panel.setGrid(true);
    (void)panel.grab();
    EXPECT_NE(panel.gridCache().cacheKey(), first);
    EXPECT_EQ(qAlpha(panel.gridCache().pixel(16, 5)), 0);
    EXPECT_GT(qAlpha(panel.gridCache().pixel(128, 5)), 100);

    const qint64 second = panel.gridCache().cacheKey();
    panel.resize(512, 512);
    (void)panel.grab();
    EXPECT_NE(panel.gridCache().cacheKey(), second) << "a new display size rebuilds it";
    EXPECT_EQ(panel.gridCache().size(), QSize(512, 512));
    EXPECT_GT(qAlpha(panel.gridCache().pixel(256, 5)), 100);
}

TEST(Inspection, MarksStickToImagePixelsAndDeleteClearsThem)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {100, 100});
    mouse(panel, QEvent::MouseButtonPress, {10, 50}, Qt::RightButton, Qt::RightButton);
    mouse(panel, QEvent::MouseMove, {90, 50}, Qt::NoButton, Qt::RightButton);
    QImage shot = panel.grab().toImage();
    mouse(panel, QEvent::MouseButtonRelease, {90, 50}, Qt::RightButton, Qt::NoButton);
    EXPECT_EQ(shot.pixel(50, 50), qRgb(255, 0, 0));
    EXPECT_EQ(shot.pixel(50, 60), qRgb(100, 100, 100));

    // Twice the size: the line is now twice as long and still at image row 50.
    panel.resize(200, 200);
    shot = panel.grab().toImage();
    EXPECT_EQ(shot.pixel(100, 100), qRgb(255, 0, 0));
    EXPECT_EQ(shot.pixel(170, 101), qRgb(255, 0, 0));

    QTest::keyClick(&panel, Qt::Key_Delete);
    shot = panel.grab().toImage();
    EXPECT_EQ(shot.pixel(100, 100), qRgb(100, 100, 100));
}

TEST(Inspection, CornerTextsChangeWithTheFrame)
{
    setDefaults();
    KavriDrawPanel panel;
    showFrame(panel, {320, 200});
    panel.setCornerTextsShown(true, true);
    panel.setCornerTexts(QStringLiteral("0001  0'00\"04"), QStringLiteral("PSNR:  inf\nMSE: 0.000"));
    EXPECT_EQ(panel.cornerTexts().first, QString()) << "spare texts wait for their frame";
    panel.presentFrame();
    EXPECT_EQ(panel.cornerTexts(),
              std::make_pair(QStringLiteral("0001  0'00\"04"), QStringLiteral("PSNR:  inf\nMSE: 0.000")));
    // Drawn white on black: the bottom-left and top-right corners carry white pixels, the middle none.
    auto whiteIn = [](const QImage &shot, QRect r) {
        for (int y = r.top(); y <= r.bottom(); ++y)
            for (int x = r.left(); x <= r.right(); ++x)
                if (shot.pixel(x, y) == qRgb(255, 255, 255)) return true;
        return false;
    };
    const QImage shot = panel.grab().toImage();
    EXPECT_TRUE(whiteIn(shot, {0, 150, 120, 50}));
    EXPECT_TRUE(whiteIn(shot, {200, 0, 120, 50}));
    EXPECT_FALSE(whiteIn(shot, {120, 60, 80, 80}));
    panel.setCornerTextsShown(false, true);
    EXPECT_FALSE(whiteIn(panel.grab().toImage(), {0, 0, 320, 200})) << "the difference text goes with the time text";
}

} // namespace
