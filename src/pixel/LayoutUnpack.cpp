#include "pixel/LayoutUnpack.h"

#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/WorkerPool.h"

#include <algorithm>
#include <cstring>

namespace kavri::pixel {

namespace {

// One component of the canonical frame: samples from `start` (counted in container samples), `cols` a
// row, `rows` rows, `stride` samples from row to row.
struct Target {
    int64_t start = 0;
    int32_t cols = 0, rows = 0;
    int64_t stride = 0;
    int32_t shiftY = 0; // the canonical layout's vertical chroma shift for this component
};

// The components of a canonical frame, in the descriptor's component order (Y U V or R G B, alpha).
int32_t canonicalTargets(const VideoProps &c, int64_t bufferSamples, Target t[4])
{
    const int32_t W = c.width, H = c.height;
    const int64_t pixels = int64_t(W) * H;
    const LayoutInfo &info = layoutInfo(c.format);
    switch (info.kind) {
    case LayoutKind::PlanarYuv: {
        const ChromaPlanes p = chromaPlanes(c.format, W, H, bufferSamples);
        t[0] = {0, W, H, W, 0};
        t[1] = {p.uStart, p.cols, p.uFit, p.cols, p.shiftY};
        t[2] = {p.vStart, p.cols, p.vFit, p.cols, p.shiftY};
        return 3;
    }
    case LayoutKind::PlanarRgb: {
        // R, G, B (and alpha) go to the planes the layout's storage order gives them.
        const PixelDescriptor &cd = *pixelDescriptor(c.format);
        for (int k = 0; k < info.samplesPerPixel; ++k) t[k] = {cd.comp[size_t(k)].plane * pixels, W, H, W, 0};
        return info.samplesPerPixel;
    }
    case LayoutKind::Luma: t[0] = {0, W, H, W, 0}; return 1;
    default: return 0;
    }
}

// The source row of component k that canonical row j takes its samples from.
inline int32_t sourceRow(const PixelDescriptor &d, const Target &t, int k, int32_t j)
{
    const int32_t sy = isChromaComponent(d, k) ? d.log2ChromaH : 0;
    return int32_t((int64_t(j) << t.shiftY) >> sy);
}

inline int32_t helpersFor(int32_t threads) { return threads == 1 ? 0 : (threads == 0 ? 7 : threads - 1); }

// The common rows: a value in the low bits of a little-endian word, no widening, no sign. The step is a
// template argument where it is small, so the compiler can vectorise the gather of interleaved samples.
template <typename S, typename D, int Step>
void plainRow(const uint8_t *src, int32_t step, int32_t shift, uint32_t mask, D *dst, int32_t cols)
{
    const int32_t st = Step ? Step : step;
    for (int32_t i = 0; i < cols; ++i) {
        S w;
        std::memcpy(&w, src + size_t(i) * size_t(st) * sizeof(S), sizeof(S));
        dst[i] = D((uint32_t(w) >> shift) & mask);
    }
}

template <typename S, typename D>
void plainRowAnyStep(const uint8_t *src, int32_t step, int32_t shift, uint32_t mask, D *dst, int32_t cols)
{
    switch (step) {
    case 1: plainRow<S, D, 1>(src, step, shift, mask, dst, cols); break;
    case 2: plainRow<S, D, 2>(src, step, shift, mask, dst, cols); break;
    case 4: plainRow<S, D, 4>(src, step, shift, mask, dst, cols); break;
    default: plainRow<S, D, 0>(src, step, shift, mask, dst, cols); break;
    }
}

// Everything else a row can need: big-endian words, widening of narrow samples, sign extension.
struct RowOp {
    int32_t wordBytes = 1, step = 1, shift = 0;
    uint32_t mask = 0;
    bool bigEndian = false;
    int32_t widenUp = 0, widenDown = 0; // v << up | v >> down
    uint32_t signBit = 0;               // sign-extend from this bit when set
};

template <typename D>
void generalRow(const RowOp &op, const uint8_t *src, D *dst, int32_t cols)
{
    for (int32_t i = 0; i < cols; ++i) {
        const uint8_t *p = src + size_t(i) * size_t(op.step) * size_t(op.wordBytes);
        uint32_t w = 0;
        if (op.bigEndian)
            for (int b = 0; b < op.wordBytes; ++b) w = (w << 8) | p[b];
        else
            for (int b = op.wordBytes - 1; b >= 0; --b) w = (w << 8) | p[b];
        uint32_t v = (w >> op.shift) & op.mask;
        if (op.widenUp) v = (v << op.widenUp) | (v >> op.widenDown);
        if (op.signBit) v = (v ^ op.signBit) - op.signBit;
        dst[i] = D(v);
    }
}

// MIPI RAW10: four samples in five bytes, the fifth holding the two low bits of each.
template <typename D>
void raw10Row(const uint8_t *src, D *dst, int32_t cols)
{
    for (int32_t i = 0; i < cols; ++i) {
        const uint8_t *g = src + size_t(i / 4) * 5;
        dst[i] = D((uint32_t(g[i % 4]) << 2) | ((g[4] >> (2 * (i % 4))) & 3u));
    }
}

template <typename D>
void unpackInto(const VideoProps &stored, const PixelDescriptor &d, const PlaneLayout &pl, const uint8_t *src,
                int64_t srcBytes, const VideoProps &canon, D *dst, int64_t dstSamples, int32_t threads)
{
    Target t[4];
    const int32_t n = std::min<int32_t>(canonicalTargets(canon, dstSamples, t), d.components);
    const int32_t wb = wordBytesOf(d, stored.containerBits);
    const bool bigEndian = stored.toggleEndianness && wb > 1;
    for (int k = 0; k < n; ++k) {
        const ComponentDesc &cd = d.comp[size_t(k)];
        const int32_t depth = componentDepth(d, k, stored.bitDepth);
        RowOp op;
        op.wordBytes = wb;
        op.step = cd.step;
        op.shift = cd.shift;
        op.mask = depth >= 32 ? 0xffffffffu : (uint32_t(1) << depth) - 1;
        op.bigEndian = bigEndian;
        if (depth < canon.bitDepth && !stored.signedValues) {
            op.widenUp = canon.bitDepth - depth;
            op.widenDown = depth - op.widenUp > 0 ? depth - op.widenUp : 0;
        }
        if (stored.signedValues) op.signBit = uint32_t(1) << (depth - 1);
        const bool plain = !op.bigEndian && !op.widenUp && !op.signBit && d.packing == Packing::Words;
        const Target &tk = t[k];
        const int64_t rowBytes = pl.rowBytes[cd.plane];
        const int64_t first = pl.start[cd.plane] + int64_t(cd.offset) * wb;
        // Bands of rows spread over the pool; each canonical row reads one stored row.
        constexpr int32_t kBand = 32;
        const int32_t bands = (tk.rows + kBand - 1) / kBand;
        WorkerPool::shared().run(bands, helpersFor(threads), [&](int32_t b) {
            const int32_t j1 = std::min(tk.rows, (b + 1) * kBand);
            for (int32_t j = b * kBand; j < j1; ++j) {
                const int32_t sj = sourceRow(d, tk, k, j);
                const int64_t at = first + int64_t(sj) * rowBytes;
                D *out = dst + tk.start + int64_t(j) * tk.stride;
                // A row the stored frame does not hold whole (a short buffer) is left as it was.
                const int64_t need = d.packing == Packing::Raw10 ? int64_t((tk.cols + 3) / 4) * 5
                                                                 : (int64_t(tk.cols - 1) * cd.step + 1) * wb;
                if (at < 0 || at + need > srcBytes || tk.start + int64_t(j) * tk.stride + tk.cols > dstSamples)
                    continue;
                const uint8_t *in = src + at;
                if (d.packing == Packing::Raw10) {
                    raw10Row(in, out, tk.cols);
                } else if (plain) {
                    switch (wb) {
                    case 1: plainRowAnyStep<uint8_t, D>(in, cd.step, cd.shift, op.mask, out, tk.cols); break;
                    case 2: plainRowAnyStep<uint16_t, D>(in, cd.step, cd.shift, op.mask, out, tk.cols); break;
                    default: plainRowAnyStep<uint32_t, D>(in, cd.step, cd.shift, op.mask, out, tk.cols); break;
                    }
                } else {
                    generalRow(op, in, out, tk.cols);
                }
            }
        });
    }
}

// The rows of an original packed, semi-planar or v210 layout, copied from strided planes into the
// layout's own packed rows (its byte counts, quirks included).
void destrideRows(const VideoProps &stored, const PlaneLayout &pl, const uint8_t *src, int64_t srcBytes, uint8_t *dst,
                  int64_t dstBytes)
{
    const int64_t W = stored.width, H = stored.height, B = stored.containerBits > 8 ? 2 : 1;
    const LayoutInfo &info = layoutInfo(stored.format);
    struct Plane {
        int64_t start, rowBytes, rows;
    } planes[2] = {};
    int n = 1;
    switch (info.kind) {
    case LayoutKind::Packed422: planes[0] = {0, (W / 2) * 4 * B, H}; break;
    case LayoutKind::InterleavedRgb: planes[0] = {0, W * info.samplesPerPixel * B, H}; break;
    case LayoutKind::V210: planes[0] = {0, v210RowBytes(int32_t(W)), H}; break;
    case LayoutKind::SemiPlanar:
        planes[0] = {0, W * B, H};
        planes[1] = {W * H * B, W * B, (H + 1) / 2};
        n = 2;
        break;
    default: return;
    }
    for (int p = 0; p < n; ++p)
        for (int64_t r = 0; r < planes[p].rows; ++r) {
            const int64_t from = pl.start[size_t(p)] + r * pl.rowBytes[size_t(p)];
            const int64_t to = planes[p].start + r * planes[p].rowBytes;
            const int64_t len = std::min(planes[p].rowBytes, std::min(srcBytes - from, dstBytes - to));
            if (len <= 0) break;
            std::memcpy(dst + to, src + from, size_t(len));
        }
}

} // namespace

bool needsUnpack(const VideoProps &stored)
{
    return isDescribedLayout(stored.format) || (isValidFormat(stored.format) && hasPlaneGeometry(stored));
}

PlaneLayout storedPlanes(const VideoProps &stored)
{
    const PixelDescriptor *d = pixelDescriptor(stored.format);
    if (!d) return {};
    return planeLayout(*d, stored.containerBits, stored.width, stored.height, stored.planeStride, stored.planeOffset);
}

VideoProps canonicalProps(const VideoProps &stored)
{
    if (!needsUnpack(stored)) return stored;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    VideoProps c = stored;
    c.format = d.canonical;
    // The unpacked frame has packed rows, wherever the stored planes lie.
    c.planeStride = {};
    c.planeOffset = {};
    if (!isDescribedLayout(stored.format)) {
        c.frameBytes = frameBytes(c.format, c.containerBits, c.width, c.height);
        return c;
    }
    if (d.fixedDepth) c.bitDepth = d.fixedDepth;
    // The unpacked samples sit in the container of their depth, or stay in 16 bits when stored so.
    const int32_t wanted = containerBitsFor(c.bitDepth >= 1 && c.bitDepth <= kMaxBitDepth ? c.bitDepth : 8);
    c.containerBits = d.wordBytes == 0 && stored.containerBits == 16 ? 16 : wanted;
    c.toggleEndianness = false;
    c.frameBytes = frameBytes(c.format, c.containerBits, c.width, c.height);
    return c;
}

void unpackFrame(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst, int64_t dstBytes,
                 int32_t threads)
{
    if (!src || !dst || !needsUnpack(stored) || stored.width <= 0 || stored.height <= 0) return;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const VideoProps canon = canonicalProps(stored);
    const PlaneLayout pl = storedPlanes(stored);
    if (pl.frameBytes == 0) return;
    if (!isDescribedLayout(stored.format) && layoutInfo(stored.format).kind != LayoutKind::PlanarYuv &&
        layoutInfo(stored.format).kind != LayoutKind::PlanarRgb && layoutInfo(stored.format).kind != LayoutKind::Luma) {
        destrideRows(stored, pl, src, srcBytes, dst, dstBytes);
        return;
    }
    if (canon.containerBits == 16)
        unpackInto(stored, d, pl, src, srcBytes, canon, reinterpret_cast<uint16_t *>(dst), dstBytes / 2, threads);
    else
        unpackInto(stored, d, pl, src, srcBytes, canon, dst, dstBytes, threads);
}

void unpackFrameReference(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst,
                          int64_t dstBytes)
{
    if (!src || !dst || !needsUnpack(stored) || stored.width <= 0 || stored.height <= 0) return;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const VideoProps canon = canonicalProps(stored);
    const PlaneLayout pl = storedPlanes(stored);
    if (!isDescribedLayout(stored.format) && layoutInfo(stored.format).kind != LayoutKind::PlanarYuv &&
        layoutInfo(stored.format).kind != LayoutKind::PlanarRgb && layoutInfo(stored.format).kind != LayoutKind::Luma) {
        destrideRows(stored, pl, src, srcBytes, dst, dstBytes);
        return;
    }
    const bool wide = canon.containerBits == 16;
    const int64_t samples = dstBytes / (wide ? 2 : 1);
    Target t[4];
    const int32_t n = std::min<int32_t>(canonicalTargets(canon, samples, t), d.components);
    for (int k = 0; k < n; ++k) {
        const int32_t depth = componentDepth(d, k, stored.bitDepth);
        for (int32_t j = 0; j < t[k].rows; ++j)
            for (int32_t i = 0; i < t[k].cols; ++i) {
                uint32_t v = 0;
                if (!readComponent(d, pl, src, srcBytes, stored.toggleEndianness, k, stored.bitDepth, i,
                                   sourceRow(d, t[k], k, j), v))
                    continue;
                // Narrow samples widen by repeating their top bits: 5 bits abcde become abcdeabc.
                int32_t have = depth;
                while (!stored.signedValues && have < canon.bitDepth) {
                    const int32_t take = std::min(have, canon.bitDepth - have);
                    v = (v << take) | (v >> (have - take));
                    have += take;
                }
                if (stored.signedValues && (v >> (depth - 1)) & 1u) v |= ~((uint32_t(1) << depth) - 1);
                const int64_t at = t[k].start + int64_t(j) * t[k].stride + i;
                if (at >= samples) continue;
                if (wide)
                    reinterpret_cast<uint16_t *>(dst)[at] = uint16_t(v);
                else
                    dst[at] = uint8_t(v);
            }
    }
}

bool packFrame(const VideoProps &stored, const uint8_t *canonical, int64_t canonicalBytes, uint8_t *dst,
               int64_t dstBytes)
{
    if (!canonical || !dst || !isDescribedLayout(stored.format)) return false;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    if (d.packing == Packing::V210) return false;
    const VideoProps canon = canonicalProps(stored);
    const PlaneLayout pl = storedPlanes(stored);
    if (pl.frameBytes == 0 || dstBytes < pl.frameBytes) return false;
    const bool wide = canon.containerBits == 16;
    const int64_t samples = canonicalBytes / (wide ? 2 : 1);
    Target t[4];
    const int32_t n = std::min<int32_t>(canonicalTargets(canon, samples, t), d.components);
    std::memset(dst, 0, size_t(pl.frameBytes));
    for (int k = 0; k < n; ++k) {
        const ComponentGrid g = componentGrid(d, k, stored.width, stored.height);
        const int32_t depth = componentDepth(d, k, stored.bitDepth);
        const int32_t sy = isChromaComponent(d, k) ? d.log2ChromaH : 0;
        if (t[k].cols <= 0 || t[k].rows <= 0) continue;
        for (int32_t j = 0; j < g.rows; ++j) {
            // The canonical row this stored row was (or would be) unpacked into; the right and bottom
            // edges repeat the last canonical sample where the stored grid is a sample wider.
            const int32_t cj = std::min(t[k].rows - 1, int32_t((int64_t(j) << sy) >> t[k].shiftY));
            for (int32_t i = 0; i < g.cols; ++i) {
                const int64_t at = t[k].start + int64_t(cj) * t[k].stride + std::min(i, t[k].cols - 1);
                if (at >= samples) continue;
                uint32_t v = wide ? reinterpret_cast<const uint16_t *>(canonical)[at] : canonical[at];
                if (depth < canon.bitDepth) v >>= canon.bitDepth - depth;
                writeComponent(d, pl, dst, dstBytes, stored.toggleEndianness, k, stored.bitDepth, i, j, v);
            }
        }
    }
    return true;
}

bool readDescribed(const VideoProps &stored, const uint8_t *frame, int64_t bytes, int32_t x, int32_t row,
                   StoredSample &out)
{
    if (!frame || !isDescribedLayout(stored.format)) return false;
    if (x < 0 || row < 0 || x >= stored.width || row >= stored.height) return false;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const PlaneLayout pl = storedPlanes(stored);
    out = StoredSample{};
    auto read = [&](int k, int32_t &value) {
        const bool chroma = isChromaComponent(d, k);
        uint32_t v = 0;
        if (!readComponent(d, pl, frame, bytes, stored.toggleEndianness, k, stored.bitDepth,
                           chroma ? x >> d.log2ChromaW : x, chroma ? row >> d.log2ChromaH : row, v))
            return false;
        const int32_t depth = componentDepth(d, k, stored.bitDepth);
        value = stored.signedValues && (v >> (depth - 1)) & 1u ? int32_t(v) - (int32_t(1) << depth) : int32_t(v);
        return true;
    };
    if (d.cfa != Cfa::None) {
        out.c[1] = cfaColour(d.cfa, x, row);
        return read(0, out.c[0]);
    }
    for (int k = 0; k < std::min<int>(3, d.components); ++k)
        if (!read(k, out.c[k])) return false;
    if (d.components == 4) {
        if (!read(3, out.alpha)) return false;
        out.hasAlpha = true;
    }
    return true;
}

namespace {

inline int32_t mirror(int32_t v, int32_t n)
{
    return v < 0 ? std::min(-v, n - 1) : (v >= n ? std::max(2 * n - 2 - v, 0) : v);
}

template <typename D>
void demosaicRows(Cfa cfa, const D *m, int32_t W, int32_t H, D *out, int32_t y0, int32_t y1)
{
    const int64_t plane = int64_t(W) * H;
    auto at = [&](int32_t x, int32_t y) { return uint32_t(m[int64_t(mirror(y, H)) * W + mirror(x, W)]); };
    // The generic rule, used at the picture's edges: each missing colour from the 3x3 neighbours that carry it.
    auto edge = [&](int32_t x, int32_t y) {
        uint32_t sum[3] = {0, 0, 0}, n[3] = {0, 0, 0};
        for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
                if (!dx && !dy) continue;
                const int32_t sx = mirror(x + dx, W), sy = mirror(y + dy, H);
                const int32_t c = cfaColour(cfa, sx, sy);
                sum[c] += at(sx, sy);
                ++n[c];
            }
        const int32_t own = cfaColour(cfa, x, y);
        for (int c = 0; c < 3; ++c) {
            const uint32_t v = c == own ? at(x, y) : (n[c] ? (sum[c] + n[c] / 2) / n[c] : 0);
            out[c * plane + int64_t(y) * W + x] = D(v);
        }
    };
    for (int32_t y = y0; y < y1; ++y) {
        if (y == 0 || y == H - 1 || W < 3) {
            for (int32_t x = 0; x < W; ++x) edge(x, y);
            continue;
        }
        edge(0, y);
        const D *r0 = m + int64_t(y - 1) * W, *r1 = m + int64_t(y) * W, *r2 = m + int64_t(y + 1) * W;
        D *o = out + int64_t(y) * W;
        for (int32_t x = 1; x < W - 1; ++x) {
            const int32_t own = cfaColour(cfa, x, y);
            const uint32_t c = r1[x];
            if (own == 1) {
                // Green: the colour beside it on its row, and the other one above and below.
                const uint32_t h = (uint32_t(r1[x - 1]) + r1[x + 1] + 1) >> 1;
                const uint32_t v = (uint32_t(r0[x]) + r2[x] + 1) >> 1;
                const bool redBeside = cfaColour(cfa, x + 1, y) == 0;
                o[x] = D(redBeside ? h : v);
                o[plane + x] = D(c);
                o[2 * plane + x] = D(redBeside ? v : h);
            } else {
                const uint32_t g = (uint32_t(r0[x]) + r2[x] + r1[x - 1] + r1[x + 1] + 2) >> 2;
                const uint32_t d = (uint32_t(r0[x - 1]) + r0[x + 1] + r2[x - 1] + r2[x + 1] + 2) >> 2;
                o[x] = D(own == 0 ? c : d);
                o[plane + x] = D(g);
                o[2 * plane + x] = D(own == 0 ? d : c);
            }
        }
        edge(W - 1, y);
    }
}

} // namespace

void demosaicBilinear(Cfa cfa, const VideoProps &props, const uint8_t *mosaic, uint8_t *rgbPlanes, int32_t threads)
{
    const int32_t W = props.width, H = props.height;
    if (!mosaic || !rgbPlanes || W <= 0 || H <= 0 || cfa == Cfa::None) return;
    constexpr int32_t kBand = 32;
    const int32_t bands = (H + kBand - 1) / kBand;
    WorkerPool::shared().run(bands, helpersFor(threads), [&](int32_t b) {
        const int32_t y0 = b * kBand, y1 = std::min(H, y0 + kBand);
        if (props.containerBits == 16)
            demosaicRows(cfa, reinterpret_cast<const uint16_t *>(mosaic), W, H, reinterpret_cast<uint16_t *>(rgbPlanes),
                         y0, y1);
        else
            demosaicRows(cfa, mosaic, W, H, rgbPlanes, y0, y1);
    });
}

} // namespace kavri::pixel
