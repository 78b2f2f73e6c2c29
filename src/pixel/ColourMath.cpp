#include "pixel/ColourMath.h"

#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kavri::pixel {

namespace {

// Each matrix is one row of constants: the luma weights of red and blue. The default reading keeps its
// own fixed conversion; when it is combined with a non-default range, siting or transfer, it reads as
// BT.709, which that conversion approximates.
struct MatrixRow {
    ColourMatrix matrix;
    double kr, kb;
};
constexpr MatrixRow kMatrixRows[] = {
    {ColourMatrix::Default, 0.2126, 0.0722}, {ColourMatrix::BT601, 0.299, 0.114},
    {ColourMatrix::BT709, 0.2126, 0.0722},   {ColourMatrix::BT2020, 0.2627, 0.0593},
    {ColourMatrix::SMPTE240M, 0.212, 0.087}, {ColourMatrix::YCgCo, 0.0, 0.0},
};

// R'G'B' from Y' and the colour differences (Cb, Cr in -0.5..0.5; for YCgCo the Cg and Co components).
void matrixOf(ColourMatrix m, double out[3][3])
{
    if (m == ColourMatrix::YCgCo) {
        const double y[3][3] = {{1, -1, 1}, {1, 1, 0}, {1, -1, -1}};
        std::copy(&y[0][0], &y[0][0] + 9, &out[0][0]);
        return;
    }
    const auto [kr, kb] = lumaWeights(m);
    const double kg = 1.0 - kr - kb;
    const double rows[3][3] = {
        {1.0, 0.0, 2.0 * (1.0 - kr)},
        {1.0, -2.0 * kb * (1.0 - kb) / kg, -2.0 * kr * (1.0 - kr) / kg},
        {1.0, 2.0 * (1.0 - kb), 0.0},
    };
    std::copy(&rows[0][0], &rows[0][0] + 9, &out[0][0]);
}

} // namespace

LumaWeights lumaWeights(ColourMatrix m)
{
    for (const MatrixRow &r : kMatrixRows)
        if (r.matrix == m) return {r.kr, r.kb};
    return {0.2126, 0.0722};
}

namespace {

// PQ constants of SMPTE ST 2084.
constexpr double kM1 = 2610.0 / 16384.0;
constexpr double kM2 = 2523.0 / 4096.0 * 128.0;
constexpr double kC1 = 3424.0 / 4096.0;
constexpr double kC2 = 2413.0 / 4096.0 * 32.0;
constexpr double kC3 = 2392.0 / 4096.0 * 32.0;
// HLG constants of BT.2100.
constexpr double kHlgA = 0.17883277;
constexpr double kHlgB = 0.28466892;
constexpr double kHlgC = 0.55991073;
// The SDR display the tone map aims at, in cd/m2.
constexpr double kSdrWhite = 100.0;

bool isRgbLayout(videoFormat_t f) { return f >= RGB_i444 && f <= GBRA_planar; }

} // namespace

const double kBt2020To709[9] = {1.660491,  -0.587641, -0.072850, -0.124550, 1.132900,
                                -0.008349, -0.018151, -0.100579, 1.118730};

ColourAffine colourAffine(const ColourDescription &c, ColourInput input, int32_t bits, double outScale)
{
    ColourAffine r{};
    const double unit = std::ldexp(1.0, bits - 8); // one 8-bit level at this depth
    const double peak = std::ldexp(1.0, bits) - 1.0;
    const bool limited = c.range == ColourRange::Limited;
    const double yOff = limited ? 16.0 * unit : 0.0, yScale = limited ? 219.0 * unit : peak;
    const double cOff = limited ? 128.0 * unit : std::ldexp(1.0, bits - 1), cScale = limited ? 224.0 * unit : peak;
    double m[3][3];
    if (input == ColourInput::Yuv) {
        matrixOf(c.matrix, m);
    } else {
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) m[i][j] = input == ColourInput::Luma ? (j == 0) : (i == j);
    }
    for (int i = 0; i < 3; ++i) {
        r.b[i] = 0.0;
        for (int j = 0; j < 3; ++j) {
            const bool chroma = input == ColourInput::Yuv && j > 0;
            const double scale = chroma ? cScale : yScale, off = chroma ? cOff : yOff;
            r.a[i][j] = outScale * m[i][j] / scale;
            r.b[i] -= r.a[i][j] * off;
        }
    }
    return r;
}

