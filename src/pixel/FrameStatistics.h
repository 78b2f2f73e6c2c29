// Per-component statistics of the stored samples of one frame: minimum, maximum, mean, standard
// deviation, samples at either end of the depth and a histogram. kavri-cli stats reads them from here, and
// so should anything in the player that shows them, so the two cannot disagree.
//
// What is counted: every sample the frame stores, once, in the component that owns it. Chroma that is
// subsampled counts its own samples (a 4:2:0 U plane has a quarter of the luma's), not one a pixel. Where
// a layout's planes overlap or run past the end of the frame (the odd-height 4:2:0 and 4:1:0 frames, whose
// V plane starts half a chroma row early), the overlapped samples belong to V and the part past the end
// is not stored, so not counted. Padding (v210's row padding and the unused pixels of its last group,
// the odd column of packed 4:2:2 and nv12) is not a sample.
//
// Components are named by their storage position ("Y", "U", "V", or the colour letters, "A" for alpha).
//
// Signed layouts report signed values: min, max and mean are what the two's-complement samples say
// (-512..511 at 10 bits), "zeros" counts samples at the bottom of the range (-2^(bits-1) for signed
// samples, 0 otherwise) and "clipped" those at its top (2^(bits-1)-1, or 2^bits-1). A sample beyond the
// range of its depth (a 10-bit file whose 16-bit words hold 1100) is counted with its true value in
// min, max, mean and deviation, and as clipped (or at the bottom) in the counts and the histogram.
#pragma once

#include "formats/VideoFormat.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

struct VideoProps;

namespace kavri::pixel {

// The description of a frame's samples that the statistics need.
struct StatisticsFormat {
    videoFormat_t layout = YUV_p420;
    int32_t width = 0, height = 0;
    int32_t bits = 8;          // significant bits, 1..16 (v210 always 10)
    int32_t containerBits = 8; // 8 or 16 (not used for v210)
    bool isSigned = false;     // two's complement of the container (v210 is never signed)
    // The record says the second and third stored components are the other way round (YV12 and the
    // like): they keep their storage order but exchange names, as the conversion exchanges them
    // (not for interleaved RGB and luma, where the conversion ignores it).
    bool swapUV = false;
};

StatisticsFormat statisticsFormatOf(const VideoProps &props);

struct ComponentStatistics {
    std::string name;   // "Y", "U", "V", "R", "G", "B" or "A"
    uint64_t count = 0; // samples of this component in the frame
    // All 0 for a component with no samples (4:2:0 one pixel wide has no chroma).
    int32_t min = 0, max = 0;
    double mean = 0.0, stddev = 0.0; // population standard deviation
    uint64_t zeros = 0, clipped = 0;
    // One bin a code up to 10 bits (2^bits bins), 1024 bins of 2^(bits-10) codes above; bin 0 holds the
    // lowest code of the range (-2^(bits-1) for signed samples).
    std::vector<uint64_t> histogram;
};

struct FrameStatistics {
    std::vector<ComponentStatistics> components; // in the layout's storage order, alpha last
};

// Bins of the histogram at a depth, and codes a bin (both for bits 1..16).
int32_t histogramBins(int32_t bits);
int32_t histogramBinWidth(int32_t bits);

// The lowest and highest code of a depth: 0 and 2^bits-1, or -2^(bits-1) and 2^(bits-1)-1 when signed.
int32_t lowestCode(int32_t bits, bool isSigned);
int32_t highestCode(int32_t bits, bool isSigned);

// The component names of a layout in storage order ("Y" alone for luma-only, "A" appended with alpha).
std::vector<std::string> componentNames(videoFormat_t layout);

// Statistics of one frame of `bytes` bytes, in native byte order (after FramePipeline::toNative or
// X2RGBColorConv::swapToNative). Only the first frameBytes of the buffer are looked at; a shorter buffer
// counts what it holds. `threads`: 0 the shared worker pool and the caller, 1 the caller only, n at most
// n threads; the result never depends on it. An invalid description gives no components.
FrameStatistics computeFrameStatistics(const StatisticsFormat &format, const uint8_t *frame, size_t bytes,
                                       int32_t threads = 0);

} // namespace kavri::pixel
