#include "loader/KavriLoader.h"

#include "formats/FormatSource.h"
#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/RememberedFormats.h"
#include "formats/StreamPath.h"
#include "formats/Validation.h"
#include "formats/Y4mHeader.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QThread>
#include <QtDebug>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#ifdef Q_OS_WIN
#include <fcntl.h>
#include <io.h>
#endif

namespace {

// The pause before the next frame never exceeds this; a rate of 0 means "wait for the next command".
constexpr double kLongestPauseMs = 24.0 * 3600.0 * 1000.0;

// Whether the pause is rounded to whole milliseconds, as a millisecond-granular system sleep would force.
// The timed wait used here is finer than that, and rounding would cost up to 3 % of the rate at 60 Hz
// (a 16.4 ms remainder sleeps 16 ms), so the remainder is slept as computed.
constexpr bool kWholeMillisecondPause = false;

bool isStdinPath(const QString &p) { return p == QLatin1String("-"); }

// How messages name a stream: standard input, or the pipe's path.
QString streamName(const QString &path)
{
    return path == QLatin1String("-") ? QStringLiteral("standard input") : QStringLiteral("'%1'").arg(path);
}

bool startsWithY4mSignature(const uint8_t *bytes, int64_t count)
{
    constexpr int64_t n = sizeof(kavri::kY4mSignature) - 1;
    return count >= n && std::memcmp(bytes, kavri::kY4mSignature, size_t(n)) == 0;
}

} // namespace

KavriLoader::KavriLoader(const QString &path, const QString &diffPath, const Options &options, QObject *parent)
    : QObject(parent), m_options(options)
{
    kavri::pruneRememberedOnce();
    m_frame.props = &m_active;
    m_lastFrame.props = &m_active;
    m_unpackSamples = [this]() -> const uint8_t * {
        QMutexLocker view(&m_viewMutex);
        return m_pipeline.samples(kavri::FramePipeline::Buffer::First);
    };

    if (isStdinPath(path)) {
        m_isStdin = true;
        m_path = path;
        m_diffPath = diffPath.isEmpty() ? QString() : QDir::toNativeSeparators(diffPath);
#ifdef Q_OS_WIN
        if (options.stdinDescriptor == 0 && _setmode(_fileno(stdin), _O_BINARY) == -1)
            qDebug() << "cannot set input to inary mode!";
#endif
        // Elsewhere a descriptor has no text mode: the bytes arrive as they were written.
        m_main = FrameStream::wrapDescriptor(options.stdinDescriptor);
        m_opened = true;
        lookForStreamHeader(options.streamHeaderWaitMs);
        if (!m_opened) return;
        validate();
        return;
    }

    m_path = QDir::toNativeSeparators(path);
    m_diffPath = diffPath.isEmpty() ? QString() : QDir::toNativeSeparators(diffPath);
    m_hasDiff = !m_diffPath.isEmpty();
    // A named pipe (or a device) as either file makes the pair a stream, played front to back as standard
    // input is: opened without waiting for a writer, with no frame count and no seeking.
    m_isStdin = kavri::isStreamPath(m_path) || (m_hasDiff && kavri::isStreamPath(m_diffPath));
    m_main = FrameStream::openFile(m_path);
    if (m_hasDiff) m_diffStream = FrameStream::openFile(m_diffPath);
    m_opened = m_main->isOpen() && (!m_hasDiff || m_diffStream->isOpen());
    if (!m_opened) {
        m_main.reset();
        m_diffStream.reset();
        return;
    }

    kavri::ResolvedFormat found = kavri::resolvePair(m_path, m_hasDiff ? m_diffPath : QString(), options.useRemembered);
    if (!found.error.isEmpty()) {
        // A y4m file we cannot read as one is not read as raw samples either.
        m_openError = found.error;
        m_opened = false;
        m_main.reset();
        m_diffStream.reset();
        return;
    }
    m_pending = found.props;
    if (kavri::isStreamPath(m_path)) {
        lookForStreamHeader(options.streamHeaderWaitMs);
        if (!m_opened) return;
    }
    validate();
}

