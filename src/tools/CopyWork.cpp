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
