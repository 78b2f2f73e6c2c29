// The pixel descriptors: the generic reader against the original readout, and every layout after the 27
// written by the pattern generator and read back through the unpack, the pack, the readout and the
// pipeline. The cases are generated from the descriptor table, so a new row is tested by being added.
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/NativeReadout.h"
#include "pixel/PatternGenerator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

std::string nameOf(int32_t v) { return std::string(layoutInfo(videoFormat_t(v)).shortName); }

struct Depth {
    int32_t bits, container;
    bool isSigned, bigEndian;
};

// The depths a layout is tried in: its own when it names one, otherwise 8-bit, 10-bit in 16-bit words
// (also signed and big-endian) and 16-bit.
std::vector<Depth> depthsOf(int32_t v)
{
    const PixelDescriptor &d = *pixelDescriptor(v);
    if (d.fixedDepth) {
        std::vector<Depth> r = {{d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, false}};
        if (d.wordBytes > 1) r.push_back({d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, true});
        return r;
    }
    return {{8, 8, false, false},
            {10, 16, false, false},
            {10, 16, true, false},
            {12, 16, false, true},
            {16, 16, false, false}};
}

PatternSpec specOf(int32_t v, int32_t w, int32_t h, const Depth &dp)
{
    PatternSpec s;
    s.layout = videoFormat_t(v);
    s.width = w;
    s.height = h;
    s.bits = dp.bits;
    s.containerBits = dp.container;
    s.isSigned = dp.isSigned;
    s.bigEndian = dp.bigEndian;
    return s;
}

int32_t stored(const PatternSpec &s, int32_t value, int32_t depth)
{
    return s.isSigned ? value - (1 << (depth - 1)) : value;
}

} // namespace

// The original readout and the descriptor's generic reader agree on every sample of the 27 layouts, at
// sizes whose byte counts are not truncated. The readout's deliberate differences are named here.
TEST(PixelDescriptor, GenericReaderAgreesWithTheOriginalReadout)
{
    for (int v = 1; v <= kCoreLayoutCount; ++v) {
        // The 4:2:2 readout addresses its chroma as planes W samples wide and H/2 rows high.
        if (v == YUV_p422) continue;
        const PixelDescriptor &d = *pixelDescriptor(v);
        for (const Depth &dp : {Depth{8, 8, false, false}, Depth{10, 16, false, false}}) {
            // The interleaved RGBA readouts give no value above 8 bits.
            if ((v == RGBA_i444 || v == BGRA_i444) && dp.bits > 8) continue;
            PatternSpec s = specOf(v, 24, 8, v == YUV_v210 ? Depth{10, 16, false, false} : dp);
            SCOPED_TRACE(nameOf(v) + " " + std::to_string(s.bits));
            const uint32_t bytes = patternFrameBytes(s);
            const PlaneLayout pl = planeLayout(d, s.containerBits, s.width, s.height);
            EXPECT_EQ(pl.frameBytes, int64_t(bytes));
            std::vector<uint8_t> f(bytes);
            ASSERT_TRUE(writePatternFrame(s, 3, f.data(), f.size()));
            for (int32_t y = 0; y < s.height; ++y)
                for (int32_t x = 0; x < s.width; ++x) {
                    StoredSample want;
                    ASSERT_TRUE(readStored(f.data(), bytes, s.layout, s.width, s.height, s.bits, false, x, y, want));
                    const bool planarRgb = layoutInfo(s.layout).kind == LayoutKind::PlanarRgb;
                    for (int k = 0; k < d.components && k < 3; ++k) {
                        const bool chroma = k > 0 && (d.log2ChromaW || d.log2ChromaH);
                        uint32_t got = 0;
                        ASSERT_TRUE(readComponent(d, pl, f.data(), bytes, false, k, s.bits,
                                                  chroma ? x >> d.log2ChromaW : x, chroma ? y >> d.log2ChromaH : y,
                                                  got));
                        // Planar RGB reads out in plane order; the descriptor names R, G, B.
                        EXPECT_EQ(int32_t(got), want.c[planarRgb ? d.comp[size_t(k)].plane : k]) << x << "," << y;
                    }
                }
        }
    }
}

