#include "cli/CliTestSupport.h"
#include "cli/StopSignals.h"
#include "support/TempFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

#ifdef Q_OS_UNIX
#include <csignal>
#endif

using kavri::test::runCli;
using kavri::test::TempDir;

namespace {

// 4x2 luma frames (8 bytes) after `header` bytes; byte j of frame k is k*16+j.
QByteArray lumaFrames(int header, int frames)
{
    QByteArray b(header, char(0x55));
    for (int k = 0; k < frames; ++k)
        for (int j = 0; j < 8; ++j) b.append(char(k * 16 + j));
    return b;
}

using kavri::test::readAll;

const QStringList kFormat{"-w", "4", "-h", "2", "-f", "luma", "-r", "25", "--no-remembered"};

} // namespace

TEST(ExtractCommand, WritesTheRangeAndReportsIt)
{
    TempDir dir;
    const QString in = dir.write("clip.bin", lumaFrames(512, 6));
    const auto r = runCli(QStringList{"extract"} + kFormat +
                          QStringList{"--header", "512", in, "--from", "2", "--to", "3", "-o", dir.path("o.bin")});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(readAll(dir.path("o.bin")), lumaFrames(0, 4).mid(16));
    EXPECT_EQ(r.json().value("frames").toInt(), 2);
    EXPECT_EQ(r.json().value("bytes").toInt(), 16);
}

TEST(ExtractCommand, DefaultOutputIsTheProposedName)
{
    TempDir dir;
    const QString in = dir.write("clip.bin", lumaFrames(0, 3));
    const auto r = runCli(QStringList{"extract"} + kFormat + QStringList{in, "--from", "1", "--to", "99"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QString expected = QFileInfo(dir.dir()).canonicalFilePath() + "/clip1-2_4x2_25Hz_8bit.bin";
    EXPECT_EQ(r.json().value("output").toString(), expected);
    EXPECT_TRUE(r.err.contains("ends at frame 2")) << "the clamped end is told";
    EXPECT_EQ(readAll(expected), lumaFrames(0, 3).mid(8));
}

TEST(ExtractCommand, UsageAndRuntimeFailures)
{
    TempDir dir;
    const QString in = dir.write("clip.bin", lumaFrames(0, 3));
    EXPECT_EQ(runCli(QStringList{"extract"} + kFormat + QStringList{in, "--from", "2", "--to", "1"}).rc, 2);
    EXPECT_EQ(runCli(QStringList{"extract"} + kFormat + QStringList{in, "--from", "1"}).rc, 2);
    const auto beyond = runCli(QStringList{"extract"} + kFormat + QStringList{in, "--from", "3", "--to", "5"});
    EXPECT_EQ(beyond.rc, 1);
    EXPECT_EQ(beyond.err.count('\n'), 1) << beyond.err.toStdString();
    const QString empty = dir.write("empty.bin", QByteArray(5, 'x'));
    EXPECT_EQ(runCli(QStringList{"extract"} + kFormat + QStringList{empty, "--from", "0", "--to", "0"}).rc, 1);
}

TEST(ReverseCommand, RefusesToOverwriteWithoutForceAndNeverTheInput)
{
    TempDir dir;
    const QString in = dir.write("clip.bin", lumaFrames(512, 3));
    const QString out = dir.write("out.bin", "keep");
    const QStringList base = QStringList{"reverse"} + kFormat + QStringList{"--header", "512", in, "-o", out};
    auto r = runCli(base);
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(readAll(out), QByteArray("keep"));
    r = runCli(base + QStringList{"--force"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QByteArray f = lumaFrames(0, 3);
    EXPECT_EQ(readAll(out), f.mid(16, 8) + f.mid(8, 8) + f.mid(0, 8));
    QFile::link(in, dir.path("alias.bin"));
    r = runCli(QStringList{"reverse"} + kFormat +
               QStringList{"--header", "512", in, "-o", dir.path("alias.bin"), "--force"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(readAll(in), lumaFrames(512, 3));
}

TEST(NormalizeCommand, DryRunThenRenameThenNeverOverwrite)
{
    TempDir dir;
    const QString in = dir.write("take3.bin", lumaFrames(0, 2));
    const QString folder = QFileInfo(dir.dir()).canonicalFilePath();
    const QString to = folder + "/take3_4x2_25Hz_8bit_P400.y";
    auto r = runCli(QStringList{"normalize"} + kFormat + QStringList{in, "--dry-run"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_EQ(r.json().value("to").toString(), to);
    EXPECT_EQ(r.json().value("from").toString(), QFileInfo(in).absoluteFilePath());
    EXPECT_TRUE(QFileInfo::exists(in));
    EXPECT_FALSE(QFileInfo::exists(to));

    r = runCli(QStringList{"normalize"} + kFormat + QStringList{in});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_FALSE(QFileInfo::exists(in));
    EXPECT_EQ(readAll(to), lumaFrames(0, 2));

    const QString again = dir.write("take3.bin", "other");
    r = runCli(QStringList{"normalize"} + kFormat + QStringList{again});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(readAll(again), QByteArray("other"));
    EXPECT_EQ(readAll(to), lumaFrames(0, 2));
}

#ifdef Q_OS_UNIX
namespace {

volatile std::sig_atomic_t g_handlerHits = 0;
extern "C" void countingHandler(int) { g_handlerHits = g_handlerHits + 1; }

} // namespace

// While a copy runs, Ctrl-C, TERM and HUP only ask it to stop (it then removes its temporary file, and
// the command ends with 128 + the signal); before and after, whatever handled them before does again.
TEST(StopSignals, TurnTheSignalIntoAStopAndPutTheOldHandlerBack)
{
    TempDir dir;
    const QString in = dir.write("clip.bin", lumaFrames(0, 3));
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(sig);
        struct sigaction mine {
        }, saved{};
        mine.sa_handler = countingHandler;
        sigemptyset(&mine.sa_mask);
        ASSERT_EQ(::sigaction(sig, &mine, &saved), 0);
        g_handlerHits = 0;
        {
            kavri::cli::StopSignals stop;
            EXPECT_FALSE(stop.flag()->load());
            EXPECT_EQ(stop.signalNumber(), 0);
            ASSERT_EQ(::raise(sig), 0); // delivered to this thread before raise() returns
            EXPECT_TRUE(stop.flag()->load());
            EXPECT_EQ(stop.signalNumber(), sig);
            EXPECT_EQ(stop.exitStatus(), 128 + sig);
            EXPECT_EQ(g_handlerHits, 0);
        }
        ASSERT_EQ(::raise(sig), 0);
        EXPECT_EQ(g_handlerHits, 1) << "the previous handler is back";
        // A whole command puts it back too.
        const auto r = runCli(QStringList{"reverse"} + kFormat + QStringList{in, "-o", dir.path("rev.bin"), "--force"});
        EXPECT_EQ(r.rc, 0) << r.err.toStdString();
        ASSERT_EQ(::raise(sig), 0);
        EXPECT_EQ(g_handlerHits, 2) << "the command left its handler behind";
        ::sigaction(sig, &saved, nullptr);
    }
}
#endif
