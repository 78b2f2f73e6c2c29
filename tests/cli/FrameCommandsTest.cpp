// Arguments, exit codes and output shapes of synth, render, pixel and diff.
#include "cli/CliTestSupport.h"
#include "formats/FrameSize.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

using kavri::test::readAll;

QJsonObject jsonLine(const QString &line) { return QJsonDocument::fromJson(line.toUtf8()).object(); }

// ---- synth ----

TEST(CliSynth, WritesTheGeneratorsFrames)
{
    test::TempDir dir;
    const QString f = dir.path("p.yuv");
    const auto r = runCli({"synth", "-f", "yuv420", "--size", "64x36", "--bits", "10", "--big-endian", "--frames", "3",
                           "--rate", "30", "-o", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j["format"].toString(), "YUV_p420");
    EXPECT_EQ(j["container_bits"].toInt(), 16);
    EXPECT_EQ(j["frames"].toInt(), 3);
    EXPECT_EQ(j["frame_bytes"].toInt(), 64 * 36 * 3);
    const QByteArray bytes = readAll(f);
    ASSERT_EQ(bytes.size(), 3 * 64 * 36 * 3);
    PatternSpec s;
    s.width = 64;
    s.height = 36;
    s.bits = 10;
    s.containerBits = 16;
    s.bigEndian = true;
    s.rate = 30;
    std::vector<uint8_t> frame(patternFrameBytes(s));
    ASSERT_TRUE(writePatternFrame(s, 2, frame.data(), frame.size()));
    EXPECT_EQ(bytes.mid(2 * int(frame.size())),
              QByteArray(reinterpret_cast<const char *>(frame.data()), int(frame.size())));
    // Same arguments, same file.
    const QString g = dir.path("q.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "64x36", "--bits", "10", "--big-endian", "--frames", "3",
                      "--rate", "30", "-o", g})
                  .rc,
              0);
    EXPECT_EQ(readAll(g), bytes);
}

TEST(CliSynth, EveryKeywordAtAnOddSize)
{
    test::TempDir dir;
    for (const LayoutInfo &info : kLayouts) {
        const QString f = dir.path(QString::fromLatin1(info.keyword.data(), qsizetype(info.keyword.size())));
        const auto r = runCli({"synth", "-f", QString::fromLatin1(info.keyword.data(), qsizetype(info.keyword.size())),
                               "--size", "13x7", "--frames", "2", "-o", f});
        ASSERT_EQ(r.rc, 0) << info.keyword << ": " << r.err.toStdString();
        const int container = info.value == YUV_v210 ? 16 : 8;
        EXPECT_EQ(QFile(f).size(), 2 * qint64(frameBytes(info.value, container, 13, 7))) << info.keyword;
    }
}

struct UsageCase {
    const char *name;
    QStringList args;
};

TEST(CliSynth, UsageErrorsWriteNothing)
{
    test::TempDir dir;
    const QString out = dir.path("never.yuv");
    const UsageCase cases[] = {
        {"no format", {"--size", "16x16", "-o", out}},
        {"unknown keyword", {"-f", "yuv999", "--size", "16x16", "-o", out}},
        {"no size", {"-f", "yuv420", "-o", out}},
        {"size without x", {"-f", "yuv420", "--size", "640", "-o", out}},
        {"zero size", {"-f", "yuv420", "--size", "0x16", "-o", out}},
        {"absurd size", {"-f", "yuv420", "--size", "100000x100000", "-o", out}},
        {"17 bits", {"-f", "yuv420", "--size", "16x16", "--bits", "17", "-o", out}},
        {"container 12", {"-f", "yuv420", "--size", "16x16", "--container", "12", "-o", out}},
        {"container below depth", {"-f", "yuv420", "--size", "16x16", "--bits", "10", "--container", "8", "-o", out}},
        {"big-endian bytes", {"-f", "yuv420", "--size", "16x16", "--big-endian", "-o", out}},
        {"v210 at 8 bits", {"-f", "v210", "--size", "16x16", "--bits", "8", "-o", out}},
        {"no output", {"-f", "yuv420", "--size", "16x16"}},
        {"zero frames", {"-f", "yuv420", "--size", "16x16", "--frames", "0", "-o", out}},
        {"stray argument", {"-f", "yuv420", "--size", "16x16", "-o", out, "extra"}},
    };
    for (const UsageCase &c : cases) {
        const auto r = runCli(QStringList{"synth"} + c.args);
        EXPECT_EQ(r.rc, 2) << c.name << ": " << r.err.toStdString();
        EXPECT_FALSE(r.err.isEmpty()) << c.name;
        EXPECT_FALSE(QFile::exists(out)) << c.name;
    }
}

