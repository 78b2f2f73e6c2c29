#include "pixel/PatternGenerator.h"
#include "formats/FrameSize.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

using namespace kavri;

namespace {

std::vector<uint8_t> frameOf(const PatternSpec &s, uint64_t frame)
{
    std::vector<uint8_t> b(patternFrameBytes(s));
    EXPECT_TRUE(writePatternFrame(s, frame, b.data(), b.size())) << patternSpecError(s);
    return b;
}

PatternSpec pat(videoFormat_t f, int w, int h, int bits = 8, int container = 8)
{
    PatternSpec s;
    s.layout = f;
    s.width = w;
    s.height = h;
    s.bits = f == YUV_v210 ? 10 : bits;
    s.containerBits = container;
    return s;
}

uint32_t word16(const std::vector<uint8_t> &b, size_t sample) { return b[2 * sample] | b[2 * sample + 1] << 8; }

int comp(const PatternPixel &p, int k) { return k == 0 ? p.c1 : k == 1 ? p.c2 : k == 2 ? p.c3 : p.alpha; }
int letterComponent(std::string_view l) { return l == "R" ? 0 : l == "G" ? 1 : 2; }

// ---- sizes: every layout, container and awkward size writes exactly frameBytes and nothing more ----

TEST(PatternGenerator, WritesExactlyFrameBytesForEveryLayout)
{
    const int sizes[][2] = {{16, 8}, {7, 5}, {1, 1}, {6, 2}, {13, 3}, {50, 9}, {2, 7}};
    for (const LayoutInfo &info : coreLayouts())
        for (int container : {8, 16})
            for (const auto &wh : sizes) {
                PatternSpec s = pat(info.value, wh[0], wh[1], container == 8 ? 8 : 12, container);
                const uint32_t expected = frameBytes(info.value, container, wh[0], wh[1]);
                const std::string name = std::string(info.shortName) + " " + std::to_string(wh[0]) + "x" +
                                         std::to_string(wh[1]) + " c" + std::to_string(container);
                ASSERT_EQ(patternFrameBytes(s), expected) << name;
                // Guard bytes after the frame show any write past its end.
                std::vector<uint8_t> buf(expected + 64, 0xA5);
                ASSERT_TRUE(writePatternFrame(s, 3, buf.data(), expected)) << name;
                for (size_t i = expected; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xA5) << name << " byte " << i;
            }
}

TEST(PatternGenerator, RefusesWhatItCannotWrite)
{
    struct Case {
        const char *name;
        PatternSpec s;
    };
    std::vector<Case> cases;
    auto add = [&](const char *name, auto edit) {
        PatternSpec s = pat(YUV_p420, 16, 16);
        edit(s);
        cases.push_back({name, s});
    };
    add("layout 0", [](PatternSpec &s) { s.layout = FMT_UNKNOWN; });
    add("layout past the table", [](PatternSpec &s) { s.layout = videoFormat_t(kLayoutCount + 1); });
    add("width 0", [](PatternSpec &s) { s.width = 0; });
    add("negative height", [](PatternSpec &s) { s.height = -4; });
    add("0 bits", [](PatternSpec &s) { s.bits = 0; });
    add("17 bits", [](PatternSpec &s) {
        s.bits = 17;
        s.containerBits = 16;
    });
    add("container 12", [](PatternSpec &s) { s.containerBits = 12; });
    add("container narrower than depth", [](PatternSpec &s) { s.bits = 10; });
    add("v210 at 8 bits", [](PatternSpec &s) {
        s.layout = YUV_v210;
        s.bits = 8;
    });
    add("v210 signed", [](PatternSpec &s) {
        s.layout = YUV_v210;
        s.bits = 10;
        s.isSigned = true;
    });
    add("rate 0", [](PatternSpec &s) { s.rate = 0; });
    add("over 4 GiB", [](PatternSpec &s) {
        s.layout = RGBA_i444;
        s.width = s.height = 40000;
        s.containerBits = 16;
    });
    for (const Case &c : cases) {
        EXPECT_FALSE(patternSpecError(c.s).empty()) << c.name;
        uint8_t byte = 0x5A;
        EXPECT_FALSE(writePatternFrame(c.s, 0, &byte, 1)) << c.name;
        EXPECT_EQ(byte, 0x5A) << c.name;
    }
    PatternSpec ok = pat(YUV_p420, 16, 16);
    std::vector<uint8_t> shortBuf(patternFrameBytes(ok) - 1, 0x5A);
    EXPECT_FALSE(writePatternFrame(ok, 0, shortBuf.data(), shortBuf.size()));
    EXPECT_EQ(shortBuf[0], 0x5A);
}

// ---- determinism and motion ----

TEST(PatternGenerator, SameArgumentsSameBytesAndFramesDiffer)
{
    for (const LayoutInfo &info : coreLayouts()) {
        const PatternSpec s = pat(info.value, 64, 36, 8, 8);
        EXPECT_EQ(frameOf(s, 5), frameOf(s, 5)) << info.shortName;
        EXPECT_NE(frameOf(s, 5), frameOf(s, 6)) << info.shortName;
    }
}

TEST(PatternGenerator, BlockMovesAtTheGivenRate)
{
    // The block crosses in four seconds: frame 0 and frame 4*rate sit at the left, half way is further right.
    PatternSpec s = pat(RGB_i444, 160, 80);
    s.rate = 10;
    auto blockLeft = [&](uint64_t f) {
        for (int x = 1; x < s.width; ++x) {
            const PatternPixel p = patternPixel(s, f, x, s.height / 4);
            if (p.c1 == 255 && p.c2 == 128 && p.c3 == 0) return x;
        }
        return -1;
    };
    EXPECT_EQ(blockLeft(0), blockLeft(40));
    EXPECT_GT(blockLeft(20), blockLeft(0) + 40);
}

// ---- sample values: known colours at every depth ----

TEST(PatternGenerator, BarsAtEveryDepth)
{
    // The red bar (sixth of eight) and the white bar, half way down the bars.
    for (int bits = 1; bits <= 16; ++bits) {
        const PatternSpec rgb = pat(RGB_planar, 64, 32, bits, bits <= 8 ? 8 : 16);
        const int max = (1 << bits) - 1;
        const PatternPixel red = patternPixel(rgb, 0, 64 * 5 / 8 + 2, 12);
        EXPECT_EQ(red.c1, max) << bits;
        EXPECT_EQ(red.c2, 0) << bits;
        EXPECT_EQ(red.c3, 0) << bits;
        const PatternSpec yuv = pat(YUV_p444, 64, 32, bits, bits <= 8 ? 8 : 16);
        const PatternPixel white = patternPixel(yuv, 0, 4, 12);
        EXPECT_EQ(white.c1, max) << bits;
        EXPECT_EQ(white.c2, 1 << (bits - 1)) << bits;
        EXPECT_EQ(white.c3, 1 << (bits - 1)) << bits;
    }
}

TEST(PatternGenerator, SamplesStayWithinTheDepth)
{
    for (int bits : {1, 4, 9, 10, 12, 15}) {
        const PatternSpec s = pat(YUV_p444, 33, 17, bits, bits <= 8 ? 8 : 16);
        const std::vector<uint8_t> b = frameOf(s, 2);
        for (size_t i = 0; i < b.size(); i += (bits <= 8 ? 1 : 2)) {
            const uint32_t v = bits <= 8 ? b[i] : word16(b, i / 2);
            ASSERT_LE(v, uint32_t((1 << bits) - 1)) << bits << " bits, byte " << i;
        }
    }
}

// ---- storage order ----

TEST(PatternGenerator, PlanarYuvPlanes)
{
    struct Case {
        videoFormat_t f;
        int sx, sy;
    } cases[] = {{YUV_p420, 1, 1}, {YUV_p422, 1, 0}, {YUV_p444, 0, 0}, {YUV_p410, 2, 1}, {YUV_p411, 2, 0}};
    for (const Case &c : cases) {
        const int w = 32, h = 16, cw = w >> c.sx, ch = h >> c.sy;
        const PatternSpec s = pat(c.f, w, h, 10, 16);
        const std::vector<uint8_t> b = frameOf(s, 7);
        for (int y = 0; y < h; y += 3)
            for (int x = 0; x < w; x += 5) {
                const PatternPixel p = patternPixel(s, 7, x, y);
                ASSERT_EQ(word16(b, size_t(y * w + x)), uint32_t(p.c1)) << c.f;
                const size_t ci = size_t((y >> c.sy) * cw + (x >> c.sx));
                ASSERT_EQ(word16(b, size_t(w * h) + ci), uint32_t(p.c2)) << c.f;
                ASSERT_EQ(word16(b, size_t(w * h + cw * ch) + ci), uint32_t(p.c3)) << c.f;
            }
    }
}

TEST(PatternGenerator, OddHeight420StartsVHalfAChromaRowEarly)
{
    const int w = 8, h = 5; // 3 chroma rows of 4; V at 40 + 12 - 2, the frame ends at 60
    const PatternSpec s = pat(YUV_p420, w, h);
    const std::vector<uint8_t> b = frameOf(s, 0);
    ASSERT_EQ(b.size(), 60u);
    EXPECT_EQ(b[50], patternPixel(s, 0, 0, 0).c3);
    EXPECT_EQ(b[50 + 4 + 1], patternPixel(s, 0, 2, 2).c3);
    EXPECT_EQ(b[40 + 4], patternPixel(s, 0, 0, 2).c2);
}

TEST(PatternGenerator, InterlacedChromaRowsBelongToFields)
{
    PatternSpec s = pat(YUV_p420, 16, 16);
    s.interlaced = true;
    const std::vector<uint8_t> b = frameOf(s, 0);
    // Chroma row 1 is the first of the bottom field: it carries the colour of luma row 1.
    for (int cx = 0; cx < 8; ++cx) EXPECT_EQ(b[256 + 8 + cx], patternPixel(s, 0, 2 * cx, 1).c2);
    // Rows 5 and 7 are both of the bottom field's second pair: chroma row 3.
    for (int y : {5, 7}) EXPECT_EQ(patternPixel(s, 0, 3, y).c2, b[256 + 3 * 8 + 1]) << y;
}

TEST(PatternGenerator, PackedOrders)
{
    const int w = 16, h = 4;
    for (videoFormat_t f : {YUV_uyvy, YUV_yuyv, YUV_yuy2}) {
        const PatternSpec s = pat(f, w, h);
        const std::vector<uint8_t> b = frameOf(s, 1);
        for (int y = 0; y < h; ++y)
            for (int u = 0; u < w / 2; ++u) {
                const PatternPixel p0 = patternPixel(s, 1, 2 * u, y), p1 = patternPixel(s, 1, 2 * u + 1, y);
                const uint8_t *q = &b[size_t((y * (w / 2) + u) * 4)];
                const int expected[2][4] = {{p0.c2, p0.c1, p0.c3, p1.c1}, {p0.c1, p0.c2, p1.c1, p0.c3}};
                for (int k = 0; k < 4; ++k) ASSERT_EQ(q[k], expected[f == YUV_uyvy ? 0 : 1][k]) << f << " k " << k;
            }
    }
}

TEST(PatternGenerator, Nv12InterleavesUThenV)
{
    const int w = 12, h = 6;
    const PatternSpec s = pat(YUV_nv12, w, h);
    const std::vector<uint8_t> b = frameOf(s, 2);
    for (int cy = 0; cy < h / 2; ++cy)
        for (int cx = 0; cx < w / 2; ++cx) {
            const PatternPixel p = patternPixel(s, 2, 2 * cx + 1, 2 * cy + 1);
            EXPECT_EQ(b[size_t(w * h + cy * w + 2 * cx)], p.c2);
            EXPECT_EQ(b[size_t(w * h + cy * w + 2 * cx + 1)], p.c3);
        }
}

TEST(PatternGenerator, V210WordsAndRowPadding)
{
    const int w = 12, h = 3; // two groups, 32 bytes of a 128-byte row
    const PatternSpec s = pat(YUV_v210, w, h);
    const std::vector<uint8_t> b = frameOf(s, 4);
    ASSERT_EQ(b.size(), 128u * 3);
    auto f = [](uint32_t word, int shift) { return int((word >> shift) & 0x3ff); };
    for (int y = 0; y < h; ++y) {
        for (int g = 0; g < 2; ++g) {
            uint32_t wd[4];
            for (int k = 0; k < 4; ++k) {
                const uint8_t *q = &b[size_t(y * 128 + 16 * g + 4 * k)];
                wd[k] = uint32_t(q[0]) | uint32_t(q[1]) << 8 | uint32_t(q[2]) << 16 | uint32_t(q[3]) << 24;
                EXPECT_EQ(wd[k] >> 30, 0u);
            }
            PatternPixel p[6];
            for (int i = 0; i < 6; ++i) p[i] = patternPixel(s, 4, 6 * g + i, y);
            EXPECT_EQ(f(wd[0], 0), p[0].c2);
            EXPECT_EQ(f(wd[0], 10), p[0].c1);
            EXPECT_EQ(f(wd[0], 20), p[0].c3);
            EXPECT_EQ(f(wd[1], 0), p[1].c1);
            EXPECT_EQ(f(wd[1], 10), p[2].c2);
            EXPECT_EQ(f(wd[1], 20), p[2].c1);
            EXPECT_EQ(f(wd[2], 0), p[2].c3);
            EXPECT_EQ(f(wd[2], 10), p[3].c1);
            EXPECT_EQ(f(wd[2], 20), p[4].c2);
            EXPECT_EQ(f(wd[3], 0), p[4].c1);
            EXPECT_EQ(f(wd[3], 10), p[4].c3);
            EXPECT_EQ(f(wd[3], 20), p[5].c1);
        }
        for (int i = 32; i < 128; ++i) ASSERT_EQ(b[size_t(y * 128 + i)], 0) << "padding byte " << i;
    }
    // A known white: the bars start white, full-range 10-bit white is Y 1023 with chroma at 512.
    const PatternSpec tall = pat(YUV_v210, 48, 16);
    const PatternPixel white = patternPixel(tall, 0, 4, 7);
    EXPECT_EQ(white.c1, 1023);
    EXPECT_EQ(white.c2, 512);
    EXPECT_EQ(white.c3, 512);
}

TEST(PatternGenerator, RgbLayoutsFollowTheirLetters)
{
    const int w = 10, h = 6;
    for (const LayoutInfo &info : coreLayouts()) {
        if (info.kind != LayoutKind::InterleavedRgb && info.kind != LayoutKind::PlanarRgb) continue;
        const PatternSpec s = pat(info.value, w, h, 12, 16);
        const std::vector<uint8_t> b = frameOf(s, 9);
        const bool planar = info.kind == LayoutKind::PlanarRgb;
        const int n = info.samplesPerPixel;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const PatternPixel p = patternPixel(s, 9, x, y);
                ASSERT_EQ(p.alpha >= 0, info.hasAlpha) << info.shortName;
                const size_t i = size_t(y * w + x);
                for (int k = 0; k < n; ++k) {
                    const int c = k < 3 ? letterComponent(info.letters[size_t(k)]) : 3;
                    const size_t at = planar ? size_t(k) * size_t(w * h) + i : i * size_t(n) + size_t(k);
                    ASSERT_EQ(word16(b, at), uint32_t(comp(p, c))) << info.shortName << " position " << k;
                }
            }
    }
    // The alpha plane is not constant: it ramps down the picture.
    const PatternSpec s = pat(GBRA_planar, w, h);
    EXPECT_GT(patternPixel(s, 0, 3, 1).alpha, patternPixel(s, 0, 3, 4).alpha);
}

