// A forward-reading byte source for the loader: a file (seekable, 64-bit offsets) or a descriptor
// such as standard input (not seekable, never closed here).
#pragma once

#include <QFile>
#include <QString>
#include <atomic>
#include <cstdint>
#include <memory>

class FrameStream {
public:
    // Opens `path` for reading; a file that cannot be opened gives a failed stream whose reads return 0.
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
    // Positions a file at `offset` and clears the end and error state; false for a descriptor or a
    // failed stream.
    bool seek(uint64_t offset);
    void clear() { m_atEnd = false; }

    bool atEnd() const { return m_atEnd || m_failed; }
    bool isOpen() const { return !m_failed; }
    bool isFile() const { return m_fd < 0; }

private:
    FrameStream() = default;

    QFile m_file;
    int m_fd = -1; // >= 0 for a wrapped descriptor
    bool m_atEnd = false;
    bool m_failed = false;
};
