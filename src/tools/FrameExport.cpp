#include "tools/FrameExport.h"

#include "formats/FrameSize.h"
#include "pixel/NativeReadout.h"
#include "pixel/PlaneGeometry.h"

#include <QSaveFile>
#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace kavri::tools {

// A range needs one name per frame: the output name must hold exactly one integer conversion
// (%d, %i or %u, with flags and a width, e.g. %05d); "%%" stands for a percent sign. Anything else that
// a printf would read as a conversion is refused, so the names cannot come out as garbage.
QString framePatternError(const QString &pattern)
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
            return QStringLiteral("output '%1': only one integer conversion such as %05d may follow a '%'")
                .arg(pattern);
        ++conversions;
        i = j;
    }
    if (conversions != 1)
        return QStringLiteral("output '%1' must hold exactly one frame number such as %05d for a range").arg(pattern);
    return {};
}

// The name of frame `n` under a pattern checkPattern accepted.
QString frameFileName(const QString &pattern, uint64_t n)
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
QImage shownPicture(FramePipeline &pipeline, const ViewSettings &view, uint8_t *rgb)
{
    const VideoProps &p = pipeline.props();
    // The converter leaves the fourth byte alone; starting from opaque black keeps the image well formed.
    std::fill_n(reinterpret_cast<uint32_t *>(rgb), size_t(p.width) * size_t(p.height), 0xff000000u);
    pipeline.show(view, rgb);
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

} // namespace kavri::tools

#include "pixel/LayoutConvert.h"
#include "tools/SequenceConvert.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <fstream>

namespace kavri::tools {

namespace {

bool isPng(ExportKind k) { return k == ExportKind::ShownPng || k == ExportKind::NativePng; }

} // namespace

QStringList exportNames(const ExportJob &job)
{
    if (!isPng(job.kind)) return {job.output};
    QStringList names;
    if (!framePatternError(job.output).isEmpty() || job.first > job.last) return names;
    for (uint64_t n = job.first; n <= job.last; ++n) names.push_back(frameFileName(job.output, n));
    return names;
}

QString checkExport(const ExportJob &job)
{
    if (job.output.isEmpty()) return QStringLiteral("no output file given");
    if (job.first > job.last)
        return QStringLiteral("the first frame %1 lies after the last frame %2").arg(job.first).arg(job.last);
    if (job.last >= job.source.frameCount)
        return QStringLiteral("frame %1 is beyond the end of the file (frames 0 to %2)")
            .arg(job.last)
            .arg(job.source.frameCount ? job.source.frameCount - 1 : 0);
    if (isPng(job.kind)) {
        if (const QString e = framePatternError(job.output); !e.isEmpty()) return e;
    } else {
        VideoProps target;
        QString error;
        if (!pixel::conversionTarget(job.source, job.layout, job.bits, target, error)) return error;
        if (job.kind == ExportKind::Y4m) {
            if (const QString e = pixel::y4mRefusal(target); !e.isEmpty()) return e;
        }
    }
    for (const QString &name : exportNames(job))
        if (const QString e = checkOutput(job.source.fileName, name, job.overwrite); !e.isEmpty()) return e;
    return {};
}

CopyResult exportFrames(const ExportJob &job, const ProgressFn &progress, const std::atomic<bool> *cancel)
{
    CopyResult r;
    auto failed = [&r](const QString &why) {
        r.ok = false;
        r.error = why;
        return r;
    };
    auto stopRequested = [cancel] { return cancel != nullptr && cancel->load(); };
    if (stopRequested()) {
        r.cancelled = true;
        return failed(QStringLiteral("cancelled; nothing was written"));
    }
    if (const QString e = checkExport(job); !e.isEmpty()) return failed(e);
    const VideoProps &p = job.source;
    FramePipeline pipeline;
    try {
        pipeline.setup(p, false);
    } catch (const std::bad_alloc &) {
        return failed(
            notEnoughMemoryText(p.width, p.height, allocationSize(p.format, p.containerBits, p.width, p.height)));
    }
    std::ifstream in(QFile::encodeName(p.fileName).toStdString(), std::ios::binary);
    if (!in) return failed(QStringLiteral("cannot read '%1'").arg(QDir::toNativeSeparators(p.fileName)));

    if (!isPng(job.kind)) {
        ConvertJob c;
        c.input = p.fileName;
        c.output = job.output;
        QString error;
        if (!pixel::conversionTarget(pipeline.storedProps(), job.layout, job.bits, c.target, error))
            return failed(error);
        c.y4m = job.kind == ExportKind::Y4m;
        c.first = job.first;
        c.last = job.last;
        c.overwrite = job.overwrite;
        return convertFrames(c, pipeline, in, progress, cancel);
    }

    const VideoProps &shown = pipeline.props();
    AlignedBuffer rgb;
    if (job.kind == ExportKind::ShownPng) {
        try {
            rgb = allocateAligned(size_t(shown.width) * size_t(shown.height) * 4);
        } catch (const std::bad_alloc &) {
            return failed(notEnoughMemoryText(shown.width, shown.height, uint64_t(shown.width) * shown.height * 4));
        }
    }
    // The pictures of this run, removed again unless it finishes: a half-done export leaves nothing.
    QStringList written;
    auto undo = [&](const QString &why, bool cancelled) {
        for (const QString &name : written) QFile::remove(name);
        r.framesWritten = 0;
        r.cancelled = cancelled;
        return failed(why);
    };
    const uint64_t total = job.last - job.first + 1;
    int lastPercent = -1;
    for (uint64_t n = job.first; n <= job.last; ++n) {
        if (stopRequested()) return undo(QStringLiteral("cancelled; no picture was kept"), true);
        const size_t got =
            readFrameAt(in, n, pipeline.frameBytes(), p.headerBytes, pipeline.readBuffer(FramePipeline::Buffer::First));
        if (got != pipeline.frameBytes())
            return undo(QStringLiteral("'%1' ended inside frame %2 (the file is shorter than its format claims)")
                            .arg(QDir::toNativeSeparators(p.fileName))
                            .arg(n),
                        false);
        pipeline.toNative();
        const QImage image = job.kind == ExportKind::NativePng ? nativePicture(pipeline, job.view.channel)
                                                               : shownPicture(pipeline, job.view, rgb.get());
        if (image.isNull())
            return undo(QStringLiteral("frame %1: the stored samples of this layout cannot be read").arg(n), false);
        const QString name = frameFileName(job.output, n);
        const bool existed = QFileInfo::exists(name);
        QString error;
        if (!savePng(image, name, error)) return undo(error, false);
        if (!existed) written.push_back(name);
        r.framesWritten = n - job.first + 1;
        const int percent = int(double(r.framesWritten) * 100.0 / double(total));
        if (progress && percent != lastPercent && percent < 100) progress(percent);
        lastPercent = percent;
    }
    if (stopRequested()) return undo(QStringLiteral("cancelled; no picture was kept"), true);
    r.ok = true;
    return r;
}

} // namespace kavri::tools
