// The metrics engine against plain double-precision implementations written from the definitions, with
// the test pattern as the source of sample values, for every family of layouts and several depths.
#include "pixel/SequenceMetrics.h"
#include "formats/FrameSize.h"
#include "pixel/DifferencePicture.h"
#include "pixel/PatternGenerator.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

// ---- reference implementations ----

struct RefPlane {
    int32_t cols = 0, rows = 0;
    std::vector<double> v;
    double at(int32_t x, int32_t y) const { return v[size_t(y) * size_t(cols) + size_t(x)]; }
};

struct RefResult {
    double ssim = 0, cs = 0;
};

// SSIM of 8x8 windows whose corners lie on a 4-sample grid, averaged over the windows that fit; a
// plane too small for two blocks each way is one window. Means and (biased) variances per window, and
// the constants the encoder tools use: C1 = (0.01 L)^2 / 64 and C2 = (0.03 L)^2 * 63 / 64.
RefResult refSsim(const RefPlane &a, const RefPlane &b, double peak)
{
    const double C1 = 0.01 * 0.01 * peak * peak / 64.0, C2 = 0.03 * 0.03 * peak * peak * 63.0 / 64.0;
    auto window = [&](int32_t x0, int32_t y0, int32_t w, int32_t h) {
        double ma = 0, mb = 0, saa = 0, sbb = 0, sab = 0;
        for (int32_t y = y0; y < y0 + h; ++y)
            for (int32_t x = x0; x < x0 + w; ++x) {
                ma += a.at(x, y);
                mb += b.at(x, y);
            }
        const double n = double(w) * h;
        ma /= n;
        mb /= n;
        for (int32_t y = y0; y < y0 + h; ++y)
            for (int32_t x = x0; x < x0 + w; ++x) {
                saa += (a.at(x, y) - ma) * (a.at(x, y) - ma);
                sbb += (b.at(x, y) - mb) * (b.at(x, y) - mb);
                sab += (a.at(x, y) - ma) * (b.at(x, y) - mb);
            }
        saa /= n;
        sbb /= n;
        sab /= n;
        const double l = (2 * ma * mb + C1) / (ma * ma + mb * mb + C1);
        const double cs = (2 * sab + C2) / (saa + sbb + C2);
        return RefResult{l * cs, cs};
    };
    const int32_t bw = a.cols / 4, bh = a.rows / 4;
    if (bw < 2 || bh < 2) return a.cols > 0 && a.rows > 0 ? window(0, 0, a.cols, a.rows) : RefResult{1, 1};
    RefResult sum;
    for (int32_t wy = 0; wy + 1 < bh; ++wy)
        for (int32_t wx = 0; wx + 1 < bw; ++wx) {
            const RefResult r = window(4 * wx, 4 * wy, 8, 8);
            sum.ssim += r.ssim;
            sum.cs += r.cs;
        }
    const double n = double(bw - 1) * (bh - 1);
    return {sum.ssim / n, sum.cs / n};
}

// MS-SSIM written straight from the papers, sharing nothing with the engine: for every placement of a
// window wholly inside the plane, the 2-D circular Gaussian weights (sigma 1.5) over it, weighted means,
// then weighted variances and covariance about those means (two passes), and the index with
// C1 = (0.01 L)^2, C2 = (0.03 L)^2. The window is 11x11, or on a plane narrower than 11 the largest odd
// size that fits, centred. Scales: 2x2 block means, an odd last row or column dropped, while both sides
// stay at least 11; the published exponents, scaled to sum 1 when fewer than five scales fit.
RefResult refGaussianSsim(const RefPlane &a, const RefPlane &b, double peak)
{
    const double C1 = (0.01 * peak) * (0.01 * peak), C2 = (0.03 * peak) * (0.03 * peak);
    auto fit = [](int32_t n) { return n >= 11 ? 11 : (n % 2 ? n : n - 1); };
    const int32_t wx = fit(a.cols), wy = fit(a.rows);
    std::vector<double> w(size_t(wx) * size_t(wy));
    double total = 0;
    for (int32_t j = 0; j < wy; ++j)
        for (int32_t i = 0; i < wx; ++i) {
            const double dx = i - wx / 2, dy = j - wy / 2;
            w[size_t(j * wx + i)] = std::exp(-(dx * dx + dy * dy) / (2 * 1.5 * 1.5));
            total += w[size_t(j * wx + i)];
        }
    for (double &v : w) v /= total;
    RefResult sum;
    int64_t windows = 0;
    for (int32_t y0 = 0; y0 + wy <= a.rows; ++y0)
        for (int32_t x0 = 0; x0 + wx <= a.cols; ++x0) {
            double ma = 0, mb = 0;
            for (int32_t j = 0; j < wy; ++j)
                for (int32_t i = 0; i < wx; ++i) {
                    ma += w[size_t(j * wx + i)] * a.at(x0 + i, y0 + j);
                    mb += w[size_t(j * wx + i)] * b.at(x0 + i, y0 + j);
                }
            double va = 0, vb = 0, cov = 0;
            for (int32_t j = 0; j < wy; ++j)
                for (int32_t i = 0; i < wx; ++i) {
                    const double da = a.at(x0 + i, y0 + j) - ma, db = b.at(x0 + i, y0 + j) - mb;
                    va += w[size_t(j * wx + i)] * da * da;
                    vb += w[size_t(j * wx + i)] * db * db;
                    cov += w[size_t(j * wx + i)] * da * db;
                }
            const double l = (2 * ma * mb + C1) / (ma * ma + mb * mb + C1);
            const double cs = (2 * cov + C2) / (va + vb + C2);
            sum.ssim += l * cs;
            sum.cs += cs;
            ++windows;
        }
    return {sum.ssim / double(windows), sum.cs / double(windows)};
}

