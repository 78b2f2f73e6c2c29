// kavri-cli render over a frame range, and --native: the stored samples as 16-bit PNGs.
#include "cli/CliTestSupport.h"
#include "formats/VideoFormat.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <algorithm>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

using kavri::test::readAll;

QStringList filesIn(const QString &dir)
{
    return QDir(dir).entryList(QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

// A 12-frame 8-bit 4:2:0 sequence of 40x20 in `dir`.
QString twelveFrames(const test::TempDir &dir)
{
    const QString f = dir.path("a.yuv");
    EXPECT_EQ(runCli({"synth", "-f", "yuv420", "--size", "40x20", "--frames", "12", "-o", f}).rc, 0);
    return f;
}

const QStringList kSize = {"-w", "40", "-h", "20", "-f", "yuv420"};

TEST(CliRenderRange, NamesCountsAndOneJsonLine)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    QDir().mkdir(dir.path("out"));
    struct Case {
        const char *pattern;
        const char *range;
        QStringList names;
    } cases[] = {
        {"f_%05d.png", "2-4", {"f_00002.png", "f_00003.png", "f_00004.png"}},
        {"%d.png", "9-11", {"10.png", "11.png", "9.png"}},
        {"g%3i%%.png", "7-7", {"g  7%.png"}},
        {"h%-3u.png", "0-1", {"h0  .png", "h1  .png"}},
    };
    for (const Case &c : cases) {
        QDir(dir.path("out")).removeRecursively();
        QDir().mkdir(dir.path("out"));
        const auto r = runCli(QStringList{"render"} + kSize +
                              QStringList{f, "--frames", c.range, "-o", dir.path("out/") + c.pattern});
        ASSERT_EQ(r.rc, 0) << c.pattern << ": " << r.err.toStdString();
        EXPECT_EQ(filesIn(dir.path("out")), c.names) << c.pattern;
        // Standard output is the one JSON line, whatever is reported on standard error.
        EXPECT_EQ(r.out.count('\n'), 1) << c.pattern;
        const QJsonObject j = r.json();
        EXPECT_EQ(j["pattern"].toString(), dir.path("out/") + c.pattern);
        EXPECT_EQ(j["frames"].toInt(), c.names.size()) << c.pattern;
        EXPECT_EQ(j["first"].toInt(), QString(c.range).section('-', 0, 0).toInt());
        EXPECT_EQ(j["last"].toInt(), QString(c.range).section('-', 1, 1).toInt());
        EXPECT_EQ(j["width"].toInt(), 40);
    }
}

TEST(CliRenderRange, EachPictureIsTheSingleFramesPicture)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    const auto r = runCli(QStringList{"render"} + kSize +
                          QStringList{f, "--frames", "3-5", "--channel", "1", "-o", dir.path("r%d.png")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    for (int n = 3; n <= 5; ++n) {
        const QString one = dir.path(QStringLiteral("one%1.png").arg(n));
        const auto s = runCli(QStringList{"render"} + kSize +
                              QStringList{f, "--frame", QString::number(n), "--channel", "1", "-o", one});
        ASSERT_EQ(s.rc, 0);
        // The single frame keeps its JSON shape.
        EXPECT_EQ(s.json().keys(), QStringList({"file", "frame", "height", "width"}));
        EXPECT_EQ(readAll(one), readAll(dir.path(QStringLiteral("r%1.png").arg(n)))) << n;
    }
}

TEST(CliRenderRange, ProgressOnStandardErrorForLongRanges)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    const auto longRange =
        runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "0-11", "-o", dir.path("l%02d.png")});
    ASSERT_EQ(longRange.rc, 0);
    EXPECT_TRUE(longRange.err.contains("12 of 12 frames (100%)")) << longRange.err.toStdString();
    EXPECT_GE(longRange.err.count('\n'), 9);
    EXPECT_LE(longRange.err.count('\n'), 10);
    const auto shortRange =
        runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "0-2", "-o", dir.path("s%02d.png")});
    ASSERT_EQ(shortRange.rc, 0);
    EXPECT_TRUE(shortRange.err.isEmpty()) << shortRange.err.toStdString();
}

