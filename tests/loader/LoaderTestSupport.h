// A test owner for a loader: records which frame's bytes each delivery carried, can hold the loader
// inside get_buffer, and builds small raw files whose frames name their own index.
#pragma once

#include "loader/HeadlessFrameSink.h"
#include "loader/KavriLoader.h"
#include "support/TempFiles.h"

#include <QFile>
#include <QMutex>
#include <QWaitCondition>
#include <cstring>
#include <future>
#include <vector>

namespace kavri::test {

// 16 x 16 luma only, 8 bits: 256 bytes a frame.
constexpr int32_t kW = 16, kH = 16;
constexpr uint32_t kFrameBytes = kW * kH;
constexpr int kWaitMs = 20000; // generous: a failure, not a slow machine, should hit it

// Calls `fn` on another thread and reports whether it came back within the (generous) limit, so a
// deadlock fails the test instead of hanging the run.
template <typename Fn>
bool returnsWithin(Fn fn, int ms = kWaitMs)
{
    auto f = std::async(std::launch::async, fn);
    return f.wait_for(std::chrono::milliseconds(ms)) == std::future_status::ready;
}

// A frame whose first eight bytes hold its index and whose other bytes repeat the index's low byte.
inline QByteArray markedFrame(uint64_t index, uint32_t bytes = kFrameBytes)
{
    QByteArray f(int(bytes), char(index & 0xff));
    std::memcpy(f.data(), &index, std::min<size_t>(8, bytes));
    return f;
}

inline QByteArray markedFrames(uint64_t first, uint64_t count)
{
    QByteArray all;
    for (uint64_t i = first; i < first + count; ++i) all += markedFrame(i);
    return all;
}

inline void appendTo(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    if (!f.open(QIODevice::Append)) throw std::runtime_error("cannot append to " + path.toStdString());
    f.write(bytes);
}

// Overrides the sink's virtual slots; the base class's meta-object dispatches to them.
class TestOwner : public HeadlessFrameSink {
public:
    KavriLoader *loader = nullptr;
    // When set, each delivery also checks that the buffer's bytes 8 .. wholeBytes - 1 all repeat the low
    // byte of the frame's index (as markedFrame writes them), so a misplaced chunk shows.
    uint32_t wholeBytes = 0;

    struct Seen {
        uint64_t index;   // frame_t index
        uint64_t content; // index written into the bytes of the buffer that was shown
        uint32_t flags;
        KavriLoader::Buffer buffer;
        frame_t frame;
        bool whole;          // the check above passed (true when it is off)
        uint32_t firstPixel; // the picture's top-left pixel as the panel received it
    };

    std::vector<Seen> seen() const
    {
        QMutexLocker l(&m_seenMutex);
        return m_seen;
    }
    std::vector<uint64_t> contents() const
    {
        std::vector<uint64_t> c;
        for (const Seen &s : seen()) c.push_back(s.content);
        return c;
    }

    // Holds the loader inside its next get_buffer until release().
    void hold()
    {
        QMutexLocker l(&m_gateMutex);
        m_closed = true;
        m_entered = false;
    }
    bool waitUntilHeld()
    {
        QMutexLocker l(&m_gateMutex);
        QDeadlineTimer d(kWaitMs);
        while (!m_entered)
            if (!m_gate.wait(&m_gateMutex, d)) return false;
        return true;
    }
    void release()
    {
        QMutexLocker l(&m_gateMutex);
        m_closed = false;
        m_gate.wakeAll();
    }

    void get_buffer(uint8_t **pp_frame, QSize size, void *update) override
    {
        {
            QMutexLocker l(&m_gateMutex);
            m_entered = true;
            m_gate.wakeAll();
            while (m_closed) m_gate.wait(&m_gateMutex);
        }
        HeadlessFrameSink::get_buffer(pp_frame, size, update);
        m_picture = *pp_frame;
    }

    void oon_new_frame(frame_t *frame) override
    {
        // Runs on the loader thread during the delivery, so the buffer holds this frame's bytes.
        const KavriLoader::Buffer b = loader->shownBuffer();
        const uint8_t *buf = loader->frameBuffer(b);
        uint64_t content = ~uint64_t(0);
        if (buf) std::memcpy(&content, buf, 8);
        bool whole = true;
        for (uint32_t i = 8; buf && i < wholeBytes && whole; ++i) whole = buf[i] == uint8_t(content & 0xff);
        uint32_t pixel = 0;
        if (m_picture) std::memcpy(&pixel, m_picture, 4);
        {
            QMutexLocker l(&m_seenMutex);
            m_seen.push_back({frame->frameIndex, content, frame->flags, b, *frame, whole, pixel});
        }
        HeadlessFrameSink::oon_new_frame(frame);
    }

private:
    mutable QMutex m_seenMutex;
    std::vector<Seen> m_seen;
    QMutex m_gateMutex;
    QWaitCondition m_gate;
    bool m_closed = false;
    bool m_entered = false;
    const uint8_t *m_picture = nullptr; // written and read on the loader thread only
};

} // namespace kavri::test
