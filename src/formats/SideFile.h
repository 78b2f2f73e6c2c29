// The ".hdr" side file: key=value lines describing the raw file that lies beside it.
#pragma once

#include "formats/VideoProps.h"

#include <QByteArray>
#include <QStringList>

namespace kavri {

// A side file is a handful of short lines; anything past this is not read (a huge or binary file found
// under the side file's name must not stall the opening of the video).
constexpr qint64 kMaxSideFileBytes = 64 * 1024;

// Where the side file of `videoPath` is looked for, in this order: the path with its extension replaced
// by ".hdr", then the hidden candidate. Empty for paths shorter than 4 characters.
QStringList sideFileCandidates(const QString &videoPath);

// Applies the lines of a side file to `props`. The bit depth starts at 8; keys that are not known are
// ignored, and so are numbers that do not fit their field.
void applySideFile(const QByteArray &text, VideoProps &props);

// Reads the first side file that opens into `props`; true when one was found, whatever it held.
bool readSideFile(const QString &videoPath, VideoProps &props);

} // namespace kavri
