#include "formats/SideFile.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <limits>
#include <optional>

namespace kavri {

namespace {

enum class Key {
    Width,
    Height,
    FrameRate,
    Offset,
    Format,
    Bits,
    BitDepth,
    Anamorphic,
    Flipped,
    Interlaced,
    Stride,
    PlaneOffsets
};

struct KeyWord {
    const char *word;
    Key key;
    bool wholeKey; // otherwise the key only has to begin with the word ("widthpx" is a width)
};

// Tested in this order; the first that matches applies.
constexpr KeyWord kKeys[] = {
    {"width", Key::Width, false},
    {"height", Key::Height, false},
    {"framerate", Key::FrameRate, false},
    {"offset", Key::Offset, false},
    {"format", Key::Format, false},
    {"bits", Key::Bits, true},
    {"bitdepth", Key::BitDepth, false},
    {"anamorphic", Key::Anamorphic, false},
    {"flipped", Key::Flipped, false},
    {"interlaced", Key::Interlaced, false},
    // Strides and plane starts of padded buffers: "stride=2048,1024,1024", "planeoffsets=0,4194304".
    {"stride", Key::Stride, true},
    {"planeoffsets", Key::PlaneOffsets, true},
};

struct FormatWord {
    const char *word;
    videoFormat_t format;
};

// The first word contained in the value decides. The lone "y" ahead of the 4:1:x and packed words is
// intended and must stay: any value holding a "y" but none of the first three words (yuv410, uyvy, ...)
// is read as luma only, and existing side files are read that way.
constexpr FormatWord kFormatWords[] = {
    {"yuv420", YUV_p420}, {"yuv422", YUV_p422}, {"yuv444", YUV_p444}, {"y", BW},          {"yuv410", YUV_p410},
    {"yuv411", YUV_p411}, {"uyvy", YUV_uyvy},   {"yuyv", YUV_yuyv},   {"yuy2", YUV_yuy2}, {"rgb24", RGB_i444},
    {"rgb32", RGBA_i444}, {"bgr24", BGR_i444},  {"bgr32", BGRA_i444},
};

bool isBlank(QChar c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\v' || c == u'\f'; }

// A number read the way C's atoi reads it: leading blanks, an optional sign, then digits up to the first
// character that is not one; no digits at all read as 0. Empty when the digits run past `limit`.
std::optional<int64_t> leadingInteger(const QString &s, int64_t limit)
{
    qsizetype i = 0;
    while (i < s.size() && isBlank(s[i])) ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) negative = s[i++] == u'-';
    int64_t value = 0;
    for (; i < s.size() && s[i].isDigit() && s[i].unicode() < 128; ++i) {
        value = value * 10 + (s[i].unicode() - u'0');
        if (value > limit) return std::nullopt;
    }
    return negative ? -value : value;
}

// Like leadingInteger, with an optional fraction after a point.
std::optional<double> leadingDecimal(const QString &s)
{
    qsizetype i = 0;
    while (i < s.size() && isBlank(s[i])) ++i;
    QString text;
    if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) text += s[i++];
    bool digits = false;
    const auto takeDigits = [&] {
        for (; i < s.size() && s[i].unicode() >= u'0' && s[i].unicode() <= u'9'; ++i) {
            text += s[i];
            digits = true;
        }
    };
    takeDigits();
    if (i < s.size() && s[i] == u'.') {
        text += s[i++];
        takeDigits();
    }
    if (!digits) return 0.0;
    bool ok = false;
    const double v = text.toDouble(&ok);
    if (!ok || !std::isfinite(v)) return std::nullopt;
    return v;
}

void applyInt32(const QString &value, int32_t &field)
{
    if (const auto v = leadingInteger(value, std::numeric_limits<int32_t>::max())) field = int32_t(*v);
}

// The colour keys: whole keys only, values as the command-line keywords; a value that is not one is
// ignored like any number that does not fit.
bool applyColourLine(const QString &key, const QString &value, ColourDescription &c)
{
    if (key == QLatin1String("colour_matrix")) {
        if (const auto m = matrixFromKeyword(value)) c.matrix = *m;
    } else if (key == QLatin1String("colour_range")) {
        if (const auto r = rangeFromKeyword(value)) c.range = *r;
    } else if (key == QLatin1String("chroma_siting")) {
        if (const auto s = chromaFromKeyword(value)) c.chroma = *s;
    } else if (key == QLatin1String("transfer")) {
        if (const auto t = transferFromKeyword(value)) c.transfer = *t;
    } else if (key == QLatin1String("peak_nits")) {
        if (const auto v = leadingInteger(value, kMaxPeakNits); v && *v >= kMinPeakNits) c.peakNits = int32_t(*v);
    } else {
        return false;
    }
    return true;
}

void applyLine(const QString &line, VideoProps &p)
{
    const qsizetype eq = line.indexOf(u'=');
    if (eq < 0) return;
    const QString key = line.left(eq);
    const QString value = line.mid(eq + 1);
    if (applyColourLine(key.trimmed(), value.trimmed(), p.colour)) return;

    const KeyWord *match = nullptr;
    for (const KeyWord &k : kKeys) {
        const QLatin1String word(k.word);
        if (k.wholeKey ? key == word : key.startsWith(word)) {
            match = &k;
            break;
        }
    }
    if (!match) return;

    const bool notFalse = !value.contains(QLatin1String("false"));
    switch (match->key) {
    case Key::Width: applyInt32(value, p.width); break;
    case Key::Height: applyInt32(value, p.height); break;
    case Key::FrameRate:
        if (const auto v = leadingDecimal(value)) p.frameRate = *v;
        break;
    case Key::Offset:
        // A negative offset has no meaning; one past 4 GiB does not fit the record.
        if (const auto v = leadingInteger(value, std::numeric_limits<uint32_t>::max()); v && *v >= 0)
            p.headerBytes = uint32_t(*v);
        break;
    case Key::Format:
        for (const FormatWord &w : kFormatWords) {
            if (value.contains(QLatin1String(w.word))) {
                p.format = w.format;
                break;
            }
        }
        break;
    case Key::Bits:
    case Key::BitDepth: applyInt32(value, p.bitDepth); break;
    case Key::Anamorphic: p.anamorphic = notFalse; break;
    case Key::Flipped: p.flipped = notFalse; break;
    case Key::Interlaced: p.interlaced = notFalse; break;
    case Key::Stride:
    case Key::PlaneOffsets: {
        // Up to four byte counts; anything unreadable leaves the record as it was.
        std::array<uint64_t, 4> v{};
        const QStringList parts = value.split(u',');
        if (parts.size() > 4) break;
        bool ok = true;
        for (qsizetype i = 0; i < parts.size() && ok; ++i) {
            const auto n =
                leadingInteger(parts[i].trimmed(),
                               match->key == Key::Stride ? std::numeric_limits<int32_t>::max() : (int64_t(1) << 40));
            ok = n && *n >= 0;
            if (ok) v[size_t(i)] = uint64_t(*n);
        }
        if (!ok) break;
        for (size_t i = 0; i < 4; ++i) {
            if (match->key == Key::Stride)
                p.planeStride[i] = uint32_t(v[i]);
            else
                p.planeOffset[i] = v[i];
        }
        break;
    }
    }
}

QString withoutExtension(const QString &s)
{
    const qsizetype dot = s.lastIndexOf(u'.');
    return dot < 0 ? s : s.left(dot);
}

} // namespace

