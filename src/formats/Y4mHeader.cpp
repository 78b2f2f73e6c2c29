#include "formats/Y4mHeader.h"

#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/Validation.h"

#include <QFile>
#include <QFileInfo>
#include <cmath>
#include <limits>

namespace kavri {

namespace {

constexpr qsizetype kSignatureLength = sizeof(kY4mSignature) - 1;

// The 8-bit tags; deeper samples are written "<sampling>p<depth>" ("420p10") or "mono<depth>".
struct ColourTag {
    const char *tag;
    videoFormat_t layout;
};
constexpr ColourTag kEightBitTags[] = {
    {"420jpeg", YUV_p420}, {"420paldv", YUV_p420}, {"420mpeg2", YUV_p420}, {"420", YUV_p420},
    {"422", YUV_p422},     {"444", YUV_p444},      {"411", YUV_p411},      {"mono", BW},
};
// Samplings that also come deeper than 8 bits, with the layout each stands for.
constexpr ColourTag kDeepSamplings[] = {{"420", YUV_p420}, {"422", YUV_p422}, {"444", YUV_p444}};

// A depth written after a tag: 9..16, digits only.
std::optional<int32_t> depthOf(const QByteArray &digits)
{
    if (digits.isEmpty() || digits.size() > 2) return std::nullopt;
    for (char c : digits)
        if (c < '0' || c > '9') return std::nullopt;
    const int32_t d = digits.toInt();
    if (d < 9 || d > kMaxBitDepth) return std::nullopt;
    return d;
}

bool layoutOfTag(const QByteArray &tag, videoFormat_t &layout, int32_t &depth)
{
    for (const ColourTag &t : kEightBitTags) {
        if (tag == t.tag) {
            layout = t.layout;
            depth = 8;
            return true;
        }
    }
    if (tag.startsWith("mono")) {
        if (const auto d = depthOf(tag.mid(4))) {
            layout = BW;
            depth = *d;
            return true;
        }
        return false;
    }
    for (const ColourTag &t : kDeepSamplings) {
        const QByteArray prefix = QByteArray(t.tag) + 'p';
        if (!tag.startsWith(prefix)) continue;
        if (const auto d = depthOf(tag.mid(prefix.size()))) {
            layout = t.layout;
            depth = *d;
            return true;
        }
    }
    return false;
}

// A whole decimal number of at most nine digits (so any value fits an int32 and nothing overflows).
std::optional<int64_t> wholeNumber(const QByteArray &text)
{
    if (text.isEmpty() || text.size() > 9) return std::nullopt;
    for (char c : text)
        if (c < '0' || c > '9') return std::nullopt;
    return text.toLongLong();
}

// "N:D" with two whole numbers.
bool ratioOf(const QByteArray &text, int64_t &num, int64_t &den)
{
    const qsizetype colon = text.indexOf(':');
    if (colon < 0) return false;
    const auto n = wholeNumber(text.left(colon));
    const auto d = wholeNumber(text.mid(colon + 1));
    if (!n || !d) return false;
    num = *n;
    den = *d;
    return true;
}

Y4mParse failure(const QString &why)
{
    Y4mParse p;
    p.error = why;
    return p;
}

QString quoted(const QByteArray &token)
{
    // A token is shown as text only as far as it is printable; a damaged header shows as such.
    QString s;
    for (char c : token.left(40)) s += (c >= 0x20 && c < 0x7f) ? QChar(c) : QChar('?');
    if (token.size() > 40) s += QStringLiteral("...");
    return QStringLiteral("'%1'").arg(s);
}

// Samples of one plane at a subsampling of 2^shift, rounded up as the format stores odd sizes.
int64_t subsampled(int64_t size, int shift) { return (size + (int64_t(1) << shift) - 1) >> shift; }

} // namespace

bool hasY4mSignature(const QByteArray &bytes) { return bytes.startsWith(kY4mSignature); }

uint64_t y4mFrameBytes(const Y4mHeader &h)
{
    if (h.width <= 0 || h.height <= 0 || !isValidFormat(h.layout)) return 0;
    const LayoutInfo &info = layoutInfo(h.layout);
    const int64_t sample = h.bitDepth > 8 ? 2 : 1;
    const int64_t luma = int64_t(h.width) * h.height;
    int64_t total = luma;
    if (info.kind == LayoutKind::PlanarYuv)
        total += 2 * subsampled(h.width, info.chromaShiftX) * subsampled(h.height, info.chromaShiftY);
    total *= sample;
    return total > int64_t(std::numeric_limits<uint32_t>::max()) ? 0 : uint64_t(total);
}

Y4mParse parseY4mHeader(const QByteArray &bytes)
{
    if (!hasY4mSignature(bytes)) return failure(QStringLiteral("the file does not start with \"YUV4MPEG2 \""));
    const qsizetype end = bytes.indexOf('\n');
    if (end < 0 || end >= kMaxY4mHeaderBytes) {
        if (bytes.size() >= kMaxY4mHeaderBytes)
            return failure(QStringLiteral("the y4m header line does not end within %1 bytes").arg(kMaxY4mHeaderBytes));
        return failure(QStringLiteral("the y4m header line is cut short (it has no newline)"));
    }

    Y4mHeader h;
    bool haveWidth = false, haveHeight = false;
    const QList<QByteArray> tokens = bytes.mid(kSignatureLength, end - kSignatureLength).split(' ');
    for (const QByteArray &token : tokens) {
        if (token.isEmpty()) continue; // a doubled blank separates nothing
        const QByteArray value = token.mid(1);
        switch (token[0]) {
        case 'W':
        case 'H': {
            const auto n = wholeNumber(value);
            if (!n || *n < 1)
                return failure(QStringLiteral("the y4m %1 %2 is not a positive number")
                                   .arg(token[0] == 'W' ? QStringLiteral("width") : QStringLiteral("height"))
                                   .arg(quoted(token)));
            (token[0] == 'W' ? h.width : h.height) = int32_t(*n);
            (token[0] == 'W' ? haveWidth : haveHeight) = true;
            break;
        }
        case 'F':
            if (!ratioOf(value, h.rateNum, h.rateDen) || (h.rateDen == 0) != (h.rateNum == 0))
                return failure(
                    QStringLiteral("the y4m frame rate %1 is not a rate (N:D, or 0:0 for unknown)").arg(quoted(token)));
            if (h.rateDen > 0 && double(h.rateNum) / double(h.rateDen) > kMaxFrameRate)
                return failure(QStringLiteral("the y4m frame rate %1 is above %2 frames a second")
                                   .arg(quoted(token))
                                   .arg(kMaxFrameRate));
            break;
        case 'I':
            if (value.size() != 1 || !QByteArray("ptbm?").contains(value[0]))
                return failure(QStringLiteral("the y4m interlacing %1 is none of Ip, It, Ib, Im").arg(quoted(token)));
            h.interlace = value[0] == '?' ? 'p' : value[0];
            break;
        case 'A':
            if (!ratioOf(value, h.aspectNum, h.aspectDen) || (h.aspectDen == 0) != (h.aspectNum == 0))
                return failure(QStringLiteral("the y4m pixel aspect %1 is not a ratio (N:D, or 0:0 for unknown)")
                                   .arg(quoted(token)));
            break;
        case 'C':
            if (value == "444alpha")
                return failure(QStringLiteral("y4m colour 444alpha (with an alpha plane) has no layout here"));
            if (!layoutOfTag(value, h.layout, h.bitDepth))
                return failure(QStringLiteral("the y4m colour %1 is not one this program reads").arg(quoted(token)));
            h.colour = value;
            break;
        case 'X':
            h.comments.append(value);
            if (value.startsWith("COLORRANGE=")) h.colourRange = value.mid(11);
            break;
        default: break; // a parameter of a later kind; nothing here depends on it
        }
    }
    if (!haveWidth || !haveHeight)
        return failure(QStringLiteral("the y4m header gives no %1").arg(!haveWidth ? "width (W)" : "height (H)"));

    const uint64_t stored = y4mFrameBytes(h);
    if (stored == 0 || stored + kY4mFrameHeaderBytes > std::numeric_limits<uint32_t>::max())
        return failure(QStringLiteral("a %1x%2 y4m frame is too large (over 4 GiB)").arg(h.width).arg(h.height));
    // The layouts cut odd chroma planes where the format rounds them up; such a frame would be misread.
    if (frameBytes(h.layout, containerBitsFor(h.bitDepth), h.width, h.height) != stored)
        return failure(QStringLiteral("a %1x%2 y4m frame in colour %3 has chroma planes of a size this program "
                                      "cannot read (an odd size)")
                           .arg(h.width)
                           .arg(h.height)
                           .arg(QString::fromLatin1(h.colour)));
    h.headerBytes = uint32_t(end + 1);
    Y4mParse p;
    p.header = h;
    return p;
}

void applyY4mHeader(const Y4mHeader &h, VideoProps &p)
{
    p.format = h.layout;
    p.width = h.width;
    p.height = h.height;
    p.frameRate = h.rateDen > 0 ? double(h.rateNum) / double(h.rateDen) : -1.0;
    p.bitDepth = h.bitDepth;
    p.containerBits = containerBitsFor(h.bitDepth);
    p.signedValues = false;
    p.toggleEndianness = false;
    p.flipped = false;
    p.swapUV = false;
    p.interlaced = h.interlace != 'p';
    p.headerBytes = h.headerBytes;
    p.frameHeaderBytes = kY4mFrameHeaderBytes;
    // The encoders' range comment: the samples' code range, read through the usual matrix.
    if (h.colourRange.compare("LIMITED", Qt::CaseInsensitive) == 0) p.colour.range = kavri::ColourRange::Limited;
    if (h.colourRange.compare("FULL", Qt::CaseInsensitive) == 0) p.colour.range = kavri::ColourRange::Full;
}

QByteArray y4mColourTag(videoFormat_t layout, int32_t bitDepth)
{
    if (bitDepth == 8) {
        switch (layout) {
        case YUV_p420: return "420jpeg";
        case YUV_p422: return "422";
        case YUV_p444: return "444";
        case YUV_p411: return "411";
        case BW: return "mono";
        default: return {};
        }
    }
    if (bitDepth < 9 || bitDepth > kMaxBitDepth) return {};
    const QByteArray depth = QByteArray::number(bitDepth);
    switch (layout) {
    case YUV_p420: return "420p" + depth;
    case YUV_p422: return "422p" + depth;
    case YUV_p444: return "444p" + depth;
    case BW: return "mono" + depth;
    default: return {};
    }
}

namespace {

// The rate as the fraction a header carries: whole rates over 1, the NTSC family over 1001, and
// anything else to a millionth.
void rateFraction(double rate, int64_t &num, int64_t &den)
{
    num = den = 0;
    if (!(rate > 0) || !std::isfinite(rate)) return;
    const auto exact = [](double v) { return std::fabs(v - std::round(v)) < 1e-6; };
    if (exact(rate)) {
        num = int64_t(std::llround(rate));
        den = 1;
    } else if (exact(rate * 1001.0)) {
        num = int64_t(std::llround(rate * 1001.0));
        den = 1001;
    } else if (exact(rate * 1000.0)) {
        num = int64_t(std::llround(rate * 1000.0));
        den = 1000;
    } else {
        num = int64_t(std::llround(rate * 1000000.0));
        den = 1000000;
    }
}

} // namespace

QByteArray y4mStreamHeader(const VideoProps &p, QString *refusal)
{
    auto refuse = [refusal](const QString &why) {
        if (refusal) *refusal = why;
        return QByteArray();
    };
    const QByteArray colour = y4mColourTag(p.format, p.bitDepth);
    if (colour.isEmpty()) {
        const QString layout =
            isValidFormat(p.format) ? QString::fromLatin1(layoutInfo(p.format).displayName) : QStringLiteral("unknown");
        return refuse(QStringLiteral("a y4m file cannot hold %1 at %2 bits (it holds planar 4:2:0, 4:2:2, "
                                     "4:4:4 and luma at 8 to 16 bits, and 4:1:1 at 8 bits)")
                          .arg(layout.simplified())
                          .arg(p.bitDepth));
    }
    if (p.containerBits != containerBitsFor(p.bitDepth))
        return refuse(QStringLiteral("a y4m file stores %1-bit samples in %2-bit words, not in %3-bit ones")
                          .arg(p.bitDepth)
                          .arg(containerBitsFor(p.bitDepth))
                          .arg(p.containerBits));
    if (p.signedValues) return refuse(QStringLiteral("a y4m file cannot hold signed samples"));
    if (p.toggleEndianness && p.containerBits > 8)
        return refuse(QStringLiteral("a y4m file holds little-endian samples; these are stored the other way round"));
    if (p.flipped) return refuse(QStringLiteral("a y4m file stores rows top down; these are stored bottom up"));
    if (p.swapUV) return refuse(QStringLiteral("a y4m file stores U before V; these are stored the other way round"));
    Y4mHeader h;
    h.width = p.width;
    h.height = p.height;
    h.layout = p.format;
    h.bitDepth = p.bitDepth;
    if (frameBytes(p.format, p.containerBits, p.width, p.height) != y4mFrameBytes(h) || y4mFrameBytes(h) == 0)
        return refuse(QStringLiteral("a y4m file stores the chroma planes of a %1x%2 frame at another size")
                          .arg(p.width)
                          .arg(p.height));

    return y4mHeaderLine(p);
}

QByteArray y4mHeaderLine(const VideoProps &p)
{
    const QByteArray colour = y4mColourTag(p.format, p.bitDepth);
    if (colour.isEmpty()) return {};
    int64_t num = 0, den = 0;
    rateFraction(p.frameRate, num, den);
    QByteArray line = kY4mSignature;
    line += "W" + QByteArray::number(p.width) + " H" + QByteArray::number(p.height);
    line += " F" + QByteArray::number(num) + ':' + QByteArray::number(den);
    // The record says only whether the content is interlaced, not which field comes first; top first is
    // the usual order of such material.
    line += p.interlaced ? " It" : " Ip";
    // An anamorphic record is shown stretched, by an amount the record does not keep as a pixel ratio.
    line += p.anamorphic ? " A0:0" : " A1:1";
    line += " C" + colour + '\n';
    return line;
}

namespace {

// The line at `at`, without its newline; empty with `ended` false when the file ends first or the line
// runs on past kMaxY4mFrameLineBytes.
QByteArray frameLineAt(QFile &f, uint64_t at, bool &ended)
{
    ended = false;
    if (!f.seek(qint64(at))) return {};
    const QByteArray bytes = f.read(kMaxY4mFrameLineBytes);
    const qsizetype nl = bytes.indexOf('\n');
    if (nl < 0) return bytes;
    ended = true;
    return bytes.left(nl);
}

QString damagedAt(uint64_t frame)
{
    return QStringLiteral("frame %1 of the y4m file does not start with a FRAME line where its header puts it "
                          "(the file is damaged)")
        .arg(frame);
}

} // namespace

Y4mFrameScan scanY4mFrames(const QString &path, uint32_t headerBytes, uint32_t frameBytes)
{
    Y4mFrameScan scan;
    QFile f(path);
    if (frameBytes == 0 || !f.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) return scan;
    const uint64_t size = uint64_t(std::max<qint64>(f.size(), 0));
    const uint64_t stride = uint64_t(frameBytes) + kY4mFrameHeaderBytes;
    const uint64_t evenly = size > headerBytes ? (size - headerBytes) / stride : 0;

    // The usual file: every line plain, checked with one small read a frame.
    uint64_t first = evenly;
    char line[kY4mFrameHeaderBytes];
    for (uint64_t i = 0; i < evenly; ++i) {
        const uint64_t at = framePrefixOffset(headerBytes, kY4mFrameHeaderBytes, frameBytes, i);
        if (!f.seek(qint64(at)) || f.read(line, sizeof line) != qint64(sizeof line) ||
            QByteArray(line, sizeof line) != "FRAME\n") {
            first = i;
            break;
        }
    }
    if (first == evenly) return scan;

    // From the first other line on, each line's own length says where its frame and the next line start.
    auto starts = std::make_shared<std::vector<uint64_t>>();
    starts->reserve(size_t(first) + 1);
    for (uint64_t i = 0; i < first; ++i)
        starts->push_back(frameOffset(headerBytes, kY4mFrameHeaderBytes, frameBytes, i));
    uint64_t at = framePrefixOffset(headerBytes, kY4mFrameHeaderBytes, frameBytes, first);
    while (at < size) {
        bool ended = false;
        const QByteArray text = frameLineAt(f, at, ended);
        const uint64_t frame = starts->size();
        if (!ended) {
            // A line cut by the end of the file belongs to a frame cut short; a line that runs on is not one.
            if (qint64(size - at) < kMaxY4mFrameLineBytes) break;
            scan.error = QStringLiteral("the FRAME line of frame %1 of the y4m file does not end within %2 bytes")
                             .arg(frame)
                             .arg(kMaxY4mFrameLineBytes);
            return scan;
        }
        if (!text.startsWith("FRAME") || (text.size() > 5 && text[5] != ' ')) {
            scan.error = damagedAt(frame);
            return scan;
        }
        const uint64_t data = at + uint64_t(text.size()) + 1;
        if (data + frameBytes > size) break;
        starts->push_back(data);
        at = data + frameBytes;
    }
    scan.starts = std::move(starts);
    return scan;
}

bool readY4mFile(const QString &path, VideoProps &props, QString &error, Y4mHeader *header)
{
    error.clear();
    // Regular files only: reading the start of a pipe would take bytes away from the frames.
    if (!QFileInfo(path).isFile()) return false;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return false;
    const QByteArray bytes = f.read(kMaxY4mHeaderBytes);
    if (!hasY4mSignature(bytes)) return false;
    const Y4mParse parsed = parseY4mHeader(bytes);
    if (!parsed.header) {
        error = parsed.error;
        return true;
    }
    const Y4mHeader &h = *parsed.header;
    Y4mFrameScan scan = scanY4mFrames(path, h.headerBytes, uint32_t(y4mFrameBytes(h)));
    error = scan.error;
    if (!error.isEmpty()) return true;
    applyY4mHeader(h, props);
    props.frameStarts = std::move(scan.starts);
    if (header) *header = h;
    return true;
}

SecondPlacement secondFilePlacement(const VideoProps &first, const QString &secondPath)
{
    SecondPlacement place;
    VideoProps second;
    QString error;
    if (!readY4mFile(secondPath, second, error)) {
        place.headerBytes = first.frameHeaderBytes > 0 ? 0 : first.headerBytes;
        return place;
    }
    if (!error.isEmpty()) {
        place.error = QStringLiteral("'%1' cannot be read: %2").arg(secondPath, error);
        return place;
    }
    VideoProps record = first;
    normaliseContainer(record);
    const uint32_t expected = frameBytes(record.format, record.containerBits, record.width, record.height);
    const uint32_t stored = frameBytes(second.format, second.containerBits, second.width, second.height);
    // A record still without a size has nothing to compare with; it is not playable anyway.
    if (expected != 0 && expected != stored)
        place.error = QStringLiteral("the frames of the y4m file '%1' (%2x%3 %4, %5 bytes) are not of the size of "
                                     "the first file's (%6 bytes)")
                          .arg(secondPath)
                          .arg(second.width)
                          .arg(second.height)
                          .arg(QString::fromLatin1(y4mColourTag(second.format, second.bitDepth)))
                          .arg(stored)
                          .arg(expected);
    place.headerBytes = second.headerBytes;
    place.frameHeaderBytes = second.frameHeaderBytes;
    place.starts = second.frameStarts;
    return place;
}

} // namespace kavri
