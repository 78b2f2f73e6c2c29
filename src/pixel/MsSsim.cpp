#include "pixel/MsSsim.h"

#include "pixel/RowKernels.h"

#include <algorithm>
#include <cmath>

namespace kavri::pixel {

const double kMsSsimWeights[kMsSsimScales] = {0.0448, 0.2856, 0.3001, 0.2363, 0.1333};

int32_t msSsimScaleCount(int32_t cols, int32_t rows)
{
    int32_t n = 1;
    while (n < kMsSsimScales && (cols / 2) >= kMsSsimWindow && (rows / 2) >= kMsSsimWindow) {
        cols /= 2;
        rows /= 2;
        ++n;
    }
    return n;
}

int32_t msSsimTaps(int32_t size)
{
    if (size >= kMsSsimWindow) return kMsSsimWindow;
    return size <= 0 ? 0 : (size % 2 ? size : size - 1);
}

std::vector<double> msSsimKernel(int32_t taps)
{
    std::vector<double> w(size_t(std::max(taps, 0)));
    double sum = 0;
    const int32_t half = taps / 2;
    for (int32_t i = 0; i < taps; ++i) {
        const double d = double(i - half);
        w[size_t(i)] = std::exp(-d * d / (2.0 * kMsSsimSigma * kMsSsimSigma));
        sum += w[size_t(i)];
    }
    for (double &v : w) v /= sum;
    return w;
}

namespace {

// Output rows of one band: small enough that a 1080p plane's first scale gives each thread several.
constexpr int32_t kBandRows = 32;

template <typename T>
void halve(const T *src, int64_t stride, int32_t cols, int32_t rows, std::vector<float> &dst)
{
    // Exact in float: after k halvings of 16-bit samples a value is a multiple of 4^-k below 2^16,
    // which needs 16 + 2k <= 24 significant bits for the four halvings five scales take.
    const int32_t w = cols / 2, h = rows / 2;
    dst.resize(size_t(w) * size_t(h));
    for (int32_t y = 0; y < h; ++y) {
        const T *r0 = src + int64_t(2 * y) * stride, *r1 = r0 + stride;
        float *o = dst.data() + size_t(y) * size_t(w);
        for (int32_t x = 0; x < w; ++x)
            o[x] = 0.25f * ((float(r0[2 * x]) + float(r0[2 * x + 1])) + (float(r1[2 * x]) + float(r1[2 * x + 1])));
    }
}

void halveSource(const MsSsimPlane::Source &s, bool second, std::vector<float> &dst)
{
    const void *p = second ? s.b : s.a;
    const int64_t stride = second ? s.strideB : s.strideA;
    switch (s.type) {
    case MsSsimPlane::Type::U8: halve(static_cast<const uint8_t *>(p), stride, s.cols, s.rows, dst); break;
    case MsSsimPlane::Type::U16: halve(static_cast<const uint16_t *>(p), stride, s.cols, s.rows, dst); break;
    case MsSsimPlane::Type::F32: halve(static_cast<const float *>(p), stride, s.cols, s.rows, dst); break;
    }
}

} // namespace

void MsSsimPlane::prepare(const Source &s, int32_t bits)
{
    const double peak = std::ldexp(1.0, bits) - 1.0;
    m_c1 = (0.01 * peak) * (0.01 * peak);
    m_c2 = (0.03 * peak) * (0.03 * peak);
    m_bands.clear();
    m_count = s.cols > 0 && s.rows > 0 ? msSsimScaleCount(s.cols, s.rows) : 0;
    for (int32_t i = 0; i < m_count; ++i) {
        Scale &sc = m_scales[i];
        if (i == 0) {
            sc.src = s;
        } else {
            const Source &up = m_scales[i - 1].src;
            halveSource(up, false, sc.a);
            halveSource(up, true, sc.b);
            sc.src = {sc.a.data(), sc.b.data(), up.cols / 2, up.cols / 2, up.cols / 2, up.rows / 2, Type::F32};
        }
        sc.tapsX = msSsimTaps(sc.src.cols);
        sc.tapsY = msSsimTaps(sc.src.rows);
        if (int32_t(m_kernelX[i].size()) != sc.tapsX) m_kernelX[i] = msSsimKernel(sc.tapsX);
        if (int32_t(m_kernelY[i].size()) != sc.tapsY) m_kernelY[i] = msSsimKernel(sc.tapsY);
        const int32_t outRows = sc.src.rows - sc.tapsY + 1;
        for (int32_t y = 0; y < outRows; y += kBandRows) m_bands.push_back({i, y, std::min(outRows, y + kBandRows)});
    }
}

void MsSsimPlane::run(int32_t index)
{
    Band &band = m_bands[size_t(index)];
    const Scale &sc = m_scales[band.scale];
    const Source &s = sc.src;
    const KernelSet &k = bestKernels();
    const GaussColumnsFn columns = k.gaussColumns[int(s.type)];
    const int32_t size = s.type == Type::U8 ? 1 : s.type == Type::U16 ? 2 : 4;
    std::vector<double> sums(size_t(5) * size_t(s.cols));
    band.ssim = band.cs = 0;
    for (int32_t y = band.y0; y < band.y1; ++y) {
        const auto *a = static_cast<const uint8_t *>(s.a) + int64_t(y) * s.strideA * size;
        const auto *b = static_cast<const uint8_t *>(s.b) + int64_t(y) * s.strideB * size;
        columns(a, b, s.strideA, s.strideB, s.cols, m_kernelY[band.scale].data(), sc.tapsY, sums.data());
        k.gaussWindows(sums.data(), s.cols, m_kernelX[band.scale].data(), sc.tapsX, m_c1, m_c2, &band.ssim, &band.cs);
    }
}

double MsSsimPlane::result() const
{
    if (m_count == 0) return 1.0;
    double ssim[kMsSsimScales] = {}, cs[kMsSsimScales] = {};
    for (const Band &b : m_bands) {
        ssim[b.scale] += b.ssim;
        cs[b.scale] += b.cs;
    }
    // The published exponents as they are for five scales (they sum to 1.0001); fewer scales share 1.
    double weightSum = 0;
    for (int32_t i = 0; i < m_count; ++i) weightSum += kMsSsimWeights[i];
    if (m_count == kMsSsimScales) weightSum = 1.0;
    double result = 1.0;
    for (int32_t i = 0; i < m_count; ++i) {
        const Scale &sc = m_scales[i];
        const double windows = double(sc.src.cols - sc.tapsX + 1) * double(sc.src.rows - sc.tapsY + 1);
        const double mean = (i + 1 == m_count ? ssim[i] : cs[i]) / windows;
        result *= std::pow(std::max(mean, 0.0), kMsSsimWeights[i] / weightSum);
    }
    return result;
}

} // namespace kavri::pixel
