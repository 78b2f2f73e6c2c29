// kavri-cli on y4m files written here from the pattern generator: every command reads the samples the
// generator wrote, and extract and reverse write y4m files whose frames are the input's, byte for byte.
#include "cli/CliTestSupport.h"
#include "formats/Y4mHeader.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::readAll;
using kavri::test::runCli;
using kavri::test::TempDir;

namespace {

QByteArray patternFrame(const PatternSpec &s, uint64_t index)
{
    QByteArray f(int(patternFrameBytes(s)), '\0');
    EXPECT_TRUE(writePatternFrame(s, index, reinterpret_cast<uint8_t *>(f.data()), size_t(f.size())));
    return f;
}

// The stream header of a pattern file: the fields in an unusual order, with comments (a full-range
// comment, which leaves the reading the default one, so the pictures compare with the raw file's).
QByteArray patternHeader(const PatternSpec &s, const char *colour)
{
    return "YUV4MPEG2 C" + QByteArray(colour) + " XYSCSS=ANY W" + QByteArray::number(s.width) + " H" +
           QByteArray::number(s.height) + " Ip F25:1 A1:1 XCOLORRANGE=FULL\n";
}

// `frames` whole pattern frames, then `cut` bytes of one more (a frame cut short).
QByteArray patternY4m(const PatternSpec &s, const char *colour, int frames, int cut = 0)
{
    QByteArray all = patternHeader(s, colour);
    for (int i = 0; i < frames; ++i) all += "FRAME\n" + patternFrame(s, uint64_t(i));
    if (cut > 0) all += "FRAME\n" + patternFrame(s, uint64_t(frames)).left(cut);
    return all;
}

PatternSpec patternOf(videoFormat_t layout, int32_t bits, int32_t width = 24, int32_t height = 12)
{
    PatternSpec s;
    s.layout = layout;
    s.width = width;
    s.height = height;
    s.bits = bits;
    s.containerBits = bits > 8 ? 16 : 8;
    return s;
}

QByteArray framesOf(const PatternSpec &s, std::initializer_list<int> indices)
{
    QByteArray all;
    for (int i : indices) all += "FRAME\n" + patternFrame(s, uint64_t(i));
    return all;
}

QJsonObject jsonLine(const QString &line) { return QJsonDocument::fromJson(line.toUtf8()).object(); }

struct ReadCase {
    const char *colour;
    videoFormat_t layout;
    int32_t bits;
};

void PrintTo(const ReadCase &c, std::ostream *os) { *os << c.colour; }

class Y4mRead : public ::testing::TestWithParam<ReadCase> {};

TEST_P(Y4mRead, InfoAndPixelsAreThePatterns)
{
    const ReadCase &c = GetParam();
    TempDir dir;
    const PatternSpec s = patternOf(c.layout, c.bits);
    // A name that says something else entirely: the header decides.
    const QString f = dir.write("clip_352x288_rgb.yuv", patternY4m(s, c.colour, 3, 17));
    const auto info = runCli({"info", f});
    ASSERT_EQ(info.rc, 0) << info.err.toStdString();
    const QJsonObject j = info.json();
    EXPECT_EQ(j["source"].toString(), "y4m");
    EXPECT_EQ(j["width"].toInt(), s.width);
    EXPECT_EQ(j["height"].toInt(), s.height);
    EXPECT_EQ(j["format_value"].toInt(), int(c.layout));
    EXPECT_EQ(j["bit_depth"].toInt(), c.bits);
    EXPECT_EQ(j["container_bits"].toInt(), s.containerBits);
    EXPECT_EQ(j["frame_count"].toInt(), 3); // the cut fourth frame is not counted
    EXPECT_EQ(j["header_bytes"].toInt(), patternHeader(s, c.colour).size());
    EXPECT_DOUBLE_EQ(j["rate"].toDouble(), 25.0);

    for (uint64_t frame : {0u, 2u}) {
        for (const auto &[x, y] : {std::pair{0, 0}, {5, 3}, {23, 11}, {12, 7}}) {
            const auto r =
                runCli({"pixel", f, "--frame", QString::number(frame), "--at", QStringLiteral("%1,%2").arg(x).arg(y)});
            ASSERT_EQ(r.rc, 0) << r.err.toStdString();
            const QJsonObject px = r.json();
            const PatternPixel want = patternPixel(s, frame, x, y);
            EXPECT_EQ(px["c1"].toInt(), want.c1) << "frame " << frame << " at " << x << "," << y;
            // The readout addresses 4:2:2 chroma its own long-standing way, not where the samples lie; what
            // it reports for a y4m file is what it reports for the same frames raw.
            if (c.layout == YUV_p422) {
                QByteArray raw;
                for (uint64_t i = 0; i <= frame; ++i) raw += patternFrame(s, i);
                const QString rawFile = dir.write("same.yuv", raw);
                const auto rr =
                    runCli({"pixel", "-w", QString::number(s.width), "-h", QString::number(s.height), "-f", "yuv422",
                            "--bits", QString::number(c.bits), "--no-remembered", rawFile, "--frame",
                            QString::number(frame), "--at", QStringLiteral("%1,%2").arg(x).arg(y)});
                EXPECT_EQ(r.out, rr.out);
            } else if (c.layout != BW) {
                EXPECT_EQ(px["c2"].toInt(), want.c2) << "frame " << frame << " at " << x << "," << y;
                EXPECT_EQ(px["c3"].toInt(), want.c3) << "frame " << frame << " at " << x << "," << y;
            }
        }
    }
    const auto beyond = runCli({"pixel", f, "--frame", "3", "--at", "0,0"});
    EXPECT_EQ(beyond.rc, 1);
}

const ReadCase kReads[] = {
    {"420jpeg", YUV_p420, 8}, {"420mpeg2", YUV_p420, 8}, {"422", YUV_p422, 8},     {"444", YUV_p444, 8},
    {"411", YUV_p411, 8},     {"mono", BW, 8},           {"420p10", YUV_p420, 10}, {"422p12", YUV_p422, 12},
    {"444p14", YUV_p444, 14}, {"420p16", YUV_p420, 16},  {"mono10", BW, 10},       {"mono16", BW, 16},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mRead, ::testing::ValuesIn(kReads));

TEST(Y4mCommands, DiffMetricsStatsRenderAndBenchRead_theFrames)
{
    TempDir dir;
    const PatternSpec s = patternOf(YUV_p420, 10);
    const QString a = dir.write("a.y4m", patternY4m(s, "420p10", 3));
    // The same frames with a header of another length, and the same frames raw.
    QByteArray other = "YUV4MPEG2 W24 H12 F50:1 C420p10\n";
    QByteArray raw;
    for (int i = 0; i < 3; ++i) {
        other += "FRAME\n" + patternFrame(s, uint64_t(i));
        raw += patternFrame(s, uint64_t(i));
    }
    const QString b = dir.write("b.y4m", other);
    const QString r = dir.write("r.yuv", raw);

    for (const QString &second : {b, r}) {
        const auto d = runCli({"diff", a, second});
        ASSERT_EQ(d.rc, 0) << d.err.toStdString();
        const QStringList lines = d.out.trimmed().split('\n');
        ASSERT_EQ(lines.size(), 4);
        const QJsonObject total = jsonLine(lines.last());
        EXPECT_EQ(total["frames"].toInt(), 3);
        for (const auto v : total["mse"].toArray()) EXPECT_EQ(v.toDouble(), 0.0);
        const auto m = runCli({"metrics", a, second, "--json"});
        ASSERT_EQ(m.rc, 0) << m.err.toStdString();
        EXPECT_TRUE(jsonLine(m.out.trimmed().split('\n').last())["identical"].toBool()) << m.out.toStdString();
    }
    // A raw first file takes the record of the y4m file it is compared with.
    const auto rd = runCli({"diff", "--no-remembered", r, a});
    ASSERT_EQ(rd.rc, 0) << rd.err.toStdString();
    EXPECT_EQ(jsonLine(rd.out.trimmed().split('\n').last())["frames"].toInt(), 3);

    // Frames that differ are told apart at the right frame.
    QByteArray changed = patternFrame(s, 1);
    changed[100] = char(changed[100] ^ 0x10);
    const QString shifted = dir.write("s.y4m", patternHeader(s, "420p10") + "FRAME\n" + patternFrame(s, 0) + "FRAME\n" +
                                                   changed + "FRAME\n" + patternFrame(s, 2));
    const auto ds = runCli({"diff", a, shifted});
    ASSERT_EQ(ds.rc, 0);
    const QStringList dl = ds.out.trimmed().split('\n');
    EXPECT_EQ(jsonLine(dl[0])["mse"].toArray()[0].toDouble(), 0.0);
    EXPECT_GT(jsonLine(dl[1])["mse"].toArray()[0].toDouble(), 0.0);
    EXPECT_EQ(jsonLine(dl[2])["mse"].toArray()[0].toDouble(), 0.0);

    const auto st = runCli({"stats", a});
    ASSERT_EQ(st.rc, 0) << st.err.toStdString();
    EXPECT_EQ(st.out.trimmed().split('\n').size(), 4); // three frames and the summary
    const auto rawStats = runCli({"stats", "-w", "24", "-h", "12", "-f", "yuv420", "--bits", "10", r});
    ASSERT_EQ(rawStats.rc, 0) << rawStats.err.toStdString();
    EXPECT_EQ(st.out, rawStats.out);

    const QString png = dir.path("f.png");
    const auto rn = runCli({"render", a, "--frame", "2", "-o", png});
    ASSERT_EQ(rn.rc, 0) << rn.err.toStdString();
    const QString rawPng = dir.path("g.png");
    ASSERT_EQ(
        runCli({"render", "-w", "24", "-h", "12", "-f", "yuv420", "--bits", "10", r, "--frame", "2", "-o", rawPng}).rc,
        0);
    EXPECT_EQ(readAll(png), readAll(rawPng));

    const auto bench = runCli({"bench", a});
    ASSERT_EQ(bench.rc, 0) << bench.err.toStdString();
    EXPECT_EQ(bench.json()["frames"].toInteger(), 3);
    const auto play = runCli({"play", a, "--frames", "3", "--rate", "1000"});
    EXPECT_EQ(play.rc, 0) << play.err.toStdString();
}

TEST(Y4mCommands, FrameLinesWithParametersAreFollowed)
{
    TempDir dir;
    const PatternSpec s = patternOf(YUV_p420, 8);
    const QByteArray lines[] = {"FRAME Ip\n", "FRAME\n", "FRAME Ib XCOMMENT=long\n", "FRAME\n"};
    QByteArray bytes = patternHeader(s, "420jpeg");
    for (int i = 0; i < 4; ++i) bytes += lines[i] + patternFrame(s, uint64_t(i));
    const QString f = dir.write("lines.y4m", bytes);
    const auto info = runCli({"info", f});
    ASSERT_EQ(info.rc, 0) << info.err.toStdString();
    EXPECT_EQ(info.json()["frame_count"].toInt(), 4);
    for (int i : {3, 0, 2}) {
        const auto r = runCli({"pixel", f, "--frame", QString::number(i), "--at", "12,7"});
        ASSERT_EQ(r.rc, 0) << r.err.toStdString();
        EXPECT_EQ(r.json()["c1"].toInt(), patternPixel(s, uint64_t(i), 12, 7).c1) << "frame " << i;
    }
    // Against the same frames with plain lines: no difference anywhere.
    const QString plain = dir.write("plain.y4m", patternY4m(s, "420jpeg", 4));
    const auto d = runCli({"diff", f, plain});
    ASSERT_EQ(d.rc, 0) << d.err.toStdString();
    EXPECT_EQ(jsonLine(d.out.trimmed().split('\n').last())["frames"].toInt(), 4);
    for (const auto v : jsonLine(d.out.trimmed().split('\n').last())["mse"].toArray()) EXPECT_EQ(v.toDouble(), 0.0);
    const auto m = runCli({"metrics", plain, f});
    ASSERT_EQ(m.rc, 0) << m.err.toStdString();
    EXPECT_TRUE(jsonLine(m.out.trimmed().split('\n').last())["identical"].toBool());
    // Copies come out with plain lines.
    const QString out = dir.path("out.y4m");
    ASSERT_EQ(runCli({"reverse", f, "-o", out}).rc, 0);
    EXPECT_EQ(readAll(out), "YUV4MPEG2 W24 H12 F25:1 Ip A1:1 C420jpeg\n" + framesOf(s, {3, 2, 1, 0}));
    const auto bench = runCli({"bench", f});
    ASSERT_EQ(bench.rc, 0) << bench.err.toStdString();
    EXPECT_EQ(bench.json()["frames"].toInteger(), 4);

    // A damaged file is refused by every command, naming the frame.
    const QString damaged = dir.write("damaged.y4m", patternHeader(s, "mono") + "FRAME\n" + patternFrame(s, 0) +
                                                         "garbage\n" + patternFrame(s, 1));
    for (const QStringList &args :
         {QStringList{"info", damaged}, QStringList{"pixel", damaged, "--at", "0,0"}, QStringList{"bench", damaged},
          QStringList{"extract", damaged, "--from", "0", "--to", "0"}}) {
        const auto r = runCli(args);
        EXPECT_EQ(r.rc, 1) << args.join(' ').toStdString();
        EXPECT_TRUE(r.err.contains("frame 1")) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains("damaged")) << r.err.toStdString();
    }
}

