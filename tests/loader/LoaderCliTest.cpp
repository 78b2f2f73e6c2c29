#include "LoaderTestSupport.h"
#include "cli/CliTestSupport.h"

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
    EXPECT_EQ(j.keys(), (QStringList{"fps", "frames", "mean_interval_ms", "nominal_fps", "seconds",
                                     "worst_interval_ms"}));
    EXPECT_EQ(j["frames"].toInteger(), 10); // wraps around the three-frame file
    EXPECT_EQ(j["nominal_fps"].toDouble(), 500.0);
    EXPECT_GE(j["worst_interval_ms"].toDouble(), j["mean_interval_ms"].toDouble());
}

} // namespace
