#include "cli/SequenceOptions.h"

#include "formats/FormatNames.h"
#include "formats/FormatSource.h"
#include "formats/FrameSize.h"
#include "formats/StreamPath.h"
#include "formats/Validation.h"

#include <QFile>
#include <limits>

namespace kavri::cli {

std::vector<OptionSpec> formatOptionSpecs()
{
    return {
        {"-w", "--width", "N", "luma width in pixels"},
        {"-h", "--height", "N", "luma height in pixels"},
        {"-r", "--rate", "R", "frames per second"},
        {"-f", "--format", "KEYWORD",
         "layout: yuv420 yuv422 yuv444 yuv410 yuv411 uyvy yuyv yuy2 nv12 v210 rgb "
         "rgba bgr bgra rgbp rgbap rbgp rbgap bgrp bgrap brgp brgap grbp grbap gbrp "
         "gbrap luma, and the further layouts 'kavri-cli formats' lists (nv21 p010 y210 x2rgb10 rggb ...)"},
        {nullptr, "--bits", "N", "significant bits per sample, 1..16"},
        {nullptr, "--container", "8|16", "storage bits per sample"},
        {nullptr, "--header", "N", "bytes to skip before the first frame"},
        {nullptr, "--signed", nullptr, "samples are two's-complement signed"},
        {nullptr, "--flip", nullptr, "rows are stored bottom-up"},
        {nullptr, "--swap-uv", nullptr, "exchange U and V"},
        {nullptr, "--toggle-endian", nullptr, "read 16-bit containers with the opposite byte order"},
        {nullptr, "--interlaced", nullptr, "the content is interlaced"},
        {nullptr, "--no-remembered", nullptr, "ignore the format remembered for this file"},
        {nullptr, "--stride", "BYTES[,BYTES...]", "row stride of each plane in bytes (0 or absent: packed rows)"},
        {nullptr, "--plane-offsets", "BYTES[,BYTES...]",
         "where each plane starts, in bytes from the frame's start (0 or absent: after the plane before)"},
        {nullptr, "--matrix", "M", "colour matrix: default bt601 bt709 bt2020 smpte240m ycgco"},
        {nullptr, "--range", "R", "code range: full limited"},
        {nullptr, "--chroma", "S", "chroma siting: nearest left center topleft"},
        {nullptr, "--transfer", "T", "transfer: sdr pq hlg (PQ and HLG tone-mapped for an SDR display)"},
        {nullptr, "--peak", "NITS", "peak of PQ/HLG material in cd/m2, 100..10000 (default 1000)"},
    };
}

namespace {

// "1024,512,512": up to four byte counts, one a plane.
template <typename T>
std::array<T, 4> byteList(const ParsedArgs &a, const char *option, uint64_t largest)
{
    std::array<uint64_t, 4> v{};
    if (!parsePlaneBytes(a.value(option), largest, v))
        throw UsageError(QStringLiteral("option '%1' needs up to four byte counts of at most %2, not '%3'")
                             .arg(QLatin1String(option))
                             .arg(largest)
                             .arg(a.value(option))
                             .toStdString());
    std::array<T, 4> out{};
    for (size_t i = 0; i < 4; ++i) out[i] = T(v[i]);
    return out;
}

} // namespace

void applyFormatOptions(const ParsedArgs &a, VideoProps &p)
{
    constexpr int kMaxInt = std::numeric_limits<int32_t>::max();
    const int w = a.intValue("--width", 0, 0, kMaxInt);
    const int h = a.intValue("--height", 0, 0, kMaxInt);
    const double rate = a.doubleValue("--rate", -1.0, 0.0, 1e6);
    if (w > 0 && h > 0) {
        p.width = w;
        p.height = h;
    }
    if (rate > 0) p.frameRate = rate;
    if (a.has("--format")) {
        const videoFormat_t f = formatFromKeyword(a.value("--format"));
        if (f == FMT_UNKNOWN)
            throw UsageError(
                ("unknown format keyword '" + a.value("--format") + "' for option '--format'").toStdString());
        p.format = f;
    }
    if (a.has("--bits")) p.bitDepth = a.intValue("--bits", 8, 1, 16);
    if (a.has("--container")) {
        const int c = a.intValue("--container", 8, 8, 16);
        if (c != 8 && c != 16) throw UsageError("option '--container' takes 8 or 16");
        p.containerBits = c;
    } else if (a.has("--bits")) {
        // Let validation pick the container that holds the given depth.
        p.containerBits = 0;
    }
    if (a.has("--header"))
        p.headerBytes = uint32_t(a.int64Value("--header", 0, 0, std::numeric_limits<uint32_t>::max()));
    if (a.has("--signed")) p.signedValues = true;
    if (a.has("--flip")) p.flipped = true;
    if (a.has("--swap-uv")) p.swapUV = true;
    if (a.has("--toggle-endian")) p.toggleEndianness = true;
    if (a.has("--interlaced")) p.interlaced = true;
    if (a.has("--stride")) p.planeStride = byteList<uint32_t>(a, "--stride", std::numeric_limits<int32_t>::max());
    if (a.has("--plane-offsets")) p.planeOffset = byteList<uint64_t>(a, "--plane-offsets", uint64_t(1) << 40);
    colourOverrides(a).applyTo(p.colour);
}

ColourOverrides colourOverrides(const ParsedArgs &a)
{
    ColourOverrides o;
    const auto keywordOf = [&](const char *option, auto parse, const char *allowed) {
        const auto v = parse(a.value(option));
        if (!v)
            throw UsageError(("unknown value '" + a.value(option) + "' for option '" + option + "' (" + allowed + ")")
                                 .toStdString());
        return *v;
    };
    if (a.has("--matrix"))
        o.matrix = keywordOf("--matrix", matrixFromKeyword, "default bt601 bt709 bt2020 smpte240m ycgco");
    if (a.has("--range")) o.range = keywordOf("--range", rangeFromKeyword, "full limited");
    if (a.has("--chroma")) o.chroma = keywordOf("--chroma", chromaFromKeyword, "nearest left center topleft");
    if (a.has("--transfer")) o.transfer = keywordOf("--transfer", transferFromKeyword, "sdr pq hlg");
    if (a.has("--peak")) o.peakNits = a.intValue("--peak", kDefaultPeakNits, kMinPeakNits, kMaxPeakNits);
    return o;
}

namespace {
bool probe(const QString &path, QString &error)
{
    // A stream is opened later, without waiting for its writer; opening it here would wait.
    if (isStreamPath(path)) return true;
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("cannot open '%1': %2").arg(path, f.errorString());
        return false;
    }
    return true;
}
} // namespace

