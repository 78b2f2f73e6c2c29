// The window with several sequences: lock-step frames over files of different lengths, layouts and
// depths, the size check, what each view shows, the readout of every sequence, and free zoom and pan.
#include "formats/RememberedFormats.h"
#include "loader/KavriLoader.h"
#include "pixel/LayoutConvert.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"
#include "ui/CompareWorkspace.h"
#include "ui/frame.h"

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QMouseEvent>
#include <QSlider>
#include <QTest>
#include <QUrl>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::view::CompareMode;

namespace {

constexpr int kW = 64, kH = 48;

// A file of `frames` pattern frames.
QString writePattern(const test::TempDir &dir, const QString &name, const PatternSpec &pattern, int frames)
{
    QByteArray bytes;
    const uint32_t n = patternFrameBytes(pattern);
    for (int f = 0; f < frames; ++f) {
        QByteArray one(qsizetype(n), '\0');
        writePatternFrame(pattern, uint64_t(f), reinterpret_cast<uint8_t *>(one.data()), size_t(n));
        bytes += one;
    }
    return dir.write(name, bytes);
}

// A 4:2:0 file whose every luma sample is `luma` and chroma neutral: a flat grey picture.
QString writeFlat(const test::TempDir &dir, const QString &name, char luma, int frames)
{
    QByteArray one(kW * kH, luma);
    one += QByteArray(kW * kH / 2, char(128));
    return dir.write(name, one.repeated(frames));
}

// The 8-bit 4:2:0 pattern file's frames written as `layout` at `bits`, as the convert tool writes them.
QString writeConverted(const test::TempDir &dir, const QString &name, const PatternSpec &pattern, int frames,
                       videoFormat_t layout, int32_t bits)
{
    VideoProps target;
    QString why;
    pixel::LayoutConverter c;
    if (!pixel::conversionTarget(patternRecord(pattern), layout, bits, target, why) ||
        !c.setup(patternRecord(pattern), target, false, why))
        return {};
    QByteArray bytes;
    const uint32_t n = patternFrameBytes(pattern);
    for (int f = 0; f < frames; ++f) {
        std::vector<uint8_t> one(n), out(size_t(c.outputBytes()));
        writePatternFrame(pattern, uint64_t(f), one.data(), one.size());
        c.convert(one.data(), int64_t(n), out.data());
        bytes += QByteArray(reinterpret_cast<const char *>(out.data()), qsizetype(out.size()));
    }
    return dir.write(name, bytes);
}

// The waits are gtest assertions: a QTRY macro that times out inside a gtest test only returns from it,
// and the test passes.
struct Window {
    explicit Window(const KavriStartupConfig &c) : w(&c) { w.resize(900, 700); }
    ~Window()
    {
        for (const QString &f : w.compareWorkspace()->files()) forgetRemembered(f);
    }
    frame w;
};

bool opened(frame &w, int sequences)
{
    return w.loader() && w.loader()->isInitialized() && w.compareWorkspace()->count() == sequences;
}

QString viewLabel(frame &w) { return w.findChild<QLabel *>(QStringLiteral("lbl_view"))->text(); }

TEST(CompareWindow, LockStepOverDifferentLengthsLayoutsAndDepths)
{
    test::TempDir dir;
    const PatternSpec a{YUV_p420, kW, kH, 8, 8}, b{YUV_p444, kW, kH, 10, 16}, c{YUV_uyvy, kW, kH, 8, 8};
    KavriStartupConfig cfg;
    cfg.file = writePattern(dir, "a_64x48_P420.yuv", a, 20);
    cfg.compare = {writePattern(dir, "b_64x48_10bit_P444.yuv", b, 9), writePattern(dir, "c_64x48_UYVY.yuv", c, 14)};
    Window win(cfg);
    frame &w = win.w;
    ui::CompareWorkspace *ws = w.compareWorkspace();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened(w, 3); }, 20000));
    // The shortest sets the count; the slider and the last-frame key follow it.
    EXPECT_EQ(ws->frameCount(), 9u);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return w.findChild<QSlider *>(QStringLiteral("horizontalSlider"))->maximum() == 8; }, 20000));
    EXPECT_EQ(ws->mode(), CompareMode::SideBySide) << "two or more open side by side";
    EXPECT_TRUE(viewLabel(w).contains(QStringLiteral("Compare 3: side by side")));

    const struct {
        const char *action;
        uint64_t frame;
    } steps[] = {
        {"actionNext", 1}, {"actionLast_Frame", 8}, {"actionNext", 8}, {"actionPrev", 7}, {"actionFirst_Frame", 0}};
    for (const auto &s : steps) {
        SCOPED_TRACE(s.action);
        w.action(s.action)->trigger();
        ASSERT_TRUE(QTest::qWaitFor([&] { return w.currentFrame() == s.frame; }, 20000));
        // Every sequence comes to the same frame, and the readout gives each one's own stored samples.
        ASSERT_TRUE(QTest::qWaitFor([&] { return ws->ready(s.frame); }, 20000));
        const QStringList lines = ws->readoutAt(QPoint(21, 13), false).split('\n');
        ASSERT_EQ(lines.size(), 4);
        const PatternSpec *specs[] = {&a, &b, &c};
        const char *names[] = {"a_64x48_P420.yuv", "b_64x48_10bit_P444.yuv", "c_64x48_UYVY.yuv"};
        for (int i = 0; i < 3; ++i) {
            const PatternPixel p = patternPixel(*specs[i], s.frame, 21, 13);
            EXPECT_TRUE(lines[i + 1].startsWith(
                QStringLiteral("%1 %2: Y %3 U %4 V %5").arg(i + 1).arg(names[i]).arg(p.c1).arg(p.c2).arg(p.c3)))
                << lines[i + 1].toStdString();
        }
    }
}

