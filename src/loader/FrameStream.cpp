#include "loader/FrameStream.h"

#include "formats/StreamPath.h"

#include <QElapsedTimer>
#include <algorithm>
#include <cstring>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <poll.h>
#include <unistd.h>
#endif

std::shared_ptr<FrameStream> FrameStream::openFile(const QString &path)
{
    std::shared_ptr<FrameStream> s(new FrameStream);
#ifdef Q_OS_UNIX
    if (path != QLatin1String("-") && kavri::isStreamPath(path)) {
        // A pipe opened the usual way waits for its writer; this one does not, and read() polls it.
        s->m_fd = kavri::openStreamNonBlocking(path);
        s->m_ownsFd = s->m_fd >= 0;
        s->m_failed = s->m_fd < 0;
        return s;
    }
#endif
    s->m_file.setFileName(path);
    // Unbuffered: a frame goes from the page cache straight into the caller's buffer, with no second copy.
    s->m_failed = !s->m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    return s;
}

std::shared_ptr<FrameStream> FrameStream::wrapDescriptor(int fd)
{
    std::shared_ptr<FrameStream> s(new FrameStream);
    s->m_fd = fd;
#ifndef Q_OS_UNIX
    s->m_failed = !s->m_file.open(fd, QIODevice::ReadOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle);
#endif
    return s;
}

FrameStream::~FrameStream()
{
#ifdef Q_OS_UNIX
    if (m_ownsFd) ::close(m_fd);
#endif
}

int64_t FrameStream::read(uint8_t *dst, int64_t n, const std::atomic<bool> *abort)
{
    if (m_failed || n <= 0) return 0;
    int64_t got = 0;
    if (!m_pushback.isEmpty()) {
        got = std::min<int64_t>(n, m_pushback.size());
        std::memcpy(dst, m_pushback.constData(), size_t(got));
        m_pushback.remove(0, qsizetype(got));
        if (got == n) return got;
    }
#ifdef Q_OS_UNIX
    if (m_fd >= 0) {
        while (got < n) {
            if (abort && abort->load(std::memory_order_relaxed)) return got;
            pollfd p{m_fd, POLLIN, 0};
            // A short poll keeps an owner that wants to quit from waiting on a silent writer.
            const int r = ::poll(&p, 1, 50);
            if (r < 0 && errno == EINTR) continue;
            if (r < 0) {
                m_failed = true;
                break;
            }
            if (r == 0) continue;
            const ssize_t k = ::read(m_fd, dst + got, size_t(n - got));
            if (k < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (k <= 0) break; // end of input, or an error that ends it
            got += k;
        }
        if (got < n) m_atEnd = true;
        return got;
    }
#endif
    while (got < n) {
        const qint64 k = m_file.read(reinterpret_cast<char *>(dst) + got, n - got);
        if (k <= 0) break;
        got += k;
    }
    if (got < n) m_atEnd = true;
    return got;
}

bool FrameStream::readLine(QByteArray &line, int64_t maxBytes, const std::atomic<bool> *abort)
{
    line.clear();
    // Byte by byte: a pipe cannot give back what was read past the newline. Lines here are short (a
    // y4m FRAME line), so the calls cost nothing next to the frame after them.
    for (int64_t i = 0; i < maxBytes; ++i) {
        uint8_t c = 0;
        if (read(&c, 1, abort) != 1) return false;
        if (c == '\n') return true;
        line.append(char(c));
    }
    return false;
}

QByteArray FrameStream::readWithin(int64_t maxBytes, int waitMs, const std::function<bool(const QByteArray &)> &enough)
{
    QByteArray got = m_pushback;
    m_pushback.clear();
#ifdef Q_OS_UNIX
    if (m_fd < 0 || m_failed) return got;
    QElapsedTimer t;
    t.start();
    char chunk[4096];
    while (qint64(got.size()) < maxBytes && !(enough && enough(got))) {
        const qint64 left = waitMs - t.elapsed();
        if (left < 0) break;
        pollfd p{m_fd, POLLIN, 0};
        const int r = ::poll(&p, 1, int(std::min<qint64>(left, 50)));
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) break;
        if (r == 0) continue;
        const ssize_t k = ::read(m_fd, chunk, size_t(std::min<qint64>(qint64(sizeof chunk), maxBytes - got.size())));
        if (k < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (k <= 0) break; // the writer closed: what came is all there is
        got.append(chunk, qsizetype(k));
    }
#else
    Q_UNUSED(maxBytes);
    Q_UNUSED(waitMs);
    Q_UNUSED(enough);
#endif
    return got;
}

void FrameStream::unread(const QByteArray &bytes)
{
    m_pushback.prepend(bytes);
    if (!bytes.isEmpty()) m_atEnd = false;
}

bool FrameStream::seek(uint64_t offset)
{
    m_atEnd = false;
    m_pushback.clear();
    if (m_failed || m_fd >= 0 || offset > uint64_t(INT64_MAX)) return false;
    return m_file.seek(qint64(offset));
}

int64_t FrameStream::readAt(uint64_t offset, uint8_t *dst, int64_t n)
{
    if (m_failed || m_fd >= 0 || n <= 0 || offset > uint64_t(INT64_MAX)) return 0;
    int64_t got = 0;
#ifdef Q_OS_UNIX
    const int fd = m_file.handle();
    while (got < n) {
        const ssize_t k = ::pread(fd, dst + got, size_t(n - got), off_t(offset + uint64_t(got)));
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) break;
        got += k;
    }
#else
    QMutexLocker lock(&m_readAtMutex);
    const qint64 keep = m_file.pos();
    if (m_file.seek(qint64(offset))) {
        while (got < n) {
            const qint64 k = m_file.read(reinterpret_cast<char *>(dst) + got, n - got);
            if (k <= 0) break;
            got += k;
        }
    }
    m_file.seek(keep);
#endif
    return got;
}

void FrameStream::advance(int64_t got, int64_t requested)
{
    if (m_failed || m_fd >= 0) return;
    m_file.seek(m_file.pos() + (got > 0 ? got : 0));
    m_atEnd = got < requested;
}
