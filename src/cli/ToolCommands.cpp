// kavri-cli extract, reverse and normalize: the player's sequence tools, with the same copy and naming code.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/SequenceOptions.h"
#include "cli/StopSignals.h"
#include "formats/StreamPath.h"
#include "tools/SequenceCopy.h"
#include "tools/SequenceNames.h"

#include <QDir>
#include <QFileInfo>

namespace kavri::cli {

namespace {

// Opens FILE as the player would and insists on a playable record of a real file.
bool openForTool(Context &ctx, OpenedSequence &seq, QString &file, int &rc)
{
    file = singleFileArgument(ctx.args);
    if (file == QLatin1String("-")) {
        rc = ctx.fail(QStringLiteral("the tools work on files, not on standard input"));
        return false;
    }
    if (isStreamPath(file)) {
        rc = ctx.fail(QStringLiteral("the tools work on files, not on a pipe or a device ('%1')").arg(file));
        return false;
    }
    QString error;
    if (!openSequence(ctx.args, file, QString(), seq, error)) {
        rc = ctx.fail(error);
        return false;
    }
    const QString reason = unplayableReason(seq.props, seq.mask);
    if (!reason.isEmpty()) {
        rc = ctx.fail(QStringLiteral("'%1': %2").arg(file, reason));
        return false;
    }
    return true;
}

// Runs the copy with Ctrl-C (and TERM, HUP) turned into a cancel, so that an interrupted copy removes its
// temporary file like the player's Cancel does; it then ends as an interrupted program would.
int copyAndPrint(Context &ctx, const QString &file, const tools::CopyJob &job, const VideoProps &p)
{
    tools::CopyResult r;
    int interrupted = 0;
    {
        StopSignals stop;
        r = tools::copyFrames(job, {}, stop.flag());
        if (r.cancelled) interrupted = stop.exitStatus();
    }
    if (interrupted != 0) {
        ctx.fail(QStringLiteral("interrupted; '%1' was not written").arg(QDir::toNativeSeparators(job.output)));
        return interrupted;
    }
    if (!r.ok) return ctx.fail(r.error);
    JsonObject o;
    o.add("file", file)
        .add("output", job.output)
        .add("first", job.first)
        .add("last", job.last)
        .add("reversed", job.reverse)
        .add("frames", r.framesWritten)
        .add("frame_bytes", p.frameBytes)
        .add("bytes", r.framesWritten * uint64_t(p.frameBytes));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

int runExtract(Context &ctx)
{
    // Check the range words before any file is touched, so that they are reported as usage errors.
    if (!ctx.args.has("--from") || !ctx.args.has("--to")) throw UsageError("--from and --to are required");
    const long long from = ctx.args.int64Value("--from", 0, 0, std::numeric_limits<long long>::max());
    const long long to = ctx.args.int64Value("--to", 0, 0, std::numeric_limits<long long>::max());
    if (from > to) throw UsageError("--from must not be greater than --to");

    OpenedSequence seq;
    QString file;
    int rc = kExitOk;
    if (!openForTool(ctx, seq, file, rc)) return rc;
    const VideoProps &p = seq.props;
    uint64_t last = 0;
    bool clamped = false;
    QString error;
    if (!tools::fitRange(p.frameCount, uint64_t(from), uint64_t(to), last, clamped, error))
        return ctx.fail(QStringLiteral("'%1': %2").arg(file, error));
    if (clamped) ctx.warn(QStringLiteral("'%1' ends at frame %2; extracting up to it").arg(file).arg(last));

    const QString out =
        ctx.args.has("--output") ? ctx.args.value("--output") : tools::proposedExtractName(p, uint64_t(from), last);
    tools::CopyJob job =
        tools::extractJob(file, out, p.frameBytes, p.headerBytes, uint64_t(from), last, ctx.args.has("--force"));
    tools::describeInput(job, p);
    return copyAndPrint(ctx, file, job, p);
}

int runReverse(Context &ctx)
{
    OpenedSequence seq;
    QString file;
    int rc = kExitOk;
    if (!openForTool(ctx, seq, file, rc)) return rc;
    const VideoProps &p = seq.props;
    const QString out = ctx.args.has("--output") ? ctx.args.value("--output") : tools::proposedReverseName(p);
    // Playable, so at least one frame.
    tools::CopyJob job =
        tools::reverseJob(file, out, p.frameBytes, p.headerBytes, p.frameCount, ctx.args.has("--force"));
    tools::describeInput(job, p);
    return copyAndPrint(ctx, file, job, p);
}

int runNormalize(Context &ctx)
{
    OpenedSequence seq;
    QString file;
    int rc = kExitOk;
    if (!openForTool(ctx, seq, file, rc)) return rc;
    const QFileInfo fi(file);
    const QString folder = fi.canonicalPath().isEmpty() ? fi.absolutePath() : fi.canonicalPath();
    const QString to = QDir(folder).filePath(tools::canonicalFileName(seq.props));
    const QString from = fi.absoluteFilePath();
    const bool dryRun = ctx.args.has("--dry-run");
    if (!dryRun) {
        const QString error = tools::renameKeepingAll(from, to);
        if (!error.isEmpty()) return ctx.fail(error);
    }
    JsonObject o;
    o.add("from", from).add("to", to);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

std::vector<OptionSpec> withOutput(std::vector<OptionSpec> opts)
{
    opts.push_back({"-o", "--output", "OUT", "output file (default: the proposed name beside FILE)"});
    opts.push_back({nullptr, "--force", nullptr, "replace an existing output file (never FILE itself)"});
    return opts;
}

} // namespace

Command extractCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--from", "A", "first frame to copy (from 0)"});
    opts.push_back({nullptr, "--to", "B", "last frame to copy, included (cut to the file's last frame)"});
    return {"extract", "FILE", "copy frames A..B of FILE, without its header, to a new file", withOutput(opts),
            runExtract};
}

Command reverseCommand()
{
    return {"reverse", "FILE", "write the frames of FILE in reverse order, without its header, to a new file",
            withOutput(formatOptionSpecs()), runReverse};
}

Command normalizeCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--dry-run", nullptr, "only print the new name"});
    return {"normalize", "FILE", "rename FILE to the canonical name of its format (never replaces a file)", opts,
            runNormalize};
}

} // namespace kavri::cli
