// The described colour readings: the converter's row-kernel path against the double-precision reference
// for every matrix, range, siting, transfer, depth and layout family; hand-worked values; the PQ ramp;
// and that the default reading is the conversion of old.
#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"
#include "pixel/ColourMath.h"
#include "pixel/PatternGenerator.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

struct Frame {
    VideoProps props;
    std::vector<uint8_t> samples; // native order, allocation size
};

Frame patternFrame(videoFormat_t layout, int32_t w, int32_t h, int32_t bits, bool isSigned, uint64_t index)
{
    Frame f;
    PatternSpec s;
    s.layout = layout;
    s.width = w;
    s.height = h;
    s.bits = layout == YUV_v210 ? 10 : bits;
    s.containerBits = layout == YUV_v210 ? 16 : (s.bits > 8 ? 16 : 8);
    s.isSigned = isSigned && layout != YUV_v210;
    EXPECT_EQ(patternSpecError(s), "") << int(layout) << " " << bits;
    f.props.format = layout;
    f.props.width = w;
    f.props.height = h;
    f.props.bitDepth = s.bits;
    f.props.containerBits = s.containerBits;
    f.props.signedValues = s.isSigned;
    f.samples.assign(size_t(allocationSize(layout, s.containerBits, w, h)), 0);
    EXPECT_TRUE(writePatternFrame(s, index, f.samples.data(), f.samples.size()));
    return f;
}

std::vector<uint32_t> convert(const VideoProps &p, const std::vector<uint8_t> &samples, const char *kernels = nullptr,
                              int32_t threads = 1)
{
    ColorConversion::X2RGBColorConv c;
    c.setDescription(p);
    c.setUnsigned(!p.signedValues);
    c.setThreadCount(threads);
    if (kernels) {
        EXPECT_TRUE(c.setKernelVariant(kernels));
    }
    std::vector<uint32_t> out(size_t(p.width) * p.height, 0);
    c.convertNativeFrame(samples.data(), reinterpret_cast<uint8_t *>(out.data()));
    for (uint32_t &px : out) px &= 0xffffffu;
    return out;
}

std::vector<uint32_t> reference(const VideoProps &p, const std::vector<uint8_t> &samples)
{
    std::vector<uint32_t> out(size_t(p.width) * p.height, 0);
    referenceDescribed(p, p.signedValues, samples.data(), int64_t(samples.size()), out.data());
    return out;
}

// The largest difference of any channel of any pixel, and where.
int32_t worstDifference(const std::vector<uint32_t> &a, const std::vector<uint32_t> &b, size_t *where = nullptr)
{
    int32_t worst = 0;
    for (size_t i = 0; i < a.size(); ++i)
        for (int sh = 0; sh < 24; sh += 8) {
            const int32_t d = std::abs(int32_t((a[i] >> sh) & 0xff) - int32_t((b[i] >> sh) & 0xff));
            if (d > worst) {
                worst = d;
                if (where) *where = i;
            }
        }
    return worst;
}

const char *kMatrixNames[] = {"default", "bt601", "bt709", "bt2020", "smpte240m", "ycgco"};

struct Family {
    const char *name;
    videoFormat_t layout;
    std::vector<int32_t> depths;
};

const Family kFamilies[] = {
    {"planar 4:2:0", YUV_p420, {8, 10, 11, 12, 16}},
    {"planar 4:2:2", YUV_p422, {8, 10, 12, 14, 16}},
    {"planar 4:4:4", YUV_p444, {8, 10, 12, 16}},
    {"planar 4:1:1", YUV_p411, {8, 10}},
    {"planar 4:1:0", YUV_p410, {8, 12}},
    {"packed uyvy", YUV_uyvy, {8, 10, 12, 16}},
    {"packed yuyv", YUV_yuyv, {8, 10, 12, 16}},
    {"nv12", YUV_nv12, {8}},
    {"v210", YUV_v210, {10}},
    {"rgb", RGB_i444, {8, 10, 12, 16}},
    {"bgra", BGRA_i444, {8}},
    {"gbr planar", GBR_planar, {8, 10, 16}},
    {"luma", BW, {8, 10, 12, 16}},
};

} // namespace

