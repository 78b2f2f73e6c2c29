// File names the sequence tools propose: the output of an extraction or a reversal, and the canonical
// name that carries a file's format so that the name detector reads it back.
//
// Where the old format description begins: the earliest of
//   - a separator ('_', '-', '.' or a blank) followed by a token the name detector reads, ending at the
//     next separator or the end: a size "352x288", a rate "25Hz" / "29.97fps", a depth "10bit" / "-10b",
//     "flip", a size word (qcif, cif, sif, 720p, 1080p), a sampling code ("420", "p444", "i444"), or a
//     layout word ("yuv", "rgb", "bgra", "nv12", "v210", "gray", "luma", "yv12", ...);
//   - the last '.', where the extension starts.
// A name with neither is kept whole. So "take3.bin" is cut to "take3", and
// "foo_1920x1080_50Hz_10bit_P420.yuv" to "foo".
#pragma once

#include "formats/VideoProps.h"

#include <QString>

namespace kavri::tools {

// Suffix of luma-only files in canonical names. "p400" and a final ".y" each vote 1.0 for luminance in
// the name detector, so a canonical luma name wins with 2.0 even when its stem happens to hold one
// keyword of another layout.
inline constexpr const char *kLumaCanonicalSuffix = "_P400.y";

// Position in `fileName` (no directory) where its format description begins; fileName.size() when none.
qsizetype formatPartStart(const QString &fileName);
// The name up to its format description.
QString nameStem(const QString &fileName);
// What is kept of the old format description in a proposed output name: the description with its size,
// rate and bit-depth tokens taken out (they are written anew), so "_1920x1080_50Hz_8bit_P422.yuv" keeps
// "_P422.yuv" and "take3.bin" keeps ".bin".
QString keptFormatTail(const QString &fileName);

// Frame rate for proposed output names: 2 decimals when the rate has a fraction at all, otherwise none.
QString proposedRateText(double rate);
// Frame rate for canonical names: 2 decimals only when the hundredths (fraction x 100, truncated) are not
// 0, so 23.976 is "23.98" and 50.001 is "50".
QString canonicalRateText(double rate);

// Full path of the proposed extraction output of `props.fileName`, frames first..last.
QString proposedExtractName(const VideoProps &props, uint64_t first, uint64_t last);
// Full path of the proposed reversal output of `props.fileName`.
QString proposedReverseName(const VideoProps &props);

// Layout suffix used in canonical names (the layout table's suffix; kLumaCanonicalSuffix for luma).
QString canonicalSuffix(videoFormat_t format);
// "_%1x%2_%3Hz_%4bit%5%6" filled from the record.
QString canonicalFormatPart(const VideoProps &props);
// The canonical file name (no directory) of `props.fileName`: its stem and the canonical format part.
QString canonicalFileName(const VideoProps &props);

} // namespace kavri::tools
