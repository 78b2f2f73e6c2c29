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
        // Converts the frame the loader holds again, with the view as it is now (no read).
        kCmdRedisplay = 8,
    };
    enum CommandFlags : uint32_t {
        kCmdAsync = 1,   // the poster does not wait
        kCmdRemote = 2,  // from a linked player
        kCmdDragged = 4, // from the slider
    };
    // The three frame buffers; the last two exist only with a difference file.
    enum class Buffer { Main = 0, DiffFile = 1, DiffPicture = 2 };

    // What the viewer has chosen for the picture: the pipeline's settings (channel, tone, difference view)
    // and the deinterlace switch.
    struct View {
        kavri::ViewSettings picture;
        bool deinterlace = false;
    };

    struct Options {
        bool useRemembered = true;   // look the path up among the remembered formats first
        bool rememberFormats = true; // store a playable record when it is validated
        int stdinDescriptor = 0;     // what "-" reads; standard input unless a caller hands another
        bool readAhead = true;       // read the next frame of a file while converting (off: to measure it)
        // How long opening a stream ("-" or a pipe) waits for its first bytes, to find a y4m header there.
        // A writer that says nothing for that long is read as raw samples of the record given.
        int streamHeaderWaitMs = 1000;
    };

    KavriLoader(const QString &path, const QString &diffPath, const Options &options, QObject *parent = nullptr);
    KavriLoader(const QString &path, const QString &diffPath) : KavriLoader(path, diffPath, Options{}) {}
    ~KavriLoader() override;

    // A loader running on its own thread, or nullptr when the file (or the difference file) cannot be read.
    static KavriLoader *create(const QString &path, const QString &diffPath);
    static KavriLoader *create(const QString &path, const QString &diffPath, const Options &options);
    // The same, with the reason in `error` when the file is refused for what its header says (a y4m file
    // we cannot read); empty when the file simply could not be opened.
    static KavriLoader *create(const QString &path, const QString &diffPath, const Options &options, QString *error);

    // Wires the loader to its owner and to the panel it draws into (they may be the same object), then
    // posts the first init. The connections are checked when the owner's code is compiled: a renamed
    // slot or signal is a build error, not a silent disconnection.
    //  - the owner emits play(), pause(), stop(), reload() and seek(frame, remote, dragged), and takes
    //    oon_new_frame(frame_t *) on the loader thread, oon_load_init(), oon_stopped() and
    //    oon_cannot_show(QString) queued on its own; an owner with oon_frame_pause(const frame_t *, qint64)
    //    also takes frame_pause on the loader thread;
    //  - the panel takes get_buffer(uint8_t **, QSize, void *) on the loader thread and emits
    //    getNativeAt(...) for the readout.
    template <class Owner, class Panel>
    void attach(Owner *owner, Panel *panel);
    // Quits the command loop, waits for it, ends the thread and schedules the loader for deletion.
    // The pointer must not be used afterwards.
    void detach();

    bool isOpened() const { return m_opened; }
    bool hasDifference() const { return m_hasDiff; }
    bool isStdin() const { return m_isStdin; }
    const QString &path() const { return m_path; }
    const QString &diffPath() const { return m_diffPath; }

    // The record the window and the format dialog edit in place (GUI thread only). The loader thread never
    // reads it: validate() hands it a copy.
    VideoProps &pendingProps() { return m_pending; }
    const VideoProps &pendingProps() const { return m_pending; }
    // Brings the pending record's frame count and file size up to the loader's last count (a reload
    // counts the file again on the loader thread and then reports initialized()). GUI thread only.
    void adoptRecount();
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
    void setLoop(bool on) { m_loop.store(on); }

    // The viewer's choices, and the one way to change them (GUI thread). A change while paused converts the
    // frame the loader holds again, so it shows at once, also for standard input, which cannot be read
    // twice; during playback the next frame shows it. The deinterlace switch is also written to the
    // pending record, so a remembered record keeps it.
    View view() const;
    void setView(const View &view);
    // The colour reading (GUI thread): written to the pending record and remembered with the file like a
    // validated format, and shown the same way as a view change, without a new init; playback goes on.
    void setColour(const kavri::ColourDescription &colour);
    // Shorthands for reading the view: what a difference view shows (1 the main file, 2 the difference
    // file, anything else the difference) and the channel (0 full colour, 1..3 one component).
    int32_t diffView() const { return view().picture.view; }
    int32_t channelSelection() const { return view().picture.channel; }
    bool deinterlace() const { return view().deinterlace; }

    // Posts one command (any thread). Same-kind commands at the tail are replaced. A synchronous post
    // returns once the loader has taken every queued command.
    void postCommand(uint32_t kind, uint32_t flags, uint32_t argument = 0);

    // For owners that inspect the raw samples: the start of a frame buffer (null before init) and the
    // buffer the last delivered frame was converted from. Samples the frame was shown without are
    // unpacked first (see frameSamples).
    const uint8_t *frameBuffer(Buffer which);
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

