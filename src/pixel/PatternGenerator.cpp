#include "pixel/PatternGenerator.h"

#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/Validation.h"
#include "formats/VideoProps.h"
#include "pixel/LayoutUnpack.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <vector>

namespace kavri {

namespace {

constexpr int32_t kFull = 65535; // the picture is drawn at 16 bits and cut down to the requested depth

struct Rgb16 {
    int32_t r, g, b, a;
};

// 3x5 digit glyphs, one row of three bits per entry, most significant bit on the left.
constexpr std::array<std::array<uint8_t, 5>, 10> kDigits = {{
    {7, 5, 5, 5, 7},
    {2, 6, 2, 2, 7},
    {7, 1, 7, 4, 7},
    {7, 1, 7, 1, 7},
    {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7},
    {7, 4, 7, 5, 7},
    {7, 1, 2, 2, 2},
    {7, 5, 7, 5, 7},
    {7, 5, 7, 1, 7},
}};

// An "F": asymmetric both ways, so a mirrored or upside-down picture is obvious. 0 background, 1 stem,
// 2 top arm, 3 middle arm (stem and arms in different colours also show a channel-order mix-up).
constexpr std::array<std::array<uint8_t, 5>, 5> kGlyphF = {{
    {1, 2, 2, 2, 2},
    {1, 0, 0, 0, 0},
    {1, 3, 3, 3, 0},
    {1, 0, 0, 0, 0},
    {1, 0, 0, 0, 0},
}};

constexpr std::array<Rgb16, 8> kBars = {{
    {kFull, kFull, kFull, kFull},
    {kFull, kFull, 0, kFull},
    {0, kFull, kFull, kFull},
    {0, kFull, 0, kFull},
    {kFull, 0, kFull, kFull},
    {kFull, 0, 0, kFull},
    {0, 0, kFull, kFull},
    {0, 0, 0, kFull},
}};

int32_t ramp(int64_t pos, int64_t span) { return span > 1 ? int32_t(pos * kFull / (span - 1)) : 0; }

bool isYuvFamily(LayoutKind k)
{
    return k == LayoutKind::PlanarYuv || k == LayoutKind::Packed422 || k == LayoutKind::SemiPlanar ||
           k == LayoutKind::V210 || k == LayoutKind::Luma;
}

int32_t effectiveBits(const PatternSpec &s) { return s.layout == YUV_v210 ? 10 : s.bits; }

// The picture of one frame: regions are worked out once, then each pixel is a few comparisons.
class Scene {
public:
    Scene(const PatternSpec &pat, uint64_t frame) : m_spec(pat), m_frame(frame), m_info(layoutInfo(pat.layout))
    {
        const int32_t w = pat.width, h = pat.height;
        m_shift = 16 - effectiveBits(pat);
        m_cellX = 1 << m_info.chromaShiftX;
        m_cellY = 1 << m_info.chromaShiftY;
        m_unit = std::max(1, std::min(w, h) / 40);
        m_glyphFits = w >= 5 * m_unit + 4 && h >= 5 * m_unit + 4;
        m_digitsX = w - 2 - 15 * m_unit;
        m_digitsFit = m_glyphFits && m_digitsX >= 5 * m_unit + 4 + m_unit && h >= 5 * m_unit + 4;
        m_block = std::max(2, std::min(w, h) / 8);
        const uint64_t period = uint64_t(std::max(1.0, std::round(4.0 * (pat.rate > 0 ? pat.rate : 25.0))));
        m_blockX = w > m_block ? int32_t(int64_t(frame % period) * (w - m_block) / int64_t(period)) : 0;
        m_blockY = std::max(0, h / 4 - m_block / 2);
    }

