// Rewriting the samples of one frame in another layout: the frame's samples are taken in their canonical
// layout (as FramePipeline::buffer holds them), each component is resampled to the target's subsampling
// and depth and written in the target's own storage order. No colour arithmetic is done anywhere:
// - chroma is downsampled by keeping the top-left sample of each group it covers, and upsampled by
//   repeating a sample over the pixels it covers;
// - depth is changed by shifting: left to widen, right to narrow, without rounding;
// - a luma-only source gives a YUV target mid-grey chroma, a YUV source gives a luma-only target its Y;
// - an RGB target with alpha gets opaque alpha from a source without it; alpha the target has no room
//   for is dropped. YUV layouts with alpha store it as 0, as the canonical layout does not carry it.
// YUV and RGB layouts are never converted into each other, and a Bayer mosaic only into a mosaic of the
// same filter pattern: those would need colour arithmetic.
#pragma once

#include "formats/VideoProps.h"

#include <QString>
#include <cstdint>
#include <vector>

namespace kavri::pixel {

// The record a sequence is written in when `source` is converted to `layout` at `bits` significant bits
// (0: the layout's own depth where it names one, else the source's). The target is little-endian,
// unsigned, without header. False with the reason in `error` where the conversion is refused.
bool conversionTarget(const VideoProps &source, videoFormat_t layout, int32_t bits, VideoProps &target, QString &error);

// Whether a frame of `target` (a planar 4:2:0, 4:2:2, 4:4:4 or luma layout) can be written as a y4m
// frame; the reason otherwise.
QString y4mRefusal(const VideoProps &target);

// The y4m stream header for frames of `target` (one line, ending in a newline).
QByteArray y4mHeader(const VideoProps &target);

class LayoutConverter {
public:
    // Prepares the conversion of frames of the stored record `source` into `target` (from
    // conversionTarget). `y4m`: write the planes of a y4m frame (whole chroma samples for odd sizes)
    // instead of the target layout's stored frame. False with the reason when refused.
    bool setup(const VideoProps &source, const VideoProps &target, bool y4m, QString &error);

    // Bytes of one written frame (the target's frame bytes, or the y4m frame's planes).
    int64_t outputBytes() const { return m_outputBytes; }

    // Converts one frame. `canonical` holds the source frame in its canonical record, native byte order
    // (FramePipeline::buffer(First) after toNative), `bytes` its size (the allocation size). `out` receives
    // outputBytes() bytes; bytes no sample reaches are 0.
    void convert(const uint8_t *canonical, int64_t bytes, uint8_t *out);

private:
    VideoProps m_source; // canonical record of the source
    VideoProps m_target; // stored record of the target
    VideoProps m_targetCanonical;
    bool m_y4m = false;
    int64_t m_outputBytes = 0;
    std::vector<uint8_t> m_scratch; // the target's canonical frame, for a described target
};

} // namespace kavri::pixel
