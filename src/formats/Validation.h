// Decides whether a format record is complete enough to play, normalising it on the way.
#pragma once

#include "formats/VideoProps.h"

namespace kavri {

// Bits of the validity mask: which items of a record are known.
enum ValidityBits : uint32_t {
    kWidthKnown = 1,
    kHeightKnown = 2,
    kFormatKnown = 4,
    kRateGiven = 8, // informative only
    kDepthSettled = 16,
    kPlayable = kWidthKnown | kHeightKnown | kFormatKnown | kDepthSettled, // 23
};

constexpr bool isPlayable(uint32_t mask) { return (mask & kPlayable) == kPlayable; }

// Validates `props` in place: defaults the rate (negative -> 25) and bit depth (< 1 -> 8), forces v210 to
// unsigned 10 bits, raises the container to hold the depth, computes frameBytes and, for a file (not "-"),
// the frame count and file size from props.fileName (and props.diffFileName, keeping the smaller count).
// A file shorter than one frame clears kFormatKnown, as does a frame size too large to count in 32 bits.
// A depth above 16 bits, which no kernel reads, leaves kDepthSettled clear.
uint32_t validateProps(VideoProps &props);

} // namespace kavri
