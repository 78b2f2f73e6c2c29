// kavri-cli remember: pins FILE's format in the remembered formats, exactly as the player stores it
// after opening a file with a complete format.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/SequenceOptions.h"
#include "formats/FormatNames.h"
#include "formats/RememberedFormats.h"
#include "formats/StreamPath.h"
#include "formats/Validation.h"

namespace kavri::cli {

namespace {

int runRemember(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    if (file == QLatin1String("-"))
        return ctx.fail(QStringLiteral("standard input has no path to remember a format for"));
    if (isStreamPath(file))
        return ctx.fail(QStringLiteral("'%1' is a pipe or a device; formats are remembered for files").arg(file));
    OpenedSequence seq;
    QString error;
    if (!openSequence(ctx.args, file, QString(), seq, error)) return ctx.fail(error);
    const QString reason = unplayableReason(seq.props, seq.mask);
    if (!reason.isEmpty())
        return ctx.fail(QStringLiteral("'%1' is not playable: %2; nothing remembered").arg(file, reason));

    // The key is the path as given, the way the player keys a file it was asked to open; the store
    // turns back-slashes into forward slashes.
    const bool replaced = lookupRemembered(file).has_value();
    VideoProps props = seq.props;
    if (!tryStoreRemembered(props))
        return ctx.fail(QStringLiteral("could not write the remembered formats to the settings store"));

    JsonObject o;
    o.add("file", file)
        .add("key", props.fileName)
        .add("remembered", true)
        .add("replaced", replaced)
        .add("source", seq.source)
        .add("width", props.width)
        .add("height", props.height)
        .add("rate", props.frameRate)
        .add("format", shortName(props.format))
        .add("bit_depth", props.bitDepth)
        .add("container_bits", props.containerBits)
        .add("header_bytes", props.headerBytes)
        .add("frame_count", props.frameCount)
        .add("time_stamp", props.timeStamp);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command rememberCommand()
{
    return {"remember", "FILE", "store FILE's validated format in the remembered formats, as the player does",
            formatOptionSpecs(), runRemember};
}

} // namespace kavri::cli