void KavriLoader::lookForStreamHeader(int waitMs)
{
    if (!m_main || waitMs < 0) return;
    const QByteArray signature(kavri::kY4mSignature);
    // Enough is known once the bytes cannot start a y4m header, or once its line is complete.
    const QByteArray start = m_main->readWithin(kavri::kMaxY4mHeaderBytes, waitMs, [&](const QByteArray &b) {
        if (!signature.startsWith(b.left(signature.size()))) return true;
        return b.size() >= signature.size() && b.contains('\n');
    });
    if (!kavri::hasY4mSignature(start) || !start.contains('\n')) {
        // Raw samples, or a header still on its way: the frames read them as they always did.
        m_main->unread(start);
        return;
    }
    const kavri::Y4mParse parsed = kavri::parseY4mHeader(start);
    if (!parsed.header) {
        m_openError = QStringLiteral("%1: %2").arg(streamName(m_path), parsed.error);
        m_opened = false;
        m_main.reset();
        m_diffStream.reset();
        return;
    }
    const kavri::Y4mHeader &h = *parsed.header;
    kavri::applyY4mHeader(h, m_pending);
    // A stream is read front to back: its header is gone already and its FRAME lines are read as they
    // come, so the record places nothing before its frames.
    m_pending.headerBytes = 0;
    m_pending.frameHeaderBytes = 0;
    m_streamIsY4m = true;
    m_main->unread(start.mid(qsizetype(h.headerBytes)));
}

bool KavriLoader::readStreamFrameLine()
{
    if (m_streamDamaged) return false;
    QByteArray line;
    const bool ended = m_main->readLine(line, kavri::kMaxY4mFrameLineBytes, &m_quitRequested);
    if (!ended && (m_main->atEnd() || m_quitRequested.load())) return false; // the stream is over
    if (ended && line.startsWith("FRAME") && (line.size() == 5 || line[5] == ' ')) return true;
    m_streamDamaged = true;
    const QString read =
        m_streamFrame == 1 ? QStringLiteral("1 frame") : QStringLiteral("%1 frames").arg(m_streamFrame);
    emit cannot_show(QStringLiteral("The y4m stream of %1 is damaged after %2: where a FRAME line should start, "
                                    "there is none; nothing more is read from it")
                         .arg(streamName(m_path), read));
    if (m_playing.load()) postCommand(kCmdStop, kCmdAsync);
    return false;
}

KavriLoader::~KavriLoader() = default;

KavriLoader *KavriLoader::create(const QString &path, const QString &diffPath)
{
    return create(path, diffPath, Options{});
}

KavriLoader *KavriLoader::create(const QString &path, const QString &diffPath, const Options &options)
{
    return create(path, diffPath, options, nullptr);
}

KavriLoader *KavriLoader::create(const QString &path, const QString &diffPath, const Options &options, QString *error)
{
    auto *thread = new QThread;
    auto *loader = new KavriLoader(path, diffPath, options);
    if (error) *error = loader->m_openError;
    if (!loader->m_opened) {
        delete loader;
        delete thread;
        return nullptr;
    }
    loader->moveToThread(thread);
    connect(thread, &QThread::started, loader, &KavriLoader::run, Qt::DirectConnection);
    connect(loader, &KavriLoader::finished, thread, &QThread::quit, Qt::DirectConnection);
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start(QThread::InheritPriority);
    return loader;
}

void KavriLoader::finishAttach(QObject *owner, QObject *panel)
{
    m_window = owner;
    m_panel = panel;
    m_connections.append(connect(this, &KavriLoader::finished, this, &QObject::deleteLater));
    postInit(kCmdAsync);
}

void KavriLoader::postInit(uint32_t flags)
{
    {
        QMutexLocker lock(&m_handoffMutex);
        m_handoff = m_pending;
        m_handoff.diffFileName = m_pending.diffFileName; // assignment keeps the target's difference name
        m_handoffReady = true;
    }
    postCommand(kCmdInit, flags);
}

