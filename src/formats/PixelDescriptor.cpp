#include "formats/PixelDescriptor.h"

#include <algorithm>
#include <limits>

namespace kavri {

namespace {

using C = ComponentDesc;

constexpr PixelDescriptor row(videoFormat_t v, videoFormat_t canonical, uint8_t planes, uint8_t sx, uint8_t sy,
                              std::array<C, 4> comp, uint8_t components = 3, uint8_t wordBytes = 0,
                              uint8_t fixedDepth = 0, Packing packing = Packing::Words, Cfa cfa = Cfa::None)
{
    PixelDescriptor d;
    d.value = v;
    d.packing = packing;
    d.wordBytes = wordBytes;
    d.fixedDepth = fixedDepth;
    d.log2ChromaW = sx;
    d.log2ChromaH = sy;
    d.planes = planes;
    d.components = components;
    d.cfa = cfa;
    d.canonical = canonical;
    d.comp = comp;
    return d;
}

// Three planes, one sample a word each, in the given plane order for Y U V (or R G B), alpha fourth.
constexpr PixelDescriptor planar(videoFormat_t v, videoFormat_t canonical, uint8_t sx, uint8_t sy, uint8_t p0,
                                 uint8_t p1, uint8_t p2, bool alpha = false)
{
    return row(v, canonical, alpha ? 4 : 3, sx, sy, {C{p0}, C{p1}, C{p2}, C{3}}, alpha ? 4 : 3);
}

// Luma plane and one plane of chroma pairs; `vFirst` for NV21-style order.
constexpr PixelDescriptor semi(videoFormat_t v, videoFormat_t canonical, uint8_t sx, uint8_t sy, bool vFirst,
                               uint8_t wordBytes = 0, uint8_t depth = 0, uint8_t shift = 0)
{
    return row(
        v, canonical, 2, sx, sy,
        {C{0, 1, 0, shift}, C{1, 2, uint8_t(vFirst ? 1 : 0), shift}, C{1, 2, uint8_t(vFirst ? 0 : 1), shift}, C{}}, 3,
        wordBytes, depth);
}

// Every sample of a pixel in one interleaved row, at the given word offsets.
constexpr PixelDescriptor packed(videoFormat_t v, videoFormat_t canonical, uint8_t step, uint8_t o0, uint8_t o1,
                                 uint8_t o2, int oAlpha = -1, uint8_t wordBytes = 0, uint8_t depth = 0)
{
    const bool alpha = oAlpha >= 0;
    return row(v, canonical, 1, 0, 0,
               {C{0, step, o0}, C{0, step, o1}, C{0, step, o2}, C{0, step, uint8_t(alpha ? oAlpha : 0)}}, alpha ? 4 : 3,
               wordBytes, depth);
}

// Two pixels in a Y U Y V (or U Y V Y) group of 16-bit or container words.
constexpr PixelDescriptor pairs(videoFormat_t v, videoFormat_t canonical, uint8_t oY, uint8_t oU, uint8_t oV,
                                uint8_t wordBytes = 0, uint8_t depth = 0, uint8_t shift = 0)
{
    return row(v, canonical, 1, 1, 0, {C{0, 2, oY, shift}, C{0, 4, oU, shift}, C{0, 4, oV, shift}, C{}}, 3, wordBytes,
               depth);
}

// All components of a pixel in one word, at bit shifts.
constexpr PixelDescriptor word(videoFormat_t v, videoFormat_t canonical, uint8_t wordBytes, uint8_t depth,
                               std::array<C, 4> comp, uint8_t components)
{
    return row(v, canonical, 1, 0, 0, comp, components, wordBytes, depth);
}

constexpr PixelDescriptor mosaic(videoFormat_t v, Cfa cfa, bool raw10)
{
    return row(v, BW, 1, 0, 0, {C{}, C{}, C{}, C{}}, 1, raw10 ? 1 : 0, raw10 ? 10 : 0,
               raw10 ? Packing::Raw10 : Packing::Words, cfa);
}

// Word bits of a component inside a 32-bit or 16-bit word.
constexpr C bits(uint8_t shift, uint8_t depth = 0) { return C{0, 1, 0, shift, depth}; }

// clang-format off
constexpr std::array<PixelDescriptor, kLayoutCount> kDescriptors = {{
    planar(YUV_p420, YUV_p420, 1, 1, 0, 1, 2),
    planar(YUV_p422, YUV_p422, 1, 0, 0, 1, 2),
    planar(YUV_p444, YUV_p444, 0, 0, 0, 1, 2),
    planar(YUV_p410, YUV_p410, 2, 1, 0, 1, 2),
    planar(YUV_p411, YUV_p411, 2, 0, 0, 1, 2),
    pairs(YUV_uyvy, YUV_uyvy, 1, 0, 2),
    pairs(YUV_yuyv, YUV_yuyv, 0, 1, 3),
    pairs(YUV_yuy2, YUV_yuy2, 0, 1, 3),
    semi(YUV_nv12, YUV_nv12, 1, 1, false),
    row(YUV_v210, YUV_v210, 1, 1, 0, {C{}, C{}, C{}, C{}}, 3, 4, 10, Packing::V210),
    packed(RGB_i444, RGB_i444, 3, 0, 1, 2),
    packed(RGBA_i444, RGBA_i444, 4, 0, 1, 2, 3),
    packed(BGR_i444, BGR_i444, 3, 2, 1, 0),
    packed(BGRA_i444, BGRA_i444, 4, 2, 1, 0, 3),
    // Planar RGB: the plane of R, of G and of B in each storage order.
    planar(RGB_planar, RGB_planar, 0, 0, 0, 1, 2),
    planar(RGBA_planar, RGBA_planar, 0, 0, 0, 1, 2, true),
    planar(RBG_planar, RBG_planar, 0, 0, 0, 2, 1),
    planar(RBGA_planar, RBGA_planar, 0, 0, 0, 2, 1, true),
    planar(BGR_planar, BGR_planar, 0, 0, 2, 1, 0),
    planar(BGRA_planar, BGRA_planar, 0, 0, 2, 1, 0, true),
    planar(BRG_planar, BRG_planar, 0, 0, 1, 2, 0),
    planar(BRGA_planar, BRGA_planar, 0, 0, 1, 2, 0, true),
    planar(GRB_planar, GRB_planar, 0, 0, 1, 0, 2),
    planar(GRBA_planar, GRBA_planar, 0, 0, 1, 0, 2, true),
    planar(GBR_planar, GBR_planar, 0, 0, 2, 0, 1),
    planar(GBRA_planar, GBRA_planar, 0, 0, 2, 0, 1, true),
    row(BW, BW, 1, 0, 0, {C{}, C{}, C{}, C{}}, 1),

    semi(YUV_nv21, YUV_p420, 1, 1, true),
    semi(YUV_nv16, YUV_p422, 1, 0, false),
    semi(YUV_nv61, YUV_p422, 1, 0, true),
    semi(YUV_nv24, YUV_p444, 0, 0, false),
    semi(YUV_nv42, YUV_p444, 0, 0, true),
    semi(YUV_p010, YUV_p420, 1, 1, false, 2, 10, 6),
    semi(YUV_p012, YUV_p420, 1, 1, false, 2, 12, 4),
    semi(YUV_p016, YUV_p420, 1, 1, false, 2, 16, 0),
    semi(YUV_p210, YUV_p422, 1, 0, false, 2, 10, 6),
    semi(YUV_p216, YUV_p422, 1, 0, false, 2, 16, 0),
    semi(YUV_p410w, YUV_p444, 0, 0, false, 2, 10, 6),
    semi(YUV_p416, YUV_p444, 0, 0, false, 2, 16, 0),
    planar(YUV_yv12, YUV_p420, 1, 1, 0, 2, 1),
    planar(YUV_yv16, YUV_p422, 1, 0, 0, 2, 1),
    planar(YUV_yv24, YUV_p444, 0, 0, 0, 2, 1),
    planar(YUV_p440, YUV_p444, 0, 1, 0, 1, 2),
    pairs(YUV_y210, YUV_p422, 0, 1, 3, 2, 10, 6),
    pairs(YUV_y212, YUV_p422, 0, 1, 3, 2, 12, 4),
    pairs(YUV_y216, YUV_p422, 0, 1, 3, 2, 16, 0),
    // Y410: U in bits 0-9, Y in 10-19, V in 20-29, a 2-bit alpha in 30-31 of a little-endian word.
    word(YUV_y410, YUV_p444, 4, 10, {bits(10), bits(0), bits(20), bits(30, 2)}, 4),
    // AYUV and VUYA: the bytes of a pixel in the order the name spells.
    packed(YUV_ayuv, YUV_p444, 4, 1, 2, 3, 0, 1, 8),
    packed(YUV_vuya, YUV_p444, 4, 2, 1, 0, 3, 1, 8),
    // X2RGB10: B in bits 0-9, G in 10-19, R in 20-29; X2BGR10 the other way round.
    word(RGB_x2rgb10, RGB_planar, 4, 10, {bits(20), bits(10), bits(0), C{}}, 3),
    word(RGB_x2bgr10, RGB_planar, 4, 10, {bits(0), bits(10), bits(20), C{}}, 3),
    packed(RGBA_64, RGBA_planar, 4, 0, 1, 2, 3, 2, 16),
    packed(BGRA_64, RGBA_planar, 4, 2, 1, 0, 3, 2, 16),
    // RGB565: R in the top five bits, G in the middle six, B in the low five; shown at 8 bits.
    word(RGB_565, RGB_planar, 2, 8, {bits(11, 5), bits(5, 6), bits(0, 5), C{}}, 3),
    mosaic(BAYER_rggb, Cfa::RGGB, false),
    mosaic(BAYER_bggr, Cfa::BGGR, false),
    mosaic(BAYER_grbg, Cfa::GRBG, false),
    mosaic(BAYER_gbrg, Cfa::GBRG, false),
    mosaic(BAYER_rggb10p, Cfa::RGGB, true),
    mosaic(BAYER_bggr10p, Cfa::BGGR, true),
    mosaic(BAYER_grbg10p, Cfa::GRBG, true),
    mosaic(BAYER_gbrg10p, Cfa::GBRG, true),
}};
// clang-format on

constexpr bool tableInOrder()
{
    for (size_t i = 0; i < kDescriptors.size(); ++i)
        if (kDescriptors[i].value != kLayouts[i].value || size_t(kDescriptors[i].value) != i + 1) return false;
    return true;
}
static_assert(tableInOrder(), "one descriptor per layout, in the order of the layout table");

int64_t ceilShift(int64_t v, int s) { return (v + (int64_t(1) << s) - 1) >> s; }

} // namespace

const PixelDescriptor *pixelDescriptor(int32_t value)
{
    return isValidFormat(value) ? &kDescriptors[size_t(value) - 1] : nullptr;
}

ComponentGrid componentGrid(const PixelDescriptor &d, int c, int32_t width, int32_t height)
{
    if (width <= 0 || height <= 0) return {};
    if (!isChromaComponent(d, c)) return {width, height};
    return {int32_t(ceilShift(width, d.log2ChromaW)), int32_t(ceilShift(height, d.log2ChromaH))};
}

PlaneLayout planeLayout(const PixelDescriptor &d, int32_t containerBits, int32_t width, int32_t height)
{
    PlaneLayout pl;
    if (width <= 0 || height <= 0) return pl;
    const int64_t wb = wordBytesOf(d, containerBits);
    pl.planes = d.planes;
    if (d.packing == Packing::V210) {
        pl.rowBytes[0] = ((int64_t(width) * 8) / 3 + 127) & ~int64_t(127);
        pl.rows[0] = height;
    } else if (d.packing == Packing::Raw10) {
        pl.rowBytes[0] = ceilShift(width, 2) * 5;
        pl.rows[0] = height;
    } else {
        for (int c = 0; c < d.components; ++c) {
            const ComponentDesc &cd = d.comp[size_t(c)];
            const ComponentGrid g = componentGrid(d, c, width, height);
            const int64_t words = int64_t(cd.offset) + int64_t(g.cols - 1) * cd.step + 1;
            pl.rowBytes[cd.plane] = std::max(pl.rowBytes[cd.plane], words * wb);
            pl.rows[cd.plane] = std::max(pl.rows[cd.plane], g.rows);
        }
    }
    int64_t at = 0;
    for (int p = 0; p < pl.planes; ++p) {
        pl.start[size_t(p)] = at;
        const int64_t bytes = pl.rowBytes[size_t(p)] * pl.rows[size_t(p)];
        if (bytes < 0 || at > std::numeric_limits<int64_t>::max() / 2 - bytes) return PlaneLayout{};
        at += bytes;
    }
    pl.frameBytes = at;
    return pl;
}

PlaneLayout planeLayout(const PixelDescriptor &d, int32_t containerBits, int32_t width, int32_t height,
                        const std::array<uint32_t, 4> &strides, const std::array<uint64_t, 4> &offsets)
{
    PlaneLayout pl = planeLayout(d, containerBits, width, height);
    if (pl.frameBytes == 0) return pl;
    int64_t at = 0, end = 0;
    for (int p = 0; p < pl.planes; ++p) {
        const size_t i = size_t(p);
        if (strides[i]) {
            if (int64_t(strides[i]) < pl.rowBytes[i]) return PlaneLayout{};
            pl.rowBytes[i] = strides[i];
        }
        if (offsets[i] || p == 0) {
            if (offsets[i] > uint64_t(std::numeric_limits<int64_t>::max() / 4)) return PlaneLayout{};
            at = int64_t(offsets[i]);
        }
        pl.start[i] = at;
        const int64_t bytes = pl.rowBytes[i] * pl.rows[i];
        if (at > std::numeric_limits<int64_t>::max() / 4 - bytes) return PlaneLayout{};
        at += bytes;
        end = std::max(end, at);
    }
    pl.frameBytes = end;
    return pl;
}

namespace {

uint32_t loadWord(const uint8_t *p, int32_t n, bool bigEndian)
{
    uint32_t v = 0;
    if (bigEndian)
        for (int k = 0; k < n; ++k) v = (v << 8) | p[k];
    else
        for (int k = n - 1; k >= 0; --k) v = (v << 8) | p[k];
    return v;
}

void storeWord(uint8_t *p, int32_t n, bool bigEndian, uint32_t v)
{
    for (int k = 0; k < n; ++k) p[bigEndian ? n - 1 - k : k] = uint8_t(v >> (8 * k));
}

// The byte address of a sample of a Words layout, or -1 outside the frame.
int64_t wordAddress(const PixelDescriptor &d, const PlaneLayout &pl, int64_t bytes, int32_t wb, int c, int32_t col,
                    int32_t row)
{
    const ComponentDesc &cd = d.comp[size_t(c)];
    const int64_t at =
        pl.start[cd.plane] + int64_t(row) * pl.rowBytes[cd.plane] + (int64_t(cd.offset) + int64_t(col) * cd.step) * wb;
    return at >= 0 && at + wb <= bytes ? at : -1;
}

uint32_t maskOf(int32_t depth) { return depth >= 32 ? 0xffffffffu : (uint32_t(1) << depth) - 1; }

} // namespace

bool readComponent(const PixelDescriptor &d, const PlaneLayout &pl, const uint8_t *frame, int64_t bytes, bool bigEndian,
                   int c, int32_t bits, int32_t col, int32_t row, uint32_t &value)
{
    if (!frame || c < 0 || c >= d.components) return false;
    if (col < 0 || row < 0 || row >= pl.rows[d.comp[size_t(c)].plane]) return false;
    if (d.packing == Packing::Raw10) {
        const int64_t group = pl.start[0] + int64_t(row) * pl.rowBytes[0] + int64_t(col / 4) * 5;
        if (group + 5 > bytes) return false;
        const uint32_t high = frame[group + col % 4];
        const uint32_t low = (frame[group + 4] >> (2 * (col % 4))) & 3u;
        value = (high << 2) | low;
        return true;
    }
    if (d.packing == Packing::V210) {
        // Group of six pixels in four little-endian words; sample k of a component at (word, shift).
        // One table indexed by component: GCC 12 with the undefined-behaviour sanitizer reads every V
        // sample from the first place when the place comes from a conditional between two tables.
        static constexpr int8_t kPlace[3][6][2] = {
            {{0, 10}, {1, 0}, {1, 20}, {2, 10}, {3, 0}, {3, 20}},
            {{0, 0}, {1, 10}, {2, 20}},
            {{0, 20}, {2, 0}, {3, 10}},
        };
        const int32_t perGroup = c == 0 ? 6 : 3;
        const int64_t group = int64_t(row) * pl.rowBytes[0] + int64_t(col / perGroup) * 16;
        const int8_t *at = kPlace[c][col % perGroup];
        const int64_t w = group + at[0] * 4;
        if (w + 4 > bytes) return false;
        value = (loadWord(frame + w, 4, false) >> at[1]) & 0x3ffu;
        return true;
    }
    const int32_t wb = wordBytesOf(d, bits > 8 ? 16 : 8);
    const int64_t at = wordAddress(d, pl, bytes, wb, c, col, row);
    if (at < 0) return false;
    const ComponentDesc &cd = d.comp[size_t(c)];
    value = (loadWord(frame + at, wb, bigEndian) >> cd.shift) & maskOf(componentDepth(d, c, bits));
    return true;
}

bool writeComponent(const PixelDescriptor &d, const PlaneLayout &pl, uint8_t *frame, int64_t bytes, bool bigEndian,
                    int c, int32_t bits, int32_t col, int32_t row, uint32_t value)
{
    if (!frame || c < 0 || c >= d.components || col < 0 || row < 0) return false;
    if (d.packing == Packing::Raw10) {
        const int64_t group = pl.start[0] + int64_t(row) * pl.rowBytes[0] + int64_t(col / 4) * 5;
        if (group + 5 > bytes) return false;
        const int k = col % 4;
        frame[group + k] = uint8_t((value >> 2) & 0xffu);
        frame[group + 4] = uint8_t((frame[group + 4] & ~(3u << (2 * k))) | ((value & 3u) << (2 * k)));
        return true;
    }
    if (d.packing != Packing::Words) return false;
    const int32_t wb = wordBytesOf(d, bits > 8 ? 16 : 8);
    const int64_t at = wordAddress(d, pl, bytes, wb, c, col, row);
    if (at < 0) return false;
    const ComponentDesc &cd = d.comp[size_t(c)];
    const uint32_t mask = maskOf(componentDepth(d, c, bits)) << cd.shift;
    const uint32_t old = loadWord(frame + at, wb, bigEndian);
    storeWord(frame + at, wb, bigEndian, (old & ~mask) | ((value << cd.shift) & mask));
    return true;
}

int32_t cfaColour(Cfa cfa, int32_t x, int32_t y)
{
    // Colours of the 2x2 block, row by row: 0 red, 1 green, 2 blue.
    static constexpr int8_t kBlock[5][4] = {{1, 1, 1, 1}, {0, 1, 1, 2}, {2, 1, 1, 0}, {1, 0, 2, 1}, {1, 2, 0, 1}};
    return kBlock[size_t(cfa)][(y & 1) * 2 + (x & 1)];
}

} // namespace kavri
