#include "ui/CompareSource.h"

#include "formats/FrameSize.h"
#include "loader/KavriLoader.h"

#include <QFileInfo>
#include <cstring>
#include <new>

namespace kavri::ui {

CompareSource::CompareSource(KavriLoader *loader, QObject *parent) : QObject(parent), m_loader(loader)
{
    m_loader->attach(this, this);
}

CompareSource::~CompareSource()
{
    // The loader delivers into this object until it has quit.
    if (m_loader) m_loader->detach();
}

QString CompareSource::path() const { return m_loader ? m_loader->path() : QString(); }

void CompareSource::follow(uint64_t index)
{
    if (m_shownIndex.load() == index) return;
    // One request per frame: while the loader reads it, further deliveries of the first sequence's same
    // frame (a redisplay) ask nothing new.
    if (m_asked.exchange(index) == index) return;
    emit seek(index, false, false);
}

CompareSource::Front CompareSource::front() const
{
    Front f{std::unique_lock<QMutex>(m_lock), nullptr, kNoFrame};
    f.image = m_front.get();
    f.index = m_shownIndex.load();
    return f;
}

void CompareSource::setKeepSamples(bool on)
{
    if (m_keepSamples.exchange(on) == on) return;
    if (!on) {
        QMutexLocker l(&m_lock);
        m_samples = std::vector<uint8_t>();
        m_samplesIndex = kNoFrame;
        return;
    }
    // The frame on screen was delivered without its samples kept: the loader converts it once more, with
    // no read, and this time they are copied.
    m_loader->postCommand(KavriLoader::kCmdRedisplay, KavriLoader::kCmdAsync);
}

CompareSource::Samples CompareSource::samples() const
{
    Samples s{std::unique_lock<QMutex>(m_lock), {}, kNoFrame};
    if (m_samplesIndex == kNoFrame) return s;
    s.samples = {m_samples.data(), m_samples.size(), &m_sampleProps};
    s.index = m_samplesIndex;
    return s;
}

void CompareSource::get_buffer(uint8_t **pp_frame, QSize size, void *)
{
    // Loader thread: the same image format as the draw panel's, so the conversion writes straight into it.
    QMutexLocker l(&m_lock);
    if (!m_back || m_back->size() != size) {
        try {
            m_back = std::make_unique<QImage>(size, QImage::Format_RGB32);
            m_front = std::make_unique<QImage>(size, QImage::Format_RGB32);
        } catch (const std::bad_alloc &) {
            m_back.reset();
            m_front.reset();
        }
        if (!m_back || m_back->isNull() || !m_front || m_front->isNull()) {
            m_back.reset();
            m_front.reset();
            *pp_frame = nullptr;
            return;
        }
        m_back->fill(Qt::black);
        m_front->fill(Qt::black);
        m_shownIndex = kNoFrame;
    }
    *pp_frame = m_back->bits();
}

void CompareSource::oon_new_frame(frame_t *f)
{
    // Samples the loader left out are unpacked under its own lock, so before this one is taken.
    const uint8_t *kept = m_keepSamples.load() && f->sampleProps ? frameSamples(*f) : nullptr;
    {
        QMutexLocker l(&m_lock);
        std::swap(m_back, m_front);
        m_shownIndex = f->frameIndex;
        m_samplesIndex = kNoFrame;
        if (kept) {
            // The samples are the loader's only while this runs. The pipeline's buffer is of the
            // record's allocation size, which is what a conversion of it reads.
            const VideoProps &p = *f->sampleProps;
            const size_t n = allocationSize(p.format, p.containerBits, p.width, p.height);
            try {
                m_samples.resize(n);
                std::memcpy(m_samples.data(), kept, n);
                m_sampleProps = p;
                m_samplesIndex = f->frameIndex;
            } catch (const std::bad_alloc &) {
                m_samples = std::vector<uint8_t>();
            }
        }
    }
    emit delivered(f->frameIndex);
}

void CompareSource::oon_load_init() { emit initialized(); }

bool CompareSource::nativeAt(int32_t x, int32_t y, colorSpace_t &space, int32_t &c1, int32_t &c2, int32_t &c3,
                             int32_t &alpha)
{
    bool ok = false;
    alpha = -1;
    emit getNativeAt(&ok, x, y, space, c1, c2, c3, &alpha);
    return ok;
}

} // namespace kavri::ui
