// The loader on y4m files: the record comes from the header alone, and every way of reaching a frame
// (a seek, playback with its read-ahead, a loop, a stop, a reload) skips the FRAME lines.
#include "LoaderTestSupport.h"
#include "formats/Validation.h"

#include <gtest/gtest.h>
#include <thread>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

using namespace kavri::test;

namespace {

// 16x16 luma frames that name their own index, behind a header of `params` and their FRAME lines.
QByteArray markedY4m(uint64_t frames, const QByteArray &params = "W16 H16 F1000:1 Cmono")
{
    QByteArray all = "YUV4MPEG2 " + params + "\n";
    for (uint64_t i = 0; i < frames; ++i) all += "FRAME\n" + markedFrame(i);
    return all;
}

class Y4mLoader : public ::testing::Test {
protected:
    TempDir dir;
    TestOwner owner;
    KavriLoader *loader = nullptr;

    void TearDown() override
    {
        if (!loader) return;
        owner.release();
        KavriLoader *l = loader;
        loader = nullptr;
        EXPECT_TRUE(returnsWithin([l] { l->detach(); })) << "detach did not return";
    }

    // Opens with nothing but what the file says, and waits for the first init.
    void open(const QString &path, const QString &diff = {})
    {
        KavriLoader::Options o;
        o.useRemembered = false;
        o.rememberFormats = false;
        loader = KavriLoader::create(path, diff, o);
        ASSERT_NE(loader, nullptr);
        ASSERT_TRUE(kavri::isPlayable(loader->validityMask()));
        owner.loader = loader;
        owner.wholeBytes = kFrameBytes;
        loader->attach(&owner, &owner);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    }

    // With a difference file: show the first file's own samples, which the owner checks.
    void changeViewToFirst()
    {
        KavriLoader::View v = loader->view();
        v.picture.view = 1;
        loader->setView(v);
    }
};

TEST_F(Y4mLoader, TheHeaderAloneDescribesTheFile)
{
    // A cut frame at the end is not counted.
    open(dir.write("clip.y4m", markedY4m(7) + "FRAME\n" + markedFrame(7).left(100)));
    const VideoProps &p = loader->pendingProps();
    EXPECT_EQ(p.format, BW);
    EXPECT_EQ(p.width, 16);
    EXPECT_EQ(p.frameCount, 7u);
    EXPECT_EQ(p.frameHeaderBytes, 6u);
}

TEST_F(Y4mLoader, SeeksReachEveryFrame)
{
    open(dir.write("clip.y4m", markedY4m(9)));
    for (uint64_t i : {5u, 0u, 8u, 3u, 4u}) {
        const size_t before = owner.seen().size();
        emit owner.seek(i, false, false);
        ASSERT_TRUE(owner.waitForFrames(before + 1, kWaitMs));
        EXPECT_EQ(owner.seen().back().content, i);
        EXPECT_TRUE(owner.seen().back().whole);
    }
}

TEST_F(Y4mLoader, PlaybackLoopAndStopReadEachFrameInTurn)
{
    open(dir.write("clip.y4m", markedY4m(4)));
    loader->setLoop(true);
    owner.setFrameLimit(10);
    emit owner.play();
    ASSERT_TRUE(owner.waitForFrames(10, kWaitMs));
    const auto seen = owner.seen();
    std::vector<uint64_t> c;
    for (size_t i = 0; i < 10; ++i) {
        c.push_back(seen[i].content);
        EXPECT_TRUE(seen[i].whole) << "delivery " << i;
    }
    EXPECT_EQ(c, (std::vector<uint64_t>{0, 1, 2, 3, 0, 1, 2, 3, 0, 1}));
}

TEST_F(Y4mLoader, AReloadCountsTheGrownFile)
{
    const QString f = dir.write("clip.y4m", markedY4m(3));
    open(f);
    QByteArray more;
    for (uint64_t i = 3; i < 6; ++i) more += "FRAME\n" + markedFrame(i);
    appendTo(f, more);
    const int inits = owner.initializedCount();
    emit owner.reload();
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() > inits; }, kWaitMs));
    EXPECT_EQ(loader->frameCount(), 6u);
    const size_t before = owner.seen().size();
    emit owner.seek(5, false, false);
    ASSERT_TRUE(owner.waitUntil(
        [&] {
            const auto s = owner.seen();
            return s.size() > before && s.back().content == 5u;
        },
        kWaitMs));
}

