#include "pixel/ScopeData.h"

#include "formats/FrameSize.h"
#include "pixel/ColourMath.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"

#include <algorithm>
#include <cmath>

namespace kavri::pixel {

namespace {

// The colour differences of R'G'B' (0..1) through a matrix, each in -0.5..0.5: (Cb, Cr), or (Cg, Co).
std::pair<double, double> differencesOf(ColourMatrix m, double r, double g, double b)
{
    if (m == ColourMatrix::YCgCo) return {-0.25 * r + 0.5 * g - 0.25 * b, 0.5 * (r - b)};
    const auto [kr, kb] = lumaWeights(m);
    const double y = kr * r + (1.0 - kr - kb) * g + kb * b;
    return {(b - y) / (2.0 * (1.0 - kb)), (r - y) / (2.0 * (1.0 - kr))};
}

// A colour difference (-0.5..0.5) as the code a range gives it at a depth, the way the conversion reads
// it back (ColourMath's colourAffine): limited 128 + 224 d in 8-bit levels, full 2^(bits-1) + (2^bits-1) d.
double differenceCode(double d, ColourRange range, int32_t bits)
{
    const double unit = std::ldexp(1.0, bits - 8);
    if (range == ColourRange::Limited) return (128.0 + 224.0 * d) * unit;
    return std::ldexp(1.0, bits - 1) + (std::ldexp(1.0, bits) - 1.0) * d;
}

// Level (0..levels-1) of a code, and cell of the vectorscope: the code's place in the range of its depth.
struct Scale {
    int32_t lo = 0, bits = 8, cells = 256;
    int32_t cell(int32_t code) const
    {
        const int64_t c = ((int64_t(code) - lo) * cells) >> bits;
        return int32_t(std::clamp<int64_t>(c, 0, cells - 1));
    }
};

// Rows to look at out of `rows` so that about `budget` samples of `cols` columns are seen.
int32_t rowStep(int64_t cols, int64_t rows, int64_t budget)
{
    const int64_t total = cols * rows;
    return int32_t(std::max<int64_t>(1, (total + budget - 1) / std::max<int64_t>(budget, 1)));
}

// The samples of a frame as a signed or unsigned 8- or 16-bit array; the walks below are compiled for
// each, so no sample pays for a choice of type.
struct Samples {
    const uint8_t *frame = nullptr;
    int64_t count = 0;
    int32_t containerBits = 8;
    bool isSigned = false;
    bool inside(int64_t index) const { return index >= 0 && index < count; }
    template <typename Fn>
    void visit(Fn &&fn) const
    {
        if (containerBits == 8) {
            if (isSigned)
                fn(reinterpret_cast<const int8_t *>(frame));
            else
                fn(frame);
        } else if (isSigned) {
            fn(reinterpret_cast<const int16_t *>(frame));
        } else {
            fn(reinterpret_cast<const uint16_t *>(frame));
        }
    }
    int32_t operator()(int64_t index) const
    {
        int32_t v = 0;
        visit([&](const auto *p) { v = int32_t(p[index]); });
        return v;
    }
};

void addWaveformGrid(const Samples &read, const SampleGrid &g, const Scale &levels, int32_t part, int64_t budget,
                     Waveform &w)
{
    if (g.cols <= 0 || g.rows <= 0) return;
    const int32_t step = rowStep(g.cols, g.rows, budget);
    std::vector<uint32_t> band(size_t(g.cols));
    for (int32_t x = 0; x < g.cols; ++x)
        band[size_t(x)] = uint32_t((int64_t(part) * w.columns + int64_t(x) * w.columns / g.cols) * w.levels);
    read.visit([&](const auto *p) {
        uint32_t *counts = w.counts.data();
        for (int32_t y = 0; y < g.rows; y += step) {
            const int64_t row = g.start + int64_t(y) * g.stride;
            if (!read.inside(row + int64_t(g.cols - 1) * g.step)) break;
            const auto *r = p + row;
            for (int32_t x = 0; x < g.cols; ++x) ++counts[band[size_t(x)] + uint32_t(levels.cell(r[x * g.step]))];
        }
    });
}

void addVectorscopeGrids(const Samples &read, const SampleGrid &u, const SampleGrid &v, const Scale &cells,
                         int64_t budget, Vectorscope &s)
{
    const int32_t cols = std::min(u.cols, v.cols), rows = std::min(u.rows, v.rows);
    if (cols <= 0 || rows <= 0) return;
    const int32_t step = rowStep(cols, rows, budget);
    read.visit([&](const auto *p) {
        uint32_t *counts = s.counts.data();
        for (int32_t y = 0; y < rows; y += step) {
            const int64_t ur = u.start + int64_t(y) * u.stride, vr = v.start + int64_t(y) * v.stride;
            if (!read.inside(ur + int64_t(cols - 1) * u.step) || !read.inside(vr + int64_t(cols - 1) * v.step)) break;
            const auto *pu = p + ur, *pv = p + vr;
            for (int32_t x = 0; x < cols; ++x)
                ++counts[size_t(cells.cell(pv[x * v.step])) * size_t(s.size) + size_t(cells.cell(pu[x * u.step]))];
        }
    });
}

// Red, green and blue of every pixel of a YUV layout, from its luma and the chroma sample covering it.
void addParade(const Samples &read, const SampleGrid &y, const SampleGrid &u, const SampleGrid &v, int32_t shiftX,
               int32_t shiftY, const ColourAffine &m, int32_t lo, int64_t budget, Waveform &w)
{
    if (y.cols <= 0 || y.rows <= 0 || u.cols <= 0 || u.rows <= 0) return;
    const int32_t step = rowStep(y.cols, y.rows, budget);
    for (int32_t row = 0; row < y.rows; row += step) {
        const int32_t crow = std::min(row >> shiftY, std::min(u.rows, v.rows) - 1);
        for (int32_t x = 0; x < y.cols; ++x) {
            const int32_t cx = std::min(x >> shiftX, std::min(u.cols, v.cols) - 1);
            const int64_t iy = y.start + int64_t(row) * y.stride + int64_t(x) * y.step;
            const int64_t iu = u.start + int64_t(crow) * u.stride + int64_t(cx) * u.step;
            const int64_t iv = v.start + int64_t(crow) * v.stride + int64_t(cx) * v.step;
            if (!read.inside(iy) || !read.inside(iu) || !read.inside(iv)) return;
            const double c[3] = {double(read(iy) - lo), double(read(iu) - lo), double(read(iv) - lo)};
            const int32_t column = int32_t(int64_t(x) * w.columns / y.cols);
            for (int k = 0; k < 3; ++k) {
                const double value = m.a[k][0] * c[0] + m.a[k][1] * c[1] + m.a[k][2] * c[2] + m.b[k];
                ++w.counts[size_t(k * w.columns + column) * size_t(w.levels) + size_t(pictureLevel(value, w.levels))];
            }
        }
    }
}

// RGB layouts have no stored colour differences: they are worked out through the reading's matrix, so
// the bars still land on their targets.
void addVectorscopeRgb(const Samples &read, const SampleGrid g[3], const int rgb[3], ColourMatrix m, int32_t bits,
                       bool isSigned, int64_t budget, Vectorscope &s)
{
    const int32_t cols = g[0].cols, rows = g[0].rows;
    if (cols <= 0 || rows <= 0) return;
    const int32_t step = rowStep(cols, rows, budget);
    const double lo = lowestCode(bits, isSigned), peak = std::ldexp(1.0, bits) - 1.0;
    for (int32_t y = 0; y < rows; y += step) {
        for (int32_t x = 0; x < cols; ++x) {
            double c[3];
            bool ok = true;
            for (int k = 0; k < 3; ++k) {
                const SampleGrid &one = g[rgb[k]];
                const int64_t i = one.start + int64_t(y) * one.stride + int64_t(x) * one.step;
                if (!read.inside(i)) {
                    ok = false;
                    break;
                }
                c[k] = (read(i) - lo) / peak;
            }
            if (!ok) return;
            const auto [du, dv] = differencesOf(m, c[0], c[1], c[2]);
            const auto cell = [&](double d) {
                return std::clamp(int32_t(std::floor((0.5 + d) * s.size)), 0, s.size - 1);
            };
            ++s.counts[size_t(cell(dv)) * size_t(s.size) + size_t(cell(du))];
        }
    }
}

// v210 keeps its samples in words rather than on a grid: read through the readout, one chroma pair at a
// time.
void addV210(const uint8_t *frame, size_t bytes, const StatisticsFormat &f, const Scale &levels, const Scale &cells,
             int64_t budget, ScopeData &d)
{
    const int32_t step = rowStep(f.width, f.height, budget);
    for (int32_t y = 0; y < f.height; y += step)
        for (int32_t x = 0; x < f.width; ++x) {
            StoredSample s;
            if (!readStored(frame, int64_t(bytes), f.layout, f.width, f.height, 10, false, x, y, s)) return;
            const int32_t column = int32_t(int64_t(x) * d.waveform.columns / f.width);
            ++d.waveform.counts[size_t(column) * size_t(d.waveform.levels) + size_t(levels.cell(s.c[0]))];
            if (x % 2 == 0) {
                const int32_t u = f.swapUV ? s.c[2] : s.c[1], v = f.swapUV ? s.c[1] : s.c[2];
                ++d.vectorscope.counts[size_t(cells.cell(v)) * size_t(d.vectorscope.size) + size_t(cells.cell(u))];
            }
        }
}

} // namespace

int32_t pictureLevel(double value, int32_t levels)
{
    return std::clamp(int32_t(std::floor(value * levels)), 0, levels - 1);
}

double scopePosition(int32_t code, int32_t bits, bool isSigned)
{
    return (double(code) - lowestCode(bits, isSigned) + 0.5) / std::ldexp(1.0, bits);
}

std::array<ScopeTarget, 6> colourBarTargets(const ColourDescription &colour, int32_t bits)
{
    // 75 % bars: each of R', G', B' at 0.75 or 0 (the conventional order around the circle).
    constexpr double a = 0.75;
    struct Bar {
        char name;
        double r, g, b;
    };
    constexpr Bar bars[6] = {{'R', a, 0, 0}, {'M', a, 0, a}, {'B', 0, 0, a},
                             {'C', 0, a, a}, {'G', 0, a, 0}, {'Y', a, a, 0}};
    std::array<ScopeTarget, 6> out{};
    for (size_t i = 0; i < 6; ++i) {
        const auto [du, dv] = differencesOf(colour.matrix, bars[i].r, bars[i].g, bars[i].b);
        const double scale = std::ldexp(1.0, bits);
        out[i] = {bars[i].name, (differenceCode(du, colour.range, bits) + 0.5) / scale,
                  (differenceCode(dv, colour.range, bits) + 0.5) / scale};
    }
    return out;
}

ScopeData computeScopeData(const StatisticsFormat &format, const ColourDescription &colour, const uint8_t *frame,
                           size_t bytes, const ScopeOptions &options)
{
    ScopeData d;
    d.statistics = computeFrameStatistics(format, frame, bytes, options.threads);
    if (d.statistics.components.empty()) return d;
    const bool v210 = format.layout == YUV_v210;
    d.bits = v210 ? 10 : format.bits;
    d.isSigned = !v210 && format.isSigned;
    const LayoutInfo &info = layoutInfo(format.layout);
    const bool rgb = info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb;
    const bool luma = info.kind == LayoutKind::Luma;

    const bool parade = rgb || (options.yuvParade && !luma && !v210);
    Waveform &w = d.waveform;
    w.parts = parade ? 3 : 1;
    w.columns = std::max(1, std::min(options.waveformColumns, format.width));
    w.levels = std::max(1, options.waveformLevels);
    w.names = parade ? std::vector<std::string>{"R", "G", "B"} : std::vector<std::string>{"Y"};
    w.counts.assign(size_t(w.parts) * size_t(w.columns) * size_t(w.levels), 0);
    if (!luma) {
        d.vectorscope.size = std::max(1, options.vectorscopeSize);
        d.vectorscope.counts.assign(size_t(d.vectorscope.size) * size_t(d.vectorscope.size), 0);
    }
    // RGB samples give full-scale differences whatever the range says; the targets follow suit.
    ColourDescription reading = colour;
    if (rgb) reading.range = ColourRange::Full;
    d.targets = colourBarTargets(reading, d.bits);

    const Scale levels{lowestCode(d.bits, d.isSigned), d.bits, w.levels};
    const Scale cells{lowestCode(d.bits, d.isSigned), d.bits, std::max(1, d.vectorscope.size)};
    const size_t stored =
        std::min<size_t>(bytes, size_t(frameBytes(format.layout, format.containerBits, format.width, format.height)));
    if (v210) {
        addV210(frame, stored, format, levels, cells, options.sampleBudget, d);
        return d;
    }
    const Samples read{frame, int64_t(stored) / (format.containerBits / 8), format.containerBits, format.isSigned};
    SampleGrid grids[3];
    double count[3];
    const int32_t n = componentGrids(format.layout, format.width, format.height, read.count, grids, count);
    if (n <= 0) return d;
    if (rgb) {
        // Grids in storage order; red, green and blue are taken from where the conversion takes them, so
        // the parade shows the picture on screen.
        const int order[3] = {info.rgbSource[0], info.rgbSource[1], info.rgbSource[2]};
        for (int c = 0; c < 3; ++c) addWaveformGrid(read, grids[order[c]], levels, c, options.sampleBudget, w);
        addVectorscopeRgb(read, grids, order, colour.matrix, d.bits, d.isSigned, options.sampleBudget, d.vectorscope);
        return d;
    }
    if (n == 3) {
        const SampleGrid &u = format.swapUV ? grids[2] : grids[1];
        const SampleGrid &v = format.swapUV ? grids[1] : grids[2];
        if (parade)
            addParade(read, grids[0], u, v, info.chromaShiftX, info.chromaShiftY,
                      colourAffine(colour, ColourInput::Yuv, d.bits, 1.0), lowestCode(d.bits, d.isSigned),
                      options.sampleBudget, w);
        else
            addWaveformGrid(read, grids[0], levels, 0, options.sampleBudget, w);
        addVectorscopeGrids(read, u, v, cells, options.sampleBudget, d.vectorscope);
    } else {
        addWaveformGrid(read, grids[0], levels, 0, options.sampleBudget, w);
    }
    return d;
}

} // namespace kavri::pixel