TEST(CompareWindow, AFileOfAnotherSizeIsRefusedWithItsNameAndSize)
{
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "a_64x48_P420.yuv", 16, 3);
    cfg.compare = {dir.write("small_32x48_P420.yuv", QByteArray(32 * 48 * 3 / 2 * 3, char(16)))};
    Window win(cfg);
    frame &w = win.w;
    ASSERT_TRUE(QTest::qWaitFor([&] { return w.loader() && w.loader()->isInitialized(); }, 20000));
    QMessageBox *box = nullptr;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return (box = w.findChild<QMessageBox *>(QStringLiteral("compareProblem"))) != nullptr; }, 20000));
    EXPECT_EQ(box->informativeText(), QStringLiteral("small_32x48_P420.yuv is 32x48, but a_64x48_P420.yuv is 64x48: "
                                                     "sequences compared must have the same size."));
    EXPECT_EQ(w.compareWorkspace()->count(), 1);
    box->close();
}

TEST(CompareWindow, OneSequenceKeepsTheWindowAsItWas)
{
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "a_64x48_P420.yuv", 16, 3);
    Window win(cfg);
    frame &w = win.w;
    ASSERT_TRUE(QTest::qWaitFor([&] { return w.loader() && w.loader()->isInitialized(); }, 20000));
    auto *view = w.findChild<QMenu *>(QStringLiteral("menuView"));
    auto *compare = w.findChild<QMenu *>(QStringLiteral("menuCompare"));
    ASSERT_NE(compare, nullptr);
    EXPECT_FALSE(view->actions().contains(compare->menuAction()));
    for (const char *key : {"actionCompare_Single_1", "actionCompare_Single_2", "actionCompare_Side_by_Side",
                            "actionCompare_Wipe", "actionCompare_Flicker", "actionCompare_Remove"})
        EXPECT_FALSE(w.action(key)->isEnabled()) << key;
    EXPECT_TRUE(w.action("actionCompare_With")->isEnabled());
    EXPECT_FALSE(w.drawPanel()->composing());
    EXPECT_FALSE(viewLabel(w).contains(QStringLiteral("Compare")));

    // Adding one opens the submenu and the keys; removing it closes them again.
    ASSERT_EQ(w.compareWorkspace()->add(writeFlat(dir, "b_64x48_P420.yuv", char(235), 3)), QString());
    w.updateActions();
    EXPECT_TRUE(view->actions().contains(compare->menuAction()));
    EXPECT_TRUE(w.action("actionCompare_Single_2")->isEnabled());
    EXPECT_FALSE(w.action("actionCompare_Single_3")->isEnabled()) << "no third sequence";
    EXPECT_TRUE(w.drawPanel()->composing());
    ASSERT_TRUE(w.compareWorkspace()->remove(1));
    EXPECT_FALSE(view->actions().contains(compare->menuAction()));
    EXPECT_FALSE(w.drawPanel()->composing());
}

