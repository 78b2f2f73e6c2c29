// Speed of the per-frame metrics of a 1080p pair: PSNR + SSIM (the pair encoders publish), each alone,
// MS-SSIM alone, and everything (MS-SSIM and the weighted PSNR too), on the worker pool. The pair are random 8-bit
// 4:2:0 frames and the same frames with small noise, so no difference is ever zero. Frames cycle through
// more memory than the last-level cache, so each pair comes from memory as when a file is read.
// bench/metrics-vs-ffmpeg.sh times ffmpeg's psnr and ssim filters on files of the same shape.
#include "formats/FrameSize.h"
#include "pixel/FramePipeline.h"
#include "pixel/SequenceMetrics.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

using namespace kavri;
using namespace kavri::pixel;

constexpr size_t kCycleBytes = size_t(192) << 20;

struct PairSet {
    std::vector<AlignedBuffer> a, b;
    size_t next = 0;
    PairSet(videoFormat_t layout, int32_t w, int32_t h, int32_t bits)
    {
        const int32_t container = bits > 8 ? 16 : 8;
        const size_t bytes = allocationSize(layout, container, w, h);
        const size_t pairs = std::max<size_t>(2, kCycleBytes / (2 * bytes));
        std::mt19937 rng(7);
        const uint32_t mask = (1u << bits) - 1;
        for (size_t i = 0; i < pairs; ++i) {
            a.push_back(allocateAligned(bytes));
            b.push_back(allocateAligned(bytes));
            uint8_t *pa = a.back().get(), *pb = b.back().get();
            if (container == 8) {
                for (size_t k = 0; k < bytes; ++k) {
                    pa[k] = uint8_t(rng() & mask);
                    pb[k] = uint8_t(std::clamp<int>(pa[k] + int(rng() % 7) - 3, 0, int(mask)));
                }
            } else {
                auto *qa = reinterpret_cast<uint16_t *>(pa), *qb = reinterpret_cast<uint16_t *>(pb);
                for (size_t k = 0; k < bytes / 2; ++k) {
                    qa[k] = uint16_t(rng() & mask);
                    qb[k] = uint16_t(std::clamp<int>(qa[k] + int(rng() % 7) - 3, 0, int(mask)));
                }
            }
        }
    }
};

void metrics(benchmark::State &state, int32_t w, int32_t h, int32_t bits, uint32_t which)
{
    PairSet set(YUV_p420, w, h, bits);
    FrameMetricsEngine engine;
    if (!engine.setup({YUV_p420, w, h, bits, bits}, which)) {
        state.SkipWithError("engine refused the format");
        return;
    }
    double sink = 0;
    for (auto _ : state) {
        const size_t i = set.next++ % set.a.size();
        const FrameMetrics m = engine.compute(set.a[i].get(), set.b[i].get());
        sink += m.ssim[0] + m.psnr[0];
    }
    benchmark::DoNotOptimize(sink);
    state.SetItemsProcessed(state.iterations());
}

const uint32_t kPsnrSsim = metricBit(Metric::Psnr) | metricBit(Metric::Ssim);

BENCHMARK_CAPTURE(metrics, psnr_ssim_1080p_8bit, 1920, 1080, 8, kPsnrSsim)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(metrics, psnr_1080p_8bit, 1920, 1080, 8, metricBit(Metric::Psnr))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(metrics, all_1080p_8bit, 1920, 1080, 8, kAllMetrics)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(metrics, psnr_ssim_1080p_10bit, 1920, 1080, 10, kPsnrSsim)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
// MS-SSIM alone (with the MSE and PSNR that always come along): its cost per frame.
BENCHMARK_CAPTURE(metrics, msssim_1080p_8bit, 1920, 1080, 8, metricBit(Metric::MsSsim))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(metrics, msssim_1080p_10bit, 1920, 1080, 10, metricBit(Metric::MsSsim))
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
