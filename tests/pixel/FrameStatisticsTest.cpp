// The statistics engine against a plain reference: the test pattern's own sample values, placed where the
// pattern writes them (last write wins, nothing past the end of the frame), then counted one by one.
#include "pixel/FrameStatistics.h"
#include "formats/FrameSize.h"
#include "pixel/PatternGenerator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

// The samples of each component in storage order of the components, as stored (signed when signed).
struct Reference {
    std::vector<std::string> names;
    std::vector<std::vector<int32_t>> samples;
};

// Every stored sample of a frame, worked out from the pattern's values and the layout's storage rules.
Reference referenceSamples(const PatternSpec &s, uint64_t frame)
{
    const LayoutInfo &info = layoutInfo(s.layout);
    const int64_t W = s.width, H = s.height;
    const int64_t limit = patternFrameBytes(s) / (s.containerBits == 16 || s.layout == YUV_v210 ? 2 : 1);
    // Component (-1: no sample) and value at every position of the frame.
    std::vector<std::pair<int, int32_t>> stored(size_t(limit), {-1, 0});
    auto put = [&](int64_t pos, int comp, int32_t value) {
        if (pos < limit) stored[size_t(pos)] = {comp, value};
    };
    auto px = [&](int64_t x, int64_t y) { return patternPixel(s, frame, int32_t(x), int32_t(y)); };
    Reference ref;
    switch (info.kind) {
    case LayoutKind::Luma:
    case LayoutKind::PlanarYuv: {
        ref.names =
            info.kind == LayoutKind::Luma ? std::vector<std::string>{"Y"} : std::vector<std::string>{"Y", "U", "V"};
        for (int64_t y = 0; y < H; ++y)
            for (int64_t x = 0; x < W; ++x) put(y * W + x, 0, px(x, y).c1);
        if (info.kind == LayoutKind::Luma) break;
        const int sx = info.chromaShiftX, sy = info.chromaShiftY;
        const int64_t cw = W >> sx, ch = (H + (1 << sy) - 1) >> sy;
        const int64_t uStart = W * H, vStart = uStart + ch * cw - ((sy && (H & 1)) ? cw / 2 : 0);
        for (int plane = 1; plane <= 2; ++plane)
            for (int64_t cy = 0; cy < ch; ++cy)
                for (int64_t cx = 0; cx < cw; ++cx) {
                    const PatternPixel p = px(cx << sx, std::min(H - 1, cy << sy));
                    put((plane == 1 ? uStart : vStart) + cy * cw + cx, plane, plane == 1 ? p.c2 : p.c3);
                }
        break;
    }
    case LayoutKind::Packed422: {
        ref.names = {"Y", "U", "V"};
        const bool uFirst = s.layout == YUV_uyvy;
        for (int64_t y = 0; y < H; ++y)
            for (int64_t u = 0; u < W / 2; ++u) {
                const int64_t base = (y * (W / 2) + u) * 4;
                const PatternPixel a = px(2 * u, y), b = px(2 * u + 1, y);
                if (uFirst) {
                    put(base, 1, a.c2), put(base + 1, 0, a.c1), put(base + 2, 2, a.c3), put(base + 3, 0, b.c1);
                } else {
                    put(base, 0, a.c1), put(base + 1, 1, a.c2), put(base + 2, 0, b.c1), put(base + 3, 2, a.c3);
                }
            }
        break;
    }
    case LayoutKind::SemiPlanar:
        ref.names = {"Y", "U", "V"};
        for (int64_t y = 0; y < H; ++y)
            for (int64_t x = 0; x < W; ++x) put(y * W + x, 0, px(x, y).c1);
        for (int64_t cy = 0; cy < (H + 1) / 2; ++cy)
            for (int64_t cx = 0; 2 * cx + 1 < W; ++cx) {
                const PatternPixel p = px(2 * cx, 2 * cy);
                put(W * H + cy * W + 2 * cx, 1, p.c2);
                put(W * H + cy * W + 2 * cx + 1, 2, p.c3);
            }
        break;
    case LayoutKind::V210: {
        // No positions to share: each row holds W luma samples and (W + 1) / 2 of each chroma.
        ref.names = {"Y", "U", "V"};
        ref.samples.resize(3);
        for (int64_t y = 0; y < H; ++y) {
            for (int64_t x = 0; x < W; ++x) ref.samples[0].push_back(px(x, y).c1);
            for (int64_t c = 0; c < (W + 1) / 2; ++c) {
                ref.samples[1].push_back(px(2 * c, y).c2);
                ref.samples[2].push_back(px(2 * c, y).c3);
            }
        }
        return ref;
    }
    case LayoutKind::InterleavedRgb:
    case LayoutKind::PlanarRgb: {
        const int n = info.samplesPerPixel;
        for (int k = 0; k < n; ++k) ref.names.push_back(k < 3 ? std::string(info.letters[size_t(k)]) : "A");
        for (int64_t y = 0; y < H; ++y)
            for (int64_t x = 0; x < W; ++x) {
                const PatternPixel p = px(x, y);
                const int64_t i = y * W + x;
                for (int k = 0; k < n; ++k) {
                    int32_t v = p.alpha;
                    if (k < 3) v = info.letters[size_t(k)] == "R" ? p.c1 : info.letters[size_t(k)] == "G" ? p.c2 : p.c3;
                    put(info.kind == LayoutKind::PlanarRgb ? k * W * H + i : i * n + k, k, v);
                }
            }
        break;
    }
    }
    ref.samples.resize(ref.names.size());
    for (const auto &[comp, value] : stored)
        if (comp >= 0) ref.samples[size_t(comp)].push_back(patternStoredValue(s, value));
    return ref;
}

