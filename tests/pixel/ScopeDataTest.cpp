// The scopes' counts against references worked out from the test pattern's own sample values, and the
// colour-bar targets against the published codes of 75 % bars.
#include "pixel/ScopeData.h"
#include "pixel/ColourMath.h"
#include "pixel/PatternGenerator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

// ---- colour-bar targets ----

struct BarCodes {
    char name;
    int32_t cb, cr; // 8-bit codes, as published (rounded)
};

struct TargetCase {
    const char *label;
    ColourMatrix matrix;
    ColourRange range;
    int32_t bits;
    std::array<BarCodes, 6> bars;
};

// 75 % bars in limited range, 8 bits: the codes test-signal generators put out.
constexpr std::array<BarCodes, 6> kBt601Bars = {
    {{'R', 100, 212}, {'M', 184, 198}, {'B', 212, 114}, {'C', 156, 44}, {'G', 72, 58}, {'Y', 44, 142}}};
constexpr std::array<BarCodes, 6> kBt709Bars = {
    {{'R', 109, 212}, {'M', 193, 204}, {'B', 212, 120}, {'C', 147, 44}, {'G', 63, 52}, {'Y', 44, 136}}};

class ColourBarTargets : public ::testing::TestWithParam<TargetCase> {};

TEST_P(ColourBarTargets, LandOnThePublishedCodes)
{
    const TargetCase &c = GetParam();
    ColourDescription d;
    d.matrix = c.matrix;
    d.range = c.range;
    const auto targets = colourBarTargets(d, c.bits);
    const double scale = std::ldexp(1.0, c.bits), unit = std::ldexp(1.0, c.bits - 8);
    for (size_t i = 0; i < 6; ++i) {
        SCOPED_TRACE(std::string(1, c.bars[i].name));
        EXPECT_EQ(targets[i].name, c.bars[i].name);
        // Published codes are rounded: within 0.6 of an 8-bit level.
        EXPECT_NEAR(targets[i].u * scale - 0.5, c.bars[i].cb * unit, 0.6 * unit);
        EXPECT_NEAR(targets[i].v * scale - 0.5, c.bars[i].cr * unit, 0.6 * unit);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Readings, ColourBarTargets,
    ::testing::Values(TargetCase{"bt601_limited_8", ColourMatrix::BT601, ColourRange::Limited, 8, kBt601Bars},
                      TargetCase{"bt709_limited_8", ColourMatrix::BT709, ColourRange::Limited, 8, kBt709Bars},
                      TargetCase{"bt709_limited_10", ColourMatrix::BT709, ColourRange::Limited, 10, kBt709Bars},
                      TargetCase{"bt601_limited_16", ColourMatrix::BT601, ColourRange::Limited, 16, kBt601Bars}),
    [](const auto &info) { return std::string(info.param.label); });

TEST(ColourBarTargetsDefault, TheDefaultReadingIsFullRangeBt709)
{
    ColourDescription def, full709;
    full709.matrix = ColourMatrix::BT709;
    full709.range = ColourRange::Full;
    const auto a = colourBarTargets(def, 8), b = colourBarTargets(full709, 8);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_DOUBLE_EQ(a[i].u, b[i].u);
        EXPECT_DOUBLE_EQ(a[i].v, b[i].v);
    }
    // Full range spreads the differences wider than limited: blue's Cb lies further out.
    ColourDescription limited709 = full709;
    limited709.range = ColourRange::Limited;
    EXPECT_GT(a[2].u, colourBarTargets(limited709, 8)[2].u);
}

