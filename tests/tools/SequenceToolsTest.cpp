#include "formats/FormatDetector.h"
#include "formats/FormatNames.h"
#include "support/TempFiles.h"
#include "support/WorkGate.h"
#include "tools/CopyWork.h"
#include "tools/SequenceCopy.h"
#include "tools/SequenceNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QThreadPool>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

using namespace kavri;
using namespace kavri::tools;
using kavri::test::TempDir;
using kavri::test::WorkGate;

namespace {

// A header of `header` bytes (0xEE) followed by `frames` frames of `frameBytes`, byte j of frame k = k*31+j.
QByteArray sequenceBytes(int header, int frames, int frameBytes)
{
    QByteArray b(header, char(0xEE));
    for (int k = 0; k < frames; ++k)
        for (int j = 0; j < frameBytes; ++j) b.append(char((k * 31 + j) & 0xff));
    return b;
}

QByteArray frameOf(int k, int frameBytes) { return sequenceBytes(0, k + 1, frameBytes).mid(k * frameBytes); }

using kavri::test::readAll;

CopyJob job(const QString &in, const QString &out, uint32_t frameBytes, uint32_t header, uint64_t first, uint64_t last,
            bool reverse = false)
{
    CopyJob j;
    j.input = in;
    j.output = out;
    j.frameBytes = frameBytes;
    j.headerBytes = header;
    j.first = first;
    j.last = last;
    j.reverse = reverse;
    return j;
}

QStringList entries(const QString &dir) { return QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System); }

// Frames larger than a copy chunk, whose bytes differ also between offsets a chunk (or any power of two)
// apart, so that a chunk read twice, skipped or written at the wrong place shows.
char bigByte(uint64_t frame, uint64_t at)
{
    uint64_t x = (frame + 1) * 0x9E3779B97F4A7C15ull ^ (at * 0xBF58476D1CE4E5B9ull);
    x ^= x >> 31;
    x *= 0x94D049BB133111EBull;
    return char(x >> 56);
}

QByteArray bigFrame(int k, int frameBytes)
{
    QByteArray b(frameBytes, Qt::Uninitialized);
    for (int j = 0; j < frameBytes; ++j) b[j] = bigByte(uint64_t(k), uint64_t(j));
    return b;
}

QByteArray bigSequence(int header, int frames, int frameBytes)
{
    QByteArray b(header, char(0xEE));
    for (int k = 0; k < frames; ++k) b += bigFrame(k, frameBytes);
    return b;
}

} // namespace

// ---- copying ----------------------------------------------------------------------------------------------

struct ExtractCase {
    const char *name;
    int header, frames, frameBytes;
    uint64_t first, last;
};

class ExtractBytes : public ::testing::TestWithParam<ExtractCase> {};

TEST_P(ExtractBytes, CopiesTheInclusiveRangeWithoutTheHeader)
{
    const ExtractCase c = GetParam();
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(c.header, c.frames, c.frameBytes));
    const QString out = dir.path("out.yuv");
    const CopyResult r = copyFrames(job(in, out, c.frameBytes, c.header, c.first, c.last));
    ASSERT_TRUE(r.ok) << r.error.toStdString();
    QByteArray expected;
    for (uint64_t k = c.first; k <= c.last; ++k) expected += frameOf(int(k), c.frameBytes);
    EXPECT_EQ(readAll(out), expected);
    EXPECT_EQ(r.framesWritten, c.last - c.first + 1);
    EXPECT_EQ(readAll(in), sequenceBytes(c.header, c.frames, c.frameBytes)) << "input changed";
}

INSTANTIATE_TEST_SUITE_P(Ranges, ExtractBytes,
                         ::testing::Values(ExtractCase{"OneFrameAtStart", 0, 5, 13, 0, 0},
                                           ExtractCase{"OneFrameAtEnd", 0, 5, 13, 4, 4},
                                           ExtractCase{"MiddleWithHeader", 512, 6, 152, 2, 4},
                                           ExtractCase{"WholeFileOddHeader", 7, 3, 9, 0, 2}),
                         [](const auto &i) { return std::string(i.param.name); });

