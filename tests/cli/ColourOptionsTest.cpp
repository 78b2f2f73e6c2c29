// The colour description from every source a sequence can take it from: options, file-name words, side-file
// keys and the remembered store; and what render, pixel and info make of it.
#include "cli/CliTestSupport.h"
#include "support/TempFiles.h"

#include <QFile>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

// A 16x8 4:2:0 frame of one colour.
QByteArray flatFrame(uint8_t y, uint8_t u, uint8_t v)
{
    return QByteArray(16 * 8, char(y)) + QByteArray(4 * 8, char(u)) + QByteArray(4 * 8, char(v));
}

QJsonObject colourOf(const QStringList &args)
{
    const auto r = runCli(args);
    EXPECT_EQ(r.rc, 0) << r.err.toStdString();
    return r.json()["colour"].toObject();
}

} // namespace

TEST(CliColour, InfoReportsTheDescriptionAndWhereItCameFrom)
{
    test::TempDir dir;
    const QString plain = dir.write("plain_16x8.yuv", flatFrame(16, 128, 128));
    QJsonObject c = colourOf({"info", plain});
    EXPECT_EQ(c["matrix"].toString(), "default");
    EXPECT_EQ(c["range"].toString(), "full");
    EXPECT_EQ(c["chroma"].toString(), "nearest");
    EXPECT_EQ(c["transfer"].toString(), "sdr");
    EXPECT_EQ(c["peak"].toInt(), 1000);
    EXPECT_EQ(c["source"].toString(), "default");

    const QString named = dir.write("clip_bt2020_pq_tv_16x8.yuv", flatFrame(16, 128, 128));
    c = colourOf({"info", named});
    EXPECT_EQ(c["matrix"].toString(), "bt2020");
    EXPECT_EQ(c["range"].toString(), "limited");
    EXPECT_EQ(c["transfer"].toString(), "pq");
    EXPECT_EQ(c["source"].toString(), "name");

    c = colourOf({"info", "--matrix", "bt601", "--range", "limited", "--chroma", "center", "--transfer", "hlg",
                  "--peak", "2000", named});
    EXPECT_EQ(c["matrix"].toString(), "bt601");
    EXPECT_EQ(c["chroma"].toString(), "center");
    EXPECT_EQ(c["transfer"].toString(), "hlg");
    EXPECT_EQ(c["peak"].toInt(), 2000);
    EXPECT_EQ(c["source"].toString(), "option");

    const QString side = dir.write("side.yuv", flatFrame(16, 128, 128));
    dir.write("side.hdr", "width=16\nheight=8\ncolour_matrix=smpte240m\ncolour_range=limited\nchroma_siting=topleft\n"
                          "transfer=hlg\npeak_nits=600\n");
    c = colourOf({"info", side});
    EXPECT_EQ(c["matrix"].toString(), "smpte240m");
    EXPECT_EQ(c["chroma"].toString(), "topleft");
    EXPECT_EQ(c["peak"].toInt(), 600);
    EXPECT_EQ(c["source"].toString(), "hdr");
}

TEST(CliColour, WordsCountOnlyWhole)
{
    test::TempDir dir;
    for (const char *name :
         {"abt709_16x8.yuv", "bt7090_16x8.yuv", "tvshow_16x8.yuv", "pqr_16x8.yuv", "fullhd_16x8.yuv"}) {
        const QString f = dir.write(name, flatFrame(16, 128, 128));
        const QJsonObject c = colourOf({"info", f});
        EXPECT_EQ(c["source"].toString(), "default") << name;
        EXPECT_EQ(c["matrix"].toString(), "default") << name;
    }
    const QString f = dir.write("x.BT601-PC_16x8.yuv", flatFrame(16, 128, 128));
    const QJsonObject c = colourOf({"info", f});
    EXPECT_EQ(c["matrix"].toString(), "bt601");
    EXPECT_EQ(c["range"].toString(), "full");
}

TEST(CliColour, TheRememberedDescriptionComesBack)
{
    test::TempDir dir;
    const QString f = dir.write("kept_16x8.yuv", flatFrame(16, 128, 128));
    auto r = runCli({"remember", "--matrix", "ycgco", "--range", "limited", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject c = colourOf({"info", f});
    EXPECT_EQ(c["matrix"].toString(), "ycgco");
    EXPECT_EQ(c["source"].toString(), "remembered");
    EXPECT_EQ(colourOf({"info", "--no-remembered", f})["source"].toString(), "default");
    runCli({"forget", f});
}

TEST(CliColour, BadValuesAreUsageErrors)
{
    test::TempDir dir;
    const QString f = dir.write("u_16x8.yuv", flatFrame(16, 128, 128));
    for (const QStringList &bad :
         {QStringList{"--matrix", "bt2021"}, QStringList{"--range", "tv"}, QStringList{"--chroma", "middle"},
          QStringList{"--transfer", "gamma"}, QStringList{"--peak", "50"}}) {
        const auto r = runCli(QStringList{"info"} + bad + QStringList{f});
        EXPECT_EQ(r.rc, 2) << bad.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains(bad[0])) << r.err.toStdString();
    }
}

TEST(CliColour, PixelShowsTheColourOfTheReadingAndKeepsTheSamples)
{
    test::TempDir dir;
    // BT.601 limited: Y 81, Cb 90, Cr 240 is red (254, 0, 0).
    const QString f = dir.write("red_16x8.yuv", flatFrame(81, 90, 240));
    auto r = runCli({"pixel", "--at", "3,2", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_FALSE(r.json().contains("shown")); // the default reading prints what it always printed
    r = runCli({"pixel", "--at", "3,2", "--matrix", "bt601", "--range", "limited", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j["c1"].toInt(), 81);
    EXPECT_EQ(j["c2"].toInt(), 90);
    EXPECT_EQ(j["c3"].toInt(), 240);
    EXPECT_EQ(j["shown"].toArray(), (QJsonArray{254, 0, 0}));
}

TEST(CliColour, RenderTakesTheReading)
{
    test::TempDir dir;
    const QString f = dir.write("grey_16x8.yuv", flatFrame(16, 128, 128));
    const QString a = dir.path("a.png"), b = dir.path("b.png");
    ASSERT_EQ(runCli({"render", f, "-o", a}).rc, 0);
    ASSERT_EQ(runCli({"render", "--matrix", "bt709", "--range", "limited", f, "-o", b}).rc, 0);
    EXPECT_NE(test::readAll(a), test::readAll(b)); // limited black is black; full-range 16 is not
}
