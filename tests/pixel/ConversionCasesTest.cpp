// Hand-computed conversion results per layout family, the tone curve and the deinterlace filter.
#include "PixelOracle.h"

#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"

#include <gtest/gtest.h>

using namespace kavri;
using namespace kavri::test;
using ColorConversion::X2RGBColorConv;

namespace {

constexpr uint8_t kMarker = 0xEE;

struct Frame {
    ConvCase c;
    std::vector<uint8_t> bytes;
    explicit Frame(const ConvCase &cc) : c(cc), bytes(allocationSize(cc.layout, cc.container, cc.width, cc.height)) {}
    void set(int64_t sample, int32_t value) { putSample(bytes, c.container, sample, value); }
    void fill(int64_t from, int64_t count, int32_t value)
    {
        for (int64_t i = 0; i < count; ++i) set(from + i, value);
    }
};

struct Rgb {
    int r, g, b;
    bool operator==(const Rgb &o) const { return r == o.r && g == o.g && b == o.b; }
};
std::ostream &operator<<(std::ostream &s, const Rgb &p) { return s << '(' << p.r << ',' << p.g << ',' << p.b << ')'; }

std::vector<uint8_t> convert(Frame &f, int32_t selection = 0)
{
    X2RGBColorConv conv;
    VideoProps p;
    p.width = f.c.width;
    p.height = f.c.height;
    p.format = f.c.layout;
    p.bitDepth = f.c.bits;
    p.containerBits = f.c.container;
    p.flipped = f.c.flip;
    p.toggleEndianness = f.c.bigEndian;
    p.swapUV = f.c.swapUV;
    p.interlaced = f.c.interlaced;
    conv.setDescription(p);
    conv.setUnsigned(!f.c.isSigned);
    conv.setChannelSelection(selection);
    conv.setToneCurve(f.c.brightness, f.c.contrast, f.c.gamma);
    std::vector<uint8_t> dst(size_t(f.c.width) * f.c.height * 4, kMarker);
    conv.convertFrame(f.bytes.data(), dst.data());
    return dst;
}

Rgb at(const std::vector<uint8_t> &dst, int32_t width, int32_t x, int32_t y)
{
    const uint8_t *px = &dst[(size_t(y) * width + x) * 4];
    return {px[2], px[1], px[0]};
}

ConvCase yuv(videoFormat_t f, int32_t w, int32_t h, int32_t bits = 8)
{
    ConvCase c;
    c.layout = f;
    c.width = w;
    c.height = h;
    c.bits = bits;
    c.container = bits > 8 ? 16 : 8;
    return c;
}

} // namespace

// Y, U, V given as one value per plane of a planar 4:2:0 frame: the grey point and the clamps.
TEST(ConversionCases, PlanarYuvValues)
{
    struct Case {
        const char *name;
        int bits, y, u, v;
        bool isSigned;
        Rgb expected;
    };
    const Case cases[] = {
        {"neutral grey 128 -> 129 (257/256 luma gain)", 8, 128, 128, 128, false, {129, 129, 129}},
        {"white clamps at 255", 8, 255, 128, 128, false, {255, 255, 255}},
        {"black", 8, 0, 128, 128, false, {0, 0, 0}},
        // red = (257*100 + 404*(200-128) + 2*(-28) + 128) >> 8 etc.
        {"colour", 8, 100, 100, 200, false, {214, 72, 48}},
        // 10 bits: offsets become -512, the rounding term stays 128: (257*512 + 128) >> 10 = 128.
        {"10-bit grey rounds down", 10, 512, 512, 512, false, {128, 128, 128}},
        {"10-bit white", 10, 1023, 512, 512, false, {255, 255, 255}},
        // signed: -128 + 128 = 0 and 0 + 128 = 128 before the matrix
        {"signed 8-bit extremes", 8, -128, 0, 0, true, {0, 0, 0}},
        {"signed 8-bit top", 8, 127, 0, 0, true, {255, 255, 255}},
        {"signed 10-bit grey", 10, 0, 0, 0, true, {128, 128, 128}},
        // 6 bits: up shift 2, offsets -32: (257*32 + 128) << 2 >> 8 = 129
        {"6-bit grey", 6, 32, 32, 32, false, {130, 130, 130}},
    };
    for (const Case &t : cases) {
        Frame f(yuv(YUV_p420, 4, 2, t.bits));
        f.c.isSigned = t.isSigned;
        f.fill(0, 8, t.y);
        f.fill(8, 2, t.u);
        f.fill(10, 2, t.v);
        const auto dst = convert(f);
        EXPECT_EQ(at(dst, 4, 3, 1), t.expected) << t.name;
        EXPECT_EQ(dst[3], kMarker) << t.name;
    }
}

