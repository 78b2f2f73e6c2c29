// Row functions that the conversion oracle does not reach directly, compared byte for byte between
// the portable set and each faster set: the 8-bit difference rows and the tone pass. A set this build
// or this CPU cannot run is reported as skipped, with the reason.
#include "pixel/KernelDispatch.h"
#include "pixel/RowKernels.h"

#include <gtest/gtest.h>

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