struct ReverseCase {
    const char *name;
    int header, frames, frameBytes;
};

class ReverseBytes : public ::testing::TestWithParam<ReverseCase> {};

TEST_P(ReverseBytes, WritesEveryFrameLastFirst)
{
    const ReverseCase c = GetParam();
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(c.header, c.frames, c.frameBytes));
    const QString out = dir.path("out.yuv");
    const CopyResult r = copyFrames(job(in, out, c.frameBytes, c.header, 0, c.frames - 1, true));
    ASSERT_TRUE(r.ok) << r.error.toStdString();
    QByteArray expected;
    for (int k = c.frames - 1; k >= 0; --k) expected += frameOf(k, c.frameBytes);
    EXPECT_EQ(readAll(out), expected);
}

INSTANTIATE_TEST_SUITE_P(Files, ReverseBytes,
                         ::testing::Values(ReverseCase{"OneFrame", 0, 1, 21},
                                           ReverseCase{"OneFrameHeader512", 512, 1, 21},
                                           ReverseCase{"Header512", 512, 4, 100}, ReverseCase{"OddSizes", 3, 7, 13}),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(CopyWorkTest, ReportsProgressAndEndsWith100OnThePool)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(512, 10, 64));
    ReverseWork work(in, dir.path("rev.yuv"), 64, 512, 10, false);
    QSignalSpy spy(&work, &CopyWork::status);
    QThreadPool::globalInstance()->start(&work);
    QThreadPool::globalInstance()->waitForDone();
    ASSERT_FALSE(spy.isEmpty());
    EXPECT_EQ(spy.last().at(0).toInt(), 100);
    int previous = -1;
    for (const auto &args : spy) {
        EXPECT_GT(args.at(0).toInt(), previous) << "progress must rise";
        previous = args.at(0).toInt();
    }
    EXPECT_TRUE(work.succeeded());
    EXPECT_TRUE(work.hasFinished());
    EXPECT_EQ(readAll(dir.path("rev.yuv")).left(64), frameOf(9, 64));
}

TEST(CopyWorkTest, ZeroFrameFileFailsWithoutOutput)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", QByteArray(10, 'x'));
    ReverseWork work(in, dir.path("rev.yuv"), 64, 0, 0, false);
    QSignalSpy spy(&work, &CopyWork::status);
    work.run();
    ASSERT_EQ(spy.size(), 1);
    EXPECT_EQ(spy.first().at(0).toInt(), 100);
    EXPECT_FALSE(work.succeeded());
    EXPECT_FALSE(QFileInfo::exists(dir.path("rev.yuv")));
}

// Frames of more than one chunk: every chunk lands where it belongs, and the progress moves inside a frame.
TEST(CopyChunks, FramesLargerThanAChunkAreCopiedExactly)
{
    const int frameBytes = int(kCopyChunkBytes) * 2 + 13; // two whole chunks and a short tail
    TempDir dir;
    const QString in = dir.write("in.yuv", bigSequence(7, 3, frameBytes));
    for (bool reverse : {false, true}) {
        SCOPED_TRACE(reverse ? "reverse" : "extract");
        const QString out = dir.path(reverse ? "rev.yuv" : "ext.yuv");
        std::vector<int> reported;
        const CopyJob j = reverse ? job(in, out, frameBytes, 7, 0, 2, true) : job(in, out, frameBytes, 7, 1, 2);
        const CopyResult r = copyFrames(j, [&](int p) { reported.push_back(p); });
        ASSERT_TRUE(r.ok) << r.error.toStdString();
        const QByteArray expected = reverse
                                        ? bigFrame(2, frameBytes) + bigFrame(1, frameBytes) + bigFrame(0, frameBytes)
                                        : bigFrame(1, frameBytes) + bigFrame(2, frameBytes);
        EXPECT_TRUE(readAll(out) == expected) << "the output differs from the frames asked for";
        EXPECT_EQ(r.framesWritten, reverse ? 3u : 2u);
        // The bar moves already while the first frame is copied, and only forward.
        ASSERT_FALSE(reported.empty());
        EXPECT_LT(reported.front(), 100 / int(r.framesWritten));
        EXPECT_TRUE(std::is_sorted(reported.begin(), reported.end()));
        EXPECT_EQ(std::adjacent_find(reported.begin(), reported.end()), reported.end()) << "no report twice";
    }
}

