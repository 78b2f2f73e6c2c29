#include "formats/FormatDetector.h"

#include "formats/SideFile.h"
#include "formats/VixHeader.h"
#include "formats/Y4mHeader.h"

#include <QHash>
#include <QRegularExpression>
#include <optional>

#include <cstring>

namespace kavri {

namespace {

struct LayoutRow {
    videoFormat_t layout;
    KeywordRow row;
};

// Rows every planar YUV layout (1 to 5) starts with; the packed YUV layouts deliberately get none.
constexpr KeywordRow kPlanarYuvRows[] = {
    {".yuv$", 0.9},
    {"^yuv", 0.5},
    {".+yuv.+", 0.9},
    {".+planar.+", 0.9},
};
constexpr videoFormat_t kPlanarYuvLayouts[] = {YUV_p420, YUV_p422, YUV_p444, YUV_p410, YUV_p411};

// The layout-specific rows, in the order they are added after the shared ones. Keep repetitions and
// gaps as they are ("p444" twice for BGR_planar/BGRA_planar, no "planar" row for BRG_planar, ".+gray.+"
// twice for BW): the sums they produce decide which planar RGB order a name like clip_p444 gets.
constexpr LayoutRow kLayoutRows[] = {
    // clang-format off
    {YUV_p410, {"410", 0.4}},
    {YUV_p411, {"411", 0.4}},
    {YUV_p420, {"420", 0.6}},
    {YUV_p422, {"422", 0.6}}, {YUV_p422, {"p422", 0.6}},
    {YUV_p444, {"444", 0.6}}, {YUV_p444, {"p444", 0.6}},
    {YUV_uyvy, {"uyvy", 1.0}},
    {YUV_yuyv, {"yuyv", 1.0}},
    {YUV_yuy2, {"yuy2", 1.0}},
    {YUV_nv12, {"nv12", 1.0}},
    {YUV_v210, {"v210", 1.0}},
    {RGB_i444, {"i444", 1.0}}, {RGB_i444, {"rgb", 0.9}},
    {RGBA_i444, {"i444", 0.9}}, {RGBA_i444, {"rgba", 1.1}}, {RGBA_i444, {"rgb32", 1.0}}, {RGBA_i444, {"alpha", 0.5}},
    {RGBA_i444, {"32bit", 1.0}},
    {BGR_i444, {"i444", 0.9}}, {BGR_i444, {"bgr", 0.9}},
    {BGRA_i444, {"i444", 0.9}}, {BGRA_i444, {"bgra", 1.1}}, {BGRA_i444, {"bgr32", 1.0}},
    {RGB_planar, {"p444", 0.9}}, {RGB_planar, {"planar", 1.0}}, {RGB_planar, {"rgb", 0.8}}, {RGB_planar, {"planar", 0.6}},
    {RGBA_planar, {"p444", 0.9}}, {RGBA_planar, {"planar", 0.9}}, {RGBA_planar, {"rgba", 1.0}},
    {RGBA_planar, {"alpha", 0.5}}, {RGBA_planar, {"32bit", 0.5}},
    {RBG_planar, {"p444", 0.9}}, {RBG_planar, {"planar", 0.9}}, {RBG_planar, {"rbg", 0.8}}, {RBG_planar, {"planar", 0.6}},
    {RBGA_planar, {"p444", 0.9}}, {RBGA_planar, {"planar", 0.9}}, {RBGA_planar, {"rbga", 0.9}},
    {RBGA_planar, {"rbg32", 0.9}}, {RBGA_planar, {"planar", 0.6}},
    {BGR_planar, {"p444", 0.9}}, {BGR_planar, {"p444", 0.9}}, {BGR_planar, {"planar", 0.9}},
    {BGRA_planar, {"p444", 0.9}}, {BGRA_planar, {"p444", 0.9}}, {BGRA_planar, {"planar", 0.9}},
    {BGRA_planar, {"bgra", 0.9}}, {BGRA_planar, {"bgr32", 0.9}}, {BGRA_planar, {"planar", 0.6}},
    {BRG_planar, {"p444", 0.9}},
    {BRGA_planar, {"p444", 0.9}}, {BRGA_planar, {"brga", 0.9}}, {BRGA_planar, {"brg32", 0.9}}, {BRGA_planar, {"planar", 0.6}},
    {GRB_planar, {"p444", 0.9}}, {GRB_planar, {"planar", 1.0}}, {GRB_planar, {"grb", 1.1}}, {GRB_planar, {"planar", 0.6}},
    {GRBA_planar, {"p444", 0.9}}, {GRBA_planar, {"planar", 0.9}}, {GRBA_planar, {"grba", 1.1}}, {GRBA_planar, {"planar", 0.6}},
    {GBR_planar, {"p444", 0.9}}, {GBR_planar, {"planar", 0.9}}, {GBR_planar, {"gbr", 1.1}}, {GBR_planar, {"planar", 0.6}},
    {GBRA_planar, {"p444", 0.9}}, {GBRA_planar, {"planar", 0.9}}, {GBRA_planar, {"gbra", 1.1}}, {GBRA_planar, {"planar", 0.6}},
    {BW, {".bw$", 1.0}}, {BW, {".y$", 1.0}}, {BW, {".gray$", 1.0}}, {BW, {".luma", 0.01}}, {BW, {".luminance", 0.01}},
    {BW, {".+gray.+", 0.9}}, {BW, {".+luma.+", 0.9}}, {BW, {".+luminance.+", 0.9}}, {BW, {".+gray.+", 0.9}},
    {BW, {"p400", 1.0}},
    // clang-format on
};

// Words that name one of the layouts after the original 27: the layout's own keyword and the names the
// common tools give it (pix_fmt names). They count only as whole words (between non-alphanumerics), and
// the longest word found decides, so none of them changes what a name without them detects. `bits` sets
// the depth where the word states it (0: left to the rest of the name).
struct LayoutWord {
    const char *word;
    videoFormat_t layout;
    int32_t bits;
};
constexpr LayoutWord kLayoutWords[] = {
    // clang-format off
    {"nv21", YUV_nv21, 0}, {"nv16", YUV_nv16, 0}, {"nv61", YUV_nv61, 0}, {"nv24", YUV_nv24, 0}, {"nv42", YUV_nv42, 0},
    {"p010", YUV_p010, 0}, {"p010le", YUV_p010, 0}, {"p012", YUV_p012, 0}, {"p012le", YUV_p012, 0},
    {"p016", YUV_p016, 0}, {"p016le", YUV_p016, 0}, {"p210", YUV_p210, 0}, {"p210le", YUV_p210, 0},
    {"p216", YUV_p216, 0}, {"p216le", YUV_p216, 0}, {"p410w", YUV_p410w, 0}, {"p410le", YUV_p410w, 0},
    {"p416", YUV_p416, 0}, {"p416le", YUV_p416, 0},
    {"yuv440", YUV_p440, 0}, {"p440", YUV_p440, 0}, {"yuv440p", YUV_p440, 8},
    {"y210", YUV_y210, 0}, {"y210le", YUV_y210, 0}, {"y212", YUV_y212, 0}, {"y212le", YUV_y212, 0},
    {"y216", YUV_y216, 0}, {"y216le", YUV_y216, 0}, {"y410", YUV_y410, 0},
    {"ayuv", YUV_ayuv, 0}, {"vuya", YUV_vuya, 0},
    {"x2rgb10", RGB_x2rgb10, 0}, {"x2rgb10le", RGB_x2rgb10, 0}, {"x2bgr10", RGB_x2bgr10, 0}, {"x2bgr10le", RGB_x2bgr10, 0},
    {"rgba64", RGBA_64, 0}, {"rgba64le", RGBA_64, 0}, {"bgra64", BGRA_64, 0}, {"bgra64le", BGRA_64, 0},
    {"rgb565", RGB_565, 0}, {"rgb565le", RGB_565, 0},
    {"rggb", BAYER_rggb, 0}, {"bggr", BAYER_bggr, 0}, {"grbg", BAYER_grbg, 0}, {"gbrg", BAYER_gbrg, 0},
    {"bayer_rggb8", BAYER_rggb, 8}, {"bayer_bggr8", BAYER_bggr, 8}, {"bayer_grbg8", BAYER_grbg, 8},
    {"bayer_gbrg8", BAYER_gbrg, 8}, {"bayer_rggb16le", BAYER_rggb, 16}, {"bayer_bggr16le", BAYER_bggr, 16},
    {"bayer_grbg16le", BAYER_grbg, 16}, {"bayer_gbrg16le", BAYER_gbrg, 16},
    {"rggb10p", BAYER_rggb10p, 0}, {"bggr10p", BAYER_bggr10p, 0}, {"grbg10p", BAYER_grbg10p, 0},
    {"gbrg10p", BAYER_gbrg10p, 0},
    // clang-format on
};

// Names that carry a size as a word instead of a number pair. The order matters: every "qcif" name
// also contains "cif", and "sif" is tested before "cif" for the same reason.
struct NamedSize {
    const char *word;
    int32_t width, height;
};
constexpr NamedSize kNamedSizes[] = {
    {"qcif", 176, 144},
    {"sif", 352, 240},
    {"cif", 352, 288},
};

// The longest path any file system we run on accepts is 32767 characters; the unanchored ".+x.+" rows
// cost time quadratic in the length of a name without a hit, so longer strings are cut before the
// search. No real file name is affected.
constexpr qsizetype kMaxSearchedPathLength = 32768;

QRegularExpressionMatch search(const QString &pattern, const QString &text)
{
    // The patterns are a fixed set of about a hundred; compiling each one anew for every name cost far
    // more than matching it. One compiled copy per thread, since an expression object is only reentrant.
    thread_local QHash<QString, QRegularExpression> compiled;
    auto it = compiled.constFind(pattern);
    if (it == compiled.constEnd())
        it = compiled.insert(pattern, QRegularExpression(pattern, QRegularExpression::CaseInsensitiveOption));
    return it->match(text);
}

// How a bare line count ("720p", "1080") is read; see sizeInName.
enum class LineCountReading { AsDetected, Exact };

// The size a lower-cased name states: a number pair, else a size word, else a line count.
std::optional<NamedFrameSize> sizeInName(const QString &name, LineCountReading lines)
{
    // Size as a number pair; the first digit is never 0, so "0x0" or "0x10" (hex) give nothing.
    if (const auto m = search(QStringLiteral("([1-9][0-9]{0,5})x([1-9][0-9]{0,5})"), name); m.hasMatch()) {
        bool okW = false, okH = false;
        const int w = m.captured(1).toInt(&okW, 10);
        const int h = m.captured(2).toInt(&okH, 10);
        if (okW && okH) return NamedFrameSize{w, h};
    }
    for (const NamedSize &s : kNamedSizes)
        if (search(QLatin1String(s.word), name).hasMatch()) return NamedFrameSize{s.width, s.height};
    if (const auto m = search(QStringLiteral("(720p|1080)"), name); m.hasMatch()) {
        // Detection drops the last character of the match before reading it as a line count: "720p" gives
        // 720, but "1080" gives 108, so names with only 1080 or 1080p stay without a size. Long-standing
        // behaviour that existing file collections are named around; kept on purpose for opening files.
        // A size guess only ranks candidates that already fit the file, so it reads 1080 as meant.
        QString text = m.captured(0);
        if (lines == LineCountReading::AsDetected || text.endsWith(QLatin1Char('p'))) text.chop(1);
        bool ok = false;
        const int count = text.toInt(&ok, 10);
        if (ok && count == 720) return NamedFrameSize{1280, 720};
        if (ok && count == 1080) return NamedFrameSize{1920, 1080};
    }
    return std::nullopt;
}

} // namespace

QStringList layoutWords(videoFormat_t layout)
{
    QStringList words;
    for (const LayoutWord &w : kLayoutWords)
        if (w.layout == layout) words << QLatin1String(w.word);
    return words;
}

KeywordTable buildKeywordTable()
{
    KeywordTable t;
    for (videoFormat_t f : kPlanarYuvLayouts) t[f].assign(std::begin(kPlanarYuvRows), std::end(kPlanarYuvRows));
    for (const LayoutRow &r : kLayoutRows) t[r.layout].push_back(r.row);
    return t;
}

QString FormatDetector::sourceName() const
{
    switch (m_source) {
    case Source::Y4mHeader: return QStringLiteral("y4m");
    case Source::VixHeader: return QStringLiteral("vix");
    case Source::SideFile: return QStringLiteral("hdr");
    case Source::Name: return QStringLiteral("name");
    case Source::None: break;
    }
    return {};
}

double FormatDetector::score(int layout) const
{
    return layout >= 1 && layout <= kLayoutCount ? m_score[size_t(layout)] : 0.0;
}

const VideoProps &FormatDetector::detect(const QString &path)
{
    m_score.fill(0.0);
    m_bestScore = -1.0;
    m_result = VideoProps();
    m_result.fileName = path;
    m_error.clear();

    // The two headers cannot both be there: one file starts with "YUV4MPEG2 ", the other with "vix".
    if (readY4mFile(path, m_result, m_error)) {
        m_source = Source::Y4mHeader;
        return m_result;
    }
    if (readVixHeader(path, m_result)) {
        m_source = Source::VixHeader;
        return m_result;
    }
    if (readSideFile(path, m_result)) {
        m_source = Source::SideFile;
        return m_result;
    }
    readName(path);
    m_source = Source::Name;
    return m_result;
}

void FormatDetector::readName(const QString &path)
{
    VideoProps &r = m_result;
    r = VideoProps();
    r.width = -1;
    r.height = -1;
    r.frameRate = -1.0;
    r.bitDepth = -1;
    r.format = FMT_UNKNOWN;
    r.fileName = path;

    const QString name = path.left(kMaxSearchedPathLength).toLower();

    // The vote: each row that occurs anywhere in the name adds its weight once.
    const KeywordTable table = buildKeywordTable();
    for (int layout = 1; layout <= kLayoutCount; ++layout)
        for (const KeywordRow &row : table[size_t(layout)])
            if (search(QLatin1String(row.pattern), name).hasMatch()) m_score[size_t(layout)] += row.weight;

    // Strictly greater only: ties go to the lowest layout, and a name without any hit gets YUV_p420.
    for (int layout = 1; layout <= kLayoutCount; ++layout) {
        if (m_score[size_t(layout)] > m_bestScore) {
            m_bestScore = m_score[size_t(layout)];
            r.format = videoFormat_t(layout);
        }
    }

    if (const std::optional<NamedFrameSize> size = sizeInName(name, LineCountReading::AsDetected)) {
        r.width = size->width;
        r.height = size->height;
    }

    if (const auto m = search(QStringLiteral("([1-9]{1,2}\\.*[0-9]{0,2})[hzfps]{2,3}"), name); m.hasMatch()) {
        bool ok = false;
        const double rate = m.captured(1).toDouble(&ok);
        if (ok) r.frameRate = rate;
    }

    // A minus before the depth ("_-10bit") marks signed samples.
    if (const auto m = search(QStringLiteral("[a-z\\-_](\\-?[1]{0,1}[0-9])bi*t*"), name); m.hasMatch()) {
        bool ok = false;
        const int bits = m.captured(1).toInt(&ok, 10);
        if (ok) {
            r.bitDepth = bits < 0 ? -bits : bits;
            if (bits < 0) r.signedValues = true;
        }
    }

    // A word naming a layout after the original 27 overrides the vote (which never chooses one of them).
    const LayoutWord *named = nullptr;
    for (const LayoutWord &w : kLayoutWords) {
        if (named && std::strlen(w.word) <= std::strlen(named->word)) continue;
        const QString pattern = QStringLiteral("(^|[^a-z0-9])%1([^a-z0-9]|$)").arg(QLatin1String(w.word));
        if (search(pattern, name).hasMatch()) named = &w;
    }
    if (named) {
        r.format = named->layout;
        if (named->bits) r.bitDepth = named->bits;
    }

    r.flipped = search(QStringLiteral("flip|upside.down"), name).hasMatch();
    r.anamorphic = search(QStringLiteral("anamorph"), name).hasMatch();
    r.swapUV = search(QStringLiteral("YV[1246]{2}"), name).hasMatch();
}

std::optional<NamedFrameSize> frameSizeNamedIn(const QString &path)
{
    return sizeInName(path.left(kMaxSearchedPathLength).toLower(), LineCountReading::Exact);
}

} // namespace kavri
