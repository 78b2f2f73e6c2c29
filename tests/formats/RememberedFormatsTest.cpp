#include "formats/RememberedFormats.h"
#include "formats/Settings.h"

#include <QDataStream>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QVariant>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

using namespace kavri;

namespace {

const QString kKey = QLatin1String(settings::kFileFormats);

// Every test starts from an empty store.
class Remembered : public ::testing::Test {
protected:
    void SetUp() override
    {
        QSettings s;
        s.clear();
        s.sync();
    }
};

VideoProps filled()
{
    VideoProps p;
    p.width = 352;
    p.height = 288;
    p.frameRate = 25.0;
    p.frameCount = 3;
    p.fileSize = 456192;
    p.format = YUV_p422;
    p.bitDepth = 10;
    p.containerBits = 16;
    p.frameBytes = 152064;
    p.interlaced = true;
    p.fileName = "a/b.yuv";
    p.diffFileName = "not/stored.yuv";
    p.flipped = false;
    p.anamorphic = true;
    p.toggleEndianness = false;
    p.swapUV = true;
    p.headerBytes = 512;
    p.timeStamp = 0x100000005ull; // the upper half is not stored
    p.signedValues = true;
    p.scaleX = 2048;
    p.scaleY = 8192;
    return p;
}

// Big-endian writer for the expected bytes, independent of QDataStream.
struct Bytes {
    QByteArray b;
    Bytes &u(uint64_t v, int n)
    {
        for (int i = n - 1; i >= 0; --i) b += char((v >> (8 * i)) & 0xff);
        return *this;
    }
    Bytes &i32(int32_t v) { return u(uint32_t(v), 4); }
    Bytes &u32(uint32_t v) { return u(v, 4); }
    Bytes &u64(uint64_t v) { return u(v, 8); }
    Bytes &f64(double v)
    {
        uint64_t bits;
        std::memcpy(&bits, &v, 8);
        return u(bits, 8);
    }
    Bytes &flag(bool v) { return u(v ? 1 : 0, 1); }
    Bytes &str(const char *s)
    {
        const QString q = QString::fromLatin1(s);
        u32(uint32_t(q.size() * 2));
        for (QChar c : q) u(c.unicode(), 2);
        return *this;
    }
};

QByteArray streamed(const VideoProps &p)
{
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s << p;
    return out;
}

TEST(VideoPropsStream, ExactByteLayout)
{
    Bytes e;
    e.i32(352).i32(288).f64(25.0).u64(3).u64(456192).i32(0).i32(10).i32(16).u32(152064).flag(true).str("a/b.yuv");
    e.flag(false).flag(true).flag(false).flag(true).u32(512).u64(5).flag(true).i32(2048).i32(8192).str("YUV_p422");
    EXPECT_EQ(streamed(filled()).toHex(' ').toStdString(), e.b.toHex(' ').toStdString());
}

TEST(VideoPropsStream, RoundTripKeepsEveryStoredField)
{
    const VideoProps in = filled();
    QByteArray bytes = streamed(in);
    VideoProps out;
    out.diffFileName = "kept.yuv";
    QDataStream s(bytes);
    s >> out;
    ASSERT_EQ(s.status(), QDataStream::Ok);
    EXPECT_TRUE(s.atEnd());
    EXPECT_EQ(out.width, 352);
    EXPECT_EQ(out.height, 288);
    EXPECT_EQ(out.frameRate, 25.0);
    EXPECT_EQ(out.frameCount, 3u);
    EXPECT_EQ(out.fileSize, 456192u);
    EXPECT_EQ(out.format, YUV_p422);
    EXPECT_EQ(out.bitDepth, 10);
    EXPECT_EQ(out.containerBits, 16);
    EXPECT_EQ(out.frameBytes, 152064u);
    EXPECT_TRUE(out.interlaced);
    EXPECT_EQ(out.fileName, "a/b.yuv");
    EXPECT_EQ(out.diffFileName, "kept.yuv");
    EXPECT_FALSE(out.flipped);
    EXPECT_TRUE(out.anamorphic);
    EXPECT_FALSE(out.toggleEndianness);
    EXPECT_TRUE(out.swapUV);
    EXPECT_EQ(out.headerBytes, 512u);
    EXPECT_EQ(out.timeStamp, 5u);
    EXPECT_TRUE(out.signedValues);
    EXPECT_EQ(out.scaleX, 2048);
    EXPECT_EQ(out.scaleY, 8192);
}

TEST(VideoPropsStream, EveryLayoutTravelsByName)
{
    for (int f = 1; f <= kLayoutCount; ++f) {
        VideoProps in;
        in.format = videoFormat_t(f);
        QByteArray bytes = streamed(in);
        VideoProps out;
        QDataStream s(bytes);
        s >> out;
        EXPECT_EQ(out.format, f);
    }
}

TEST(VideoPropsStream, UnknownNameAndOddValuesAreMadeHarmless)
{
    VideoProps in = filled();
    in.frameRate = std::numeric_limits<double>::quiet_NaN();
    in.scaleX = 0;
    in.scaleY = -4096;
    QByteArray bytes = streamed(in);
    // Same length, a layout name that no version of the table has.
    bytes.replace(bytes.size() - 16, 16, Bytes().str("YUV_p999").b.mid(4));
    VideoProps out;
    QDataStream s(bytes);
    s >> out;
    ASSERT_EQ(s.status(), QDataStream::Ok);
    EXPECT_EQ(out.format, FMT_UNKNOWN);
    EXPECT_EQ(out.frameRate, -1.0);
    EXPECT_EQ(out.scaleX, kScaleOne);
    EXPECT_EQ(out.scaleY, kScaleOne);
}

TEST(VideoPropsStream, TruncatedRecordChangesNothing)
{
    const QByteArray bytes = streamed(filled());
    for (qsizetype cut = 0; cut < bytes.size(); ++cut) {
        VideoProps out;
        QDataStream s(bytes.left(cut));
        s >> out;
        EXPECT_NE(s.status(), QDataStream::Ok) << cut;
        EXPECT_EQ(out.width, 0) << cut;
        EXPECT_TRUE(out.fileName.isEmpty()) << cut;
    }
}

TEST_F(Remembered, TypesAreKnownOnceTheStoreIsSetUp)
{
    // initSettingsStore (run by the test main) must register them before any settings are read.
    EXPECT_TRUE(QMetaType::fromName("VPHash").isValid());
    EXPECT_TRUE(QMetaType::fromName("VideoProps").isValid());
    EXPECT_EQ(QMetaType::fromName("VPHash"), QMetaType::fromType<VPHash>());
}

TEST_F(Remembered, MissingKeyReadsAsEmpty)
{
    EXPECT_TRUE(readRememberedFormats().isEmpty());
    EXPECT_FALSE(lookupRemembered("a.yuv").has_value());
}

TEST_F(Remembered, StoreTurnsBackslashesAndStampsTheTime)
{
    VideoProps p = filled();
    p.fileName = "C:\\video\\a.yuv";
    const uint64_t before = uint64_t(QDateTime::currentSecsSinceEpoch());
    storeRemembered(p);
    const uint64_t after = uint64_t(QDateTime::currentSecsSinceEpoch());
    EXPECT_EQ(p.fileName, "C:/video/a.yuv");
    EXPECT_GE(p.timeStamp, before);
    EXPECT_LE(p.timeStamp, after);
    EXPECT_EQ(p.timeStamp >> 32, 0u);

    const VPHash all = readRememberedFormats();
    ASSERT_EQ(all.size(), 1);
    EXPECT_TRUE(all.contains("C:/video/a.yuv"));
    const auto found = lookupRemembered("C:/video/a.yuv");
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->fileName, "C:/video/a.yuv");
    EXPECT_EQ(found->format, YUV_p422);
    EXPECT_EQ(found->width, 352);
    EXPECT_EQ(found->timeStamp, p.timeStamp);
    // The look-up writes the path as the store does, so the original spelling finds it too.
    EXPECT_TRUE(lookupRemembered("C:\\video\\a.yuv").has_value());
    // Keys compare case-sensitively.
    EXPECT_FALSE(lookupRemembered("c:/video/a.yuv").has_value());
    EXPECT_FALSE(lookupRemembered("C:/video/a.yu").has_value());
}