// ---- cancelling -------------------------------------------------------------------------------------------

struct CancelCase {
    const char *name;
    int frames, frameBytes;
    bool reverse;
    bool existingOutput; // replacing was asked; the old file must survive the cancel
};

class CancelCopy : public ::testing::TestWithParam<CancelCase> {};

// The cancel is asked for from the progress report after the first chunk, while the temporary file is
// open: the copy stops before the next chunk and removes it. (Where the system offers unnamed temporary
// files the folder never shows it; elsewhere it is a hidden name beside the output.)
TEST_P(CancelCopy, StopsAtTheNextChunkAndLeavesNothing)
{
    const CancelCase c = GetParam();
    TempDir dir;
    const QString in = dir.write("in.yuv", bigSequence(16, c.frames, c.frameBytes));
    const QString out = dir.path("out.yuv");
    QStringList before{"in.yuv"};
    if (c.existingOutput) {
        dir.write("out.yuv", "old");
        before << "out.yuv";
    }
    CopyJob j = job(in, out, c.frameBytes, 16, 0, c.frames - 1, c.reverse);
    j.overwrite = c.existingOutput;
    std::atomic<bool> cancel{false};
    int reports = 0;
    QStringList whileCopying;
    const CopyResult r = copyFrames(
        j,
        [&](int) {
            if (++reports == 1) whileCopying = entries(dir.dir());
            cancel.store(true);
        },
        &cancel);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.cancelled);
    EXPECT_TRUE(r.error.contains("cancelled")) << r.error.toStdString();
    EXPECT_EQ(reports, 1) << "stopped before the chunk after the cancel";
    EXPECT_EQ(whileCopying.contains("out.yuv"), c.existingOutput) << "the output name shows nothing new while copying";
    EXPECT_LE(whileCopying.size(), before.size() + 1);
    EXPECT_EQ(entries(dir.dir()), before) << "no output and no temporary file left";
    if (c.existingOutput) {
        EXPECT_EQ(readAll(out), QByteArray("old"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Jobs, CancelCopy,
    ::testing::Values(CancelCase{"Extract", 10, 64, false, false}, CancelCase{"Reverse", 10, 64, true, false},
                      CancelCase{"InsideALargeFrame", 1, int(kCopyChunkBytes) * 2 + 13, false, false},
                      CancelCase{"ReplacingKeepsTheOldFile", 10, 64, true, true}),
    [](const auto &i) { return std::string(i.param.name); });

TEST(CancelCopy, CancelledBeforeItStartsTouchesNothing)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 4, 16));
    const std::atomic<bool> cancel{true};
    bool reported = false;
    const CopyResult r = copyFrames(
        job(in, dir.path("out.yuv"), 16, 0, 0, 3), [&](int) { reported = true; }, &cancel);
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.cancelled);
    EXPECT_FALSE(reported);
    EXPECT_EQ(entries(dir.dir()), QStringList{"in.yuv"});
}

