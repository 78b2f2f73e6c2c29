// kavri-cli convert: files written in another layout and back, y4m, the range, the refusals, and the
// cases where nothing may be lost or left behind.
#include "cli/CliTestSupport.h"
#include "support/TempFiles.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

using kavri::test::readAll;
using kavri::test::runCli;
using kavri::test::TempDir;

namespace {

// A pattern sequence written by synth; returns its path.
QString synth(const TempDir &dir, const QString &name, const QString &layout, const QString &size, int frames,
              int bits = 8)
{
    const auto r = runCli({"synth", "-f", layout, "--size", size, "--frames", QString::number(frames), "--bits",
                           QString::number(bits), "-o", dir.path(name)});
    EXPECT_EQ(r.rc, 0) << r.err.toStdString();
    return dir.path(name);
}

QStringList format(const QString &layout, int w, int h)
{
    return {"-w", QString::number(w), "-h", QString::number(h), "-f", layout, "-r", "25", "--no-remembered"};
}

QStringList entries(const TempDir &dir) { return QDir(dir.dir()).entryList(QDir::Files | QDir::Hidden); }

} // namespace

TEST(ConvertCommand, RoundTripGivesTheSameBytesAndReportsIt)
{
    TempDir dir;
    const QString in = synth(dir, "in.yuv", "yuv420", "16x8", 3);
    auto r = runCli(QStringList{"convert"} + format("yuv420", 16, 8) +
                    QStringList{in, "--to", "nv21", "-o", dir.path("a.nv21")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject o = r.json();
    EXPECT_EQ(o.value("layout").toString(), "nv21");
    EXPECT_EQ(o.value("bits").toInt(), 8);
    EXPECT_EQ(o.value("frames").toInt(), 3);
    EXPECT_EQ(o.value("first").toInt(), 0);
    EXPECT_EQ(o.value("last").toInt(), 2);
    EXPECT_EQ(o.value("frame_bytes").toInt(), 192);
    EXPECT_FALSE(o.value("y4m").toBool());
    EXPECT_EQ(readAll(dir.path("a.nv21")), readAll(synth(dir, "ref.nv21", "nv21", "16x8", 3)));
    r = runCli(QStringList{"convert"} + format("nv21", 16, 8) +
               QStringList{dir.path("a.nv21"), "--to", "yuv420", "-o", dir.path("back.yuv")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(dir.path("back.yuv")), readAll(in));
}

TEST(ConvertCommand, DepthsOfInputAndOutput)
{
    TempDir dir;
    // A 10-bit input named by --in-bits, written as P010 and back, and narrowed to 8 bits by --bits.
    const QString in = synth(dir, "in.yuv", "yuv420", "8x4", 2, 10);
    auto r = runCli(QStringList{"convert"} + format("yuv420", 8, 4) +
                    QStringList{"--in-bits", "10", in, "--to", "p010", "-o", dir.path("a.p010")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(dir.path("a.p010")), readAll(synth(dir, "ref.p010", "p010", "8x4", 2, 10)));
    r = runCli(QStringList{"convert"} + format("p010", 8, 4) +
               QStringList{dir.path("a.p010"), "--to", "yuv420", "-o", dir.path("back.yuv")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json().value("bits").toInt(), 10);
    EXPECT_EQ(readAll(dir.path("back.yuv")), readAll(in));
    r = runCli(QStringList{"convert"} + format("yuv420", 8, 4) +
               QStringList{"--in-bits", "10", in, "--to", "yuv420", "--bits", "8", "-o", dir.path("n.yuv")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QByteArray wide = readAll(in), narrow = readAll(dir.path("n.yuv"));
    ASSERT_EQ(narrow.size() * 2, wide.size());
    for (int i = 0; i < narrow.size(); ++i) {
        const int v = uint8_t(wide[2 * i]) | uint8_t(wide[2 * i + 1]) << 8;
        ASSERT_EQ(uint8_t(narrow[i]), v >> 2) << "sample " << i << " is shifted right, without rounding";
    }
}

TEST(ConvertCommand, RangeAndY4m)
{
    TempDir dir;
    const QString in = synth(dir, "in.yuv", "yuv444", "4x2", 12);
    auto r = runCli(QStringList{"convert"} + format("yuv444", 4, 2) +
                    QStringList{in, "--to", "yuv420", "--frames", "10-20", "-o", dir.path("o.y4m")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("ends at frame 11")) << r.err.toStdString();
    EXPECT_TRUE(r.json().value("y4m").toBool());
    EXPECT_EQ(r.json().value("frames").toInt(), 2);
    const QByteArray y4m = readAll(dir.path("o.y4m"));
    const QByteArray header("YUV4MPEG2 W4 H2 F25:1 Ip A1:1 C420jpeg\n");
    EXPECT_TRUE(y4m.startsWith(header + "FRAME\n"));
    EXPECT_EQ(y4m.count("FRAME\n"), 2);
    EXPECT_EQ(y4m.size(), header.size() + 2 * (6 + 12));
    // A long run reports its progress on standard error, standard output keeps its one line.
    r = runCli(QStringList{"convert"} + format("yuv444", 4, 2) +
               QStringList{in, "--to", "nv24", "-o", dir.path("o.nv24")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("converted 50% of 12 frames")) << r.err.toStdString();
    EXPECT_EQ(r.out.count('\n'), 1);
    // y4m holds planar frames only.
    r = runCli(QStringList{"convert"} + format("yuv444", 4, 2) +
               QStringList{in, "--to", "nv12", "-o", dir.path("x.y4m")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("y4m holds planar")) << r.err.toStdString();
}

TEST(ConvertCommand, RefusalsAndUsage)
{
    TempDir dir;
    const QString in = synth(dir, "in.yuv", "yuv420", "4x2", 1);
    const QStringList base = QStringList{"convert"} + format("yuv420", 4, 2) + QStringList{in};
    auto r = runCli(base + QStringList{"--to", "rgbp", "-o", dir.path("o.rgb")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("converting between YUV and RGB layouts is not supported")) << r.err.toStdString();
    r = runCli(base + QStringList{"--to", "p010", "--bits", "8", "-o", dir.path("o.p010")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("p010 holds 10-bit samples only")) << r.err.toStdString();
    EXPECT_EQ(runCli(base + QStringList{"--to", "nosuch", "-o", dir.path("o")}).rc, 2);
    EXPECT_EQ(runCli(base + QStringList{"-o", dir.path("o")}).rc, 2);
    EXPECT_EQ(runCli(base + QStringList{"--to", "nv12"}).rc, 2);
    EXPECT_EQ(runCli(base + QStringList{"--to", "nv12", "--bits", "17", "-o", dir.path("o")}).rc, 2);
    EXPECT_EQ(runCli(base + QStringList{"--to", "nv12", "--frames", "3-1", "-o", dir.path("o")}).rc, 2);
    // The luma of a YUV file, and a luma file with mid-grey chroma.
    r = runCli(base + QStringList{"--to", "luma", "-o", dir.path("y.bw")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(dir.path("y.bw")), readAll(in).left(8));
    r = runCli(QStringList{"convert"} + format("luma", 4, 2) +
               QStringList{dir.path("y.bw"), "--to", "nv12", "-o", dir.path("g.nv12")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(dir.path("g.nv12")), readAll(in).left(8) + QByteArray(4, char(0x80)));
    EXPECT_EQ(entries(dir), (QStringList{"g.nv12", "in.yuv", "y.bw"}));
}

TEST(ConvertCommand, NothingIsLost)
{
    TempDir dir;
    const QString in = synth(dir, "in.yuv", "yuv420", "4x2", 3);
    const QByteArray input = readAll(in);
    const QString kept = dir.write("kept.nv12", "keep");
    const QStringList base = QStringList{"convert"} + format("yuv420", 4, 2) + QStringList{in, "--to", "nv12"};
    // An existing output is kept without --force, and replaced with it.
    auto r = runCli(base + QStringList{"-o", kept});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("exists already")) << r.err.toStdString();
    EXPECT_EQ(readAll(kept), QByteArray("keep"));
    // Never the input, not even with --force.
    r = runCli(base + QStringList{"-o", in, "--force"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(readAll(in), input);
    // A folder that does not exist, and a folder given as the output.
    EXPECT_EQ(runCli(base + QStringList{"-o", dir.path("none/o.nv12")}).rc, 1);
    QDir(dir.dir()).mkdir("sub");
    EXPECT_EQ(runCli(base + QStringList{"-o", dir.path("sub"), "--force"}).rc, 1);
    QDir(dir.dir()).rmdir("sub");
    EXPECT_EQ(entries(dir), (QStringList{"in.yuv", "kept.nv12"}));
    r = runCli(base + QStringList{"-o", kept, "--force"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(kept).size(), 3 * 12);
    // A truncated input: its whole frames are converted, a range beyond them is cut to them.
    const QString cut = dir.write("cut.yuv", input.left(12 * 2 + 7));
    r = runCli(QStringList{"convert"} + format("yuv420", 4, 2) +
               QStringList{cut, "--to", "yv12", "--frames", "0-2", "-o", dir.path("cut.yv12")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("ends at frame 1")) << r.err.toStdString();
    EXPECT_EQ(r.json().value("frames").toInt(), 2);
    EXPECT_EQ(readAll(dir.path("cut.yv12")).size(), 2 * 12);
    EXPECT_EQ(runCli(QStringList{"convert"} + format("yuv420", 4, 2) +
                     QStringList{cut, "--to", "yv12", "--frames", "2-2", "-o", dir.path("none.yv12")})
                  .rc,
              1);
    EXPECT_FALSE(QFile::exists(dir.path("none.yv12")));
}
