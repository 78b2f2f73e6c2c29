// Row functions that the conversion oracle does not reach directly, compared byte for byte between
// the portable set and each faster set: the 8-bit difference rows, the tone pass and the sited rows. A set this build
// or this CPU cannot run is reported as skipped, with the reason.
#include "pixel/KernelDispatch.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using namespace kavri::pixel;

namespace {

class KernelSets : public ::testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        const std::string refusal = kernelSetRefusal(GetParam());
        if (!refusal.empty()) GTEST_SKIP() << GetParam() << " kernels not tested: " << refusal;
        k = kernelsByName(GetParam());
        ASSERT_NE(k, nullptr) << GetParam();
    }
    const KernelSet *k = nullptr;
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Faster, KernelSets, ::testing::Values("avx2", "avx512"),
                         [](const ::testing::TestParamInfo<const char *> &info) { return std::string(info.param); });

TEST_P(KernelSets, DifferenceRowsMatchThePortableRows)
{
    const uint32_t seed = 99;
    std::mt19937 rng(seed);
    for (int iteration = 0; iteration < 400; ++iteration) {
        const int32_t n = int32_t(rng() % 300) + (iteration % 7 == 0 ? 70000 : 0);
        const int isSigned = int(rng() & 1);
        const int32_t mid = 1 << (rng() % 8);
        std::vector<uint8_t> a(size_t(n) + 1), b(size_t(n) + 1), table(256);
        for (auto &x : a) x = uint8_t(rng());
        for (auto &x : b) x = uint8_t(iteration % 3 ? rng() : 0);
        for (auto &x : table) x = uint8_t(rng());
        std::vector<uint8_t> want(a.size(), 0x5A), got(a.size(), 0x5A);
        const uint64_t s1 = portableKernels().diffRow8[isSigned](a.data(), b.data(), want.data(), n, table.data(), mid);
        const uint64_t s2 = k->diffRow8[isSigned](a.data(), b.data(), got.data(), n, table.data(), mid);
        ASSERT_EQ(s1, s2) << k->name << " n " << n << " seed " << seed;
        ASSERT_EQ(want, got) << k->name << " n " << n << " seed " << seed;
    }
}

TEST_P(KernelSets, TonePassKeepsTheFourthByte)
{
    std::mt19937 rng(5);
    // A set without the separate pass uses its [tone] row variants, which the conversion oracle covers.
    if (!k->toneRow) return;
    for (int32_t n : {0, 1, 15, 16, 17, 33, 100}) {
        std::vector<uint8_t> table(256), px(size_t(n) * 4);
        for (auto &x : table) x = uint8_t(rng());
        for (auto &x : px) x = uint8_t(rng());
        std::vector<uint8_t> want = px;
        for (size_t i = 0; i < want.size(); ++i)
            if (i % 4 != 3) want[i] = table[want[i]];
        k->toneRow(px.data(), n, table.data());
        ASSERT_EQ(px, want) << k->name << " n " << n;
    }
}

namespace {

// Coefficients for the sited rows: mostly within 16 signed bits (the vector loops), now and then one
// beyond (the sets hand such rows to their templates).
RowParams randomSitedParams(std::mt19937 &rng, bool wide)
{
    RowParams p{};
    for (auto &row : p.m)
        for (uint32_t &m : row) m = uint32_t(int32_t(rng() % 12001) - 6000);
    if (wide) p.m[rng() % 3][rng() % 3] = uint32_t(70000);
    p.shift = 10 + int32_t(rng() % 6);
    for (uint32_t &a : p.add) a = uint32_t(int32_t(rng() % 4000001) - 2000000) + (1u << (p.shift - 1));
    return p;
}

} // namespace