void KavriLoader::detach()
{
    QThread *worker = thread();
    postCommand(kCmdQuit, 0);
    {
        QMutexLocker lock(&m_queueMutex);
        while (m_running.load() && !m_loopDone.load()) m_queueCond.wait(&m_queueMutex);
    }
    // The owner's connections go first: a deferred deletion fired by finished() could otherwise race the
    // deletion below.
    for (const QMetaObject::Connection &c : std::as_const(m_connections)) disconnect(c);
    m_connections.clear();
    emit finished(); // ends the thread's event loop
    // Once the thread is gone nothing can touch the loader any more, so it is deleted here and now rather
    // than by an event that a finished thread would never process.
    if (worker && worker != QThread::currentThread()) {
        worker->wait();
        delete this;
    } else {
        deleteLater();
    }
}

// ---- command queue ----

void KavriLoader::postCommand(uint32_t kind, uint32_t flags, uint32_t argument)
{
    // A synchronous command posted from the loader's own thread could never be taken while its poster
    // waits; it runs asynchronously instead.
    if (QThread::currentThread() == thread()) flags |= kCmdAsync;
    // Only init, pause and quit may hold their poster (they run without taking the queue mutex); the others
    // take it themselves while they run. A held pause returns once playback has ended: no frame is
    // delivered after it, so the frame on screen is final (a linked player seeks its partner to it).
    if (kind != kCmdInit && kind != kCmdQuit && kind != kCmdPause) flags |= kCmdAsync;
    QMutexLocker lock(&m_queueMutex);
    if (m_loopDone.load()) return;
    if (kind == kCmdQuit) m_quitRequested.store(true);
    // A burst of seeks or plays collapses to the newest, so a fast slider drag never builds a backlog.
    while (!m_queue.empty() && m_queue.back().kind == kind) m_queue.pop_back();
    // Whatever delivers a frame shows the view as it is then: a redisplay still waiting has nothing to add.
    if (kind == kCmdSeek || kind == kCmdPlay || kind == kCmdStop || kind == kCmdReload || kind == kCmdInit)
        std::erase_if(m_queue, [](const Command &c) { return c.kind == kCmdRedisplay; });
    m_queue.push_back({kind, flags, argument});
    if (flags & kCmdAsync) {
        m_queueCond.wakeAll();
        return;
    }
    while (!m_queue.empty() && !m_loopDone.load()) {
        m_queueCond.wakeAll();
        m_queueCond.wait(&m_queueMutex);
    }
}

void KavriLoader::play() { postCommand(kCmdPlay, kCmdAsync); }
void KavriLoader::pause() { postCommand(kCmdPause, kCmdAsync); }
void KavriLoader::stop() { postCommand(kCmdStop, kCmdAsync); }
void KavriLoader::reload() { postCommand(kCmdReload, kCmdAsync); }

void KavriLoader::seek(uint64_t frame, bool b_remote, bool b_dragged)
{
    // Only the low 32 bits travel in a command; the sign of that pattern is looked at when it runs.
    postCommand(kCmdSeek, kCmdAsync | (b_remote ? uint32_t(kCmdRemote) : 0u) | (b_dragged ? uint32_t(kCmdDragged) : 0u),
                uint32_t(frame & 0xffffffffu));
}

void KavriLoader::run()
{
    m_pauseMs = 0.0;
    m_frame.frameIndex = 0;
    m_queueMutex.lock();
    m_running.store(true);
    m_queueCond.wakeAll();
    for (;;) {
        while (m_queue.empty()) m_queueCond.wait(&m_queueMutex);
        bool quit = false;
        while (!m_queue.empty()) {
            const Command c = m_queue.front();
            m_queue.pop_front();
            m_frame.flags = (c.flags & kCmdRemote) ? uint32_t(kFrameRemote) : 0u;
            const bool async = c.flags & kCmdAsync;
            // A synchronous command runs with the mutex held, so its poster stays blocked until it is done.
            if (async) m_queueMutex.unlock();
            execute(c);
            if (async) m_queueMutex.lock();
            if (c.kind == kCmdQuit) {
                quit = true;
                break;
            }
        }
        m_queueCond.wakeAll();
        if (quit) break;
    }
    // Whatever was posted after the quit is dropped; a synchronous poster must not wait for it forever.
    m_queue.clear();
    m_running.store(false);
    m_loopDone.store(true);
    m_readAhead.drop();
    m_main.reset();
    m_diffStream.reset();
    m_queueMutex.unlock();
    releaseResources();
    m_queueMutex.lock();
    m_queueCond.wakeAll();
    m_queueMutex.unlock();
}

