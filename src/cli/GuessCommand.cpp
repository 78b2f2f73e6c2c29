// kavri-cli guess: the frame sizes (and layouts and depths) under which FILE holds whole frames.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/SequenceOptions.h"
#include "formats/FormatNames.h"
#include "formats/SizeGuess.h"
#include "formats/StreamPath.h"

#include <QFile>
#include <limits>

namespace kavri::cli {

namespace {

int runGuess(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    // The options are checked before the file is looked at, so that a mistake in them is a usage error.
    GuessRequest request;
    if (ctx.args.has("--format")) {
        request.format = formatFromKeyword(ctx.args.value("--format"));
        if (request.format == FMT_UNKNOWN)
            throw UsageError(
                ("unknown format keyword '" + ctx.args.value("--format") + "' for option '--format'").toStdString());
    }
    if (ctx.args.has("--bits")) request.bitDepth = ctx.args.intValue("--bits", 8, 1, 16);
    const bool headerGiven = ctx.args.has("--header");
    if (headerGiven)
        request.headerBytes = uint32_t(ctx.args.int64Value("--header", 0, 0, std::numeric_limits<uint32_t>::max()));

    // A stream has no size, and opening a pipe just to look would wait for its writer.
    if (isStreamPath(file)) return ctx.fail(QStringLiteral("'%1' is a stream: it has no size to guess from").arg(file));
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return ctx.fail(QStringLiteral("cannot open '%1': %2").arg(file, f.errorString()));
    const qint64 size = f.size();
    f.close();
    request.fileSize = size > 0 ? uint64_t(size) : 0;

    const GuessHints hints = guessHintsFor(file);
    // Without --header, the header or side file of the file says how many bytes precede the frames.
    if (!headerGiven) request.headerBytes = hints.headerBytes.value_or(0);
    const std::vector<SizeCandidate> candidates = guessSizes(request, hints);

    QList<JsonValue> list;
    for (const SizeCandidate &c : candidates) {
        JsonObject o;
        o.add("width", c.width)
            .add("height", c.height)
            .add("format", shortName(c.format))
            .add("keyword", formatKeyword(c.format))
            .add("bits", c.bitDepth)
            .add("frames", c.frames)
            .add("hint", c.hint);
        list << JsonValue(o);
    }
    JsonObject doc;
    doc.add("file", file).add("size", request.fileSize).add("candidates", JsonValue::array(list));
    ctx.out << doc.toString() << '\n';
    if (candidates.empty())
        return ctx.fail(QStringLiteral("no known frame size divides the %1 bytes of '%2' after a %3-byte header")
                            .arg(request.fileSize)
                            .arg(file)
                            .arg(request.headerBytes));
    return kExitOk;
}

} // namespace

Command guessCommand()
{
    std::vector<OptionSpec> opts;
    opts.push_back({"-f", "--format", "KEYWORD", "layout to try, a keyword as for info (default: every layout)"});
    opts.push_back({nullptr, "--bits", "N", "significant bits per sample, 1..16 (default: 8, 10 and 16)"});
    opts.push_back({nullptr, "--header", "BYTES",
                    "bytes before the first frame (default: as the file's header or side file says, else 0)"});
    return {"guess", "FILE", "list frame sizes that divide FILE into whole frames, as JSON", opts, runGuess};
}

} // namespace kavri::cli
