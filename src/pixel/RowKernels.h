// Row functions of the conversion: what one kernel set (portable, AVX2, AVX-512) provides, and the
// per-frame constants every row function shares. Internal to src/pixel and its tests.
//
// Every row function computes, per pixel and per output channel i (0 blue... see below) from the
// samples s0, s1, s2 in *storage* order:
//     sum_i = m[i][0]*s0 + m[i][1]*s1 + m[i][2]*s2 + add[i]          (mod 2^32)
//     v_i   = clamp(int32(sum_i << up) >> shift, 0, 255), then tone[v_i] & 0xff if a tone table is used
// The frame driver folds everything layout specific into these constants: the choice of matrix, the
// plane/sample order of RGB layouts and the chroma swap become a permutation of the matrix columns;
// the signed half-range offset, the depth-scaled matrix offsets and the rounding term become add[].
// Working modulo 2^32 is what 32-bit integer hardware does; it only matters for stray high bits in
// 16-bit containers with depths below 8, and keeps every variant bit-identical there too.
// Output pixels are 32-bit words 0x??RRGGBB; the top byte keeps the destination's value.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kavri::pixel {

struct RowParams {
    uint32_t m[3][3];         // [output channel: red, green, blue][storage component]
    uint32_t add[3];          // per output channel
    int32_t up;               // left shift before the arithmetic right shift
    int32_t shift;            // arithmetic right shift
    const int32_t *tone;      // 256 entries (used by the Tone variants only)
    const uint8_t *toneBytes; // the same table as bytes (its entries' low bytes)
};

// Sample types of the kernels: unsigned/signed 8-bit and 16-bit containers.
enum SampleKind : int { kU8 = 0, kS8 = 1, kU16 = 2, kS16 = 3 };

// Planar: component planes c0, c1, c2 (storage order); chroma planes c1, c2 hold one sample per
// 2^sx pixels. n counts chroma samples, so 2^sx * n pixels are written.
using PlanarRowFn = void (*)(const RowParams &, const void *c0, const void *c1, const void *c2, void *dst, int32_t n);
// Packed/interleaved rows: n = pixel pairs (4:2:2 packed) or pixels (RGB, luma).
using RowFn = void (*)(const RowParams &, const void *row, void *dst, int32_t n);
// nv12: luma row and interleaved U V row; n = pixel pairs.
using SemiRowFn = void (*)(const RowParams &, const void *y, const void *uv, void *dst, int32_t n);
// v210: n whole groups (4 words, 6 pixels) into three 16-bit planes (4:2:2).
using V210UnpackFn = void (*)(const uint32_t *words, uint16_t *y, uint16_t *u, uint16_t *v, int32_t n);
using Swap16Fn = void (*)(uint16_t *words, size_t n);
// One row of an 8-bit difference: dst[i] = table[clamp(a[i] - b[i] + mid, 0, 255)] with a 256-entry
// table (entries past the depth's peak repeat the peak's), returning the sum of the squared differences.
using DiffRow8Fn = uint64_t (*)(const uint8_t *a, const uint8_t *b, uint8_t *dst, int32_t n, const uint8_t *table,
                                int32_t mid);
// The SSIM sums of `blocks` 4x4 blocks side by side, from four rows of either picture starting at a and
// b (rows `stride` samples apart), as four arrays of `blocks` sums one after the other: of a, of b, of
// a^2 + b^2 and of a b. 8-bit samples, or 16-bit ones of at most 12 significant bits (whose sums over
// 64 samples still fit 32 bits).
using SsimBlocksFn = void (*)(const void *a, const void *b, int64_t stride, int32_t blocks, uint32_t *out);
// The windows of one row: window i joins blocks i and i + 1 of the block sums `top` and `bottom` (laid
// out as SsimBlocksFn writes them), blocks - 1 windows. Returns the sum of their SSIM with the constants
// c1 and c2 (in units of the 64-sample sums) and adds the sum of their contrast-structure terms to *cs
// unless cs is null.
using SsimWindowsFn = double (*)(const uint32_t *top, const uint32_t *bottom, int32_t blocks, double c1, double c2,
                                 double *cs);
// MS-SSIM, first half of the separable Gaussian window: for `cols` columns, the sums over `taps` rows
// (a and b rows strideA and strideB samples apart) weighted by w[0..taps) of a, b, a^2, b^2 and a b,
// written as five arrays of `cols` doubles one after the other. Samples are unsigned 8-bit, 16-bit or
// float ([0], [1], [2]).
using GaussColumnsFn = void (*)(const void *a, const void *b, int64_t strideA, int64_t strideB, int32_t cols,
                                const double *w, int32_t taps, double *out);
