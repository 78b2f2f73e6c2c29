// kavri-cli info: the validated format record of a sequence, as the player would open it.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/SequenceOptions.h"
#include "formats/FormatNames.h"
#include "formats/FrameSize.h"
#include "formats/Validation.h"

namespace kavri::cli {

namespace {

int runInfo(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    OpenedSequence seq;
    QString error;
    if (!openSequence(ctx.args, file, diff, seq, error)) return ctx.fail(error);
    const VideoProps &p = seq.props;
    const QString reason = unplayableReason(p, seq.mask);
    if (!reason.isEmpty()) ctx.warn(QStringLiteral("'%1' is not playable: %2").arg(file, reason));

    JsonObject o;
    o.add("file", file)
        .add("diff", diff.isEmpty() ? JsonValue() : JsonValue(diff))
        .add("width", p.width)
        .add("height", p.height)
        .add("rate", p.frameRate)
        .add("format", shortName(p.format))
        .add("format_value", int(p.format))
        .add("bit_depth", p.bitDepth)
        .add("container_bits", p.containerBits)
        .add("frame_bytes", p.frameBytes)
        .add("alloc_bytes",
             hasPlaneGeometry(p) ? p.frameBytes : allocationSize(p.format, p.containerBits, p.width, p.height))
        .add("frame_count", p.frameCount)
        .add("file_size", p.fileSize)
        .add("header_bytes", p.headerBytes)
        .add("interlaced", p.interlaced)
        .add("flipped", p.flipped)
        .add("anamorphic", p.anamorphic)
        .add("signed", p.signedValues)
        .add("swap_uv", p.swapUV)
        .add("toggle_endianness", p.toggleEndianness)
        .add("mask", seq.mask)
        .add("playable", isPlayable(seq.mask))
        .add("source", seq.source)
        .add("colour", JsonObject()
                           .add("matrix", keyword(p.colour.matrix))
                           .add("range", keyword(p.colour.range))
                           .add("chroma", keyword(p.colour.chroma))
                           .add("transfer", keyword(p.colour.transfer))
                           .add("peak", p.colour.peakNits)
                           .add("source", seq.colourSource));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command infoCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--diff", "FILE2", "second file of a difference view (the smaller frame count is used)"});
    return {"info", "FILE", "print the validated format record of FILE as JSON", opts, runInfo};
}

} // namespace kavri::cli
