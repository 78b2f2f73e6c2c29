#include "ui/StatusText.h"
#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "support/TempFiles.h"
#include "ui/MRUFList.h"

#include <QMenu>
#include <gtest/gtest.h>

using namespace kavri::ui;

namespace {

VideoProps seq(uint64_t frames, double rate, uint64_t size)
{
    VideoProps p;
    p.width = 352;
    p.height = 288;
    p.frameRate = rate;
    p.frameCount = frames;
    p.fileSize = size;
    p.fileName = "/x/clip.yuv";
    return p;
}

TEST(StatusLine, Formats)
{
    EXPECT_EQ(statusLine(seq(100, 25.0, 15206400)), "352x288@25Hz  100 frames   0'4\"00   14.502MB");
    EXPECT_EQ(statusLine(seq(1, 25.0, 152064)), "352x288@25Hz  1 frame   0'0\"04   0.145MB");
    EXPECT_EQ(statusLine(seq(0, 25.0, 10)), "352x288@25Hz  0 frames   0'0\"00   0.000MB");
    EXPECT_EQ(statusLine(seq(4500, 29.97, 0)), "352x288@30Hz  4500 frames   2'30\"15   0.000MB");
    EXPECT_EQ(statusLine(seq(90000, 50.0, 0)), "352x288@50Hz  90000 frames   30'0\"00   0.000MB");
    EXPECT_TRUE(statusLine(seq(5000000000ull, 60.0, 0)).contains("@60Hz  5000000000 frames   "));
    VideoProps in = seq(0, 25.0, 0);
    in.fileName = "-";
    EXPECT_EQ(statusLine(in), "352x288@25Hz  stdin");
    EXPECT_EQ(statusLine(seq(10, 0.0, 0)), "352x288@0Hz  10 frames   0'0\"00   0.000MB");
}

TEST(FormatProblem, SaysWhenTheFileIsShorterThanOneFrame)
{
    kavri::test::TempDir dir;
    const struct {
        const char *name;
        qint64 size;
        uint32_t header;
        int32_t width, height;
        const char *want;
    } rows[] = {
        {"1080p 4:2:0 in 1000 bytes", 1000, 0, 1920, 1080,
         "the file holds 1000 bytes, less than one frame of 3110400 bytes"},
        {"one byte short", 38015, 0, 176, 144, "the file holds 38015 bytes, less than one frame of 38016 bytes"},
        {"exactly one frame", 38016, 0, 176, 144, ""},
        {"header eats the frame", 38016, 512, 176, 144,
         "the file holds 37504 bytes after its 512-byte header, less than one frame of 38016 bytes"},
        {"header beyond the end", 100, 512, 176, 144,
         "the file holds 0 bytes after its 512-byte header, less than one frame of 38016 bytes"},
        {"empty file", 0, 0, 176, 144, "the file holds 0 bytes, less than one frame of 38016 bytes"},
    };
    for (const auto &r : rows) {
        VideoProps p;
        p.fileName = dir.writeSized(QString::fromLatin1(r.name) + ".bin", r.size);
        p.width = r.width;
        p.height = r.height;
        p.format = YUV_p420;
        p.headerBytes = r.header;
        const uint32_t mask = kavri::validateProps(p);
        EXPECT_EQ(kavri::isPlayable(mask), *r.want == 0) << r.name;
        EXPECT_EQ(formatProblem(p), QString::fromLatin1(r.want)) << r.name;
    }
    VideoProps in;
    in.fileName = "-";
    in.frameBytes = 38016;
    EXPECT_TRUE(formatProblem(in).isEmpty()) << "standard input has no size to be short of";

    VideoProps wide;
    wide.fileName = "-";
    wide.width = kavri::kMaxPictureWidth + 1;
    wide.height = 2;
    wide.format = BW;
    EXPECT_FALSE(kavri::isPlayable(kavri::validateProps(wide)));
    EXPECT_TRUE(formatProblem(wide).startsWith(QStringLiteral("a 67108864x2 picture cannot be displayed")))
        << formatProblem(wide).toStdString();
}

TEST(ViewStatus, DepthChannelAndDifferenceView)
{
    const struct {
        videoFormat_t format;
        int32_t bits, channel;
        bool diff;
        int32_t view;
        const char *want;
    } rows[] = {
        {YUV_p420, 8, 0, false, 0, "8 bit  full colour"},
        {YUV_p420, 10, 1, false, 0, "10 bit  Y"},
        {YUV_nv12, 8, 2, false, 0, "8 bit  U"},
        {YUV_v210, 10, 3, false, 0, "10 bit  V"},
        {BGR_planar, 8, 1, false, 0, "8 bit  R"}, // components unpack as R G B whatever the storage order
        {GBRA_planar, 12, 3, false, 0, "12 bit  B"},
        {BW, 16, 2, false, 0, "16 bit  luma"}, // luma has no channels to choose
        {YUV_p420, 8, 0, true, 0, "8 bit  full colour  difference"},
        {YUV_p420, 8, 1, true, 1, "8 bit  Y  A"},
        {RGB_i444, 8, 0, true, 2, "8 bit  full colour  B"},
    };
    for (const auto &r : rows) {
        VideoProps p;
        p.format = r.format;
        p.bitDepth = r.bits;
        EXPECT_EQ(viewStatus(p, r.channel, r.diff, r.view), QString::fromLatin1(r.want)) << r.want;
    }
}

TEST(ViewStatus, NamesTheColourReadingInUse)
{
    VideoProps p;
    p.format = YUV_p420;
    p.bitDepth = 10;
    p.colour.matrix = kavri::ColourMatrix::BT709;
    p.colour.range = kavri::ColourRange::Limited;
    EXPECT_EQ(viewStatus(p, 0, false, 0), QStringLiteral("10 bit  full colour  BT.709 limited"));
    EXPECT_EQ(viewStatus(p, 1, false, 0), QStringLiteral("10 bit  Y")); // a component shows stored samples
    p.colour.matrix = kavri::ColourMatrix::BT2020;
    p.colour.transfer = kavri::ColourTransfer::PQ;
    p.colour.chroma = kavri::ChromaSiting::Left;
    EXPECT_EQ(viewStatus(p, 0, true, 0),
              QStringLiteral("10 bit  full colour  BT.2020 limited chroma left PQ 1000 nits  difference"));
}

TEST(WindowTitle, NamesAndDifference)
{
    EXPECT_EQ(windowTitle("/data/a.yuv", ""), "a.yuv");
    EXPECT_EQ(windowTitle("-", ""), "stdin");
    EXPECT_EQ(windowTitle("/data/a.yuv", "/other/b.yuv"), "a.yuv vs. b.yuv");
}

TEST(RecentFiles, NewestFirstWithoutDuplicatesAtMostTen)
{
    QStringList l;
    for (int i = 0; i < 11; ++i) l = MRUFList::withRecent(l, QString("/f%1").arg(i));
    EXPECT_EQ(l.size(), 10);
    EXPECT_EQ(l.first(), "/f10");
    EXPECT_EQ(l.last(), "/f1") << "the eleventh file pushes the oldest out";
    l = MRUFList::withRecent(l, "/f5");
    EXPECT_EQ(l.size(), 10);
    EXPECT_EQ(l.first(), "/f5");
    EXPECT_EQ(l.count("/f5"), 1);
}

TEST(RecentFiles, MenuShowsTheStoredList)
{
    QMenu menu;
    MRUFList list(nullptr, &menu);
    list.add("/a/one.yuv");
    list.add("/a/two.yuv");
    list.add("/a/one.yuv");
    ASSERT_EQ(list.actions().size(), 10u);
    EXPECT_TRUE(list.actions()[0]->isVisible());
    EXPECT_EQ(list.actions()[0]->data().toString(), "/a/one.yuv");
    EXPECT_EQ(list.actions()[1]->data().toString(), "/a/two.yuv");
    EXPECT_FALSE(list.actions()[2]->isVisible());
}

} // namespace
