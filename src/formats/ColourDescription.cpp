#include "formats/ColourDescription.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QStringList>

namespace kavri {

namespace {

template <typename E, size_t N>
std::optional<E> lookup(const QString &word, const std::pair<const char *, E> (&table)[N])
{
    const QString w = word.trimmed().toLower();
    for (const auto &[name, value] : table)
        if (w == QLatin1String(name)) return value;
    return std::nullopt;
}

template <typename E, size_t N>
QString nameOf(E value, const std::pair<const char *, E> (&table)[N])
{
    for (const auto &[name, v] : table)
        if (v == value) return QString::fromLatin1(name);
    return {};
}

// The first name of each value is the one written; later ones are accepted when read.
constexpr std::pair<const char *, ColourMatrix> kMatrices[] = {
    {"default", ColourMatrix::Default}, {"bt601", ColourMatrix::BT601},         {"bt709", ColourMatrix::BT709},
    {"bt2020", ColourMatrix::BT2020},   {"smpte240m", ColourMatrix::SMPTE240M}, {"ycgco", ColourMatrix::YCgCo},
};
constexpr std::pair<const char *, ColourRange> kRanges[] = {
    {"full", ColourRange::Full},
    {"limited", ColourRange::Limited},
};
constexpr std::pair<const char *, ChromaSiting> kSitings[] = {
    {"nearest", ChromaSiting::Nearest},
    {"left", ChromaSiting::Left},
    {"center", ChromaSiting::Center},
    {"topleft", ChromaSiting::TopLeft},
};
constexpr std::pair<const char *, ColourTransfer> kTransfers[] = {
    {"sdr", ColourTransfer::SDR},
    {"pq", ColourTransfer::PQ},
    {"hlg", ColourTransfer::HLG},
};

} // namespace

QString keyword(ColourMatrix m) { return nameOf(m, kMatrices); }
QString keyword(ColourRange r) { return nameOf(r, kRanges); }
QString keyword(ChromaSiting c) { return nameOf(c, kSitings); }
QString keyword(ColourTransfer t) { return nameOf(t, kTransfers); }
std::optional<ColourMatrix> matrixFromKeyword(const QString &word) { return lookup(word, kMatrices); }
std::optional<ColourRange> rangeFromKeyword(const QString &word) { return lookup(word, kRanges); }
std::optional<ChromaSiting> chromaFromKeyword(const QString &word) { return lookup(word, kSitings); }
std::optional<ColourTransfer> transferFromKeyword(const QString &word) { return lookup(word, kTransfers); }

QString displayName(const ColourDescription &c)
{
    static const char *const kMatrixNames[] = {"default", "BT.601", "BT.709", "BT.2020", "SMPTE 240M", "YCgCo"};
    QString text = QString::fromLatin1(kMatrixNames[size_t(c.matrix)]);
    text += c.range == ColourRange::Limited ? QStringLiteral(" limited") : QStringLiteral(" full");
    if (c.chroma != ChromaSiting::Nearest) text += QStringLiteral(" chroma ") + keyword(c.chroma);
    if (c.transfer != ColourTransfer::SDR)
        text += QStringLiteral(" %1 %2 nits").arg(keyword(c.transfer).toUpper()).arg(c.peakNits);
    return text;
}

QString toStoredText(const ColourDescription &c)
{
    return QStringLiteral("matrix=%1 range=%2 chroma=%3 transfer=%4 peak=%5")
        .arg(keyword(c.matrix), keyword(c.range), keyword(c.chroma), keyword(c.transfer))
        .arg(c.peakNits);
}

ColourDescription fromStoredText(const QString &text)
{
    ColourDescription c;
    for (const QString &item : text.split(u' ', Qt::SkipEmptyParts)) {
        const qsizetype eq = item.indexOf(u'=');
        if (eq <= 0) continue;
        const QString key = item.left(eq), value = item.mid(eq + 1);
        if (key == QLatin1String("matrix")) {
            if (auto m = matrixFromKeyword(value)) c.matrix = *m;
        } else if (key == QLatin1String("range")) {
            if (auto r = rangeFromKeyword(value)) c.range = *r;
        } else if (key == QLatin1String("chroma")) {
            if (auto s = chromaFromKeyword(value)) c.chroma = *s;
        } else if (key == QLatin1String("transfer")) {
            if (auto t = transferFromKeyword(value)) c.transfer = *t;
        } else if (key == QLatin1String("peak")) {
            bool ok = false;
            const int n = value.toInt(&ok);
            if (ok && n >= kMinPeakNits && n <= kMaxPeakNits) c.peakNits = n;
        }
    }
    return c;
}

ColourDescription colourFromFileName(const QString &path, const ColourDescription &base, bool *found)
{
    ColourDescription c = base;
    bool any = false;
    static const QRegularExpression kSeparators(QStringLiteral("[^A-Za-z0-9]+"));
    const QStringList words = QFileInfo(path).fileName().toLower().split(kSeparators, Qt::SkipEmptyParts);
    for (const QString &w : words) {
        if (w == QLatin1String("bt601")) {
            c.matrix = ColourMatrix::BT601;
        } else if (w == QLatin1String("bt709")) {
            c.matrix = ColourMatrix::BT709;
        } else if (w == QLatin1String("bt2020")) {
            c.matrix = ColourMatrix::BT2020;
        } else if (w == QLatin1String("pq")) {
            c.transfer = ColourTransfer::PQ;
        } else if (w == QLatin1String("hlg")) {
            c.transfer = ColourTransfer::HLG;
        } else if (w == QLatin1String("tv") || w == QLatin1String("limited")) {
            c.range = ColourRange::Limited;
        } else if (w == QLatin1String("pc") || w == QLatin1String("full")) {
            c.range = ColourRange::Full;
        } else {
            continue;
        }
        any = true;
    }
    if (found) *found = any;
    return c;
}

} // namespace kavri
