#include "pixel/DifferencePicture.h"

#include "formats/FrameSize.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"

#include <QDebug>
#include <cmath>
#include <cstring>
#include <type_traits>

using namespace kavri;
using namespace kavri::pixel;

namespace {

constexpr int32_t kDefaultGain = 0x7fffffff;

struct Metrics {
    uint64_t sum[3] = {0, 0, 0}; // exact sums of squares (a double would drop bits beyond 2^53)
    int32_t *firstX, *firstY;
};

template <typename T>
inline int32_t loadSample(const uint8_t *base, int64_t index)
{
    T v;
    std::memcpy(&v, base + index * int64_t(sizeof(T)), sizeof(T));
    return int32_t(v);
}

template <typename T>
inline void storeSample(uint8_t *base, int64_t index, int32_t value)
{
    const T v = T(value);
    std::memcpy(base + index * int64_t(sizeof(T)), &v, sizeof(T));
}

// Differences one component grid: squares summed, first difference found, destination written.
// Contiguous 8-bit rows go to the row kernel of the fastest kernel set, with the byte table.
template <typename T>
void diffGrid(const SampleGrid &g, int k, const uint8_t *a, const uint8_t *b, uint8_t *dst, const int32_t *table,
              const uint8_t *table8, int32_t mid, int32_t peak, Metrics &m)
{
    uint64_t sum = 0;
    for (int32_t row = 0; row < g.rows; ++row) {
        const int64_t base = g.start + row * g.stride;
        if (sizeof(T) == 1 && g.step == 1) {
            if (m.firstX[k] < 0 && std::memcmp(a + base, b + base, size_t(g.cols)) != 0) {
                int32_t c = 0;
                while (a[base + c] == b[base + c]) ++c;
                m.firstX[k] = c;
                m.firstY[k] = row;
            }
            sum += bestKernels().diffRow8[std::is_signed_v<T> ? 1 : 0](a + base, b + base, dst + base, g.cols, table8,
                                                                       mid);
            continue;
        }
        if (m.firstX[k] < 0) {
            for (int32_t c = 0; c < g.cols; ++c) {
                const int64_t i = base + int64_t(c) * g.step;
                if (loadSample<T>(a, i) != loadSample<T>(b, i)) {
                    m.firstX[k] = c;
                    m.firstY[k] = row;
                    break;
                }
            }
        }
        // Each sample is read from both frames before the destination (possibly `a` itself) is written.
        for (int32_t c = 0; c < g.cols; ++c) {
            const int64_t i = base + int64_t(c) * g.step;
            const int32_t d = loadSample<T>(a, i) - loadSample<T>(b, i);
            sum += uint64_t(int64_t(d) * d);
            int32_t idx = d + mid;
            idx = idx < 0 ? 0 : (idx > peak ? peak : idx);
            storeSample<T>(dst, i, table[idx]);
        }
    }
    m.sum[k] += sum;
}

bool isEightBitOnly(videoFormat_t f)
{
    return f == YUV_uyvy || f == YUV_yuyv || f == YUV_yuy2 || f == YUV_nv12 || f == RGBA_i444 || f == BGRA_i444;
}

} // namespace

DifferencePicture::DifferencePicture() = default;
DifferencePicture::~DifferencePicture() = default;

void DifferencePicture::setup(videoFormat_t layout, int32_t width, int32_t height, int32_t rowStride, int32_t bits,
                              bool isSigned)
{
    m_layout = layout;
    m_width = width;
    m_height = height;
    m_rowStride = rowStride;
    m_bits = bits;
    m_signed = isSigned;
    m_table.clear();
    m_table.shrink_to_fit();
    if (bits < 1 || bits > 16) {
        m_mid = 0;
        return;
    }
    m_mid = 1 << (bits - 1);
    m_table.resize(size_t(1) << bits);
    buildTable(kDefaultGain);
}

void DifferencePicture::buildTable(int32_t gain)
{
    if (m_table.empty()) return;
    const int32_t peak = (1 << m_bits) - 1, mid = 1 << (m_bits - 1);
    int64_t g = int64_t(gain == kDefaultGain ? 0 : gain) + 4096;
    // Small depths get a boost: at 8 bits even the default gain becomes 4096^1.03 = 5256 (about 1.28),
    // while from 9 bits on the default stays exactly 1.
    if (g > 16 * int64_t(peak)) g = int64_t(std::pow(double(g), 1.03));
    // entry i = mid + (i - mid) * g / 4096, clamped to the sample range.
    int64_t acc = -int64_t(mid) * g;
    for (int32_t i = 0; i <= peak; ++i) {
        const int64_t v = (acc >> 12) + mid;
        m_table[size_t(i)] = v >= peak ? peak : (v < 0 ? 0 : int32_t(v));
        acc += g;
    }
    // The byte table of the 8-bit row kernels: indices past the peak read the peak's entry, which is
    // what clamping the index to the peak gives.
    if (m_bits <= 8)
        for (int32_t i = 0; i < 256; ++i) m_table8[size_t(i)] = uint8_t(m_table[size_t(i <= peak ? i : peak)]);
}

