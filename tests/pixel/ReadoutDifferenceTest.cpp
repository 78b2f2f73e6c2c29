// Native readout positions and the difference picture: tables, metrics, first differences, readout.
#include "PixelOracle.h"

#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"
#include "pixel/DifferencePicture.h"
#include "pixel/FramePipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

using namespace kavri;
using namespace kavri::test;
using ColorConversion::X2RGBColorConv;

namespace {

X2RGBColorConv converterFor(videoFormat_t f, int32_t w, int32_t h, int32_t bits, bool isSigned = false)
{
    X2RGBColorConv conv;
    VideoProps p;
    p.format = f;
    p.width = w;
    p.height = h;
    p.bitDepth = bits;
    p.containerBits = bits > 8 ? 16 : 8;
    conv.setDescription(p);
    conv.setUnsigned(!isSigned);
    return conv;
}

// A frame whose sample i holds i (low byte for 8-bit containers).
std::vector<uint8_t> countingFrame(videoFormat_t f, int32_t w, int32_t h, int32_t bits)
{
    const int32_t container = bits > 8 ? 16 : 8;
    std::vector<uint8_t> frame(allocationSize(f, container, w, h));
    for (int64_t i = 0; i < int64_t(frame.size()) / (container / 8); ++i) putSample(frame, container, i, int32_t(i));
    return frame;
}

struct Read {
    bool ok;
    int32_t c1, c2, c3, alpha;
};

Read readAt(const X2RGBColorConv &conv, const std::vector<uint8_t> &frame, int32_t x, int32_t y)
{
    Read r{false, -7, -7, -7, -7};
    r.ok = conv.readNative(frame.data(), x, y, r.c1, r.c2, r.c3, &r.alpha);
    return r;
}

// A record whose buffers cannot be had leaves the pipeline empty — nothing half set up that a later read
// or readout could walk — and a smaller record afterwards sets up as usual.
TEST(FramePipeline, BuffersThatCannotBeHadLeaveItEmpty)
{
    struct Ceiling {
        explicit Ceiling(size_t bytes) { setLargestAllocation(bytes); }
        ~Ceiling() { setLargestAllocation(0); }
    } ceiling(1000);
    VideoProps big;
    big.width = 64;
    big.height = 48;
    big.format = YUV_p420;
    big.bitDepth = 8;
    for (bool second : {false, true}) {
        SCOPED_TRACE(second);
        FramePipeline p;
        EXPECT_THROW(p.setup(big, second), std::bad_alloc);
        EXPECT_EQ(p.frameBytes(), 0u);
        EXPECT_EQ(p.buffer(FramePipeline::Buffer::First), nullptr);
        EXPECT_EQ(p.buffer(FramePipeline::Buffer::Second), nullptr);
        int32_t c1, c2, c3;
        EXPECT_FALSE(p.readout(0, 0, c1, c2, c3, nullptr));
        VideoProps small = big;
        small.width = small.height = 16; // 384 bytes a frame
        p.setup(small, second);
        EXPECT_EQ(p.frameBytes(), 384u);
        EXPECT_NE(p.buffer(FramePipeline::Buffer::First), nullptr);
    }
    EXPECT_THROW(allocateAligned(1001), std::bad_alloc);
    EXPECT_NE(allocateAligned(1000), nullptr);
}

} // namespace

