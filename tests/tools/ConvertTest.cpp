// Rewriting frames in another layout: round trips between every two layouts of the same sampling and
// depth (generated from the layout table) give back the pattern generator's bytes, what is written reads
// back through the player's own reader, resampling and depth changes give the values worked out by hand,
// and a sequence job leaves nothing behind when it fails or is cancelled.
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/Validation.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutConvert.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"
#include "tools/SequenceConvert.h"

#include <QDir>
#include <QFile>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;
using kavri::test::readAll;
using kavri::test::TempDir;

namespace {

std::string nameOf(int32_t v) { return std::string(layoutInfo(videoFormat_t(v)).keyword); }

VideoProps recordOf(videoFormat_t layout, int32_t w, int32_t h, int32_t bits)
{
    VideoProps p;
    p.format = layout;
    p.width = w;
    p.height = h;
    p.bitDepth = layout == YUV_v210 ? 10 : bits;
    p.containerBits = layout == YUV_v210 ? 16 : containerBitsFor(p.bitDepth);
    p.frameRate = 25.0;
    p.frameBytes = frameBytes(layout, p.containerBits, w, h);
    return p;
}

// One pattern frame of a layout, as the pattern generator writes it.
QByteArray patternFrame(videoFormat_t layout, int32_t w, int32_t h, int32_t bits, uint64_t frame = 3)
{
    PatternSpec s;
    s.layout = layout;
    s.width = w;
    s.height = h;
    s.bits = bits;
    s.containerBits = containerBitsFor(bits);
    QByteArray b(int(patternFrameBytes(s)), '\0');
    if (!writePatternFrame(s, frame, reinterpret_cast<uint8_t *>(b.data()), size_t(b.size()))) return {};
    return b;
}

// Reads `bytes` as a stored frame of `from` through the pipeline and writes it as `to`.
QByteArray convertOne(const VideoProps &from, const QByteArray &bytes, const VideoProps &to, bool y4m = false)
{
    FramePipeline pipe;
    pipe.setup(from, false);
    std::memcpy(pipe.readBuffer(FramePipeline::Buffer::First), bytes.constData(),
                std::min<size_t>(size_t(bytes.size()), pipe.frameBytes()));
    pipe.toNative();
    LayoutConverter c;
    QString error;
    if (!c.setup(from, to, y4m, error)) {
        ADD_FAILURE() << error.toStdString();
        return {};
    }
    QByteArray out(int(c.outputBytes()), '\x5a');
    const VideoProps &canon = pipe.props();
    c.convert(pipe.buffer(FramePipeline::Buffer::First),
              allocationSize(canon.format, canon.containerBits, canon.width, canon.height),
              reinterpret_cast<uint8_t *>(out.data()));
    return out;
}

QByteArray convertTo(videoFormat_t from, int32_t fromBits, const QByteArray &bytes, videoFormat_t to, int32_t toBits,
                     int32_t w, int32_t h)
{
    return convertOne(recordOf(from, w, h, fromBits), bytes, recordOf(to, w, h, toBits));
}

// What a layout holds, for grouping layouts whose round trips must be lossless: the kind of samples,
// their subsampling as stored, alpha for RGB, the filter of a mosaic, and the depth of each component.
std::string samplingKey(videoFormat_t v, int32_t bits)
{
    const PixelDescriptor &d = *pixelDescriptor(v);
    const LayoutInfo &info = layoutInfo(v);
    std::string key;
    if (d.cfa != Cfa::None)
        key = "mosaic" + std::to_string(int(d.cfa));
    else if (info.kind == LayoutKind::Luma)
        key = "luma";
    else if (info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb)
        key = std::string("rgb") + (d.components == 4 ? "a" : "");
    else
        key = "yuv" + std::to_string(d.log2ChromaW) + std::to_string(d.log2ChromaH);
    for (int c = 0; c < std::min<int>(3, d.components); ++c) key += "/" + std::to_string(componentDepth(d, c, bits));
    return key;
}

// Where two frames first differ, for the failure messages (-1 when they are equal).
int firstDifference(const QByteArray &a, const QByteArray &b)
{
    for (int i = 0; i < std::min(a.size(), b.size()); ++i)
        if (a[i] != b[i]) return i;
    return a.size() == b.size() ? -1 : int(std::min(a.size(), b.size()));
}

struct Member {
    videoFormat_t layout;
    int32_t bits;
};

// Every layout at every depth it is tried in (its own when it names one, else 8, 10 and 16 bits), grouped
// by what it holds.
std::map<std::string, std::vector<Member>> samplingGroups()
{
    std::map<std::string, std::vector<Member>> groups;
    for (const LayoutInfo &info : kLayouts) {
        const PixelDescriptor &d = *pixelDescriptor(info.value);
        std::vector<int32_t> depths = {8, 10, 16};
        if (info.value == YUV_v210) depths = {10};
        if (d.fixedDepth) depths = {d.fixedDepth};
        for (int32_t bits : depths) {
            // RGBA and BGRA interleaved above 8 bits are no layout the player reads.
            if ((info.value == RGBA_i444 || info.value == BGRA_i444) && bits > 8) continue;
            groups[samplingKey(info.value, bits)].push_back({info.value, bits});
        }
    }
    return groups;
}

} // namespace

