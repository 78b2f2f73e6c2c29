#include "formats/Settings.h"
#include "ui/KavriFormatDialog.h"
#include "ui/KavriSettingsDlg.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <gtest/gtest.h>

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
    EXPECT_EQ(child<QComboBox>(&dlg, "cb_format")->count(), 27);
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
