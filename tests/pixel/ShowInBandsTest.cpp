// Showing a frame a band of rows at a time: the converter's bands against its conversion of the whole
// frame for every original layout it takes, and a refusal that writes nothing for the others; the
// pipeline's toNativeAndShow against toNative then show for every newer layout, with the samples
// unpacked only when asked for and then equal to the whole unpack.
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "pixel/ColorConversion.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/PatternGenerator.h"
#include "pixel/PlaneGeometry.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (uint8_t &b : v) b = uint8_t(rng());
    return v;
}

std::string nameOf(int32_t v) { return std::string(layoutInfo(videoFormat_t(v)).shortName); }

// Sizes around the band height (16 rows) and the vector widths, tiny ones, and one large enough for the
// converter to share its rows out over the pool.
constexpr int32_t kSizes[][2] = {{1, 1}, {2, 2}, {3, 5}, {5, 17}, {17, 33}, {66, 34}, {401, 333}};
constexpr int64_t kLarge = 401 * 333;

// Where the first three planes of a planar frame of `rows` rows start, and the samples a row of each.
struct Planes {
    int64_t start[3];
    int32_t cols[3];
};

Planes planesOf(videoFormat_t layout, int32_t w, int32_t rows, int32_t sampleBytes, int32_t container)
{
    const LayoutInfo &info = layoutInfo(layout);
    if (info.kind == LayoutKind::PlanarRgb) {
        const int64_t n = int64_t(w) * rows;
        return {{0, n, 2 * n}, {w, w, w}};
    }
    const ChromaPlanes c = chromaPlanes(layout, w, rows, allocationSize(layout, container, w, rows) / sampleBytes);
    return {{0, c.uStart, c.vStart}, {w, c.cols, c.cols}};
}

// Stored rows [s0, s1) of a planar frame as a frame of their own, its planes one after the other.
std::vector<uint8_t> bandOf(const std::vector<uint8_t> &frame, const VideoProps &p, int32_t s0, int32_t s1)
{
    const int32_t sb = p.containerBits / 8, n = s1 - s0;
    const Planes whole = planesOf(p.format, p.width, p.height, sb, p.containerBits);
    const Planes part = planesOf(p.format, p.width, n, sb, p.containerBits);
    std::vector<uint8_t> band(allocationSize(p.format, p.containerBits, p.width, n), 0);
    for (int k = 0; k < 3; ++k)
        for (int32_t j = 0; j < n; ++j)
            std::memcpy(band.data() + (part.start[k] + int64_t(j) * part.cols[k]) * sb,
                        frame.data() + (whole.start[k] + int64_t(s0 + j) * whole.cols[k]) * sb,
                        size_t(part.cols[k]) * size_t(sb));
    return band;
}

} // namespace