TEST(LayoutConvert, TheGroupsOfLosslessRoundTripsAreThoseExpected)
{
    const auto groups = samplingGroups();
    // A few memberships that the rest of the tests rely on.
    auto members = [&](const std::string &key) {
        std::vector<std::string> names;
        for (const Member &m : groups.at(key)) names.push_back(nameOf(m.layout));
        return names;
    };
    EXPECT_EQ(members("yuv11/8/8/8"), (std::vector<std::string>{"yuv420", "nv12", "nv21", "yv12"}));
    EXPECT_EQ(members("yuv11/10/10/10"), (std::vector<std::string>{"yuv420", "nv12", "nv21", "p010", "yv12"}));
    EXPECT_EQ(members("yuv10/10/10/10"), (std::vector<std::string>{"yuv422", "uyvy", "yuyv", "yuy2", "v210", "nv16",
                                                                   "nv61", "p210", "yv16", "y210"}));
}

// A -> B -> A gives A's bytes back for every two layouts that hold the same samples, at an even size
// (where every stored byte belongs to a sample) and at an odd one.
TEST(LayoutConvert, RoundTripsWithinASamplingAreLossless)
{
    int pairs = 0;
    for (const auto &[key, group] : samplingGroups()) {
        for (const Member &a : group) {
            for (auto [w, h] : {std::pair{12, 6}, std::pair{7, 5}}) {
                const QByteArray original = patternFrame(a.layout, w, h, a.bits);
                ASSERT_FALSE(original.isEmpty()) << nameOf(a.layout);
                // The layouts whose odd sizes store truncated rows or leave bytes no sample reaches give
                // back what their reader reads, written again: a conversion into themselves.
                const QByteArray self = convertTo(a.layout, a.bits, original, a.layout, a.bits, w, h);
                if (w % 2 == 0 && h % 2 == 0) {
                    EXPECT_EQ(firstDifference(self, original), -1) << key << " " << nameOf(a.layout) << " into itself";
                }
                for (const Member &b : group) {
                    if (b.layout == a.layout) continue;
                    // Packed 4:2:2 and nv12 do not store every sample of an odd size (the last luma
                    // column, a truncated last chroma row): no round trip through them can be lossless.
                    const LayoutKind kb = layoutInfo(b.layout).kind;
                    if ((w & 1 || h & 1) && (kb == LayoutKind::Packed422 || kb == LayoutKind::SemiPlanar)) continue;
                    // v210 keeps the chroma of an odd width's last pixel, which no other 4:2:2 layout
                    // has room for in the samples it unpacks into.
                    if ((w & 1) && a.layout == YUV_v210) continue;
                    const QByteArray there = convertTo(a.layout, a.bits, original, b.layout, b.bits, w, h);
                    const QByteArray back = convertTo(b.layout, b.bits, there, a.layout, a.bits, w, h);
                    EXPECT_EQ(firstDifference(back, self), -1)
                        << key << ": " << nameOf(a.layout) << " -> " << nameOf(b.layout) << " -> " << nameOf(a.layout)
                        << " at " << w << "x" << h;
                    if (w % 2 == 0 && h % 2 == 0) {
                        // The written frame is the one the pattern generator writes for B.
                        EXPECT_EQ(firstDifference(there, patternFrame(b.layout, w, h, b.bits)), -1)
                            << nameOf(a.layout) << " -> " << nameOf(b.layout);
                    }
                    ++pairs;
                }
            }
        }
    }
    EXPECT_GT(pairs, 200);
}

