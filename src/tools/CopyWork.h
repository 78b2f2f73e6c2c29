// The extraction and reversal as pool jobs: they run copyFrames on the application's global thread pool
// and report progress in percent through status(int); 100 comes last, once the result is known. A job
// can be cancelled from any thread; it then stops before its next chunk and leaves nothing behind.
#pragma once

#include "tools/SequenceCopy.h"

#include <QObject>
#include <QRunnable>
#include <atomic>

class CopyWork : public QObject, public QRunnable {
    Q_OBJECT
public:
    explicit CopyWork(const kavri::tools::CopyJob &job);

    void run() override;
    // Asks the job to stop; a job that has not started yet stops before touching any file.
    void cancel() { m_cancel.store(true); }
    bool cancelRequested() const { return m_cancel.load(); }
    // Valid once status(100) was emitted.
    bool succeeded() const { return m_ok.load(); }
    bool wasCancelled() const { return m_cancelled.load(); }
    uint64_t framesWritten() const { return m_frames.load(); }
    QString errorText() const;
    // True once run() has returned its last use of this object.
    bool hasFinished() const { return m_state.load() == Finished; }
    const kavri::tools::CopyJob &job() const { return m_job; }

    // Hands the object over to itself, for an owner that goes away without waiting for the disk: the job
    // is cancelled, and the object is deleted at once when run() has finished, otherwise by the owning
    // thread's event loop as soon as run() ends. The caller must not use the pointer afterwards, and
    // must first take a job that was never started back from its pool (QThreadPool::tryTake).
    void abandon();

signals:
    void status(int percent);

private:
    enum State { Pending, Finished, Abandoned };

    kavri::tools::CopyJob m_job;
    kavri::tools::CopyResult m_result;
    std::atomic<bool> m_cancel{false};
    std::atomic<bool> m_ok{false};
    std::atomic<bool> m_cancelled{false};
    std::atomic<uint64_t> m_frames{0};
    std::atomic<int> m_state{Pending};
};

// Copies the inclusive range first..last of the input.
class ExtractWork : public CopyWork {
    Q_OBJECT
public:
    ExtractWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes, uint64_t first,
                uint64_t last, bool overwrite);
    // The frames of the file `props` describes, with its FRAME lines skipped and a y4m output described.
    ExtractWork(const VideoProps &props, const QString &output, uint64_t first, uint64_t last, bool overwrite);
};

// Writes every frame of the input, last first.
class ReverseWork : public CopyWork {
    Q_OBJECT
public:
    ReverseWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                uint64_t frameCount, bool overwrite);
    ReverseWork(const VideoProps &props, const QString &output, bool overwrite);
};
