#include "formats/SideFile.h"
#include "formats/FormatDetector.h"
#include "support/TempFiles.h"

#include <QDir>
#include <gtest/gtest.h>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace kavri;

namespace {

TEST(SideFileCandidates, ExtensionReplacedThenHiddenName)
{
    EXPECT_EQ(sideFileCandidates("clip.yuv"), QStringList({"clip.hdr", "..hdr"}));
    EXPECT_EQ(sideFileCandidates("/data/clip.yuv"), QStringList({"/data/clip.hdr", "..hdr"}));
    EXPECT_EQ(sideFileCandidates("/data/clip"), QStringList({"/data/clip.hdr", "..hdr"}));
    // The last "." may lie in a directory name.
    EXPECT_EQ(sideFileCandidates("/a.b/clip"), QStringList({"/a.hdr", "..hdr"}));
    // Only the pair "/\" splits; a lone "\" or "/" does not.
    EXPECT_EQ(sideFileCandidates("C:\\data\\clip.yuv"), QStringList({"C:\\data\\clip.hdr", "..hdr"}));
    EXPECT_EQ(sideFileCandidates("/data/\\clip.yuv"), QStringList({"/data/\\clip.hdr", "/data/.clip.hdr"}));
    EXPECT_EQ(sideFileCandidates("/d/\\x/\\clip.tar.yuv"),
              QStringList({"/d/\\x/\\clip.tar.hdr", "/d/\\x/.clip.tar.hdr"}));
    EXPECT_TRUE(sideFileCandidates("a.y").isEmpty());
    EXPECT_EQ(sideFileCandidates("a.yu").size(), 2);
}

struct LinesCase {
    const char *name;
    const char *text;
    // Expected values; the record starts with width 7, height 5, rate 1.0, format uyvy, offset 3.
    int32_t width, height;
    double rate;
    videoFormat_t format;
    int32_t bits;
    uint32_t offset;
    bool flipped, anamorphic, interlaced;
};

void PrintTo(const LinesCase &c, std::ostream *os) { *os << c.name; }

class SideFileLines : public ::testing::TestWithParam<LinesCase> {};

TEST_P(SideFileLines, Apply)
{
    const LinesCase &c = GetParam();
    VideoProps p;
    p.width = 7;
    p.height = 5;
    p.frameRate = 1.0;
    p.format = YUV_uyvy;
    p.headerBytes = 3;
    applySideFile(QByteArray(c.text), p);
    EXPECT_EQ(p.width, c.width);
    EXPECT_EQ(p.height, c.height);
    EXPECT_DOUBLE_EQ(p.frameRate, c.rate);
    EXPECT_EQ(p.format, c.format);
    EXPECT_EQ(p.bitDepth, c.bits);
    EXPECT_EQ(p.headerBytes, c.offset);
    EXPECT_EQ(p.flipped, c.flipped);
    EXPECT_EQ(p.anamorphic, c.anamorphic);
    EXPECT_EQ(p.interlaced, c.interlaced);
}

const LinesCase kLines[] = {
    {"empty", "", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"basic", "width=352\nheight=288\nformat=yuv420\n", 352, 288, 1.0, YUV_p420, 8, 3, false, false, false},
    {"no_final_newline", "width=352\nheight=288", 352, 288, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"crlf", "width=352\r\nformat=yuv444\r\nflipped=false\r\n", 352, 5, 1.0, YUV_p444, 8, 3, false, false, false},
    {"upper_case_and_blanks", "Width = 720\nHEIGHT=  576", 720, 576, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"key_prefix", "widthpx=720\nheightlines=480\n", 720, 480, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"leading_blank_key_ignored", " width=720\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"digits_then_text", "width=352px\nheight=288=5\n", 352, 288, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"no_digits_is_zero", "width=abc\n", 0, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"too_big_ignored", "width=99999999999\nheight=2147483648\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"int32_max", "width=2147483647\n", 2147483647, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"negative_width", "width=-5\n", -5, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"rate_fraction", "framerate=29.97\n", 7, 5, 29.97, YUV_uyvy, 8, 3, false, false, false},
    {"rate_blank_int", "framerate= 50fps\n", 7, 5, 50.0, YUV_uyvy, 8, 3, false, false, false},
    {"rate_text", "framerate=fast\n", 7, 5, 0.0, YUV_uyvy, 8, 3, false, false, false},
    {"offset", "offset=512\n", 7, 5, 1.0, YUV_uyvy, 8, 512, false, false, false},
    {"offset_negative_ignored", "offset=-1\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"offset_4g", "offset=4294967295\n", 7, 5, 1.0, YUV_uyvy, 8, 4294967295u, false, false, false},
    {"offset_past_4g_ignored", "offset=4294967296\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"bits", "bits=10\n", 7, 5, 1.0, YUV_uyvy, 10, 3, false, false, false},
    {"bitdepth", "bitdepth=12\n", 7, 5, 1.0, YUV_uyvy, 12, 3, false, false, false},
    {"bitdepth_prefix", "bitdepthluma=12\n", 7, 5, 1.0, YUV_uyvy, 12, 3, false, false, false},
    // "bits" must be the whole key.
    {"bits_with_blank", "bits =10\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"bits_prefix", "bitsluma=10\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"flipped_no", "flipped=no\n", 7, 5, 1.0, YUV_uyvy, 8, 3, true, false, false},
    {"flipped_empty", "flipped=\n", 7, 5, 1.0, YUV_uyvy, 8, 3, true, false, false},
    {"flipped_false", "flipped=false\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"flipped_FALSE", "flipped=FALSE\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"flags", "anamorphic=1\ninterlaced=yes\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, true, true},
    {"flags_off", "anamorphic=False\ninterlaced=not false\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"no_equals_skipped", "width 352\n=5\n\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"unknown_key", "depth=10\ncolour=rgb\n", 7, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
    {"later_line_wins", "width=10\nwidth=20\n", 20, 5, 1.0, YUV_uyvy, 8, 3, false, false, false},
};

INSTANTIATE_TEST_SUITE_P(Lines, SideFileLines, ::testing::ValuesIn(kLines));

struct FormatWordCase {
    const char *value;
    videoFormat_t format; // the record starts with RGBA_planar
};

class SideFileFormatWord : public ::testing::TestWithParam<FormatWordCase> {};

TEST_P(SideFileFormatWord, FirstContainedWordDecides)
{
    VideoProps p;
    p.format = RGBA_planar;
    applySideFile(QByteArray("format=") + GetParam().value, p);
    EXPECT_EQ(p.format, GetParam().format) << GetParam().value;
}

// The lone "y" is tested fourth: anything with a "y" beyond the three planar words is luma only.
const FormatWordCase kFormatWords[] = {
    {"yuv420", YUV_p420},
    {"YUV422", YUV_p422},
    {"planar yuv444", YUV_p444},
    {"y", BW},
    {"yuv411", BW},
    {"yuv410", BW},
    {"uyvy", BW},
    {"yuyv", BW},
    {"yuy2", BW},
    {"gray", BW},
    {"rgb24", RGB_i444},
    {"rgb32", RGBA_i444},
    {"bgr24", BGR_i444},
    {"bgr32", BGRA_i444},
    {"rgb", RGBA_planar},
    {"", RGBA_planar},
    {"nv12", RGBA_planar},
};

INSTANTIATE_TEST_SUITE_P(Words, SideFileFormatWord, ::testing::ValuesIn(kFormatWords));

TEST(SideFile, PlaneStridesAndOffsets)
{
    VideoProps p;
    applySideFile("stride=2048, 1024,1024\nplaneoffsets=0,4194304,5242880\n", p);
    EXPECT_EQ(p.planeStride, (std::array<uint32_t, 4>{2048, 1024, 1024, 0}));
    EXPECT_EQ(p.planeOffset, (std::array<uint64_t, 4>{0, 4194304, 5242880, 0}));
    // Anything unreadable leaves the record as it was: too many planes, a negative or absurd number.
    for (const char *bad : {"stride=1,2,3,4,5\n", "stride=-8\n", "stride=99999999999\n", "planeoffsets=0,-1\n"}) {
        VideoProps q;
        applySideFile(bad, q);
        EXPECT_EQ(q.planeStride, (std::array<uint32_t, 4>{})) << bad;
        EXPECT_EQ(q.planeOffset, (std::array<uint64_t, 4>{})) << bad;
    }
    // "strides" is not the key.
    VideoProps r;
    applySideFile("strides=64\n", r);
    EXPECT_EQ(r.planeStride[0], 0u);
}

TEST(SideFile, CapDropsTheCutLine)
{
    // The cap falls inside the digits of "width=1920"; the cut line and all after it are ignored.
    QByteArray text = "height=288\n";
    text += QByteArray(kMaxSideFileBytes - text.size() - 8, '#') + '\n';
    text += "width=1920\nformat=yuv444\n";
    ASSERT_GT(text.size(), kMaxSideFileBytes);
    VideoProps p;
    applySideFile(text, p);
    EXPECT_EQ(p.height, 288);
    EXPECT_EQ(p.width, 0);
    EXPECT_EQ(p.format, YUV_p420);
}

TEST(SideFile, DetectedRecordIgnoresTheName)
{
    test::TempDir dir;
    const QString video = dir.write("clip_rgb_1920x1080_60hz.yuv", QByteArray(100, 0));
    dir.write("clip_rgb_1920x1080_60hz.hdr", "width=352\nheight=288\nformat=yuv420\n");
    FormatDetector d;
    const VideoProps &p = d.detect(video);
    EXPECT_EQ(d.sourceName(), "hdr");
    EXPECT_EQ(p.width, 352);
    EXPECT_EQ(p.height, 288);
    EXPECT_EQ(p.format, YUV_p420);
    EXPECT_EQ(p.bitDepth, 8);
    EXPECT_EQ(p.frameRate, 0.0);
    EXPECT_EQ(p.fileName, video);
}

TEST(SideFile, EmptySideFileStillAnswers)
{
    test::TempDir dir;
    dir.write("clip_rgb.hdr", "");
    FormatDetector d;
    const VideoProps &p = d.detect(dir.path("clip_rgb.raw"));
    EXPECT_EQ(d.sourceName(), "hdr");
    EXPECT_EQ(p.format, YUV_p420);
    EXPECT_EQ(p.width, 0);
    EXPECT_EQ(p.height, 0);
    EXPECT_EQ(p.bitDepth, 8);
}

TEST(SideFile, HiddenCandidateAfterSlashBackslash)
{
    test::TempDir dir;
    dir.write(".clip.hdr", "width=64\nheight=48\n");
    FormatDetector d;
    const VideoProps &p = d.detect(dir.dir() + "/\\clip.yuv");
    EXPECT_EQ(d.sourceName(), "hdr");
    EXPECT_EQ(p.width, 64);
    // Without the pair, the hidden candidate of an ordinary path is not looked for.
    d.detect(dir.path("clip.yuv"));
    EXPECT_EQ(d.sourceName(), "name");
}

TEST(SideFile, DotDotHdrInTheCurrentDirectory)
{
    test::TempDir dir;
    dir.write("..hdr", "width=32\nheight=16\n");
    const QString old = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.dir()));
    FormatDetector d;
    const int width = d.detect("/nonexistent/clip.yuv").width;
    const QString source = d.sourceName();
    QDir::setCurrent(old);
    EXPECT_EQ(source, "hdr");
    EXPECT_EQ(width, 32);
}

TEST(SideFile, BinaryGarbageAnswersWithDefaults)
{
    test::TempDir dir;
    QByteArray junk(300 * 1024, '\0');
    for (int i = 0; i < junk.size(); ++i) junk[i] = char((i * 131 + 7) & 0xff);
    dir.write("x.hdr", junk);
    FormatDetector d;
    d.detect(dir.path("x.yuv"));
    EXPECT_EQ(d.sourceName(), "hdr");
    EXPECT_EQ(d.result().bitDepth, 8);
}

TEST(SideFile, DirectoryOrPipeIsNotASideFile)
{
    test::TempDir dir;
    ASSERT_TRUE(QDir(dir.dir()).mkdir("a.hdr"));
    FormatDetector d;
    d.detect(dir.path("a.yuv"));
    EXPECT_EQ(d.sourceName(), "name");
#ifdef Q_OS_UNIX
    // Opening a FIFO for reading would block until a writer appears.
    ASSERT_EQ(::mkfifo(dir.path("b.hdr").toLocal8Bit().constData(), 0600), 0);
    d.detect(dir.path("b.yuv"));
    EXPECT_EQ(d.sourceName(), "name");
#endif
}

} // namespace
