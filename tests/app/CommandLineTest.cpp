#include "app/CommandLine.h"
#include "formats/FormatNames.h"

#include <gtest/gtest.h>

using namespace kavri;

namespace {

struct ParseCase {
    const char *name;
    QStringList args; // without the program
    QString file;
    QStringList further;
    int32_t width = 0, height = 0;
    double rate = -1.0;
    videoFormat_t format = FMT_UNKNOWN;
    bool play = false;
    QString diff = {}, link = {};
};

void PrintTo(const ParseCase &c, std::ostream *os) { *os << c.name; }

class CommandLine : public ::testing::TestWithParam<ParseCase> {};

TEST_P(CommandLine, Parses)
{
    const ParseCase &c = GetParam();
    const ParsedCommandLine r = parseCommandLine(QStringList{"kavri"} + c.args);
    EXPECT_EQ(r.config.file, c.file);
    EXPECT_EQ(r.furtherFiles, c.further);
    EXPECT_EQ(r.config.width, c.width);
    EXPECT_EQ(r.config.height, c.height);
    EXPECT_EQ(r.config.rate, c.rate);
    EXPECT_EQ(r.config.format, c.format);
    EXPECT_EQ(r.config.play, c.play);
    EXPECT_EQ(r.config.diff, c.diff);
    EXPECT_EQ(r.config.link, c.link);
}

const ParseCase kCases[] = {
    {"nothing", {}, "", {}},
    {"one_file", {"clip.yuv"}, "clip.yuv", {}},
    {"stdin", {"-"}, "-", {}},
    {"size_and_format",
     {"-w", "352", "-h", "288", "-f", "yuv420", "clip.yuv"},
     "clip.yuv",
     {},
     352,
     288,
     -1.0,
     YUV_p420},
    {"long_options",
     {"--width", "1920", "--height", "1080", "--rate", "50", "--format", "v210", "--play", "a.v210"},
     "a.v210",
     {},
     1920,
     1080,
     50.0,
     YUV_v210,
     true},
    {"value_would_be_the_last_argument", {"--width", "clip.yuv"}, "--width", {"clip.yuv"}},
    {"unknown_keyword_falls_through", {"-f", "foo", "clip.yuv"}, "foo", {"clip.yuv"}},
    {"surplus_files", {"a.yuv", "b.yuv", "c.yuv"}, "a.yuv", {"b.yuv", "c.yuv"}},
    {"single_play_is_the_file", {"-p"}, "-p", {}},
    {"play_then_file", {"-p", "clip.yuv"}, "clip.yuv", {}, 0, 0, -1.0, FMT_UNKNOWN, true},
    {"options_are_case_sensitive", {"-W", "352", "clip.yuv"}, "-W", {"352", "clip.yuv"}},
    {"bad_numbers_read_as_zero", {"-w", "abc", "-r", "fast", "clip.yuv"}, "clip.yuv", {}, 0, 0, 0.0},
    {"diff_and_link",
     {"-d", "b.yuv", "-l", "{abc}", "a.yuv"},
     "a.yuv",
     {},
     0,
     0,
     -1.0,
     FMT_UNKNOWN,
     false,
     "b.yuv",
     "{abc}"},
    {"long_diff_and_link",
     {"--diff", "b.yuv", "--link", "L", "a.yuv"},
     "a.yuv",
     {},
     0,
     0,
     -1.0,
     FMT_UNKNOWN,
     false,
     "b.yuv",
     "L"},
    {"fractional_rate", {"-r", "29.97", "x.yuv"}, "x.yuv", {}, 0, 0, 29.97},
    {"every_keyword_is_lower_case", {"-f", "LUMA", "x.yuv"}, "LUMA", {"x.yuv"}},
    {"luma_keyword", {"-f", "luma", "x.y"}, "x.y", {}, 0, 0, -1.0, BW},
    // A skipped argument before an option leaves the file at the option's end.
    {"skipped_then_option", {"x.yuv", "-p", "y.yuv"}, "y.yuv", {}, 0, 0, -1.0, FMT_UNKNOWN, true},
    {"file_then_options_before_last", {"a.yuv", "-w", "5", "b.yuv"}, "b.yuv", {}, 5},
};
INSTANTIATE_TEST_SUITE_P(All, CommandLine, ::testing::ValuesIn(kCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(CommandLine, EveryFormatKeyword)
{
    const char *keywords[] = {"yuv420", "yuv422", "yuv444", "yuv410", "yuv411", "uyvy",  "yuyv",  "yuy2",  "nv12",
                              "v210",   "rgb",    "rgba",   "bgr",    "bgra",   "rgbp",  "rgbap", "rbgp",  "rbgap",
                              "bgrp",   "bgrap",  "brgp",   "brgap",  "grbp",   "grbap", "gbrp",  "gbrap", "luma"};
    for (int v = 1; v <= 27; ++v) {
        const auto r = parseCommandLine({"kavri", "-f", keywords[v - 1], "x.raw"});
        EXPECT_EQ(r.config.format, v) << keywords[v - 1];
        EXPECT_EQ(r.config.file, "x.raw");
    }
}

TEST(OpenRequest, ArgumentOrder)
{
    EXPECT_EQ(openRequestArguments("a.yuv", "b.yuv", {"--link", "L"}),
              QStringList({"--diff", "b.yuv", "--link", "L", "a.yuv"}));
    EXPECT_EQ(openRequestArguments("a.yuv", "", {"-p"}), QStringList({"-p", "a.yuv"}));
    EXPECT_EQ(openRequestArguments("", "b.yuv", {"-p"}), QStringList());
    EXPECT_EQ(openRequestArguments("", "", {}), QStringList());
}

} // namespace

TEST(CommandLine, HelpAndVersionOnlyAsTheSoleArgumentAndNeverOverAFile)
{
    const auto none = [](const QString &) { return false; };
    const auto all = [](const QString &) { return true; };
    const struct {
        const char *name;
        QStringList args;
        bool (*exists)(const QString &);
        InfoRequest want;
    } rows[] = {
        {"help", {"--help"}, none, InfoRequest::Help},
        {"version", {"--version"}, none, InfoRequest::Version},
        {"a file named --help opens", {"--help"}, all, InfoRequest::None},
        {"with a file after it", {"--help", "a.yuv"}, none, InfoRequest::None},
        {"short -h is the height", {"-h"}, none, InfoRequest::None},
        {"case matters", {"--Version"}, none, InfoRequest::None},
        {"no argument", {}, none, InfoRequest::None},
    };
    for (const auto &r : rows) EXPECT_EQ(infoRequest(QStringList{"kavri"} + r.args, r.exists), r.want) << r.name;
    // The parser itself is unchanged: as a last argument "--help" is still the file.
    EXPECT_EQ(parseCommandLine({"kavri", "--help"}).config.file, QStringLiteral("--help"));
}

TEST(CommandLine, UsageNamesEveryKeywordAndTheKeys)
{
    const QString usage = playerUsage();
    for (const LayoutInfo &l : kLayouts)
        EXPECT_TRUE(usage.contains(QLatin1Char(' ') + formatKeyword(l.value))) << l.keyword;
    for (const char *k : {"Space", "Ctrl+G", "Shift+Right", "Play/Pause", "wheel"})
        EXPECT_TRUE(usage.contains(QLatin1String(k))) << k;
    EXPECT_TRUE(playerVersionLine().startsWith(QStringLiteral("kavri ")));
}

TEST(CommandLine, ColourOptions)
{
    ParsedCommandLine r = parseCommandLine({"kavri", "--matrix", "bt2020", "--range", "limited", "--chroma", "topleft",
                                            "--transfer", "pq", "--peak", "4000", "-w", "8", "f.yuv"});
    EXPECT_EQ(r.config.file, "f.yuv");
    EXPECT_EQ(r.config.width, 8);
    EXPECT_EQ(r.config.colour.matrix, ColourMatrix::BT2020);
    EXPECT_EQ(r.config.colour.range, ColourRange::Limited);
    EXPECT_EQ(r.config.colour.chroma, ChromaSiting::TopLeft);
    EXPECT_EQ(r.config.colour.transfer, ColourTransfer::PQ);
    EXPECT_EQ(r.config.colour.peakNits, 4000);
    // Unknown values leave the option unmatched, like any argument the command line does not know.
    r = parseCommandLine({"kavri", "--matrix", "bt2021", "--peak", "5", "f.yuv"});
    EXPECT_FALSE(r.config.colour.any());
    // A value is never taken from the last argument, which is the file.
    r = parseCommandLine({"kavri", "-w", "8", "--range", "limited"});
    EXPECT_FALSE(r.config.colour.range.has_value());
    r = parseCommandLine({"kavri", "clip.yuv"});
    EXPECT_FALSE(r.config.colour.any());
}

namespace {

struct CompareCase {
    const char *name;
    QStringList args; // without the program
    QString file;
    QStringList compare;
    QStringList further;
    QString diff = {};
};
void PrintTo(const CompareCase &c, std::ostream *os) { *os << c.name; }

class CompareOption : public ::testing::TestWithParam<CompareCase> {};

TEST_P(CompareOption, CollectsEachFileInOrderLikeADifferenceFile)
{
    const CompareCase &c = GetParam();
    const ParsedCommandLine r = parseCommandLine(QStringList{"kavri"} + c.args);
    EXPECT_EQ(r.config.file, c.file);
    EXPECT_EQ(r.config.compare, c.compare);
    EXPECT_EQ(r.furtherFiles, c.further);
    EXPECT_EQ(r.config.diff, c.diff);
}

const CompareCase kCompareCases[] = {
    {"none", {"a.yuv"}, "a.yuv", {}, {}},
    {"short", {"-c", "b.yuv", "a.yuv"}, "a.yuv", {"b.yuv"}, {}},
    {"long", {"--compare", "b.yuv", "a.yuv"}, "a.yuv", {"b.yuv"}, {}},
    {"repeated_in_order",
     {"-c", "b.yuv", "--compare", "c.yuv", "-c", "d.yuv", "a.yuv"},
     "a.yuv",
     {"b.yuv", "c.yuv", "d.yuv"},
     {}},
    {"with_diff_and_size",
     {"-w", "16", "-c", "b.yuv", "-h", "16", "-d", "x.yuv", "a.yuv"},
     "a.yuv",
     {"b.yuv"},
     {},
     "x.yuv"},
    // The last argument is the file, never an option's value: "-c" then matches nothing and, as for
    // -d, becomes the file, the rest opening in players of their own.
    {"value_would_be_the_file", {"-c", "a.yuv"}, "-c", {}, {"a.yuv"}},
    {"alone_is_the_file", {"-c"}, "-c", {}, {}},
    {"further_files_still_open_apart", {"-c", "b.yuv", "a.yuv", "z.yuv"}, "a.yuv", {"b.yuv"}, {"z.yuv"}},
    {"case_sensitive", {"-C", "b.yuv", "a.yuv"}, "-C", {}, {"b.yuv", "a.yuv"}},
};
INSTANTIATE_TEST_SUITE_P(All, CompareOption, ::testing::ValuesIn(kCompareCases),
                         [](const auto &i) { return std::string(i.param.name); });

} // namespace
