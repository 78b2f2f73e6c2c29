#include "view/OverlayText.h"

#include <gtest/gtest.h>
#include <limits>

using namespace kavri::view;

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

// ---- coding-unit overlay ----

TEST(ZScan, SmallTablesByHand)
{
    EXPECT_EQ(buildZScanTable(1), (std::vector<uint16_t>{0}));
    EXPECT_EQ(buildZScanTable(2), (std::vector<uint16_t>{0, 1, 2, 3}));
    // 4 x 4 blocks: each 2 x 2 quadrant holds four consecutive positions.
    EXPECT_EQ(buildZScanTable(3), (std::vector<uint16_t>{0, 1, 4, 5, 2, 3, 6, 7, 8, 9, 12, 13, 10, 11, 14, 15}));
}

TEST(ZScan, EveryDepthIsTheMortonOrder)
{
    // The z-scan position interleaves the bits of column (even bits) and row (odd bits).
    auto morton = [](uint32_t col, uint32_t row) {
        uint32_t z = 0;
        for (int b = 0; b < 8; ++b) z |= ((col >> b) & 1u) << (2 * b) | ((row >> b) & 1u) << (2 * b + 1);
        return z;
    };
    for (int depth = 1; depth <= kMaxHevcDepth; ++depth) {
        const std::vector<uint16_t> t = buildZScanTable(depth);
        const uint32_t n = 1u << (depth - 1);
        ASSERT_EQ(t.size(), size_t(n) * n) << "depth " << depth;
        for (uint32_t r = 0; r < n; ++r)
            for (uint32_t c = 0; c < n; ++c) ASSERT_EQ(t[r * n + c], morton(c, r)) << "depth " << depth;
    }
    EXPECT_EQ(buildZScanTable(8).size(), 16384u) << "the largest table";
}

struct CuCase {
    const char *name;
    int cuSize, depth, imageWidth;
    QPoint pixel;
    int64_t cu;
    int part;
};
void PrintTo(const CuCase &c, std::ostream *os) { *os << c.name; }

class CuPartitions : public ::testing::TestWithParam<CuCase> {};

TEST_P(CuPartitions, NumberAndPartition)
{
    const CuCase &c = GetParam();
    const CuPartition r = cuPartitionAt(c.pixel, c.imageWidth, makeHevcOverlay(c.cuSize, c.depth));
    EXPECT_EQ(r.cu, c.cu);
    EXPECT_EQ(r.part, c.part);
}

const CuCase kCu[] = {
    {"cu64_depth4_second_cu_raster9", 64, 4, 128, {72, 8}, 1, 3},
    {"origin", 64, 4, 128, {0, 0}, 0, 0},
    {"second_row_partial_last_column", 64, 4, 200, {10, 70}, 4, 1}, // 4 CUs per row (ceil 200/64)
    {"depth5_bottom_right_block", 64, 5, 64, {63, 63}, 0, 255},
    {"depth5_second_column", 64, 5, 64, {8, 0}, 0, 4},
    {"depth1_single_partition", 32, 1, 64, {31, 31}, 0, 0},
    {"cu16_depth3", 16, 3, 32, {20, 12}, 1, 11},
    // Settings that would give zero-pixel blocks are brought down to one-pixel blocks (depth 4 for 8).
    {"depth_beyond_cu_size", 8, 6, 16, {7, 7}, 0, 63},
    // A CU size that is not a power of two: the last blocks stay within the table.
    {"cu12_ragged", 12, 4, 24, {11, 11}, 0, 63},
};
INSTANTIATE_TEST_SUITE_P(All, CuPartitions, ::testing::ValuesIn(kCu),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CuPartitions, SettingsAreMadeUsable)
{
    EXPECT_EQ(makeHevcOverlay(128, 12).depth, 8);
    EXPECT_EQ(makeHevcOverlay(64, 8).depth, 7) << "64 >> 7 would be a block of no pixels";
    EXPECT_EQ(makeHevcOverlay(64, 0).depth, 1);
    EXPECT_EQ(makeHevcOverlay(8, 6).depth, 4);
    EXPECT_EQ(makeHevcOverlay(0, 3).cuSize, 1);
    EXPECT_EQ(makeHevcOverlay(0, 3).depth, 1);
}

// ---- readout ----

TEST(PositionText, Forms)
{
    const HevcOverlay hevc = makeHevcOverlay(64, 4);
    EXPECT_EQ(positionText({72, 8}, 128, nullptr), QStringLiteral("@72,8"));
    EXPECT_EQ(positionText({72, 8}, 128, &hevc), QStringLiteral("@72,8\n[CU #1, part 3]"));
    EXPECT_EQ(positionText({-1, 8}, 128, &hevc), QString());
    EXPECT_EQ(positionText({3, -1}, 128, nullptr), QString());
}

