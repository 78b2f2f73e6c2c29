#include "view/KavriDrawPanel.h"

#include "formats/Settings.h"
#include "pixel/FramePipeline.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QSettings>
#include <QWheelEvent>
#include <algorithm>
#include <new>
#include <numeric>

using namespace kavri;

void kavri::view::drawOutlined(QPainter &p, const QRect &r, int flags, const QString &text)
{
    p.setPen(Qt::black);
    for (const QPoint d : {QPoint(-1, -1), QPoint(1, -1), QPoint(-1, 1), QPoint(1, 1)})
        p.drawText(r.translated(d), flags, text);
    p.setPen(Qt::white);
    p.drawText(r, flags, text);
}

using view::drawOutlined;
using view::kMaxMagnFactor;
using view::kMinMagnFactor;

namespace {
constexpr size_t kWheelHistory = 5;
constexpr int kTextMargin = 8;

QSize textSize(const QFontMetrics &fm, const QString &text)
{
    return fm.boundingRect(QRect(0, 0, 100000, 100000), Qt::AlignLeft | Qt::AlignTop, text).size();
}
} // namespace

KavriDrawPanel::KavriDrawPanel(QWidget *parent) : QWidget(parent)
{
    QSettings s;
    m_maintainAR = settings::MaintainAR.read(s);
    m_anamorphicScale = settings::AnamorphicScale.read(s);
    m_magnFactor = std::clamp(settings::MagnFactor.read(s), kMinMagnFactor, kMaxMagnFactor);
    m_savedMagnFactor = m_magnFactor;
    m_hexValues = settings::HexValues.read(s);
    m_gridSize = view::clampGridSize(settings::Gridsize.read(s));
    setHevcOverlay(settings::Hevc.read(s), settings::HevcDepth.read(s), settings::HevcSize.read(s));

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

namespace {
std::unique_ptr<QImage> startupImage()
{
    const QImage startup(QStringLiteral(":/frame/startup.png"));
    return std::make_unique<QImage>(startup.convertToFormat(QImage::Format_RGB32));
}
} // namespace

void KavriDrawPanel::resetToStartup()
{
    {
        QMutexLocker lock(&m_lock);
        m_back = startupImage();
        m_front = std::make_unique<QImage>(*m_back);
        m_overlay.reset();
        m_overlayUsed = false;
        m_showingStartup = true;
        m_pendingSize = QSize(-1, -1);
        m_context = VideoProps();
        m_markPrev = m_markCur = QPoint(-1, -1);
        m_marking = false;
    }
    {
        QMutexLocker texts(&m_textLock);
        m_timeText.clear();
        m_diffText.clear();
        m_spareTime.clear();
        m_spareDiff.clear();
        m_posText.clear();
        m_valueText.clear();
    }
    m_timeTextOn = m_diffTextOn = false;
    m_magnifierOn = false;
    m_magnMoving = false;
    if (m_altTemporary) qApp->removeEventFilter(this);
    m_altTemporary = false;
    emit notify_size_changed();
    update();
}

namespace {

// A frame-sized image in a buffer aligned and paged as the loader's own frame buffers: the conversion
// writes every byte of it for every frame.
std::unique_ptr<QImage> frameImage(QSize size)
{
    uint8_t *bits = kavri::allocateAligned(size_t(size.width()) * size_t(size.height()) * 4).release();
    if (!bits) return std::make_unique<QImage>(size, QImage::Format_RGB32);
    return std::make_unique<QImage>(
        bits, size.width(), size.height(), qsizetype(size.width()) * 4, QImage::Format_RGB32,
        [](void *p) { kavri::FreeAligned{}(static_cast<uint8_t *>(p)); }, bits);
}

} // namespace

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
    try {
        // Both go first: a picture too large for memory must not keep half of a new pair.
        m_back.reset();
        m_front.reset();
        m_back = frameImage(size);
        m_front = frameImage(size);
    } catch (const std::bad_alloc &) {
        // Back to the startup picture; the loader hears of it from the null buffer and says why.
        m_back = startupImage();
        m_front = std::make_unique<QImage>(*m_back);
        m_overlay.reset();
        m_showingStartup = true;
        *pp_frame = nullptr;
        return;
    }
    m_back->fill(Qt::black);
    m_front->fill(Qt::black);
    m_overlay = std::make_unique<QImage>(size, QImage::Format_ARGB32_Premultiplied);
    m_overlay->fill(Qt::transparent);
    m_overlayUsed = false;
    m_markPrev = m_markCur = QPoint(-1, -1);
    m_marking = false;
    if (p_update_data) m_context = *static_cast<const VideoProps *>(p_update_data);
    m_pendingSize = QSize(-1, -1);
    *pp_frame = m_back->bits();
    lock.unlock();
    emit size_changed(wantedSize(size));
}

