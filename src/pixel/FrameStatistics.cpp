#include "pixel/FrameStatistics.h"

#include "formats/FrameSize.h"
#include "formats/VideoProps.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/WorkerPool.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kavri::pixel {

namespace {

// Where one component's samples lie: `rows` rows of `cols` samples `step` apart, rows `pitch` apart,
// from `start` (all in samples of the container). Only the first `count` samples (row by row) are
// stored; the rest of the last rows lie past the end of the frame or belong to another plane.
struct Run {
    std::string name;
    int64_t start = 0, pitch = 0;
    int32_t step = 1, cols = 0, rows = 0;
    int64_t count = 0;
};

// Samples of a run at positions below `limit`; positions grow with the sample index, so they are a prefix.
int64_t countBelow(const Run &r, int64_t limit)
{
    if (r.cols <= 0 || r.rows <= 0 || r.start >= limit) return 0;
    const int64_t lastInRow = r.start + int64_t(r.cols - 1) * r.step;
    int64_t full = 0;
    if (lastInRow < limit) full = std::min<int64_t>(r.rows, (limit - 1 - lastInRow) / r.pitch + 1);
    if (full == r.rows) return full * r.cols;
    const int64_t rowStart = r.start + full * r.pitch;
    const int64_t partial = rowStart < limit ? (limit - rowStart + r.step - 1) / r.step : 0;
    return full * r.cols + std::min<int64_t>(partial, r.cols);
}

Run run(std::string name, int64_t start, int32_t step, int32_t cols, int64_t pitch, int32_t rows)
{
    Run r;
    r.name = std::move(name);
    r.start = start;
    r.step = step;
    r.cols = std::max(0, cols);
    r.pitch = pitch;
    r.rows = std::max(0, rows);
    r.count = int64_t(r.cols) * r.rows;
    return r;
}

bool validFormat(const StatisticsFormat &f)
{
    if (!isCoreLayout(f.layout) || f.width <= 0 || f.height <= 0) return false;
    if (f.layout == YUV_v210) return true;
    return f.bits >= 1 && f.bits <= 16 && (f.containerBits == 8 || f.containerBits == 16) && f.bits <= f.containerBits;
}

// The runs of a layout, from the layout table and the plane geometry the conversion uses. v210 has
// runs over the unpacked rows (Y: W samples, U and V: one for every two pixels) instead.
std::vector<Run> runsOf(const StatisticsFormat &f, int64_t frameSamples)
{
    const LayoutInfo &info = layoutInfo(f.layout);
    const int32_t W = f.width, H = f.height;
    const int64_t luma = int64_t(W) * H;
    std::vector<Run> runs;
    switch (info.kind) {
    case LayoutKind::Luma: runs.push_back(run("Y", 0, 1, W, W, H)); break;
    case LayoutKind::PlanarYuv:
    case LayoutKind::SemiPlanar: {
        const ChromaPlanes c = chromaPlanes(f.layout, W, H, frameSamples);
        runs.push_back(run("Y", 0, 1, W, W, H));
        if (info.kind == LayoutKind::SemiPlanar) {
            // U V pairs in rows of W samples; an odd width leaves the last sample of a row unused.
            runs.push_back(run("U", c.uStart, 2, W / 2, W, c.rows));
            runs.push_back(run("V", c.uStart + 1, 2, W / 2, W, c.rows));
        } else {
            runs.push_back(run("U", c.uStart, 1, c.cols, c.cols, c.rows));
            runs.push_back(run("V", c.vStart, 1, c.cols, c.cols, c.rows));
            // Where V starts early (odd heights), the samples it overlaps are V's.
            runs[1].count = countBelow(runs[1], c.vStart);
        }
        break;
    }
    case LayoutKind::Packed422: {
        // Units of four samples for two pixels, rows of W/2 units: U Y V Y or Y U Y V.
        const int32_t units = W / 2;
        const bool uFirst = f.layout == YUV_uyvy;
        runs.push_back(run("Y", uFirst ? 1 : 0, 2, 2 * units, int64_t(4) * units, H));
        runs.push_back(run("U", uFirst ? 0 : 1, 4, units, int64_t(4) * units, H));
        runs.push_back(run("V", uFirst ? 2 : 3, 4, units, int64_t(4) * units, H));
        break;
    }
    case LayoutKind::V210:
        runs.push_back(run("Y", 0, 1, W, W, H));
        runs.push_back(run("U", 0, 1, (W + 1) / 2, (W + 1) / 2, H));
        runs.push_back(run("V", 0, 1, (W + 1) / 2, (W + 1) / 2, H));
        if (f.swapUV) std::swap(runs[1].name, runs[2].name);
        return runs;
    case LayoutKind::InterleavedRgb:
    case LayoutKind::PlanarRgb: {
        const bool planar = info.kind == LayoutKind::PlanarRgb;
        const int32_t n = info.samplesPerPixel;
        for (int32_t k = 0; k < n; ++k) {
            std::string name = k < 3 ? std::string(info.letters[size_t(k)]) : std::string("A");
            if (planar)
                runs.push_back(run(std::move(name), k * luma, 1, W, W, H));
            else
                runs.push_back(run(std::move(name), k, n, W, int64_t(W) * n, H));
        }
        break;
    }
    }
    for (Run &r : runs) r.count = std::min(r.count, countBelow(r, frameSamples));
    if (f.swapUV && info.kind != LayoutKind::InterleavedRgb && runs.size() >= 3) std::swap(runs[1].name, runs[2].name);
    return runs;
}

// What one band has seen of one component: a count for every code of the depth, and the few samples
// outside it (only possible when the depth is narrower than the container) summed separately.
struct Tally {
    std::vector<uint32_t> codes;
    uint64_t outCount = 0, below = 0, above = 0;
    int64_t outSum = 0;
    double outSquares = 0.0;
    int32_t outMin = std::numeric_limits<int32_t>::max(), outMax = std::numeric_limits<int32_t>::min();

