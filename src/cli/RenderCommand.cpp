// kavri-cli render: frames exactly as the player converts them for display, written as lossless PNGs; or,
// with --native, the stored samples themselves as 16-bit PNGs.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "cli/StopSignals.h"
#include "formats/FrameSize.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "tools/FrameExport.h"
#include "tools/SequenceCopy.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QSaveFile>
#include <algorithm>
#include <cstring>
#include <optional>

namespace kavri::cli {

namespace {

// A range needs one name per frame (see tools::framePatternError); a bad pattern is a usage error.
void checkPattern(const QString &pattern)
{
    const QString error = tools::framePatternError(pattern);
    if (!error.isEmpty()) throw UsageError(error.toStdString());
}

QString nameFor(const QString &pattern, uint64_t n) { return tools::frameFileName(pattern, n); }

QImage shownPicture(FrameSource &src, const ViewSettings &view, uint8_t *rgb)
{
    return tools::shownPicture(src.pipeline, view, rgb);
}

using tools::nativeChannel;
using tools::nativePicture;
using tools::savePng;

bool sameFile(const QString &a, const QString &b)
{
    const QFileInfo fa(a), fb(b);
    return fa.exists() && fb.exists() && fa.canonicalFilePath() == fb.canonicalFilePath();
}

int runRender(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    const bool range = ctx.args.has("--frames");
    const bool native = ctx.args.has("--native");
    if (range && ctx.args.has("--frame")) throw UsageError("give either '--frame N' or '--frames A-B'");
    uint64_t first = uint64_t(ctx.args.int64Value("--frame", 0, 0, std::numeric_limits<int64_t>::max()));
    uint64_t last = first;
    if (range) parseFrameRange(ctx.args.value("--frames"), first, last);
    const ViewSettings view = viewSettingsFrom(ctx.args);
    if (native) {
        // The stored samples have no tone curve, no comparison and no filter; an option that would change
        // the picture is refused rather than silently dropped.
        for (const char *o : {"--diff", "--view", "--brightness", "--contrast", "--gamma", "--deinterlace"})
            if (ctx.args.has(o))
                throw UsageError(QStringLiteral("option '%1' does not apply to '--native'").arg(o).toStdString());
    }
    if (!ctx.args.has("--output") || ctx.args.value("--output").isEmpty()) throw UsageError("missing '-o OUT.png'");
    const QString out = ctx.args.value("--output");
    if (range) checkPattern(out);
    const bool force = ctx.args.has("--force");

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, file, diff, src, error)) return ctx.fail(error);
    const VideoProps &p = src.pipeline.props();
    if (native) {
        const LayoutInfo &info = layoutInfo(p.format);
        if (info.kind == LayoutKind::Luma && view.channel > 1)
            return ctx.fail(
                QStringLiteral("'%1' has one component; '--channel %2' does not exist").arg(file).arg(view.channel));
    }
    if (range) {
        bool clamped = false;
        const uint64_t asked = last;
        if (!tools::fitRange(p.frameCount, first, asked, last, clamped, error))
            return ctx.fail(QStringLiteral("'%1': %2").arg(file, error));
        if (clamped) ctx.warn(QStringLiteral("'%1' ends at frame %2; rendering up to it").arg(file).arg(last));
    }
    // The new ways of writing (a range, the stored samples) keep what exists unless told otherwise, and
    // check every name before the first frame is written; a single display frame replaces its output as
    // it always has.
    if (range || native) {
        for (uint64_t n = first; n <= last; ++n) {
            const QString name = range ? nameFor(out, n) : out;
            if (sameFile(name, file) || (!diff.isEmpty() && sameFile(name, diff)))
                return ctx.fail(QStringLiteral("'%1' is an input; it is never written").arg(name));
            if (!force && QFileInfo::exists(name))
                return ctx.fail(QStringLiteral("'%1' exists; give '--force' to replace it").arg(name));
        }
    }
    // As the player's switch: chroma per field in the conversion, and the filter afterwards.
    if (ctx.args.has("--deinterlace")) src.pipeline.setDeinterlace(true);
    if (!readFrame(src, first, error)) return ctx.fail(error);

