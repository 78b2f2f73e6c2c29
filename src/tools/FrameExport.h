// Writing frames of a sequence to files: PNG pictures as the player shows them or of the stored samples
// (one file a frame, named by a printf-style pattern), or the frames in another layout or as y4m (one
// file, through the conversion). kavri-cli render and the player's Export Frames dialog share it.
#pragma once

#include "pixel/FramePipeline.h"
#include "tools/SequenceCopy.h"

#include <QImage>
#include <QString>
#include <atomic>
#include <cstdint>

namespace kavri::tools {

// Why `pattern` cannot name a range of frames (empty when it can): it must hold exactly one integer
// conversion (%d, %i or %u, with flags and a width, e.g. %05d); "%%" stands for a percent sign.
QString framePatternError(const QString &pattern);

// The name of frame `n` under a pattern framePatternError accepts.
QString frameFileName(const QString &pattern, uint64_t n);

// The stored samples of the frame in the pipeline's first buffer (native byte order by now) as a 16-bit
// picture, every value shifted up to 16 bits: RGB layouts in colour unless a channel (1..3) is asked
// for, the others one component as grey, chroma repeated over the pixels it covers, signed samples moved
// up by half their range. Null where the readout cannot read the layout.
QImage nativePicture(const FramePipeline &pipeline, int channel);

// The channel a native picture of `layout` shows for the asked `channel` (0 colour, 1..3 a component).
int nativeChannel(videoFormat_t layout, int channel);

// The frame as the player shows it (before display scaling), converted into `rgb` (width x height x 4
// bytes, which the picture refers to).
QImage shownPicture(FramePipeline &pipeline, const ViewSettings &view, uint8_t *rgb);

// Writes a PNG whole or not at all (beside the target, renamed once complete).
bool savePng(const QImage &image, const QString &out, QString &error);

enum class ExportKind { ShownPng, NativePng, Raw, Y4m };

struct ExportJob {
    VideoProps source; // the open sequence's validated record (file name, frame count)
    ExportKind kind = ExportKind::ShownPng;
    QString output;                     // a pattern with one frame number for PNGs, one file for raw and y4m
    uint64_t first = 0;                 // inclusive
    uint64_t last = 0;                  // inclusive
    ViewSettings view;                  // the shown picture's settings; a native picture uses its channel
    videoFormat_t layout = FMT_UNKNOWN; // raw and y4m: the layout written
    int32_t bits = 0;                   // raw and y4m: the depth written, 0 for the default
    bool overwrite = false;             // existing outputs (never the input) may be replaced
};

// The names a job writes: every frame's for PNGs, the one output otherwise.
QStringList exportNames(const ExportJob &job);

// Why a job cannot run, checked before anything is written; empty when it can.
QString checkExport(const ExportJob &job);

// Runs a job on the calling thread. Progress and cancel as for copyFrames; a failure or a cancel leaves
// nothing behind: a y4m or raw output appears only once complete, and the pictures of a run that does
// not finish are removed again.
CopyResult exportFrames(const ExportJob &job, const ProgressFn &progress = {},
                        const std::atomic<bool> *cancel = nullptr);

} // namespace kavri::tools
