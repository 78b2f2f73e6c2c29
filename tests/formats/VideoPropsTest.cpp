#include "formats/VideoProps.h"

#include <gtest/gtest.h>

namespace {

VideoProps filled()
{
    VideoProps p;
    p.width = 1920;
    p.height = 1080;
    p.frameRate = 50.0;
    p.frameCount = 7;
    p.fileSize = 99;
    p.format = YUV_v210;
    p.bitDepth = 10;
    p.containerBits = 16;
    p.frameBytes = 5529600;
    p.interlaced = true;
    p.fileName = "a.yuv";
    p.diffFileName = "b.yuv";
    p.flipped = p.anamorphic = p.toggleEndianness = p.signedValues = p.swapUV = true;
    p.headerBytes = 512;
    p.timeStamp = 1234;
    p.scaleX = 2048;
    p.scaleY = 8192;
    return p;
}

TEST(VideoProps, Defaults)
{
    const VideoProps p;
    EXPECT_EQ(p.width, 0);
    EXPECT_EQ(p.frameRate, 0.0);
    EXPECT_EQ(p.format, YUV_p420);
    EXPECT_EQ(p.bitDepth, 0);
    EXPECT_EQ(p.scaleX, 4096);
    EXPECT_EQ(p.scaleY, 4096);
    EXPECT_FALSE(p.flipped);
    const KavriStartupConfig c;
    EXPECT_EQ(c.rate, -1.0);
    EXPECT_EQ(c.format, FMT_UNKNOWN);
    EXPECT_FALSE(c.play);
}

TEST(VideoProps, CopyKeepsEverythingAssignmentKeepsTheTargetsDiffName)
{
    const VideoProps src = filled();
    const VideoProps copy(src);
    EXPECT_EQ(copy.diffFileName, "b.yuv");

    VideoProps target;
    target.diffFileName = "keep.yuv";
    target = src;
    EXPECT_EQ(target.diffFileName, "keep.yuv");
    EXPECT_EQ(target.fileName, "a.yuv");
    EXPECT_EQ(target.width, 1920);
    EXPECT_EQ(target.frameCount, 7u);
    EXPECT_EQ(target.format, YUV_v210);
    EXPECT_EQ(target.headerBytes, 512u);
    EXPECT_EQ(target.timeStamp, 1234u);
    EXPECT_EQ(target.scaleX, 2048);
    EXPECT_EQ(target.scaleY, 8192);
    EXPECT_TRUE(target.swapUV && target.signedValues && target.toggleEndianness && target.interlaced);
}

} // namespace
