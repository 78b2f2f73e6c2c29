// kavri-cli pixel: the stored sample values the player's readout reports for one pixel of a shown frame.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"

#include <QRegularExpression>
#include <vector>

namespace kavri::cli {

namespace {

int runPixel(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    const uint64_t index = uint64_t(ctx.args.int64Value("--frame", 0, 0, std::numeric_limits<int64_t>::max()));
    const ViewSettings view = viewSettingsFrom(ctx.args);
    if (!ctx.args.has("--at")) throw UsageError("missing '--at X,Y'");
    static const QRegularExpression kAt(QStringLiteral("^(-?\\d{1,9}),(-?\\d{1,9})$"));
    const auto m = kAt.match(ctx.args.value("--at"));
    if (!m.hasMatch())
        throw UsageError(("option '--at' needs X,Y, not '" + ctx.args.value("--at") + "'").toStdString());
    const int32_t x = m.captured(1).toInt(), y = m.captured(2).toInt();

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, file, diff, src, error)) return ctx.fail(error);
    if (!readFrame(src, index, error)) return ctx.fail(error);
    const VideoProps &p = src.pipeline.props();
    // The readout looks at the buffer the view shows; the picture itself is not needed for it.
    src.pipeline.show(view, nullptr);

    int32_t c1 = 0, c2 = 0, c3 = 0, alpha = -1;
    if (!src.pipeline.readout(x, y, c1, c2, c3, &alpha)) {
        ctx.out << JsonObject().add("ok", false).toString() << '\n';
        const bool outside = uint32_t(x) >= uint32_t(p.width) || uint32_t(y) >= uint32_t(p.height);
        return ctx.fail(
            outside ? QStringLiteral("%1,%2 lies outside the %3x%4 picture").arg(x).arg(y).arg(p.width).arg(p.height)
                    : QStringLiteral("the readout gives no value for this layout and depth"));
    }
    JsonObject o;
    o.add("ok", true).add("space", int(p.format)).add("c1", c1).add("c2", c2).add("c3", c3).add("alpha", alpha);
    if (!p.colour.isDefault()) {
        // Under a colour reading, also the colour the picture shows there (the samples stay as stored).
        std::vector<uint32_t> picture(size_t(p.width) * size_t(p.height));
        src.pipeline.show(view, reinterpret_cast<uint8_t *>(picture.data()));
        const uint32_t px = picture[size_t(y) * size_t(p.width) + size_t(x)];
        o.add("shown", JsonValue::array({int((px >> 16) & 0xff), int((px >> 8) & 0xff), int(px & 0xff)}));
    }
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command pixelCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    for (const OptionSpec &s : frameSelectionSpecs()) opts.push_back(s);
    opts.push_back({nullptr, "--at", "X,Y", "picture column and row, row 0 at the top as displayed"});
    return {"pixel", "FILE",
            "print the readout of one pixel as JSON; outside the picture, or where the layout gives no value, "
            "prints {\"ok\": false} and exits 1",
            opts, runPixel};
}

} // namespace kavri::cli
