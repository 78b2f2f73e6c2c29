#include "support/TempFiles.h"
#include "ui/KavriFormatDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <gtest/gtest.h>

namespace {

template <typename T>
T *child(QWidget *w, const char *name)
{
    T *c = w->findChild<T *>(QLatin1String(name));
    if (!c) ADD_FAILURE() << "no control " << name;
    return c;
}

VideoProps cifRecord(const QString &file)
{
    VideoProps p;
    p.fileName = file;
    p.width = 352;
    p.height = 288;
    p.format = YUV_p420;
    p.bitDepth = 8;
    p.containerBits = 8;
    return p;
}

QString fitText(KavriFormatDialog &dlg) { return child<QLabel>(&dlg, "lbl_frameFit")->text(); }

TEST(FormatDialogGuess, FrameCountFollowsTheTypedSize)
{
    kavri::test::TempDir dir;
    const QString file = dir.writeSized("clip.yuv", 152064 * 12 + 5184);
    VideoProps p = cifRecord(file);
    KavriFormatDialog dlg(p);
    EXPECT_EQ(child<QLabel>(&dlg, "lbl_fileSize")->text(), "1829952 bytes");
    auto *width = child<QLineEdit>(&dlg, "le_width");
    auto *height = child<QLineEdit>(&dlg, "le_height");
    struct Case {
        const char *w, *h;
        const char *text;
    };
    const Case cases[] = {
        {"352", "288", "152064 bytes a frame, 12 frames and 5184 bytes over"},
        {"176", "288", "76032 bytes a frame, 24 frames and 5184 bytes over"},
        {"176", "144", "38016 bytes a frame, 48 frames and 5184 bytes over"},
        {"1920", "1080", "3110400 bytes a frame, 0 frames and 1829952 bytes over"},
        {"48", "3", "216 bytes a frame, 8472 frames"},
        {"", "144", ""}, // no width yet: nothing to count
        {"0", "144", ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.w) + "x" + c.h);
        width->setText(QLatin1String(c.w));
        height->setText(QLatin1String(c.h));
        EXPECT_EQ(fitText(dlg), QLatin1String(c.text));
    }
    // Layout, depth and header count as well.
    width->setText("352");
    height->setText("288");
    child<QSpinBox>(&dlg, "spin_bits")->setValue(10);
    EXPECT_EQ(fitText(dlg), "304128 bytes a frame, 6 frames and 5184 bytes over");
    child<QSpinBox>(&dlg, "spin_bits")->setValue(8);
    child<QComboBox>(&dlg, "cb_container")->setCurrentIndex(0);
    child<QLineEdit>(&dlg, "le_headerBytes")->setText("5184");
    EXPECT_EQ(fitText(dlg), "152064 bytes a frame, 12 frames");
    child<QComboBox>(&dlg, "cb_format")->setCurrentIndex(BW - 1);
    EXPECT_EQ(fitText(dlg), "101376 bytes a frame, 18 frames");
    // Nothing of this reaches the record before Apply or OK.
    EXPECT_EQ(p.headerBytes, 0u);
    EXPECT_EQ(p.format, YUV_p420);
}

TEST(FormatDialogGuess, PickingACandidateFillsTheSize)
{
    kavri::test::TempDir dir;
    const QString file = dir.writeSized("clip_qcif.yuv", 152064 * 10);
    VideoProps p = cifRecord(file);
    p.width = -1;
    p.height = -1;
    KavriFormatDialog dlg(p);
    auto *guesses = child<QComboBox>(&dlg, "comboGuesses");
    EXPECT_TRUE(guesses->isEnabled());
    ASSERT_GE(guesses->count(), 3);
    EXPECT_EQ(guesses->currentIndex(), 0);
    EXPECT_EQ(guesses->itemText(0), QStringLiteral("(%1 fitting)").arg(guesses->count() - 1));
    // The size the name gives comes first, then the commoner CIF.
    EXPECT_EQ(guesses->itemText(1), "QCIF  176 x 144, 40 frames, named by the file");
    EXPECT_EQ(guesses->itemText(2), "CIF  352 x 288, 10 frames");
    guesses->setCurrentIndex(2);
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "352");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_height")->text(), "288");
    EXPECT_EQ(fitText(dlg), "152064 bytes a frame, 10 frames");
    EXPECT_EQ(p.width, -1);
    // Typing over the size and choosing the same entry again fills it again.
    child<QLineEdit>(&dlg, "le_width")->setText("7");
    emit guesses->activated(2);
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "352");
    child<QPushButton>(&dlg, "applyButton")->click();
    EXPECT_EQ(p.width, 352);
    EXPECT_EQ(p.height, 288);

    // Another layout lists its own fits, from the top again; choosing the heading changes nothing.
    child<QComboBox>(&dlg, "cb_format")->setCurrentIndex(YUV_p444 - 1);
    EXPECT_EQ(guesses->currentIndex(), 0);
    EXPECT_EQ(guesses->itemText(1), "QCIF  176 x 144, 20 frames, named by the file");
    EXPECT_EQ(guesses->itemText(2), "CIF  352 x 288, 5 frames");
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "352");
    guesses->setCurrentIndex(1);
    guesses->setCurrentIndex(0);
    EXPECT_EQ(child<QLineEdit>(&dlg, "le_width")->text(), "176");
}