void KavriLoader::releaseResources()
{
    QMutexLocker view(&m_viewMutex);
    m_pipeline.release();
    for (kavri::AlignedBuffer &b : m_spare) b.reset();
    m_allocSize = 0;
}

void KavriLoader::execute(const Command &c)
{
    switch (c.kind) {
    case kCmdInit: doInit(); break;
    case kCmdPlay: doPlay(); break;
    case kCmdPause: doPause(); break;
    case kCmdSeek: doSeek(c); break;
    case kCmdStop: doStop(); break;
    case kCmdReload: doReload(); break;
    case kCmdRedisplay: doRedisplay(); break;
    default: break; // quit is handled by the loop; unknown kinds do nothing
    }
}

// ---- validation and init ----

uint32_t KavriLoader::validate()
{
    // The frame counts are taken from the loader's own paths, whatever the record said before.
    m_pending.fileName = m_path;
    m_pending.diffFileName = m_diffPath;
    m_mask = kavri::validateProps(m_pending);
    m_frameCountShared.store(m_pending.frameCount);
    m_fileSizeShared.store(m_pending.fileSize);
    m_pending.fileName = m_path;
    m_pending.diffFileName = m_diffPath;
    m_initialized.store(false);
    if (kavri::isPlayable(m_mask)) {
        if (!m_isStdin && m_options.rememberFormats) {
            VideoProps stored = m_pending; // the store rewrites separators in what it is given
            kavri::storeRemembered(stored);
            m_pending.timeStamp = stored.timeStamp;
        }
        if (m_running.load()) postInit(0);
    }
    return m_mask;
}

void KavriLoader::adoptRecount()
{
    m_pending.frameCount = m_frameCountShared.load();
    m_pending.fileSize = m_fileSizeShared.load();
}

void KavriLoader::doInit()
{
    VideoProps props;
    {
        // Not the queue lock: a synchronous init runs with that held.
        QMutexLocker lock(&m_handoffMutex);
        if (!m_handoffReady) return;
        props = m_handoff;
        props.diffFileName = m_handoff.diffFileName;
    }
    // A frame read ahead for the old record is of the wrong size, and its buffers are about to go.
    m_readAhead.drop();
    {
        QMutexLocker view(&m_viewMutex);
        m_active = props;
        m_active.diffFileName = props.diffFileName; // assignment keeps the target's difference name
        for (kavri::AlignedBuffer &b : m_spare) b.reset();
        try {
            m_pipeline.setup(m_active, m_hasDiff);
        } catch (const std::bad_alloc &) {
            // The pipeline is left empty: nothing is read or shown until a smaller record comes.
            m_allocSize = m_frameBytes = 0;
            m_pictureRefused = false;
            emit cannot_show(kavri::notEnoughMemoryText(
                props.width, props.height,
                kavri::allocationSize(props.format, props.containerBits, props.width, props.height)));
            return;
        }
        m_pipeline.setDeinterlace(m_view.deinterlace);
        m_allocSize = m_pipeline.allocationSize();
        m_frameBytes = m_pipeline.frameBytes();
        m_active.frameBytes = m_frameBytes; // where the frames lie follows from it (frameDataOffset)
    }
    m_pictureRefused = false;
    m_holdingFrame = false; // the new buffers hold no frame yet
    if (!m_isStdin) positionStreams(m_frame.frameIndex);
    m_initialized.store(true);
    m_firstBuffer = true;
    emit initialized();
}

// ---- frame delivery ----