void KavriDrawPanel::presentFrame(uint64_t index)
{
    {
        QMutexLocker lock(&m_lock);
        m_pendingIndex = index;
    }
    presentFrame();
}

void KavriDrawPanel::presentFrame()
{
    {
        QMutexLocker lock(&m_lock);
        std::swap(m_back, m_front);
        m_frontIndex.store(m_pendingIndex);
        QMutexLocker texts(&m_textLock);
        m_timeText = m_spareTime;
        m_diffText = m_spareDiff;
        m_showingStartup = false;
    }
    // The values under the magnifier belong to the frame just shown. The loader answers getNativeAt on the
    // GUI thread, so the re-read is queued there (ahead of the repaint below); one pending re-read covers
    // any number of frames delivered in the meantime.
    if (!m_refreshQueued.exchange(true))
        QMetaObject::invokeMethod(this, &KavriDrawPanel::refreshReadout, Qt::QueuedConnection);
    emit _update();
}

void KavriDrawPanel::refreshReadout()
{
    m_refreshQueued.store(false);
    if (!m_magnifierOn) return;
    readValues();
    update();
}

void KavriDrawPanel::readValues()
{
    const QSize img = frameSize();
    const QString pos = view::positionText(m_magnPoint, img.width(), m_hevcOn ? &m_hevc : nullptr);
    bool ok = false;
    view::NativeValues v;
    colorSpace_t space = FMT_UNKNOWN;
    if (m_magnPoint.x() >= 0 && m_magnPoint.y() >= 0)
        emit getNativeAt(&ok, m_magnPoint.x(), m_magnPoint.y(), space, v.c1, v.c2, v.c3, &v.alpha);
    v.space = ok ? space : FMT_UNKNOWN;
    const QString values = view::valueText(v, m_hexValues);
    QMutexLocker texts(&m_textLock);
    m_sparePos = pos;
    m_spareValue = values;
    std::swap(m_sparePos, m_posText);
    std::swap(m_spareValue, m_valueText);
}

std::pair<QString, QString> KavriDrawPanel::readoutTexts() const
{
    QMutexLocker texts(&m_textLock);
    return {m_posText, m_valueText};
}

void KavriDrawPanel::setCornerTexts(const QString &timeText, const QString &differenceText)
{
    QMutexLocker texts(&m_textLock);
    m_spareTime = timeText;
    m_spareDiff = differenceText;
}

void KavriDrawPanel::setCornerTextsShown(bool timeText, bool differenceText)
{
    m_timeTextOn = timeText;
    m_diffTextOn = differenceText;
    update();
}

std::pair<QString, QString> KavriDrawPanel::cornerTexts() const
{
    QMutexLocker texts(&m_textLock);
    return {m_timeText, m_diffText};
}

void KavriDrawPanel::setGrid(bool on)
{
    m_gridOn = on;
    if (on) {
        QSettings s;
        m_gridSize = view::clampGridSize(settings::Gridsize.read(s));
    }
    update();
}

void KavriDrawPanel::setHevcOverlay(bool on, int depth, int cuSize)
{
    m_hevcOn = on;
    if (on) m_hevc = view::makeHevcOverlay(cuSize, depth);
    if (m_magnifierOn) readValues();
    update();
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
    m_magnifierOn = on;
    m_magnMoving = false;
    if (on) {
        QSettings s;
        m_hexValues = settings::HexValues.read(s);
        m_magnPos = m_mousePos;
        m_grabOffset = QPoint();
        if (raiseFactor) m_magnFactor = std::max(m_magnFactor, m_savedMagnFactor);
        m_magnPoint = mapToImage(m_magnPos);
        readValues();
        emit magnifier_on();
    } else {
        if (m_altTemporary) qApp->removeEventFilter(this);
        m_altTemporary = false;
        emit magnifier_off();
    }
    update();
}

