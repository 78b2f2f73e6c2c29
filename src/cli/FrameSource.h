// Opening a sequence (and a comparison file) for the commands that look at one frame or compare frames,
// with the options they share.
#pragma once

#include "cli/SequenceOptions.h"
#include "pixel/FramePipeline.h"

#include <fstream>
#include <memory>

namespace kavri::cli {

// --frame N, --diff FILE2, --view V.
std::vector<OptionSpec> frameSelectionSpecs();

// The value of --frames: "A-B", both frame numbers from 0, A <= B (a UsageError otherwise).
void parseFrameRange(const QString &text, uint64_t &first, uint64_t &last);

// --channel, --brightness, --contrast and --gamma, and --view (which needs --diff).
ViewSettings viewSettingsFrom(const ParsedArgs &args);

struct FrameSource {
    OpenedSequence seq;
    std::ifstream first, second;
    FramePipeline pipeline;
};

// Works out the record of `file` (compared against `diff` when not empty) as the player would, checks it
// is playable and opens the streams. On failure the message is in `error` (a runtime failure, exit 1).
bool openFrameSource(const ParsedArgs &args, const QString &file, const QString &diff, FrameSource &src,
                     QString &error);

// Reads frame `index` into the pipeline; an index past the end is a runtime failure with a message.
bool readFrame(FrameSource &src, uint64_t index, QString &error);

} // namespace kavri::cli