// Luma at a point of the panel's picture: dark (16) and bright (235) files tell the sequences apart.
int lumaAt(const QImage &img, QPoint p) { return qGray(img.pixel(p)); }

struct ViewCase {
    const char *name;
    const char *action; // nullptr: as opened
    CompareMode mode;
    // Points as fractions of the panel, and whether the first (dark) sequence shows there.
    std::vector<std::pair<QPointF, bool>> dark;
};
void PrintTo(const ViewCase &c, std::ostream *os) { *os << c.name; }

class CompareViews : public ::testing::TestWithParam<ViewCase> {};

TEST_P(CompareViews, ShowTheRightSequenceWhere)
{
    const ViewCase &c = GetParam();
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "dark_64x48_P420.yuv", 16, 4);
    cfg.compare = {writeFlat(dir, "bright_64x48_P420.yuv", char(235), 4)};
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ui::CompareWorkspace *ws = w.compareWorkspace();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened(w, 2); }, 20000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return ws->ready(0); }, 20000));
    if (c.action) w.action(c.action)->trigger();
    EXPECT_EQ(ws->mode(), c.mode);
    KavriDrawPanel *panel = w.drawPanel();
    // The saved frame is the composed picture, as large as the panel.
    // A view change is composed when every sequence has delivered its frame for it: wait for the picture
    // the view promises, then say where it differs if it never came.
    const auto point = [&](QPointF at) { return QPoint(int(at.x() * panel->width()), int(at.y() * panel->height())); };
    const auto matches = [&](const QImage &img) {
        if (img.size() != panel->size()) return false;
        for (const auto &[at, dark] : c.dark)
            if (dark ? lumaAt(img, point(at)) >= 40 : lumaAt(img, point(at)) <= 200) return false;
        return true;
    };
    QImage shown;
    (void)QTest::qWaitFor([&] { return matches(shown = panel->currentFrame()); }, 20000);
    ASSERT_EQ(shown.size(), panel->size());
    for (const auto &[at, dark] : c.dark) {
        const QPoint p(int(at.x() * panel->width()), int(at.y() * panel->height()));
        const int y = lumaAt(shown, p);
        if (dark)
            EXPECT_LT(y, 40) << "at " << p.x() << "," << p.y();
        else
            EXPECT_GT(y, 200) << "at " << p.x() << "," << p.y();
    }
}