TEST(LayoutConvert, DepthChangesShiftWithoutRounding)
{
    // 2x2 luma: 8 -> 10 bits shifts left, 10 -> 8 right, dropping the low bits.
    const QByteArray luma8("\x00\x01\x80\xff", 4);
    const QByteArray luma10 = convertTo(BW, 8, luma8, BW, 10, 2, 2);
    EXPECT_EQ(luma10, QByteArray("\x00\x00\x04\x00\x00\x02\xfc\x03", 8));
    const QByteArray words("\xff\x03\x01\x02\x03\x00\x7f\x00", 8); // 1023, 513, 3, 127
    EXPECT_EQ(convertTo(BW, 10, words, BW, 8, 2, 2), QByteArray("\xff\x80\x00\x1f", 4));
    // 16 -> 1 bit keeps the top bit only.
    const QByteArray w16("\xff\x7f\x00\x80\x00\x00\xff\xff", 8);
    EXPECT_EQ(convertTo(BW, 16, w16, BW, 1, 2, 2), QByteArray("\x00\x01\x00\x01", 4));
}

TEST(LayoutConvert, ChromaIsDroppedToTheTopLeftSampleAndRepeatedWhenWidened)
{
    // 4x2 4:4:4: Y 0..7, U rows 10 11 12 13 / 20 21 22 23, V rows 30 31 32 33 / 40 41 42 43.
    QByteArray p444;
    for (int i = 0; i < 8; ++i) p444.append(char(i));
    for (int base : {10, 20, 30, 40})
        for (int i = 0; i < 4; ++i) p444.append(char(base + i));
    const QByteArray p420 = convertTo(YUV_p444, 8, p444, YUV_p420, 8, 4, 2);
    EXPECT_EQ(p420, p444.left(8) + QByteArray("\x0a\x0c\x1e\x20", 4));
    const QByteArray p422 = convertTo(YUV_p444, 8, p444, YUV_p422, 8, 4, 2);
    EXPECT_EQ(p422, p444.left(8) + QByteArray("\x0a\x0c\x14\x16\x1e\x20\x28\x2a", 8));
    const QByteArray p411 = convertTo(YUV_p444, 8, p444, YUV_p411, 8, 4, 2);
    EXPECT_EQ(p411, p444.left(8) + QByteArray("\x0a\x14\x1e\x28", 4));
    // Back up: every chroma sample covers the pixels of its group.
    EXPECT_EQ(convertTo(YUV_p420, 8, p420, YUV_p444, 8, 4, 2),
              p444.left(8) + QByteArray("\x0a\x0a\x0c\x0c\x0a\x0a\x0c\x0c\x1e\x1e\x20\x20\x1e\x1e\x20\x20", 16));
    // Into packed 4:2:2 (U Y V Y): the chroma of each pair of pixels is its left pixel's.
    EXPECT_EQ(convertTo(YUV_p444, 8, p444, YUV_uyvy, 8, 4, 2),
              QByteArray("\x0a\x00\x1e\x01\x0c\x02\x20\x03\x14\x04\x28\x05\x16\x06\x2a\x07", 16));
}

