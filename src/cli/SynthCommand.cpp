// kavri-cli synth: writes the test pattern as a raw sequence in any layout, depth and byte order.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "formats/FormatNames.h"
#include "formats/PixelDescriptor.h"
#include "pixel/PatternGenerator.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStorageInfo>
#include <vector>

namespace kavri::cli {

namespace {

// Beyond these a "frame" is almost certainly a typing mistake, and writing it would fill the disk.
constexpr int kMaxSide = 32768;
constexpr int kMaxFrames = 1000000;
constexpr uint32_t kMaxFrameBytes = 1u << 30;

PatternSpec specFrom(const ParsedArgs &a)
{
    PatternSpec s;
    if (!a.has("--format")) throw UsageError("missing '-f KEYWORD'");
    s.layout = formatFromKeyword(a.value("--format"));
    if (s.layout == FMT_UNKNOWN)
        throw UsageError(("unknown format keyword '" + a.value("--format") + "' for option '--format'").toStdString());
    if (!a.has("--size")) throw UsageError("missing '--size WxH'");
    static const QRegularExpression kSize(QStringLiteral("^(\\d{1,9})x(\\d{1,9})$"));
    const auto m = kSize.match(a.value("--size"));
    if (!m.hasMatch()) throw UsageError(("option '--size' needs WxH, not '" + a.value("--size") + "'").toStdString());
    const long long w = m.captured(1).toLongLong(), h = m.captured(2).toLongLong();
    if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide)
        throw UsageError(QStringLiteral("a %1x%2 frame is refused: width and height must be 1..%3")
                             .arg(w)
                             .arg(h)
                             .arg(kMaxSide)
                             .toStdString());
    s.width = int32_t(w);
    s.height = int32_t(h);
    const bool v210 = s.layout == YUV_v210;
    // A layout that names its depth (P010, Y210, ...) is written at that depth unless told otherwise.
    const int32_t ownDepth = v210 ? 10 : pixelDescriptor(s.layout)->fixedDepth;
    s.bits = a.intValue("--bits", ownDepth ? ownDepth : 8, 1, 16);
    const int smallest = s.bits <= 8 ? 8 : 16;
    s.containerBits = a.intValue("--container", v210 ? 16 : smallest, 8, 16);
    if (s.containerBits != 8 && s.containerBits != 16) throw UsageError("option '--container' takes 8 or 16");
    s.isSigned = a.has("--signed");
    s.bigEndian = a.has("--big-endian");
    s.rate = a.doubleValue("--rate", 25.0, 0.001, 1000.0);
    const std::string why = patternSpecError(s);
    if (!why.empty()) throw UsageError(why);
    if (s.bigEndian && s.containerBits != 16) throw UsageError("'--big-endian' needs 16-bit containers");
    return s;
}

int runSynth(Context &ctx)
{
    if (!ctx.args.positionals().isEmpty())
        throw UsageError(("unexpected argument '" + ctx.args.positionals().first() + "'").toStdString());
    const PatternSpec s = specFrom(ctx.args);
    const int frames = ctx.args.intValue("--frames", 30, 1, kMaxFrames);
    if (!ctx.args.has("--output") || ctx.args.value("--output").isEmpty()) throw UsageError("missing '-o FILE'");
    const QString out = ctx.args.value("--output");

    const uint32_t bytes = patternFrameBytes(s);
    if (bytes > kMaxFrameBytes)
        return ctx.fail(QStringLiteral("a %1x%2 frame would take %3 bytes; frames over 1 GiB are refused")
                            .arg(s.width)
                            .arg(s.height)
                            .arg(bytes));
    const uint64_t total = uint64_t(bytes) * uint64_t(frames);
    const QStorageInfo disk(QFileInfo(out).absolutePath());
    if (disk.isValid() && disk.bytesAvailable() >= 0 && uint64_t(disk.bytesAvailable()) < total)
        return ctx.fail(
            QStringLiteral("'%1' needs %2 bytes but only %3 are free").arg(out).arg(total).arg(disk.bytesAvailable()));

    // Written beside the target and renamed into place at the end, so a failure never leaves half a file.
    QSaveFile file(out);
    if (!file.open(QIODevice::WriteOnly))
        return ctx.fail(QStringLiteral("cannot write '%1': %2").arg(out, file.errorString()));
    std::vector<uint8_t> frame(bytes);
    for (int i = 0; i < frames; ++i) {
        writePatternFrame(s, uint64_t(i), frame.data(), frame.size());
        if (file.write(reinterpret_cast<const char *>(frame.data()), qint64(bytes)) != qint64(bytes)) {
            const QString why = file.errorString();
            file.cancelWriting();
            return ctx.fail(QStringLiteral("cannot write '%1': %2").arg(out, why));
        }
    }
    if (!file.commit()) return ctx.fail(QStringLiteral("cannot write '%1': %2").arg(out, file.errorString()));

    JsonObject o;
    o.add("file", out)
        .add("format", shortName(s.layout))
        .add("width", s.width)
        .add("height", s.height)
        .add("bit_depth", s.layout == YUV_v210 ? 10 : s.bits)
        .add("container_bits", s.layout == YUV_v210 ? 16 : s.containerBits)
        .add("signed", s.isSigned)
        .add("big_endian", s.bigEndian)
        .add("rate", s.rate)
        .add("frames", frames)
        .add("frame_bytes", bytes)
        .add("file_size", total);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command synthCommand()
{
    return {"synth",
            "",
            "write a moving test pattern (bars, ramps, a moving block, an orientation glyph, the frame number)",
            {
                {"-f", "--format", "KEYWORD", "layout (as for the other commands)"},
                {nullptr, "--size", "WxH", "frame size in pixels, 1..32768 each"},
                {nullptr, "--bits", "N", "significant bits per sample, 1..16 (default 8; v210 10)"},
                {nullptr, "--container", "8|16", "storage bits per sample (default: the smallest that holds the bits)"},
                {nullptr, "--signed", nullptr, "store two's-complement samples centred on 0"},
                {nullptr, "--big-endian", nullptr, "store 16-bit containers most significant byte first"},
                {nullptr, "--frames", "N", "number of frames (default 30)"},
                {nullptr, "--rate", "R", "frames per second the motion is timed for (default 25)"},
                {"-o", "--output", "FILE", "file to write (replaced only once it is complete)"},
            },
            runSynth};
}

} // namespace kavri::cli