TEST(DescribedLayouts, PatternReadsBackThroughUnpackPackReadoutAndPipeline)
{
    const int32_t sizes[][2] = {{16, 8}, {17, 9}, {2, 2}, {1, 1}, {66, 34}, {3, 5}};
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v) {
        const PixelDescriptor &d = *pixelDescriptor(v);
        for (const Depth &dp : depthsOf(v))
            for (const auto &sz : sizes) {
                const PatternSpec s = specOf(v, sz[0], sz[1], dp);
                SCOPED_TRACE(nameOf(v) + " " + std::to_string(s.width) + "x" + std::to_string(s.height) + " " +
                             std::to_string(s.bits) + (s.isSigned ? " signed" : "") + (s.bigEndian ? " BE" : ""));
                ASSERT_EQ(patternSpecError(s), "");
                const VideoProps rec = patternRecord(s);
                const uint32_t bytes = frameBytes(v, s.containerBits, s.width, s.height);
                ASSERT_GT(bytes, 0u);
                EXPECT_EQ(int64_t(bytes), planeLayout(d, s.containerBits, s.width, s.height).frameBytes);
                EXPECT_EQ(allocationSize(v, s.containerBits, s.width, s.height), bytes);
                std::vector<uint8_t> f(bytes);
                ASSERT_TRUE(writePatternFrame(s, 5, f.data(), f.size()));

                // A picture narrower than one chroma sample keeps no chroma in the canonical layout (as the
                // original layouts read none): only luma is compared there.
                const VideoProps canon = canonicalProps(rec);
                const bool noChroma = s.width < (1 << layoutInfo(canon.format).chromaShiftX);
                const int components = noChroma ? 1 : 3;
                // The readout of the stored bytes gives the pattern's values.
                for (int32_t y = 0; y < s.height; ++y)
                    for (int32_t x = 0; x < s.width; ++x) {
                        StoredSample got;
                        ASSERT_TRUE(readDescribed(rec, f.data(), bytes, x, y, got)) << x << "," << y;
                        const PatternPixel want = patternPixel(s, 5, x, y);
                        const int32_t cs[3] = {want.c1, want.c2, want.c3};
                        if (d.cfa != Cfa::None) {
                            EXPECT_EQ(got.c[0], stored(s, want.c1, s.bits)) << x << "," << y;
                            EXPECT_EQ(got.c[1], cfaColour(d.cfa, x, y));
                            continue;
                        }
                        for (int k = 0; k < components; ++k)
                            EXPECT_EQ(got.c[k], stored(s, cs[k], componentDepth(d, k, s.bits)))
                                << "component " << k << " at " << x << "," << y;
                        EXPECT_EQ(got.hasAlpha, d.components == 4);
                        if (d.components == 4) {
                            EXPECT_EQ(got.alpha, stored(s, want.alpha, componentDepth(d, 3, s.bits)));
                        }
                    }

                // The fast unpack equals the reference, on one thread and on the pool.
                EXPECT_TRUE(isCoreLayout(canon.format));
                const uint32_t canonBytes =
                    allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
                std::vector<uint8_t> ref(canonBytes, 0), fast1(canonBytes, 0), fastN(canonBytes, 0);
                unpackFrameReference(rec, f.data(), bytes, ref.data(), canonBytes);
                unpackFrame(rec, f.data(), bytes, fast1.data(), canonBytes, 1);
                unpackFrame(rec, f.data(), bytes, fastN.data(), canonBytes, 0);
                EXPECT_EQ(fast1, ref);
                EXPECT_EQ(fastN, ref);

                // Packing the unpacked samples gives the stored bytes back.
                std::vector<uint8_t> again(bytes, 0xee);
                ASSERT_TRUE(packFrame(rec, ref.data(), canonBytes, again.data(), bytes));
                EXPECT_EQ(again, f);

                // Through the pipeline: the samples are the unpacked ones, the readout the stored ones,
                // and the picture converts.
                FramePipeline pipe;
                pipe.setup(rec, true);
                ASSERT_EQ(pipe.frameBytes(), bytes);
                std::memcpy(pipe.readBuffer(FramePipeline::Buffer::First), f.data(), bytes);
                std::memcpy(pipe.readBuffer(FramePipeline::Buffer::Second), f.data(), bytes);
                pipe.toNative();
                EXPECT_EQ(0, std::memcmp(pipe.buffer(FramePipeline::Buffer::First), ref.data(), pipe.sampleBytes()));
                std::vector<uint8_t> rgb(size_t(s.width) * s.height * 4);
                ViewSettings first;
                first.view = 1;
                pipe.show(first, rgb.data());
                int32_t c1 = 0, c2 = 0, c3 = 0;
                ASSERT_TRUE(pipe.readout(s.width - 1, s.height - 1, c1, c2, c3, nullptr));
                StoredSample last;
                ASSERT_TRUE(readDescribed(rec, f.data(), bytes, s.width - 1, s.height - 1, last));
                EXPECT_EQ(c1, last.c[0]);
                // A file compared with itself differs nowhere.
                const DifferencePicture &diff = pipe.compare();
                for (int k = 0; k < components && k < (d.cfa != Cfa::None ? 1 : 3); ++k) EXPECT_EQ(diff.mse[k], 0.0);
            }
    }
}

