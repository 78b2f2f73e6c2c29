#include "formats/Settings.h"
#include "support/TempFiles.h"
#include "support/WorkGate.h"
#include "tools/CopyWork.h"
#include "ui/KavriCopyDlg.h"
#include "ui/KavriFormatDialog.h"
#include "ui/KavriSettingsDlg.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFile>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <QTest>
#include <QThreadPool>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <memory>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#endif

using namespace kavri;

namespace {

template <typename T>
T *child(QWidget *w, const char *name)
{
    T *c = w->findChild<T *>(QLatin1String(name));
    if (!c) ADD_FAILURE() << "no control " << name;
    return c;
}

VideoProps sampleProps()
{
    VideoProps p;
    p.width = 352;
    p.height = 288;
    p.frameRate = 29.97;
    p.format = YUV_p422;
    p.bitDepth = 10;
    p.containerBits = 16;
    p.headerBytes = 512;
    p.flipped = true;
    p.swapUV = true;
    p.signedValues = true;
    return p;
}

} // namespace

TEST(FormatDialog, FillsControlsFromTheRecord)
{
    VideoProps p = sampleProps();
    KavriFormatDialog dlg(p);
    EXPECT_EQ(dlg.windowTitle(), "Select Format");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "352");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_height")->text(), "288");
    EXPECT_DOUBLE_EQ(child<QDoubleSpinBox>(&dlg, "spin_rate")->value(), 29.97);
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_format")->currentIndex(), 1);
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_format")->count(), kLayoutCount);
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_format")->itemText(27), "YUV, 4:2:0, NV21 ordering");
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_format")->itemText(22), "GRB, planar,   4:4:4");
    EXPECT_EQ(child<QSpinBox>(&dlg, "spin_bits")->value(), 10);
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_container")->currentText(), "16bit");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_headerBytes")->text(), "512");
    EXPECT_TRUE(child<QCheckBox>(&dlg, "chk_vertically_flipped")->isChecked());
    EXPECT_TRUE(child<QCheckBox>(&dlg, "chk_swap")->isChecked());
    EXPECT_TRUE(child<QCheckBox>(&dlg, "chk_signed")->isChecked());
    EXPECT_EQ(dlg.findChild<QTabWidget *>()->currentWidget()->objectName(), "tab_videoformat");
    auto *res = child<QComboBox>(&dlg, "comboResolutions");
    ASSERT_EQ(res->count(), 15);
    EXPECT_EQ(res->itemText(0), "(Keep as is)");
    EXPECT_EQ(res->itemText(13), "HD1080\t( 1920 x 1080 )");
    EXPECT_EQ(res->itemData(14).value<KavriFormatDialog::res_sizes>().width, 3840);
}

TEST(FormatDialog, UnknownSizeAsksToSelect)
{
    VideoProps p;
    p.width = -1;
    p.height = -1;
    KavriFormatDialog dlg(p);
    EXPECT_EQ(child<QComboBox>(&dlg, "comboResolutions")->itemText(0), "Select, please");
}

TEST(FormatDialog, PresetFillsFieldsButTheRecordChangesOnlyOnApply)
{
    VideoProps p = sampleProps();
    KavriFormatDialog dlg(p);
    QSignalSpy changed(&dlg, &KavriFormatDialog::format_changed);
    auto *res = child<QComboBox>(&dlg, "comboResolutions");
    res->setCurrentIndex(13);
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "1920");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_height")->text(), "1080");
    EXPECT_EQ(p.width, 352);
    EXPECT_EQ(changed.size(), 0);
    res->setCurrentIndex(0); // back to the record's own size
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "352");
    res->setCurrentIndex(13);
    child<QPushButton>(&dlg, "applyButton")->click();
    EXPECT_EQ(p.width, 1920);
    EXPECT_EQ(p.height, 1080);
    EXPECT_EQ(changed.size(), 1);
}

