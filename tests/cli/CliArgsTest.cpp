#include "cli/CliArgs.h"

#include <gtest/gtest.h>

using namespace kavri::cli;

namespace {

const std::vector<OptionSpec> kSpecs = {
    {"-w", "--width", "N", ""},
    {nullptr, "--flip", nullptr, ""},
    {nullptr, "--rate", "R", ""},
};

TEST(CliArgs, OptionsValuesAndPositionals)
{
    const ParsedArgs a = parseArgs({"-w", "5", "a.yuv", "--flip", "--rate=2.5", "-", "--", "--flip"}, kSpecs);
    EXPECT_EQ(a.value("--width"), "5");
    EXPECT_TRUE(a.has("--flip"));
    EXPECT_EQ(a.doubleValue("--rate", 0, 0, 10), 2.5);
    EXPECT_EQ(a.positionals(), QStringList({"a.yuv", "-", "--flip"}));
}

TEST(CliArgs, MistakesAreUsageErrors)
{
    EXPECT_THROW(parseArgs({"--bogus"}, kSpecs), UsageError);
    EXPECT_THROW(parseArgs({"-W", "5"}, kSpecs), UsageError);
    EXPECT_THROW(parseArgs({"-w"}, kSpecs), UsageError);
    EXPECT_THROW(parseArgs({"--flip=1"}, kSpecs), UsageError);
    const ParsedArgs a = parseArgs({"-w", "x", "--rate", "inf"}, kSpecs);
    EXPECT_THROW(a.intValue("--width", 0, 0, 10), UsageError);
    EXPECT_THROW(a.doubleValue("--rate", 0, 0, 10), UsageError);
    const ParsedArgs b = parseArgs({"-w", "11"}, kSpecs);
    EXPECT_THROW(b.intValue("--width", 0, 0, 10), UsageError);
    EXPECT_EQ(b.intValue("--width", 0, 0, 11), 11);
    EXPECT_EQ(b.intValue("--missing", 7, 0, 1), 7);
}

} // namespace
