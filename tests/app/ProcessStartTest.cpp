// The programs started as a user or a script starts them: with standard input closed, with a settings
// file that is not a file, with --help. Each run has a time limit, so a hang fails instead of hanging.
#include "support/TempFiles.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Outcome {
    bool finished = false;
    int exitCode = -1;
    QString out, err;
};

constexpr int kLimitMs = 30000;

// `addressSpace` > 0 limits the child's memory as `ulimit -v` does.
Outcome run(const QString &program, const QStringList &args, const QString &configDir, bool closeStdin,
            rlim_t addressSpace = 0)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KAVRI_CONFIG_DIR"), configDir);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(env);
    p.setChildProcessModifier([closeStdin, addressSpace] {
        if (closeStdin) ::close(0);
        if (addressSpace > 0) {
            const rlimit limit{addressSpace, addressSpace};
            ::setrlimit(RLIMIT_AS, &limit);
        }
    });
    p.start(program, args);
    Outcome o;
    if (!p.waitForStarted(kLimitMs)) return o;
    o.finished = p.waitForFinished(kLimitMs);
    if (!o.finished) {
        p.kill();
        p.waitForFinished(kLimitMs);
    }
    o.exitCode = p.exitCode();
    o.out = QString::fromLocal8Bit(p.readAllStandardOutput());
    o.err = QString::fromLocal8Bit(p.readAllStandardError());
    return o;
}

const QString kCli = QStringLiteral(KAVRI_CLI_BINARY);
const QString kPlayer = QStringLiteral(KAVRI_PLAYER_BINARY);

TEST(ProcessStart, ClosedStandardInputRefusesDash)
{
    kavri::test::TempDir dir;
    const struct {
        QString program;
        QStringList args;
    } rows[] = {
        {kCli, {"info", "-w", "64", "-h", "48", "-"}},
        {kPlayer, {"-w", "64", "-h", "48", "-"}},
        {kPlayer, {"-d", "-", "-w", "64", "-h", "48", "a.yuv"}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE((r.program + QLatin1Char(' ') + r.args.join(QLatin1Char(' '))).toStdString());
        const Outcome o = run(r.program, r.args, dir.dir(), true);
        ASSERT_TRUE(o.finished) << "did not end with standard input closed";
        EXPECT_EQ(o.exitCode, 1);
        EXPECT_TRUE(o.err.contains(QStringLiteral("standard input is closed"))) << o.err.toStdString();
    }
}

TEST(ProcessStart, ClosedStandardInputStillOpensFiles)
{
    kavri::test::TempDir dir;
    const QString file = dir.writeSized("clip_64x48.yuv", 4608 * 2);
    const Outcome o = run(kCli, {"info", file}, dir.dir(), true);
    ASSERT_TRUE(o.finished);
    EXPECT_EQ(o.exitCode, 0) << o.err.toStdString();
    EXPECT_TRUE(o.out.contains(QStringLiteral("\"frame_count\": 2"))) << o.out.toStdString();
}

#if defined(__SANITIZE_ADDRESS__)
#define KAVRI_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KAVRI_UNDER_ASAN 1
#endif
#endif

// A 65535x65535 luma frame (4 GiB) on a machine that cannot give it: a message and exit status 1 from every
// command that reads frames, never an abort. The limit stands in for a smaller machine.
TEST(ProcessStart, FrameLargerThanMemoryIsRefusedNotAborted)
{
#ifdef KAVRI_UNDER_ASAN
    GTEST_SKIP() << "the sanitizer reserves more address space than the limit allows";
#else
    kavri::test::TempDir dir;
    const QString file = dir.path("big_65535x65535.yuv");
    QFile f(file);
    if (!f.open(QIODevice::WriteOnly) || !f.resize(qint64(5) << 30))
        GTEST_SKIP() << "no room for a sparse 5 GiB file here";
    f.close();
    const QStringList format{"-f", "luma", "--no-remembered", file};
    const QStringList commands[] = {
        QStringList{"render", "-o", dir.path("x.png")} + format,
        QStringList{"pixel", "--at", "1,1"} + format,
        QStringList{"bench", "--frames", "1"} + format,
    };
    for (const QStringList &args : commands) {
        SCOPED_TRACE(args.first().toStdString());
        const Outcome o = run(kCli, args, dir.dir(), false, rlim_t(2) << 30);
        ASSERT_TRUE(o.finished);
        EXPECT_EQ(o.exitCode, 1) << o.err.toStdString();
        EXPECT_TRUE(o.err.contains(QStringLiteral("more memory than this computer can give it")))
            << o.err.toStdString();
    }
    EXPECT_FALSE(QFile::exists(dir.path("x.png")));
#endif
}

TEST(ProcessStart, SettingsFileThatIsNotAFileIsNeverOpened)
{
    kavri::test::TempDir dir;
    const QString file = dir.writeSized("clip_64x48.yuv", 4608 * 2);
    const QString config = dir.path(QStringLiteral("config"));
    ASSERT_TRUE(QDir().mkpath(config + QStringLiteral("/Kavri")));
    const QString fifo = config + QStringLiteral("/Kavri/kavri.ini");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QStringList &args : {QStringList{"info", file}, QStringList{"remember", file}}) {
        SCOPED_TRACE(args.join(QLatin1Char(' ')).toStdString());
        const Outcome o = run(kCli, args, config, false);
        ASSERT_TRUE(o.finished) << "blocked on the settings FIFO";
        EXPECT_EQ(o.exitCode, 0) << o.err.toStdString();
        EXPECT_TRUE(o.err.contains(QStringLiteral("not a regular file"))) << o.err.toStdString();
    }
    struct stat st {};
    ASSERT_EQ(::stat(QFile::encodeName(fifo).constData(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode)) << "the FIFO is left as it was";
}

TEST(ProcessStart, HelpAndVersionAnswerWithoutAWindow)
{
    kavri::test::TempDir dir;
    const Outcome v = run(kPlayer, {"--version"}, dir.dir(), false);
    ASSERT_TRUE(v.finished);
    EXPECT_EQ(v.exitCode, 0);
    EXPECT_TRUE(v.out.startsWith(QStringLiteral("kavri "))) << v.out.toStdString();
    const Outcome h = run(kPlayer, {"--help"}, dir.dir(), false);
    ASSERT_TRUE(h.finished);
    EXPECT_EQ(h.exitCode, 0);
    EXPECT_TRUE(h.out.contains(QStringLiteral("Usage: kavri"))) << h.out.toStdString();
}

} // namespace
