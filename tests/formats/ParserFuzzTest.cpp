// Randomised inputs for the three readers of untrusted text: the in-file header, the side file and the
// file name. Seeded; set KAVRI_FUZZ_SEED / KAVRI_FUZZ_ROUNDS to explore further.
#include "formats/FormatDetector.h"
#include "formats/SideFile.h"
#include "formats/VixHeader.h"
#include "formats/Y4mHeader.h"

#include <QtGlobal>
#include <gtest/gtest.h>
#include <random>

using namespace kavri;

namespace {

uint64_t fuzzSeed()
{
    bool ok = false;
    const qulonglong s = qEnvironmentVariable("KAVRI_FUZZ_SEED").toULongLong(&ok);
    return ok ? s : 0x6b617672ull;
}

int fuzzRounds(int fallback)
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue("KAVRI_FUZZ_ROUNDS", &ok);
    return ok && n > 0 ? n : fallback;
}

class Fuzz : public ::testing::Test {
protected:
    std::mt19937_64 rng{fuzzSeed()};

    size_t below(size_t n) { return size_t(rng() % n); }
    bool coin() { return rng() & 1; }

    QByteArray randomBytes(size_t maxLen)
    {
        QByteArray b(qsizetype(below(maxLen + 1)), '\0');
        for (char &c : b) c = char(rng());
        return b;
    }

    QByteArray number()
    {
        static const char *const kOdd[] = {"0",
                                           "-1",
                                           "1",
                                           "2",
                                           "4",
                                           "2147483647",
                                           "2147483648",
                                           "-2147483649",
                                           "99999999999999999999999999",
                                           "1e999",
                                           "-1e999",
                                           "nan",
                                           "inf",
                                           "0x10",
                                           "+3",
                                           "1.5",
                                           "",
                                           "-",
                                           "1.2.3"};
        if (coin()) return kOdd[below(std::size(kOdd))];
        QByteArray digits;
        const size_t n = 1 + below(coin() ? 4 : 30);
        for (size_t i = 0; i < n; ++i) digits += char('0' + below(10));
        return coin() ? digits : "-" + digits;
    }

    QByteArray pick(std::initializer_list<const char *> words) { return words.begin()[below(words.size())]; }

    QByteArray vixTokenSoup()
    {
        QByteArray out = coin() ? "vix" : pick({"vi", "VIX", "vix>", ""});
        const size_t n = below(60);
        for (size_t i = 0; i < n; ++i) {
            out += pick({" ", "\n", "\t", "\r\n", "  "});
            switch (below(4)) {
            case 0: out += pick({">VIDEO<", ">COLOUR<", ">COLOR<", ">IMAGE<", "YCbCr", "RGB"}); break;
            case 1: out += pick({"signed", "unsigned", "word", "dword", "byte", "little-endian", "big-endian"}); break;
            case 2: out += number(); break;
            default: out += randomBytes(6); break;
            }
        }
        return out;
    }

    QByteArray validVix()
    {
        QByteArray h = "vix\n>VIDEO< 25 10\n>COLOUR< YCbCr\n>IMAGE< unsigned word 10 little-endian 64 32 3 1 1 ";
        h += pick({"2 2 2 2", "1 2 1 2", "1 1 1 1", "4 2 4 2", "4 1 4 1"});
        return h + "\n" + randomBytes(64);
    }

    QByteArray mutate(QByteArray b)
    {
        const size_t edits = 1 + below(4);
        for (size_t i = 0; i < edits && !b.isEmpty(); ++i) {
            const qsizetype at = qsizetype(below(size_t(b.size())));
            switch (below(4)) {
            case 0: b[at] = char(rng()); break;
            case 1: b.truncate(at); break;
            case 2: b.insert(at, number()); break;
            default: b.remove(at, qsizetype(below(8))); break;
            }
        }
        return b;
    }
};

TEST_F(Fuzz, VixHeader)
{
    SCOPED_TRACE(::testing::Message() << "KAVRI_FUZZ_SEED=" << fuzzSeed());
    int accepted = 0;
    const int rounds = fuzzRounds(3000);
    for (int round = 0; round < rounds; ++round) {
        QByteArray bytes;
        switch (below(3)) {
        case 0: bytes = "vix" + randomBytes(200); break;
        case 1: bytes = vixTokenSoup(); break;
        default: bytes = mutate(validVix()); break;
        }
        const bool whole = coin();
        VideoProps p;
        p.width = 7;
        p.headerBytes = 3;
        const bool ok = parseVixHeader(bytes, whole, p);
        if (ok) {
            ++accepted;
            EXPECT_TRUE(p.format == YUV_p420 || p.format == YUV_p422 || p.format == YUV_p444 || p.format == YUV_p410 ||
                        p.format == YUV_p411 || p.format == RGB_planar)
                << round;
            EXPECT_TRUE(p.containerBits == 8 || p.containerBits == 16) << round;
            EXPECT_LE(p.headerBytes, uint32_t(bytes.size()) + 1) << round;
            EXPECT_TRUE(std::isfinite(p.frameRate)) << round;
        } else {
            EXPECT_EQ(p.width, 7) << round;
            EXPECT_EQ(p.headerBytes, 3u) << round;
        }
        if (HasFailure()) break;
    }
    // The generator must reach the accepting paths, or the test proves little.
    EXPECT_GT(accepted, rounds / 50);
}