TEST(ColourReading, EveryMatrixRangeDepthAndFamilyIsWithinOneLevelOfTheReference)
{
    for (const Family &fam : kFamilies)
        for (int32_t bits : fam.depths)
            for (int m = 0; m <= int(ColourMatrix::YCgCo); ++m)
                for (ColourRange range : {ColourRange::Full, ColourRange::Limited}) {
                    Frame f = patternFrame(fam.layout, 48, 20, bits, false, 3);
                    f.props.colour.matrix = ColourMatrix(m);
                    f.props.colour.range = range;
                    if (f.props.colour.isDefault()) continue; // the old conversion, pinned elsewhere
                    size_t at = 0;
                    const int32_t worst =
                        worstDifference(convert(f.props, f.samples), reference(f.props, f.samples), &at);
                    EXPECT_LE(worst, 1) << fam.name << " " << bits << " bits " << kMatrixNames[m] << " "
                                        << keyword(range).toStdString() << " at pixel " << at;
                }
}

TEST(ColourReading, EverySitingIsWithinOneLevelOfTheReference)
{
    for (const Family &fam : kFamilies)
        for (int32_t bits : fam.depths)
            for (ChromaSiting siting : {ChromaSiting::Left, ChromaSiting::Center, ChromaSiting::TopLeft})
                for (ColourMatrix m : {ColourMatrix::BT601, ColourMatrix::BT2020, ColourMatrix::YCgCo}) {
                    Frame f = patternFrame(fam.layout, 40, 18, bits, false, 5);
                    f.props.colour.matrix = m;
                    f.props.colour.range = ColourRange::Limited;
                    f.props.colour.chroma = siting;
                    EXPECT_LE(worstDifference(convert(f.props, f.samples), reference(f.props, f.samples)), 1)
                        << fam.name << " " << bits << " bits siting " << keyword(siting).toStdString();
                }
}

TEST(ColourReading, TransfersAreWithinOneLevelOfTheReference)
{
    for (const Family &fam : kFamilies)
        for (int32_t bits : fam.depths)
            for (ColourTransfer t : {ColourTransfer::PQ, ColourTransfer::HLG})
                for (int32_t peak : {1000, 4000})
                    for (ChromaSiting siting : {ChromaSiting::Nearest, ChromaSiting::Left}) {
                        Frame f = patternFrame(fam.layout, 24, 8, bits, false, 2);
                        f.props.colour.matrix = ColourMatrix::BT2020;
                        f.props.colour.range = ColourRange::Limited;
                        f.props.colour.transfer = t;
                        f.props.colour.peakNits = peak;
                        f.props.colour.chroma = siting;
                        EXPECT_LE(worstDifference(convert(f.props, f.samples), reference(f.props, f.samples)), 1)
                            << fam.name << " " << bits << " bits " << keyword(t).toStdString() << " " << peak;
                    }
}

TEST(ColourReading, SignedSwappedAndFlippedFramesFollowTheReference)
{
    for (videoFormat_t layout : {YUV_p420, YUV_p422, YUV_yuyv, RGB_planar, BGR_i444})
        for (int32_t bits : {8, 10})
            for (ChromaSiting siting : {ChromaSiting::Nearest, ChromaSiting::Center}) {
                Frame f = patternFrame(layout, 32, 16, bits, true, 1);
                f.props.swapUV = true;
                f.props.flipped = true;
                f.props.colour.matrix = ColourMatrix::BT601;
                f.props.colour.range = ColourRange::Limited;
                f.props.colour.chroma = siting;
                EXPECT_LE(worstDifference(convert(f.props, f.samples), reference(f.props, f.samples)), 1)
                    << int(layout) << " " << bits;
            }
}

