#include "formats/Y4mHeader.h"
#include "formats/FormatDetector.h"
#include "formats/FormatSource.h"
#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/RememberedFormats.h"
#include "formats/Validation.h"
#include "support/TempFiles.h"

#include <gtest/gtest.h>

using namespace kavri;

namespace {

QByteArray line(const char *params) { return QByteArray("YUV4MPEG2 ") + params + "\n"; }

// A y4m file of `frames` frames of `frameBytes` bytes each (frame i filled with i + 1), then `tail`.
QByteArray y4mFile(const QByteArray &header, uint32_t frameBytes, int frames, const QByteArray &tail = {})
{
    QByteArray all = header;
    for (int i = 0; i < frames; ++i) all += "FRAME\n" + QByteArray(int(frameBytes), char(i + 1));
    return all + tail;
}

// ---- the colour tags ----

struct TagCase {
    const char *tag; // nullptr: no C parameter at all
    videoFormat_t layout;
    int32_t depth;
};

void PrintTo(const TagCase &c, std::ostream *os) { *os << (c.tag ? c.tag : "(none)"); }

class Y4mColourTags : public ::testing::TestWithParam<TagCase> {};

TEST_P(Y4mColourTags, GiveTheLayoutAndDepth)
{
    const TagCase &c = GetParam();
    const QByteArray params = QByteArray("W32 H16 F25:1") + (c.tag ? QByteArray(" C") + c.tag : QByteArray());
    const Y4mParse p = parseY4mHeader(line(params.constData()));
    ASSERT_TRUE(p.header) << p.error.toStdString();
    EXPECT_EQ(p.header->layout, c.layout);
    EXPECT_EQ(p.header->bitDepth, c.depth);
    VideoProps props;
    applyY4mHeader(*p.header, props);
    EXPECT_EQ(props.containerBits, c.depth > 8 ? 16 : 8);
    EXPECT_EQ(props.frameHeaderBytes, kY4mFrameHeaderBytes);
    EXPECT_EQ(frameBytes(props.format, props.containerBits, 32, 16), y4mFrameBytes(*p.header));
}

const TagCase kTags[] = {
    {nullptr, YUV_p420, 8},   {"420jpeg", YUV_p420, 8}, {"420paldv", YUV_p420, 8}, {"420mpeg2", YUV_p420, 8},
    {"420", YUV_p420, 8},     {"422", YUV_p422, 8},     {"444", YUV_p444, 8},      {"411", YUV_p411, 8},
    {"mono", BW, 8},          {"420p9", YUV_p420, 9},   {"420p10", YUV_p420, 10},  {"422p10", YUV_p422, 10},
    {"444p10", YUV_p444, 10}, {"420p12", YUV_p420, 12}, {"422p12", YUV_p422, 12},  {"444p12", YUV_p444, 12},
    {"420p14", YUV_p420, 14}, {"422p14", YUV_p422, 14}, {"444p14", YUV_p444, 14},  {"420p16", YUV_p420, 16},
    {"422p16", YUV_p422, 16}, {"444p16", YUV_p444, 16}, {"mono9", BW, 9},          {"mono10", BW, 10},
    {"mono12", BW, 12},       {"mono16", BW, 16},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mColourTags, ::testing::ValuesIn(kTags));

// ---- whole headers ----

TEST(Y4mHeader, FieldsInAnyOrderWithCommentsKept)
{
    const QByteArray bytes =
        line("XYSCSS=420P10 C422p10 A16:15 It F30000:1001 XCOLORRANGE=LIMITED H48  W64 Zfuture") + "FRAME\n";
    const Y4mParse p = parseY4mHeader(bytes);
    ASSERT_TRUE(p.header) << p.error.toStdString();
    const Y4mHeader &h = *p.header;
    EXPECT_EQ(h.width, 64);
    EXPECT_EQ(h.height, 48);
    EXPECT_EQ(h.rateNum, 30000);
    EXPECT_EQ(h.rateDen, 1001);
    EXPECT_EQ(h.interlace, 't');
    EXPECT_EQ(h.aspectNum, 16);
    EXPECT_EQ(h.aspectDen, 15);
    EXPECT_EQ(h.colour, "422p10");
    EXPECT_EQ(h.comments, (QList<QByteArray>{"YSCSS=420P10", "COLORRANGE=LIMITED"}));
    EXPECT_EQ(h.colourRange, "LIMITED");
    EXPECT_EQ(h.headerBytes, uint32_t(bytes.indexOf('\n') + 1));

    VideoProps props;
    applyY4mHeader(h, props);
    EXPECT_EQ(props.format, YUV_p422);
    EXPECT_EQ(props.width, 64);
    EXPECT_DOUBLE_EQ(props.frameRate, 30000.0 / 1001.0);
    EXPECT_TRUE(props.interlaced);
    EXPECT_EQ(props.headerBytes, h.headerBytes);
    // The range comment gives the colour reading's range.
    EXPECT_EQ(props.colour.range, ColourRange::Limited);
}

TEST(Y4mHeader, RangeCommentIsTheColourSource)
{
    test::TempDir dir;
    const QString limited = dir.write("tv.y4m", y4mFile(line("W8 H4 F25:1 Cmono XCOLORRANGE=LIMITED"), 32, 2));
    ResolvedFormat r = resolveFormat(limited, false);
    EXPECT_EQ(r.props.colour.range, ColourRange::Limited);
    EXPECT_EQ(r.colourSource, "y4m");
    const QString plain = dir.write("plain.y4m", y4mFile(line("W8 H4 F25:1 Cmono"), 32, 2));
    r = resolveFormat(plain, false);
    EXPECT_TRUE(r.props.colour.isDefault());
    EXPECT_EQ(r.colourSource, "default");
}

TEST(Y4mHeader, InterlaceLettersAndUnknownRate)
{
    for (const auto &[letter, interlaced] :
         {std::pair{"p", false}, {"t", true}, {"b", true}, {"m", true}, {"?", false}}) {
        const Y4mParse p = parseY4mHeader(line((QByteArray("W8 H8 F0:0 I") + letter).constData()));
        ASSERT_TRUE(p.header) << letter;
        VideoProps props;
        applyY4mHeader(*p.header, props);
        EXPECT_EQ(props.interlaced, interlaced) << letter;
        // An unknown rate is left for validation to default.
        EXPECT_LT(props.frameRate, 0.0);
    }
}

struct BadCase {
    const char *name;
    QByteArray bytes;
    const char *words; // part of the reason
};

void PrintTo(const BadCase &c, std::ostream *os) { *os << c.name; }

class Y4mBadHeaders : public ::testing::TestWithParam<BadCase> {};

TEST_P(Y4mBadHeaders, AreRefusedWithAReason)
{
    const BadCase &c = GetParam();
    const Y4mParse p = parseY4mHeader(c.bytes);
    EXPECT_FALSE(p.header);
    EXPECT_TRUE(p.error.contains(QLatin1String(c.words))) << p.error.toStdString();
}

const BadCase kBad[] = {
    {"garbage", QByteArray("\x00\x01garbage\n", 10), "does not start"},
    {"signature_without_blank", "YUV4MPEG2\nW8 H8\n", "does not start"},
    {"empty", QByteArray(), "does not start"},
    {"no_newline", "YUV4MPEG2 W8 H8 F25:1", "cut short"},
    {"cut_inside_the_signature", "YUV4MPEG2 ", "cut short"},
    {"endless_line", "YUV4MPEG2 " + QByteArray(int(kMaxY4mHeaderBytes), 'X'), "does not end"},
    {"no_width", line("H8 F25:1"), "no width"},
    {"no_height", line("W8 F25:1"), "no height"},
    {"zero_width", line("W0 H8"), "width"},
    {"negative_height", line("W8 H-8"), "height"},
    {"word_width", line("Wide H8"), "width"},
    {"huge_width", line("W9999999999 H8"), "width"},
    {"too_large_frame", line("W100000 H100000"), "too large"},
    {"rate_over_zero", line("W8 H8 F25:0"), "rate"},
    {"zero_rate", line("W8 H8 F0:1"), "rate"},
    {"rate_without_colon", line("W8 H8 F25"), "rate"},
    {"absurd_rate", line("W8 H8 F999999999:1"), "above"},
    {"bad_interlace", line("W8 H8 Ix"), "interlacing"},
    {"bad_aspect", line("W8 H8 A1"), "aspect"},
    {"unknown_colour", line("W8 H8 C420p8"), "colour"},
    {"deep_411", line("W8 H8 C411p10"), "colour"},
    {"alpha", line("W8 H8 C444alpha"), "alpha"},
    {"odd_420", line("W7 H5 C420"), "odd size"},
    {"odd_411", line("W6 H4 C411"), "odd size"},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mBadHeaders, ::testing::ValuesIn(kBad));

// ---- writing a header ----

class Y4mWrittenTags : public ::testing::TestWithParam<TagCase> {};

TEST_P(Y4mWrittenTags, ReadBackAsTheRecord)
{
    const TagCase &c = GetParam();
    VideoProps p;
    p.format = c.layout;
    p.width = 64;
    p.height = 36;
    p.bitDepth = c.depth;
    p.containerBits = c.depth > 8 ? 16 : 8;
    p.frameRate = 50.0;
    QString refusal;
    const QByteArray header = y4mStreamHeader(p, &refusal);
    ASSERT_FALSE(header.isEmpty()) << refusal.toStdString();
    const Y4mParse back = parseY4mHeader(header);
    ASSERT_TRUE(back.header) << back.error.toStdString();
    EXPECT_EQ(back.header->layout, c.layout);
    EXPECT_EQ(back.header->bitDepth, c.depth);
    EXPECT_EQ(back.header->width, 64);
    EXPECT_EQ(back.header->height, 36);
    EXPECT_EQ(back.header->rateNum, 50);
    EXPECT_EQ(back.header->rateDen, 1);
    EXPECT_EQ(back.header->interlace, 'p');
    EXPECT_EQ(back.header->headerBytes, uint32_t(header.size()));
}

INSTANTIATE_TEST_SUITE_P(All, Y4mWrittenTags, ::testing::ValuesIn(std::begin(kTags) + 1, std::end(kTags)));

TEST(Y4mWrite, RatesAndInterlacingAsFractionsAndLetters)
{
    struct Rate {
        double rate;
        const char *text;
    };
    for (const Rate &r : {Rate{25.0, " F25:1 "}, Rate{30000.0 / 1001.0, " F30000:1001 "}, Rate{29.97, " F29970:1000 "},
                          Rate{12.3456789, " F12345679:1000000 "}}) {
        VideoProps p;
        p.width = 16;
        p.height = 16;
        p.bitDepth = 8;
        p.containerBits = 8;
        p.frameRate = r.rate;
        p.interlaced = true;
        const QByteArray h = y4mStreamHeader(p, nullptr);
        EXPECT_TRUE(h.contains(r.text)) << h.toStdString();
        EXPECT_TRUE(h.contains(" It ")) << h.toStdString();
    }
}

struct RefusedCase {
    const char *name;
    videoFormat_t layout;
    int32_t depth, container;
    void (*edit)(VideoProps &);
};

void PrintTo(const RefusedCase &c, std::ostream *os) { *os << c.name; }

class Y4mRefusedRecords : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(Y4mRefusedRecords, GetNoHeaderAndAReason)
{
    const RefusedCase &c = GetParam();
    VideoProps p;
    p.format = c.layout;
    p.width = 64;
    p.height = 36;
    p.bitDepth = c.depth;
    p.containerBits = c.container;
    p.frameRate = 25.0;
    if (c.edit) c.edit(p);
    QString refusal;
    EXPECT_TRUE(y4mStreamHeader(p, &refusal).isEmpty());
    EXPECT_FALSE(refusal.isEmpty());
}

const RefusedCase kRefused[] = {
    {"rgb", RGB_i444, 8, 8, nullptr},
    {"planar_rgb", RGB_planar, 8, 8, nullptr},
    {"uyvy", YUV_uyvy, 8, 8, nullptr},
    {"yuyv", YUV_yuyv, 8, 8, nullptr},
    {"nv12", YUV_nv12, 8, 8, nullptr},
    {"v210", YUV_v210, 10, 16, nullptr},
    {"p410", YUV_p410, 8, 8, nullptr},
    {"deep_411", YUV_p411, 10, 16, nullptr},
    {"four_bits", YUV_p420, 4, 8, nullptr},
    {"eight_bits_in_words", YUV_p420, 8, 16, nullptr},
    {"signed", YUV_p420, 10, 16, [](VideoProps &p) { p.signedValues = true; }},
    {"big_endian", YUV_p420, 10, 16, [](VideoProps &p) { p.toggleEndianness = true; }},
    {"flipped", YUV_p420, 8, 8, [](VideoProps &p) { p.flipped = true; }},
    {"swapped_uv", YUV_p420, 8, 8, [](VideoProps &p) { p.swapUV = true; }},
    {"odd_size", YUV_p420, 8, 8, [](VideoProps &p) { p.width = 63; }},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mRefusedRecords, ::testing::ValuesIn(kRefused));

// ---- where the frames lie ----

TEST(FramePlacement, StrideAndOffsets)
{
    EXPECT_EQ(frameStride(100, 6), 106u);
    EXPECT_EQ(frameStride(100, 0), 100u);
    EXPECT_EQ(frameStride(0, 6), 0u);
    EXPECT_EQ(frameStride(0xfffffffcu, 6), 0u); // would not fit 32 bits
    EXPECT_EQ(framePrefixOffset(40, 6, 100, 0), 40u);
    EXPECT_EQ(frameOffset(40, 6, 100, 0), 46u);
    EXPECT_EQ(frameOffset(40, 6, 100, 3), 40u + 3 * 106u + 6u);
    EXPECT_EQ(frameOffset(40, 0, 100, 3), 340u);
    // 64-bit offsets far beyond 4 GiB.
    EXPECT_EQ(frameOffset(0, 6, 0xffffff00u, 10), 10 * (uint64_t(0xffffff00u) + 6) + 6);
}

TEST(FramePlacement, EachFileOfAPair)
{
    VideoProps p;
    p.frameBytes = 100;
    p.headerBytes = 40;
    // Two raw files share the record's header, worked out or not.
    EXPECT_EQ(frameDataOffset(p, 2, true), 240u);
    p.diffHeaderBytes = 40;
    EXPECT_EQ(frameDataOffset(p, 2, true), 240u);
    // A y4m file and a raw one: each its own.
    p.frameHeaderBytes = 6;
    p.diffHeaderBytes = 0;
    EXPECT_EQ(frameDataOffset(p, 2), 40u + 2 * 106u + 6u);
    EXPECT_EQ(frameDataOffset(p, 2, true), 200u);
    // Two y4m files with headers of different lengths.
    p.diffHeaderBytes = 50;
    p.diffFrameHeaderBytes = 6;
    EXPECT_EQ(frameDataOffset(p, 2, true), 50u + 2 * 106u + 6u);
    // A list of starts wins, and points past its last frame beyond it.
    p.diffFrameStarts = std::make_shared<const std::vector<uint64_t>>(std::vector<uint64_t>{60, 170});
    EXPECT_EQ(frameDataOffset(p, 1, true), 170u);
    EXPECT_EQ(frameDataOffset(p, 5, true), 270u);
}

struct CountCase {
    const char *name;
    int frames;
    QByteArray tail;
    uint64_t count;
};

void PrintTo(const CountCase &c, std::ostream *os) { *os << c.name; }

class Y4mFrameCounts : public ::testing::TestWithParam<CountCase> {};

TEST_P(Y4mFrameCounts, CountOnlyWholeFrames)
{
    const CountCase &c = GetParam();
    test::TempDir dir;
    const QByteArray header = line("W8 H4 F25:1 Cmono");
    const QString path = dir.write("clip.y4m", y4mFile(header, 32, c.frames, c.tail));
    const ResolvedFormat r = resolveFormat(path, false);
    ASSERT_TRUE(r.error.isEmpty()) << r.error.toStdString();
    EXPECT_EQ(r.source, "y4m");
    VideoProps p = r.props;
    const uint32_t mask = validateProps(p);
    EXPECT_EQ(p.frameCount, c.count);
    EXPECT_EQ(isPlayable(mask), c.count > 0);
    EXPECT_EQ(p.headerBytes, uint32_t(header.size()));
    EXPECT_EQ(p.frameBytes, 32u);
}

const CountCase kCounts[] = {
    {"none", 0, {}, 0},
    {"three", 3, {}, 3},
    {"frame_line_only", 3, "FRAME\n", 3},
    {"cut_last_frame", 3, "FRAME\n" + QByteArray(31, 'x'), 3},
    {"one_byte_short_of_a_line", 2, "FRAME", 2},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mFrameCounts, ::testing::ValuesIn(kCounts));

struct StartsCase {
    const char *name;
    std::vector<QByteArray> lines; // one FRAME line a frame
    QByteArray tail;
    uint64_t count;
};

void PrintTo(const StartsCase &c, std::ostream *os) { *os << c.name; }

class Y4mFrameStarts : public ::testing::TestWithParam<StartsCase> {};

TEST_P(Y4mFrameStarts, FollowLinesOfAnyLength)
{
    const StartsCase &c = GetParam();
    test::TempDir dir;
    const QByteArray header = line("W8 H4 F25:1 Cmono");
    QByteArray bytes = header;
    std::vector<uint64_t> starts;
    for (size_t i = 0; i < c.lines.size(); ++i) {
        bytes += c.lines[i];
        starts.push_back(uint64_t(bytes.size()));
        bytes += QByteArray(32, char('a' + i));
    }
    bytes += c.tail;
    const QString path = dir.write("lines.y4m", bytes);
    const ResolvedFormat r = resolveFormat(path, false);
    ASSERT_TRUE(r.error.isEmpty()) << r.error.toStdString();
    VideoProps p = r.props;
    ASSERT_TRUE(isPlayable(validateProps(p)));
    EXPECT_EQ(p.frameCount, c.count);
    ASSERT_TRUE(p.frameStarts);
    starts.resize(size_t(c.count));
    EXPECT_EQ(*p.frameStarts, starts);
    for (uint64_t i = 0; i < c.count; ++i) EXPECT_EQ(frameDataOffset(p, i), starts[size_t(i)]);
}

const StartsCase kStarts[] = {
    {"parameters_in_the_middle", {"FRAME\n", "FRAME\n", "FRAME Ixyz\n", "FRAME\n"}, {}, 4},
    {"parameters_first", {"FRAME Ip XA=1\n", "FRAME\n", "FRAME\n"}, {}, 3},
    {"every_line", {"FRAME Ib\n", "FRAME It\n"}, {}, 2},
    {"cut_frame_after_them", {"FRAME\n", "FRAME Xz\n"}, "FRAME Xq\n" + QByteArray(31, 'z'), 2},
    {"cut_line_after_them", {"FRAME Ip\n", "FRAME\n"}, "FRAM", 2},
};
INSTANTIATE_TEST_SUITE_P(All, Y4mFrameStarts, ::testing::ValuesIn(kStarts));

TEST(Y4mFrames, PlainLinesNeedNoListAndDamageIsNamed)
{
    test::TempDir dir;
    const QByteArray header = line("W8 H4 F25:1 Cmono");
    const ResolvedFormat plain = resolveFormat(dir.write("plain.y4m", y4mFile(header, 32, 3)), false);
    EXPECT_FALSE(plain.props.frameStarts); // evenly spaced: nothing to keep

    // A missing line is called damage, with its frame.
    for (const QByteArray &bad : {QByteArray("FRAMX\n"), QByteArray("FRAMES\n"), QByteArray("xxxxx\n")}) {
        QByteArray damaged = y4mFile(header, 32, 1) + "FRAME Ip\n" + QByteArray(32, 'c') + bad + QByteArray(32, 'd');
        const ResolvedFormat d = resolveFormat(dir.write("damaged.y4m", damaged), false);
        EXPECT_TRUE(d.error.contains(QLatin1String("frame 2"))) << d.error.toStdString();
        EXPECT_TRUE(d.error.contains(QLatin1String("damaged"))) << d.error.toStdString();
        VideoProps p = d.props;
        EXPECT_FALSE(isPlayable(validateProps(p)));
    }
    // A line that never ends is not a FRAME line.
    const ResolvedFormat endless = resolveFormat(
        dir.write("endless.y4m", y4mFile(header, 32, 1) + "FRAME " + QByteArray(int(kMaxY4mFrameLineBytes), 'x') +
                                     "\n" + QByteArray(32, 'e')),
        false);
    EXPECT_TRUE(endless.error.contains(QLatin1String("frame 1"))) << endless.error.toStdString();

    // The header's own reason reaches the detector's caller.
    const ResolvedFormat bad = resolveFormat(dir.write("bad.y4m", line("W8 F25:1")), false);
    EXPECT_TRUE(bad.error.contains(QLatin1String("height"))) << bad.error.toStdString();
}

TEST(Y4mFrames, TheHeaderBeatsTheNameAndARememberedRecord)
{
    test::TempDir dir;
    const QString path = dir.write("clip_1920x1080_rgb.yuv", y4mFile(line("W8 H4 C422"), 64, 2));
    VideoProps wrong;
    wrong.fileName = path;
    wrong.width = 4;
    wrong.height = 4;
    wrong.format = BW;
    wrong.bitDepth = 8;
    ASSERT_TRUE(isPlayable(validateProps(wrong)));
    storeRemembered(wrong);
    ASSERT_TRUE(lookupRemembered(path).has_value());
    const ResolvedFormat r = resolveFormat(path, true);
    EXPECT_EQ(r.source, "y4m");
    EXPECT_EQ(r.props.format, YUV_p422);
    EXPECT_EQ(r.props.width, 8);
    EXPECT_EQ(r.props.height, 4);
}

TEST(Y4mFrames, FilesWithoutTheSignatureAreReadAsBefore)
{
    test::TempDir dir;
    // Named like a y4m file, or starting almost like one: the name decides, and nothing moves the frames.
    for (const QString &name : {QStringLiteral("clip_16x8.y4m"), QStringLiteral("clip_16x8.yuv")}) {
        for (const QByteArray &start : {QByteArray("YUV4MPEG2"), QByteArray("yuv4mpeg2 W8 H8\n"), QByteArray()}) {
            QByteArray bytes = start;
            bytes.append(16 * 8 * 3 / 2 * 2 - bytes.size(), 'x');
            const QString path = dir.write(name, bytes);
            const ResolvedFormat r = resolveFormat(path, false);
            EXPECT_EQ(r.source, "name") << name.toStdString();
            EXPECT_TRUE(r.error.isEmpty());
            VideoProps p = r.props;
            ASSERT_TRUE(isPlayable(validateProps(p)));
            EXPECT_EQ(p.width, 16);
            EXPECT_EQ(p.headerBytes, 0u);
            EXPECT_EQ(p.frameHeaderBytes, 0u);
            EXPECT_EQ(p.frameCount, 2u);
        }
    }
}

// ---- pairs ----

TEST(Y4mPairs, EachFileKeepsItsOwnHeader)
{
    test::TempDir dir;
    const QString a = dir.write("a.y4m", y4mFile(line("W8 H4 Cmono"), 32, 3));
    const QString b = dir.write("b.y4m", y4mFile(line("W8 H4 F50:1 A1:1 Cmono XCOLORRANGE=FULL"), 32, 2));
    const QString raw = dir.write("raw.bw", QByteArray(32 * 4, 'r'));
    const QString other = dir.write("c.y4m", y4mFile(line("W8 H4 C444"), 96, 2));

    ResolvedFormat r = resolvePair(a, b, false);
    ASSERT_TRUE(r.error.isEmpty()) << r.error.toStdString();
    VideoProps p = r.props;
    p.fileName = a;
    p.diffFileName = b;
    ASSERT_TRUE(isPlayable(validateProps(p)));
    EXPECT_EQ(p.headerBytes, uint32_t(line("W8 H4 Cmono").size()));
    EXPECT_EQ(p.diffHeaderBytes, uint32_t(line("W8 H4 F50:1 A1:1 Cmono XCOLORRANGE=FULL").size()));
    EXPECT_EQ(p.diffFrameHeaderBytes, kY4mFrameHeaderBytes);
    EXPECT_EQ(p.frameCount, 2u);

    // A raw file against a y4m file is raw from its first byte, on either side.
    p.diffFileName = raw;
    ASSERT_TRUE(isPlayable(validateProps(p)));
    EXPECT_EQ(p.diffHeaderBytes, 0u);
    EXPECT_EQ(p.diffFrameHeaderBytes, 0u);
    EXPECT_EQ(p.frameCount, 3u);
    r = resolvePair(raw, a, false);
    ASSERT_TRUE(r.error.isEmpty()) << r.error.toStdString();
    EXPECT_EQ(r.source, "y4m");
    EXPECT_EQ(r.props.headerBytes, 0u);
    EXPECT_EQ(r.props.frameHeaderBytes, 0u);

    // Frames of another size cannot be compared.
    r = resolvePair(a, other, false);
    EXPECT_TRUE(r.error.contains(QLatin1String("size"))) << r.error.toStdString();

    // Two raw files keep sharing the record's header, as before.
    VideoProps rr;
    rr.fileName = raw;
    rr.diffFileName = dir.write("raw2.bw", QByteArray(10 + 32 * 2, 's'));
    rr.width = 8;
    rr.height = 4;
    rr.format = BW;
    rr.headerBytes = 10;
    ASSERT_TRUE(isPlayable(validateProps(rr)));
    EXPECT_EQ(rr.diffHeaderBytes, 10u);
    EXPECT_EQ(rr.frameCount, 2u);
}

} // namespace
