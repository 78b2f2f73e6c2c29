// kavri-cli metrics: the JSON and CSV contract, identical and nearly identical sequences, depths, failures.
#include "cli/CliTestSupport.h"
#include "support/TempFiles.h"

#include <QFile>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

QJsonObject jsonLine(const QString &line) { return QJsonDocument::fromJson(line.toUtf8()).object(); }

QStringList lines(const QString &out) { return out.trimmed().split('\n'); }

// A 32x16 4:2:0 pattern sequence of `frames` frames and a copy of it.
struct Pair {
    test::TempDir dir;
    QString a, b;
    explicit Pair(int frames, const char *bits = "8")
    {
        a = dir.path("a.yuv");
        b = dir.path("b.yuv");
        EXPECT_EQ(runCli({"synth", "-f", "yuv420", "--size", "32x16", "--bits", bits, "--frames",
                          QString::number(frames), "-o", a})
                      .rc,
                  0);
        EXPECT_TRUE(QFile::copy(a, b));
    }
    // Flips the low bit of byte `offset` of b.
    void flip(qint64 offset) const
    {
        QFile f(b);
        ASSERT_TRUE(f.open(QIODevice::ReadWrite));
        f.seek(offset);
        char c = 0;
        f.getChar(&c);
        f.seek(offset);
        f.putChar(char(c ^ 1));
    }
};

const QStringList kFormat{"-w", "32", "-h", "16", "-f", "yuv420", "--no-remembered"};

TEST(CliMetrics, IdenticalSequences)
{
    Pair p(3);
    const auto r = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QStringList out = lines(r.out);
    ASSERT_EQ(out.size(), 4);
    for (int i = 0; i < 3; ++i) {
        const QJsonObject j = jsonLine(out[i]);
        EXPECT_EQ(j["frame"].toInt(), i);
        EXPECT_EQ(j["psnr"].toArray(), (QJsonArray{"inf", "inf", "inf"}));
        EXPECT_EQ(j["mse"].toArray(), (QJsonArray{0.0, 0.0, 0.0}));
        EXPECT_EQ(j["ssim"].toArray(), (QJsonArray{1.0, 1.0, 1.0}));
        for (const auto &v : j["msssim"].toArray()) EXPECT_NEAR(v.toDouble(), 1.0, 1e-12);
        EXPECT_EQ(j["wpsnr"].toString(), "inf");
    }
    // Keys in the documented order.
    EXPECT_TRUE(out[0].startsWith("{\"frame\": 0, \"mse\": [0.0, 0.0, 0.0], \"psnr\": [\"inf\", \"inf\", \"inf\"], "
                                  "\"ssim\": [1.0, 1.0, 1.0], \"msssim\": ["))
        << out[0].toStdString();
    EXPECT_TRUE(out[3].startsWith("{\"summary\": true, \"frames\": 3, \"mean\": {\"psnr\": ")) << out[3].toStdString();
    const QJsonObject s = jsonLine(out[3]);
    EXPECT_EQ(s.keys().size(), 8);
    EXPECT_EQ(s["mean"].toObject()["psnr"].toArray(), (QJsonArray{"inf", "inf", "inf"}));
    EXPECT_EQ(s["min"].toObject()["ssim"].toArray(), (QJsonArray{1.0, 1.0, 1.0}));
    EXPECT_EQ(s["mean"].toObject()["wpsnr"].toString(), "inf");
    EXPECT_EQ(s["psnr_of_mean_mse"].toArray(), (QJsonArray{"inf", "inf", "inf"}));
    EXPECT_EQ(s["worst"].toArray(), (QJsonArray{0, 1, 2}));
    EXPECT_TRUE(s["first_mismatch"].isNull());
    EXPECT_TRUE(out[3].contains("\"first_mismatch\": null, \"identical\": true}"));
    EXPECT_TRUE(s["identical"].toBool());
}