struct ValueCase {
    const char *name;
    videoFormat_t space;
    int32_t c1, c2, c3, alpha;
    bool hex;
    const char *text;
};
void PrintTo(const ValueCase &c, std::ostream *os) { *os << c.name; }

class ValueTexts : public ::testing::TestWithParam<ValueCase> {};

TEST_P(ValueTexts, Format)
{
    const ValueCase &c = GetParam();
    EXPECT_EQ(valueText({c.space, c.c1, c.c2, c.c3, c.alpha}, c.hex), QString::fromLatin1(c.text));
}

const ValueCase kValues[] = {
    {"none_is_empty", FMT_UNKNOWN, 1, 2, 3, -1, false, ""},
    // "% 3i": a blank for the sign, at least three characters in all.
    {"rgb_decimal", RGB_i444, 1, 22, 255, -1, false, "R:   1\nG:  22\nB:  255"},
    {"rgb_hex", BGR_i444, 1, 22, 255, -1, true, "R: 0x1\nG: 0x16\nB: 0xff"},
    {"rgba_with_alpha", RGBA_i444, 1, 2, 3, 128, false, "R:   1\nG:   2\nB:   3\nA:  128"},
    {"rgba_alpha_hex", BGRA_planar, 1, 2, 3, 0, true, "R: 0x1\nG: 0x2\nB: 0x3\nA: 0x0"},
    {"rgba_alpha_zero_shown", GRBA_planar, 1, 2, 3, 0, false, "R:   1\nG:   2\nB:   3\nA:   0"},
    {"rgba_without_alpha_three_lines", GBRA_planar, 1, 2, 3, -1, false, "R:   1\nG:   2\nB:   3"},
    {"planar_rgb", GBR_planar, 1000, 0, 65535, -1, false, "R:  1000\nG:   0\nB:  65535"},
    {"luma_decimal", BW, 1023, 7, 7, -1, false, "Luma:  1023"},
    {"luma_hex", BW, 1023, 7, 7, -1, true, "Luma: 0x3ff"},
    {"yuv_10bit", YUV_p420, 940, 512, 64, -1, false, "Y:  940\nU:  512\nV:  64"},
    {"yuv_signed_difference", YUV_p422, 0, -4, -1024, 1023, false, "Y:   0\nU:  -4\nV: -1024"},
    {"yuv_negative_hex_twos_complement", YUV_v210, 0x3ac, 0x200, -4, -1, true, "Y: 0x3ac\nU: 0x200\nV: 0xfffffffc"},
    // These three planar RGB layouts are labelled Y, U, V, alpha or not.
    {"rbg_planar_as_yuv", RBG_planar, 10, 20, 30, -1, false, "Y:  10\nU:  20\nV:  30"},
    {"rbga_planar_as_yuv_no_alpha_line", RBGA_planar, 10, 20, 30, 255, false, "Y:  10\nU:  20\nV:  30"},
    {"brga_planar_as_yuv_hex", BRGA_planar, 10, 20, 30, 255, true, "Y: 0xa\nU: 0x14\nV: 0x1e"},
    // The newer layouts: by family, with their alpha; a mosaic sample by the colour of its filter.
    {"p010_as_yuv", YUV_p010, 940, 512, 64, -1, false, "Y:  940\nU:  512\nV:  64"},
    {"y410_with_alpha", YUV_y410, 940, 512, 64, 3, false, "Y:  940\nU:  512\nV:  64\nA:   3"},
    {"x2rgb10_as_rgb", RGB_x2rgb10, 1, 2, 3, -1, false, "R:   1\nG:   2\nB:   3"},
    {"rgba64_with_alpha_hex", RGBA_64, 1, 2, 3, 65535, true, "R: 0x1\nG: 0x2\nB: 0x3\nA: 0xffff"},
    {"bayer_red_site", BAYER_rggb, 200, 0, 0, -1, false, "R:  200"},
    {"bayer_green_site_hex", BAYER_gbrg10p, 1023, 1, 0, -1, true, "G: 0x3ff"},
    {"bayer_blue_site", BAYER_bggr, 7, 2, 0, -1, false, "B:   7"},
};
INSTANTIATE_TEST_SUITE_P(All, ValueTexts, ::testing::ValuesIn(kValues),
                         [](const auto &i) { return std::string(i.param.name); });

// ---- corner texts ----

