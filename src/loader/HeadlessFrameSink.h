// A window-and-panel stand-in for owners without a screen (kavri-cli, tests): hands the loader one
// persistent 32-bit image per frame size, counts and optionally records the frames it is given, and
// offers the window's command signals.
#pragma once

#include "formats/VideoFormat.h"
#include "loader/Frame.h"
#include "pixel/FramePipeline.h"

#include <QMutex>
#include <QObject>
#include <QSize>
#include <QWaitCondition>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

class HeadlessFrameSink : public QObject {
    Q_OBJECT
public:
    using Clock = std::chrono::steady_clock;
    struct Delivery {
        uint64_t index;
        uint32_t flags;
        Clock::time_point at;
    };

    explicit HeadlessFrameSink(QObject *parent = nullptr);
    ~HeadlessFrameSink() override;

    // Keeps index, flags and arrival time of every frame (off by default: a long run would grow).
    void setRecording(bool on);
    // After this many frames the sink asks the loader to pause, and notes when the last one arrived.
    void setFrameLimit(uint64_t frames);

    uint64_t framesDelivered() const { return m_frames.load(); }
    int initializedCount() const { return m_initialized.load(); }
    int stoppedCount() const { return m_stopped.load(); }
    std::vector<Delivery> deliveries() const;
    frame_t lastFrame() const;
    // Arrival of the frame that reached the limit (the epoch before that).
    Clock::time_point limitReachedAt() const;
    // Arrival of the most recent frame.
    Clock::time_point lastArrival() const;
    QSize bufferSize() const;
    // Why the loader could not show a frame (empty while it could).
    QString failure() const;

    // Waits until `done` holds, handling this thread's events meanwhile (initialized() and stopped()
    // arrive queued). False after `timeoutMs` without it.
    bool waitUntil(const std::function<bool()> &done, int timeoutMs);
    bool waitForFrames(uint64_t frames, int timeoutMs);

signals:
    void play();
    void pause();
    void stop();
    void reload();
    void seek(uint64_t frame, bool b_remote, bool b_dragged);
    void getNativeAt(bool *pb_success, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                     int32_t *alpha);

public slots:
    // Called on the loader thread.
    virtual void get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data);
    virtual void oon_new_frame(frame_t *frame);
    // Called on the sink's own thread.
    void oon_load_init();
    void oon_stopped();
    void oon_cannot_show(const QString &reason);

private:
    mutable QMutex m_mutex;
    QWaitCondition m_changed;
    kavri::AlignedBuffer m_image; // allocated as the panel allocates its images
    QSize m_size;
    QString m_failure;
    bool m_recording = false;
    uint64_t m_limit = 0;
    std::vector<Delivery> m_deliveries;
    frame_t m_last;
    Clock::time_point m_limitAt{};
    Clock::time_point m_lastAt{};
    std::atomic<uint64_t> m_frames{0};
    std::atomic<int> m_initialized{0};
    std::atomic<int> m_stopped{0};
};