RefPlane refHalve(const RefPlane &p)
{
    RefPlane h;
    h.cols = p.cols / 2;
    h.rows = p.rows / 2;
    for (int32_t y = 0; y < h.rows; ++y)
        for (int32_t x = 0; x < h.cols; ++x)
            h.v.push_back(
                (p.at(2 * x, 2 * y) + p.at(2 * x + 1, 2 * y) + p.at(2 * x, 2 * y + 1) + p.at(2 * x + 1, 2 * y + 1)) /
                4.0);
    return h;
}

double refMsSsim(const RefPlane &a, const RefPlane &b, double peak)
{
    static const double beta[5] = {0.0448, 0.2856, 0.3001, 0.2363, 0.1333};
    std::vector<std::pair<RefPlane, RefPlane>> scales{{a, b}};
    while (scales.size() < 5 && scales.back().first.cols / 2 >= 11 && scales.back().first.rows / 2 >= 11)
        scales.emplace_back(refHalve(scales.back().first), refHalve(scales.back().second));
    const size_t m = scales.size();
    double betaSum = 0;
    for (size_t s = 0; s < m; ++s) betaSum += beta[s];
    if (m == 5) betaSum = 1; // five scales take the exponents as published
    double result = 1;
    for (size_t s = 0; s < m; ++s) {
        const RefResult r = refGaussianSsim(scales[s].first, scales[s].second, peak);
        result *= std::pow(std::max(s + 1 == m ? r.ssim : r.cs, 0.0), beta[s] / betaSum);
    }
    return result;
}

// ---- frames from the pattern ----

struct Case {
    const char *name;
    videoFormat_t layout;
    int32_t width, height, bits;
    bool isSigned;
};

PatternSpec patternOf(const Case &c)
{
    PatternSpec s;
    s.layout = c.layout;
    s.width = c.width;
    s.height = c.height;
    s.bits = c.bits;
    s.containerBits = containerForBits(c.bits);
    s.isSigned = c.isSigned;
    return s;
}

std::vector<uint8_t> frameOf(const PatternSpec &s, uint64_t frame)
{
    std::vector<uint8_t> buf(allocationSize(s.layout, s.containerBits, s.width, s.height));
    EXPECT_TRUE(writePatternFrame(s, frame, buf.data(), buf.size())) << patternSpecError(s);
    return buf;
}

// Which of the pattern's c1..c3 component k of the engine is: its storage letter.
int patternIndexOf(videoFormat_t layout, int k)
{
    const std::string_view letter = layoutInfo(layout).letters[size_t(k)];
    if (letter == "R" || letter == "Y" || letter.empty()) return 0;
    if (letter == "G" || letter == "U") return 1;
    return 2;
}

// Component k of a pattern frame as the pattern defines it (chroma sampled at the top-left pixel of the
// area it covers), on the component's own grid.
RefPlane refPlaneOf(const PatternSpec &s, uint64_t frame, int k)
{
    const LayoutInfo &info = layoutInfo(s.layout);
    SampleGrid grids[3];
    double count[3];
    const int64_t samples = allocationSize(s.layout, s.containerBits, s.width, s.height) / (s.containerBits / 8);
    RefPlane p;
    if (s.layout == YUV_v210) {
        p.cols = k == 0 ? s.width : s.width / 2;
        p.rows = s.height;
    } else {
        componentGrids(s.layout, s.width, s.height, samples, grids, count);
        p.cols = grids[k].cols;
        p.rows = grids[k].rows;
    }
    const bool yuv = info.kind != LayoutKind::InterleavedRgb && info.kind != LayoutKind::PlanarRgb;
    const int sx = yuv && k > 0 ? info.chromaShiftX : 0, sy = yuv && k > 0 ? info.chromaShiftY : 0;
    for (int32_t y = 0; y < p.rows; ++y)
        for (int32_t x = 0; x < p.cols; ++x) {
            const PatternPixel px = patternPixel(s, frame, x << sx, y << sy);
            const int32_t c[3] = {px.c1, px.c2, px.c3};
            p.v.push_back(double(c[patternIndexOf(s.layout, k)]));
        }
    return p;
}

