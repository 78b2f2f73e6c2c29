#include "pixel/LayoutUnpack.h"

#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/UnpackRows.h"
#include "pixel/WorkerPool.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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

#if defined(__SSE2__)
// The even 16-bit words of a and b, in order: each 32-bit lane's low word sign-extended stays inside the
// 16-bit range, so the saturating pack keeps it bit for bit.
inline __m128i evenWords(__m128i a, __m128i b)
{
    return _mm_packs_epi32(_mm_srai_epi32(_mm_slli_epi32(a, 16), 16), _mm_srai_epi32(_mm_slli_epi32(b, 16), 16));
}
#endif

// 16-bit words, every Step-th one, value (w >> shift) & mask: eight samples at a time where the row's
// bytes hold the whole load (the caller checked the row holds ((cols - 1) * Step + 1) words), the
// rest one at a time. Little-endian words (the plain rows only).
template <int Step>
void wordsRow16(const uint8_t *src, int32_t shift, uint32_t mask, uint16_t *dst, int32_t cols)
{
    int32_t i = 0;
#if defined(__SSE2__)
    const __m128i m = _mm_set1_epi16(int16_t(uint16_t(mask)));
    const __m128i sh = _mm_cvtsi32_si128(shift);
    for (; (i + 8) * Step <= (cols - 1) * Step + 1; i += 8) {
        const uint8_t *p = src + size_t(i) * Step * 2;
        __m128i v;
        if constexpr (Step == 1) {
            v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
        } else {
            __m128i w[Step];
            for (int k = 0; k < Step; ++k) w[k] = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * k));
            if constexpr (Step == 2) {
                v = evenWords(w[0], w[1]);
            } else {
                static_assert(Step == 4);
                v = evenWords(evenWords(w[0], w[1]), evenWords(w[2], w[3]));
            }
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), _mm_and_si128(_mm_srl_epi16(v, sh), m));
    }
#endif
    for (; i < cols; ++i) {
        uint16_t w;
        std::memcpy(&w, src + size_t(i) * Step * 2, 2);
        dst[i] = uint16_t((uint32_t(w) >> shift) & mask);
    }
}

// Bytes, every second one, whole: the chroma of NV21. Sixteen at a time as wordsRow16.
inline void bytesRowStep2(const uint8_t *src, uint8_t *dst, int32_t cols)
{
    int32_t i = 0;
#if defined(__SSE2__)
    const __m128i low = _mm_set1_epi16(0xff);
    for (; (i + 16) * 2 <= (cols - 1) * 2 + 1; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 2 * size_t(i)));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + 2 * size_t(i) + 16));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i),
                         _mm_packus_epi16(_mm_and_si128(a, low), _mm_and_si128(b, low)));
    }
#endif
    for (; i < cols; ++i) dst[i] = src[2 * size_t(i)];
}

