// The tagged text header that a raw file may carry at its start (magic "vix").
#pragma once

#include "formats/VideoProps.h"

#include <QByteArray>

namespace kavri {

// The header is a few lines of text; the scan gives up after this many bytes or tokens, so a large file
// that merely starts with "vix" costs no more than one small read.
constexpr qint64 kMaxVixHeaderBytes = 64 * 1024;
constexpr int kMaxVixTokens = 4096;

// Reads a header from the start of `bytes`. `wholeFile` says whether `bytes` is all of the file; when it
// is not, a token that touches the end may have been cut and counts as the end of the stream.
// On success fills layout, size, rate, depth, container bits, signedness and header bytes of `props`
// and answers true; otherwise `props` is left as it was.
bool parseVixHeader(const QByteArray &bytes, bool wholeFile, VideoProps &props);

// parseVixHeader on the start of the file at `path`; false for anything but a readable regular file.
bool readVixHeader(const QString &path, VideoProps &props);

} // namespace kavri