// Component k of an arbitrary frame, read sample by sample from the layout's geometry (v210 by its word
// fields), signed samples moved up by half the range as the index needs values from 0 to the peak.
RefPlane planeOfFrame(const Case &c, const std::vector<uint8_t> &frame, int k)
{
    RefPlane p;
    const int32_t container = containerForBits(c.bits);
    auto sample = [&](int64_t i) {
        if (container == 16) {
            uint16_t v;
            std::memcpy(&v, frame.data() + 2 * i, 2);
            return c.isSigned ? int32_t(int16_t(v)) + (1 << (c.bits - 1)) : int32_t(v);
        }
        return c.isSigned ? int32_t(int8_t(frame[size_t(i)])) + 128 : int32_t(frame[size_t(i)]);
    };
    if (c.layout == YUV_v210) {
        // Six pixels in four words: U0 Y0 V0 | Y1 U2 Y2 | V2 Y3 U4 | Y4 V4 Y5.
        static const int comp[12] = {1, 0, 2, 0, 1, 0, 2, 0, 1, 0, 2, 0};
        static const int col[12] = {0, 0, 0, 1, 1, 2, 1, 3, 2, 4, 2, 5};
        p.cols = k == 0 ? c.width : c.width / 2;
        p.rows = c.height;
        p.v.assign(size_t(p.cols) * size_t(p.rows), 0);
        const int64_t rowBytes = ((c.width + 47) / 48) * 128;
        for (int32_t y = 0; y < p.rows; ++y)
            for (int32_t g = 0; g < (c.width + 5) / 6; ++g)
                for (int f = 0; f < 12; ++f) {
                    const int32_t x = (k == 0 ? 6 : 3) * g + col[f];
                    if (comp[f] != k || x >= p.cols) continue;
                    uint32_t word;
                    std::memcpy(&word, frame.data() + y * rowBytes + (4 * g + f / 3) * 4, 4);
                    p.v[size_t(y) * size_t(p.cols) + size_t(x)] = double((word >> (10 * (f % 3))) & 0x3ff);
                }
        return p;
    }
    SampleGrid grids[3];
    double count[3];
    componentGrids(c.layout, c.width, c.height, int64_t(frame.size()) / (container / 8), grids, count);
    const SampleGrid &g = grids[k];
    p.cols = g.cols;
    p.rows = g.rows;
    for (int32_t y = 0; y < g.rows; ++y)
        for (int32_t x = 0; x < g.cols; ++x)
            p.v.push_back(double(sample(g.start + y * g.stride + int64_t(x) * g.step)));
    return p;
}

const Case kCases[] = {
    {"yuv420 8", YUV_p420, 64, 48, 8, false},
    {"yuv420 10 odd size", YUV_p420, 70, 38, 10, false},
    {"yuv422 12 signed", YUV_p422, 48, 40, 12, true},
    {"yuv444 16", YUV_p444, 40, 36, 16, false},
    {"yuv410 8", YUV_p410, 64, 40, 8, false},
    {"yuv411 9", YUV_p411, 64, 32, 9, false},
    {"uyvy", YUV_uyvy, 48, 32, 8, false},
    {"yuyv", YUV_yuyv, 50, 34, 8, false},
    {"nv12", YUV_nv12, 64, 36, 8, false},
    {"v210", YUV_v210, 60, 32, 10, false},
    {"rgb interleaved", RGB_i444, 40, 40, 8, false},
    {"bgra interleaved", BGRA_i444, 36, 44, 8, false},
    {"gbr planar 10", GBR_planar, 44, 36, 10, false},
    {"rgba planar 8 signed", RGBA_planar, 40, 32, 8, true},
    {"luma 14", BW, 52, 30, 14, false},
    {"tiny yuv420", YUV_p420, 6, 6, 8, false},
    // Big enough for all five MS-SSIM scales (at least 176 samples a side), odd sizes among them.
    {"yuv444 8 five scales", YUV_p444, 180, 178, 8, false},
    {"yuv420 10 five scales odd", YUV_p420, 355, 357, 10, false},
    {"luma 16 five scales", BW, 177, 176, 16, false},
    {"nv12 five scales for luma only", YUV_nv12, 352, 180, 8, false},
    {"rgb planar 12 four scales", RGB_planar, 175, 190, 12, false},
    // Smaller than one 11x11 window: the window cut to what fits.
    {"thin yuv444", YUV_p444, 12, 5, 8, false},
    {"one row of luma", BW, 9, 1, 8, false},
    {"yuv420 2x2", YUV_p420, 2, 2, 8, false},
};

TEST(SequenceMetrics, AgreesWithTheReferenceAndTheDifferencePicture)
{
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        const PatternSpec s = patternOf(c);
        // Frame 0 against a later frame: the moving block and the frame number differ.
        std::vector<uint8_t> a = frameOf(s, 0), b = frameOf(s, 37);
        FrameMetricsEngine engine;
        std::string why;
        ASSERT_TRUE(engine.setup({c.layout, c.width, c.height, c.bits, c.bits, 0, 0, c.isSigned}, kAllMetrics, &why))
            << why;
        const FrameMetrics m = engine.compute(a.data(), b.data());

        DifferencePicture dp;
        dp.setup(c.layout, c.width, c.height, c.width, c.bits, c.isSigned);
        std::vector<uint8_t> out(a.size());
        dp.compute(a.data(), b.data(), out.data());
        const double peak = std::ldexp(1.0, c.bits) - 1.0;
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(k);
            EXPECT_EQ(m.mse[k], dp.mse[k]);
            EXPECT_EQ(m.psnr[k], dp.psnr[k]);
            EXPECT_EQ(m.firstX[k], dp.firstDiffX[k]);
            EXPECT_EQ(m.firstY[k], dp.firstDiffY[k]);
            if (k >= engine.components()) {
                EXPECT_EQ(m.ssim[k], 1.0);
                EXPECT_EQ(m.msssim[k], 1.0);
                continue;
            }
            const RefPlane pa = refPlaneOf(s, 0, k), pb = refPlaneOf(s, 37, k);
            EXPECT_NEAR(m.ssim[k], refSsim(pa, pb, peak).ssim, 1e-9);
            EXPECT_NEAR(m.msssim[k], refMsSsim(pa, pb, peak), 1e-9);
        }
        if (c.width >= 6 && c.height >= 6) { // the pattern's moving block is outside the smallest frames
            EXPECT_TRUE(m.differs());
            EXPECT_LT(m.ssim[0], 1.0);
        }
        // The work is split over threads; the sums are combined in a fixed order, so again, and on one
        // thread, is the same.
        const FrameMetrics again = engine.compute(a.data(), b.data());
        engine.setUsePool(false);
        const FrameMetrics alone = engine.compute(a.data(), b.data());
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(again.ssim[k], m.ssim[k]);
            EXPECT_EQ(again.msssim[k], m.msssim[k]);
            EXPECT_EQ(alone.ssim[k], m.ssim[k]);
            EXPECT_EQ(alone.msssim[k], m.msssim[k]);
            EXPECT_EQ(alone.psnr[k], m.psnr[k]);
        }
    }
}

