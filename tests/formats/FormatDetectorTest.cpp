#include "formats/FormatDetector.h"
#include "support/TempFiles.h"

#include <QElapsedTimer>
#include <gtest/gtest.h>

using namespace kavri;

namespace {

// Paths that cannot have a side file or a header: nothing exists under /nonexistent.
QString nowhere(const char *name) { return QStringLiteral("/nonexistent/") + QLatin1String(name); }

struct VoteCase {
    const char *name; // file name, searched under /nonexistent/
    videoFormat_t winner;
    std::vector<std::pair<videoFormat_t, double>> scores; // selected layouts' expected sums
};

void PrintTo(const VoteCase &c, std::ostream *os) { *os << c.name; }

class Vote : public ::testing::TestWithParam<VoteCase> {};

TEST_P(Vote, WinnerAndScores)
{
    const VoteCase &c = GetParam();
    FormatDetector d;
    const VideoProps &p = d.detect(nowhere(c.name));
    EXPECT_EQ(d.sourceName(), "name");
    EXPECT_EQ(p.format, c.winner);
    for (const auto &[layout, score] : c.scores) EXPECT_NEAR(d.score(layout), score, 1e-9) << "layout " << layout;
}

const VoteCase kVotes[] = {
    // Layouts 1..5 tie at 0.9; ties go to the lowest number.
    {"clip.yuv", YUV_p420, {{YUV_p420, 0.9}, {YUV_p422, 0.9}, {YUV_p444, 0.9}, {YUV_p410, 0.9}, {YUV_p411, 0.9}}},
    {"clip_422.yuv", YUV_p422, {{YUV_p422, 1.5}, {YUV_p420, 0.9}}},
    // "p444" counts twice for BGR_planar and BGRA_planar, but YUV_p444 has 444 and p444 besides .yuv$.
    {"clip_p444.yuv",
     YUV_p444,
     {{YUV_p444, 2.1}, {BGR_planar, 1.8}, {BGRA_planar, 1.8}, {RGB_planar, 0.9}, {BRG_planar, 0.9}}},
    // Without .yuv the repeated p444 row decides between the planar RGB orders.
    {"clip_p444.raw", BGR_planar, {{BGR_planar, 1.8}, {BGRA_planar, 1.8}, {YUV_p444, 1.2}}},
    {"clip_rgb.raw", RGB_i444, {{RGB_i444, 0.9}, {RGB_planar, 0.8}}},
    // "planar" counts twice for RGB_planar (1.0 + 0.6).
    {"clip_rgb_planar.raw", RGB_planar, {{RGB_planar, 2.4}, {RGB_i444, 0.9}, {BGR_planar, 0.9}, {BRG_planar, 0.0}}},
    {"clip_planar.raw", RGB_planar, {{RGB_planar, 1.6}, {RBG_planar, 1.5}, {GRB_planar, 1.6}, {BRGA_planar, 0.6}}},
    {"clip_grb_planar.raw", GRB_planar, {{GRB_planar, 2.7}, {RGB_planar, 1.6}}},
    {"clip_brg_planar.raw", RGB_planar, {{BRG_planar, 0.0}, {RGB_planar, 1.6}}},
    {"clip_brga.raw", BRGA_planar, {{BRGA_planar, 0.9}}},
    // "gbr" is inside "gbra": GBR_planar ties with GBRA_planar and, being lower, wins.
    {"clip_gbra_planar.raw", GBR_planar, {{GBRA_planar, 2.6}, {GBR_planar, 2.6}}},
    {"clip_bgra.raw", BGRA_i444, {{BGRA_i444, 1.1}, {BGRA_planar, 0.9}}},
    {"clip_rgba.raw", RGBA_i444, {{RGBA_i444, 1.1}, {RGBA_planar, 1.0}, {RGB_i444, 0.9}}},
    {"clip_32bit.raw", RGBA_i444, {{RGBA_i444, 1.0}, {RGBA_planar, 0.5}}},
    {"clip.uyvy", YUV_uyvy, {{YUV_uyvy, 1.0}}},
    // Packed YUV gets none of the .yuv rows; its own word still outweighs ".yuv$".
    {"clip_yuy2.raw", YUV_yuy2, {{YUV_yuy2, 1.0}, {YUV_p420, 0.0}}},
    {"clip_yuy2.yuv", YUV_yuy2, {{YUV_yuy2, 1.0}, {YUV_p420, 0.9}}},
    {"clip_v210.yuv", YUV_v210, {{YUV_v210, 1.0}}},
    {"clip_nv12.yuv", YUV_nv12, {{YUV_nv12, 1.0}}},
    {"clip_410.yuv", YUV_p410, {{YUV_p410, 1.3}}},
    {"clip_411.yuv", YUV_p411, {{YUV_p411, 1.3}}},
    // ".gray$" and ".y$" (the dot is any character, so "ay" at the end hits); ".+gray.+" needs a
    // character after "gray".
    {"clip.gray", BW, {{BW, 2.0}}},
    {"clip.bw", BW, {{BW, 1.0}}},
    // ".y$" alone: any name ending in "y".
    {"clip_yuv.ply", BW, {{BW, 1.0}, {YUV_p420, 0.9}}},
    // ".+gray.+" is in the table twice.
    {"clip_gray_x.bin", BW, {{BW, 1.8}}},
    {"clip.y", BW, {{BW, 1.0}}},
    {"a_p400.raw", BW, {{BW, 1.0}}},
    {"CLIP_RGB_PLANAR.RAW", RGB_planar, {{RGB_planar, 2.4}}},
    // Nothing matches: every score 0, and the lowest layout wins.
    {"zzz.bin", YUV_p420, {{YUV_p420, 0.0}, {BW, 0.0}}},
};

INSTANTIATE_TEST_SUITE_P(Names, Vote, ::testing::ValuesIn(kVotes));

TEST(Vote, DirectoriesVote)
{
    FormatDetector d;
    EXPECT_EQ(d.detect("/nonexistent/422/clip.bin").format, YUV_p422);
    EXPECT_NEAR(d.score(YUV_p422), 0.6, 1e-9);
    EXPECT_EQ(d.detect("/nonexistent/data_rgb/clip.bin").format, RGB_i444);
    EXPECT_EQ(d.detect("/nonexistent/420/clip.bin").format, YUV_p420);
    EXPECT_NEAR(d.score(YUV_p420), 0.6, 1e-9);
}

TEST(Vote, StartOfNameAnchorsAtTheWholePath)
{
    FormatDetector d;
    // Relative: "^yuv" sees the start of the name (and ".+yuv.+" needs a character before it).
    d.detect("yuvclip_no_such_file.bin");
    EXPECT_NEAR(d.score(YUV_p420), 0.5, 1e-9);
    // With a directory in front, only ".+yuv.+" hits.
    d.detect("/nonexistent/yuvclip.bin");
    EXPECT_NEAR(d.score(YUV_p420), 0.9, 1e-9);
}

TEST(Vote, ScoresAreResetBetweenCalls)
{
    FormatDetector d;
    d.detect(nowhere("clip_rgb_planar.raw"));
    d.detect(nowhere("zzz.bin"));
    for (int l = 1; l <= kLayoutCount; ++l) EXPECT_EQ(d.score(l), 0.0) << l;
    EXPECT_EQ(d.score(0), 0.0);
    EXPECT_EQ(d.score(28), 0.0);
}

TEST(KeywordTable, RepetitionsAndGapsAreKept)
{
    const KeywordTable t = buildKeywordTable();
    const auto count = [&](videoFormat_t f, const char *pattern) {
        return std::count_if(t[f].begin(), t[f].end(),
                             [&](const KeywordRow &r) { return QLatin1String(r.pattern) == QLatin1String(pattern); });
    };
    EXPECT_TRUE(t[0].empty());
    EXPECT_EQ(count(BGR_planar, "p444"), 2);
    EXPECT_EQ(count(BGRA_planar, "p444"), 2);
    EXPECT_EQ(count(RGB_planar, "planar"), 2);
    EXPECT_EQ(count(BRG_planar, "planar"), 0);
    EXPECT_EQ(count(BW, ".+gray.+"), 2);
    for (videoFormat_t f : {YUV_uyvy, YUV_yuyv, YUV_yuy2, YUV_nv12, YUV_v210}) EXPECT_EQ(count(f, ".yuv$"), 0) << f;
    // The shared rows come first, the layout's own after them.
    ASSERT_EQ(t[YUV_p422].size(), 6u);
    EXPECT_STREQ(t[YUV_p422][0].pattern, ".yuv$");
    EXPECT_STREQ(t[YUV_p422][5].pattern, "p422");
    ASSERT_EQ(t[BW].size(), 10u);
    EXPECT_EQ(t[BW][3].weight, 0.01);
}

struct NameCase {
    const char *name;
    int32_t width, height;
    double rate;
    int32_t bits;
    bool isSigned, flipped, anamorphic, swapUV;
};

void PrintTo(const NameCase &c, std::ostream *os) { *os << c.name; }

class NameValues : public ::testing::TestWithParam<NameCase> {};

TEST_P(NameValues, SizeRateDepthFlags)
{
    const NameCase &c = GetParam();
    FormatDetector d;
    const VideoProps &p = d.detect(nowhere(c.name));
    EXPECT_EQ(p.width, c.width);
    EXPECT_EQ(p.height, c.height);
    EXPECT_DOUBLE_EQ(p.frameRate, c.rate);
    EXPECT_EQ(p.bitDepth, c.bits);
    EXPECT_EQ(p.signedValues, c.isSigned);
    EXPECT_EQ(p.flipped, c.flipped);
    EXPECT_EQ(p.anamorphic, c.anamorphic);
    EXPECT_EQ(p.swapUV, c.swapUV);
    EXPECT_EQ(p.fileName, nowhere(c.name));
}

const NameCase kNames[] = {
    {"foo_1920x1080_50hz_10bit.yuv", 1920, 1080, 50.0, 10, false, false, false, false},
    {"foo_1920X1080.yuv", 1920, 1080, -1.0, -1, false, false, false, false},
    // Seven digits: the pair starts one digit later.
    {"a_1234567x2.yuv", 234567, 2, -1.0, -1, false, false, false, false},
    {"a_0x0.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"a_0x10.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"foo_1080p.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"foo_1080.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"foo_720p.yuv", 1280, 720, -1.0, -1, false, false, false, false},
    {"foo_720.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"foo_qcif.yuv", 176, 144, -1.0, -1, false, false, false, false},
    {"foo_sif.yuv", 352, 240, -1.0, -1, false, false, false, false},
    {"foo_cif.yuv", 352, 288, -1.0, -1, false, false, false, false},
    {"foo_QCIF.yuv", 176, 144, -1.0, -1, false, false, false, false},
    // A number pair wins over a size word.
    {"foo_cif_320x240.yuv", 320, 240, -1.0, -1, false, false, false, false},
    {"a_25fps.yuv", -1, -1, 25.0, -1, false, false, false, false},
    {"a_29.97hz.yuv", -1, -1, 29.97, -1, false, false, false, false},
    {"a_100fps.yuv", -1, -1, 100.0, -1, false, false, false, false},
    {"a_50HZ.yuv", -1, -1, 50.0, -1, false, false, false, false},
    // A leading 0 cannot start the rate: 05hz reads as 5.
    {"a_05hz.yuv", -1, -1, 5.0, -1, false, false, false, false},
    // Two points do not convert; the rate stays unset.
    {"a_2..5hz.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"a_8bit.yuv", -1, -1, -1.0, 8, false, false, false, false},
    {"-10b.yuv", -1, -1, -1.0, 10, false, false, false, false},
    // A letter is a separator too, so the minus is read as a sign here.
    {"a-10b.yuv", -1, -1, -1.0, 10, true, false, false, false},
    {"ax16bit.yuv", -1, -1, -1.0, 16, false, false, false, false},
    {"movie_-10bit.yuv", -1, -1, -1.0, 10, true, false, false, false},
    {"a_-12bit.yuv", -1, -1, -1.0, 12, true, false, false, false},
    // The letter before the minus is taken as the separator.
    {"movie-10bit.yuv", -1, -1, -1.0, 10, true, false, false, false},
    {"a_24bit.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"upside_down.yuv", -1, -1, -1.0, -1, false, true, false, false},
    {"upside-down.yuv", -1, -1, -1.0, -1, false, true, false, false},
    {"a_flipped.yuv", -1, -1, -1.0, -1, false, true, false, false},
    {"a_anamorphic.yuv", -1, -1, -1.0, -1, false, false, true, false},
    {"a_yv12.yuv", -1, -1, -1.0, -1, false, false, false, true},
    {"a_YV21.yuv", -1, -1, -1.0, -1, false, false, false, true},
    {"a_yv13.yuv", -1, -1, -1.0, -1, false, false, false, false},
    {"zzz", -1, -1, -1.0, -1, false, false, false, false},
};

INSTANTIATE_TEST_SUITE_P(Names, NameValues, ::testing::ValuesIn(kNames));

TEST(FormatDetector, EmptyPathGivesTheDefaults)
{
    FormatDetector d;
    const VideoProps &p = d.detect(QString());
    EXPECT_EQ(p.format, YUV_p420);
    EXPECT_EQ(p.width, -1);
    EXPECT_EQ(p.frameRate, -1.0);
    EXPECT_EQ(d.sourceName(), "name");
}

TEST(FormatDetector, VeryLongNameIsBoundedAndStillVotes)
{
    // Quadratic patterns such as ".+gray.+" meet a name with "gray" only at its very end.
    const QString name = QStringLiteral("/nonexistent/") + QString(100000, u'a') + QStringLiteral("_720p.gray");
    FormatDetector d;
    QElapsedTimer t;
    t.start();
    const VideoProps &p = d.detect(name);
    // No timing assertion: the time is only reported.
    RecordProperty("long_name_ms", int(t.elapsed()));
    EXPECT_EQ(p.fileName, name);
    // The tail lies past the searched prefix, so only what fits in it counts.
    EXPECT_EQ(p.format, YUV_p420);

    const QString shorter = QStringLiteral("/nonexistent/") + QString(5000, u'a') + QStringLiteral("_720p.gray");
    EXPECT_EQ(d.detect(shorter).format, BW);
    EXPECT_EQ(d.result().width, 1280);
}

TEST(FormatDetector, ReusedDetectorStartsAfresh)
{
    test::TempDir dir;
    dir.write("x.hdr", "width=64\nheight=32\nformat=yuv444\n");
    FormatDetector d;
    EXPECT_EQ(d.detect(dir.path("x.yuv")).width, 64);
    EXPECT_EQ(d.sourceName(), "hdr");
    const VideoProps &p = d.detect(nowhere("y_rgb.raw"));
    EXPECT_EQ(d.sourceName(), "name");
    EXPECT_EQ(p.width, -1);
    EXPECT_EQ(p.format, RGB_i444);
    EXPECT_EQ(p.bitDepth, -1);
}

} // namespace