struct TimeCase {
    const char *name;
    uint64_t frame;
    double rate;
    const char *format;
    bool deinterlaced;
    const char *text;
};
void PrintTo(const TimeCase &c, std::ostream *os) { *os << c.name; }

class TimeTexts : public ::testing::TestWithParam<TimeCase> {};

TEST_P(TimeTexts, Format)
{
    const TimeCase &c = GetParam();
    EXPECT_EQ(timeText({c.frame, c.rate, QString::fromLatin1(c.format), c.deinterlaced}), QString::fromLatin1(c.text));
}

const TimeCase kTimes[] = {
    {"first_frame_with_format", 0, 25, "YUV, planar, 4:2:0", false, "0000  0'00\"00   YUV, planar, 4:2:0"},
    {"seconds_and_hundredths", 1234, 25, "", false, "1234  0'49\"36"},
    {"exact_hundredths_not_rounded_down", 29, 100, "", false, "0029  0'00\"29"},
    {"minutes_and_five_digit_frame", 12345, 30, "", false, "12345  6'51\"50"},
    {"an_hour", 90000, 25, "", false, "90000  60'00\"00"},
    {"deinterlaced", 7, 25, "BW", true, "0007  0'00\"28   BW    deinterlaced"},
    {"no_rate_no_time", 3, 0, "", false, "0003  0'00\"00"},
    {"fractional_rate", 30, 29.97, "", false, "0030  0'01\"00"},
};
INSTANTIATE_TEST_SUITE_P(All, TimeTexts, ::testing::ValuesIn(kTimes),
                         [](const auto &i) { return std::string(i.param.name); });

struct DiffCase {
    const char *name;
    DifferenceTextInput in;
    const char *text;
};
void PrintTo(const DiffCase &c, std::ostream *os) { *os << c.name; }

class DifferenceTexts : public ::testing::TestWithParam<DiffCase> {};

TEST_P(DifferenceTexts, Format) { EXPECT_EQ(differenceText(GetParam().in), QString::fromLatin1(GetParam().text)); }

const DiffCase kDiffs[] = {
    {"identical_frames_infinite_no_positions",
     {3, {kInf, kInf, kInf}, {0, 0, 0}, {-1, -1, -1}, {-1, -1, -1}},
     "PSNR:  inf  inf  inf\nMSE: 0   0   0"},
    {"all_components_differ",
     {3, {38.12345, 40.0, 51.5}, {10.0, 6.5, 0.25}, {3, 1, 0}, {4, 2, 9}},
     "PSNR:  38.123  40.000  51.500\nMSE: 10   6.5   0.25\n1st @ 3,4 | 1,2 | 0,9 "},
    {"first_component_equal",
     {3, {kInf, 40.0, 41.0}, {0, 6.5, 5.0}, {-1, 5, 7}, {-1, 6, 8}},
     "PSNR:  inf  40.000  41.000\nMSE: 0   6.5   5\n1st @       | 5,6 | 7,8 "},
    {"middle_component_equal",
     {3, {40.0, kInf, 41.0}, {6.5, 0, 5.0}, {1, -1, 7}, {2, -1, 8}},
     "PSNR:  40.000  inf  41.000\nMSE: 6.5   0   5\n1st @ 1,2 |      | 7,8 "},
    {"last_component_equal",
     {3, {40.0, 41.0, kInf}, {6.5, 5.0, 0}, {1, 3, -1}, {2, 4, -1}},
     "PSNR:  40.000  41.000  inf\nMSE: 6.5   5   0\n1st @ 1,2 | 3,4 | "},
    {"tiny_mse_is_not_zero",
     {3, {92.14916, 98.25931, 101.78114}, {0.000638020833, 0.00015625, 6.9444444e-05}, {200, 50, 60}, {100, 20, 30}},
     "PSNR:  92.149  98.259  101.781\nMSE: 0.000638021   0.00015625   6.94444e-05\n1st @ 200,100 | 50,20 | 60,30 "},
    {"luma_only",
     {1, {30.0, kInf, kInf}, {65.025, 0, 0}, {10, -1, -1}, {0, -1, -1}},
     "PSNR:  30.000\nMSE: 65.025\n1st @ 10,0 "},
    {"luma_only_identical", {1, {kInf, kInf, kInf}, {0, 0, 0}, {-1, -1, -1}, {-1, -1, -1}}, "PSNR:  inf\nMSE: 0"},
};
INSTANTIATE_TEST_SUITE_P(All, DifferenceTexts, ::testing::ValuesIn(kDiffs),
                         [](const auto &i) { return std::string(i.param.name); });

} // namespace