bool KavriLoader::deliverFrame(bool readAhead)
{
    uint8_t *mainBuf = m_pipeline.readBuffer(kavri::FramePipeline::Buffer::First);
    if (!mainBuf || m_frameBytes == 0 || !m_main) return false;
    int64_t got = 0, gotDiff = 0;
    // From here on the buffers may hold part of another frame than the one on screen.
    m_holdingFrame = false;
    if (m_readAhead.pending()) {
        // The streams have not moved since the read ahead started, so it read exactly this frame.
        const ReadAhead::Result r = m_readAhead.take();
        got = r.first;
        gotDiff = r.second;
        if (got > 0) {
            QMutexLocker view(&m_viewMutex);
            m_pipeline.exchangeInput(m_spare[0], m_spare[1]);
        }
    } else {
        seekToStreamFrame();
        if (m_streamIsY4m && !readStreamFrameLine()) return false;
        got = m_main->read(mainBuf, m_frameBytes, &m_quitRequested);
        if (got > 0 && m_hasDiff)
            gotDiff = m_diffStream ? m_diffStream->read(m_pipeline.readBuffer(kavri::FramePipeline::Buffer::Second),
                                                        m_frameBytes)
                                   : 0;
    }
    if (got > 0) ++m_streamFrame;
    // Nothing new (a vanished or exhausted file): the last good frame stays on screen.
    if (got <= 0 || m_quitRequested.load()) return false;
    if (m_hasDiff && gotDiff != got) return false;
    // A y4m header is looked for only when a stream is opened; one that came later, shown as raw samples
    // (header and FRAME lines included), would be nonsense. Said once, instead of a first frame.
    if (m_isStdin && !m_streamIsY4m && !m_haveShown.load() && startsWithY4mSignature(mainBuf, got)) {
        emit cannot_show(QStringLiteral("%1 carries a y4m stream whose header came after the player had started "
                                        "reading; start the writer first, or save it to a file and open that")
                             .arg(streamName(m_path)));
        if (m_playing.load()) postCommand(kCmdStop, kCmdAsync);
        return false;
    }
    // The next frame is read while this one is converted, when playback will ask for it next.
    if (readAhead && m_frame.frameIndex + 1 < m_active.frameCount) startReadAhead();

    uint8_t *dst = nullptr;
    emit get_buffer(&dst, QSize(m_active.width, m_active.height), m_firstBuffer ? &m_active : nullptr);
    if (!dst && m_panel) {
        // The panel could not make a picture of this size: say so once, and stop rather than play on
        // to a screen that shows nothing.
        if (!m_pictureRefused) {
            m_pictureRefused = true;
            emit cannot_show(kavri::notEnoughMemoryText(m_active.width, m_active.height,
                                                        uint64_t(m_active.width) * uint64_t(m_active.height) * 4));
        }
        if (m_playing.load()) postCommand(kCmdStop, kCmdAsync);
        return false;
    }

    {
        QMutexLocker view(&m_viewMutex);
        const kavri::FramePipeline::Buffer shown = m_pipeline.toNativeAndShow(m_view.picture, dst);
        m_shownBuffer.store(int(shown));
        noteSamples(m_frame, shown);
        if (m_hasDiff) {
            const DifferencePicture &d = m_pipeline.difference();
            for (int k = 0; k < 3; ++k) {
                m_frame.psnr[k] = d.psnr[k];
                m_frame.mse[k] = d.mse[k];
                m_frame.firstDiff[k] = packFirstDifference(d.firstDiffX[k], d.firstDiffY[k]);
            }
        }
    }

    m_lastFrame = m_frame;
    m_holdingFrame = true;
    m_haveShown.store(true);
    emit new_frame(&m_frame);

    const uint64_t count = m_active.frameCount;
    if (!m_isStdin && count > 0)
        m_frame.frameIndex = (m_frame.frameIndex + 1) % count;
    else if (m_isStdin)
        m_frame.frameIndex = m_frame.frameIndex + 1;
    else
        m_frame.frameIndex = 0;
    m_firstBuffer = false;
    return true;
}

void KavriLoader::noteSamples(frame_t &f, kavri::FramePipeline::Buffer shown) const
{
    // The difference picture is not a frame of the record's layout: its samples are those of the first file.
    const auto which = shown == kavri::FramePipeline::Buffer::Difference ? kavri::FramePipeline::Buffer::First : shown;
    f.samples = which == kavri::FramePipeline::Buffer::First && m_pipeline.samplesPending() ? nullptr
                                                                                            : m_pipeline.buffer(which);
    f.unpackSamples = &m_unpackSamples;
    f.sampleBytes = m_pipeline.sampleBytes();
    f.sampleProps = &m_pipeline.props();
}

