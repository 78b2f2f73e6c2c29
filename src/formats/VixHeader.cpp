#include "formats/VixHeader.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <limits>
#include <optional>

namespace kavri {

namespace {

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// White-space separated tokens after the magic, with the byte position just past the last one taken.
class TokenStream {
public:
    TokenStream(const QByteArray &bytes, bool wholeFile) : m_bytes(bytes), m_wholeFile(wholeFile) {}

    std::optional<QByteArray> next()
    {
        const qsizetype end = m_bytes.size();
        while (m_pos < end && isSpace(m_bytes[m_pos])) ++m_pos;
        if (m_pos >= end || ++m_count > kMaxVixTokens) return std::nullopt;
        const qsizetype start = m_pos;
        while (m_pos < end && !isSpace(m_bytes[m_pos])) ++m_pos;
        // A token running into the end of a partial read may have lost its tail ("1920" read as "19").
        if (m_pos == end && !m_wholeFile) return std::nullopt;
        return m_bytes.mid(start, m_pos - start);
    }

    std::optional<int32_t> nextInt()
    {
        const auto t = next();
        if (!t) return std::nullopt;
        bool ok = false;
        const qlonglong v = t->toLongLong(&ok, 10);
        if (!ok || v < std::numeric_limits<int32_t>::min() || v > std::numeric_limits<int32_t>::max())
            return std::nullopt;
        return int32_t(v);
    }

    std::optional<double> nextDouble()
    {
        const auto t = next();
        if (!t) return std::nullopt;
        bool ok = false;
        const double v = t->toDouble(&ok);
        if (!ok || !std::isfinite(v)) return std::nullopt;
        return v;
    }

    qsizetype position() const { return m_pos; }

private:
    const QByteArray &m_bytes;
    const bool m_wholeFile;
    qsizetype m_pos = 3; // just past the magic
    int m_count = 0;
};

// Layout of a YCbCr picture from the chroma subsampling factors; FMT_UNKNOWN for pairs we cannot show.
videoFormat_t ycbcrLayout(int32_t a, int32_t b)
{
    struct Pair {
        int32_t a, b;
        videoFormat_t format;
    };
    constexpr Pair kPairs[] = {
        {2, 2, YUV_p420}, {1, 2, YUV_p422}, {1, 1, YUV_p444}, {4, 2, YUV_p410}, {4, 1, YUV_p411},
    };
    for (const Pair &p : kPairs)
        if (p.a == a && p.b == b) return p.format;
    return FMT_UNKNOWN;
}

} // namespace

bool parseVixHeader(const QByteArray &bytes, bool wholeFile, VideoProps &props)
{
    if (!bytes.startsWith("vix")) return false;
    TokenStream in(bytes, wholeFile);
    bool ycbcr = false;
    std::optional<double> rate;

    while (const auto token = in.next()) {
        if (*token == ">VIDEO<") {
            rate = in.nextDouble();
            // The frame count that follows is not used: the count always comes from the file size.
            if (!rate || !in.nextDouble()) return false;
        } else if (*token == ">COLOUR<" || *token == ">COLOR<") {
            const auto space = in.next();
            if (!space) return false;
            ycbcr = *space == "YCbCr";
        } else if (*token == ">IMAGE<") {
            const auto sign = in.next();
            const auto container = in.next();
            if (!sign || !container) return false;
            // 32-bit sample containers are not supported by any reader of ours.
            if (*container == "dword") return false;
            const int32_t containerBits = *container == "word" ? 16 : 8;
            const auto depth = in.nextInt();
            const auto order = in.next();
            if (!depth || !order || *order != "little-endian") return false;
            const auto width = in.nextInt();
            const auto height = in.nextInt();
            const auto components = in.nextInt();
            if (!width || !height || !components || (*components != 1 && *components != 3)) return false;
            const auto one1 = in.nextInt();
            const auto one2 = in.nextInt();
            if (!one1 || !one2 || *one1 != 1 || *one2 != 1) return false;
            const auto a = in.nextInt();
            const auto b = in.nextInt();
            const auto a2 = in.nextInt();
            const auto b2 = in.nextInt();
            if (!a || !b || !a2 || !b2 || *a2 != *a || *b2 != *b) return false;
            const videoFormat_t layout = ycbcr ? ycbcrLayout(*a, *b) : (*a == 1 && *b == 1 ? RGB_planar : FMT_UNKNOWN);
            if (layout == FMT_UNKNOWN) return false;

            props.format = layout;
            props.width = *width;
            props.height = *height;
            props.bitDepth = *depth;
            props.containerBits = containerBits;
            props.signedValues = *sign == "signed";
            if (rate) props.frameRate = *rate;
            // Frame data starts after the one separator that follows the last number.
            props.headerBytes = uint32_t(in.position() + 1);
            return true;
        }
    }
    return false;
}

bool readVixHeader(const QString &path, VideoProps &props)
{
    // Regular files only: reading the start of a pipe would take bytes away from the frames.
    if (!QFileInfo(path).isFile()) return false;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return false;
    const QByteArray bytes = f.read(kMaxVixHeaderBytes);
    return parseVixHeader(bytes, f.atEnd(), props);
}

} // namespace kavri
