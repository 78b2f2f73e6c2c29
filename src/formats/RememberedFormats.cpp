#include "formats/RememberedFormats.h"

#include "formats/FormatNames.h"
#include "formats/FrameSize.h"
#include "formats/Settings.h"

#include <QDataStream>
#include <QDateTime>
#include <QSettings>
#include <QVariant>
#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>
#include <vector>

QDataStream &operator<<(QDataStream &out, const VideoProps &p)
{
    out << qint32(p.width) << qint32(p.height) << p.frameRate << quint64(p.frameCount) << quint64(p.fileSize)
        << qint32(0) << qint32(p.bitDepth) << qint32(p.containerBits) << quint32(p.frameBytes) << p.interlaced
        << p.fileName << p.flipped << p.anamorphic << p.toggleEndianness << p.swapUV << quint32(p.headerBytes)
        << quint64(uint32_t(p.timeStamp)) << p.signedValues << qint32(p.scaleX) << qint32(p.scaleY)
        << kavri::shortName(p.format);
    return out;
}

QDataStream &operator>>(QDataStream &in, VideoProps &p)
{
    qint32 width = 0, height = 0, formatNumber = 0, bitDepth = 0, containerBits = 0, scaleX = 0, scaleY = 0;
    double rate = 0.0;
    quint64 frameCount = 0, fileSize = 0, timeStamp = 0;
    quint32 frameBytes = 0, headerBytes = 0;
    bool interlaced = false, flipped = false, anamorphic = false, toggleEndianness = false, swapUV = false,
         signedValues = false;
    QString fileName, format;
    in >> width >> height >> rate >> frameCount >> fileSize >> formatNumber >> bitDepth >> containerBits >>
        frameBytes >> interlaced >> fileName >> flipped >> anamorphic >> toggleEndianness >> swapUV >> headerBytes >>
        timeStamp >> signedValues >> scaleX >> scaleY >> format;
    // A record cut short keeps nothing; the hash reader drops the whole value then.
    if (in.status() != QDataStream::Ok) return in;

    p.width = width;
    p.height = height;
    // Whatever another program version wrote, the rest of the player must never see a rate it cannot
    // time frames with, nor a display scale of zero or less.
    p.frameRate = std::isfinite(rate) ? rate : -1.0;
    p.frameCount = frameCount;
    p.fileSize = fileSize;
    p.format = kavri::formatFromShortName(format);
    p.bitDepth = bitDepth;
    p.containerBits = containerBits;
    p.frameBytes = frameBytes;
    p.interlaced = interlaced;
    p.fileName = fileName;
    p.flipped = flipped;
    p.anamorphic = anamorphic;
    p.toggleEndianness = toggleEndianness;
    p.swapUV = swapUV;
    p.signedValues = signedValues;
    p.headerBytes = headerBytes;
    p.timeStamp = timeStamp;
    p.scaleX = scaleX > 0 ? scaleX : kScaleOne;
    p.scaleY = scaleY > 0 ? scaleY : kScaleOne;
    return in;
}

