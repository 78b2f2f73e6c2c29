// Texts of the main window that follow from the open sequence: the status line and the title.
#pragma once

#include "formats/VideoProps.h"

namespace kavri::ui {

// "352x288@25Hz  100 frames   0'4"00   14.502MB"; for standard input "352x288@25Hz  stdin".
QString statusLine(const VideoProps &props);
// The status bar's note while a stream (standard input, a named pipe) has not yet given a frame.
QString waitingText(const QString &path);
// The file's name without directory ("stdin" for "-"), or both names joined by " vs. " while a
// difference is shown.
QString windowTitle(const QString &file, const QString &diff);
// What the picture shows, beside the status line: the bit depth, the channel ("full colour", or one of
// Y / U / V, R / G / B) and, with a difference file, the view ("A", "B" or "difference").
// `channel` is the conversion's channel selection 0..3, `diffView` the loader's difference view
// (1 the first file, 2 the second, anything else the difference); "10 bit  Y  difference".
QString viewStatus(const VideoProps &props, int32_t channel, bool hasDifference, int32_t diffView);

// Why a validated record still cannot be played, as a sentence for the format dialog; empty when the
// record gives no sentence (an unknown size or layout speaks for itself in the dialog's fields).
// "the file holds 1000 bytes, less than one frame of 3110400 bytes"
QString formatProblem(const VideoProps &props);

} // namespace kavri::ui
