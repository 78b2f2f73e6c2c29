// Where the planes of a frame lie, shared by the conversion, the readout and the difference picture.
// All positions count samples of the container from the start of the frame.
#pragma once

#include "formats/VideoFormat.h"

#include <cstdint>

namespace kavri::pixel {

// The chroma planes of a planar YUV layout (4:2:0, 4:2:2, 4:4:4, 4:1:0, 4:1:1), and of nv12 whose one
// interleaved chroma plane is described as `cols` = W bytes from uStart.
struct ChromaPlanes {
    int64_t uStart = 0, vStart = 0;
    int32_t cols = 0, rows = 0; // samples a chroma row, chroma rows
    int32_t shiftX = 0, shiftY = 0;
    // Chroma rows that lie wholly inside a buffer of the given size. Equal to `rows` for every frame
    // whose buffer has the allocation size; smaller only for tiny widths, where the truncated byte
    // count leaves the last chroma row partly outside.
    int32_t uFit = 0, vFit = 0;
};

// bufferSamples: size of the frame buffer in samples (the allocation size / bytes a sample).
ChromaPlanes chromaPlanes(videoFormat_t layout, int32_t width, int32_t height, int64_t bufferSamples);

// Rows of `cols` samples from `start` that fit in `total` samples, at most `rows`.
int32_t rowsInside(int64_t start, int32_t cols, int32_t rows, int64_t total);

// Bytes of one stored v210 row: 8/3 bytes a pixel, padded to a multiple of 128.
inline int64_t v210RowBytes(int32_t width) { return ((int64_t(width) * 8) / 3 + 127) & ~int64_t(127); }

// One component's samples seen as a grid: sample (col, row) at start + row * stride + col * step,
// counted in container samples from the start of the frame.
struct SampleGrid {
    int64_t start = 0;
    int32_t cols = 0, rows = 0;
    int64_t stride = 0;
    int32_t step = 1;
};

// The components of a frame as grids, in the order the difference picture numbers them (planes and
// interleaved samples in storage order; Y U V for packed and semi-planar layouts), with the sample
// count each component's mean squared error divides by. Returns the number of components on a grid:
// 1 for luma, 3 otherwise, and 0 for v210 (whose fields lie in words, not on a grid) or an invalid
// layout. bufferSamples: the size of the frame buffer in container samples.
int32_t componentGrids(videoFormat_t layout, int32_t width, int32_t height, int64_t bufferSamples, SampleGrid grids[3],
                       double count[3]);

// Container used for a given depth: the depth rounded up to whole bytes (8 or 16 for 1..16 bits).
inline int32_t containerForBits(int32_t bits) { return ((bits + 7) / 8) * 8; }

} // namespace kavri::pixel