TEST(ConversionCases, BigEndianSwapsInPlaceAndSwapsBackOnASecondConversion)
{
    Frame f(yuv(YUV_p420, 2, 2, 10));
    f.c.bigEndian = true;
    // 1023 stored big-endian: 0x03 0xFF
    for (int i = 0; i < 6; ++i) f.bytes[size_t(2 * i)] = 0x03, f.bytes[size_t(2 * i + 1)] = 0xFF;
    for (int i = 4; i < 6; ++i) f.bytes[size_t(2 * i)] = 0x02, f.bytes[size_t(2 * i + 1)] = 0x00; // chroma 512
    auto dst = convert(f);
    EXPECT_EQ(at(dst, 2, 0, 0), (Rgb{255, 255, 255}));
    EXPECT_EQ(f.bytes[0], 0xFF);
    EXPECT_EQ(f.bytes[1], 0x03);
    dst = convert(f); // the buffer is read as big-endian again: 0xFF03 = 65283, swapped back afterwards
    EXPECT_EQ(f.bytes[0], 0x03);
    EXPECT_EQ(f.bytes[1], 0xFF);
}

TEST(ConversionCases, OddHeightMovesThePlaneAndClearsTheLastRowMiddle)
{
    // 4x3 4:2:0: U at 12 (2 rows of 2), V at 12 + 4 - 1 = 15.
    Frame f(yuv(YUV_p420, 4, 3));
    f.fill(0, 12, 128);
    f.fill(12, 3, 128);
    f.fill(15, 4, 200);
    const auto dst = convert(f);
    // V = 200 from the moved plane start for both chroma rows (U = 128 from samples 12..14).
    EXPECT_EQ(at(dst, 4, 0, 0), (Rgb{242, 95, 128}));
    EXPECT_EQ(at(dst, 4, 3, 1), (Rgb{242, 95, 128}));
    EXPECT_EQ(at(dst, 4, 1, 2), (Rgb{242, 95, 128}));
    // Pixels W/2 .. 2*(W/2)-1 of the last row are all-zero bytes; the rest keep the fourth byte.
    for (int x = 2; x < 4; ++x) {
        const uint8_t *px = &dst[(size_t(2) * 4 + x) * 4];
        EXPECT_EQ(px[0] | px[1] | px[2] | px[3], 0) << x;
    }
    EXPECT_EQ(dst[(2 * 4 + 1) * 4 + 3], kMarker);
}

TEST(ConversionCases, SubsamplingSharesChroma)
{
    // 4:2:2 pixels 0 and 1 share a chroma sample, 4:4:4 pixels do not.
    Frame f422(yuv(YUV_p422, 2, 1));
    f422.bytes = {128, 128, 60, 200};
    auto d = convert(f422);
    EXPECT_EQ(at(d, 2, 0, 0), at(d, 2, 1, 0));
    Frame f444(yuv(YUV_p444, 2, 1));
    f444.bytes = {128, 128, 60, 128, 200, 128};
    d = convert(f444);
    EXPECT_NE(at(d, 2, 0, 0), at(d, 2, 1, 0));
}