// Every original layout, depth, size, flip, thread count and kernel set, with and without a tone curve
// and one component shown: where the converter takes the frame in bands, the picture is the one of the
// whole frame's conversion and every stored row was asked for once; elsewhere it refuses and writes
// nothing. A band source that gives nothing leaves its rows alone.
TEST(ConvertInBands, BandsGiveTheWholeFramesPictureOrAreRefused)
{
    struct Depth {
        int32_t bits, container;
        bool isSigned;
    };
    const Depth depths[] = {{8, 8, false}, {10, 16, false}, {10, 16, true}, {16, 16, false}};
    std::vector<const char *> sets = {"portable"};
    if (avx2Kernels()) sets.push_back("avx2");
    if (avx512Kernels()) sets.push_back("avx512");
    int32_t banded = 0;
    for (int v = 1; v <= kCoreLayoutCount; ++v) {
        const LayoutInfo &info = layoutInfo(videoFormat_t(v));
        for (const Depth &dp : depths)
            for (const auto &sz : kSizes) {
                const int32_t W = sz[0], H = sz[1];
                VideoProps p;
                p.format = videoFormat_t(v);
                p.width = W;
                p.height = H;
                p.bitDepth = dp.bits;
                p.containerBits = dp.container;
                const int64_t alloc = allocationSize(v, dp.container, W, H);
                if (alloc == 0) continue;
                const auto frame = randomBytes(size_t(alloc), uint32_t(v * 7919 + W * 31 + H + dp.bits));
                const bool planar = info.kind == LayoutKind::PlanarRgb ||
                                    (info.kind == LayoutKind::PlanarYuv && info.chromaShiftY == 0 && v != YUV_nv12 &&
                                     (W >> info.chromaShiftX) > 0);
                for (const char *set : sets)
                    for (int32_t threads : {1, 0})
                        for (bool flip : {false, true})
                            for (int variant = 0; variant < 3; ++variant) {
                                // The large frame once per set and flip, on the pool.
                                if (int64_t(W) * H == kLarge && (threads == 1 || variant == 2)) continue;
                                SCOPED_TRACE(nameOf(v) + " " + std::to_string(W) + "x" + std::to_string(H) + " " +
                                             std::to_string(dp.bits) + "/" + std::to_string(dp.container) +
                                             (dp.isSigned ? " signed " : " ") + set + " threads " +
                                             std::to_string(threads) + (flip ? " flipped" : "") + " variant " +
                                             std::to_string(variant));
                                p.flipped = flip;
                                ColorConversion::X2RGBColorConv conv;
                                conv.setDescription(p);
                                conv.setUnsigned(!dp.isSigned);
                                ASSERT_TRUE(conv.setKernelVariant(set));
                                conv.setThreadCount(threads);
                                if (variant == 1) {
                                    conv.setToneCurve(-20, 700, 300);
                                    conv.setChannelSelection(2);
                                }
                                std::vector<uint8_t> whole(size_t(W) * H * 4, 0x77), bands(whole.size(), 0x77);
                                conv.convertNativeFrame(frame.data(), whole.data());
                                std::vector<int32_t> asked(size_t(H), 0);
                                // variant 2: the source gives nothing for the band holding stored row 0.
                                const bool took = conv.convertNativeBands(bands.data(), [&](int32_t s0, int32_t s1) {
                                    thread_local std::vector<uint8_t> band;
                                    EXPECT_TRUE(s0 >= 0 && s0 < s1 && s1 <= H) << s0 << ".." << s1;
                                    if (s0 < 0 || s1 > H || s0 >= s1) return static_cast<const uint8_t *>(nullptr);
                                    for (int32_t s = s0; s < s1; ++s) ++asked[size_t(s)]; // one band per row
                                    if (variant == 2 && s0 == 0) return static_cast<const uint8_t *>(nullptr);
                                    band = bandOf(frame, p, s0, s1);
                                    return static_cast<const uint8_t *>(band.data());
                                });
                                ASSERT_EQ(took, planar);
                                if (!took) {
                                    EXPECT_EQ(bands, std::vector<uint8_t>(whole.size(), 0x77));
                                    continue;
                                }
                                ++banded;
                                for (int32_t s = 0; s < H; ++s) ASSERT_EQ(asked[size_t(s)], 1) << "stored row " << s;
                                if (variant != 2) {
                                    ASSERT_EQ(bands, whole);
                                    continue;
                                }
                                // The rows of the band left out are untouched, all others converted.
                                for (int32_t r = 0; r < H; ++r) {
                                    const int32_t s = flip ? H - 1 - r : r;
                                    const size_t at = size_t(r) * W * 4;
                                    const bool same = std::equal(bands.begin() + at, bands.begin() + at + size_t(W) * 4,
                                                                 whole.begin() + at);
                                    const bool blank =
                                        std::all_of(bands.begin() + at, bands.begin() + at + size_t(W) * 4,
                                                    [](uint8_t b) { return b == 0x77; });
                                    ASSERT_TRUE(same || blank) << "row " << r;
                                    if (s == 0) {
                                        EXPECT_TRUE(blank) << "row " << r;
                                    }
                                }
                            }
            }
    }
    EXPECT_GT(banded, 500);

    // A reading other than the default is not taken in bands.
    VideoProps p;
    p.format = YUV_p422;
    p.width = 64;
    p.height = 32;
    p.bitDepth = 10;
    p.containerBits = 16;
    p.colour.matrix = ColourMatrix::BT601;
    ColorConversion::X2RGBColorConv conv;
    conv.setDescription(p);
    std::vector<uint8_t> picture(size_t(64) * 32 * 4, 0x77);
    EXPECT_FALSE(conv.convertNativeBands(picture.data(), [](int32_t, int32_t) -> const uint8_t * {
        ADD_FAILURE() << "asked for a band";
        return nullptr;
    }));
    EXPECT_EQ(picture, std::vector<uint8_t>(picture.size(), 0x77));
}