TEST(LayoutConvert, LumaGetsMidGreyChromaAndYuvGivesLumaItsY)
{
    const QByteArray luma("\x01\x02\x03\x04", 4);
    EXPECT_EQ(convertTo(BW, 8, luma, YUV_nv12, 8, 2, 2), QByteArray("\x01\x02\x03\x04\x80\x80", 6));
    EXPECT_EQ(convertTo(BW, 8, luma, YUV_p010, 10, 2, 2),
              QByteArray("\x00\x01\x00\x02\x00\x03\x00\x04\x00\x80\x00\x80", 12)) // 10-bit values << 6
        << "mid-grey at the target's depth (512), widened luma (1 << 2)";
    EXPECT_EQ(convertTo(YUV_p420, 8, QByteArray("\x01\x02\x03\x04\x55\x66", 6), BW, 8, 2, 2), luma);
}

TEST(LayoutConvert, RgbAlphaIsOpaqueWhenAddedAndPlanarOrdersAreStoredAsNamed)
{
    // 1x2 planar RGB: R 1 2, G 3 4, B 5 6.
    const QByteArray rgbp("\x01\x02\x03\x04\x05\x06", 6);
    EXPECT_EQ(convertTo(RGB_planar, 8, rgbp, RGBA_i444, 8, 1, 2), QByteArray("\x01\x03\x05\xff\x02\x04\x06\xff", 8));
    // B R G and G B R planes hold the samples their letters name, whatever the display shows.
    EXPECT_EQ(convertTo(RGB_planar, 8, rgbp, BRG_planar, 8, 1, 2), QByteArray("\x05\x06\x01\x02\x03\x04", 6));
    EXPECT_EQ(convertTo(RGB_planar, 8, rgbp, GBR_planar, 8, 1, 2), QByteArray("\x03\x04\x05\x06\x01\x02", 6));
    EXPECT_EQ(convertTo(RGB_planar, 8, rgbp, BGR_i444, 8, 1, 2), QByteArray("\x05\x03\x01\x06\x04\x02", 6));
    // Alpha the target has no room for is dropped.
    EXPECT_EQ(convertTo(RGBA_i444, 8, QByteArray("\x01\x03\x05\x09\x02\x04\x06\x09", 8), RGB_planar, 8, 1, 2), rgbp);
}

// Every layout read into full resolution and written again gives back the pattern generator's bytes, at
// even and odd sizes. The generator stores samples where the player reads them (with an odd height the
// second 4:2:0 chroma plane starts half a row early and its last half row falls off the frame; a v210
// group past the width repeats the last pixel), so this holds only if the writer puts every sample
// exactly where the reader took it from.
TEST(LayoutConvert, EveryLayoutReadAndWrittenAgainIsItsOwnBytes)
{
    for (const LayoutInfo &info : kLayouts) {
        const PixelDescriptor &d = *pixelDescriptor(info.value);
        if (d.cfa != Cfa::None) continue; // a mosaic converts only into a mosaic
        std::vector<int32_t> depths = {8, 10, 16};
        if (info.value == YUV_v210) depths = {10};
        if (d.fixedDepth) depths = {d.fixedDepth};
        if ((info.value == RGBA_i444 || info.value == BGRA_i444)) depths = {8};
        const bool rgb = info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb;
        const bool alpha = rgb && d.components == 4;
        const videoFormat_t full =
            info.kind == LayoutKind::Luma ? BW : (rgb ? (alpha ? RGBA_planar : RGB_planar) : YUV_p444);
        for (int32_t bits : depths)
            for (auto [w, h] : {std::pair{8, 4}, std::pair{6, 3}, std::pair{5, 5}, std::pair{13, 7}}) {
                const VideoProps stored = recordOf(info.value, w, h, bits);
                const int32_t fullBits = canonicalProps(stored).bitDepth;
                const QByteArray original = patternFrame(info.value, w, h, bits);
                const QByteArray read = convertOne(stored, original, recordOf(full, w, h, fullBits));
                const QByteArray again = convertOne(recordOf(full, w, h, fullBits), read, stored);
                // Two cases keep the samples but not every byte: the padding of a last v210 group (which
                // no reader looks at) repeats the last pixel's samples, where the generator takes that
                // pixel's chroma from its picture; and a layout unpacked into 4:2:0 planes loses, at an
                // odd height, the half chroma row those planes share, as the player shows it.
                const bool bytesKept = !(info.value == YUV_v210 && w % 6) &&
                                       !(isDescribedLayout(info.value) && d.canonical == YUV_p420 && (h & 1));
                if (bytesKept) {
                    EXPECT_EQ(firstDifference(again, original), -1)
                        << info.keyword << " at " << bits << " bits, " << w << "x" << h;
                } else {
                    EXPECT_EQ(firstDifference(convertOne(stored, again, recordOf(full, w, h, fullBits)), read), -1)
                        << info.keyword << " at " << bits << " bits, " << w << "x" << h << ": the samples read";
                }
            }
    }
}