TEST_F(Remembered, StandardInputAndEmptyNamesAreNeverStored)
{
    VideoProps p = filled();
    p.fileName = "-";
    EXPECT_FALSE(tryStoreRemembered(p));
    p.fileName.clear();
    storeRemembered(p);
    EXPECT_TRUE(readRememberedFormats().isEmpty());
    EXPECT_FALSE(QSettings().contains(kKey));
}

TEST_F(Remembered, StoreReplacesTheSameKeyAndKeepsOthers)
{
    VideoProps a = filled();
    a.fileName = "a.yuv";
    VideoProps b = filled();
    b.fileName = "b.yuv";
    storeRemembered(a);
    storeRemembered(b);
    a.width = 64;
    storeRemembered(a);
    const VPHash all = readRememberedFormats();
    EXPECT_EQ(all.size(), 2);
    EXPECT_EQ(all.value("a.yuv").width, 64);
    EXPECT_EQ(all.value("b.yuv").width, 352);

    EXPECT_TRUE(forgetRemembered("a.yuv"));
    EXPECT_FALSE(forgetRemembered("a.yuv"));
    EXPECT_EQ(readRememberedFormats().keys(), QStringList{"b.yuv"});
}

TEST_F(Remembered, OtherSettingsSurviveEveryOperation)
{
    QSettings().setValue("Settings/Loop", false);
    VideoProps p = filled();
    storeRemembered(p);
    forgetRemembered(p.fileName);
    EXPECT_EQ(QSettings().value("Settings/Loop").toBool(), false);
}