    void outlier(int32_t v, int32_t lo)
    {
        ++outCount;
        outSum += v;
        outSquares += double(v) * double(v);
        outMin = std::min(outMin, v);
        outMax = std::max(outMax, v);
        (v < lo ? below : above) += 1;
    }
};

// Counters a code gets in a band: a run of equal samples (flat picture areas, the common case) would
// otherwise wait on the previous increment of the same counter for every sample, so up to 12 bits four
// sets of counters take turns and are added up at the end. Wider depths have one set: four times 65536
// counters would not stay in the cache.
constexpr int32_t lanesFor(uint32_t span) { return span <= 4096 ? 4 : 1; }

// The inner loop: one row of a run. The container type and signedness are template arguments, the
// layout is only in (p, step, n), so every layout goes through the same few instructions.
template <typename T>
void tallyRow(const T *p, int64_t step, int64_t n, int32_t lo, uint32_t span, Tally &t)
{
    uint32_t *codes = t.codes.data();
    auto one = [&](uint32_t *lane, int32_t v) {
        const uint32_t idx = uint32_t(v - lo);
        if (idx < span) [[likely]]
            ++lane[idx];
        else
            t.outlier(v, lo);
    };
    int64_t i = 0;
    if (lanesFor(span) == 4) {
        uint32_t *c1 = codes + span, *c2 = codes + 2 * span, *c3 = codes + 3 * span;
        for (; i + 4 <= n; i += 4) {
            one(codes, p[i * step]);
            one(c1, p[(i + 1) * step]);
            one(c2, p[(i + 2) * step]);
            one(c3, p[(i + 3) * step]);
        }
    }
    for (; i < n; ++i) one(codes, p[i * step]);
}

template <typename T>
void tallyRows(const uint8_t *frame, const Run &r, int64_t row0, int64_t row1, int32_t lo, uint32_t span, Tally &t)
{
    const T *base = reinterpret_cast<const T *>(frame);
    for (int64_t y = row0; y < row1; ++y) {
        const int64_t n = std::min<int64_t>(r.cols, r.count - y * r.cols);
        if (n <= 0) return;
        if (r.step == 1)
            tallyRow(base + r.start + y * r.pitch, 1, n, lo, span, t); // a constant step for the compiler
        else
            tallyRow(base + r.start + y * r.pitch, r.step, n, lo, span, t);
    }
}

// v210: six pixels in four little-endian words, rows padded to 128 bytes; the 10-bit fields always lie
// inside the depth, so no outliers.
void tallyV210Rows(const uint8_t *frame, int32_t width, int64_t row0, int64_t row1, Tally *t)
{
    const int64_t rowBytes = v210RowBytes(width);
    const int32_t chroma = (width + 1) / 2;
    uint32_t *y = t[0].codes.data(), *u = t[1].codes.data(), *v = t[2].codes.data();
    for (int64_t row = row0; row < row1; ++row) {
        const uint8_t *p = frame + row * rowBytes;
        for (int32_t g = 0; 6 * g < width; ++g, p += 16) {
            uint32_t w[4];
            for (int k = 0; k < 4; ++k)
                w[k] = uint32_t(p[4 * k]) | uint32_t(p[4 * k + 1]) << 8 | uint32_t(p[4 * k + 2]) << 16 |
                       uint32_t(p[4 * k + 3]) << 24;
            const uint32_t ys[6] = {w[0] >> 10, w[1], w[1] >> 20, w[2] >> 10, w[3], w[3] >> 20};
            const uint32_t us[3] = {w[0], w[1] >> 10, w[2] >> 20};
            const uint32_t vs[3] = {w[0] >> 20, w[2], w[3] >> 10};
            const int32_t pixels = std::min(6, width - 6 * g), pairs = std::min(3, chroma - 3 * g);
            for (int32_t i = 0; i < pixels; ++i) ++y[ys[i] & 0x3ffu];
            for (int32_t i = 0; i < pairs; ++i) {
                ++u[us[i] & 0x3ffu];
                ++v[vs[i] & 0x3ffu];
            }
        }
    }
}

ComponentStatistics summarise(const Run &r, const std::vector<Tally> &tallies, int32_t bits, bool isSigned)
{
    ComponentStatistics s;
    s.name = r.name;
    const int32_t lo = lowestCode(bits, isSigned);
    const size_t span = size_t(1) << bits;
    std::vector<uint64_t> codes(span, 0);
    Tally out;
    for (const Tally &t : tallies) {
        if (t.codes.empty()) continue;
        for (size_t i = 0; i < t.codes.size(); ++i) codes[i % span] += t.codes[i];
        out.outCount += t.outCount;
        out.below += t.below;
        out.above += t.above;
        out.outSum += t.outSum;
        out.outSquares += t.outSquares;
        out.outMin = std::min(out.outMin, t.outMin);
        out.outMax = std::max(out.outMax, t.outMax);
    }
    const int32_t shift = bits > 10 ? bits - 10 : 0;
    s.histogram.assign(size_t(histogramBins(bits)), 0);
    uint64_t n = out.outCount;
    int64_t sum = out.outSum;
    int32_t first = -1, last = -1;
    for (size_t i = 0; i < span; ++i) {
        if (!codes[i]) continue;
        if (first < 0) first = int32_t(i);
        last = int32_t(i);
        n += codes[i];
        sum += int64_t(codes[i]) * (int64_t(i) + lo);
        s.histogram[i >> shift] += codes[i];
    }
    s.count = n;
    if (n == 0) return s;
    s.histogram.front() += out.below;
    s.histogram.back() += out.above;
    s.zeros = codes.front() + out.below;
    s.clipped = codes.back() + out.above;
    s.min = first >= 0 ? first + lo : out.outMin;
    s.max = last >= 0 ? last + lo : out.outMax;
    if (out.outCount) {
        s.min = std::min(s.min, out.outMin);
        s.max = std::max(s.max, out.outMax);
    }
    s.mean = double(sum) / double(n);
    // Squared deviations from the exact mean, over the codes present: no cancellation of large sums.
    double squares = 0.0;
    if (first >= 0)
        for (size_t i = size_t(first); i <= size_t(last); ++i)
            if (codes[i]) {
                const double d = double(int64_t(i) + lo) - s.mean;
                squares += double(codes[i]) * d * d;
            }
    squares += out.outSquares - 2.0 * s.mean * double(out.outSum) + double(out.outCount) * s.mean * s.mean;
    s.stddev = std::sqrt(std::max(0.0, squares / double(n)));
    return s;
}

} // namespace

