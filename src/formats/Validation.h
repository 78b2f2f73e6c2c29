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

// Deepest sample any reader handles, and the frame rates a record may carry (frames per second).
constexpr int32_t kMaxBitDepth = 16;
constexpr double kMaxFrameRate = 100000.0;

// The container that stores samples of `bitDepth` bits (1..16): one byte up to 8 bits, else a 16-bit word.
constexpr int32_t containerBitsFor(int32_t bitDepth) { return bitDepth <= 8 ? 8 : 16; }

// Brings the container of a record with a depth of 1..16 to 8 or 16 bits holding the depth. A container
// that already is 8 or 16 and holds the depth stays (8-bit values in 16-bit words are a real layout);
// anything else — 12, 24, 0, or 8 for a 10-bit depth — becomes containerBitsFor(depth), so every buffer
// and every walk over it agrees on the sample size. Records with other depths are left alone.
void normaliseContainer(VideoProps &props);

// Validates `props` in place: defaults the rate (negative or not a number -> 25; above kMaxFrameRate ->
// kMaxFrameRate) and bit depth (< 1 -> 8), forces v210 to unsigned 10 bits, normalises the container, computes
// frameBytes and, for a file (not a stream: see isStreamPath), the frame count and file size from props.fileName (and
// props.diffFileName, keeping the smaller count; the difference file's own y4m header is placed through
// diffHeaderBytes and diffFrameHeaderBytes, see secondFilePlacement). A file shorter than one frame clears
// kFormatKnown, as do a frame size too large to count in 32 bits and a picture too wide to display
// (displayPictureFits). A depth above 16 bits, which no kernel reads, leaves kDepthSettled clear and the container
// untouched.
uint32_t validateProps(VideoProps &props);

// The frame count of a validated record's file (frames of frameBytes, each after its frameHeaderBytes,
// after headerBytes) and, with a difference file, of the pair: the smaller of the two counts (the
// difference file's frames lie as diffHeaderBytes and diffFrameHeaderBytes say), with the size of the file
// it came from (the difference file's on a tie) through *fileSize.
uint64_t frameCountOfRecord(const VideoProps &props, uint64_t *fileSize);

} // namespace kavri
