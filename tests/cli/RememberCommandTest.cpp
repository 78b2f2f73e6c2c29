#include "cli/CliTestSupport.h"
#include "formats/RememberedFormats.h"
#include "formats/Settings.h"
#include "support/TempFiles.h"

#include <QSettings>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

class CliFormats : public ::testing::Test {
protected:
    void SetUp() override
    {
        QSettings s;
        s.clear();
        s.sync();
    }
    static bool storeExists() { return QSettings().contains(QLatin1String(settings::kFileFormats)); }
    test::TempDir dir;
};

struct NamedInfoCase {
    const char *name;
    qint64 size;
    int width, height;
    double rate;
    const char *format;
    int bits, container;
    bool isSigned, playable;
};

void PrintTo(const NamedInfoCase &c, std::ostream *os) { *os << c.name; }

class CliInfoByName : public ::testing::TestWithParam<NamedInfoCase> {};

TEST_P(CliInfoByName, ReportsWhatTheNameSays)
{
    const NamedInfoCase &c = GetParam();
    test::TempDir dir;
    const QString f = dir.writeSized(c.name, c.size);
    const auto r = runCli({"info", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject j = r.json();
    EXPECT_EQ(j["source"].toString(), "name");
    EXPECT_EQ(j["width"].toInt(), c.width);
    EXPECT_EQ(j["height"].toInt(), c.height);
    EXPECT_DOUBLE_EQ(j["rate"].toDouble(), c.rate);
    EXPECT_EQ(j["format"].toString(), c.format);
    EXPECT_EQ(j["bit_depth"].toInt(), c.bits);
    EXPECT_EQ(j["container_bits"].toInt(), c.container);
    EXPECT_EQ(j["signed"].toBool(), c.isSigned);
    EXPECT_EQ(j["playable"].toBool(), c.playable);
    EXPECT_EQ(r.err.isEmpty(), c.playable) << r.err.toStdString();
}

const NamedInfoCase kNamed[] = {
    // One 10-bit 4:2:0 frame of 1920x1080 in 16-bit containers.
    {"foo_1920x1080_50hz_10bit.yuv", 6220800, 1920, 1080, 50.0, "YUV_p420", 10, 16, false, true},
    // Validation turns the absent rate into 25 and the absent depth into 8; the size stays unknown.
    {"clip_rgb_planar.raw", 1000, -1, -1, 25.0, "RGB_planar", 8, 8, false, false},
    {"foo_qcif.yuv", 38016 * 2, 176, 144, 25.0, "YUV_p420", 8, 8, false, true},
    {"movie_-10bit.yuv", 1000, -1, -1, 25.0, "YUV_p420", 10, 16, true, false},
    {"foo_1080p.yuv", 1000, -1, -1, 25.0, "YUV_p420", 8, 8, false, false},
};

INSTANTIATE_TEST_SUITE_P(Names, CliInfoByName, ::testing::ValuesIn(kNamed));

TEST_F(CliFormats, OptionsApplyOverTheDetectedRecord)
{
    const QString f = dir.writeSized("foo_qcif_10bit.yuv", 152064 * 4 * 2);
    const auto r = runCli({"info", "-w", "352", "-h", "288", f});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.json()["width"].toInt(), 352);
    EXPECT_EQ(r.json()["bit_depth"].toInt(), 10);
    EXPECT_EQ(r.json()["frame_count"].toInt(), 4);
}

TEST_F(CliFormats, SideFileAndHeaderSources)
{
    const QString a = dir.writeSized("a_qcif.yuv", 152064 * 2);
    dir.write("a_qcif.hdr", "width=352\nheight=288\nformat=yuv420\n");
    auto r = runCli({"info", a});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.json()["source"].toString(), "hdr");
    EXPECT_EQ(r.json()["width"].toInt(), 352);
    EXPECT_EQ(r.json()["frame_count"].toInt(), 2);

    // 4x2 4:2:0 frames of 12 bytes after the header: the header's bytes are skipped, not counted as frames.
    const QByteArray h = "vix\n>VIDEO< 30 3\n>COLOUR< YCbCr\n>IMAGE< unsigned byte 8 little-endian 4 2 3 1 1 2 2 2 2\n";
    const QString b = dir.write("b.raw", h + QByteArray(12 * 3 + 5, 'a'));
    r = runCli({"info", b});
    ASSERT_EQ(r.rc, 0);
    const QJsonObject j = r.json();
    EXPECT_EQ(j["source"].toString(), "vix");
    EXPECT_EQ(j["header_bytes"].toInt(), h.size());
    EXPECT_EQ(j["frame_bytes"].toInt(), 12);
    EXPECT_EQ(j["frame_count"].toInt(), 3);
    EXPECT_EQ(j["rate"].toDouble(), 30.0);
    EXPECT_EQ(j["format"].toString(), "YUV_p420");
}

TEST_F(CliFormats, StandardInputStaysDefault)
{
    const auto r = runCli({"info", "-"});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.json()["source"].toString(), "default");
}

TEST_F(CliFormats, InfoNeverWritesTheStore)
{
    const QString f = dir.writeSized("foo_qcif.yuv", 38016);
    ASSERT_EQ(runCli({"info", "-w", "176", "-h", "144", f}).rc, 0);
    EXPECT_FALSE(storeExists());
}