void KavriLoader::startReadAhead()
{
    // Standard input is left to the plain read: bytes taken from a pipe cannot be given back when a new
    // record changes the frame size, and the writer bounds that rate anyway.
    if (!m_options.readAhead || m_isStdin || !m_main || m_frameBytes == 0 || streamsAtEnd()) return;
    if (!m_spare[0]) {
        try {
            m_spare[0] = kavri::allocateAligned(m_allocSize);
            if (m_hasDiff) m_spare[1] = kavri::allocateAligned(m_allocSize);
        } catch (const std::bad_alloc &) {
            // Reading ahead only saves time: without the memory for it, frames are read when asked for.
            for (kavri::AlignedBuffer &b : m_spare) b.reset();
            return;
        }
    }
    seekToStreamFrame();
    m_readAhead.start(m_main, m_spare[0].get(), m_hasDiff ? m_diffStream : nullptr, m_spare[1].get(), m_frameBytes);
}

bool KavriLoader::streamsAtEnd() const
{
    if (m_readAhead.pending()) {
        const ReadAhead::Before &b = m_readAhead.before();
        return b.firstAtEnd || (m_hasDiff && (!m_diffStream || b.secondAtEnd));
    }
    return !m_main || m_main->atEnd() || (m_hasDiff && (!m_diffStream || m_diffStream->atEnd()));
}

// ---- playback ----

void KavriLoader::computePause()
{
    const double elapsedMs = std::chrono::duration<double, std::milli>(Clock::now() - m_frameStart).count();
    // Only the remainder of the period is slept, shortened by 1 % to absorb the coarseness of the sleep;
    // a late frame is not made up for by a shorter next period.
    double pause = (1000.0 / m_active.frameRate - elapsedMs) * 0.99;
    if (!(pause > 0.0)) pause = 0.0; // also catches NaN
    m_pauseMs = pause;
}

void KavriLoader::pauseAfterDelivery()
{
    computePause();
    if (!(m_pauseMs > 0.0) || !(m_pauseMs < kLongestPauseMs) ||
        !isSignalConnected(QMetaMethod::fromSignal(&KavriLoader::frame_pause)))
        return;
    const Clock::time_point start = Clock::now();
    emit frame_pause(&m_lastFrame, qint64(m_pauseMs * 1e6));
    // The pause ends where it would have ended without the receivers.
    const double spentMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    m_pauseMs = std::max(0.0, m_pauseMs - spentMs);
}

bool KavriLoader::interruptPendingLocked() const
{
    // A redisplay does not end playback: the next frame shows the new view anyway.
    for (const Command &c : m_queue)
        if (c.kind != kCmdPlay && c.kind != kCmdRedisplay) return true;
    return false;
}

void KavriLoader::sleepForPause()
{
    // A rate of 0 gives an endless period that only a command ends.
    const bool endless = !(m_pauseMs < kLongestPauseMs);
    const int64_t ns = endless                  ? 0
                       : kWholeMillisecondPause ? int64_t(m_pauseMs + 0.5) * 1000000
                                                : int64_t(m_pauseMs * 1e6);
    if (!endless && ns <= 0) return;
    QDeadlineTimer deadline = endless ? QDeadlineTimer(QDeadlineTimer::Forever)
                                      : QDeadlineTimer(std::chrono::nanoseconds(ns), Qt::PreciseTimer);
    // A timed wait on the queue's condition rather than a plain sleep: a new command ends the pause at
    // once instead of after up to a whole period.
    QMutexLocker lock(&m_queueMutex);
    while (!interruptPendingLocked() && !deadline.hasExpired()) m_queueCond.wait(&m_queueMutex, deadline);
}

