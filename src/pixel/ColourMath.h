// The arithmetic of a described colour reading (formats/ColourDescription.h), shared by the converter's
// described path, its double-precision reference and the tests: matrices and ranges as constants, the
// chroma siting as sample positions, and the high-dynamic-range transfers shown on an SDR display.
#pragma once

#include "formats/ColourDescription.h"
#include "formats/VideoProps.h"

#include <array>
#include <cstdint>
#include <vector>

namespace kavri::pixel {

// Output channel (red, green, blue) = a . code + b, in units of `outScale` for 1.0, where code holds the
// three components in their logical order (Y, Cb, Cr; or R, G, B; luma only: Y in all three) as unsigned
// codes of `bits` bits.
struct ColourAffine {
    double a[3][3];
    double b[3];
};
enum class ColourInput { Yuv, Rgb, Luma };
ColourAffine colourAffine(const ColourDescription &c, ColourInput input, int32_t bits, double outScale);

// The luma weights of red and blue of a matrix (the default reading's are BT.709's; YCgCo has none and
// gives 0, 0).
struct LumaWeights {
    double kr, kb;
};
LumaWeights lumaWeights(ColourMatrix m);

// The position, in chroma samples, of luma column (or row) `i` for subsampling factor 2^shift; `rows`
// chooses the vertical rule of the siting. Nearest is not a position (i >> shift); callers handle it.
double chromaPosition(ChromaSiting siting, bool rows, int32_t i, int32_t shift);

// SMPTE ST 2084 (PQ): signal E' in 0..1 to cd/m2 and back.
double pqToNits(double e);
double nitsToPq(double nits);
// BT.2100 HLG: the inverse of the OETF, signal E' in 0..1 to normalised scene light.
double hlgToScene(double e);
// The display light of a non-linear component relative to the peak, before the tone map: PQ nits / peak
// (above 1 for light beyond the peak); HLG scene light through the system gamma of the peak.
double transferToRelative(ColourTransfer t, int32_t peakNits, double e);
// The tone map for an SDR display of 100 cd/m2: light relative to the peak (clipped to 0..1) through the
// BT.2390 knee into display light 0..1.
double toneMapRelative(int32_t peakNits, double relative);
// Display light 0..1 to the code shown (2.4 power law).
double displayEncode(double linear);
// BT.2020 to BT.709 primaries on linear light (row-major).
extern const double kBt2020To709[9];

// Per-frame tables of the high-dynamic-range path: `toLinear` indexed by the signal E' in 1/65535 steps,
// `toCode` by the bits of the light relative to the peak (hdrCodeIndex: kHdrCodeEntries entries and three
// spare bytes, see HdrParams).
struct TransferTables {
    std::vector<float> toLinear;
    std::vector<uint8_t> toCode;
    ColourTransfer transfer = ColourTransfer::SDR;
    int32_t peak = 0;
    void build(ColourTransfer t, int32_t peakNits);
};

// The reading in double precision, pixel by pixel from the stored samples: the reference the converter's
// described path is tested against. Writes width x height pixels 0x00RRGGBB. `props.colour` names the
// reading; bits is the depth the samples are read at (as the converter reads that layout).
void referenceDescribed(const VideoProps &props, bool isSigned, const uint8_t *frame, int64_t bufferBytes,
                        uint32_t *dst);

// The depth and sample size the described path reads a layout at.
struct DescribedDepth {
    int32_t bits;
    int32_t sampleBytes;
};
DescribedDepth describedDepth(const VideoProps &props);

} // namespace kavri::pixel