VPHash sixtyRecords()
{
    std::vector<int> order(60);
    for (int i = 0; i < 60; ++i) order[size_t(i)] = i;
    std::mt19937 rng(7);
    std::shuffle(order.begin(), order.end(), rng);
    VPHash h;
    for (int i : order) {
        VideoProps p;
        p.fileName = QStringLiteral("f%1.yuv").arg(i);
        p.timeStamp = 1000 + uint64_t(i) * 10;
        h.insert(p.fileName, p);
    }
    return h;
}

TEST(NewestRemembered, KeepsTheNewestAndBreaksTiesByKey)
{
    const VPHash newest = newestRemembered(sixtyRecords(), 50);
    ASSERT_EQ(newest.size(), 50);
    for (int i = 10; i < 60; ++i) EXPECT_TRUE(newest.contains(QStringLiteral("f%1.yuv").arg(i))) << i;

    VPHash ties;
    for (const char *k : {"c", "a", "b"}) {
        VideoProps p;
        p.timeStamp = 5;
        ties.insert(k, p);
    }
    EXPECT_EQ(newestRemembered(ties, 2).keys().size(), 2);
    EXPECT_TRUE(newestRemembered(ties, 2).contains("c"));
    EXPECT_TRUE(newestRemembered(ties, 2).contains("b"));
    EXPECT_TRUE(newestRemembered(ties, 0).isEmpty());
    EXPECT_EQ(newestRemembered(ties, 10).size(), 3);
}

TEST_F(Remembered, PruningKeepsTheNewestFiftyOncePerProcess)
{
    ASSERT_TRUE(writeRememberedFormats(sixtyRecords()));
    pruneRememberedOnce();
    const VPHash kept = readRememberedFormats();
    ASSERT_EQ(kept.size(), 50);
    for (auto it = kept.cbegin(); it != kept.cend(); ++it) EXPECT_GE(it->timeStamp, 1100u) << it.key().toStdString();

    // A second call in the same process leaves the store alone.
    ASSERT_TRUE(writeRememberedFormats(sixtyRecords()));
    pruneRememberedOnce();
    EXPECT_EQ(readRememberedFormats().size(), 60);
}

// --- Values that cannot be read ----------------------------------------------------------------

