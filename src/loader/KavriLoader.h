// One open sequence (a file or standard input, with an optional second file for a difference view) on a
// worker thread of its own: it reads frames on request, converts them into the panel's image and reports
// each delivered frame. Other threads reach it only through its command queue.
#pragma once

#include "formats/VideoProps.h"
#include "loader/Frame.h"
#include "loader/FrameStream.h"
#include "loader/ReadAhead.h"
#include "pixel/FramePipeline.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QPointer>
#include <QSize>
#include <QWaitCondition>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>

class KavriLoader : public QObject {
    Q_OBJECT
public:
    enum CommandKind : uint32_t {
        kCmdInit = 1,
        kCmdPlay = 2,
        kCmdPause = 3,
        kCmdSeek = 4,
        kCmdStop = 5,
        kCmdReload = 6,
        kCmdQuit = 7,
    };
    enum CommandFlags : uint32_t {
        kCmdAsync = 1,   // the poster does not wait
        kCmdRemote = 2,  // from a linked player
        kCmdDragged = 4, // from the slider
    };
    // The three frame buffers; the last two exist only with a difference file.
    enum class Buffer { Main = 0, DiffFile = 1, DiffPicture = 2 };

    struct Options {
        bool useRemembered = true;   // look the path up among the remembered formats first
        bool rememberFormats = true; // store a playable record when it is validated
        int stdinDescriptor = 0;     // what "-" reads; standard input unless a caller hands another
        bool readAhead = true;       // read the next frame of a file while converting (off: to measure it)
    };

    KavriLoader(const QString &path, const QString &diffPath, const Options &options, QObject *parent = nullptr);
    KavriLoader(const QString &path, const QString &diffPath) : KavriLoader(path, diffPath, Options{}) {}
    ~KavriLoader() override;

    // A loader running on its own thread, or nullptr when the file (or the difference file) cannot be read.
    static KavriLoader *create(const QString &path, const QString &diffPath);
    static KavriLoader *create(const QString &path, const QString &diffPath, const Options &options);

    // Wires the loader to a window and a panel (either may be null, or both the same object) by signature,
    // so any object that offers the members can own a loader; members a receiver lacks are skipped.
    // Then posts the first init.
    void attach(QObject *window, QObject *panel);
    // Quits the command loop, waits for it, ends the thread and schedules the loader for deletion.
    // The pointer must not be used afterwards.
    void detach();

    bool isOpened() const { return m_opened; }
    bool hasDifference() const { return m_hasDiff; }
    bool isStdin() const { return m_isStdin; }
    const QString &path() const { return m_path; }
    const QString &diffPath() const { return m_diffPath; }
    // Where the pending record came from: "default", "remembered", "vix", "hdr" or "name".
    const QString &formatSource() const { return m_formatSource; }

    // The record the window and the format dialog edit in place (GUI thread only). Its frame count and
    // file size are brought up to date with the last recount (a reload counts on the loader thread).
    VideoProps &pendingProps()
    {
        m_pending.frameCount = m_frameCountShared.load();
        m_pending.fileSize = m_fileSizeShared.load();
        return m_pending;
    }
    uint32_t validityMask() const { return m_mask; }
    // The frame count, safe to read from any thread (a reload recounts it on the loader thread).
    uint64_t frameCount() const { return m_frameCountShared.load(); }
    // Validates the pending record; a playable one is remembered (files only) and, while the command
    // loop runs, the buffers are rebuilt for it before this returns. Returns the validity mask.
    uint32_t validate();

    bool isInitialized() const { return m_initialized.load(); }
    // Whether any frame has been delivered since the loader was made.
    bool hasShownAFrame() const { return m_haveShown.load(); }
    bool isRunning() const { return m_running.load(); }
    bool isPlaying() const { return m_playing.load(); }
    bool loop() const { return m_loop.load(); }
    void setLoop(bool on) { m_loop.store(on); }
    bool deinterlace() const { return m_deinterlace.load(); }
    void setDeinterlace(bool on);

    // What a difference view shows: 1 the main file, 2 the difference file, anything else the difference.
    int32_t diffView() const;
    void setDiffView(int32_t view);
    int32_t channelSelection() const;

    // Posts one command (any thread). Same-kind commands at the tail are replaced. A synchronous post
    // returns once the loader has taken every queued command.
    void postCommand(uint32_t kind, uint32_t flags, uint32_t argument = 0);

