// Stored sample values of one pixel, read straight from a frame in native byte order; shared by the
// converter's readout and the difference readout.
#pragma once

#include "formats/VideoFormat.h"

#include <cstdint>

namespace kavri::pixel {

struct StoredSample {
    int32_t c[3] = {0, 0, 0}; // planar layouts in plane order; packed and interleaved as the readout names them
    int32_t alpha = 0;
    bool hasAlpha = false;
};

// Reads pixel (x, row) of a frame of `bufferBytes` bytes. The reader's container follows the depth
// (8-bit readers up to 8 bits, 16-bit up to 16); signed samples are sign-extended from it. False for a
// layout outside 1..27, RGBA/BGRA interleaved above 8 bits, coordinates outside the picture, depths
// above 16, and any position that would lie outside the buffer.
bool readStored(const uint8_t *frame, int64_t bufferBytes, videoFormat_t layout, int32_t width, int32_t height,
                int32_t bits, bool isSigned, int32_t x, int32_t row, StoredSample &out);

} // namespace kavri::pixel