TEST(ConversionCases, PlanarRgbOrders)
{
    // Planes hold 10, 20, 30 in storage order; red, green, blue come from the assigned planes
    // (BRG reads as G,B,R and GBR as B,R,G).
    struct Case {
        videoFormat_t f;
        Rgb expected;
    };
    const Case cases[] = {
        {RGB_planar, {10, 20, 30}},  {RGBA_planar, {10, 20, 30}}, {RBG_planar, {10, 30, 20}},
        {RBGA_planar, {10, 30, 20}}, {BGR_planar, {30, 20, 10}},  {BGRA_planar, {30, 20, 10}},
        {BRG_planar, {30, 10, 20}},  {BRGA_planar, {30, 10, 20}}, {GRB_planar, {20, 10, 30}},
        {GRBA_planar, {20, 10, 30}}, {GBR_planar, {20, 30, 10}},  {GBRA_planar, {20, 30, 10}},
    };
    for (const Case &t : cases) {
        Frame f(yuv(t.f, 2, 2));
        f.fill(0, 4, 10), f.fill(4, 4, 20), f.fill(8, 4, 30);
        if (layoutInfo(t.f).hasAlpha) f.fill(12, 4, 99);
        EXPECT_EQ(at(convert(f), 2, 1, 1), t.expected) << layoutInfo(t.f).shortName;
        f.c.swapUV = true; // planes 1 and 2 exchanged first
        Frame g(f.c);
        g.fill(0, 4, 10), g.fill(4, 4, 30), g.fill(8, 4, 20);
        EXPECT_EQ(at(convert(g), 2, 1, 1), t.expected) << layoutInfo(t.f).shortName << " swapped";
    }
}

TEST(ConversionCases, InterleavedRgb)
{
    Frame rgb(yuv(RGB_i444, 1, 1));
    rgb.bytes = {10, 20, 30};
    EXPECT_EQ(at(convert(rgb), 1, 0, 0), (Rgb{10, 20, 30}));
    Frame bgr(yuv(BGR_i444, 1, 1));
    bgr.bytes = {10, 20, 30};
    EXPECT_EQ(at(convert(bgr), 1, 0, 0), (Rgb{30, 20, 10}));
    // RGB with 8 bits in a 16-bit container goes through the 8-bit kernel: bytes 0,1,2 = 10,0,20.
    ConvCase c = yuv(RGB_i444, 1, 1);
    c.container = 16;
    Frame rgb16(c);
    rgb16.bytes = {10, 0, 20, 0, 30, 0};
    EXPECT_EQ(at(convert(rgb16), 1, 0, 0), (Rgb{10, 0, 20}));
    c.layout = BGR_i444; // BGR reads the words
    Frame bgr16(c);
    bgr16.bytes = {10, 0, 20, 0, 30, 0};
    EXPECT_EQ(at(convert(bgr16), 1, 0, 0), (Rgb{30, 20, 10}));
}

TEST(ConversionCases, BgraCopyOnlyWithAStoredGammaOfZero)
{
    Frame f(yuv(BGRA_i444, 2, 1));
    f.bytes = {1, 2, 3, 4, 5, 6, 7, 8};
    auto d = convert(f);
    EXPECT_EQ(d, (std::vector<uint8_t>{1, 2, 3, kMarker, 5, 6, 7, kMarker})); // the kernel: alpha not written
    f.c.brightness = f.c.contrast = f.c.gamma = 0;
    d = convert(f);
    EXPECT_EQ(d, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8})); // the block copy
    f.c.flip = true;
    d = convert(f);
    EXPECT_EQ(d[3], kMarker);
}

TEST(ConversionCases, ChannelSelections)
{
    Frame f(yuv(YUV_p444, 1, 1));
    f.bytes = {50, 100, 150};
    EXPECT_EQ(at(convert(f, 1), 1, 0, 0), (Rgb{50, 50, 50}));
    EXPECT_EQ(at(convert(f, 2), 1, 0, 0), (Rgb{100, 100, 100}));
    EXPECT_EQ(at(convert(f, 3), 1, 0, 0), (Rgb{150, 150, 150}));
    Frame g(yuv(BGR_planar, 1, 1));
    g.bytes = {50, 100, 150}; // B G R planes: selection 2 shows green
    EXPECT_EQ(at(convert(g, 2), 1, 0, 0), (Rgb{100, 100, 100}));
    EXPECT_EQ(at(convert(g, 1), 1, 0, 0), (Rgb{150, 150, 150}));
    Frame bw(yuv(BW, 1, 1));
    bw.bytes = {77};
    EXPECT_EQ(at(convert(bw, 2), 1, 0, 0), (Rgb{77, 77, 77})); // luma only ignores the selection
}

TEST(ConversionCases, LumaOnlyWrapsThroughTheTable)
{
    Frame f(yuv(BW, 2, 1, 10));
    f.bytes = {0xFF, 0x03, 0x00, 0x04}; // 1023 and 1024
    const auto d = convert(f);
    EXPECT_EQ(at(d, 2, 0, 0), (Rgb{255, 255, 255}));
    EXPECT_EQ(at(d, 2, 1, 0), (Rgb{0, 0, 0})); // 1024 >> 2 = 256, low byte 0
}

