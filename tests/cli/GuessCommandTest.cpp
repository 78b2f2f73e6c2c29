#include "cli/CliTestSupport.h"
#include "formats/FormatNames.h"
#include "formats/FrameSize.h"
#include "support/TempFiles.h"

#include <QFile>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

// Each candidate of a guess must hold the file's bytes after `header` as whole frames.
void expectWholeFrames(const QJsonObject &doc, qint64 header)
{
    for (const QJsonValue &v : doc["candidates"].toArray()) {
        const QJsonObject c = v.toObject();
        SCOPED_TRACE(QJsonDocument(c).toJson(QJsonDocument::Compact).toStdString());
        EXPECT_EQ(c.keys(), (QStringList{"bits", "format", "frames", "height", "hint", "keyword", "width"}));
        const videoFormat_t f = formatFromShortName(c["format"].toString());
        ASSERT_NE(f, FMT_UNKNOWN);
        EXPECT_EQ(formatFromKeyword(c["keyword"].toString()), f);
        const int bits = c["bits"].toInt();
        const uint32_t bytes = frameBytes(f, bits <= 8 ? 8 : 16, c["width"].toInt(), c["height"].toInt());
        ASSERT_GT(bytes, 0u);
        EXPECT_EQ(qint64(bytes) * c["frames"].toInteger(), doc["size"].toInteger() - header);
    }
}