template <typename S, typename D>
void plainRowAnyStep(const uint8_t *src, int32_t step, int32_t shift, uint32_t mask, D *dst, int32_t cols)
{
    // The rows of the common semi-planar and packed 4:2:x layouts.
    if constexpr (std::is_same_v<S, uint16_t> && std::is_same_v<D, uint16_t>) {
        switch (step) {
        case 1: return wordsRow16<1>(src, shift, mask, dst, cols);
        case 2: return wordsRow16<2>(src, shift, mask, dst, cols);
        case 4: return wordsRow16<4>(src, shift, mask, dst, cols);
        default: break;
        }
    }
    if constexpr (std::is_same_v<S, uint8_t> && std::is_same_v<D, uint8_t>) {
        if (shift == 0 && mask == 0xff && step == 1) {
            std::memcpy(dst, src, size_t(cols));
            return;
        }
        if (shift == 0 && mask == 0xff && step == 2) return bytesRowStep2(src, dst, cols);
    }
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

// Unpacks, for components [k0, k1), the canonical rows that picture rows [y0, y1) are shown from: the luma (or RGB,
// alpha) rows themselves and the chroma rows those rows use. A chroma row belongs to the range holding the first
// picture row it serves (and the range reaching the bottom takes any rows below), so the ranges of any
// split of the picture write each row once and can run on different threads.
// rowAt(k, target, j) gives where canonical row j of component k goes (null: left out). With `fieldChroma`
// (4:2:0 stored, chroma not subsampled vertically in `canon`) row j takes the chroma row of its field,
// as the interlaced 4:2:0 conversion does. A `chromaCols` above 0 is the samples a chroma row takes
// instead of the canonical row's (all the stored ones, where the canonical row has room for more).
template <typename D, typename RowAt>
void unpackRange(const VideoProps &stored, const PixelDescriptor &d, const PlaneLayout &pl, const uint8_t *src,
                 int64_t srcBytes, const VideoProps &canon, int64_t dstSamples, int32_t k0, int32_t k1, int32_t y0,
                 int32_t y1, const RowAt &rowAt, bool fieldChroma = false, int32_t chromaCols = 0)
{
    Target t[4];
    const int32_t n = std::min<int32_t>(canonicalTargets(canon, dstSamples, t), d.components);
    const int32_t wb = wordBytesOf(d, stored.containerBits);
    const bool bigEndian = stored.toggleEndianness && wb > 1;
    const int32_t H = canon.height;
    for (int k = k0; k < std::min(n, k1); ++k) {
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
        Target tk = t[k];
        if (chromaCols > 0 && isChromaComponent(d, k)) tk.cols = std::min(tk.cols, chromaCols);
        const int64_t rowBytes = pl.rowBytes[cd.plane];
        const int64_t first = pl.start[cd.plane] + int64_t(cd.offset) * wb;
        // A row the stored frame does not hold whole (a short buffer) is left as it was.
        const int64_t need =
            d.packing == Packing::Raw10 ? int64_t((tk.cols + 3) / 4) * 5 : (int64_t(tk.cols - 1) * cd.step + 1) * wb;
        // Row j serves picture rows from j << shiftY: the first j at or after y0, up to the first at y1.
        const int32_t j0 = std::min(tk.rows, ((y0 - 1) >> tk.shiftY) + 1);
        const int32_t j1 = y1 >= H ? tk.rows : std::min(tk.rows, ((y1 - 1) >> tk.shiftY) + 1);
        for (int32_t j = j0; j < j1; ++j) {
            int32_t sj = sourceRow(d, tk, k, j);
            // The last stored chroma row stands in for the one past it that heights of the form 4n + 2 ask for.
            if (fieldChroma && isChromaComponent(d, k))
                sj = std::min(2 * (j / 4) + (j & 1), componentGrid(d, k, stored.width, stored.height).rows - 1);
            const int64_t at = first + int64_t(sj) * rowBytes;
            D *out = rowAt(k, tk, j);
            if (!out || at < 0 || at + need > srcBytes) continue;
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
    }
}

// Whether a stored frame of the record goes through the descriptor unpack (rather than a row copy of
// an original packed layout).
bool unpacksByDescriptor(const VideoProps &stored)
{
    const LayoutKind kind = layoutInfo(stored.format).kind;
    return isDescribedLayout(stored.format) || kind == LayoutKind::PlanarYuv || kind == LayoutKind::PlanarRgb ||
           kind == LayoutKind::Luma;
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

VideoProps shownProps(const VideoProps &stored)
{
    VideoProps c = canonicalProps(stored);
    if (!isDescribedLayout(stored.format) || (c.format != YUV_p420 && c.format != YUV_p422)) return c;
    if (c.width & 1)
        c.format = YUV_p444;
    else if (c.format == YUV_p420 && (c.height & 1))
        c.format = YUV_p422;
    else
        return c;
    c.frameBytes = frameBytes(c.format, c.containerBits, c.width, c.height);
    return c;
}

namespace {

// Spreads the first (n + 1) / 2 samples of a row over its n samples, each on the two it covers: from a
// copy, front to back, so the loop vectorises.
template <typename D>
void spreadRow(D *row, int32_t n)
{
    thread_local std::vector<D> half;
    const int32_t pairs = n / 2;
    half.assign(row, row + (n + 1) / 2);
    const D *h = half.data();
    for (int32_t i = 0; i < pairs; ++i) {
        row[2 * i] = h[i];
        row[2 * i + 1] = h[i];
    }
    if (n & 1) row[n - 1] = h[pairs];
}

} // namespace

bool unpackShownRows(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, int32_t y0, int32_t y1,
                     uint8_t *dst, int64_t dstBytes)
{
    if (!src || !dst || !isDescribedLayout(stored.format) || y0 < 0 || y1 > stored.height || y0 >= y1) return false;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const VideoProps shown = shownProps(stored);
    VideoProps part = shown;
    part.height = y1 - y0;
    const int64_t need = allocationSize(part.format, part.containerBits, part.width, part.height);
    const int32_t sb = shown.containerBits / 8;
    const PlaneLayout pl = storedPlanes(stored);
    if (need == 0 || dstBytes < need || pl.frameBytes == 0) return false;
    Target bt[4];
    if (canonicalTargets(part, need / sb, bt) == 0) return false;
    // The 4:2:0 chroma rows a progressive or an interlaced conversion takes for each picture row.
    const bool fieldChroma = stored.interlaced && d.log2ChromaH == 1 && shown.format != canonicalProps(stored).format;
    // Shown through 4:4:4 planes, a chroma row takes every stored sample, the last column's too, each
    // then spread over the two pixels it covers.
    const bool spread = shown.format == YUV_p444 && d.log2ChromaW == 1;
    const int32_t chromaCols = spread ? componentGrid(d, 1, stored.width, stored.height).cols : 0;
    const int64_t wholeSamples = allocationSize(shown.format, shown.containerBits, shown.width, shown.height) / sb;
    const auto unpack = [&](auto *out) {
        using D = std::remove_pointer_t<decltype(out)>;
        const auto rowAt = [&](int k, const Target &, int32_t j) -> D * {
            return out + bt[k].start + int64_t(j - y0) * bt[k].stride;
        };
        unpackRange<D>(stored, d, pl, src, srcBytes, shown, wholeSamples, 0, d.components, y0, y1, rowAt, fieldChroma,
                       chromaCols);
        if (spread)
            for (int k = 1; k <= 2; ++k)
                for (int32_t j = y0; j < y1; ++j) spreadRow(rowAt(k, bt[k], j), bt[k].cols);
    };
    if (sb == 2)
        unpack(reinterpret_cast<uint16_t *>(dst));
    else
        unpack(dst);
    return true;
}

namespace {

// Unpacks, for components [k0, k1), the canonical rows that picture rows [firstRow, endRow) are shown
// from, at their places in the canonical frame (see unpackRange).
void unpackPart(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst, int64_t dstBytes,
                int32_t k0, int32_t k1, int32_t firstRow, int32_t endRow)
{
    if (!src || !dst || !needsUnpack(stored) || stored.width <= 0 || stored.height <= 0) return;
    if (!unpacksByDescriptor(stored) || firstRow >= endRow) return;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const VideoProps canon = canonicalProps(stored);
    const PlaneLayout pl = storedPlanes(stored);
    if (pl.frameBytes == 0) return;
    // Row j of a component at its place in the canonical frame; a row the buffer does not hold is left out.
    const auto into = [&](auto *out, int64_t samples) {
        return [=](int, const Target &t, int32_t j) {
            const int64_t at = t.start + int64_t(j) * t.stride;
            return at + t.cols > samples ? nullptr : out + at;
        };
    };
    if (canon.containerBits == 16)
        unpackRange<uint16_t>(stored, d, pl, src, srcBytes, canon, dstBytes / 2, k0, k1, firstRow, endRow,
                              into(reinterpret_cast<uint16_t *>(dst), dstBytes / 2));
    else
        unpackRange<uint8_t>(stored, d, pl, src, srcBytes, canon, dstBytes, k0, k1, firstRow, endRow,
                             into(dst, dstBytes));
}

} // namespace

namespace {

// The shapes of the common newer layouts that one pass over each stored row unpacks whole.
enum class Shape { None, SemiPlanar, Quads };

// A frame of a common shape, ready for the row loops: where each stored row and each canonical row lies.
struct FastPlan {
    Shape shape = Shape::None;
    int32_t wordBytes = 1, shift = 0;
    uint16_t mask = 0;
    bool swapChroma = false; // V stored before U (NV21) or at the second chroma place of a group
    PlaneLayout pl;
    Target t[3];
};

// The plan for a stored frame when it has a common shape and every row of it lies whole inside both
// buffers; otherwise Shape::None, and the component-by-component unpack does the frame.
FastPlan fastPlan(const VideoProps &stored, int64_t srcBytes, int64_t dstBytes)
{
    FastPlan f;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    if (!isDescribedLayout(stored.format) || d.packing != Packing::Words || d.components != 3 || d.cfa != Cfa::None ||
        stored.signedValues)
        return f;
    const VideoProps canon = canonicalProps(stored);
    const int32_t wb = wordBytesOf(d, stored.containerBits);
    if (wb > 2 || wb * 8 != canon.containerBits || (wb == 2 && stored.toggleEndianness)) return f;
    // One depth and shift for all three, and no widening: the value is the word's bits as they are.
    const int32_t depth = componentDepth(d, 0, stored.bitDepth);
    for (int k = 0; k < 3; ++k)
        if (componentDepth(d, k, stored.bitDepth) != depth || d.comp[size_t(k)].shift != d.comp[0].shift) return f;
    if (depth != canon.bitDepth || depth > 8 * wb || (wb == 1 && (depth != 8 || d.comp[0].shift != 0))) return f;
    const ComponentDesc &y = d.comp[0], &u = d.comp[1], &v = d.comp[2];
    if (d.planes == 2 && y.plane == 0 && y.step == 1 && y.offset == 0 && u.plane == 1 && v.plane == 1 && u.step == 2 &&
        v.step == 2 && u.offset + v.offset == 1) {
        f.shape = Shape::SemiPlanar;
        f.swapChroma = v.offset == 0;
    } else if (d.planes == 1 && wb == 2 && d.log2ChromaW == 1 && d.log2ChromaH == 0 && y.step == 2 && y.offset == 0 &&
               u.step == 4 && v.step == 4 && u.offset + v.offset == 4 && (u.offset == 1 || u.offset == 3)) {
        f.shape = Shape::Quads;
        f.swapChroma = u.offset == 3;
    } else {
        return f;
    }
    const int32_t W = stored.width, H = stored.height;
    const int64_t samples = dstBytes / wb;
    if (canonicalTargets(canon, samples, f.t) != 3) return FastPlan{};
    // With an odd height the second chroma plane of 4:2:0 starts inside the last row of the first; the
    // component order decides which samples stay there, so that frame goes component by component.
    if (f.t[1].shiftY && (H & 1)) return FastPlan{};
    f.pl = storedPlanes(stored);
    if (f.pl.frameBytes == 0) return FastPlan{};
    for (int k = 0; k < 3; ++k) {
        const Target &t = f.t[k];
        // Row j of every component comes from stored row j (the canonical subsampling is the stored one).
        if (t.shiftY != (k ? d.log2ChromaH : 0) || t.rows != componentGrid(d, k, W, H).rows) return FastPlan{};
        if (t.cols <= 0 || t.start + int64_t(t.rows - 1) * t.stride + t.cols > samples) return FastPlan{};
        const ComponentDesc &cd = d.comp[size_t(k)];
        const int64_t need = (int64_t(cd.offset) + int64_t(t.cols - 1) * cd.step + 1) * wb;
        if (f.pl.start[cd.plane] + int64_t(t.rows - 1) * f.pl.rowBytes[cd.plane] + need > srcBytes) return FastPlan{};
    }
    f.wordBytes = wb;
    f.shift = y.shift;
    f.mask = uint16_t(depth >= 16 ? 0xffffu : (1u << depth) - 1);
    return f;
}

// The canonical rows that picture rows [y0, y1) are shown from, all components in one pass a stored row,
// into the canonical frame whose components lie at `t` (f.t, or a frame of fewer rows), canonical row j
// at row j - base of it.
void unpackFastRows(const UnpackRowKernels &rows, const FastPlan &f, const Target *t, int32_t base, const uint8_t *src,
                    uint8_t *dst, int32_t y0, int32_t y1, int32_t H)
{
    const Target &ty = t[0], &tu = t[f.swapChroma ? 2 : 1], &tv = t[f.swapChroma ? 1 : 2];
    const int32_t wb = f.wordBytes;
    auto at = [&](const Target &c, int32_t j) { return dst + (c.start + int64_t(j - base) * c.stride) * wb; };
    if (f.shape == Shape::Quads) {
        const int32_t groups = ty.cols / 2;
        for (int32_t j = y0; j < y1; ++j) {
            const uint8_t *in = src + f.pl.start[0] + int64_t(j) * f.pl.rowBytes[0];
            auto *yy = reinterpret_cast<uint16_t *>(at(ty, j));
            rows.wordQuads(in, f.shift, f.mask, yy, reinterpret_cast<uint16_t *>(at(tu, j)),
                           reinterpret_cast<uint16_t *>(at(tv, j)), groups);
            // An odd width: the last pixel's luma opens a group whose chroma the canonical planes leave out.
            if (ty.cols & 1) rows.words(in + 8 * size_t(groups), f.shift, f.mask, yy + ty.cols - 1, 1);
        }
        return;
    }
    for (int32_t j = y0; j < y1; ++j) {
        const uint8_t *in = src + f.pl.start[0] + int64_t(j) * f.pl.rowBytes[0];
        if (wb == 1)
            std::memcpy(at(ty, j), in, size_t(ty.cols));
        else
            rows.words(in, f.shift, f.mask, reinterpret_cast<uint16_t *>(at(ty, j)), ty.cols);
    }
    // Chroma rows counted in the whole frame, wherever they are written.
    const int32_t sy = tu.shiftY, rowsU = f.t[1].rows;
    const int32_t j0 = std::min(rowsU, ((y0 - 1) >> sy) + 1);
    const int32_t j1 = y1 >= H ? rowsU : std::min(rowsU, ((y1 - 1) >> sy) + 1);
    for (int32_t j = j0; j < j1; ++j) {
        const uint8_t *in = src + f.pl.start[1] + int64_t(j) * f.pl.rowBytes[1];
        if (wb == 1)
            rows.bytePairs(in, at(tu, j), at(tv, j), tu.cols);
        else
            rows.wordPairs(in, f.shift, f.mask, reinterpret_cast<uint16_t *>(at(tu, j)),
                           reinterpret_cast<uint16_t *>(at(tv, j)), tu.cols);
    }
}

} // namespace

struct RowPlan {
    FastPlan f;
    VideoProps canon;
};

std::shared_ptr<const RowPlan> planOwnRows(const VideoProps &stored, int64_t srcBytes, int64_t dstBytes)
{
    if (!needsUnpack(stored) || stored.width <= 0 || stored.height <= 0 || !unpacksByDescriptor(stored)) return {};
    FastPlan f = fastPlan(stored, srcBytes, dstBytes);
    if (f.shape == Shape::None) return {};
    for (const Target &t : f.t)
        if (t.shiftY != 0) return {};
    auto plan = std::make_shared<RowPlan>();
    plan->f = f;
    plan->canon = canonicalProps(stored);
    return plan;
}

int64_t ownRowsBytes(const RowPlan &plan, int32_t rows)
{
    const VideoProps &c = plan.canon;
    return rows <= 0 ? 0 : allocationSize(c.format, c.containerBits, c.width, rows);
}

bool unpackOwnRows(const RowPlan &plan, const UnpackRowKernels &rows, const uint8_t *src, int32_t y0, int32_t y1,
                   uint8_t *dst, int64_t dstBytes)
{
    const int32_t H = plan.canon.height;
    if (!src || !dst || y0 < 0 || y1 > H || y0 >= y1 || dstBytes < ownRowsBytes(plan, y1 - y0)) return false;
    VideoProps part = plan.canon;
    part.height = y1 - y0;
    Target t[4];
    if (canonicalTargets(part, dstBytes / plan.f.wordBytes, t) != 3) return false;
    unpackFastRows(rows, plan.f, t, y0, src, dst, y0, y1, H);
    return true;
}

bool unpacksInOnePass(const VideoProps &stored, int64_t srcBytes, int64_t dstBytes)
{
    return needsUnpack(stored) && stored.width > 0 && stored.height > 0 &&
           fastPlan(stored, srcBytes, dstBytes).shape != Shape::None;
}

void unpackFrame(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst, int64_t dstBytes,
                 int32_t threads)
{
    unpackFrameWith(bestUnpackRows(), stored, src, srcBytes, dst, dstBytes, threads);
}

void unpackFrameWith(const UnpackRowKernels &rows, const VideoProps &stored, const uint8_t *src, int64_t srcBytes,
                     uint8_t *dst, int64_t dstBytes, int32_t threads)
{
    if (!src || !dst || !needsUnpack(stored) || stored.width <= 0 || stored.height <= 0) return;
    if (!unpacksByDescriptor(stored)) {
        const PlaneLayout pl = storedPlanes(stored);
        if (pl.frameBytes != 0) destrideRows(stored, pl, src, srcBytes, dst, dstBytes);
        return;
    }
    if (const FastPlan f = fastPlan(stored, srcBytes, dstBytes); f.shape != Shape::None) {
        // Bands of picture rows, each stored row read once while the rows it fills are written.
        constexpr int32_t kFastBand = 16;
        const int32_t H = stored.height;
        WorkerPool::shared().run((H + kFastBand - 1) / kFastBand, helpersFor(threads), [&](int32_t b) {
            unpackFastRows(rows, f, f.t, 0, src, dst, b * kFastBand, std::min(H, (b + 1) * kFastBand), H);
        });
        return;
    }
    // One component after the other (with an odd height the second chroma plane of 4:2:0 starts inside
    // the last row of the first, and the later component's samples are the ones kept there), each in
    // bands of picture rows spread over the pool.
    constexpr int32_t kBand = 32;
    const int32_t bands = (stored.height + kBand - 1) / kBand;
    for (int32_t k = 0; k < pixelDescriptor(stored.format)->components; ++k)
        WorkerPool::shared().run(bands, helpersFor(threads), [&](int32_t b) {
            unpackPart(stored, src, srcBytes, dst, dstBytes, k, k + 1, b * kBand,
                       std::min(stored.height, (b + 1) * kBand));
        });
}

void unpackFrameReference(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst,
                          int64_t dstBytes)
{
    if (!src || !dst || !needsUnpack(stored) || stored.width <= 0 || stored.height <= 0) return;
    const PixelDescriptor &d = *pixelDescriptor(stored.format);
    const VideoProps canon = canonicalProps(stored);
    const PlaneLayout pl = storedPlanes(stored);
    if (!unpacksByDescriptor(stored)) {
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

namespace {

// One stored row of a component of a word layout, written as writeComponent writes each sample (the
// value's bits at the component's shift, the word's other bits kept), without looking the place up
// sample by sample: samples `from` + i of the canonical row (the last repeated where the stored grid is
// wider), narrowed by `down` bits.
template <typename D>
void packWordsRow(const ComponentDesc &cd, int32_t wb, bool bigEndian, int32_t depth, const D *canonical, int64_t from,
                  int32_t canonCols, int64_t samples, int32_t down, uint8_t *dst, int64_t rowStart, int64_t dstBytes,
                  int32_t cols)
{
    const uint32_t mask = (depth >= 32 ? 0xffffffffu : (uint32_t(1) << depth) - 1) << cd.shift;
    for (int32_t i = 0; i < cols; ++i) {
        const int64_t src = from + std::min(i, canonCols - 1);
        const int64_t at = rowStart + (int64_t(cd.offset) + int64_t(i) * cd.step) * wb;
        if (src >= samples || at < 0 || at + wb > dstBytes) continue;
        uint8_t *p = dst + at;
        uint32_t old = 0;
        if (bigEndian)
            for (int b = 0; b < wb; ++b) old = (old << 8) | p[b];
        else
            for (int b = wb - 1; b >= 0; --b) old = (old << 8) | p[b];
        const uint32_t w = (old & ~mask) | ((uint32_t(canonical[src] >> down) << cd.shift) & mask);
        for (int b = 0; b < wb; ++b) p[bigEndian ? wb - 1 - b : b] = uint8_t(w >> (8 * b));
    }
}

} // namespace

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
    // The word size writeComponent takes: from the depth, as the record's container is not consulted there.
    const int32_t wb = wordBytesOf(d, stored.bitDepth > 8 ? 16 : 8);
    for (int k = 0; k < n; ++k) {
        const ComponentGrid g = componentGrid(d, k, stored.width, stored.height);
        const int32_t depth = componentDepth(d, k, stored.bitDepth);
        const int32_t sy = isChromaComponent(d, k) ? d.log2ChromaH : 0;
        if (t[k].cols <= 0 || t[k].rows <= 0) continue;
        for (int32_t j = 0; j < g.rows; ++j) {
            // The canonical row this stored row was (or would be) unpacked into; the right and bottom
            // edges repeat the last canonical sample where the stored grid is a sample wider.
            const int32_t cj = std::min(t[k].rows - 1, int32_t((int64_t(j) << sy) >> t[k].shiftY));
            const int64_t rowAt = t[k].start + int64_t(cj) * t[k].stride;
            const int32_t down = depth < canon.bitDepth ? canon.bitDepth - depth : 0;
            if (d.packing == Packing::Words) {
                const int64_t words =
                    pl.start[d.comp[size_t(k)].plane] + int64_t(j) * pl.rowBytes[d.comp[size_t(k)].plane];
                if (wide)
                    packWordsRow(d.comp[size_t(k)], wb, stored.toggleEndianness, depth,
                                 reinterpret_cast<const uint16_t *>(canonical), rowAt, t[k].cols, samples, down, dst,
                                 words, dstBytes, g.cols);
                else
                    packWordsRow(d.comp[size_t(k)], wb, stored.toggleEndianness, depth, canonical, rowAt, t[k].cols,
                                 samples, down, dst, words, dstBytes, g.cols);
                continue;
            }
            for (int32_t i = 0; i < g.cols; ++i) {
                const int64_t at = rowAt + std::min(i, t[k].cols - 1);
                if (at >= samples) continue;
                uint32_t v = wide ? reinterpret_cast<const uint16_t *>(canonical)[at] : canonical[at];
                writeComponent(d, pl, dst, dstBytes, stored.toggleEndianness, k, stored.bitDepth, i, j, v >> down);
            }
        }
    }
    return true;
}

bool packFrameReference(const VideoProps &stored, const uint8_t *canonical, int64_t canonicalBytes, uint8_t *dst,
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