TEST(CliRenderRange, ARangePastTheEndIsCutWithAWarning)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    const auto r =
        runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "10-50", "-o", dir.path("c%d.png")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["last"].toInt(), 11);
    EXPECT_EQ(r.json()["frames"].toInt(), 2);
    EXPECT_TRUE(r.err.contains("ends at frame 11"));
    EXPECT_TRUE(QFile::exists(dir.path("c11.png")));
    EXPECT_FALSE(QFile::exists(dir.path("c12.png")));
    EXPECT_EQ(runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "12-13", "-o", dir.path("d%d.png")}).rc,
              1);
}

TEST(CliRenderRange, UsageMistakes)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    struct Case {
        const char *name;
        QStringList args;
    } cases[] = {
        {"no number in the name", {"--frames", "0-1", "-o", dir.path("x.png")}},
        {"two numbers", {"--frames", "0-1", "-o", dir.path("x%d_%d.png")}},
        {"a string conversion", {"--frames", "0-1", "-o", dir.path("x%s%d.png")}},
        {"a lone percent at the end", {"--frames", "0-1", "-o", dir.path("x%d%")}},
        {"a float conversion", {"--frames", "0-1", "-o", dir.path("x%f.png")}},
        {"a length modifier", {"--frames", "0-1", "-o", dir.path("x%ld.png")}},
        {"backwards", {"--frames", "3-1", "-o", dir.path("x%d.png")}},
        {"not a range", {"--frames", "3", "-o", dir.path("x%d.png")}},
        {"negative", {"--frames", "-1-3", "-o", dir.path("x%d.png")}},
        {"both frame options", {"--frame", "1", "--frames", "0-1", "-o", dir.path("x%d.png")}},
        {"native with a comparison", {"--native", "--diff", f, "-o", dir.path("x.png")}},
        {"native with a tone curve", {"--native", "--gamma", "300", "-o", dir.path("x.png")}},
        {"native deinterlaced", {"--native", "--deinterlace", "-o", dir.path("x.png")}},
    };
    for (const Case &c : cases) {
        const auto r = runCli(QStringList{"render"} + kSize + QStringList{f} + c.args);
        EXPECT_EQ(r.rc, 2) << c.name << ": " << r.err.toStdString();
        EXPECT_TRUE(r.out.isEmpty()) << c.name;
    }
    EXPECT_EQ(filesIn(dir.dir()), QStringList{"a.yuv"});
}

