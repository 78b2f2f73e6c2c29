#include "formats/FrameSize.h"
#include "formats/StreamPath.h"
#include "support/TempFiles.h"

#include <QFile>
#include <gtest/gtest.h>
#include <vector>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace kavri;

namespace {

struct BytesCase {
    int32_t format, container, w, h;
    uint32_t frame, alloc;
};

void PrintTo(const BytesCase &c, std::ostream *os)
{
    *os << "format " << c.format << " container " << c.container << " " << c.w << "x" << c.h;
}

class FrameBytes : public ::testing::TestWithParam<BytesCase> {};

TEST_P(FrameBytes, MatchesTheLayoutRule)
{
    const BytesCase &c = GetParam();
    EXPECT_EQ(frameBytes(c.format, c.container, c.w, c.h), c.frame);
    EXPECT_EQ(allocationSize(c.format, c.container, c.w, c.h), c.alloc);
}

// 352x288: S = 101376 at 8 bits, 202752 at 16 bits.
constexpr BytesCase kCif[] = {
    {YUV_p420, 8, 352, 288, 152064, 152064},   {YUV_p420, 16, 352, 288, 304128, 304128},
    {YUV_p422, 8, 352, 288, 202752, 202752},   {YUV_p444, 8, 352, 288, 304128, 304128},
    {YUV_p410, 8, 352, 288, 126720, 126720},   {YUV_p411, 8, 352, 288, 152064, 152064},
    {YUV_uyvy, 8, 352, 288, 202752, 202752},   {YUV_yuyv, 8, 352, 288, 202752, 202752},
    {YUV_yuy2, 16, 352, 288, 405504, 405504},  {YUV_nv12, 8, 352, 288, 152064, 152064},
    {RGB_i444, 8, 352, 288, 304128, 304128},   {RGBA_i444, 8, 352, 288, 405504, 405504},
    {BGR_i444, 16, 352, 288, 608256, 608256},  {BGRA_i444, 8, 352, 288, 405504, 405504},
    {RGB_planar, 8, 352, 288, 304128, 304128}, {RGBA_planar, 8, 352, 288, 405504, 405504},
    {RBG_planar, 8, 352, 288, 304128, 304128}, {RBGA_planar, 16, 352, 288, 811008, 811008},
    {BGR_planar, 8, 352, 288, 304128, 304128}, {BGRA_planar, 8, 352, 288, 405504, 405504},
    {BRG_planar, 8, 352, 288, 304128, 304128}, {BRGA_planar, 8, 352, 288, 405504, 405504},
    {GRB_planar, 8, 352, 288, 304128, 304128}, {GRBA_planar, 8, 352, 288, 405504, 405504},
    {GBR_planar, 8, 352, 288, 304128, 304128}, {GBRA_planar, 8, 352, 288, 405504, 405504},
    {BW, 8, 352, 288, 101376, 101376},         {BW, 16, 352, 288, 202752, 202752},
};
INSTANTIATE_TEST_SUITE_P(Cif, FrameBytes, ::testing::ValuesIn(kCif));

constexpr BytesCase kOddAndPadded[] = {
    // Odd sizes truncate; 4:2:0 and nv12 allocate 2*w slack bytes for an odd height (not scaled by B).
    {YUV_p420, 8, 3, 3, 13, 19},
    {YUV_p420, 16, 3, 3, 27, 33},
    {YUV_nv12, 8, 5, 3, 22, 32},
    {YUV_p420, 8, 4, 4, 24, 24},
    // 4:1:0: q = w/4, c = q*h/2; slack (h&1)*w*2/4.
    {YUV_p410, 8, 6, 4, 28, 28},
    {YUV_p410, 8, 6, 3, 20, 23},
    {YUV_p410, 16, 7, 5, 78, 81},
    // 4:1:1 drops the remainder of w/4.
    {YUV_p411, 8, 6, 2, 16, 16},
    {YUV_p411, 16, 9, 1, 26, 26},
    {YUV_p422, 8, 3, 3, 18, 18},
    {YUV_uyvy, 8, 3, 1, 6, 6},
    {BW, 8, 1, 1, 1, 1},
    // v210: rows of (8w/3) bytes rounded up to 128; the container plays no part.
    {YUV_v210, 10, 1920, 1080, 5529600, 5529600},
    {YUV_v210, 16, 1920, 1080, 5529600, 5529600},
    {YUV_v210, 10, 1280, 720, 2488320, 2488320},
    {YUV_v210, 10, 6, 2, 256, 256},
    {YUV_v210, 10, 1, 1, 128, 128},
    {YUV_v210, 10, 48, 1, 128, 128},
    {YUV_v210, 10, 49, 1, 256, 256},
    {YUV_p422, 16, 1920, 1080, 8294400, 8294400},
    // 8K at 16 bits fits easily.
    {RGBA_planar, 16, 7680, 4320, 265420800, 265420800},
};
INSTANTIATE_TEST_SUITE_P(OddAndPadded, FrameBytes, ::testing::ValuesIn(kOddAndPadded));

// The layouts after the 27: whole chroma samples for odd sizes, their own word sizes.
constexpr BytesCase kDescribed[] = {
    {YUV_p010, 16, 1920, 1080, 6220800, 6220800},
    {YUV_p010, 8, 1920, 1080, 6220800, 6220800}, // the container of the record plays no part
    {YUV_nv21, 8, 3, 3, 17, 17},                 // 9 luma + 2 rows of 2 V U pairs
    {YUV_nv16, 8, 3, 3, 21, 21},
    {YUV_p440, 8, 4, 3, 28, 28},  // 12 luma + 2 x (4 x 2) chroma
    {YUV_y210, 16, 5, 2, 48, 48}, // 3 pairs of 4 words a row
    {YUV_y410, 16, 3, 2, 24, 24},
    {RGB_565, 8, 3, 2, 12, 12},
    {BAYER_rggb10p, 16, 5, 2, 20, 20}, // 2 groups of 5 bytes a row
    {BAYER_gbrg, 16, 5, 2, 20, 20},
    {YUV_yv12, 16, 4, 4, 48, 48},
};
INSTANTIATE_TEST_SUITE_P(Described, FrameBytes, ::testing::ValuesIn(kDescribed));

constexpr BytesCase kRefused[] = {
    {0, 8, 352, 288, 0, 0},
    {kLayoutCount + 1, 8, 352, 288, 0, 0},
    {-1, 8, 352, 288, 0, 0},
    {YUV_p420, 8, 0, 288, 0, 0},
    {YUV_p420, 8, -352, 288, 0, 0},
    {YUV_p420, 8, 352, -288, 0, 0},
    // Beyond 32 bits a byte count would wrap; it is refused instead.
    {RGBA_i444, 16, 99999, 99999, 0, 0},
    {YUV_v210, 10, 2147483647, 2147483647, 0, 0},
    {BW, 16, 65536, 32768, 0, 0},
    {BW, 16, 65535, 32768, 4294901760u, 4294901760u},
    {YUV_p420, 1 << 30, 352, 288, 0, 0},
    {YUV_p420, -8, 352, 288, 0, 0},
};
INSTANTIATE_TEST_SUITE_P(Refused, FrameBytes, ::testing::ValuesIn(kRefused));

TEST(FrameCount, CountsWholeFramesAfterTheHeader)
{
    test::TempDir dir;
    const QString f = dir.writeSized("ten.yuv", 1520640 + 100);
    uint64_t size = 0;
    EXPECT_EQ(frameCountOf(f, 152064, 0, &size), 10u);
    EXPECT_EQ(size, 1520740u);
    EXPECT_EQ(frameCountOf(f, 152064, 100, &size), 10u);
    EXPECT_EQ(frameCountOf(f, 152064, 101, &size), 9u);
}

TEST(FrameCount, EdgeCasesGiveZero)
{
    test::TempDir dir;
    const QString small = dir.writeSized("small.yuv", 1000);
    uint64_t size = 99;
    EXPECT_EQ(frameCountOf(small, 152064, 0, &size), 0u);
    EXPECT_EQ(size, 1000u);
    // A header beyond the end of the file does not wrap into a huge count.
    EXPECT_EQ(frameCountOf(small, 10, 2000, &size), 0u);
    EXPECT_EQ(frameCountOf(small, 10, 1000, &size), 0u);
    EXPECT_EQ(frameCountOf(small, 0, 0, &size), 0u);
    EXPECT_EQ(frameCountOf(dir.path("missing.yuv"), 10, 0, &size), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(frameCountOf(small, 1, 0, nullptr), 1000u);
}

// What is read as a stream is decided by the kind of entry alone, without opening it: a pipe that
// nobody writes to must not stall the question.
TEST(StreamPath, PipesAndDevicesAreStreamsFilesAndFoldersAreNot)
{
    kavri::test::TempDir dir;
    const QString file = dir.writeSized("f.yuv", 10);
    const QString link = dir.path("link.yuv");
    ASSERT_TRUE(QFile::link(file, link));
    struct Row {
        QString path;
        bool stream;
    };
    std::vector<Row> rows = {
        {"-", true}, {file, false}, {link, false}, {dir.dir(), false}, {dir.path("missing.yuv"), false}, {"", false}};
#ifdef Q_OS_UNIX
    const QString fifo = dir.path("p.yuv");
    if (::mkfifo(QFile::encodeName(fifo).constData(), 0600) == 0) {
        rows.push_back({fifo, true});
        const QString fifoLink = dir.path("plink.yuv");
        if (QFile::link(fifo, fifoLink)) rows.push_back({fifoLink, true});
        uint64_t size = 1;
        EXPECT_EQ(frameCountOf(fifo, 16, 0, &size), 0u) << "a pipe is never opened to be measured";
        EXPECT_EQ(size, 0u);
    }
#endif
    for (const Row &r : rows) EXPECT_EQ(isStreamPath(r.path), r.stream) << r.path.toStdString();
}

} // namespace