    // Sample values at a pixel in the layout's colour family, at the requested depth.
    PatternPixel at(int32_t x, int32_t y) const
    {
        const Rgb16 c = rgb(x, y);
        PatternPixel p;
        if (isYuvFamily(m_info.kind)) {
            // Full-range BT.709 in 16-bit fixed point (weights x 65536; 13933 + 46871 + 4732 = 65536),
            // the matrix the player's display uses, so the bars come back as the colours they were.
            const int64_t luma = (13933LL * c.r + 46871LL * c.g + 4732LL * c.b + 32768) >> 16;
            // 1/1.8556 and 1/1.5748 x 65536: the colour differences scaled to +-0.5 around mid.
            const int64_t u = 32768 + ((int64_t(c.b - luma) * 35317) >> 16);
            const int64_t v = 32768 + ((int64_t(c.r - luma) * 41615) >> 16);
            p.c1 = reduce(luma);
            p.c2 = reduce(std::clamp<int64_t>(u, 0, kFull));
            p.c3 = reduce(std::clamp<int64_t>(v, 0, kFull));
        } else {
            p.c1 = reduce(c.r);
            p.c2 = reduce(c.g);
            p.c3 = reduce(c.b);
            if (m_info.hasAlpha) p.alpha = reduce(c.a);
        }
        return p;
    }

    // The pixel whose colour a chroma sample carries: the top-left pixel of the area it covers.
    // Interlaced 4:2:0 chroma row r serves rows of one field: 4*(r/2) + r%2 and two rows below.
    int32_t chromaRowPixel(int32_t cy) const
    {
        if (m_spec.interlaced && m_spec.layout == YUV_p420) return std::min(m_spec.height - 1, 4 * (cy / 2) + cy % 2);
        return std::min(m_spec.height - 1, cy << m_info.chromaShiftY);
    }
    int32_t chromaRowOf(int32_t y) const
    {
        if (m_spec.interlaced && m_spec.layout == YUV_p420) return 2 * (y / 4) + y % 2;
        return y >> m_info.chromaShiftY;
    }

private:
    int32_t reduce(int64_t v16) const { return int32_t(v16 >> m_shift); }

    Rgb16 rgb(int32_t x, int32_t y) const
    {
        const int32_t w = m_spec.width, h = m_spec.height;
        const int32_t alpha = kFull - ramp(y, h);
        // A one-pixel checker on the outermost rows and columns: any crop, shift or odd-size mistake
        // shows as a broken edge.
        if (x == 0 || y == 0 || x == w - 1 || y == h - 1)
            return ((x + y) & 1) ? Rgb16{kFull, kFull, kFull, alpha} : Rgb16{0, 0, 0, alpha};
        if (m_glyphFits && x >= 2 && y >= 2 && x < 2 + 5 * m_unit && y < 2 + 5 * m_unit) {
            switch (kGlyphF[size_t((y - 2) / m_unit)][size_t((x - 2) / m_unit)]) {
            case 1: return {kFull, kFull, kFull, alpha};
            case 2: return {kFull, 0, 0, alpha};
            case 3: return {0, kFull, 0, alpha};
            default: return {0, 0, 0, alpha};
            }
        }
        if (m_digitsFit && x >= m_digitsX - m_unit && y >= 2 && y < 2 + 6 * m_unit) {
            // Frame number modulo 10000 in four digits on a black plate.
            const int32_t col = (x - m_digitsX) / m_unit, row = (y - 2) / m_unit;
            if (x >= m_digitsX && row < 5 && col % 4 != 3) {
                static constexpr uint64_t kPow[4] = {1000, 100, 10, 1};
                const auto digit = size_t((m_frame / kPow[col / 4]) % 10);
                if ((kDigits[digit][size_t(row)] >> (2 - col % 4)) & 1) return {kFull, kFull, kFull, alpha};
            }
            return {0, 0, 0, alpha};
        }
        if (x >= m_blockX && x < m_blockX + m_block && y >= m_blockY && y < m_blockY + m_block)
            return {kFull, kFull / 2 + 1, 0, kFull / 2 + 1};
        if (y < h / 2) return kBars[size_t(int64_t(x) * 8 / w)];
        if (y < h * 5 / 8) {
            const int32_t g = ramp(x, w);
            return {g, g, g, alpha};
        }
        if (y < h * 3 / 4) {
            const int32_t r = ramp(x, w), top = h * 5 / 8;
            return {r, kFull - r, ramp(y - top, h * 3 / 4 - top), alpha};
        }
        if (y < h * 7 / 8) {
            // One checker cell per chroma sample: red and blue cells whose edges must line up with the
            // luma edges, which shows where the layout's chroma samples sit.
            const bool odd = ((x / m_cellX) + (y / m_cellY)) & 1;
            return odd ? Rgb16{0, 0, kFull, alpha} : Rgb16{kFull, 0, 0, alpha};
        }
        // The frame number in binary, sixteen cells, most significant on the left.
        const int32_t bit = 15 - int32_t(int64_t(x) * 16 / w);
        return ((m_frame >> bit) & 1) ? Rgb16{kFull, kFull, kFull, alpha} : Rgb16{0, 0, 0, alpha};
    }

