// Speed of the frame conversion per layout family and of the difference picture, next to libyuv and
// swscale doing the nearest equivalent conversion (when they are installed) and memcpy of the
// destination's bytes. Source frames are cycled through a set larger than the last-level cache, so
// every conversion reads its frame from memory as in playback.
#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"
#include "pixel/DifferencePicture.h"
#include "pixel/WorkerPool.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <random>
#include <vector>

#ifdef KAVRI_BENCH_LIBYUV
#include <libyuv.h>
#endif
#ifdef KAVRI_BENCH_SWSCALE
extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}
#endif

namespace {

using ColorConversion::X2RGBColorConv;
using kavri::allocationSize;

constexpr size_t kCycleBytes = size_t(192) << 20; // beyond the 105 MiB last-level cache of the test machine

struct Family {
    const char *name;
    videoFormat_t layout;
    int32_t bits;
    bool bigEndian;
};

// Frames of random samples (masked to the depth), enough of them to overflow the cache.
struct FrameSet {
    // 64-byte aligned frames, as the loader's read buffers should be (and libyuv's callers' usually are)
    struct Aligned {
        std::vector<uint8_t> storage;
        uint8_t *p = nullptr;
        void resize(size_t n)
        {
            storage.resize(n + 64);
            p = storage.data() + ((64 - reinterpret_cast<uintptr_t>(storage.data()) % 64) % 64);
        }
        uint8_t *data() { return p; }
        uint8_t &operator[](size_t i) { return p[i]; }
    };
    std::vector<Aligned> frames;
    size_t next = 0;
    FrameSet(videoFormat_t f, int32_t w, int32_t h, int32_t bits, size_t minFrames = 2)
    {
        const int32_t container = bits > 8 ? 16 : 8;
        const size_t bytes = allocationSize(f, container, w, h);
        size_t n = kCycleBytes / bytes + 1;
        if (n < minFrames) n = minFrames;
        std::mt19937 rng(1);
        frames.resize(n);
        for (auto &fr : frames) {
            fr.resize(bytes);
            uint32_t *w32 = reinterpret_cast<uint32_t *>(fr.data());
            for (size_t i = 0; i < bytes / 4; ++i) w32[i] = rng();
            if (container == 16 && f != YUV_v210)
                for (size_t i = 1; i < bytes; i += 2) fr[i] &= uint8_t((1 << (bits - 8)) - 1);
        }
    }
    uint8_t *take()
    {
        uint8_t *p = frames[next].data();
        next = (next + 1) % frames.size();
        return p;
    }
};

void setPixels(benchmark::State &state, int64_t pixels)
{
    state.SetItemsProcessed(state.iterations() * pixels); // items/s = pixels a second
}

// args: width, height, tone (0 identity, 1 brightness/contrast/gamma changed), threads (1 or 0 = pool)
void convertBench(benchmark::State &state, Family fam)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    FrameSet set(fam.layout, w, h, fam.bits);
    VideoProps p;
    p.width = w;
    p.height = h;
    p.format = fam.layout;
    p.bitDepth = fam.bits;
    p.containerBits = fam.bits > 8 ? 16 : 8;
    p.toggleEndianness = fam.bigEndian;
    X2RGBColorConv conv;
    conv.setDescription(p);
    if (state.range(2)) conv.setToneCurve(12, 40, 300);
    conv.setThreadCount(int32_t(state.range(3)));
    std::vector<uint8_t> dst(size_t(w) * h * 4);
    for (auto _ : state) {
        conv.convertFrame(set.take(), dst.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(conv.kernelVariant());
    setPixels(state, int64_t(w) * h);
}

void sizes(benchmark::internal::Benchmark *b, bool withTone = true)
{
    for (auto [w, h] : {std::pair{1920, 1080}, std::pair{3840, 2160}})
        for (int tone : {0, 1})
            for (int threads : {1, 0})
                if (withTone || tone == 0) b->Args({w, h, tone, threads});
    b->UseRealTime()->Unit(benchmark::kMillisecond);
}

const Family kFamilies[] = {
    {"p420_8", YUV_p420, 8, false},         {"p420_10le", YUV_p420, 10, false}, {"p420_10be", YUV_p420, 10, true},
    {"uyvy_8", YUV_uyvy, 8, false},         {"nv12_8", YUV_nv12, 8, false},     {"v210", YUV_v210, 10, false},
    {"p422_8", YUV_p422, 8, false},         {"p444_8", YUV_p444, 8, false},     {"rgb_i444_8", RGB_i444, 8, false},
    {"rgb_planar_8", RGB_planar, 8, false},
};

void memcpyBench(benchmark::State &state)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    const size_t bytes = size_t(w) * h * 4;
    std::vector<std::vector<uint8_t>> frames(kCycleBytes / bytes + 1, std::vector<uint8_t>(bytes, 1));
    std::vector<uint8_t> dst(bytes);
    size_t i = 0;
    for (auto _ : state) {
        std::memcpy(dst.data(), frames[i].data(), bytes);
        i = (i + 1) % frames.size();
        benchmark::ClobberMemory();
    }
    setPixels(state, int64_t(w) * h);
}
BENCHMARK(memcpyBench)
    ->Name("memcpy_dst_bytes")
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

// The same copy in bands on the conversion's worker pool: the memory limit with every core.
void memcpyPoolBench(benchmark::State &state)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    const size_t bytes = size_t(w) * h * 4;
    std::vector<std::vector<uint8_t>> frames(kCycleBytes / bytes + 1, std::vector<uint8_t>(bytes, 1));
    std::vector<uint8_t> dst(bytes);
    kavri::pixel::WorkerPool &pool = kavri::pixel::WorkerPool::shared();
    const int32_t bands = 4 * (pool.threadCount() + 1);
    size_t i = 0;
    for (auto _ : state) {
        const uint8_t *src = frames[i].data();
        pool.run(bands, 7, [&](int32_t b) {
            const size_t from = bytes * size_t(b) / size_t(bands), to = bytes * size_t(b + 1) / size_t(bands);
            std::memcpy(dst.data() + from, src + from, to - from);
        });
        i = (i + 1) % frames.size();
        benchmark::ClobberMemory();
    }
    setPixels(state, int64_t(w) * h);
}
BENCHMARK(memcpyPoolBench)
    ->Name("memcpy_dst_bytes_pool")
    ->Args({1920, 1080})
    ->Args({3840, 2160})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

