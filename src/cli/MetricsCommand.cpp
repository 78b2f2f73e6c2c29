// kavri-cli metrics: per-frame PSNR, SSIM, MS-SSIM and weighted PSNR of two sequences, and a summary.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "formats/FormatNames.h"
#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/Y4mHeader.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/SequenceMetrics.h"

#include <QFile>
#include <limits>

namespace kavri::cli {

using namespace kavri::pixel;

namespace {

constexpr Metric kMetricOrder[kMetricCount] = {Metric::Psnr, Metric::Ssim, Metric::MsSsim, Metric::Wpsnr};

// The --metrics list in the order given (its first entry orders the worst frames).
std::vector<Metric> parseMetrics(const ParsedArgs &args)
{
    if (!args.has("--metrics")) return {kMetricOrder, kMetricOrder + kMetricCount};
    std::vector<Metric> out;
    for (const QString &word : args.value("--metrics").split(QLatin1Char(','))) {
        const QString w = word.trimmed().toLower();
        bool known = false;
        for (Metric m : kMetricOrder)
            if (w == QLatin1String(metricName(m))) {
                known = true;
                if (std::find(out.begin(), out.end(), m) == out.end()) out.push_back(m);
            }
        if (!known)
            throw UsageError(
                ("option '--metrics' takes psnr, ssim, msssim, wpsnr separated by commas, not '" + word + "'")
                    .toStdString());
    }
    return out;
}

// --frames A-B (inclusive) or a single frame A.
void parseFrames(const ParsedArgs &args, uint64_t &from, uint64_t &to)
{
    from = 0;
    to = std::numeric_limits<uint64_t>::max();
    if (!args.has("--frames")) return;
    const QString v = args.value("--frames");
    const QStringList parts = v.split(QLatin1Char('-'));
    bool ok1 = false, ok2 = true;
    if (parts.size() == 1) {
        from = to = parts[0].toULongLong(&ok1);
    } else if (parts.size() == 2) {
        from = parts[0].toULongLong(&ok1);
        to = parts[1].toULongLong(&ok2);
    }
    if (!ok1 || !ok2 || parts.size() > 2 || to < from)
        throw UsageError(("option '--frames' takes A-B with A <= B, or one frame N, not '" + v + "'").toStdString());
}

JsonValue triple(const double (&v)[3]) { return JsonValue::array({v[0], v[1], v[2]}); }

JsonValue metricJson(Metric m, const double (&v)[3]) { return metricComponents(m) == 1 ? JsonValue(v[0]) : triple(v); }

int runMetrics(Context &ctx)
{
    const QStringList &pos = ctx.args.positionals();
    if (pos.size() < 2) throw UsageError("needs FILE1 and FILE2");
    if (pos.size() > 2) throw UsageError(("unexpected argument '" + pos[2] + "'").toStdString());
    if (ctx.args.has("--csv") && ctx.args.has("--json")) throw UsageError("give '--csv' or '--json', not both");
    const bool csv = ctx.args.has("--csv");
    const std::vector<Metric> metrics = parseMetrics(ctx.args);
    uint32_t mask = 0;
    for (Metric m : metrics) mask |= metricBit(m);
    uint64_t from = 0, to = 0;
    parseFrames(ctx.args, from, to);
    const int worstCount = ctx.args.intValue("--worst", 5, 0, 1000000);

    // The first file's record, as diff works it out; the second file is read with it, at its own depth.
    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, pos[0], QString(), src, error)) return ctx.fail(error);
    const VideoProps &pa = src.seq.props;
    VideoProps pb = pa;
    pb.fileName = pos[1];
    if (ctx.args.has("--bits2")) {
        pb.bitDepth = ctx.args.intValue("--bits2", 8, 1, 16);
        pb.containerBits = containerForBits(pb.bitDepth);
    }
    pb.frameBytes = frameBytes(pb.format, pb.containerBits, pb.width, pb.height);
    // The second file may carry a y4m header of its own, for frames of its own depth.
    const SecondPlacement place = secondFilePlacement(pb, pos[1]);
    if (!place.error.isEmpty()) return ctx.fail(place.error);
    pb.headerBytes = place.headerBytes;
    pb.frameHeaderBytes = place.frameHeaderBytes;
    pb.frameStarts = place.starts;
    pb.frameCount =
        place.starts ? place.starts->size()
                     : frameCountOf(pos[1], frameStride(pb.frameBytes, pb.frameHeaderBytes), pb.headerBytes, nullptr);
    if (pb.frameBytes == 0)
        return ctx.fail(QStringLiteral("'%1' cannot be read at %2 bits").arg(pos[1]).arg(pb.bitDepth));
    std::ifstream second(QFile::encodeName(pos[1]).toStdString(), std::ios::binary);
    if (!second) return ctx.fail(QStringLiteral("cannot read '%1'").arg(pos[1]));
    FramePipeline pipelineB;
    try {
        pipelineB.setup(pb, false);
    } catch (const std::bad_alloc &) {
        return ctx.fail(
            QStringLiteral("'%1' cannot be read: %2")
                .arg(pos[1], notEnoughMemoryText(pb.width, pb.height,
                                                 allocationSize(pb.format, pb.containerBits, pb.width, pb.height))));
    }

