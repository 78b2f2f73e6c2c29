// kavri-cli render: frames exactly as the player converts them for display, written as lossless PNGs; or,
// with --native, the stored samples themselves as 16-bit PNGs.
#include "cli/Commands.h"
#include "cli/FrameSource.h"
#include "cli/Json.h"
#include "cli/StopSignals.h"
#include "formats/FrameSize.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"
#include "tools/SequenceCopy.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QRegularExpression>
#include <QSaveFile>
#include <algorithm>
#include <cstring>
#include <optional>

namespace kavri::cli {

namespace {

// A range needs one name per frame: the output name must hold exactly one integer conversion
// (%d, %i or %u, with flags and a width, e.g. %05d); "%%" stands for a percent sign. Anything else that
// a printf would read as a conversion is refused, so the names cannot come out as garbage.
void checkPattern(const QString &pattern)
{
    int conversions = 0;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != QLatin1Char('%')) continue;
        if (i + 1 < pattern.size() && pattern[i + 1] == QLatin1Char('%')) {
            ++i;
            continue;
        }
        qsizetype j = i + 1;
        while (j < pattern.size() && QStringLiteral("0-+ ").contains(pattern[j])) ++j;
        while (j < pattern.size() && pattern[j].isDigit()) ++j;
        if (j >= pattern.size() || !QStringLiteral("diu").contains(pattern[j]))
            throw UsageError(QStringLiteral("output '%1': only one integer conversion such as %05d may follow a '%'")
                                 .arg(pattern)
                                 .toStdString());
        ++conversions;
        i = j;
    }
    if (conversions != 1)
        throw UsageError(QStringLiteral("output '%1' must hold exactly one frame number such as %05d for a range")
                             .arg(pattern)
                             .toStdString());
}

// The name of frame `n` under a pattern checkPattern accepted.
QString nameFor(const QString &pattern, uint64_t n)
{
    QString out;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != QLatin1Char('%')) {
            out += pattern[i];
            continue;
        }
        if (pattern[i + 1] == QLatin1Char('%')) {
            out += QLatin1Char('%');
            ++i;
            continue;
        }
        qsizetype j = i + 1;
        bool zero = false, left = false, plus = false, space = false;
        for (; QStringLiteral("0-+ ").contains(pattern[j]); ++j) {
            zero |= pattern[j] == QLatin1Char('0');
            left |= pattern[j] == QLatin1Char('-');
            plus |= pattern[j] == QLatin1Char('+');
            space |= pattern[j] == QLatin1Char(' ');
        }
        int width = 0;
        for (; pattern[j].isDigit(); ++j) width = std::min(width * 10 + pattern[j].digitValue(), 64);
        QString digits = QString::number(n);
        if (plus && pattern[j] != QLatin1Char('u'))
            digits.prepend(QLatin1Char('+'));
        else if (space && pattern[j] != QLatin1Char('u'))
            digits.prepend(QLatin1Char(' '));
        if (left)
            digits = digits.leftJustified(width, QLatin1Char(' '));
        else if (zero && digits.size() < width)
            digits.insert(digits[0].isDigit() ? 0 : 1, QString(width - digits.size(), QLatin1Char('0')));
        else
            digits = digits.rightJustified(width, QLatin1Char(' '));
        out += digits;
        i = j;
    }
    return out;
}

