// End to end through the real kernels: the generator's known sample values must come back out of the
// readout, the conversion and the difference exactly. These fail (rather than skip) while the converter
// and the difference picture are placeholders.
#include "cli/CliTestSupport.h"
#include "pixel/PatternGenerator.h"
#include "support/TempFiles.h"

#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <gtest/gtest.h>

using namespace kavri;
using kavri::test::runCli;

namespace {

constexpr int kW = 48, kH = 24, kFrame = 3;

QString keywordOf(videoFormat_t f)
{
    const std::string_view k = layoutInfo(f).keyword;
    return QString::fromLatin1(k.data(), qsizetype(k.size()));
}

struct PixelCase {
    const char *name;
    videoFormat_t f;
    int bits, container;
    bool isSigned, bigEndian, flip;
};

void PrintTo(const PixelCase &c, std::ostream *os) { *os << c.name; }

QString synth(const test::TempDir &dir, const PixelCase &c)
{
    const QString f = dir.path(QString::fromLatin1(c.name) + ".raw");
    QStringList a{"synth",
                  "-f",
                  keywordOf(c.f),
                  "--size",
                  QStringLiteral("%1x%2").arg(kW).arg(kH),
                  "--bits",
                  QString::number(c.bits),
                  "--container",
                  QString::number(c.container),
                  "--frames",
                  "5",
                  "-o",
                  f};
    if (c.isSigned) a << "--signed";
    if (c.bigEndian) a << "--big-endian";
    const auto r = runCli(a);
    EXPECT_EQ(r.rc, 0) << c.name << ": " << r.err.toStdString();
    return f;
}

QStringList formatArgs(const PixelCase &c)
{
    QStringList a{"-w",     QString::number(kW),     "-h",          QString::number(kH),         "-f", keywordOf(c.f),
                  "--bits", QString::number(c.bits), "--container", QString::number(c.container)};
    if (c.isSigned) a << "--signed";
    if (c.bigEndian) a << "--toggle-endian";
    if (c.flip) a << "--flip";
    return a;
}

int letterComponent(std::string_view l) { return l == "R" ? 0 : l == "G" ? 1 : 2; }

// What the readout reports for the pattern at (x, y): YUV in order; RGB in the conversion's red, green,
// blue assignment, which for the planar BRG and GBR orders is not the one their names suggest.
std::array<int, 3> expectedReadout(const PatternSpec &s, const PixelCase &c, int x, int y)
{
    const PatternPixel p = patternPixel(s, kFrame, x, c.flip ? kH - 1 - y : y);
    const int rgb[3] = {p.c1, p.c2, p.c3};
    const LayoutInfo &info = layoutInfo(c.f);
    std::array<int, 3> r{p.c1, p.c2, p.c3};
    if (info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb)
        for (size_t k = 0; k < 3; ++k) r[k] = rgb[letterComponent(info.letters[info.rgbSource[k]])];
    for (int &v : r) v = patternStoredValue(s, v);
    if (c.f == BW) r[1] = r[2] = 0;
    return r;
}

class CliPixelValues : public ::testing::TestWithParam<PixelCase> {};

TEST_P(CliPixelValues, ReadoutGivesTheGeneratorsSamples)
{
    const PixelCase c = GetParam();
    test::TempDir dir;
    const QString f = synth(dir, c);
    PatternSpec s;
    s.layout = c.f;
    s.width = kW;
    s.height = kH;
    s.bits = c.bits;
    s.containerBits = c.container;
    s.isSigned = c.isSigned;
    // Corners (edge checker), the glyph, the bars, the moving block's row, the ramps and the frame bits.
    const int points[][2] = {{0, 0},   {kW - 1, kH - 1}, {3, 3},       {4, 2},          {13, 5}, {kW / 2 + 1, kH / 4},
                             {30, 13}, {7, 16},          {kW - 2, 19}, {kW / 2, kH - 2}};
    for (const auto &pt : points) {
        const QString at = QStringLiteral("%1,%2").arg(pt[0]).arg(pt[1]);
        const auto r = runCli(QStringList{"pixel"} + formatArgs(c) +
                              QStringList{f, "--frame", QString::number(kFrame), "--at", at});
        ASSERT_EQ(r.rc, 0) << c.name << " at " << at.toStdString() << ": " << r.out.toStdString() << r.err.toStdString()
                           << " (a failure here with the placeholder converter means the pixel engine is not merged)";
        const QJsonObject j = r.json();
        ASSERT_EQ(j.keys().size(), 6);
        EXPECT_TRUE(j["ok"].toBool());
        EXPECT_EQ(j["space"].toInt(), int(c.f));
        const std::array<int, 3> e = expectedReadout(s, c, pt[0], pt[1]);
        EXPECT_EQ(j["c1"].toInt(), e[0]) << c.name << " at " << at.toStdString();
        EXPECT_EQ(j["c2"].toInt(), e[1]) << c.name << " at " << at.toStdString();
        EXPECT_EQ(j["c3"].toInt(), e[2]) << c.name << " at " << at.toStdString();
        const int alpha =
            layoutInfo(c.f).hasAlpha
                ? patternStoredValue(s, patternPixel(s, kFrame, pt[0], c.flip ? kH - 1 - pt[1] : pt[1]).alpha)
                : -1;
        EXPECT_EQ(j["alpha"].toInt(), alpha) << c.name << " at " << at.toStdString();
    }
}

const PixelCase kPixelCases[] = {
    {"yuv420_8", YUV_p420, 8, 8, false, false, false},
    {"yuv420_10_signed", YUV_p420, 10, 16, true, false, false},
    {"yuv420_10_bigendian", YUV_p420, 10, 16, false, true, false},
    {"yuv420_flipped", YUV_p420, 8, 8, false, false, true},
    {"yuv444_12", YUV_p444, 12, 16, false, false, false},
    {"yuv411_8", YUV_p411, 8, 8, false, false, false},
    {"uyvy", YUV_uyvy, 8, 8, false, false, false},
    {"yuyv", YUV_yuyv, 8, 8, false, false, false},
    {"nv12", YUV_nv12, 8, 8, false, false, false},
    {"v210", YUV_v210, 10, 16, false, false, false},
    {"rgb_8", RGB_i444, 8, 8, false, false, false},
    {"bgr_16", BGR_i444, 16, 16, false, false, false},
    {"rgba_8", RGBA_i444, 8, 8, false, false, false},
    {"bgra_8", BGRA_i444, 8, 8, false, false, false},
    {"rgbp_9_signed", RGB_planar, 9, 16, true, false, false},
    {"brgp_8", BRG_planar, 8, 8, false, false, false},
    {"gbrp_8", GBR_planar, 8, 8, false, false, false},
    {"grbap_10_bigendian", GRBA_planar, 10, 16, false, true, false},
    {"luma_16", BW, 16, 16, false, false, false},
    {"luma_4_signed", BW, 4, 8, true, false, false},
};
INSTANTIATE_TEST_SUITE_P(Layouts, CliPixelValues, ::testing::ValuesIn(kPixelCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(CliRenderValues, RgbFrameComesBackExactly)
{
    // The identity matrix with the 128 rounding term maps every 8-bit sample onto itself.
    test::TempDir dir;
    const PixelCase c{"rgb", RGB_i444, 8, 8, false, false, false};
    const QString f = synth(dir, c);
    const QString png = dir.path("rgb.png");
    const auto r =
        runCli(QStringList{"render"} + formatArgs(c) + QStringList{f, "--frame", QString::number(kFrame), "-o", png});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QImage img(png);
    ASSERT_EQ(img.size(), QSize(kW, kH));
    PatternSpec s;
    s.layout = RGB_i444;
    s.width = kW;
    s.height = kH;
    int wrong = 0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            const PatternPixel p = patternPixel(s, kFrame, x, y);
            const QRgb px = img.pixel(x, y);
            if (qRed(px) != p.c1 || qGreen(px) != p.c2 || qBlue(px) != p.c3) ++wrong;
        }
    EXPECT_EQ(wrong, 0) << "pixels differing from the pattern (all of them: the converter wrote nothing)";
}

TEST(CliDiffValues, KnownErrorInOneSample)
{
    test::TempDir dir;
    const PixelCase c{"a", YUV_p420, 8, 8, false, false, false};
    const QString a = synth(dir, c);
    QFile fa(a);
    ASSERT_TRUE(fa.open(QIODevice::ReadOnly));
    QByteArray bytes = fa.readAll();
    // Frame 1, luma sample (5, 3) raised by 4: MSE 16 / (W*H) in Y, nothing in U and V.
    const int frameBytes = kW * kH * 3 / 2, at = frameBytes + 3 * kW + 5;
    ASSERT_LT(uint8_t(bytes[at]), 252);
    bytes[at] = char(uint8_t(bytes[at]) + 4);
    const QString b = dir.write("b.yuv", bytes);
    const auto r =
        runCli({"diff", "-w", QString::number(kW), "-h", QString::number(kH), "-f", "yuv420", a, b, "--frames", "2"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QStringList lines = r.out.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 3);
    const QJsonObject f0 = QJsonDocument::fromJson(lines[0].toUtf8()).object();
    EXPECT_EQ(f0["psnr"].toArray(), (QJsonArray{"inf", "inf", "inf"})) << lines[0].toStdString();
    const QJsonObject f1 = QJsonDocument::fromJson(lines[1].toUtf8()).object();
    const double mse = 16.0 / (kW * kH);
    EXPECT_DOUBLE_EQ(f1["mse"].toArray()[0].toDouble(), mse) << lines[1].toStdString();
    EXPECT_NEAR(f1["psnr"].toArray()[0].toDouble(), 10 * std::log10(255.0 * 255.0 / mse), 1e-9);
    EXPECT_EQ(f1["first_diff"].toArray()[0].toArray(), (QJsonArray{5, 3}));
    EXPECT_EQ(f1["first_diff"].toArray()[1].toArray(), (QJsonArray{-1, -1}));
    const QJsonObject sum = QJsonDocument::fromJson(lines[2].toUtf8()).object();
    EXPECT_DOUBLE_EQ(sum["mse"].toArray()[0].toDouble(), mse / 2);
    EXPECT_NEAR(sum["psnr"].toArray()[0].toDouble(), 10 * std::log10(255.0 * 255.0 / (mse / 2)), 1e-9);
    EXPECT_EQ(sum["psnr"].toArray()[1].toString(), "inf");

    // The readout of the difference view reports first minus second, alpha the largest sample value.
    const auto p = runCli({"pixel", "-w", QString::number(kW), "-h", QString::number(kH), "-f", "yuv420", a, "--diff",
                           b, "--frame", "1", "--at", "5,3"});
    ASSERT_EQ(p.rc, 0) << p.out.toStdString() << p.err.toStdString();
    EXPECT_EQ(p.json()["c1"].toInt(), -4);
    EXPECT_EQ(p.json()["c2"].toInt(), 0);
    EXPECT_EQ(p.json()["alpha"].toInt(), 255);
}

TEST(CliDiffValues, BigEndianFilesAreComparedInNativeOrder)
{
    // Two 10-bit big-endian files one apart in a single luma sample: an error of 1, not of 256.
    test::TempDir dir;
    const PixelCase c{"be", YUV_p420, 10, 16, false, true, false};
    const QString a = synth(dir, c);
    QFile fa(a);
    ASSERT_TRUE(fa.open(QIODevice::ReadOnly));
    QByteArray bytes = fa.readAll();
    const int at = 2 * (2 * kW + 7) + 1; // low byte of luma (7, 2), stored second
    ASSERT_NE(uint8_t(bytes[at]), 0xff);
    bytes[at] = char(uint8_t(bytes[at]) + 1);
    const QString b = dir.write("b.yuv", bytes);
    const auto r = runCli({"diff", "-w", QString::number(kW), "-h", QString::number(kH), "-f", "yuv420", "--bits", "10",
                           "--toggle-endian", a, b, "--frames", "1"});
    ASSERT_EQ(r.rc, 0) << r.err.toStdString();
    const QJsonObject f0 = QJsonDocument::fromJson(r.out.split('\n')[0].toUtf8()).object();
    EXPECT_DOUBLE_EQ(f0["mse"].toArray()[0].toDouble(), 1.0 / (kW * kH)) << r.out.toStdString();
    EXPECT_EQ(f0["first_diff"].toArray()[0].toArray(), (QJsonArray{7, 2}));
}

} // namespace