TEST(FormatDialog, EmptyFieldsConvertToZeroAndRangesHold)
{
    VideoProps p = sampleProps();
    KavriFormatDialog dlg(p);
    child<QLineEdit>(&dlg, "le_width")->clear();
    child<QLineEdit>(&dlg, "le_height")->clear();
    child<QLineEdit>(&dlg, "le_headerBytes")->clear();
    auto *bits = child<QSpinBox>(&dlg, "spin_bits");
    bits->setValue(0);
    EXPECT_EQ(bits->value(), 1);
    bits->setValue(17);
    EXPECT_EQ(bits->value(), 16);
    auto *rate = child<QDoubleSpinBox>(&dlg, "spin_rate");
    rate->setValue(-1);
    EXPECT_EQ(rate->value(), 0.0);
    rate->setValue(101);
    EXPECT_EQ(rate->value(), 100.0);
    dlg.accept();
    EXPECT_EQ(p.width, 0);
    EXPECT_EQ(p.height, 0);
    EXPECT_EQ(p.headerBytes, 0u);
    EXPECT_EQ(p.bitDepth, 16);
    EXPECT_EQ(p.frameRate, 100.0);
}

TEST(FormatDialog, DepthAndV210AdjustTheOtherControls)
{
    VideoProps p = sampleProps();
    p.bitDepth = 8;
    p.containerBits = 8;
    KavriFormatDialog dlg(p);
    auto *container = child<QComboBox>(&dlg, "cb_container");
    auto *bits = child<QSpinBox>(&dlg, "spin_bits");
    EXPECT_EQ(container->currentText(), "8bit");
    EXPECT_TRUE(container->isEnabled());
    bits->setValue(12);
    EXPECT_EQ(container->currentText(), "16bit");
    EXPECT_FALSE(container->isEnabled());
    child<QComboBox>(&dlg, "cb_format")->setCurrentIndex(YUV_v210 - 1);
    EXPECT_EQ(bits->value(), 10);
    EXPECT_FALSE(child<QCheckBox>(&dlg, "chk_signed")->isChecked());
    dlg.accept();
    EXPECT_EQ(p.format, YUV_v210);
    EXPECT_EQ(p.bitDepth, 10);
    EXPECT_FALSE(p.signedValues);
}

TEST(SettingsDialog, ReadsDefaultsAndWritesEveryKeyInOrder)
{
    QSettings().clear();
    KavriSettingsDlg dlg;
    EXPECT_EQ(dlg.windowTitle(), "Preferences");
    EXPECT_TRUE(child<QCheckBox>(&dlg, "cb_esc")->isChecked());
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_anamorphic")->text(), "1.77");
    EXPECT_EQ(child<QSpinBox>(&dlg, "spinBox_gridSize")->value(), 16);
    EXPECT_EQ(child<QComboBox>(&dlg, "comboBox_cu_cize")->currentText(), "64");
    EXPECT_FALSE(child<QCheckBox>(&dlg, "cb_link")->isEnabled());
    child<QCheckBox>(&dlg, "openDifferenceInNewWindowCheckBox")->setChecked(true);
    EXPECT_TRUE(child<QCheckBox>(&dlg, "cb_link")->isEnabled());
    child<QCheckBox>(&dlg, "cb_link")->setChecked(true);
    child<QComboBox>(&dlg, "comboBox_cu_cize")->setCurrentIndex(2);
    child<QLineEdit>(&dlg, "le_anamorphic")->setText("1.25");
    child<QSpinBox>(&dlg, "spinBox_gridSize")->setValue(32);
    dlg.accept();
    EXPECT_EQ(dlg.writtenKeys(), (QStringList{"Settings/HexValues", "Settings/EscapeExits", "Settings/AnamorphicScale",
                                              "Settings/DiffInNewWindow", "Settings/hevc_depth", "Settings/hevc_size",
                                              "Settings/hevc", "Settings/Gridsize", "Settings/DiffInNewWindowLink"}));
    QSettings s;
    EXPECT_EQ(s.value("Settings/hevc_size").typeId(), QMetaType::Int);
    EXPECT_EQ(settings::HevcSize.read(s), 128);
    EXPECT_DOUBLE_EQ(settings::AnamorphicScale.read(s), 1.25);
    EXPECT_EQ(settings::Gridsize.read(s), 32);
    EXPECT_TRUE(settings::DiffInNewWindow.read(s));
    EXPECT_TRUE(settings::DiffInNewWindowLink.read(s));
    EXPECT_FALSE(settings::HexValues.read(s));
    EXPECT_TRUE(settings::EscapeExits.read(s));
    EXPECT_EQ(settings::HevcDepth.read(s), 5);
}