TEST(NativeReadout, Positions)
{
    struct Case {
        videoFormat_t f;
        int32_t w, h, x, y;
        int32_t c1, c2, c3, alpha;
    };
    // Sample i holds i, so each value is the sample's position.
    const Case cases[] = {
        {YUV_p420, 4, 4, 3, 3, 15, 16 + 1 * 2 + 1, 16 + (1 + 2) * 2 + 1, -7},
        // 4:2:2 chroma addressed with rows of W samples: U at (H + y/2)*W + x, V at (H + H/2 + y/2)*W + x
        {YUV_p422, 4, 4, 1, 3, 13, (4 + 1) * 4 + 1, (4 + 2 + 1) * 4 + 1, -7},
        {YUV_p444, 2, 2, 1, 1, 3, 7, 11, -7},
        {YUV_p410, 8, 2, 5, 1, 13, 16 + 1, 16 + 2 + 1, -7},
        {YUV_p411, 8, 2, 5, 1, 13, 16 + 2 + 1, 16 + 4 + 2 + 1, -7},
        {YUV_uyvy, 4, 2, 3, 1, 8 + 4 + 3, 8 + 4, 8 + 4 + 2, -7},
        {YUV_yuyv, 4, 1, 3, 0, 6, 5, 7, -7}, // x = 3: byte 2 of group 1
        {YUV_yuy2, 4, 1, 2, 0, 4, 5, 7, -7},
        {YUV_nv12, 4, 2, 3, 1, 7, 8 + 2, 8 + 3, -7},
        {RGB_i444, 2, 1, 1, 0, 3, 4, 5, -7},
        {BGR_i444, 2, 1, 1, 0, 5, 4, 3, -7},
        {RGBA_i444, 2, 1, 1, 0, 4, 5, 6, 7},
        {BGRA_i444, 2, 1, 1, 0, 6, 5, 4, 7},
        {BW, 2, 2, 1, 1, 3, 0, 0, -7},
        // Planar RGB in the conversion's assignment (planes hold 0.., 4.., 8.. at pixel 0 of 2x2).
        {RGB_planar, 2, 2, 0, 0, 0, 4, 8, -7},
        {BGR_planar, 2, 2, 0, 0, 8, 4, 0, -7},
        {RBG_planar, 2, 2, 0, 0, 0, 8, 4, -7},
        {BRG_planar, 2, 2, 0, 0, 8, 0, 4, -7},
        {GRB_planar, 2, 2, 0, 0, 4, 0, 8, -7},
        {GBR_planar, 2, 2, 0, 0, 4, 8, 0, -7},
        {GBRA_planar, 2, 2, 1, 0, 5, 9, 1, 13},
    };
    for (const Case &t : cases) {
        const auto conv = converterFor(t.f, t.w, t.h, 8);
        const auto frame = countingFrame(t.f, t.w, t.h, 8);
        const Read r = readAt(conv, frame, t.x, t.y);
        EXPECT_TRUE(r.ok) << layoutInfo(t.f).shortName;
        EXPECT_EQ(r.c1, t.c1) << layoutInfo(t.f).shortName;
        EXPECT_EQ(r.c2, t.c2) << layoutInfo(t.f).shortName;
        EXPECT_EQ(r.c3, t.c3) << layoutInfo(t.f).shortName;
        EXPECT_EQ(r.alpha, t.alpha) << layoutInfo(t.f).shortName;
    }
}

// The readout takes stored rows; a flipped picture's top row is the caller's stored row H - 1, and
// the converter itself never mirrors (the same stored row gives the same values with and without flip).
TEST(NativeReadout, FlippedPicturesReadStoredRows)
{
    auto conv = converterFor(YUV_p420, 4, 4, 8);
    const auto frame = countingFrame(YUV_p420, 4, 4, 8);
    const Read plain = readAt(conv, frame, 1, 3);
    VideoProps p = conv.description();
    p.flipped = true;
    conv.setDescription(p);
    const Read flipped = readAt(conv, frame, 1, 4 - 1 - 0); // top displayed row of the flipped picture
    EXPECT_EQ(flipped.c1, plain.c1);
    EXPECT_EQ(flipped.c1, 13);
    EXPECT_EQ(flipped.c2, 16 + 2 + 0);
}

