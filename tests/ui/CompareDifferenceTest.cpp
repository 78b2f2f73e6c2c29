// The difference of two compared sequences read each with its own record: the same picture in two
// layouts or depths differences to nothing, a changed sample is found at its place and weighed at the
// common depth, and pairs no layout can hold together are refused with a reason.
#include "ui/CompareDifference.h"
#include "formats/FrameSize.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutConvert.h"
#include "pixel/PatternGenerator.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

using namespace kavri;
using kavri::ui::CompareDifference;
using kavri::ui::CompareSamples;

namespace {

// A frame's samples as a loader's pipeline holds them after the read: canonical record, native order.
struct Held {
    FramePipeline pipeline;
    std::vector<uint8_t> stored;
    CompareSamples samples() const
    {
        const VideoProps &p = pipeline.props();
        return {pipeline.buffer(FramePipeline::Buffer::First),
                allocationSize(p.format, p.containerBits, p.width, p.height), &p};
    }
};

void hold(Held &h, const VideoProps &stored, const std::vector<uint8_t> &bytes)
{
    h.pipeline.setup(stored, false);
    h.stored = bytes;
    std::memcpy(h.pipeline.readBuffer(FramePipeline::Buffer::First), bytes.data(),
                std::min<size_t>(bytes.size(), h.pipeline.allocationSize()));
    h.pipeline.toNative();
}

// The picture of a frame whose every sample is the middle of the record's range.
QImage midGreyPicture(const VideoProps &record)
{
    FramePipeline p;
    p.setup(record, false);
    uint8_t *b = p.buffer(FramePipeline::Buffer::First);
    const uint32_t n = allocationSize(record.format, record.containerBits, record.width, record.height);
    const uint32_t mid = uint32_t(1) << (record.bitDepth - 1);
    if (record.containerBits > 8)
        std::fill_n(reinterpret_cast<uint16_t *>(b), n / 2, uint16_t(mid));
    else
        std::memset(b, int(mid), n);
    QImage out(record.width, record.height, QImage::Format_RGB32);
    p.show(ViewSettings{}, out.bits());
    return out;
}

// Frame 3 of `pattern`.
void holdPattern(Held &h, const PatternSpec &pattern)
{
    std::vector<uint8_t> bytes(patternFrameBytes(pattern));
    ASSERT_TRUE(writePatternFrame(pattern, 3, bytes.data(), bytes.size()));
    hold(h, patternRecord(pattern), bytes);
}

// The held frame of `from` written as `layout` at `bits`, as the convert tool writes a file.
void holdConverted(Held &h, const Held &from, videoFormat_t layout, int32_t bits)
{
    VideoProps target;
    QString why;
    ASSERT_TRUE(pixel::conversionTarget(from.pipeline.props(), layout, bits, target, why)) << why.toStdString();
    pixel::LayoutConverter c;
    ASSERT_TRUE(c.setup(from.pipeline.props(), target, false, why)) << why.toStdString();
    std::vector<uint8_t> out(size_t(c.outputBytes()));
    c.convert(from.samples().samples, int64_t(from.samples().bytes), out.data());
    hold(h, target, out);
}

// Both sides are the same 8-bit pattern frame written in a layout and depth of their own, as the convert
// tool writes files: every conversion widens or keeps the depth, so the picture stays the same.
struct SamePictureCase {
    const char *name;
    PatternSpec source;
    videoFormat_t firstLayout;
    int32_t firstBits;
    videoFormat_t secondLayout;
    int32_t secondBits;
    videoFormat_t commonLayout;
    int32_t commonBits;
};
void PrintTo(const SamePictureCase &c, std::ostream *os) { *os << c.name; }

class CompareDifferenceSame : public ::testing::TestWithParam<SamePictureCase> {};

TEST_P(CompareDifferenceSame, DiffersByNothingAtTheCommonDepth)
{
    const SamePictureCase &c = GetParam();
    Held source, a, b;
    holdPattern(source, c.source);
    holdConverted(a, source, c.firstLayout, c.firstBits);
    holdConverted(b, source, c.secondLayout, c.secondBits);

    CompareDifference d;
    QImage picture;
    ASSERT_TRUE(d.compute(a.samples(), b.samples(), 0, picture)) << d.error().toStdString();
    EXPECT_EQ(d.common().format, c.commonLayout);
    EXPECT_EQ(d.common().bitDepth, c.commonBits);
    for (int k = 0; k < d.components(); ++k) {
        EXPECT_EQ(d.difference().mse[k], 0.0) << "component " << k;
        EXPECT_TRUE(std::isinf(d.difference().psnr[k])) << "component " << k;
        EXPECT_EQ(d.difference().firstDiffX[k], -1) << "component " << k;
    }
    // Nothing differs: the picture is what a frame of nothing but mid-grey samples of the common record
    // converts to, its odd last row and column included.
    ASSERT_EQ(picture.size(), QSize(c.source.width, c.source.height));
    const QImage nothing = midGreyPicture(d.common());
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) ASSERT_EQ(picture.pixel(x, y), nothing.pixel(x, y)) << x << "," << y;
    EXPECT_EQ(qRed(nothing.pixel(0, 0)), qGreen(nothing.pixel(0, 0))) << "grey";
}

