// Pins what the 27 original layouts look like, read out, compare and count: one fingerprint per layout
// over frame sizes, odd sizes, depths, containers, byte orders and signs, taken through the same pipeline
// the player and kavri-cli use. The fingerprints were taken before any layout was added after the 27;
// a change to any of them means an existing file now renders, reads or measures differently.
#include "formats/FrameSize.h"
#include "pixel/FramePipeline.h"
#include "pixel/PatternGenerator.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

using namespace kavri;

namespace {

struct Fnv {
    uint64_t h = 1469598103934665603ull;
    void bytes(const void *p, size_t n)
    {
        const auto *b = static_cast<const uint8_t *>(p);
        for (size_t i = 0; i < n; ++i) h = (h ^ b[i]) * 1099511628211ull;
    }
    template <typename T>
    void value(T v)
    {
        bytes(&v, sizeof v);
    }
};

struct Variant {
    int32_t width, height, bits, container;
    bool isSigned, bigEndian, flipped;
};

constexpr Variant kVariants[] = {
    {16, 8, 8, 8, false, false, false},    {17, 9, 8, 8, false, false, false},  {6, 3, 8, 8, false, false, true},
    {20, 10, 10, 16, false, false, false}, {13, 7, 10, 16, true, false, false}, {12, 6, 16, 16, false, true, false},
    {8, 4, 12, 16, false, true, true},     {9, 5, 8, 16, false, false, false},  {4, 2, 6, 8, true, false, false},
};

// The fingerprint of one layout over all variants it can be written in.
uint64_t fingerprint(videoFormat_t layout)
{
    Fnv f;
    for (const Variant &v : kVariants) {
        PatternSpec s;
        s.layout = layout;
        s.width = v.width;
        s.height = v.height;
        s.bits = layout == YUV_v210 ? 10 : v.bits;
        s.containerBits = layout == YUV_v210 ? 16 : v.container;
        s.isSigned = layout == YUV_v210 ? false : v.isSigned;
        s.bigEndian = layout == YUV_v210 ? false : v.bigEndian;
        if (!patternSpecError(s).empty()) continue;
        VideoProps p = patternRecord(s);
        p.flipped = v.flipped;
        FramePipeline pipe;
        pipe.setup(p, true);
        f.value(pipe.frameBytes());
        f.value(pipe.allocationSize());
        f.value(frameBytes(layout, s.containerBits, s.width, s.height));
        const uint32_t bytes = patternFrameBytes(s);
        std::vector<uint8_t> a(pipe.allocationSize()), b(pipe.allocationSize());
        const bool written = writePatternFrame(s, 0, a.data(), a.size()) && writePatternFrame(s, 7, b.data(), b.size());
        EXPECT_TRUE(written) << int(layout);
        if (!written) return 0;
        std::memcpy(pipe.buffer(FramePipeline::Buffer::First), a.data(), bytes);
        std::memcpy(pipe.buffer(FramePipeline::Buffer::Second), b.data(), bytes);
        pipe.toNative();
        std::vector<uint8_t> rgb(size_t(s.width) * s.height * 4);
        for (int32_t view : {1, 2, 0})
            for (int32_t channel : {0, 1, 2, 3}) {
                ViewSettings vs;
                vs.view = view;
                vs.channel = channel;
                if (channel == 3) vs.brightness = 20, vs.contrast = 300, vs.gamma = 300;
                std::fill(rgb.begin(), rgb.end(), uint8_t(0x5a));
                pipe.show(vs, rgb.data());
                f.bytes(rgb.data(), rgb.size());
                for (int32_t y = 0; y < s.height; ++y)
                    for (int32_t x = 0; x < s.width; ++x) {
                        int32_t c1 = -1, c2 = -1, c3 = -1, alpha = -1;
                        f.value(pipe.readout(x, y, c1, c2, c3, &alpha));
                        f.value(c1), f.value(c2), f.value(c3), f.value(alpha);
                    }
            }
        const DifferencePicture &d = pipe.compare();
        std::ostringstream metrics;
        metrics.precision(17);
        for (int k = 0; k < 3; ++k)
            metrics << d.mse[k] << ' ' << d.psnr[k] << ' ' << d.firstDiffX[k] << ' ' << d.firstDiffY[k] << ' ';
        f.bytes(metrics.str().data(), metrics.str().size());
    }
    return f.h;
}

// clang-format off
constexpr uint64_t kPinned[27] = {
    0x3bfd9c9d90933e14ull,
    0x50ef5cdbbe8cd1e7ull,
    0x258c2d453ea389c8ull,
    0x3d84d63766a03af5ull,
    0x45650d99f3e0428aull,
    0x320a7befa5467e12ull,
    0x72acc87b41b81072ull,
    0x72acc87b41b81072ull,
    0x57d97567bf49e55dull,
    0x88f71c4d9c9bc3f4ull,
    0xf8f3ed048f404ca5ull,
    0x3dd7c27ffe9eeb65ull,
    0x70ab223712a9cb7dull,
    0xcbbc1725b2fa2810ull,
    0xce4f8149c2c82f3dull,
    0x947ed0f590ea505aull,
    0x14e1de7014989a69ull,
    0xd05d4f78aa57faf2ull,
    0x406ccd98030e90f9ull,
    0x58ad9fb753d8e662ull,
    0x53df1fbcc618b67dull,
    0x207e31678c783e4aull,
    0xd85845ea3c8aa3b1ull,
    0x7dc7bc2b09cf6f16ull,
    0xa4bb0db3a1eac4ecull,
    0x24743364ed4cadf7ull,
    0x44ffda6054d51b10ull,
};
// clang-format on

} // namespace

TEST(OriginalLayouts, RenderReadoutDifferenceAndBytesAreUnchanged)
{
    const bool print = std::getenv("KAVRI_PRINT_PINS") != nullptr;
    for (int v = 1; v <= 27; ++v) {
        const uint64_t got = fingerprint(videoFormat_t(v));
        if (print) std::printf("    0x%016llxull,\n", static_cast<unsigned long long>(got));
        EXPECT_EQ(got, kPinned[v - 1]) << "layout " << v;
    }
}
