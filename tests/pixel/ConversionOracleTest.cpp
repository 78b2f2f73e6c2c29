// Every kernel set against the per-pixel oracle: all layouts, depths, containers and flags, at awkward
// sizes, with source buffers of exactly the allocation size followed by an inaccessible page and a
// destination pre-filled with a pattern so that any byte written by mistake shows. A kernel set this
// build or this CPU cannot run is reported as skipped, with the reason.
#include "PixelOracle.h"

#include "formats/FrameSize.h"
#include "pixel/ColorConversion.h"
#include "pixel/KernelDispatch.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

using namespace kavri;
using namespace kavri::test;
using ColorConversion::X2RGBColorConv;

namespace {

uint32_t testSeed()
{
    if (const char *s = std::getenv("KAVRI_TEST_SEED")) return uint32_t(std::strtoul(s, nullptr, 10));
    return 20240611u;
}

VideoProps propsOf(const ConvCase &c)
{
    VideoProps p;
    p.width = c.width;
    p.height = c.height;
    p.format = c.layout;
    p.bitDepth = c.bits;
    p.containerBits = c.container;
    p.flipped = c.flip;
    p.toggleEndianness = c.bigEndian;
    p.swapUV = c.swapUV;
    p.interlaced = c.interlaced;
    p.signedValues = c.isSigned;
    p.frameBytes = frameBytes(c.layout, c.container, c.width, c.height);
    return p;
}

// Converts `file` (stored bytes) with one kernel set and compares with the oracle; returns false and
// records a failure on the first difference.
bool checkCase(const ConvCase &c, const std::vector<uint8_t> &file, const char *kernels, int32_t threads, uint32_t seed)
{
    X2RGBColorConv conv;
    conv.setDescription(propsOf(c));
    conv.setUnsigned(!c.isSigned);
    conv.setChannelSelection(c.selection);
    conv.setToneCurve(c.brightness, c.contrast, c.gamma);
    conv.setThreadCount(threads);
    EXPECT_TRUE(conv.setKernelVariant(kernels));

    GuardedBuffer src(file.size());
    std::copy(file.begin(), file.end(), src.data());
    const size_t dstBytes = size_t(c.width) * c.height * 4;
    GuardedBuffer dst(dstBytes);
    std::vector<uint8_t> before(dstBytes);
    for (size_t i = 0; i < dstBytes; ++i) before[i] = uint8_t(0xA5 ^ (i * 7));
    std::copy(before.begin(), before.end(), dst.data());

    // The frame as the kernels see it: big-endian words swapped to native order.
    std::vector<uint8_t> native = file;
    const uint32_t fb = frameBytes(c.layout, c.container, c.width, c.height);
    if (c.bigEndian && c.container == 16)
        for (uint32_t i = 0; i + 1 < fb; i += 2) std::swap(native[i], native[i + 1]);

    conv.convertFrame(src.data(), dst.data());
    const std::vector<uint8_t> expected = oracleConvert(c, native.data(), native.size(), before, conv.toneTable(),
                                                        conv.brightness(), conv.contrast(), conv.gamma());
    const std::vector<uint8_t> got(dst.data(), dst.data() + dstBytes);
    const std::vector<uint8_t> srcAfter(src.data(), src.data() + file.size());
    EXPECT_EQ(srcAfter, native) << c.describe() << " seed " << seed;
    for (size_t i = 0; i < dstBytes; ++i) {
        if (got[i] != expected[i]) {
            ADD_FAILURE() << c.describe() << " kernels " << kernels << " threads " << threads << ": pixel ("
                          << (i / 4) % size_t(c.width) << ", " << (i / 4) / size_t(c.width) << ") byte " << i % 4
                          << " is " << int(got[i]) << ", expected " << int(expected[i]) << " (seed " << seed
                          << ", set KAVRI_TEST_SEED to repeat)";
            return false;
        }
    }
    return true;
}

ConvCase randomCase(std::mt19937 &rng)
{
    auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    static const int kWide[] = {31, 33, 63, 65, 97, 129, 255, 257};
    ConvCase c;
    c.layout = videoFormat_t(pick(1, kCoreLayoutCount));
    c.width = pick(0, 3) == 0 ? kWide[pick(0, 7)] : pick(1, 15);
    c.height = pick(1, 9);
    c.bits = pick(1, 16);
    c.container = c.bits > 8 ? 16 : (pick(0, 3) == 0 ? 16 : 8);
    c.isSigned = pick(0, 1);
    c.flip = pick(0, 1);
    c.bigEndian = pick(0, 2) == 0;
    c.swapUV = pick(0, 2) == 0;
    c.interlaced = pick(0, 2) == 0;
    c.selection = pick(0, 5) < 3 ? 0 : pick(1, 3);
    if (c.layout == YUV_v210) {
        c.bits = 10;
        c.container = 16;
        c.isSigned = false;
    }
    switch (pick(0, 4)) {
    case 0: // default tone
        break;
    case 1: c.brightness = pick(-60, 60), c.contrast = pick(-300, 300); break;
    case 2: c.gamma = pick(100, 600); break;
    case 3: // a stored gamma of 0: the BGRA block copy
        c.brightness = 0, c.contrast = 0, c.gamma = 0;
        break;
    default: c.brightness = pick(-30, 30), c.contrast = pick(-100, 100), c.gamma = pick(128, 512);
    }
    return c;
}

// One kernel set per instance, so each set passes, fails or is skipped on its own.
class KernelSetOracle : public ::testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        const std::string refusal = pixel::kernelSetRefusal(GetParam());
        if (!refusal.empty()) GTEST_SKIP() << GetParam() << " kernels not tested: " << refusal;
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(EverySet, KernelSetOracle, ::testing::Values("portable", "avx2", "avx512"),
                         [](const ::testing::TestParamInfo<const char *> &info) { return std::string(info.param); });

TEST_P(KernelSetOracle, RandomLayoutsDepthsAndSizesMatch)
{
    const uint32_t seed = testSeed();
    std::mt19937 rng(seed);
    for (int iteration = 0; iteration < 1500; ++iteration) {
        const ConvCase c = randomCase(rng);
        const uint32_t alloc = allocationSize(c.layout, c.container, c.width, c.height);
        ASSERT_GT(alloc, 0u) << c.describe();
        std::vector<uint8_t> file(alloc);
        // Mostly in-range values, sometimes anything (stray high bits in 16-bit containers).
        const bool wild = rng() % 4 == 0;
        for (size_t i = 0; i < file.size(); ++i) file[i] = uint8_t(rng());
        if (!wild && c.container == 16 && c.layout != YUV_v210) {
            const uint32_t mask = (1u << c.bits) - 1;
            for (size_t i = 0; i + 1 < file.size(); i += 2) {
                uint32_t v = (uint32_t(file[i]) | uint32_t(file[i + 1]) << 8) & mask;
                if (c.bigEndian) v = ((v & 0xff) << 8) | (v >> 8);
                file[i] = uint8_t(v), file[i + 1] = uint8_t(v >> 8);
            }
        }
        if (!checkCase(c, file, GetParam(), 1, seed)) return;
    }
}

// Every layout at every depth once, flags off, at a width that leaves a remainder for every chroma
// factor and for v210 groups.
TEST_P(KernelSetOracle, EveryLayoutAndDepth)
{
    std::mt19937 rng(7);
    for (int f = 1; f <= kCoreLayoutCount; ++f) {
        for (int bits = 1; bits <= 16; ++bits) {
            ConvCase c;
            c.layout = videoFormat_t(f);
            c.width = 67;
            c.height = 5;
            c.bits = f == YUV_v210 ? 10 : bits;
            c.container = c.bits > 8 ? 16 : 8;
            std::vector<uint8_t> file(allocationSize(c.layout, c.container, c.width, c.height));
            for (uint8_t &b : file) b = uint8_t(rng());
            if (!checkCase(c, file, GetParam(), 1, 7)) return;
        }
    }
}

// Bands on the worker pool give the same bytes as one thread, for frames large enough to be split.
TEST(ConversionOracle, PooledConversionMatchesSingleThread)
{
    const uint32_t seed = testSeed();
    std::mt19937 rng(seed);
    for (videoFormat_t f : {YUV_p420, YUV_nv12, YUV_v210, YUV_uyvy, RGB_planar, BGR_i444, BW}) {
        ConvCase c;
        c.layout = f;
        c.width = 645;
        c.height = 403;
        c.bits = f == YUV_v210 ? 10 : (f == YUV_p420 ? 10 : 8);
        c.container = c.bits > 8 ? 16 : 8;
        c.bigEndian = f == YUV_p420;
        c.flip = true;
        c.contrast = 40;
        std::vector<uint8_t> file(allocationSize(c.layout, c.container, c.width, c.height));
        for (uint8_t &b : file) b = uint8_t(rng());
        if (c.container == 16 && f != YUV_v210)
            for (size_t i = 0; i + 1 < file.size(); i += 2) file[i] &= 0x03; // big-endian 10-bit values
        ASSERT_TRUE(checkCase(c, file, "portable", 0, seed));
        ASSERT_TRUE(checkCase(c, file, pixel::bestKernels().name, 0, seed));
        ASSERT_TRUE(checkCase(c, file, pixel::bestKernels().name, 2, seed));
    }
}
