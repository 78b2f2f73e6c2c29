// kavri-cli play: plays a sequence at its frame rate through the player's loader, without a screen, and
// reports how evenly the frames came.
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/LoaderSession.h"
#include "cli/SequenceOptions.h"

#include <algorithm>
#include <limits>

namespace kavri::cli {

namespace {

constexpr int kIdleLimitMs = 30000;

int runPlay(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    if (!ctx.args.has("--frames")) throw UsageError("missing option '--frames'");
    const uint64_t limit = uint64_t(ctx.args.int64Value("--frames", 1, 1, std::numeric_limits<int64_t>::max()));

    LoaderSession session;
    QString error;
    if (!session.open(ctx.args, file, diff, 0.0, error)) return ctx.fail(error);
    const VideoProps &p = session.props();
    if (!(p.frameRate > 0)) return ctx.fail(QStringLiteral("'%1' has no frame rate (give -r)").arg(file));
    HeadlessFrameSink &sink = session.sink();
    sink.setRecording(true);
    sink.setFrameLimit(limit);
    // Wrap around so that any number of frames can be asked of a short file.
    session.loader()->setLoop(true);

    emit sink.play();
    const bool ok = session.waitWhileProgressing(
        [&] { return sink.framesDelivered() >= limit || sink.stoppedCount() > 0; }, kIdleLimitMs);
    if (!ok) return ctx.fail(session.stallReason(kIdleLimitMs));

    std::vector<HeadlessFrameSink::Delivery> d = sink.deliveries();
    if (d.size() > limit) d.resize(size_t(limit));
    double seconds = 0.0, worstMs = 0.0;
    if (d.size() >= 2) {
        seconds = std::chrono::duration<double>(d.back().at - d.front().at).count();
        for (size_t i = 1; i < d.size(); ++i)
            worstMs = std::max(worstMs, std::chrono::duration<double, std::milli>(d[i].at - d[i - 1].at).count());
    }
    const double intervals = d.size() >= 2 ? double(d.size() - 1) : 0.0;
    JsonObject o;
    o.add("frames", uint64_t(d.size()))
        .add("seconds", seconds)
        .add("fps", seconds > 0 ? intervals / seconds : 0.0)
        .add("nominal_fps", p.frameRate)
        .add("mean_interval_ms", intervals > 0 ? seconds * 1000.0 / intervals : 0.0)
        .add("worst_interval_ms", worstMs);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command playCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--diff", "FILE2", "second file of a difference view"});
    opts.push_back({nullptr, "--frames", "N", "number of frames to play (required; the file wraps around)"});
    return {"play", "FILE", "play FILE at its frame rate through the player's loader; print the pacing", opts, runPlay};
}

} // namespace kavri::cli