// The settings file itself, written behind the store's back, as another program might leave it.
void writeSettingsFile(const QByteArray &fileFormatsLine)
{
    const QString path = QSettings().fileName();
    QDir().mkpath(QFileInfo(path).path());
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write("[General]\n" + fileFormatsLine + "\nother=keep\n\n[Settings]\nGridsize=32\n");
    }
    // The store re-reads a file whose size or time changed; make sure the time does.
    static int bump = 0;
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::ReadWrite));
    ASSERT_TRUE(f.setFileTime(QDateTime::currentDateTime().addSecs(3600 + ++bump), QFileDevice::FileModificationTime));
}

// A value line holding exactly these bytes as a stored variant.
QByteArray variantLine(const QByteArray &variantBytes)
{
    QByteArray line = "FileFormats=@Variant(";
    for (char c : variantBytes) line += "\\x" + QByteArray::number(uchar(c), 16);
    return line + ")";
}

QByteArray variantBytesOf(const QVariant &v)
{
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s.setVersion(QDataStream::Qt_4_0); // what the settings store uses
    s << v;
    return out;
}

void expectEmptyAndOthersKept(const char *what)
{
    EXPECT_TRUE(readRememberedFormats().isEmpty()) << what;
    EXPECT_FALSE(lookupRemembered("a.yuv").has_value()) << what;
    VideoProps p = filled();
    p.fileName = "new.yuv";
    EXPECT_TRUE(tryStoreRemembered(p)) << what;
    EXPECT_EQ(readRememberedFormats().keys(), QStringList{"new.yuv"}) << what;
    const QSettings s;
    EXPECT_EQ(s.value("other").toString(), "keep") << what;
    EXPECT_EQ(s.value("Settings/Gridsize").toInt(), 32) << what;
}

TEST_F(Remembered, ValidFileIsReadBack)
{
    VPHash h;
    h.insert("a.yuv", filled());
    writeSettingsFile(variantLine(variantBytesOf(QVariant::fromValue(h))));
    const auto found = lookupRemembered("a.yuv");
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->width, 352);
}

TEST_F(Remembered, CorruptValuesReadAsEmpty)
{
    VPHash h;
    h.insert("a.yuv", filled());
    h.insert("b.yuv", filled());
    const QByteArray good = variantBytesOf(QVariant::fromValue(h));
    const QByteArray header = good.left(good.indexOf("VPHash") + 7 + 1); // type, name, null flag

    const std::pair<const char *, QByteArray> cases[] = {
        {"plain_text", "FileFormats=hello"},
        {"empty", "FileFormats="},
        {"list", "FileFormats=a, b, c"},
        {"int_variant", variantLine(variantBytesOf(QVariant(42)))},
        {"map_variant", variantLine(variantBytesOf(QVariantMap{{"a.yuv", 1}}))},
        {"bytes_variant", variantLine(variantBytesOf(QByteArray("a.yuv")))},
        {"unknown_type_name", variantLine(QByteArray(good).replace("VPHash", "VPHasx"))},
        {"count_past_the_data", variantLine(header + Bytes().u32(0xffffffffu).b)},
        {"garbage_after_header", variantLine(header + QByteArray(40, '\xee'))},
        {"unterminated", "FileFormats=@Variant(\\0\\0\\0\\x7f\\0\\0\\0\\aVPHash"},
        {"bad_escape", "FileFormats=@Variant(\\xzz)"},
    };
    for (const auto &[name, line] : cases) {
        writeSettingsFile(line);
        expectEmptyAndOthersKept(name);
    }
}

TEST_F(Remembered, EveryTruncationReadsAsEmpty)
{
    VPHash h;
    h.insert("a.yuv", filled());
    h.insert("b.yuv", filled());
    const QByteArray good = variantBytesOf(QVariant::fromValue(h));
    for (qsizetype cut = 0; cut < good.size() - 1; cut += 3) {
        writeSettingsFile(variantLine(good.left(cut)));
        EXPECT_TRUE(readRememberedFormats().isEmpty()) << cut;
        EXPECT_EQ(QSettings().value("other").toString(), "keep") << cut;
    }
    // The store's decoder hands over the closing bracket of the value as one more byte, so a value
    // short of exactly its last byte still decodes: the last layout name then ends in ")" and names no
    // layout, which sends the file to the format dialog instead of opening it wrongly.
    writeSettingsFile(variantLine(good.left(good.size() - 1)));
    const VPHash read = readRememberedFormats();
    EXPECT_EQ(read.size(), 2);
    EXPECT_EQ(std::count_if(read.cbegin(), read.cend(), [](const VideoProps &p) { return p.format == FMT_UNKNOWN; }),
              1);
}