TEST(CliSynth, UnwritableTargetFailsWithoutAPartialFile)
{
    test::TempDir dir;
    const QString out = dir.path("missing/dir/x.yuv");
    const auto r = runCli({"synth", "-f", "yuv420", "--size", "16x16", "-o", out});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("cannot write")) << r.err.toStdString();
    EXPECT_TRUE(QDir(dir.dir()).entryList(QDir::Files | QDir::NoDotAndDotDot).isEmpty());
}

// ---- render ----

TEST(CliRender, WritesAPngOfThePictureSize)
{
    test::TempDir dir;
    const QString f = dir.path("a.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "40x20", "--frames", "2", "-o", f}).rc, 0);
    const QString png = dir.path("a.png");
    const auto r = runCli({"render",        "-w",  "40",      "-h",  "20",           "-f",
                           "yuv420",        f,     "--frame", "1",   "--brightness", "10",
                           "--contrast",    "-20", "--gamma", "300", "--channel",    "2",
                           "--deinterlace", "-o",  png});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["frame"].toInt(), 1);
    const QImage img(png);
    ASSERT_FALSE(img.isNull());
    EXPECT_EQ(img.size(), QSize(40, 20));
    // A comparison with every view.
    for (const char *v : {"0", "1", "2"}) {
        const auto d = runCli({"render", "-w", "40", "-h", "20", f, "--diff", f, "--view", v, "-o", png});
        EXPECT_EQ(d.rc, 0) << v << ": " << d.err.toStdString();
    }
}

