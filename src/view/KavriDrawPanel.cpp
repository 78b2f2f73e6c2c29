#include "view/KavriDrawPanel.h"

#include "formats/Settings.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QSettings>
#include <QWheelEvent>
#include <algorithm>
#include <numeric>

using namespace kavri;

namespace {
constexpr int kMinMagnFactor = 256;  // 1x
constexpr int kMaxMagnFactor = 8192; // 32x
constexpr size_t kWheelHistory = 5;
} // namespace

KavriDrawPanel::KavriDrawPanel(QWidget *parent) : QWidget(parent)
{
    QSettings s;
    m_maintainAR = settings::MaintainAR.read(s);
    m_anamorphicScale = settings::AnamorphicScale.read(s);
    m_magnFactor = std::clamp(settings::MagnFactor.read(s), kMinMagnFactor, kMaxMagnFactor);
    m_savedMagnFactor = m_magnFactor;

    m_font = QFont(QStringLiteral("Arial"), 8);
    setFont(m_font);
    m_markPen = QPen(QColor(255, 0, 0, 255), 6, Qt::SolidLine, Qt::RoundCap);
    setAcceptDrops(true);
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    QPalette pal = palette();
    pal.setBrush(QPalette::Window, QBrush(QPixmap(QStringLiteral(":/frame/video_bg.png"))));
    setPalette(pal);
    setAutoFillBackground(true);

    connect(this, &KavriDrawPanel::size_changed, this, &KavriDrawPanel::on_size_changed, Qt::QueuedConnection);
    // Repaint requests come from the loader thread; the queued hop brings them to the GUI thread.
    connect(this, &KavriDrawPanel::_update, this, qOverload<>(&QWidget::update), Qt::QueuedConnection);
    resetToStartup();
    setFocus();
}

KavriDrawPanel::~KavriDrawPanel() = default;

void KavriDrawPanel::resetToStartup()
{
    {
        QMutexLocker lock(&m_lock);
        const QImage startup(QStringLiteral(":/frame/startup.png"));
        m_back = std::make_unique<QImage>(startup.convertToFormat(QImage::Format_RGB32));
        m_front = std::make_unique<QImage>(*m_back);
        m_overlay.reset();
        m_showingStartup = true;
        m_pendingSize = QSize(-1, -1);
        m_context = VideoProps();
    }
    m_magnifierOn = false;
    emit notify_size_changed();
    update();
}

void KavriDrawPanel::get_buffer(uint8_t **pp_frame, QSize size, void *p_update_data)
{
    QMutexLocker lock(&m_lock);
    if (m_back && !m_showingStartup && m_back->size() == size) {
        if (p_update_data) {
            m_context = *static_cast<const VideoProps *>(p_update_data);
            m_pendingSize = QSize(-1, -1);
        }
        *pp_frame = m_back->bits();
        return;
    }
    m_back = std::make_unique<QImage>(size, QImage::Format_RGB32);
    m_front = std::make_unique<QImage>(size, QImage::Format_RGB32);
    m_back->fill(Qt::black);
    m_front->fill(Qt::black);
    m_overlay = std::make_unique<QImage>(size, QImage::Format_ARGB32_Premultiplied);
    m_overlay->fill(Qt::transparent);
    if (p_update_data) m_context = *static_cast<const VideoProps *>(p_update_data);
    m_pendingSize = QSize(-1, -1);
    *pp_frame = m_back->bits();
    lock.unlock();
    emit size_changed(wantedSize(size));
}

void KavriDrawPanel::presentFrame()
{
    {
        QMutexLocker lock(&m_lock);
        std::swap(m_back, m_front);
        m_showingStartup = false;
    }
    emit _update();
}

QSize KavriDrawPanel::wantedSize(QSize image) const
{
    return {view::anamorphicWidth(image.width(), m_anamorphic, m_anamorphicScale), image.height()};
}

void KavriDrawPanel::on_size_changed(QSize size)
{
    m_wanted = size;
    updateGeometry();
}

void KavriDrawPanel::on_force_size(QSize size)
{
    m_forcedSize = size;
    if (size != QSize(-1, -1)) {
        setFixedSize(size);
        emit notify_size_changed();
    } else {
        setMinimumSize(0, 0);
        setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    }
}

QSize KavriDrawPanel::sizeHint() const
{
    if (m_forcedSize != QSize(-1, -1)) return m_forcedSize;
    QMutexLocker lock(&m_lock);
    if (!m_front) return {0, 0};
    return wantedSize(m_front->size());
}

void KavriDrawPanel::setMaintainAspectRatio(bool on)
{
    m_maintainAR = on;
    QSettings s;
    settings::MaintainAR.write(s, on);
    update();
}

