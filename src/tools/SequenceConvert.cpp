#include "tools/SequenceConvert.h"

#include "formats/FrameSize.h"
#include "pixel/FramePipeline.h"
#include "pixel/LayoutConvert.h"

#include <QDir>
#include <QSaveFile>
#include <cerrno>
#include <cstring>
#include <vector>

namespace kavri::tools {

bool isY4mName(const QString &output) { return output.endsWith(QLatin1String(".y4m"), Qt::CaseInsensitive); }

CopyResult convertFrames(const ConvertJob &job, FramePipeline &pipeline, std::istream &in, const ProgressFn &progress,
                         const std::atomic<bool> *cancel)
{
    CopyResult r;
    const QString shownOut = QDir::toNativeSeparators(job.output);
    const QString shownIn = QDir::toNativeSeparators(job.input);
    auto failed = [&r](const QString &why) {
        r.ok = false;
        r.error = why;
        return r;
    };
    auto stopRequested = [cancel] { return cancel != nullptr && cancel->load(); };
    auto stopped = [&] {
        r.cancelled = true;
        return failed(QStringLiteral("cancelled; '%1' was not written").arg(shownOut));
    };
    if (stopRequested()) return stopped();
    if (job.first > job.last) return failed(QStringLiteral("the frame range is empty"));
    if (const QString why = checkOutput(job.input, job.output, job.overwrite); !why.isEmpty()) return failed(why);

    const VideoProps &stored = pipeline.storedProps();
    pixel::LayoutConverter converter;
    QString error;
    if (!converter.setup(stored, job.target, job.y4m, error)) return failed(error);
    // The file as it is now: a file cut short since it was opened is reported, not padded.
    const uint64_t available = framesInFile(job.input, pipeline.frameBytes(), stored.headerBytes);
    if (job.last >= available)
        return failed(
            QStringLiteral("'%1' holds %2 frames, frame %3 is missing").arg(shownIn).arg(available).arg(job.last));

    std::vector<uint8_t> frame;
    try {
        frame.resize(size_t(converter.outputBytes()));
    } catch (const std::bad_alloc &) {
        return failed(
            QStringLiteral("not enough memory for a converted frame of %1 bytes").arg(converter.outputBytes()));
    }
    const VideoProps &canon = pipeline.props();
    const int64_t canonBytes = allocationSize(canon.format, canon.containerBits, canon.width, canon.height);

    QSaveFile out(job.output);
    out.setDirectWriteFallback(false);
    if (!out.open(QIODevice::WriteOnly))
        return failed(QStringLiteral("cannot write '%1': %2").arg(shownOut, out.errorString()));
    auto write = [&](const char *data, qint64 n) {
        errno = 0;
        if (out.write(data, n) == n) return true;
        const int saved = errno;
        error = saved ? QString::fromLocal8Bit(std::strerror(saved)) : out.errorString();
        return false;
    };
    if (job.y4m) {
        const QByteArray header = pixel::y4mHeader(job.target);
        if (!write(header.constData(), header.size())) {
            out.cancelWriting();
            return failed(QStringLiteral("writing '%1' failed: %2").arg(shownOut, error));
        }
    }
    const uint64_t total = job.last - job.first + 1;
    int lastPercent = -1;
    for (uint64_t k = job.first; k <= job.last; ++k) {
        if (stopRequested()) {
            out.cancelWriting();
            return stopped();
        }
        const size_t n = readFrameAt(in, k, pipeline.frameBytes(), stored.headerBytes,
                                     pipeline.readBuffer(FramePipeline::Buffer::First));
        if (n != pipeline.frameBytes()) {
            out.cancelWriting();
            return failed(QStringLiteral("'%1' ended inside frame %2 (the file is shorter than its format claims)")
                              .arg(shownIn)
                              .arg(k));
        }
        pipeline.toNative();
        converter.convert(pipeline.buffer(FramePipeline::Buffer::First), canonBytes, frame.data());
        if ((job.y4m && !write("FRAME\n", 6)) ||
            !write(reinterpret_cast<const char *>(frame.data()), qint64(frame.size()))) {
            out.cancelWriting();
            return failed(QStringLiteral("writing '%1' failed: %2").arg(shownOut, error));
        }
        r.framesWritten = k - job.first + 1;
        const int percent = int(double(r.framesWritten) * 100.0 / double(total));
        if (progress && percent != lastPercent && percent < 100) progress(percent);
        lastPercent = percent;
    }
    // A cancel after the last frame still keeps the output from appearing, and a file that appeared
    // under the output name meanwhile is kept unless replacing was asked.
    if (stopRequested()) {
        out.cancelWriting();
        return stopped();
    }
    if (const QString why = checkOutput(job.input, job.output, job.overwrite); !why.isEmpty()) {
        out.cancelWriting();
        return failed(why);
    }
    errno = 0;
    if (!out.commit()) {
        const int saved = errno;
        return failed(QStringLiteral("writing '%1' failed: %2")
                          .arg(shownOut, saved ? QString::fromLocal8Bit(std::strerror(saved)) : out.errorString()));
    }
    r.ok = true;
    return r;
}

} // namespace kavri::tools