TEST(ConversionCases, PackedNv12AndV210)
{
    Frame uyvy(yuv(YUV_uyvy, 2, 1));
    uyvy.bytes = {128, 10, 128, 250};
    auto d = convert(uyvy);
    EXPECT_EQ(at(d, 2, 0, 0), (Rgb{10, 10, 10}));
    EXPECT_EQ(at(d, 2, 1, 0), (Rgb{251, 251, 251}));
    Frame yuyv(yuv(YUV_yuyv, 3, 1)); // odd width: the third pixel has no stored sample
    yuyv.bytes = {10, 128, 250, 128, 0, 0};
    d = convert(yuyv);
    EXPECT_EQ(at(d, 3, 1, 0), (Rgb{251, 251, 251}));
    EXPECT_EQ(at(d, 3, 2, 0), (Rgb{0, 0, 0}));
    EXPECT_EQ(d[11], kMarker);

    // nv12 adds 512 before the shift: grey 128 gives 130. Flip takes luma bottom-up, chroma top-down.
    Frame nv(yuv(YUV_nv12, 2, 4));
    nv.bytes = {128, 128, 128, 128, 128, 128, 0, 0, /*chroma row 0*/ 128, 128, /*row 1*/ 128, 200};
    d = convert(nv);
    EXPECT_EQ(at(d, 2, 0, 0), (Rgb{130, 130, 130}));
    nv.c.flip = true;
    d = convert(nv);
    EXPECT_EQ(at(d, 2, 0, 0), (Rgb{2, 2, 2}));      // luma row 3, chroma row 0
    EXPECT_EQ(at(d, 2, 0, 3), (Rgb{244, 97, 130})); // luma row 0, chroma row 1 (V = 200)

    // v210: one group, luma 64*k, neutral chroma 512; (257*Y + 512) >> 10
    ConvCase vc = yuv(YUV_v210, 6, 1, 10);
    Frame v(vc);
    auto put = [&](int w, uint32_t a, uint32_t b, uint32_t c) {
        const uint32_t word = a | b << 10 | c << 20;
        for (int i = 0; i < 4; ++i) v.bytes[size_t(4 * w + i)] = uint8_t(word >> (8 * i));
    };
    put(0, 512, 64, 512);   // U0 Y0 V0
    put(1, 128, 512, 192);  // Y1 U2 Y2
    put(2, 512, 256, 512);  // V2 Y3 U4
    put(3, 320, 512, 1023); // Y4 V4 Y5
    d = convert(v);
    const int expected[6] = {16, 32, 48, 64, 80, 255};
    for (int x = 0; x < 6; ++x) EXPECT_EQ(at(d, 6, x, 0).g, expected[x]) << x;
}

TEST(ConversionCases, InterlacedChromaRows)
{
    // 2x8 4:2:0 with chroma rows 0..3 holding V = 130, 150, 170, 190; interlaced rows 0..7 use chroma
    // rows 0,1,0,1,2,3,2,3; progressive ones 0,0,1,1,2,2,3,3.
    Frame f(yuv(YUV_p420, 2, 8));
    f.fill(0, 16, 128);
    f.fill(16, 4, 128);
    for (int r = 0; r < 4; ++r) f.set(20 + r, 130 + 20 * r);
    auto red = [](const std::vector<uint8_t> &d, int y) { return at(d, 2, 0, y).r; };
    const auto prog = convert(f);
    f.c.interlaced = true;
    const auto inter = convert(f);
    const int progRows[8] = {0, 0, 1, 1, 2, 2, 3, 3}, interRows[8] = {0, 1, 0, 1, 2, 3, 2, 3};
    for (int y = 0; y < 8; ++y) {
        EXPECT_EQ(red(inter, y), red(prog, 2 * interRows[y])) << y;
        EXPECT_EQ(red(prog, y), red(prog, 2 * progRows[y])) << y;
    }
    EXPECT_NE(red(prog, 0), red(prog, 2));
}