    // The picture comes from the same allocator as the frame buffers, so a picture too large for memory
    // is refused with a message rather than promised and then killed for.
    const uint64_t pictureBytes = uint64_t(p.width) * uint64_t(p.height) * (native ? 8 : 4);
    AlignedBuffer rgb;
    try {
        rgb = allocateAligned(size_t(pictureBytes));
    } catch (const std::bad_alloc &) {
        return ctx.fail(QStringLiteral("frame %1 cannot be shown: %2")
                            .arg(first)
                            .arg(notEnoughMemoryText(p.width, p.height, pictureBytes)));
    }
    if (native) rgb.reset(); // only the check: QImage holds the 16-bit picture

    const uint64_t total = last - first + 1;
    // Long ranges report on standard error, about every tenth; standard output keeps its one JSON line.
    const bool progress = total >= 10;
    int reported = 0;
    // Ctrl-C between frames of a range ends it with every written picture whole; a single frame is
    // interrupted as it always was.
    std::optional<StopSignals> stop;
    if (range) stop.emplace();
    for (uint64_t n = first; n <= last; ++n) {
        if (stop && stop->flag()->load()) {
            ctx.fail(QStringLiteral("interrupted after %1 of %2 frames").arg(n - first).arg(total));
            return stop->exitStatus();
        }
        if (n != first && !readFrame(src, n, error)) return ctx.fail(error);
        const QImage image = native ? nativePicture(src.pipeline, view.channel) : shownPicture(src, view, rgb.get());
        if (image.isNull() && native)
            return ctx.fail(QStringLiteral("frame %1: the stored samples of this layout cannot be read").arg(n));
        if (image.isNull())
            return ctx.fail(QStringLiteral("frame %1 cannot be shown: %2")
                                .arg(n)
                                .arg(notEnoughMemoryText(p.width, p.height, pictureBytes)));
        const QString name = range ? nameFor(out, n) : out;
        if (!savePng(image, name, error)) return ctx.fail(error);
        const uint64_t done = n - first + 1;
        if (progress && int(done * 10 / total) > reported) {
            reported = int(done * 10 / total);
            ctx.err << QStringLiteral("kavri-cli: rendered %1 of %2 frames (%3%)\n")
                           .arg(done)
                           .arg(total)
                           .arg(reported * 10);
            ctx.err.flush();
        }
    }

    JsonObject o;
    if (range)
        o.add("pattern", out).add("first", first).add("last", last).add("frames", total);
    else
        o.add("file", out).add("frame", first);
    o.add("width", p.width).add("height", p.height);
    // The channel written: 0 for a colour picture, else the component shown in grey.
    if (native) o.add("native", true).add("depth", p.bitDepth).add("channel", nativeChannel(p.format, view.channel));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command renderCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    for (const OptionSpec &s : frameSelectionSpecs()) opts.push_back(s);
    opts.push_back({nullptr, "--frames", "A-B",
                    "frames A..B, included (cut to the file's last frame); OUT holds one number such as %05d"});
    opts.push_back(
        {nullptr, "--channel", "0..3",
         "0 full colour, 1..3 one component as grey (with --native: Y, U, V as stored, or R, G, B; Y by default)"});
    opts.push_back(
        {nullptr, "--brightness", "B", "tone curve brightness (default 0; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--contrast", "C",
                    "tone curve contrast (default 0; the difference gain while a difference is shown)"});
    opts.push_back(
        {nullptr, "--gamma", "G", "tone curve gamma, 256 = 1.0 (default 256; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--deinterlace", nullptr, "take 4:2:0 chroma per field and run the deinterlace filter"});
    opts.push_back({nullptr, "--native", nullptr,
                    "16-bit PNG of the stored samples shifted to 16 bits: RGB layouts in colour, others one "
                    "component as grey (chroma replicated to the frame's size; signed samples moved up by half "
                    "their range)"});
    opts.push_back({"-o", "--output", "OUT.png", "PNG to write"});
    opts.push_back(
        {nullptr, "--force", nullptr, "with --frames or --native: replace existing outputs (never an input)"});
    return {"render", "FILE",
            "write frames as shown by the player (before display scaling), or their stored samples, to PNGs", opts,
            runRender};
}

} // namespace kavri::cli