// The statistics of a list of samples, counted the slow way.
ComponentStatistics referenceStatistics(const std::vector<int32_t> &v, int32_t bits, bool isSigned)
{
    ComponentStatistics s;
    const int32_t lo = isSigned ? -(1 << (bits - 1)) : 0, hi = isSigned ? (1 << (bits - 1)) - 1 : (1 << bits) - 1;
    const int32_t bins = bits > 10 ? 1024 : 1 << bits, shift = bits > 10 ? bits - 10 : 0;
    s.histogram.assign(size_t(bins), 0);
    s.count = v.size();
    if (v.empty()) return s;
    s.min = *std::min_element(v.begin(), v.end());
    s.max = *std::max_element(v.begin(), v.end());
    long double sum = 0;
    for (int32_t x : v) {
        sum += x;
        s.zeros += x <= lo;
        s.clipped += x >= hi;
        s.histogram[size_t(std::clamp((x - lo) >> shift, 0, bins - 1))] += 1;
    }
    s.mean = double(sum / v.size());
    long double sq = 0;
    for (int32_t x : v) sq += (x - (long double)s.mean) * (x - (long double)s.mean);
    s.stddev = double(std::sqrt(sq / v.size()));
    return s;
}

std::vector<uint8_t> nativeFrame(const PatternSpec &s, uint64_t frame)
{
    std::vector<uint8_t> b(patternFrameBytes(s));
    EXPECT_TRUE(writePatternFrame(s, frame, b.data(), b.size())) << patternSpecError(s);
    // What FramePipeline::toNative does for a big-endian file on this little-endian machine.
    if (s.bigEndian)
        for (size_t i = 0; i + 1 < b.size(); i += 2) std::swap(b[i], b[i + 1]);
    return b;
}

StatisticsFormat formatOf(const PatternSpec &s)
{
    StatisticsFormat f;
    f.layout = s.layout;
    f.width = s.width;
    f.height = s.height;
    f.bits = s.bits;
    f.containerBits = s.containerBits;
    f.isSigned = s.isSigned;
    return f;
}