// Values worked out by hand from the layouts' definitions.
TEST(DescribedLayouts, HandWorkedSamples)
{
    auto read = [](videoFormat_t layout, int32_t w, int32_t h, std::vector<uint8_t> bytes, int32_t x, int32_t y,
                   int32_t bits = 8) {
        VideoProps p;
        p.format = layout;
        p.width = w;
        p.height = h;
        p.bitDepth = bits;
        p.containerBits = bits > 8 ? 16 : 8;
        StoredSample s;
        EXPECT_TRUE(readDescribed(p, bytes.data(), int64_t(bytes.size()), x, y, s));
        return s;
    };
    // P010: white at 10 bits is 1023 << 6 = 0xffc0 in a little-endian word.
    {
        std::vector<uint8_t> f(2 * 2 * 2 + 2 * 2, 0);
        f[0] = 0xc0, f[1] = 0xff;                             // Y(0,0) = 1023
        f[8] = 0x40, f[9] = 0x80, f[10] = 0x00, f[11] = 0x20; // U = 0x8040 >> 6 = 513, V = 0x2000 >> 6 = 128
        const StoredSample s = read(YUV_p010, 2, 2, f, 0, 0, 10);
        EXPECT_EQ(s.c[0], 1023);
        EXPECT_EQ(s.c[1], 513);
        EXPECT_EQ(s.c[2], 128);
    }
    // NV21: the chroma pairs are V, U.
    {
        std::vector<uint8_t> f = {10, 11, 12, 13, 200, 100};
        const StoredSample s = read(YUV_nv21, 2, 2, f, 1, 1);
        EXPECT_EQ(s.c[0], 13);
        EXPECT_EQ(s.c[1], 100);
        EXPECT_EQ(s.c[2], 200);
    }
    // Y210: Y0 U Y1 V, 10 bits at the top of 16-bit words.
    {
        std::vector<uint8_t> f = {0x40, 0x00, 0x80, 0x00, 0xc0, 0x00, 0x00, 0x01};
        const StoredSample s = read(YUV_y210, 2, 1, f, 1, 0, 10);
        EXPECT_EQ(s.c[0], 3);
        EXPECT_EQ(s.c[1], 2);
        EXPECT_EQ(s.c[2], 4);
    }
    // X2RGB10: B in bits 0-9, G 10-19, R 20-29.
    {
        const uint32_t w = (1000u << 20) | (500u << 10) | 7u;
        std::vector<uint8_t> f = {uint8_t(w), uint8_t(w >> 8), uint8_t(w >> 16), uint8_t(w >> 24)};
        const StoredSample s = read(RGB_x2rgb10, 1, 1, f, 0, 0, 10);
        EXPECT_EQ(s.c[0], 1000);
        EXPECT_EQ(s.c[1], 500);
        EXPECT_EQ(s.c[2], 7);
    }
    // RGB565 reads out its stored 5/6/5 values; the unpack widens them to 8 bits by repeating top bits.
    {
        const uint16_t w = uint16_t((0x10 << 11) | (0x3f << 5) | 0x01);
        std::vector<uint8_t> f = {uint8_t(w), uint8_t(w >> 8)};
        const StoredSample s = read(RGB_565, 1, 1, f, 0, 0);
        EXPECT_EQ(s.c[0], 0x10);
        EXPECT_EQ(s.c[1], 0x3f);
        EXPECT_EQ(s.c[2], 0x01);
        VideoProps p;
        p.format = RGB_565;
        p.width = p.height = 1;
        p.bitDepth = 8;
        p.containerBits = 8;
        std::vector<uint8_t> planes(3, 0);
        unpackFrame(p, f.data(), 2, planes.data(), 3, 1);
        EXPECT_EQ(planes, (std::vector<uint8_t>{0x84, 0xff, 0x08}));
    }
    // MIPI RAW10: four high bytes, then the low bits of samples 0..3 from the bottom of the fifth byte.
    {
        std::vector<uint8_t> f = {0x12, 0x34, 0x56, 0x78, 0xe4};
        for (int x = 0; x < 4; ++x) {
            const StoredSample s = read(BAYER_rggb10p, 4, 1, f, x, 0, 10);
            EXPECT_EQ(s.c[0], (int32_t(f[size_t(x)]) << 2) | x) << x;
        }
    }
}