// A 4:4:4 frame of the six bars coded with the published BT.601 codes lands each bar in its target's cell.
TEST(ScopeData, ColourBarFrameFillsTheTargetCells)
{
    constexpr int32_t W = 60, H = 4;
    StatisticsFormat f;
    f.layout = YUV_p444;
    f.width = W;
    f.height = H;
    std::vector<uint8_t> frame(size_t(W) * H * 3);
    for (int32_t y = 0; y < H; ++y)
        for (int32_t x = 0; x < W; ++x) {
            const BarCodes &b = kBt601Bars[size_t(x / 10)];
            frame[size_t(y * W + x)] = 100;
            frame[size_t(W * H + y * W + x)] = uint8_t(b.cb);
            frame[size_t(2 * W * H + y * W + x)] = uint8_t(b.cr);
        }
    ColourDescription d;
    d.matrix = ColourMatrix::BT601;
    d.range = ColourRange::Limited;
    const ScopeData s = computeScopeData(f, d, frame.data(), frame.size());
    ASSERT_EQ(s.vectorscope.size, 256);
    for (const ScopeTarget &t : s.targets) {
        SCOPED_TRACE(std::string(1, t.name));
        EXPECT_EQ(s.vectorscope.at(int32_t(t.u * 256), int32_t(t.v * 256)), uint32_t(10 * H));
    }
}

// ---- waveform and vectorscope against the pattern ----

struct LayoutCase {
    const char *label;
    videoFormat_t layout;
    int32_t bits, containerBits;
};

class ScopeCounts : public ::testing::TestWithParam<LayoutCase> {
protected:
    static constexpr int32_t kW = 48, kH = 32, kColumns = 16;

    PatternSpec pattern() const
    {
        PatternSpec s;
        s.layout = GetParam().layout;
        s.width = kW;
        s.height = kH;
        s.bits = GetParam().bits;
        s.containerBits = GetParam().containerBits;
        return s;
    }
    StatisticsFormat format() const
    {
        StatisticsFormat f;
        f.layout = GetParam().layout;
        f.width = kW;
        f.height = kH;
        f.bits = GetParam().bits;
        f.containerBits = GetParam().containerBits;
        return f;
    }
    // The frame of the pattern whose moving block is inside the picture.
    std::vector<uint8_t> frame(uint64_t index) const
    {
        std::vector<uint8_t> bytes(patternFrameBytes(pattern()));
        EXPECT_TRUE(writePatternFrame(pattern(), index, bytes.data(), bytes.size()));
        return bytes;
    }
};

int32_t cellOf(int32_t value, int32_t bits, int32_t cells) { return int32_t((int64_t(value) * cells) >> bits); }

