// The extraction and reversal as pool jobs: they run copyFrames on the application's global thread pool
// and report progress in percent through status(int); 100 comes last, once the result is known.
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
    // Valid once status(100) was emitted.
    bool succeeded() const { return m_ok.load(); }
    QString errorText() const;
    // True once run() has returned its last use of this object (owners wait for it before deleting).
    bool hasFinished() const { return m_finished.load(); }
    const kavri::tools::CopyJob &job() const { return m_job; }

signals:
    void status(int percent);

private:
    kavri::tools::CopyJob m_job;
    kavri::tools::CopyResult m_result;
    std::atomic<bool> m_ok{false};
    std::atomic<bool> m_finished{false};
};

// Copies the inclusive range first..last of the input.
class ExtractWork : public CopyWork {
    Q_OBJECT
public:
    ExtractWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes, uint64_t first,
                uint64_t last, bool overwrite);
};

// Writes every frame of the input, last first.
class ReverseWork : public CopyWork {
    Q_OBJECT
public:
    ReverseWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                uint64_t frameCount, bool overwrite);
};