TEST(SettingsDialog, BadAnamorphicFactorStoresZeroAndCancelWritesNothing)
{
    QSettings().clear();
    {
        KavriSettingsDlg dlg;
        child<QLineEdit>(&dlg, "le_anamorphic")->setText("abc");
        dlg.reject();
        EXPECT_FALSE(QSettings().contains("Settings/AnamorphicScale"));
    }
    KavriSettingsDlg dlg;
    child<QLineEdit>(&dlg, "le_anamorphic")->setText("abc");
    dlg.accept();
    QSettings s;
    EXPECT_EQ(s.value("Settings/AnamorphicScale").toDouble(), 0.0);
}

// ---- Extract and Reverse ----------------------------------------------------------------------------------

namespace {

using kavri::test::TempDir;
using kavri::test::WorkGate;

constexpr int kWaitMs = WorkGate::kLimitMs;

// `frames` frames of `frameBytes` after a 16-byte header; byte j of frame k is (k * 37 + j) & 0xff.
QByteArray clipBytes(int frames, int frameBytes)
{
    QByteArray b(16, char(0xEE));
    for (int k = 0; k < frames; ++k)
        for (int j = 0; j < frameBytes; ++j) b.append(char((k * 37 + j) & 0xff));
    return b;
}

QByteArray clipFrame(int k, int frameBytes) { return clipBytes(k + 1, frameBytes).mid(16 + k * frameBytes); }

QByteArray fileBytes(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QStringList filesIn(const QString &dir) { return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System); }

VideoProps clipProps(const QString &file, int frames, int frameBytes)
{
    VideoProps p;
    p.fileName = file;
    p.width = 8;
    p.height = frameBytes / 8;
    p.frameRate = 25;
    p.bitDepth = 8;
    p.format = BW;
    p.headerBytes = 16;
    p.frameBytes = uint32_t(frameBytes);
    p.frameCount = uint64_t(frames);
    return p;
}

// The dialog under test, with its job held at the gate at its first progress report (on the worker
// thread), so that the test acts while the job is known to be part-way.
template <typename Dlg>
class GatedDialog : public Dlg {
public:
    template <typename... Args>
    explicit GatedDialog(std::shared_ptr<WorkGate> gate, Args &&...args)
        : Dlg(std::forward<Args>(args)...), m_gate(std::move(gate))
    {
    }
    QPointer<CopyWork> work;

protected:
    CopyWork *makeWork(bool overwrite) override
    {
        const std::unique_ptr<CopyWork> plain(Dlg::makeWork(overwrite));
        auto *w = new CopyWork(plain->job());
        QObject::connect(
            w, &CopyWork::status, w,
            [gate = m_gate](int p) {
                if (p < 100) gate->pauseOnce();
            },
            Qt::DirectConnection);
        work = w;
        return w;
    }

private:
    std::shared_ptr<WorkGate> m_gate;
};

std::unique_ptr<KavriCopyDlg> makeDialog(bool reverse, const VideoProps &p, uint64_t from,
                                         std::shared_ptr<WorkGate> gate = {})
{
    if (gate) {
        if (reverse) return std::make_unique<GatedDialog<KavriReverseDlg>>(gate, p);
        return std::make_unique<GatedDialog<KavriExtractDlg>>(gate, p, from);
    }
    if (reverse) return std::make_unique<KavriReverseDlg>(p);
    return std::make_unique<KavriExtractDlg>(p, from);
}

QPointer<CopyWork> gatedWork(KavriCopyDlg *dlg)
{
    if (auto *e = dynamic_cast<GatedDialog<KavriExtractDlg> *>(dlg)) return e->work;
    if (auto *r = dynamic_cast<GatedDialog<KavriReverseDlg> *>(dlg)) return r->work;
    return {};
}

struct FinishCase {
    const char *name;
    bool reverse;
    int from; // the extraction's first frame (it runs to the last)
    const char *sentence;
};

class CopyDialogFinish : public ::testing::TestWithParam<FinishCase> {};

} // namespace

