// The read-ahead must hand over exactly what a plain sequential read would have read, leave the streams
// where that read would have left them, and report the end of a file the same way: chunk boundaries,
// short files and a second stream of another length included.
#include "loader/ReadAhead.h"
#include "support/TempFiles.h"

#include <gtest/gtest.h>
#include <vector>

using namespace kavri::test;

namespace {

constexpr int64_t kChunk = ReadAhead::kChunkBytes;

struct Case {
    const char *name;
    int64_t frameBytes;
    int64_t firstSize;  // file lengths; not multiples of the frame size where a short last frame is wanted
    int64_t secondSize; // -1: no second stream
    int64_t header;     // the streams start here
};

class ReadAheadMatchesPlainReads : public ::testing::TestWithParam<Case> {};

TEST_P(ReadAheadMatchesPlainReads, FrameByFrame)
{
    const Case c = GetParam();
    TempDir dir;
    const QString a = dir.writeSized("a.raw", c.firstSize);
    const QString b = c.secondSize >= 0 ? dir.writeSized("b.raw", c.secondSize) : QString();

    // Reference streams read plainly; the others through the read-ahead.
    auto refA = FrameStream::openFile(a), aheadA = FrameStream::openFile(a);
    std::shared_ptr<FrameStream> refB, aheadB;
    if (!b.isEmpty()) {
        refB = FrameStream::openFile(b);
        aheadB = FrameStream::openFile(b);
    }
    for (auto *s : {&refA, &aheadA, &refB, &aheadB}) {
        if (*s) {
            ASSERT_TRUE((*s)->seek(uint64_t(c.header)));
        }
    }

    const size_t n = size_t(c.frameBytes);
    std::vector<uint8_t> want1(n, 0xEE), want2(n, 0xEE), got1(n, 0xEE), got2(n, 0xEE);
    ReadAhead ahead;
    // One past the last whole frame, so the empty read at the end is compared as well.
    const int64_t rounds = (std::max(c.firstSize, c.secondSize) - c.header) / c.frameBytes + 2;
    for (int64_t round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        const bool wasAtEnd = aheadA->atEnd();
        ahead.start(aheadA, got1.data(), aheadB, got2.data(), c.frameBytes);
        ASSERT_TRUE(ahead.pending());
        EXPECT_EQ(ahead.before().firstAtEnd, wasAtEnd);
        const ReadAhead::Result r = ahead.take();
        EXPECT_FALSE(ahead.pending());

        EXPECT_EQ(r.first, refA->read(want1.data(), c.frameBytes));
        EXPECT_EQ(aheadA->atEnd(), refA->atEnd());
        EXPECT_EQ(aheadA->position(), refA->position());
        ASSERT_EQ(got1, want1);
        if (refB) {
            EXPECT_EQ(r.second, refB->read(want2.data(), c.frameBytes));
            EXPECT_EQ(aheadB->atEnd(), refB->atEnd());
            ASSERT_EQ(got2, want2);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, ReadAheadMatchesPlainReads,
    ::testing::Values(Case{"SmallFrames", 100, 1000, -1, 0}, Case{"SmallFramesShortTail", 100, 1050, -1, 0},
                      Case{"OneChunkExactly", kChunk, 3 * kChunk, -1, 0},
                      Case{"OneByteOverAChunk", kChunk + 1, 3 * (kChunk + 1), -1, 0},
                      Case{"TailEndsOnAChunkBoundary", 2 * kChunk + 100, 2 * (2 * kChunk + 100) + kChunk, -1, 0},
                      Case{"TailEndsInsideTheLastChunk", 2 * kChunk + 100, 2 * kChunk + 150, -1, 0},
                      Case{"HeaderOffsetsEveryChunk", kChunk + 7, 512 + 3 * (kChunk + 7), -1, 512},
                      Case{"EmptyFile", kChunk + 1, 0, -1, 0},
                      Case{"SecondStreamShorter", kChunk * 3 / 2, 4 * kChunk * 3 / 2, kChunk * 2, 0},
                      Case{"SecondStreamLonger", 1000, 2500, 9000, 0}),
    [](const ::testing::TestParamInfo<Case> &i) { return std::string(i.param.name); });

TEST(ReadAhead, DroppingAReadLeavesTheStreamsFreeToMove)
{
    TempDir dir;
    const int64_t frame = kChunk + 300;
    const QString a = dir.writeSized("a.raw", 4 * frame);
    auto s = FrameStream::openFile(a);
    std::vector<uint8_t> buf(static_cast<size_t>(frame)), want(static_cast<size_t>(frame));
    ReadAhead ahead;
    ahead.start(s, buf.data(), nullptr, nullptr, frame);
    ahead.drop();
    EXPECT_FALSE(ahead.pending());
    // The dropped read moved the stream on by a frame, as a read would; a seek puts it anywhere again.
    EXPECT_EQ(s->position(), uint64_t(frame));
    ASSERT_TRUE(s->seek(uint64_t(3 * frame)));
    ahead.start(s, buf.data(), nullptr, nullptr, frame);
    EXPECT_EQ(ahead.take().first, frame);
    auto ref = FrameStream::openFile(a);
    ASSERT_TRUE(ref->seek(uint64_t(3 * frame)));
    ref->read(want.data(), frame);
    EXPECT_EQ(buf, want);
    // Taking or dropping with nothing pending does nothing.
    EXPECT_EQ(ahead.take().first, 0);
    ahead.drop();
}

TEST(ReadAhead, AFileThatShrankBetweenReadsEndsShort)
{
    TempDir dir;
    const int64_t frame = 2 * kChunk;
    const QString a = dir.writeSized("a.raw", 3 * frame);
    auto s = FrameStream::openFile(a);
    std::vector<uint8_t> buf(static_cast<size_t>(frame));
    ReadAhead ahead;
    ahead.start(s, buf.data(), nullptr, nullptr, frame);
    EXPECT_EQ(ahead.take().first, frame);
    ASSERT_TRUE(QFile::resize(a, frame + kChunk / 2));
    ahead.start(s, buf.data(), nullptr, nullptr, frame);
    EXPECT_EQ(ahead.take().first, kChunk / 2);
    EXPECT_TRUE(s->atEnd());
}

} // namespace