    const PatternSpec &m_spec;
    uint64_t m_frame;
    const LayoutInfo &m_info;
    int32_t m_shift = 8;
    int32_t m_cellX = 1, m_cellY = 1;
    int32_t m_unit = 1;
    bool m_glyphFits = false, m_digitsFit = false;
    int32_t m_digitsX = 0;
    int32_t m_block = 2, m_blockX = 0, m_blockY = 0;
};

// Stores samples at container positions of a frame, with the signed offset and byte order applied.
// Positions at or past the end of the frame are dropped: odd sizes truncate the stored frame.
class SampleWriter {
public:
    SampleWriter(const PatternSpec &s, uint8_t *dst, uint32_t bytes)
        : m_dst(dst), m_wide(s.containerBits == 16), m_limit(bytes / (m_wide ? 2u : 1u)),
          m_offset(s.isSigned ? (1 << (s.bits - 1)) : 0), m_bigEndian(s.bigEndian)
    {
    }
    void put(int64_t index, int32_t value) const
    {
        if (index < 0 || uint64_t(index) >= m_limit) return;
        // Two's complement of the container width: the low bits of the centred value.
        const auto v = uint32_t(value - m_offset);
        if (!m_wide) {
            m_dst[index] = uint8_t(v);
            return;
        }
        uint8_t *p = m_dst + 2 * index;
        p[m_bigEndian ? 1 : 0] = uint8_t(v);
        p[m_bigEndian ? 0 : 1] = uint8_t(v >> 8);
    }

private:
    uint8_t *m_dst;
    bool m_wide;
    uint64_t m_limit;
    int32_t m_offset;
    bool m_bigEndian;
};

int componentOfLetter(std::string_view letter) { return letter == "R" ? 0 : letter == "G" ? 1 : 2; }

int32_t component(const PatternPixel &p, int k) { return k == 0 ? p.c1 : k == 1 ? p.c2 : k == 2 ? p.c3 : p.alpha; }

void writePlanarYuv(const Scene &sc, const PatternSpec &s, const LayoutInfo &info, const SampleWriter &out)
{
    const int64_t w = s.width, h = s.height;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) out.put(y * w + x, sc.at(x, y).c1);
    if (info.kind == LayoutKind::Luma) return;
    // Chroma planes as the player reads them: (h + 1) / 2 rows for vertical subsampling; with an odd
    // height the stored frame has only half of the last chroma row, so V starts half a row early and
    // its own last half row falls off the end of the frame.
    const int64_t cw = w >> info.chromaShiftX;
    const int64_t ch = (h + (1 << info.chromaShiftY) - 1) >> info.chromaShiftY;
    const int64_t uStart = w * h;
    const int64_t vStart = uStart + ch * cw - ((info.chromaShiftY && (h & 1)) ? cw / 2 : 0);
    // U first, then V: where the two overlap, the bytes belong to V.
    for (int plane = 0; plane < 2; ++plane)
        for (int32_t cy = 0; cy < ch; ++cy) {
            const int32_t py = sc.chromaRowPixel(cy);
            for (int32_t cx = 0; cx < cw; ++cx) {
                const PatternPixel p = sc.at(cx << info.chromaShiftX, py);
                out.put((plane ? vStart : uStart) + cy * cw + cx, plane ? p.c3 : p.c2);
            }
        }
}

void writePacked422(const Scene &sc, const PatternSpec &s, const SampleWriter &out)
{
    // Component and pixel of each sample in a two-pixel unit: U Y0 V Y1, or Y0 U Y1 V.
    static constexpr int kUyvyComp[4] = {1, 0, 2, 0}, kUyvyPix[4] = {0, 0, 0, 1};
    static constexpr int kYuyvComp[4] = {0, 1, 0, 2}, kYuyvPix[4] = {0, 0, 1, 0};
    const bool uFirst = s.layout == YUV_uyvy;
    const int *comp = uFirst ? kUyvyComp : kYuyvComp;
    const int *pix = uFirst ? kUyvyPix : kYuyvPix;
    const int64_t units = s.width / 2;
    for (int32_t y = 0; y < s.height; ++y)
        for (int32_t u = 0; u < units; ++u) {
            const PatternPixel p0 = sc.at(2 * u, y), p1 = sc.at(2 * u + 1, y);
            for (int k = 0; k < 4; ++k) {
                const int32_t v = comp[k] == 0 ? (pix[k] ? p1.c1 : p0.c1) : component(p0, comp[k]);
                out.put((y * units + u) * 4 + k, v);
            }
        }
}

void writeNv12(const Scene &sc, const PatternSpec &s, const SampleWriter &out)
{
    const int64_t w = s.width, h = s.height;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) out.put(y * w + x, sc.at(x, y).c1);
    // Chroma rows of w samples holding U V pairs; an odd width leaves the row's last sample unused.
    for (int32_t cy = 0; cy < (h + 1) / 2; ++cy)
        for (int32_t cx = 0; 2 * cx + 1 < w; ++cx) {
            const PatternPixel p = sc.at(2 * cx, 2 * cy);
            out.put(w * h + cy * w + 2 * cx, p.c2);
            out.put(w * h + cy * w + 2 * cx + 1, p.c3);
        }
}

