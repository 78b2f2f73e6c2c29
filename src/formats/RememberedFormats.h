// Formats remembered per file path in the settings store under "FileFormats", newest 50 kept.
#pragma once

#include "formats/VideoProps.h"

#include <QHash>
#include <QMetaType>
#include <optional>

using VPHash = QHash<QString, VideoProps>;

namespace kavri {

// Registers "VideoProps" and "VPHash" as streamable value types; safe to call more than once.
void registerFormatTypes();

// The remembered record for exactly this path (keys compare case-sensitively), if any.
std::optional<VideoProps> lookupRemembered(const QString &path);
// Stores `props` under its file name: back-slashes become forward slashes (in `props` too) and the
// time stamp becomes now. Files named "-" are never remembered.
void storeRemembered(VideoProps &props);
// Removes the record of `path`; false when there was none.
bool forgetRemembered(const QString &path);
// Keeps the newest 50 records; does its work only on the first call in a process.
void pruneRememberedOnce();

} // namespace kavri
