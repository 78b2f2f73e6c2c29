#include "formats/Validation.h"

#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/StreamPath.h"

#include <cmath>

namespace kavri {

void normaliseContainer(VideoProps &p)
{
    if (p.bitDepth < 1 || p.bitDepth > kMaxBitDepth) return;
    if ((p.containerBits != 8 && p.containerBits != 16) || p.containerBits < p.bitDepth)
        p.containerBits = containerBitsFor(p.bitDepth);
}

uint32_t validateProps(VideoProps &p)
{
    uint32_t mask = 0;
    if (p.format != FMT_UNKNOWN) mask = kFormatKnown;
    if (p.width > 1) mask |= kWidthKnown;
    if (p.height > 1) mask |= kHeightKnown;
    if (p.frameRate > 0) mask |= kRateGiven;
    // Rates come from side files, headers, stored records and typing: keep them finite and in a range
    // whose period and rounding for display cannot overflow.
    if (p.frameRate < 0 || std::isnan(p.frameRate)) p.frameRate = 25.0;
    if (p.frameRate > kMaxFrameRate) p.frameRate = kMaxFrameRate;
    if (p.bitDepth < 1) p.bitDepth = 8;
    if (p.format == YUV_v210) {
        p.bitDepth = 10;
        p.signedValues = false;
    } else if (isDescribedLayout(p.format)) {
        // A layout that names its depth (P010, Y210, RGB565, ...) stores exactly that, in its own words.
        const PixelDescriptor &d = *pixelDescriptor(p.format);
        if (d.fixedDepth) {
            p.bitDepth = d.fixedDepth;
            p.containerBits = containerBitsFor(d.fixedDepth);
        }
    }
    if (p.bitDepth <= kMaxBitDepth) mask |= kDepthSettled;
    normaliseContainer(p);

    if (isPlayable(mask)) {
        p.frameBytes = recordFrameBytes(p);
        // A stream (standard input, a named pipe) has no size to count frames in.
        const bool isFile = !isStreamPath(p.fileName) && (p.diffFileName.isEmpty() || !isStreamPath(p.diffFileName));
        if (p.frameBytes == 0 || !displayPictureFits(p.width, p.height)) {
            mask &= ~uint32_t(kFormatKnown);
        } else if (isFile) {
            uint64_t size = 0;
            const uint64_t count = frameCountOfPair(p.fileName, p.diffFileName, p.frameBytes, p.headerBytes, &size);
            p.frameCount = count;
            p.fileSize = size;
            if (count == 0) mask &= ~uint32_t(kFormatKnown);
        }
    }
    return mask;
}

} // namespace kavri
