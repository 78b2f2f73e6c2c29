// Time from stored frame to shown picture for the layouts read through their descriptor, against the
// original layout they unpack into: P010 against 10-bit 4:2:0 in 16-bit words, NV21 against NV12 and
// 8-bit 4:2:0, Y210 against 10-bit 4:2:2. Each case runs what the player runs for a frame:
// toNativeAndShow (for a described layout the unpack, of the whole frame or a band at a time, and the
// conversion). Frames cycle through more memory than the last-level cache, as in playback.
#include "formats/FrameSize.h"
#include "formats/VideoFormat.h"
#include "pixel/FramePipeline.h"
#include "pixel/PatternGenerator.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

using namespace kavri;

constexpr size_t kCycleBytes = size_t(192) << 20;

// args: layout, width, height, bits, threads (1 or 0 = pool)
void showBench(benchmark::State &state)
{
    PatternSpec s;
    s.layout = videoFormat_t(state.range(0));
    s.width = int32_t(state.range(1));
    s.height = int32_t(state.range(2));
    s.bits = int32_t(state.range(3));
    s.containerBits = s.bits > 8 ? 16 : 8;
    const size_t bytes = patternFrameBytes(s);
    std::vector<std::vector<uint8_t>> frames(std::max<size_t>(2, kCycleBytes / bytes + 1));
    uint64_t index = 0;
    for (auto &f : frames) {
        f.resize(bytes);
        writePatternFrame(s, index++ % 8, f.data(), f.size());
    }
    VideoProps p = patternRecord(s);
    FramePipeline pipe;
    pipe.setup(p, false);
    pipe.converter().setThreadCount(int32_t(state.range(4)));
    std::vector<uint8_t> rgb(size_t(s.width) * s.height * 4);
    size_t next = 0;
    const ViewSettings view;
    for (auto _ : state) {
        std::memcpy(pipe.readBuffer(FramePipeline::Buffer::First), frames[next].data(), bytes);
        next = (next + 1) % frames.size();
        pipe.toNativeAndShow(view, rgb.data());
        benchmark::DoNotOptimize(rgb.data());
    }
    state.SetLabel(std::string(layoutInfo(s.layout).shortName));
    state.SetItemsProcessed(state.iterations() * int64_t(s.width) * s.height);
}

void cases(benchmark::internal::Benchmark *b)
{
    const std::pair<int, int> layouts[] = {{YUV_p010, 10}, {YUV_p420, 10}, {YUV_nv21, 8}, {YUV_nv12, 8},
                                           {YUV_p420, 8},  {YUV_y210, 10}, {YUV_p422, 10}};
    for (auto [w, h] : {std::pair{1920, 1080}, std::pair{3840, 2160}})
        for (auto [layout, bits] : layouts)
            for (int threads : {1, 0}) b->Args({layout, w, h, bits, threads});
    b->ArgNames({"layout", "w", "h", "bits", "threads"})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(showBench)->Apply(cases);

// Odd sizes, whose picture goes through a record of its own (4:2:2 planes for an odd height of 4:2:0,
// 4:4:4 planes for an odd width), one thread.
BENCHMARK(showBench)
    ->Args({YUV_p010, 1920, 1081, 10, 1})
    ->Args({YUV_p010, 1919, 1080, 10, 1})
    ->Args({YUV_nv21, 1920, 1081, 8, 1})
    ->Args({YUV_y210, 1919, 1080, 10, 1})
    ->ArgNames({"layout", "w", "h", "bits", "threads"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The unpack alone (toNative of a described layout), one thread.
void unpackBench(benchmark::State &state)
{
    PatternSpec s;
    s.layout = videoFormat_t(state.range(0));
    s.width = 1920;
    s.height = 1080;
    s.bits = int32_t(state.range(1));
    s.containerBits = s.bits > 8 ? 16 : 8;
    const size_t bytes = patternFrameBytes(s);
    VideoProps p = patternRecord(s);
    FramePipeline pipe;
    pipe.setup(p, false);
    pipe.converter().setThreadCount(1);
    writePatternFrame(s, 0, pipe.readBuffer(FramePipeline::Buffer::First), bytes);
    for (auto _ : state) {
        pipe.toNative();
        benchmark::DoNotOptimize(pipe.buffer(FramePipeline::Buffer::First));
    }
    state.SetLabel(std::string(layoutInfo(s.layout).shortName));
}
BENCHMARK(unpackBench)->Args({YUV_p010, 10})->Args({YUV_nv21, 8})->Args({YUV_y210, 10})->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
