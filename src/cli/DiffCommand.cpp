// kavri-cli diff: per-frame and per-sequence MSE and PSNR of two sequences read with one format record.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "formats/FormatNames.h"

#include <cmath>
#include <limits>

namespace kavri::cli {

namespace {

JsonValue triple(const double (&v)[3]) { return JsonValue::array({v[0], v[1], v[2]}); }

double psnrOf(double mse, int bits)
{
    const double peak = std::ldexp(1.0, bits) - 1.0;
    if (mse == 0.0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(peak * peak / mse);
}

int runDiff(Context &ctx)
{
    const QStringList &pos = ctx.args.positionals();
    if (pos.size() < 2) throw UsageError("needs FILE1 and FILE2");
    if (pos.size() > 2) throw UsageError(("unexpected argument '" + pos[2] + "'").toStdString());
    const long long limit = ctx.args.int64Value("--frames", -1, 1, std::numeric_limits<int64_t>::max());

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, pos[0], pos[1], src, error)) return ctx.fail(error);
    const uint64_t count =
        limit < 0 ? src.seq.props.frameCount : std::min<uint64_t>(uint64_t(limit), src.seq.props.frameCount);

    double sum[3] = {0, 0, 0};
    bool unsupported = false;
    for (uint64_t i = 0; i < count; ++i) {
        if (!readFrame(src, i, error)) return ctx.fail(error);
        const DifferencePicture &d = src.pipeline.compare();
        // A computed comparison never leaves PSNR 0 with MSE 0 (that is "inf"); this pair means the
        // layout and depth have no difference kernel and the metrics were left zeroed.
        if (d.psnr[0] == 0.0 && d.mse[0] == 0.0 && !unsupported) {
            unsupported = true;
            ctx.warn(QStringLiteral("differences of %1 at %2 bits are not computed; the metrics are 0")
                         .arg(shortName(src.seq.props.format))
                         .arg(src.seq.props.bitDepth));
        }
        QList<JsonValue> first;
        for (int k = 0; k < 3; ++k) {
            sum[k] += d.mse[k];
            first << JsonValue::array({d.firstDiffX[k], d.firstDiffY[k]});
        }
        JsonObject o;
        o.add("frame", i)
            .add("mse", triple(d.mse))
            .add("psnr", triple(d.psnr))
            .add("first_diff", JsonValue::array(first));
        ctx.out << o.toString() << '\n';
    }
    double mean[3] = {0, 0, 0}, psnr[3] = {0, 0, 0};
    for (int k = 0; k < 3; ++k) {
        mean[k] = count ? sum[k] / double(count) : 0.0;
        psnr[k] = unsupported ? 0.0 : psnrOf(mean[k], src.seq.props.bitDepth);
    }
    JsonObject o;
    o.add("frames", count).add("mse", triple(mean)).add("psnr", triple(psnr));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command diffCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--frames", "N", "compare at most the first N frames (default all)"});
    return {"diff", "FILE1 FILE2",
            "print MSE, PSNR and the first differing sample per component, one JSON line a frame, then the "
            "mean MSE over the frames and its PSNR (peak 2^bits-1; \"inf\" for no difference)",
            opts, runDiff};
}

} // namespace kavri::cli