// The sited rows against the portable ones, byte for byte: every luma source, both ratios and both
// sitings, row lengths around every vector step, chroma words up to the limit, 16-bit luma codes with
// bit 15 set, and the fourth byte of every pixel kept.
TEST_P(KernelSets, SitedRowsMatchThePortableRows)
{
    std::mt19937 rng(17);
    for (int iteration = 0; iteration < 600; ++iteration) {
        const int lk = iteration % 4, sx = lk >= kLumaUyvy8 ? 1 : 1 + (iteration / 4) % 2,
                  centred = (iteration / 8) % 2;
        int32_t n = int32_t(rng() % 160) + (iteration % 29 == 0 ? 3000 : 0);
        if (lk >= kLumaUyvy8) n &= ~1;
        const uint32_t limit = sitedPairLimit(sx, centred == 1);
        const int32_t pairCount = (n >> sx) + 2;
        std::vector<uint32_t> pairs(size_t(pairCount) + 1 + 64);
        // Every fifth row at the limit itself, where a lane too narrow for the weighing would overflow.
        const auto word = [&] { return iteration % 5 == 0 ? limit : rng() % (limit + 1); };
        for (uint32_t &w : pairs) w = word() | word() << 16;
        std::vector<uint16_t> luma16(size_t(n) + 1);
        std::vector<uint8_t> luma8(2 * size_t(n) + 2);
        for (auto &y : luma16) y = uint16_t(iteration % 7 == 0 ? rng() : rng() % 1024);
        for (auto &y : luma8) y = uint8_t(rng());
        const void *luma = lk == kLuma16 ? static_cast<const void *>(luma16.data()) : luma8.data();
        const RowParams p = randomSitedParams(rng, iteration % 11 == 0);
        std::vector<uint32_t> want(size_t(n) + 1), got;
        for (uint32_t &px : want) px = rng();
        got = want;
        portableKernels().sitedRow[lk][sx - 1][centred](p, luma, pairs.data() + 1, want.data(), n);
        k->sitedRow[lk][sx - 1][centred](p, luma, pairs.data() + 1, got.data(), n);
        ASSERT_EQ(want, got) << k->name << " luma " << lk << " sx " << sx << " centred " << centred << " n " << n
                             << " iteration " << iteration;
    }
}

TEST_P(KernelSets, SitedWeighingMatchesThePortableRows)
{
    std::mt19937 rng(23);
    for (int iteration = 0; iteration < 500; ++iteration) {
        const int ck = iteration % 5, wi = (iteration / 5) % 5;
        const int32_t wv = wi < 4 ? kSitedWeights[wi] : int32_t(rng() % 17);
        const int32_t n = int32_t(rng() % 120) + (iteration % 23 == 0 ? 2000 : 0);
        const uint32_t max = iteration % 3 == 0 ? 4095 : 1023;
        // Deep codes drop fraction bits (exactly for the usual weights; any weight must still agree).
        const int32_t down = int32_t(rng() % 5);
        // Enough bytes for any source: 16-bit planes, byte pairs and packed rows of n pairs.
        std::vector<uint8_t> rows[4];
        for (auto &r : rows) {
            r.resize(4 * size_t(n) + 4);
            for (auto &b : r) b = uint8_t(rng());
        }
        const bool packed = ck == kChromaUyvy8 || ck == kChromaYuyv8;
        const int32_t w = packed ? 0 : wv;
        std::vector<uint32_t> want(size_t(n) + 1, 0x5a5a5a5a), got = want;
        portableKernels().sitedWeigh[ck][packed ? 0 : wi](rows[0].data(), rows[1].data(), rows[2].data(),
                                                          rows[3].data(), w, max, down, want.data(), n);
        k->sitedWeigh[ck][packed ? 0 : wi](rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(), w, max, down,
                                           got.data(), n);
        ASSERT_EQ(want, got) << k->name << " chroma " << ck << " wv " << w << " down " << down << " n " << n;
    }
}