TEST_F(Y4mLoader, APairWithHeadersOfTwoLengthsShowsNoDifference)
{
    const QString a = dir.write("a.y4m", markedY4m(5));
    const QString b = dir.write("b.y4m", markedY4m(6, "W16 H16 F1000:1 Ip A1:1 Cmono XCOLORRANGE=FULL"));
    open(a, b);
    EXPECT_EQ(loader->pendingProps().frameCount, 5u);
    emit owner.play();
    ASSERT_TRUE(owner.waitUntil([&] { return owner.stoppedCount() >= 1; }, kWaitMs));
    const auto seen = owner.seen();
    ASSERT_GE(seen.size(), 5u);
    for (const auto &s : seen)
        for (double m : s.frame.mse) EXPECT_EQ(m, 0.0) << "frame " << s.index;
}

TEST_F(Y4mLoader, FrameLinesOfAnyLengthAreFollowedInEveryWay)
{
    QByteArray bytes = "YUV4MPEG2 W16 H16 F1000:1 Cmono\n";
    QByteArray plain = bytes;
    for (uint64_t i = 0; i < 6; ++i) {
        bytes += (i % 2 ? QByteArray("FRAME\n") : "FRAME Ip X" + QByteArray(int(i) * 7, 'x') + "\n") + markedFrame(i);
        plain += "FRAME\n" + markedFrame(i);
    }
    const QString f = dir.write("lines.y4m", bytes);
    // Compared with the same frames on plain lines, so both files of the pair are followed.
    open(f, dir.write("plain.y4m", plain));
    EXPECT_EQ(loader->pendingProps().frameCount, 6u);
    changeViewToFirst();
    for (uint64_t i : {4u, 1u, 5u, 0u}) {
        const size_t before = owner.seen().size();
        emit owner.seek(i, false, false);
        ASSERT_TRUE(owner.waitForFrames(before + 1, kWaitMs));
        EXPECT_EQ(owner.seen().back().content, i);
        EXPECT_TRUE(owner.seen().back().whole);
    }
    loader->setLoop(true);
    const size_t before = owner.seen().size();
    owner.setFrameLimit(before + 9);
    emit owner.seek(0, false, false);
    emit owner.play();
    ASSERT_TRUE(owner.waitForFrames(before + 9, kWaitMs));
    const auto seen = owner.seen();
    for (size_t k = before + 1; k < before + 9; ++k) {
        EXPECT_EQ(seen[k].content, (seen[k - 1].content + 1) % 6) << "delivery " << k;
        EXPECT_TRUE(seen[k].whole);
        for (double m : seen[k].frame.mse) EXPECT_EQ(m, 0.0);
    }
}

TEST(Y4mLoaderRefusal, ADamagedFileIsNotOpened)
{
    TempDir dir;
    const QString f = dir.write("p.y4m", markedY4m(2) + "FRAMEX\n" + markedFrame(2));
    QString why;
    KavriLoader *l = KavriLoader::create(f, {}, KavriLoader::Options{}, &why);
    EXPECT_EQ(l, nullptr);
    EXPECT_TRUE(why.contains("frame 2")) << why.toStdString();
}

#ifdef Q_OS_UNIX
// Gives a stream's loader the 16x16 luma record of the marked frames, attaches `owner` and waits for the
// first init.
void describeLumaAndAttach(KavriLoader *loader, TestOwner &owner)
{
    VideoProps &p = loader->pendingProps();
    p.width = kW;
    p.height = kH;
    p.format = BW;
    p.frameRate = 1000.0;
    loader->validate();
    owner.loader = loader;
    loader->attach(&owner, &owner);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
}