TEST(ToneCurve, DefaultsContrastAndGamma)
{
    X2RGBColorConv conv;
    for (int i = 0; i < 256; ++i) ASSERT_EQ(conv.toneTable()[size_t(i)], i);
    EXPECT_EQ(conv.gamma(), 256);

    // Contrast +100: k = 4196^1.03 = 5389; entry i = ((i - 128) * 5389 >> 12) + 128.
    // Contrast -100: k = 3996.
    for (auto [contrast, k] : {std::pair{100, 5389}, std::pair{-100, 3996}}) {
        conv.setToneCurve(ColorConversion::kDefaultValue, contrast, ColorConversion::kDefaultValue);
        for (int i = 0; i < 256; ++i) {
            int64_t e = ((int64_t(i) - 128) * k >> 12) + 128;
            e = e >= 256 ? 255 : (e < 1 ? 0 : e);
            ASSERT_EQ(conv.toneTable()[size_t(i)], e) << "contrast " << contrast << " entry " << i;
        }
    }
    EXPECT_EQ(conv.contrast(), -100);

    // Brightness shifts and clamps.
    conv.setToneCurve(50, 0, 256);
    EXPECT_EQ(conv.toneTable()[0], 50);
    EXPECT_EQ(conv.toneTable()[205], 255);

    // Gamma 512 (exponent 0.5) at 8 bits: entry 64 = sqrt(64/255)*255 + 0.5 = 128.25 -> 128.
    conv.setToneCurve(0, 0, 512);
    EXPECT_EQ(conv.toneTable()[64], 128);
    EXPECT_EQ(conv.toneTable()[0], 0);
    EXPECT_EQ(conv.toneTable()[255], 255);
    // At 10 bits the same setting is normalised to 1023: sqrt(64/1023)*1023 + 0.5 = 256.4 -> 255.
    VideoProps p;
    p.bitDepth = 10;
    conv.setDescription(p);
    conv.setToneCurve(0, 0, 512);
    EXPECT_EQ(conv.toneTable()[64], 255);
    EXPECT_EQ(conv.toneTable()[16], 128); // sqrt(16/1023)*1023 + 0.5 = 128.4
}

TEST(ToneCurve, AppliedAfterClamping)
{
    Frame f(yuv(YUV_p420, 2, 2));
    f.c.brightness = 20;
    f.fill(0, 6, 128);
    EXPECT_EQ(at(convert(f), 2, 0, 0), (Rgb{149, 149, 149}));
}

TEST(Deinterlace, Rows)
{
    auto image = [](std::initializer_list<int> rows) {
        std::vector<uint8_t> img;
        for (int v : rows) img.insert(img.end(), {uint8_t(v), uint8_t(v), uint8_t(v), kMarker});
        return img;
    };
    // One row: nothing changes.
    auto one = image({100});
    deinterlaceFilter(one.data(), 1, 1);
    EXPECT_EQ(one, image({100}));
    // Two rows: row 1 from rows 1 (for t-2), 0, 1, 1, 1 = 200, 100, 200, 200, 200. Mean 180, mask 29:
    // (-70*200 + 442*100 + 10*200 + 691*200 - 49*200) >> 10 = 160600 >> 10 = 156.
    auto two = image({100, 200});
    deinterlaceFilter(two.data(), 1, 2);
    EXPECT_EQ(two, image({100, 156}));
    // Flat picture: mask 0 selects weight 1024 on row t-2.
    auto flat = image({90, 90, 90, 90, 90});
    deinterlaceFilter(flat.data(), 1, 5);
    EXPECT_EQ(flat, image({90, 90, 90, 90, 90}));
    // Row 3 of a 4-row picture reads rewritten row 1 as its t-2.
    auto four = image({10, 250, 10, 250});
    deinterlaceFilter(four.data(), 1, 4);
    // Row 1: rows 3,0,1,2,3 = 250,10,250,10,250: mean 154, mask 1+4+16 = 21:
    // (-12*250 + 513*10 + 3*250 + 521*10 - 1*250) >> 10 = 7840 >> 10 = 7.
    EXPECT_EQ(four[4], 7);
    // Row 3: rows 1,2,3,3,3 = 7,10,250,250,250: mean 153, mask 4+8+16 = 28:
    // (-175*7 + 501*10 + 347*250 + 488*250 - 136*250) >> 10 = 178535 >> 10 = 174.
    EXPECT_EQ(four[12], 174);
    EXPECT_EQ(four[15], kMarker);
}