// The stored samples of the frame in the pipeline's first buffer (native byte order by now) as a
// 16-bit picture, every value shifted up to 16 bits. RGB layouts give an RGB picture (with alpha where the
// layout has one) unless one component is asked for; the others give one component as grey. Chroma is
// replicated over the pixels it covers, so every picture has the frame's size. Signed samples are moved
// up by half their range first (two's complement -512..511 at 10 bits becomes 0..1023).
QImage nativePicture(const FramePipeline &pipeline, int channel)
{
    const VideoProps &p = pipeline.props();
    const LayoutInfo &info = layoutInfo(p.format);
    const bool rgbLayout = info.kind == LayoutKind::InterleavedRgb || info.kind == LayoutKind::PlanarRgb;
    const bool colour = rgbLayout && channel == 0;
    const bool alpha = colour && info.hasAlpha;
    const int shift = 16 - p.bitDepth;
    const int32_t offset = p.signedValues ? int32_t(1) << (p.bitDepth - 1) : 0;
    const int32_t top = (int32_t(1) << p.bitDepth) - 1;
    auto scaled = [&](int32_t v) { return uint16_t(std::clamp(v + offset, 0, top) << shift); };
    // The planes of planar RGB come out of the readout in storage order; the layout's letters say which is
    // which. The display's deliberate BRG/GBR exchange is not applied: this is the data, not the picture.
    std::array<int, 3> rgb = {0, 1, 2};
    if (info.kind == LayoutKind::PlanarRgb)
        for (int k = 0; k < 3; ++k) rgb[size_t(std::string_view("RGB").find(info.letters[size_t(k)][0]))] = k;
    const int component = std::max(channel, 1) - 1;
    // The readout addresses 4:2:2 planar chroma its own way (as the display's numbers do); a picture of
    // a chroma plane takes each pixel's covering sample from where the planes really lie.
    const bool planarChroma = !colour && component > 0 && info.kind == LayoutKind::PlanarYuv;
    // The samples as unpacked (for the original layouts, the stored frame itself).
    const int64_t bytes = int64_t(allocationSize(p.format, p.containerBits, p.width, p.height));
    const bool wide = p.bitDepth > 8;
    // Only the stored frame counts: the buffer's padding past it holds no samples.
    const int64_t samples = int64_t(pipeline.sampleBytes()) / (wide ? 2 : 1);
    const pixel::ChromaPlanes planes = pixel::chromaPlanes(p.format, p.width, p.height, samples);

    QImage image(p.width, p.height,
                 colour ? (alpha ? QImage::Format_RGBA64 : QImage::Format_RGBX64) : QImage::Format_Grayscale16);
    if (image.isNull()) return image;
    const uint8_t *frame = pipeline.buffer(FramePipeline::Buffer::First);
    pixel::StoredSample s;
    for (int32_t y = 0; y < p.height; ++y) {
        const int32_t row = p.flipped ? p.height - 1 - y : y;
        auto *line = reinterpret_cast<uint16_t *>(image.scanLine(y));
        if (planarChroma) {
            // Interlaced 4:2:0 shares a chroma row between two rows of the same field.
            const int32_t wanted =
                p.interlaced && p.format == YUV_p420 ? 2 * (row / 4) + row % 2 : row >> planes.shiftY;
            const int64_t start = component == 1 ? planes.uStart : planes.vStart;
            for (int32_t x = 0; x < p.width; ++x) {
                // With an odd width the last pixels have no chroma column of their own, and with an odd
                // height the last chroma row may be cut off: they repeat the nearest stored sample.
                const int32_t col = std::min(x >> planes.shiftX, planes.cols - 1);
                int32_t chromaRow = std::min(wanted, planes.rows - 1);
                int64_t pos = start + int64_t(chromaRow) * planes.cols + col;
                while (chromaRow > 0 && pos >= samples) pos = start + int64_t(--chromaRow) * planes.cols + col;
                int32_t v = 0;
                if (col >= 0 && chromaRow >= 0 && pos < samples) {
                    if (wide) {
                        uint16_t w;
                        std::memcpy(&w, frame + pos * 2, 2);
                        v = p.signedValues ? int32_t(int16_t(w)) : int32_t(w);
                    } else {
                        v = p.signedValues ? int32_t(int8_t(frame[pos])) : int32_t(frame[pos]);
                    }
                }
                line[x] = scaled(v);
            }
            continue;
        }
        for (int32_t x = 0; x < p.width; ++x) {
            if (!pixel::readStored(frame, bytes, p.format, p.width, p.height, p.bitDepth, p.signedValues, x, row, s))
                return QImage();
            if (!colour) {
                line[x] = scaled(s.c[rgbLayout ? rgb[size_t(component)] : component]);
                continue;
            }
            uint16_t *px = line + 4 * x;
            for (int k = 0; k < 3; ++k) px[k] = scaled(s.c[rgb[size_t(k)]]);
            px[3] = alpha ? scaled(s.alpha) : uint16_t(0xffff);
        }
    }
    return image;
}

int nativeChannel(videoFormat_t layout, int channel)
{
    const LayoutKind kind = layoutInfo(layout).kind;
    const bool rgbLayout = kind == LayoutKind::InterleavedRgb || kind == LayoutKind::PlanarRgb;
    return rgbLayout ? channel : std::max(channel, 1);
}

