// Texts of the main window that follow from the open sequence: the status line and the title.
#pragma once

#include "formats/VideoProps.h"

namespace kavri::ui {

// "352x288@25Hz  100 frames   0'4"00   14.502MB"; for standard input "352x288@25Hz  stdin".
QString statusLine(const VideoProps &props);
// The file's name without directory ("stdin" for "-"), or both names joined by " vs. " while a
// difference is shown.
QString windowTitle(const QString &file, const QString &diff);
// Why a validated record still cannot be played, as a sentence for the format dialog; empty when the
// record gives no sentence (an unknown size or layout speaks for itself in the dialog's fields).
// "the file holds 1000 bytes, less than one frame of 3110400 bytes"
QString formatProblem(const VideoProps &props);

} // namespace kavri::ui