TEST(CliRenderRange, NothingIsLost)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    const QByteArray input = readAll(f);
    // One name of the range exists: nothing at all is written without --force.
    const QString kept = dir.path("k3.png");
    {
        QFile k(kept);
        ASSERT_TRUE(k.open(QIODevice::WriteOnly));
        k.write("keep me");
    }
    auto r = runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "1-4", "-o", dir.path("k%d.png")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("--force")) << r.err.toStdString();
    EXPECT_EQ(readAll(kept), QByteArray("keep me"));
    EXPECT_EQ(filesIn(dir.dir()), QStringList({"a.yuv", "k3.png"}));
    // With --force it is replaced by a whole picture.
    r = runCli(QStringList{"render"} + kSize + QStringList{f, "--frames", "1-4", "-o", dir.path("k%d.png"), "--force"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_FALSE(QImage(kept).isNull());
    // The same for a single native picture.
    const QString single = dir.path("n.png");
    {
        QFile k(single);
        ASSERT_TRUE(k.open(QIODevice::WriteOnly));
        k.write("keep me");
    }
    EXPECT_EQ(runCli(QStringList{"render"} + kSize + QStringList{f, "--native", "-o", single}).rc, 1);
    EXPECT_EQ(readAll(single), QByteArray("keep me"));
    EXPECT_EQ(runCli(QStringList{"render"} + kSize + QStringList{f, "--native", "-o", single, "--force"}).rc, 0);
    EXPECT_FALSE(QImage(single).isNull());
    // The input is never written, not even with --force.
    r = runCli(QStringList{"render"} + kSize + QStringList{f, "--native", "-o", f, "--force"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(readAll(f), input);
    // A single display frame replaces its output as it always has.
    EXPECT_EQ(runCli(QStringList{"render"} + kSize + QStringList{f, "-o", single}).rc, 0);
}

TEST(CliRenderRange, AFailedWriteLeavesNoPartialFile)
{
    test::TempDir dir;
    const QString f = twelveFrames(dir);
    QDir().mkdir(dir.path("out"));
    // Frame 2's name is taken by a folder: frames 0 and 1 are written whole, then the write fails, and
    // no temporary file is left beside them.
    QDir().mkdir(dir.path("out/p2.png"));
    const auto r = runCli(QStringList{"render"} + kSize +
                          QStringList{f, "--frames", "0-4", "-o", dir.path("out/p%d.png"), "--force"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_EQ(filesIn(dir.path("out")), QStringList({"p0.png", "p1.png", "p2.png"}));
    EXPECT_FALSE(QImage(dir.path("out/p1.png")).isNull());
}

// ---- --native ----

struct NativeCase {
    const char *name;
    videoFormat_t layout;
    int bits;
    bool bigEndian;
    bool isSigned;
    int channel; // 0: the colour picture of an RGB layout
    int width = 48, height = 20;
};

// The pattern's value at (x, y) of frame 1, as --native must write it: the stored value (moved up by
// half the range when signed, which gives back the pattern's unsigned value) shifted to 16 bits. Planar
// chroma rows hold W >> shift samples, so with an odd width the last pixels have no column of their own
// and repeat the last stored one.
uint16_t expected(const PatternSpec &s, int channel, int x, int y)
{
    const LayoutInfo &info = layoutInfo(s.layout);
    if (info.kind == LayoutKind::PlanarYuv && channel >= 2) {
        const int sx = info.chromaShiftX;
        x = std::min(x >> sx, (s.width >> sx) - 1) << sx;
    }
    const PatternPixel p = patternPixel(s, 1, x, y);
    const int32_t v = channel == 1 ? p.c1 : channel == 2 ? p.c2 : channel == 3 ? p.c3 : p.alpha;
    return uint16_t(v << (16 - s.bits));
}

class CliRenderNative : public testing::TestWithParam<NativeCase> {};

TEST_P(CliRenderNative, ValuesAreTheStoredSamplesShifted)
{
    const NativeCase &c = GetParam();
    const LayoutInfo &info = layoutInfo(c.layout);
    test::TempDir dir;
    const QString f = dir.path("in.raw");
    const QString keyword = QString::fromUtf8(info.keyword.data(), qsizetype(info.keyword.size()));
    const QString w = QString::number(c.width), h = QString::number(c.height), bits = QString::number(c.bits);
    QStringList synth = {"synth", "-f", keyword, "--size", w + "x" + h, "--bits", bits, "--frames", "2", "-o", f};
    if (c.bigEndian) synth << "--big-endian";
    if (c.isSigned) synth << "--signed";
    ASSERT_EQ(runCli(synth).rc, 0);
    QStringList args = {"render", "-w", w,         "-h", h,          "-f", keyword,          "--bits",
                        bits,     f,    "--frame", "1",  "--native", "-o", dir.path("n.png")};
    if (c.bigEndian) args << "--toggle-endian";
    if (c.isSigned) args << "--signed";
    if (c.channel != 0) args << "--channel" << QString::number(c.channel);
    const auto r = runCli(args);
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["depth"].toInt(), c.bits);
    EXPECT_EQ(r.json()["channel"].toInt(), c.channel);
    EXPECT_TRUE(r.json()["native"].toBool());

    PatternSpec s;
    s.layout = c.layout;
    s.width = c.width;
    s.height = c.height;
    s.bits = c.bits;
    s.containerBits = c.bits > 8 ? 16 : 8;
    const QImage img(dir.path("n.png"));
    ASSERT_FALSE(img.isNull());
    ASSERT_EQ(img.size(), QSize(c.width, c.height));
    if (c.channel == 0) {
        const QImage rgba = img.convertToFormat(QImage::Format_RGBA64);
        EXPECT_EQ(img.hasAlphaChannel(), info.hasAlpha);
        for (int y = 0; y < c.height; ++y) {
            const auto *line = reinterpret_cast<const uint16_t *>(rgba.constScanLine(y));
            for (int x = 0; x < c.width; ++x) {
                for (int k = 0; k < 3; ++k)
                    ASSERT_EQ(line[4 * x + k], expected(s, k + 1, x, y))
                        << "x " << x << " y " << y << " component " << k;
                ASSERT_EQ(line[4 * x + 3], info.hasAlpha ? expected(s, 0, x, y) : 0xffff) << x << "," << y;
            }
        }
    } else {
        ASSERT_EQ(img.format(), QImage::Format_Grayscale16);
        for (int y = 0; y < c.height; ++y) {
            const auto *line = reinterpret_cast<const uint16_t *>(img.constScanLine(y));
            for (int x = 0; x < c.width; ++x)
                ASSERT_EQ(line[x], expected(s, c.channel, x, y)) << "x " << x << " y " << y;
        }
    }
}

// Without --channel the grey picture is the first component (Y).
const NativeCase kCases[] = {
    {"luma8", BW, 8, false, false, 1},
    {"luma12_be", BW, 12, true, false, 1},
    {"yuv420_10_be_y", YUV_p420, 10, true, false, 1},
    {"yuv420_10_be_u", YUV_p420, 10, true, false, 2},
    {"yuv420_10_be_v", YUV_p420, 10, true, false, 3},
    {"yuv420_10_le_v", YUV_p420, 10, false, false, 3},
    {"yuv422_9_u", YUV_p422, 9, false, false, 2},
    {"yuv410_8_v", YUV_p410, 8, false, false, 3},
    {"yuv444_10_signed_u", YUV_p444, 10, false, true, 2},
    {"uyvy8_y", YUV_uyvy, 8, false, false, 1},
    {"nv12_10_v", YUV_nv12, 10, false, false, 3},
    {"v210_u", YUV_v210, 10, false, false, 2},
    {"rgb8", RGB_i444, 8, false, false, 0},
    {"bgr12_be", BGR_i444, 12, true, false, 0},
    {"bgra8", BGRA_i444, 8, false, false, 0},
    {"rgbp10", RGB_planar, 10, false, false, 0},
    {"gbrp16_be", GBR_planar, 16, true, false, 0},
    {"brgap10", BRGA_planar, 10, false, false, 0},
    {"rgbp10_signed", RGB_planar, 10, false, true, 0},
    {"rgbp10_green_only", RGB_planar, 10, false, false, 2},
    // One component of an RGB layout is named red, green, blue whatever the storage order.
    {"gbrp10_red_only", GBR_planar, 10, false, false, 1},
    {"bgr8_blue_only", BGR_i444, 8, false, false, 3},
    // Odd sizes: the chroma rows are cut short in storage.
    {"yuv420_odd_v", YUV_p420, 8, false, false, 3, 47, 20},
    {"yuv422_odd_u", YUV_p422, 10, false, false, 2, 47, 19},
    {"yuv411_odd_v", YUV_p411, 8, false, false, 3, 45, 7},
};

INSTANTIATE_TEST_SUITE_P(Layouts, CliRenderNative, testing::ValuesIn(kCases),
                         [](const testing::TestParamInfo<NativeCase> &i) { return std::string(i.param.name); });

TEST(CliRenderNativeGrey, DefaultsToTheFirstComponentAndRefusesMissingOnes)
{
    test::TempDir dir;
    const QString f = dir.path("a.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv422", "--size", "16x8", "--bits", "10", "--frames", "1", "-o", f}).rc, 0);
    const QStringList base = {"render", "-w", "16", "-h", "8", "-f", "yuv422", "--bits", "10", f, "--native"};
    ASSERT_EQ(runCli(base + QStringList{"-o", dir.path("d.png")}).rc, 0);
    ASSERT_EQ(runCli(base + QStringList{"--channel", "1", "-o", dir.path("y.png")}).rc, 0);
    EXPECT_EQ(readAll(dir.path("d.png")), readAll(dir.path("y.png")));
    // --flip turns the picture upside down, as the player shows it.
    ASSERT_EQ(runCli(base + QStringList{"--channel", "2", "-o", dir.path("u.png")}).rc, 0);
    ASSERT_EQ(runCli(base + QStringList{"--channel", "2", "--flip", "-o", dir.path("f.png")}).rc, 0);
    EXPECT_EQ(QImage(dir.path("f.png")), QImage(dir.path("u.png")).mirrored(false, true));
    // A luma-only file has no second component.
    const QString l = dir.path("a.bw");
    ASSERT_EQ(runCli({"synth", "-f", "luma", "--size", "16x8", "--frames", "1", "-o", l}).rc, 0);
    const auto r = runCli(
        {"render", "-w", "16", "-h", "8", "-f", "luma", l, "--native", "--channel", "2", "-o", dir.path("l.png")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_FALSE(QFile::exists(dir.path("l.png")));
}

} // namespace