void expectEqualsReference(const FrameStatistics &got, const Reference &ref, const PatternSpec &s,
                           const std::string &what)
{
    ASSERT_EQ(got.components.size(), ref.names.size()) << what;
    for (size_t c = 0; c < ref.names.size(); ++c) {
        const ComponentStatistics want = referenceStatistics(ref.samples[c], s.bits, s.isSigned);
        const ComponentStatistics &g = got.components[c];
        const std::string at = what + " component " + ref.names[c];
        EXPECT_EQ(g.name, ref.names[c]) << at;
        EXPECT_EQ(g.count, want.count) << at;
        EXPECT_EQ(g.min, want.min) << at;
        EXPECT_EQ(g.max, want.max) << at;
        EXPECT_NEAR(g.mean, want.mean, 1e-9 * std::max(1.0, std::abs(want.mean))) << at;
        EXPECT_NEAR(g.stddev, want.stddev, 1e-9 * std::max(1.0, want.stddev)) << at;
        EXPECT_EQ(g.zeros, want.zeros) << at;
        EXPECT_EQ(g.clipped, want.clipped) << at;
        EXPECT_EQ(g.histogram, want.histogram) << at;
    }
}

// Computes the statistics with each of `threads` and compares every result with the reference.
void expectMatches(const PatternSpec &s, uint64_t frame, std::initializer_list<int32_t> threads,
                   const std::string &what)
{
    const std::vector<uint8_t> b = nativeFrame(s, frame);
    const Reference ref = referenceSamples(s, frame);
    for (const int32_t t : threads) {
        const FrameStatistics got = computeFrameStatistics(formatOf(s), b.data(), b.size(), t);
        expectEqualsReference(got, ref, s, what + " threads " + std::to_string(t));
    }
}

struct Variant {
    const char *name;
    int32_t bits, container;
    bool isSigned, bigEndian;
    int32_t width, height;
};

// Depths 8, 10 and 16, odd and even sizes, signed samples and big-endian words.
constexpr Variant kVariants[] = {
    {"8-bit odd", 8, 8, false, false, 37, 23},
    {"8-bit even", 8, 8, false, false, 40, 24},
    {"8-bit signed", 8, 8, true, false, 37, 23},
    {"8-bit in 16", 8, 16, false, false, 19, 9},
    {"10-bit odd", 10, 16, false, false, 37, 23},
    {"10-bit BE", 10, 16, false, true, 38, 21},
    {"10-bit signed BE", 10, 16, true, true, 37, 22},
    {"16-bit odd", 16, 16, false, false, 37, 23},
    {"16-bit BE", 16, 16, false, true, 24, 17},
    {"16-bit signed", 16, 16, true, false, 37, 23},
    {"12-bit signed", 12, 16, true, false, 21, 11},
    {"1-bit", 1, 8, false, false, 15, 7},
    {"tiny", 8, 8, false, false, 1, 1},
    {"thin", 10, 16, false, false, 3, 5},
};

TEST(FrameStatistics, MatchesTheReferenceForEveryLayout)
{
    for (const LayoutInfo &info : coreLayouts())
        for (const Variant &v : kVariants) {
            PatternSpec s;
            s.layout = info.value;
            s.width = v.width;
            s.height = v.height;
            s.bits = v.bits;
            s.containerBits = v.container;
            s.isSigned = v.isSigned;
            s.bigEndian = v.bigEndian;
            if (info.value == YUV_v210) {
                // v210 is 10-bit unsigned little-endian words whatever was asked for.
                s.bits = 10;
                s.containerBits = 16;
                s.isSigned = s.bigEndian = false;
            }
            ASSERT_EQ(patternSpecError(s), "") << info.shortName << " " << v.name;
            expectMatches(s, 3, {0}, std::string(info.shortName) + " " + v.name);
        }
}

TEST(FrameStatistics, ThreadsAndBandsDoNotChangeTheResult)
{
    // Large enough for two or more bands a component (a band is about 2^18 samples).
    for (videoFormat_t layout : {YUV_uyvy, YUV_v210, BGRA_i444}) {
        PatternSpec s;
        s.layout = layout;
        s.width = 1031;
        s.height = 611;
        s.bits = 10;
        s.containerBits = 16;
        const std::string name(layoutInfo(layout).shortName);
        expectMatches(s, 7, {0, 1, 2}, name);
    }
}

