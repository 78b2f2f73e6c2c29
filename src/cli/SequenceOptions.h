// The format options every sequence-opening command shares, and opening a sequence the way the player does.
#pragma once

#include "cli/Cli.h"
#include "formats/VideoProps.h"

namespace kavri::cli {

// -w/--width, -h/--height, -r/--rate, -f/--format, --bits, --container, --header, --signed, --flip,
// --swap-uv, --toggle-endian, --interlaced, --no-remembered, and the colour options --matrix, --range,
// --chroma, --transfer, --peak.
std::vector<OptionSpec> formatOptionSpecs();

// Applies the options as the player applies its command line: width and height only when both are
// greater than 0, the rate when greater than 0, the format when given; then the expert settings.
// Throws UsageError for values that are not numbers, keywords or in range.
void applyFormatOptions(const ParsedArgs &args, VideoProps &props);
// The colour options given (UsageError for a value that is not one of their keywords or out of range).
ColourOverrides colourOverrides(const ParsedArgs &args);

struct OpenedSequence {
    VideoProps props;
    uint32_t mask = 0;
    QString source;       // "default", "remembered", "y4m", "vix", "hdr" or "name"
    QString colourSource; // the colour description's: "default", "remembered", "hdr", "name" or "option"
};

// Works out FILE's record (and DIFF's, when given), applies the format options and validates.
// Returns false with a one-line message when a file cannot be opened.
bool openSequence(const ParsedArgs &args, const QString &file, const QString &diff, OpenedSequence &out,
                  QString &error);

// Explains why a validated record is not playable, or returns an empty string when it is.
QString unplayableReason(const VideoProps &props, uint32_t mask);

// Takes the single FILE argument of a command (usage error otherwise).
QString singleFileArgument(const ParsedArgs &args);

} // namespace kavri::cli