void writeV210(const Scene &sc, const PatternSpec &s, uint8_t *dst)
{
    const int64_t stride = int64_t(frameBytes(YUV_v210, 16, s.width, 1));
    const int32_t groups = (s.width + 5) / 6;
    for (int32_t y = 0; y < s.height; ++y) {
        uint8_t *row = dst + y * stride;
        for (int32_t g = 0; g < groups; ++g) {
            // A last group that runs past the width repeats the last pixel, so it stays in the picture.
            PatternPixel p[6];
            for (int i = 0; i < 6; ++i) p[i] = sc.at(std::min(s.width - 1, 6 * g + i), y);
            const uint32_t words[4] = {
                uint32_t(p[0].c2) | uint32_t(p[0].c1) << 10 | uint32_t(p[0].c3) << 20,
                uint32_t(p[1].c1) | uint32_t(p[2].c2) << 10 | uint32_t(p[2].c1) << 20,
                uint32_t(p[2].c3) | uint32_t(p[3].c1) << 10 | uint32_t(p[4].c2) << 20,
                uint32_t(p[4].c1) | uint32_t(p[4].c3) << 10 | uint32_t(p[5].c1) << 20,
            };
            for (int k = 0; k < 4; ++k)
                for (int b = 0; b < 4; ++b) row[16 * g + 4 * k + b] = uint8_t(words[k] >> (8 * b));
        }
    }
}

void writeRgb(const Scene &sc, const PatternSpec &s, const LayoutInfo &info, const SampleWriter &out)
{
    const int64_t w = s.width, h = s.height, n = info.samplesPerPixel;
    // Storage position k holds the component its letter names; a fourth position is alpha.
    int comp[4] = {0, 1, 2, 3};
    for (size_t k = 0; k < 3; ++k) comp[k] = componentOfLetter(info.letters[k]);
    const bool planar = info.kind == LayoutKind::PlanarRgb;
    for (int32_t y = 0; y < h; ++y)
        for (int32_t x = 0; x < w; ++x) {
            const PatternPixel p = sc.at(x, y);
            const int64_t i = y * w + x;
            for (int k = 0; k < n; ++k) out.put(planar ? k * w * h + i : i * n + k, component(p, comp[k]));
        }
}

} // namespace

