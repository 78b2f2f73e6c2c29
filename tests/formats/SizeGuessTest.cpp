#include "formats/SizeGuess.h"
#include "formats/FormatDetector.h"
#include "formats/FrameSize.h"
#include "support/TempFiles.h"

#include <QFile>
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

using namespace kavri;

namespace {

// Every candidate must really divide the bytes after the header into its frames, with the byte count the
// rest of the player uses.
void expectConsistent(const std::vector<SizeCandidate> &cands, const GuessRequest &r)
{
    for (const SizeCandidate &c : cands) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " format " << c.format << " bits "
                                        << c.bitDepth);
        EXPECT_EQ(c.frameBytes, frameBytes(c.format, c.containerBits, c.width, c.height));
        ASSERT_GT(c.frameBytes, 0u);
        EXPECT_GE(c.frames, 1u);
        EXPECT_EQ(uint64_t(c.frameBytes) * c.frames, r.fileSize - r.headerBytes);
    }
}

const SizeCandidate *find(const std::vector<SizeCandidate> &cands, int32_t w, int32_t h, videoFormat_t f = FMT_UNKNOWN,
                          int32_t bits = 0)
{
    for (const SizeCandidate &c : cands)
        if (c.width == w && c.height == h && (f == FMT_UNKNOWN || c.format == f) && (bits == 0 || c.bitDepth == bits))
            return &c;
    return nullptr;
}

// A bare name: no folder takes part in the vote, and no file of that name is expected where the tests run.
GuessHints hintsOfName(const QString &name) { return guessHintsFor(name); }

struct FitCase {
    const char *what;
    videoFormat_t format;
    int32_t bits;
    int32_t w, h;
    uint32_t expectedFrameBytes; // written out, so that a changed byte rule shows here as well
    uint64_t frames;
    uint32_t header;
    const char *name; // the file's name: its size, when it states one, is the hint
};

void PrintTo(const FitCase &c, std::ostream *os) { *os << c.what; }

class SizeGuessFit : public ::testing::TestWithParam<FitCase> {};

TEST_P(SizeGuessFit, FindsTheSizeWithItsFrameCount)
{
    const FitCase &c = GetParam();
    ASSERT_EQ(frameBytes(c.format, c.bits <= 8 ? 8 : 16, c.w, c.h), c.expectedFrameBytes);
    GuessRequest r;
    r.fileSize = uint64_t(c.expectedFrameBytes) * c.frames + c.header;
    r.headerBytes = c.header;
    r.format = c.format;
    r.bitDepth = c.bits;
    const GuessHints hints = hintsOfName(QLatin1String(c.name));
    const auto cands = guessSizes(r, hints);
    expectConsistent(cands, r);
    const SizeCandidate *hit = find(cands, c.w, c.h);
    ASSERT_NE(hit, nullptr);
    EXPECT_EQ(hit->frames, c.frames);
    EXPECT_EQ(hit->frameBytes, c.expectedFrameBytes);
    EXPECT_EQ(hit->bitDepth, c.bits);
    ASSERT_FALSE(cands.empty());
    // Named or not, these sizes are the first choice: the named one by its hint, the others by rank.
    EXPECT_EQ(cands.front().width, c.w);
    EXPECT_EQ(cands.front().height, c.h);
}

const FitCase kFitCases[] = {
    {"cif_420", YUV_p420, 8, 352, 288, 152064, 10, 0, "clip.yuv"},
    {"odd_420_truncates", YUV_p420, 8, 33, 17, 841, 7, 0, "odd_33x17.yuv"},
    {"odd_410_drops_the_quarter", YUV_p410, 8, 33, 17, 697, 3, 0, "odd_33x17_p410.yuv"},
    {"odd_v210_pads_rows", YUV_v210, 10, 33, 17, 2176, 5, 0, "odd_33x17.v210"},
    {"v210_720p", YUV_v210, 10, 1280, 720, 2488320, 3, 0, "clip.v210"},
    {"p420_16bit_1080p", YUV_p420, 16, 1920, 1080, 6220800, 2, 0, "clip.yuv"},
    {"p420_10bit_after_header", YUV_p420, 10, 1920, 1080, 6220800, 4, 512, "clip.yuv"},
    {"rgba_16bit_8k", RGBA_i444, 16, 7680, 4320, 265420800, 1000, 0, "clip_7680x4320.rgba"},
    {"luma_qcif_by_word", BW, 8, 176, 144, 25344, 4, 0, "clip_qcif.y"},
};
INSTANTIATE_TEST_SUITE_P(Cases, SizeGuessFit, ::testing::ValuesIn(kFitCases),
                         [](const auto &info) { return std::string(info.param.what); });