TEST(FormatDialogGuess, NothingFits)
{
    kavri::test::TempDir dir;
    VideoProps p = cifRecord(dir.writeSized("odd.yuv", 1000003));
    KavriFormatDialog dlg(p);
    auto *guesses = child<QComboBox>(&dlg, "comboGuesses");
    EXPECT_EQ(guesses->count(), 1);
    EXPECT_EQ(guesses->itemText(0), "(no known size fits)");
    EXPECT_FALSE(guesses->isEnabled());
    EXPECT_EQ(fitText(dlg), "152064 bytes a frame, 6 frames and 87619 bytes over");
}

TEST(FormatDialogGuess, NoSizeForStandardInputOrAVanishedFile)
{
    kavri::test::TempDir dir;
    const QString vanished = dir.writeSized("gone.yuv", 152064 * 2);
    for (const QString &file : {QStringLiteral("-"), vanished, QString()}) {
        SCOPED_TRACE(file.toStdString());
        VideoProps p = cifRecord(file);
        QFile::remove(vanished);
        KavriFormatDialog dlg(p);
        EXPECT_EQ(child<QLabel>(&dlg, "lbl_fileSize")->text(), "size unknown");
        EXPECT_EQ(fitText(dlg), "");
        auto *guesses = child<QComboBox>(&dlg, "comboGuesses");
        EXPECT_FALSE(guesses->isEnabled());
        EXPECT_EQ(guesses->count(), 1);
        child<QLineEdit>(&dlg, "le_width")->setText("176");
        child<QComboBox>(&dlg, "cb_format")->setCurrentIndex(YUV_v210 - 1);
        EXPECT_EQ(fitText(dlg), "");
        dlg.accept();
        EXPECT_EQ(p.width, 176);
    }
}

// Plane strides and offsets typed on the expert tab count in the frame's bytes and reach the record on
// Apply; text that is no list of byte counts leaves the record as it was.
TEST(FormatDialogGuess, PlaneStridesAndOffsets)
{
    kavri::test::TempDir dir;
    VideoProps p = cifRecord(dir.writeSized("clip.yuv", 88 * 3));
    p.width = 6;
    p.height = 4;
    KavriFormatDialog dlg(p);
    auto *strides = child<QLineEdit>(&dlg, "le_strides");
    auto *offsets = child<QLineEdit>(&dlg, "le_planeOffsets");
    EXPECT_EQ(strides->text(), "");
    child<QLineEdit>(&dlg, "le_width")->setText("6");
    child<QLineEdit>(&dlg, "le_height")->setText("4");
    strides->setText("8, 4,4");
    offsets->setText("0,64,80");
    EXPECT_EQ(fitText(dlg), "88 bytes a frame, 3 frames");
    child<QPushButton>(&dlg, "applyButton")->click();
    EXPECT_EQ(p.planeStride, (std::array<uint32_t, 4>{8, 4, 4, 0}));
    EXPECT_EQ(p.planeOffset, (std::array<uint64_t, 4>{0, 64, 80, 0}));
    strides->setText("8,x");
    child<QPushButton>(&dlg, "applyButton")->click();
    EXPECT_EQ(p.planeStride, (std::array<uint32_t, 4>{8, 4, 4, 0}));
    KavriFormatDialog again(p);
    EXPECT_EQ(child<QLineEdit>(&again, "le_strides")->text(), "8,4,4");
    EXPECT_EQ(child<QLineEdit>(&again, "le_planeOffsets")->text(), "0,64,80");
}

TEST(FormatDialogGuess, KeyboardOrderKeepsTheOldStopsAroundTheNewOne)
{
    kavri::test::TempDir dir;
    VideoProps p = cifRecord(dir.writeSized("clip.yuv", 152064));
    KavriFormatDialog dlg(p);
    const QStringList expected{"comboResolutions", "le_width",       "le_height",   "chk_anamorph",
                               "comboGuesses",     "spin_rate",      "cb_format",   "chk_vertically_flipped",
                               "chk_swap",         "spin_bits",      "chk_endian",  "chk_signed",
                               "cb_container",     "le_headerBytes", "applyButton", "okButton",
                               "cancelButton"};
    QStringList seen;
    QWidget *w = child<QComboBox>(&dlg, "comboResolutions");
    for (int i = 0; i < 200 && seen.size() < expected.size(); ++i, w = w->nextInFocusChain())
        if (expected.contains(w->objectName()) && !seen.contains(w->objectName())) seen << w->objectName();
    EXPECT_EQ(seen, expected);
}

} // namespace
