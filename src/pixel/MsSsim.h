// MS-SSIM as Wang, Simoncelli and Bovik published it ("Multi-scale structural similarity for image
// quality assessment", 2003), on the SSIM index of Wang, Bovik, Sheikh and Simoncelli (2004):
//
//  - an 11x11 circular-symmetric Gaussian window, sigma 1.5, weights normalised to sum 1, placed only
//    where it lies wholly inside the plane ("valid" windows; no padding at the edges);
//  - K1 = 0.01, K2 = 0.03, L = 2^bits - 1, so C1 = (K1 L)^2 and C2 = (K2 L)^2;
//  - five scales with exponents 0.0448, 0.2856, 0.3001, 0.2363, 0.1333: the mean contrast-structure
//    term of every scale, the luminance term only at the coarsest (there the mean of the whole index);
//  - from one scale to the next, each sample the mean of a 2x2 block, an odd last row or column dropped.
//
// Planes too small for that: a scale is used only while both its sides are at least 11 samples, so a
// plane smaller than 176 samples either way has fewer scales; their exponents are the first ones of the
// list scaled to sum 1 (one scale is plain Gaussian SSIM). A plane under 11 samples either way has one
// scale whose window is the Gaussian cut to the largest odd size that fits, renormalised. A mean term
// below zero (anti-correlated pictures) counts as zero.
//
// Precision: the window sums are doubles (exact products of samples and weights up to rounding, well
// below 1e-9 of the index at 16 bits); the smaller scales are kept as floats, which hold the 2x2 means of
// up to four halvings of 16-bit samples exactly.
#pragma once

#include <cstdint>
#include <vector>

namespace kavri::pixel {

constexpr int32_t kMsSsimScales = 5;
constexpr int32_t kMsSsimWindow = 11;
constexpr double kMsSsimSigma = 1.5;
// The exponents of scales 1 (full size) to 5.
extern const double kMsSsimWeights[kMsSsimScales];

// The number of scales a plane of cols x rows gets (1 to 5), and the window taps along a side of `size`
// samples at the first scale (11, or the largest odd number not above the size).
int32_t msSsimScaleCount(int32_t cols, int32_t rows);
int32_t msSsimTaps(int32_t size);
// The normalised 1-D Gaussian of `taps` weights; the 2-D window is the product of two of them.
std::vector<double> msSsimKernel(int32_t taps);

// One component of one frame pair: the pyramid of both pictures and the windows of every scale, cut into
// bands of rows that can run on different threads. prepare() first, then run(0 .. bands() - 1) in any
// order and on any threads, then result().
class MsSsimPlane {
public:
    enum class Type : uint8_t { U8, U16, F32 };
    struct Source {
        const void *a = nullptr, *b = nullptr;
        int64_t strideA = 0, strideB = 0; // in samples
        int32_t cols = 0, rows = 0;
        Type type = Type::U8;
    };

    // Builds the smaller scales of both pictures (samples read as unsigned values at `bits`) and the
    // list of bands. The source must stay readable until result().
    void prepare(const Source &s, int32_t bits);
    int32_t bands() const { return int32_t(m_bands.size()); }
    void run(int32_t band);
    double result() const;

private:
    struct Scale {
        Source src;
        int32_t tapsX = 0, tapsY = 0;
        std::vector<float> a, b;
    };
    struct Band {
        int32_t scale = 0, y0 = 0, y1 = 0;
        double ssim = 0, cs = 0;
    };
    Scale m_scales[kMsSsimScales];
    int32_t m_count = 0;
    std::vector<double> m_kernelX[kMsSsimScales], m_kernelY[kMsSsimScales];
    std::vector<Band> m_bands;
    double m_c1 = 0, m_c2 = 0;
};

} // namespace kavri::pixel
