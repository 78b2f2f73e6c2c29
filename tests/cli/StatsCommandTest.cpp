// kavri-cli stats: the JSON it promises, the frames it reads and how it fails.
#include "cli/CliTestSupport.h"
#include "pixel/FrameStatistics.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"

#include <QJsonArray>
#include <gtest/gtest.h>

#include <algorithm>

using namespace kavri;
using kavri::test::runCli;

namespace {

QJsonObject jsonLine(const QString &line) { return QJsonDocument::fromJson(line.toUtf8()).object(); }

QStringList linesOf(const QString &out) { return out.trimmed().split('\n'); }

// The engine's statistics of frame `frame` of a pattern, in native byte order.
pixel::FrameStatistics engineStatistics(const PatternSpec &s, uint64_t frame)
{
    std::vector<uint8_t> b(patternFrameBytes(s));
    EXPECT_TRUE(writePatternFrame(s, frame, b.data(), b.size()));
    if (s.bigEndian)
        for (size_t i = 0; i + 1 < b.size(); i += 2) std::swap(b[i], b[i + 1]);
    pixel::StatisticsFormat f;
    f.layout = s.layout;
    f.width = s.width;
    f.height = s.height;
    f.bits = s.bits;
    f.containerBits = s.containerBits;
    f.isSigned = s.isSigned;
    return pixel::computeFrameStatistics(f, b.data(), b.size(), 1);
}

struct ContractCase {
    const char *name;
    QStringList synth; // synth options besides size, frames and output
    QStringList read;  // format options for stats
    PatternSpec pattern;
    QStringList names;
};

PatternSpec patternOf(videoFormat_t layout, int bits, int container, bool isSigned, bool bigEndian)
{
    PatternSpec s;
    s.layout = layout;
    s.width = 30;
    s.height = 17;
    s.bits = bits;
    s.containerBits = container;
    s.isSigned = isSigned;
    s.bigEndian = bigEndian;
    return s;
}

TEST(CliStats, FrameLinesAndSummaryFollowTheContract)
{
    const ContractCase cases[] = {
        {"yuv420 10-bit big-endian",
         {"-f", "yuv420", "--bits", "10", "--big-endian"},
         {"-f", "yuv420", "--bits", "10", "--toggle-endian"},
         patternOf(YUV_p420, 10, 16, false, true),
         {"Y", "U", "V"}},
        {"gbrap 8-bit signed",
         {"-f", "gbrap", "--signed"},
         {"-f", "gbrap", "--signed"},
         patternOf(GBRA_planar, 8, 8, true, false),
         {"G", "B", "R", "A"}},
        {"luma 16-bit",
         {"-f", "luma", "--bits", "16"},
         {"-f", "luma", "--bits", "16"},
         patternOf(BW, 16, 16, false, false),
         {"Y"}},
        {"uyvy 8-bit", {"-f", "uyvy"}, {"-f", "uyvy"}, patternOf(YUV_uyvy, 8, 8, false, false), {"Y", "U", "V"}},
    };
    for (const ContractCase &c : cases) {
        test::TempDir dir;
        const QString file = dir.path("clip.raw");
        ASSERT_EQ(runCli(QStringList{"synth", "--size", "30x17", "--frames", "3", "-o", file} + c.synth).rc, 0)
            << c.name;
        const auto r = runCli(QStringList{"stats", "-w", "30", "-h", "17", "--no-remembered", file} + c.read);
        ASSERT_EQ(r.rc, 0) << c.name << ": " << r.err.toStdString();
        const QStringList lines = linesOf(r.out);
        ASSERT_EQ(lines.size(), 4) << c.name;
        int32_t min[4] = {INT32_MAX, INT32_MAX, INT32_MAX, INT32_MAX},
                max[4] = {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN};
        double sum[4] = {0, 0, 0, 0};
        for (int i = 0; i < 3; ++i) {
            EXPECT_TRUE(lines[i].startsWith(
                QStringLiteral("{\"frame\": %1, \"components\": [{\"name\": \"%2\", \"min\": ").arg(i).arg(c.names[0])))
                << lines[i].toStdString();
            const QJsonObject j = jsonLine(lines[i]);
            EXPECT_EQ(j.keys(), (QStringList{"components", "frame"})) << c.name;
            EXPECT_EQ(j["frame"].toInt(), i);
            const QJsonArray comps = j["components"].toArray();
            const pixel::FrameStatistics want = engineStatistics(c.pattern, uint64_t(i));
            ASSERT_EQ(comps.size(), c.names.size()) << c.name;
            for (int k = 0; k < comps.size(); ++k) {
                const QJsonObject o = comps[k].toObject();
                const pixel::ComponentStatistics &w = want.components[size_t(k)];
                const std::string at = std::string(c.name) + " frame " + std::to_string(i) + " " + w.name;
                EXPECT_EQ(o.keys().size(), 7) << at;
                EXPECT_EQ(o["name"].toString(), c.names[k]) << at;
                EXPECT_EQ(o["min"].toInt(), w.min) << at;
                EXPECT_EQ(o["max"].toInt(), w.max) << at;
                EXPECT_DOUBLE_EQ(o["mean"].toDouble(), w.mean) << at;
                EXPECT_DOUBLE_EQ(o["stddev"].toDouble(), w.stddev) << at;
                EXPECT_EQ(o["zeros"].toInteger(), qint64(w.zeros)) << at;
                EXPECT_EQ(o["clipped"].toInteger(), qint64(w.clipped)) << at;
                EXPECT_FALSE(o.contains("histogram")) << at;
                min[k] = std::min(min[k], w.min);
                max[k] = std::max(max[k], w.max);
                sum[k] += w.mean;
            }
        }
        EXPECT_TRUE(lines[3].startsWith("{\"summary\": true, \"frames\": 3, \"components\": [{\"name\": "))
            << lines[3].toStdString();
        const QJsonObject s = jsonLine(lines[3]);
        const QJsonArray comps = s["components"].toArray();
        ASSERT_EQ(comps.size(), c.names.size()) << c.name;
        for (int k = 0; k < comps.size(); ++k) {
            const QJsonObject o = comps[k].toObject();
            EXPECT_EQ(o.keys(), (QStringList{"max", "mean", "min", "name"})) << c.name;
            EXPECT_EQ(o["name"].toString(), c.names[k]);
            EXPECT_EQ(o["min"].toInt(), min[k]) << c.name;
            EXPECT_EQ(o["max"].toInt(), max[k]) << c.name;
            // Every frame has as many samples, so the mean over the frames is the mean of the means.
            EXPECT_NEAR(o["mean"].toDouble(), sum[k] / 3, 1e-9 * std::max(1.0, std::abs(sum[k] / 3))) << c.name;
        }
    }
}

TEST(CliStats, SignedSamplesReportSignedValues)
{
    test::TempDir dir;
    const QString file = dir.path("s.yuv");
    ASSERT_EQ(
        runCli({"synth", "-f", "yuv444", "--size", "16x8", "--bits", "10", "--signed", "--frames", "1", "-o", file}).rc,
        0);
    const auto r = runCli({"stats", "-w", "16", "-h", "8", "-f", "yuv444", "--bits", "10", "--signed", file});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject y = jsonLine(linesOf(r.out)[0])["components"].toArray()[0].toObject();
    // The pattern has black and white: the ends of the signed 10-bit range.
    EXPECT_EQ(y["min"].toInt(), -512);
    EXPECT_EQ(y["max"].toInt(), 511);
    EXPECT_GT(y["zeros"].toInt(), 0);
    EXPECT_GT(y["clipped"].toInt(), 0);
}

TEST(CliStats, SwappedChromaIsNamedAsTheRecordSays)
{
    test::TempDir dir;
    const QString file = dir.path("s.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "16x8", "--frames", "1", "-o", file}).rc, 0);
    const auto plain = runCli({"stats", "-w", "16", "-h", "8", "-f", "yuv420", file});
    const auto swapped = runCli({"stats", "-w", "16", "-h", "8", "-f", "yuv420", "--swap-uv", file});
    ASSERT_EQ(swapped.rc, 0) << swapped.err.toStdString();
    const QJsonArray a = jsonLine(linesOf(plain.out)[0])["components"].toArray();
    const QJsonArray b = jsonLine(linesOf(swapped.out)[0])["components"].toArray();
    ASSERT_EQ(b.size(), 3);
    EXPECT_EQ(b[1].toObject()["name"].toString(), "V");
    EXPECT_EQ(b[2].toObject()["name"].toString(), "U");
    // Same storage order, so the second component's numbers are the same.
    EXPECT_EQ(b[1].toObject()["mean"], a[1].toObject()["mean"]);
}

TEST(CliStats, HistogramOnlyWhenAsked)
{
    test::TempDir dir;
    const QString file = dir.path("h.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "16x8", "--bits", "12", "--frames", "1", "-o", file}).rc, 0);
    const auto r = runCli({"stats", "-w", "16", "-h", "8", "-f", "yuv420", "--bits", "12", "--histogram", file});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonArray comps = jsonLine(linesOf(r.out)[0])["components"].toArray();
    const int samples[3] = {16 * 8, 8 * 4, 8 * 4};
    for (int k = 0; k < 3; ++k) {
        const QJsonObject o = comps[k].toObject();
        ASSERT_TRUE(o.contains("histogram"));
        EXPECT_EQ(o.keys().size(), 8);
        const QJsonArray h = o["histogram"].toArray();
        ASSERT_EQ(h.size(), 1024); // 12 bits: 1024 bins of four codes
        qint64 total = 0;
        for (const auto &b : h) total += b.toInteger();
        EXPECT_EQ(total, samples[k]);
        EXPECT_EQ(h.first().toInteger(), o["zeros"].toInteger());
    }
    // The summary never carries histograms.
    EXPECT_FALSE(linesOf(r.out).last().contains("histogram"));
}

TEST(CliStats, FrameRanges)
{
    test::TempDir dir;
    const QString file = dir.path("r.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "16x8", "--frames", "4", "-o", file}).rc, 0);
    const QStringList base{"stats", "-w", "16", "-h", "8", "-f", "yuv420", file};

    auto r = runCli(base + QStringList{"--frames", "1-2"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    QStringList lines = linesOf(r.out);
    ASSERT_EQ(lines.size(), 3);
    EXPECT_EQ(jsonLine(lines[0])["frame"].toInt(), 1);
    EXPECT_EQ(jsonLine(lines[1])["frame"].toInt(), 2);
    EXPECT_EQ(jsonLine(lines[2])["frames"].toInt(), 2);

    r = runCli(base + QStringList{"--frames", "3-3"});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(linesOf(r.out).size(), 2);

    // A range past the end is cut to the file, and said so.
    r = runCli(base + QStringList{"--frames", "2-99"});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(jsonLine(linesOf(r.out).last())["frames"].toInt(), 2);
    EXPECT_TRUE(r.err.contains("ends at frame 3")) << r.err.toStdString();

    // Without --frames: all of them.
    r = runCli(base);
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(jsonLine(linesOf(r.out).last())["frames"].toInt(), 4);
    EXPECT_TRUE(r.err.isEmpty()) << r.err.toStdString();
}

TEST(CliStats, Failures)
{
    test::TempDir dir;
    const QString file = dir.path("f.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "16x8", "--frames", "2", "-o", file}).rc, 0);
    const QStringList fmt{"-w", "16", "-h", "8", "-f", "yuv420"};
    const struct {
        QStringList args;
        int rc;
    } cases[] = {
        {QStringList{"stats"} + fmt, 2},
        {QStringList{"stats", file, file} + fmt, 2},
        {QStringList{"stats", file, "--frames", "1"} + fmt, 2},
        {QStringList{"stats", file, "--frames", "2-1"} + fmt, 2},
        {QStringList{"stats", file, "--frames", "a-b"} + fmt, 2},
        {QStringList{"stats", file, "--frames", "-1-2"} + fmt, 2},
        {QStringList{"stats", file, "--bits", "17"} + fmt, 2},
        {QStringList{"stats", file, "--frames", "5-6"} + fmt, 1},
        {QStringList{"stats", dir.path("none.yuv")} + fmt, 1},
        {QStringList{"stats", "-"} + fmt, 1},
    };
    for (const auto &c : cases) {
        const auto r = runCli(c.args);
        EXPECT_EQ(r.rc, c.rc) << c.args.join(' ').toStdString() << ": " << r.err.toStdString();
        if (r.rc != 0) {
            EXPECT_TRUE(r.out.isEmpty()) << c.args.join(' ').toStdString();
            EXPECT_FALSE(r.err.isEmpty()) << c.args.join(' ').toStdString();
        }
    }
    EXPECT_TRUE(runCli({"--help"}).out.contains("stats"));
}

} // namespace