TEST_P(ScopeCounts, WaveformAndVectorscopeCountEverySampleWhereThePatternPutsIt)
{
    const PatternSpec s = pattern();
    const LayoutInfo &info = layoutInfo(s.layout);
    const bool rgb = info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb;
    const bool luma = info.kind == LayoutKind::Luma;
    const int32_t bits = s.layout == YUV_v210 ? 10 : s.bits;
    constexpr uint64_t kFrame = 30;
    const std::vector<uint8_t> bytes = frame(kFrame);
    ScopeOptions o;
    o.waveformColumns = kColumns;
    o.sampleBudget = int64_t(1) << 30;
    const ScopeData d = computeScopeData(format(), ColourDescription{}, bytes.data(), bytes.size(), o);

    // Waveform: every pixel's luma (or red, green and blue in three panels) in its column band and level.
    const int32_t parts = rgb ? 3 : 1;
    ASSERT_EQ(d.waveform.parts, parts);
    ASSERT_EQ(d.waveform.columns, kColumns);
    ASSERT_EQ(d.waveform.levels, 256);
    // The parade shows the picture on screen: each panel takes the plane the conversion reads for it (for
    // GBR and BRG planar the deliberately swapped one), and the pattern names its values by the letters.
    int32_t source[3] = {0, 1, 2};
    if (rgb)
        for (int32_t k = 0; k < 3; ++k)
            source[k] = int32_t(std::string_view("RGB").find(info.letters[info.rgbSource[size_t(k)]]));
    std::vector<uint32_t> wave(size_t(parts) * kColumns * 256, 0);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const PatternPixel p = patternPixel(s, kFrame, x, y);
            const int32_t c[3] = {p.c1, p.c2, p.c3};
            for (int32_t k = 0; k < parts; ++k)
                ++wave[size_t(k * kColumns + x * kColumns / kW) * 256 + size_t(cellOf(c[source[k]], bits, 256))];
        }
    EXPECT_EQ(d.waveform.counts, wave);

    // Vectorscope: one count for every chroma sample (RGB: every pixel, through the matrix).
    if (luma) {
        EXPECT_EQ(d.vectorscope.size, 0);
        return;
    }
    ASSERT_EQ(d.vectorscope.size, 256);
    std::vector<uint32_t> scope(256 * 256, 0);
    const int32_t sx = rgb ? 0 : info.chromaShiftX, sy = rgb ? 0 : info.chromaShiftY;
    const auto [kr, kb] = lumaWeights(ColourMatrix::Default);
    const double peak = std::ldexp(1.0, bits) - 1.0;
    for (int32_t cy = 0; cy < (kH >> sy); ++cy)
        for (int32_t cx = 0; cx < (kW >> sx); ++cx) {
            const PatternPixel p = patternPixel(s, kFrame, cx << sx, cy << sy);
            int32_t u = 0, v = 0;
            if (rgb) {
                const int32_t c[3] = {p.c1, p.c2, p.c3};
                const double r = c[source[0]] / peak, g = c[source[1]] / peak, b = c[source[2]] / peak;
                const double yl = kr * r + (1 - kr - kb) * g + kb * b;
                const auto cell = [](double dd) { return std::clamp(int32_t(std::floor((0.5 + dd) * 256)), 0, 255); };
                u = cell((b - yl) / (2 * (1 - kb)));
                v = cell((r - yl) / (2 * (1 - kr)));
            } else {
                u = cellOf(p.c2, bits, 256);
                v = cellOf(p.c3, bits, 256);
            }
            ++scope[size_t(v) * 256 + size_t(u)];
        }
    EXPECT_EQ(d.vectorscope.counts, scope);
    // The statistics come along, for every component.
    EXPECT_EQ(d.statistics.components.size(), componentNames(s.layout).size());
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, ScopeCounts,
    ::testing::Values(LayoutCase{"p420_8", YUV_p420, 8, 8}, LayoutCase{"p420_10", YUV_p420, 10, 16},
                      LayoutCase{"p420_16", YUV_p420, 16, 16}, LayoutCase{"p422_10", YUV_p422, 10, 16},
                      LayoutCase{"p444_8", YUV_p444, 8, 8}, LayoutCase{"uyvy_8", YUV_uyvy, 8, 8},
                      LayoutCase{"yuyv_10", YUV_yuyv, 10, 16}, LayoutCase{"nv12_8", YUV_nv12, 8, 8},
                      LayoutCase{"v210", YUV_v210, 10, 16}, LayoutCase{"luma_8", BW, 8, 8},
                      LayoutCase{"rgb_8", RGB_i444, 8, 8}, LayoutCase{"bgr_10", BGR_i444, 10, 16},
                      LayoutCase{"gbr_planar_8", GBR_planar, 8, 8}, LayoutCase{"rgba_planar_16", RGBA_planar, 16, 16}),
    [](const auto &info) { return std::string(info.param.label); });

// The YUV layouts with a parade (not v210, whose waveform stays luma).
class ParadeCounts : public ScopeCounts {};