// Every newer layout through the pipeline, at awkward sizes, flipped or not, on one thread and on the
// pool, in full colour and as one toned component, deinterlaced or not, with and without a second file:
// toNativeAndShow shows what toNative then show shows, reads out the same values, and the samples it
// leaves out (only where the rows unpack one by one and one file is shown) are unpacked when asked for,
// equal to toNative's; showing again gives the same picture.
TEST(ShowInBands, ToNativeAndShowEqualsToNativeThenShow)
{
    struct Depth {
        int32_t bits, container;
        bool isSigned, bigEndian;
    };
    int32_t pending = 0;
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v) {
        const PixelDescriptor &d = *pixelDescriptor(v);
        std::vector<Depth> depths;
        if (d.fixedDepth)
            depths = {{d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, false},
                      {d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, true}};
        else
            depths = {{8, 8, false, false}, {10, 16, false, false}, {10, 16, true, false}, {16, 16, false, false}};
        for (const Depth &dp : depths)
            for (const auto &sz : kSizes) {
                PatternSpec s;
                s.layout = videoFormat_t(v);
                s.width = sz[0];
                s.height = sz[1];
                s.bits = dp.bits;
                s.containerBits = dp.container;
                s.isSigned = dp.isSigned;
                s.bigEndian = dp.bigEndian;
                if (!patternSpecError(s).empty()) continue;
                const VideoProps rec = patternRecord(s);
                const int32_t W = s.width, H = s.height;
                for (int variant = 0; variant < 6; ++variant) {
                    if (int64_t(W) * H == kLarge && variant > 1) continue;
                    const bool flip = variant & 1, second = variant == 4, interlaced = variant == 5;
                    const int32_t threads = variant == 2 || variant == 3 ? 1 : 0;
                    SCOPED_TRACE(nameOf(v) + " " + std::to_string(W) + "x" + std::to_string(H) + " " +
                                 std::to_string(dp.bits) + "/" + std::to_string(dp.container) +
                                 (dp.isSigned ? " signed" : "") + (dp.bigEndian ? " BE" : "") + " variant " +
                                 std::to_string(variant));
                    VideoProps r = rec;
                    r.flipped = flip;
                    FramePipeline a, b;
                    a.setup(r, second);
                    b.setup(r, second);
                    for (FramePipeline *pipe : {&a, &b}) {
                        pipe->converter().setThreadCount(threads);
                        pipe->setDeinterlace(interlaced);
                    }
                    const auto stored = randomBytes(a.frameBytes(), uint32_t(v * 131 + W * 7 + H + variant));
                    for (FramePipeline *pipe : {&a, &b}) {
                        std::memcpy(pipe->readBuffer(FramePipeline::Buffer::First), stored.data(), stored.size());
                        if (second)
                            std::memcpy(pipe->readBuffer(FramePipeline::Buffer::Second), stored.data(), stored.size());
                    }
                    ViewSettings view;
                    if (variant == 3) {
                        view.channel = 1;
                        view.brightness = 30;
                        view.gamma = 200;
                    }
                    if (second) view.view = 1;
                    std::vector<uint8_t> want(size_t(W) * H * 4, 0x11), got(want.size(), 0x11);
                    a.toNative();
                    EXPECT_EQ(a.show(view, want.data()), FramePipeline::Buffer::First);
                    EXPECT_EQ(b.toNativeAndShow(view, got.data()), FramePipeline::Buffer::First);
                    for (size_t i = 0; i < got.size(); ++i)
                        ASSERT_EQ(got[i], want[i]) << "pixel " << i / 4 % size_t(W) << "," << i / 4 / size_t(W);
                    const bool leftOut = (planOwnRows(b.storedProps(), b.allocationSize(), b.sampleBytes()) ||
                                          shownProps(b.storedProps()).format != b.props().format) &&
                                         !second;
                    EXPECT_EQ(b.samplesPending(), leftOut);
                    pending += b.samplesPending();
                    for (auto [x, y] : {std::pair{0, 0}, std::pair{W - 1, H - 1}, std::pair{W / 2, H / 2}}) {
                        int32_t wa[3] = {}, wb[3] = {};
                        ASSERT_EQ(a.readout(x, y, wa[0], wa[1], wa[2], nullptr),
                                  b.readout(x, y, wb[0], wb[1], wb[2], nullptr));
                        EXPECT_TRUE(std::equal(wa, wa + 3, wb)) << x << "," << y;
                    }
                    const uint8_t *samples = b.samples(FramePipeline::Buffer::First);
                    EXPECT_FALSE(b.samplesPending());
                    ASSERT_EQ(0, std::memcmp(samples, a.buffer(FramePipeline::Buffer::First), a.sampleBytes()));
                    std::vector<uint8_t> again(want.size(), 0x11);
                    b.show(view, again.data());
                    EXPECT_EQ(again, want);
                }
            }
    }
    EXPECT_GT(pending, 100);
}

