// The record of one delivered frame, handed from the loader to its window by pointer.
#pragma once

#include "formats/VideoProps.h"

#include <cstdint>
#include <functional>

// frame_t::flags: where the command that produced the frame came from.
enum FrameFlags : uint32_t {
    kFrameRemote = 1,  // a linked player asked for it; the window must not echo it back
    kFrameDragged = 2, // the slider is being dragged; the window must not move the slider under the user
    // Delivered by playback: unless playback ends with it, the loader's pause before the next frame follows
    // and is announced with frame_pause.
    kFramePlayback = 4,
};

struct frame_t {
    // While the loader works this is the index of the next frame to read; when new_frame is emitted it
    // is the index of the frame just delivered.
    uint64_t frameIndex = 0;
    // Per component (c1, c2, c3) of a difference view; zero without a difference file.
    double psnr[3] = {0, 0, 0};
    double mse[3] = {0, 0, 0};
    // Position of the first differing sample per component, packed by packFirstDifference().
    uint64_t firstDiff[3] = {0, 0, 0};
    VideoProps *props = nullptr; // the loader's active record
    uint32_t flags = 0;          // FrameFlags
    // The stored samples the picture was converted from, in native byte order, and the record they follow
    // (for a layout read through its descriptor, the layout it unpacks into). Valid only while new_frame
    // runs, on the loader thread, which alone writes them: a receiver that wants them later copies them.
    const uint8_t *samples = nullptr;
    uint32_t sampleBytes = 0;
    const VideoProps *sampleProps = nullptr;
    // Where the picture was converted straight from the stored bytes (Y210 and its kin), the samples are
    // unpacked only for a receiver that asks: `samples` is then null and this unpacks them and gives
    // where they are. Receivers go through frameSamples().
    const std::function<const uint8_t *()> *unpackSamples = nullptr;
};

// Whether a delivered frame has samples to give, without unpacking them.
inline bool hasSamples(const frame_t &f) { return f.samples || (f.unpackSamples && *f.unpackSamples); }
// The samples of a delivered frame (sampleBytes of them), unpacked first where they were left out; null
// without any. On the loader thread while new_frame runs, as the samples themselves.
inline const uint8_t *frameSamples(const frame_t &f)
{
    if (f.samples) return f.samples;
    return f.unpackSamples && *f.unpackSamples ? (*f.unpackSamples)() : nullptr;
}

// Row in the high 32 bits, column in the low 32 bits; "no difference" (-1, -1) packs to all ones.
constexpr uint64_t packFirstDifference(int32_t column, int32_t row)
{
    return (uint64_t(uint32_t(row)) << 32) | uint64_t(uint32_t(column));
}
constexpr int32_t firstDifferenceColumn(uint64_t packed) { return int32_t(uint32_t(packed & 0xffffffffu)); }
constexpr int32_t firstDifferenceRow(uint64_t packed) { return int32_t(uint32_t(packed >> 32)); }