void KavriLoader::doPlay()
{
    if (!m_initialized.load()) return;
    m_playing.store(true);
    m_frame.flags |= kFramePlayback;
    for (;;) {
        m_queueCond.wakeOne();
        sleepForPause();
        m_frameStart = Clock::now();
        {
            QMutexLocker lock(&m_queueMutex);
            while (!m_queue.empty() && m_queue.front().kind == kCmdRedisplay) m_queue.pop_front();
            if (!m_queue.empty()) {
                if (m_queue.front().kind != kCmdPlay) break;
                m_queue.pop_front();
            }
        }
        if (m_isStdin) {
            if (!m_main || m_main->atEnd()) {
                emit stopped();
                break;
            }
            deliverFrame();
            pauseAfterDelivery();
            continue;
        }
        const bool atEnd = streamsAtEnd() || m_frame.frameIndex + 1 >= m_active.frameCount;
        if (!atEnd) {
            deliverFrame(true);
            pauseAfterDelivery();
            continue;
        }
        deliverFrame(); // the last frame; the index wraps to 0
        // A record of one frame (or none) has nothing to loop over.
        if (!m_loop.load() || m_active.frameCount <= 1) {
            postCommand(kCmdStop, kCmdAsync);
            break;
        }
        reopenStreams();
        positionStreams(0);
        m_frame.frameIndex = 0;
        pauseAfterDelivery();
        sleepForPause();
        // Frame 0 starts a period of its own, measured like any other.
        m_frameStart = Clock::now();
        if (!deliverFrame(true)) {
            // The file vanished or emptied: looping would only show the same last frame forever.
            postCommand(kCmdStop, kCmdAsync);
            break;
        }
        pauseAfterDelivery();
    }
    m_playing.store(false);
}

void KavriLoader::doPause()
{
    if (m_frame.frameIndex >= m_active.frameCount) m_frame.frameIndex = 0;
}

void KavriLoader::doSeek(const Command &c)
{
    if (!m_initialized.load()) return;
    const int32_t asSigned = int32_t(c.argument);
    uint64_t frame = asSigned < 0 ? 0 : uint64_t(asSigned);
    m_readAhead.drop();
    if (m_main) m_main->clear();
    if (m_diffStream) m_diffStream->clear();
    if (m_active.frameCount > 0 && frame > m_active.frameCount - 1) frame = m_active.frameCount - 1;
    positionStreams(frame);
    m_frame.frameIndex = frame;
    if (c.flags & kCmdDragged) m_frame.flags |= kFrameDragged;
    deliverFrame();
}

void KavriLoader::doStop()
{
    if (m_isStdin) {
        emit stopped();
        return;
    }
    reopenStreams();
    positionStreams(0);
    m_frame.frameIndex = 0;
    deliverFrame();
    // The streams go back to frame 0 while the index stays at 1: the next delivery reads frame 0 again.
    positionStreams(0);
    emit stopped();
}

void KavriLoader::doReload()
{
    if (!m_initialized.load()) return;
    if (!m_isStdin) reopenStreams();
    if (m_frameBytes != 0 && !m_isStdin) {
        uint64_t size = 0;
        VideoProps counted = m_active;
        counted.fileName = m_path;
        counted.diffFileName = m_hasDiff ? m_diffPath : QString();
        counted.frameBytes = m_frameBytes;
        uint64_t count = 0;
        if (counted.frameHeaderBytes > 0 || counted.diffFrameHeaderBytes > 0) {
            // The FRAME lines of a grown y4m file are walked again: the new ones may differ in length.
            kavri::validateProps(counted);
            count = counted.frameCount;
            size = counted.fileSize;
            m_active.frameStarts = counted.frameStarts;
            m_active.diffFrameStarts = counted.diffFrameStarts;
        } else {
            count = kavri::frameCountOfRecord(counted, &size);
        }
        // The pending record belongs to the GUI thread; it picks the new counts up from these.
        m_frameCountShared.store(count);
        m_fileSizeShared.store(size);
        m_active.frameCount = count;
        m_active.fileSize = size;
    }
    emit stopped();
    emit initialized();
    doSeek({kCmdSeek, 0, uint32_t((m_frame.frameIndex - 1) & 0xffffffffu)});
}

void KavriLoader::reopenStreams()
{
    if (m_isStdin) return;
    m_readAhead.drop();
    m_main = FrameStream::openFile(m_path);
    if (m_hasDiff) m_diffStream = FrameStream::openFile(m_diffPath);
}

