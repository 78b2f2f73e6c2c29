#include "formats/Validation.h"

#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/StreamPath.h"
#include "formats/Y4mHeader.h"

#include <cmath>

namespace kavri {

void normaliseContainer(VideoProps &p)
{
    if (p.bitDepth < 1 || p.bitDepth > kMaxBitDepth) return;
    if ((p.containerBits != 8 && p.containerBits != 16) || p.containerBits < p.bitDepth)
        p.containerBits = containerBitsFor(p.bitDepth);
}

uint64_t frameCountOfRecord(const VideoProps &p, uint64_t *fileSize)
{
    // Each frame takes its prefix along (a y4m file's FRAME line); a frame cut short is not counted.
    // A list of frame starts has counted the whole frames already.
    uint64_t size = 0;
    uint64_t count = frameCountOf(p.fileName, frameStride(p.frameBytes, p.frameHeaderBytes), p.headerBytes, &size);
    if (p.frameStarts) count = p.frameStarts->size();
    if (!p.diffFileName.isEmpty()) {
        uint64_t diffSize = 0;
        uint64_t diffCount = frameCountOf(p.diffFileName, frameStride(p.frameBytes, p.diffFrameHeaderBytes),
                                          p.diffHeaderBytes, &diffSize);
        if (p.diffFrameStarts) diffCount = p.diffFrameStarts->size();
        if (diffCount <= count) {
            count = diffCount;
            size = diffSize;
        }
    }
    if (fileSize) *fileSize = size;
    return count;
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
        p.diffHeaderBytes = p.headerBytes;
        p.diffFrameHeaderBytes = p.frameHeaderBytes;
        p.frameStarts.reset();
        p.diffFrameStarts.reset();
        // A stream (standard input, a named pipe) has no size to count frames in.
        const bool isFile = !isStreamPath(p.fileName) && (p.diffFileName.isEmpty() || !isStreamPath(p.diffFileName));
        if (p.frameBytes == 0 || !displayPictureFits(p.width, p.height)) {
            mask &= ~uint32_t(kFormatKnown);
        } else if (isFile) {
            // FRAME lines of different lengths move every later frame: such a file is walked for its frame
            // starts, for the frame size of this record.
            bool placed = true;
            if (p.frameHeaderBytes > 0) {
                Y4mFrameScan scan = scanY4mFrames(p.fileName, p.headerBytes, p.frameBytes);
                placed = scan.error.isEmpty();
                p.frameStarts = std::move(scan.starts);
            }
            // The difference file may carry a header of its own.
            if (!p.diffFileName.isEmpty() && placed) {
                const SecondPlacement second = secondFilePlacement(p, p.diffFileName);
                p.diffHeaderBytes = second.headerBytes;
                p.diffFrameHeaderBytes = second.frameHeaderBytes;
                p.diffFrameStarts = second.starts;
                placed = second.error.isEmpty();
            }
            uint64_t size = 0;
            const uint64_t count = placed ? frameCountOfRecord(p, &size) : 0;
            p.frameCount = count;
            p.fileSize = size;
            if (count == 0) mask &= ~uint32_t(kFormatKnown);
        }
    }
    return mask;
}

} // namespace kavri
