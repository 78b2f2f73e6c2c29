#include "ui/CompareSource.h"

#include "loader/KavriLoader.h"

#include <QFileInfo>

namespace kavri::ui {

CompareSource::CompareSource(KavriLoader *loader, bool difference, QObject *parent)
    : QObject(parent), m_loader(loader), m_difference(difference)
{
    if (m_difference) {
        KavriLoader::View v = m_loader->view();
        v.picture.view = 0; // the difference itself, not one of the two files
        m_loader->setView(v);
    }
    m_loader->attach(this, this);
}

CompareSource::~CompareSource()
{
    // The loader delivers into this object until it has quit.
    if (m_loader) m_loader->detach();
}

QString CompareSource::path() const { return m_loader ? m_loader->path() : QString(); }

void CompareSource::lastMetrics(double psnr[3], double mse[3]) const
{
    QMutexLocker l(&m_lock);
    for (int k = 0; k < 3; ++k) {
        psnr[k] = m_psnr[k];
        mse[k] = m_mse[k];
    }
}

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
    {
        QMutexLocker l(&m_lock);
        std::swap(m_back, m_front);
        for (int k = 0; k < 3; ++k) {
            m_psnr[k] = f->psnr[k];
            m_mse[k] = f->mse[k];
        }
        m_shownIndex = f->frameIndex;
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