TEST(CliGuess, ListsTheNamedSizeFirst)
{
    test::TempDir dir;
    const QString f = dir.writeSized("clip_cif.yuv", 152064 * 10);
    const auto r = runCli({"guess", "-f", "yuv420", "--bits", "8", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    EXPECT_TRUE(r.err.isEmpty());
    EXPECT_EQ(r.out.count(u'\n'), 1); // one document
    const QJsonObject j = r.json();
    EXPECT_EQ(j.keys(), (QStringList{"candidates", "file", "size"}));
    EXPECT_TRUE(r.out.startsWith(QStringLiteral("{\"file\": "))) << r.out.toStdString();
    EXPECT_EQ(j["file"].toString(), f);
    EXPECT_EQ(j["size"].toInteger(), 1520640);
    const QJsonArray cands = j["candidates"].toArray();
    ASSERT_GE(cands.size(), 2);
    const QJsonObject first = cands[0].toObject();
    EXPECT_EQ(first["width"].toInt(), 352);
    EXPECT_EQ(first["height"].toInt(), 288);
    EXPECT_EQ(first["format"].toString(), "YUV_p420");
    EXPECT_EQ(first["keyword"].toString(), "yuv420");
    EXPECT_EQ(first["bits"].toInt(), 8);
    EXPECT_EQ(first["frames"].toInteger(), 10);
    EXPECT_TRUE(first["hint"].toBool());
    // QCIF fits as 40 frames, unnamed.
    bool qcif = false;
    for (const QJsonValue &v : cands) {
        const QJsonObject c = v.toObject();
        if (c["width"].toInt() == 176 && c["height"].toInt() == 144) {
            qcif = true;
            EXPECT_EQ(c["frames"].toInteger(), 40);
            EXPECT_FALSE(c["hint"].toBool());
        }
    }
    EXPECT_TRUE(qcif);
    expectWholeFrames(j, 0);
}

TEST(CliGuess, TriesEveryLayoutAndDepthWithoutOptions)
{
    struct Case {
        const char *name;
        qint64 size;
        const char *format;
        int bits, width, height, frames;
    };
    const Case cases[] = {
        {"clip_1280x720.v210", 2488320 * 3, "YUV_v210", 10, 1280, 720, 3},
        {"clip_cif_10bit.yuv", 304128 * 5, "YUV_p420", 10, 352, 288, 5},
        {"plain.raw", 152064 * 10, "YUV_p420", 8, 352, 288, 10},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        test::TempDir dir;
        const QString f = dir.writeSized(QLatin1String(c.name), c.size);
        const auto r = runCli({"guess", f});
        ASSERT_EQ(r.rc, 0) << r.err.toStdString();
        const QJsonArray cands = r.json()["candidates"].toArray();
        ASSERT_FALSE(cands.isEmpty());
        const QJsonObject first = cands[0].toObject();
        EXPECT_EQ(first["format"].toString(), c.format);
        EXPECT_EQ(first["bits"].toInt(), c.bits);
        EXPECT_EQ(first["width"].toInt(), c.width);
        EXPECT_EQ(first["height"].toInt(), c.height);
        EXPECT_EQ(first["frames"].toInt(), c.frames);
        expectWholeFrames(r.json(), 0);
    }
}

TEST(CliGuess, HeaderBytesFromTheOptionOrTheSideFile)
{
    test::TempDir dir;
    const QString f = dir.writeSized("clip.yuv", 512 + 152064 * 10);
    const QStringList base{"guess", "-f", "yuv420", "--bits", "8", f};
    const auto without = runCli(base);
    EXPECT_EQ(without.rc, 1);
    EXPECT_TRUE(without.json()["candidates"].toArray().isEmpty());
    const auto with = runCli(base + QStringList{"--header", "512"});
    ASSERT_EQ(with.rc, 0) << with.err.toStdString();
    EXPECT_EQ(with.json()["candidates"].toArray()[0].toObject()["frames"].toInt(), 10);
    expectWholeFrames(with.json(), 512);

    QFile side(dir.path("clip.hdr"));
    ASSERT_TRUE(side.open(QIODevice::WriteOnly));
    side.write("offset=512\n");
    side.close();
    const auto fromSide = runCli(base);
    ASSERT_EQ(fromSide.rc, 0) << fromSide.err.toStdString();
    expectWholeFrames(fromSide.json(), 512);
    // An explicit --header wins over the side file.
    EXPECT_EQ(runCli(base + QStringList{"--header", "0"}).rc, 1);
}

TEST(CliGuess, NoCandidateIsStatusOneWithAnEmptyList)
{
    test::TempDir dir;
    const QString f = dir.writeSized("prime.yuv", 1000003);
    const auto r = runCli({"guess", f});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.json()["size"].toInteger(), 1000003);
    ASSERT_TRUE(r.json()["candidates"].isArray());
    EXPECT_TRUE(r.json()["candidates"].toArray().isEmpty());
    EXPECT_TRUE(r.err.contains("no known frame size")) << r.err.toStdString();
}

TEST(CliGuess, FailuresAndUsageErrors)
{
    test::TempDir dir;
    const QString f = dir.writeSized("clip.yuv", 152064);
    struct Case {
        QStringList args;
        int rc;
        const char *message;
    };
    const Case cases[] = {
        {{"guess", dir.path("gone.yuv")}, 1, "cannot open"},
        {{"guess", "-"}, 1, "has no size"},
        {{"guess"}, 2, "missing FILE"},
        {{"guess", f, f}, 2, "unexpected argument"},
        {{"guess", "-f", "yuv999", f}, 2, "unknown format keyword"},
        {{"guess", "--bits", "17", f}, 2, "--bits"},
        {{"guess", "--header", "-1", f}, 2, "--header"},
        {{"guess", "-w", "352", f}, 2, "-w"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.args.join(' ').toStdString());
        const auto r = runCli(c.args);
        EXPECT_EQ(r.rc, c.rc);
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
        EXPECT_TRUE(r.err.contains(QLatin1String(c.message))) << r.err.toStdString();
    }
}

TEST(CliGuess, HugeFramesCountWithoutOverflow)
{
    test::TempDir dir;
    const QString path = dir.path("big_7680x4320_16bit.rgba");
    QFile f(path);
    // Sparse: two 8K 16-bit RGBA frames without writing half a gigabyte.
    if (!f.open(QIODevice::WriteOnly) || !f.resize(qint64(265420800) * 2)) GTEST_SKIP() << "no room for the file";
    f.close();
    const auto r = runCli({"guess", "-f", "rgba", path});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject first = r.json()["candidates"].toArray()[0].toObject();
    EXPECT_EQ(first["width"].toInt(), 7680);
    EXPECT_EQ(first["height"].toInt(), 4320);
    EXPECT_EQ(first["bits"].toInt(), 16);
    EXPECT_EQ(first["frames"].toInt(), 2);
    EXPECT_TRUE(first["hint"].toBool());
    expectWholeFrames(r.json(), 0);
}

TEST(CliGuess, IsListedInTheHelp)
{
    const auto r = runCli({"--help"});
    EXPECT_TRUE(r.out.contains(QStringLiteral("  guess "))) << r.out.toStdString();
    const auto h = runCli({"guess", "--help"});
    EXPECT_EQ(h.rc, 0);
    for (const char *option : {"--format", "--bits", "--header"}) EXPECT_TRUE(h.out.contains(QLatin1String(option)));
}

} // namespace