TEST_F(CliFormats, RememberedRecordWinsUntilForgotten)
{
    const QString f = dir.writeSized("clip_rgb_1920x1080.raw", 152064 * 3);
    dir.write("clip_rgb_1920x1080.hdr", "width=16\nheight=16\n");
    auto r = runCli({"remember", "-w", "352", "-h", "288", "-f", "yuv420", "-r", "50", f});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    QJsonObject j = r.json();
    EXPECT_EQ(j["file"].toString(), f);
    EXPECT_EQ(j["key"].toString(), f);
    EXPECT_TRUE(j["remembered"].toBool());
    EXPECT_FALSE(j["replaced"].toBool());
    EXPECT_EQ(j["source"].toString(), "hdr");
    EXPECT_EQ(j["frame_count"].toInt(), 3);

    r = runCli({"info", f});
    ASSERT_EQ(r.rc, 0);
    j = r.json();
    EXPECT_EQ(j["source"].toString(), "remembered");
    EXPECT_EQ(j["width"].toInt(), 352);
    EXPECT_EQ(j["format"].toString(), "YUV_p420");
    EXPECT_EQ(j["rate"].toDouble(), 50.0);
    EXPECT_EQ(j["frame_count"].toInt(), 3);
    EXPECT_TRUE(j["playable"].toBool());

    r = runCli({"info", "--no-remembered", f});
    EXPECT_EQ(r.json()["source"].toString(), "hdr");
    EXPECT_EQ(r.json()["width"].toInt(), 16);

    // Remembering again starts from the remembered record and replaces it; a record that does not
    // fit the file is refused and the old one stays.
    r = runCli({"remember", "-w", "1920", "-h", "1080", f});
    ASSERT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("not playable")) << r.err.toStdString();
    EXPECT_TRUE(r.err.contains("nothing remembered")) << r.err.toStdString();
    EXPECT_EQ(r.err.count('\n'), 1);
    EXPECT_EQ(runCli({"info", f}).json()["width"].toInt(), 352);
    r = runCli({"remember", "--flip", f});
    ASSERT_EQ(r.rc, 0);
    EXPECT_TRUE(r.json()["replaced"].toBool());
    EXPECT_EQ(r.json()["source"].toString(), "remembered");
    EXPECT_TRUE(runCli({"info", f}).json()["flipped"].toBool());

    r = runCli({"forget", f});
    ASSERT_EQ(r.rc, 0);
    EXPECT_EQ(r.out.trimmed(), QStringLiteral("{\"file\": \"%1\", \"key\": \"%1\", \"forgotten\": true}").arg(f));
    EXPECT_EQ(runCli({"info", f}).json()["source"].toString(), "hdr");
    r = runCli({"forget", f});
    ASSERT_EQ(r.rc, 0);
    EXPECT_FALSE(r.json()["forgotten"].toBool());
}

TEST_F(CliFormats, RememberUsesTheSameStoreAsThePlayer)
{
    const QString f = dir.writeSized("x.yuv", 38016);
    ASSERT_EQ(runCli({"remember", "-w", "176", "-h", "144", f}).rc, 0);
    const auto rec = lookupRemembered(f);
    ASSERT_TRUE(rec.has_value());
    EXPECT_EQ(rec->width, 176);
    EXPECT_EQ(rec->fileName, f);
    EXPECT_EQ(rec->frameCount, 1u);
    EXPECT_GT(rec->timeStamp, 0u);
}

TEST_F(CliFormats, RememberRefusesWhatCannotBePlayed)
{
    const QString f = dir.writeSized("clip_rgb_planar.raw", 1000);
    auto r = runCli({"remember", f});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_TRUE(r.err.contains("frame size is not known")) << r.err.toStdString();
    EXPECT_FALSE(storeExists());

    r = runCli({"remember", "-w", "352", "-h", "288", "-"});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("standard input")) << r.err.toStdString();

    r = runCli({"remember", "-w", "352", "-h", "288", dir.path("missing.yuv")});
    EXPECT_EQ(r.rc, 1);
    EXPECT_TRUE(r.err.contains("cannot open")) << r.err.toStdString();
    EXPECT_FALSE(storeExists());
}

TEST_F(CliFormats, UsageErrors)
{
    EXPECT_EQ(runCli({"remember"}).rc, 2);
    EXPECT_EQ(runCli({"forget"}).rc, 2);
    EXPECT_EQ(runCli({"forget", "a", "b"}).rc, 2);
    EXPECT_EQ(runCli({"forget", "-w", "3", "a"}).rc, 2);
    EXPECT_EQ(runCli({"remember", "--bits", "99", "a"}).rc, 2);
    EXPECT_EQ(runCli({"remember", "--help"}).rc, 0);
}

TEST_F(CliFormats, ForgetOfAVanishedFile)
{
    VideoProps p;
    p.fileName = "/gone/away.yuv";
    storeRemembered(p);
    const auto r = runCli({"forget", "/gone/away.yuv"});
    ASSERT_EQ(r.rc, 0);
    EXPECT_TRUE(r.json()["forgotten"].toBool());
    EXPECT_TRUE(readRememberedFormats().isEmpty());
}

} // namespace