// The frames the pipeline shows in bands, leaving their samples until asked for: those whose stored rows
// unpack one by one (no vertical chroma subsampling, the one-pass shapes) at any size, and the
// subsampled ones of odd sizes, which are shown through a record of their own; with the default colour
// reading only.
TEST(ShowInBands, TheRowByRowShapesAreShownInBands)
{
    struct Case {
        videoFormat_t layout;
        int32_t w, h, bits, container;
        bool bigEndian;
        bool inBands;
    };
    const Case cases[] = {
        {YUV_y210, 1920, 1080, 10, 16, false, true}, {YUV_y210, 1919, 1079, 10, 16, false, true},
        {YUV_y212, 3, 1, 12, 16, false, true},       {YUV_y216, 64, 17, 16, 16, false, true},
        {YUV_y210, 1920, 1080, 10, 16, true, false}, {YUV_nv16, 33, 9, 8, 8, false, true},
        {YUV_p210, 65, 33, 10, 16, false, true},     {YUV_nv24, 5, 5, 8, 8, false, true},
        {YUV_p410w, 7, 3, 10, 16, false, true},      {YUV_p010, 1920, 1080, 10, 16, false, false},
        {YUV_nv21, 1920, 1080, 8, 8, false, false},  {YUV_yv16, 64, 32, 8, 8, false, false},
        {YUV_y410, 64, 32, 10, 16, false, false},    {YUV_p010, 33, 17, 10, 16, false, true},
        {YUV_nv21, 64, 31, 8, 8, false, true},       {YUV_yv16, 65, 32, 8, 8, false, true},
    };
    for (const Case &c : cases) {
        PatternSpec s;
        s.layout = c.layout;
        s.width = c.w;
        s.height = c.h;
        s.bits = c.bits;
        s.containerBits = c.container;
        s.bigEndian = c.bigEndian;
        SCOPED_TRACE(nameOf(c.layout) + " " + std::to_string(c.w) + "x" + std::to_string(c.h));
        FramePipeline pipe;
        pipe.setup(patternRecord(s), false);
        ASSERT_TRUE(writePatternFrame(s, 3, pipe.readBuffer(FramePipeline::Buffer::First), pipe.frameBytes()));
        std::vector<uint8_t> picture(size_t(c.w) * c.h * 4);
        pipe.toNativeAndShow(ViewSettings{}, picture.data());
        EXPECT_EQ(pipe.samplesPending(), c.inBands);
        // Without a picture to convert into, the samples are unpacked at once.
        pipe.toNativeAndShow(ViewSettings{}, nullptr);
        EXPECT_FALSE(pipe.samplesPending());
        // Another colour reading converts the whole frame of samples, as toNative then show does.
        ColourDescription colour;
        colour.matrix = ColourMatrix::BT601;
        colour.chroma = ChromaSiting::Center;
        pipe.setColour(colour);
        std::vector<uint8_t> want(picture.size(), 0);
        pipe.toNative();
        pipe.show(ViewSettings{}, want.data());
        std::fill(picture.begin(), picture.end(), 0);
        pipe.toNativeAndShow(ViewSettings{}, picture.data());
        EXPECT_FALSE(pipe.samplesPending());
        EXPECT_EQ(picture, want);
    }
}