TEST_F(Remembered, RandomBytesNeverCrash)
{
    const uint32_t seed = 20240611;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    std::mt19937 rng(seed);
    VPHash h;
    h.insert("a.yuv", filled());
    const QByteArray good = variantBytesOf(QVariant::fromValue(h));
    for (int round = 0; round < 60; ++round) {
        QByteArray bytes = good;
        const int flips = 1 + int(rng() % 8);
        for (int i = 0; i < flips; ++i) bytes[qsizetype(rng() % uint32_t(bytes.size()))] = char(rng());
        writeSettingsFile(variantLine(bytes));
        const VPHash read = readRememberedFormats();
        EXPECT_LE(read.size(), 1) << round;
        EXPECT_EQ(QSettings().value("other").toString(), "keep") << round;
    }
}

TEST_F(Remembered, OtherTypesWrittenThroughTheStoreReadAsEmpty)
{
    const QVariant others[] = {QVariant(42), QVariant(QStringLiteral("x")), QVariant(QVariantMap{{"a.yuv", 5}}),
                               QVariant(QVariantHash{{"a.yuv", QVariant::fromValue(filled())}}),
                               QVariant::fromValue(filled())};
    for (const QVariant &v : others) {
        QSettings().setValue(kKey, v);
        EXPECT_TRUE(readRememberedFormats().isEmpty()) << v.typeName();
    }
}

} // namespace

// ---- Colour descriptions beside the records ----

TEST_F(Remembered, AStoreWrittenBeforeColourDescriptionsStillLoads)
{
    // The store exactly as earlier versions wrote it: the record's bytes (pinned above) under the one key,
    // and no colour key at all.
    VideoProps old = filled();
    old.fileName = "clip_bt709.yuv";
    {
        QSettings s;
        registerFormatTypes();
        s.setValue(kKey, QVariant::fromValue(VPHash{{old.fileName, old}}));
        s.sync();
    }
    const std::optional<VideoProps> r = lookupRemembered(QStringLiteral("clip_bt709.yuv"));
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->width, 352);
    EXPECT_EQ(r->format, YUV_p422);
    EXPECT_TRUE(r->colour.isDefault());
}

TEST_F(Remembered, AColourDescriptionTravelsBesideTheUnchangedRecord)
{
    VideoProps p = filled();
    p.fileName = "c.yuv";
    const QByteArray plain = streamed(p);
    p.colour.matrix = ColourMatrix::BT2020;
    p.colour.range = ColourRange::Limited;
    p.colour.transfer = ColourTransfer::PQ;
    p.colour.peakNits = 4000;
    // The record itself is written as before, so an older version still reads the whole store.
    EXPECT_EQ(streamed(p), plain);
    ASSERT_TRUE(tryStoreRemembered(p));
    const std::optional<VideoProps> r = lookupRemembered(QStringLiteral("c.yuv"));
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->colour, p.colour);
    EXPECT_EQ(QSettings().value(QLatin1String(settings::kFileColours)).toMap().value("c.yuv").toString(),
              QStringLiteral("matrix=bt2020 range=limited chroma=nearest transfer=pq peak=4000"));
    // Back to the default reading: the colour entry goes, the record stays.
    p.colour = ColourDescription{};
    ASSERT_TRUE(tryStoreRemembered(p));
    EXPECT_FALSE(QSettings().contains(QLatin1String(settings::kFileColours)));
    EXPECT_TRUE(lookupRemembered(QStringLiteral("c.yuv")).has_value());
}