void KavriDrawPanel::moveMagnifierPoint(int dx, int dy)
{
    const QSize img = frameSize();
    if (img.isEmpty()) return;
    m_magnPoint = QPoint(std::clamp(m_magnPoint.x() + dx, 0, img.width() - 1),
                         std::clamp(m_magnPoint.y() + dy, 0, img.height() - 1));
    readValues();
    m_magnPos = mapToView(m_magnPoint);
    update();
}

void KavriDrawPanel::clearMarks()
{
    QMutexLocker lock(&m_lock);
    if (m_overlay) m_overlay->fill(Qt::transparent);
    m_overlayUsed = false;
    m_markPrev = m_markCur = QPoint(-1, -1);
}

QImage KavriDrawPanel::currentFrame() const
{
    QMutexLocker lock(&m_lock);
    if (!m_front || m_showingStartup) return {};
    // Several sequences, or a zoomed part of one: what is saved is what is shown.
    if (composing()) {
        const QImage shown = m_compositor->composedImage();
        if (!shown.isNull()) return shown.copy();
    }
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

QPoint KavriDrawPanel::mapToImage(QPoint p) const
{
    if (composing()) {
        // Clamped into the picture like the single view's mapping, so the magnifier always has a pixel.
        const QSize img = frameSize();
        const QPoint q = m_compositor->imageAt(p);
        if (img.isEmpty()) return q;
        return QPoint(std::clamp(q.x(), 0, img.width() - 1), std::clamp(q.y(), 0, img.height() - 1));
    }
    return view::widgetToImage(p, m_display, frameSize());
}

QPoint KavriDrawPanel::mapToView(QPoint p) const
{
    if (composing()) return m_compositor->viewOf(p);
    return view::imageToWidget(p, m_display, frameSize());
}

void KavriDrawPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    QMutexLocker lock(&m_lock);
    if (!m_front) return;
    if (composing() && !m_showingStartup) {
        view::PanelOverlays o;
        o.grid = m_gridOn;
        o.gridSize = m_gridSize;
        o.magnifier = m_magnifierOn;
        o.magnifierPoint = m_magnPoint;
        o.magnifierFactor = m_magnFactor;
        o.magnifierPos = m_magnPos;
        m_magnRect = m_compositor->paintComposed(painter, *m_front, m_frontIndex.load(), size(), o);
        lock.unlock();
        painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
        paintCornerTexts(painter);
        return;
    }
    const QSize img = m_front->size();
    m_display = view::paintGeometry(size(), img, m_maintainAR, m_anamorphic, m_anamorphicScale);
    const QRect target(m_display.x, m_display.y, m_display.width, m_display.height);
    const int shownWidth = view::anamorphicWidth(img.width(), m_anamorphic, m_anamorphicScale);
    // Enlarged video keeps hard pixel edges so single samples stay visible; anything shrunk, and the
    // start-up picture, is smoothed. Drawing straight into the target rectangle scales only what is shown.
    const bool enlarged = m_display.width >= shownWidth && m_display.height >= img.height();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !enlarged || m_showingStartup);
    painter.drawImage(target, *m_front);
    if (m_showingStartup) return;
    if (m_overlay) {
        if (m_marking) paintMarks(img);
        // Blending a frame-sized overlay costs as much as drawing the frame itself; with no marks on it
        // there is nothing to blend.
        if (m_overlayUsed) painter.drawImage(target, *m_overlay);
    }
    if (m_gridOn) paintGrid(painter, img);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, false);
    if (m_magnifierOn) paintMagnifier(painter, *m_front);
    paintCornerTexts(painter);
}

