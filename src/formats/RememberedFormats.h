// Formats remembered per file path in the settings store under "FileFormats", newest 50 kept.
#pragma once

#include "formats/VideoProps.h"

#include <QHash>
#include <QMetaType>
#include <optional>

class QDataStream;

using VPHash = QHash<QString, VideoProps>;

// The stored form of a record: fields in a fixed order, the layout by its short name (so the record
// survives a renumbering of the layouts), and a constant 0 where the layout number used to stand.
QDataStream &operator<<(QDataStream &out, const VideoProps &props);
QDataStream &operator>>(QDataStream &in, VideoProps &props);

namespace kavri {

// How many records the store keeps at start-up.
constexpr qsizetype kRememberedLimit = 50;

// Registers "VideoProps" and "VPHash" as streamable value types; safe to call more than once.
void registerFormatTypes();

// The remembered record for exactly this path (keys compare case-sensitively), if any. The path is
// first written the way the store writes keys (forward slashes), so what was stored is found again.
std::optional<VideoProps> lookupRemembered(const QString &path);
// Stores `props` under its file name: back-slashes become forward slashes (in `props` too) and the
// time stamp becomes now. Files named "-" are never remembered.
void storeRemembered(VideoProps &props);
// storeRemembered, telling whether the record is now in the store (false for "-" and when the settings
// could not be written).
bool tryStoreRemembered(VideoProps &props);
// Removes the record of `path` (written the way the store writes keys); false when there was none.
bool forgetRemembered(const QString &path);
// Keeps the newest 50 records; does its work only on the first call in a process.
void pruneRememberedOnce();

// The key a path is remembered under: the path with every back-slash turned into a forward slash.
QString rememberedKey(const QString &path);
// The whole store; empty when the key is missing or its value cannot be read as a VPHash.
VPHash readRememberedFormats();
// Replaces the whole store; false when the settings could not be written.
bool writeRememberedFormats(const VPHash &formats);
// The `limit` records with the newest time stamps (equal stamps are decided by key, so the result does
// not depend on hash order).
VPHash newestRemembered(const VPHash &formats, qsizetype limit);

} // namespace kavri