// A mosaic of a flat colour demosaics to that colour everywhere, edges included; a hand-worked interior
// pixel takes the means of its neighbours.
TEST(DescribedLayouts, BilinearDemosaic)
{
    for (Cfa cfa : {Cfa::RGGB, Cfa::BGGR, Cfa::GRBG, Cfa::GBRG}) {
        const int32_t W = 7, H = 5;
        VideoProps p;
        p.width = W;
        p.height = H;
        p.bitDepth = 8;
        p.containerBits = 8;
        const uint8_t colour[3] = {200, 120, 40};
        std::vector<uint8_t> m(size_t(W) * H), rgb(size_t(W) * H * 3);
        for (int32_t y = 0; y < H; ++y)
            for (int32_t x = 0; x < W; ++x) m[size_t(y * W + x)] = colour[cfaColour(cfa, x, y)];
        demosaicBilinear(cfa, p, m.data(), rgb.data(), 1);
        for (int c = 0; c < 3; ++c)
            for (int32_t i = 0; i < W * H; ++i)
                ASSERT_EQ(rgb[size_t(c * W * H + i)], colour[c]) << int(cfa) << " " << i;
    }
    // RGGB, pixel (1, 1) is blue: red from the four diagonals, green from the four sides.
    const int32_t W = 4, H = 4;
    VideoProps p;
    p.width = W;
    p.height = H;
    p.bitDepth = 8;
    p.containerBits = 8;
    std::vector<uint8_t> m(16), rgb(48);
    for (int i = 0; i < 16; ++i) m[size_t(i)] = uint8_t(10 * i);
    demosaicBilinear(Cfa::RGGB, p, m.data(), rgb.data(), 1);
    EXPECT_EQ(rgb[5], (0 + 20 + 80 + 100 + 2) / 4);      // R
    EXPECT_EQ(rgb[16 + 5], (10 + 40 + 60 + 90 + 2) / 4); // G
    EXPECT_EQ(rgb[32 + 5], 50);                          // B
}

// A record whose planes have strides and offsets of their own reads exactly as the packed file: the same
// samples after the read, the same readout, the same picture. Every layout, at a size without the
// original layouts' odd-size quirks.
TEST(PlaneGeometry, StridedPlanesReadAsThePackedFrame)
{
    for (int v = 1; v <= kLayoutCount; ++v) {
        const PixelDescriptor &d = *pixelDescriptor(v);
        const Depth dp = depthsOf(v).back();
        PatternSpec s = specOf(v, 24, 8, v == YUV_v210 ? Depth{10, 16, false, false} : dp);
        SCOPED_TRACE(nameOf(v));
        const VideoProps packedRec = patternRecord(s);
        const PlaneLayout packed = planeLayout(d, s.containerBits, s.width, s.height);
        ASSERT_EQ(packed.frameBytes, int64_t(patternFrameBytes(s)));
        std::vector<uint8_t> frame(size_t(packed.frameBytes));
        ASSERT_TRUE(writePatternFrame(s, 2, frame.data(), frame.size()));

        // Rows padded by 64 bytes, planes in reverse order after a 100-byte gap.
        VideoProps strided = packedRec;
        for (int p = 0; p < packed.planes; ++p)
            strided.planeStride[size_t(p)] = uint32_t(packed.rowBytes[size_t(p)] + 64);
        uint64_t at = 100;
        for (int p = packed.planes - 1; p >= 0; --p) {
            strided.planeOffset[size_t(p)] = at;
            at += uint64_t(strided.planeStride[size_t(p)]) * uint64_t(packed.rows[size_t(p)]);
        }
        const PlaneLayout sl =
            planeLayout(d, s.containerBits, s.width, s.height, strided.planeStride, strided.planeOffset);
        ASSERT_EQ(uint64_t(sl.frameBytes), at);
        EXPECT_EQ(recordFrameBytes(strided), at);
        std::vector<uint8_t> stored(size_t(sl.frameBytes), 0xab);
        for (int p = 0; p < packed.planes; ++p)
            for (int32_t r = 0; r < packed.rows[size_t(p)]; ++r)
                std::memcpy(stored.data() + sl.start[size_t(p)] + r * sl.rowBytes[size_t(p)],
                            frame.data() + packed.start[size_t(p)] + r * packed.rowBytes[size_t(p)],
                            size_t(packed.rowBytes[size_t(p)]));

        FramePipeline a, b;
        a.setup(packedRec, false);
        b.setup(strided, false);
        ASSERT_EQ(b.frameBytes(), stored.size());
        std::memcpy(a.readBuffer(FramePipeline::Buffer::First), frame.data(), frame.size());
        std::memcpy(b.readBuffer(FramePipeline::Buffer::First), stored.data(), stored.size());
        a.toNative();
        b.toNative();
        ASSERT_EQ(a.props().format, b.props().format);
        ASSERT_EQ(a.sampleBytes(), b.sampleBytes());
        EXPECT_EQ(0, std::memcmp(a.buffer(FramePipeline::Buffer::First), b.buffer(FramePipeline::Buffer::First),
                                 a.sampleBytes()));
        std::vector<uint8_t> ra(size_t(s.width) * s.height * 4), rb(ra.size());
        a.show(ViewSettings{}, ra.data());
        b.show(ViewSettings{}, rb.data());
        EXPECT_EQ(ra, rb);
        for (int32_t y = 0; y < s.height; ++y)
            for (int32_t x = 0; x < s.width; ++x) {
                int32_t a1 = 0, a2 = 0, a3 = 0, b1 = 0, b2 = 0, b3 = 0;
                ASSERT_EQ(a.readout(x, y, a1, a2, a3, nullptr), b.readout(x, y, b1, b2, b3, nullptr));
                EXPECT_EQ(a1, b1);
                EXPECT_EQ(a2, b2);
                EXPECT_EQ(a3, b3);
            }
    }
}