// A finished job says what it wrote, in one plain sentence, and the dialog stays until OK.
TEST_P(CopyDialogFinish, SaysWhatWasWrittenAndOkCloses)
{
    const FinishCase c = GetParam();
    const int frames = 10, frameBytes = 64;
    TempDir dir;
    const QString in = dir.write("in.yuv", clipBytes(frames, frameBytes));
    const QString out = dir.path("out.yuv");
    auto dlg = makeDialog(c.reverse, clipProps(in, frames, frameBytes), uint64_t(c.from));
    dlg->show();
    dlg->setOutputPath(out);
    child<QPushButton>(dlg.get(), "okButton")->click();
    EXPECT_TRUE(dlg->isRunning());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !dlg->isRunning(); }, kWaitMs));
    EXPECT_EQ(dlg->statusText(), QString::fromUtf8(c.sentence).arg(QDir::toNativeSeparators(out)));
    EXPECT_TRUE(child<QWidget>(dlg.get(), "statusLabel")->isVisible());
    EXPECT_EQ(child<QProgressBar>(dlg.get(), "progressBar")->value(), 100);
    EXPECT_TRUE(dlg->isVisible()) << "not closed silently";
    EXPECT_FALSE(child<QPushButton>(dlg.get(), "cancelButton")->isEnabled()) << "nothing left to cancel";
    QByteArray expected;
    if (c.reverse) {
        for (int k = frames - 1; k >= 0; --k) expected += clipFrame(k, frameBytes);
    } else {
        for (int k = c.from; k < frames; ++k) expected += clipFrame(k, frameBytes);
    }
    EXPECT_EQ(fileBytes(out), expected);
    EXPECT_EQ(filesIn(dir.dir()), (QStringList{"in.yuv", "out.yuv"}));
    auto *ok = child<QPushButton>(dlg.get(), "okButton");
    EXPECT_TRUE(ok->isEnabled());
    ok->click();
    EXPECT_FALSE(dlg->isVisible());
    EXPECT_EQ(dlg->result(), QDialog::Accepted);
}

INSTANTIATE_TEST_SUITE_P(Jobs, CopyDialogFinish,
                         ::testing::Values(FinishCase{"Extract", false, 2, "Wrote 8 frames to %1"},
                                           FinishCase{"ExtractOneFrame", false, 9, "Wrote 1 frame to %1"},
                                           FinishCase{"Reverse", true, 0, "Wrote 10 frames to %1"}),
                         [](const auto &i) { return std::string(i.param.name); });

namespace {

struct CancelWay {
    const char *name;
    std::function<void(KavriCopyDlg *)> act;
};

const CancelWay kCancelWays[] = {
    {"CancelButton", [](KavriCopyDlg *d) { child<QPushButton>(d, "cancelButton")->click(); }},
    {"Escape", [](KavriCopyDlg *d) { QTest::keyClick(d, Qt::Key_Escape); }},
    {"CloseWindow", [](KavriCopyDlg *d) { d->close(); }},
};

} // namespace

