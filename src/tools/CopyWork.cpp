#include "tools/CopyWork.h"

using kavri::tools::CopyJob;

CopyWork::CopyWork(const CopyJob &job) : m_job(job)
{
    // The dialog owns the object and reads the result after status(100); the pool must not delete it.
    setAutoDelete(false);
}

void CopyWork::run()
{
    if (m_job.frameBytes == 0 || m_job.first > m_job.last) {
        m_result.error = QStringLiteral("the file holds no frame to copy");
    } else {
        m_result = kavri::tools::copyFrames(m_job, [this](int percent) { emit status(percent); });
    }
    m_ok.store(m_result.ok);
    emit status(100);
    m_finished.store(true);
}

QString CopyWork::errorText() const { return m_result.error; }

namespace {

CopyJob makeJob(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                uint64_t first, uint64_t last, bool reverse, bool overwrite)
{
    CopyJob j;
    j.input = input;
    j.output = output;
    j.frameBytes = frameBytes;
    j.headerBytes = headerBytes;
    j.first = first;
    j.last = last;
    j.reverse = reverse;
    j.overwrite = overwrite;
    return j;
}

} // namespace

ExtractWork::ExtractWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                         uint64_t first, uint64_t last, bool overwrite)
    : CopyWork(makeJob(input, output, frameBytes, headerBytes, first, last, false, overwrite))
{
}

// A 0-frame input gets first > last, which run() reports as a failure instead of copying anything.
ReverseWork::ReverseWork(const QString &input, const QString &output, uint32_t frameBytes, uint32_t headerBytes,
                         uint64_t frameCount, bool overwrite)
    : CopyWork(makeJob(input, output, frameBytes, headerBytes, frameCount > 0 ? 0 : 1,
                       frameCount > 0 ? frameCount - 1 : 0, true, overwrite))
{
}