// Pictures close to each other (the pattern and the pattern with seeded noise of a few codes), so that
// every scale's terms lie well inside (0, 1) and an error in any of them shows; MS-SSIM asked alone.
TEST(SequenceMetrics, MsSsimOfNearPicturesAgreesWithThePublishedDefinition)
{
    const Case cases[] = {
        {"yuv420 8", YUV_p420, 354, 290, 8, false},   {"yuv422 10 odd", YUV_p422, 357, 181, 10, false},
        {"yuv444 16", YUV_p444, 181, 177, 16, false}, {"gbr planar 12 signed", GBR_planar, 200, 190, 12, true},
        {"yuyv", YUV_yuyv, 360, 180, 8, false},       {"v210", YUV_v210, 360, 178, 10, false},
        {"bgra", BGRA_i444, 190, 180, 8, false},      {"tiny luma", BW, 7, 4, 8, false},
    };
    const uint32_t seed = 20031109;
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SCOPED_TRACE(seed);
        const PatternSpec s = patternOf(c);
        const std::vector<uint8_t> a = frameOf(s, 4);
        FrameMetricsEngine engine;
        ASSERT_TRUE(
            engine.setup({c.layout, c.width, c.height, c.bits, c.bits, 0, 0, c.isSigned}, metricBit(Metric::MsSsim)));
        // Noise in the samples of each component's plane as the engine sees it: the reference planes
        // are read from the noisy frame by the same pattern geometry, so change the frame itself by
        // writing the pattern of b = a + noise through a second pattern frame of the same number.
        std::mt19937 rng(seed);
        std::vector<uint8_t> b = a;
        const int32_t span = c.bits > 8 ? 1 << (c.bits - 6) : 4;
        const int64_t samples = int64_t(a.size()) / (c.bits > 8 ? 2 : 1);
        for (int64_t i = 0; i < samples; ++i) {
            const int32_t d = int32_t(rng() % uint32_t(2 * span + 1)) - span;
            if (c.layout == YUV_v210) {
                continue; // changed word-wise below
            } else if (c.bits > 8) {
                uint16_t v;
                std::memcpy(&v, b.data() + 2 * i, 2);
                const int32_t lo = c.isSigned ? -(1 << (c.bits - 1)) : 0, hi = lo + (1 << c.bits) - 1;
                const int32_t x = c.isSigned ? int32_t(int16_t(v)) : int32_t(v);
                const int16_t out = int16_t(std::clamp(x + d, lo, hi));
                std::memcpy(b.data() + 2 * i, &out, 2);
            } else {
                const int32_t x = c.isSigned ? int32_t(int8_t(b[size_t(i)])) : int32_t(b[size_t(i)]);
                const int32_t lo = c.isSigned ? -128 : 0;
                b[size_t(i)] = uint8_t(std::clamp(x + d, lo, lo + 255));
            }
        }
        if (c.layout == YUV_v210)
            for (size_t i = 0; i + 4 <= b.size(); i += 4) {
                uint32_t word;
                std::memcpy(&word, b.data() + i, 4);
                uint32_t out = word & 0xc0000000u;
                for (int f = 0; f < 3; ++f) {
                    const int32_t v = int32_t((word >> (10 * f)) & 0x3ffu);
                    const int32_t d = int32_t(rng() % 33u) - 16;
                    out |= uint32_t(std::clamp(v + d, 0, 1023)) << (10 * f);
                }
                std::memcpy(b.data() + i, &out, 4);
            }
        const FrameMetrics m = engine.compute(a.data(), b.data());
        FrameMetricsEngine all;
        ASSERT_TRUE(all.setup({c.layout, c.width, c.height, c.bits, c.bits, 0, 0, c.isSigned}, kAllMetrics));
        const FrameMetrics full = all.compute(a.data(), b.data());
        const double peak = std::ldexp(1.0, c.bits) - 1.0;
        for (int k = 0; k < engine.components(); ++k) {
            SCOPED_TRACE(k);
            const RefPlane pa = planeOfFrame(c, a, k), pb = planeOfFrame(c, b, k);
            const double want = refMsSsim(pa, pb, peak);
            EXPECT_NEAR(m.msssim[k], want, 1e-9);
            EXPECT_GT(want, 0.3);
            EXPECT_LT(want, 0.9999);
            EXPECT_EQ(full.msssim[k], m.msssim[k]);
        }
    }
}

