#include "formats/Settings.h"
#include "pixel/FramePipeline.h"
#include "support/QtWait.h"
#include "ui/BrightnessPanel.h"
#include "ui/KavriFormatDialog.h"
#include "ui/SaveFrame.h"
#include "ui/frame.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QShortcut>
#include <QSignalSpy>
#include <QSlider>
#include <QStatusBar>
#include <QTimer>
#include <gtest/gtest.h>

using namespace kavri;

namespace {

QStringList menuContents(QMenu *m)
{
    QStringList r;
    for (QAction *a : m->actions()) {
        if (a->isSeparator())
            r << "-";
        else if (a->menu())
            r << a->menu()->objectName();
        else if (!a->objectName().isEmpty())
            r << a->text();
    }
    return r;
}

TEST(FrameWindow, EmptyState)
{
    QSettings().clear();
    frame w(nullptr);
    EXPECT_EQ(w.windowTitle(), "kavri 0.7.1 (Beta)");
    EXPECT_EQ(w.statusText(), "[No File]");
    for (const char *name :
         {"centralWidget", "verticalLayout", "graphicsView", "lowerPanel", "horizontalLayout", "horizontalSlider",
          "playpause_button", "stop_button", "link_widget", "menuBar", "statusBar"})
        EXPECT_NE(w.findChild<QObject *>(name), nullptr) << name;
    // Defaults of an empty settings store.
    EXPECT_TRUE(w.action("actionLoop")->isChecked());
    EXPECT_FALSE(w.action("actionTimecode")->isChecked());
    EXPECT_TRUE(w.action("actionMaintain_Aspect_Ratio")->isChecked());
    EXPECT_EQ(w.action("actionQuit")->shortcut(), QKeySequence(Qt::Key_Escape));
}

TEST(FrameWindow, ActionTexts)
{
    frame w(nullptr);
    const struct {
        const char *name, *text, *shortcut;
        bool checkable;
    } rows[] = {
        {"actionOpen", "Open File(s) ...", "O", false},
        {"actionPlay", "Play/Pause", "Space", false},
        {"actionTimecode", "Timecode etc.", "T", true},
        {"actionSave_Frame", "Save Frame", "Ctrl+Shift+S", false},
        {"actionFast_Backward", "Fast Backward", "Shift+Left", false},
        {"actionSmaller", "Smaller", "-", false},
        {"actionLarger", "Larger", "+", false},
        {"actionStay_on_top", "Stay on top", "Ctrl+T", true},
        {"actionBrightness_Contrast_etc", "Brightness, Contrast etc.", "B", true},
        {"action33", "33%", "", true},
    };
    for (const auto &r : rows) {
        QAction *a = w.action(r.name);
        ASSERT_NE(a, nullptr) << r.name;
        EXPECT_EQ(a->text(), r.text);
        EXPECT_EQ(a->shortcut(), QKeySequence(QString(r.shortcut))) << r.name;
        EXPECT_EQ(a->isCheckable(), r.checkable) << r.name;
    }
    EXPECT_EQ(w.action("actionMagnifier")->statusTip(), "Hold Down ALT key for temporary use");
    EXPECT_EQ(w.action("actionNext_Channel")->statusTip(), "Display the next color channel");
}

TEST(FrameWindow, MenusInOrder)
{
    frame w(nullptr);
    QStringList bar;
    for (QAction *a : w.menuBar()->actions()) bar << a->text();
    EXPECT_EQ(bar, QStringList({"File", "Control", "View", "Tools", "Help"}));
    const QStringList file = menuContents(w.findChild<QMenu *>("menuFile"));
    EXPECT_EQ(file.mid(0, 9), QStringList({"Open File(s) ...", "Close File", "New Window ...", "Quit", "-", "Format",
                                           "Reload", "Copy Frame", "Save Frame"}));
    EXPECT_EQ(menuContents(w.findChild<QMenu *>("menuView")),
              QStringList({"menuSize", "Maintain Aspect Ratio", "Fullscreen", "Stay on top", "-", "Timecode etc.",
                           "Next Channel", "Loop", "-", "Next Diff Component", "Previous Diff Component", "menuScopes",
                           "menuColour"}));
    EXPECT_EQ(menuContents(w.findChild<QMenu *>("menuSize")),
              QStringList({"25%", "33%", "50%", "100%", "200%", "Smaller", "Larger"}));
    EXPECT_EQ(
        menuContents(w.findChild<QMenu *>("menuTools_2")),
        QStringList({"Magnifier", "Difference against ...", "Grid", "Deinterlace", "Brightness, Contrast etc.", "-",
                     "Normalize File Name ...", "Extract ...", "Reverse ...", "-", "Settings", "Metrics Panel"}));
}

TEST(FrameWindow, EscapeFollowsThePreference)
{
    QSettings s;
    settings::EscapeExits.write(s, false);
    {
        frame w(nullptr);
        EXPECT_TRUE(w.action("actionQuit")->shortcut().isEmpty());
    }
    settings::EscapeExits.write(s, true);
}

TEST(FrameWindow, NewWindowAsksTheApplication)
{
    frame w(nullptr);
    QSignalSpy spy(&w, &frame::notify_load);
    w.action("actionNew_Window")->trigger();
    ASSERT_EQ(spy.count(), 1);
    EXPECT_TRUE(spy.at(0).at(0).toString().isEmpty());
}

TEST(SaveFrame, DraggedFramesAreNamedByFrameAndProcess)
{
    EXPECT_EQ(ui::dragFrameFileName(37, 4242), QStringLiteral("frame_000000374242.jpg"));
    EXPECT_EQ(ui::dragFrameFileName(0, 7), QStringLiteral("frame_000000007.jpg"));
    EXPECT_NE(ui::dragFrameFileName(1, 7), ui::dragFrameFileName(2, 7));
    // Beyond eight digits the number is written whole, never cut.
    EXPECT_EQ(ui::dragFrameFileName(123456789012ULL, 1), QStringLiteral("frame_1234567890121.jpg"));
}

TEST(SaveFrame, SuffixRules)
{
    const struct {
        const char *in, *out, *format;
    } rows[] = {
        {"/t/a.png", "/t/a.png", "PNG"},   {"/t/a.bmp", "/t/a.bmp", "BMP"},     {"/t/a.jpg", "/t/a.jpg", "JPG"},
        {"/t/a.jpeg", "/t/a.jpeg", "JPG"}, {"/t/a.tif", "/t/a.tif", "TIFF"},    {"/t/a.tiff", "/t/a.tiff", "TIFF"},
        {"/t/a", "/t/a.png", "PNG"},       {"/t/a.PNG", "/t/a.PNG.png", "PNG"}, {"/t/a.gif", "/t/a.gif.png", "PNG"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(ui::saveFrameFileName(r.in), r.out) << r.in;
        EXPECT_EQ(ui::saveFrameFormat(ui::saveFrameFileName(r.in)), QByteArray(r.format)) << r.in;
    }
}

} // namespace

namespace {
TEST(FrameWindow, EscapeClosesTheBrightnessPanelFirst)
{
    QSettings s;
    kavri::settings::EscapeExits.write(s, true);
    frame w(nullptr);
    QAction *bcg = w.action("actionBrightness_Contrast_etc");
    bcg->trigger();
    EXPECT_TRUE(bcg->isChecked());
    EXPECT_TRUE(w.action("actionQuit")->shortcut().isEmpty()) << "Esc belongs to the panel while it is open";
    bcg->trigger();
    EXPECT_EQ(w.action("actionQuit")->shortcut(), QKeySequence(Qt::Key_Escape));
}
} // namespace

#include "formats/RememberedFormats.h"
#include "loader/KavriLoader.h"
#include "support/TempFiles.h"

#include <QElapsedTimer>
#include <QTest>
#include <thread>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace {
// The window fits the picture: a file opens at 100 % (or the largest step the screen has room for), and
// every zoom step, growing or shrinking, leaves the panel at the step's size with the window around it —
// no grey band from a previous, larger step. Full screen releases the step; leaving it restores it.
TEST(FrameWindow, WindowFitsThePictureAtEveryZoomStep)
{
    const struct {
        int32_t w, h;
    } sizes[] = {{176, 144}, {1920, 1080}, {64, 64}};
    for (const auto &sz : sizes) {
        SCOPED_TRACE(std::to_string(sz.w) + "x" + std::to_string(sz.h));
        kavri::test::TempDir dir;
        KavriStartupConfig c;
        c.file = dir.writeSized("fit.yuv", qint64(sz.w) * sz.h * 3 / 2);
        c.width = sz.w;
        c.height = sz.h;
        c.format = YUV_p420;
        frame w(&c);
        w.show();
        KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
        const QSize video(sz.w, sz.h);
        const QSize room = w.screen()->availableGeometry().size();
        const kavri::view::ZoomStep opened = kavri::view::largestStepThatFits(
            kavri::view::ZoomStep::Z100, video, room - (w.frameGeometry().size() - w.drawPanel()->size()));
        KavriDrawPanel *panel = w.drawPanel();
        KAVRI_TRY_COMPARE(panel->size(), kavri::view::zoomTarget(opened, video), 20000);
        const char *steps[] = {"action200", "action25", "action100", "action33", "action50", "action25", "action200"};
        for (const char *name : steps) {
            SCOPED_TRACE(name);
            w.action(name)->trigger();
            EXPECT_TRUE(w.action(name)->isChecked());
            const QSize want = panel->sizeHint();
            KAVRI_TRY_COMPARE(panel->size(), want, 5000);
            // The window is its own fitted size: as tall as the panel and its controls, as wide as the
            // panel once the panel is wider than the menus need.
            EXPECT_EQ(w.size(), w.sizeHint());
            EXPECT_EQ(w.centralWidget()->height(), want.height() + w.findChild<QWidget *>("lowerPanel")->height());
            if (want.width() >= 400) {
                EXPECT_EQ(w.width(), want.width());
            }
            EXPECT_LE(panel->x(), (w.width() - want.width()) / 2 + 1) << "the picture stands in the middle";
        }
        w.action("actionFullscreen")->trigger();
        KAVRI_TRY_VERIFY(panel->maximumWidth() == QWIDGETSIZE_MAX, 5000);
        w.action("actionFullscreen")->trigger();
        KAVRI_TRY_COMPARE(panel->size(), kavri::view::zoomTarget(kavri::view::ZoomStep::Z200, video), 5000);
        kavri::forgetRemembered(c.file);
    }
}

TEST(FrameWindow, ZoomStepIsRememberedPerFile)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("z.yuv", 152064 * 3);
    c.width = 352;
    c.height = 288;
    c.format = YUV_p420;
    {
        frame w(&c);
        KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
        w.action("action50")->trigger();
        EXPECT_TRUE(w.action("action50")->isChecked());
        EXPECT_EQ(w.drawPanel()->sizeHint(), QSize(176, 144));
        EXPECT_EQ(w.loader()->pendingProps().scaleX, 2048);
        const auto stored = kavri::lookupRemembered(c.file);
        ASSERT_TRUE(stored.has_value());
        EXPECT_EQ(stored->scaleX, 2048);
        EXPECT_EQ(stored->scaleY, 2048);
    }
    KavriStartupConfig again;
    again.file = c.file;
    frame w2(&again);
    KAVRI_TRY_VERIFY(w2.action("action50")->isChecked(), 20000);
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// The window on a generated file: each navigation action lands on the frame the loader then delivers,
// with the ends clamped by the loader rather than wrapped.
TEST(FrameWindow, NavigationActionsLandOnTheExpectedFrames)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("nav.yuv", 4608 * 40); // 40 frames of 64x48 4:2:0
    c.width = 64;
    c.height = 48;
    c.rate = 10.0; // fast forward and backward jump 10 frames
    c.format = YUV_p420;
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    EXPECT_EQ(w.statusText(), QStringLiteral("64x48@10Hz  40 frames   0'4\"00   0.176MB"));
    auto *view = w.findChild<QLabel *>(QStringLiteral("lbl_view"));
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->text(), QStringLiteral("8 bit  full colour"));
    w.action("actionNext_Channel")->trigger();
    EXPECT_EQ(view->text(), QStringLiteral("8 bit  Y"));
    w.action("actionNext_Channel")->trigger();
    w.action("actionNext_Channel")->trigger();
    w.action("actionNext_Channel")->trigger();
    EXPECT_EQ(view->text(), QStringLiteral("8 bit  full colour"));
    EXPECT_TRUE(w.windowTitle().contains(QStringLiteral("nav.yuv")));

    const struct {
        const char *action;
        uint64_t frame;
    } steps[] = {
        {"actionNext", 1},        {"actionNext", 2},          {"actionPrev", 1},           {"actionFast_Forward", 11},
        {"actionLast_Frame", 39}, {"actionNext", 39},         {"actionFast_Backward", 29}, {"actionFirst_Frame", 0},
        {"actionPrev", 0},        {"actionFast_Backward", 0}, {"actionFast_Forward", 10},
    };
    for (const auto &s : steps) {
        SCOPED_TRACE(s.action);
        w.action(s.action)->trigger();
        KAVRI_TRY_COMPARE(w.currentFrame(), s.frame, 20000);
    }
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// A file shorter than one frame sends the user to the format dialog, and the dialog says why.
TEST(FrameWindow, ShortFileDialogSaysWhy)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("short.yuv", 1000);
    c.width = 1920;
    c.height = 1080;
    c.format = YUV_p420;
    QString shown;
    bool visible = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto *dlg = qobject_cast<KavriFormatDialog *>(QApplication::activeModalWidget());
        if (!dlg) return;
        auto *label = dlg->findChild<QLabel *>(QStringLiteral("lbl_problem"));
        if (label) {
            shown = label->text();
            visible = label->isVisibleTo(dlg);
        }
        dlg->reject();
    });
    poll.start(10);
    frame w(&c);
    KAVRI_TRY_VERIFY(!shown.isEmpty(), 20000);
    EXPECT_EQ(shown, QStringLiteral("the file holds 1000 bytes, less than one frame of 3110400 bytes"));
    EXPECT_TRUE(visible);
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// The magnifier's hint is temporary and the magnifier goes with the file; Ctrl+0 is 100 %.
TEST(FrameWindow, MagnifierHintAndCloseFile)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("m.yuv", 4608 * 4);
    c.width = 64;
    c.height = 48;
    c.format = YUV_p420;
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    EXPECT_EQ(w.action("action100")->shortcut(), QKeySequence(QStringLiteral("Ctrl+0")));
    KAVRI_TRY_VERIFY(!w.drawPanel()->showingStartup(), 20000); // the first frame is on screen

    w.action("actionMagnifier")->trigger();
    ASSERT_TRUE(w.action("actionMagnifier")->isChecked());
    EXPECT_EQ(w.statusBar()->currentMessage(), QStringLiteral("Magnifier: use 'Q','E','W','S' and mouse wheel!"));
    w.action("actionMagnifier")->trigger();
    EXPECT_FALSE(w.action("actionMagnifier")->isChecked());
    EXPECT_TRUE(w.statusBar()->currentMessage().isEmpty()) << "the status line comes back";

    w.action("actionMagnifier")->trigger();
    ASSERT_TRUE(w.drawPanel()->magnifierOn());
    w.action("actionCloseFile")->trigger();
    EXPECT_FALSE(w.action("actionMagnifier")->isChecked());
    EXPECT_FALSE(w.drawPanel()->magnifierOn());
    EXPECT_EQ(w.statusText(), QStringLiteral("[No File]"));
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// Play at a rate of 0 says how to set a rate and leaves the window paused.
TEST(FrameWindow, PlayWithoutRateSaysHowToSetOne)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("r0.yuv", 4608 * 4);
    c.width = 64;
    c.height = 48;
    c.format = YUV_p420;
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    w.loader()->pendingProps().frameRate = 0.0; // as standard input without -r, or the format dialog's 0
    w.action("actionPlay")->trigger();
    EXPECT_TRUE(w.statusBar()->currentMessage().contains(QStringLiteral("-r RATE")));
    EXPECT_FALSE(w.loader()->isPlaying());
    // With a rate the same key plays.
    w.loader()->pendingProps().frameRate = 25.0;
    w.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(w.loader()->isPlaying(), 20000);
    w.action("actionPlay")->trigger();
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// Go to frame and Format -> OK end playback; the window says so and one Space plays again.
TEST(FrameWindow, DialogsDuringPlaybackLeaveThePlayStateTrue)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("p.yuv", 4608 * 400);
    c.width = 64;
    c.height = 48;
    c.rate = 50.0;
    c.format = YUV_p420;
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    QTimer accept;
    QObject::connect(&accept, &QTimer::timeout, [] {
        if (auto *d = qobject_cast<QDialog *>(QApplication::activeModalWidget())) d->accept();
    });
    accept.start(10);
    for (const char *dialog : {"actionGo_to_frame", "actionFormat"}) {
        SCOPED_TRACE(dialog);
        w.action("actionPlay")->trigger();
        KAVRI_TRY_VERIFY(w.loader()->isPlaying(), 20000);
        w.action(dialog)->trigger();
        EXPECT_FALSE(w.isPlaying());
        KAVRI_TRY_VERIFY(!w.loader()->isPlaying(), 20000);
        w.action("actionPlay")->trigger(); // one Space resumes
        EXPECT_TRUE(w.isPlaying());
        KAVRI_TRY_VERIFY(w.loader()->isPlaying(), 20000);
        w.action("actionPlay")->trigger();
        KAVRI_TRY_VERIFY(!w.loader()->isPlaying(), 20000);
    }
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// A link that cannot be made says why instead of leaving the player silently unlinked.
TEST(FrameWindow, LinkThatCannotBeMadeSaysWhy)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("l.yuv", 4608 * 2);
    c.width = 64;
    c.height = 48;
    c.format = YUV_p420;
    c.link = QStringLiteral("no/such/queue"); // a name the system refuses for a queue
    QString text, detail;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box) return;
        text = box->text();
        detail = box->informativeText();
        box->accept();
    });
    poll.start(10);
    frame w(&c);
    KAVRI_TRY_VERIFY(!text.isEmpty(), 20000);
    EXPECT_EQ(text, QStringLiteral("The players could not be linked."));
    EXPECT_TRUE(detail.contains(QStringLiteral("no/such/queue"))) << detail.toStdString();
    EXPECT_FALSE(w.isLinked());
    kavri::forgetRemembered(c.file);
}
// A frame whose buffers or picture cannot be had is announced, not shown as nothing: 64x48 4:2:0 needs
// 4608 bytes a frame buffer and 12288 for its picture.
TEST(FrameWindow, FrameTooLargeForMemorySaysSo)
{
    const struct {
        size_t ceiling;
        const char *detail;
    } cases[] = {{4607, "needs 4608 bytes"}, {12287, "needs 12288 bytes"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.detail);
        kavri::setLargestAllocation(c.ceiling);
        kavri::test::TempDir dir;
        KavriStartupConfig cfg;
        cfg.file = dir.writeSized("m.yuv", 4608 * 3);
        cfg.width = 64;
        cfg.height = 48;
        cfg.format = YUV_p420;
        QString text, detail;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, [&] {
            auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
            if (!box) return;
            text = box->text();
            detail = box->informativeText();
            box->accept();
        });
        poll.start(10);
        {
            frame w(&cfg);
            KAVRI_TRY_VERIFY(!text.isEmpty(), 20000);
            EXPECT_EQ(text, QStringLiteral("The frame cannot be shown."));
            EXPECT_TRUE(detail.contains(QLatin1String(c.detail))) << detail.toStdString();
            EXPECT_FALSE(w.isPlaying());
        }
        kavri::setLargestAllocation(0);
        kavri::forgetRemembered(cfg.file);
    }
}
#ifdef Q_OS_UNIX
// A named pipe opens at once, however long its writer takes; until the first frame comes the status bar
// says what the window is waiting for, and the tools that need a file stay away from it.
TEST(FrameWindow, NamedPipeOpensAtOnceAndSaysItIsWaiting)
{
    kavri::test::TempDir dir;
    const QString pipe = dir.path("decoder_64x48.yuv");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    KavriStartupConfig cfg;
    cfg.file = pipe;
    QElapsedTimer opening;
    opening.start();
    frame w(&cfg);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    EXPECT_LT(opening.elapsed(), 15000) << "the window waited for the writer";
    EXPECT_TRUE(w.loader()->isStdin());
    KAVRI_TRY_COMPARE(w.statusBar()->currentMessage(), QStringLiteral("Waiting for data from 'decoder_64x48.yuv'..."),
                      20000);
    EXPECT_TRUE(w.findChild<QLabel *>(QStringLiteral("lbl_status"))->text().endsWith(QLatin1String("pipe")))
        << w.findChild<QLabel *>(QStringLiteral("lbl_status"))->text().toStdString();
    // A stream cannot be cut, reversed, renamed, compared or jumped in; it can be played.
    for (const char *name : {"actionExtract", "actionReverse", "actionNormalize_File_Name", "actionDifference_against",
                             "actionGo_to_frame"})
        EXPECT_FALSE(w.action(name)->isEnabled()) << name;
    EXPECT_TRUE(w.action("actionPlay")->isEnabled());

    std::thread writer([&] {
        QFile out(pipe);
        if (out.open(QIODevice::WriteOnly)) out.write(QByteArray(4608 * 3, 'x'));
    });
    if (!w.isPlaying()) w.action("actionPlay")->trigger();
    writer.join();
    KAVRI_TRY_VERIFY(w.statusBar()->currentMessage().isEmpty(), 20000);
    KAVRI_TRY_VERIFY(w.currentFrame() >= 2, 20000);
}
#endif
} // namespace

