// Playback through a real KavriLoader as fast as it goes: reading from the page cache, conversion and
// the hand-off to a headless owner, with and without the read-ahead of the next frame. Frames per second
// are reported as items per second. The files are made once in a temporary folder and read once before
// timing, so they come from the page cache as a file being inspected does.
#include "loader/HeadlessFrameSink.h"
#include "loader/KavriLoader.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>
#include <cstring>
#include <map>
#include <memory>
#include <vector>

namespace {

constexpr int kWaitMs = 60000;

struct Sequence {
    int32_t width, height, bits;
    int frames;
};

// A 4:2:0 file of `frames` frames of varying bytes (the values do not change the work done).
QString sequenceFile(const Sequence &s)
{
    static QTemporaryDir dir;
    static std::map<QString, QString> made;
    const QString key = QStringLiteral("%1x%2_%3_%4").arg(s.width).arg(s.height).arg(s.bits).arg(s.frames);
    auto it = made.find(key);
    if (it != made.end()) return it->second;
    const QString path = dir.filePath(key + QStringLiteral(".yuv"));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly)) return {};
    const size_t sampleBytes = s.bits > 8 ? 2 : 1;
    const size_t frameBytes = size_t(s.width) * size_t(s.height) * 3 / 2 * sampleBytes;
    std::vector<uint8_t> frame(frameBytes);
    for (int i = 0; i < s.frames; ++i) {
        for (size_t k = 0; k < frameBytes; ++k) frame[k] = uint8_t(k * 7 + size_t(i) * 13);
        if (s.bits > 8)
            for (size_t k = 1; k < frameBytes; k += 2) frame[k] &= uint8_t((1u << (s.bits - 8)) - 1);
        f.write(reinterpret_cast<const char *>(frame.data()), qint64(frameBytes));
    }
    f.close();
    // Through the page cache once, as a file opened a second time would be.
    QFile warm(path);
    if (warm.open(QIODevice::ReadOnly))
        while (!warm.read(qint64(1) << 24).isEmpty()) {}
    made[key] = path;
    return path;
}

void playThrough(benchmark::State &state, Sequence seq, bool readAhead)
{
    const QString path = sequenceFile(seq);
    KavriLoader::Options options;
    options.useRemembered = false;
    options.rememberFormats = false;
    options.readAhead = readAhead;
    KavriLoader *loader = KavriLoader::create(path, {}, options);
    if (!loader) {
        state.SkipWithError("cannot open the sequence");
        return;
    }
    VideoProps &p = loader->pendingProps();
    p.width = seq.width;
    p.height = seq.height;
    p.format = YUV_p420;
    p.bitDepth = seq.bits;
    p.containerBits = seq.bits > 8 ? 16 : 8;
    p.frameRate = 1e9; // every pause comes out as zero
    loader->validate();
    HeadlessFrameSink sink;
    loader->attach(&sink, &sink);
    sink.waitUntil([&] { return sink.initializedCount() >= 1; }, kWaitMs);

    uint64_t delivered = 0;
    for (auto _ : state) {
        // Playing to the end stops, which shows frame 0 once more; every delivery is counted.
        const int stops = sink.stoppedCount();
        const uint64_t before = sink.framesDelivered();
        emit sink.play();
        if (!sink.waitUntil([&] { return sink.stoppedCount() > stops; }, kWaitMs)) {
            state.SkipWithError("playback did not end");
            break;
        }
        delivered += sink.framesDelivered() - before;
    }
    state.SetItemsProcessed(int64_t(delivered));
    state.counters["Mpixel/s"] =
        benchmark::Counter(double(delivered) * seq.width * seq.height / 1e6, benchmark::Counter::kIsRate);
    loader->detach();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const struct {
        const char *name;
        Sequence seq;
    } sequences[] = {
        {"1080p_8bit", {1920, 1080, 8, 240}},
        {"2160p_8bit", {3840, 2160, 8, 60}},
        {"2160p_10bit", {3840, 2160, 10, 60}},
    };
    for (const auto &s : sequences)
        for (bool ahead : {true, false})
            benchmark::RegisterBenchmark((std::string("loader/") + s.name + (ahead ? "/read_ahead" : "/plain")).c_str(),
                                         playThrough, s.seq, ahead)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime()
                ->MinTime(2.0);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