TEST_F(Fuzz, Y4mHeader)
{
    SCOPED_TRACE(::testing::Message() << "KAVRI_FUZZ_SEED=" << fuzzSeed());
    int accepted = 0;
    const int rounds = fuzzRounds(3000);
    for (int round = 0; round < rounds; ++round) {
        // Half the headers start from a usable size, so the accepting paths are reached too.
        QByteArray bytes = coin() ? QByteArray("YUV4MPEG2 W16 H8") : pick({"YUV4MPEG2 ", "YUV4MPEG2", "YUV4MPEG ", ""});
        const size_t n = below(8);
        for (size_t i = 0; i < n; ++i) {
            bytes += pick({" ", " ", "  ", "\t", ""});
            switch (below(5)) {
            case 0: bytes += pick({"W", "H"}) + number(); break;
            case 1: bytes += pick({"F", "A"}) + number() + pick({":", "", "::"}) + number(); break;
            case 2:
                bytes += "C" + pick({"420jpeg", "420", "422p10", "444p16", "mono", "mono12", "411", "444alpha", "420p8",
                                     "422p99", "mono1", ""});
                break;
            case 3: bytes += pick({"Ip", "It", "I?", "Ix", "X", "XCOLORRANGE=FULL", "Z"}); break;
            default: bytes += randomBytes(6); break;
            }
        }
        if (below(4) != 0) bytes += "\n";
        if (below(3) == 0) bytes = mutate(bytes);
        const Y4mParse parsed = parseY4mHeader(bytes);
        if (parsed.header) {
            ++accepted;
            const Y4mHeader &h = *parsed.header;
            EXPECT_TRUE(parsed.error.isEmpty()) << round;
            EXPECT_GT(h.width, 0) << round;
            EXPECT_GT(h.height, 0) << round;
            EXPECT_LE(h.headerBytes, uint32_t(bytes.size())) << round;
            EXPECT_EQ(bytes[h.headerBytes - 1], '\n') << round;
            EXPECT_GT(y4mFrameBytes(h), 0u) << round;
            EXPECT_TRUE(h.bitDepth >= 8 && h.bitDepth <= 16) << round;
        } else {
            EXPECT_FALSE(parsed.error.isEmpty()) << round;
        }
        if (HasFailure()) break;
    }
    EXPECT_GT(accepted, rounds / 50);
}

TEST_F(Fuzz, SideFile)
{
    SCOPED_TRACE(::testing::Message() << "KAVRI_FUZZ_SEED=" << fuzzSeed());
    const int rounds = fuzzRounds(3000);
    for (int round = 0; round < rounds; ++round) {
        QByteArray text;
        if (below(4) == 0) {
            text = randomBytes(400);
        } else {
            const size_t lines = below(12);
            for (size_t i = 0; i < lines; ++i) {
                QByteArray key = pick({"width", "height", "framerate", "offset", "format", "bits", "bitdepth",
                                       "anamorphic", "flipped", "interlaced", "x", "", "WIDTH", "Bits "});
                if (coin()) key += pick({"", " ", "px", "\r"});
                QByteArray value =
                    coin() ? number() : pick({"yuv420", "yuv411", "uyvy", "rgb32", "false", "no", "y", ""});
                if (coin()) value = pick({" ", "\t", ""}) + value + pick({"", "\r", "abc", "=1"});
                text += key + pick({"=", "=", " = ", ""}) + value + pick({"\n", "\r\n", "\n\n"});
            }
            if (coin()) text = mutate(text);
        }
        VideoProps p;
        applySideFile(text, p);
        VideoProps again;
        applySideFile(text, again);
        EXPECT_EQ(p.width, again.width) << round;
        EXPECT_EQ(p.format, again.format) << round;
        EXPECT_TRUE(std::isfinite(p.frameRate)) << round;
        EXPECT_TRUE(p.format >= FMT_UNKNOWN && p.format <= BW) << round;
        if (HasFailure()) break;
    }
}

TEST_F(Fuzz, FileNames)
{
    SCOPED_TRACE(::testing::Message() << "KAVRI_FUZZ_SEED=" << fuzzSeed());
    static const char kAlphabet[] = "0123456789xX._-/\\ abcfhilnpqrstuvyzABCDEFGHIPQRSTUVWXYZ";
    FormatDetector d;
    const int rounds = fuzzRounds(400);
    for (int round = 0; round < rounds; ++round) {
        QString name;
        const size_t n = below(coin() ? 40 : 300);
        for (size_t i = 0; i < n; ++i) {
            if (below(10) == 0)
                name += QString::fromLatin1(pick({"1920x1080", "qcif", "720p", "1080", "_-10bit", "_8b", "50hz",
                                                  "29.97fps", "yuv", "planar", "rgb", "p444", "gray", "yv12", "flip"}));
            else
                name += QChar(uchar(kAlphabet[below(sizeof(kAlphabet) - 1)]));
        }
        const VideoProps &p = d.detect("/nonexistent/" + name);
        EXPECT_EQ(d.sourceName(), "name");
        EXPECT_TRUE(p.format >= YUV_p420 && p.format <= BW) << round;
        EXPECT_TRUE((p.width == -1 && p.height == -1) || (p.width >= 1 && p.height >= 1)) << round;
        EXPECT_TRUE(p.frameRate == -1.0 || p.frameRate >= 1.0) << round;
        EXPECT_TRUE(p.bitDepth >= -1 && p.bitDepth <= 19) << round;
        if (HasFailure()) break;
    }
}

} // namespace