// Second half: the same weights along the row over the five arrays of GaussColumnsFn, for the
// cols - taps + 1 windows that fit, and each window's SSIM with the constants c1, c2 (in sample units
// squared). Adds the sum of the windows' SSIM to *ssim and of their contrast-structure terms to *cs.
using GaussWindowsFn = void (*)(const double *sums, int32_t cols, const double *w, int32_t taps, double c1, double c2,
                                double *ssim, double *cs);
// Replaces blue, green and red of n pixels by their tone-table bytes, keeping the fourth byte.
using ToneRowFn = void (*)(void *dst, int32_t n, const uint8_t *table);

// The constants of a high-dynamic-range row: per output channel i (red, green, blue) the signal
//     e_i = a[i][0]*c0 + a[i][1]*c1 + a[i][2]*c2 + b[i]        (single precision, in this order)
// from three unsigned 16-bit codes; its light toLinear[clamp(int(e_i*65535 + 0.5))]; the display light
// l_i = prim[3i]*lin_0 + prim[3i+1]*lin_1 + prim[3i+2]*lin_2, clamped to 0..1; and the code shown
// toCode[hdrCodeIndex(l_i)], through toneBytes unless it is null. Every step is one IEEE
// single-precision operation without fused multiply-adds (the kernel files are compiled without
// contraction), so every kernel set gives the same bytes.
//
// The code table is indexed by the light's own bits: its exponent and the first kHdrCodeStepBits bits of
// its mantissa, over the kHdrCodeOctaves octaves below 1 (darker light shows as code 0 at any peak), so
// every entry spans the same fraction of its light (1/512: at most a tenth of a code) and the index
// costs two integer operations where a square root did before.
constexpr int32_t kHdrCodeOctaves = 32, kHdrCodeStepBits = 9;
constexpr uint32_t kHdrCodeFirst = uint32_t(127 - kHdrCodeOctaves) << kHdrCodeStepBits; // 2^-32 >> the shift
constexpr int32_t kHdrCodeShift = 23 - kHdrCodeStepBits;
constexpr int32_t kHdrCodeEntries = (kHdrCodeOctaves << kHdrCodeStepBits) + 1; // the last one: light 1
// Internal linkage: each kernel file keeps its own copy, compiled for its instruction set.
static inline int32_t hdrCodeIndex(uint32_t lightBits)
{
    const int32_t i = int32_t(lightBits >> kHdrCodeShift) - int32_t(kHdrCodeFirst);
    return i < 0 ? 0 : i;
}
struct HdrParams {
    float a[3][3];
    float b[3];
    float prim[9];
    const float *toLinear;    // 65536 entries
    const uint8_t *toCode;    // kHdrCodeEntries and 3 more (vector kernels read 32-bit words at any entry)
    const uint8_t *toneBytes; // 256 entries, or null
};
// n pixels from three rows of n codes each (c0: luma or the first component; c1, c2: chroma or the
// others at full width).
using HdrRowFn = void (*)(const HdrParams &, const uint16_t *c0, const uint16_t *c1, const uint16_t *c2, void *dst,
                          int32_t n);

// Sited (bilinear) chroma, reconstructed as part of the conversion. First the chroma rows around an
// output row are weighed vertically into one row of pairs: word pair k = c1 | c2 << 16 of chroma column
// k, each ((16 - wv) * a + wv * b) >> down from the codes a and b of the two chroma rows (wv in 1/16,
// 0..16). `down` (0..4) drops fraction bits that deep codes have no room for; it is exact when wv is a
// multiple of 2^down, which the caller sees to. Where the chroma rows come from:
//   kChromaPlanes8, kChromaPlanes16: planes of unsigned codes, a1 / a2 the first / second component of
//     row a, b1 / b2 of row b; 16-bit codes above `max` (at most 4095, so that a word holds the sum)
//     count as `max`;
//   kChromaPairs8: interleaved c1 c2 bytes (a1 row a, b1 row b);
//   kChromaUyvy8, kChromaYuyv8: the chroma bytes of a packed 4:2:2 row (a1), one row (wv 0).
// Pointers a row does not use (b1 and b2 for a weight of 0) may be null.
enum SitedChroma : int { kChromaPlanes8, kChromaPlanes16, kChromaPairs8, kChromaUyvy8, kChromaYuyv8 };
using SitedWeighFn = void (*)(const void *a1, const void *a2, const void *b1, const void *b2, int32_t wv, uint32_t max,
                              int32_t down, uint32_t *pairs, int32_t n);