TEST(NativeReadout, V210Groups)
{
    // Fields hold their own index 0..11 in word order (U0 Y0 V0 Y1 U2 Y2 V2 Y3 U4 Y4 V4 Y5).
    std::vector<uint8_t> frame(allocationSize(YUV_v210, 16, 12, 1));
    for (int w = 0; w < 8; ++w) {
        const uint32_t v = uint32_t(3 * (w % 4) + 100 * (w / 4)) | uint32_t(3 * (w % 4) + 1 + 100 * (w / 4)) << 10 |
                           uint32_t(3 * (w % 4) + 2 + 100 * (w / 4)) << 20;
        for (int i = 0; i < 4; ++i) frame[size_t(4 * w + i)] = uint8_t(v >> (8 * i));
    }
    const auto conv = converterFor(YUV_v210, 12, 1, 10);
    const int32_t expected[6][3] = {{1, 0, 2}, {3, 0, 2}, {5, 4, 6}, {7, 4, 6}, {9, 8, 10}, {11, 8, 10}};
    for (int x = 0; x < 12; ++x) {
        const Read r = readAt(conv, frame, x, 0);
        const int32_t g = 100 * (x / 6);
        EXPECT_EQ(r.c1, expected[x % 6][0] + g) << x;
        EXPECT_EQ(r.c2, expected[x % 6][1] + g) << x;
        EXPECT_EQ(r.c3, expected[x % 6][2] + g) << x;
    }
}

TEST(NativeReadout, SignedAndOutOfRange)
{
    auto conv = converterFor(BW, 2, 1, 10, true);
    std::vector<uint8_t> frame = {0x00, 0xFC, 0xFF, 0x01};
    Read r = readAt(conv, frame, 0, 0);
    EXPECT_EQ(r.c1, -1024);
    r = readAt(conv, frame, 1, 0);
    EXPECT_EQ(r.c1, 511);
    r = readAt(conv, frame, 2, 0);
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.c1, -7);
    EXPECT_FALSE(readAt(conv, frame, -1, 0).ok);
    EXPECT_FALSE(readAt(conv, frame, 0, 1).ok);
    // RGBA above 8 bits has no reader.
    const auto rgba = converterFor(RGBA_i444, 1, 1, 10);
    EXPECT_FALSE(readAt(rgba, std::vector<uint8_t>(8), 0, 0).ok);
    // Widths that do not fill a chroma group never read past the buffer.
    const auto odd = converterFor(YUV_uyvy, 1, 1, 8);
    EXPECT_FALSE(readAt(odd, countingFrame(YUV_uyvy, 1, 1, 8), 0, 0).ok);
}

TEST(DifferenceTable, GainRule)
{
    DifferencePicture d8;
    d8.setup(YUV_p420, 4, 4, 4, 8, false);
    // 8 bits: 4096 > 16 * 255, so the default gain becomes 4096^1.03 = 5256.
    EXPECT_EQ(d8.table()[128], 128);
    EXPECT_EQ(d8.table()[129], 129); // 128 + (5256 >> 12)
    EXPECT_EQ(d8.table()[140], 128 + ((12 * 5256) >> 12));
    EXPECT_EQ(d8.table()[0], 0);
    EXPECT_EQ(d8.table()[255], 255);
    DifferencePicture d10;
    d10.setup(YUV_p420, 4, 4, 4, 10, false);
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(d10.table()[size_t(i)], i); // gain exactly 1
    d10.buildTable(4096);                                                // doubled gain
    EXPECT_EQ(d10.table()[513], 514);
    EXPECT_EQ(d10.table()[1023], 1023);
    EXPECT_EQ(d10.table()[0], 0);
}

