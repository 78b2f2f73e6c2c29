#include "pixel/ColorConversion.h"

#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "pixel/ColourMath.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"
#include "pixel/WorkerPool.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace kavri;
using namespace kavri::pixel;

namespace ColorConversion {

namespace {

struct Matrix {
    int32_t m[9];
    int32_t offset[3]; // added to c1, c2, c3 at 8-bit scale
};

// Full-range BT.709 at 1/256 scale; the luma gain 257/256 and the cross terms 2 and -1 are intended.
constexpr Matrix kYuvMatrix = {{257, 2, 404, 257, -47, -119, 257, 476, -1}, {0, -128, -128}};
constexpr Matrix kRgbIdentity = {{256, 0, 0, 0, 256, 0, 0, 0, 256}, {0, 0, 0}};
// One component as grey: all three outputs take the same row, without offsets.
constexpr Matrix kComponent[3] = {
    {{256, 0, 0, 256, 0, 0, 256, 0, 0}, {0, 0, 0}},
    {{0, 256, 0, 0, 256, 0, 0, 256, 0}, {0, 0, 0}},
    {{0, 0, 256, 0, 0, 256, 0, 0, 256}, {0, 0, 0}},
};

bool isRgbLayout(videoFormat_t f) { return f >= RGB_i444 && f <= GBRA_planar; }

// The second and third planes of a planar layout as the planar kernels take them: the chroma planes of
// planar YUV, or the full second and third planes of planar RGB.
ChromaPlanes planesOf(videoFormat_t layout, const LayoutInfo &info, int32_t W, int32_t H, int64_t bufferSamples)
{
    if (info.kind == LayoutKind::PlanarYuv) return chromaPlanes(layout, W, H, bufferSamples);
    const int64_t pixels = int64_t(W) * H;
    ChromaPlanes c;
    c.uStart = pixels;
    c.vStart = 2 * pixels;
    c.cols = W;
    c.rows = c.uFit = c.vFit = H;
    return c;
}

// A zero sample row for chroma that a tiny frame does not store (see the right-edge note below).
const uint8_t *zeroSamples(size_t bytes)
{
    static thread_local std::vector<uint8_t> zeros;
    if (zeros.size() < bytes) zeros.assign(bytes, 0);
    return zeros.data();
}

inline uint32_t *pixelRow(uint8_t *dst, int32_t width, int32_t row)
{
    return reinterpret_cast<uint32_t *>(dst + size_t(row) * size_t(width) * 4);
}

// Blue, green and red of one pixel set to zero, its fourth byte kept.
inline void clearPixel(uint8_t *px) { px[0] = px[1] = px[2] = 0; }

bool coefficientsFit16(const RowParams &p)
{
    for (const auto &row : p.m)
        for (uint32_t m : row)
            if (int32_t(m) < -32768 || int32_t(m) > 32767) return false;
    return true;
}

} // namespace

// Everything about one conversion that does not change from row to row, worked out once per frame.
//
// Right edge. Where the width is not a multiple of the chroma subsampling, the pixels beyond the last
// whole group take the row's last chroma sample (the same replication the picture uses everywhere);
// a row too narrow to hold any chroma sample (width below the factor) reads chroma as 0. Packed 4:2:2
// rows store W/2 pairs, so with an odd width the last pixel has no sample at all and is written black.
// A v210 row always holds the partial last group, and its existing pixels are decoded. Chroma rows
// that the truncated byte count leaves partly outside the buffer (only possible for tiny widths) are
// replaced by the last whole row, and the interlaced 4:2:0 rule, which for heights of the form 4n+2
// asks for one chroma row more than is stored, uses the last row. Nothing is ever read outside the
// buffer's allocation size or written outside width x height pixels.
struct X2RGBColorConv::Prepared {
    enum class Path { Planar, Packed, Nv12, V210, Rgb, Luma };
    Path path = Path::Planar;
    const KernelSet *k = nullptr;
    RowParams p{};
    int32_t width = 0, height = 0;
    bool flip = false;
    int32_t sampleBytes = 1;
    // Planar and nv12
    PlanarRowFn planar = nullptr, planarOne = nullptr;
    ChromaPlanes chroma;
    bool interlacedChroma = false;
    // Packed rows, RGB, luma
    RowFn row = nullptr;
    int64_t rowSamples = 0;
    SemiRowFn semi = nullptr;
    // Tone table applied by a pass over each finished row (sets with a fast table pass).
    ToneRowFn toneAfter = nullptr;
};

X2RGBColorConv::X2RGBColorConv() { setToneCurve(kDefaultValue, kDefaultValue, kDefaultValue); }

X2RGBColorConv::~X2RGBColorConv() = default;

void X2RGBColorConv::setDescription(const VideoProps &props)
{
    m_props = props;
    kavri::normaliseContainer(m_props);
}

void X2RGBColorConv::setToneCurve(int32_t brightness, int32_t contrast, int32_t gamma)
{
    m_brightness = brightness == kDefaultValue ? 0 : brightness;
    m_contrast = contrast == kDefaultValue ? 0 : contrast;
    m_gamma = gamma == kDefaultValue ? 256 : gamma;

    // Gain in 1/4096; above unity it grows slightly faster than linearly.
    int32_t k = m_contrast + 4096;
    if (k > 4096) k = int32_t(std::pow(double(k), 1.03));
    // The curve pivots on mid-grey: entry i = (i - 128) * k / 4096 + 128 + brightness.
    int64_t acc = -128 * int64_t(k);
    // The gamma curve is normalised to the sample range, not to the table's 0..255.
    const int32_t bits = m_props.bitDepth >= 1 && m_props.bitDepth <= 16 ? m_props.bitDepth : 8;
    const double M = double((1 << bits) - 1);
    const double e = 256.0 / double(m_gamma);
    for (int i = 0; i < 256; ++i) {
        const int64_t base = (acc >> 12) + m_brightness + 128;
        acc += k;
        int32_t entry;
        if (m_gamma == 256) {
            entry = base >= 256 ? 255 : (base < 1 ? 0 : int32_t(base));
        } else {
            const double v = base < 0 ? 0.0 : std::pow(double(base) / M, e) * M + 0.5;
            // Compared as doubles first so an infinite or NaN value never reaches the integer conversion.
            entry = v >= 256.0 ? 255 : (v >= 1.0 ? int32_t(v) : 0);
        }
        m_toneTable[size_t(i)] = entry;
    }
    m_toneIdentity = true;
    for (int i = 0; i < 256; ++i) {
        m_toneIdentity = m_toneIdentity && m_toneTable[size_t(i)] == i;
        m_toneBytes[size_t(i)] = uint8_t(m_toneTable[size_t(i)]);
    }
}

void X2RGBColorConv::setChannelSelection(int32_t selection) { m_channelSelection = selection; }

void X2RGBColorConv::setUnsigned(bool isUnsigned) { m_signed = !isUnsigned; }

bool X2RGBColorConv::setKernelVariant(const char *name)
{
    const KernelSet *k = kernelsByName(name);
    if (!k) return false;
    m_kernels = k;
    return true;
}

const char *X2RGBColorConv::kernelVariant() const { return (m_kernels ? m_kernels : &bestKernels())->name; }

void X2RGBColorConv::swapToNative(uint8_t *frame) const
{
    if (!frame || !m_props.toggleEndianness || m_props.containerBits != 16) return;
    const uint32_t bytes = frameBytes(m_props.format, m_props.containerBits, m_props.width, m_props.height);
    const size_t words = bytes / 2;
    if (words == 0) return;
    const KernelSet &k = m_kernels ? *m_kernels : bestKernels();
    uint16_t *w = reinterpret_cast<uint16_t *>(frame);
    // Each word is swapped on its own, so the frame can be cut into independent blocks.
    constexpr size_t kBlock = size_t(1) << 20;
    const int32_t blocks = int32_t((words + kBlock - 1) / kBlock);
    const int32_t helpers = m_threads == 1 ? 0 : (m_threads == 0 ? 7 : m_threads - 1);
    WorkerPool::shared().run(blocks, helpers, [&](int32_t b) {
        const size_t first = size_t(b) * kBlock;
        k.swap16(w + first, words - first < kBlock ? words - first : kBlock);
    });
}

void X2RGBColorConv::convertFrame(uint8_t *src, uint8_t *dst)
{
    swapToNative(src);
    convertNativeFrame(src, dst);
}

void X2RGBColorConv::convertNativeFrame(const uint8_t *src, uint8_t *dst)
{
    if (src) convertFrom(src, dst, nullptr);
}

bool X2RGBColorConv::convertNativeBands(uint8_t *dst, const BandSource &band)
{
    return band && convertFrom(nullptr, dst, &band);
}

bool X2RGBColorConv::convertFrom(const uint8_t *src, uint8_t *dst, const BandSource *band)
{
    const videoFormat_t layout = m_props.format;
    const int32_t W = m_props.width, H = m_props.height;
    const int32_t bits = m_props.bitDepth, container = m_props.containerBits;
    if (!dst || !isCoreLayout(layout) || W <= 0 || H <= 0) return false;
    // Only 8- and 16-bit containers and depths 1..16 have kernels; anything else converts nothing.
    if (bits < 1 || bits > 16 || (container != 8 && container != 16)) return false;
    const int64_t alloc = allocationSize(layout, container, W, H);
    if (alloc == 0) return false;
    // Any reading but the default takes its own path; the default below stays exactly as it was. Showing
    // one component as grey shows stored samples, whatever the reading.
    if (!readsDefault()) {
        if (band) return false;
        convertDescribed(src, dst, alloc);
        return true;
    }

    const int32_t down = bits >= 8 ? bits - 8 : 0;
    const int32_t up = bits >= 8 ? 0 : 8 - bits;

    // The block copy, under exactly these conditions (a stored gamma of 0, not the default 256).
    if (layout == BGRA_i444 && container == 8 && down == 0 && !m_props.flipped && m_channelSelection == 0 &&
        m_brightness == 0 && m_contrast == 0 && m_gamma == 0) {
        if (band) return false;
        std::memcpy(dst, src, size_t(W) * size_t(H) * 4);
        return true;
    }

    const LayoutInfo &info = layoutInfo(layout);
    Prepared job;
    job.k = m_kernels ? m_kernels : &bestKernels();
    job.width = W;
    job.height = H;
    job.flip = m_props.flipped;
    job.toneAfter = m_toneIdentity ? nullptr : job.k->toneRow;
    const int tone = m_toneIdentity || job.toneAfter ? 0 : 1;
    const bool use8 = down == 0 && container == 8;
    const int kind = use8 ? (m_signed ? kS8 : kU8) : (m_signed ? kS16 : kU16);
    const int kind8 = m_signed ? kS8 : kU8;

    // Matrix and the storage component feeding each of c1, c2, c3.
    const Matrix &mx = m_channelSelection >= 1 && m_channelSelection <= 3 ? kComponent[m_channelSelection - 1]
                       : isRgbLayout(layout)                              ? kRgbIdentity
                                                                          : kYuvMatrix;
    int source[3] = {0, 1, 2};
    if (isRgbLayout(layout))
        for (int l = 0; l < 3; ++l) source[l] = info.rgbSource[size_t(l)];
    // Swapping the chroma planes (or the second and third planes of planar RGB) exchanges storage
    // components 1 and 2 before the RGB plane assignment.
    if (m_props.swapUV && info.kind != LayoutKind::InterleavedRgb && info.kind != LayoutKind::Luma)
        for (int &s : source) s = s == 1 ? 2 : (s == 2 ? 1 : s);

    // Per-component additive term c = sample + signed offset + offset', and the rounding.
    int32_t half = m_signed ? (1 << bits) >> 1 : 0;
    int32_t offs[3];
    int32_t round = 128, shift = down + 8, upShift = up;
    for (int l = 0; l < 3; ++l) offs[l] = (mx.offset[l] * (1 << down)) >> up;
    if (layout == YUV_nv12) {
        round = 512; // two output levels above the other kernels, kept as the nv12 output
        shift = 8;
        upShift = 0;
    } else if (layout == YUV_v210) {
        // 10-bit fields as they are: offsets at 10-bit scale, rounding and shift of a 10-bit sum.
        half = 0;
        for (int l = 0; l < 3; ++l) offs[l] = mx.offset[l] * 4;
        round = 512;
        shift = 10;
        upShift = 0;
    }
    for (int i = 0; i < 3; ++i) {
        uint32_t add = uint32_t(round);
        for (int j = 0; j < 3; ++j) job.p.m[i][j] = 0;
        for (int l = 0; l < 3; ++l) {
            const uint32_t coef = uint32_t(mx.m[3 * i + l]);
            job.p.m[i][source[l]] += coef;
            add += coef * uint32_t(half + offs[l]);
        }
        job.p.add[i] = add;
    }
    job.p.up = upShift;
    job.p.shift = shift;
    job.p.tone = m_toneTable.data();
    job.p.toneBytes = m_toneBytes.data();

    const int64_t pixels = int64_t(W) * H;
    bool zeroOddHeight = false;
    switch (info.kind) {
    case LayoutKind::PlanarYuv:
    case LayoutKind::PlanarRgb:
        job.path = Prepared::Path::Planar;
        job.sampleBytes = use8 ? 1 : 2;
        job.chroma = planesOf(layout, info, W, H, alloc / job.sampleBytes);
        job.planar = job.k->planar[kind][job.chroma.shiftX][tone];
        job.planarOne = job.k->planar[kind][0][tone];
        job.interlacedChroma = layout == YUV_p420 && m_props.interlaced;
        zeroOddHeight = layout == YUV_p420 || layout == YUV_p410;
        break;
    case LayoutKind::Packed422:
        job.path = Prepared::Path::Packed;
        job.sampleBytes = use8 ? 1 : 2;
        job.rowSamples = int64_t(W / 2) * 4;
        job.row = (layout == YUV_uyvy ? job.k->packedUFirst : job.k->packedYFirst)[kind][tone];
        break;
    case LayoutKind::SemiPlanar:
        job.path = Prepared::Path::Nv12;
        job.sampleBytes = 1;
        job.chroma = chromaPlanes(layout, W, H, alloc);
        job.semi = job.k->nv12[kind8][tone];
        job.planarOne = job.k->planar[kind8][0][tone];
        break;
    case LayoutKind::V210:
        job.path = Prepared::Path::V210;
        job.rowSamples = v210RowBytes(W) / 4;
        job.planar = job.k->planar[kU16][1][tone];
        job.planarOne = job.k->planar[kU16][0][tone];
        break;
    case LayoutKind::InterleavedRgb:
        job.path = Prepared::Path::Rgb;
        if (info.samplesPerPixel == 4) {
            // Four bytes a pixel: always the 8-bit kernel, whatever the container.
            job.sampleBytes = 1;
            job.row = job.k->rgb4[kind8 == kS8 ? 1 : 0][tone];
        } else {
            // RGB takes the 8-bit kernel whenever the down shift is 0, even with a 16-bit container,
            // unlike BGR: kept as the output of such files.
            const bool eight = layout == RGB_i444 ? down == 0 : use8;
            job.sampleBytes = eight ? 1 : 2;
            job.row = job.k->rgb3[eight ? kind8 : (m_signed ? kS16 : kU16)][tone];
        }
        job.rowSamples = int64_t(W) * info.samplesPerPixel;
        break;
    case LayoutKind::Luma:
        job.path = Prepared::Path::Luma;
        job.sampleBytes = use8 ? 1 : 2;
        job.rowSamples = W;
        job.row = job.k->luma[kind][tone];
        job.p.add[0] = uint32_t(half);
        job.p.up = up;
        job.p.shift = down;
        break;
    }

    // Bands of rows on the worker pool for large frames; small ones are not worth the hand-off.
    constexpr int64_t kPoolPixels = 1 << 17;
    const int32_t helpers = m_threads == 1 || pixels < kPoolPixels ? 0 : (m_threads == 0 ? 7 : m_threads - 1);
    WorkerPool &pool = WorkerPool::shared();
    const int32_t workers = 1 + (helpers < pool.threadCount() ? helpers : pool.threadCount());
    const int32_t bands = workers == 1 ? 1 : (4 * workers < H ? 4 * workers : H);
    // Small enough that a band's stored bytes, its samples and its picture rows stay in the core's cache.
    constexpr int32_t kBandRows = 16;
    if (band) {
        // Planar frames only, each picture row reading its own stored row alone: nothing subsampled
        // vertically, and every chroma row inside the buffer of the whole frame and of a band of any
        // height (so none is replaced by another).
        if (job.path != Prepared::Path::Planar || job.chroma.shiftY != 0 || job.interlacedChroma || zeroOddHeight)
            return false;
        for (int32_t n = 1; n <= std::min(H, kBandRows); ++n) {
            const ChromaPlanes c =
                planesOf(layout, info, W, n, allocationSize(layout, container, W, n) / job.sampleBytes);
            if (c.uFit != c.rows || c.vFit != c.rows || c.rows != n) return false;
        }
        if (job.chroma.uFit != job.chroma.rows || job.chroma.vFit != job.chroma.rows) return false;
        pool.run(bands, helpers, [&](int32_t b) {
            const int32_t r0 = int32_t(int64_t(H) * b / bands), r1 = int32_t(int64_t(H) * (b + 1) / bands);
            for (int32_t c0 = r0; c0 < r1; c0 += kBandRows) {
                const int32_t c1 = std::min(r1, c0 + kBandRows), n = c1 - c0;
                const uint8_t *rows = job.flip ? (*band)(H - c1, H - c0) : (*band)(c0, c1);
                if (!rows) continue;
                // The band as a frame of its own: n rows, its planes one after the other.
                Prepared part = job;
                part.height = n;
                part.chroma = planesOf(layout, info, W, n, allocationSize(layout, container, W, n) / job.sampleBytes);
                convertRows(part, rows, reinterpret_cast<uint8_t *>(pixelRow(dst, W, c0)), 0, n);
            }
        });
        return true;
    }
    pool.run(bands, helpers, [&](int32_t b) {
        const int32_t r0 = int32_t(int64_t(H) * b / bands), r1 = int32_t(int64_t(H) * (b + 1) / bands);
        convertRows(job, src, dst, r0, r1);
    });

    // The 4:2:0 and 4:1:0 kernels clear the middle of the last row of an odd-height picture:
    // pixels W/2 .. 2*(W/2)-1 become all-zero bytes. Kept as the output for such heights.
    if (zeroOddHeight && (H & 1)) std::memset(pixelRow(dst, W, H - 1) + W / 2, 0, size_t(W / 2) * 4);
    return true;
}

void X2RGBColorConv::convertRows(const Prepared &job, const uint8_t *src, uint8_t *dst, int32_t r0, int32_t r1) const
{
    const int32_t W = job.width, H = job.height;
    const RowParams &p = job.p;
    const size_t sb = size_t(job.sampleBytes);
    for (int32_t r = r0; r < r1; ++r) {
        const int32_t s = job.flip ? H - 1 - r : r;
        uint32_t *d = pixelRow(dst, W, r);
        switch (job.path) {
        case Prepared::Path::Planar: {
            const ChromaPlanes &c = job.chroma;
            int32_t cr = job.interlacedChroma ? 2 * (s / 4) + (s & 1) : s >> c.shiftY;
            if (cr >= c.rows) cr = c.rows - 1;
            const uint8_t *y = src + size_t(s) * size_t(W) * sb;
            const uint8_t *u = c.uFit > 0
                                   ? src + size_t(c.uStart + int64_t(cr < c.uFit ? cr : c.uFit - 1) * c.cols) * sb
                                   : zeroSamples(size_t(c.cols + 1) * sb);
            const uint8_t *v = c.vFit > 0
                                   ? src + size_t(c.vStart + int64_t(cr < c.vFit ? cr : c.vFit - 1) * c.cols) * sb
                                   : zeroSamples(size_t(c.cols + 1) * sb);
            job.planar(p, y, u, v, d, c.cols);
            const int32_t last = c.cols > 0 ? c.cols - 1 : 0;
            for (int32_t x = c.cols << c.shiftX; x < W; ++x)
                job.planarOne(p, y + size_t(x) * sb, u + size_t(last) * sb, v + size_t(last) * sb, d + x, 1);
            break;
        }
        case Prepared::Path::Nv12: {
            const ChromaPlanes &c = job.chroma;
            // Only the luma rows follow the flip; the chroma row is counted from the top.
            int32_t cr = r >> 1;
            if (cr >= c.uFit) cr = c.uFit - 1;
            const uint8_t *y = src + size_t(s) * size_t(W);
            const uint8_t *uv = cr >= 0 ? src + size_t(c.uStart + int64_t(cr) * c.cols) : zeroSamples(size_t(W) + 2);
            const int32_t pairs = W / 2;
            job.semi(p, y, uv, d, pairs);
            if (W & 1) {
                const uint8_t *last = pairs > 0 ? uv + 2 * (pairs - 1) : zeroSamples(2);
                job.planarOne(p, y + W - 1, last, last + 1, d + W - 1, 1);
            }
            break;
        }
        case Prepared::Path::Packed: {
            job.row(p, src + size_t(s) * size_t(job.rowSamples) * sb, d, W / 2);
            if (job.toneAfter) job.toneAfter(d, 2 * (W / 2), p.toneBytes);
            if (W & 1) clearPixel(reinterpret_cast<uint8_t *>(d + W - 1));
            continue; // the last pixel is black, not toned
        }
        case Prepared::Path::V210: {
            const int32_t groups = (W + 5) / 6; // the partial last group lies inside the padded row
            static thread_local std::vector<uint16_t> scratch;
            if (scratch.size() < size_t(groups) * 12) scratch.resize(size_t(groups) * 12);
            uint16_t *y = scratch.data(), *u = y + size_t(groups) * 6, *v = u + size_t(groups) * 3;
            job.k->v210Unpack(reinterpret_cast<const uint32_t *>(src) + size_t(s) * size_t(job.rowSamples), y, u, v,
                              groups);
            job.planar(p, y, u, v, d, W / 2);
            if (W & 1) job.planarOne(p, y + W - 1, u + W / 2, v + W / 2, d + W - 1, 1);
            break;
        }
        case Prepared::Path::Rgb:
        case Prepared::Path::Luma: job.row(p, src + size_t(s) * size_t(job.rowSamples) * sb, d, W); break;
        }
        if (job.toneAfter) job.toneAfter(d, W, p.toneBytes);
    }
}

bool X2RGBColorConv::readNative(const uint8_t *frame, int32_t x, int32_t row, int32_t &c1, int32_t &c2, int32_t &c3,
                                int32_t *alpha) const
{
    const videoFormat_t layout = m_props.format;
    if (!isCoreLayout(layout)) return false;
    if (m_props.bitDepth > 16) return true; // no reader for such depths; nothing is read
    const int64_t bytes = allocationSize(layout, m_props.containerBits, m_props.width, m_props.height);
    StoredSample s;
    if (!readStored(frame, bytes, layout, m_props.width, m_props.height, m_props.bitDepth, m_signed, x, row, s))
        return false;
    // Planar RGB comes out in the conversion's red, green, blue assignment (the same deliberate BRG/GBR
    // exchange), so the values match what the picture shows.
    const LayoutInfo &info = layoutInfo(layout);
    if (info.kind == LayoutKind::PlanarRgb) {
        const StoredSample planes = s;
        for (int l = 0; l < 3; ++l) s.c[l] = planes.c[info.rgbSource[size_t(l)]];
    }
    c1 = s.c[0];
    c2 = s.c[1];
    c3 = s.c[2];
    if (alpha && s.hasAlpha) *alpha = s.alpha;
    return true;
}

// ---- The described reading --------------------------------------------------------------------------

namespace {

// Everything the gathered rows need: the samples of one output row are brought into three 16-bit rows
// of unsigned codes at full width (chroma reconstructed with the siting, with `fracBits` extra bits),
// then converted by the planar 4:4:4 kernel (SDR) or the high-dynamic-range loop.
struct Gathered {
    videoFormat_t layout = YUV_p420;
    LayoutKind kind = LayoutKind::PlanarYuv;
    const KernelSet *k = nullptr;
    int32_t width = 0, height = 0;
    bool flip = false;
    int32_t sampleBytes = 1;
    bool isSigned = false;
    int32_t half = 0;
    int32_t fracBits = 0;
    int32_t samplesPerPixel = 0; // interleaved RGB
    int64_t rowSamples = 0;      // packed rows (samples), v210 rows (words)
    ChromaPlanes chroma;         // planar YUV and nv12
    int32_t cols = 0, rows = 0;  // chroma samples a row, chroma rows
    int32_t shiftX = 0, shiftY = 0;
    bool reconstruct = false; // chroma is subsampled: rebuild it at full width
    ChromaSiting siting = ChromaSiting::Nearest;
    std::vector<int32_t> h0, h1, hw; // per column: chroma columns and the weight of h1 in 1/16
    // SDR
    PlanarRowFn planar = nullptr;
    RowParams p{};
    ToneRowFn toneAfter = nullptr;
    // High dynamic range
    bool hdr = false;
    HdrParams h{};
    HdrRowFn hdrRow = nullptr;
    // Sited chroma in one pass (sitedRows): the kernel set's sited row, and how luma and chroma are read.
    SitedRowFn sitedRow = nullptr;
    SitedLuma sitedLuma = kLuma8;
    uint32_t maxCode = 0;               // of 16-bit chroma codes
    const uint8_t *toneBytes = nullptr; // the tone table, where the kernel set has no tone pass
    bool streamed = false;              // the frame and the picture outgrow a last-level cache (see sitedRows)
};

template <typename T>
void loadCodes(const uint8_t *base, int64_t first, int64_t step, int32_t n, int32_t half, uint16_t *out)
{
    for (int32_t i = 0; i < n; ++i) {
        T v;
        std::memcpy(&v, base + size_t(first + int64_t(i) * step) * sizeof(T), sizeof(T));
        const int32_t c = int32_t(v) + half;
        out[i] = uint16_t(c < 0 ? 0 : (c > 65535 ? 65535 : c));
    }
}

// n codes from the samples first, first + step, ... of `base` (counted in samples).
inline void codes(const Gathered &g, const uint8_t *base, int64_t first, int64_t step, int32_t n, uint16_t *out)
{
    if (g.sampleBytes == 1) {
        if (g.isSigned)
            loadCodes<int8_t>(base, first, step, n, g.half, out);
        else
            loadCodes<uint8_t>(base, first, step, n, 0, out);
    } else {
        if (g.isSigned)
            loadCodes<int16_t>(base, first, step, n, g.half, out);
        else
            loadCodes<uint16_t>(base, first, step, n, 0, out);
    }
}

struct GatherScratch {
    std::vector<uint16_t> c[3], u[2], v[2], unpack;
    std::vector<int32_t> tu, tv;
};

void unpackV210(const Gathered &g, const uint8_t *src, int32_t row, GatherScratch &s)
{
    const int32_t groups = (g.width + 5) / 6;
    s.unpack.resize(size_t(groups) * 12);
    uint16_t *y = s.unpack.data();
    g.k->v210Unpack(reinterpret_cast<const uint32_t *>(src) + size_t(row) * size_t(g.rowSamples), y,
                    y + size_t(groups) * 6, y + size_t(groups) * 9, groups);
}

// Chroma row j (clamped to the stored rows) as codes into u and v, g.cols of each.
void chromaRow(const Gathered &g, const uint8_t *src, int32_t j, uint16_t *u, uint16_t *v, GatherScratch &s)
{
    j = j < 0 ? 0 : (j >= g.rows ? g.rows - 1 : j);
    switch (g.kind) {
    case LayoutKind::PlanarYuv: {
        const ChromaPlanes &c = g.chroma;
        if (c.uFit > 0)
            codes(g, src, c.uStart + int64_t(j < c.uFit ? j : c.uFit - 1) * c.cols, 1, g.cols, u);
        else
            std::fill(u, u + g.cols, uint16_t(g.half));
        if (c.vFit > 0)
            codes(g, src, c.vStart + int64_t(j < c.vFit ? j : c.vFit - 1) * c.cols, 1, g.cols, v);
        else
            std::fill(v, v + g.cols, uint16_t(g.half));
        break;
    }
    case LayoutKind::Packed422: {
        const int64_t base = int64_t(j) * g.rowSamples, uFirst = g.layout == YUV_uyvy ? 0 : 1;
        codes(g, src, base + uFirst, 4, g.cols, u);
        codes(g, src, base + uFirst + 2, 4, g.cols, v);
        break;
    }
    case LayoutKind::SemiPlanar: {
        const int64_t base = g.chroma.uStart + int64_t(j) * g.chroma.cols;
        codes(g, src, base, 2, g.cols, u);
        codes(g, src, base + 1, 2, g.cols, v);
        break;
    }
    case LayoutKind::V210: {
        unpackV210(g, src, j, s);
        const int32_t groups = (g.width + 5) / 6;
        std::copy_n(s.unpack.data() + size_t(groups) * 6, g.cols, u);
        std::copy_n(s.unpack.data() + size_t(groups) * 9, g.cols, v);
        break;
    }
    default: break;
    }
}

// The vertical weighting of two chroma rows in 1/16, with the weight as a constant: its products become
// shifts and adds (a vector multiply of 32-bit words is slow).
template <int32_t WV>
inline void weighRows(const uint16_t *ua, const uint16_t *va, const uint16_t *ub, const uint16_t *vb, int32_t *tu,
                      int32_t *tv, int32_t cols)
{
    for (int32_t k = 0; k < cols; ++k) {
        tu[k] = (16 - WV) * ua[k] + (WV ? WV * ub[k] : 0);
        tv[k] = (16 - WV) * va[k] + (WV ? WV * vb[k] : 0);
    }
}

// Two-to-one sited chroma away from the row's ends: output pixels 2k and 2k + 1 from chroma k - 1, k and
// k + 1 with the siting's fixed weights (in 1/16, as constants for the same reason).
template <int32_t E0, int32_t E1, int32_t O1, int32_t O2>
inline void pairsAcross(const int32_t *t, uint16_t *out, int32_t kEnd, int32_t round, int32_t down)
{
    for (int32_t k = 1; k < kEnd; ++k) {
        out[2 * k] = uint16_t((E0 * t[k - 1] + E1 * t[k] + round) >> down);
        out[2 * k + 1] = uint16_t((O1 * t[k] + O2 * t[k + 1] + round) >> down);
    }
}

// One gathered row of codes to pixels.
inline void convertGathered(const Gathered &g, const uint16_t *c0, const uint16_t *c1, const uint16_t *c2, uint32_t *d)
{
    const int32_t W = g.width;
    if (!g.hdr) {
        g.planar(g.p, c0, c1, c2, d, W);
        if (g.toneAfter) g.toneAfter(d, W, g.p.toneBytes);
    } else {
        g.hdrRow(g.h, c0, c1, c2, d, W);
    }
    if (g.kind == LayoutKind::Packed422 && (W & 1)) clearPixel(reinterpret_cast<uint8_t *>(d + W - 1));
}

// Compiled for AVX-512 (x86-64-v4), for AVX2 and for any x86-64, the best chosen when the program loads:
// the gather loops are plain integer code, so all give the same picture. The high-dynamic-range arithmetic is the
// kernel set's (RowKernels.h).
#if defined(__GNUC__) && defined(__x86_64__) && !defined(__clang__)
__attribute__((target_clones("arch=x86-64-v4", "avx2", "default")))
#endif
void gatherRows(const Gathered &g, const uint8_t *src, uint8_t *dst, int32_t r0, int32_t r1)
{
    static thread_local GatherScratch s;
    const int32_t W = g.width, H = g.height;
    for (auto &c : s.c) c.resize(size_t(W));
    uint16_t *c0 = s.c[0].data(), *c1 = s.c[1].data(), *c2 = s.c[2].data();
    const bool subsampled = g.reconstruct;
    if (subsampled) {
        for (int i = 0; i < 2; ++i) s.u[i].resize(size_t(g.cols)), s.v[i].resize(size_t(g.cols));
        s.tu.resize(size_t(g.cols));
        s.tv.resize(size_t(g.cols));
    }
    for (int32_t r = r0; r < r1; ++r) {
        const int32_t row = g.flip ? H - 1 - r : r;
        uint32_t *d = pixelRow(dst, W, r);
        const int64_t pixels = int64_t(W) * H;
        switch (g.kind) {
        case LayoutKind::PlanarRgb:
            for (int l = 0; l < 3; ++l) codes(g, src, l * pixels + int64_t(row) * W, 1, W, s.c[l].data());
            break;
        case LayoutKind::InterleavedRgb:
            for (int l = 0; l < 3; ++l)
                codes(g, src, int64_t(row) * g.rowSamples + l, g.samplesPerPixel, W, s.c[l].data());
            break;
        case LayoutKind::Luma:
            codes(g, src, int64_t(row) * W, 1, W, c0);
            std::copy_n(c0, W, c1);
            std::copy_n(c0, W, c2);
            break;
        case LayoutKind::PlanarYuv:
            codes(g, src, int64_t(row) * W, 1, W, c0);
            if (!subsampled) chromaRow(g, src, row, c1, c2, s); // 4:4:4: one chroma sample a pixel
            break;
        case LayoutKind::SemiPlanar: codes(g, src, int64_t(row) * W, 1, W, c0); break;
        case LayoutKind::Packed422:
            codes(g, src, int64_t(row) * g.rowSamples + (g.layout == YUV_uyvy ? 1 : 0), 2, 2 * (W / 2), c0);
            if (W & 1) c0[W - 1] = 0;
            break;
        case LayoutKind::V210: {
            unpackV210(g, src, row, s);
            std::copy_n(s.unpack.data(), W, c0);
            break;
        }
        }
        if (subsampled) {
            // Vertical first: the two chroma rows around the row's position, weighted in 1/16.
            int32_t j0, wv;
            if (g.siting == ChromaSiting::Nearest) {
                j0 = row >> g.shiftY;
                wv = 0;
            } else {
                const double pos = chromaPosition(g.siting, true, row, g.shiftY);
                j0 = int32_t(std::floor(pos));
                wv = int32_t(std::lround((pos - j0) * 16.0));
            }
            chromaRow(g, src, j0, s.u[0].data(), s.v[0].data(), s);
            if (g.siting == ChromaSiting::Nearest) {
                // Each pixel takes the chroma sample it falls in, with the extra bits as zeros (what the
                // weighted sums below give for a weight of 0), without the per-column tables.
                const uint16_t *u = s.u[0].data(), *v = s.v[0].data();
                const int32_t f = g.fracBits, last = g.cols - 1;
                if (g.shiftX == 1) {
                    const int32_t pairs = std::min(g.cols, W / 2);
                    for (int32_t k = 0; k < pairs; ++k) {
                        c1[2 * k] = c1[2 * k + 1] = uint16_t(u[k] << f);
                        c2[2 * k] = c2[2 * k + 1] = uint16_t(v[k] << f);
                    }
                    for (int32_t x = 2 * pairs; x < W; ++x) {
                        c1[x] = uint16_t(u[std::min(x >> 1, last)] << f);
                        c2[x] = uint16_t(v[std::min(x >> 1, last)] << f);
                    }
                } else {
                    for (int32_t x = 0; x < W; ++x) {
                        c1[x] = uint16_t(u[std::min(x >> g.shiftX, last)] << f);
                        c2[x] = uint16_t(v[std::min(x >> g.shiftX, last)] << f);
                    }
                }
                convertGathered(g, c0, c1, c2, d);
                continue;
            }
            if (wv > 0) chromaRow(g, src, j0 + 1, s.u[1].data(), s.v[1].data(), s);
            const uint16_t *ua = s.u[0].data(), *va = s.v[0].data(), *ub = s.u[1].data(), *vb = s.v[1].data();
            int32_t *tu = s.tu.data(), *tv = s.tv.data();
            // The count in a local: read from g, which the stores might alias, it kept the loops scalar.
            const int32_t cols = g.cols;
            switch (wv) {
            case 0: weighRows<0>(ua, va, ub, vb, tu, tv, cols); break;
            case 4: weighRows<4>(ua, va, ub, vb, tu, tv, cols); break;
            case 8: weighRows<8>(ua, va, ub, vb, tu, tv, cols); break;
            case 12: weighRows<12>(ua, va, ub, vb, tu, tv, cols); break;
            default:
                for (int32_t k = 0; k < cols; ++k) {
                    tu[k] = (16 - wv) * ua[k] + wv * ub[k];
                    tv[k] = (16 - wv) * va[k] + wv * vb[k];
                }
            }
            // Then across: weights in 1/256 in all, kept with fracBits extra bits, rounded to nearest.
            const int32_t down = 8 - g.fracBits, round = 1 << (down - 1);
            const int32_t *h0 = g.h0.data(), *h1 = g.h1.data(), *hw = g.hw.data();
            const auto byTable = [&](const int32_t *t, uint16_t *out, int32_t x0, int32_t x1) {
                for (int32_t x = x0; x < x1; ++x)
                    out[x] = uint16_t(((16 - hw[x]) * t[h0[x]] + hw[x] * t[h1[x]] + round) >> down);
            };
            // Two-to-one sited chroma has fixed weights for every pixel pair away from the edges (those the
            // table gives for them): a loop the compiler vectorises.
            const int32_t kEnd = std::min(g.cols - 1, W / 2);
            if (g.shiftX == 1 && g.siting != ChromaSiting::Nearest && kEnd > 1) {
                const bool centre = g.siting == ChromaSiting::Center;
                for (const auto &[t, out] : {std::pair{tu, c1}, std::pair{tv, c2}}) {
                    byTable(t, out, 0, 2);
                    if (centre)
                        pairsAcross<4, 12, 12, 4>(t, out, kEnd, round, down);
                    else
                        pairsAcross<0, 16, 8, 8>(t, out, kEnd, round, down);
                    byTable(t, out, 2 * kEnd, W);
                }
            } else {
                byTable(tu, c1, 0, W);
                byTable(tv, c2, 0, W);
            }
        }
        convertGathered(g, c0, c1, c2, d);
    }
}

// The extra bits of reconstructed chroma with which sitedRows converts `bits`-deep samples, or -1 where
// it cannot. Its chroma words have 4 extra bits from the weights in 1/16 where 16-bit lanes hold them;
// deeper codes keep fewer (12-bit 2, 14-bit none), which is exact only where every vertical weight of
// the siting is a multiple of what is dropped: 4:2:0 sitings weigh in quarters, so 12 bits is as deep
// as they go. The gathered rows keep the same bits, so both give the same picture.
int32_t sitedFractionBits(ChromaSiting siting, int32_t sx, int32_t sy, int32_t bits)
{
    if (siting == ChromaSiting::Nearest || (sx != 1 && sx != 2) || bits < 1 || bits > 16) return -1;
    const uint32_t maxCode = (uint32_t(1) << bits) - 1;
    int32_t f = std::clamp(16 - bits, 0, 4);
    while (f >= 0 && (maxCode << f) > sitedPairLimit(sx, siting == ChromaSiting::Center)) --f;
    if (f < 0) return -1;
    // The vertical weights repeat every 2^sy rows.
    for (int32_t row = 0; row < (1 << sy); ++row) {
        const double pos = chromaPosition(siting, true, row, sy);
        const int32_t wv = int32_t(std::lround((pos - std::floor(pos)) * 16.0));
        if (wv % (1 << (4 - f)) != 0) return -1;
    }
    return f;
}

// Sited chroma of up to 14 bits (what the sited rows' 16-bit lanes hold, see sitedFractionBits): per
// output row the two chroma rows around it are weighed into one row of pairs, and the kernel set's sited
// row weighs across and converts. Luma and chroma are read in place where they are unsigned codes
// already; signed samples, 16-bit packed rows and v210 go through rows of codes first. The pairs row is
// padded with the edge pairs, which is the clamp at the picture's left and right edges of the gathered
// rows.
void sitedRows(const Gathered &g, const uint8_t *src, uint8_t *dst, int32_t r0, int32_t r1)
{
    struct Scratch {
        std::vector<uint32_t> pairs;
        std::vector<uint16_t> y, u[2], v[2];
        GatherScratch gather;
    };
    static thread_local Scratch s;
    const int32_t W = g.width, H = g.height, sx = g.shiftX;
    // Pairs the row's pixels use (one more on the right for the weights across), and the vector loads'
    // reach beyond them.
    const int32_t used = std::max(g.cols, ((W + (1 << sx) - 1) >> sx) + 1);
    // Pair 0 on a 64-byte boundary: the vector kernels' stores and loads of whole vectors stay inside
    // cache lines.
    s.pairs.resize(size_t(used) + 32 + 64);
    uint32_t *pairs = s.pairs.data() + 16 - (reinterpret_cast<uintptr_t>(s.pairs.data()) / 4) % 16;
    const bool packed8 = g.kind == LayoutKind::Packed422 && g.sampleBytes == 1 && !g.isSigned;
    const bool direct = !g.isSigned && g.kind != LayoutKind::V210 && (g.kind != LayoutKind::Packed422 || packed8);
    if (!direct) {
        s.y.resize(size_t(W));
        for (int i = 0; i < 2; ++i) s.u[i].resize(size_t(g.cols)), s.v[i].resize(size_t(g.cols));
    }
    const KernelSet &k = *g.k;
    const int32_t pixels = g.kind == LayoutKind::Packed422 ? 2 * (W / 2) : W;
    // Vertically subsampled planes (4:2:0) in one pass where the set has such loops, when the frame and
    // the picture stream from memory: at 2160p that took a fifth less time than weighing a row of pairs
    // first (each chroma row's first use waited for memory in the tight weighing loop); with both in the
    // cache (1080p) it took a tenth more. 4:2:2 planes, whose weighing is a copy of one row, measured
    // faster the other way at both sizes.
    const SitedPlanesFn planes = direct && g.streamed && g.kind == LayoutKind::PlanarYuv && sx == 1 && g.shiftY > 0
                                     ? k.sitedPlanes[g.sampleBytes == 1 ? 0 : 1][g.siting == ChromaSiting::Center]
                                     : nullptr;
    const size_t lumaBytes = g.sitedLuma == kLuma8 ? 1 : 2;
    const auto clampRow = [&](int32_t j) { return j < 0 ? 0 : (j >= g.rows ? g.rows - 1 : j); };
    for (int32_t r = r0; r < r1; ++r) {
        const int32_t row = g.flip ? H - 1 - r : r;
        uint32_t *d = pixelRow(dst, W, r);
        // The two chroma rows around the row's position and the weight of the second, in 1/16.
        const double pos = chromaPosition(g.siting, true, row, g.shiftY);
        const int32_t j0 = int32_t(std::floor(pos)), wv = int32_t(std::lround((pos - j0) * 16.0));
        const SitedWeighFn weigh = [&] {
            const int32_t wi = wv == 0 ? 0 : (wv == 4 ? 1 : (wv == 8 ? 2 : (wv == 12 ? 3 : 4)));
            if (!direct || g.kind == LayoutKind::PlanarYuv)
                return k.sitedWeigh[direct && g.sampleBytes == 1 ? kChromaPlanes8 : kChromaPlanes16][wi];
            if (g.kind == LayoutKind::SemiPlanar) return k.sitedWeigh[kChromaPairs8][wi];
            return k.sitedWeigh[g.layout == YUV_uyvy ? kChromaUyvy8 : kChromaYuyv8][0];
        }();
        // Where the chroma rows start.
        const uint8_t *rows[4] = {};
        const void *luma = nullptr;
        if (direct) {
            switch (g.kind) {
            case LayoutKind::PlanarYuv: {
                const ChromaPlanes &c = g.chroma;
                const size_t sb = size_t(g.sampleBytes);
                const auto at = [&](int64_t start, int32_t fit, int32_t j) {
                    j = clampRow(j);
                    return src + size_t(start + int64_t(j < fit ? j : fit - 1) * c.cols) * sb;
                };
                luma = src + size_t(row) * size_t(W) * sb;
                rows[0] = at(c.uStart, c.uFit, j0), rows[1] = at(c.vStart, c.vFit, j0);
                rows[2] = at(c.uStart, c.uFit, j0 + 1), rows[3] = at(c.vStart, c.vFit, j0 + 1);
                break;
            }
            case LayoutKind::SemiPlanar:
                luma = src + size_t(row) * size_t(W);
                rows[0] = src + size_t(g.chroma.uStart + int64_t(clampRow(j0)) * g.chroma.cols);
                rows[2] = src + size_t(g.chroma.uStart + int64_t(clampRow(j0 + 1)) * g.chroma.cols);
                break;
            default: // 8-bit packed 4:2:2: one row holds both, and chroma rows are the picture's rows
                luma = rows[0] = src + size_t(row) * size_t(g.rowSamples);
                break;
            }
        } else {
            // Rows of unsigned codes, as the gathered rows read them.
            uint16_t *y = s.y.data();
            switch (g.kind) {
            case LayoutKind::PlanarYuv:
            case LayoutKind::SemiPlanar: codes(g, src, int64_t(row) * W, 1, W, y); break;
            case LayoutKind::Packed422:
                codes(g, src, int64_t(row) * g.rowSamples + (g.layout == YUV_uyvy ? 1 : 0), 2, 2 * (W / 2), y);
                break;
            default: break;
            }
            luma = y;
            const auto bytes = [](const uint16_t *p) { return reinterpret_cast<const uint8_t *>(p); };
            if (g.kind == LayoutKind::V210) {
                // Chroma rows are the picture's rows: one unpack gives the row's luma and chroma.
                unpackV210(g, src, row, s.gather);
                const uint16_t *unpacked = s.gather.unpack.data();
                const size_t groups = size_t(W + 5) / 6;
                luma = unpacked;
                rows[0] = bytes(unpacked + groups * 6), rows[1] = bytes(unpacked + groups * 9);
            } else {
                chromaRow(g, src, j0, s.u[0].data(), s.v[0].data(), s.gather);
                if (wv > 0) chromaRow(g, src, j0 + 1, s.u[1].data(), s.v[1].data(), s.gather);
                rows[0] = bytes(s.u[0].data()), rows[1] = bytes(s.v[0].data());
                rows[2] = bytes(s.u[1].data()), rows[3] = bytes(s.v[1].data());
            }
        }
        // Planes converted in one pass as far as the set's loop goes, the rest (or all) through a row of
        // pairs from the sixteen before the rest on (the one before it included).
        int32_t done = 0;
        if (planes)
            done = planes(g.p, luma, reinterpret_cast<const void *const *>(rows), wv, g.maxCode, 4 - g.fracBits, g.cols,
                          d, pixels);
        if (done < pixels) {
            const int32_t from = std::max(0, (done >> sx) - 16);
            const uint8_t *part[4];
            const size_t pairBytes = !direct                            ? 2
                                     : g.kind == LayoutKind::PlanarYuv  ? size_t(g.sampleBytes)
                                     : g.kind == LayoutKind::SemiPlanar ? 2
                                                                        : 4;
            const size_t skip = size_t(from) * pairBytes;
            for (int q = 0; q < 4; ++q) part[q] = rows[q] ? rows[q] + skip : nullptr;
            weigh(part[0], part[1], part[2], part[3], wv, g.maxCode, 4 - g.fracBits, pairs + from, g.cols - from);
            pairs[-1] = pairs[0];
            std::fill(pairs + g.cols, pairs + used, pairs[g.cols - 1]);
            g.sitedRow(g.p, static_cast<const uint8_t *>(luma) + size_t(done) * lumaBytes, pairs + (done >> sx),
                       d + done, pixels - done);
        }
        if (g.toneAfter) {
            g.toneAfter(d, pixels, g.p.toneBytes);
        } else if (g.toneBytes) {
            uint8_t *px = reinterpret_cast<uint8_t *>(d);
            for (int32_t x = 0; x < pixels; ++x)
                for (int c = 0; c < 3; ++c) px[4 * x + c] = g.toneBytes[px[4 * x + c]];
        }
        if (g.kind == LayoutKind::Packed422 && (W & 1)) clearPixel(reinterpret_cast<uint8_t *>(d + W - 1));
    }
}

} // namespace

void X2RGBColorConv::runBands(int32_t H, int64_t pixels, const std::function<void(int32_t, int32_t)> &rows) const
{
    constexpr int64_t kPoolPixels = 1 << 17;
    const int32_t helpers = m_threads == 1 || pixels < kPoolPixels ? 0 : (m_threads == 0 ? 7 : m_threads - 1);
    WorkerPool &pool = WorkerPool::shared();
    const int32_t workers = 1 + (helpers < pool.threadCount() ? helpers : pool.threadCount());
    const int32_t bands = workers == 1 ? 1 : (4 * workers < H ? 4 * workers : H);
    pool.run(bands, helpers,
             [&](int32_t b) { rows(int32_t(int64_t(H) * b / bands), int32_t(int64_t(H) * (b + 1) / bands)); });
}

void X2RGBColorConv::convertDescribed(const uint8_t *src, uint8_t *dst, int64_t alloc)
{
    const ColourDescription &cd = m_props.colour;
    const videoFormat_t layout = m_props.format;
    const int32_t W = m_props.width, H = m_props.height;
    const LayoutInfo &info = layoutInfo(layout);
    const DescribedDepth dd = describedDepth(m_props);
    const int32_t bits = dd.bits;
    const ColourInput input = info.kind == LayoutKind::Luma ? ColourInput::Luma
                              : isRgbLayout(layout)         ? ColourInput::Rgb
                                                            : ColourInput::Yuv;
    const bool hdr = cd.transfer != ColourTransfer::SDR;
    const bool subsampled = input == ColourInput::Yuv && (info.chromaShiftX || info.chromaShiftY);
    const bool gather = hdr || (subsampled && cd.chroma != ChromaSiting::Nearest);
    const KernelSet *k = m_kernels ? m_kernels : &bestKernels();
    const ToneRowFn toneAfter = m_toneIdentity ? nullptr : k->toneRow;
    const int tone = m_toneIdentity || toneAfter ? 0 : 1;
    const bool v210 = layout == YUV_v210;
    const int kind = v210 ? kU16 : (dd.sampleBytes == 1 ? (m_signed ? kS8 : kU8) : (m_signed ? kS16 : kU16));
    const int32_t half = m_signed && !v210 ? (1 << bits) >> 1 : 0;
    const int64_t pixels = int64_t(W) * H;

    // The storage component that feeds each logical component (as the default conversion assigns them).
    int source[3] = {0, 1, 2};
    if (input == ColourInput::Rgb)
        for (int l = 0; l < 3; ++l) source[l] = info.rgbSource[size_t(l)];
    if (m_props.swapUV && info.kind != LayoutKind::InterleavedRgb && info.kind != LayoutKind::Luma)
        for (int &s : source) s = s == 1 ? 2 : (s == 2 ? 1 : s);

    const ColourAffine A = colourAffine(cd, input, bits, hdr ? 1.0 : 255.0);
    // Kernel constants: sum = m . samples + add, shifted down by `shift`, rounding to nearest. `scale[c]`
    // divides the coefficient of storage component c (gathered chroma carries extra bits); `offset` is
    // the code of a stored 0 (the half range of signed samples).
    const auto fill = [&](RowParams &p, int32_t shift, const double scale[3], int32_t offset) {
        const double one = std::ldexp(1.0, shift);
        for (int i = 0; i < 3; ++i) {
            double add = A.b[i];
            for (int j = 0; j < 3; ++j) p.m[i][j] = 0;
            for (int l = 0; l < 3; ++l) {
                add += A.a[i][l] * offset;
                p.m[i][source[l]] += uint32_t(int32_t(std::lround(A.a[i][l] * one / scale[source[l]])));
            }
            p.add[i] = uint32_t(int32_t(std::lround(add * one))) + (uint32_t(1) << (shift - 1));
        }
        p.up = 0;
        p.shift = shift;
        p.tone = m_toneTable.data();
        p.toneBytes = m_toneBytes.data();
    };
    // The worst output error the rounded coefficients can add over the whole code range.
    const auto coefficientError = [&](const RowParams &p, int32_t shift, const double scale[3]) {
        const double one = std::ldexp(1.0, shift), top = std::ldexp(1.0, bits) - 1.0;
        double worst = 0.0;
        for (int i = 0; i < 3; ++i) {
            double e = 0.5 / one;
            for (int c = 0; c < 3; ++c) {
                double exact = 0.0;
                for (int l = 0; l < 3; ++l)
                    if (source[l] == c) exact += A.a[i][l] * one / scale[c];
                e += std::abs(double(int32_t(p.m[i][c])) - exact) * top * scale[c] / one;
            }
            worst = std::max(worst, e);
        }
        return worst;
    };
    // The hand-written loops multiply samples by coefficients that fit 16 signed bits (one vpmaddwd
    // takes two products). The finest scale whose coefficients all fit keeps those loops, as long as its
    // rounding stays well inside half a level; otherwise 18 fraction bits, which every depth up to 16
    // fits in 32 bits, in the compiler-vectorised loops. Every kernel set is handed the same constants,
    // so the picture never depends on the set.
    const auto fillFinest = [&](RowParams &p, const double scale[3], int32_t offset) {
        fill(p, 18, scale, offset);
        for (int32_t shift = 18; shift >= 8; --shift) {
            RowParams q = p;
            fill(q, shift, scale, offset);
            if (!coefficientsFit16(q)) continue;
            if (coefficientError(q, shift, scale) < 0.45) p = q;
            return;
        }
    };

    if (!gather) {
        Prepared job;
        job.k = k;
        job.width = W;
        job.height = H;
        job.flip = m_props.flipped;
        job.toneAfter = toneAfter;
        job.sampleBytes = dd.sampleBytes;
        const double unity[3] = {1.0, 1.0, 1.0};
        fillFinest(job.p, unity, half);
        std::array<int32_t, 256> lumaTable;
        std::array<uint8_t, 256> lumaBytes;
        switch (info.kind) {
        case LayoutKind::PlanarYuv:
        case LayoutKind::PlanarRgb:
            job.path = Prepared::Path::Planar;
            job.chroma = planesOf(layout, info, W, H, alloc / job.sampleBytes);
            job.planar = k->planar[kind][job.chroma.shiftX][tone];
            job.planarOne = k->planar[kind][0][tone];
            job.interlacedChroma = layout == YUV_p420 && m_props.interlaced;
            break;
        case LayoutKind::Luma:
            if (dd.sampleBytes == 1) {
                // A byte holds 256 codes: the reading (a grey level from the code alone) and the tone table
                // become one table, rounded from double precision, which the luma row applies as the
                // default reading's luma applies the tone table.
                for (int32_t c = 0; c < 256; ++c) {
                    const double v = std::round(A.a[0][0] * c + A.b[0]);
                    const int32_t level = v < 0.0 ? 0 : (v > 255.0 ? 255 : int32_t(v));
                    lumaTable[size_t(c)] = m_toneTable[size_t(level)] & 0xff;
                    lumaBytes[size_t(c)] = uint8_t(lumaTable[size_t(c)]);
                }
                job.path = Prepared::Path::Luma;
                job.rowSamples = W;
                job.toneAfter = nullptr;
                job.row = k->luma[kind][1];
                job.p.add[0] = uint32_t(half);
                job.p.up = 0;
                job.p.shift = 0;
                job.p.tone = lumaTable.data();
                job.p.toneBytes = lumaBytes.data();
                break;
            }
            // Luma as a 4:4:4 picture whose three planes are the luma plane.
            job.path = Prepared::Path::Planar;
            job.chroma.cols = W;
            job.chroma.rows = job.chroma.uFit = job.chroma.vFit = H;
            job.planar = job.planarOne = k->planar[kind][0][tone];
            break;
        case LayoutKind::Packed422:
            job.path = Prepared::Path::Packed;
            job.rowSamples = int64_t(W / 2) * 4;
            job.row = (layout == YUV_uyvy ? k->packedUFirst : k->packedYFirst)[kind][tone];
            break;
        case LayoutKind::SemiPlanar:
            job.path = Prepared::Path::Nv12;
            job.chroma = chromaPlanes(layout, W, H, alloc);
            job.semi = k->nv12[kind][tone];
            job.planarOne = k->planar[kind][0][tone];
            break;
        case LayoutKind::V210:
            job.path = Prepared::Path::V210;
            job.rowSamples = v210RowBytes(W) / 4;
            job.planar = k->planar[kU16][1][tone];
            job.planarOne = k->planar[kU16][0][tone];
            break;
        case LayoutKind::InterleavedRgb:
            job.path = Prepared::Path::Rgb;
            job.row = info.samplesPerPixel == 4 ? k->rgb4[m_signed ? 1 : 0][tone] : k->rgb3[kind][tone];
            job.rowSamples = int64_t(W) * info.samplesPerPixel;
            break;
        }
        runBands(H, pixels, [&](int32_t r0, int32_t r1) { convertRows(job, src, dst, r0, r1); });
        return;
    }

    Gathered g;
    g.layout = layout;
    g.kind = info.kind;
    g.k = k;
    g.width = W;
    g.height = H;
    g.flip = m_props.flipped;
    g.sampleBytes = dd.sampleBytes;
    g.isSigned = m_signed && !v210;
    g.half = half;
    g.samplesPerPixel = info.samplesPerPixel;
    g.siting = cd.chroma;
    g.hdr = hdr;
    switch (info.kind) {
    case LayoutKind::PlanarYuv:
        g.chroma = chromaPlanes(layout, W, H, alloc / g.sampleBytes);
        g.cols = g.chroma.cols;
        g.rows = g.chroma.rows;
        break;
    case LayoutKind::Packed422:
        g.rowSamples = int64_t(W / 2) * 4;
        g.cols = W / 2;
        g.rows = H;
        break;
    case LayoutKind::SemiPlanar:
        g.chroma = chromaPlanes(layout, W, H, alloc);
        g.cols = W / 2;
        g.rows = g.chroma.uFit;
        break;
    case LayoutKind::V210:
        g.rowSamples = v210RowBytes(W) / 4;
        g.cols = (W + 1) / 2;
        g.rows = H;
        break;
    case LayoutKind::InterleavedRgb: g.rowSamples = int64_t(W) * info.samplesPerPixel; break;
    default: break;
    }
    double scale[3] = {1.0, 1.0, 1.0};
    int32_t sitedBits = -1; // sitedFractionBits of subsampled chroma
    if (subsampled && g.cols > 0 && g.rows > 0) {
        g.reconstruct = true;
        g.shiftX = info.chromaShiftX;
        g.shiftY = info.chromaShiftY;
        // Extra bits for the reconstructed chroma, as many as 16-bit codes hold (at most 4).
        g.fracBits = std::clamp(16 - bits, 0, 4);
        sitedBits = sitedFractionBits(cd.chroma, g.shiftX, g.shiftY, bits);
        if (!hdr && sitedBits >= 0) g.fracBits = std::min(g.fracBits, sitedBits);
        scale[1] = scale[2] = double(1 << g.fracBits);
        g.h0.resize(size_t(W));
        g.h1.resize(size_t(W));
        g.hw.resize(size_t(W));
        for (int32_t x = 0; x < W; ++x) {
            int32_t k0 = x >> g.shiftX, w = 0;
            if (cd.chroma != ChromaSiting::Nearest) {
                const double pos = chromaPosition(cd.chroma, false, x, g.shiftX);
                k0 = int32_t(std::floor(pos));
                w = int32_t(std::lround((pos - k0) * 16.0));
            }
            g.h0[size_t(x)] = std::clamp(k0, 0, g.cols - 1);
            g.h1[size_t(x)] = std::clamp(k0 + 1, 0, g.cols - 1);
            g.hw[size_t(x)] = w;
        }
    }
    // Sited chroma converts in one pass where sitedFractionBits allows; the rest (15- and 16-bit samples,
    // 4:2:0 beyond 12 bits) goes through the gathered rows.
    const bool centred = cd.chroma == ChromaSiting::Center;
    const bool sited = !hdr && g.reconstruct && cd.chroma != ChromaSiting::Nearest && sitedBits == g.fracBits &&
                       (info.kind != LayoutKind::PlanarYuv || (g.chroma.uFit > 0 && g.chroma.vFit > 0));
    if (!hdr) {
        fillFinest(g.p, scale, 0);
        g.planar = k->planar[kU16][0][tone];
        g.toneAfter = toneAfter;
        if (sited) {
            const bool direct =
                !g.isSigned && g.kind != LayoutKind::V210 && (g.kind != LayoutKind::Packed422 || g.sampleBytes == 1);
            g.sitedLuma = !direct || g.sampleBytes == 2     ? kLuma16
                          : g.kind != LayoutKind::Packed422 ? kLuma8
                          : layout == YUV_uyvy              ? kLumaUyvy8
                                                            : kLumaYuyv8;
            g.sitedRow = k->sitedRow[g.sitedLuma][g.shiftX - 1][centred ? 1 : 0];
            g.maxCode = (uint32_t(1) << bits) - 1;
            // 32 MiB: the last-level cache of the machine measured, and a common size. (What the system
            // reports can be a whole package's, or a virtual machine's host's.)
            g.streamed = alloc + pixels * 4 > (int64_t(32) << 20);
            g.toneBytes = tone ? m_toneBytes.data() : nullptr;
        }
    } else {
        if (!m_transferTables || m_transferTables.use_count() > 1)
            m_transferTables = std::make_shared<TransferTables>();
        m_transferTables->build(cd.transfer, cd.peakNits);
        g.hdrRow = k->hdrRow;
        g.h.toLinear = m_transferTables->toLinear.data();
        g.h.toCode = m_transferTables->toCode.data();
        g.h.toneBytes = m_toneIdentity ? nullptr : m_toneBytes.data();
        for (int i = 0; i < 9; ++i) g.h.prim[i] = float(kBt2020To709[i]);
        for (int i = 0; i < 3; ++i) {
            g.h.b[i] = float(A.b[i]);
            for (int l = 0; l < 3; ++l) g.h.a[i][source[l]] += float(A.a[i][l] / scale[source[l]]);
        }
    }
    if (g.sitedRow)
        runBands(H, pixels, [&](int32_t r0, int32_t r1) { sitedRows(g, src, dst, r0, r1); });
    else
        runBands(H, pixels, [&](int32_t r0, int32_t r1) { gatherRows(g, src, dst, r0, r1); });
}

} // namespace ColorConversion
