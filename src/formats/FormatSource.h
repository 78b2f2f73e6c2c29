// Works out the format record of a file the way the player does before it applies the command line.
#pragma once

#include "formats/VideoProps.h"

namespace kavri {

struct ResolvedFormat {
    VideoProps props;
    // Where the record came from: "default", "remembered", "y4m", "vix", "hdr" or "name".
    QString source;
    // Why a file with a y4m header cannot be read as one (see FormatDetector::error); empty otherwise.
    // Whoever opens the sequence refuses it with these words rather than read it as raw samples.
    QString error;
    // Where the colour description came from: "default", "remembered", "y4m", "hdr" or "name".
    QString colourSource = QStringLiteral("default");
};

// The record of `path` before any command-line values are applied. "-" (standard input) has nothing to
// detect and starts from the defaults.
ResolvedFormat resolveFormat(const QString &path, bool useRemembered);

// The record a sequence opens with: `path`'s own, or, when that is not playable and a difference file is
// given, the difference file's (it may carry the header or the telling name the main file lacks). The
// player, the loader and every kavri-cli command start from this one record before applying overrides.
ResolvedFormat resolvePair(const QString &path, const QString &diffPath, bool useRemembered);

} // namespace kavri
