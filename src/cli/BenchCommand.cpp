// kavri-cli bench: plays a sequence once through the player's loader as fast as it can and reports the
// frame rate reached (reading, conversion and hand-off included).
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/LoaderSession.h"
#include "cli/SequenceOptions.h"

#include <limits>

namespace kavri::cli {

namespace {

// A rate so high that every pause comes out as zero: the loop then runs flat out.
constexpr double kUnpacedRate = 1e9;
constexpr int kIdleLimitMs = 30000;

int runBench(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    const uint64_t limit = uint64_t(ctx.args.int64Value("--frames", 0, 1, std::numeric_limits<int64_t>::max()));

    LoaderSession session;
    QString error;
    if (!session.open(ctx.args, file, diff, kUnpacedRate, error)) return ctx.fail(error);
    const VideoProps &p = session.props();
    HeadlessFrameSink &sink = session.sink();

    // Without a limit a file plays to its end; standard input plays until it ends.
    uint64_t target = limit;
    // A stream (standard input, a pipe) has no count: it plays until it ends.
    const bool stream = session.loader()->isStdin();
    if (target == 0 && !stream) target = p.frameCount;
    if (limit != 0 && !stream && limit > p.frameCount) target = p.frameCount;
    sink.setFrameLimit(target);

    const auto start = HeadlessFrameSink::Clock::now();
    emit sink.play();
    const bool ok = session.waitWhileProgressing(
        [&] { return (target != 0 && sink.framesDelivered() >= target) || sink.stoppedCount() > 0; }, kIdleLimitMs);
    if (!ok) return ctx.fail(session.stallReason(kIdleLimitMs));

    uint64_t frames = sink.framesDelivered();
    auto end = sink.lastArrival();
    if (target != 0 && frames >= target) {
        frames = target;
        end = sink.limitReachedAt();
    }
    const double seconds = std::chrono::duration<double>(end - start).count();
    const double fps = seconds > 0 ? double(frames) / seconds : 0.0;
    const double mpix = fps * double(p.width) * double(p.height) / 1e6;

    JsonObject o;
    o.add("frames", frames).add("seconds", seconds).add("fps", fps).add("mpixel_per_s", mpix);
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command benchCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    opts.push_back({nullptr, "--diff", "FILE2", "second file of a difference view"});
    opts.push_back({nullptr, "--frames", "N", "stop after N frames (default: the whole file once)"});
    return {"bench", "FILE", "play FILE once through the player's loader as fast as possible; print the rate", opts,
            runBench};
}

} // namespace kavri::cli
