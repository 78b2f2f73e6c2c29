#include "formats/FormatNames.h"

namespace kavri {

namespace {
QString fromView(std::string_view s) { return QString::fromLatin1(s.data(), qsizetype(s.size())); }
} // namespace

QString shortName(int32_t value)
{
    return isValidFormat(value) ? fromView(layoutInfo(videoFormat_t(value)).shortName) : QStringLiteral("yuv");
}

videoFormat_t formatFromShortName(const QString &name)
{
    for (const LayoutInfo &l : kLayouts)
        if (name == fromView(l.shortName)) return l.value;
    return FMT_UNKNOWN;
}

QString formatSuffix(int32_t value)
{
    return isValidFormat(value) ? fromView(layoutInfo(videoFormat_t(value)).suffix) : QStringLiteral(".raw");
}

QString displayName(int32_t value)
{
    return isValidFormat(value) ? fromView(layoutInfo(videoFormat_t(value)).displayName) : QString();
}

QString channelLetter(int32_t value, int channel)
{
    if (!isValidFormat(value) || channel < 1 || channel > 3) return {};
    return fromView(layoutInfo(videoFormat_t(value)).letters[size_t(channel - 1)]);
}

videoFormat_t formatFromKeyword(const QString &keyword)
{
    for (const LayoutInfo &l : kLayouts)
        if (keyword == fromView(l.keyword)) return l.value;
    return FMT_UNKNOWN;
}

QString formatKeyword(int32_t value)
{
    return isValidFormat(value) ? fromView(layoutInfo(videoFormat_t(value)).keyword) : QString();
}

} // namespace kavri
