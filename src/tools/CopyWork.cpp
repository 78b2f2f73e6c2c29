#include "tools/CopyWork.h"

using kavri::tools::CopyJob;

CopyWork::CopyWork(const CopyJob &job) : m_job(job)
{
    // The dialog owns the object and reads the result after status(100); the pool must not delete it.
    setAutoDelete(false);
}

void CopyWork::run()
{
    if (m_cancel.load()) {
        m_result.cancelled = true;
        m_result.error = QStringLiteral("cancelled before it started");
    } else if (m_job.frameBytes == 0 || m_job.first > m_job.last) {
        m_result.error = QStringLiteral("the file holds no frame to copy");
    } else {
        m_result = kavri::tools::copyFrames(
            m_job, [this](int percent) { emit status(percent); }, &m_cancel);
    }
    m_frames.store(m_result.framesWritten);
    m_cancelled.store(m_result.cancelled);
    m_ok.store(m_result.ok);
    emit status(100);
    // The last touch of this object: an owner that abandoned it meanwhile left the deleting to us.
    int expected = Pending;
    if (!m_state.compare_exchange_strong(expected, Finished)) deleteLater();
}

void CopyWork::abandon()
{
    cancel();
    int expected = Pending;
    if (!m_state.compare_exchange_strong(expected, Abandoned)) delete this; // run() has finished
}

QString CopyWork::errorText() const { return m_result.error; }

ExtractWork::ExtractWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                         uint64_t first, uint64_t last, bool overwrite)
    : CopyWork(kavri::tools::extractJob(input, output, frameBytes, headerBytes, first, last, overwrite))
{
}

ReverseWork::ReverseWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                         uint64_t frameCount, bool overwrite)
    : CopyWork(kavri::tools::reverseJob(input, output, frameBytes, headerBytes, frameCount, overwrite))
{
}

namespace {
kavri::tools::CopyJob described(kavri::tools::CopyJob job, const VideoProps &props)
{
    kavri::tools::describeInput(job, props);
    return job;
}
} // namespace

ExtractWork::ExtractWork(const VideoProps &p, const QString &output, uint64_t first, uint64_t last, bool overwrite)
    : CopyWork(described(
          kavri::tools::extractJob(p.fileName, output, p.frameBytes, p.headerBytes, first, last, overwrite), p))
{
}

ReverseWork::ReverseWork(const VideoProps &p, const QString &output, bool overwrite)
    : CopyWork(described(
          kavri::tools::reverseJob(p.fileName, output, p.frameBytes, p.headerBytes, p.frameCount, overwrite), p))
{
}
