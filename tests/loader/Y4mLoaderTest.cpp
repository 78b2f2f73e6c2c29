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
TEST(Y4mLoaderRefusal, AStreamOnStandardInputIsToldNotShown)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    TestOwner owner;
    KavriLoader::Options o;
    o.useRemembered = false;
    o.rememberFormats = false;
    o.stdinDescriptor = fds[0];
    KavriLoader *loader = KavriLoader::create(QStringLiteral("-"), {}, o);
    ASSERT_NE(loader, nullptr);
    VideoProps &p = loader->pendingProps();
    p.width = kW;
    p.height = kH;
    p.format = BW;
    p.frameRate = 1000.0;
    loader->validate();
    owner.loader = loader;
    loader->attach(&owner, &owner);
    ASSERT_TRUE(owner.waitUntil([&] { return owner.initializedCount() >= 1; }, kWaitMs));
    emit owner.play();
    const QByteArray data = markedY4m(3);
    std::thread writer([&] {
        const char *at = data.constData();
        qint64 left = data.size();
        while (left > 0) {
            const ssize_t k = ::write(fds[1], at, size_t(left));
            if (k <= 0) break;
            at += k;
            left -= k;
        }
        ::close(fds[1]);
    });
    writer.join();
    EXPECT_TRUE(owner.waitUntil([&] { return !owner.failure().isEmpty(); }, kWaitMs));
    EXPECT_TRUE(owner.failure().contains("y4m")) << owner.failure().toStdString();
    EXPECT_TRUE(owner.seen().empty()); // nothing was shown as raw samples
    EXPECT_TRUE(returnsWithin([loader] { loader->detach(); }));
    ::close(fds[0]);
}
#endif

} // namespace