// The frame as the player shows it (before display scaling), in `rgb` (width x height x 4 bytes).
QImage shownPicture(FrameSource &src, const ViewSettings &view, uint8_t *rgb)
{
    const VideoProps &p = src.pipeline.props();
    // The converter leaves the fourth byte alone; starting from opaque black keeps the image well formed.
    std::fill_n(reinterpret_cast<uint32_t *>(rgb), size_t(p.width) * size_t(p.height), 0xff000000u);
    src.pipeline.show(view, rgb);
    return QImage(rgb, p.width, p.height, qsizetype(p.width) * 4, QImage::Format_RGB32);
}

// QSaveFile writes beside the target under a temporary name and renames only a complete file, so a
// failed write leaves nothing behind and an existing file is either kept or wholly replaced.
bool savePng(const QImage &image, const QString &out, QString &error)
{
    QSaveFile f(out);
    if (!f.open(QIODevice::WriteOnly) || !image.save(&f, "PNG") || !f.commit()) {
        error = QStringLiteral("cannot write '%1': %2").arg(out, f.errorString());
        return false;
    }
    return true;
}

bool sameFile(const QString &a, const QString &b)
{
    const QFileInfo fa(a), fb(b);
    return fa.exists() && fb.exists() && fa.canonicalFilePath() == fb.canonicalFilePath();
}

int runRender(Context &ctx)
{
    const QString file = singleFileArgument(ctx.args);
    const QString diff = ctx.args.value("--diff");
    const bool range = ctx.args.has("--frames");
    const bool native = ctx.args.has("--native");
    if (range && ctx.args.has("--frame")) throw UsageError("give either '--frame N' or '--frames A-B'");
    uint64_t first = uint64_t(ctx.args.int64Value("--frame", 0, 0, std::numeric_limits<int64_t>::max()));
    uint64_t last = first;
    if (range) parseFrameRange(ctx.args.value("--frames"), first, last);
    const ViewSettings view = viewSettingsFrom(ctx.args);
    if (native) {
        // The stored samples have no tone curve, no comparison and no filter; an option that would change
        // the picture is refused rather than silently dropped.
        for (const char *o : {"--diff", "--view", "--brightness", "--contrast", "--gamma", "--deinterlace"})
            if (ctx.args.has(o))
                throw UsageError(QStringLiteral("option '%1' does not apply to '--native'").arg(o).toStdString());
    }
    if (!ctx.args.has("--output") || ctx.args.value("--output").isEmpty()) throw UsageError("missing '-o OUT.png'");
    const QString out = ctx.args.value("--output");
    if (range) checkPattern(out);
    const bool force = ctx.args.has("--force");

    FrameSource src;
    QString error;
    if (!openFrameSource(ctx.args, file, diff, src, error)) return ctx.fail(error);
    const VideoProps &p = src.pipeline.props();
    if (native) {
        const LayoutInfo &info = layoutInfo(p.format);
        if (info.kind == LayoutKind::Luma && view.channel > 1)
            return ctx.fail(
                QStringLiteral("'%1' has one component; '--channel %2' does not exist").arg(file).arg(view.channel));
    }
    if (range) {
        bool clamped = false;
        const uint64_t asked = last;
        if (!tools::fitRange(p.frameCount, first, asked, last, clamped, error))
            return ctx.fail(QStringLiteral("'%1': %2").arg(file, error));
        if (clamped) ctx.warn(QStringLiteral("'%1' ends at frame %2; rendering up to it").arg(file).arg(last));
    }
    // The new ways of writing (a range, the stored samples) keep what exists unless told otherwise, and
    // check every name before the first frame is written; a single display frame replaces its output as
    // it always has.
    if (range || native) {
        for (uint64_t n = first; n <= last; ++n) {
            const QString name = range ? nameFor(out, n) : out;
            if (sameFile(name, file) || (!diff.isEmpty() && sameFile(name, diff)))
                return ctx.fail(QStringLiteral("'%1' is an input; it is never written").arg(name));
            if (!force && QFileInfo::exists(name))
                return ctx.fail(QStringLiteral("'%1' exists; give '--force' to replace it").arg(name));
        }
    }
    // As the player's switch: chroma per field in the conversion, and the filter afterwards.
    if (ctx.args.has("--deinterlace")) src.pipeline.setDeinterlace(true);
    if (!readFrame(src, first, error)) return ctx.fail(error);

    // The picture comes from the same allocator as the frame buffers, so a picture too large for memory
    // is refused with a message rather than promised and then killed for.
    const uint64_t pictureBytes = uint64_t(p.width) * uint64_t(p.height) * (native ? 8 : 4);
    AlignedBuffer rgb;
    try {
        rgb = allocateAligned(size_t(pictureBytes));
    } catch (const std::bad_alloc &) {
        return ctx.fail(QStringLiteral("frame %1 cannot be shown: %2")
                            .arg(first)
                            .arg(notEnoughMemoryText(p.width, p.height, pictureBytes)));
    }
    if (native) rgb.reset(); // only the check: QImage holds the 16-bit picture

    const uint64_t total = last - first + 1;
    // Long ranges report on standard error, about every tenth; standard output keeps its one JSON line.
    const bool progress = total >= 10;
    int reported = 0;
    // Ctrl-C between frames of a range ends it with every written picture whole; a single frame is
    // interrupted as it always was.
    std::optional<StopSignals> stop;
    if (range) stop.emplace();
    for (uint64_t n = first; n <= last; ++n) {
        if (stop && stop->flag()->load()) {
            ctx.fail(QStringLiteral("interrupted after %1 of %2 frames").arg(n - first).arg(total));
            return stop->exitStatus();
        }
        if (n != first && !readFrame(src, n, error)) return ctx.fail(error);
        const QImage image = native ? nativePicture(src.pipeline, view.channel) : shownPicture(src, view, rgb.get());
        if (image.isNull() && native)
            return ctx.fail(QStringLiteral("frame %1: the stored samples of this layout cannot be read").arg(n));
        if (image.isNull())
            return ctx.fail(QStringLiteral("frame %1 cannot be shown: %2")
                                .arg(n)
                                .arg(notEnoughMemoryText(p.width, p.height, pictureBytes)));
        const QString name = range ? nameFor(out, n) : out;
        if (!savePng(image, name, error)) return ctx.fail(error);
        const uint64_t done = n - first + 1;
        if (progress && int(done * 10 / total) > reported) {
            reported = int(done * 10 / total);
            ctx.err << QStringLiteral("kavri-cli: rendered %1 of %2 frames (%3%)\n")
                           .arg(done)
                           .arg(total)
                           .arg(reported * 10);
            ctx.err.flush();
        }
    }

    JsonObject o;
    if (range)
        o.add("pattern", out).add("first", first).add("last", last).add("frames", total);
    else
        o.add("file", out).add("frame", first);
    o.add("width", p.width).add("height", p.height);
    // The channel written: 0 for a colour picture, else the component shown in grey.
    if (native) o.add("native", true).add("depth", p.bitDepth).add("channel", nativeChannel(p.format, view.channel));
    ctx.out << o.toString() << '\n';
    return kExitOk;
}

} // namespace