// Writes all of `data` to `fd` (as far as a reader takes it), then closes it.
void writeAllAndClose(int fd, const QByteArray &data)
{
    const char *at = data.constData();
    qint64 left = data.size();
    while (left > 0) {
        const ssize_t k = ::write(fd, at, size_t(left));
        if (k <= 0) break;
        at += k;
        left -= k;
    }
    ::close(fd);
}

TEST(Y4mLoaderRefusal, AStreamWhoseHeaderComesLateIsToldNotShown)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    TestOwner owner;
    KavriLoader::Options o;
    o.useRemembered = false;
    o.rememberFormats = false;
    o.stdinDescriptor = fds[0];
    o.streamHeaderWaitMs = 0; // the writer starts after the loader has looked
    KavriLoader *loader = KavriLoader::create(QStringLiteral("-"), {}, o);
    ASSERT_NE(loader, nullptr);
    ASSERT_NO_FATAL_FAILURE(describeLumaAndAttach(loader, owner));
    emit owner.play();
    const QByteArray data = markedY4m(3);
    std::thread writer([&] { writeAllAndClose(fds[1], data); });
    writer.join();
    EXPECT_TRUE(owner.waitUntil([&] { return !owner.failure().isEmpty(); }, kWaitMs));
    EXPECT_TRUE(owner.failure().contains("y4m")) << owner.failure().toStdString();
    EXPECT_TRUE(owner.seen().empty()); // nothing was shown as raw samples
    EXPECT_TRUE(returnsWithin([loader] { loader->detach(); }));
    ::close(fds[0]);
}

// Writes `data` into a new pipe from a thread of its own (a pipe holds only so much), closing it after.
class PipeWriter {
public:
    explicit PipeWriter(QByteArray data) : m_data(std::move(data))
    {
        m_ok = ::pipe(m_fds) == 0;
        if (!m_ok) return;
        m_thread = std::thread([this] { writeAllAndClose(m_fds[1], m_data); });
    }
    ~PipeWriter()
    {
        if (!m_ok) return;
        // A reader that stopped early leaves the writer blocked: closing the read end frees it.
        ::close(m_fds[0]);
        m_thread.join();
    }
    bool ok() const { return m_ok; }
    int readEnd() const { return m_fds[0]; }

private:
    QByteArray m_data;
    int m_fds[2] = {-1, -1};
    bool m_ok = false;
    std::thread m_thread;
};

KavriLoader::Options streamOptions(int fd)
{
    KavriLoader::Options o;
    o.useRemembered = false;
    o.rememberFormats = false;
    o.stdinDescriptor = fd;
    o.streamHeaderWaitMs = 60000; // the bytes are on their way already; the wait ends when they are in
    return o;
}

// A y4m stream on standard input gives the record from its header and plays its frames past their FRAME
// lines, whatever parameters a FRAME line carries and however the bytes are split across reads.
TEST(Y4mStream, StandardInputIsReadThroughItsHeader)
{
    struct Case {
        const char *name;
        QByteArray params;
        QByteArray frameLine;
        int32_t width;
        int32_t height;
        double rate;
    };
    const Case cases[] = {
        {"plain", "W16 H16 F1000:1 Cmono", "FRAME", 16, 16, 1000.0},
        {"frame parameters", "W16 H16 F30000:1001 Ip A1:1 Cmono XYSCSS=MONO", "FRAME Ip XCOMMENT=1", 16, 16,
         30000.0 / 1001.0},
        {"header comment", "W16 H16 F1000:1 Cmono X" + QByteArray(3000, 'c'), "FRAME", 16, 16, 1000.0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray data = "YUV4MPEG2 " + c.params + "\n";
        for (uint64_t i = 0; i < 4; ++i) data += c.frameLine + "\n" + markedFrame(i);
        PipeWriter writer(data);
        ASSERT_TRUE(writer.ok());
        QString why;
        KavriLoader *loader = KavriLoader::create(QStringLiteral("-"), {}, streamOptions(writer.readEnd()), &why);
        ASSERT_NE(loader, nullptr) << why.toStdString();
        const VideoProps &p = loader->pendingProps();
        EXPECT_EQ(p.width, c.width);
        EXPECT_EQ(p.height, c.height);
        EXPECT_EQ(p.format, BW);
        EXPECT_DOUBLE_EQ(p.frameRate, c.rate);
        EXPECT_EQ(p.headerBytes, 0u);
        ASSERT_TRUE(kavri::isPlayable(loader->validityMask()));
        TestOwner owner;
        owner.loader = loader;
        owner.wholeBytes = kFrameBytes;
        loader->attach(&owner, &owner);
        ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
        emit owner.play();
        ASSERT_TRUE(owner.waitForFrames(4, kWaitMs));
        const auto seen = owner.seen();
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(seen[i].content, i);
            EXPECT_TRUE(seen[i].whole) << "frame " << i;
        }
        EXPECT_TRUE(owner.failure().isEmpty()) << owner.failure().toStdString();
        owner.release();
        EXPECT_TRUE(returnsWithin([loader] { loader->detach(); }));
    }
}