TEST(ColourReading, EveryKernelSetAndThreadCountGivesTheSamePicture)
{
    for (videoFormat_t layout : {YUV_p420, YUV_nv12, YUV_uyvy, YUV_p444})
        for (ChromaSiting siting : {ChromaSiting::Nearest, ChromaSiting::TopLeft}) {
            Frame f = patternFrame(layout, 640, 360, 8, false, 4);
            f.props.colour.matrix = ColourMatrix::BT709;
            f.props.colour.range = ColourRange::Limited;
            f.props.colour.chroma = siting;
            const std::vector<uint32_t> one = convert(f.props, f.samples, "portable", 1);
            for (const char *set : {"portable", "avx2", "avx512"}) {
                if (!kernelsByName(set)) continue;
                EXPECT_EQ(convert(f.props, f.samples, set, 0), one) << set << " " << int(layout);
            }
        }
}

// Every reading's fast kernels against the portable ones, byte for byte, at sizes that leave every
// kind of row end (under one vector, one over, odd widths and heights, one-pixel frames), with and
// without a tone curve. The fourth byte of every pixel must come through untouched.
TEST(ColourReading, EveryKernelSetGivesTheSameBytesAtAwkwardSizes)
{
    struct Case {
        const char *name;
        videoFormat_t layout;
        int32_t bits;
        ColourMatrix matrix;
        ColourRange range;
        ColourTransfer transfer;
        int32_t peak;
        bool isSigned = false;
        ChromaSiting siting = ChromaSiting::Nearest;
    };
    constexpr ChromaSiting kLeft = ChromaSiting::Left, kCenter = ChromaSiting::Center, kTop = ChromaSiting::TopLeft;
    const Case cases[] = {
        {"4:2:0 10-bit PQ", YUV_p420, 10, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::PQ, 1000},
        {"4:2:0 8-bit HLG", YUV_p420, 8, ColourMatrix::BT2020, ColourRange::Full, ColourTransfer::HLG, 4000},
        {"4:4:4 16-bit PQ", YUV_p444, 16, ColourMatrix::BT2020, ColourRange::Full, ColourTransfer::PQ, 4000},
        {"v210 PQ", YUV_v210, 10, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::PQ, 1000},
        {"uyvy 10-bit HLG", YUV_uyvy, 10, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::HLG, 1000},
        {"rgb 12-bit PQ", RGB_i444, 12, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::PQ, 1000},
        {"4:2:0 8-bit bt601", YUV_p420, 8, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"4:2:0 10-bit bt2020", YUV_p420, 10, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"4:2:2 12-bit bt709", YUV_p422, 12, ColourMatrix::BT709, ColourRange::Full, ColourTransfer::SDR, 0},
        {"4:4:4 8-bit ycgco", YUV_p444, 8, ColourMatrix::YCgCo, ColourRange::Full, ColourTransfer::SDR, 0},
        {"nv12 smpte240m", YUV_nv12, 8, ColourMatrix::SMPTE240M, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"yuyv 8-bit bt709", YUV_yuyv, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"v210 bt709", YUV_v210, 10, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"rgb 8-bit limited", RGB_i444, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"luma 8-bit limited", BW, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"luma 10-bit limited", BW, 10, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0},
        {"signed luma 8-bit", BW, 8, ColourMatrix::BT709, ColourRange::Full, ColourTransfer::SDR, 0, true},
        {"signed 4:2:0 8-bit", YUV_p420, 8, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0, true},
        // Sited chroma: every way the sited rows read luma and chroma, both ratios across, every siting.
        {"4:2:0 8-bit left", YUV_p420, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"4:2:0 10-bit center", YUV_p420, 10, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:2:2 8-bit topleft", YUV_p422, 8, ColourMatrix::BT601, ColourRange::Full, ColourTransfer::SDR, 0, false,
         kTop},
        {"4:1:1 8-bit center", YUV_p411, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:1:1 10-bit left", YUV_p411, 10, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"4:1:0 8-bit left", YUV_p410, 8, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"nv12 center", YUV_nv12, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false, kCenter},
        {"uyvy 8-bit left", YUV_uyvy, 8, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"yuyv 8-bit center", YUV_yuyv, 8, ColourMatrix::BT601, ColourRange::Full, ColourTransfer::SDR, 0, false,
         kCenter},
        {"uyvy 10-bit topleft", YUV_uyvy, 10, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kTop},
        {"v210 left", YUV_v210, 10, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false, kLeft},
        {"signed 4:2:0 8-bit center", YUV_p420, 8, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0,
         true, kCenter},
        // Deep sited chroma: fewer fraction bits in the sited rows (12 and 14 bits), or the gathered rows
        // (4:1:0 centred at 12 bits, 16 bits).
        {"4:2:0 12-bit left", YUV_p420, 12, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"4:2:0 12-bit center", YUV_p420, 12, ColourMatrix::BT2020, ColourRange::Full, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:2:0 11-bit topleft", YUV_p420, 11, ColourMatrix::BT601, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kTop},
        {"4:2:2 14-bit center", YUV_p422, 14, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:1:1 10-bit center", YUV_p411, 10, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:1:0 12-bit center", YUV_p410, 12, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kCenter},
        {"4:2:0 16-bit left", YUV_p420, 16, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0, false,
         kLeft},
        {"signed 4:2:0 12-bit left", YUV_p420, 12, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR, 0,
         true, kLeft},
    };
    // Up to a few rows of 1031 pixels: more than one step of every vector loop, with a ragged end.
    const std::pair<int32_t, int32_t> sizes[] = {{1, 1}, {15, 3}, {17, 5}, {33, 7}, {65, 3}, {129, 2}, {1031, 3}};
    const auto run = [](const VideoProps &p, const std::vector<uint8_t> &samples, const char *set, bool toned) {
        ColorConversion::X2RGBColorConv c;
        c.setDescription(p);
        c.setUnsigned(!p.signedValues);
        c.setThreadCount(1);
        EXPECT_TRUE(c.setKernelVariant(set));
        if (toned) c.setToneCurve(20, 40, 180);
        // Every pixel's fourth byte set apart, so that a kernel writing it shows.
        std::vector<uint32_t> out(size_t(p.width) * p.height);
        for (size_t i = 0; i < out.size(); ++i) out[i] = uint32_t(0x5a + i % 97) << 24;
        c.convertNativeFrame(samples.data(), reinterpret_cast<uint8_t *>(out.data()));
        return out;
    };
    for (const Case &k : cases)
        for (auto [w, h] : sizes)
            for (bool toned : {false, true}) {
                Frame f = patternFrame(k.layout, w, h, k.bits, k.isSigned, 5);
                f.props.colour.matrix = k.matrix;
                f.props.colour.range = k.range;
                f.props.colour.transfer = k.transfer;
                f.props.colour.chroma = k.siting;
                if (k.peak) f.props.colour.peakNits = k.peak;
                const std::vector<uint32_t> portable = run(f.props, f.samples, "portable", toned);
                for (size_t i = 0; i < portable.size(); ++i)
                    ASSERT_EQ(portable[i] >> 24, uint32_t(0x5a + i % 97)) << k.name << " " << w << "x" << h;
                for (const char *set : {"avx2", "avx512"}) {
                    if (!kernelsByName(set)) continue;
                    EXPECT_EQ(run(f.props, f.samples, set, toned), portable)
                        << k.name << " " << w << "x" << h << " " << set << (toned ? " toned" : "");
                }
            }
}

// Samples of a 10-bit file in 16-bit words may carry stray high bits. Sited chroma weighs codes in
// 16-bit lanes: such words must neither overflow them nor make any kernel set differ from the others.
TEST(ColourReading, StrayHighBitsGiveTheSameSitedPictureInEverySet)
{
    for (videoFormat_t layout : {YUV_p420, YUV_p411, YUV_uyvy})
        for (ChromaSiting siting : {ChromaSiting::Left, ChromaSiting::Center}) {
            Frame f = patternFrame(layout, 261, 9, 10, false, 2);
            uint16_t *words = reinterpret_cast<uint16_t *>(f.samples.data());
            for (size_t i = 0; i < f.samples.size() / 2; ++i)
                if (i % 3 == 0) words[i] = uint16_t(0xffff - i % 5000);
            f.props.colour.matrix = ColourMatrix::BT709;
            f.props.colour.range = ColourRange::Limited;
            f.props.colour.chroma = siting;
            const std::vector<uint32_t> portable = convert(f.props, f.samples, "portable");
            for (const char *set : {"avx2", "avx512"})
                if (kernelsByName(set)) {
                    EXPECT_EQ(convert(f.props, f.samples, set), portable) << int(layout) << " " << set;
                }
        }
}

// A 4:2:0 frame and picture larger than a last-level cache take the one-pass sited planes where the
// kernel set has them (the rest of each row through the row of pairs): the same bytes as the portable
// rows, for both horizontal sitings and both sample sizes, with an odd width and height.
TEST(ColourReading, LargeSitedFramesGiveTheSameBytesInEverySet)
{
    for (int32_t bits : {8, 10, 12})
        for (ChromaSiting siting : {ChromaSiting::TopLeft, ChromaSiting::Center}) {
            Frame f = patternFrame(YUV_p420, 4099, 2063, bits, false, 7);
            f.props.colour.matrix = ColourMatrix::BT709;
            f.props.colour.range = ColourRange::Limited;
            f.props.colour.chroma = siting;
            const std::vector<uint32_t> portable = convert(f.props, f.samples, "portable");
            for (const char *set : {"avx2", "avx512"})
                if (kernelsByName(set)) {
                    EXPECT_EQ(convert(f.props, f.samples, set, 0), portable) << bits << " bits " << set;
                }
        }
}

TEST(ColourReading, HandWorkedValues)
{
    // 8-bit 4:4:4 pixels, limited range. BT.601 red (Y 81, Cb 90, Cr 240): R' = (81-16)/219 + 1.402 (240-128)/224
    // = 0.2968 + 0.7010 = 0.9978 -> 254; G' = 0.2968 + 0.3441 * 0.1696 - 0.7141 * 0.5 = -0.0019 -> 0;
    // B' = 0.2968 - 1.772 * 0.1696 = -0.0038 -> 0. Black (16, 128, 128) and white (235, 128, 128) are 0 and 255.
    // BT.709 (Y 63, Cb 102, Cr 240): R' = 0.2146 + 1.5748 * 0.5 = 1.0020 -> 255; G' = 0.2146 + 0.1873 * 0.1161
    // - 0.4681 * 0.5 = 0.0024 -> 1; B' = 0.2146 - 1.8556 * 0.1161 = -0.0008 -> 0.
    // YCgCo full (Y 128, Cg 64, Co 192): Cg = -0.2510, Co = 0.2510; R = Y - Cg + Co = 1.0039 -> 255,
    // G = Y + Cg = 0.2510 -> 64, B = Y - Cg - Co = 0.5020 -> 128.
    struct Case {
        ColourMatrix m;
        ColourRange r;
        uint8_t y, u, v;
        uint32_t rgb;
    };
    const Case cases[] = {
        {ColourMatrix::BT601, ColourRange::Limited, 81, 90, 240, 0xfe0000},
        {ColourMatrix::BT601, ColourRange::Limited, 16, 128, 128, 0x000000},
        {ColourMatrix::BT601, ColourRange::Limited, 235, 128, 128, 0xffffff},
        {ColourMatrix::BT709, ColourRange::Limited, 63, 102, 240, 0xff0100},
        {ColourMatrix::YCgCo, ColourRange::Full, 128, 64, 192, 0xff4080},
    };
    for (const Case &c : cases) {
        VideoProps p;
        p.format = YUV_p444;
        p.width = 2;
        p.height = 1;
        p.bitDepth = 8;
        p.containerBits = 8;
        p.colour.matrix = c.m;
        p.colour.range = c.r;
        const std::vector<uint8_t> s = {c.y, c.y, c.u, c.u, c.v, c.v};
        EXPECT_EQ(convert(p, s)[0], c.rgb) << int(c.y) << " " << int(c.u) << " " << int(c.v);
        EXPECT_EQ(reference(p, s)[0], c.rgb) << int(c.y) << " " << int(c.u) << " " << int(c.v);
    }
    // RGB in limited range: 16 -> 0, 235 -> 255, 126 -> round(110 * 255 / 219) = 128 (10 bits: 4x the codes).
    VideoProps p;
    p.format = RGB_i444;
    p.width = 1;
    p.height = 1;
    p.bitDepth = 10;
    p.containerBits = 16;
    p.colour.range = ColourRange::Limited;
    const uint16_t rgb10[3] = {64, 940, 504};
    std::vector<uint8_t> s(6);
    std::memcpy(s.data(), rgb10, 6);
    EXPECT_EQ(convert(p, s)[0], 0x00ff80u);
}

TEST(ColourReading, PqRampRisesToThePeakAndClipsOnlyAboveIt)
{
    // A 10-bit BT.2020 limited grey ramp over 0..10000 cd/m2 in PQ.
    constexpr int32_t kSteps = 401;
    for (int32_t peak : {1000, 4000}) {
        VideoProps p;
        p.format = YUV_p444;
        p.width = kSteps;
        p.height = 1;
        p.bitDepth = 10;
        p.containerBits = 16;
        p.colour.matrix = ColourMatrix::BT2020;
        p.colour.range = ColourRange::Limited;
        p.colour.transfer = ColourTransfer::PQ;
        p.colour.peakNits = peak;
        std::vector<uint16_t> planes(size_t(kSteps) * 3, 512);
        std::vector<double> nits(kSteps);
        for (int32_t i = 0; i < kSteps; ++i) {
            nits[size_t(i)] = 10000.0 * i / (kSteps - 1);
            planes[size_t(i)] = uint16_t(std::lround(64 + 876 * nitsToPq(nits[size_t(i)])));
        }
        std::vector<uint8_t> s(planes.size() * 2);
        std::memcpy(s.data(), planes.data(), s.size());
        const std::vector<uint32_t> out = convert(p, s);
        EXPECT_EQ(out[0], 0u);
        int32_t previous = 0;
        for (int32_t i = 0; i < kSteps; ++i) {
            const uint32_t px = out[size_t(i)];
            const int32_t g = int32_t(px & 0xff);
            EXPECT_EQ(px, uint32_t(g) * 0x010101u) << "grey stays grey at " << nits[size_t(i)];
            EXPECT_GE(g, previous) << nits[size_t(i)];
            previous = g;
            // The code of the peak itself may round to either side of it.
            if (nits[size_t(i)] >= peak * 1.01) {
                EXPECT_EQ(g, 255) << nits[size_t(i)];
            }
            // The knee flattens towards the peak (its slope there is 0), so the last levels come early.
            if (nits[size_t(i)] <= peak * 0.45) {
                EXPECT_LT(g, 255) << nits[size_t(i)];
            }
        }
        EXPECT_GT(out[1] & 0xff, 0u); // 25 cd/m2 is not black
    }
}

// The display code of a light comes from a table indexed by the light's float bits (octaves below 1,
// 512 steps each): over a dense ramp of lights from far below the darkest octave up to 1, at the peaks
// users set, it must rise with the light, stay within a level of the formula everywhere and match it
// nearly everywhere, and give black below the table and white at 1.
TEST(ColourReading, TheCodeTableFollowsTheFormulaAtEveryLight)
{
    EXPECT_EQ(hdrCodeIndex(__builtin_bit_cast(uint32_t, 0.0f)), 0);
    EXPECT_EQ(hdrCodeIndex(__builtin_bit_cast(uint32_t, 1.0f)), kHdrCodeEntries - 1);
    EXPECT_EQ(hdrCodeIndex(__builtin_bit_cast(uint32_t, std::ldexp(1.0f, -kHdrCodeOctaves))), 0);
    EXPECT_EQ(hdrCodeIndex(__builtin_bit_cast(uint32_t, 0.5f)), kHdrCodeEntries - 1 - (1 << kHdrCodeStepBits));
    for (int32_t peak : {kMinPeakNits, 203, 1000, 4000, kMaxPeakNits}) {
        TransferTables t;
        t.build(ColourTransfer::PQ, peak);
        ASSERT_EQ(t.toCode.size(), size_t(kHdrCodeEntries) + 3);
        int32_t previous = 0, exact = 0, lights = 0;
        for (double log2Light = -40.0; log2Light <= 0.0; log2Light += 1.0 / 1024) {
            const float light = float(std::exp2(log2Light));
            const int32_t got = t.toCode[size_t(hdrCodeIndex(__builtin_bit_cast(uint32_t, light)))];
            const int32_t want = int32_t(std::lround(255.0 * displayEncode(toneMapRelative(peak, double(light)))));
            ASSERT_LE(std::abs(got - want), 1) << "peak " << peak << " light 2^" << log2Light;
            ASSERT_GE(got, previous) << "peak " << peak << " light 2^" << log2Light;
            if (log2Light < -kHdrCodeOctaves) {
                ASSERT_EQ(got, 0) << "peak " << peak << " light 2^" << log2Light;
            }
            previous = got;
            exact += got == want;
            ++lights;
        }
        EXPECT_EQ(t.toCode[size_t(hdrCodeIndex(__builtin_bit_cast(uint32_t, 1.0f)))], 255) << peak;
        EXPECT_GT(exact, lights * 99 / 100) << peak;
    }
}

TEST(ColourReading, TransferFormulasMatchHandWorkedPoints)
{
    // PQ: 100 cd/m2 is E' = 0.5081, 1000 is 0.7518, 10000 is 1.
    EXPECT_NEAR(nitsToPq(100.0), 0.5081, 1e-4);
    EXPECT_NEAR(nitsToPq(1000.0), 0.7518, 1e-4);
    EXPECT_NEAR(pqToNits(1.0), 10000.0, 1e-6);
    EXPECT_NEAR(pqToNits(nitsToPq(203.0)), 203.0, 1e-6);
    // HLG: E' = 0.5 is scene light 1/12; E' = 1 is 1.
    EXPECT_NEAR(hlgToScene(0.5), 1.0 / 12.0, 1e-9);
    EXPECT_NEAR(hlgToScene(1.0), 1.0, 1e-6);
    // The knee keeps the dark part, ends at SDR white, and is the identity when the peak is SDR white.
    EXPECT_NEAR(toneMapRelative(1000, 1.0), 1.0, 1e-9);
    EXPECT_NEAR(toneMapRelative(1000, 0.01), 0.1, 1e-9); // 10 cd/m2 of 1000 stays 10 of 100
    EXPECT_NEAR(toneMapRelative(100, 0.37), 0.37, 1e-12);
}

TEST(ColourReading, TheDefaultReadingIsTheOldConversion)
{
    for (videoFormat_t layout : {YUV_p420, YUV_uyvy, YUV_nv12, RGB_i444}) {
        Frame f = patternFrame(layout, 33, 17, 8, false, 6);
        const std::vector<uint32_t> old = convert(f.props, f.samples);
        f.props.colour.peakNits = 4000; // the peak alone changes nothing in SDR
        EXPECT_EQ(convert(f.props, f.samples), old);
        f.props.colour.range = ColourRange::Limited;
        EXPECT_NE(convert(f.props, f.samples), old) << int(layout); // any other reading takes the new path
    }
}