void differenceBench(benchmark::State &state)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    FrameSet a(YUV_p420, w, h, 8), b(YUV_p420, w, h, 8);
    std::vector<uint8_t> dst(allocationSize(YUV_p420, 8, w, h));
    DifferencePicture d;
    d.setup(YUV_p420, w, h, w, 8, false);
    for (auto _ : state) {
        d.compute(a.take(), b.take(), dst.data());
        benchmark::DoNotOptimize(d.psnr[0]);
    }
    setPixels(state, int64_t(w) * h);
}
BENCHMARK(differenceBench)->Name("difference/p420_8")->Args({1920, 1080})->UseRealTime()->Unit(benchmark::kMillisecond);

#ifdef KAVRI_BENCH_LIBYUV
// libyuv baselines, one thread, the same frame cycling.
void libyuvBench(benchmark::State &state, Family fam)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    FrameSet set(fam.layout, w, h, fam.bits);
    std::vector<uint8_t> dst(size_t(w) * h * 4);
    const int64_t n = int64_t(w) * h;
    for (auto _ : state) {
        uint8_t *s = set.take();
        switch (fam.layout) {
        case YUV_p420:
            if (fam.bits == 8)
                libyuv::I420ToARGB(s, w, s + n, w / 2, s + n + n / 4, w / 2, dst.data(), w * 4, w, h);
            else {
                const uint16_t *s16 = reinterpret_cast<const uint16_t *>(s);
                libyuv::I010ToARGB(s16, w, s16 + n, w / 2, s16 + n + n / 4, w / 2, dst.data(), w * 4, w, h);
            }
            break;
        case YUV_uyvy: libyuv::UYVYToARGB(s, w * 2, dst.data(), w * 4, w, h); break;
        case YUV_nv12: libyuv::NV12ToARGB(s, w, s + n, w, dst.data(), w * 4, w, h); break;
        case RGB_i444: libyuv::RAWToARGB(s, w * 3, dst.data(), w * 4, w, h); break;
        case RGB_planar:
            libyuv::MergeARGBPlane(s, w, s + n, w, s + 2 * n, w, nullptr, 0, dst.data(), w * 4, w, h);
            break;
        default: break;
        }
        benchmark::ClobberMemory();
    }
    setPixels(state, n);
}
#endif