TEST(SizeGuess, HeaderBytesAreNotFrameBytes)
{
    GuessRequest r;
    r.format = YUV_p420;
    r.bitDepth = 8;
    r.fileSize = 512 + 152064 * 10;
    EXPECT_EQ(find(guessSizes(r), 352, 288), nullptr); // the header spoils every fit
    r.headerBytes = 512;
    const auto cands = guessSizes(r);
    ASSERT_NE(find(cands, 352, 288), nullptr);
    EXPECT_EQ(find(cands, 352, 288)->frames, 10u);
    expectConsistent(cands, r);
    r.headerBytes = uint32_t(r.fileSize);
    EXPECT_TRUE(guessSizes(r).empty());
    r.headerBytes = std::numeric_limits<uint32_t>::max();
    EXPECT_TRUE(guessSizes(r).empty());
}

TEST(SizeGuess, NoCandidate)
{
    GuessRequest r;
    r.fileSize = 1000003; // prime: no frame of the known sizes divides it, in any layout
    EXPECT_TRUE(guessSizes(r).empty());
    r.fileSize = 0;
    EXPECT_TRUE(guessSizes(r).empty());
    r.fileSize = 100; // less than any known frame
    EXPECT_TRUE(guessSizes(r, hintsOfName("clip_1920x1080.yuv")).empty());
}