    // For owners that inspect the raw samples: the start of a frame buffer (null before init) and the
    // buffer the last delivered frame was converted from.
    const uint8_t *frameBuffer(Buffer which) const;
    uint32_t frameBufferSize() const { return m_allocSize; }
    Buffer shownBuffer() const { return Buffer(m_shownBuffer.load()); }

public slots:
    void run();

    void play();
    void pause();
    void stop();
    void reload();
    void seek(uint64_t frame, bool b_remote = false, bool b_dragged = false);

    void getNativeAt(bool *pb_success, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                     int32_t *alpha);

    void oon_next_channel();
    void oon_prev_channel();
    void oon_brightness(int32_t value);
    void oon_contrast(int32_t value);
    void oon_gamma(int32_t value);

signals:
    void get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data);
    void new_frame(frame_t *frame);
    void initialized();
    void finished();
    void stopped();
    // A frame of the active record cannot be shown (its buffers or its picture cannot be had); the
    // reason is a sentence for the user.
    void cannot_show(QString reason);

private:
    struct Command {
        uint32_t kind;
        uint32_t flags;
        uint32_t argument;
    };
    using Clock = std::chrono::steady_clock;

    void execute(const Command &c);
    // Starts reading the frame after the one just delivered, while it is being shown.
    void startReadAhead();
    // Whether the streams had reached their end with the last frame delivered.
    bool streamsAtEnd() const;
    void doInit();
    void doPlay();
    void doPause();
    void doSeek(const Command &c);
    void doStop();
    void doReload();
    void releaseResources();

    // Reads, converts and reports one frame. With `readAhead`, the frame after it is read meanwhile
    // (playback, which will ask for it next).
    bool deliverFrame(bool readAhead = false);
    void computePause();
    void sleepForPause();
    bool interruptPendingLocked() const;
    void reopenStreams();
    void positionStreams(uint64_t frame);
    // Shows the current frame again when playback would not do it soon (files only).
    void redisplay();
    bool differenceShownLocked() const;

    Options m_options;
    QString m_path;
    QString m_diffPath;
    QString m_formatSource;
    bool m_isStdin = false;
    bool m_opened = false;
    bool m_hasDiff = false;
    bool m_firstBuffer = false;
    // The panel refused a picture of the active size; reported once per record.
    bool m_pictureRefused = false;
    std::atomic<bool> m_initialized{false};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_loopDone{false};
    std::atomic<bool> m_playing{false};
    std::atomic<bool> m_loop{false};
    std::atomic<bool> m_deinterlace{false};
    std::atomic<bool> m_quitRequested{false};
    std::atomic<uint64_t> m_frameCountShared{0};
    std::atomic<uint64_t> m_fileSizeShared{0};

    // Command queue; the condition wakes the loader and the posters waiting for the queue to drain.
    std::deque<Command> m_queue;
    mutable QMutex m_queueMutex;
    QWaitCondition m_queueCond;

    // Pacing: the remainder of the current period, and when it started.
    double m_pauseMs = 0.0;
    Clock::time_point m_frameStart;

    std::shared_ptr<FrameStream> m_main;
    std::shared_ptr<FrameStream> m_diffStream;

    // Guarded by the view lock: the frame pipeline (converter, difference picture, buffers) and the view
    // choices.
    mutable QMutex m_viewMutex;
    kavri::FramePipeline m_pipeline;
    uint32_t m_allocSize = 0;
    // What the viewer chose; the contrast slider moves the difference table's gain instead of the tone
    // curve's contrast while the difference is shown.
    kavri::ViewSettings m_view;

    // Read-ahead of the next frame during playback (files only), into spare buffers that change places
    // with the pipeline's when the frame is taken. Loader thread only.
    ReadAhead m_readAhead;
    kavri::AlignedBuffer m_spare[2];

    uint32_t m_frameBytes = 0;
    VideoProps m_pending;
    VideoProps m_active;
    uint32_t m_mask = 0;
    frame_t m_frame;
    frame_t m_lastFrame;
    std::atomic<uint64_t> m_lastShown{0};
    std::atomic<bool> m_haveShown{false};
    std::atomic<int> m_shownBuffer{0};

    QPointer<QObject> m_window;
    QPointer<QObject> m_panel;
    QList<QMetaObject::Connection> m_connections;
};