double chromaPosition(ChromaSiting siting, bool rows, int32_t i, int32_t shift)
{
    const double f = double(1 << shift);
    const bool cosited = rows ? siting == ChromaSiting::TopLeft : siting != ChromaSiting::Center;
    return cosited ? double(i) / f : (double(i) + 0.5) / f - 0.5;
}

double pqToNits(double e)
{
    // EOTF: Y = (max(E'^(1/m2) - c1, 0) / (c2 - c3 E'^(1/m2)))^(1/m1), in units of 10000 cd/m2.
    e = std::clamp(e, 0.0, 1.0);
    const double p = std::pow(e, 1.0 / kM2);
    return 10000.0 * std::pow(std::max(p - kC1, 0.0) / (kC2 - kC3 * p), 1.0 / kM1);
}

double nitsToPq(double nits)
{
    // Inverse EOTF: E' = ((c1 + c2 Y^m1) / (1 + c3 Y^m1))^m2.
    const double y = std::pow(std::clamp(nits / 10000.0, 0.0, 1.0), kM1);
    return std::pow((kC1 + kC2 * y) / (1.0 + kC3 * y), kM2);
}

double hlgToScene(double e)
{
    // Inverse OETF: E = E'^2 / 3 up to E' = 1/2, then (exp((E' - c) / a) + b) / 12.
    e = std::clamp(e, 0.0, 1.0);
    return e <= 0.5 ? e * e / 3.0 : (std::exp((e - kHlgC) / kHlgA) + kHlgB) / 12.0;
}

double transferToRelative(ColourTransfer t, int32_t peakNits, double e)
{
    if (t == ColourTransfer::PQ) return pqToNits(e) / double(peakNits);
    // The HLG system gamma for a display of this peak, applied per component: exact for greys, and a
    // close enough picture of the colours for checking material on an SDR screen.
    const double gamma = 1.2 + 0.42 * std::log10(double(peakNits) / 1000.0);
    return std::pow(hlgToScene(e), gamma);
}

double toneMapRelative(int32_t peakNits, double relative)
{
    relative = std::clamp(relative, 0.0, 1.0);
    const double peak = double(peakNits);
    if (peak <= kSdrWhite) return relative; // nothing to compress: the peak is shown as white
    // BT.2390 EETF with a black level of 0: in the PQ domain normalised to the peak, E1 below the knee
    // start KS = 1.5 maxLum - 0.5 is kept; above, the hermite spline
    //   P(T) = (2T^3 - 3T^2 + 1) KS + (T^3 - 2T^2 + T)(1 - KS) + (-2T^3 + 3T^2) maxLum, T = (E1 - KS)/(1 - KS)
    // bends it to maxLum, the SDR white in the same units.
    const double pqPeak = nitsToPq(peak);
    const double e1 = nitsToPq(relative * peak) / pqPeak;
    const double maxLum = nitsToPq(kSdrWhite) / pqPeak;
    const double ks = 1.5 * maxLum - 0.5;
    double e2 = e1;
    if (e1 >= ks) {
        const double t = (e1 - ks) / (1.0 - ks), t2 = t * t, t3 = t2 * t;
        e2 = (2 * t3 - 3 * t2 + 1) * ks + (t3 - 2 * t2 + t) * (1 - ks) + (-2 * t3 + 3 * t2) * maxLum;
    }
    return std::clamp(pqToNits(e2 * pqPeak) / kSdrWhite, 0.0, 1.0);
}