bool openSequence(const ParsedArgs &args, const QString &file, const QString &diff, OpenedSequence &out, QString &error)
{
    // Check the options before touching any file, so that a usage error is reported as one.
    VideoProps scratch;
    applyFormatOptions(args, scratch);
    if (!probe(file, error)) return false;
    if (!diff.isEmpty() && !probe(diff, error)) return false;
    ResolvedFormat r = resolvePair(file, diff, !args.has("--no-remembered"));
    if (!r.error.isEmpty()) {
        error = QStringLiteral("'%1' cannot be read: %2").arg(file, r.error);
        return false;
    }
    out.props = r.props;
    out.source = r.source;
    out.colourSource = r.colourSource;
    applyFormatOptions(args, out.props);
    if (colourOverrides(args).any()) out.colourSource = QStringLiteral("option");
    out.props.fileName = file;
    out.props.diffFileName = diff;
    out.mask = validateProps(out.props);
    return true;
}

QString unplayableReason(const VideoProps &p, uint32_t mask)
{
    if (isPlayable(mask)) return {};
    if (!(mask & kWidthKnown) || !(mask & kHeightKnown))
        return QStringLiteral("the frame size is not known (give -w and -h)");
    if (!(mask & kDepthSettled)) return QStringLiteral("a bit depth of %1 is not supported (1..16)").arg(p.bitDepth);
    if (p.format == FMT_UNKNOWN) return QStringLiteral("the layout is not known (give -f)");
    if (p.frameBytes == 0 && hasPlaneGeometry(p) && frameBytes(p.format, p.containerBits, p.width, p.height) != 0)
        return QStringLiteral("a plane stride is shorter than a row of its plane, or the planes lie beyond 4 GiB");
    if (p.frameBytes == 0)
        return QStringLiteral("a %1x%2 frame of %3 at %4 bits is too large (over 4 GiB)")
            .arg(p.width)
            .arg(p.height)
            .arg(shortName(p.format))
            .arg(p.containerBits);
    if (!displayPictureFits(p.width, p.height)) return pictureTooWideText(p.width, p.height);
    if (p.frameHeaderBytes > 0)
        return QStringLiteral("the file holds no whole frame of %1 bytes (and its %2-byte FRAME line) after a "
                              "%3-byte header")
            .arg(p.frameBytes)
            .arg(p.frameHeaderBytes)
            .arg(p.headerBytes);
    return QStringLiteral("the file holds no whole frame of %1 bytes after a %2-byte header")
        .arg(p.frameBytes)
        .arg(p.headerBytes);
}

QString singleFileArgument(const ParsedArgs &args)
{
    if (args.positionals().isEmpty()) throw UsageError("missing FILE");
    if (args.positionals().size() > 1)
        throw UsageError(("unexpected argument '" + args.positionals()[1] + "'").toStdString());
    return args.positionals().first();
}

} // namespace kavri::cli