namespace {
QStringList enabledOf(frame &w, const QStringList &names)
{
    QStringList on;
    for (const QString &n : names)
        if (w.action(n.toLatin1().constData())->isEnabled()) on << n;
    return on;
}

// What the window can do follows from its state alone: nothing that needs a file without one, the tools
// only on a playable file, the difference views only with a second file.
TEST(FrameWindow, ActionsFollowTheWindowState)
{
    const QStringList fileActions{"actionPlay",
                                  "actionStop",
                                  "actionNext",
                                  "actionLast_Frame",
                                  "actionFormat",
                                  "actionReload",
                                  "actionGo_to_frame",
                                  "actionExtract",
                                  "actionReverse",
                                  "actionNormalize_File_Name",
                                  "actionDifference_against",
                                  "actionCloseFile",
                                  "actionSave_Frame"};
    const QStringList diffActions{"actionNext_Diff_Component", "actionPrevious_Diff_Component"};
    const QStringList always{"actionOpen", "actionQuit", "actionNew_Window", "actionSettings", "actionAbout"};
    frame empty(nullptr);
    EXPECT_EQ(enabledOf(empty, fileActions), QStringList());
    EXPECT_EQ(enabledOf(empty, diffActions), QStringList());
    EXPECT_EQ(enabledOf(empty, always), always);

    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("a_64x48.yuv", 4608 * 3);
    {
        frame w(&c);
        KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
        EXPECT_EQ(enabledOf(w, fileActions), fileActions);
        EXPECT_EQ(enabledOf(w, diffActions), QStringList());
        w.action("actionCloseFile")->trigger();
        EXPECT_EQ(enabledOf(w, fileActions), QStringList());
    }
    c.diff = dir.writeSized("b_64x48.yuv", 4608 * 3);
    frame pair(&c);
    KAVRI_TRY_VERIFY(pair.loader() && pair.loader()->isInitialized(), 20000);
    EXPECT_EQ(enabledOf(pair, diffActions), diffActions);
    kavri::forgetRemembered(c.file);
}

// Esc belongs to one owner at a time: the open brightness panel, then full screen, then quit.
TEST(FrameWindow, EscapeHasOneOwnerAtATime)
{
    QSettings s;
    kavri::settings::EscapeExits.write(s, true);
    frame w(nullptr);
    w.show();
    const QKeySequence esc(Qt::Key_Escape);
    auto owners = [&] {
        QStringList o;
        if (w.action("actionQuit")->shortcut() == esc) o << "quit";
        if (w.action("actionFullscreen")->shortcuts().contains(esc)) o << "fullscreen";
        for (QShortcut *sc : w.findChildren<QShortcut *>())
            if (sc->key() == esc && sc->isEnabled()) o << "panel";
        return o;
    };
    EXPECT_EQ(owners(), QStringList{"quit"});
    w.action("actionFullscreen")->trigger();
    EXPECT_EQ(owners(), QStringList{"fullscreen"});
    w.action("actionBrightness_Contrast_etc")->trigger();
    EXPECT_EQ(owners(), QStringList{"panel"});
    w.action("actionBrightness_Contrast_etc")->trigger();
    EXPECT_EQ(owners(), QStringList{"fullscreen"});
    w.action("actionFullscreen")->trigger();
    EXPECT_EQ(owners(), QStringList{"quit"});
    // Without the preference nobody takes it outside full screen and the panel.
    kavri::settings::EscapeExits.write(s, false);
    w.updateActions();
    EXPECT_EQ(owners(), QStringList());
    kavri::settings::EscapeExits.write(s, true);
}

// The brightness panel shows its values; a file opened while they are set gets them too.
TEST(FrameWindow, BrightnessPanelValuesApplyToANewlyOpenedFile)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("a_64x48.yuv", 4608 * 3);
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    w.action("actionBrightness_Contrast_etc")->trigger();
    auto *panel = w.findChild<BrightnessPanel *>();
    ASSERT_NE(panel, nullptr);
    panel->brightnessSlider()->setValue(30);
    panel->contrastSlider()->setValue(-20);
    EXPECT_EQ(w.loader()->view().picture.brightness, 30);
    EXPECT_EQ(w.loader()->view().picture.contrast, -20);
    w.action("actionReload")->trigger();
    KavriLoader *before = w.loader();
    w.oon_mrufile(dir.writeSized("b_64x48.yuv", 4608 * 2));
    KAVRI_TRY_VERIFY(w.loader() != before && w.loader() && w.loader()->isInitialized(), 20000);
    EXPECT_EQ(w.loader()->view().picture.brightness, 30);
    EXPECT_EQ(w.loader()->view().picture.contrast, -20);
    kavri::forgetRemembered(c.file);
}

