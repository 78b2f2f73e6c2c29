#include "formats/Validation.h"
#include "formats/FrameSize.h"
#include "support/TempFiles.h"

#include <climits>
#include <gtest/gtest.h>
#include <limits>

using namespace kavri;

namespace {

VideoProps record(int32_t w, int32_t h, videoFormat_t f, int32_t bits = 8, double rate = 25.0)
{
    VideoProps p;
    p.width = w;
    p.height = h;
    p.format = f;
    p.bitDepth = bits;
    p.frameRate = rate;
    p.fileName = QStringLiteral("-");
    return p;
}

struct MaskCase {
    const char *name;
    VideoProps props;
    uint32_t mask;
};

void PrintTo(const MaskCase &c, std::ostream *os) { *os << c.name; }

class ValidationMask : public ::testing::TestWithParam<MaskCase> {};

TEST_P(ValidationMask, SetsTheKnownBits)
{
    VideoProps p = GetParam().props;
    EXPECT_EQ(validateProps(p), GetParam().mask);
}

const MaskCase kMaskCases[] = {
    {"complete", record(352, 288, YUV_p420), 31},
    {"rate_zero_is_not_given", record(352, 288, YUV_p420, 8, 0.0), 23},
    {"rate_negative_is_not_given", record(352, 288, YUV_p420, 8, -1.0), 23},
    {"width_one_is_unknown", record(1, 288, YUV_p420), 30},
    {"height_one_is_unknown", record(352, 1, YUV_p420), 29},
    {"no_size", record(0, 0, YUV_p420), 28},
    {"no_format", record(352, 288, FMT_UNKNOWN), 27},
    {"too_large_frame", record(99999, 99999, RGBA_i444, 16), 27},
    {"depth_above_16", record(352, 288, YUV_p420, 24), 15},
};
INSTANTIATE_TEST_SUITE_P(All, ValidationMask, ::testing::ValuesIn(kMaskCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Validation, ContainersHoldTheDepthInEightOrSixteenBits)
{
    const struct {
        int32_t bits, container, want;
    } rows[] = {
        {8, 8, 8},  {8, 16, 16},  {10, 8, 16}, {10, 16, 16}, {16, 16, 16}, {1, 0, 8},    {4, 0, 8},
        {9, 0, 16}, {10, 12, 16}, {8, 12, 8},  {12, 24, 16}, {8, 24, 8},   {16, 32, 16}, {3, -5, 8},
    };
    for (const auto &r : rows) {
        VideoProps p = record(352, 288, YUV_p420, r.bits);
        p.containerBits = r.container;
        EXPECT_TRUE(isPlayable(validateProps(p))) << r.bits << "/" << r.container;
        EXPECT_EQ(p.containerBits, r.want) << r.bits << "/" << r.container;
        EXPECT_EQ(p.frameBytes, 152064u * uint32_t(r.want / 8)) << r.bits << "/" << r.container;
    }
}

TEST(Validation, AbsurdDepthsAndRatesNeverOverflow)
{
    // Depths from a side file, a header or a stored record can be anything a 32-bit field holds.
    for (const int32_t bits : {17, 24, 1 << 30, INT32_MAX}) {
        VideoProps p = record(352, 288, YUV_p420, bits);
        p.containerBits = 0;
        EXPECT_FALSE(isPlayable(validateProps(p))) << bits;
        EXPECT_EQ(p.bitDepth, bits);
        EXPECT_EQ(p.containerBits, 0) << "no container is made up for a depth nobody reads";
    }
    VideoProps low = record(352, 288, YUV_p420, INT32_MIN);
    EXPECT_TRUE(isPlayable(validateProps(low)));
    EXPECT_EQ(low.bitDepth, 8) << "a negative depth is a depth not given";

    const struct {
        double in, out;
        bool given;
    } rates[] = {
        {1e11, kMaxFrameRate, true},
        {std::numeric_limits<double>::infinity(), kMaxFrameRate, true},
        {-std::numeric_limits<double>::infinity(), 25.0, false},
        {std::numeric_limits<double>::quiet_NaN(), 25.0, false},
        {kMaxFrameRate, kMaxFrameRate, true},
        {29.97, 29.97, true},
    };
    for (const auto &r : rates) {
        VideoProps p = record(352, 288, YUV_p420, 8, r.in);
        const uint32_t mask = validateProps(p);
        EXPECT_EQ(p.frameRate, r.out) << r.in;
        EXPECT_EQ(bool(mask & kRateGiven), r.given) << r.in;
    }
}

// A side file can claim a picture whose display row no image can address; such a record is refused before
// a buffer is made for it, with words that say why. The widest row that fits plays.
TEST(Validation, PicturesTooWideToDisplayAreRefused)
{
    const struct {
        int32_t w, h;
        bool fits;
    } cases[] = {
        {kMaxPictureWidth, 2, true},
        {kMaxPictureWidth + 1, 2, false},
        {INT32_MAX, 2, false},
        {65535, 65535, true},
        {7680, 4320, true},
        {0, 2, false},
        {2, -1, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(displayPictureFits(c.w, c.h), c.fits) << c.w << "x" << c.h;
        if (c.w < 2 || c.h < 2) continue;
        VideoProps p = record(c.w, c.h, BW);
        const uint32_t mask = validateProps(p);
        EXPECT_EQ(isPlayable(mask), c.fits) << c.w << "x" << c.h;
        if (!c.fits) {
            EXPECT_TRUE(pictureTooWideText(c.w, c.h).contains("cannot be displayed"));
        }
    }
}

TEST(Validation, NormalisesRateDepthAndContainer)
{
    VideoProps p = record(352, 288, YUV_p420, 0, -1.0);
    validateProps(p);
    EXPECT_EQ(p.frameRate, 25.0);
    EXPECT_EQ(p.bitDepth, 8);
    EXPECT_EQ(p.containerBits, 8);
    EXPECT_EQ(p.frameBytes, 152064u);

    VideoProps z = record(352, 288, YUV_p420, 8, 0.0);
    validateProps(z);
    EXPECT_EQ(z.frameRate, 0.0) << "a rate of exactly 0 stays 0";

    VideoProps ten = record(352, 288, YUV_p420, 10);
    ten.containerBits = 8;
    validateProps(ten);
    EXPECT_EQ(ten.containerBits, 16);
    EXPECT_EQ(ten.frameBytes, 304128u);

    VideoProps keep = record(352, 288, YUV_p420, 8);
    keep.containerBits = 16;
    validateProps(keep);
    EXPECT_EQ(keep.containerBits, 16) << "a wider container than needed is kept";

    VideoProps odd = record(352, 288, YUV_p420, 12);
    validateProps(odd);
    EXPECT_EQ(odd.containerBits, 16);
}

TEST(Validation, V210IsUnsignedTenBits)
{
    VideoProps p = record(1920, 1080, YUV_v210, 8);
    p.signedValues = true;
    validateProps(p);
    EXPECT_EQ(p.bitDepth, 10);
    EXPECT_FALSE(p.signedValues);
    EXPECT_EQ(p.containerBits, 16);
    EXPECT_EQ(p.frameBytes, 5529600u);
}

TEST(Validation, CountsFramesOfAFile)
{
    test::TempDir dir;
    VideoProps p = record(352, 288, YUV_p420);
    p.fileName = dir.writeSized("clip.yuv", 152064 * 10);
    EXPECT_EQ(validateProps(p), 31u);
    EXPECT_EQ(p.frameCount, 10u);
    EXPECT_EQ(p.fileSize, 1520640u);
}

TEST(Validation, FileShorterThanOneFrameIsIncomplete)
{
    test::TempDir dir;
    VideoProps p = record(352, 288, YUV_p420);
    p.fileName = dir.writeSized("short.yuv", 1000);
    const uint32_t mask = validateProps(p);
    EXPECT_EQ(mask, 27u);
    EXPECT_FALSE(isPlayable(mask));
    EXPECT_EQ(p.frameCount, 0u);
    EXPECT_EQ(p.fileSize, 1000u);
}

TEST(Validation, HeaderIsSkippedBeforeCounting)
{
    test::TempDir dir;
    VideoProps p = record(352, 288, YUV_p420);
    p.headerBytes = 512;
    p.fileName = dir.writeSized("hdr.yuv", 152064 * 3 + 511);
    validateProps(p);
    EXPECT_EQ(p.frameCount, 2u);
}

TEST(Validation, DifferenceFileKeepsTheSmallerCount)
{
    test::TempDir dir;
    VideoProps p = record(352, 288, YUV_p420);
    p.fileName = dir.writeSized("a.yuv", 152064 * 10);
    p.diffFileName = dir.writeSized("b.yuv", 152064 * 4 + 7);
    EXPECT_EQ(validateProps(p), 31u);
    EXPECT_EQ(p.frameCount, 4u);
    EXPECT_EQ(p.fileSize, 152064u * 4 + 7);

    p.diffFileName = dir.writeSized("c.yuv", 100);
    EXPECT_FALSE(isPlayable(validateProps(p)));
    EXPECT_EQ(p.frameCount, 0u);
}

TEST(Validation, StandardInputHasNoCount)
{
    VideoProps p = record(352, 288, YUV_p420);
    p.fileName = QStringLiteral("-");
    EXPECT_EQ(validateProps(p), 31u);
    EXPECT_EQ(p.frameCount, 0u);
    EXPECT_EQ(p.frameBytes, 152064u);
}

} // namespace