// Cancel, Esc and closing the window stop a running job: the dialog waits (without blocking) until the
// worker has stopped and removed its temporary file, then closes; nothing is left behind.
TEST(CopyDialogCancel, StopsTheJobLeavesNothingAndCloses)
{
    const int frames = 10, frameBytes = 64;
    for (const CancelWay &way : kCancelWays) {
        for (bool reverse : {false, true}) {
            SCOPED_TRACE(std::string(way.name) + (reverse ? " reverse" : " extract"));
            TempDir dir;
            const QString in = dir.write("in.yuv", clipBytes(frames, frameBytes));
            auto gate = std::make_shared<WorkGate>();
            auto dlg = makeDialog(reverse, clipProps(in, frames, frameBytes), 0, gate);
            dlg->show();
            dlg->setOutputPath(dir.path("out.yuv"));
            child<QPushButton>(dlg.get(), "okButton")->click();
            ASSERT_TRUE(gate->reached()) << "the job never reported progress";
            QPointer<CopyWork> work = gatedWork(dlg.get());
            ASSERT_FALSE(work.isNull());
            auto *cancel = child<QPushButton>(dlg.get(), "cancelButton");
            EXPECT_TRUE(cancel->isEnabled()) << "a running job can be cancelled";
            EXPECT_FALSE(child<QPushButton>(dlg.get(), "okButton")->isEnabled());
            // The disabled controls hand the focus on to Cancel; Enter (as pressed for OK) must not cancel.
            dlg->activateWindow();
            EXPECT_TRUE(QTest::qWaitForWindowActive(dlg.get()));
            cancel->setFocus(Qt::TabFocusReason);
            QTest::keyClick(dlg.get(), Qt::Key_Return);
            EXPECT_FALSE(work->cancelRequested()) << "Enter cancelled the job";

            way.act(dlg.get());
            EXPECT_TRUE(work->cancelRequested());
            EXPECT_TRUE(dlg->isVisible()) << "the dialog stays until the worker has stopped";
            EXPECT_TRUE(dlg->isRunning());
            EXPECT_EQ(dlg->statusText(), QStringLiteral("Cancelling ..."));
            EXPECT_FALSE(cancel->isEnabled());

            gate->release();
            ASSERT_TRUE(QTest::qWaitFor([&] { return !dlg->isVisible(); }, kWaitMs));
            EXPECT_EQ(dlg->result(), QDialog::Rejected);
            EXPECT_FALSE(dlg->isRunning());
            EXPECT_EQ(filesIn(dir.dir()), QStringList{"in.yuv"}) << "no output and no temporary file";
            EXPECT_TRUE(QTest::qWaitFor([&] { return work.isNull(); }, kWaitMs)) << "the job was not deleted";
            EXPECT_FALSE(gate->timedOut());
        }
    }
}

// Before the job runs, Cancel takes it back from the pool: nothing was written and the dialog closes
// at once. The pool is kept busy with one thread held at a gate.
TEST(CopyDialogCancel, QueuedJobIsTakenBackAndNothingIsWritten)
{
    QThreadPool *pool = QThreadPool::globalInstance();
    const int threads = pool->maxThreadCount();
    auto blocker = std::make_shared<WorkGate>();
    // Whatever happens below, the pool gets its thread back and its old size.
    const std::unique_ptr<QThreadPool, std::function<void(QThreadPool *)>> restore(pool, [blocker, threads](auto *p) {
        blocker->release();
        p->waitForDone();
        p->setMaxThreadCount(threads);
    });
    pool->setMaxThreadCount(1);
    pool->start([blocker] { blocker->pauseOnce(); });
    ASSERT_TRUE(blocker->reached());

    TempDir dir;
    const QString in = dir.write("in.yuv", clipBytes(4, 64));
    KavriReverseDlg dlg(clipProps(in, 4, 64));
    dlg.show();
    dlg.setOutputPath(dir.path("out.yuv"));
    child<QPushButton>(&dlg, "okButton")->click();
    EXPECT_TRUE(dlg.isRunning());
    child<QPushButton>(&dlg, "cancelButton")->click();
    EXPECT_FALSE(dlg.isVisible());
    EXPECT_FALSE(dlg.isRunning());
    blocker->release();
    pool->waitForDone();
    EXPECT_EQ(filesIn(dir.dir()), QStringList{"in.yuv"}) << "the job ran after all";
}