TEST(SequenceMetrics, MsSsimScalesAndWindowFollowThePlaneSize)
{
    struct SizeCase {
        int32_t cols, rows, scales, tapsX, tapsY;
    };
    const SizeCase cases[] = {
        {1920, 1080, 5, 11, 11}, {176, 176, 5, 11, 11}, {175, 176, 4, 11, 11}, {176, 175, 4, 11, 11},
        {88, 88, 4, 11, 11},     {87, 400, 3, 11, 11},  {22, 22, 2, 11, 11},   {21, 22, 1, 11, 11},
        {11, 11, 1, 11, 11},     {10, 11, 1, 9, 11},    {12, 5, 1, 11, 5},     {1, 1, 1, 1, 1},
        {2, 2, 1, 1, 1},         {4, 300, 1, 3, 11},
    };
    for (const SizeCase &c : cases) {
        SCOPED_TRACE(std::to_string(c.cols) + "x" + std::to_string(c.rows));
        EXPECT_EQ(msSsimScaleCount(c.cols, c.rows), c.scales);
        EXPECT_EQ(msSsimTaps(c.cols), c.tapsX);
        EXPECT_EQ(msSsimTaps(c.rows), c.tapsY);
        const std::vector<double> w = msSsimKernel(c.tapsX);
        double sum = 0;
        for (double v : w) sum += v;
        EXPECT_NEAR(sum, 1.0, 1e-15);
        for (size_t i = 0; i < w.size(); ++i) EXPECT_DOUBLE_EQ(w[i], w[w.size() - 1 - i]);
    }
    // The 11 taps: exp(-d^2 / 4.5) normalised by their sum 3.75923280.
    const std::vector<double> w = msSsimKernel(11);
    EXPECT_NEAR(w[5], 0.26601172, 1e-8);
    EXPECT_NEAR(w[0], 0.00102838, 1e-8);
}

// The Gaussian rows of every kernel set the CPU can run against the portable set, at widths around the
// kernels' chunk of 256 columns and with taps cut short.
TEST(SequenceMetrics, KernelSetsWeighGaussianWindowsAlike)
{
    std::mt19937 rng(11);
    for (const KernelSet *k : {avx2Kernels(), avx512Kernels()}) {
        if (!k) continue;
        SCOPED_TRACE(k->name);
        const KernelSet &p = portableKernels();
        for (int32_t cols : {1, 11, 255, 267, 300, 1921})
            for (int32_t taps : {1, 5, 11}) {
                if (taps > cols) continue;
                SCOPED_TRACE(std::to_string(cols) + " " + std::to_string(taps));
                const int32_t stride = cols + 3;
                std::vector<uint8_t> a8(size_t(stride * taps)), b8(a8.size());
                std::vector<uint16_t> a16(a8.size()), b16(a8.size());
                std::vector<float> af(a8.size()), bf(a8.size());
                for (size_t i = 0; i < a8.size(); ++i) {
                    a16[i] = uint16_t(rng());
                    b16[i] = uint16_t(a16[i] + rng() % 2000);
                    a8[i] = uint8_t(a16[i] >> 8);
                    b8[i] = uint8_t(b16[i] >> 8);
                    af[i] = float(a16[i]) * 0.25f;
                    bf[i] = float(b16[i]) * 0.25f;
                }
                const std::vector<double> w = msSsimKernel(taps);
                const void *as[3] = {a8.data(), a16.data(), af.data()}, *bs[3] = {b8.data(), b16.data(), bf.data()};
                for (int t = 0; t < 3; ++t) {
                    std::vector<double> got(size_t(5 * cols), -1), want(got.size(), -2);
                    k->gaussColumns[t](as[t], bs[t], stride, stride, cols, w.data(), taps, got.data());
                    p.gaussColumns[t](as[t], bs[t], stride, stride, cols, w.data(), taps, want.data());
                    for (size_t i = 0; i < got.size(); ++i)
                        ASSERT_NEAR(got[i], want[i], 1e-12 * std::max(1.0, std::abs(want[i]))) << t << " " << i;
                    double s1 = 0, c1 = 0, s2 = 0, c2 = 0;
                    k->gaussWindows(want.data(), cols, w.data(), taps, 6.5, 58.5, &s1, &c1);
                    p.gaussWindows(want.data(), cols, w.data(), taps, 6.5, 58.5, &s2, &c2);
                    EXPECT_NEAR(s1, s2, 1e-9 * cols);
                    EXPECT_NEAR(c1, c2, 1e-9 * cols);
                    EXPECT_LT(s2, 0.999 * double(cols - taps + 1));
                }
            }
    }
}