const ViewCase kViews[] = {
    {"side_by_side", nullptr, CompareMode::SideBySide, {{{0.25, 0.5}, true}, {{0.75, 0.5}, false}}},
    {"single_2", "actionCompare_Single_2", CompareMode::Single, {{{0.25, 0.5}, false}, {{0.75, 0.5}, false}}},
    {"single_1", "actionCompare_Single_1", CompareMode::Single, {{{0.25, 0.5}, true}, {{0.75, 0.5}, true}}},
    {"vertical_wipe", "actionCompare_Wipe", CompareMode::Wipe, {{{0.3, 0.5}, true}, {{0.7, 0.5}, false}}},
    {"horizontal_wipe", "actionCompare_Wipe_Horizontal", CompareMode::Wipe, {{{0.5, 0.3}, true}, {{0.5, 0.7}, false}}},
    // The first press of the flicker key shows the second sequence, full size.
    {"flicker", "actionCompare_Flicker", CompareMode::Flicker, {{{0.25, 0.5}, false}, {{0.75, 0.5}, false}}},
};
INSTANTIATE_TEST_SUITE_P(All, CompareViews, ::testing::ValuesIn(kViews),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CompareWindow, FlickerTogglesAndDifferenceShowsPsnrOfThePair)
{
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "dark_64x48_P420.yuv", 16, 4);
    cfg.compare = {writeFlat(dir, "bright_64x48_P420.yuv", char(235), 4)};
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ui::CompareWorkspace *ws = w.compareWorkspace();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened(w, 2) && ws->ready(0); }, 20000));
    w.action("actionCompare_Flicker")->trigger();
    EXPECT_TRUE(ws->flickerShowsSecond());
    EXPECT_TRUE(viewLabel(w).contains(QStringLiteral("flicker 1/2, showing 2")));
    w.action("actionCompare_Flicker")->trigger();
    EXPECT_FALSE(ws->flickerShowsSecond());
    const QPoint centre = w.drawPanel()->rect().center();
    ASSERT_TRUE(QTest::qWaitFor([&] { return lumaAt(w.drawPanel()->currentFrame(), centre) < 40; }, 20000));

    w.action("actionCompare_Difference")->trigger();
    EXPECT_EQ(ws->mode(), CompareMode::Difference);
    EXPECT_TRUE(viewLabel(w).contains(QStringLiteral("difference 1-2")));
    // The difference pair delivers the frame shown, so the view is composed again.
    ASSERT_TRUE(QTest::qWaitFor([&] { return ws->ready(w.currentFrame()); }, 20000));
    w.action("actionNext")->trigger();
    ASSERT_TRUE(QTest::qWaitFor([&] { return w.currentFrame() == 1 && ws->ready(1); }, 20000));
}

TEST(CompareWindow, DifferenceOfTwoLayoutsAndDepthsTakesEachSequencesOwnSamples)
{
    test::TempDir dir;
    const PatternSpec a{YUV_p420, kW, kH, 8, 8};
    KavriStartupConfig cfg;
    cfg.file = writePattern(dir, "a_64x48_P420.yuv", a, 4);
    // The same pictures as P010 and as 12-bit 4:4:4, and a flat bright file that differs everywhere.
    cfg.compare = {writeConverted(dir, "b_64x48.p010", a, 4, YUV_p010, 10),
                   writeConverted(dir, "c_64x48_12bit_P444.yuv", a, 4, YUV_p444, 12),
                   writeFlat(dir, "d_64x48_P420.yuv", char(235), 4)};
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ui::CompareWorkspace *ws = w.compareWorkspace();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened(w, 4) && ws->ready(0); }, 20000));
    ASSERT_EQ(w.compareWorkspace()->files().size(), 4);

    const QString none = QStringLiteral("PSNR:  inf  inf  inf\nMSE: 0   0   0");
    const struct {
        int first, second;
        uint64_t frame;
        bool same;
    } pairs[] = {{0, 1, 0, true}, {1, 0, 0, true},  {0, 2, 0, true},
                 {2, 1, 0, true}, {0, 3, 0, false}, {1, 3, 0, false}};
    w.action("actionCompare_Difference")->trigger();
    for (const auto &p : pairs) {
        SCOPED_TRACE(QStringLiteral("pair %1-%2").arg(p.first + 1).arg(p.second + 1).toStdString());
        ws->setPair(p.first, p.second);
        ASSERT_TRUE(QTest::qWaitFor([&] { return ws->differenceIndex() == p.frame && ws->ready(p.frame); }, 20000));
        if (p.same) {
            EXPECT_EQ(ws->differenceText(), none);
        } else {
            EXPECT_TRUE(ws->differenceText().startsWith(QStringLiteral("PSNR:  ")))
                << ws->differenceText().toStdString();
            EXPECT_FALSE(ws->differenceText().startsWith(QStringLiteral("PSNR:  inf")));
        }
    }
    // The pair follows the frames: on the next one the P010 file still differs from the first by nothing.
    ws->setPair(0, 1);
    w.action("actionNext")->trigger();
    ASSERT_TRUE(
        QTest::qWaitFor([&] { return w.currentFrame() == 1 && ws->differenceIndex() == 1 && ws->ready(1); }, 20000));
    EXPECT_EQ(ws->differenceText(), none);
    // The composed picture is the flat grey of no difference where the pattern has edges and colour (below
    // the labels, which sit at the top).
    KavriDrawPanel *panel = w.drawPanel();
    const QPoint below(panel->width() / 8, panel->height() - 4);
    ASSERT_TRUE(QTest::qWaitFor([&] { return std::abs(qGray(panel->currentFrame().pixel(below)) - 128) <= 2; }, 20000))
        << qGray(panel->currentFrame().pixel(below));
    const QRgb grey = panel->currentFrame().pixel(below);
    EXPECT_EQ(qRed(grey), qGreen(grey));
    EXPECT_EQ(qGreen(grey), qBlue(grey));
}

