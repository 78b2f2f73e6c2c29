// Writing a frame range of a sequence in another layout (or as y4m) to a new file, under the same rules
// as an extraction: the input is only read, an existing file is replaced only when asked, the output
// appears under its name only once complete, and a failure or a cancel leaves nothing behind.
#pragma once

#include "formats/VideoProps.h"
#include "tools/SequenceCopy.h"

#include <atomic>
#include <istream>

namespace kavri {
class FramePipeline;
}

namespace kavri::tools {

struct ConvertJob {
    QString input;
    QString output;
    VideoProps target;      // from pixel::conversionTarget
    bool y4m = false;       // write a y4m stream (header, then "FRAME" and the planes of each frame)
    uint64_t first = 0;     // inclusive, counted from 0
    uint64_t last = 0;      // inclusive
    bool overwrite = false; // an existing output (never the input itself) may be replaced
};

// Whether an output name asks for y4m (it ends in ".y4m", in any case).
bool isY4mName(const QString &output);

// Converts frames first..last read through `pipeline` (set up for the input's stored record) from `in`,
// frame by frame, into a temporary file beside the output, renamed into place when every frame is
// written. `progress` and `cancel` as for copyFrames; the result's framesWritten counts whole frames.
CopyResult convertFrames(const ConvertJob &job, FramePipeline &pipeline, std::istream &in,
                         const ProgressFn &progress = {}, const std::atomic<bool> *cancel = nullptr);

} // namespace kavri::tools