QStringList sideFileCandidates(const QString &videoPath)
{
    if (videoPath.size() < 4) return {};
    const QString first = withoutExtension(videoPath) + QLatin1String(".hdr");

    // The hidden candidate splits at the pair "/\", not at either separator alone; the directory keeps
    // the "/" and the base drops the "\". Without the pair both parts are empty and the candidate is
    // "..hdr" in the current directory. Existing setups depend on exactly this, so it is not generalised.
    QString dir, base;
    const qsizetype split = videoPath.lastIndexOf(QLatin1String("/\\"));
    if (split >= 0) {
        dir = videoPath.left(split + 1);
        base = withoutExtension(videoPath.mid(split + 2));
    }
    return {first, dir + u'.' + base + QLatin1String(".hdr")};
}

void applySideFile(const QByteArray &text, VideoProps &p)
{
    p.bitDepth = 8;
    QByteArray bytes = text;
    if (bytes.size() > kMaxSideFileBytes) {
        // Drop the line the cap cut through, so that "width=1920" never turns into "width=19".
        bytes.truncate(kMaxSideFileBytes);
        const qsizetype lastLf = bytes.lastIndexOf('\n');
        bytes.truncate(lastLf < 0 ? 0 : lastLf);
    }
    // Lines end at a line feed only; a carriage return stays part of the value.
    for (const QByteArray &line : bytes.split('\n')) applyLine(QString::fromUtf8(line).toLower(), p);
}

bool readSideFile(const QString &videoPath, VideoProps &p)
{
    for (const QString &candidate : sideFileCandidates(videoPath)) {
        // Regular files only: a FIFO or device under the side file's name would block or never end.
        if (!QFileInfo(candidate).isFile()) continue;
        QFile f(candidate);
        if (!f.open(QIODevice::ReadOnly)) continue;
        applySideFile(f.read(kMaxSideFileBytes + 1), p);
        return true;
    }
    return false;
}

} // namespace kavri