void KavriDrawPanel::paintMarks(const QSize &img)
{
    if (m_markCur.x() < 0 || m_markCur.y() < 0) return;
    // Drawn into the overlay in image pixels, so the mark scales with the frame when the window is resized.
    const QPoint pix = view::widgetToImage(m_markCur, m_display, img);
    QPainter p(m_overlay.get());
    m_overlayUsed = true;
    p.setRenderHint(QPainter::Antialiasing, true);
    if (m_markPrev.x() >= 0 && m_markPrev.y() >= 0) {
        p.setPen(m_markPen);
        p.drawLine(m_markPrev, pix);
    } else {
        p.setPen(Qt::NoPen);
        p.setBrush(m_markPen.color());
        p.drawEllipse(QRectF(pix.x() - 2.0, pix.y() - 2.0, 4.0, 4.0));
    }
    m_markPrev = pix;
}

void KavriDrawPanel::paintGrid(QPainter &painter, const QSize &img)
{
    if (img.isEmpty() || m_display.width <= 0 || m_display.height <= 0) return;
    const QSize shown(m_display.width, m_display.height);
    const float sx = float(m_display.width) / float(img.width());
    const float sy = float(m_display.height) / float(img.height());
    // The cache is drawn once per display size, scale and grid size, so a repaint costs one blit.
    if (m_gridCache.size() != shown || m_gridCacheSize != m_gridSize || sx != m_gridScaleX || sy != m_gridScaleY) {
        QSettings s;
        m_gridSize = view::clampGridSize(settings::Gridsize.read(s));
        m_gridCache = QImage(shown, QImage::Format_ARGB32_Premultiplied);
        m_gridCache.fill(Qt::transparent);
        const std::vector<int> rows = view::gridLinePositions(view::gridStep8(sy, m_gridSize), shown.height());
        const std::vector<int> cols = view::gridLinePositions(view::gridStep8(sx, m_gridSize), shown.width());
        QPainter g(&m_gridCache);
        // A faint wide halo first, then the dark line, so the grid shows on dark and bright pictures alike.
        for (const QPen &pen : {QPen(QColor(220, 210, 210, 10), 3), QPen(QColor(20, 10, 10, 180), 1)}) {
            g.setPen(pen);
            for (int y : rows) g.drawLine(0, y, shown.width() - 1, y);
            for (int x : cols) g.drawLine(x, 0, x, shown.height() - 1);
        }
        m_gridCacheSize = m_gridSize;
        m_gridScaleX = sx;
        m_gridScaleY = sy;
    }
    painter.drawImage(m_display.x, m_display.y, m_gridCache);
}

void KavriDrawPanel::paintMagnifier(QPainter &painter, const QImage &front)
{
    const view::MagnifierGeometry g = view::magnifierGeometry(m_magnFactor);
    const QRect src = view::magnifierSourceRect(m_magnPoint, g.source);
    const QRect r = view::magnifierDrawnRect(m_magnPos, g.drawn, size());
    m_magnRect = r;
    painter.fillRect(r, Qt::black);
    // Only the source rectangle is scaled (nearest neighbour); parts outside the frame stay black. The target
    // is exactly source x magnified pixel, so pixel edges, grid lines and the centre outline agree.
    const QRectF target(r.x(), r.y(), src.width() * g.pixel.width() / 256.0, src.height() * g.pixel.height() / 256.0);
    painter.drawImage(target, front, QRectF(src));

    if (m_gridOn) {
        painter.setPen(QPen(QColor(0, 0, 0, 255), 1));
        for (int x : view::magnifierGridLines(src.x(), src.width(), g.pixel.width(), m_gridSize))
            painter.drawLine(r.x() + x, r.y(), r.x() + x, r.bottom());
        for (int y : view::magnifierGridLines(src.y(), src.height(), g.pixel.height(), m_gridSize))
            painter.drawLine(r.x(), r.y() + y, r.right(), r.y() + y);
        const QString label =
            QStringLiteral("Block\n#%1").arg(view::gridBlockNumber(m_magnPoint, front.width(), m_gridSize));
        const QRect box(r.x() - 4, r.bottom() + 1 + 4, 42, 2 * painter.fontMetrics().height());
        const int flags = Qt::AlignRight | Qt::AlignVCenter;
        painter.setPen(QColor(222, 222, 222, 80));
        for (const QPoint d : {QPoint(-1, -1), QPoint(1, -1), QPoint(-1, 1), QPoint(1, 1)})
            painter.drawText(box.translated(d), flags, label);
        painter.setPen(Qt::black);
        painter.drawText(box, flags, label);
    }

    // The centre pixel is the one the readout reports: outlined black and white so it shows on any value.
    const QRect c = view::magnifierCentrePixel(r, g);
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::black, 1));
    painter.drawRect(c.adjusted(-2, -2, 1, 1));
    painter.setPen(QPen(Qt::white, 1));
    painter.drawRect(c.adjusted(-1, -1, 0, 0));
    // A black and a white edge, so the magnifier stands out over any picture, a flat grey one included.
    painter.setPen(QPen(Qt::black, 1));
    painter.drawRect(r.adjusted(0, 0, -1, -1));
    painter.setPen(QPen(QColor(255, 255, 255, 160), 1));
    painter.drawRect(r.adjusted(1, 1, -2, -2));

    QString pos, values;
    {
        QMutexLocker texts(&m_textLock);
        pos = m_posText;
        values = m_valueText;
    }
    const QRect inner = r.adjusted(4, 2, -4, -2);
    painter.setFont(m_font);
    drawOutlined(painter, inner, Qt::AlignLeft | Qt::AlignTop, pos);
    drawOutlined(painter, inner, Qt::AlignLeft | Qt::AlignBottom, values);
}