TEST(LayoutConvert, OddHeight420SharesHalfARowAsTheReaderDoes)
{
    // 4x3: U rows at 12..13 and 14..15, V from 15 (half a row early): U's last right sample is V's first.
    QByteArray p444;
    for (int i = 0; i < 12; ++i) p444.append(char(i));
    for (int base : {0x10, 0x20, 0x30, 0x40, 0x50, 0x60})
        for (int i = 0; i < 4; ++i) p444.append(char(base + i));
    const QByteArray p420 = convertTo(YUV_p444, 8, p444, YUV_p420, 8, 4, 3);
    ASSERT_EQ(p420.size(), 18);
    EXPECT_EQ(p420.mid(12), QByteArray("\x10\x12\x30\x40\x42\x60", 6))
        << "U 10 12 / 30 (32 overwritten by V's 40), V 40 42 / 60 (62 lies past the frame)";
}

TEST(LayoutConvert, RefusalsSayWhy)
{
    VideoProps t;
    QString error;
    EXPECT_FALSE(conversionTarget(recordOf(YUV_p420, 4, 4, 8), RGB_i444, 0, t, error));
    EXPECT_EQ(error, "converting between YUV and RGB layouts is not supported");
    EXPECT_FALSE(conversionTarget(recordOf(RGB_planar, 4, 4, 8), YUV_nv12, 0, t, error));
    EXPECT_EQ(error, "converting between YUV and RGB layouts is not supported");
    EXPECT_FALSE(conversionTarget(recordOf(BW, 4, 4, 8), RGB_planar, 0, t, error));
    EXPECT_FALSE(conversionTarget(recordOf(BAYER_rggb, 4, 4, 8), BW, 0, t, error));
    EXPECT_FALSE(conversionTarget(recordOf(BAYER_rggb, 4, 4, 8), BAYER_bggr, 0, t, error));
    EXPECT_TRUE(conversionTarget(recordOf(BAYER_rggb, 4, 4, 8), BAYER_rggb10p, 0, t, error));
    EXPECT_EQ(t.bitDepth, 10);
    EXPECT_FALSE(conversionTarget(recordOf(YUV_p420, 4, 4, 8), YUV_p010, 8, t, error));
    EXPECT_EQ(error, "p010 holds 10-bit samples only");
    VideoProps signedSource = recordOf(YUV_p420, 4, 4, 8);
    signedSource.signedValues = true;
    EXPECT_FALSE(conversionTarget(signedSource, YUV_nv12, 0, t, error));
    // The depth: the layout's own, else the source's, else the one asked for.
    ASSERT_TRUE(conversionTarget(recordOf(YUV_p010, 4, 4, 10), YUV_p420, 0, t, error));
    EXPECT_EQ(t.bitDepth, 10);
    EXPECT_EQ(t.containerBits, 16);
    ASSERT_TRUE(conversionTarget(recordOf(YUV_p010, 4, 4, 10), YUV_nv12, 8, t, error));
    EXPECT_EQ(t.bitDepth, 8);
    ASSERT_TRUE(conversionTarget(recordOf(YUV_p420, 4, 4, 8), YUV_nv12, 0, t, error));
    EXPECT_EQ(y4mRefusal(t).isEmpty(), false);
}

