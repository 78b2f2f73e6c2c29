// The record the metrics panel reads the difference file of a pair with. The window reads both files with
// the pair's one record; the panel compares them as kavri-cli metrics does with --bits2: where the
// difference file states a depth of its own (its y4m or vix header, or its name), at that depth, both
// shifted to the larger one. A side file is not taken for this: it gives 8 bits when it names none.
#pragma once

#include "formats/VideoProps.h"

#include <QString>

namespace kavri::ui {

struct MetricsSecondFile {
    VideoProps props;      // the difference file's record: the pair's, at its own depth, placed as its header says
    bool ownDepth = false; // the depth is the difference file's own, not the pair's
    QString error;         // the file cannot be read so (the numbers mean nothing then)
};

MetricsSecondFile metricsSecondFile(const VideoProps &pair);

} // namespace kavri::ui