struct AutoFlickerEnd {
    const char *name;
    const char *action; // what ends it
    CompareMode mode;   // the view afterwards
};
void PrintTo(const AutoFlickerEnd &c, std::ostream *os) { *os << c.name; }

class CompareAutoFlicker : public ::testing::TestWithParam<AutoFlickerEnd> {};

TEST_P(CompareAutoFlicker, TogglesByItselfUntilAnotherViewIsChosen)
{
    const AutoFlickerEnd &c = GetParam();
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "dark_64x48_P420.yuv", 16, 2);
    cfg.compare = {writeFlat(dir, "bright_64x48_P420.yuv", char(235), 2)};
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ui::CompareWorkspace *ws = w.compareWorkspace();
    ASSERT_TRUE(QTest::qWaitFor([&] { return opened(w, 2) && ws->ready(0); }, 20000));
    QAction *autoFlicker = w.action("actionCompare_Auto_Flicker");
    ASSERT_FALSE(autoFlicker->isChecked());
    autoFlicker->trigger(); // a checkable action is checked by the trigger, as by a click
    ASSERT_TRUE(autoFlicker->isChecked());
    EXPECT_EQ(ws->mode(), CompareMode::Flicker);
    EXPECT_TRUE(ws->autoFlickerOn());
    // It goes on by itself: both sequences come up, with no key pressed, and the picture follows.
    const bool start = ws->flickerShowsSecond();
    ASSERT_TRUE(QTest::qWaitFor([&] { return ws->flickerShowsSecond() != start; }, 20000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return ws->flickerShowsSecond() == start; }, 20000));
    const QPoint centre = w.drawPanel()->rect().center();
    ASSERT_TRUE(QTest::qWaitFor([&] { return lumaAt(w.drawPanel()->currentFrame(), centre) > 200; }, 20000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return lumaAt(w.drawPanel()->currentFrame(), centre) < 40; }, 20000));

    if (c.action)
        w.action(c.action)->trigger();
    else
        ASSERT_TRUE(ws->remove(1));
    EXPECT_FALSE(ws->autoFlickerOn());
    EXPECT_EQ(ws->mode(), c.mode);
    w.updateActions();
    if (!c.action) {
        EXPECT_FALSE(autoFlicker->isChecked()) << "one sequence has nothing to flicker with";
    }
}

const AutoFlickerEnd kAutoFlickerEnds[] = {
    {"side_by_side", "actionCompare_Side_by_Side", CompareMode::SideBySide},
    {"wipe", "actionCompare_Wipe", CompareMode::Wipe},
    {"difference", "actionCompare_Difference", CompareMode::Difference},
    {"single", "actionCompare_Single_2", CompareMode::Single},
    {"removing_the_second", nullptr, CompareMode::Single},
};
INSTANTIATE_TEST_SUITE_P(Ends, CompareAutoFlicker, ::testing::ValuesIn(kAutoFlickerEnds),
                         [](const auto &i) { return std::string(i.param.name); });

struct DropCase {
    const char *name;
    Qt::KeyboardModifiers modifiers;
    int sequences;   // in the window afterwards
    bool firstStays; // the file open before is still the window's own
};
void PrintTo(const DropCase &c, std::ostream *os) { *os << c.name; }

class CompareDrop : public ::testing::TestWithParam<DropCase> {};