void KavriDrawPanel::setAnamorphic(bool on)
{
    m_anamorphic = on;
    QSettings s;
    m_anamorphicScale = settings::AnamorphicScale.read(s);
    const QSize f = frameSize();
    if (f.isValid() && !f.isEmpty()) emit size_changed(wantedSize(f));
}

void KavriDrawPanel::setMagnifier(bool on, bool raiseFactor)
{
    if (on == m_magnifierOn || m_showingStartup) return;
    if (on && raiseFactor) m_magnFactor = std::max(m_magnFactor, m_savedMagnFactor);
    m_magnifierOn = on;
    if (on)
        emit magnifier_on();
    else
        emit magnifier_off();
    update();
}

QImage KavriDrawPanel::currentFrame() const
{
    QMutexLocker lock(&m_lock);
    if (!m_front || m_showingStartup) return {};
    return m_front->copy();
}

QSize KavriDrawPanel::frameSize() const
{
    QMutexLocker lock(&m_lock);
    return m_front ? m_front->size() : QSize();
}

VideoProps KavriDrawPanel::formatContext() const
{
    QMutexLocker lock(&m_lock);
    return m_context;
}

QPoint KavriDrawPanel::mapToImage(QPoint p) const { return view::widgetToImage(p, m_display, frameSize()); }

QPoint KavriDrawPanel::mapToView(QPoint p) const { return view::imageToWidget(p, m_display, frameSize()); }

void KavriDrawPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    QMutexLocker lock(&m_lock);
    if (!m_front) return;
    const QSize img = m_front->size();
    m_display = view::paintGeometry(size(), img, m_maintainAR, m_anamorphic, m_anamorphicScale);
    const QRect target(m_display.x, m_display.y, m_display.width, m_display.height);
    const int shownWidth = view::anamorphicWidth(img.width(), m_anamorphic, m_anamorphicScale);
    // Enlarged video keeps hard pixel edges so single samples stay visible; anything shrunk, and the
    // start-up picture, is smoothed. Drawing straight into the target rectangle scales only what is shown.
    const bool enlarged = m_display.width >= shownWidth && m_display.height >= img.height();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !enlarged || m_showingStartup);
    painter.drawImage(target, *m_front);
    if (m_overlay && !m_showingStartup) painter.drawImage(target, *m_overlay);
}

void KavriDrawPanel::mousePressEvent(QMouseEvent *e)
{
    m_mousePos = e->position().toPoint();
    if (e->button() == Qt::MiddleButton && !m_showingStartup) {
        setMagnifier(!m_magnifierOn, true);
    } else if (e->button() == Qt::LeftButton && !m_magnifierOn) {
        m_dragStart = m_mousePos;
    }
    QWidget::mousePressEvent(e);
}

void KavriDrawPanel::mouseMoveEvent(QMouseEvent *e)
{
    m_mousePos = e->position().toPoint();
    if ((e->buttons() & Qt::LeftButton) && !m_magnifierOn && m_dragStart != QPoint(-1, -1) && m_dragHandler &&
        !m_showingStartup && (m_mousePos - m_dragStart).manhattanLength() >= QApplication::startDragDistance()) {
        m_dragStart = QPoint(-1, -1);
        m_dragHandler->startFrameDrag();
    }
    QWidget::mouseMoveEvent(e);
}

void KavriDrawPanel::mouseReleaseEvent(QMouseEvent *e)
{
    if (e->button() == Qt::LeftButton) m_dragStart = QPoint(-1, -1);
    QWidget::mouseReleaseEvent(e);
}

void KavriDrawPanel::wheelEvent(QWheelEvent *e)
{
    // The step is the mean of this delta and up to five before it, so a fast spin accelerates smoothly.
    m_wheelHistory.push_back(e->angleDelta().y());
    const int step = int(std::accumulate(m_wheelHistory.begin(), m_wheelHistory.end(), 0LL) /
                         int64_t(m_wheelHistory.size()));
    while (m_wheelHistory.size() > kWheelHistory) m_wheelHistory.pop_front();
    if (step > 0 && !m_magnifierOn) setMagnifier(true, false);
    if (m_magnifierOn) {
        m_magnFactor = std::clamp(m_magnFactor + step, kMinMagnFactor, kMaxMagnFactor);
        if (m_magnFactor == kMinMagnFactor && !m_showingStartup) {
            m_magnifierOn = false;
            emit magnifier_off();
        } else {
            QSettings s;
            settings::MagnFactor.write(s, m_magnFactor);
        }
        update();
    }
    e->accept();
}

void KavriDrawPanel::keyPressEvent(QKeyEvent *e)
{
    if (e->key() == Qt::Key_Delete) {
        QMutexLocker lock(&m_lock);
        if (m_overlay) {
            m_overlay->fill(Qt::transparent);
            lock.unlock();
            update();
            return;
        }
    }
    QWidget::keyPressEvent(e);
}