StatisticsFormat statisticsFormatOf(const VideoProps &p)
{
    StatisticsFormat f;
    f.layout = p.format;
    f.width = p.width;
    f.height = p.height;
    f.bits = p.format == YUV_v210 ? 10 : p.bitDepth;
    f.containerBits = p.containerBits;
    f.isSigned = p.format != YUV_v210 && p.signedValues;
    f.swapUV = p.swapUV;
    return f;
}

int32_t histogramBins(int32_t bits) { return bits > 10 ? 1024 : 1 << std::max(bits, 0); }

int32_t histogramBinWidth(int32_t bits) { return bits > 10 ? 1 << (bits - 10) : 1; }

int32_t lowestCode(int32_t bits, bool isSigned) { return isSigned ? -(1 << (bits - 1)) : 0; }

int32_t highestCode(int32_t bits, bool isSigned) { return isSigned ? (1 << (bits - 1)) - 1 : (1 << bits) - 1; }

std::vector<std::string> componentNames(videoFormat_t layout)
{
    std::vector<std::string> names;
    if (!isCoreLayout(layout)) return names;
    StatisticsFormat f;
    f.layout = layout;
    f.width = f.height = 1;
    for (const Run &r : runsOf(f, std::numeric_limits<int64_t>::max())) names.push_back(r.name);
    return names;
}