void KavriDrawPanel::paintCornerTexts(QPainter &painter)
{
    QString time, diff;
    {
        QMutexLocker texts(&m_textLock);
        if (m_timeTextOn) time = m_timeText;
        if (m_timeTextOn && m_diffTextOn) diff = m_diffText;
    }
    painter.setFont(m_font);
    const QFontMetrics fm(m_font);
    const int flags = Qt::AlignLeft | Qt::AlignTop;
    if (!time.isEmpty()) {
        const QSize t = textSize(fm, time);
        drawOutlined(painter, QRect(QPoint(kTextMargin, height() - t.height() - kTextMargin), t), flags, time);
    }
    if (!diff.isEmpty()) {
        const QSize t = textSize(fm, diff);
        drawOutlined(painter, QRect(QPoint(width() - t.width() - kTextMargin, kTextMargin), t), flags, diff);
    }
}

void KavriDrawPanel::mousePressEvent(QMouseEvent *e)
{
    m_mousePos = e->position().toPoint();
    if (composing() && !m_showingStartup && !(m_magnifierOn && m_magnRect.contains(m_mousePos)) &&
        m_compositor->mousePress(e))
        return;
    if (e->button() == Qt::MiddleButton && !m_showingStartup) {
        setMagnifier(!m_magnifierOn, true);
    } else if (e->button() == Qt::LeftButton && m_magnifierOn) {
        if (m_magnRect.contains(m_mousePos)) {
            m_magnMoving = true;
            m_grabOffset = m_mousePos - m_magnPos;
        }
    } else if (e->button() == Qt::LeftButton) {
        m_dragStart = m_mousePos;
    } else if (e->button() == Qt::RightButton && !m_magnifierOn && !m_showingStartup) {
        QMutexLocker lock(&m_lock);
        if (m_overlay) {
            m_markPrev = view::widgetToImage(m_mousePos, m_display, m_overlay->size());
            m_markCur = QPoint(-1, -1);
            m_marking = true;
        }
    }
    QWidget::mousePressEvent(e);
}

void KavriDrawPanel::mouseMoveEvent(QMouseEvent *e)
{
    m_mousePos = e->position().toPoint();
    if (composing() && !m_magnMoving && m_compositor->mouseMove(e)) return;
    if (m_magnMoving && (e->buttons() & Qt::LeftButton)) {
        m_magnPos = m_mousePos - m_grabOffset;
        m_magnPoint = mapToImage(m_magnPos);
        readValues();
        update();
    }
    if (m_marking && (e->buttons() & Qt::RightButton)) {
        m_markCur = m_mousePos;
        update();
    }
    if ((e->buttons() & Qt::LeftButton) && !m_magnifierOn && m_dragStart != QPoint(-1, -1) && m_dragHandler &&
        !m_showingStartup && (m_mousePos - m_dragStart).manhattanLength() >= QApplication::startDragDistance()) {
        m_dragStart = QPoint(-1, -1);
        m_dragHandler->startFrameDrag();
    }
    QWidget::mouseMoveEvent(e);
}