TEST(FrameStatistics, NamesFollowTheStorageOrder)
{
    const struct {
        videoFormat_t layout;
        std::vector<std::string> names;
    } cases[] = {
        {YUV_p420, {"Y", "U", "V"}},         {YUV_uyvy, {"Y", "U", "V"}},
        {YUV_v210, {"Y", "U", "V"}},         {BW, {"Y"}},
        {BGR_i444, {"B", "G", "R"}},         {BGRA_i444, {"B", "G", "R", "A"}},
        {GBRA_planar, {"G", "B", "R", "A"}}, {RBG_planar, {"R", "B", "G"}},
        {RGB_i444, {"R", "G", "B"}},
    };
    for (const auto &c : cases) EXPECT_EQ(componentNames(c.layout), c.names) << layoutInfo(c.layout).shortName;
}

TEST(FrameStatistics, SwappedChromaExchangesNamesNotOrder)
{
    PatternSpec s;
    s.layout = YUV_p420;
    s.width = 16;
    s.height = 8;
    std::vector<uint8_t> b = nativeFrame(s, 0);
    StatisticsFormat f = formatOf(s);
    const FrameStatistics plain = computeFrameStatistics(f, b.data(), b.size());
    f.swapUV = true;
    const FrameStatistics swapped = computeFrameStatistics(f, b.data(), b.size());
    ASSERT_EQ(swapped.components.size(), 3u);
    EXPECT_EQ(swapped.components[1].name, "V");
    EXPECT_EQ(swapped.components[2].name, "U");
    EXPECT_EQ(swapped.components[1].histogram, plain.components[1].histogram);
    for (const auto &[layout, names] : std::vector<std::pair<videoFormat_t, std::vector<std::string>>>{
             {YUV_v210, {"Y", "V", "U"}}, {BGR_planar, {"B", "R", "G"}}, {BGR_i444, {"B", "G", "R"}}, {BW, {"Y"}}}) {
        s.layout = layout;
        s.bits = layout == YUV_v210 ? 10 : 8;
        s.containerBits = layout == YUV_v210 ? 16 : 8;
        b = nativeFrame(s, 0);
        f = formatOf(s);
        f.swapUV = true;
        std::vector<std::string> got;
        for (const ComponentStatistics &c : computeFrameStatistics(f, b.data(), b.size()).components)
            got.push_back(c.name);
        EXPECT_EQ(got, names) << layoutInfo(layout).shortName;
    }
}

TEST(FrameStatistics, SamplesBeyondTheDepthCountAsClippedWithTheirTrueValue)
{
    // 10-bit samples in 16-bit words: one word above the depth, one below the signed range.
    for (const bool isSigned : {false, true}) {
        StatisticsFormat f;
        f.layout = BW;
        f.width = 4;
        f.height = 1;
        f.bits = 10;
        f.containerBits = 16;
        f.isSigned = isSigned;
        const int16_t words[4] = {int16_t(isSigned ? -600 : 0), 5, int16_t(isSigned ? 511 : 1023),
                                  int16_t(isSigned ? 700 : 1100)};
        const FrameStatistics st =
            computeFrameStatistics(f, reinterpret_cast<const uint8_t *>(words), sizeof(words), 1);
        ASSERT_EQ(st.components.size(), 1u);
        const ComponentStatistics &c = st.components[0];
        EXPECT_EQ(c.count, 4u);
        EXPECT_EQ(c.min, isSigned ? -600 : 0);
        EXPECT_EQ(c.max, isSigned ? 700 : 1100);
        const double mean = isSigned ? (-600 + 5 + 511 + 700) / 4.0 : (5 + 1023 + 1100) / 4.0;
        EXPECT_DOUBLE_EQ(c.mean, mean);
        double sq = 0;
        for (int16_t w : words) sq += (w - mean) * (w - mean);
        EXPECT_NEAR(c.stddev, std::sqrt(sq / 4), 1e-9);
        EXPECT_EQ(c.zeros, 1u);
        EXPECT_EQ(c.clipped, 2u);
        ASSERT_EQ(c.histogram.size(), 1024u);
        EXPECT_EQ(c.histogram.front(), 1u);
        EXPECT_EQ(c.histogram.back(), 2u);
    }
}