TEST(LayoutConvert, Y4mFramesHoldWholeChromaSamples)
{
    VideoProps t;
    QString error;
    VideoProps src = recordOf(YUV_p444, 5, 3, 8);
    src.frameRate = 29.97;
    ASSERT_TRUE(conversionTarget(src, YUV_p420, 0, t, error));
    EXPECT_EQ(y4mHeader(t), QByteArray("YUV4MPEG2 W5 H3 F29970:1000 Ip A1:1 C420jpeg\n"));
    QByteArray p444;
    for (int i = 0; i < 15; ++i) p444.append(char(i));
    for (int i = 0; i < 15; ++i) p444.append(char(0x20 + i));
    for (int i = 0; i < 15; ++i) p444.append(char(0x40 + i));
    const QByteArray frame = convertOne(src, p444, t, true);
    // Chroma 3x2: columns 0 2 4 of rows 0 and 2.
    EXPECT_EQ(frame, p444.left(15) + QByteArray("\x20\x22\x24\x2a\x2c\x2e\x40\x42\x44\x4a\x4c\x4e", 12));
    ASSERT_TRUE(conversionTarget(recordOf(YUV_p422, 4, 2, 10), YUV_p422, 0, t, error));
    EXPECT_EQ(y4mHeader(t), QByteArray("YUV4MPEG2 W4 H2 F25:1 Ip A1:1 C422p10\n"));
}

namespace {

// Writes `frames` pattern frames of a layout into a file and returns the record of the file.
VideoProps patternFile(const TempDir &dir, const QString &name, videoFormat_t layout, int32_t w, int32_t h,
                       int32_t bits, int frames)
{
    QByteArray all;
    for (int k = 0; k < frames; ++k) all += patternFrame(layout, w, h, bits, uint64_t(k));
    VideoProps p = recordOf(layout, w, h, bits);
    p.fileName = dir.write(name, all);
    p.frameCount = uint64_t(frames);
    return p;
}

tools::CopyResult runJob(const VideoProps &in, const tools::ConvertJob &job, const tools::ProgressFn &progress = {},
                         const std::atomic<bool> *cancel = nullptr)
{
    FramePipeline pipe;
    pipe.setup(in, false);
    std::ifstream stream(QFile::encodeName(in.fileName).toStdString(), std::ios::binary);
    return tools::convertFrames(job, pipe, stream, progress, cancel);
}

tools::ConvertJob jobFor(const VideoProps &in, const QString &out, videoFormat_t layout, uint64_t first, uint64_t last)
{
    tools::ConvertJob job;
    job.input = in.fileName;
    job.output = out;
    QString error;
    EXPECT_TRUE(conversionTarget(in, layout, 0, job.target, error)) << error.toStdString();
    job.y4m = tools::isY4mName(out);
    job.first = first;
    job.last = last;
    return job;
}

} // namespace