FrameStatistics computeFrameStatistics(const StatisticsFormat &format, const uint8_t *frame, size_t bytes,
                                       int32_t threads)
{
    FrameStatistics result;
    if (!frame || !validFormat(format)) return result;
    StatisticsFormat f = format;
    const bool v210 = f.layout == YUV_v210;
    if (v210) {
        f.bits = 10;
        f.containerBits = 16;
        f.isSigned = false;
    }
    const uint64_t stored = std::min<uint64_t>(bytes, frameBytes(f.layout, f.containerBits, f.width, f.height));
    const int64_t sampleBytes = f.containerBits / 8;
    std::vector<Run> runs = runsOf(f, int64_t(stored) / sampleBytes);
    if (v210) {
        const int64_t wholeRows = int64_t(stored) / v210RowBytes(f.width);
        for (Run &r : runs) r.count = std::min<int64_t>(r.count, wholeRows * r.cols);
    }

    // Bands of rows, about a quarter million samples each, no more than the threads can share out evenly.
    const int32_t helpers = threads == 1 ? 0 : (threads == 0 ? 7 : threads - 1);
    const int32_t workers = std::min(helpers, WorkerPool::shared().threadCount()) + 1;
    auto bandsFor = [&](const Run &r) {
        const int64_t rows = r.cols ? (r.count + r.cols - 1) / r.cols : 0;
        const int64_t byWork = r.count / (int64_t(1) << 18);
        return int32_t(std::clamp<int64_t>(std::min<int64_t>(byWork, 4 * workers), 1, std::max<int64_t>(rows, 1)));
    };
    struct Job {
        int32_t run; // -1: every component of a v210 band
        int64_t row0, row1;
    };
    std::vector<Job> jobs;
    auto addBands = [&](int32_t index, const Run &r) {
        const int64_t rows = r.cols ? (r.count + r.cols - 1) / r.cols : 0;
        const int32_t bands = bandsFor(r);
        for (int32_t b = 0; b < bands; ++b) jobs.push_back({index, rows * b / bands, rows * (b + 1) / bands});
    };
    if (v210)
        addBands(-1, runs[0]);
    else
        for (size_t i = 0; i < runs.size(); ++i) addBands(int32_t(i), runs[i]);

    const int32_t lo = lowestCode(f.bits, f.isSigned);
    const uint32_t span = uint32_t(1) << f.bits;
    const size_t components = runs.size();
    std::vector<std::vector<Tally>> tallies(components, std::vector<Tally>(jobs.size()));
    WorkerPool::shared().run(int32_t(jobs.size()), helpers, [&](int32_t j) {
        const Job &job = jobs[size_t(j)];
        if (job.run < 0) {
            Tally t[3];
            for (Tally &one : t) one.codes.assign(span, 0); // one set: the three components take turns already
            tallyV210Rows(frame, f.width, job.row0,
                          std::min<int64_t>(job.row1, runs[0].count / std::max(1, runs[0].cols)), t);
            for (size_t c = 0; c < 3; ++c) tallies[c][size_t(j)] = std::move(t[c]);
            return;
        }
        const Run &r = runs[size_t(job.run)];
        Tally &t = tallies[size_t(job.run)][size_t(j)];
        t.codes.assign(size_t(span) * size_t(lanesFor(span)), 0);
        if (f.containerBits == 8) {
            if (f.isSigned)
                tallyRows<int8_t>(frame, r, job.row0, job.row1, lo, span, t);
            else
                tallyRows<uint8_t>(frame, r, job.row0, job.row1, lo, span, t);
        } else if (f.isSigned) {
            tallyRows<int16_t>(frame, r, job.row0, job.row1, lo, span, t);
        } else {
            tallyRows<uint16_t>(frame, r, job.row0, job.row1, lo, span, t);
        }
    });
    for (size_t c = 0; c < components; ++c)
        result.components.push_back(summarise(runs[c], tallies[c], f.bits, f.isSigned));
    return result;
}

} // namespace kavri::pixel
