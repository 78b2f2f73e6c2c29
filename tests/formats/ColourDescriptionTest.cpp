#include "formats/ColourDescription.h"
#include "formats/SideFile.h"

#include <gtest/gtest.h>

using namespace kavri;

TEST(ColourDescription, KeywordsRoundTrip)
{
    for (int m = 0; m <= int(ColourMatrix::YCgCo); ++m)
        EXPECT_EQ(matrixFromKeyword(keyword(ColourMatrix(m))), ColourMatrix(m));
    for (ChromaSiting s : {ChromaSiting::Nearest, ChromaSiting::Left, ChromaSiting::Center, ChromaSiting::TopLeft})
        EXPECT_EQ(chromaFromKeyword(keyword(s)), s);
    EXPECT_EQ(transferFromKeyword("HLG"), ColourTransfer::HLG);
    EXPECT_FALSE(rangeFromKeyword("tv").has_value()); // names only in file names
}

TEST(ColourDescription, StoredTextRoundTripsAndSkipsWhatItDoesNotKnow)
{
    ColourDescription c;
    c.matrix = ColourMatrix::SMPTE240M;
    c.range = ColourRange::Limited;
    c.chroma = ChromaSiting::Center;
    c.transfer = ColourTransfer::HLG;
    c.peakNits = 700;
    EXPECT_EQ(fromStoredText(toStoredText(c)), c);
    EXPECT_EQ(fromStoredText(""), ColourDescription{});
    EXPECT_EQ(fromStoredText("=x matrix= future=2 matrix=bt709 peak=12").matrix, ColourMatrix::BT709);
    EXPECT_EQ(fromStoredText("peak=12").peakNits, kDefaultPeakNits);
}

TEST(ColourDescription, FileNameWords)
{
    struct Case {
        const char *name;
        bool found;
        ColourMatrix matrix;
        ColourRange range;
        ColourTransfer transfer;
    };
    const Case cases[] = {
        {"/a/bt709/clip.yuv", false, ColourMatrix::Default, ColourRange::Full, ColourTransfer::SDR}, // folder
        {"clip_bt709_tv.yuv", true, ColourMatrix::BT709, ColourRange::Limited, ColourTransfer::SDR},
        {"clip-BT2020-HLG-limited.yuv", true, ColourMatrix::BT2020, ColourRange::Limited, ColourTransfer::HLG},
        {"clip.bt601.pc.yuv", true, ColourMatrix::BT601, ColourRange::Full, ColourTransfer::SDR},
        {"pq_1920x1080.yuv", true, ColourMatrix::Default, ColourRange::Full, ColourTransfer::PQ},
        {"bt709x_tvs_pqa_fullhd.yuv", false, ColourMatrix::Default, ColourRange::Full, ColourTransfer::SDR},
    };
    for (const Case &c : cases) {
        bool found = true;
        const ColourDescription d = colourFromFileName(QString::fromLatin1(c.name), {}, &found);
        EXPECT_EQ(found, c.found) << c.name;
        EXPECT_EQ(d.matrix, c.matrix) << c.name;
        EXPECT_EQ(d.range, c.range) << c.name;
        EXPECT_EQ(d.transfer, c.transfer) << c.name;
    }
}

TEST(ColourDescription, SideFileKeys)
{
    VideoProps p;
    applySideFile("width=8\ncolour_matrix = bt2020\ncolour_range=limited\nchroma_siting=left\ntransfer=pq\n"
                  "peak_nits=4000\n",
                  p);
    EXPECT_EQ(p.width, 8);
    EXPECT_EQ(p.colour.matrix, ColourMatrix::BT2020);
    EXPECT_EQ(p.colour.range, ColourRange::Limited);
    EXPECT_EQ(p.colour.chroma, ChromaSiting::Left);
    EXPECT_EQ(p.colour.transfer, ColourTransfer::PQ);
    EXPECT_EQ(p.colour.peakNits, 4000);
    VideoProps q;
    applySideFile("colour_matrix=bt2021\npeak_nits=20000\ntransfer=\n", q);
    EXPECT_EQ(q.colour, ColourDescription{});
}
