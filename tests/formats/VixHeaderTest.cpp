#include "formats/VixHeader.h"
#include "formats/FormatDetector.h"
#include "support/TempFiles.h"

#include <gtest/gtest.h>

using namespace kavri;

namespace {

QByteArray header(const char *colour, const char *image, const char *video = ">VIDEO< 25 100")
{
    return QByteArray("vix\n") + video + "\n" + colour + "\n>IMAGE< " + image + "\n";
}

struct VixCase {
    const char *name;
    QByteArray bytes;
    videoFormat_t format; // FMT_UNKNOWN: rejected
};

void PrintTo(const VixCase &c, std::ostream *os) { *os << c.name; }

class VixLayouts : public ::testing::TestWithParam<VixCase> {};

TEST_P(VixLayouts, AcceptOrReject)
{
    const VixCase &c = GetParam();
    VideoProps p;
    p.width = 7;
    p.format = BW;
    const bool ok = parseVixHeader(c.bytes, true, p);
    EXPECT_EQ(ok, c.format != FMT_UNKNOWN);
    if (ok) {
        EXPECT_EQ(p.format, c.format);
    } else {
        // A rejected header leaves the record for the next source untouched.
        EXPECT_EQ(p.width, 7);
        EXPECT_EQ(p.format, BW);
        EXPECT_EQ(p.headerBytes, 0u);
    }
}

const VixCase kCases[] = {
    {"ycbcr_420", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 2 2 2 2"), YUV_p420},
    {"ycbcr_422", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 1 2 1 2"), YUV_p422},
    {"ycbcr_444", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 1 1 1 1"), YUV_p444},
    {"ycbcr_410", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 4 2 4 2"), YUV_p410},
    {"ycbcr_411", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 4 1 4 1"), YUV_p411},
    {"ycbcr_21", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 2 1 2 1"), FMT_UNKNOWN},
    {"color_spelling", header(">COLOR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 2 2 2 2"), YUV_p420},
    {"ycbcr_is_case_sensitive", header(">COLOUR< ycbcr", "unsigned byte 8 little-endian 8 8 3 1 1 1 1 1 1"),
     RGB_planar},
    {"rgb_11", header(">COLOUR< RGB", "unsigned byte 8 little-endian 352 288 3 1 1 1 1 1 1"), RGB_planar},
    {"no_colour_is_rgb", header("", "unsigned byte 8 little-endian 352 288 3 1 1 1 1 1 1"), RGB_planar},
    {"rgb_22", header(">COLOUR< RGB", "unsigned byte 8 little-endian 352 288 3 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"one_component", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 1 1 1 1 1 1 1"), YUV_p444},
    {"two_components", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 2 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"four_components", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 4 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"ones_not_one", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 2 2 2 2 2"), FMT_UNKNOWN},
    {"pair_mismatch", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 352 288 3 1 1 2 2 1 1"), FMT_UNKNOWN},
    {"dword", header(">COLOUR< YCbCr", "unsigned dword 32 little-endian 352 288 3 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"big_endian", header(">COLOUR< YCbCr", "unsigned word 10 big-endian 352 288 3 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"endianness_missing", header(">COLOUR< YCbCr", "unsigned word 10 352 288 3 1 1 2 2 2 2"), FMT_UNKNOWN},
    {"width_not_a_number", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 3x2 288 3 1 1 2 2 2 2"),
     FMT_UNKNOWN},
    {"width_past_int32", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 99999999999 288 3 1 1 2 2 2 2"),
     FMT_UNKNOWN},
    {"depth_past_int32", header(">COLOUR< YCbCr", "unsigned byte 2147483648 little-endian 8 8 3 1 1 2 2 2 2"),
     FMT_UNKNOWN},
    {"rate_not_a_number",
     header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", ">VIDEO< fast 100"), FMT_UNKNOWN},
    {"rate_inf", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", ">VIDEO< inf 100"),
     FMT_UNKNOWN},
    {"rate_1e999", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", ">VIDEO< 1e999 100"),
     FMT_UNKNOWN},
    {"huge_frame_count_ignored",
     header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", ">VIDEO< 25 99999999999999999999999"),
     YUV_p420},
    {"no_video_section", header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", ""), YUV_p420},
    {"unknown_tokens_skipped",
     "vix <HEAD> x y z >COLOUR< YCbCr whatever >IMAGE< unsigned byte 8 little-endian 8 8 3 1 1 2 2 2 2", YUV_p420},
    {"no_magic", "VIX >IMAGE< unsigned byte 8 little-endian 8 8 3 1 1 1 1 1 1", FMT_UNKNOWN},
    {"short", "vi", FMT_UNKNOWN},
    {"empty", "", FMT_UNKNOWN},
    {"magic_only", "vix", FMT_UNKNOWN},
    {"no_image", "vix >VIDEO< 25 10 >COLOUR< YCbCr", FMT_UNKNOWN},
    {"ends_in_description", "vix >COLOUR< YCbCr >IMAGE< unsigned byte 8 little-endian 8 8 3 1 1 2 2 2", FMT_UNKNOWN},
    {"ends_after_colour", "vix >COLOUR<", FMT_UNKNOWN},
    {"ends_after_video", "vix >VIDEO< 25", FMT_UNKNOWN},
};

INSTANTIATE_TEST_SUITE_P(Headers, VixLayouts, ::testing::ValuesIn(kCases));

TEST(VixHeader, FieldsAndHeaderOffset)
{
    const QByteArray h =
        header(">COLOUR< YCbCr", "signed word 10 little-endian 352 288 3 1 1 1 2 1 2", ">VIDEO< 29.97 100");
    VideoProps p;
    ASSERT_TRUE(parseVixHeader(h + QByteArray(64, '\x80'), true, p));
    EXPECT_EQ(p.format, YUV_p422);
    EXPECT_EQ(p.width, 352);
    EXPECT_EQ(p.height, 288);
    EXPECT_DOUBLE_EQ(p.frameRate, 29.97);
    EXPECT_EQ(p.bitDepth, 10);
    EXPECT_EQ(p.containerBits, 16);
    EXPECT_TRUE(p.signedValues);
    // Just past the last "2", plus the one separator (the "\n" that ends the header).
    EXPECT_EQ(p.headerBytes, uint32_t(h.size()));
    EXPECT_EQ(p.frameCount, 0u);
}

TEST(VixHeader, ContainerWords)
{
    for (const auto &[word, bits] : {std::pair{"word", 16}, {"byte", 8}, {"short", 8}}) {
        VideoProps p;
        ASSERT_TRUE(parseVixHeader(
            header("", (QByteArray("x ") + word + " 8 little-endian 4 4 3 1 1 1 1 1 1").constData()), true, p));
        EXPECT_EQ(p.containerBits, bits) << word;
        EXPECT_FALSE(p.signedValues);
    }
}

TEST(VixHeader, TokenCutByAPartialReadIsNotTrusted)
{
    const QByteArray h = "vix >IMAGE< u byte 8 little-endian 1920 1080 3 1 1 1 1 1 1";
    VideoProps p;
    // The whole file: its last token is complete.
    EXPECT_TRUE(parseVixHeader(h, true, p));
    // Only the first bytes of a longer file: the final "1" might have been "12".
    VideoProps q;
    EXPECT_FALSE(parseVixHeader(h, false, q));
    EXPECT_TRUE(parseVixHeader(h + " ", false, q));
}

TEST(VixHeader, TokenBudgetEndsTheScan)
{
    QByteArray h = "vix";
    for (int i = 0; i < kMaxVixTokens; ++i) h += " x";
    h += " >IMAGE< u byte 8 little-endian 8 8 3 1 1 1 1 1 1";
    VideoProps p;
    EXPECT_FALSE(parseVixHeader(h, true, p));
}

TEST(VixHeader, DetectUsesTheHeaderAndItsOffset)
{
    test::TempDir dir;
    const QByteArray h = header(">COLOUR< YCbCr", "unsigned byte 8 little-endian 4 2 3 1 1 2 2 2 2");
    const QString f = dir.write("clip_rgb_1920x1080.raw", h + QByteArray(12 * 3, 'a'));
    dir.write("clip_rgb_1920x1080.hdr", "width=352\nheight=288\n");
    FormatDetector d;
    const VideoProps &p = d.detect(f);
    EXPECT_EQ(d.sourceName(), "vix");
    EXPECT_EQ(p.format, YUV_p420);
    EXPECT_EQ(p.width, 4);
    EXPECT_EQ(p.height, 2);
    EXPECT_EQ(p.headerBytes, uint32_t(h.size()));
    EXPECT_EQ(p.fileName, f);
}

TEST(VixHeader, RejectedHeaderFallsToTheSideFileThenTheName)
{
    test::TempDir dir;
    const QByteArray h = header(">COLOUR< YCbCr", "unsigned dword 32 little-endian 4 2 3 1 1 2 2 2 2");
    const QString f = dir.write("clip_rgb_64x32.raw", h + QByteArray(100, 'a'));
    FormatDetector d;
    EXPECT_EQ(d.detect(f).width, 64);
    EXPECT_EQ(d.sourceName(), "name");
    EXPECT_EQ(d.result().format, RGB_i444);
    EXPECT_EQ(d.result().headerBytes, 0u);
    dir.write("clip_rgb_64x32.hdr", "width=16\n");
    EXPECT_EQ(d.detect(f).width, 16);
    EXPECT_EQ(d.sourceName(), "hdr");
}

TEST(VixHeader, LargeFileWithoutACompleteHeaderIsReadOnlyInPart)
{
    test::TempDir dir;
    QByteArray big = "vix >COLOUR< YCbCr >IMAGE< u byte 8 ";
    big += QByteArray(4 * kMaxVixHeaderBytes, ' ');
    big += "little-endian 8 8 3 1 1 2 2 2 2\n";
    const QString f = dir.write("big.yuv", big);
    VideoProps p;
    EXPECT_FALSE(readVixHeader(f, p));
    EXPECT_FALSE(readVixHeader(dir.path("missing.yuv"), p));
    EXPECT_FALSE(readVixHeader(dir.dir(), p));
}

} // namespace