signals:
    void get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data);
    void new_frame(frame_t *frame);
    // During playback, after a frame is delivered, when the pause before the next frame begins (loader
    // thread): `frame` is the record new_frame reported, its samples still valid for the call, and
    // `pauseNs` the time the loader is about to wait. Receivers use the pause for work on the frame that
    // must not lengthen its period (a copy taken inside new_frame would): the time they take comes off the
    // pause, so one that takes longer than `pauseNs` makes the next frame late. Not emitted for a frame
    // that is already late (no pause), nor without receivers.
    void frame_pause(const frame_t *frame, qint64 pauseNs);
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
    // Hands the loader thread a copy of the pending record and posts the init that builds it.
    void postInit(uint32_t flags);
    // The connections every owner gets, after the typed ones; then the first init.
    void finishAttach(QObject *owner, QObject *panel);
    void doRedisplay();
    // Points the frame record at the samples of the buffer just shown (view lock held).
    void noteSamples(frame_t &f, kavri::FramePipeline::Buffer shown) const;
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
    // computePause after a frame delivered by playback, then frame_pause to whoever wants the pause.
    void pauseAfterDelivery();
    void sleepForPause();
    bool interruptPendingLocked() const;
    void reopenStreams();
    // Puts the streams at the samples of `frame`, the next one they read.
    void positionStreams(uint64_t frame);
    // Before a read: puts the streams of files with FRAME lines at the samples of the frame they read next.
    void seekToStreamFrame();
    // Looks at the first bytes of a stream for a y4m header; a header found gives the pending record and
    // makes every frame read take its FRAME line first. The bytes read past the header are given back.
    void lookForStreamHeader(int waitMs);
    // Reads the FRAME line before a frame of a y4m stream. False at the stream's end, and for a damaged
    // line (said once; the stream is read no further).
    bool readStreamFrameLine();
    // Shows the current frame again when playback would not do it soon.
    void redisplay();

    Options m_options;
    QString m_path;
    QString m_diffPath;
    bool m_isStdin = false;
    bool m_streamIsY4m = false;   // a stream that began with a y4m header: FRAME lines between frames
    bool m_streamDamaged = false; // a y4m stream whose FRAME line was not one: nothing more is read
    bool m_opened = false;
    QString m_openError;
    bool m_hasDiff = false;
    bool m_firstBuffer = false;
    // The pipeline's buffers hold the frame delivered last (loader thread).
    bool m_holdingFrame = false;
    // The panel refused a picture of the active size; reported once per record.
    bool m_pictureRefused = false;
    std::atomic<bool> m_initialized{false};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_loopDone{false};
    std::atomic<bool> m_playing{false};
    std::atomic<bool> m_loop{false};
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
    // What a frame record's receivers call for samples the pipeline left out (frame_t::unpackSamples).
    std::function<const uint8_t *()> m_unpackSamples;
    uint32_t m_allocSize = 0;
    // What the viewer chose; the contrast slider moves the difference table's gain instead of the tone
    // curve's contrast while the difference is shown.
    View m_view;

    // Read-ahead of the next frame during playback (files only), into spare buffers that change places
    // with the pipeline's when the frame is taken. Loader thread only.
    ReadAhead m_readAhead;
    kavri::AlignedBuffer m_spare[2];

    uint32_t m_frameBytes = 0;
    // The frame the streams read next (loader thread): set by positionStreams, one on with each read.
    uint64_t m_streamFrame = 0;
    // The GUI's record, and the copy of it that the next init builds (guarded by its own lock).
    VideoProps m_pending;
    mutable QMutex m_handoffMutex;
    VideoProps m_handoff;
    bool m_handoffReady = false;
    // The record the buffers are built for (loader thread).
    VideoProps m_active;
    uint32_t m_mask = 0;
    frame_t m_frame;
    frame_t m_lastFrame;
    std::atomic<bool> m_haveShown{false};
    std::atomic<int> m_shownBuffer{0};

    QPointer<QObject> m_window;
    QPointer<QObject> m_panel;
    QList<QMetaObject::Connection> m_connections;
};

template <class Owner, class Panel>
void KavriLoader::attach(Owner *owner, Panel *panel)
{
    auto keep = [this](QMetaObject::Connection c) { m_connections.append(c); };
    if (owner) {
        keep(connect(this, &KavriLoader::new_frame, owner, &Owner::oon_new_frame, Qt::DirectConnection));
        keep(connect(owner, &Owner::play, this, &KavriLoader::play, Qt::DirectConnection));
        keep(connect(owner, &Owner::pause, this, &KavriLoader::pause, Qt::DirectConnection));
        keep(connect(owner, &Owner::stop, this, &KavriLoader::stop, Qt::DirectConnection));
        keep(connect(owner, &Owner::reload, this, &KavriLoader::reload, Qt::DirectConnection));
        keep(connect(owner, &Owner::seek, this, &KavriLoader::seek, Qt::DirectConnection));
        keep(connect(this, &KavriLoader::initialized, owner, &Owner::oon_load_init, Qt::QueuedConnection));
        keep(connect(this, &KavriLoader::stopped, owner, &Owner::oon_stopped, Qt::QueuedConnection));
        keep(connect(this, &KavriLoader::cannot_show, owner, &Owner::oon_cannot_show, Qt::QueuedConnection));
        if constexpr (requires { &Owner::oon_frame_pause; })
            keep(connect(this, &KavriLoader::frame_pause, owner, &Owner::oon_frame_pause, Qt::DirectConnection));
    }
    if (panel) {
        keep(connect(this, &KavriLoader::get_buffer, panel, qOverload<uint8_t **, QSize, void *>(&Panel::get_buffer),
                     Qt::DirectConnection));
        keep(connect(panel, &Panel::getNativeAt, this, &KavriLoader::getNativeAt, Qt::DirectConnection));
    }
    finishAttach(owner, panel);
}
