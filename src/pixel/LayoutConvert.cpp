#include "pixel/LayoutConvert.h"

#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/Validation.h"
#include "formats/Y4mHeader.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/PlaneGeometry.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

namespace kavri::pixel {

namespace {

enum class Family { Yuv, Rgb, Luma, Mosaic };

Family familyOf(videoFormat_t f)
{
    const PixelDescriptor *d = pixelDescriptor(f);
    if (d && d->cfa != Cfa::None) return Family::Mosaic;
    switch (layoutInfo(f).kind) {
    case LayoutKind::Luma: return Family::Luma;
    case LayoutKind::InterleavedRgb:
    case LayoutKind::PlanarRgb: return Family::Rgb;
    default: return Family::Yuv;
    }
}

QString keywordOf(videoFormat_t f)
{
    return QString::fromLatin1(layoutInfo(f).keyword.data(), qsizetype(layoutInfo(f).keyword.size()));
}

// One component of a frame of an original layout seen as a grid: sample (col, row) at
// start + row * stride + col * step, in container samples; sx, sy its subsampling. `v210` components
// lie in words instead and are reached through the descriptor.
struct Grid {
    bool present = false;
    bool v210 = false;
    int64_t start = 0;
    int32_t cols = 0, rows = 0;
    int64_t stride = 0;
    int32_t step = 1;
    int32_t sx = 0, sy = 0;
};

Grid grid(int64_t start, int32_t cols, int32_t rows, int64_t stride, int32_t step, int32_t sx = 0, int32_t sy = 0)
{
    Grid g;
    g.present = cols > 0 && rows > 0;
    g.start = start;
    g.cols = std::max(cols, 0);
    g.rows = std::max(rows, 0);
    g.stride = stride;
    g.step = step;
    g.sx = sx;
    g.sy = sy;
    return g;
}

// The components Y U V (or R G B) and alpha of a frame of an original layout, where its readers find
// them, for a buffer of `samples` container samples. The planar RGB orders are taken in their true
// storage order (the plane each letter names), whatever the display does with BRG and GBR.
void coreGrids(videoFormat_t f, int32_t W, int32_t H, int64_t samples, Grid g[4])
{
    for (int k = 0; k < 4; ++k) g[k] = Grid{};
    const LayoutInfo &info = layoutInfo(f);
    const int64_t pixels = int64_t(W) * H;
    switch (info.kind) {
    case LayoutKind::PlanarYuv: {
        const ChromaPlanes c = chromaPlanes(f, W, H, samples);
        g[0] = grid(0, W, H, W, 1);
        // A last chroma row that reaches past the buffer is still read where it lies inside; the writer
        // checks every sample against the frame instead of dropping the row.
        g[1] = grid(c.uStart, c.cols, c.rows, c.cols, 1, c.shiftX, c.shiftY);
        g[2] = grid(c.vStart, c.cols, c.rows, c.cols, 1, c.shiftX, c.shiftY);
        return;
    }
    case LayoutKind::Packed422: {
        const int64_t stride = int64_t(W / 2) * 4;
        const bool uFirst = f == YUV_uyvy;
        g[0] = grid(uFirst ? 1 : 0, 2 * (W / 2), H, stride, 2);
        g[1] = grid(uFirst ? 0 : 1, W / 2, H, stride, 4, 1, 0);
        g[2] = grid(uFirst ? 2 : 3, W / 2, H, stride, 4, 1, 0);
        return;
    }
    case LayoutKind::SemiPlanar: {
        const ChromaPlanes c = chromaPlanes(f, W, H, samples);
        g[0] = grid(0, W, H, W, 1);
        g[1] = grid(c.uStart, W / 2, c.rows, W, 2, 1, 1);
        g[2] = grid(c.uStart + 1, W / 2, c.rows, W, 2, 1, 1);
        return;
    }
    case LayoutKind::V210:
        // Whole groups of six pixels: past the width a group repeats the last pixel, which the
        // resampling's clamp to the source's last sample gives.
        for (int k = 0; k < 3; ++k) {
            g[k] = grid(0, ((W + 5) / 6) * (k ? 3 : 6), H, 0, 1, k ? 1 : 0, 0);
            g[k].v210 = true;
        }
        return;
    case LayoutKind::InterleavedRgb: {
        const int32_t n = info.samplesPerPixel;
        for (int k = 0; k < 3; ++k) g[k] = grid(info.rgbSource[size_t(k)], W, H, int64_t(W) * n, n);
        if (info.hasAlpha) g[3] = grid(3, W, H, int64_t(W) * n, n);
        return;
    }
    case LayoutKind::PlanarRgb: {
        const PixelDescriptor &d = *pixelDescriptor(f);
        for (int k = 0; k < info.samplesPerPixel; ++k) g[k] = grid(d.comp[size_t(k)].plane * pixels, W, H, W, 1);
        return;
    }
    case LayoutKind::Luma: g[0] = grid(0, W, H, W, 1); return;
    }
}

// The planes of a y4m frame: Y, then U and V with whole samples for odd sizes.
void y4mGrids(videoFormat_t f, int32_t W, int32_t H, Grid g[4])
{
    for (int k = 0; k < 4; ++k) g[k] = Grid{};
    g[0] = grid(0, W, H, W, 1);
    if (f == BW) return;
    const LayoutInfo &info = layoutInfo(f);
    const int32_t sx = info.chromaShiftX, sy = info.chromaShiftY;
    const int32_t cw = int32_t((int64_t(W) + (1 << sx) - 1) >> sx), ch = int32_t((int64_t(H) + (1 << sy) - 1) >> sy);
    const int64_t luma = int64_t(W) * H;
    g[1] = grid(luma, cw, ch, cw, 1, sx, sy);
    g[2] = grid(luma + int64_t(cw) * ch, cw, ch, cw, 1, sx, sy);
}

int64_t y4mFrameSamples(videoFormat_t f, int32_t W, int32_t H)
{
    Grid g[4];
    y4mGrids(f, W, H, g);
    return g[2].present ? g[2].start + int64_t(g[2].cols) * g[2].rows : int64_t(W) * H;
}

// Where the v210 words keep sample `col` of component c in a row: the word of its group of six pixels
// and the bit shift inside it (the same places the descriptor's reader uses).
void v210Place(int c, int32_t col, int64_t &byte, int32_t &shift)
{
    // Per component (Y, U, V) and sample within the group: the word and the shift, in one table (see
    // readComponent for why not a choice between tables).
    static constexpr int8_t kPlace[3][6][2] = {
        {{0, 10}, {1, 0}, {1, 20}, {2, 10}, {3, 0}, {3, 20}},
        {{0, 0}, {1, 10}, {2, 20}},
        {{0, 20}, {2, 0}, {3, 10}},
    };
    const int32_t perGroup = c == 0 ? 6 : 3;
    const int8_t *at = kPlace[c][col % perGroup];
    byte = int64_t(col / perGroup) * 16 + at[0] * 4;
    shift = at[1];
}

uint32_t loadV210(const uint8_t *frame, int64_t bytes, int32_t W, int c, int32_t col, int32_t row)
{
    int64_t at = 0;
    int32_t shift = 0;
    v210Place(c, col, at, shift);
    at += int64_t(row) * v210RowBytes(W);
    if (at + 4 > bytes) return 0;
    uint32_t w = 0;
    for (int b = 3; b >= 0; --b) w = (w << 8) | frame[at + b];
    return (w >> shift) & 0x3ffu;
}

void storeV210(uint8_t *frame, int64_t bytes, int32_t W, int c, int32_t col, int32_t row, uint32_t v)
{
    int64_t at = 0;
    int32_t shift = 0;
    v210Place(c, col, at, shift);
    at += int64_t(row) * v210RowBytes(W);
    if (at + 4 > bytes) return;
    uint32_t w = 0;
    for (int b = 3; b >= 0; --b) w = (w << 8) | frame[at + b];
    w = (w & ~(0x3ffu << shift)) | ((v & 0x3ffu) << shift);
    for (int b = 0; b < 4; ++b) frame[at + b] = uint8_t(w >> (8 * b));
}

// One row of one component: source samples from `s0` every `sStep`, `sCols` of them at horizontal
// subsampling sSx, into `dCols` target samples from `d0` every `dStep` at dSx, depth sb to tb.
struct RowJob {
    int64_t s0;
    int32_t sStep, sCols, sSx;
    int64_t d0;
    int32_t dStep, dCols, dSx;
    int32_t sb, tb;
    uint32_t mask;
};

template <typename S, typename D>
void resampleRow(const S *src, D *dst, const RowJob &r)
{
    const S *in = src + r.s0;
    D *out = dst + r.d0;
    const int32_t up = r.tb > r.sb ? r.tb - r.sb : 0, down = r.sb > r.tb ? r.sb - r.tb : 0;
    if (r.sSx == r.dSx && r.dCols <= r.sCols) {
        for (int32_t i = 0; i < r.dCols; ++i)
            out[int64_t(i) * r.dStep] = D(((uint32_t(in[int64_t(i) * r.sStep]) << up) >> down) & r.mask);
        return;
    }
    for (int32_t i = 0; i < r.dCols; ++i) {
        const int32_t si = std::min<int32_t>(int32_t((int64_t(i) << r.dSx) >> r.sSx), r.sCols - 1);
        out[int64_t(i) * r.dStep] = D(((uint32_t(in[int64_t(si) * r.sStep]) << up) >> down) & r.mask);
    }
}

uint32_t maskOf(int32_t bits) { return bits >= 32 ? 0xffffffffu : (uint32_t(1) << bits) - 1; }

} // namespace

bool conversionTarget(const VideoProps &s, videoFormat_t layout, int32_t bits, VideoProps &t, QString &error)
{
    if (!isValidFormat(layout)) {
        error = QStringLiteral("unknown layout");
        return false;
    }
    if (!isValidFormat(s.format)) {
        error = QStringLiteral("the source layout is not known");
        return false;
    }
    if (s.signedValues) {
        error = QStringLiteral("signed samples are not converted");
        return false;
    }
    const PixelDescriptor &d = *pixelDescriptor(layout);
    const int32_t fixed = layout == YUV_v210 ? 10 : d.fixedDepth;
    if (bits < 0 || bits > kMaxBitDepth) {
        error = QStringLiteral("a bit depth of %1 is not supported (1..16)").arg(bits);
        return false;
    }
    if (bits && fixed && bits != fixed) {
        error = QStringLiteral("%1 holds %2-bit samples only").arg(keywordOf(layout)).arg(fixed);
        return false;
    }
    const Family from = familyOf(s.format), to = familyOf(layout);
    if ((from == Family::Yuv && to == Family::Rgb) || (from == Family::Rgb && to == Family::Yuv)) {
        error = QStringLiteral("converting between YUV and RGB layouts is not supported");
        return false;
    }
    if ((from == Family::Luma && to == Family::Rgb) || (from == Family::Rgb && to == Family::Luma)) {
        error = QStringLiteral("converting between luma-only and RGB layouts is not supported");
        return false;
    }
    if ((from == Family::Mosaic) != (to == Family::Mosaic) ||
        (from == Family::Mosaic && pixelDescriptor(s.format)->cfa != d.cfa)) {
        error = QStringLiteral("a Bayer mosaic converts only into a Bayer layout of the same filter pattern");
        return false;
    }
    t = VideoProps();
    t.width = s.width;
    t.height = s.height;
    t.frameRate = s.frameRate;
    t.interlaced = s.interlaced;
    t.format = layout;
    t.bitDepth = bits ? bits : (fixed ? fixed : s.bitDepth);
    if (t.bitDepth < 1 || t.bitDepth > kMaxBitDepth) t.bitDepth = 8;
    t.containerBits = layout == YUV_v210 ? 16 : containerBitsFor(t.bitDepth);
    t.frameBytes = frameBytes(layout, t.containerBits, t.width, t.height);
    if (t.frameBytes == 0) {
        error = QStringLiteral("a %1x%2 frame of %3 is too large (over 4 GiB)")
                    .arg(t.width)
                    .arg(t.height)
                    .arg(keywordOf(layout));
        return false;
    }
    return true;
}

QString y4mRefusal(const VideoProps &t)
{
    if (t.format == YUV_p420 || t.format == YUV_p422 || t.format == YUV_p444 || t.format == BW) return {};
    return QStringLiteral("y4m holds planar 4:2:0, 4:2:2, 4:4:4 or luma frames: use --to yuv420, yuv422, yuv444 "
                          "or luma");
}

QByteArray y4mHeader(const VideoProps &t)
{
    // The same header line the extract and reverse tools write; the frames are laid out by the converter.
    return y4mHeaderLine(t);
}

bool LayoutConverter::setup(const VideoProps &source, const VideoProps &target, bool y4m, QString &error)
{
    VideoProps check;
    if (!conversionTarget(source, target.format, target.bitDepth, check, error)) return false;
    if (y4m) {
        error = y4mRefusal(target);
        if (!error.isEmpty()) return false;
    }
    m_source = canonicalProps(source);
    m_target = target;
    m_targetCanonical = canonicalProps(target);
    m_y4m = y4m;
    const int64_t bps = m_target.containerBits > 8 ? 2 : 1;
    m_outputBytes = y4m ? y4mFrameSamples(target.format, target.width, target.height) * bps : target.frameBytes;
    m_scratch.clear();
    if (!y4m && isDescribedLayout(target.format))
        m_scratch.assign(
            allocationSize(m_targetCanonical.format, m_targetCanonical.containerBits, target.width, target.height), 0);
    return m_outputBytes > 0;
}

void LayoutConverter::convert(const uint8_t *canonical, int64_t bytes, uint8_t *out)
{
    const int32_t W = m_source.width, H = m_source.height;
    const bool srcWide = m_source.containerBits > 8;
    const int64_t srcSamples = bytes / (srcWide ? 2 : 1);
    Grid s[4];
    coreGrids(m_source.format, W, H, srcSamples, s);

    // Where the converted samples go: the y4m planes, the target frame itself, or the canonical frame
    // of a described target that the pack then writes in its own order.
    const bool described = !m_y4m && isDescribedLayout(m_target.format);
    const VideoProps &tp = described ? m_targetCanonical : m_target;
    uint8_t *dst = described ? m_scratch.data() : out;
    const int64_t dstBytes = described ? int64_t(m_scratch.size()) : m_outputBytes;
    std::memset(dst, 0, size_t(dstBytes));
    const bool dstWide = tp.containerBits > 8;
    const int64_t dstSamples = dstBytes / (dstWide ? 2 : 1);
    Grid t[4];
    if (m_y4m)
        y4mGrids(tp.format, W, H, t);
    else
        coreGrids(tp.format, W, H, int64_t(allocationSize(tp.format, tp.containerBits, W, H)) / (dstWide ? 2 : 1), t);

    const int32_t sb = m_source.bitDepth, tb = tp.bitDepth;
    const uint32_t tmask = maskOf(tb);
    auto load = [&](const Grid &g, int c, int32_t col, int32_t row) -> uint32_t {
        if (g.v210) return loadV210(canonical, bytes, W, c, col, row);
        const int64_t at = g.start + int64_t(row) * g.stride + int64_t(col) * g.step;
        if (at < 0 || at >= srcSamples) return 0;
        return srcWide ? reinterpret_cast<const uint16_t *>(canonical)[at] : canonical[at];
    };
    auto store = [&](const Grid &g, int c, int32_t col, int32_t row, uint32_t v) {
        if (g.v210) return storeV210(dst, dstBytes, W, c, col, row, v);
        const int64_t at = g.start + int64_t(row) * g.stride + int64_t(col) * g.step;
        if (at < 0 || at >= dstSamples) return;
        if (dstWide)
            reinterpret_cast<uint16_t *>(dst)[at] = uint16_t(v);
        else
            dst[at] = uint8_t(v);
    };
    // Samples are written in component order, so where two components share bytes (the half row of an
    // odd-height 4:2:0 frame) the later one stays, as a reader finds it.
    for (int k = 0; k < 4; ++k) {
        const Grid &tg = t[k];
        if (!tg.present) continue;
        const Grid &sg = s[k];
        const bool fromSource = sg.present;
        // A component the source lacks: mid-grey chroma for a luma source, opaque alpha.
        const uint32_t fill = k == 3 ? tmask : (uint32_t(1) << (tb - 1));
        for (int32_t j = 0; j < tg.rows; ++j) {
            const int32_t sj = fromSource ? std::min<int32_t>(int32_t((int64_t(j) << tg.sy) >> sg.sy), sg.rows - 1) : 0;
            // Rows wholly inside both frames, on grids, take the typed path; the rest goes sample by sample.
            if (fromSource && !sg.v210 && !tg.v210) {
                const int64_t s0 = sg.start + int64_t(sj) * sg.stride, d0 = tg.start + int64_t(j) * tg.stride;
                const int64_t sEnd = s0 + int64_t(sg.cols - 1) * sg.step, dEnd = d0 + int64_t(tg.cols - 1) * tg.step;
                if (s0 >= 0 && d0 >= 0 && sEnd < srcSamples && dEnd < dstSamples) {
                    RowJob r{s0, sg.step, sg.cols, sg.sx, d0, tg.step, tg.cols, tg.sx, sb, tb, tmask};
                    if (srcWide && dstWide)
                        resampleRow(reinterpret_cast<const uint16_t *>(canonical), reinterpret_cast<uint16_t *>(dst),
                                    r);
                    else if (srcWide)
                        resampleRow(reinterpret_cast<const uint16_t *>(canonical), dst, r);
                    else if (dstWide)
                        resampleRow(canonical, reinterpret_cast<uint16_t *>(dst), r);
                    else
                        resampleRow(canonical, dst, r);
                    continue;
                }
            }
            for (int32_t i = 0; i < tg.cols; ++i) {
                uint32_t v = fill;
                if (fromSource) {
                    const int32_t si = std::min<int32_t>(int32_t((int64_t(i) << tg.sx) >> sg.sx), sg.cols - 1);
                    v = load(sg, k, si, sj);
                    v = tb >= sb ? v << (tb - sb) : v >> (sb - tb);
                    v &= tmask;
                }
                store(tg, k, i, j, v);
            }
        }
    }
    if (described) packFrame(m_target, dst, dstBytes, out, m_outputBytes);
}

} // namespace kavri::pixel
