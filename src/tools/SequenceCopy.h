// Writing a frame range or the reversed sequence of a raw file to a new file, and renaming a file, so that
// no data is ever lost: the input is only read, an existing file is replaced only when asked, the output
// appears under its name only once it is complete, and a rename never replaces anything.
#pragma once

#include "formats/VideoProps.h"

#include <QByteArray>
#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>

namespace kavri::tools {

struct CopyJob {
    QString input;
    QString output;
    uint32_t frameBytes = 0;       // one whole stored frame
    uint32_t headerBytes = 0;      // skipped at the start of the input, never copied
    uint32_t frameHeaderBytes = 0; // before each frame of the input (a y4m FRAME line), never copied
    FrameStarts frameStarts;       // where each frame starts, for FRAME lines of different lengths
    uint64_t first = 0;            // inclusive, counted from 0
    uint64_t last = 0;             // inclusive
    bool reverse = false;          // write last..first instead of first..last
    bool overwrite = false;        // an existing output (never the input itself) may be replaced
    // For an output whose name ends in ".y4m": the stream header that describes the input's frames (see
    // describeInput), or, when empty, why such a file cannot hold them. Every frame then gets its FRAME line.
    QByteArray y4mHeader;
    QString y4mRefusal;
};

// Whether an output of this name is written as a y4m file.
bool writesY4m(const QString &output);

// Completes a job with what the input's record says beyond sizes: the FRAME lines the input has, and
// the header of a y4m output.
void describeInput(CopyJob &job, const VideoProps &props);

// The job of an extraction (frames first..last, inclusive) and of a reversal (all frames, last first).
// A reversal of a 0-frame input gets first > last, which the copy reports instead of copying anything.
CopyJob extractJob(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                   uint64_t first, uint64_t last, bool overwrite);
CopyJob reverseJob(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                   uint64_t frameCount, bool overwrite);

struct CopyResult {
    bool ok = false;
    bool cancelled = false; // stopped on request (error says so); nothing was left behind
    uint64_t framesWritten = 0;
    QString error; // one line, empty on success
};

// The most a copy reads or writes at once. A cancel is seen between chunks, so it never waits for more
// than one chunk of disk work, and a frame of any size needs no more memory than this.
inline constexpr uint32_t kCopyChunkBytes = 4u << 20;

// Called with the progress in percent (0..99, by bytes written) whenever it changes; 100 is left to the
// caller, which reports it once the result is known.
using ProgressFn = std::function<void(int)>;

// Whole frames after the header in the file as it is now (0 when it cannot be read).
uint64_t framesInFile(const QString &path, uint32_t frameBytes, uint32_t headerBytes, uint32_t frameHeaderBytes = 0);

// Whether two paths name the same file (device and inode, so symlinks and hard links count); false
// when either does not exist.
bool isSameFile(const QString &a, const QString &b);

// Checks the output of a job before anything is written: it must not be the input itself, must not be
// a directory, must not exist unless `overwrite`, and its folder must exist. Empty when fine.
QString checkOutput(const QString &input, const QString &output, bool overwrite);

// The range a user asks for, fitted to a file of `frames` frames. A 0-frame file and a first frame
// beyond the last are refused (`error` set, false); a last frame beyond the file is cut to the file's
// last frame (`clamped` set). first > last is refused.
bool fitRange(uint64_t frames, uint64_t first, uint64_t requestedLast, uint64_t &last, bool &clamped, QString &error);

// The one implementation of extraction and reversal. Reads the input in chunks of at most kCopyChunkBytes
// (skipping each frame's prefix), writes them (after a y4m header, and each after a FRAME line, when the
// output's name ends in ".y4m"; a job whose input such a file cannot describe fails first) into a temporary file beside
// the output and renames it into place only when every frame was read and written. On failure nothing is left under the
// output name (an existing file there is kept) and the temporary file is removed. `cancel`, when given, may be set from
// any thread (or a signal handler): the copy stops before its next chunk, or before the rename, and reports `cancelled`
// with nothing left behind.
CopyResult copyFrames(const CopyJob &job, const ProgressFn &progress = {}, const std::atomic<bool> *cancel = nullptr);

// Renames `from` to `to` without ever replacing an existing file, and within `from`'s folder unless
// `allowOtherFolder`. Empty on success, otherwise the reason.
QString renameKeepingAll(const QString &from, const QString &to, bool allowOtherFolder = false);

} // namespace kavri::tools
