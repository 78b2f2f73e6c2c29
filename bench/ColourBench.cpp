// Conversion time of the colour readings against the default conversion, per layout family at 1080p and
// 2160p: a matrix and range with nearest chroma (the row kernels with other constants), sited chroma
// (the sited rows; 16-bit samples the gathered rows) and PQ (gathered rows and the tone-map tables). Single-threaded,
// so the figures compare the work and not the scheduling; one frame converted over and over (the conversion, not the
// memory system, is what differs between the readings). A last pair converts 2160p 10-bit 4:2:0 with the worker pool,
// as playback does: the time a frame of 4K PQ takes on every core.
#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"
#include "pixel/PatternGenerator.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

using namespace kavri;

// args: layout, width, height, bits, reading (0 default, 1 BT.601 limited, 2 BT.709 limited left-sited,
// 3 BT.2020 limited PQ), threads (1, or 0 for the worker pool)
void colourBench(benchmark::State &state)
{
    PatternSpec s;
    s.layout = videoFormat_t(state.range(0));
    s.width = int32_t(state.range(1));
    s.height = int32_t(state.range(2));
    s.bits = s.layout == YUV_v210 ? 10 : int32_t(state.range(3));
    s.containerBits = s.bits > 8 ? 16 : 8;
    VideoProps p = patternRecord(s);
    static const char *kReadings[] = {"default", "bt601 limited", "bt709 limited left", "bt2020 limited pq"};
    switch (state.range(4)) {
    case 1:
        p.colour.matrix = ColourMatrix::BT601;
        p.colour.range = ColourRange::Limited;
        break;
    case 2:
        p.colour.matrix = ColourMatrix::BT709;
        p.colour.range = ColourRange::Limited;
        p.colour.chroma = ChromaSiting::Left;
        break;
    case 3:
        p.colour.matrix = ColourMatrix::BT2020;
        p.colour.range = ColourRange::Limited;
        p.colour.transfer = ColourTransfer::PQ;
        break;
    default: break;
    }
    std::vector<uint8_t> frame(size_t(allocationSize(s.layout, s.containerBits, s.width, s.height)));
    writePatternFrame(s, 3, frame.data(), frame.size());
    ColorConversion::X2RGBColorConv c;
    c.setDescription(p);
    c.setThreadCount(int32_t(state.range(5)));
    std::vector<uint8_t> rgb(size_t(s.width) * s.height * 4);
    for (auto _ : state) {
        c.convertNativeFrame(frame.data(), rgb.data());
        benchmark::DoNotOptimize(rgb.data());
    }
    state.SetLabel(std::string(layoutInfo(s.layout).shortName) + " " + std::to_string(s.bits) + "-bit " +
                   kReadings[state.range(4)] + (state.range(5) == 1 ? "" : " pool"));
    state.SetItemsProcessed(state.iterations() * int64_t(s.width) * s.height);
}

void cases(benchmark::internal::Benchmark *b)
{
    struct L {
        videoFormat_t layout;
        int bits;
    };
    for (L l : {L{YUV_p420, 8}, L{YUV_p420, 10}, L{YUV_p422, 8}, L{YUV_p444, 8}, L{YUV_uyvy, 8}, L{YUV_nv12, 8},
                L{YUV_v210, 10}, L{RGB_i444, 8}, L{YUV_p411, 8}, L{YUV_p444, 16}, L{YUV_p420, 12}, L{YUV_p420, 16},
                L{YUV_p422, 16}, L{BW, 8}, L{BGRA_i444, 8}})
        for (auto size : {std::pair{1920, 1080}, std::pair{3840, 2160}})
            for (int reading = 0; reading < 4; ++reading)
                b->Args({l.layout, size.first, size.second, l.bits, reading, 1});
    for (int reading : {0, 3}) b->Args({YUV_p420, 3840, 2160, 10, reading, 0});
}

BENCHMARK(colourBench)->Apply(cases)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