// A pool job cancelled at its first progress report (a direct connection runs on the worker) still ends
// with status(100), says it was cancelled and leaves nothing.
TEST(CopyWorkTest, CancelFromTheFirstReportLeavesNothing)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(512, 10, 64));
    ReverseWork work(in, dir.path("rev.yuv"), 64, 512, 10, false);
    QObject::connect(
        &work, &CopyWork::status, &work,
        [&work](int p) {
            if (p < 100) work.cancel();
        },
        Qt::DirectConnection);
    QSignalSpy spy(&work, &CopyWork::status);
    QThreadPool::globalInstance()->start(&work);
    QThreadPool::globalInstance()->waitForDone();
    ASSERT_EQ(spy.size(), 2);
    EXPECT_EQ(spy.last().at(0).toInt(), 100);
    EXPECT_TRUE(work.wasCancelled());
    EXPECT_FALSE(work.succeeded());
    EXPECT_TRUE(work.hasFinished());
    EXPECT_EQ(entries(dir.dir()), QStringList{"in.yuv"});
}

TEST(CopyWorkTest, CancelledBeforeItRunsTouchesNothing)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 3, 16));
    ExtractWork work(in, dir.path("out.yuv"), 16, 0, 0, 2, false);
    QSignalSpy spy(&work, &CopyWork::status);
    work.cancel();
    work.run();
    ASSERT_EQ(spy.size(), 1);
    EXPECT_TRUE(work.wasCancelled());
    EXPECT_FALSE(work.succeeded());
    EXPECT_EQ(entries(dir.dir()), QStringList{"in.yuv"});
}

// An owner that goes away while its job runs hands the job over to itself: the job stops, removes its
// temporary file and is deleted without anybody waiting for it; a finished job is deleted at once.
TEST(CopyWorkTest, AbandonedJobStopsAndDeletesItself)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 10, 64));
    auto gate = std::make_shared<WorkGate>();
    auto *work = new ExtractWork(in, dir.path("out.yuv"), 64, 0, 0, 9, false);
    QObject::connect(
        work, &CopyWork::status, work,
        [gate](int p) {
            if (p < 100) gate->pauseOnce();
        },
        Qt::DirectConnection);
    QPointer<CopyWork> alive(work);
    QThreadPool::globalInstance()->start(work);
    ASSERT_TRUE(gate->reached());
    work->abandon();
    EXPECT_FALSE(alive.isNull()) << "still running: not deleted under the worker's feet";
    gate->release();
    EXPECT_TRUE(QTest::qWaitFor([&] { return alive.isNull(); }, WorkGate::kLimitMs));
    QThreadPool::globalInstance()->waitForDone();
    EXPECT_FALSE(gate->timedOut());
    EXPECT_EQ(entries(dir.dir()), QStringList{"in.yuv"});

    auto *done = new ExtractWork(in, dir.path("out.yuv"), 64, 0, 0, 9, false);
    QPointer<CopyWork> doneAlive(done);
    done->run();
    ASSERT_TRUE(done->succeeded());
    done->abandon();
    EXPECT_TRUE(doneAlive.isNull());
    EXPECT_EQ(readAll(dir.path("out.yuv")), sequenceBytes(0, 10, 64)) << "a finished job's file stays";
}

// ---- nothing lost -----------------------------------------------------------------------------------------

TEST(NothingLost, SameFileThroughAnotherPathIsRefused)
{
    TempDir dir;
    const QByteArray bytes = sequenceBytes(0, 3, 16);
    const QString in = dir.write("in.yuv", bytes);
    QStringList aliases{dir.dir() + "/./in.yuv", dir.dir() + "/sub/../in.yuv"};
    QDir(dir.dir()).mkdir("sub");
    ASSERT_TRUE(QFile::link(in, dir.path("sym.yuv")));
    aliases << dir.path("sym.yuv");
#ifdef Q_OS_UNIX
    ASSERT_EQ(::link(QFile::encodeName(in).constData(), QFile::encodeName(dir.path("hard.yuv")).constData()), 0);
    aliases << dir.path("hard.yuv");
#endif
    for (const QString &alias : aliases) {
        SCOPED_TRACE(alias.toStdString());
        EXPECT_TRUE(isSameFile(in, alias));
        CopyJob j = job(in, alias, 16, 0, 0, 2, true);
        j.overwrite = true; // even when replacing is allowed
        const CopyResult r = copyFrames(j);
        EXPECT_FALSE(r.ok);
        EXPECT_TRUE(r.error.contains("input file itself")) << r.error.toStdString();
        EXPECT_EQ(readAll(in), bytes);
    }
}