TEST(DifferencePicture, MetricsAndFirstDifference)
{
    const int32_t W = 4, H = 4;
    std::vector<uint8_t> a(allocationSize(YUV_p420, 8, W, H), 100), b = a, dst(a.size(), 0);
    DifferencePicture d;
    d.setup(YUV_p420, W, H, W, 8, false);
    d.compute(a.data(), b.data(), dst.data());
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(d.mse[k], 0.0);
        EXPECT_TRUE(std::isinf(d.psnr[k]));
        EXPECT_EQ(d.firstDiffX[k], -1);
    }
    EXPECT_EQ(dst[5], 128);

    b[1 * W + 2] = 99; // luma (2, 1): +1
    b[16 + 3] = 103;   // U (1, 1): -3
    b[20 + 2] = 110;   // V (0, 1): -10
    b[20 + 3] = 110;   // V (1, 1): -10
    d.compute(a.data(), b.data(), dst.data());
    EXPECT_DOUBLE_EQ(d.mse[0], 1.0 / 16);
    EXPECT_DOUBLE_EQ(d.mse[1], 9.0 / 4);
    EXPECT_DOUBLE_EQ(d.mse[2], 200.0 / 4);
    EXPECT_NEAR(d.psnr[0], 10 * std::log10(255.0 * 255 * 16), 1e-9);
    EXPECT_EQ(d.firstDiffX[0], 2);
    EXPECT_EQ(d.firstDiffY[0], 1);
    EXPECT_EQ(d.firstDiffX[1], 1);
    EXPECT_EQ(d.firstDiffY[1], 1);
    EXPECT_EQ(d.firstDiffX[2], 0);
    EXPECT_EQ(d.firstDiffY[2], 1);
    EXPECT_EQ(dst[1 * W + 2], 129);
    EXPECT_EQ(dst[16 + 3], 128 + ((-3 * 5256) >> 12));

    // Null destination: the first frame becomes the difference.
    d.compute(a.data(), b.data(), nullptr);
    EXPECT_EQ(a[1 * W + 2], 129);
}

TEST(DifferencePicture, DepthsLayoutsAndClamping)
{
    // 10-bit difference of +1023 clamps to the last entry; signed frames compare as signed numbers.
    DifferencePicture d;
    d.setup(BW, 2, 1, 2, 10, false);
    std::vector<uint8_t> a = {0xFF, 0x03, 0, 0}, b = {0, 0, 0, 0}, dst(4);
    d.compute(a.data(), b.data(), dst.data());
    EXPECT_EQ(dst[0] | dst[1] << 8, 1023);
    EXPECT_DOUBLE_EQ(d.mse[0], 1023.0 * 1023 / 2);
    EXPECT_EQ(d.mse[1], 0.0);
    EXPECT_TRUE(std::isinf(d.psnr[1]));
    d.setup(BW, 2, 1, 2, 10, true);
    a = {0x00, 0xFE, 0, 0}; // -512
    b = {0xFF, 0x01, 0, 0}; // 511
    d.compute(a.data(), b.data(), dst.data());
    EXPECT_EQ(dst[0] | dst[1] << 8, 0);
    EXPECT_DOUBLE_EQ(d.mse[0], 1023.0 * 1023 / 2);

    // v210: -1 halves to index mid - 1; other fields stay at mid; top two bits zero.
    d.setup(YUV_v210, 6, 1, 6, 10, false);
    std::vector<uint8_t> va(128, 0), vb(128, 0), vd(128, 0xFF);
    vb[1] = 0x04; // Y0 (bits 10..19 of word 0) = 1 in b
    d.compute(va.data(), vb.data(), vd.data());
    const uint32_t w0 = uint32_t(vd[0]) | uint32_t(vd[1]) << 8 | uint32_t(vd[2]) << 16 | uint32_t(vd[3]) << 24;
    EXPECT_EQ(w0, 512u | 511u << 10 | 512u << 20);
    EXPECT_DOUBLE_EQ(d.mse[0], 1.0 / 6);
    EXPECT_EQ(d.firstDiffX[0], 0);

    // Packed layouts above 8 bits are not supported: zeroed fields.
    d.setup(YUV_uyvy, 2, 1, 2, 10, false);
    std::vector<uint8_t> p(8, 1), q(8, 0);
    d.compute(p.data(), q.data(), nullptr);
    EXPECT_EQ(d.mse[0], 0.0);
    EXPECT_EQ(d.psnr[0], 0.0);
    EXPECT_EQ(p[0], 1);
}

