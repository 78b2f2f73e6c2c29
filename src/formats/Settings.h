// Every key of the per-user settings store, with its type and default, and the store itself.
// Settings are read at the moment of use and written at once; nothing here caches a value.
#pragma once

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

namespace kavri::settings {

inline constexpr const char *kOrganizationName = "Kavri";
inline constexpr const char *kOrganizationDomain = "kavri.dev";
inline constexpr const char *kApplicationName = "kavri";
// When set, the settings store lives in this directory instead of the user's own (tests, scripts).
inline constexpr const char *kConfigDirEnv = "KAVRI_CONFIG_DIR";

template <typename T>
struct Key {
    const char *name;
    T defaultValue;

    // A value of the wrong type (written by another program version, or edited by hand) reads as the
    // default instead of a garbage conversion.
    T read(const QSettings &s) const
    {
        const QVariant v = s.value(QLatin1String(name));
        if (!v.isValid()) return defaultValue;
        if constexpr (std::is_same_v<T, QString> || std::is_same_v<T, QStringList>) {
            return v.canConvert<T>() ? v.value<T>() : defaultValue;
        } else if constexpr (std::is_same_v<T, bool>) {
            const QString t = v.toString().trimmed().toLower();
            if (v.typeId() == QMetaType::Bool) return v.toBool();
            if (t == QLatin1String("true") || t == QLatin1String("1")) return true;
            if (t == QLatin1String("false") || t == QLatin1String("0")) return false;
            return defaultValue;
        } else if constexpr (std::is_same_v<T, int>) {
            bool ok = false;
            const int r = v.toInt(&ok);
            return ok ? r : defaultValue;
        } else if constexpr (std::is_same_v<T, double>) {
            bool ok = false;
            const double r = v.toDouble(&ok);
            return ok ? r : defaultValue;
        } else {
            return v.canConvert<T>() ? v.value<T>() : defaultValue;
        }
    }
    void write(QSettings &s, const T &value) const { s.setValue(QLatin1String(name), QVariant::fromValue(value)); }
};

inline const Key<QStringList> RecentFileList{"recentFileList", {}};
inline const Key<QByteArray> WindowPosition{"Window/position", {}};
inline const Key<QString> LastUsedDir{"Paths/LastUsedDir", QStringLiteral("/")};
// Empty: fall back to the Open dialog's directory.
inline const Key<QString> LastUsedDiffDir{"Paths/LastUsedDiffDir", {}};
inline const Key<QString> LastUsedPictureDir{"Paths/LastUsedPictureDir", {}};
inline const Key<bool> Loop{"Settings/Loop", true};
inline const Key<bool> Timestamps{"Settings/Timestamps", false};
inline const Key<bool> MaintainAR{"Settings/MaintainAR", true};
inline const Key<double> AnamorphicScale{"Settings/AnamorphicScale", 1.77};
inline const Key<int> MagnFactor{"Settings/magnFactor", 520};
inline const Key<bool> HexValues{"Settings/HexValues", false};
inline const Key<int> Gridsize{"Settings/Gridsize", 16};
inline const Key<bool> Hevc{"Settings/hevc", false};
inline const Key<int> HevcDepth{"Settings/hevc_depth", 5};
inline const Key<int> HevcSize{"Settings/hevc_size", 64};
inline const Key<bool> EscapeExits{"Settings/EscapeExits", true};
inline const Key<bool> DiffInNewWindow{"Settings/DiffInNewWindow", false};
inline const Key<bool> DiffInNewWindowLink{"Settings/DiffInNewWindowLink", false};
// Remembered per-file formats (a VPHash) and the update check's date; read and written by their owners.
inline constexpr const char *kFileFormats = "FileFormats";
// The colour descriptions of remembered files (path -> stored text), beside the records so that the
// records keep the stored form every earlier version reads; only non-default descriptions are kept.
inline constexpr const char *kFileColours = "FileColours";
// The plane strides and offsets of remembered files (path -> "stride=2048,1024,1024 offsets=0,4194304"),
// beside the records for the same reason; only records that give them are kept.
inline constexpr const char *kFilePlanes = "FilePlanes";
inline constexpr const char *kLastUpdate = "last_update";

// Names the application for the settings store and, when KAVRI_CONFIG_DIR is set, moves the store there.
// Call once at start-up, before the first QSettings is made.
void initSettingsStore();
// Points the per-user settings store at `directory` (tests use a temporary directory).
void useSettingsDirectory(const QString &directory);

} // namespace kavri::settings