TEST(NothingLost, ExistingOutputIsKeptUnlessReplacingIsAsked)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 3, 16));
    const QString out = dir.write("out.yuv", "keep me");
    CopyResult r = copyFrames(job(in, out, 16, 0, 0, 1));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(readAll(out), QByteArray("keep me"));
    CopyJob j = job(in, out, 16, 0, 0, 1);
    j.overwrite = true;
    r = copyFrames(j);
    EXPECT_TRUE(r.ok) << r.error.toStdString();
    EXPECT_EQ(readAll(out), frameOf(0, 16) + frameOf(1, 16));
}

TEST(NothingLost, DanglingSymlinkCountsAsExisting)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 2, 16));
    ASSERT_TRUE(QFile::link(dir.path("nowhere"), dir.path("out.yuv")));
    EXPECT_FALSE(copyFrames(job(in, dir.path("out.yuv"), 16, 0, 0, 1)).ok);
    EXPECT_FALSE(QFileInfo::exists(dir.path("nowhere")));
}

#ifdef Q_OS_UNIX
TEST(NothingLost, UnwritableFolderLeavesNothing)
{
    if (::geteuid() == 0) GTEST_SKIP() << "the superuser writes into read-only folders";
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 2, 16));
    QDir(dir.dir()).mkdir("ro");
    const QString ro = dir.path("ro");
    QFile::setPermissions(ro, QFile::ReadOwner | QFile::ExeOwner);
    const CopyResult r = copyFrames(job(in, ro + "/out.yuv", 16, 0, 0, 1));
    QFile::setPermissions(ro, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    EXPECT_FALSE(r.ok);
    EXPECT_FALSE(r.error.isEmpty());
    EXPECT_TRUE(entries(ro).isEmpty());
}

// A disk that fills up part-way, made with a file-size limit (which also binds the superuser).
TEST(NothingLost, WriteFailingPartWayLeavesNoOutput)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 64, 4096));
    const QString out = dir.write("out.yuv", "old");
    struct rlimit old {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &old), 0);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit small = old;
    small.rlim_cur = 3 * 4096 + 100;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    CopyJob j = job(in, out, 4096, 0, 0, 63);
    j.overwrite = true;
    const CopyResult r = copyFrames(j);
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_FALSE(r.ok);
    // The system's words for the failing write, not the toolkit's "Unknown error" (a full disk reads
    // "No space left on device" the same way).
    EXPECT_TRUE(r.error.contains(QString::fromLocal8Bit(std::strerror(EFBIG)))) << r.error.toStdString();
    EXPECT_FALSE(r.error.contains("Unknown error")) << r.error.toStdString();
    EXPECT_EQ(readAll(out), QByteArray("old")) << "the file under the output name is untouched";
    EXPECT_EQ(entries(dir.dir()), (QStringList{"in.yuv", "out.yuv"})) << "no temporary left";
}
#endif

