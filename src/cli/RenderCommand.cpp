// kavri-cli render: one frame exactly as the player converts it for display, written as a lossless PNG.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"

#include <QImage>
#include <QSaveFile>
#include <algorithm>

namespace kavri::cli {

namespace {

int runRender(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    const uint64_t index = uint64_t(ctx.args.int64Value("--frame", 0, 0, std::numeric_limits<int64_t>::max()));
    const ViewSettings view = viewSettingsFrom(ctx.args);
    if (!ctx.args.has("--output") || ctx.args.value("--output").isEmpty()) throw UsageError("missing '-o OUT.png'");
    const QString out = ctx.args.value("--output");

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, file, diff, src, error)) return ctx.fail(error);
    // As the player's switch: chroma per field in the conversion, and the filter afterwards.
    if (ctx.args.has("--deinterlace")) src.pipeline.setDeinterlace(true);
    if (!readFrame(src, index, error)) return ctx.fail(error);

    const VideoProps &p = src.pipeline.props();
    // The picture comes from the same allocator as the frame buffers, so a picture too large for memory
    // is refused with a message rather than promised and then killed for.
    const uint64_t pictureBytes = uint64_t(p.width) * uint64_t(p.height) * 4;
    AlignedBuffer rgb;
    try {
        rgb = allocateAligned(size_t(pictureBytes));
    } catch (const std::bad_alloc &) {
        return ctx.fail(QStringLiteral("frame %1 cannot be shown: %2")
                            .arg(index)
                            .arg(notEnoughMemoryText(p.width, p.height, pictureBytes)));
    }
    // The converter leaves the fourth byte alone; starting from opaque black keeps the image well formed.
    std::fill_n(reinterpret_cast<uint32_t *>(rgb.get()), size_t(p.width) * size_t(p.height), 0xff000000u);
    src.pipeline.show(view, rgb.get());
    const QImage image(rgb.get(), p.width, p.height, qsizetype(p.width) * 4, QImage::Format_RGB32);
    QSaveFile f(out);
    if (!f.open(QIODevice::WriteOnly) || !image.save(&f, "PNG") || !f.commit())
        return ctx.fail(QStringLiteral("cannot write '%1': %2").arg(out, f.errorString()));

    JsonObject o;
    o.add("file", out).add("frame", uint64_t(index)).add("width", p.width).add("height", p.height);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command renderCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    for (const OptionSpec &s : frameSelectionSpecs()) opts.push_back(s);
    opts.push_back({nullptr, "--channel", "0..3", "0 full colour, 1..3 one component as grey"});
    opts.push_back(
        {nullptr, "--brightness", "B", "tone curve brightness (default 0; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--contrast", "C",
                    "tone curve contrast (default 0; the difference gain while a difference is shown)"});
    opts.push_back(
        {nullptr, "--gamma", "G", "tone curve gamma, 256 = 1.0 (default 256; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--deinterlace", nullptr, "take 4:2:0 chroma per field and run the deinterlace filter"});
    opts.push_back({"-o", "--output", "OUT.png", "PNG to write"});
    return {"render", "FILE", "write one frame as shown by the player (before display scaling) to a PNG", opts,
            runRender};
}

} // namespace kavri::cli
