#include "pixel/ColorConversion.h"

#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"
#include "pixel/WorkerPool.h"

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
    const videoFormat_t layout = m_props.format;
    const int32_t W = m_props.width, H = m_props.height;
    const int32_t bits = m_props.bitDepth, container = m_props.containerBits;
    if (!src || !dst || !isCoreLayout(layout) || W <= 0 || H <= 0) return;
    // Only 8- and 16-bit containers and depths 1..16 have kernels; anything else converts nothing.
    if (bits < 1 || bits > 16 || (container != 8 && container != 16)) return;
    const int64_t alloc = allocationSize(layout, container, W, H);
    if (alloc == 0) return;

    const int32_t down = bits >= 8 ? bits - 8 : 0;
    const int32_t up = bits >= 8 ? 0 : 8 - bits;

    // The block copy, under exactly these conditions (a stored gamma of 0, not the default 256).
    if (layout == BGRA_i444 && container == 8 && down == 0 && !m_props.flipped && m_channelSelection == 0 &&
        m_brightness == 0 && m_contrast == 0 && m_gamma == 0) {
        std::memcpy(dst, src, size_t(W) * size_t(H) * 4);
        return;
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
        if (info.kind == LayoutKind::PlanarYuv) {
            job.chroma = chromaPlanes(layout, W, H, alloc / job.sampleBytes);
        } else {
            job.chroma.uStart = pixels;
            job.chroma.vStart = 2 * pixels;
            job.chroma.cols = W;
            job.chroma.rows = job.chroma.uFit = job.chroma.vFit = H;
        }
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
    pool.run(bands, helpers, [&](int32_t b) {
        const int32_t r0 = int32_t(int64_t(H) * b / bands), r1 = int32_t(int64_t(H) * (b + 1) / bands);
        convertRows(job, src, dst, r0, r1);
    });

    // The 4:2:0 and 4:1:0 kernels clear the middle of the last row of an odd-height picture:
    // pixels W/2 .. 2*(W/2)-1 become all-zero bytes. Kept as the output for such heights.
    if (zeroOddHeight && (H & 1)) std::memset(pixelRow(dst, W, H - 1) + W / 2, 0, size_t(W / 2) * 4);
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

} // namespace ColorConversion