TEST(ConvertFrames, WritesTheRangeFrameByFrame)
{
    TempDir dir;
    const VideoProps in = patternFile(dir, "in.yuv", YUV_p420, 16, 8, 8, 5);
    std::vector<int> seen;
    const auto r = runJob(in, jobFor(in, dir.path("out.nv12"), YUV_nv12, 1, 3), [&](int p) { seen.push_back(p); });
    ASSERT_TRUE(r.ok) << r.error.toStdString();
    EXPECT_EQ(r.framesWritten, 3u);
    EXPECT_EQ(readAll(dir.path("out.nv12")), patternFrame(YUV_nv12, 16, 8, 8, 1) + patternFrame(YUV_nv12, 16, 8, 8, 2) +
                                                 patternFrame(YUV_nv12, 16, 8, 8, 3));
    EXPECT_EQ(seen, (std::vector<int>{33, 66}));
    // A y4m stream: the header, then each frame after its own line.
    const auto y = runJob(in, jobFor(in, dir.path("out.y4m"), YUV_p420, 0, 1));
    ASSERT_TRUE(y.ok) << y.error.toStdString();
    EXPECT_EQ(readAll(dir.path("out.y4m")), QByteArray("YUV4MPEG2 W16 H8 F25:1 Ip A1:1 C420jpeg\nFRAME\n") +
                                                patternFrame(YUV_p420, 16, 8, 8, 0) + "FRAME\n" +
                                                patternFrame(YUV_p420, 16, 8, 8, 1));
}

TEST(ConvertFrames, NothingIsLostOrLeftBehind)
{
    TempDir dir;
    const VideoProps in = patternFile(dir, "in.yuv", YUV_p420, 16, 8, 8, 4);
    const QByteArray input = readAll(in.fileName);
    const QString kept = dir.write("kept.nv12", "keep");
    auto entries = [&] { return QDir(dir.dir()).entryList(QDir::Files | QDir::Hidden | QDir::System); };
    const QStringList before = entries();

    // An existing output without overwrite, the input itself, a folder that does not exist.
    auto r = runJob(in, jobFor(in, kept, YUV_nv12, 0, 3));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.error.contains("exists already")) << r.error.toStdString();
    EXPECT_EQ(readAll(kept), QByteArray("keep"));
    r = runJob(in, jobFor(in, in.fileName, YUV_nv12, 0, 3));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.error.contains("input file itself")) << r.error.toStdString();
    r = runJob(in, jobFor(in, dir.path("no/such/folder/out.nv12"), YUV_nv12, 0, 3));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(readAll(in.fileName), input);
    EXPECT_EQ(entries(), before);

    // A cancel during the run, and one after the last frame: no output, no temporary file.
    std::atomic<bool> cancel{false};
    r = runJob(
        in, jobFor(in, dir.path("c.nv12"), YUV_nv12, 0, 3), [&](int) { cancel = true; }, &cancel);
    EXPECT_TRUE(r.cancelled);
    EXPECT_EQ(entries(), before);
    cancel = false;
    r = runJob(
        in, jobFor(in, dir.path("c.nv12"), YUV_nv12, 0, 0), [&](int) { cancel = true; }, &cancel);
    EXPECT_TRUE(r.ok) << "a one-frame run reports no progress before its end";
    QFile::remove(dir.path("c.nv12"));

    // The input cut short after it was opened: refused before anything is written.
    const VideoProps cut = patternFile(dir, "cut.yuv", YUV_p420, 16, 8, 8, 4);
    const QStringList withCut = entries();
    QFile::resize(cut.fileName, qint64(cut.frameBytes) * 2 + 5);
    r = runJob(cut, jobFor(cut, dir.path("cut.nv12"), YUV_nv12, 0, 3));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.error.contains("frame 3 is missing")) << r.error.toStdString();
    EXPECT_EQ(entries(), withCut);

    // With overwrite an existing output is replaced, only once complete.
    tools::ConvertJob job = jobFor(in, kept, YUV_nv12, 0, 0);
    job.overwrite = true;
    r = runJob(in, job);
    ASSERT_TRUE(r.ok) << r.error.toStdString();
    EXPECT_EQ(readAll(kept), patternFrame(YUV_nv12, 16, 8, 8, 0));
}
