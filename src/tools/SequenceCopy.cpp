#include "tools/SequenceCopy.h"

#include "formats/FramePlacement.h"
#include "formats/Y4mHeader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

namespace kavri::tools {

namespace {

QString shown(const QString &path) { return QDir::toNativeSeparators(path); }

// The folder a path lives in, resolved, so that two spellings of one folder compare equal.
QString folderOf(const QString &path)
{
    const QFileInfo fi(path);
    const QString canonical = QFileInfo(fi.absolutePath()).canonicalFilePath();
    return canonical.isEmpty() ? QDir::cleanPath(fi.absolutePath()) : canonical;
}

// True also for a dangling symlink, which QFileInfo::exists() reports as absent.
bool anythingAt(const QString &path)
{
    const QFileInfo fi(path);
    return fi.exists() || fi.isSymLink();
}

} // namespace

uint64_t framesInFile(const QString &path, uint32_t frameBytes, uint32_t headerBytes, uint32_t frameHeaderBytes)
{
    const QFileInfo fi(path);
    const uint32_t stride = frameStride(frameBytes, frameHeaderBytes);
    if (stride == 0 || !fi.isFile()) return 0;
    const uint64_t size = uint64_t(fi.size());
    return size > headerBytes ? (size - headerBytes) / stride : 0;
}

bool writesY4m(const QString &output) { return output.endsWith(QLatin1String(".y4m"), Qt::CaseInsensitive); }

void describeInput(CopyJob &job, const VideoProps &props)
{
    job.frameHeaderBytes = props.frameHeaderBytes;
    job.frameStarts = props.frameStarts;
    job.y4mRefusal.clear();
    job.y4mHeader = y4mStreamHeader(props, &job.y4mRefusal);
}

bool isSameFile(const QString &a, const QString &b)
{
#ifdef Q_OS_UNIX
    struct stat sa {
    }, sb{};
    if (::stat(QFile::encodeName(a).constData(), &sa) != 0) return false;
    if (::stat(QFile::encodeName(b).constData(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
#else
    const QString ca = QFileInfo(a).canonicalFilePath(), cb = QFileInfo(b).canonicalFilePath();
    return !ca.isEmpty() && ca.compare(cb, Qt::CaseInsensitive) == 0;
#endif
}

namespace {

// True when something exists at `path` that is not a regular file once symlinks are followed: a FIFO,
// a device node, a socket. Writing "over" one would replace it with a plain file (or write into a device).
bool isSpecialFile(const QString &path)
{
#if defined(Q_OS_UNIX)
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) return false;
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
#else
    const QFileInfo fi(path);
    return fi.exists() && !fi.isFile() && !fi.isDir();
#endif
}

// The system's own words for a failed write (say "No space left on device"): QSaveFile reports a write
// that fails while its buffer is flushed only as "Unknown error".
QString writeFailure(const QFileDevice &f, int savedErrno)
{
    if (savedErrno != 0) return QString::fromLocal8Bit(std::strerror(savedErrno));
    return f.errorString();
}

} // namespace

QString checkOutput(const QString &input, const QString &output, bool overwrite)
{
    if (output.isEmpty()) return QStringLiteral("no output file given");
    if (isSameFile(input, output))
        return QStringLiteral("'%1' is the input file itself; choose another output").arg(shown(output));
    const QFileInfo out(output);
    if (out.isDir()) return QStringLiteral("'%1' is a folder").arg(shown(output));
    if (isSpecialFile(output))
        return QStringLiteral("'%1' is not a regular file (a pipe or a device); it is never replaced")
            .arg(shown(output));
    if (anythingAt(output) && !overwrite)
        return QStringLiteral("'%1' exists already; it is not overwritten").arg(shown(output));
    if (!QFileInfo(out.absolutePath()).isDir())
        return QStringLiteral("the folder '%1' does not exist").arg(shown(out.absolutePath()));
    return {};
}

bool fitRange(uint64_t frames, uint64_t first, uint64_t requestedLast, uint64_t &last, bool &clamped, QString &error)
{
    clamped = false;
    if (frames == 0) {
        error = QStringLiteral("the file holds no whole frame");
        return false;
    }
    if (first > requestedLast) {
        error = QStringLiteral("the first frame %1 lies after the last frame %2").arg(first).arg(requestedLast);
        return false;
    }
    if (first >= frames) {
        error = QStringLiteral("frame %1 is beyond the end of the file (frames 0 to %2)").arg(first).arg(frames - 1);
        return false;
    }
    last = requestedLast;
    if (last >= frames) {
        last = frames - 1;
        clamped = true;
    }
    return true;
}

CopyResult copyFrames(const CopyJob &job, const ProgressFn &progress, const std::atomic<bool> *cancel)
{
    CopyResult r;
    auto failed = [&r](const QString &why) {
        r.ok = false;
        r.error = why;
        return r;
    };
    auto stopRequested = [cancel] { return cancel != nullptr && cancel->load(); };
    auto stopped = [&] {
        r.cancelled = true;
        return failed(QStringLiteral("cancelled; '%1' was not written").arg(shown(job.output)));
    };
    if (stopRequested()) return stopped();
    if (job.frameBytes == 0) return failed(QStringLiteral("the frame size is 0"));
    if (job.first > job.last) return failed(QStringLiteral("the frame range is empty"));
    if (const QString why = checkOutput(job.input, job.output, job.overwrite); !why.isEmpty()) return failed(why);
    const bool y4m = writesY4m(job.output);
    if (y4m && job.y4mHeader.isEmpty())
        return failed(QStringLiteral("'%1' cannot be written as y4m: %2")
                          .arg(shown(job.output), job.y4mRefusal.isEmpty()
                                                      ? QStringLiteral("the format of the input is not known")
                                                      : job.y4mRefusal));

    QFile in(job.input);
    if (!in.open(QIODevice::ReadOnly))
        return failed(QStringLiteral("cannot read '%1': %2").arg(shown(job.input), in.errorString()));
    const uint64_t available = job.frameStarts
                                   ? job.frameStarts->size()
                                   : framesInFile(job.input, job.frameBytes, job.headerBytes, job.frameHeaderBytes);
    if (job.last >= available)
        return failed(QStringLiteral("'%1' holds %2 frames, frame %3 is missing")
                          .arg(shown(job.input))
                          .arg(available)
                          .arg(job.last));

    // Written beside the output and renamed into place by commit(): until then the output name shows
    // nothing (or the old file), whatever happens; cancelWriting() removes the temporary file.
    QSaveFile out(job.output);
    out.setDirectWriteFallback(false);
    if (!out.open(QIODevice::WriteOnly))
        return failed(QStringLiteral("cannot write '%1': %2").arg(shown(job.output), out.errorString()));

    auto writeAll = [&out](const QByteArray &bytes) {
        errno = 0;
        return out.write(bytes) == qint64(bytes.size());
    };
    if (y4m && !writeAll(job.y4mHeader)) {
        const QString why = writeFailure(out, errno);
        out.cancelWriting();
        return failed(QStringLiteral("writing '%1' failed: %2").arg(shown(job.output), why));
    }
    static const QByteArray kFrameLine("FRAME\n");

    const uint64_t total = job.last - job.first + 1;
    const uint64_t totalBytes = total * uint64_t(job.frameBytes);
    const uint32_t chunk = std::min(job.frameBytes, kCopyChunkBytes);
    std::unique_ptr<char[]> buffer(new char[chunk]);
    uint64_t bytesDone = 0;
    int lastPercent = -1;
    for (uint64_t i = 0; i < total; ++i) {
        const uint64_t k = job.reverse ? job.last - i : job.first + i;
        const qint64 offset =
            qint64(job.frameStarts ? (*job.frameStarts)[size_t(k)]
                                   : frameOffset(job.headerBytes, job.frameHeaderBytes, job.frameBytes, k));
        if (!in.seek(offset)) {
            out.cancelWriting();
            return failed(QStringLiteral("cannot seek to frame %1 of '%2'").arg(k).arg(shown(job.input)));
        }
        if (y4m && !writeAll(kFrameLine)) {
            const QString why = writeFailure(out, errno);
            out.cancelWriting();
            return failed(QStringLiteral("writing '%1' failed: %2").arg(shown(job.output), why));
        }
        for (uint32_t at = 0; at < job.frameBytes;) {
            if (stopRequested()) {
                out.cancelWriting();
                return stopped();
            }
            const uint32_t n = std::min(chunk, job.frameBytes - at);
            if (in.read(buffer.get(), n) != qint64(n)) {
                out.cancelWriting();
                return failed(QStringLiteral("'%1' ended inside frame %2 (the file is shorter than its format claims)")
                                  .arg(shown(job.input))
                                  .arg(k));
            }
            errno = 0;
            if (out.write(buffer.get(), n) != qint64(n)) {
                const QString why = writeFailure(out, errno);
                out.cancelWriting();
                return failed(QStringLiteral("writing '%1' failed: %2").arg(shown(job.output), why));
            }
            at += n;
            bytesDone += n;
            // Far from overflowing: 100 times the largest file a system holds fits in 64 bits.
            const int percent = int(double(bytesDone) * 100.0 / double(totalBytes));
            if (progress && percent != lastPercent && percent < 100) progress(percent);
            lastPercent = percent;
        }
        r.framesWritten = i + 1;
    }
    // A cancel that comes after the last chunk still keeps the output from appearing.
    if (stopRequested()) {
        out.cancelWriting();
        return stopped();
    }
    // A file may have appeared under the output name while we wrote; it is kept unless replacing was asked.
    if (!job.overwrite && anythingAt(job.output)) {
        out.cancelWriting();
        return failed(QStringLiteral("'%1' exists already; it is not overwritten").arg(shown(job.output)));
    }
    if (isSpecialFile(job.output)) {
        out.cancelWriting();
        return failed(QStringLiteral("'%1' is not a regular file (a pipe or a device); it is never replaced")
                          .arg(shown(job.output)));
    }
    errno = 0;
    if (!out.commit()) {
        const int err = errno;
        return failed(QStringLiteral("writing '%1' failed: %2").arg(shown(job.output), writeFailure(out, err)));
    }
    r.ok = true;
    return r;
}

QString renameKeepingAll(const QString &from, const QString &to, bool allowOtherFolder)
{
    const QFileInfo src(from);
    if (!src.exists() && !src.isSymLink()) return QStringLiteral("'%1' does not exist").arg(shown(from));
    if (QFileInfo(from).absoluteFilePath() == QFileInfo(to).absoluteFilePath()) return {};
    if (!allowOtherFolder && folderOf(from) != folderOf(to))
        return QStringLiteral("'%1' lies in another folder than '%2'").arg(shown(to), shown(from));
    if (anythingAt(to)) return QStringLiteral("'%1' exists already; it is not replaced").arg(shown(to));
    // QFile::rename itself refuses an existing target (atomically where the system can), so a file that
    // appears between the check above and the rename is kept too.
    QFile f(from);
    if (!f.rename(to)) return QStringLiteral("cannot rename '%1': %2").arg(shown(from), f.errorString());
    return {};
}

CopyJob extractJob(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                   uint64_t first, uint64_t last, bool overwrite)
{
    CopyJob j;
    j.input = input;
    j.output = output;
    j.frameBytes = frameBytes;
    j.headerBytes = headerBytes;
    j.first = first;
    j.last = last;
    j.overwrite = overwrite;
    return j;
}

CopyJob reverseJob(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                   uint64_t frameCount, bool overwrite)
{
    CopyJob j = extractJob(input, output, frameBytes, headerBytes, frameCount > 0 ? 0 : 1,
                           frameCount > 0 ? frameCount - 1 : 0, overwrite);
    j.reverse = true;
    return j;
}

} // namespace kavri::tools