TEST(CliMetrics, OneChangedSampleInTheLastFrame)
{
    Pair p(4);
    const qint64 frameBytes = 32 * 16 * 3 / 2;
    // The U sample at chroma (6, 2) of frame 3.
    p.flip(3 * frameBytes + 32 * 16 + 2 * 16 + 6);
    const auto r = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b, "--worst", "2"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QStringList out = lines(r.out);
    ASSERT_EQ(out.size(), 5);
    const QJsonObject last = jsonLine(out[3]);
    EXPECT_EQ(last["psnr"].toArray()[0].toString(), "inf");
    EXPECT_NEAR(last["mse"].toArray()[1].toDouble(), 1.0 / 128, 1e-15);
    EXPECT_LT(last["ssim"].toArray()[1].toDouble(), 1.0);
    const QJsonObject s = jsonLine(out[4]);
    EXPECT_FALSE(s["identical"].toBool());
    EXPECT_EQ(s["first_mismatch"].toObject(), (QJsonObject{{"frame", 3}, {"component", 1}, {"x", 6}, {"y", 2}}));
    EXPECT_TRUE(out[4].contains("\"first_mismatch\": {\"frame\": 3, \"component\": 1, \"x\": 6, \"y\": 2}"));
    EXPECT_EQ(s["worst"].toArray().size(), 2);

    // Ordered by SSIM (the first metric asked for), the changed frame is the worst.
    const auto byS = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b, "--metrics", "ssim,psnr"});
    ASSERT_EQ(byS.rc, 0);
    EXPECT_EQ(jsonLine(lines(byS.out).last())["worst"].toArray().first().toInt(), 0); // Y ties: frame order
    const auto byU = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b, "--frames", "2-3"});
    ASSERT_EQ(byU.rc, 0);
    EXPECT_EQ(jsonLine(lines(byU.out)[0])["frame"].toInt(), 2);
    EXPECT_EQ(jsonLine(lines(byU.out).last())["frames"].toInt(), 2);
}

// The same PSNR, to the last digit, as diff prints.
TEST(CliMetrics, PsnrIsThatOfDiff)
{
    test::TempDir dir;
    const QString a = dir.path("a.yuv"), b = dir.path("b.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "32x16", "--bits", "10", "--frames", "8", "-o", a}).rc, 0);
    // The same frames in another order: every frame differs.
    QFile in(a);
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));
    const QByteArray all = in.readAll();
    const int fb = all.size() / 8;
    QByteArray shuffled;
    for (int i = 0; i < 8; ++i) shuffled += all.mid(((i * 3) % 8) * fb, fb);
    dir.write("b.yuv", shuffled);
    const QStringList fmt{"-w", "32", "-h", "16", "-f", "yuv420", "--bits", "10", "--no-remembered"};
    const auto m = runCli(QStringList{"metrics"} + fmt + QStringList{a, b, "--metrics", "psnr"});
    const auto d = runCli(QStringList{"diff"} + fmt + QStringList{a, b});
    ASSERT_EQ(m.rc, 0) << m.err.toStdString();
    ASSERT_EQ(d.rc, 0);
    const QStringList ml = lines(m.out), dl = lines(d.out);
    ASSERT_EQ(ml.size(), dl.size());
    for (int i = 0; i < 8; ++i) {
        const QJsonObject mj = jsonLine(ml[i]), dj = jsonLine(dl[i]);
        EXPECT_EQ(mj["psnr"], dj["psnr"]) << i;
        EXPECT_EQ(mj["mse"], dj["mse"]) << i;
        EXPECT_EQ(mj.keys(), (QStringList{"frame", "mse", "psnr"}));
    }
    EXPECT_EQ(jsonLine(ml.last())["psnr_of_mean_mse"], jsonLine(dl.last())["psnr"]);
}

