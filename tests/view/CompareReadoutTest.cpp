#include "view/CompareReadout.h"

#include "pixel/PatternGenerator.h"

#include <gtest/gtest.h>

using namespace kavri;
using namespace kavri::view;

namespace {

TEST(CompareReadoutText, ValuesOfEachAndDifferencesToTheFirst)
{
    std::vector<CompareSample> s(4);
    s[0] = {"a.yuv", {YUV_p420, 16, 128, 130, -1}, 8};
    s[1] = {"b.yuv", {YUV_p444, 68, 512, 512, -1}, 10}; // 10-bit: 17, 128, 128 in 8-bit units
    s[2] = {"c.rgb", {RGB_i444, 1, 2, 3, -1}, 8};       // no component in common with YUV
    s[3] = {"d.yuv", {BW, 10, 0, 0, -1}, 8};            // luma only
    EXPECT_EQ(compareReadoutText(s, false), QStringLiteral("1 a.yuv: Y 16 U 128 V 130\n"
                                                           "2 b.yuv: Y 68 U 512 V 512  \u0394 Y+1 U0 V-2\n"
                                                           "3 c.rgb: R 1 G 2 B 3\n"
                                                           "4 d.yuv: Y 10  \u0394 Y-6"));
}

TEST(CompareReadoutText, UnreadableSequenceAndHexAndAlpha)
{
    std::vector<CompareSample> s(3);
    s[0] = {"a", {RGBA_i444, 255, 16, 1, 200}, 8};
    s[1] = {"b", {FMT_UNKNOWN, 0, 0, 0, -1}, 8};
    s[2] = {"c", {RGB_planar, 254, 17, 1, -1}, 8};
    EXPECT_EQ(compareReadoutText(s, true), QStringLiteral("1 a: R 0xff G 0x10 B 0x1 A 0xc8\n"
                                                          "2 b: -\n"
                                                          "3 c: R 0xfe G 0x11 B 0x1  \u0394 R-1 G+1 B0"));
}

TEST(CompareReadoutText, ANarrowerFirstRoundsTheWiderHalfUp)
{
    std::vector<CompareSample> s(2);
    s[0] = {"a", {YUV_p420, 100, 100, 100, -1}, 8};
    s[1] = {"b", {YUV_p420, 401, 402, 403, -1}, 10}; // /4: 100.25, 100.5, 100.75
    EXPECT_TRUE(compareReadoutText(s, false).endsWith(QStringLiteral("\u0394 Y0 U+1 V+1")));
}

// Four sequences of different layouts and depths, written by the pattern generator, read back at the
// same pixels: each reports the generator's values, and the text carries them. (The 4:2:2 planar readout
// addresses its chroma in its own way on purpose, so it is left out here.)
struct Seq {
    PatternSpec pattern;
    const char *name;
};

TEST(CompareReadout, FourSequencesAtOnePixelReadTheirOwnStoredSamples)
{
    const int w = 48, h = 32;
    const Seq seqs[] = {
        {{YUV_p420, w, h, 8, 8}, "p420_8.yuv"},
        {{YUV_p444, w, h, 10, 16}, "p444_10.yuv"},
        {{YUV_nv12, w, h, 8, 8}, "nv12.yuv"},
        {{YUV_uyvy, w, h, 8, 8}, "uyvy.yuv"},
    };
    const uint64_t frame = 17;
    std::vector<std::vector<uint8_t>> bytes;
    for (const Seq &q : seqs) {
        bytes.emplace_back(patternFrameBytes(q.pattern));
        ASSERT_TRUE(writePatternFrame(q.pattern, frame, bytes.back().data(), bytes.back().size())) << q.name;
    }
    for (const QPoint p : {QPoint(0, 0), QPoint(13, 7), QPoint(w - 1, h - 1), QPoint(30, 21)}) {
        std::vector<CompareSample> samples;
        for (size_t i = 0; i < std::size(seqs); ++i) {
            NativeValues v;
            ASSERT_TRUE(readNativeAt(bytes[i].data(), int64_t(bytes[i].size()), patternRecord(seqs[i].pattern), p.x(),
                                     p.y(), v))
                << seqs[i].name;
            const PatternPixel want = patternPixel(seqs[i].pattern, frame, p.x(), p.y());
            EXPECT_EQ(v.space, seqs[i].pattern.layout);
            EXPECT_EQ(v.c1, want.c1) << seqs[i].name << " at " << p.x() << "," << p.y();
            EXPECT_EQ(v.c2, want.c2) << seqs[i].name << " at " << p.x() << "," << p.y();
            EXPECT_EQ(v.c3, want.c3) << seqs[i].name << " at " << p.x() << "," << p.y();
            samples.push_back({seqs[i].name, v, seqs[i].pattern.bits});
        }
        const QStringList lines = compareReadoutText(samples, false).split('\n');
        ASSERT_EQ(lines.size(), 4);
        for (size_t i = 0; i < 4; ++i) {
            const PatternPixel want = patternPixel(seqs[i].pattern, frame, p.x(), p.y());
            EXPECT_TRUE(lines[qsizetype(i)].startsWith(QStringLiteral("%1 %2: Y %3 U %4 V %5")
                                                           .arg(i + 1)
                                                           .arg(seqs[i].name)
                                                           .arg(want.c1)
                                                           .arg(want.c2)
                                                           .arg(want.c3)))
                << lines[qsizetype(i)].toStdString();
        }
    }
    NativeValues v;
    EXPECT_FALSE(readNativeAt(bytes[0].data(), int64_t(bytes[0].size()), patternRecord(seqs[0].pattern), w, 0, v));
    EXPECT_FALSE(readNativeAt(bytes[0].data(), int64_t(bytes[0].size()), patternRecord(seqs[0].pattern), 0, -1, v));
    EXPECT_FALSE(readNativeAt(bytes[0].data(), 100, patternRecord(seqs[0].pattern), w - 1, h - 1, v)) << "short buffer";
}

TEST(CompareReadout, AFlippedRecordReadsRowsFromTheBottom)
{
    const PatternSpec pattern{YUV_p444, 8, 6, 8, 8};
    std::vector<uint8_t> b(patternFrameBytes(pattern));
    ASSERT_TRUE(writePatternFrame(pattern, 3, b.data(), b.size()));
    VideoProps props = patternRecord(pattern);
    props.flipped = true;
    NativeValues v;
    ASSERT_TRUE(readNativeAt(b.data(), int64_t(b.size()), props, 2, 1, v));
    EXPECT_EQ(v.c1, patternPixel(pattern, 3, 2, 4).c1);
}

} // namespace
