#include "loader/HeadlessFrameSink.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <new>

HeadlessFrameSink::HeadlessFrameSink(QObject *parent) : QObject(parent) {}
HeadlessFrameSink::~HeadlessFrameSink() = default;

void HeadlessFrameSink::setRecording(bool on)
{
    QMutexLocker lock(&m_mutex);
    m_recording = on;
}

void HeadlessFrameSink::setFrameLimit(uint64_t frames)
{
    QMutexLocker lock(&m_mutex);
    m_limit = frames;
}

std::vector<HeadlessFrameSink::Delivery> HeadlessFrameSink::deliveries() const
{
    QMutexLocker lock(&m_mutex);
    return m_deliveries;
}

frame_t HeadlessFrameSink::lastFrame() const
{
    QMutexLocker lock(&m_mutex);
    return m_last;
}

HeadlessFrameSink::Clock::time_point HeadlessFrameSink::limitReachedAt() const
{
    QMutexLocker lock(&m_mutex);
    return m_limitAt;
}

HeadlessFrameSink::Clock::time_point HeadlessFrameSink::lastArrival() const
{
    QMutexLocker lock(&m_mutex);
    return m_lastAt;
}

QSize HeadlessFrameSink::bufferSize() const
{
    QMutexLocker lock(&m_mutex);
    return m_size;
}

void HeadlessFrameSink::get_buffer(uint8_t **pp_frame, QSize size, void *)
{
    QMutexLocker lock(&m_mutex);
    if (size != m_size) {
        // Only a new frame size allocates; every frame of one size reuses the same image.
        m_size = size;
        m_image.reset();
        try {
            m_image = kavri::allocateAligned(size_t(qMax(0, size.width())) * size_t(qMax(0, size.height())) * 4);
        } catch (const std::bad_alloc &) {
            m_size = QSize(); // tried again with the next frame; the loader reports the null buffer
        }
    }
    *pp_frame = m_image.get();
}

void HeadlessFrameSink::oon_new_frame(frame_t *frame)
{
    const Clock::time_point now = Clock::now();
    bool limitReached = false;
    {
        QMutexLocker lock(&m_mutex);
        m_last = *frame;
        m_lastAt = now;
        if (m_recording) m_deliveries.push_back({frame->frameIndex, frame->flags, now});
        const uint64_t n = m_frames.load() + 1;
        m_frames.store(n);
        if (m_limit != 0 && n == m_limit) {
            m_limitAt = now;
            limitReached = true;
        }
        m_changed.wakeAll();
    }
    // Posted from inside the delivery, so the play loop sees it before it reads another frame.
    if (limitReached) emit pause();
}

void HeadlessFrameSink::oon_load_init()
{
    m_initialized.fetch_add(1);
    QMutexLocker lock(&m_mutex);
    m_changed.wakeAll();
}

void HeadlessFrameSink::oon_cannot_show(const QString &reason)
{
    QMutexLocker lock(&m_mutex);
    m_failure = reason;
    m_changed.wakeAll();
}

QString HeadlessFrameSink::failure() const
{
    QMutexLocker lock(&m_mutex);
    return m_failure;
}

void HeadlessFrameSink::oon_stopped()
{
    m_stopped.fetch_add(1);
    QMutexLocker lock(&m_mutex);
    m_changed.wakeAll();
}

bool HeadlessFrameSink::waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        if (QCoreApplication::instance()) QCoreApplication::processEvents();
        if (done()) return true;
        if (deadline.hasExpired()) return false;
        QMutexLocker lock(&m_mutex);
        // Short slices: queued signals for this thread are only seen between them.
        m_changed.wait(&m_mutex, QDeadlineTimer(qMin<qint64>(5, qMax<qint64>(0, deadline.remainingTime()))));
    }
}

bool HeadlessFrameSink::waitForFrames(uint64_t frames, int timeoutMs)
{
    return waitUntil([&] { return framesDelivered() >= frames; }, timeoutMs);
}
