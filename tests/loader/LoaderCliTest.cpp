#include "LoaderTestSupport.h"
#include "cli/CliTestSupport.h"
#include "pixel/FramePipeline.h"

#include <QFile>
#include <future>
#include <thread>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

#include <gtest/gtest.h>

using namespace kavri;
using namespace kavri::test;

namespace {

QStringList formatArgs() { return {"-w", "16", "-h", "16", "-f", "luma", "--no-remembered"}; }

TEST(CliBench, PlaysTheWholeFileOnce)
{
    TempDir dir;
    const QString f = dir.write("a.bw", markedFrames(0, 40));
    const auto r = runCli(QStringList{"bench"} + formatArgs() + QStringList{f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j.keys(), (QStringList{"fps", "frames", "mpixel_per_s", "seconds"}));
    EXPECT_EQ(j["frames"].toInteger(), 40);
    EXPECT_GT(j["seconds"].toDouble(), 0.0);
    EXPECT_GT(j["fps"].toDouble(), 0.0);
}

TEST(CliBench, StopsAfterTheAskedFrames)
{
    TempDir dir;
    const QString f = dir.write("a.bw", markedFrames(0, 40));
    const auto r = runCli(QStringList{"bench"} + formatArgs() + QStringList{f, "--frames", "7"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json()["frames"].toInteger(), 7);
}

TEST(CliBench, Failures)
{
    TempDir dir;
    const QString f = dir.write("a.bw", markedFrames(0, 4));
    const struct {
        const char *name;
        QStringList args;
        int rc;
    } cases[] = {
        {"missing file", QStringList{"bench"} + formatArgs() + QStringList{dir.path("none.bw")}, 1},
        {"no size", QStringList{"bench", "--no-remembered", f}, 1},
        {"bad frames", QStringList{"bench"} + formatArgs() + QStringList{f, "--frames", "0"}, 2},
        {"play needs frames", QStringList{"play"} + formatArgs() + QStringList{f}, 2},
    };
    for (const auto &c : cases) EXPECT_EQ(runCli(c.args).rc, c.rc) << c.name;
}

TEST(CliPlay, ReportsThePacing)
{
    TempDir dir;
    const QString f = dir.write("a.bw", markedFrames(0, 3));
    const auto r = runCli(QStringList{"play"} + formatArgs() + QStringList{"-r", "500", f, "--frames", "10"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j.keys(),
              (QStringList{"fps", "frames", "mean_interval_ms", "nominal_fps", "seconds", "worst_interval_ms"}));
    EXPECT_EQ(j["frames"].toInteger(), 10); // wraps around the three-frame file
    EXPECT_EQ(j["nominal_fps"].toDouble(), 500.0);
    EXPECT_GE(j["worst_interval_ms"].toDouble(), j["mean_interval_ms"].toDouble());
}

// Every frame-sized allocation of the commands answers a frame too large for memory with a message and
// exit status 1. A lowered ceiling stands in for a frame larger than the machine: 16x16 luma needs 256
// bytes a frame buffer and 1024 for its picture.
TEST(MemoryCeiling, FramesTooLargeForMemoryFailWithAMessage)
{
    struct Ceiling {
        explicit Ceiling(size_t bytes) { setLargestAllocation(bytes); }
        ~Ceiling() { setLargestAllocation(0); }
    };
    TempDir dir;
    const QString f = dir.write("a.bw", markedFrames(0, 4));
    const QString png = dir.path("a.png");
    const QStringList render = QStringList{"render"} + formatArgs() + QStringList{f, "-o", png};
    const QStringList bench = QStringList{"bench"} + formatArgs() + QStringList{f};
    const QStringList pixel = QStringList{"pixel"} + formatArgs() + QStringList{f, "--at", "1,1"};
    const QStringList diff = QStringList{"diff"} + formatArgs() + QStringList{f, f};
    const struct {
        const char *name;
        size_t ceiling;
        QStringList args;
        int rc;
        const char *says;
    } cases[] = {
        {"render, no frame buffer", 255, render, 1, "cannot be read: a 16x16 frame needs 256 bytes"},
        {"render, no picture", 1023, render, 1, "frame 0 cannot be shown: a 16x16 frame needs 1024 bytes"},
        {"render, enough", 1024, render, 0, ""},
        {"bench, no frame buffer", 255, bench, 1, "a 16x16 frame needs 256 bytes"},
        {"bench, no picture", 1023, bench, 1, "a 16x16 frame needs 1024 bytes"},
        {"bench, enough", 1024, bench, 0, ""},
        {"pixel, no frame buffer", 255, pixel, 1, "more memory than"},
        {"diff, no frame buffer", 255, diff, 1, "more memory than"},
        {"diff, enough", 256, diff, 0, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        QFile::remove(png);
        Ceiling ceiling(c.ceiling);
        const auto r = runCli(c.args);
        EXPECT_EQ(r.rc, c.rc) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(QLatin1String(c.says))) << r.err.toStdString();
        if (c.rc != 0 && c.args.first() == "render") {
            EXPECT_FALSE(QFile::exists(png));
        }
    }
}

#ifdef Q_OS_UNIX
// Commands given a named pipe nobody writes to answer at once: info describes it as a stream, the
// commands that pick frames or rewrite files refuse it, bench plays what the writer sends.
TEST(CliNamedPipe, NoCommandWaitsForAWriter)
{
    TempDir dir;
    const QString pipe = dir.path("dec_16x16.bw");
    ASSERT_EQ(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    const QString file = dir.write("a.bw", markedFrames(0, 2));
    const struct {
        const char *name;
        QStringList args;
        int rc;
        const char *says;
    } cases[] = {
        {"info", {"info", pipe}, 0, ""},
        {"render", {"render", pipe, "-o", dir.path("x.png")}, 1, "a pipe or a device"},
        {"pixel", {"pixel", pipe, "--at", "0,0"}, 1, "a pipe or a device"},
        {"diff against a pipe",
         {"render", file, "-w", "16", "-h", "16", "--diff", pipe, "-o", dir.path("x.png")},
         1,
         "a pipe or a device"},
        {"extract", {"extract", pipe, "--from", "0", "--to", "0", "-o", dir.path("y.bw")}, 1, "not on a pipe"},
        {"remember", {"remember", pipe}, 1, "formats are remembered for files"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        test::CliRun r;
        ASSERT_TRUE(returnsWithin([&] { r = runCli(c.args); }, 10000)) << "waited for a writer";
        EXPECT_EQ(r.rc, c.rc) << r.err.toStdString();
        EXPECT_TRUE(r.err.contains(QLatin1String(c.says))) << r.err.toStdString();
    }
    const auto info = runCli({"info", pipe});
    EXPECT_EQ(info.json()["frame_count"].toInteger(), 0);
    EXPECT_TRUE(info.json()["playable"].toBool());

    std::thread writer([&] {
        QFile w(pipe);
        if (w.open(QIODevice::WriteOnly)) w.write(markedFrames(0, 5));
    });
    const auto bench = runCli({"bench", pipe});
    writer.join();
    ASSERT_EQ(bench.rc, 0) << bench.err.toStdString();
    EXPECT_EQ(bench.json()["frames"].toInteger(), 5);
}
#endif

} // namespace