TEST(FrameStatistics, ShortBuffersAndBadDescriptions)
{
    PatternSpec s;
    s.layout = YUV_p444;
    s.width = 8;
    s.height = 4;
    const std::vector<uint8_t> b = nativeFrame(s, 0);
    // Only the Y plane and half the U plane are there.
    const FrameStatistics half = computeFrameStatistics(formatOf(s), b.data(), 32 + 16, 1);
    ASSERT_EQ(half.components.size(), 3u);
    EXPECT_EQ(half.components[0].count, 32u);
    EXPECT_EQ(half.components[1].count, 16u);
    EXPECT_EQ(half.components[2].count, 0u);
    EXPECT_EQ(half.components[2].histogram, std::vector<uint64_t>(256, 0));
    StatisticsFormat bad = formatOf(s);
    bad.bits = 12;
    bad.containerBits = 8;
    EXPECT_TRUE(computeFrameStatistics(bad, b.data(), b.size()).components.empty());
    EXPECT_TRUE(computeFrameStatistics(formatOf(s), nullptr, 0).components.empty());
}

TEST(FrameStatistics, NeverReadsPastTheBufferGiven)
{
    // Buffers of exactly the size passed, so a read beyond them shows under AddressSanitizer; every
    // sample counted must still be one the shortened frame holds.
    for (const LayoutInfo &info : coreLayouts())
        for (const int32_t bits : {8, 10}) {
            PatternSpec s;
            s.layout = info.value;
            s.width = 13;
            s.height = 7;
            s.bits = info.value == YUV_v210 ? 10 : bits;
            s.containerBits = s.bits > 8 ? 16 : 8;
            const std::vector<uint8_t> full = nativeFrame(s, 1);
            const FrameStatistics whole = computeFrameStatistics(formatOf(s), full.data(), full.size(), 1);
            for (const size_t cut :
                 {size_t(0), size_t(1), size_t(3), full.size() / 3, full.size() / 2, full.size() - 1}) {
                const size_t n = full.size() > cut ? full.size() - cut : 0;
                const std::vector<uint8_t> part(full.begin(), full.begin() + std::ptrdiff_t(n));
                const uint8_t *data = part.empty() ? full.data() : part.data();
                const FrameStatistics got = computeFrameStatistics(formatOf(s), data, n, 1);
                ASSERT_EQ(got.components.size(), whole.components.size()) << info.shortName;
                uint64_t samples = 0;
                for (size_t c = 0; c < got.components.size(); ++c) {
                    EXPECT_LE(got.components[c].count, whole.components[c].count) << info.shortName << " cut " << cut;
                    samples += got.components[c].count;
                }
                const uint64_t stored = n / size_t(s.containerBits / 8);
                if (info.value != YUV_v210) {
                    EXPECT_LE(samples, stored) << info.shortName << " cut " << cut;
                }
                if (cut == 0) {
                    EXPECT_EQ(got.components[0].histogram, whole.components[0].histogram) << info.shortName;
                }
            }
        }
}

TEST(FrameStatistics, HistogramGeometry)
{
    EXPECT_EQ(histogramBins(1), 2);
    EXPECT_EQ(histogramBins(8), 256);
    EXPECT_EQ(histogramBins(10), 1024);
    EXPECT_EQ(histogramBins(12), 1024);
    EXPECT_EQ(histogramBinWidth(12), 4);
    EXPECT_EQ(histogramBinWidth(16), 64);
    EXPECT_EQ(lowestCode(10, true), -512);
    EXPECT_EQ(highestCode(10, true), 511);
    EXPECT_EQ(highestCode(16, false), 65535);
}

} // namespace