// A dialog destroyed while its job runs does not wait for the disk: the job stops on its own, removes
// its temporary file and deletes itself.
TEST(CopyDialogCancel, DestroyedWhileRunningDoesNotWait)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", clipBytes(10, 64));
    auto gate = std::make_shared<WorkGate>();
    auto dlg = makeDialog(false, clipProps(in, 10, 64), 0, gate);
    dlg->show();
    dlg->setOutputPath(dir.path("out.yuv"));
    child<QPushButton>(dlg.get(), "okButton")->click();
    ASSERT_TRUE(gate->reached());
    QPointer<CopyWork> work = gatedWork(dlg.get());
    dlg.reset(); // would wait for the held worker (until the gate gives up) if it blocked
    EXPECT_FALSE(gate->timedOut()) << "the dialog waited for the worker";
    ASSERT_FALSE(work.isNull());
    EXPECT_TRUE(work->cancelRequested());
    gate->release();
    EXPECT_TRUE(QTest::qWaitFor([&] { return work.isNull(); }, kWaitMs));
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_EQ(filesIn(dir.dir()), QStringList{"in.yuv"});
}

#ifdef Q_OS_UNIX
// A write that fails part-way (a file-size limit stands in for a full disk, and binds the superuser too)
// is shown in the warning box with the system's reason; nothing is left and the dialog can try again.
TEST(CopyDialogFailure, ShowsTheReasonAndLeavesNothing)
{
    const int frames = 16, frameBytes = 4096;
    TempDir dir;
    const QString in = dir.write("in.yuv", clipBytes(frames, frameBytes));
    KavriExtractDlg dlg(clipProps(in, frames, frameBytes), 0);
    dlg.show();
    dlg.setOutputPath(dir.path("out.yuv"));
    QString title, detail;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box) return;
        title = box->windowTitle();
        detail = box->detailedText();
        box->accept();
    });
    poll.start(10);
    struct rlimit old {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = old;
    small.rlim_cur = 3 * frameBytes + 100;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    child<QPushButton>(&dlg, "okButton")->click();
    const bool shown = QTest::qWaitFor([&] { return !title.isEmpty(); }, kWaitMs);
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    ASSERT_TRUE(shown) << "no warning box";
    EXPECT_EQ(title, QStringLiteral("Kavri"));
    EXPECT_TRUE(detail.contains(QString::fromLocal8Bit(std::strerror(EFBIG)))) << detail.toStdString();
    EXPECT_EQ(filesIn(dir.dir()), QStringList{"in.yuv"});
    EXPECT_TRUE(dlg.isVisible());
    EXPECT_FALSE(dlg.isRunning());
    EXPECT_TRUE(dlg.statusText().isEmpty());
    EXPECT_TRUE(child<QPushButton>(&dlg, "okButton")->isEnabled()) << "the user can try again";
    EXPECT_EQ(child<QProgressBar>(&dlg, "progressBar")->value(), 0);
}
#endif

TEST(FormatDialog, ColourTabFillsFromAndWritesToTheRecord)
{
    VideoProps p = sampleProps();
    p.colour.matrix = kavri::ColourMatrix::BT2020;
    p.colour.transfer = kavri::ColourTransfer::HLG;
    p.colour.peakNits = 600;
    KavriFormatDialog dlg(p);
    auto *matrix = child<QComboBox>(&dlg, "cb_matrix");
    EXPECT_EQ(matrix->currentText(), "BT.2020 (non-constant luminance)");
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_transfer")->currentIndex(), 2);
    EXPECT_EQ(child<QSpinBox>(&dlg, "sb_peak")->value(), 600);
    matrix->setCurrentIndex(1);
    child<QComboBox>(&dlg, "cb_range")->setCurrentIndex(1);
    child<QComboBox>(&dlg, "cb_chroma")->setCurrentIndex(3);
    EXPECT_EQ(p.colour.matrix, kavri::ColourMatrix::BT2020); // nothing changes before Apply
    child<QPushButton>(&dlg, "applyButton")->click();
    EXPECT_EQ(p.colour.matrix, kavri::ColourMatrix::BT601);
    EXPECT_EQ(p.colour.range, kavri::ColourRange::Limited);
    EXPECT_EQ(p.colour.chroma, kavri::ChromaSiting::TopLeft);
    EXPECT_EQ(p.colour.transfer, kavri::ColourTransfer::HLG);
    EXPECT_EQ(p.colour.peakNits, 600);
    EXPECT_EQ(p.width, 352); // the other tabs as they were
}