#ifdef KAVRI_BENCH_SWSCALE
void swscaleBench(benchmark::State &state, Family fam, AVPixelFormat in)
{
    const int32_t w = int32_t(state.range(0)), h = int32_t(state.range(1));
    FrameSet set(fam.layout, w, h, fam.bits);
    std::vector<uint8_t> dst(size_t(w) * h * 4);
    SwsContext *ctx = sws_getContext(w, h, in, w, h, AV_PIX_FMT_BGRA, SWS_POINT, nullptr, nullptr, nullptr);
    if (!ctx) {
        state.SkipWithError("swscale context");
        return;
    }
    const int64_t n = int64_t(w) * h;
    const int bps = fam.bits > 8 ? 2 : 1;
    uint8_t *dstPlanes[4] = {dst.data(), nullptr, nullptr, nullptr};
    int dstStrides[4] = {w * 4, 0, 0, 0};
    for (auto _ : state) {
        uint8_t *s = set.take();
        const uint8_t *planes[4] = {s, nullptr, nullptr, nullptr};
        int strides[4] = {w * bps, 0, 0, 0};
        switch (fam.layout) {
        case YUV_p420:
            planes[1] = s + n * bps, planes[2] = s + (n + n / 4) * bps;
            strides[1] = strides[2] = w / 2 * bps;
            break;
        case YUV_nv12: planes[1] = s + n, strides[1] = w; break;
        case YUV_uyvy: strides[0] = w * 2; break;
        case RGB_i444: strides[0] = w * 3; break;
        case RGB_planar: // GBRP wants G, B, R planes
            planes[0] = s + n, planes[1] = s + 2 * n, planes[2] = s;
            strides[1] = strides[2] = w;
            break;
        case YUV_p422: planes[1] = s + n, planes[2] = s + n + n / 2, strides[1] = strides[2] = w / 2; break;
        case YUV_p444: planes[1] = s + n, planes[2] = s + 2 * n, strides[1] = strides[2] = w; break;
        default: break;
        }
        sws_scale(ctx, planes, strides, 0, h, dstPlanes, dstStrides);
        benchmark::ClobberMemory();
    }
    sws_freeContext(ctx);
    setPixels(state, n);
}
#endif

int registerAll()
{
    for (const Family &f : kFamilies) {
        sizes(benchmark::RegisterBenchmark((std::string("kavri/") + f.name).c_str(), convertBench, f));
#ifdef KAVRI_BENCH_LIBYUV
        const bool yuv = (f.layout == YUV_p420 && !f.bigEndian) || f.layout == YUV_uyvy || f.layout == YUV_nv12 ||
                         f.layout == RGB_i444 || f.layout == RGB_planar;
        if (yuv)
            benchmark::RegisterBenchmark((std::string("libyuv/") + f.name).c_str(), libyuvBench, f)
                ->Args({1920, 1080})
                ->Args({3840, 2160})
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
#endif
#ifdef KAVRI_BENCH_SWSCALE
        AVPixelFormat in = AV_PIX_FMT_NONE;
        switch (f.layout) {
        case YUV_p420:
            in = f.bits == 8 ? AV_PIX_FMT_YUV420P : (f.bigEndian ? AV_PIX_FMT_YUV420P10BE : AV_PIX_FMT_YUV420P10LE);
            break;
        case YUV_uyvy: in = AV_PIX_FMT_UYVY422; break;
        case YUV_nv12: in = AV_PIX_FMT_NV12; break;
        case YUV_p422: in = AV_PIX_FMT_YUV422P; break;
        case YUV_p444: in = AV_PIX_FMT_YUV444P; break;
        case RGB_i444: in = AV_PIX_FMT_RGB24; break;
        case RGB_planar: in = AV_PIX_FMT_GBRP; break;
        default: break;
        }
        if (in != AV_PIX_FMT_NONE)
            benchmark::RegisterBenchmark((std::string("swscale/") + f.name).c_str(), swscaleBench, f, in)
                ->Args({1920, 1080})
                ->Args({3840, 2160})
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
#endif
    }
    return 0;
}
const int kRegistered = registerAll();

} // namespace

BENCHMARK_MAIN();
