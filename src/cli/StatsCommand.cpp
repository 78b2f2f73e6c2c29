// kavri-cli stats: per-frame statistics of every component's stored samples, then a summary.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "pixel/FrameStatistics.h"
#include "tools/SequenceCopy.h"

#include <QRegularExpression>
#include <algorithm>
#include <limits>

namespace kavri::cli {

namespace {

// "--frames A-B": both ends inclusive. Checked before the file is opened, so a malformed range is a
// usage error whatever the file.
bool frameRange(const ParsedArgs &args, uint64_t &first, uint64_t &last)
{
    if (!args.has("--frames")) return false;
    static const QRegularExpression kRange(QStringLiteral("^(\\d{1,19})-(\\d{1,19})$"));
    const QRegularExpressionMatch m = kRange.match(args.value("--frames").trimmed());
    bool okFirst = false, okLast = false;
    if (m.hasMatch()) {
        first = m.captured(1).toULongLong(&okFirst);
        last = m.captured(2).toULongLong(&okLast);
    }
    if (!okFirst || !okLast)
        throw UsageError(("option '--frames' takes a range A-B, not '" + args.value("--frames") + "'").toStdString());
    if (first > last) throw UsageError("option '--frames': the first frame lies after the last");
    return true;
}

JsonValue histogramOf(const std::vector<uint64_t> &bins)
{
    QList<JsonValue> items;
    items.reserve(qsizetype(bins.size()));
    for (uint64_t b : bins) items << JsonValue(b);
    return JsonValue::array(items);
}

struct Summary {
    QString name;
    int32_t min = std::numeric_limits<int32_t>::max(), max = std::numeric_limits<int32_t>::min();
    double sum = 0.0; // of the samples, for the mean over all frames
    uint64_t count = 0;
};

int runStats(Context &ctx)
{
    const QStringList &pos = ctx.args.positionals();
    if (pos.isEmpty()) throw UsageError("needs FILE");
    if (pos.size() > 1) throw UsageError(("unexpected argument '" + pos[1] + "'").toStdString());
    uint64_t first = 0, requestedLast = std::numeric_limits<uint64_t>::max();
    const bool ranged = frameRange(ctx.args, first, requestedLast);
    const bool withHistogram = ctx.args.has("--histogram");

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, pos[0], QString(), src, error)) return ctx.fail(error);
    const VideoProps &p = src.seq.props;
    uint64_t last = 0;
    bool clamped = false;
    if (!tools::fitRange(p.frameCount, first, requestedLast, last, clamped, error))
        return ctx.fail(QStringLiteral("'%1': %2").arg(pos[0], error));
    if (clamped && ranged) ctx.warn(QStringLiteral("'%1' ends at frame %2; counting up to it").arg(pos[0]).arg(last));

    const pixel::StatisticsFormat format = pixel::statisticsFormatOf(src.pipeline.props());
    std::vector<Summary> summary;
    for (uint64_t i = first; i <= last; ++i) {
        if (!readFrame(src, i, error)) return ctx.fail(error);
        const pixel::FrameStatistics st = pixel::computeFrameStatistics(
            format, src.pipeline.buffer(FramePipeline::Buffer::First), src.pipeline.sampleBytes());
        summary.resize(st.components.size());
        QList<JsonValue> comps;
        for (size_t c = 0; c < st.components.size(); ++c) {
            const pixel::ComponentStatistics &s = st.components[c];
            const QString name = QString::fromStdString(s.name);
            JsonObject o;
            o.add("name", name)
                .add("min", s.min)
                .add("max", s.max)
                .add("mean", s.mean)
                .add("stddev", s.stddev)
                .add("zeros", s.zeros)
                .add("clipped", s.clipped);
            if (withHistogram) o.add("histogram", histogramOf(s.histogram));
            comps << JsonValue(o);
            Summary &sum = summary[c];
            sum.name = name;
            if (s.count) {
                sum.min = std::min(sum.min, s.min);
                sum.max = std::max(sum.max, s.max);
                sum.sum += s.mean * double(s.count);
                sum.count += s.count;
            }
        }
        JsonObject line;
        line.add("frame", i).add("components", JsonValue::array(comps));
        ctx.out << line.toString() << '\n';
    }
    QList<JsonValue> comps;
    for (const Summary &s : summary) {
        JsonObject o;
        o.add("name", s.name)
            .add("min", s.count ? s.min : 0)
            .add("max", s.count ? s.max : 0)
            .add("mean", s.count ? s.sum / double(s.count) : 0.0);
        comps << JsonValue(o);
    }
    JsonObject o;
    o.add("summary", true).add("frames", last - first + 1).add("components", JsonValue::array(comps));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command statsCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--frames", "A-B", "only frames A to B, both counted (default all)"});
    opts.push_back({nullptr, "--histogram", nullptr, "add each component's histogram to the frame lines"});
    return {"stats", "FILE",
            "print the minimum, maximum, mean, standard deviation, samples at 0 (the bottom of a signed "
            "range) and at the top of the depth of every component's stored samples, one JSON line a frame "
            "in the layout's storage order, then a summary over the frames",
            opts, runStats};
}

} // namespace kavri::cli