#ifdef Q_OS_UNIX
TEST(NothingLost, PipesAndDevicesAreNeverReplaced)
{
    // Only what this machine really has is tried: a build chroot may lack FIFO support in its temporary
    // folder, or hold /dev/null as a plain file (a redirect there before /dev was mounted makes one).
    auto special = [](const QString &path) {
        struct stat st {};
        return ::stat(QFile::encodeName(path).constData(), &st) == 0 && !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
    };
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 2, 16));
    QStringList targets;
    QStringList expected{"in.yuv"};
    const QString fifo = dir.path("pipe.yuv");
    if (::mkfifo(QFile::encodeName(fifo).constData(), 0600) == 0) {
        targets << fifo;
        expected << "pipe.yuv";
    }
    if (special(QStringLiteral("/dev/null"))) {
        targets << QStringLiteral("/dev/null");
        const QString link = dir.path("link-to-null.yuv");
        if (QFile::link(QStringLiteral("/dev/null"), link)) {
            targets << link;
            expected << "link-to-null.yuv";
        }
    }
    if (targets.isEmpty()) GTEST_SKIP() << "this machine offers neither a FIFO nor a device node to try";
    expected.sort();
    for (const QString &target : std::as_const(targets)) {
        for (bool force : {false, true}) {
            SCOPED_TRACE(target.toStdString() + (force ? " with force" : ""));
            EXPECT_TRUE(checkOutput(in, target, force).contains("not a regular file"));
            CopyJob j = job(in, target, 16, 0, 0, 1);
            j.overwrite = force;
            const CopyResult r = copyFrames(j); // refused before anything is opened, so the FIFO never blocks
            EXPECT_FALSE(r.ok);
            EXPECT_TRUE(r.error.contains("not a regular file")) << r.error.toStdString();
        }
    }
    if (targets.contains(fifo)) {
        EXPECT_FALSE(QFileInfo(fifo).isFile()) << "the FIFO is still a FIFO";
    }
    EXPECT_EQ(entries(dir.dir()), expected) << "no temporary left";
}
#endif

TEST(NothingLost, MissingFolderIsReported)
{
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 2, 16));
    const CopyResult r = copyFrames(job(in, dir.path("no/such/out.yuv"), 16, 0, 0, 1));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(r.error.contains("does not exist")) << r.error.toStdString();
}

TEST(NothingLost, InputShorterThanClaimedLeavesNoOutput)
{
    // The record claims 10 frames; the file holds 3 and a half.
    TempDir dir;
    const QString in = dir.write("in.yuv", sequenceBytes(0, 3, 16) + QByteArray(8, 'x'));
    for (bool reverse : {false, true}) {
        const CopyResult r = copyFrames(job(in, dir.path("out.yuv"), 16, 0, 0, 9, reverse));
        EXPECT_FALSE(r.ok);
        EXPECT_TRUE(r.error.contains("frame")) << r.error.toStdString();
        EXPECT_EQ(entries(dir.dir()), QStringList{"in.yuv"}) << "no output and no temporary left";
    }
}

TEST(NothingLost, VanishedInputIsReported)
{
    TempDir dir;
    const CopyResult r = copyFrames(job(dir.path("gone.yuv"), dir.path("out.yuv"), 16, 0, 0, 0));
    EXPECT_FALSE(r.ok);
    EXPECT_TRUE(entries(dir.dir()).isEmpty());
}

struct RangeCase {
    const char *name;
    uint64_t frames, first, last;
    bool ok;
    uint64_t fitted;
    bool clamped;
};

class FitRange : public ::testing::TestWithParam<RangeCase> {};

