// Showing a frame a band of rows at a time: the converter's bands against its conversion of the whole
// frame for every original layout it takes, and a refusal that writes nothing for the others.
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "pixel/ColorConversion.h"
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
