#include "formats/Settings.h"

#include <QCoreApplication>
#include <QDir>
#include <gtest/gtest.h>

using namespace kavri::settings;

namespace {

TEST(Settings, StoreIsRedirectedAwayFromTheUser)
{
    QSettings s;
    const QString dir = QString::fromLocal8Bit(qgetenv(kConfigDirEnv));
    ASSERT_FALSE(dir.isEmpty());
    EXPECT_TRUE(QDir::cleanPath(s.fileName()).startsWith(QDir::cleanPath(dir))) << s.fileName().toStdString();
    EXPECT_EQ(QCoreApplication::applicationName(), "kavri");
}

TEST(Settings, EmptyStoreGivesTheDefaults)
{
    QSettings s;
    s.clear();
    EXPECT_TRUE(Loop.read(s));
    EXPECT_FALSE(Timestamps.read(s));
    EXPECT_TRUE(MaintainAR.read(s));
    EXPECT_TRUE(EscapeExits.read(s));
    EXPECT_EQ(LastUsedDir.read(s), "/");
    EXPECT_EQ(AnamorphicScale.read(s), 1.77);
    EXPECT_EQ(MagnFactor.read(s), 520);
    EXPECT_EQ(Gridsize.read(s), 16);
    EXPECT_EQ(HevcDepth.read(s), 5);
    EXPECT_EQ(HevcSize.read(s), 64);
    EXPECT_FALSE(Hevc.read(s));
    EXPECT_FALSE(HexValues.read(s));
    EXPECT_FALSE(DiffInNewWindow.read(s));
    EXPECT_FALSE(DiffInNewWindowLink.read(s));
    EXPECT_TRUE(RecentFileList.read(s).isEmpty());
}

TEST(Settings, WrittenValuesReadBackAndSurviveAReopen)
{
    {
        QSettings s;
        Gridsize.write(s, 32);
        Loop.write(s, false);
        AnamorphicScale.write(s, 1.5);
        RecentFileList.write(s, {"/a.yuv", "/b.yuv"});
    }
    QSettings s;
    EXPECT_EQ(Gridsize.read(s), 32);
    EXPECT_FALSE(Loop.read(s));
    EXPECT_EQ(AnamorphicScale.read(s), 1.5);
    EXPECT_EQ(RecentFileList.read(s), QStringList({"/a.yuv", "/b.yuv"}));
    s.clear();
}

TEST(Settings, CorruptValuesReadAsTheDefault)
{
    QSettings s;
    s.setValue(Gridsize.name, "sixteen");
    s.setValue(Loop.name, "perhaps");
    s.setValue(AnamorphicScale.name, "wide");
    EXPECT_EQ(Gridsize.read(s), 16);
    EXPECT_TRUE(Loop.read(s));
    EXPECT_EQ(AnamorphicScale.read(s), 1.77);
    s.setValue(Loop.name, "false");
    EXPECT_FALSE(Loop.read(s));
    s.clear();
}

} // namespace