namespace {

// The picture of a subsampled frame worked out from the descriptor's generic reader: every picture row
// with its luma and the chroma row that covers it (or, interlaced 4:2:0, the chroma row of its field), put
// into planes of layout `as` (4:2:2: the first W / 2 chroma columns; 4:4:4: each stored chroma sample on
// the pixels it covers) and converted as such; then the deinterlace filter when asked for.
std::vector<uint8_t> referencePicture(const VideoProps &rec, const std::vector<uint8_t> &stored, videoFormat_t as,
                                      bool interlaced, const ViewSettings &view)
{
    const PixelDescriptor &d = *pixelDescriptor(rec.format);
    const PlaneLayout pl = storedPlanes(rec);
    const VideoProps canon = canonicalProps(rec);
    const int32_t W = rec.width, H = rec.height, chromaRows = componentGrid(d, 1, W, H).rows;
    const int32_t cols = as == YUV_p444 ? W : W / 2;
    VideoProps shown = canon;
    shown.format = as;
    shown.interlaced = false;
    std::vector<uint16_t> planes(size_t(W) * H + 2 * size_t(cols) * H);
    auto sample = [&](int k, int32_t x, int32_t y) {
        uint32_t v = 0;
        EXPECT_TRUE(readComponent(d, pl, stored.data(), int64_t(stored.size()), rec.toggleEndianness, k, rec.bitDepth,
                                  x, y, v));
        const int32_t depth = componentDepth(d, k, rec.bitDepth);
        if (rec.signedValues && (v >> (depth - 1)) & 1u) v |= ~((uint32_t(1) << depth) - 1);
        return uint16_t(v);
    };
    for (int32_t y = 0; y < H; ++y) {
        for (int32_t x = 0; x < W; ++x) planes[size_t(y) * W + size_t(x)] = sample(0, x, y);
        int32_t cy = y >> d.log2ChromaH;
        if (interlaced && d.log2ChromaH) cy = std::min(2 * (y / 4) + (y & 1), chromaRows - 1);
        for (int32_t c = 0; c < cols; ++c) {
            const int32_t cx = as == YUV_p444 ? c >> d.log2ChromaW : c;
            planes[size_t(W) * H + size_t(y) * cols + size_t(c)] = sample(1, cx, cy);
            planes[size_t(W) * H + size_t(cols) * H + size_t(y) * cols + size_t(c)] = sample(2, cx, cy);
        }
    }
    std::vector<uint8_t> frame(allocationSize(as, canon.containerBits, W, H), 0);
    for (size_t i = 0; i < planes.size(); ++i) {
        if (canon.containerBits == 16)
            std::memcpy(frame.data() + 2 * i, &planes[i], 2);
        else
            frame[i] = uint8_t(planes[i]);
    }
    ColorConversion::X2RGBColorConv conv;
    conv.setDescription(shown);
    conv.setUnsigned(!rec.signedValues);
    conv.setToneCurve(view.brightness, view.contrast, view.gamma);
    conv.setChannelSelection(view.channel);
    std::vector<uint8_t> picture(size_t(W) * H * 4, 0x11);
    conv.convertNativeFrame(frame.data(), picture.data());
    if (interlaced) deinterlaceFilter(picture.data(), W, H);
    return picture;
}

} // namespace