TEST(DifferencePicture, Readout)
{
    DifferencePicture d;
    d.setup(RGBA_planar, 2, 1, 2, 8, false);
    std::vector<uint8_t> a = {10, 11, 20, 21, 30, 31, 40, 41}, b = {1, 1, 2, 2, 3, 3, 4, 4};
    int32_t c1 = 0, c2 = 0, c3 = 0, alpha = 0;
    ASSERT_TRUE(d.readDifference(a.data(), b.data(), 1, 0, c1, c2, c3, &alpha));
    EXPECT_EQ(c1, 10); // plane order, no exchanges
    EXPECT_EQ(c2, 19);
    EXPECT_EQ(c3, 28);
    EXPECT_EQ(alpha, 37);
    d.setup(YUV_p444, 2, 1, 2, 10, false);
    std::vector<uint8_t> same(12, 7);
    ASSERT_TRUE(d.readDifference(same.data(), same.data(), 0, 0, c1, c2, c3, &alpha));
    EXPECT_EQ(c1 | c2 | c3, 0);
    EXPECT_EQ(alpha, 1023);
    d.setup(YUV_nv12, 2, 2, 2, 8, true); // signed packed: not supported
    std::vector<uint8_t> nv(6, 0);
    EXPECT_FALSE(d.readDifference(nv.data(), nv.data(), 0, 0, c1, c2, c3, &alpha));
}

// A frame large enough for the vector row kernels, against a direct per-sample computation.
TEST(DifferencePicture, LargeFramesMatchADirectComputation)
{
    const uint32_t seed = 31;
    std::mt19937 rng(seed);
    for (bool isSigned : {false, true}) {
        const int32_t W = 203, H = 67;
        const size_t bytes = allocationSize(YUV_p420, 8, W, H);
        std::vector<uint8_t> a(bytes), b(bytes), dst(bytes, 0);
        for (size_t i = 0; i < bytes; ++i) a[i] = uint8_t(rng()), b[i] = uint8_t(i % 5 ? a[i] : rng());
        DifferencePicture d;
        d.setup(YUV_p420, W, H, W, 8, isSigned);
        d.compute(a.data(), b.data(), dst.data());
        const int64_t cw = W / 2, ch = (H + 1) / 2, uStart = int64_t(W) * H, vStart = uStart + cw * ch - cw / 2;
        const int64_t starts[3] = {0, uStart, vStart}, cols[3] = {W, cw, cw}, rows[3] = {H, ch, ch};
        for (int k = 0; k < 3; ++k) {
            double sum = 0;
            int32_t fx = -1, fy = -1;
            for (int64_t r = 0; r < rows[k]; ++r)
                for (int64_t c = 0; c < cols[k]; ++c) {
                    const size_t i = size_t(starts[k] + r * cols[k] + c);
                    const int32_t va = isSigned ? int8_t(a[i]) : a[i], vb = isSigned ? int8_t(b[i]) : b[i];
                    const int32_t diff = va - vb;
                    sum += double(diff) * diff;
                    if (diff && fx < 0) fx = int32_t(c), fy = int32_t(r);
                    // (V's first half-row is U's last: the same samples, so the same result)
                    ASSERT_EQ(dst[i], d.table()[size_t(std::clamp(diff + 128, 0, 255))]) << k << ' ' << i;
                }
            const double count = k == 0 ? double(W) * H : double(W / 2) * (H / 2);
            EXPECT_DOUBLE_EQ(d.mse[k], sum / count) << k << " seed " << seed;
            EXPECT_EQ(d.firstDiffX[k], fx) << k;
            EXPECT_EQ(d.firstDiffY[k], fy) << k;
        }
    }
}