void DifferencePicture::compute(uint8_t *a, const uint8_t *b, uint8_t *dst)
{
    for (int k = 0; k < 3; ++k) {
        psnr[k] = 0;
        mse[k] = 0;
        firstDiffX[k] = firstDiffY[k] = -1;
    }
    if (!a || !b || m_table.empty() || !isCoreLayout(m_layout) || m_width <= 0 || m_height <= 0) return;
    const bool wide = m_bits > 8;
    if (wide && isEightBitOnly(m_layout)) return;
    if (!dst) dst = a;

    const int32_t W = m_width, H = m_height;
    const int32_t peak = (1 << m_bits) - 1, mid = m_mid;
    const int64_t bufferBytes = allocationSize(m_layout, containerForBits(m_bits), W, H);
    if (bufferBytes == 0) return;
    const int64_t samples = bufferBytes / (wide ? 2 : 1);
    Metrics m;
    m.firstX = firstDiffX;
    m.firstY = firstDiffY;
    double count[3];
    // The planes or strided sample sets of the layout, one per component.
    SampleGrid grids[3];
    int components = componentGrids(m_layout, W, H, samples, grids, count);
    if (m_layout == YUV_v210) {
        computeV210(a, b, dst, m.sum);
        components = -1;
    }

    if (components > 0) {
        for (int k = 0; k < components; ++k) {
            const int32_t *t = m_table.data();
            const uint8_t *t8 = m_table8.data();
            if (!wide && m_signed)
                diffGrid<int8_t>(grids[k], k, a, b, dst, t, t8, mid, peak, m);
            else if (!wide)
                diffGrid<uint8_t>(grids[k], k, a, b, dst, t, t8, mid, peak, m);
            else if (m_signed)
                diffGrid<int16_t>(grids[k], k, a, b, dst, t, t8, mid, peak, m);
            else
                diffGrid<uint16_t>(grids[k], k, a, b, dst, t, t8, mid, peak, m);
        }
    } else {
        components = 3;
    }

    const double peak2 = double(peak) * double(peak);
    for (int k = 0; k < 3; ++k) {
        // A component the layout does not have keeps MSE 0 (and so an infinite PSNR).
        mse[k] = k < components ? double(m.sum[k]) / count[k] : 0.0;
        psnr[k] = 10.0 * std::log10(peak2 / mse[k]);
    }
}

// v210: every 10-bit field of the row's groups is differenced, halved so that the full signed range
// fits the table, and written back into a word whose top two bits are zero. Only fields of pixels
// inside the width (luma) or of whole chroma pairs count for the metrics.
void DifferencePicture::computeV210(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint64_t sums[3])
{
    const int32_t W = m_width, H = m_height;
    const int32_t peak = (1 << m_bits) - 1;
    const int64_t rowWords = v210RowBytes(W) / 4;
    const int32_t groups = (W + 5) / 6;
    // Field f of a group: component (0 Y, 1 U, 2 V) and its column inside the group (pixels for Y,
    // chroma pairs for U and V), in word order w0: U0 Y0 V0, w1: Y1 U2 Y2, w2: V2 Y3 U4, w3: Y4 V4 Y5.
    static constexpr int8_t kComp[12] = {1, 0, 2, 0, 1, 0, 2, 0, 1, 0, 2, 0};
    static constexpr int8_t kCol[12] = {0, 0, 0, 1, 1, 2, 1, 3, 2, 4, 2, 5};
    auto word = [](const uint8_t *p) {
        return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    };
    for (int32_t row = 0; row < H; ++row) {
        for (int32_t g = 0; g < groups; ++g) {
            for (int w = 0; w < 4; ++w) {
                const int64_t off = (row * rowWords + 4 * int64_t(g) + w) * 4;
                const uint32_t wa = word(a + off), wb = word(b + off);
                uint32_t out = 0;
                for (int f = 0; f < 3; ++f) {
                    const int field = 3 * w + f;
                    const int32_t d = int32_t((wa >> (10 * f)) & 0x3ffu) - int32_t((wb >> (10 * f)) & 0x3ffu);
                    // Arithmetic halving rounds toward minus infinity: -1 becomes index mid - 1.
                    int32_t idx = (d >> 1) + m_mid;
                    idx = idx < 0 ? 0 : (idx > peak ? peak : idx);
                    out |= (uint32_t(m_table[size_t(idx)]) & 0x3ffu) << (10 * f);
                    const int k = kComp[field];
                    const int32_t col = (k == 0 ? 6 : 3) * g + kCol[field];
                    if (col >= (k == 0 ? W : W / 2)) continue;
                    sums[k] += uint64_t(int64_t(d) * d);
                    if (d != 0 && firstDiffX[k] < 0) {
                        firstDiffX[k] = col;
                        firstDiffY[k] = row;
                    }
                }
                dst[off] = uint8_t(out);
                dst[off + 1] = uint8_t(out >> 8);
                dst[off + 2] = uint8_t(out >> 16);
                dst[off + 3] = uint8_t(out >> 24);
            }
        }
    }
}

bool DifferencePicture::readDifference(const uint8_t *a, const uint8_t *b, int32_t x, int32_t row, int32_t &c1,
                                       int32_t &c2, int32_t &c3, int32_t *alpha) const
{
    const bool packed = m_layout == YUV_uyvy || m_layout == YUV_yuyv || m_layout == YUV_yuy2 || m_layout == YUV_nv12;
    if (!isCoreLayout(m_layout) || (m_signed && packed)) {
        qDebug("not supported");
        return false;
    }
    if (m_bits > 16) return true; // no reader for such depths; nothing is read
    const int64_t bytes = allocationSize(m_layout, containerForBits(m_bits), m_width, m_height);
    StoredSample sa, sb;
    if (!readStored(a, bytes, m_layout, m_width, m_height, m_bits, m_signed, x, row, sa) ||
        !readStored(b, bytes, m_layout, m_width, m_height, m_bits, m_signed, x, row, sb))
        return false;
    c1 = sa.c[0] - sb.c[0];
    c2 = sa.c[1] - sb.c[1];
    c3 = sa.c[2] - sb.c[2];
    if (alpha) {
        const bool planarAlpha = layoutInfo(m_layout).kind == LayoutKind::PlanarRgb && sa.hasAlpha;
        *alpha = planarAlpha ? sa.alpha - sb.alpha : (1 << m_bits) - 1;
    }
    return true;
}