// The usual vertical weights have loops of their own (their products become shifts and adds).
constexpr int32_t kSitedWeights[5] = {0, 4, 8, 12, -1}; // -1: any weight
// Then across, fused with the conversion: output pixel x = 2^sx k + r takes
//     c = ((16 - w[r]) * pair[k + o[r]] + w[r] * pair[k + o[r] + 1] + 8) >> 4     (c1 and c2 alike)
// with the siting's fixed offsets o and weights w in 1/16: two to one (sx 1) cosited o = (0, 0),
// w = (0, 8), centred o = (-1, 0), w = (12, 4); four to one (sx 2) cosited o = 0, w = (0, 4, 8, 12),
// centred o = (-1, -1, 0, 0), w = (10, 14, 2, 6). Then, as in every row function,
//     sum_i = m[i][0]*y + m[i][1]*c1 + m[i][2]*c2 + add[i],  v_i = clamp(int32(sum_i) >> shift, 0, 255)
// (no tone table: the caller's tone pass follows). pair[-1] and the pairs after the last column the row
// uses must hold the edge's pair (the clamp at the picture's edges), and the array must extend 64 pairs
// beyond that for the vector loads. The fast kernels weigh across in 16-bit lanes, so every chroma word
// must be at most sitedPairLimit(). Luma: unsigned 8-bit or 16-bit codes, or the luma bytes of a packed
// 4:2:2 row (U Y V Y or Y U Y V; n even).
enum SitedLuma : int { kLuma8, kLuma16, kLumaUyvy8, kLumaYuyv8 };
using SitedRowFn = void (*)(const RowParams &, const void *luma, const uint32_t *pairs, void *dst, int32_t n);
constexpr uint32_t sitedPairLimit(int32_t sx, bool centred) { return sx == 2 && centred ? 8191u : 16383u; }
// Two-to-one sited chroma from planes in one pass: sitedWeigh's vertical weighing (kChromaPlanes8 with
// 8-bit luma, kChromaPlanes16 with 16-bit luma; rows a1 a2 b1 b2 as there, each holding `cols` codes)
// and sitedRow's conversion, without the row of pairs between them, which a picture larger than the
// caches has to wait for. Converts as many of the row's first pixels as its loop takes whole, keeping
// clear of the chroma row's end, and returns how many (possibly none); the caller converts the rest
// through sitedWeigh and sitedRow. (16 >> down) * max must be at most sitedPairLimit(1, centred).
using SitedPlanesFn = int32_t (*)(const RowParams &, const void *luma, const void *const rows[4], int32_t wv,
                                  uint32_t max, int32_t down, int32_t cols, void *dst, int32_t n);

struct KernelSet {
    const char *name;
    PlanarRowFn planar[4][3][2]; // [SampleKind][sx 0..2][tone]
    RowFn packedUFirst[4][2];    // U Y V Y
    RowFn packedYFirst[4][2];    // Y U Y V
    SemiRowFn nv12[2][2];        // [unsigned/signed 8-bit][tone]
    RowFn rgb3[4][2];            // three samples a pixel
    RowFn rgb4[2][2];            // four bytes a pixel (8-bit only)
    RowFn luma[4][2];            // luma only: ((s + add[0]) << up) >> shift, low byte
    V210UnpackFn v210Unpack;
    Swap16Fn swap16;
    // Sets with a fast table pass use the identity rows followed by this pass instead of the [tone]
    // variants (null in the portable set, whose tone variants are the reference).
    ToneRowFn toneRow;
    DiffRow8Fn diffRow8[2];     // [unsigned/signed]
    SsimBlocksFn ssimBlocks[2]; // [8-bit / 16-bit container]
    SsimWindowsFn ssimWindows;
    GaussColumnsFn gaussColumns[3]; // [8-bit / 16-bit / float]
    GaussWindowsFn gaussWindows;
    HdrRowFn hdrRow;
    SitedWeighFn sitedWeigh[5][5]; // [SitedChroma][index into kSitedWeights]
    SitedRowFn sitedRow[4][2][2];  // [SitedLuma][sx 1, 2][cosited, centred]
    // [8-bit / 16-bit planes][cosited, centred]; null in sets without such loops (the portable set).
    SitedPlanesFn sitedPlanes[2][2];
};

// The portable set (the reference every other set is tested against) and, on x86-64 builds, the
// sets compiled for AVX2 and AVX-512; null where the build does not have them or the running CPU lacks
// any instruction set their files are compiled for (see KernelDispatch.h).
const KernelSet &portableKernels();
const KernelSet *avx2Kernels();
const KernelSet *avx512Kernels();
// The fastest set the running CPU can run, or the one KAVRI_KERNELS names if the CPU can run it.
const KernelSet &bestKernels();
// Looks a set up by name ("portable", "avx2", "avx512"); null when it is absent or the CPU cannot run it.
const KernelSet *kernelsByName(const char *name);

} // namespace kavri::pixel
