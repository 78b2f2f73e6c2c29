// kavri-cli formats: every layout the player reads, as JSON lines, from the layout and descriptor tables.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "formats/FormatDetector.h"
#include "formats/FormatNames.h"
#include "formats/PixelDescriptor.h"

namespace kavri::cli {

namespace {

QString fromView(std::string_view s) { return QString::fromLatin1(s.data(), qsizetype(s.size())); }

QString subsamplingOf(const LayoutInfo &l, const PixelDescriptor &d)
{
    if (d.cfa != Cfa::None) return QStringLiteral("bayer");
    if (l.kind == LayoutKind::Luma) return QStringLiteral("4:0:0");
    if (l.kind == LayoutKind::InterleavedRgb || l.kind == LayoutKind::PlanarRgb) return QStringLiteral("4:4:4");
    static const char *const kNames[3][2] = {{"4:4:4", "4:4:0"}, {"4:2:2", "4:2:0"}, {"4:1:1", "4:1:0"}};
    return QLatin1String(kNames[std::min<int>(d.log2ChromaW, 2)][std::min<int>(d.log2ChromaH, 1)]);
}

int runFormats(Context &ctx)
{
    if (!ctx.args.positionals().isEmpty())
        throw UsageError(("unexpected argument '" + ctx.args.positionals().first() + "'").toStdString());
    for (const LayoutInfo &l : kLayouts) {
        const PixelDescriptor &d = *pixelDescriptor(l.value);
        QList<JsonValue> depths;
        if (d.fixedDepth)
            depths << JsonValue(int(d.fixedDepth));
        else
            for (int b = 1; b <= 16; ++b) depths << JsonValue(b);
        QList<JsonValue> aliases;
        for (const QString &w : layoutWords(l.value))
            if (w != fromView(l.keyword)) aliases << JsonValue(w);
        JsonObject o;
        o.add("value", int(l.value))
            .add("name", fromView(l.shortName))
            .add("display", fromView(l.displayName))
            .add("keywords", JsonValue::array({JsonValue(fromView(l.keyword))}))
            .add("aliases", JsonValue::array(aliases))
            .add("planes", int(d.planes))
            .add("subsampling", subsamplingOf(l, d))
            .add("alpha", l.hasAlpha)
            .add("depths", JsonValue::array(depths))
            .add("suffix", fromView(l.suffix))
            .add("canonical", shortName(d.canonical));
        ctx.out << o.toString() << '\n';
    }
    return kExitOk;
}

} // namespace

Command formatsCommand()
{
    return {"formats",
            "",
            "list every layout with its keyword, planes, subsampling and depths, one JSON line each",
            {},
            runFormats};
}

} // namespace kavri::cli