TEST(CliRender, Failures)
{
    test::TempDir dir;
    const QString f = dir.path("a.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "40x20", "--frames", "2", "-o", f}).rc, 0);
    const QString png = dir.path("out.png");
    struct Case {
        const char *name;
        QStringList args;
        int rc;
    } cases[] = {
        {"frame out of range", {"-w", "40", "-h", "20", f, "--frame", "2", "-o", png}, 1},
        {"missing file", {"-w", "40", "-h", "20", dir.path("none.yuv"), "-o", png}, 1},
        {"missing diff file", {"-w", "40", "-h", "20", f, "--diff", dir.path("none.yuv"), "-o", png}, 1},
        {"size unknown", {f, "-o", png}, 1},
        {"no output", {"-w", "40", "-h", "20", f}, 2},
        {"view without diff", {"-w", "40", "-h", "20", f, "--view", "1", "-o", png}, 2},
        {"channel 4", {"-w", "40", "-h", "20", f, "--channel", "4", "-o", png}, 2},
        {"view 3", {"-w", "40", "-h", "20", f, "--diff", f, "--view", "3", "-o", png}, 2},
        {"negative frame", {"-w", "40", "-h", "20", f, "--frame", "-1", "-o", png}, 2},
        {"no file", {"-w", "40", "-h", "20", "-o", png}, 2},
    };
    for (const Case &c : cases) {
        const auto r = runCli(QStringList{"render"} + c.args);
        EXPECT_EQ(r.rc, c.rc) << c.name << ": " << r.err.toStdString();
        EXPECT_FALSE(r.err.isEmpty()) << c.name;
        EXPECT_FALSE(QFile::exists(png)) << c.name;
    }
    const auto r = runCli({"render", "-w", "40", "-h", "20", f, "--frame", "7", "-o", png});
    EXPECT_TRUE(r.err.contains("out of range")) << r.err.toStdString();
}

// ---- pixel ----

TEST(CliPixel, OutsideThePictureIsNotOk)
{
    test::TempDir dir;
    const QString f = dir.path("a.rgb");
    ASSERT_EQ(runCli({"synth", "-f", "rgb", "--size", "16x8", "--frames", "1", "-o", f}).rc, 0);
    for (const char *at : {"16,0", "0,8", "-1,0", "0,-1"}) {
        const auto r = runCli({"pixel", "-w", "16", "-h", "8", "-f", "rgb", f, "--at", at});
        EXPECT_EQ(r.rc, 1) << at;
        EXPECT_EQ(r.out.trimmed(), "{\"ok\": false}") << at;
        EXPECT_TRUE(r.err.contains("outside")) << at << r.err.toStdString();
    }
}

TEST(CliPixel, UsageAndRuntimeFailures)
{
    test::TempDir dir;
    const QString f = dir.path("a.rgb");
    ASSERT_EQ(runCli({"synth", "-f", "rgb", "--size", "16x8", "--frames", "1", "-o", f}).rc, 0);
    struct Case {
        const char *name;
        QStringList args;
        int rc;
    } cases[] = {
        {"no --at", {"-w", "16", "-h", "8", "-f", "rgb", f}, 2},
        {"bad --at", {"-w", "16", "-h", "8", "-f", "rgb", f, "--at", "3;4"}, 2},
        {"frame out of range", {"-w", "16", "-h", "8", "-f", "rgb", f, "--at", "1,1", "--frame", "1"}, 1},
        {"missing file", {"-w", "16", "-h", "8", dir.path("none"), "--at", "1,1"}, 1},
    };
    for (const Case &c : cases) {
        const auto r = runCli(QStringList{"pixel"} + c.args);
        EXPECT_EQ(r.rc, c.rc) << c.name << ": " << r.err.toStdString();
    }
}

// ---- diff ----

TEST(CliDiff, IdenticalFilesGiveInfinitePsnrAndNoFirstDifference)
{
    test::TempDir dir;
    const QString a = dir.path("a.yuv"), b = dir.path("b.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "32x16", "--frames", "3", "-o", a}).rc, 0);
    ASSERT_TRUE(QFile::copy(a, b));
    const auto r = runCli({"diff", "-w", "32", "-h", "16", "-f", "yuv420", a, b});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QStringList lines = r.out.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 4);
    for (int i = 0; i < 3; ++i) {
        const QJsonObject j = jsonLine(lines[i]);
        EXPECT_EQ(j.keys().size(), 4);
        EXPECT_EQ(j["frame"].toInt(), i);
        EXPECT_EQ(j["mse"].toArray().size(), 3);
        EXPECT_EQ(j["psnr"].toArray().size(), 3);
        const QJsonArray first = j["first_diff"].toArray();
        ASSERT_EQ(first.size(), 3);
        for (const auto &p : first) EXPECT_EQ(p.toArray(), (QJsonArray{-1, -1})) << lines[i].toStdString();
        for (const auto &m : j["mse"].toArray()) EXPECT_EQ(m.toDouble(), 0.0);
    }
    EXPECT_TRUE(lines[0].startsWith("{\"frame\": 0, \"mse\": [")) << lines[0].toStdString();
    const QJsonObject sum = jsonLine(lines[3]);
    EXPECT_EQ(sum.keys().size(), 3);
    EXPECT_EQ(sum["frames"].toInt(), 3);
    EXPECT_EQ(sum["psnr"].toArray(), (QJsonArray{"inf", "inf", "inf"}));
    EXPECT_EQ(sum["mse"].toArray(), (QJsonArray{0.0, 0.0, 0.0}));

    const auto two = runCli({"diff", "-w", "32", "-h", "16", a, b, "--frames", "2"});
    ASSERT_EQ(two.rc, 0);
    EXPECT_EQ(two.out.trimmed().split('\n').size(), 3);
    EXPECT_EQ(jsonLine(two.out.trimmed().split('\n').last())["frames"].toInt(), 2);
}

TEST(CliDiff, LayoutWithoutADifferenceKernelIsSaidSo)
{
    // Packed 4:2:2 is compared only at 8 bits; at 10 the metrics stay zero and the summary must not claim "inf".
    test::TempDir dir;
    const QString a = dir.path("a.uyvy");
    ASSERT_EQ(runCli({"synth", "-f", "uyvy", "--size", "16x8", "--bits", "10", "--frames", "1", "-o", a}).rc, 0);
    const auto r = runCli({"diff", "-w", "16", "-h", "8", "-f", "uyvy", "--bits", "10", a, a});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("not computed")) << r.err.toStdString();
    EXPECT_EQ(jsonLine(r.out.trimmed().split('\n').last())["psnr"].toArray(), (QJsonArray{0.0, 0.0, 0.0}));
}

TEST(CliDiff, Failures)
{
    test::TempDir dir;
    const QString a = dir.path("a.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "32x16", "--frames", "1", "-o", a}).rc, 0);
    EXPECT_EQ(runCli({"diff", "-w", "32", "-h", "16", a}).rc, 2);
    EXPECT_EQ(runCli({"diff", "-w", "32", "-h", "16", a, a, a}).rc, 2);
    EXPECT_EQ(runCli({"diff", "-w", "32", "-h", "16", a, a, "--frames", "0"}).rc, 2);
    EXPECT_EQ(runCli({"diff", "-w", "32", "-h", "16", a, dir.path("none.yuv")}).rc, 1);
    EXPECT_EQ(runCli({"diff", "-w", "32", "-h", "16", dir.path("none.yuv"), a}).rc, 1);
}

TEST(Cli, FrameCommandsAreListed)
{
    const auto r = runCli({"--help"});
    for (const char *c : {"synth", "render", "pixel", "diff"}) EXPECT_TRUE(r.out.contains(c)) << c;
    const auto p = runCli({"pixel", "--help"});
    EXPECT_TRUE(p.out.contains("{\"ok\": false}")) << p.out.toStdString();
}

} // namespace