// The newer subsampled layouts at odd heights (4:2:0) and odd widths (4:2:0 and 4:2:2) show their last
// row and column in their real colours: the picture is that of the generic reader's samples converted
// through 4:2:2 planes (odd height) or 4:4:4 planes (odd width), at odd and even sizes, flipped or not,
// interlaced or not, on one thread and on the pool, in full colour and as one toned component, as a file's
// own picture next to a second file too, under the default colour reading and others with nearest chroma
// (SDR and PQ); and every pixel but the last column is the one the 4:2:2 planes
// give, so the rule changes nothing else. The samples stay those of the canonical layout (the
// difference, the statistics and the metrics read them), and the readout reads the stored bytes. At even
// sizes nothing changes: the picture is that of the samples.
TEST(ShowInBands, OddSizesOfTheNewerSubsampledLayoutsShowTheirLastRowAndColumn)
{
    struct Depth {
        int32_t bits, container;
        bool isSigned;
    };
    int32_t oddRows = 0, oddColumns = 0;
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v) {
        const PixelDescriptor &d = *pixelDescriptor(v);
        if (d.canonical != YUV_p420 && d.canonical != YUV_p422) continue;
        std::vector<Depth> depths;
        if (d.fixedDepth)
            depths = {{d.fixedDepth, 16, false}};
        else
            depths = {{8, 8, false}, {10, 16, false}, {10, 16, true}};
        for (const Depth &dp : depths)
            for (const auto &sz : {std::pair{2, 1}, std::pair{1, 2}, std::pair{3, 3}, std::pair{16, 5},
                                   std::pair{17, 17}, std::pair{66, 35}, std::pair{65, 34}, std::pair{401, 333}})
                for (int variant = 0; variant < 7; ++variant) {
                    PatternSpec s;
                    s.layout = videoFormat_t(v);
                    s.width = sz.first;
                    s.height = sz.second;
                    s.bits = dp.bits;
                    s.containerBits = dp.container;
                    s.isSigned = dp.isSigned;
                    ASSERT_EQ(patternSpecError(s), "");
                    VideoProps rec = patternRecord(s);
                    rec.flipped = variant & 1;
                    // Other colour readings with nearest chroma, which convert whole frames.
                    if (variant >= 5) {
                        rec.colour.matrix = ColourMatrix::BT2020;
                        rec.colour.range = ColourRange::Limited;
                        rec.colour.transfer = variant == 6 ? ColourTransfer::PQ : ColourTransfer::SDR;
                    }
                    const bool interlaced = variant == 2 || variant == 3, second = variant == 4;
                    const int32_t W = s.width, H = s.height;
                    SCOPED_TRACE(nameOf(v) + " " + std::to_string(W) + "x" + std::to_string(H) + " " +
                                 std::to_string(dp.bits) + (dp.isSigned ? " signed" : "") + " variant " +
                                 std::to_string(variant));
                    FramePipeline pipe;
                    pipe.setup(rec, second);
                    pipe.setDeinterlace(interlaced);
                    pipe.converter().setThreadCount(variant == 1 ? 1 : 0);
                    const auto stored = randomBytes(pipe.frameBytes(), uint32_t(v * 37 + W * 11 + H + variant));
                    std::memcpy(pipe.readBuffer(FramePipeline::Buffer::First), stored.data(), stored.size());
                    if (second) {
                        std::vector<uint8_t> other = stored;
                        other[0] ^= 0xff;
                        std::memcpy(pipe.readBuffer(FramePipeline::Buffer::Second), other.data(), other.size());
                    }
                    ViewSettings view;
                    if (variant == 3) {
                        view.channel = 2;
                        view.contrast = 500;
                    }
                    if (second) view.view = 1;
                    std::vector<uint8_t> picture(size_t(W) * H * 4, 0x11);
                    pipe.toNativeAndShow(view, picture.data());
                    VideoProps samplesRecord = canonicalProps(rec);
                    samplesRecord.interlaced = interlaced;
                    ASSERT_EQ(pipe.props().format, d.canonical);
                    const bool oddHeight = (H & 1) && d.log2ChromaH;
                    if ((W & 1) || oddHeight) {
                        oddRows += oddHeight;
                        oddColumns += W & 1;
                        const std::vector<uint8_t> want =
                            referencePicture(rec, stored, W & 1 ? YUV_p444 : YUV_p422, interlaced, view);
                        for (size_t i = 0; i < picture.size(); ++i)
                            ASSERT_EQ(picture[i], want[i]) << "pixel " << i / 4 % size_t(W) << "," << i / 4 / size_t(W);
                        // The pixels the 4:2:2 planes hold are as they show them.
                        const std::vector<uint8_t> half = referencePicture(rec, stored, YUV_p422, interlaced, view);
                        for (int32_t y = 0; y < H; ++y)
                            for (int32_t x = 0; x < W / 2 * 2; ++x)
                                ASSERT_EQ(0, std::memcmp(&picture[(size_t(y) * W + size_t(x)) * 4],
                                                         &half[(size_t(y) * W + size_t(x)) * 4], 4))
                                    << "pixel " << x << "," << y;
                    } else {
                        // The picture of the samples, as before.
                        ColorConversion::X2RGBColorConv conv;
                        conv.setDescription(samplesRecord);
                        conv.setUnsigned(!rec.signedValues);
                        conv.setToneCurve(view.brightness, view.contrast, view.gamma);
                        conv.setChannelSelection(view.channel);
                        std::vector<uint8_t> want(picture.size(), 0x11);
                        conv.convertNativeFrame(pipe.samples(FramePipeline::Buffer::First), want.data());
                        if (interlaced) deinterlaceFilter(want.data(), W, H);
                        ASSERT_EQ(picture, want);
                    }
                    // The samples are the reference unpack's, in the canonical layout.
                    std::vector<uint8_t> samples(pipe.sampleBytes(), 0);
                    unpackFrameReference(rec, stored.data(), int64_t(stored.size()), samples.data(),
                                         int64_t(samples.size()));
                    ASSERT_EQ(0,
                              std::memcmp(pipe.samples(FramePipeline::Buffer::First), samples.data(), samples.size()));
                    // The readout of the last row reads the stored bytes.
                    int32_t c[3] = {};
                    ASSERT_TRUE(pipe.readout(W - 1, H - 1, c[0], c[1], c[2], nullptr));
                    StoredSample at;
                    ASSERT_TRUE(
                        readDescribed(rec, stored.data(), int64_t(stored.size()), W - 1, rec.flipped ? 0 : H - 1, at));
                    EXPECT_TRUE(std::equal(c, c + 3, at.c));
                }
    }
    EXPECT_GT(oddRows, 100);
    EXPECT_GT(oddColumns, 200);
}