// A FRAME line that is not one stops the stream with a message naming where; the frames before it were
// shown as they are, and nothing after it is shown as a frame.
TEST(Y4mStream, ADamagedFrameLineStopsTheStreamWithAMessage)
{
    PipeWriter writer(markedY4m(2) + "FRAMX\n" + markedFrame(2) + "FRAME\n" + markedFrame(3));
    ASSERT_TRUE(writer.ok());
    KavriLoader *loader = KavriLoader::create(QStringLiteral("-"), {}, streamOptions(writer.readEnd()));
    ASSERT_NE(loader, nullptr);
    TestOwner owner;
    owner.loader = loader;
    owner.wholeBytes = kFrameBytes;
    loader->attach(&owner, &owner);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    emit owner.play();
    ASSERT_TRUE(owner.waitUntil([&] { return !owner.failure().isEmpty(); }, kWaitMs));
    EXPECT_TRUE(owner.failure().contains("after 2 frames")) << owner.failure().toStdString();
    EXPECT_TRUE(owner.failure().contains("standard input")) << owner.failure().toStdString();
    const auto seen = owner.seen();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[1].content, 1u);
    owner.release();
    EXPECT_TRUE(returnsWithin([loader] { loader->detach(); }));
}

// A header that is not a usable one refuses the stream at once, saying why; raw bytes, and a stream
// that ends inside the signature, are left to the record as before.
TEST(Y4mStream, TheStartOfAStreamDecidesHowItIsRead)
{
    struct Case {
        const char *name;
        QByteArray data;
        bool opens;
        const char *why;
    };
    const Case cases[] = {
        {"no width", "YUV4MPEG2 H16 F25:1\nFRAME\n", false, "width"},
        {"unknown colour", "YUV4MPEG2 W16 H16 Cxyz\nFRAME\n", false, "standard input"},
        {"raw samples", markedFrame(0) + markedFrame(1), true, ""},
        {"a cut signature", "YUV4M", true, ""},
        {"nothing at all", "", true, ""},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        PipeWriter writer(c.data);
        ASSERT_TRUE(writer.ok());
        QString why;
        KavriLoader *loader = KavriLoader::create(QStringLiteral("-"), {}, streamOptions(writer.readEnd()), &why);
        EXPECT_EQ(loader != nullptr, c.opens) << why.toStdString();
        if (!c.opens) {
            EXPECT_TRUE(why.contains(c.why)) << why.toStdString();
            continue;
        }
        ASSERT_NE(loader, nullptr);
        // The bytes looked at are still there for the first frame.
        TestOwner owner;
        ASSERT_NO_FATAL_FAILURE(describeLumaAndAttach(loader, owner));
        emit owner.play();
        if (c.data.size() >= qsizetype(2 * kFrameBytes)) {
            ASSERT_TRUE(owner.waitForFrames(2, kWaitMs));
            EXPECT_EQ(owner.seen()[0].content, 0u);
            EXPECT_EQ(owner.seen()[1].content, 1u);
        }
        owner.release();
        EXPECT_TRUE(returnsWithin([loader] { loader->detach(); }));
    }
}
#endif

} // namespace
