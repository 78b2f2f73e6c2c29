// Where the frames of a record lie in its file: after `headerBytes`, one after the other, each preceded by
// `frameHeaderBytes` bytes of its own (the FRAME line of a y4m file; none in a raw file).
#pragma once

#include "formats/VideoProps.h"

#include <cstdint>
#include <limits>

namespace kavri {

// Bytes from the start of one frame's prefix to the start of the next; 0 for a frame of 0 bytes and for a
// sum that does not fit the 32 bits every frame count and copy works in.
constexpr uint32_t frameStride(uint32_t frameBytes, uint32_t frameHeaderBytes)
{
    if (frameBytes == 0 || uint64_t(frameBytes) + frameHeaderBytes > std::numeric_limits<uint32_t>::max()) return 0;
    return frameBytes + frameHeaderBytes;
}

// Where the prefix of frame `index` starts.
constexpr uint64_t framePrefixOffset(uint32_t headerBytes, uint32_t frameHeaderBytes, uint32_t frameBytes,
                                     uint64_t index)
{
    return uint64_t(headerBytes) + index * (uint64_t(frameBytes) + frameHeaderBytes);
}

// Where the samples of frame `index` start.
constexpr uint64_t frameOffset(uint32_t headerBytes, uint32_t frameHeaderBytes, uint32_t frameBytes, uint64_t index)
{
    return framePrefixOffset(headerBytes, frameHeaderBytes, frameBytes, index) + frameHeaderBytes;
}

// Where the samples of frame `index` of a validated record's file (or, with `second`, of its difference
// file) start: from the list of starts when the file has one, otherwise from the even spacing. An index
// past a list points just past the last whole frame.
inline uint64_t frameDataOffset(const VideoProps &p, uint64_t index, bool second = false)
{
    // Two files without FRAME lines share the record's header, as they always have; so a record whose
    // difference placement was never worked out (not validated) still reads such a pair as before.
    const uint32_t diffHeader =
        p.frameHeaderBytes == 0 && p.diffFrameHeaderBytes == 0 ? p.headerBytes : p.diffHeaderBytes;
    const FrameStarts &starts = second ? p.diffFrameStarts : p.frameStarts;
    if (starts) {
        if (index < starts->size()) return (*starts)[size_t(index)];
        return starts->empty() ? (second ? diffHeader : p.headerBytes) : starts->back() + p.frameBytes;
    }
    return second ? frameOffset(diffHeader, p.diffFrameHeaderBytes, p.frameBytes, index)
                  : frameOffset(p.headerBytes, p.frameHeaderBytes, p.frameBytes, index);
}

} // namespace kavri