// A record marked anamorphic (here by its name) is shown widened by the preference's factor.
TEST(FrameWindow, AnamorphicRecordWidensThePicture)
{
    QSettings s;
    kavri::settings::AnamorphicScale.write(s, 1.5);
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("wide_64x48_anamorph.yuv", 4608 * 2);
    frame w(&c);
    w.show();
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    EXPECT_TRUE(w.loader()->pendingProps().anamorphic);
    EXPECT_TRUE(w.drawPanel()->anamorphic());
    KAVRI_TRY_COMPARE(w.drawPanel()->size(), QSize(96, 48), 20000);
    w.action("action200")->trigger();
    KAVRI_TRY_COMPARE(w.drawPanel()->size(), QSize(192, 96), 20000);
    kavri::settings::AnamorphicScale.write(s, 1.77);
    kavri::forgetRemembered(c.file);
}
} // namespace

namespace {
// View > Colour changes how the shown frame is read without stopping playback, names the reading in the
// status line and keeps it with the file.
TEST(FrameWindow, ColourReadingFromTheMenuKeepsPlaying)
{
    kavri::test::TempDir dir;
    KavriStartupConfig c;
    c.file = dir.writeSized("p.yuv", 4608 * 400);
    c.width = 64;
    c.height = 48;
    c.rate = 50.0;
    c.format = YUV_p420;
    frame w(&c);
    KAVRI_TRY_VERIFY(w.loader() && w.loader()->isInitialized(), 20000);
    auto *menu = w.findChild<QMenu *>(QStringLiteral("menuColour"));
    ASSERT_NE(menu, nullptr);
    const auto choice = [&](const QString &text) -> QAction * {
        for (QAction *a : menu->actions())
            if (a->text() == text) return a;
        return nullptr;
    };
    ASSERT_NE(choice("BT.709"), nullptr);
    ASSERT_NE(choice("Limited range"), nullptr);
    w.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(w.loader()->isPlaying(), 20000);
    choice("BT.709")->trigger();
    choice("Limited range")->trigger();
    EXPECT_TRUE(w.isPlaying());
    EXPECT_TRUE(w.loader()->isPlaying());
    auto *view = w.findChild<QLabel *>(QStringLiteral("lbl_view"));
    ASSERT_NE(view, nullptr);
    EXPECT_TRUE(view->text().contains("BT.709 limited")) << view->text().toStdString();
    const auto remembered = kavri::lookupRemembered(c.file);
    ASSERT_TRUE(remembered.has_value());
    EXPECT_EQ(remembered->colour.matrix, ColourMatrix::BT709);
    EXPECT_EQ(remembered->colour.range, ColourRange::Limited);
    w.action("actionPlay")->trigger();
    KAVRI_TRY_VERIFY(!w.loader()->isPlaying(), 20000);
    kavri::forgetRemembered(c.file);
}
} // namespace
