#include "pixel/SequenceMetrics.h"

#include "formats/FrameSize.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"
#include "pixel/WorkerPool.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <type_traits>

namespace kavri::pixel {

const char *metricName(Metric m)
{
    switch (m) {
    case Metric::Psnr: return "psnr";
    case Metric::Ssim: return "ssim";
    case Metric::MsSsim: return "msssim";
    case Metric::Wpsnr: return "wpsnr";
    }
    return "";
}

double FrameMetrics::value(Metric m, int k) const
{
    switch (m) {
    case Metric::Psnr: return psnr[k];
    case Metric::Ssim: return ssim[k];
    case Metric::MsSsim: return msssim[k];
    case Metric::Wpsnr: return wpsnr;
    }
    return 0;
}

double psnrOfMse(double mse, int32_t bits)
{
    if (mse == 0.0) return std::numeric_limits<double>::infinity();
    const double peak = std::ldexp(1.0, bits) - 1.0;
    return 10.0 * std::log10(peak * peak / mse);
}

SsimConstants ssimConstants(int32_t bits)
{
    // The window sums are 64 times the means, so the luminance constant (0.01 peak)^2 appears scaled by
    // 64 and the contrast constant (0.03 peak)^2 by 64 * 63; these are the factors the encoder tools
    // use, and taking them is what makes our SSIM agree with theirs to the fourth decimal.
    const double peak = std::ldexp(1.0, bits) - 1.0;
    return {0.01 * 0.01 * peak * peak * 64.0, 0.03 * 0.03 * peak * peak * 64.0 * 63.0};
}

double windowSsim(double s1, double s2, double ss, double s12, double n, const SsimConstants &c, double *cs)
{
    // Everything is scaled to a window of 64 samples, so a window of another size (a plane smaller
    // than two blocks each way) weighs its constants the same.
    const double scale = (n / 64.0) * (n / 64.0);
    const double c1 = c.c1 * scale, c2 = c.c2 * scale;
    const double vars = ss * n - s1 * s1 - s2 * s2;
    const double covar = s12 * n - s1 * s2;
    const double contrast = (2.0 * covar + c2) / (vars + c2);
    if (cs) *cs = contrast;
    return (2.0 * s1 * s2 + c1) / (s1 * s1 + s2 * s2 + c1) * contrast;
}

namespace {

// A component's samples as rows of one type.
template <typename T>
struct View {
    const T *p = nullptr;
    int64_t stride = 0;
    int32_t cols = 0, rows = 0;
};

struct SsimSums {
    double ssim = 0, cs = 0;
    int64_t windows = 0;
};

template <typename T>
using AccOf =
    std::conditional_t<std::is_floating_point_v<T>, double, std::conditional_t<sizeof(T) == 1, uint32_t, uint64_t>>;

// The four sums of each 4x4 block of block row `by`: s1, s2, ss, s12 at [4 * bx + i].
template <typename T, typename Acc>
void blockRow(const View<T> &a, const View<T> &b, int32_t by, int32_t bw, std::vector<Acc> &cols, Acc *out)
{
    const int32_t n = 4 * bw;
    cols.assign(size_t(4 * n), Acc(0));
    Acc *c1 = cols.data(), *c2 = c1 + n, *css = c2 + n, *c12 = css + n;
    for (int32_t r = 0; r < 4; ++r) {
        const T *pa = a.p + (int64_t(by) * 4 + r) * a.stride;
        const T *pb = b.p + (int64_t(by) * 4 + r) * b.stride;
        // Kept as four independent column sums so that the compiler vectorizes the row.
        for (int32_t x = 0; x < n; ++x) {
            const Acc va = Acc(pa[x]), vb = Acc(pb[x]);
            c1[x] += va;
            c2[x] += vb;
            css[x] += va * va + vb * vb;
            c12[x] += va * vb;
        }
    }
    for (int32_t bx = 0; bx < bw; ++bx) {
        const int32_t x = 4 * bx;
        out[4 * bx + 0] = c1[x] + c1[x + 1] + c1[x + 2] + c1[x + 3];
        out[4 * bx + 1] = c2[x] + c2[x + 1] + c2[x + 2] + c2[x + 3];
        out[4 * bx + 2] = css[x] + css[x + 1] + css[x + 2] + css[x + 3];
        out[4 * bx + 3] = c12[x] + c12[x + 1] + c12[x + 2] + c12[x + 3];
    }
}

// Window rows of a plane: the 8x8 windows on the 4-pixel grid, or one window over the whole plane when
// fewer than two blocks fit either way.
int32_t windowRows(int32_t cols, int32_t rows)
{
    const int32_t bw = cols / 4, bh = rows / 4;
    return (bw < 2 || bh < 2) ? 1 : bh - 1;
}

// Adds the windows whose top block row lies in [wy0, wy1). With a block kernel (samples whose sums fit
// 32 bits), the kernel set's row functions do the work; otherwise plain loops with wide sums.
template <typename T>
void ssimWindows(const View<T> &a, const View<T> &b, int32_t wy0, int32_t wy1, const SsimConstants &c, SsimSums &out,
                 SsimBlocksFn blocks = nullptr)
{
    const int32_t bw = a.cols / 4, bh = a.rows / 4;
    if (bw < 2 || bh < 2) {
        if (wy0 > 0 || wy1 < 1) return;
        double s1 = 0, s2 = 0, ss = 0, s12 = 0;
        for (int32_t y = 0; y < a.rows; ++y)
            for (int32_t x = 0; x < a.cols; ++x) {
                const double va = double(a.p[y * a.stride + x]), vb = double(b.p[y * b.stride + x]);
                s1 += va;
                s2 += vb;
                ss += va * va + vb * vb;
                s12 += va * vb;
            }
        const double n = double(a.cols) * a.rows;
        double cs = 1;
        out.ssim += n > 0 ? windowSsim(s1, s2, ss, s12, n, c, &cs) : 1.0;
        out.cs += n > 0 ? cs : 1.0;
        out.windows += 1;
        return;
    }
    if (blocks && a.stride == b.stride) {
        const SsimWindowsFn windows = bestKernels().ssimWindows;
        std::vector<uint32_t> top(size_t(4 * bw)), bottom(size_t(4 * bw));
        auto rowOf = [&](const View<T> &v, int32_t by) { return v.p + int64_t(by) * 4 * v.stride; };
        blocks(rowOf(a, wy0), rowOf(b, wy0), a.stride, bw, top.data());
        for (int32_t wy = wy0; wy < wy1; ++wy) {
            blocks(rowOf(a, wy + 1), rowOf(b, wy + 1), a.stride, bw, bottom.data());
            out.ssim += windows(top.data(), bottom.data(), bw, c.c1, c.c2, &out.cs);
            out.windows += bw - 1;
            std::swap(top, bottom);
        }
        return;
    }
    using Acc = AccOf<T>;
    std::vector<Acc> cols;
    std::vector<Acc> top(size_t(4 * bw)), bottom(size_t(4 * bw));
    blockRow<T, Acc>(a, b, wy0, bw, cols, top.data());
    for (int32_t wy = wy0; wy < wy1; ++wy) {
        blockRow<T, Acc>(a, b, wy + 1, bw, cols, bottom.data());
        double sum = 0, csSum = 0;
        for (int32_t bx = 0; bx + 1 < bw; ++bx) {
            const Acc *t = top.data() + 4 * bx, *u = bottom.data() + 4 * bx;
            double s[4];
            for (int i = 0; i < 4; ++i) s[i] = double(t[i] + t[i + 4] + u[i] + u[i + 4]);
            double cs;
            sum += windowSsim(s[0], s[1], s[2], s[3], 64.0, c, &cs);
            csSum += cs;
        }
        out.ssim += sum;
        out.cs += csSum;
        out.windows += bw - 1;
        std::swap(top, bottom);
    }
}

bool isEightBitOnly(videoFormat_t f)
{
    return f == YUV_uyvy || f == YUV_yuyv || f == YUV_yuy2 || f == YUV_nv12 || f == RGBA_i444 || f == BGRA_i444;
}

// Copies the samples of a frame into a container for `toBits`, multiplied by 2^(toBits - fromBits).
template <typename S, typename D>
void widenSamples(const uint8_t *src, uint8_t *dst, int64_t count, int32_t shift)
{
    for (int64_t i = 0; i < count; ++i) {
        S v;
        std::memcpy(&v, src + i * int64_t(sizeof(S)), sizeof(S));
        const D w = D(int32_t(v) * (1 << shift));
        std::memcpy(dst + i * int64_t(sizeof(D)), &w, sizeof(D));
    }
}

} // namespace

struct FrameMetricsEngine::Impl {
    MetricsFormat format;
    int32_t bits = 8, container = 8;
    int64_t samples = 0;
    SampleGrid grids[3];
    double count[3] = {0, 0, 0};
    DifferencePicture difference;
    int32_t containerA = 8, containerB = 8;
    AlignedBuffer differenceOut, widened[2];
    SsimConstants constants;
    MsSsimPlane msssim[3];
    // Samples of a component taken off their grid (strided, signed, widened or v210), per frame.
    std::vector<uint16_t> planeA[3], planeB[3];
    bool direct[3] = {false, false, false};
    View<uint8_t> directA8[3], directB8[3];
    View<uint16_t> viewA[3], viewB[3];
};

FrameMetricsEngine::FrameMetricsEngine() : d(new Impl) {}
FrameMetricsEngine::~FrameMetricsEngine() { delete d; }

bool FrameMetricsEngine::setup(const MetricsFormat &f, uint32_t metrics, std::string *why)
{
    auto refuse = [&](const char *reason) {
        if (why) *why = reason;
        m_components = 0;
        return false;
    };
    m_metrics = metrics & kAllMetrics;
    d->format = f;
    if (!isCoreLayout(f.layout) || f.width <= 0 || f.height <= 0) return refuse("no valid format");
    if (f.bitsA < 1 || f.bitsA > 16 || f.bitsB < 1 || f.bitsB > 16) return refuse("depths are 1 to 16 bits");
    m_bits = std::max(f.bitsA, f.bitsB);
    if (m_bits > 8 && isEightBitOnly(f.layout)) return refuse("this layout holds 8-bit samples only");
    if (f.layout == YUV_v210 && (f.bitsA != 10 || f.bitsB != 10)) return refuse("v210 holds 10-bit samples only");
    d->bits = m_bits;
    d->container = containerForBits(m_bits);
    const int64_t bytes = allocationSize(f.layout, d->container, f.width, f.height);
    if (bytes == 0) return refuse("the frame size is out of range");
    d->samples = bytes / (d->container / 8);
    const int32_t onGrid = componentGrids(f.layout, f.width, f.height, d->samples, d->grids, d->count);
    m_components = f.layout == YUV_v210 ? 3 : onGrid;
    if (m_components == 0) return refuse("no components");
    d->difference.setup(f.layout, f.width, f.height, f.width, m_bits, f.isSigned);
    d->differenceOut = allocateAligned(size_t(bytes));
    d->containerA = f.containerA ? f.containerA : containerForBits(f.bitsA);
    d->containerB = f.containerB ? f.containerB : containerForBits(f.bitsB);
    if ((d->containerA != 8 && d->containerA != 16) || (d->containerB != 8 && d->containerB != 16) ||
        d->containerA < f.bitsA || d->containerB < f.bitsB)
        return refuse("containers are 8 or 16 bits and hold the depth");
    if (f.layout == YUV_v210 && (d->containerA != 16 || d->containerB != 16)) return refuse("v210 is stored in words");
    d->widened[0] =
        f.bitsA != m_bits || d->containerA != d->container ? allocateAligned(size_t(bytes)) : AlignedBuffer();
    d->widened[1] =
        f.bitsB != m_bits || d->containerB != d->container ? allocateAligned(size_t(bytes)) : AlignedBuffer();
    d->constants = ssimConstants(m_bits);
    for (int k = 0; k < 3; ++k)
        d->direct[k] = f.layout != YUV_v210 && k < onGrid && d->grids[k].step == 1 && !f.isSigned;
    return true;
}

FrameMetrics FrameMetricsEngine::compute(const uint8_t *a, const uint8_t *b)
{
    FrameMetrics out;
    if (m_components == 0 || !a || !b) return out;
    Impl &m = *d;
    const MetricsFormat &f = m.format;
    const bool wide = m.container > 8;

    // Both frames at the larger depth, in its container.
    for (int which = 0; which < 2; ++which) {
        const int32_t fromBits = which ? f.bitsB : f.bitsA;
        const int32_t fromContainer = which ? m.containerB : m.containerA;
        if (fromBits == m_bits && fromContainer == m.container) continue;
        const uint8_t *src = which ? b : a;
        const int32_t shift = m_bits - fromBits;
        const int64_t fromSamples =
            int64_t(allocationSize(f.layout, fromContainer, f.width, f.height)) / (fromContainer / 8);
        const int64_t n = std::min(fromSamples, m.samples);
        uint8_t *dst = m.widened[which].get();
        if (fromContainer == 8 && !wide)
            f.isSigned ? widenSamples<int8_t, int8_t>(src, dst, n, shift)
                       : widenSamples<uint8_t, uint8_t>(src, dst, n, shift);
        else if (fromContainer == 8)
            f.isSigned ? widenSamples<int8_t, int16_t>(src, dst, n, shift)
                       : widenSamples<uint8_t, uint16_t>(src, dst, n, shift);
        else if (wide)
            f.isSigned ? widenSamples<int16_t, int16_t>(src, dst, n, shift)
                       : widenSamples<uint16_t, uint16_t>(src, dst, n, shift);
        else
            f.isSigned ? widenSamples<int16_t, int8_t>(src, dst, n, shift)
                       : widenSamples<uint16_t, uint8_t>(src, dst, n, shift);
        (which ? b : a) = dst;
    }

    const bool wantSsim = m_metrics & metricBit(Metric::Ssim);
    const bool wantMs = m_metrics & metricBit(Metric::MsSsim);
    bool abandoned = false;
    auto runJobs = [this, &abandoned](int32_t count, const std::function<void(int32_t)> &fn) {
        if (m_usePool)
            WorkerPool::shared().run(count, WorkerPool::shared().threadCount(), fn);
        else
            for (int32_t i = 0; i < count && !abandoned; ++i) {
                if (m_betweenJobs && !m_betweenJobs()) abandoned = true;
                if (!abandoned) fn(i);
            }
    };
    const int32_t comps = m_components;
    const int32_t offset = f.isSigned ? 1 << (m_bits - 1) : 0;

    // The components as views: straight onto the frames where a row is contiguous, else taken out.
    if (wantSsim || wantMs) {
        runJobs(comps, [&](int32_t k) {
            if (m.direct[k]) {
                const SampleGrid &g = m.grids[k];
                if (wide) {
                    m.viewA[k] = {reinterpret_cast<const uint16_t *>(a) + g.start, g.stride, g.cols, g.rows};
                    m.viewB[k] = {reinterpret_cast<const uint16_t *>(b) + g.start, g.stride, g.cols, g.rows};
                } else {
                    m.directA8[k] = {a + g.start, g.stride, g.cols, g.rows};
                    m.directB8[k] = {b + g.start, g.stride, g.cols, g.rows};
                }
                return;
            }
            for (int which = 0; which < 2; ++which) {
                const uint8_t *frame = which ? b : a;
                std::vector<uint16_t> &plane = which ? m.planeB[k] : m.planeA[k];
                int32_t cols = 0, rows = 0;
                if (f.layout == YUV_v210) {
                    // Fields in word order w0: U0 Y0 V0, w1: Y1 U2 Y2, w2: V2 Y3 U4, w3: Y4 V4 Y5.
                    static constexpr int8_t kComp[12] = {1, 0, 2, 0, 1, 0, 2, 0, 1, 0, 2, 0};
                    static constexpr int8_t kCol[12] = {0, 0, 0, 1, 1, 2, 1, 3, 2, 4, 2, 5};
                    cols = k == 0 ? f.width : f.width / 2;
                    rows = f.height;
                    plane.assign(size_t(cols) * size_t(rows), 0);
                    const int64_t rowWords = v210RowBytes(f.width) / 4;
                    const int32_t groups = (f.width + 5) / 6;
                    for (int32_t y = 0; y < rows; ++y)
                        for (int32_t g = 0; g < groups; ++g)
                            for (int field = 0; field < 12; ++field) {
                                if (kComp[field] != k) continue;
                                const int32_t col = (k == 0 ? 6 : 3) * g + kCol[field];
                                if (col >= cols) continue;
                                const uint8_t *p = frame + (y * rowWords + 4 * int64_t(g) + field / 3) * 4;
                                const uint32_t word =
                                    uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
                                plane[size_t(y) * size_t(cols) + size_t(col)] =
                                    uint16_t((word >> (10 * (field % 3))) & 0x3ffu);
                            }
                } else {
                    const SampleGrid &g = m.grids[k];
                    cols = g.cols;
                    rows = g.rows;
                    plane.resize(size_t(cols) * size_t(rows));
                    for (int32_t y = 0; y < rows; ++y)
                        for (int32_t x = 0; x < cols; ++x) {
                            const int64_t i = g.start + y * g.stride + int64_t(x) * g.step;
                            int32_t v;
                            if (wide) {
                                int16_t s;
                                std::memcpy(&s, frame + 2 * i, 2);
                                v = f.isSigned ? int32_t(s) : int32_t(uint16_t(s));
                            } else {
                                v = f.isSigned ? int32_t(int8_t(frame[i])) : int32_t(frame[i]);
                            }
                            // Signed samples are moved up by half the range: the luminance term
                            // assumes values from 0 to the peak.
                            plane[size_t(y) * size_t(cols) + size_t(x)] = uint16_t(v + offset);
                        }
                }
                (which ? m.viewB[k] : m.viewA[k]) = {plane.data(), cols, cols, rows};
            }
        });
    }

    // Jobs: the difference picture, the SSIM bands of every component, then each component's smaller
    // scales for MS-SSIM; the MS-SSIM windows of all scales follow in a second round.
    constexpr int32_t kBandRows = 24;
    struct Band {
        int32_t component, wy0, wy1;
    };
    std::vector<Band> bands;
    if (wantSsim)
        for (int32_t k = 0; k < comps; ++k) {
            const bool useDirect8 = m.direct[k] && !wide;
            const int32_t rows = windowRows(useDirect8 ? m.directA8[k].cols : m.viewA[k].cols,
                                            useDirect8 ? m.directA8[k].rows : m.viewA[k].rows);
            for (int32_t y = 0; y < rows; y += kBandRows) bands.push_back({k, y, std::min(rows, y + kBandRows)});
        }
    std::vector<SsimSums> sums(bands.size());
    const int32_t jobs = 1 + int32_t(bands.size()) + (wantMs ? comps : 0);
    runJobs(jobs, [&](int32_t job) {
        if (job == 0) {
            m.difference.compute(const_cast<uint8_t *>(a), b, m.differenceOut.get());
            return;
        }
        if (job <= int32_t(bands.size())) {
            const Band &band = bands[size_t(job - 1)];
            const int32_t k = band.component;
            const KernelSet &kernels = bestKernels();
            SsimSums &sum = sums[size_t(job - 1)];
            if (m.direct[k] && !wide)
                ssimWindows(m.directA8[k], m.directB8[k], band.wy0, band.wy1, m.constants, sum, kernels.ssimBlocks[0]);
            else
                ssimWindows(m.viewA[k], m.viewB[k], band.wy0, band.wy1, m.constants, sum,
                            m_bits <= 12 ? kernels.ssimBlocks[1] : nullptr);
            return;
        }
        const int32_t k = job - 1 - int32_t(bands.size());
        MsSsimPlane::Source src;
        if (m.direct[k] && !wide)
            src = {m.directA8[k].p,    m.directB8[k].p,    m.directA8[k].stride, m.directB8[k].stride,
                   m.directA8[k].cols, m.directA8[k].rows, MsSsimPlane::Type::U8};
        else
            src = {m.viewA[k].p,    m.viewB[k].p,    m.viewA[k].stride,     m.viewB[k].stride,
                   m.viewA[k].cols, m.viewA[k].rows, MsSsimPlane::Type::U16};
        m.msssim[k].prepare(src, m_bits);
    });
    if (wantMs) {
        std::vector<std::pair<int32_t, int32_t>> msBands;
        for (int32_t k = 0; k < comps; ++k)
            for (int32_t i = 0; i < m.msssim[k].bands(); ++i) msBands.emplace_back(k, i);
        runJobs(int32_t(msBands.size()),
                [&](int32_t job) { m.msssim[msBands[size_t(job)].first].run(msBands[size_t(job)].second); });
    }

    if (abandoned) return FrameMetrics();
    const DifferencePicture &dp = m.difference;
    for (int k = 0; k < 3; ++k) {
        out.mse[k] = dp.mse[k];
        out.psnr[k] = dp.psnr[k];
        out.firstX[k] = dp.firstDiffX[k];
        out.firstY[k] = dp.firstDiffY[k];
    }
    if (wantMs)
        for (int k = 0; k < comps; ++k) out.msssim[k] = m.msssim[k].result();
    if (wantSsim) {
        SsimSums total[3];
        for (size_t i = 0; i < bands.size(); ++i) {
            SsimSums &t = total[bands[i].component];
            t.ssim += sums[i].ssim;
            t.cs += sums[i].cs;
            t.windows += sums[i].windows;
        }
        for (int k = 0; k < comps; ++k) {
            const double n = double(std::max<int64_t>(total[k].windows, 1));
            out.ssim[k] = total[k].ssim / n;
        }
    }
    if (comps == 1)
        out.wpsnr = out.psnr[0];
    else if (layoutInfo(f.layout).kind == LayoutKind::InterleavedRgb ||
             layoutInfo(f.layout).kind == LayoutKind::PlanarRgb)
        // Red, green and blue matter alike; the 6:1:1 weights are for luma and chroma.
        out.wpsnr = (out.psnr[0] + out.psnr[1] + out.psnr[2]) / 3.0;
    else
        out.wpsnr = (6.0 * out.psnr[0] + out.psnr[1] + out.psnr[2]) / 8.0;
    return out;
}

double SequenceSummary::mean(Metric m, int k) const
{
    if (m_frames.empty()) return 0;
    double sum = 0;
    for (const FrameMetrics &f : m_frames) sum += f.value(m, k);
    return sum / double(m_frames.size());
}

double SequenceSummary::min(Metric m, int k) const
{
    if (m_frames.empty()) return 0;
    double v = std::numeric_limits<double>::infinity();
    for (const FrameMetrics &f : m_frames) v = std::min(v, f.value(m, k));
    return v;
}

double SequenceSummary::psnrOfMeanMse(int k) const
{
    double sum = 0;
    for (const FrameMetrics &f : m_frames) sum += f.mse[k];
    return psnrOfMse(m_frames.empty() ? 0.0 : sum / double(m_frames.size()), m_bits);
}

std::vector<int64_t> SequenceSummary::worst(Metric m, int n) const
{
    std::vector<size_t> order(m_frames.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    const size_t take = std::min(order.size(), size_t(std::max(n, 0)));
    std::partial_sort(order.begin(), order.begin() + ptrdiff_t(take), order.end(), [&](size_t x, size_t y) {
        const double vx = m_frames[x].value(m, 0), vy = m_frames[y].value(m, 0);
        if (vx != vy) return vx < vy;
        return m_frames[x].frame < m_frames[y].frame;
    });
    std::vector<int64_t> out;
    for (size_t i = 0; i < take; ++i) out.push_back(m_frames[order[i]].frame);
    return out;
}

SequenceSummary::Mismatch SequenceSummary::firstMismatch() const
{
    Mismatch best;
    for (const FrameMetrics &f : m_frames) {
        if (!f.differs() || (best.frame >= 0 && f.frame >= best.frame)) continue;
        for (int k = 0; k < 3; ++k)
            if (f.firstX[k] >= 0) {
                best = {f.frame, k, f.firstX[k], f.firstY[k]};
                break;
            }
    }
    return best;
}

std::string csvNumber(double v)
{
    if (std::isnan(v)) return "nan";
    if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    std::string text(buf, r.ptr);
    if (text.find_first_of(".e") == std::string::npos) text += ".0";
    return text;
}

std::string metricsCsvHeader(uint32_t metrics)
{
    std::string h = "frame,mse_1,mse_2,mse_3";
    for (int i = 0; i < kMetricCount; ++i) {
        const Metric m = Metric(i);
        if (!(metrics & metricBit(m))) continue;
        for (int k = 1; k <= metricComponents(m); ++k) {
            h += ',';
            h += metricName(m);
            if (metricComponents(m) > 1) {
                h += '_';
                h += char('0' + k);
            }
        }
    }
    h += '\n';
    return h;
}

namespace {

std::string csvValues(const std::string &first, const double (&mse)[3], const std::function<double(Metric, int)> &value,
                      uint32_t metrics)
{
    std::string row = first;
    for (double v : mse) {
        row += ',';
        row += csvNumber(v);
    }
    for (int i = 0; i < kMetricCount; ++i) {
        const Metric m = Metric(i);
        if (!(metrics & metricBit(m))) continue;
        for (int k = 0; k < metricComponents(m); ++k) {
            row += ',';
            row += csvNumber(value(m, k));
        }
    }
    row += '\n';
    return row;
}

} // namespace

std::string metricsCsvRow(const FrameMetrics &f, uint32_t metrics)
{
    return csvValues(
        std::to_string(f.frame), f.mse, [&](Metric m, int k) { return f.value(m, k); }, metrics);
}

std::string metricsCsvSummaryRows(const SequenceSummary &s)
{
    double mean[3] = {0, 0, 0}, min[3] = {0, 0, 0};
    for (int k = 0; k < 3; ++k) {
        double sum = 0, low = std::numeric_limits<double>::infinity();
        for (const FrameMetrics &f : s.frames()) {
            sum += f.mse[k];
            low = std::min(low, f.mse[k]);
        }
        mean[k] = s.frames().empty() ? 0.0 : sum / double(s.frames().size());
        min[k] = s.frames().empty() ? 0.0 : low;
    }
    return csvValues(
               "mean", mean, [&](Metric m, int k) { return s.mean(m, k); }, s.metrics()) +
           csvValues(
               "min", min, [&](Metric m, int k) { return s.min(m, k); }, s.metrics());
}

} // namespace kavri::pixel