Command renderCommand()
{
    std::vector<OptionSpec> opts = formatOptionSpecs();
    for (const OptionSpec &s : frameSelectionSpecs()) opts.push_back(s);
    opts.push_back({nullptr, "--frames", "A-B",
                    "frames A..B, included (cut to the file's last frame); OUT holds one number such as %05d"});
    opts.push_back(
        {nullptr, "--channel", "0..3",
         "0 full colour, 1..3 one component as grey (with --native: Y, U, V as stored, or R, G, B; Y by default)"});
    opts.push_back(
        {nullptr, "--brightness", "B", "tone curve brightness (default 0; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--contrast", "C",
                    "tone curve contrast (default 0; the difference gain while a difference is shown)"});
    opts.push_back(
        {nullptr, "--gamma", "G", "tone curve gamma, 256 = 1.0 (default 256; ignored while a difference is shown)"});
    opts.push_back({nullptr, "--deinterlace", nullptr, "take 4:2:0 chroma per field and run the deinterlace filter"});
    opts.push_back({nullptr, "--native", nullptr,
                    "16-bit PNG of the stored samples shifted to 16 bits: RGB layouts in colour, others one "
                    "component as grey (chroma replicated to the frame's size; signed samples moved up by half "
                    "their range)"});
    opts.push_back({"-o", "--output", "OUT.png", "PNG to write"});
    opts.push_back(
        {nullptr, "--force", nullptr, "with --frames or --native: replace existing outputs (never an input)"});
    return {"render", "FILE",
            "write frames as shown by the player (before display scaling), or their stored samples, to PNGs", opts,
            runRender};
}

} // namespace kavri::cli