double displayEncode(double linear) { return std::pow(std::clamp(linear, 0.0, 1.0), 1.0 / 2.4); }

void TransferTables::build(ColourTransfer t, int32_t peakNits)
{
    if (t == transfer && peakNits == peak && !toLinear.empty()) return;
    transfer = t;
    peak = peakNits;
    toLinear.resize(65536);
    for (int i = 0; i < 65536; ++i) toLinear[size_t(i)] = float(transferToRelative(t, peakNits, i / 65535.0));
    // Entry k holds the code of the light in the middle of its span (hdrCodeIndex); the last one, light 1.
    // Three spare bytes: the vector kernels read a 32-bit word at any entry.
    toCode.assign(size_t(kHdrCodeEntries) + 3, 0);
    for (int32_t k = 0; k < kHdrCodeEntries; ++k) {
        const double light =
            k == kHdrCodeEntries - 1
                ? 1.0
                : std::ldexp(1.0 + (double((k & ((1 << kHdrCodeStepBits) - 1))) + 0.5) / double(1 << kHdrCodeStepBits),
                             (k >> kHdrCodeStepBits) - kHdrCodeOctaves);
        toCode[size_t(k)] = uint8_t(std::lround(255.0 * displayEncode(toneMapRelative(peakNits, light))));
    }
}

DescribedDepth describedDepth(const VideoProps &p)
{
    const LayoutInfo &info = layoutInfo(p.format);
    if (p.format == YUV_v210) return {10, 2};
    if (p.format == YUV_nv12 || (info.kind == LayoutKind::InterleavedRgb && info.samplesPerPixel == 4))
        return {std::min(p.bitDepth, 8), 1};
    return {p.bitDepth, p.containerBits == 8 ? 1 : 2};
}

