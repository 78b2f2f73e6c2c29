#include "cli/CliTestSupport.h"
#include "support/TempFiles.h"

#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

// Plane strides and offsets from the command line and from a side file decide the frame's bytes.
TEST(CliInfo, PlaneStridesAndOffsets)
{
    test::TempDir dir;
    const QString f = dir.writeSized("gpu.raw", 88 * 3);
    auto r =
        runCli({"info", "-w", "6", "-h", "4", "-f", "yuv420", "--stride", "8,4,4", "--plane-offsets", "0,64,80", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["frame_bytes"].toInteger(), 88);
    EXPECT_EQ(r.json()["alloc_bytes"].toInteger(), 88);
    EXPECT_EQ(r.json()["frame_count"].toInteger(), 3);
    r = runCli({"info", "-w", "6", "-h", "4", "-f", "yuv420", "--stride", "5", f});
    EXPECT_FALSE(r.json()["playable"].toBool());
    EXPECT_TRUE(r.err.contains("stride is shorter than a row")) << r.err.toStdString();
    for (const char *bad : {"1,2,3,4,5", "x", "-4", "99999999999"})
        EXPECT_EQ(runCli({"info", "-w", "6", "-h", "4", "--stride", bad, f}).rc, 2) << bad;
    dir.write("gpu.hdr", "width=6\nheight=4\nformat=yuv420\nstride=8,4,4\nplaneoffsets=0,64,80\n");
    r = runCli({"info", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["frame_bytes"].toInteger(), 88);
}

TEST(CliInfo, ReportsTheValidatedRecord)
{
    test::TempDir dir;
    const QString f = dir.writeSized("clip.yuv", 152064 * 10);
    const auto r = runCli({"info", "-w", "352", "-h", "288", "-f", "yuv420", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j["file"].toString(), f);
    EXPECT_TRUE(j["diff"].isNull());
    EXPECT_EQ(j["width"].toInt(), 352);
    EXPECT_EQ(j["height"].toInt(), 288);
    EXPECT_EQ(j["format"].toString(), "YUV_p420");
    EXPECT_EQ(j["format_value"].toInt(), 1);
    EXPECT_EQ(j["bit_depth"].toInt(), 8);
    EXPECT_EQ(j["container_bits"].toInt(), 8);
    EXPECT_EQ(j["frame_bytes"].toInteger(), 152064);
    EXPECT_EQ(j["alloc_bytes"].toInteger(), 152064);
    EXPECT_EQ(j["frame_count"].toInteger(), 10);
    EXPECT_EQ(j["file_size"].toInteger(), 1520640);
    EXPECT_EQ(j["mask"].toInt(), 23);
    EXPECT_TRUE(j["playable"].toBool());
    EXPECT_FALSE(j["source"].toString().isEmpty());
    EXPECT_EQ(j.keys().size(), 24); // with "colour"
}

TEST(CliInfo, ExpertOptions)
{
    test::TempDir dir;
    const QString f = dir.writeSized("x.raw", 512 + 2 * 352 * 288 * 3 * 2);
    const auto r = runCli({"info", "-w", "352", "-h", "288", "-r", "50", "-f", "rgbp", "--bits", "10", "--header",
                           "512", "--signed", "--flip", "--swap-uv", "--toggle-endian", "--interlaced", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j["container_bits"].toInt(), 16);
    EXPECT_EQ(j["frame_count"].toInt(), 2);
    EXPECT_EQ(j["header_bytes"].toInt(), 512);
    EXPECT_EQ(j["rate"].toDouble(), 50.0);
    EXPECT_EQ(j["mask"].toInt(), 31);
    for (const char *k : {"signed", "flipped", "swap_uv", "toggle_endianness", "interlaced"})
        EXPECT_TRUE(j[k].toBool()) << k;
    EXPECT_FALSE(j["anamorphic"].toBool());
}

TEST(CliInfo, ShortFileIsNotPlayable)
{
    test::TempDir dir;
    const QString f = dir.writeSized("short.yuv", 1000);
    const auto r = runCli({"info", "-w", "352", "-h", "288", f});
    EXPECT_EQ(r.rc, 0);
    EXPECT_FALSE(r.json()["playable"].toBool());
    EXPECT_EQ(r.json()["frame_count"].toInt(), 0);
    EXPECT_TRUE(r.err.contains("not playable")) << r.err.toStdString();
}

TEST(CliInfo, OverflowingSizeIsUnplayableNotWrapped)
{
    test::TempDir dir;
    const QString f = dir.writeSized("big.rgba", 100);
    const auto r = runCli({"info", "-w", "99999", "-h", "99999", "--bits", "16", "-f", "rgba", f});
    EXPECT_EQ(r.rc, 0);
    EXPECT_FALSE(r.json()["playable"].toBool());
    EXPECT_EQ(r.json()["frame_bytes"].toInt(), 0);
    EXPECT_TRUE(r.err.contains("too large")) << r.err.toStdString();
}

TEST(CliInfo, DiffKeepsTheSmallerCount)
{
    test::TempDir dir;
    const QString a = dir.writeSized("a.yuv", 152064 * 10);
    const QString b = dir.writeSized("b.yuv", 152064 * 3);
    const auto r = runCli({"info", "-w", "352", "-h", "288", "--diff", b, a});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.json()["diff"].toString(), b);
    EXPECT_EQ(r.json()["frame_count"].toInt(), 3);
}

TEST(CliInfo, DiffFileDescribesAPlainMainFile)
{
    // The main file says nothing of its format; the difference file's name does, so the pair opens with
    // that description, as the player and bench open it.
    test::TempDir dir;
    const QString b = dir.writeSized("b_64x48.yuv", 4608 * 3);
    const QString plain = dir.writeSized("plain.raw", 4608 * 5);
    const auto r = runCli({"info", "--diff", b, plain});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_TRUE(j["playable"].toBool()) << r.err.toStdString();
    EXPECT_FALSE(r.err.contains("not playable")) << r.err.toStdString();
    EXPECT_EQ(j["file"].toString(), plain);
    EXPECT_EQ(j["width"].toInt(), 64);
    EXPECT_EQ(j["height"].toInt(), 48);
    EXPECT_EQ(j["frame_count"].toInt(), 3);
}

TEST(CliInfo, StandardInputHasNoFrameCount)
{
    const auto r = runCli({"info", "-w", "352", "-h", "288", "-"});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.json()["file"].toString(), "-");
    EXPECT_EQ(r.json()["frame_count"].toInt(), 0);
    EXPECT_TRUE(r.json()["playable"].toBool());
}

struct FailCase {
    const char *name;
    QStringList args;
    int rc;
    const char *errContains;
};

void PrintTo(const FailCase &c, std::ostream *os) { *os << c.name; }

class CliInfoFailure : public ::testing::TestWithParam<FailCase> {};

TEST_P(CliInfoFailure, ExitsWithOneLine)
{
    const auto r = runCli(GetParam().args);
    EXPECT_EQ(r.rc, GetParam().rc);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(r.err.contains(QLatin1String(GetParam().errContains))) << r.err.toStdString();
    EXPECT_EQ(r.err.count('\n'), 1) << r.err.toStdString();
}

const FailCase kFailures[] = {
    {"missing_file", {"info", "/nonexistent/a.yuv"}, 1, "cannot open '/nonexistent/a.yuv': No such file or directory"},
    {"missing_diff", {"info", "--diff", "/nonexistent/b.yuv", "-"}, 1, "cannot open '/nonexistent/b.yuv'"},
    {"unknown_option", {"info", "--bogus", "a.yuv"}, 2, "unknown option '--bogus'"},
    {"unknown_keyword", {"info", "-f", "yuv999", "a.yuv"}, 2, "yuv999"},
    {"bits_out_of_range", {"info", "--bits", "17", "a.yuv"}, 2, "--bits"},
    {"container_not_8_or_16", {"info", "--container", "12", "a.yuv"}, 2, "--container"},
    {"width_not_a_number", {"info", "-w", "wide", "a.yuv"}, 2, "--width"},
    {"no_file", {"info"}, 2, "missing FILE"},
    {"two_files", {"info", "a", "b"}, 2, "unexpected argument 'b'"},
    {"unknown_command", {"frobnicate"}, 2, "unknown command 'frobnicate'"},
};
INSTANTIATE_TEST_SUITE_P(All, CliInfoFailure, ::testing::ValuesIn(kFailures),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(Cli, HelpAndVersion)
{
    auto r = runCli({"--version"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_TRUE(r.out.startsWith("kavri-cli 0.7.1"));
    r = runCli({"--help"});
    EXPECT_EQ(r.rc, 0);
    EXPECT_TRUE(r.out.contains("info"));
    r = runCli({"info", "--help"});
    EXPECT_EQ(r.rc, 0);
    for (const char *opt :
         {"--width", "--height", "--rate", "--format", "--bits", "--container", "--header", "--signed", "--flip",
          "--swap-uv", "--toggle-endian", "--interlaced", "--no-remembered", "--diff"})
        EXPECT_TRUE(r.out.contains(QLatin1String(opt))) << opt;
    r = runCli({});
    EXPECT_EQ(r.rc, 2);
}

} // namespace