// A background pass waits or gives up between the jobs of a frame: the calls come on the calling thread
// only without the pool, a pass that goes on gets the same numbers, and one that gives up gets none.
TEST(SequenceMetrics, BetweenJobsLetsAPassWaitOrGiveUp)
{
    const Case c{"yuv420 8", YUV_p420, 200, 120, 8, false};
    const PatternSpec s = patternOf(c);
    const std::vector<uint8_t> a = frameOf(s, 0), b = frameOf(s, 9);
    FrameMetricsEngine engine;
    ASSERT_TRUE(engine.setup({c.layout, c.width, c.height, 8, 8}, kAllMetrics));
    const FrameMetrics plain = engine.compute(a.data(), b.data());
    int calls = 0;
    engine.setBetweenJobs([&] { return ++calls > 0; });
    engine.compute(a.data(), b.data());
    EXPECT_EQ(calls, 0); // on the pool: never asked
    engine.setUsePool(false);
    const FrameMetrics asked = engine.compute(a.data(), b.data());
    // The views, the difference, the SSIM bands and the MS-SSIM bands of three components: many calls.
    EXPECT_GT(calls, 10);
    for (int k = 0; k < 3; ++k) {
        EXPECT_EQ(asked.psnr[k], plain.psnr[k]);
        EXPECT_EQ(asked.ssim[k], plain.ssim[k]);
        EXPECT_EQ(asked.msssim[k], plain.msssim[k]);
    }
    for (const int giveUpAt : {1, 4, calls}) {
        SCOPED_TRACE(giveUpAt);
        int n = 0;
        engine.setBetweenJobs([&] { return ++n < giveUpAt; });
        const FrameMetrics none = engine.compute(a.data(), b.data());
        EXPECT_EQ(n, giveUpAt);
        EXPECT_EQ(none.frame, -1);
        EXPECT_FALSE(none.differs());
        EXPECT_EQ(none.mse[0], 0.0);
    }
    engine.setBetweenJobs(nullptr);
    EXPECT_EQ(engine.compute(a.data(), b.data()).msssim[1], plain.msssim[1]);
}

TEST(SequenceMetrics, IdenticalFramesAreInfiniteAndOne)
{
    for (const Case &c : kCases) {
        SCOPED_TRACE(c.name);
        const PatternSpec s = patternOf(c);
        std::vector<uint8_t> a = frameOf(s, 5), b = a;
        FrameMetricsEngine engine;
        ASSERT_TRUE(engine.setup({c.layout, c.width, c.height, c.bits, c.bits, 0, 0, c.isSigned}, kAllMetrics));
        const FrameMetrics m = engine.compute(a.data(), b.data());
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(m.mse[k], 0.0);
            EXPECT_TRUE(std::isinf(m.psnr[k]));
            EXPECT_DOUBLE_EQ(m.ssim[k], 1.0);
            EXPECT_NEAR(m.msssim[k], 1.0, 1e-12);
            EXPECT_EQ(m.firstX[k], -1);
        }
        EXPECT_TRUE(std::isinf(m.wpsnr));
        EXPECT_FALSE(m.differs());
    }
}

TEST(SequenceMetrics, WeightedPsnrIsSixToOneToOneForYuv)
{
    const Case c{"yuv420", YUV_p420, 64, 48, 8, false};
    const PatternSpec s = patternOf(c);
    std::vector<uint8_t> a = frameOf(s, 0), b = frameOf(s, 20);
    FrameMetricsEngine engine;
    ASSERT_TRUE(engine.setup({c.layout, c.width, c.height, 8, 8}, metricBit(Metric::Wpsnr)));
    const FrameMetrics m = engine.compute(a.data(), b.data());
    EXPECT_DOUBLE_EQ(m.wpsnr, (6 * m.psnr[0] + m.psnr[1] + m.psnr[2]) / 8);
    // Not asked for: left at their neutral values.
    EXPECT_EQ(m.ssim[0], 1.0);
    EXPECT_EQ(m.msssim[0], 1.0);
}

// A frame of a smaller depth is compared as if its samples had been shifted up to the larger depth.
TEST(SequenceMetrics, DifferentDepthsAreComparedAtTheLargerDepth)
{
    struct DepthCase {
        const char *name;
        videoFormat_t layout;
        int32_t bitsA, bitsB;
        bool isSigned;
    };
    const DepthCase cases[] = {
        {"8 against 10", YUV_p420, 8, 10, false},
        {"10 against 8", YUV_p420, 10, 8, false},
        {"12 against 16 rgb planar", RGB_planar, 12, 16, false},
        {"6 against 8 signed", YUV_p444, 6, 8, true},
        {"8 against 12 signed", YUV_p422, 8, 12, true},
    };
    for (const DepthCase &c : cases) {
        SCOPED_TRACE(c.name);
        const int32_t W = 40, H = 32, hi = std::max(c.bitsA, c.bitsB), lo = std::min(c.bitsA, c.bitsB);
        const Case low{"", c.layout, W, H, lo, c.isSigned}, high{"", c.layout, W, H, hi, c.isSigned};
        const std::vector<uint8_t> small = frameOf(patternOf(low), 3);
        const std::vector<uint8_t> large = frameOf(patternOf(high), 40);
        // The smaller frame shifted by hand into the larger depth's container.
        const int64_t n = int64_t(allocationSize(c.layout, containerForBits(lo), W, H)) / (containerForBits(lo) / 8);
        std::vector<uint8_t> shifted(allocationSize(c.layout, containerForBits(hi), W, H));
        for (int64_t i = 0; i < n; ++i) {
            int32_t v;
            if (lo > 8) {
                int16_t t;
                std::memcpy(&t, small.data() + 2 * i, 2);
                v = c.isSigned ? t : uint16_t(t);
            } else {
                v = c.isSigned ? int32_t(int8_t(small[size_t(i)])) : int32_t(small[size_t(i)]);
            }
            v *= 1 << (hi - lo);
            if (hi > 8) {
                const int16_t t = int16_t(v);
                std::memcpy(shifted.data() + 2 * i, &t, 2);
            } else {
                shifted[size_t(i)] = uint8_t(v);
            }
        }
        const bool aSmall = c.bitsA < c.bitsB;
        FrameMetricsEngine mixed, same;
        ASSERT_TRUE(mixed.setup({c.layout, W, H, c.bitsA, c.bitsB, 0, 0, c.isSigned}, kAllMetrics));
        ASSERT_TRUE(same.setup({c.layout, W, H, hi, hi, 0, 0, c.isSigned}, kAllMetrics));
        EXPECT_EQ(mixed.bits(), hi);
        const FrameMetrics m =
            aSmall ? mixed.compute(small.data(), large.data()) : mixed.compute(large.data(), small.data());
        const FrameMetrics r =
            aSmall ? same.compute(shifted.data(), large.data()) : same.compute(large.data(), shifted.data());
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(m.mse[k], r.mse[k]);
            EXPECT_EQ(m.ssim[k], r.ssim[k]);
            EXPECT_EQ(m.msssim[k], r.msssim[k]);
            EXPECT_EQ(m.firstX[k], r.firstX[k]);
        }
        // The shifted copy against itself at mixed depths: identical.
        const FrameMetrics id =
            aSmall ? mixed.compute(small.data(), shifted.data()) : mixed.compute(shifted.data(), small.data());
        EXPECT_FALSE(id.differs());
        EXPECT_TRUE(std::isinf(id.psnr[0]));
    }
}