namespace {

// A descriptor-read layout's pattern is the pattern of its canonical layout at the layout's depth, packed.
PatternSpec canonicalSpec(const PatternSpec &s)
{
    const VideoProps c = pixel::canonicalProps(patternRecord(s));
    PatternSpec k = s;
    k.layout = pixelDescriptor(s.layout)->cfa != Cfa::None ? RGB_planar : c.format;
    k.bits = c.bitDepth;
    k.containerBits = c.containerBits;
    k.bigEndian = false;
    return k;
}

} // namespace

VideoProps patternRecord(const PatternSpec &s)
{
    VideoProps p;
    p.format = s.layout;
    p.width = s.width;
    p.height = s.height;
    p.bitDepth = s.bits;
    p.containerBits = s.containerBits;
    p.signedValues = s.isSigned;
    p.toggleEndianness = s.bigEndian;
    p.frameRate = s.rate;
    return p;
}

std::string patternSpecError(const PatternSpec &s)
{
    if (!isValidFormat(s.layout)) return "unknown layout";
    if (s.width < 1 || s.height < 1) return "the frame size must be at least 1x1";
    if (isDescribedLayout(s.layout)) {
        const PixelDescriptor &d = *pixelDescriptor(s.layout);
        if (d.fixedDepth && s.bits != d.fixedDepth)
            return std::string(layoutInfo(s.layout).keyword) + " holds " + std::to_string(d.fixedDepth) +
                   "-bit samples only";
    }
    if (s.layout == YUV_v210) {
        if (s.bits != 10) return "v210 holds 10-bit samples only";
        if (s.isSigned) return "v210 samples are unsigned";
        if (s.bigEndian) return "v210 words are little-endian";
    } else {
        if (s.bits < 1 || s.bits > 16) return "the bit depth must be 1..16";
        if (s.containerBits != 8 && s.containerBits != 16) return "the container must be 8 or 16 bits";
        if (s.containerBits < s.bits) return "the container is narrower than the bit depth";
    }
    if (!(s.rate > 0) || !std::isfinite(s.rate)) return "the frame rate must be greater than 0";
    if (patternFrameBytes(s) == 0) return "the frame would not fit in 4 GiB";
    return {};
}

uint32_t patternFrameBytes(const PatternSpec &s)
{
    return frameBytes(s.layout, s.layout == YUV_v210 ? 16 : s.containerBits, s.width, s.height);
}

