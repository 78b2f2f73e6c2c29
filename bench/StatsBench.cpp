// Speed of the frame statistics (every component's min, max, mean, deviation, end counts and histogram)
// on the frames the scopes and kavri-cli stats see most: 2160p 10-bit 4:2:0 and 1080p 8-bit 4:2:0.
// Random samples spread over every code; the test pattern is mostly flat areas, where every sample of a
// row lands on the same counter. Frames cycle through more memory than the last-level cache, as in
// playback. The scopes cases time one update of the player's scopes panel and the copy that hands it a
// frame.
#include "formats/FrameSize.h"
#include "pixel/FrameStatistics.h"
#include "pixel/PatternGenerator.h"
#include "pixel/ScopeData.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

using namespace kavri;

constexpr size_t kCycleBytes = size_t(192) << 20;

struct Frames {
    std::vector<std::vector<uint8_t>> frames;
    size_t next = 0;
    const uint8_t *take()
    {
        const uint8_t *p = frames[next].data();
        next = (next + 1) % frames.size();
        return p;
    }
};

// The frames of a case, cycling through more than the cache.
struct Case {
    Frames set;
    pixel::StatisticsFormat fmt;
    size_t bytes = 0;
};

// args: width, height, bits, content (0 random, 1 test pattern), ...
Case makeCase(const benchmark::State &state)
{
    PatternSpec s;
    s.layout = YUV_p420;
    s.width = int32_t(state.range(0));
    s.height = int32_t(state.range(1));
    s.bits = int32_t(state.range(2));
    s.containerBits = s.bits > 8 ? 16 : 8;
    const bool pattern = state.range(3) != 0;
    Case c;
    c.bytes = patternFrameBytes(s);
    c.set.frames.resize(std::max<size_t>(2, kCycleBytes / c.bytes + 1));
    std::mt19937 rng(1);
    uint64_t index = 0;
    for (auto &f : c.set.frames) {
        f.resize(c.bytes);
        if (pattern) {
            writePatternFrame(s, index++, f.data(), f.size());
        } else if (s.containerBits == 8) {
            for (uint8_t &b : f) b = uint8_t(rng());
        } else {
            for (size_t i = 0; i + 1 < c.bytes; i += 2) {
                const uint32_t v = rng() & ((1u << s.bits) - 1);
                f[i] = uint8_t(v);
                f[i + 1] = uint8_t(v >> 8);
            }
        }
    }
    c.fmt.layout = s.layout;
    c.fmt.width = s.width;
    c.fmt.height = s.height;
    c.fmt.bits = s.bits;
    c.fmt.containerBits = s.containerBits;
    return c;
}

// args: ..., threads (1 or 0 = pool)
void statsBench(benchmark::State &state)
{
    Case c = makeCase(state);
    const int32_t threads = int32_t(state.range(4));
    for (auto _ : state) {
        pixel::FrameStatistics st = pixel::computeFrameStatistics(c.fmt, c.set.take(), c.bytes, threads);
        benchmark::DoNotOptimize(st);
    }
    state.SetItemsProcessed(state.iterations() * int64_t(c.fmt.width) * c.fmt.height);
}

// One update of the player's scopes as its worker does it (one thread: statistics, waveform,
// vectorscope), and the copy the loader thread makes when it hands a frame over.
void scopeBench(benchmark::State &state)
{
    Case c = makeCase(state);
    for (auto _ : state) {
        pixel::ScopeData d = pixel::computeScopeData(c.fmt, {}, c.set.take(), c.bytes);
        benchmark::DoNotOptimize(d);
    }
    state.SetItemsProcessed(state.iterations() * int64_t(c.fmt.width) * c.fmt.height);
}

void handOffBench(benchmark::State &state)
{
    Case c = makeCase(state);
    std::vector<uint8_t> copy(c.bytes);
    for (auto _ : state) {
        std::memcpy(copy.data(), c.set.take(), c.bytes);
        benchmark::DoNotOptimize(copy.data());
    }
    state.SetBytesProcessed(state.iterations() * int64_t(c.bytes));
}

void cases(benchmark::internal::Benchmark *b)
{
    for (auto [w, h, bits] : {std::tuple{3840, 2160, 10}, std::tuple{1920, 1080, 8}})
        for (int content : {0, 1})
            for (int threads : {1, 0}) b->Args({w, h, bits, content, threads});
    b->ArgNames({"w", "h", "bits", "pattern", "threads"})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(statsBench)->Name("stats/p420")->Apply(cases);

void scopeCases(benchmark::internal::Benchmark *b)
{
    for (auto [w, h, bits] : {std::tuple{3840, 2160, 10}, std::tuple{1920, 1080, 8}})
        for (int content : {0, 1}) b->Args({w, h, bits, content});
    b->ArgNames({"w", "h", "bits", "pattern"})->UseRealTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(scopeBench)->Name("scopes/p420")->Apply(scopeCases);
BENCHMARK(handOffBench)
    ->Name("scopes/handoff_copy")
    ->Args({3840, 2160, 10, 1})
    ->ArgNames({"w", "h", "bits", "pattern"})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