TEST(SizeGuess, TheNamedSizeComesFirst)
{
    // 40 QCIF frames are also 10 CIF frames; unnamed, CIF ranks first as the commoner size.
    GuessRequest r;
    r.fileSize = 152064 * 10;
    r.format = YUV_p420;
    r.bitDepth = 8;
    struct Case {
        const char *name;
        int32_t w, h;
        bool hint;
    };
    const Case cases[] = {
        {"clip.yuv", 352, 288, false},    {"clip_qcif.yuv", 176, 144, true}, {"clip_176x144.yuv", 176, 144, true},
        {"clip_cif.yuv", 352, 288, true}, {"clip_5x5.yuv", 352, 288, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const auto cands = guessSizes(r, hintsOfName(QLatin1String(c.name)));
        ASSERT_GE(cands.size(), 2u);
        EXPECT_EQ(cands[0].width, c.w);
        EXPECT_EQ(cands[0].height, c.h);
        EXPECT_EQ(cands[0].hint, c.hint);
        EXPECT_EQ(std::count_if(cands.begin(), cands.end(), [](const SizeCandidate &x) { return x.hint; }),
                  c.hint ? 1 : 0);
        EXPECT_FALSE(cands[1].hint);
    }
}

TEST(SizeGuess, ASizeOnlyTheNameKnowsIsACandidate)
{
    GuessRequest r;
    r.format = YUV_p420;
    r.bitDepth = 8;
    r.fileSize = uint64_t(frameBytes(YUV_p420, 8, 1000, 500)) * 3;
    EXPECT_EQ(find(guessSizes(r), 1000, 500), nullptr);
    const auto cands = guessSizes(r, hintsOfName("clip_1000x500.yuv"));
    ASSERT_FALSE(cands.empty());
    EXPECT_EQ(cands[0].width, 1000);
    EXPECT_TRUE(cands[0].hint);
    EXPECT_TRUE(cands[0].name.isEmpty());
    EXPECT_EQ(cands[0].frames, 3u);
    // A named size too large to count is left out, without wrapping into a small frame.
    EXPECT_TRUE(guessSizes(r, hintsOfName("clip_999999x999999.yuv")).size() == guessSizes(r).size());
}

TEST(SizeGuess, NamesThatOnlyGiveALineCount)
{
    // Opening a file leaves "1080" names without a size; the guess reads them as meant.
    struct Case {
        const char *name;
        int32_t w, h;
    };
    const Case cases[] = {
        {"a_1080p.yuv", 1920, 1080}, {"a_1080.yuv", 1920, 1080}, {"a_720p.yuv", 1280, 720},
        {"a_720.yuv", -1, -1},       {"a_sif.yuv", 352, 240},    {"a_1280x720_1080p.yuv", 1280, 720},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        const GuessHints h = hintsOfName(QLatin1String(c.name));
        EXPECT_EQ(h.width, c.w);
        EXPECT_EQ(h.height, c.h);
    }
    FormatDetector d;
    EXPECT_EQ(d.detect(QStringLiteral("a_1080p.yuv")).width, -1);
}

TEST(SizeGuess, ImplausibleFrameCountsRankLast)
{
    // In luma bytes: 8K holds 16 frames of 1080p and 4 of UHD. 6251 8K frames make 100016 1080p frames,
    // beyond a plausible sequence, so 1080p falls behind the rarer 8K; UHD (25004 frames) leads.
    GuessRequest r;
    r.format = BW;
    r.bitDepth = 8;
    r.fileSize = uint64_t(7680 * 4320) * 6251;
    const auto cands = guessSizes(r);
    expectConsistent(cands, r);
    ASSERT_FALSE(cands.empty());
    EXPECT_EQ(cands.front().width, 3840);
    const auto pos = [&](int32_t w, int32_t h) {
        return std::find_if(cands.begin(), cands.end(),
                            [&](const SizeCandidate &c) { return c.width == w && c.height == h; }) -
               cands.begin();
    };
    EXPECT_LT(pos(7680, 4320), pos(1920, 1080));
    EXPECT_LT(pos(7680, 4320), ptrdiff_t(cands.size()));
    EXPECT_LT(pos(1920, 1080), ptrdiff_t(cands.size()));
    for (const SizeCandidate &c : cands) {
        if (c.frames > 100000) {
            EXPECT_GT(pos(c.width, c.height), pos(7680, 4320)) << c.width << "x" << c.height;
        }
    }
}

TEST(SizeGuess, EveryLayoutOfTheTableIsTriedWhenNoneIsGiven)
{
    for (const LayoutInfo &l : kLayouts) {
        SCOPED_TRACE(std::string(l.shortName));
        const int32_t bits = guessDepths(l.value).front();
        const uint32_t bytes = frameBytes(l.value, bits <= 8 ? 8 : 16, 352, 288);
        ASSERT_GT(bytes, 0u);
        GuessRequest r;
        r.fileSize = uint64_t(bytes) * 4;
        const auto cands = guessSizes(r);
        expectConsistent(cands, r);
        const SizeCandidate *hit = find(cands, 352, 288, l.value, bits);
        ASSERT_NE(hit, nullptr);
        EXPECT_EQ(hit->frames, 4u);
    }
}

TEST(SizeGuess, DepthsPerLayout)
{
    EXPECT_EQ(guessDepths(YUV_v210), std::vector<int32_t>{10});
    EXPECT_EQ(guessDepths(YUV_p420), (std::vector<int32_t>{8, 10, 16}));
    EXPECT_TRUE(guessDepths(FMT_UNKNOWN).empty());
    // Without a layout, v210 appears at 10 bits only, and 10- and 16-bit samples take 16-bit words.
    GuessRequest r;
    r.fileSize = uint64_t(2488320) * 3 * 152064; // many layouts and sizes fit this
    const auto cands = guessSizes(r);
    expectConsistent(cands, r);
    for (const SizeCandidate &c : cands) {
        if (c.format == YUV_v210) {
            EXPECT_EQ(c.bitDepth, 10);
        }
        EXPECT_EQ(c.containerBits, c.bitDepth <= 8 ? 8 : 16);
    }
    // An asked-for container that holds the depth is used; one that does not is replaced.
    r.format = YUV_p420;
    r.fileSize = 304128 * 5;
    r.bitDepth = 8;
    r.containerBits = 16;
    ASSERT_NE(find(guessSizes(r), 352, 288), nullptr);
    EXPECT_EQ(find(guessSizes(r), 352, 288)->frames, 5u);
    r.bitDepth = 12;
    r.containerBits = 8;
    ASSERT_NE(find(guessSizes(r), 352, 288), nullptr);
    EXPECT_EQ(find(guessSizes(r), 352, 288)->containerBits, 16);
}

TEST(SizeGuess, NameHintsRankLayoutsAndDepths)
{
    struct Case {
        const char *name;
        uint64_t fileSize;
        int32_t w, h;
        videoFormat_t format;
        int32_t bits;
    };
    const Case cases[] = {
        // Nothing named: 8-bit 4:2:0 at the commonest size that fits (300 CIF frames would also be 33 of
        // 720p, which then wins as the commoner size).
        {"clip.raw", 152064 * 10, 352, 288, YUV_p420, 8},
        {"clip.raw", 152064 * 300, 1280, 720, YUV_p420, 8},
        {"clip_1280x720.v210", 2488320 * 3, 1280, 720, YUV_v210, 10},
        {"clip_cif_10bit.yuv", 304128 * 5, 352, 288, YUV_p420, 10},
        {"clip_12bit_p444.yuv", 304128 * 2 * 5, 352, 288, YUV_p444, 12},
        {"clip_cif.rgba", 352 * 288 * 4 * 6, 352, 288, RGBA_i444, 8},
        {"clip_1920x1080.nv12", 3110400 * 2, 1920, 1080, YUV_nv12, 8},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        GuessRequest r;
        r.fileSize = c.fileSize;
        const auto cands = guessSizes(r, hintsOfName(QLatin1String(c.name)));
        expectConsistent(cands, r);
        ASSERT_FALSE(cands.empty());
        EXPECT_EQ(cands[0].width, c.w);
        EXPECT_EQ(cands[0].height, c.h);
        EXPECT_EQ(cands[0].format, c.format);
        EXPECT_EQ(cands[0].bitDepth, c.bits);
    }
}

TEST(SizeGuess, TheSameFileGivesTheSameAnswer)
{
    GuessRequest r;
    r.fileSize = 152064 * 600;
    const GuessHints h = hintsOfName("clip.yuv");
    const auto a = guessSizes(r, h);
    const auto b = guessSizes(r, h);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(a[i].width, b[i].width);
        EXPECT_EQ(a[i].format, b[i].format);
        EXPECT_EQ(a[i].bitDepth, b[i].bitDepth);
    }
    // No candidate is listed twice.
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = i + 1; j < a.size(); ++j)
            EXPECT_FALSE(a[i].width == a[j].width && a[i].height == a[j].height && a[i].format == a[j].format &&
                         a[i].bitDepth == a[j].bitDepth)
                << i << " " << j;
}