namespace kavri {

void registerFormatTypes()
{
    static const bool registered = [] {
        qRegisterMetaType<VideoProps>("VideoProps");
        qRegisterMetaType<VPHash>("VPHash");
        return true;
    }();
    (void)registered;
}

QString rememberedKey(const QString &path)
{
    QString key = path;
    key.replace(u'\\', u'/');
    return key;
}

VPHash readRememberedFormats()
{
    // The settings store decodes a stored value by its type name, so the type must be known first.
    registerFormatTypes();
    const QSettings s;
    const QVariant v = s.value(QLatin1String(settings::kFileFormats));
    // Only our own type is accepted: a value of another type (an older program version, a hand edit)
    // must not be converted into a hash of garbage records.
    if (v.metaType() != QMetaType::fromType<VPHash>()) return {};
    VPHash formats = v.value<VPHash>();
    // The colour descriptions live under a key of their own: a store without it (written before colour
    // descriptions existed) reads as all default, and an entry it cannot read is skipped.
    const QVariantMap colours = s.value(QLatin1String(settings::kFileColours)).toMap();
    for (auto it = colours.cbegin(); it != colours.cend(); ++it) {
        const auto record = formats.find(it.key());
        if (record != formats.end() && it.value().canConvert<QString>())
            record->colour = fromStoredText(it.value().toString());
    }
    // Plane strides and offsets likewise; an entry that does not read whole is skipped whole. The
    // records carry none of their own (the store may hand back the very objects it was given).
    for (VideoProps &record : formats) {
        record.planeStride = {};
        record.planeOffset = {};
    }
    const QVariantMap planes = s.value(QLatin1String(settings::kFilePlanes)).toMap();
    for (auto it = planes.cbegin(); it != planes.cend(); ++it) {
        const auto record = formats.find(it.key());
        if (record == formats.end() || !it.value().canConvert<QString>()) continue;
        std::array<uint64_t, 4> strides{}, offsets{};
        bool ok = true;
        for (const QString &part : it.value().toString().split(u' ', Qt::SkipEmptyParts)) {
            if (part.startsWith(QLatin1String("stride=")))
                ok = ok && parsePlaneBytes(part.mid(7), uint64_t(std::numeric_limits<int32_t>::max()), strides);
            else if (part.startsWith(QLatin1String("offsets=")))
                ok = ok && parsePlaneBytes(part.mid(8), uint64_t(1) << 40, offsets);
        }
        if (!ok) continue;
        for (size_t i = 0; i < 4; ++i) record->planeStride[i] = uint32_t(strides[i]);
        record->planeOffset = offsets;
    }
    return formats;
}

bool writeRememberedFormats(const VPHash &formats)
{
    registerFormatTypes();
    QSettings s;
    s.setValue(QLatin1String(settings::kFileFormats), QVariant::fromValue(formats));
    QVariantMap colours;
    for (auto it = formats.cbegin(); it != formats.cend(); ++it)
        if (!it->colour.isDefault() || it->colour.peakNits != kDefaultPeakNits)
            colours.insert(it.key(), toStoredText(it->colour));
    if (colours.isEmpty())
        s.remove(QLatin1String(settings::kFileColours));
    else
        s.setValue(QLatin1String(settings::kFileColours), colours);
    QVariantMap planes;
    for (auto it = formats.cbegin(); it != formats.cend(); ++it) {
        if (!hasPlaneGeometry(*it)) continue;
        std::array<uint64_t, 4> strides{};
        for (size_t i = 0; i < 4; ++i) strides[i] = it->planeStride[i];
        planes.insert(
            it.key(),
            QStringLiteral("stride=%1 offsets=%2").arg(planeBytesText(strides), planeBytesText(it->planeOffset)));
    }
    if (planes.isEmpty())
        s.remove(QLatin1String(settings::kFilePlanes));
    else
        s.setValue(QLatin1String(settings::kFilePlanes), planes);
    s.sync();
    return s.status() == QSettings::NoError;
}

std::optional<VideoProps> lookupRemembered(const QString &path)
{
    const VPHash formats = readRememberedFormats();
    const auto it = formats.constFind(rememberedKey(path));
    if (it == formats.cend()) return std::nullopt;
    return *it;
}

bool tryStoreRemembered(VideoProps &props)
{
    if (props.fileName.isEmpty() || props.fileName == QLatin1String("-")) return false;
    VPHash formats = readRememberedFormats();
    props.fileName = rememberedKey(props.fileName);
    // Seconds since 1970 with the upper half 0, as the stored form has always carried it.
    props.timeStamp = uint32_t(QDateTime::currentSecsSinceEpoch());
    formats.insert(props.fileName, props);
    return writeRememberedFormats(formats);
}

void storeRemembered(VideoProps &props) { tryStoreRemembered(props); }

bool forgetRemembered(const QString &path)
{
    VPHash formats = readRememberedFormats();
    if (!formats.remove(rememberedKey(path))) return false;
    return writeRememberedFormats(formats);
}

VPHash newestRemembered(const VPHash &formats, qsizetype limit)
{
    std::vector<VPHash::const_iterator> entries;
    entries.reserve(size_t(formats.size()));
    for (auto it = formats.cbegin(); it != formats.cend(); ++it) entries.push_back(it);
    // Oldest first; equal stamps ordered by key so that the cut does not depend on hash order.
    std::sort(entries.begin(), entries.end(), [](const auto &a, const auto &b) {
        if (a->timeStamp != b->timeStamp) return a->timeStamp < b->timeStamp;
        return a.key() < b.key();
    });
    VPHash newest;
    for (auto it = entries.rbegin(); it != entries.rend() && newest.size() < limit; ++it)
        newest.insert((*it).key(), (*it).value());
    return newest;
}

void pruneRememberedOnce()
{
    static std::atomic<bool> done{false};
    if (done.exchange(true)) return;
    const VPHash formats = readRememberedFormats();
    // Nothing to drop: leave the store (and its file) untouched.
    if (formats.size() <= kRememberedLimit) return;
    writeRememberedFormats(newestRemembered(formats, kRememberedLimit));
}

} // namespace kavri
