// The programs started as a user or a script starts them: with standard input closed, with a settings
// file that is not a file, with --help. Each run has a time limit, so a hang fails instead of hanging.
#include "support/TempFiles.h"

#include <QDir>
#include <QProcess>
#include <QProcessEnvironment>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

struct Outcome {
    bool finished = false;
    int exitCode = -1;
    QString out, err;
};

constexpr int kLimitMs = 30000;

Outcome run(const QString &program, const QStringList &args, const QString &configDir, bool closeStdin)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("KAVRI_CONFIG_DIR"), configDir);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    p.setProcessEnvironment(env);
    if (closeStdin) p.setChildProcessModifier([] { ::close(0); });
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