void KavriDrawPanel::mouseReleaseEvent(QMouseEvent *e)
{
    if (m_compositor && m_compositor->mouseRelease(e)) return;
    if (e->button() == Qt::LeftButton) {
        m_dragStart = QPoint(-1, -1);
        m_magnMoving = false;
    } else if (e->button() == Qt::RightButton && m_marking) {
        QMutexLocker lock(&m_lock);
        m_marking = false;
        m_markPrev = QPoint(-1, -1);
    }
    QWidget::mouseReleaseEvent(e);
}

void KavriDrawPanel::wheelEvent(QWheelEvent *e)
{
    // Ctrl+wheel zooms freely; the plain wheel keeps driving the magnifier.
    if (m_compositor && (e->modifiers() & Qt::ControlModifier) && !m_showingStartup && m_compositor->wheel(e)) {
        e->accept();
        update();
        return;
    }
    // The step is the mean of this delta and up to five before it, so a fast spin accelerates smoothly.
    m_mousePos = e->position().toPoint();
    m_wheelHistory.push_back(e->angleDelta().y());
    const int step =
        int(std::accumulate(m_wheelHistory.begin(), m_wheelHistory.end(), 0LL) / int64_t(m_wheelHistory.size()));
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
    if (m_magnifierOn) {
        int dx = 0, dy = 0;
        switch (e->key()) {
        case Qt::Key_Q: dx = -1; break;
        case Qt::Key_E: dx = 1; break;
        case Qt::Key_W: dy = -1; break;
        case Qt::Key_S: dy = 1; break;
        default: break;
        }
        if (dx || dy) {
            moveMagnifierPoint(dx, dy);
            return;
        }
    }
    if (e->key() == Qt::Key_Alt && !e->isAutoRepeat()) {
        if (!m_magnifierOn && !m_showingStartup) {
            setMagnifier(true, true);
            m_altTemporary = m_magnifierOn;
            // The menu bar takes the release of a lone Alt for its keyboard navigation before it reaches
            // the focus widget; an application filter installed now sees the release first.
            if (m_altTemporary) qApp->installEventFilter(this);
        }
        return;
    }
    if (e->key() == Qt::Key_Delete) {
        bool haveOverlay;
        {
            QMutexLocker lock(&m_lock);
            haveOverlay = m_overlay != nullptr;
        }
        if (haveOverlay) {
            clearMarks();
            update();
            return;
        }
    }
    QWidget::keyPressEvent(e);
}

void KavriDrawPanel::keyReleaseEvent(QKeyEvent *e)
{
    if (e->isAutoRepeat()) {
        QWidget::keyReleaseEvent(e);
        return;
    }
    if (e->key() == Qt::Key_Shift && m_magnifierOn) {
        readValues();
        update();
        return;
    }
    if (e->key() == Qt::Key_Alt && m_altTemporary) {
        endAltTemporary();
        return;
    }
    QWidget::keyReleaseEvent(e);
}

void KavriDrawPanel::endAltTemporary()
{
    qApp->removeEventFilter(this);
    if (!m_altTemporary) return;
    m_altTemporary = false;
    setMagnifier(false, false);
}

bool KavriDrawPanel::eventFilter(QObject *watched, QEvent *e)
{
    if (m_altTemporary && e->type() == QEvent::KeyRelease) {
        const auto *k = static_cast<QKeyEvent *>(e);
        if (k->key() == Qt::Key_Alt && !k->isAutoRepeat()) {
            endAltTemporary();
            return true; // the release ends the temporary magnifier; it does not open the menu
        }
    }
    return QWidget::eventFilter(watched, e);
}
