// A deterministic moving test pattern, written as one stored frame of any of the 27 layouts. The picture is
// defined in sample values (Y, U, V or R, G, B at the requested depth) and then packed in the layout's own
// storage order, so a frame read back through the player shows known numbers at known places.
#pragma once

#include "formats/VideoFormat.h"
#include "formats/VideoProps.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace kavri {

struct PatternSpec {
    videoFormat_t layout = YUV_p420;
    int32_t width = 0;
    int32_t height = 0;
    int32_t bits = 8;          // significant bits, 1..16 (v210: 10)
    int32_t containerBits = 8; // 8 or 16, at least `bits` (v210: not used)
    bool isSigned = false;     // stored as two's complement, centred: value - 2^(bits-1)
    bool bigEndian = false;    // 16-bit containers most significant byte first
    bool interlaced = false;   // 4:2:0 chroma rows belong to the fields (two rows of each field share one)
    double rate = 25.0;        // frames per second; the moving block crosses the picture in four seconds
};

// The sample values at one pixel, 0 .. 2^bits - 1, before the signed storage offset. For the YUV layouts
// c1..c3 are Y and the U and V of the chroma sample that covers the pixel; for the RGB layouts they are
// red, green and blue whatever the storage order. alpha is -1 for layouts without alpha.
struct PatternPixel {
    int32_t c1 = 0, c2 = 0, c3 = 0;
    int32_t alpha = -1;
};

// The format record a file of this pattern is read with: layout, size, depth, container, sign and byte order.
VideoProps patternRecord(const PatternSpec &pat);

// Why a frame of this description cannot be written (an empty string when it can).
std::string patternSpecError(const PatternSpec &pat);

// Bytes of one written frame: frameBytes of the layout at the given size and container.
uint32_t patternFrameBytes(const PatternSpec &pat);

// The pattern's sample values at pixel (x, y) of frame `frame` (row 0 at the top, as stored).
PatternPixel patternPixel(const PatternSpec &pat, uint64_t frame, int32_t x, int32_t y);

// A value as a reader of signed samples reports it: value - 2^(bits-1) when the pat is signed.
int32_t patternStoredValue(const PatternSpec &pat, int32_t value);

// Writes frame `frame` into dst: exactly patternFrameBytes(pat) bytes, padding and bytes no sample
// reaches set to 0. False (nothing written) for a pat patternSpecError refuses or a short destination.
bool writePatternFrame(const PatternSpec &pat, uint64_t frame, uint8_t *dst, size_t dstSize);

} // namespace kavri
