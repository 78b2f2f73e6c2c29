#include "formats/CompareSet.h"

#include <gtest/gtest.h>

using namespace kavri;

namespace {

struct LockStepCase {
    const char *name;
    std::vector<uint64_t> counts;
    uint64_t expectedCount;
};
void PrintTo(const LockStepCase &c, std::ostream *os) { *os << c.name; }

class LockStep : public ::testing::TestWithParam<LockStepCase> {};

TEST_P(LockStep, ShortestSetsTheCountAndEveryFrameBelowItIsShared)
{
    const LockStepCase &c = GetParam();
    EXPECT_EQ(lockStepCount(c.counts), c.expectedCount);
    for (uint64_t i = 0; i < c.expectedCount + 3; ++i) {
        bool everyHasIt = !c.counts.empty();
        for (uint64_t n : c.counts) everyHasIt = everyHasIt && i < n;
        EXPECT_EQ(lockStepHasFrame(i, c.counts), everyHasIt) << "frame " << i;
    }
}

const LockStepCase kLockStep[] = {
    {"none", {}, 0},
    {"one", {7}, 7},
    {"two_equal", {5, 5}, 5},
    {"second_shorter", {10, 3}, 3},
    {"first_shorter", {2, 9}, 2},
    {"four_mixed", {30, 12, 40, 13}, 12},
    {"an_empty_one_stops_all", {30, 0, 40}, 0},
};
INSTANTIATE_TEST_SUITE_P(All, LockStep, ::testing::ValuesIn(kLockStep),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(LockStepReady, OnlyWhenEverySequenceDeliveredThatFrame)
{
    using D = std::vector<std::optional<uint64_t>>;
    EXPECT_FALSE(lockStepReady(0, D{}));
    EXPECT_TRUE(lockStepReady(4, D{4}));
    EXPECT_TRUE(lockStepReady(4, D{4, 4, 4, 4}));
    EXPECT_FALSE(lockStepReady(4, D{4, 4, 3, 4})) << "one still shows the frame before";
    EXPECT_FALSE(lockStepReady(4, D{4, 5})) << "one is already ahead";
    EXPECT_FALSE(lockStepReady(0, D{0, std::nullopt})) << "one has delivered nothing yet";
}

TEST(SizeMismatch, NamesTheFileThatDiffersAndBothSizes)
{
    const QStringList files = {"/x/original_1920x1080.yuv", "/y/coded.yuv", "/z/other.yuv"};
    EXPECT_EQ(sizeMismatchMessage(files, {{1920, 1080}, {1920, 1080}, {1920, 1080}}), QString());
    EXPECT_EQ(sizeMismatchMessage(files, {{1920, 1080}, {1920, 1080}, {1280, 720}}),
              "other.yuv is 1280x720, but original_1920x1080.yuv is 1920x1080: sequences compared must have the "
              "same size.");
    // Only the height differs, and of the second: the second is named, not the third.
    EXPECT_EQ(sizeMismatchMessage(files, {{1920, 1080}, {1920, 1088}, {1280, 720}}),
              "coded.yuv is 1920x1088, but original_1920x1080.yuv is 1920x1080: sequences compared must have the "
              "same size.");
    EXPECT_EQ(sizeMismatchMessage({"/a.yuv"}, {{16, 16}}), QString());
}

} // namespace
