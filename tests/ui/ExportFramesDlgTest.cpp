// File > Export Frames: the dialog's defaults, runs that write the right names and counts, a cancel that
// leaves nothing behind, a refusal before anything is written, and the window's menu entry.
#include "ui/ExportFramesDlg.h"
#include "formats/FrameSize.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"
#include "support/WorkGate.h"
#include "ui/frame.h"

#include <QComboBox>
#include <QDir>
#include <QImage>
#include <QLineEdit>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <gtest/gtest.h>
#include <memory>

using namespace kavri;
using kavri::test::readAll;
using kavri::test::TempDir;
using kavri::test::WorkGate;
using kavri::tools::ExportKind;

namespace {

constexpr int kWaitMs = WorkGate::kLimitMs;
constexpr int kW = 16, kH = 8, kFrames = 5;

template <typename T>
T *child(QWidget *w, const char *name)
{
    T *c = w->findChild<T *>(QLatin1String(name));
    if (!c) ADD_FAILURE() << "no control " << name;
    return c;
}

QByteArray patternFrame(videoFormat_t layout, uint64_t k)
{
    PatternSpec s;
    s.layout = layout;
    s.width = kW;
    s.height = kH;
    QByteArray b(int(patternFrameBytes(s)), '\0');
    writePatternFrame(s, k, reinterpret_cast<uint8_t *>(b.data()), size_t(b.size()));
    return b;
}

// A 4:2:0 pattern sequence of kFrames frames and its validated record.
VideoProps clip(const TempDir &dir)
{
    QByteArray all;
    for (int k = 0; k < kFrames; ++k) all += patternFrame(YUV_p420, uint64_t(k));
    VideoProps p;
    p.fileName = dir.write("clip.yuv", all);
    p.width = kW;
    p.height = kH;
    p.frameRate = 25;
    p.format = YUV_p420;
    p.bitDepth = 8;
    p.containerBits = 8;
    p.frameBytes = frameBytes(YUV_p420, 8, kW, kH);
    p.frameCount = kFrames;
    return p;
}

QStringList filesIn(const TempDir &dir) { return QDir(dir.dir()).entryList(QDir::Files | QDir::Hidden); }

void chooseKind(ExportFramesDlg &dlg, ExportKind kind)
{
    auto *combo = child<QComboBox>(&dlg, "kind");
    combo->setCurrentIndex(combo->findData(int(kind)));
}

void run(ExportFramesDlg &dlg)
{
    child<QPushButton>(&dlg, "okButton")->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !dlg.isRunning(); }, kWaitMs));
}

} // namespace

TEST(ExportFramesDialog, DefaultsFollowTheShownFrameAndTheKind)
{
    TempDir dir;
    const VideoProps p = clip(dir);
    ExportFramesDlg dlg(p, 3);
    EXPECT_EQ(child<QSpinBox>(&dlg, "firstFrame")->value(), 3);
    EXPECT_EQ(child<QSpinBox>(&dlg, "lastFrame")->value(), 3);
    EXPECT_EQ(child<QSpinBox>(&dlg, "lastFrame")->maximum(), kFrames - 1);
    EXPECT_EQ(dlg.job().kind, ExportKind::ShownPng);
    auto *output = child<QLineEdit>(&dlg, "output");
    EXPECT_EQ(output->text(), QDir(dir.dir()).filePath("clip_%05d.png"));
    EXPECT_FALSE(child<QComboBox>(&dlg, "layout")->isEnabled());

    chooseKind(dlg, ExportKind::Raw);
    EXPECT_TRUE(child<QComboBox>(&dlg, "layout")->isEnabled());
    EXPECT_EQ(dlg.job().layout, YUV_p420) << "the file's own layout first";
    EXPECT_EQ(output->text(), QDir(dir.dir()).filePath("clip_yuv420_P420.yuv"));
    auto *layout = child<QComboBox>(&dlg, "layout");
    layout->setCurrentIndex(layout->findText("nv12"));
    EXPECT_EQ(output->text(), QDir(dir.dir()).filePath("clip_nv12.nv12")) << "an unedited name follows the layout";
    chooseKind(dlg, ExportKind::Y4m);
    EXPECT_EQ(layout->count(), 4);
    EXPECT_EQ(output->text(), QDir(dir.dir()).filePath("clip.y4m"));
    // A name the user typed is kept.
    output->setText(dir.path("mine.y4m"));
    chooseKind(dlg, ExportKind::NativePng);
    EXPECT_EQ(output->text(), dir.path("mine.y4m"));
    // A shown frame past the end is taken as the last one.
    ExportFramesDlg late(p, 99);
    EXPECT_EQ(child<QSpinBox>(&late, "firstFrame")->value(), kFrames - 1);
}

TEST(ExportFramesDialog, PicturesOneFileAFrame)
{
    TempDir dir;
    const VideoProps p = clip(dir);
    for (ExportKind kind : {ExportKind::ShownPng, ExportKind::NativePng}) {
        SCOPED_TRACE(int(kind));
        ExportFramesDlg dlg(p, 1);
        dlg.show();
        chooseKind(dlg, kind);
        child<QSpinBox>(&dlg, "lastFrame")->setValue(3);
        child<QLineEdit>(&dlg, "output")->setText(dir.path(kind == ExportKind::ShownPng ? "s_%03d.png" : "n%d.png"));
        run(dlg);
        EXPECT_TRUE(dlg.result().ok) << dlg.statusText().toStdString();
        EXPECT_EQ(dlg.result().framesWritten, 3u);
        EXPECT_FALSE(dlg.isVisible());
        EXPECT_EQ(dlg.QDialog::result(), QDialog::Accepted);
        EXPECT_TRUE(dlg.statusText().startsWith("Wrote 3 frames")) << dlg.statusText().toStdString();
    }
    EXPECT_EQ(filesIn(dir),
              (QStringList{"clip.yuv", "n1.png", "n2.png", "n3.png", "s_001.png", "s_002.png", "s_003.png"}));
    const QImage shown(dir.path("s_002.png")), stored(dir.path("n2.png"));
    EXPECT_EQ(shown.size(), QSize(kW, kH));
    EXPECT_EQ(stored.size(), QSize(kW, kH));
    EXPECT_EQ(stored.format(), QImage::Format_Grayscale16) << "the stored luma at 16 bits";
}