    FrameMetricsEngine engine;
    std::string why;
    MetricsFormat format;
    // Measured on the samples as unpacked: a descriptor-read layout is compared in its canonical layout.
    format.layout = src.pipeline.props().format;
    format.width = pa.width;
    format.height = pa.height;
    format.bitsA = src.pipeline.props().bitDepth;
    format.bitsB = pipelineB.props().bitDepth;
    format.containerA = src.pipeline.props().containerBits;
    format.containerB = pipelineB.props().containerBits;
    format.isSigned = pa.signedValues;
    if (!engine.setup(format, mask, &why))
        return ctx.fail(QStringLiteral("%1 at %2 bits against %3 bits cannot be compared: %4")
                            .arg(shortName(pa.format))
                            .arg(pa.bitDepth)
                            .arg(pb.bitDepth)
                            .arg(QString::fromStdString(why)));

    const uint64_t count = std::min(pa.frameCount, pb.frameCount);
    if (count == 0) return ctx.fail(QStringLiteral("no whole frame to compare"));
    if (from >= count)
        return ctx.fail(QStringLiteral("frame %1 is out of range (%2 frame%3 to compare, 0..%4)")
                            .arg(from)
                            .arg(count)
                            .arg(count == 1 ? "" : "s")
                            .arg(count - 1));
    to = std::min(to, count - 1);

    if (csv) ctx.out << QString::fromStdString(metricsCsvHeader(mask));

    SequenceSummary summary(mask, engine.bits());
    for (uint64_t i = from; i <= to; ++i) {
        if (!readFrame(src, i, error)) return ctx.fail(error);
        if (!pipelineB.read(second, nullptr, i))
            return ctx.fail(QStringLiteral("frame %1 of '%2' could not be read").arg(i).arg(pos[1]));
        FrameMetrics fm = engine.compute(src.pipeline.buffer(FramePipeline::Buffer::First),
                                         pipelineB.buffer(FramePipeline::Buffer::First));
        fm.frame = int64_t(i);
        summary.add(fm);
        const double w[3] = {fm.wpsnr, 0, 0};
        if (csv) {
            ctx.out << QString::fromStdString(metricsCsvRow(fm, mask));
            continue;
        }
        JsonObject o;
        o.add("frame", i).add("mse", triple(fm.mse));
        if (mask & metricBit(Metric::Psnr)) o.add("psnr", triple(fm.psnr));
        if (mask & metricBit(Metric::Ssim)) o.add("ssim", triple(fm.ssim));
        if (mask & metricBit(Metric::MsSsim)) o.add("msssim", triple(fm.msssim));
        if (mask & metricBit(Metric::Wpsnr)) o.add("wpsnr", metricJson(Metric::Wpsnr, w));
        ctx.out << o.toString() << '\n';
    }

    const uint64_t frames = to - from + 1;
    auto perMetric = [&](bool mean, Metric m) {
        double v[3];
        for (int k = 0; k < 3; ++k) v[k] = mean ? summary.mean(m, k) : summary.min(m, k);
        return metricJson(m, v);
    };
    double ofMean[3];
    for (int k = 0; k < 3; ++k) ofMean[k] = summary.psnrOfMeanMse(k);
    const SequenceSummary::Mismatch mm = summary.firstMismatch();
    const std::vector<int64_t> worst =
        metrics.empty() ? std::vector<int64_t>{} : summary.worst(metrics.front(), worstCount);
    if (csv) {
        // Two closing rows in the columns of the frames: the means and the minima (the mean MSE under mse).
        ctx.out << QString::fromStdString(metricsCsvSummaryRows(summary));
        return kExitOk;
    }
    JsonObject mean, min;
    for (Metric m : kMetricOrder) {
        if (!(mask & metricBit(m))) continue;
        mean.add(metricName(m), perMetric(true, m));
        min.add(metricName(m), perMetric(false, m));
    }
    QList<JsonValue> worstList;
    for (int64_t f : worst) worstList << JsonValue(f);
    JsonValue mismatch;
    if (mm.frame >= 0) {
        JsonObject o;
        o.add("frame", mm.frame).add("component", mm.component).add("x", mm.x).add("y", mm.y);
        mismatch = o;
    }
    JsonObject o;
    o.add("summary", true)
        .add("frames", frames)
        .add("mean", mean)
        .add("min", min)
        .add("psnr_of_mean_mse", triple(ofMean))
        .add("worst", JsonValue::array(worstList))
        .add("first_mismatch", mismatch)
        .add("identical", mm.frame < 0);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command metricsCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--bits2", "N", "significant bits of FILE2 when they differ from FILE's (1..16)"});
    opts.push_back({nullptr, "--metrics", "LIST", "psnr,ssim,msssim,wpsnr or a part of it (default all)"});
    opts.push_back({nullptr, "--frames", "A-B", "compare frames A to B only (inclusive; or one frame N)"});
    opts.push_back({nullptr, "--worst", "N", "frames listed as the worst in the summary (default 5)"});
    opts.push_back({nullptr, "--csv", nullptr, "one CSV row a frame after a header, then mean and min rows"});
    opts.push_back({nullptr, "--json", nullptr, "one JSON line a frame, then a summary line (default)"});
    return {"metrics", "FILE1 FILE2",
            "per frame MSE, PSNR, SSIM, MS-SSIM and 6:1:1 weighted PSNR per component, then the sequence "
            "summary: mean, min, PSNR of the mean MSE, worst frames, first mismatch. MS-SSIM: 11x11 Gaussian "
            "windows (sigma 1.5) at five scales of 2x2 means; a plane under 176 samples a side gets the "
            "scales that stay 11 or more (exponents scaled to sum 1), under 11 one window cut to fit",
            opts, runMetrics};
}

} // namespace kavri::cli