TEST_F(Remembered, PlaneStridesTravelBesideTheUnchangedRecord)
{
    VideoProps p = filled();
    p.fileName = "gpu.yuv";
    const QByteArray plain = streamed(p);
    p.planeStride = {2048, 1024, 1024, 0};
    p.planeOffset = {0, 4194304, 5242880, 0};
    EXPECT_EQ(streamed(p), plain);
    ASSERT_TRUE(tryStoreRemembered(p));
    std::optional<VideoProps> r = lookupRemembered(QStringLiteral("gpu.yuv"));
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->planeStride, p.planeStride);
    EXPECT_EQ(r->planeOffset, p.planeOffset);
    EXPECT_EQ(QSettings().value(QLatin1String(settings::kFilePlanes)).toMap().value("gpu.yuv").toString(),
              QStringLiteral("stride=2048,1024,1024 offsets=0,4194304,5242880"));
    // A damaged entry is skipped whole: the record loads with packed rows.
    {
        QSettings s;
        QVariantMap planes;
        planes.insert(QStringLiteral("gpu.yuv"), QStringLiteral("stride=2048,x offsets=0,7"));
        s.setValue(QLatin1String(settings::kFilePlanes), planes);
        s.sync();
    }
    r = lookupRemembered(QStringLiteral("gpu.yuv"));
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->planeStride, (std::array<uint32_t, 4>{}));
    EXPECT_EQ(r->planeOffset, (std::array<uint64_t, 4>{}));
    // Packed again: the entry goes.
    p.planeStride = {};
    p.planeOffset = {};
    ASSERT_TRUE(tryStoreRemembered(p));
    EXPECT_FALSE(QSettings().contains(QLatin1String(settings::kFilePlanes)));
}

TEST_F(Remembered, ColourEntriesOfALaterVersionOrAHandEditNeverSpoilTheRecords)
{
    // Record bytes as captured from the writer (the pinned layout), loaded through the reader.
    Bytes e;
    e.i32(176).i32(144).f64(25.0).u64(1).u64(38016).i32(0).i32(8).i32(8).u32(38016).flag(false).str("d.yuv");
    e.flag(false).flag(false).flag(false).flag(false).u32(0).u64(7).flag(false).i32(4096).i32(4096).str("YUV_p420");
    VideoProps rec;
    {
        QDataStream in(e.b);
        in >> rec;
        ASSERT_EQ(in.status(), QDataStream::Ok);
    }
    ASSERT_TRUE(writeRememberedFormats(VPHash{{QStringLiteral("d.yuv"), rec}}));
    QVariantMap colours;
    colours.insert(QStringLiteral("d.yuv"),
                   QStringLiteral("matrix=bt601 gamut=p3 range=sideways peak=99999 chroma=left"));
    colours.insert(QStringLiteral("not-remembered.yuv"), QStringLiteral("matrix=bt709"));
    {
        QSettings s;
        s.setValue(QLatin1String(settings::kFileColours), colours);
        s.sync();
    }
    const VPHash all = readRememberedFormats();
    ASSERT_EQ(all.size(), 1);
    const VideoProps &d = all.value(QStringLiteral("d.yuv"));
    EXPECT_EQ(d.width, 176);
    EXPECT_EQ(d.colour.matrix, ColourMatrix::BT601);
    EXPECT_EQ(d.colour.range, ColourRange::Full);   // unknown value: default kept
    EXPECT_EQ(d.colour.peakNits, kDefaultPeakNits); // out of range: default kept
    EXPECT_EQ(d.colour.chroma, ChromaSiting::Left);
    // A colour key of some other type is ignored as a whole.
    {
        QSettings s;
        s.setValue(QLatin1String(settings::kFileColours), 42);
        s.sync();
    }
    EXPECT_TRUE(readRememberedFormats().value(QStringLiteral("d.yuv")).colour.isDefault());
    // Forgetting the file forgets its colour as well.
    ASSERT_TRUE(writeRememberedFormats(all));
    ASSERT_TRUE(forgetRemembered(QStringLiteral("d.yuv")));
    EXPECT_FALSE(QSettings().contains(QLatin1String(settings::kFileColours)));
}
