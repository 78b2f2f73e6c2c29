#include "ui/MetricsPair.h"

#include "formats/FormatDetector.h"
#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/Y4mHeader.h"
#include "pixel/PlaneGeometry.h"

namespace kavri::ui {

MetricsSecondFile metricsSecondFile(const VideoProps &pair)
{
    MetricsSecondFile out;
    VideoProps &pb = out.props;
    pb = pair;
    pb.fileName = pair.diffFileName;
    pb.diffFileName.clear();

    FormatDetector detector;
    const VideoProps &own = detector.detect(pair.diffFileName);
    const FormatDetector::Source source = detector.source();
    const bool states = source == FormatDetector::Source::Y4mHeader || source == FormatDetector::Source::VixHeader ||
                        (source == FormatDetector::Source::Name && own.bitDepth > 0);
    // Only a depth: a layout or size of its own would not be the same picture read another way.
    if (states && detector.error().isEmpty() && own.bitDepth >= 1 && own.bitDepth <= 16 &&
        own.bitDepth != pair.bitDepth && (own.format == pair.format || source == FormatDetector::Source::Name) &&
        (source == FormatDetector::Source::Name || (own.width == pair.width && own.height == pair.height))) {
        pb.bitDepth = own.bitDepth;
        pb.containerBits = pixel::containerForBits(own.bitDepth);
        out.ownDepth = true;
    }
    pb.frameBytes = frameBytes(pb.format, pb.containerBits, pb.width, pb.height);
    if (pb.frameBytes == 0) {
        out.error = QStringLiteral("'%1' cannot be read at %2 bits").arg(pb.fileName).arg(pb.bitDepth);
        return out;
    }
    // The pair's record as the first file has it places the frames of a raw second file; a y4m file keeps
    // its own header and FRAME lines.
    VideoProps first = pair;
    first.bitDepth = pb.bitDepth;
    first.containerBits = pb.containerBits;
    const SecondPlacement place = secondFilePlacement(first, pb.fileName);
    if (!place.error.isEmpty()) {
        out.error = place.error;
        return out;
    }
    pb.headerBytes = place.headerBytes;
    pb.frameHeaderBytes = place.frameHeaderBytes;
    pb.frameStarts = place.starts;
    pb.frameCount = place.starts ? place.starts->size()
                                 : frameCountOf(pb.fileName, frameStride(pb.frameBytes, pb.frameHeaderBytes),
                                                pb.headerBytes, nullptr);
    return out;
}

} // namespace kavri::ui