// ---- containers: LSB-aligned, big-endian, signed ----

TEST(PatternGenerator, BigEndianSwapsEveryWordAndNothingElse)
{
    for (videoFormat_t f : {YUV_p420, YUV_uyvy, RGBA_planar, BW}) {
        PatternSpec s = pat(f, 14, 6, 10, 16);
        const std::vector<uint8_t> le = frameOf(s, 3);
        s.bigEndian = true;
        const std::vector<uint8_t> be = frameOf(s, 3);
        ASSERT_EQ(le.size(), be.size());
        for (size_t i = 0; i + 1 < le.size(); i += 2) {
            ASSERT_EQ(be[i], le[i + 1]) << f << " word " << i / 2;
            ASSERT_EQ(be[i + 1], le[i]) << f << " word " << i / 2;
        }
        // LSB-aligned: a 10-bit value leaves the top six bits of the little-endian word clear.
        for (size_t i = 1; i < le.size(); i += 2) ASSERT_LE(le[i], 3) << f;
    }
}

TEST(PatternGenerator, SignedSamplesAreCentredTwosComplement)
{
    struct Case {
        int bits, container;
    } cases[] = {{8, 8}, {5, 8}, {10, 16}, {16, 16}, {1, 8}};
    for (const Case &c : cases) {
        PatternSpec s = pat(YUV_p422, 20, 8, c.bits, c.container);
        const std::vector<uint8_t> u = frameOf(s, 1);
        s.isSigned = true;
        const std::vector<uint8_t> sg = frameOf(s, 1);
        const int half = 1 << (c.bits - 1);
        for (size_t i = 0; i < u.size() / (c.container / 8); ++i) {
            const int value = c.container == 8 ? u[i] : int(word16(u, i));
            const int stored = c.container == 8 ? int(int8_t(sg[i])) : int(int16_t(word16(sg, i)));
            ASSERT_EQ(stored, value - half) << c.bits << " bits, sample " << i;
        }
        EXPECT_EQ(patternStoredValue(s, half + 3), 3);
    }
    // The extremes: white luma is the largest positive value, black the most negative.
    PatternSpec s = pat(YUV_p444, 64, 32, 8, 8);
    s.isSigned = true;
    const std::vector<uint8_t> b = frameOf(s, 0);
    EXPECT_EQ(int8_t(b[12 * 64 + 4]), 127);               // white bar
    EXPECT_EQ(int8_t(b[12 * 64 + 64 * 7 / 8 + 2]), -128); // black bar
}

} // namespace