TEST(SequenceMetrics, RefusesWhatItCannotCompare)
{
    FrameMetricsEngine e;
    std::string why;
    EXPECT_FALSE(e.setup({YUV_uyvy, 16, 8, 8, 10}, kAllMetrics, &why));
    EXPECT_FALSE(why.empty());
    EXPECT_FALSE(e.setup({YUV_v210, 12, 8, 10, 8}, kAllMetrics));
    EXPECT_FALSE(e.setup({YUV_p420, 0, 8, 8, 8}, kAllMetrics));
    EXPECT_FALSE(e.setup({YUV_p420, 16, 8, 8, 17}, kAllMetrics));
    EXPECT_FALSE(e.setup({YUV_p420, 16, 8, 10, 10, 8, 16}, kAllMetrics)); // a container too small
    // A refused engine computes nothing.
    std::vector<uint8_t> f(16 * 8 * 2);
    EXPECT_FALSE(e.compute(f.data(), f.data()).differs());
}

// Every kernel set the CPU can run sums blocks exactly as plain loops do (across the chunks of columns)
// and gives the windows' SSIM and contrast-structure sums of windowSsim.
TEST(SequenceMetrics, KernelSetsSumBlocksAndWindowsAlike)
{
    const int32_t blocks = 67, stride = 4 * blocks + 5;
    std::mt19937 rng(3);
    for (const KernelSet *k : {&portableKernels(), avx2Kernels(), avx512Kernels()}) {
        if (!k) continue;
        SCOPED_TRACE(k->name);
        for (int wide = 0; wide < 2; ++wide) {
            const uint32_t mask = wide ? 0xfff : 0xff;
            std::vector<uint16_t> a16(size_t(8 * stride)), b16(a16.size());
            std::vector<uint8_t> a8(a16.size()), b8(a16.size());
            for (size_t i = 0; i < a16.size(); ++i) {
                a16[i] = uint16_t(rng() & mask);
                // The second picture close to the first in half the columns, so both terms vary.
                b16[i] = (i / 7) % 2 ? uint16_t(rng() & mask) : uint16_t(std::min<uint32_t>(a16[i] + rng() % 9, mask));
                a8[i] = uint8_t(a16[i]);
                b8[i] = uint8_t(b16[i]);
            }
            std::vector<uint32_t> rows[2];
            for (int r = 0; r < 2; ++r) {
                rows[r].assign(size_t(4 * blocks), 0);
                const size_t off = size_t(4 * r * stride);
                if (wide)
                    k->ssimBlocks[1](a16.data() + off, b16.data() + off, stride, blocks, rows[r].data());
                else
                    k->ssimBlocks[0](a8.data() + off, b8.data() + off, stride, blocks, rows[r].data());
                for (int32_t i = 0; i < blocks; ++i) {
                    uint64_t want[4] = {0, 0, 0, 0};
                    for (int y = 0; y < 4; ++y)
                        for (int x = 0; x < 4; ++x) {
                            const size_t at = off + size_t(y * stride + 4 * i + x);
                            const uint64_t va = wide ? a16[at] : a8[at], vb = wide ? b16[at] : b8[at];
                            want[0] += va;
                            want[1] += vb;
                            want[2] += va * va + vb * vb;
                            want[3] += va * vb;
                        }
                    for (int q = 0; q < 4; ++q) ASSERT_EQ(rows[r][size_t(q * blocks + i)], want[q]) << i << " " << q;
                }
            }
            const SsimConstants c = ssimConstants(wide ? 12 : 8);
            double wantSsim = 0, wantCs = 0;
            for (int32_t i = 0; i + 1 < blocks; ++i) {
                double s[4];
                for (int q = 0; q < 4; ++q)
                    s[q] = double(rows[0][size_t(q * blocks + i)]) + rows[0][size_t(q * blocks + i + 1)] +
                           rows[1][size_t(q * blocks + i)] + rows[1][size_t(q * blocks + i + 1)];
                double cs;
                wantSsim += windowSsim(s[0], s[1], s[2], s[3], 64, c, &cs);
                wantCs += cs;
            }
            double cs = 0;
            const double got = k->ssimWindows(rows[0].data(), rows[1].data(), blocks, c.c1, c.c2, &cs);
            EXPECT_NEAR(got, wantSsim, 1e-9);
            EXPECT_NEAR(cs, wantCs, 1e-9);
            EXPECT_LT(wantSsim / (blocks - 1), 0.9); // the data are far from equal
        }
    }
}