TEST_P(ParadeCounts, EachPixelsColourIsCountedThroughTheReading)
{
    const PatternSpec s = pattern();
    constexpr uint64_t kFrame = 30;
    const std::vector<uint8_t> bytes = frame(kFrame);
    ColourDescription reading;
    reading.matrix = ColourMatrix::BT601;
    reading.range = ColourRange::Limited;
    ScopeOptions o;
    o.waveformColumns = kColumns;
    o.sampleBudget = int64_t(1) << 30;
    o.yuvParade = true;
    const ScopeData d = computeScopeData(format(), reading, bytes.data(), bytes.size(), o);
    ASSERT_EQ(d.waveform.parts, 3);
    const ColourAffine m = colourAffine(reading, ColourInput::Yuv, s.bits, 1.0);
    std::vector<uint32_t> wave(size_t(3) * kColumns * 256, 0);
    for (int32_t y = 0; y < kH; ++y)
        for (int32_t x = 0; x < kW; ++x) {
            const PatternPixel p = patternPixel(s, kFrame, x, y);
            const double c[3] = {double(p.c1), double(p.c2), double(p.c3)};
            for (int k = 0; k < 3; ++k) {
                const double value = m.a[k][0] * c[0] + m.a[k][1] * c[1] + m.a[k][2] * c[2] + m.b[k];
                ++wave[size_t(k * kColumns + x * kColumns / kW) * 256 + size_t(pictureLevel(value, 256))];
            }
        }
    EXPECT_EQ(d.waveform.counts, wave);
}

INSTANTIATE_TEST_SUITE_P(
    YuvLayouts, ParadeCounts,
    ::testing::Values(LayoutCase{"p420_8", YUV_p420, 8, 8}, LayoutCase{"p420_10", YUV_p420, 10, 16},
                      LayoutCase{"p420_16", YUV_p420, 16, 16}, LayoutCase{"p422_10", YUV_p422, 10, 16},
                      LayoutCase{"p444_8", YUV_p444, 8, 8}, LayoutCase{"uyvy_8", YUV_uyvy, 8, 8},
                      LayoutCase{"yuyv_10", YUV_yuyv, 10, 16}, LayoutCase{"nv12_8", YUV_nv12, 8, 8}),
    [](const auto &info) { return std::string(info.param.label); });

TEST(ScopeData, LargeFramesAreSampledOnEvenlySpacedRowsWithinTheBudget)
{
    PatternSpec s;
    s.layout = YUV_p420;
    s.width = 64;
    s.height = 64;
    std::vector<uint8_t> bytes(patternFrameBytes(s));
    ASSERT_TRUE(writePatternFrame(s, 0, bytes.data(), bytes.size()));
    StatisticsFormat f;
    f.layout = YUV_p420;
    f.width = f.height = 64;
    ScopeOptions o;
    o.sampleBudget = 64 * 16; // a quarter of the luma: every fourth row
    const ScopeData d = computeScopeData(f, {}, bytes.data(), bytes.size(), o);
    EXPECT_EQ(std::accumulate(d.waveform.counts.begin(), d.waveform.counts.end(), uint64_t(0)), uint64_t(64 * 16));
    // 32 x 32 chroma samples, budget 1024: every row.
    EXPECT_EQ(std::accumulate(d.vectorscope.counts.begin(), d.vectorscope.counts.end(), uint64_t(0)),
              uint64_t(32 * 32));
    // The statistics still count every sample.
    EXPECT_EQ(d.statistics.components[0].count, uint64_t(64 * 64));
}

TEST(ScopeData, AShortBufferCountsOnlyTheRowsItHolds)
{
    StatisticsFormat f;
    f.layout = BW;
    f.width = 8;
    f.height = 8;
    std::vector<uint8_t> bytes(8 * 3 + 5, 200); // three whole rows and part of a fourth
    const ScopeData d = computeScopeData(f, {}, bytes.data(), bytes.size());
    EXPECT_EQ(std::accumulate(d.waveform.counts.begin(), d.waveform.counts.end(), uint64_t(0)), uint64_t(24));
}

TEST(ScopeData, AnInvalidDescriptionGivesNothing)
{
    StatisticsFormat f;
    f.layout = YUV_p420;
    f.width = 0;
    f.height = 4;
    uint8_t bytes[16] = {};
    const ScopeData d = computeScopeData(f, {}, bytes, sizeof bytes);
    EXPECT_TRUE(d.statistics.components.empty());
    EXPECT_TRUE(d.waveform.counts.empty());
    EXPECT_TRUE(d.vectorscope.counts.empty());
}

} // namespace
