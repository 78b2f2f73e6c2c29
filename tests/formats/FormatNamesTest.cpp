#include "formats/FormatNames.h"

#include <gtest/gtest.h>

using namespace kavri;

namespace {

TEST(FormatNames, EveryLayoutRoundTripsThroughItsNames)
{
    for (int v = 1; v <= kLayoutCount; ++v) {
        SCOPED_TRACE(v);
        EXPECT_EQ(formatFromShortName(shortName(v)), v);
        EXPECT_EQ(formatFromKeyword(formatKeyword(v)), v);
        EXPECT_FALSE(displayName(v).isEmpty());
        EXPECT_TRUE(formatSuffix(v).startsWith(QLatin1Char('_')) || formatSuffix(v).startsWith(QLatin1Char('.')));
    }
}

TEST(FormatNames, OutOfRangeValues)
{
    for (int v : {0, -1, kLayoutCount + 1, 1000}) {
        EXPECT_EQ(shortName(v), "yuv");
        EXPECT_EQ(formatSuffix(v), ".raw");
        EXPECT_EQ(displayName(v), "");
        EXPECT_EQ(channelLetter(v, 1), "");
    }
}

TEST(FormatNames, ShortNamesMatchExactly)
{
    EXPECT_EQ(formatFromShortName("YUV_p420"), YUV_p420);
    EXPECT_EQ(formatFromShortName("yuv420"), FMT_UNKNOWN);
    EXPECT_EQ(formatFromShortName("yuv_p420"), FMT_UNKNOWN);
    EXPECT_EQ(formatFromShortName("BW"), BW);
    EXPECT_EQ(formatFromShortName(""), FMT_UNKNOWN);
    EXPECT_EQ(formatFromKeyword("YUV420"), FMT_UNKNOWN);
}

struct NameRow {
    videoFormat_t v;
    const char *shortName, *suffix, *display, *keyword;
};

// Spot checks against the published names, irregular blanks included.
const NameRow kNames[] = {
    {YUV_p420, "YUV_p420", "_P420.yuv", "YUV, planar, 4:2:0", "yuv420"},
    {YUV_p410, "YUV_p410", "_P410.yuv", "YUV, planar, 4:1:0", "yuv410"},
    {YUV_nv12, "YUV_nv12", ".nv12", "YUV, 4:2:0, NV12 ordering", "nv12"},
    {YUV_v210, "YUV_v210", ".v210", "YUV, 4:2:2, v210 ordering", "v210"},
    {RGB_i444, "RGB_i444", "_I444.rgb", "RGB, interleaved,  4:4:4", "rgb"},
    {RGBA_i444, "RGBA_i444", "_I444.rgba", "RGBA, interleaved, 4:4:4", "rgba"},
    {RGB_planar, "RGB_planar", "_P444.rgb", "RGB, planar,  4:4:4", "rgbp"},
    {GRB_planar, "GRB_planar", "_P444.grb", "GRB, planar,   4:4:4", "grbp"},
    {GRBA_planar, "GRBA_planar", "_P444.grba", "GRBA, planar,  4:4:4", "grbap"},
    {GBR_planar, "GBR_planar", "_P444.gbr", "GBR, planar,   4:4:4", "gbrp"},
    {BRGA_planar, "BRGA_planar", "_P444.brga", "BRGA, planar, 4:4:4", "brgap"},
    {BW, "BW", ".bw", "Luminance Only", "luma"},
};

TEST(FormatNames, PublishedNames)
{
    for (const NameRow &r : kNames) {
        SCOPED_TRACE(r.shortName);
        EXPECT_EQ(shortName(r.v), r.shortName);
        EXPECT_EQ(formatSuffix(r.v), r.suffix);
        EXPECT_EQ(displayName(r.v), r.display);
        EXPECT_EQ(formatKeyword(r.v), r.keyword);
    }
}

TEST(FormatNames, ChannelLettersFollowStorageOrder)
{
    const struct {
        videoFormat_t v;
        const char *letters;
    } rows[] = {
        {YUV_p420, "YUV"},    {YUV_v210, "YUV"},    {RGB_i444, "RGB"},    {RGBA_i444, "RGB"},   {BGR_i444, "BGR"},
        {BGRA_i444, "BGR"},   {RGB_planar, "RGB"},  {RGBA_planar, "RGB"}, {RBG_planar, "RBG"},  {RBGA_planar, "RBG"},
        {BGR_planar, "BGR"},  {BGRA_planar, "BGR"}, {BRG_planar, "BRG"},  {BRGA_planar, "BRG"}, {GRB_planar, "GRB"},
        {GRBA_planar, "GRB"}, {GBR_planar, "GBR"},  {GBRA_planar, "GBR"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.letters);
        const QString got = channelLetter(r.v, 1) + channelLetter(r.v, 2) + channelLetter(r.v, 3);
        EXPECT_EQ(got, QLatin1String(r.letters));
    }
    EXPECT_EQ(channelLetter(BW, 1), "");
    EXPECT_EQ(channelLetter(YUV_p420, 0), "");
    EXPECT_EQ(channelLetter(YUV_p420, 4), "");
}

} // namespace
