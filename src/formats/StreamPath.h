// Sources that are read front to back once, like standard input: "-", a named pipe, a device.
#pragma once

#include <QString>

namespace kavri {

// Whether `path` is read as a stream rather than as a file: "-" (standard input), or something that exists
// and is neither a regular file nor a folder once links are followed (a named pipe a decoder writes into,
// a device). A stream has no size and no frame count, cannot seek, and is never opened just to look at
// it: opening a pipe waits for its writer, and reading its start would take bytes from the frames.
// Asks the file system only for the kind of entry, so it never blocks.
bool isStreamPath(const QString &path);

// Opens a stream path other than "-" for reading without waiting for a writer: a descriptor in
// non-blocking mode (the reader polls it), or -1 with errno set. Unix only; elsewhere always -1.
int openStreamNonBlocking(const QString &path);

} // namespace kavri