namespace {

// The pattern of a described layout at pixel (x, y): the canonical pattern's values at the sample that
// covers the pixel in the layout's own subsampling, cut to each component's depth. A mosaic sample is the
// colour its filter passes, taken from the RGB pattern.
PatternPixel describedPixel(const PatternSpec &s, uint64_t frame, int32_t x, int32_t y)
{
    const PixelDescriptor &d = *pixelDescriptor(s.layout);
    const PatternSpec k = canonicalSpec(s);
    PatternPixel p = patternPixel(k, frame, x, y);
    if (d.cfa != Cfa::None) {
        const int32_t c = cfaColour(d.cfa, x, y);
        return PatternPixel{c == 0 ? p.c1 : c == 1 ? p.c2 : p.c3, 0, 0, -1};
    }
    const int32_t sx = layoutInfo(k.layout).chromaShiftX;
    if (sx && (x >> sx) >= (s.width >> sx) && (s.width >> sx) > 0) {
        // The last chroma column of an odd width is one the canonical layout does not keep: it repeats
        // the column before it.
        const PatternPixel left = patternPixel(k, frame, ((s.width >> sx) - 1) << sx, y);
        p.c2 = left.c2;
        p.c3 = left.c3;
    }
    if (d.log2ChromaH > layoutInfo(k.layout).chromaShiftY) {
        // Chroma rows shared in the layout but not in the canonical one: the top row's chroma.
        const PatternPixel top = patternPixel(k, frame, x, (y >> d.log2ChromaH) << d.log2ChromaH);
        p.c2 = top.c2;
        p.c3 = top.c3;
    }
    int32_t *c[4] = {&p.c1, &p.c2, &p.c3, &p.alpha};
    for (int i = 0; i < 3; ++i) {
        const int32_t depth = componentDepth(d, i, s.bits);
        if (depth < k.bits) *c[i] >>= k.bits - depth;
    }
    if (d.components < 4) {
        p.alpha = -1;
    } else if (p.alpha < 0) {
        p.alpha = 0; // stored but not carried by the canonical layout: written as 0
    } else {
        const int32_t depth = componentDepth(d, 3, s.bits);
        if (depth < k.bits) p.alpha >>= k.bits - depth;
    }
    return p;
}

bool writeDescribedFrame(const PatternSpec &s, uint64_t frame, uint8_t *dst, size_t bytes)
{
    const PixelDescriptor &d = *pixelDescriptor(s.layout);
    const VideoProps stored = patternRecord(s);
    const VideoProps canon = pixel::canonicalProps(stored);
    const PatternSpec k = canonicalSpec(s);
    const uint32_t canonBytes = allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
    std::vector<uint8_t> samples(canonBytes);
    if (d.cfa != Cfa::None) {
        // The mosaic: one sample a pixel, of the colour the filter over it passes.
        for (int32_t y = 0; y < s.height; ++y)
            for (int32_t x = 0; x < s.width; ++x) {
                const int64_t i = int64_t(y) * s.width + x;
                const uint32_t v = uint32_t(patternStoredValue(k, describedPixel(s, frame, x, y).c1));
                if (canon.containerBits == 16) {
                    const uint16_t w = uint16_t(v);
                    std::memcpy(samples.data() + 2 * i, &w, 2);
                } else {
                    samples[size_t(i)] = uint8_t(v);
                }
            }
    } else if (!writePatternFrame(k, frame, samples.data(), samples.size())) {
        return false;
    }
    return pixel::packFrame(stored, samples.data(), int64_t(samples.size()), dst, int64_t(bytes));
}

} // namespace

PatternPixel patternPixel(const PatternSpec &s, uint64_t frame, int32_t x, int32_t y)
{
    if (!patternSpecError(s).empty() || x < 0 || y < 0 || x >= s.width || y >= s.height) return {};
    if (isDescribedLayout(s.layout)) return describedPixel(s, frame, x, y);
    const Scene sc(s, frame);
    const LayoutInfo &info = layoutInfo(s.layout);
    PatternPixel p = sc.at(x, y);
    if (info.kind == LayoutKind::Luma) {
        p.c2 = p.c3 = 0;
    } else if (isYuvFamily(info.kind)) {
        const int32_t sx = info.chromaShiftX;
        const PatternPixel c = sc.at((x >> sx) << sx, sc.chromaRowPixel(sc.chromaRowOf(y)));
        p.c2 = c.c2;
        p.c3 = c.c3;
    }
    return p;
}

int32_t patternStoredValue(const PatternSpec &s, int32_t value)
{
    return s.isSigned ? value - (1 << (s.bits - 1)) : value;
}

bool writePatternFrame(const PatternSpec &s, uint64_t frame, uint8_t *dst, size_t dstSize)
{
    if (!patternSpecError(s).empty()) return false;
    const uint32_t bytes = patternFrameBytes(s);
    if (!dst || dstSize < bytes) return false;
    if (isDescribedLayout(s.layout)) return writeDescribedFrame(s, frame, dst, dstSize);
    std::memset(dst, 0, bytes);
    const Scene sc(s, frame);
    const LayoutInfo &info = layoutInfo(s.layout);
    const SampleWriter out(s, dst, bytes);
    switch (info.kind) {
    case LayoutKind::PlanarYuv:
    case LayoutKind::Luma: writePlanarYuv(sc, s, info, out); break;
    case LayoutKind::Packed422: writePacked422(sc, s, out); break;
    case LayoutKind::SemiPlanar: writeNv12(sc, s, out); break;
    case LayoutKind::V210: writeV210(sc, s, dst); break;
    case LayoutKind::InterleavedRgb:
    case LayoutKind::PlanarRgb: writeRgb(sc, s, info, out); break;
    }
    return true;
}

} // namespace kavri