TEST(ExportFramesDialog, RawAndY4mThroughTheConversion)
{
    TempDir dir;
    const VideoProps p = clip(dir);
    ExportFramesDlg dlg(p, 0);
    dlg.show();
    chooseKind(dlg, ExportKind::Raw);
    auto *layout = child<QComboBox>(&dlg, "layout");
    layout->setCurrentIndex(layout->findText("nv12"));
    child<QSpinBox>(&dlg, "lastFrame")->setValue(kFrames - 1);
    run(dlg);
    ASSERT_TRUE(dlg.result().ok) << dlg.statusText().toStdString();
    QByteArray expected;
    for (int k = 0; k < kFrames; ++k) expected += patternFrame(YUV_nv12, uint64_t(k));
    EXPECT_EQ(readAll(dir.path("clip_nv12.nv12")), expected);

    ExportFramesDlg y(p, 2);
    y.show();
    chooseKind(y, ExportKind::Y4m);
    run(y);
    ASSERT_TRUE(y.result().ok) << y.statusText().toStdString();
    EXPECT_EQ(readAll(dir.path("clip.y4m")),
              QByteArray("YUV4MPEG2 W16 H8 F25:1 Ip A1:1 C420jpeg\nFRAME\n") + patternFrame(YUV_p420, 2));
}

TEST(ExportFramesDialog, RefusesBeforeWritingAndKeepsWhatExists)
{
    TempDir dir;
    const VideoProps p = clip(dir);
    const QString kept = dir.write("clip_00000.png", "keep");
    ExportFramesDlg dlg(p, 0);
    dlg.show();
    child<QSpinBox>(&dlg, "lastFrame")->setValue(2);
    child<QPushButton>(&dlg, "okButton")->click();
    EXPECT_FALSE(dlg.isRunning());
    EXPECT_TRUE(dlg.statusText().contains("exists already")) << dlg.statusText().toStdString();
    EXPECT_TRUE(dlg.isVisible()) << "the dialog waits for another try";
    EXPECT_EQ(readAll(kept), QByteArray("keep"));
    // A pattern without a frame number, and a conversion the engine refuses.
    child<QLineEdit>(&dlg, "output")->setText(dir.path("one.png"));
    child<QPushButton>(&dlg, "okButton")->click();
    EXPECT_TRUE(dlg.statusText().contains("frame number")) << dlg.statusText().toStdString();
    chooseKind(dlg, ExportKind::Raw);
    auto *layout = child<QComboBox>(&dlg, "layout");
    layout->setCurrentIndex(layout->findText("rgbp"));
    child<QPushButton>(&dlg, "okButton")->click();
    EXPECT_EQ(dlg.statusText(), "converting between YUV and RGB layouts is not supported");
    EXPECT_EQ(filesIn(dir), (QStringList{"clip.yuv", "clip_00000.png"}));
}

// Cancel while the job is held part-way: the dialog says so, stays until the job has stopped, and
// nothing the run wrote is left.
TEST(ExportFramesDialog, CancelLeavesNothing)
{
    for (ExportKind kind : {ExportKind::ShownPng, ExportKind::Raw, ExportKind::Y4m}) {
        SCOPED_TRACE(int(kind));
        TempDir dir;
        const VideoProps p = clip(dir);
        auto gate = std::make_shared<WorkGate>();
        ExportFramesDlg dlg(p, 0);
        dlg.setWorkerHook([gate](int) { gate->pauseOnce(); });
        dlg.show();
        chooseKind(dlg, kind);
        child<QSpinBox>(&dlg, "lastFrame")->setValue(kFrames - 1);
        child<QPushButton>(&dlg, "okButton")->click();
        ASSERT_TRUE(gate->reached()) << "the job never reported progress";
        EXPECT_TRUE(dlg.isRunning());
        EXPECT_FALSE(child<QPushButton>(&dlg, "okButton")->isEnabled());
        child<QPushButton>(&dlg, "cancelButton")->click();
        EXPECT_EQ(dlg.statusText(), "Cancelling ...");
        EXPECT_TRUE(dlg.isVisible());
        gate->release();
        ASSERT_TRUE(QTest::qWaitFor([&] { return !dlg.isVisible(); }, kWaitMs));
        EXPECT_EQ(dlg.QDialog::result(), QDialog::Rejected);
        EXPECT_TRUE(dlg.result().cancelled);
        EXPECT_EQ(filesIn(dir), QStringList{"clip.yuv"}) << "no picture, output or temporary file";
        EXPECT_FALSE(gate->timedOut());
    }
}

TEST(ExportFramesDialog, TheWindowOffersItInTheFileMenu)
{
    frame w(nullptr);
    QAction *a = w.action("actionExport_Frames");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->text(), "Export Frames ...");
    EXPECT_FALSE(a->isEnabled()) << "no file, nothing to export";
    bool inFileMenu = false;
    for (QAction *item : w.findChild<QMenu *>("menuFile")->actions()) inFileMenu |= item == a;
    EXPECT_TRUE(inFileMenu);
}
