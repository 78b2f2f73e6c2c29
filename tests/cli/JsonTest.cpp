#include "cli/Json.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

using namespace kavri::cli;

namespace {

TEST(Json, NumbersAndStrings)
{
    EXPECT_EQ(JsonValue(25.0).text(), "25.0");
    EXPECT_EQ(JsonValue(29.97).text(), "29.97");
    EXPECT_EQ(JsonValue(0.1).text(), "0.1");
    EXPECT_EQ(JsonValue(std::numeric_limits<double>::infinity()).text(), "\"inf\"");
    EXPECT_EQ(JsonValue(std::nan("")).text(), "\"nan\"");
    EXPECT_EQ(JsonValue(uint64_t(18446744073709551615ull)).text(), "18446744073709551615");
    EXPECT_EQ(JsonValue(-1).text(), "-1");
    EXPECT_EQ(JsonValue(QString("a\"b\\c\n\x01")).text(), "\"a\\\"b\\\\c\\n\\u0001\"");
    EXPECT_EQ(JsonValue().text(), "null");
}

TEST(Json, ObjectKeepsKeyOrder)
{
    JsonObject o;
    o.add("z", 1).add("a", true).add("m", JsonValue::array({JsonValue(-1), JsonValue(-1)}));
    EXPECT_EQ(o.toString(), "{\"z\": 1, \"a\": true, \"m\": [-1, -1]}");
}

} // namespace
