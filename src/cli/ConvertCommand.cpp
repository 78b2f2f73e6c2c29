// kavri-cli convert: a sequence rewritten in another layout (or as y4m), frame by frame, through the
// same reading code as every command and the same never-lose-data rules as extract.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "cli/StopSignals.h"
#include "formats/FormatNames.h"
#include "formats/StreamPath.h"
#include "pixel/LayoutConvert.h"
#include "tools/SequenceConvert.h"

#include <QDir>

namespace kavri::cli {

namespace {

// The input's own depth is --in-bits here, since --bits names the depth written; the sequence is opened
// with the format options as every command reads them.
ParsedArgs inputArgs(const ParsedArgs &args)
{
    ParsedArgs in = args;
    in.m_values.remove(QStringLiteral("--bits"));
    if (args.has("--in-bits")) in.m_values.insert(QStringLiteral("--bits"), args.value("--in-bits"));
    return in;
}

int runConvert(Context &ctx)
{
    // The words first, so that a mistake is a usage error before any file is touched.
    const QString file = singleFileArgument(ctx.args);
    if (!ctx.args.has("--output") || ctx.args.value("--output").isEmpty()) throw UsageError("missing '-o OUT'");
    if (!ctx.args.has("--to")) throw UsageError("missing '--to KEYWORD'");
    const videoFormat_t layout = formatFromKeyword(ctx.args.value("--to"));
    if (layout == FMT_UNKNOWN)
        throw UsageError(("unknown format keyword '" + ctx.args.value("--to") + "' for option '--to'").toStdString());
    const int32_t bits = ctx.args.has("--bits") ? ctx.args.intValue("--bits", 8, 1, 16) : 0;
    const bool range = ctx.args.has("--frames");
    uint64_t first = 0, last = 0;
    if (range) parseFrameRange(ctx.args.value("--frames"), first, last);
    const QString out = ctx.args.value("--output");
    const bool y4m = tools::isY4mName(out);
    if (isStreamPath(out)) return ctx.fail(QStringLiteral("'%1' is a pipe or a device; convert writes files").arg(out));

    FrameSource src;
    QString error;
    if (!openFrameSource(inputArgs(ctx.args), file, QString(), src, error)) return ctx.fail(error);
    const VideoProps &stored = src.pipeline.storedProps();
    VideoProps target;
    if (!pixel::conversionTarget(stored, layout, bits, target, error))
        return ctx.fail(QStringLiteral("'%1' as %2: %3").arg(file, ctx.args.value("--to"), error));
    if (y4m) {
        error = pixel::y4mRefusal(target);
        if (!error.isEmpty()) return ctx.fail(error);
    }
    if (range) {
        bool clamped = false;
        const uint64_t asked = last;
        if (!tools::fitRange(stored.frameCount, first, asked, last, clamped, error))
            return ctx.fail(QStringLiteral("'%1': %2").arg(file, error));
        if (clamped) ctx.warn(QStringLiteral("'%1' ends at frame %2; converting up to it").arg(file).arg(last));
    } else {
        last = stored.frameCount - 1; // playable, so at least one frame
    }

    tools::ConvertJob job;
    job.input = file;
    job.output = out;
    job.target = target;
    job.y4m = y4m;
    job.first = first;
    job.last = last;
    job.overwrite = ctx.args.has("--force");
    const uint64_t total = last - first + 1;
    // Long runs report on standard error, about every tenth; standard output keeps its one JSON line.
    int reported = 0;
    const tools::ProgressFn progress = [&](int percent) {
        if (total < 10 || percent / 10 <= reported) return;
        reported = percent / 10;
        ctx.err << QStringLiteral("kavri-cli: converted %1% of %2 frames\n").arg(reported * 10).arg(total);
        ctx.err.flush();
    };
    tools::CopyResult r;
    int interrupted = 0;
    {
        // Ctrl-C (and TERM, HUP) cancel like the player's Cancel: the temporary file goes, nothing is left.
        StopSignals stop;
        r = tools::convertFrames(job, src.pipeline, src.first, progress, stop.flag());
        if (r.cancelled) interrupted = stop.exitStatus();
    }
    if (interrupted != 0) {
        ctx.fail(QStringLiteral("interrupted; '%1' was not written").arg(QDir::toNativeSeparators(out)));
        return interrupted;
    }
    if (!r.ok) return ctx.fail(r.error);
    pixel::LayoutConverter sizes;
    sizes.setup(stored, target, y4m, error);
    JsonObject o;
    o.add("file", file)
        .add("output", out)
        .add("layout",
             QString::fromLatin1(layoutInfo(layout).keyword.data(), qsizetype(layoutInfo(layout).keyword.size())))
        .add("bits", target.bitDepth)
        .add("y4m", y4m)
        .add("first", first)
        .add("last", last)
        .add("frames", r.framesWritten)
        .add("frame_bytes", uint64_t(sizes.outputBytes()));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command convertCommand()
{
    std::vector<OptionSpec> opts;
    for (const OptionSpec &o : formatOptionSpecs()) {
        if (QLatin1String(o.longName) == QLatin1String("--bits"))
            opts.push_back({nullptr, "--in-bits", "N", "significant bits per sample of FILE, 1..16"});
        else
            opts.push_back(o);
    }
    opts.push_back({"-o", "--output", "OUT", "the file to write; a name ending in .y4m writes a y4m stream"});
    opts.push_back({nullptr, "--to", "KEYWORD",
                    "the layout written, as for -f (yuv420, nv12, p010, rgbp, luma ...). Chroma is subsampled by "
                    "keeping the top-left sample of each group and upsampled by repeating samples; a luma-only "
                    "FILE gets mid-grey chroma, a luma target keeps Y; YUV and RGB are not converted into each "
                    "other"});
    opts.push_back({nullptr, "--bits", "N",
                    "significant bits per sample written, 1..16 (default: the layout's own, else FILE's); "
                    "depth changes shift samples (left to widen, right to narrow, no rounding)"});
    opts.push_back({nullptr, "--frames", "A-B", "frames A..B, included (cut to the file's last frame); default all"});
    opts.push_back({nullptr, "--force", nullptr, "replace an existing output file (never FILE itself)"});
    return {"convert", "FILE", "rewrite the frames of FILE in another layout, or as y4m, to a new file", opts,
            runConvert};
}

} // namespace kavri::cli
