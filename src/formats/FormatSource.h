// Works out the format record of a file the way the player does before it applies the command line.
#pragma once

#include "formats/VideoProps.h"

namespace kavri {

struct ResolvedFormat {
    VideoProps props;
    // Where the record came from: "default", "remembered", "vix", "hdr" or "name".
    QString source;
};

// The record of `path` before any command-line values are applied. "-" (standard input) has nothing to
// detect and starts from the defaults.
ResolvedFormat resolveFormat(const QString &path, bool useRemembered);

} // namespace kavri