TEST_P(CompareDrop, ShiftAddsTheFileAPlainDropOpensIt)
{
    const DropCase &c = GetParam();
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "dark_64x48_P420.yuv", 16, 2);
    const QString dropped = writeFlat(dir, "bright_64x48_P420.yuv", char(235), 2);
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ASSERT_TRUE(QTest::qWaitFor([&] { return w.loader() && w.loader()->isInitialized(); }, 20000));
    KavriLoader *before = w.loader();
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(dropped)});
    const QPointF at(w.width() / 2.0, w.height() / 2.0);
    QDragEnterEvent enter(at.toPoint(), Qt::CopyAction, &data, Qt::NoButton, c.modifiers);
    QApplication::sendEvent(&w, &enter);
    QDropEvent drop(at, Qt::CopyAction, &data, Qt::NoButton, c.modifiers);
    QApplication::sendEvent(&w, &drop);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return w.loader() && w.loader()->isInitialized() && w.compareWorkspace()->count() == c.sequences; },
        20000));
    const QStringList files = w.compareWorkspace()->files();
    EXPECT_EQ(QFileInfo(files.front()).fileName(),
              c.firstStays ? QStringLiteral("dark_64x48_P420.yuv") : QStringLiteral("bright_64x48_P420.yuv"));
    EXPECT_EQ(w.loader() == before, c.firstStays);
    if (c.sequences == 2) {
        EXPECT_EQ(QFileInfo(files[1]).fileName(), QStringLiteral("bright_64x48_P420.yuv"));
    }
}

const DropCase kDrops[] = {
    {"shift_adds_to_the_workspace", Qt::ShiftModifier, 2, true},
    {"plain_drop_opens_the_file", Qt::NoModifier, 1, false},
};
INSTANTIATE_TEST_SUITE_P(Drops, CompareDrop, ::testing::ValuesIn(kDrops),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CompareWindow, FreeZoomAboutTheCursorAndPanStaysReachable)
{
    test::TempDir dir;
    KavriStartupConfig cfg;
    cfg.file = writeFlat(dir, "a_64x48_P420.yuv", 16, 2);
    Window win(cfg);
    frame &w = win.w;
    w.show();
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return w.loader() && w.loader()->isInitialized() && !w.drawPanel()->showingStartup(); }, 20000));
    ui::CompareWorkspace *ws = w.compareWorkspace();
    KavriDrawPanel *panel = w.drawPanel();
    ws->zoomSteps(0, QPointF(0, 0)); // onto the half-octave grid
    const double start = ws->freeZoom().zoom;
    EXPECT_TRUE(ws->freeZoomOn());
    EXPECT_TRUE(panel->composing()) << "one sequence zoomed freely is drawn by the workspace";
    const QPointF anchor(panel->width() / 2.0, panel->height() / 2.0);
    ws->zoomSteps(4, anchor);
    EXPECT_DOUBLE_EQ(ws->freeZoom().zoom, view::steppedZoom(start, 4));
    EXPECT_TRUE(viewLabel(w).contains(view::zoomText(ws->freeZoom().zoom))) << viewLabel(w).toStdString();
    // Far beyond the picture's edge: the picture stops with its corner at the panel's.
    const view::FreeZoom before = ws->freeZoom();
    QMouseEvent press(QEvent::MouseButtonPress, anchor, panel->mapToGlobal(anchor), Qt::LeftButton, Qt::LeftButton,
                      Qt::NoModifier);
    QApplication::sendEvent(panel, &press);
    const QPointF far = anchor + QPointF(5000, 5000);
    QMouseEvent move(QEvent::MouseMove, far, panel->mapToGlobal(far), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(panel, &move);
    QMouseEvent release(QEvent::MouseButtonRelease, far, panel->mapToGlobal(far), Qt::LeftButton, Qt::NoButton,
                        Qt::NoModifier);
    QApplication::sendEvent(panel, &release);
    EXPECT_NE(ws->freeZoom().offset, before.offset);
    EXPECT_EQ(ws->freeZoom().offset, QPointF(0, 0)) << "the top-left corner meets the panel's, no further";
    // A zoom step of the Size menu ends free zoom; the window draws alone again.
    w.action("action100")->trigger();
    EXPECT_FALSE(ws->freeZoomOn());
    EXPECT_FALSE(panel->composing());
}

} // namespace