TEST(SizeGuess, HugeFilesDoNotOverflow)
{
    GuessRequest r;
    r.format = RGBA_i444;
    r.bitDepth = 16;
    r.fileSize = uint64_t(265420800) * 5000000; // 8K 16-bit RGBA, far beyond any disk
    const auto cands = guessSizes(r);
    expectConsistent(cands, r);
    ASSERT_NE(find(cands, 7680, 4320), nullptr);
    EXPECT_EQ(find(cands, 7680, 4320)->frames, 5000000u);
    r.fileSize = std::numeric_limits<uint64_t>::max();
    r.format = FMT_UNKNOWN;
    r.bitDepth = 0;
    expectConsistent(guessSizes(r), r);
}

TEST(SizeGuess, HeaderAndSideFileHintsCount)
{
    test::TempDir dir;
    // A side file names the size, layout, depth and header; a name saying otherwise does not count.
    const QString file = dir.writeSized("clip_qcif.raw", 64 + 304128 * 2);
    QFile side(dir.path("clip_qcif.hdr"));
    ASSERT_TRUE(side.open(QIODevice::WriteOnly));
    side.write("width=352\nheight=288\nformat=yuv420\nbitdepth=10\noffset=64\n");
    side.close();
    const GuessHints h = guessHintsFor(file);
    EXPECT_EQ(h.width, 352);
    EXPECT_EQ(h.height, 288);
    EXPECT_EQ(h.bitDepth, 10);
    EXPECT_GT(h.layoutScore[YUV_p420], 0.0);
    EXPECT_EQ(h.headerBytes, std::optional<uint32_t>(64));
    EXPECT_FALSE(hintsOfName("clip_qcif.raw").headerBytes.has_value());
    EXPECT_EQ(guessHintsFor(QStringLiteral("-")).width, -1);
}

TEST(SizeGuess, FitAndFileSize)
{
    EXPECT_EQ(fitFrames(152064 * 12 + 5184, 0, 152064).frames, 12u);
    EXPECT_EQ(fitFrames(152064 * 12 + 5184, 0, 152064).leftover, 5184u);
    EXPECT_EQ(fitFrames(512 + 152064 * 2, 512, 152064).leftover, 0u);
    EXPECT_EQ(fitFrames(100, 0, 0).frames, 0u);
    EXPECT_EQ(fitFrames(100, 100, 1).frames, 0u);
    EXPECT_EQ(fitFrames(100, 100, 1).leftover, 0u);

    test::TempDir dir;
    EXPECT_EQ(knownFileSize(dir.writeSized("a.yuv", 1234)), std::optional<uint64_t>(1234));
    EXPECT_FALSE(knownFileSize(dir.path("gone.yuv")).has_value());
    EXPECT_FALSE(knownFileSize(QString()).has_value());
    EXPECT_FALSE(knownFileSize(QStringLiteral("-")).has_value());
    EXPECT_FALSE(knownFileSize(dir.dir()).has_value());
}

TEST(SizeGuess, PresetsAndCommonSizesAreDistinct)
{
    std::vector<std::pair<int32_t, int32_t>> all;
    for (const SizePreset &p : kSizePresets) all.emplace_back(p.width, p.height);
    for (const SizePreset &p : kCommonSizes) all.emplace_back(p.width, p.height);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

} // namespace