TEST(CliMetrics, DifferentDepths)
{
    test::TempDir dir;
    const QString a = dir.path("a.yuv"), b = dir.path("b.yuv");
    ASSERT_EQ(runCli({"synth", "-f", "yuv420", "--size", "32x16", "--frames", "2", "-o", a}).rc, 0);
    // The 8-bit samples times 4 as 16-bit little-endian words: the same picture at 10 bits.
    QFile in(a);
    ASSERT_TRUE(in.open(QIODevice::ReadOnly));
    const QByteArray bytes = in.readAll();
    QByteArray wide;
    for (char c : bytes) {
        const uint16_t v = uint16_t(uint8_t(c)) << 2;
        wide.append(char(v & 0xff)).append(char(v >> 8));
    }
    dir.write("b.yuv", wide);
    const QStringList fmt{"-w", "32", "-h", "16", "-f", "yuv420", "--no-remembered", a, b, "--bits", "8"};
    const auto r = runCli(QStringList{"metrics"} + fmt + QStringList{"--bits2", "10"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    ASSERT_EQ(lines(r.out).size(), 3);
    EXPECT_TRUE(jsonLine(lines(r.out).last())["identical"].toBool()) << r.out.toStdString();

    // One sample of the 10-bit file off by one: an MSE of 1/512 at 10 bits.
    wide[2 * 5] = char(wide[2 * 5] ^ 1);
    dir.write("b.yuv", wide);
    const auto d = runCli(QStringList{"metrics"} + fmt + QStringList{"--bits2", "10", "--metrics", "psnr"});
    ASSERT_EQ(d.rc, 0);
    const QJsonObject f0 = jsonLine(lines(d.out)[0]);
    EXPECT_DOUBLE_EQ(f0["mse"].toArray()[0].toDouble(), 1.0 / 512);
    EXPECT_NEAR(f0["psnr"].toArray()[0].toDouble(), 10 * std::log10(1023.0 * 1023.0 * 512), 1e-9);
    EXPECT_EQ(jsonLine(lines(d.out).last())["first_mismatch"].toObject(),
              (QJsonObject{{"frame", 0}, {"component", 0}, {"x", 5}, {"y", 0}}));
}

TEST(CliMetrics, Csv)
{
    Pair p(3);
    const auto r = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b, "--csv", "--metrics", "wpsnr,ssim"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QStringList out = lines(r.out);
    ASSERT_EQ(out.size(), 1 + 3 + 2);
    EXPECT_EQ(out[0], "frame,mse_1,mse_2,mse_3,ssim_1,ssim_2,ssim_3,wpsnr");
    EXPECT_EQ(out[1], "0,0.0,0.0,0.0,1.0,1.0,1.0,inf");
    EXPECT_TRUE(out[4].startsWith("mean,"));
    EXPECT_TRUE(out[5].startsWith("min,"));
    for (const QString &l : out) EXPECT_EQ(l.count(','), 7) << l.toStdString();
}

TEST(CliMetrics, Failures)
{
    Pair p(2);
    struct F {
        const char *name;
        QStringList args;
        int rc;
    };
    const QString none = p.dir.path("none.yuv");
    const F cases[] = {
        {"one file", kFormat + QStringList{p.a}, 2},
        {"three files", kFormat + QStringList{p.a, p.b, p.b}, 2},
        {"unknown metric", kFormat + QStringList{p.a, p.b, "--metrics", "psnr,vmaf"}, 2},
        {"csv and json", kFormat + QStringList{p.a, p.b, "--csv", "--json"}, 2},
        {"backwards range", kFormat + QStringList{p.a, p.b, "--frames", "1-0"}, 2},
        {"not a range", kFormat + QStringList{p.a, p.b, "--frames", "x"}, 2},
        {"negative worst", kFormat + QStringList{p.a, p.b, "--worst", "-1"}, 2},
        {"missing second", kFormat + QStringList{p.a, none}, 1},
        {"missing first", kFormat + QStringList{none, p.b}, 1},
        {"range past the end", kFormat + QStringList{p.a, p.b, "--frames", "2-3"}, 1},
        {"no 10-bit uyvy", QStringList{"-w", "32", "-h", "16", "-f", "uyvy", p.a, p.b, "--bits", "8", "--bits2", "10"},
         1},
    };
    for (const F &c : cases) {
        const auto r = runCli(QStringList{"metrics"} + c.args);
        EXPECT_EQ(r.rc, c.rc) << c.name << ": " << r.err.toStdString();
    }
    const auto json = runCli(QStringList{"metrics"} + kFormat + QStringList{p.a, p.b, "--json", "--frames", "1"});
    EXPECT_EQ(json.rc, 0);
    EXPECT_EQ(lines(json.out).size(), 2);
    EXPECT_TRUE(runCli({"--help"}).out.contains("metrics"));
}

} // namespace
