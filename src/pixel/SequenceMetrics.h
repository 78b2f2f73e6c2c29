// Quality metrics of one sequence against another: per frame and component MSE and PSNR (those of the
// difference picture), SSIM, MS-SSIM and a weighted YUV PSNR, and their summary over a sequence.
//
// SSIM follows the windowing engineers know from the usual encoder tools, so that published numbers
// can be compared with ours: the sums of 4x4 blocks are combined 2x2 into overlapping 8x8 windows on
// a 4-pixel grid, and the per-window index is averaged over the windows that fit wholly in the plane.
// MS-SSIM is the published one (see MsSsim.h): Gaussian windows at five scales.
#pragma once

#include "formats/VideoFormat.h"
#include "pixel/DifferencePicture.h"
#include "pixel/FramePipeline.h"
#include "pixel/MsSsim.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kavri::pixel {

enum class Metric : uint8_t { Psnr = 0, Ssim = 1, MsSsim = 2, Wpsnr = 3 };
constexpr int kMetricCount = 4;
constexpr uint32_t metricBit(Metric m) { return 1u << uint32_t(m); }
constexpr uint32_t kAllMetrics = 0xfu;
// "psnr", "ssim", "msssim", "wpsnr".
const char *metricName(Metric m);
// Components a metric has: three, or one for the weighted PSNR.
inline int metricComponents(Metric m) { return m == Metric::Wpsnr ? 1 : 3; }

struct FrameMetrics {
    int64_t frame = -1;
    double mse[3] = {0, 0, 0};
    double psnr[3] = {0, 0, 0};
    double ssim[3] = {1, 1, 1};
    double msssim[3] = {1, 1, 1};
    double wpsnr = 0;
    // The first differing sample of each component in raster order, -1 where the component is equal.
    int32_t firstX[3] = {-1, -1, -1};
    int32_t firstY[3] = {-1, -1, -1};

    bool differs() const { return firstX[0] >= 0 || firstX[1] >= 0 || firstX[2] >= 0; }
    // Component k of a metric (the weighted PSNR has only k = 0).
    double value(Metric m, int k) const;
};

// The windowed SSIM constants for a depth, in the units of the 64-sample window sums.
struct SsimConstants {
    double c1 = 0, c2 = 0;
};
SsimConstants ssimConstants(int32_t bits);

// Index of one window from its sums over n samples: s1 and s2 the sums of either picture, ss the sum
// of both pictures' squares, s12 the sum of products. `cs` receives the contrast-structure part.
double windowSsim(double s1, double s2, double ss, double s12, double n, const SsimConstants &c, double *cs);

struct MetricsFormat {
    videoFormat_t layout = YUV_p420;
    int32_t width = 0, height = 0;
    int32_t bitsA = 8, bitsB = 8; // depths of the two frames; the smaller is shifted up to the larger
    // Storage bits a sample (8 or 16) of either frame; 0 for the container the depth needs.
    int32_t containerA = 0, containerB = 0;
    bool isSigned = false;
};

// Computes the metrics of frame pairs of one format, on the shared worker pool (components and bands
// of rows run in parallel). One engine serves one thread at a time.
class FrameMetricsEngine {
public:
    FrameMetricsEngine();
    ~FrameMetricsEngine();
    FrameMetricsEngine(const FrameMetricsEngine &) = delete;
    FrameMetricsEngine &operator=(const FrameMetricsEngine &) = delete;

    // False (with the reason in `why`) for a layout and depth the engine cannot compare.
    bool setup(const MetricsFormat &format, uint32_t metrics, std::string *why = nullptr);
    // The depth the frames are compared at, and the number of components the layout has (1 or 3).
    int32_t bits() const { return m_bits; }
    int32_t components() const { return m_components; }
    uint32_t metrics() const { return m_metrics; }
    // Whether compute spreads its work over the shared worker pool (the default) or does it all on the
    // calling thread, as a background pass should that must not take the pool from playback.
    void setUsePool(bool on) { m_usePool = on; }
    // Without the pool: called between the jobs of a frame (bands of a few rows), so that a background
    // pass can wait there (while playback runs) or give the frame up by answering false, whereupon
    // compute returns an empty result (frame -1). Null: no calls.
    void setBetweenJobs(std::function<bool()> fn) { m_betweenJobs = std::move(fn); }

    // The metrics of `a` against `b`, both in native byte order in buffers of the allocation size of
    // their own container. MSE, PSNR and the first difference are always computed.
    FrameMetrics compute(const uint8_t *a, const uint8_t *b);

private:
    struct Impl;
    Impl *d;
    int32_t m_bits = 8, m_components = 0;
    uint32_t m_metrics = 0;
    bool m_usePool = true;
    std::function<bool()> m_betweenJobs;
};

// The summary of the frames compared so far.
class SequenceSummary {
public:
    SequenceSummary() = default;
    SequenceSummary(uint32_t metrics, int32_t bits) : m_metrics(metrics), m_bits(bits) {}

    void add(const FrameMetrics &m) { m_frames.push_back(m); }
    void clear() { m_frames.clear(); }
    const std::vector<FrameMetrics> &frames() const { return m_frames; }
    uint32_t metrics() const { return m_metrics; }

    // Mean and minimum of component k of a metric over the frames (an infinite PSNR makes the mean
    // infinite); 0 without frames.
    double mean(Metric m, int k) const;
    double min(Metric m, int k) const;
    // The PSNR of each component's mean MSE at the compared depth (infinite for no difference).
    double psnrOfMeanMse(int k) const;
    // Up to n frame numbers, worst first: lowest first component of `m` (ties: earlier frame first).
    std::vector<int64_t> worst(Metric m, int n) const;
    // The first frame that differs, or null; `component` is the lowest component that differs there.
    struct Mismatch {
        int64_t frame = -1;
        int32_t component = -1, x = -1, y = -1;
    };
    Mismatch firstMismatch() const;
    bool identical() const { return firstMismatch().frame < 0; }

private:
    uint32_t m_metrics = kAllMetrics;
    int32_t m_bits = 8;
    std::vector<FrameMetrics> m_frames;
};

// The CSV table of the metrics in `metrics`: the header ("frame,mse_1,mse_2,mse_3,psnr_1,...,wpsnr",
// always with the MSE), one row a frame, and the closing rows of the sequence's means and minima
// (first column "mean" and "min"). Numbers are the shortest text that reads back as the same double,
// whole numbers with ".0", infinities as "inf".
std::string metricsCsvHeader(uint32_t metrics);
std::string metricsCsvRow(const FrameMetrics &m, uint32_t metrics);
std::string metricsCsvSummaryRows(const SequenceSummary &s);
std::string csvNumber(double v);

// PSNR at a depth: 10 log10(peak^2 / mse) with peak 2^bits - 1, infinite for mse 0.
double psnrOfMse(double mse, int32_t bits);

} // namespace kavri::pixel