void referenceDescribed(const VideoProps &p, bool isSigned, const uint8_t *frame, int64_t bytes, uint32_t *dst)
{
    const videoFormat_t layout = p.format;
    const int32_t W = p.width, H = p.height;
    const LayoutInfo &info = layoutInfo(layout);
    const int32_t d = describedDepth(p).bits;
    const bool hdr = p.colour.transfer != ColourTransfer::SDR;
    const ColourInput input = info.kind == LayoutKind::Luma ? ColourInput::Luma
                              : isRgbLayout(layout)         ? ColourInput::Rgb
                                                            : ColourInput::Yuv;
    const ColourAffine A = colourAffine(p.colour, input, d, hdr ? 1.0 : 255.0);
    const double half = isSigned && layout != YUV_v210 ? std::ldexp(1.0, d - 1) : 0.0;
    const bool swap = p.swapUV && info.kind != LayoutKind::InterleavedRgb && info.kind != LayoutKind::Luma;
    const int32_t sx = info.chromaShiftX, sy = info.chromaShiftY;
    const int32_t cols = (W + (1 << sx) - 1) >> sx, rows = (H + (1 << sy) - 1) >> sy;
    const bool bilinear = input == ColourInput::Yuv && p.colour.chroma != ChromaSiting::Nearest && (sx || sy);

    const auto read = [&](int32_t x, int32_t row, int comp) {
        StoredSample s;
        if (!readStored(frame, bytes, layout, W, H, d, isSigned, x, row, s)) return 0.0;
        return double(s.c[comp]) + half;
    };
    // Planar chroma is read where the conversion's plane geometry puts it (the pixel readout keeps an
    // older reading of planar 4:2:2); every other layout through the pixel readout.
    const ChromaPlanes planes = info.kind == LayoutKind::PlanarYuv
                                    ? chromaPlanes(layout, W, H, bytes / describedDepth(p).sampleBytes)
                                    : ChromaPlanes{};
    const int32_t sampleBytes = describedDepth(p).sampleBytes;
    const auto chromaAt = [&](int32_t k, int32_t j, int comp) {
        if (info.kind == LayoutKind::PlanarYuv) {
            k = std::clamp(k, 0, planes.cols - 1);
            j = std::clamp(j, 0, std::min(comp == 1 ? planes.uFit : planes.vFit, planes.rows) - 1);
            if (k < 0 || j < 0) return half;
            const int64_t at = (comp == 1 ? planes.uStart : planes.vStart) + int64_t(j) * planes.cols + k;
            int32_t v;
            if (sampleBytes == 1) {
                v = isSigned ? int32_t(int8_t(frame[at])) : int32_t(frame[at]);
            } else {
                uint16_t w;
                std::memcpy(&w, frame + 2 * at, 2);
                v = isSigned ? int32_t(int16_t(w)) : int32_t(w);
            }
            return double(v) + half;
        }
        k = std::clamp(k, 0, cols - 1);
        j = std::clamp(j, 0, rows - 1);
        return read(std::min(k << sx, W - 1), std::min(j << sy, H - 1), comp);
    };
    const auto interpolate = [&](double px, double py, int comp) {
        const double fx = std::floor(px), fy = std::floor(py);
        const double wx = px - fx, wy = py - fy;
        const int32_t kx = int32_t(fx), ky = int32_t(fy);
        return (1 - wy) * ((1 - wx) * chromaAt(kx, ky, comp) + wx * chromaAt(kx + 1, ky, comp)) +
               wy * ((1 - wx) * chromaAt(kx, ky + 1, comp) + wx * chromaAt(kx + 1, ky + 1, comp));
    };

    for (int32_t r = 0; r < H; ++r) {
        const int32_t s = p.flipped ? H - 1 - r : r;
        for (int32_t x = 0; x < W; ++x) {
            double c[3] = {0, 0, 0};
            if (input == ColourInput::Luma) {
                c[0] = read(x, s, 0);
            } else if (info.kind == LayoutKind::InterleavedRgb) {
                for (int l = 0; l < 3; ++l) c[l] = read(x, s, l);
            } else if (info.kind == LayoutKind::PlanarRgb) {
                double planes[3] = {read(x, s, 0), read(x, s, 1), read(x, s, 2)};
                if (swap) std::swap(planes[1], planes[2]);
                for (int l = 0; l < 3; ++l) c[l] = planes[info.rgbSource[size_t(l)]];
            } else {
                c[0] = read(x, s, 0);
                for (int comp = 1; comp <= 2; ++comp)
                    c[comp] = bilinear ? interpolate(chromaPosition(p.colour.chroma, false, x, sx),
                                                     chromaPosition(p.colour.chroma, true, s, sy), comp)
                                       : chromaAt(x >> sx, s >> sy, comp);
                if (swap) std::swap(c[1], c[2]);
            }
            double out[3];
            for (int i = 0; i < 3; ++i) out[i] = A.a[i][0] * c[0] + A.a[i][1] * c[1] + A.a[i][2] * c[2] + A.b[i];
            if (hdr) {
                double rel[3], lin[3];
                for (int i = 0; i < 3; ++i)
                    rel[i] = transferToRelative(p.colour.transfer, p.colour.peakNits, std::clamp(out[i], 0.0, 1.0));
                for (int i = 0; i < 3; ++i)
                    lin[i] = kBt2020To709[3 * i] * rel[0] + kBt2020To709[3 * i + 1] * rel[1] +
                             kBt2020To709[3 * i + 2] * rel[2];
                for (int i = 0; i < 3; ++i) out[i] = 255.0 * displayEncode(toneMapRelative(p.colour.peakNits, lin[i]));
            }
            uint32_t px = 0;
            for (int i = 0; i < 3; ++i) px |= uint32_t(std::clamp(std::lround(out[i]), 0L, 255L)) << (16 - 8 * i);
            if (input == ColourInput::Yuv && info.kind == LayoutKind::Packed422 && (W & 1) && x == W - 1) px = 0;
            dst[size_t(r) * size_t(W) + size_t(x)] = px;
        }
    }
}

} // namespace kavri::pixel
