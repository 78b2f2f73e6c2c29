// A forward-reading byte source for the loader: a file (seekable, 64-bit offsets) or a descriptor
// such as standard input (not seekable, never closed here).
#pragma once

#include <QByteArray>
#include <QFile>
#include <QMutex>
#include <QString>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>

class FrameStream {
public:
    // Opens `path` for reading; a file that cannot be opened gives a failed stream whose reads return 0.
    // A named pipe or a device is opened without waiting for a writer and read as a descriptor.
    static std::shared_ptr<FrameStream> openFile(const QString &path);
    // Reads from an already open descriptor; it is left open when the stream goes.
    static std::shared_ptr<FrameStream> wrapDescriptor(int fd);

    ~FrameStream();
    FrameStream(const FrameStream &) = delete;
    FrameStream &operator=(const FrameStream &) = delete;

    // Reads up to `n` bytes, waiting for a pipe to deliver them. Returns the count read. A count short of
    // `n` marks the stream as at its end. `abort` (may be null) is polled while a pipe has nothing to
    // give, so that a stalled writer never holds up the reader's owner for long.
    int64_t read(uint8_t *dst, int64_t n, const std::atomic<bool> *abort = nullptr);
    // Reads one line up to and including its newline, at most `maxBytes` bytes (the newline included),
    // waiting for a pipe as read() does. The line comes back without its newline; false when the stream
    // ended first or the line runs on past `maxBytes` (what was read is then gone).
    bool readLine(QByteArray &line, int64_t maxBytes, const std::atomic<bool> *abort = nullptr);
    // What a descriptor has to give within `waitMs`, up to `maxBytes`: reads until the bytes wanted are
    // there, the writer closes, or the time is up. For a look at the start of a stream; give back what
    // was not used with unread(). Empty for a file.
    QByteArray readWithin(int64_t maxBytes, int waitMs, const std::function<bool(const QByteArray &)> &enough);
    // Puts bytes back in front of the stream: the next reads take them first.
    void unread(const QByteArray &bytes);

    // Positions a file at `offset` and clears the end and error state; false for a descriptor or a
    // failed stream.
    bool seek(uint64_t offset);
    void clear() { m_atEnd = false; }

    // Where the next read of a file starts.
    uint64_t position() const { return m_fd >= 0 || m_failed ? 0 : uint64_t(m_file.pos()); }
    // Reads up to `n` bytes of a file at `offset` without moving the stream; safe to call from several
    // threads at once (the chunks of one frame are read in parallel). Returns the count read; 0 for a
    // descriptor or a failed stream.
    int64_t readAt(uint64_t offset, uint8_t *dst, int64_t n);
    // Moves a file past `got` bytes read by readAt from the current position, as read() would have left
    // it: at its end when `got` fell short of `requested`.
    void advance(int64_t got, int64_t requested);

    bool atEnd() const { return m_atEnd || m_failed; }
    bool isOpen() const { return !m_failed; }
    bool isFile() const { return m_fd < 0; }

private:
    FrameStream() = default;

    // Bytes given back by unread(), read before anything new from the descriptor.
    QByteArray m_pushback;
    QFile m_file;
    int m_fd = -1;         // >= 0 for a wrapped descriptor
    bool m_ownsFd = false; // a pipe opened here is closed here; a wrapped descriptor is not
    bool m_atEnd = false;
    bool m_failed = false;
#ifndef Q_OS_UNIX
    QMutex m_readAtMutex; // without a positional read, readAt seeks and reads under this lock
#endif
};