// ---- writing ----

TEST(Y4mWrite, ExtractAndReverseKeepTheFramesByteForByte)
{
    TempDir dir;
    const PatternSpec s = patternOf(YUV_p422, 12);
    const QString in = dir.write("in.y4m", patternY4m(s, "422p12", 4, 9));
    const QByteArray header = "YUV4MPEG2 W24 H12 F25:1 Ip A1:1 C422p12\n";

    const QString out = dir.path("part.y4m");
    const auto e = runCli({"extract", in, "--from", "1", "--to", "2", "-o", out});
    ASSERT_EQ(e.rc, 0) << e.err.toStdString();
    EXPECT_EQ(e.json()["frames"].toInt(), 2);
    EXPECT_EQ(readAll(out), header + framesOf(s, {1, 2}));

    // And once more, from the y4m file just written: the same frames again.
    const QString again = dir.path("again.y4m");
    ASSERT_EQ(runCli({"extract", out, "--from", "0", "--to", "1", "-o", again}).rc, 0);
    EXPECT_EQ(readAll(again), readAll(out));

    const QString rev = dir.path("rev.Y4M");
    const auto r = runCli({"reverse", in, "-o", rev});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(rev), header + framesOf(s, {3, 2, 1, 0}));

    // To a raw file only the samples go.
    const QString raw = dir.path("part.yuv");
    ASSERT_EQ(runCli({"extract", in, "--from", "1", "--to", "2", "-o", raw}).rc, 0);
    EXPECT_EQ(readAll(raw), patternFrame(s, 1) + patternFrame(s, 2));

    // The proposed name keeps the y4m ending, so the output is a y4m file too.
    const auto proposed = runCli({"extract", in, "--from", "0", "--to", "0"});
    ASSERT_EQ(proposed.rc, 0) << proposed.err.toStdString();
    const QString name = proposed.json()["output"].toString();
    EXPECT_TRUE(name.endsWith(".y4m")) << name.toStdString();
    EXPECT_EQ(readAll(name), header + framesOf(s, {0}));
}