TEST_P(FitRange, ClampsTheEndAndRefusesTheRest)
{
    const RangeCase c = GetParam();
    uint64_t last = 12345;
    bool clamped = false;
    QString error;
    EXPECT_EQ(fitRange(c.frames, c.first, c.last, last, clamped, error), c.ok);
    if (c.ok) {
        EXPECT_EQ(last, c.fitted);
        EXPECT_EQ(clamped, c.clamped);
    } else {
        EXPECT_FALSE(error.isEmpty());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, FitRange,
                         ::testing::Values(RangeCase{"OneFrame", 5, 0, 0, true, 0, false},
                                           RangeCase{"Inside", 5, 1, 3, true, 3, false},
                                           RangeCase{"EndBeyondFile", 5, 2, 99, true, 4, true},
                                           RangeCase{"StartBeyondFile", 5, 5, 9, false, 0, false},
                                           RangeCase{"ZeroFrameFile", 0, 0, 0, false, 0, false},
                                           RangeCase{"Inverted", 5, 3, 1, false, 0, false}),
                         [](const auto &i) { return std::string(i.param.name); });

TEST(NothingLost, RenameNeverReplacesNorMoves)
{
    TempDir dir;
    const QString a = dir.write("a.yuv", "A");
    const QString b = dir.write("b.yuv", "B");
    EXPECT_FALSE(renameKeepingAll(a, b).isEmpty());
    EXPECT_EQ(readAll(a), QByteArray("A"));
    EXPECT_EQ(readAll(b), QByteArray("B"));

    QDir(dir.dir()).mkdir("sub");
    EXPECT_FALSE(renameKeepingAll(a, dir.path("sub/a.yuv")).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(a));
    EXPECT_TRUE(renameKeepingAll(a, dir.path("sub/a.yuv"), true).isEmpty());
    EXPECT_EQ(readAll(dir.path("sub/a.yuv")), QByteArray("A"));

    EXPECT_TRUE(renameKeepingAll(b, dir.path("c.yuv")).isEmpty());
    EXPECT_FALSE(QFileInfo::exists(b));
    EXPECT_EQ(readAll(dir.path("c.yuv")), QByteArray("B"));
    EXPECT_FALSE(renameKeepingAll(dir.path("gone.yuv"), dir.path("d.yuv")).isEmpty());
}

// ---- names ------------------------------------------------------------------------------------------------

TEST(SequenceNames, FormatPartStartsAtTheFirstDetectorToken)
{
    const std::pair<const char *, const char *> cases[] = {
        {"take3.bin", "take3"},           {"foo_1920x1080_50Hz_10bit_P420.yuv", "foo"},
        {"my clip-25fps.yuv", "my clip"}, {"news_cif.yuv", "news"},
        {"cam2_422.yuv", "cam2"},         {"a_flip_rgb.raw", "a"},
        {"capture", "capture"},           {"x264_out.yuv", "x264_out"}, // "x264" is no size and no layout
    };
    for (const auto &[name, stem] : cases)
        EXPECT_EQ(nameStem(QString::fromUtf8(name)), QString::fromUtf8(stem)) << name;
}

TEST(SequenceNames, ProposedNames)
{
    TempDir dir;
    VideoProps p;
    p.fileName = dir.write("foo_1280x720_50Hz_8bit_P422.yuv", "x");
    p.width = 1920;
    p.height = 1080;
    p.frameRate = 29.97;
    p.bitDepth = 10;
    const QString folder = QFileInfo(dir.dir()).canonicalFilePath() + "/";
    EXPECT_EQ(proposedExtractName(p, 3, 17), folder + "foo3-17_1920x1080_29.97Hz_10bit_P422.yuv");
    EXPECT_EQ(proposedReverseName(p), folder + "foo_rev_1920x1080_29.97Hz_10bit_P422.yuv");
    p.fileName = dir.write("take3.bin", "x");
    p.frameRate = 25.0;
    EXPECT_EQ(proposedReverseName(p), folder + "take3_rev_1920x1080_25Hz_10bit.bin");
    p.frameRate = 50.001; // any fraction gives two decimals here
    EXPECT_EQ(proposedExtractName(p, 0, 0), folder + "take30-0_1920x1080_50.00Hz_10bit.bin");
    p.fileName = dir.write("100%1.bin", "x"); // a '%' in the name is no place holder
    EXPECT_EQ(proposedReverseName(p), folder + "100%1_rev_1920x1080_50.00Hz_10bit.bin");
}

TEST(SequenceNames, CanonicalRates)
{
    const std::pair<double, const char *> cases[] = {
        {25.0, "25"},     {23.976, "23.98"}, {29.97, "29.97"}, {50.001, "50"},
        {59.94, "59.94"}, {0.5, "0.50"},     {100, "100"},
    };
    for (const auto &[rate, text] : cases) EXPECT_EQ(canonicalRateText(rate), QString::fromUtf8(text)) << rate;
}

TEST(SequenceNames, CanonicalName)
{
    VideoProps p;
    p.fileName = "/data/take3.bin";
    p.width = 1920;
    p.height = 1080;
    p.frameRate = 50;
    p.bitDepth = 10;
    p.flipped = true;
    p.format = YUV_p420;
    EXPECT_EQ(canonicalFileName(p), "take3_1920x1080_50Hz_10bit_flip_P420.yuv");
    p.fileName = "/data/take3_1920x1080_50Hz_10bit_flip_P420.yuv";
    EXPECT_EQ(canonicalFileName(p), "take3_1920x1080_50Hz_10bit_flip_P420.yuv") << "normalising twice changes nothing";
    p.format = BW;
    p.flipped = false;
    EXPECT_EQ(canonicalFileName(p), "take3_1920x1080_50Hz_10bit_P400.y");
}

// Every layout's canonical name, read back by the name detector: size, rate, depth and flip always; the
// layout itself except where the vote's tie rules choose another planar RGB order.
TEST(SequenceNames, CanonicalNamesRoundTripThroughTheDetector)
{
    const double rates[] = {25.0, 23.976, 29.97, 50.001};
    for (int v = 1; v <= kLayoutCount; ++v) {
        for (bool flip : {false, true}) {
            for (double rate : rates) {
                VideoProps p;
                p.fileName = "clip.bin";
                p.width = 352;
                p.height = 288;
                p.frameRate = rate;
                p.bitDepth = 10;
                p.flipped = flip;
                p.format = videoFormat_t(v);
                const QString name = canonicalFileName(p);
                SCOPED_TRACE(name.toStdString());
                FormatDetector d;
                const VideoProps &r = d.detect(name); // no such file: the name decides
                EXPECT_EQ(r.width, 352);
                EXPECT_EQ(r.height, 288);
                EXPECT_DOUBLE_EQ(r.frameRate, canonicalRateText(rate).toDouble());
                EXPECT_EQ(r.bitDepth, 10);
                EXPECT_EQ(r.flipped, flip);
                if (layoutInfo(videoFormat_t(v)).kind == LayoutKind::PlanarRgb) {
                    EXPECT_EQ(layoutInfo(r.format).kind, LayoutKind::PlanarRgb);
                } else if (v == YUV_yv12 || v == YUV_yv16 || v == YUV_yv24) {
                    // A YV name keeps its original reading: the planar layout with U and V exchanged.
                    EXPECT_TRUE(r.swapUV);
                    EXPECT_EQ(layoutInfo(r.format).kind, LayoutKind::PlanarYuv);
                } else {
                    EXPECT_EQ(int(r.format), v);
                }
            }
        }
    }
}

TEST(SequenceNames, PlanarRgbRoundTripsAsTheVoteDecides)
{
    // What the vote gives for the planar RGB suffixes (the repeated rows of the keyword table decide). Three
    // four-plane orders tie with their three-plane sibling and lose to its lower layout number.
    const std::pair<videoFormat_t, videoFormat_t> cases[] = {
        {RGB_planar, BGR_planar}, {RGBA_planar, RGBA_planar}, {RBG_planar, BGR_planar}, {RBGA_planar, RBGA_planar},
        {BGR_planar, BGR_planar}, {BGRA_planar, BGRA_planar}, {BRG_planar, BGR_planar}, {BRGA_planar, BGR_planar},
        {GRB_planar, GRB_planar}, {GRBA_planar, GRB_planar},  {GBR_planar, GBR_planar}, {GBRA_planar, GBR_planar},
    };
    for (const auto &[written, read] : cases) {
        VideoProps p;
        p.fileName = "clip";
        p.width = 64;
        p.height = 48;
        p.frameRate = 25;
        p.bitDepth = 8;
        p.format = written;
        FormatDetector d;
        EXPECT_EQ(shortName(d.detect(canonicalFileName(p)).format), shortName(read))
            << canonicalFileName(p).toStdString();
    }
}