TEST(PlaneGeometry, StridesShorterThanARowAreRefused)
{
    const PixelDescriptor &d = *pixelDescriptor(YUV_p420);
    EXPECT_EQ(planeLayout(d, 8, 6, 4, {8, 4, 4, 0}, {}).frameBytes, 32 + 8 + 8);
    EXPECT_EQ(planeLayout(d, 8, 6, 4, {8, 4, 4, 0}, {0, 64, 80, 0}).frameBytes, 88);
    EXPECT_EQ(planeLayout(d, 8, 6, 4, {5, 0, 0, 0}, {}).frameBytes, 0);
    EXPECT_EQ(planeLayout(d, 16, 6, 4, {8, 0, 0, 0}, {}).frameBytes, 0); // 12 bytes a 16-bit row
    VideoProps p;
    p.format = YUV_p420;
    p.width = 6;
    p.height = 4;
    p.containerBits = 8;
    EXPECT_EQ(recordFrameBytes(p), 36u);
    p.planeStride = {5, 0, 0, 0};
    EXPECT_EQ(recordFrameBytes(p), 0u);
}

// The row-wise pack writes what the sample-by-sample reference writes, for every described layout, its
// depths and odd sizes, also from canonical samples that do not come from an unpack (every bit set).
TEST(DescribedLayouts, PackEqualsTheReferencePack)
{
    const int32_t sizes[][2] = {{16, 8}, {17, 9}, {1, 1}, {3, 5}, {66, 33}};
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v)
        for (const Depth &dp : depthsOf(v))
            for (const auto &sz : sizes) {
                const PatternSpec s = specOf(v, sz[0], sz[1], dp);
                if (!patternSpecError(s).empty()) continue;
                SCOPED_TRACE(nameOf(v) + " " + std::to_string(s.width) + "x" + std::to_string(s.height) + " " +
                             std::to_string(s.bits) + (s.isSigned ? " signed" : "") + (s.bigEndian ? " BE" : ""));
                const VideoProps rec = patternRecord(s);
                const uint32_t bytes = frameBytes(v, s.containerBits, s.width, s.height);
                std::vector<uint8_t> f(bytes);
                ASSERT_TRUE(writePatternFrame(s, 5, f.data(), f.size()));
                const VideoProps canon = canonicalProps(rec);
                const uint32_t canonBytes =
                    allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
                std::vector<uint8_t> samples(canonBytes, 0);
                unpackFrameReference(rec, f.data(), bytes, samples.data(), canonBytes);
                for (const bool ones : {false, true}) {
                    if (ones) samples.assign(canonBytes, 0xff);
                    std::vector<uint8_t> want(bytes, 0x11), got(bytes, 0x22);
                    const bool wrote = packFrameReference(rec, samples.data(), canonBytes, want.data(), bytes);
                    EXPECT_EQ(packFrame(rec, samples.data(), canonBytes, got.data(), bytes), wrote);
                    if (wrote) {
                        EXPECT_EQ(got, want) << (ones ? "all bits set" : "pattern");
                    }
                }
            }
}