// ---- the sequence summary ----

FrameMetrics made(int64_t frame, double psnr0, double ssim0, double mse0)
{
    FrameMetrics m;
    m.frame = frame;
    for (int k = 0; k < 3; ++k) {
        m.psnr[k] = psnr0 + k;
        m.ssim[k] = ssim0;
        m.msssim[k] = ssim0;
        m.mse[k] = mse0 * (k + 1);
    }
    m.wpsnr = psnr0;
    return m;
}

TEST(SequenceSummary, MeanMinWorstAndPsnrOfTheMeanMse)
{
    SequenceSummary s(kAllMetrics, 8);
    s.add(made(10, 40, 0.99, 1.0));
    s.add(made(11, 30, 0.95, 3.0));
    s.add(made(12, 35, 0.90, 2.0));
    s.add(made(13, 30, 0.97, 3.0));
    EXPECT_DOUBLE_EQ(s.mean(Metric::Psnr, 0), 33.75);
    EXPECT_DOUBLE_EQ(s.mean(Metric::Psnr, 2), 35.75);
    EXPECT_DOUBLE_EQ(s.min(Metric::Psnr, 1), 31);
    EXPECT_DOUBLE_EQ(s.min(Metric::Ssim, 0), 0.90);
    EXPECT_DOUBLE_EQ(s.mean(Metric::Wpsnr, 0), 33.75);
    EXPECT_DOUBLE_EQ(s.psnrOfMeanMse(0), psnrOfMse(2.25, 8));
    EXPECT_DOUBLE_EQ(s.psnrOfMeanMse(1), psnrOfMse(4.5, 8));
    // Worst first by the metric's first component; equal values keep frame order.
    EXPECT_EQ(s.worst(Metric::Psnr, 3), (std::vector<int64_t>{11, 13, 12}));
    EXPECT_EQ(s.worst(Metric::Ssim, 10), (std::vector<int64_t>{12, 11, 13, 10}));
    EXPECT_TRUE(s.worst(Metric::Psnr, 0).empty());
    // No first difference recorded: identical.
    EXPECT_TRUE(s.identical());

    FrameMetrics late = made(14, 50, 1, 0);
    late.firstX[2] = 3;
    late.firstY[2] = 1;
    late.firstX[1] = 7;
    late.firstY[1] = 0;
    s.add(late);
    const SequenceSummary::Mismatch mm = s.firstMismatch();
    EXPECT_EQ(mm.frame, 14);
    EXPECT_EQ(mm.component, 1);
    EXPECT_EQ(mm.x, 7);
    EXPECT_EQ(mm.y, 0);
    EXPECT_FALSE(s.identical());

    SequenceSummary inf(kAllMetrics, 10);
    FrameMetrics same;
    same.psnr[0] = std::numeric_limits<double>::infinity();
    inf.add(same);
    EXPECT_TRUE(std::isinf(inf.mean(Metric::Psnr, 0)));
    EXPECT_TRUE(std::isinf(inf.psnrOfMeanMse(0)));
}

TEST(SequenceSummary, OneChangedSampleInTheLastFrameIsTheFirstMismatch)
{
    const Case c{"", YUV_p420, 32, 16, 8, false};
    const PatternSpec s = patternOf(c);
    FrameMetricsEngine engine;
    ASSERT_TRUE(engine.setup({c.layout, c.width, c.height, 8, 8}, kAllMetrics));
    SequenceSummary summary(kAllMetrics, engine.bits());
    for (int64_t f = 0; f < 4; ++f) {
        std::vector<uint8_t> a = frameOf(s, uint64_t(f)), b = a;
        // The V sample at chroma (5, 3) of the last frame.
        if (f == 3) b[size_t(32 * 16 + 16 * 8 + 3 * 16 + 5)] ^= 1;
        FrameMetrics m = engine.compute(a.data(), b.data());
        m.frame = f;
        summary.add(m);
    }
    const SequenceSummary::Mismatch mm = summary.firstMismatch();
    EXPECT_EQ(mm.frame, 3);
    EXPECT_EQ(mm.component, 2);
    EXPECT_EQ(mm.x, 5);
    EXPECT_EQ(mm.y, 3);
    EXPECT_EQ(summary.worst(Metric::Psnr, 1), (std::vector<int64_t>{0})); // Y never differs: all infinite
    EXPECT_EQ(summary.worst(Metric::Ssim, 1), (std::vector<int64_t>{0}));
    EXPECT_DOUBLE_EQ(summary.frames()[3].mse[2], 1.0 / (16 * 8));
    EXPECT_LT(summary.frames()[3].ssim[2], 1.0);
}

} // namespace