void KavriLoader::positionStreams(uint64_t frame)
{
    if (m_isStdin) return;
    m_readAhead.drop();
    m_streamFrame = frame;
    // Frames with FRAME lines are found anew before every read (seekToStreamFrame); the others follow on.
    if (m_main) m_main->seek(kavri::frameDataOffset(m_active, frame));
    if (m_diffStream) m_diffStream->seek(kavri::frameDataOffset(m_active, frame, true));
}

void KavriLoader::seekToStreamFrame()
{
    // A raw file's frames follow each other, so a stream that has read one stands at the next; a FRAME
    // line (of whatever length) lies between a y4m file's frames.
    if (m_isStdin) return;
    if (m_main && m_active.frameHeaderBytes > 0) m_main->seek(kavri::frameDataOffset(m_active, m_streamFrame));
    if (m_diffStream && m_active.diffFrameHeaderBytes > 0)
        m_diffStream->seek(kavri::frameDataOffset(m_active, m_streamFrame, true));
}

// ---- view controls (GUI thread) ----
// The settings are read by the next conversion under the view lock; the pipeline rebuilds a table only
// when one of them has changed.

void KavriLoader::redisplay()
{
    // While playing, the next frame shows the change anyway.
    if (m_playing.load() || !m_initialized.load() || !m_haveShown.load()) return;
    postCommand(kCmdRedisplay, kCmdAsync);
}

void KavriLoader::doRedisplay()
{
    // The samples of the frame on screen are still in the pipeline's buffers, in native order: converting
    // them again needs no read, so a paused stream shows the change too.
    if (!m_holdingFrame || m_frameBytes == 0) return;
    uint8_t *dst = nullptr;
    emit get_buffer(&dst, QSize(m_active.width, m_active.height), nullptr);
    if (!dst) return;
    {
        QMutexLocker view(&m_viewMutex);
        if (!m_pipeline.buffer(kavri::FramePipeline::Buffer::First)) return;
        const kavri::FramePipeline::Buffer shown = m_pipeline.show(m_view.picture, dst);
        m_shownBuffer.store(int(shown));
        noteSamples(m_lastFrame, shown);
    }
    // The frame is the one delivered last, neither from a partner nor dragged.
    m_lastFrame.flags = 0;
    emit new_frame(&m_lastFrame);
}

KavriLoader::View KavriLoader::view() const
{
    QMutexLocker view(&m_viewMutex);
    return m_view;
}

void KavriLoader::setView(const View &v)
{
    m_pending.interlaced = v.deinterlace;
    {
        QMutexLocker view(&m_viewMutex);
        if (v.deinterlace != m_view.deinterlace) {
            // The converter must describe what the buffers hold, so the pipeline keeps the active
            // geometry (the pending record may already carry a new one that is not built yet).
            m_pipeline.setDeinterlace(v.deinterlace);
        }
        m_view = v;
    }
    redisplay();
}

void KavriLoader::setColour(const kavri::ColourDescription &colour)
{
    m_pending.colour = colour;
    if (kavri::isPlayable(m_mask) && !m_isStdin && m_options.rememberFormats) {
        VideoProps stored = m_pending; // the store rewrites separators in what it is given
        kavri::storeRemembered(stored);
        m_pending.timeStamp = stored.timeStamp;
    }
    {
        // An init still waiting takes the reading too, or it would bring back the old one.
        QMutexLocker lock(&m_handoffMutex);
        m_handoff.colour = colour;
    }
    {
        QMutexLocker view(&m_viewMutex);
        m_pipeline.setColour(colour);
    }
    redisplay();
}

// ---- readout (GUI thread) ----

void KavriLoader::getNativeAt(bool *pb_success, int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2,
                              int32_t &c3, int32_t *alpha)
{
    QMutexLocker view(&m_viewMutex);
    // The pipeline holds the active geometry (a pending record edited since the last init may differ)
    // and reads the buffer of the frame last shown.
    const bool ok = m_pipeline.readout(x, y, c1, c2, c3, alpha);
    if (ok) space = m_active.format; // a failed readout leaves everything as it was
    if (pb_success) *pb_success = ok;
}

const uint8_t *KavriLoader::frameBuffer(Buffer which)
{
    QMutexLocker view(&m_viewMutex);
    return m_pipeline.samples(kavri::FramePipeline::Buffer(int(which)));
}