TEST(Y4mWrite, ARawInputGetsAHeaderThatDescribesIt)
{
    TempDir dir;
    PatternSpec s = patternOf(YUV_p420, 10, 32, 16);
    QByteArray raw;
    for (int i = 0; i < 3; ++i) raw += patternFrame(s, uint64_t(i));
    const QString in = dir.write("in.yuv", raw);
    const QStringList format{"-w",     "32", "-h", "16", "-f",           "yuv420",
                             "--bits", "10", "-r", "50", "--interlaced", "--no-remembered"};
    const QString out = dir.path("out.y4m");
    const auto e = runCli(QStringList{"reverse"} + format + QStringList{in, "-o", out});
    ASSERT_EQ(e.rc, 0) << e.err.toStdString();
    const QByteArray header = "YUV4MPEG2 W32 H16 F50:1 It A1:1 C420p10\n";
    EXPECT_EQ(readAll(out), header + framesOf(s, {2, 1, 0}));
    const auto info = runCli({"info", out});
    EXPECT_EQ(info.json()["source"].toString(), "y4m");
    EXPECT_EQ(info.json()["interlaced"].toBool(), true);
    EXPECT_EQ(info.json()["frame_count"].toInt(), 3);
}

TEST(Y4mWrite, LayoutsWithoutATagAreRefusedBeforeAnythingIsWritten)
{
    TempDir dir;
    // Two frames of the largest of these (a v210 row takes 128 bytes).
    const QString in = dir.write("in.bin", QByteArray(128 * 4 * 2, 'x'));
    const struct {
        const char *name;
        QStringList format;
    } cases[] = {
        {"rgb", {"-f", "rgb"}},
        {"bgra", {"-f", "bgra"}},
        {"planar rgb", {"-f", "rgbp"}},
        {"uyvy", {"-f", "uyvy"}},
        {"nv12", {"-f", "nv12"}},
        {"v210", {"-f", "v210"}},
        {"signed", {"-f", "yuv444", "--signed"}},
        {"flipped", {"-f", "luma", "--flip"}},
        {"big endian", {"-f", "luma", "--bits", "10", "--toggle-endian"}},
    };
    for (const auto &c : cases) {
        const QString out = dir.path("out.y4m");
        for (const char *command : {"extract", "reverse"}) {
            QStringList args{command, "-w", "8", "-h", "4", "--no-remembered"};
            args += c.format;
            args += QStringList{in, "-o", out};
            if (QLatin1String(command) == QLatin1String("extract")) args += QStringList{"--from", "0", "--to", "0"};
            const auto r = runCli(args);
            EXPECT_EQ(r.rc, 1) << c.name << " " << command;
            EXPECT_TRUE(r.err.contains("y4m")) << c.name << ": " << r.err.toStdString();
            EXPECT_FALSE(QFileInfo::exists(out)) << c.name;
        }
    }
    // Nothing but the input is left in the folder.
    EXPECT_EQ(QDir(dir.dir()).entryList(QDir::Files | QDir::Hidden), QStringList{"in.bin"});

    // The old rules hold for y4m outputs too: an existing file is kept without --force, and the input
    // itself is never the output.
    const PatternSpec s = patternOf(BW, 8);
    const QString y = dir.write("clip.y4m", patternY4m(s, "mono", 2));
    const QString taken = dir.write("taken.y4m", "keep");
    EXPECT_EQ(runCli({"extract", y, "--from", "0", "--to", "0", "-o", taken}).rc, 1);
    EXPECT_EQ(readAll(taken), "keep");
    EXPECT_EQ(runCli({"reverse", y, "-o", y}).rc, 1);
    ASSERT_EQ(runCli({"extract", y, "--from", "0", "--to", "0", "-o", taken, "--force"}).rc, 0);
    EXPECT_TRUE(readAll(taken).startsWith("YUV4MPEG2 W24 H12 "));
}

} // namespace
