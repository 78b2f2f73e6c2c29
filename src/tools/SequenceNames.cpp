#include "tools/SequenceNames.h"

#include "formats/FormatNames.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <cmath>

namespace kavri::tools {

namespace {

// Tokens the name detector reads, each preceded by a separator and followed by a separator or the end.
const QRegularExpression &formatTokenPattern()
{
    static const QRegularExpression re(
        QStringLiteral("[_\\-. ](?:[0-9]+x[0-9]+|[0-9]+(?:\\.[0-9]+)?(?:hz|fps)|-?[0-9]+b(?:it)?s?|flip|upside.down|"
                       "anamorph(?:ic)?|q?cif|sif|720p|1080[pi]?|[pi]?4[0-4][0-9]|yv1[26]|yv2[14]|nv12|v210|uyvy|"
                       "yuyv|yuy2|yuv|[rgb]{3}a?|rgb32|bgr32|gray|luma|luminance|bw|y)(?=[_\\-. ]|$)"),
        QRegularExpression::CaseInsensitiveOption);
    return re;
}

// The tokens a proposed output name writes anew: size, rate and bit depth.
const QRegularExpression &rewrittenTokenPattern()
{
    static const QRegularExpression re(
        QStringLiteral("[_\\-. ](?:[0-9]+x[0-9]+|[0-9]+(?:\\.[0-9]+)?(?:hz|fps)|-?[0-9]+b(?:it)?s?)(?=[_\\-. ]|$)"),
        QRegularExpression::CaseInsensitiveOption);
    return re;
}

QString canonicalDir(const QString &path)
{
    const QFileInfo fi(path);
    const QString dir = fi.canonicalPath();
    return dir.isEmpty() ? fi.absolutePath() : dir;
}

QString proposedName(const VideoProps &p, const QString &pattern, uint64_t first, uint64_t last, bool extract)
{
    // One arg() call per pattern so that a '%' inside the kept part of the old name is never taken for a
    // place holder.
    const QString name = QFileInfo(p.fileName).fileName();
    const QString w = QString::number(p.width), h = QString::number(p.height), r = proposedRateText(p.frameRate),
                  b = QString::number(p.bitDepth), tail = keptFormatTail(name);
    const QString s = extract ? pattern.arg(w, h, r, b, tail, QString::number(first), QString::number(last))
                              : pattern.arg(w, h, r, b, tail);
    return QDir(canonicalDir(p.fileName)).filePath(nameStem(name) + s);
}

} // namespace

qsizetype formatPartStart(const QString &fileName)
{
    qsizetype cut = fileName.lastIndexOf(QLatin1Char('.'));
    if (cut < 0) cut = fileName.size();
    const QRegularExpressionMatch m = formatTokenPattern().match(fileName);
    if (m.hasMatch() && m.capturedStart() < cut) cut = m.capturedStart();
    return cut;
}

QString nameStem(const QString &fileName) { return fileName.left(formatPartStart(fileName)); }

QString keptFormatTail(const QString &fileName)
{
    QString tail = fileName.mid(formatPartStart(fileName));
    tail.remove(rewrittenTokenPattern());
    return tail;
}

QString proposedRateText(double rate)
{
    if (!std::isfinite(rate)) return QStringLiteral("0");
    return QString::number(rate, 'f', rate != std::trunc(rate) ? 2 : 0);
}

QString canonicalRateText(double rate)
{
    if (!std::isfinite(rate)) return QStringLiteral("0");
    const double fraction = std::fabs(rate - std::trunc(rate));
    const bool hundredths = int64_t(fraction * 100.0) != 0;
    return QString::number(rate, 'f', hundredths ? 2 : 0);
}

QString proposedExtractName(const VideoProps &props, uint64_t first, uint64_t last)
{
    return proposedName(props, QStringLiteral("%6-%7_%1x%2_%3Hz_%4bit%5"), first, last, true);
}

QString proposedReverseName(const VideoProps &props)
{
    return proposedName(props, QStringLiteral("_rev_%1x%2_%3Hz_%4bit%5"), 0, 0, false);
}

QString canonicalSuffix(videoFormat_t format)
{
    if (format == BW) return QLatin1String(kLumaCanonicalSuffix);
    return formatSuffix(format);
}

QString canonicalFormatPart(const VideoProps &p)
{
    return QStringLiteral("_%1x%2_%3Hz_%4bit%5%6")
        .arg(QString::number(p.width), QString::number(p.height), canonicalRateText(p.frameRate),
             QString::number(p.bitDepth), p.flipped ? QStringLiteral("_flip") : QString(), canonicalSuffix(p.format));
}

QString canonicalFileName(const VideoProps &props)
{
    return nameStem(QFileInfo(props.fileName).fileName()) + canonicalFormatPart(props);
}

} // namespace kavri::tools