// The one-pass sited planes against the portable weighing and row they stand for: the pixels they
// convert must be those, byte for byte, and they must leave the rest of the row alone.
TEST_P(KernelSets, SitedPlanesMatchThePortableWeighingAndRow)
{
    std::mt19937 rng(31);
    int32_t converted = 0;
    for (int iteration = 0; iteration < 400; ++iteration) {
        const int wide = iteration % 2, centred = (iteration / 2) % 2;
        if (!k->sitedPlanes[wide][centred]) continue;
        const int32_t n = int32_t(rng() % 700) + (iteration % 17 == 0 ? 4000 : 0);
        const int32_t cols = n / 2 + int32_t(rng() % 3);
        const int32_t wv = iteration % 3 == 0 ? int32_t(rng() % 17) : kSitedWeights[rng() % 4];
        // 16-bit codes as deep as the lanes take with the fraction bits kept: 10 bits with all 4, 12 with 2.
        const int32_t down = wide ? int32_t(rng() % 3) : 0;
        const uint32_t max = wide ? std::min(4095u, sitedPairLimit(1, centred == 1) / (16u >> down)) : 255;
        std::vector<uint8_t> rows[4], luma(2 * size_t(n) + 2);
        for (auto &r : rows) {
            r.resize(2 * size_t(cols) + 2);
            for (auto &b : r) b = uint8_t(rng());
        }
        for (auto &b : luma) b = uint8_t(iteration % 5 == 0 ? rng() : rng() & 0x3f);
        const void *rowPointers[4] = {rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data()};
        const RowParams p = randomSitedParams(rng, iteration % 13 == 0);
        std::vector<uint32_t> got(size_t(n) + 1);
        for (uint32_t &px : got) px = rng();
        std::vector<uint32_t> want = got;
        const int32_t done =
            k->sitedPlanes[wide][centred](p, luma.data(), rowPointers, wv, max, down, cols, got.data(), n);
        ASSERT_GE(done, 0);
        ASSERT_LE(done, n);
        converted += done;
        // The reference: the whole row of pairs, padded with the edge pairs, then the portable row.
        std::vector<uint32_t> pairs(size_t(cols) + 2 + 64 + 1);
        portableKernels().sitedWeigh[wide ? kChromaPlanes16 : kChromaPlanes8][4](
            rows[0].data(), rows[1].data(), rows[2].data(), rows[3].data(), wv, max, down, pairs.data() + 1, cols);
        pairs[0] = pairs[1];
        std::fill(pairs.begin() + 1 + cols, pairs.end(), pairs[size_t(cols)]);
        portableKernels().sitedRow[wide ? kLuma16 : kLuma8][0][centred](p, luma.data(), pairs.data() + 1, want.data(),
                                                                        done);
        ASSERT_EQ(want, got) << k->name << " wide " << wide << " centred " << centred << " n " << n << " cols " << cols
                             << " wv " << wv << " down " << down << " done " << done;
    }
    // A set with such loops must have used them.
    if (k->sitedPlanes[0][0]) {
        EXPECT_GT(converted, 0) << k->name;
    }
}

// The weights across as they are documented, worked out here pixel by pixel, for every set: a
// coefficient of 1 and no shift give c1, c2 and luma back as red, green and blue.
TEST(SitedRows, WeighAcrossWithTheSitingsFixedWeights)
{
    struct Siting {
        int32_t sx;
        bool centred;
        int32_t offset[4], weight[4];
    };
    const Siting sitings[] = {
        {1, false, {0, 0}, {0, 8}},
        {1, true, {-1, 0}, {12, 4}},
        {2, false, {0, 0, 0, 0}, {0, 4, 8, 12}},
        {2, true, {-1, -1, 0, 0}, {10, 14, 2, 6}},
    };
    RowParams p{};
    p.m[0][1] = p.m[1][2] = p.m[2][0] = 1;
    p.shift = 0;
    for (const char *name : {"portable", "avx2", "avx512"}) {
        const KernelSet *set = kernelsByName(name);
        if (!set) continue;
        for (const Siting &s : sitings) {
            constexpr int32_t n = 100;
            const int32_t cols = n >> s.sx;
            // Chroma words 16 times a level (as the vertical weighing leaves them), c2 falling as c1 rises.
            std::vector<uint32_t> pairs(size_t(cols) + 2 + 64);
            for (int32_t k = 0; k <= cols + 1; ++k) {
                const int32_t at = std::clamp(k - 1, 0, cols - 1);
                pairs[size_t(k)] = uint32_t(16 * (3 * at + (at * at) % 7)) | uint32_t(16 * (200 - 2 * at)) << 16;
            }
            std::vector<uint8_t> luma(n);
            for (int32_t x = 0; x < n; ++x) luma[size_t(x)] = uint8_t(x * 7);
            std::vector<uint32_t> out(n, 0);
            set->sitedRow[kLuma8][s.sx - 1][s.centred](p, luma.data(), pairs.data() + 1, out.data(), n);
            for (int32_t x = 0; x < n; ++x) {
                const int32_t r = x & ((1 << s.sx) - 1), k = (x >> s.sx) + s.offset[r], w = s.weight[r];
                const uint32_t a = pairs[size_t(k + 1)], b = pairs[size_t(k + 2)];
                const uint32_t c1 = ((16 - w) * (a & 0xffff) + w * (b & 0xffff) + 8) >> 4;
                const uint32_t c2 = ((16 - w) * (a >> 16) + w * (b >> 16) + 8) >> 4;
                const uint32_t want = std::min(c1, 255u) << 16 | std::min(c2, 255u) << 8 | luma[size_t(x)];
                ASSERT_EQ(out[size_t(x)], want) << name << " sx " << s.sx << " centred " << s.centred << " x " << x;
            }
        }
    }
}