const SamePictureCase kSame[] = {
    {"same_record", {YUV_p420, 38, 22, 8, 8}, YUV_p420, 8, YUV_p420, 8, YUV_p420, 8},
    {"yuv420_8_against_p010", {YUV_p420, 38, 22, 8, 8}, YUV_p420, 8, YUV_p010, 10, YUV_p420, 10},
    {"p010_first_against_yuv420_8", {YUV_p420, 38, 22, 8, 8}, YUV_p010, 10, YUV_p420, 8, YUV_p420, 10},
    {"odd_size_yuv420_against_16_bits", {YUV_p420, 37, 21, 8, 8}, YUV_p420, 8, YUV_p420, 16, YUV_p420, 16},
    {"width_plus_one", {YUV_p420, 39, 22, 8, 8}, YUV_p420, 8, YUV_p444, 10, YUV_p420, 10},
    {"yuv420_against_nv12", {YUV_p420, 38, 22, 8, 8}, YUV_p420, 8, YUV_nv12, 8, YUV_p420, 8},
    {"nv12_first_at_10_bits_becomes_planar", {YUV_p420, 38, 22, 8, 8}, YUV_nv12, 8, YUV_p420, 10, YUV_p420, 10},
    {"yuv420_against_yuv444_10", {YUV_p420, 38, 22, 8, 8}, YUV_p420, 8, YUV_p444, 10, YUV_p420, 10},
    {"uyvy_first_against_yuv422_12", {YUV_p422, 38, 22, 8, 8}, YUV_uyvy, 8, YUV_p422, 12, YUV_p422, 12},
    {"v210_first_against_yuv422_12", {YUV_p422, 48, 22, 8, 8}, YUV_v210, 10, YUV_p422, 12, YUV_p422, 12},
    {"rgb_against_gbr_planar_10", {RGB_i444, 38, 22, 8, 8}, RGB_i444, 8, GBR_planar, 10, RGB_i444, 10},
    {"luma_against_luma_16", {BW, 37, 21, 8, 8}, BW, 8, BW, 16, BW, 16},
    {"tiny_frame", {YUV_p420, 2, 2, 8, 8}, YUV_p420, 8, YUV_p010, 10, YUV_p420, 10},
    {"one_pixel", {YUV_p444, 1, 1, 8, 8}, YUV_p444, 8, YUV_p444, 9, YUV_p444, 9},
};
INSTANTIATE_TEST_SUITE_P(Pairs, CompareDifferenceSame, ::testing::ValuesIn(kSame),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CompareDifference, AChangedSampleIsFoundAndWeighedAtTheCommonDepth)
{
    constexpr int W = 38, H = 22, X = 5, Y = 3;
    Held a, b;
    holdPattern(a, {YUV_p420, W, H, 8, 8});
    holdConverted(b, a, YUV_p010, 10);
    // One luma sample of the 10-bit side 40 levels higher (ten 8-bit levels).
    auto *luma = reinterpret_cast<uint16_t *>(b.pipeline.buffer(FramePipeline::Buffer::First));
    luma[Y * W + X] = uint16_t(luma[Y * W + X] + 40);

    CompareDifference d;
    QImage picture;
    ASSERT_TRUE(d.compute(a.samples(), b.samples(), 0, picture)) << d.error().toStdString();
    EXPECT_EQ(d.common().bitDepth, 10);
    EXPECT_DOUBLE_EQ(d.difference().mse[0], 1600.0 / (W * H));
    EXPECT_NEAR(d.difference().psnr[0], 10.0 * std::log10(1023.0 * 1023.0 * W * H / 1600.0), 1e-9);
    EXPECT_EQ(d.difference().firstDiffX[0], X);
    EXPECT_EQ(d.difference().firstDiffY[0], Y);
    for (int k = 1; k < 3; ++k) EXPECT_EQ(d.difference().mse[k], 0.0) << "component " << k;
    EXPECT_NE(picture.pixel(X, Y), picture.pixel(X + 1, Y)) << "the changed sample shows";

    // The next frame of the same records reuses what was set up and finds no difference again.
    luma[Y * W + X] = uint16_t(luma[Y * W + X] - 40);
    ASSERT_TRUE(d.compute(a.samples(), b.samples(), 0, picture));
    EXPECT_EQ(d.difference().mse[0], 0.0);
}

struct RefusedCase {
    const char *name;
    PatternSpec first, second;
};
void PrintTo(const RefusedCase &c, std::ostream *os) { *os << c.name; }

class CompareDifferenceRefused : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(CompareDifferenceRefused, WithAReasonAndThePictureLeftAlone)
{
    const RefusedCase &c = GetParam();
    Held a, b;
    holdPattern(a, c.first);
    holdPattern(b, c.second);
    CompareDifference d;
    QImage picture(4, 4, QImage::Format_RGB32);
    picture.fill(Qt::red);
    EXPECT_FALSE(d.compute(a.samples(), b.samples(), 0, picture));
    EXPECT_FALSE(d.error().isEmpty());
    EXPECT_EQ(picture.size(), QSize(4, 4));
    EXPECT_EQ(picture.pixel(0, 0), QColor(Qt::red).rgb());
}

const RefusedCase kRefused[] = {
    {"yuv_against_rgb", {YUV_p444, 16, 8, 8, 8}, {RGB_i444, 16, 8, 8, 8}},
    {"luma_against_rgb", {BW, 16, 8, 8, 8}, {RGB_planar, 16, 8, 8, 8}},
    {"signed_against_unsigned", {YUV_p420, 16, 8, 8, 8, true}, {YUV_p420, 16, 8, 8, 8}},
    {"other_size", {YUV_p420, 16, 8, 8, 8}, {YUV_p420, 16, 10, 8, 8}},
};
INSTANTIATE_TEST_SUITE_P(Pairs, CompareDifferenceRefused, ::testing::ValuesIn(kRefused),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CompareDifference, NoSamplesYetIsRefused)
{
    CompareDifference d;
    QImage picture;
    EXPECT_FALSE(d.compute({}, {}, 0, picture));
    EXPECT_TRUE(picture.isNull());
}

} // namespace
