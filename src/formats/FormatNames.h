// Name look-ups over the layout table: short names, suffixes, display names, channel letters and
// the command-line keywords.
#pragma once

#include "formats/VideoFormat.h"

#include <QString>

namespace kavri {

// Short name of a layout ("YUV_p420"); "yuv" for anything outside 1..27.
QString shortName(int32_t value);
// Layout of a short name: exact, case-sensitive, in table order; 0 when nothing matches.
videoFormat_t formatFromShortName(const QString &name);
// Canonical file-name suffix ("_P420.yuv"); ".raw" for anything outside 1..27.
QString formatSuffix(int32_t value);
// Display name as the format list shows it (blanks kept as they are); empty outside 1..27.
QString displayName(int32_t value);
// Letter of channel 1..3 in storage order ("Y", "U", "V", "B", ...); empty for luma only,
// values outside 1..26 and indices outside 1..3.
QString channelLetter(int32_t value, int channel);
// Layout of a command-line keyword ("yuv420" ... "luma"), exact and lower case; 0 when unknown.
videoFormat_t formatFromKeyword(const QString &keyword);
// Keyword of a layout; empty outside 1..27.
QString formatKeyword(int32_t value);

} // namespace kavri
