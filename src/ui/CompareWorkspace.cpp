#include "ui/CompareWorkspace.h"

#include "formats/FrameSize.h"
#include "formats/Settings.h"
#include "formats/Validation.h"
#include "loader/KavriLoader.h"
#include "ui/CompareSource.h"
#include "ui/PlaybackController.h"
#include "view/CompareReadout.h"
#include "view/KavriDrawPanel.h"
#include "view/OverlayText.h"
#include "view/PanelGeometry.h"

#include <QFileInfo>
#include <QMouseEvent>
#include <QPainter>
#include <QSettings>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace kavri::ui {

namespace {

using view::drawOutlined;

// How near the wipe line a press grabs it, in widget pixels.
constexpr int kWipeGrab = 6;
// Period of the automatic flicker.
constexpr int kFlickerMs = 500;
constexpr int kMargin = 8;

// Draws the part of `image` that falls inside `clip`, the whole image covering `picture`. Only the visible
// source pixels are scaled, so a 4K frame zoomed far in costs no more than the view it fills.
void drawVisible(QPainter &p, const QImage &image, const QRectF &picture, const QRectF &clip)
{
    const QRectF visible = picture.intersected(clip);
    if (visible.isEmpty() || image.isNull() || picture.width() <= 0 || picture.height() <= 0) return;
    const double sx = image.width() / picture.width(), sy = image.height() / picture.height();
    const QRectF source((visible.left() - picture.left()) * sx, (visible.top() - picture.top()) * sy,
                        visible.width() * sx, visible.height() * sy);
    p.drawImage(visible, image, source);
}
} // namespace

CompareWorkspace::CompareWorkspace(KavriDrawPanel *panel, PlaybackController *playback, QObject *parent)
    : QObject(parent), m_panel(panel), m_playback(playback)
{
    m_flickerTimer.setInterval(kFlickerMs);
    connect(&m_flickerTimer, &QTimer::timeout, this, &CompareWorkspace::toggleFlicker);
}

CompareWorkspace::~CompareWorkspace() = default;

void CompareWorkspace::setPrimary(KavriLoader *loader)
{
    if (loader == m_primary) return;
    keepPairSamples(false);
    {
        QMutexLocker l(&m_sourcesLock);
        m_sources.clear();
        m_primary = loader;
    }
    m_mode = view::CompareMode::Single;
    m_single = 0;
    m_first = 0;
    m_second = 1;
    m_flickerTimer.stop();
    m_freeZoom = false;
    m_composite = QImage();
    afterChange();
}

QStringList CompareWorkspace::files() const
{
    QStringList r;
    if (!m_primary) return r;
    r << m_primary->path();
    for (const auto &s : m_sources) r << s->path();
    return r;
}

QString CompareWorkspace::nameOf(int sequence) const
{
    if (sequence < 0) return QStringLiteral("%1 - %2").arg(nameOf(m_first), nameOf(m_second));
    const QStringList f = files();
    return sequence < f.size() ? QFileInfo(f[sequence]).fileName() : QString();
}

QString CompareWorkspace::add(const QString &path)
{
    if (!m_primary) return QStringLiteral("Open a file first; further files are compared with it.");
    if (m_primary->isStdin() || path == QLatin1String("-"))
        return QStringLiteral("Standard input cannot be compared: it can be read only once.");
    if (count() >= kMaxCompared) return QStringLiteral("At most %1 sequences can be compared.").arg(kMaxCompared);
    QString why;
    KavriLoader *l = KavriLoader::create(path, QString(), KavriLoader::Options{}, &why);
    if (!l) return QStringLiteral("The file could not be opened: ") + path + (why.isEmpty() ? QString() : "\n" + why);
    if (!isPlayable(l->validityMask()) && m_askFormat) m_askFormat(l, [l] { l->validate(); });
    if (!isPlayable(l->validityMask())) {
        l->detach();
        return QStringLiteral("%1 has no format it can be shown with.").arg(QFileInfo(path).fileName());
    }
    const VideoProps &a = m_primary->pendingProps(), &b = l->pendingProps();
    const QString mismatch =
        sizeMismatchMessage({m_primary->path(), path}, {QSize(a.width, a.height), QSize(b.width, b.height)});
    if (!mismatch.isEmpty()) {
        l->detach();
        return mismatch;
    }
    auto source = std::make_unique<CompareSource>(l);
    connect(source.get(), &CompareSource::delivered, this, &CompareWorkspace::onDelivered, Qt::QueuedConnection);
    connect(source.get(), &CompareSource::initialized, this, &CompareWorkspace::afterChange, Qt::QueuedConnection);
    l->setLoop(false);
    {
        QMutexLocker lock(&m_sourcesLock);
        m_sources.push_back(std::move(source));
        m_sources.back()->follow(m_primaryIndex.load());
    }
    // A workspace of two or more opens side by side.
    keepPairSamples(false);
    m_mode = view::CompareMode::SideBySide;
    m_second = std::min(m_second, count() - 1);
    afterChange();
    return {};
}

bool CompareWorkspace::remove(int index)
{
    if (index < 1 || index >= count()) return false;
    keepPairSamples(false);
    {
        QMutexLocker lock(&m_sourcesLock);
        m_sources.erase(m_sources.begin() + (index - 1));
    }
    const int n = count();
    m_single = std::min(m_single, n - 1);
    m_first = std::min(m_first, n - 1);
    m_second = std::min(m_second, n - 1);
    if (m_first == m_second) m_first = 0, m_second = std::min(1, n - 1);
    if (n < 2) {
        m_mode = view::CompareMode::Single;
        m_flickerTimer.stop();
    }
    if (m_mode == view::CompareMode::Difference) keepPairSamples(true);
    afterChange();
    return true;
}

uint64_t CompareWorkspace::frameCount() const
{
    if (!m_primary) return 0;
    std::vector<uint64_t> counts{m_primary->frameCount()};
    for (const auto &s : m_sources) counts.push_back(s->loader()->frameCount());
    return lockStepCount(counts);
}

bool CompareWorkspace::ready(uint64_t index) const
{
    std::vector<std::optional<uint64_t>> d{index};
    for (const auto &s : m_sources) {
        const uint64_t i = s->shownIndex();
        d.push_back(i == CompareSource::kNoFrame ? std::nullopt : std::optional<uint64_t>(i));
    }
    if (m_mode == view::CompareMode::Difference && m_differenceIndex != index) return false;
    return lockStepReady(index, d);
}

void CompareWorkspace::primaryShown(const frame_t &f)
{
    // Loader thread of the window: only atomics, the sources' command queues, the sample copy and queued
    // calls.
    const uint64_t index = f.frameIndex;
    m_primaryIndex.store(index);
    if (m_keepPrimary.load()) {
        {
            // Samples the loader left out are unpacked under its own lock, so before this one is taken.
            const uint8_t *kept = f.sampleProps ? frameSamples(f) : nullptr;
            QMutexLocker samples(&m_primarySamplesLock);
            m_primarySamplesIndex = UINT64_MAX;
            if (kept) {
                // The samples are the loader's only while the frame is delivered; the pipeline's buffer is
                // of the record's allocation size, which is what a conversion of it reads.
                const VideoProps &p = *f.sampleProps;
                const size_t n = allocationSize(p.format, p.containerBits, p.width, p.height);
                try {
                    m_primarySamples.resize(n);
                    std::memcpy(m_primarySamples.data(), kept, n);
                    m_primarySampleProps = p;
                    m_primarySamplesIndex = index;
                } catch (const std::bad_alloc &) {
                    m_primarySamples = std::vector<uint8_t>();
                }
            }
        }
        if (!m_differenceQueued.exchange(true))
            QMetaObject::invokeMethod(this, &CompareWorkspace::updateDifference, Qt::QueuedConnection);
    }
    QMutexLocker lock(&m_sourcesLock);
    if (m_sources.empty()) return;
    for (const auto &s : m_sources) s->follow(index);
    // The first file may be longer than another: playback stops (or loops) at the shared end.
    if (index >= frameCount() && !m_overrun.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_overrun = false;
                const uint64_t n = frameCount();
                if (count() < 2 || n == 0 || m_primaryIndex.load() < n) return;
                QSettings s;
                const bool loop = settings::Loop.read(s) && m_playback->isPlaying();
                m_playback->seekTo(loop ? 0 : int64_t(n) - 1);
                if (loop) m_playback->startPlaying();
            },
            Qt::QueuedConnection);
}

void CompareWorkspace::onDelivered()
{
    if (m_mode == view::CompareMode::Difference) updateDifference();
    if (ready(m_primaryIndex.load())) {
        refreshReadout();
        m_panel->update();
    }
}

void CompareWorkspace::afterChange()
{
    if (m_playback) m_playback->setFrameLimit(count() > 1 ? frameCount() : 0);
    m_composite = QImage();
    refreshReadout();
    m_panel->update();
    emit changed();
}

void CompareWorkspace::setMode(view::CompareMode mode)
{
    if (count() < 2 && mode != view::CompareMode::Single) return;
    keepPairSamples(false);
    m_mode = mode;
    if (mode != view::CompareMode::Flicker) m_flickerTimer.stop();
    if (mode == view::CompareMode::Difference) keepPairSamples(true);
    afterChange();
}

void CompareWorkspace::showSingle(int index)
{
    if (index < 0 || index >= count()) return;
    m_single = index;
    setMode(view::CompareMode::Single);
}

void CompareWorkspace::setPair(int first, int second)
{
    if (first < 0 || second < 0 || first >= count() || second >= count() || first == second) return;
    keepPairSamples(false);
    m_first = first;
    m_second = second;
    if (m_mode == view::CompareMode::Difference) keepPairSamples(true);
    afterChange();
}

void CompareWorkspace::toggleFlicker()
{
    if (count() < 2) return;
    if (m_mode != view::CompareMode::Flicker) {
        keepPairSamples(false);
        m_mode = view::CompareMode::Flicker;
        m_flickerSecond = false;
    }
    m_flickerSecond = !m_flickerSecond;
    // Both pictures are held already: the toggle repaints at once, no frame is read.
    m_composite = QImage();
    m_panel->update();
    emit changed();
}

void CompareWorkspace::setAutoFlicker(bool on)
{
    if (on && count() >= 2) {
        if (m_mode != view::CompareMode::Flicker) toggleFlicker();
        m_flickerTimer.start();
    } else {
        m_flickerTimer.stop();
    }
}

void CompareWorkspace::setWipe(const view::Wipe &w)
{
    m_wipe = w;
    m_composite = QImage();
    m_panel->update();
}

void CompareWorkspace::keepPairSamples(bool on)
{
    // Off for everyone, on for the pair: the copies cost a frame's bytes a frame and only the difference
    // uses them.
    m_differenceIndex = UINT64_MAX;
    m_differencePicture = QImage();
    m_differenceText.clear();
    if (!on) {
        if (m_keepPrimary.exchange(false)) {
            QMutexLocker samples(&m_primarySamplesLock);
            m_primarySamples = std::vector<uint8_t>();
            m_primarySamplesIndex = UINT64_MAX;
        }
        for (const auto &source : m_sources) source->setKeepSamples(false);
        return;
    }
    if (count() < 2) return;
    for (const int seq : {m_first, m_second}) {
        if (seq > 0) {
            m_sources[size_t(seq - 1)]->setKeepSamples(true);
        } else if (m_primary && !m_keepPrimary.exchange(true)) {
            // The frame on screen was delivered without a copy: the loader converts it once more, no read.
            m_primary->postCommand(KavriLoader::kCmdRedisplay, KavriLoader::kCmdAsync);
        }
    }
}

void CompareWorkspace::updateDifference()
{
    m_differenceQueued = false;
    if (m_mode != view::CompareMode::Difference || count() < 2) return;
    const uint64_t index = m_primaryIndex.load();
    if (m_differenceIndex == index) return;
    // Both copies stay locked while they are differenced; no other code takes two of these locks.
    std::unique_lock<QMutex> primaryLock;
    CompareSource::Samples held[2];
    CompareSamples sides[2];
    for (int k = 0; k < 2; ++k) {
        const int seq = k == 0 ? m_first : m_second;
        if (seq == 0) {
            primaryLock = std::unique_lock<QMutex>(m_primarySamplesLock);
            if (m_primarySamplesIndex != index) return;
            sides[k] = {m_primarySamples.data(), m_primarySamples.size(), &m_primarySampleProps};
        } else {
            held[k] = m_sources[size_t(seq - 1)]->samples();
            if (held[k].index != index) return;
            sides[k] = held[k].samples;
        }
    }
    if (m_differ.compute(sides[0], sides[1], 0, m_differencePicture)) {
        const DifferencePicture &d = m_differ.difference();
        view::DifferenceTextInput t;
        t.components = m_differ.components();
        for (int k = 0; k < 3; ++k) {
            t.psnr[k] = d.psnr[k];
            t.mse[k] = d.mse[k];
            t.firstColumn[k] = d.firstDiffX[k];
            t.firstRow[k] = d.firstDiffY[k];
        }
        m_differenceText = view::differenceText(t);
    } else {
        // Said in the view instead of a picture that would mean nothing.
        m_differencePicture = QImage();
        m_differenceText = QStringLiteral("No difference: ") + m_differ.error();
    }
    m_differenceIndex = index;
    m_composite = QImage();
    refreshReadout();
    m_panel->update();
}

QString CompareWorkspace::modeText() const
{
    const int n = count();
    if (n < 2) return {};
    switch (m_mode) {
    case view::CompareMode::Single: return QStringLiteral("Compare %1: single %2").arg(n).arg(m_single + 1);
    case view::CompareMode::SideBySide: return QStringLiteral("Compare %1: side by side").arg(n);
    case view::CompareMode::Wipe:
        return QStringLiteral("Compare %1: wipe %2|%3").arg(n).arg(m_first + 1).arg(m_second + 1);
    case view::CompareMode::Flicker:
        return QStringLiteral("Compare %1: flicker %2/%3, showing %4")
            .arg(n)
            .arg(m_first + 1)
            .arg(m_second + 1)
            .arg((m_flickerSecond ? m_second : m_first) + 1);
    case view::CompareMode::Difference:
        return QStringLiteral("Compare %1: difference %2-%3").arg(n).arg(m_first + 1).arg(m_second + 1);
    }
    return {};
}

QSize CompareWorkspace::imageSize() const
{
    if (!m_primary) return {};
    return m_panel->frameSize();
}

std::vector<CompareWorkspace::View> CompareWorkspace::views(QSize widget) const
{
    const QRect all(QPoint(0, 0), widget);
    if (count() < 2) return {{0, all}};
    switch (m_mode) {
    case view::CompareMode::Single: return {{m_single, all}};
    case view::CompareMode::SideBySide: {
        std::vector<View> v;
        const std::vector<QRect> t = view::tileRects(m_mode, count(), widget);
        for (size_t i = 0; i < t.size(); ++i) v.push_back({int(i), t[i]});
        return v;
    }
    case view::CompareMode::Wipe: return {{m_first, all}};
    case view::CompareMode::Flicker: return {{m_flickerSecond ? m_second : m_first, all}};
    case view::CompareMode::Difference: return {{-1, all}};
    }
    return {{0, all}};
}

QRectF CompareWorkspace::pictureIn(const QRect &tile, QSize image) const
{
    if (m_freeZoom) {
        const view::FreeZoom z = view::clampPan(m_zoom, image, tile.size());
        return view::zoomedPicture(z, image).translated(tile.topLeft());
    }
    const view::DisplayRect d = view::paintGeometry(tile.size(), image, m_panel->maintainAspectRatio(),
                                                    m_panel->anamorphic(), m_panel->anamorphicScale());
    return QRectF(tile.x() + d.x, tile.y() + d.y, d.width, d.height);
}

bool CompareWorkspace::composing() const { return m_primary && (count() >= 2 || m_freeZoom); }

QRect CompareWorkspace::paintComposed(QPainter &p, const QImage &front, uint64_t frontIndex, QSize widget,
                                      const view::PanelOverlays &o)
{
    // Frames of different numbers are never shown together: until every sequence holds the first one's
    // frame, the last composed picture stays.
    if (!ready(frontIndex) && m_composite.size() == widget) {
        p.drawImage(0, 0, m_composite);
        return {};
    }
    if (m_composite.size() != widget) m_composite = QImage(widget, QImage::Format_RGB32);
    if (frontIndex != m_compositeIndex) ++m_composedCount;
    m_compositeIndex = frontIndex;
    m_composite.fill(Qt::black);
    QPainter c(&m_composite);
    c.setRenderHint(QPainter::SmoothPixmapTransform, false);
    QFont font = c.font();
    font.setBold(true);
    c.setFont(font);
    const QSize img = front.size();
    QRect magnRect;
    const view::MagnifierGeometry mg = view::magnifierGeometry(o.magnifierFactor);
    for (const View &v : views(widget)) {
        c.setClipRect(v.tile);
        const QRectF pic = pictureIn(v.tile, img);
        auto drawSequence = [&](int seq, const QRectF &clip) {
            if (seq == 0) {
                drawVisible(c, front, pic, clip);
                return;
            }
            // A picture of another frame number stays black: a view composed before every sequence holds
            // the frame (a view change, a new size) must not show two frames as one moment.
            if (seq < 0) {
                if (!m_differencePicture.isNull() && m_differenceIndex == frontIndex)
                    drawVisible(c, m_differencePicture, pic, clip);
                return;
            }
            const CompareSource::Front f = m_sources[size_t(seq - 1)]->front();
            if (f.image && f.index == frontIndex) drawVisible(c, *f.image, pic, clip);
        };
        if (m_mode == view::CompareMode::Wipe && count() >= 2) {
            const QRect shown = pic.toAlignedRect().intersected(v.tile);
            const auto [a, b] = view::wipeParts(m_wipe, shown);
            drawSequence(m_first, a);
            drawSequence(m_second, b);
            c.setPen(QPen(QColor(255, 255, 255, 200), 1));
            const int line = view::wipeLine(m_wipe, shown);
            if (m_wipe.orientation == view::WipeOrientation::Vertical)
                c.drawLine(line, shown.top(), line, shown.bottom());
            else
                c.drawLine(shown.left(), line, shown.right(), line);
        } else {
            drawSequence(v.sequence, v.tile);
        }
        // The grid lies on image pixels, so it follows zoom and pan in every view.
        if (o.grid && !img.isEmpty()) {
            const double scale = pic.width() / img.width();
            const double step = scale * view::clampGridSize(o.gridSize);
            if (step >= 4) {
                for (const QPen &pen : {QPen(QColor(220, 210, 210, 10), 3), QPen(QColor(20, 10, 10, 180), 1)}) {
                    c.setPen(pen);
                    const QRectF vis = pic.intersected(QRectF(v.tile));
                    for (double x = pic.left() + std::ceil((vis.left() - pic.left()) / step) * step; x < vis.right();
                         x += step)
                        c.drawLine(QPointF(std::floor(x), vis.top()), QPointF(std::floor(x), vis.bottom()));
                    for (double y = pic.top() + std::ceil((vis.top() - pic.top()) / step) * step; y < vis.bottom();
                         y += step)
                        c.drawLine(QPointF(vis.left(), std::floor(y)), QPointF(vis.right(), std::floor(y)));
                }
            }
        }
        // The magnifier shows the same image pixel in every view.
        if (o.magnifier && o.magnifierPoint.x() >= 0 && !img.isEmpty()) {
            const double scale = pic.width() / img.width();
            const QPoint centre = (pic.topLeft() + QPointF(o.magnifierPoint) * scale + QPointF(scale / 2, scale / 2) -
                                   QPointF(v.tile.topLeft()))
                                      .toPoint();
            const QRect r = view::magnifierDrawnRect(centre, mg.drawn, v.tile.size()).translated(v.tile.topLeft());
            const QRect src = view::magnifierSourceRect(o.magnifierPoint, mg.source);
            c.fillRect(r, Qt::black);
            auto drawMagnified = [&](const QImage &im) {
                const QRect inside = src.intersected(QRect(QPoint(0, 0), im.size()));
                if (inside.isEmpty()) return;
                const double px = r.width() / double(src.width()), py = r.height() / double(src.height());
                c.drawImage(QRectF(r.left() + (inside.left() - src.left()) * px,
                                   r.top() + (inside.top() - src.top()) * py, inside.width() * px,
                                   inside.height() * py),
                            im, inside);
            };
            const int seq =
                m_mode == view::CompareMode::Wipe
                    ? (view::wipeSide(m_wipe, pic.toAlignedRect().intersected(v.tile), centre + v.tile.topLeft())
                           ? m_second
                           : m_first)
                    : v.sequence;
            if (seq == 0) {
                drawMagnified(front);
            } else if (seq < 0) {
                if (!m_differencePicture.isNull() && m_differenceIndex == frontIndex)
                    drawMagnified(m_differencePicture);
            } else {
                const CompareSource::Front f = m_sources[size_t(seq - 1)]->front();
                if (f.image && f.index == frontIndex) drawMagnified(*f.image);
            }
            c.setPen(QPen(Qt::white, 1));
            c.drawRect(r.adjusted(0, 0, -1, -1));
            if (magnRect.isNull() || v.tile.contains(o.magnifierPos)) magnRect = r;
        }
        // Each view says whose picture it is.
        c.setClipRect(v.tile);
        const QRect label = v.tile.adjusted(kMargin, kMargin, -kMargin, -kMargin);
        if (m_mode == view::CompareMode::Wipe) {
            drawOutlined(c, label, Qt::AlignLeft | Qt::AlignTop,
                         QStringLiteral("%1 %2").arg(m_first + 1).arg(nameOf(m_first)));
            drawOutlined(c, label, Qt::AlignRight | Qt::AlignTop,
                         QStringLiteral("%1 %2").arg(m_second + 1).arg(nameOf(m_second)));
        } else if (v.sequence < 0) {
            drawOutlined(c, label, Qt::AlignLeft | Qt::AlignTop,
                         QStringLiteral("%1 - %2: %3").arg(m_first + 1).arg(m_second + 1).arg(nameOf(-1)));
            drawOutlined(c, label, Qt::AlignRight | Qt::AlignTop, m_differenceText);
        } else {
            drawOutlined(c, label, Qt::AlignLeft | Qt::AlignTop,
                         QStringLiteral("%1 %2").arg(v.sequence + 1).arg(nameOf(v.sequence)));
        }
    }
    c.setClipping(false);
    if (o.magnifier && !m_readout.isEmpty()) {
        const QFontMetrics fm(c.font());
        const QRect text = fm.boundingRect(QRect(0, 0, widget.width(), widget.height()), Qt::AlignLeft, m_readout);
        const QRect box(widget.width() - text.width() - 3 * kMargin, widget.height() - text.height() - 3 * kMargin,
                        text.width() + 2 * kMargin, text.height() + 2 * kMargin);
        c.fillRect(box, QColor(0, 0, 0, 160));
        drawOutlined(c, box.adjusted(kMargin, kMargin, -kMargin, -kMargin), Qt::AlignLeft | Qt::AlignTop, m_readout);
    }
    c.end();
    p.drawImage(0, 0, m_composite);
    if (o.magnifier && o.magnifierPoint != m_readoutPoint)
        QMetaObject::invokeMethod(this, &CompareWorkspace::refreshReadout, Qt::QueuedConnection);
    m_readoutPoint = o.magnifier ? o.magnifierPoint : QPoint(-1, -1);
    return magnRect;
}

void CompareWorkspace::refreshReadout()
{
    if (!m_panel->magnifierOn() || !m_primary) {
        m_readout.clear();
        return;
    }
    QSettings s;
    QString text = readoutAt(m_panel->magnifierPoint(), settings::HexValues.read(s));
    // The panel's own position line carries the coding unit and partition while that overlay is on.
    const QString position = m_panel->readoutTexts().first;
    if (!position.isEmpty()) text = position + text.mid(text.indexOf(QLatin1Char('\n')));
    if (text == m_readout) return;
    m_readout = text;
    m_composite = QImage();
    m_panel->update();
}

QString CompareWorkspace::readoutAt(QPoint p, bool hex) const
{
    if (!m_primary) return {};
    std::vector<view::CompareSample> samples;
    auto sample = [&](KavriLoader *l, const QString &name, const std::function<bool(view::NativeValues &)> &read) {
        view::CompareSample cs;
        cs.name = name;
        cs.bits = l->pendingProps().bitDepth;
        if (!read(cs.values)) cs.values.space = FMT_UNKNOWN;
        samples.push_back(cs);
    };
    sample(m_primary, nameOf(0), [&](view::NativeValues &v) {
        bool ok = false;
        colorSpace_t space = FMT_UNKNOWN;
        v.alpha = -1;
        m_primary->getNativeAt(&ok, p.x(), p.y(), space, v.c1, v.c2, v.c3, &v.alpha);
        v.space = space;
        return ok;
    });
    for (size_t i = 0; i < m_sources.size(); ++i)
        sample(m_sources[i]->loader(), nameOf(int(i + 1)), [&](view::NativeValues &v) {
            colorSpace_t space = FMT_UNKNOWN;
            const bool ok = m_sources[i]->nativeAt(p.x(), p.y(), space, v.c1, v.c2, v.c3, v.alpha);
            v.space = space;
            return ok;
        });
    return QStringLiteral("@%1,%2\n").arg(p.x()).arg(p.y()) + view::compareReadoutText(samples, hex);
}

QPoint CompareWorkspace::imageAt(QPoint widgetPos) const
{
    const QSize img = imageSize();
    if (img.isEmpty()) return {};
    const std::vector<View> vs = views(m_panel->size());
    const View *v = &vs.front();
    for (const View &c : vs)
        if (c.tile.contains(widgetPos)) v = &c;
    const QRectF pic = pictureIn(v->tile, img);
    if (pic.width() <= 0 || pic.height() <= 0) return {};
    return QPoint(int(std::floor((widgetPos.x() - pic.left()) * img.width() / pic.width())),
                  int(std::floor((widgetPos.y() - pic.top()) * img.height() / pic.height())));
}

QPoint CompareWorkspace::viewOf(QPoint imagePos) const
{
    const QSize img = imageSize();
    if (img.isEmpty()) return {};
    const QRectF pic = pictureIn(views(m_panel->size()).front().tile, img);
    return (pic.topLeft() +
            QPointF(imagePos.x() * pic.width() / img.width(), imagePos.y() * pic.height() / img.height()))
        .toPoint();
}

void CompareWorkspace::zoomSteps(int steps, QPointF anchor)
{
    const QSize img = imageSize();
    if (!m_primary || img.isEmpty()) return;
    const std::vector<View> vs = views(m_panel->size());
    const View *v = &vs.front();
    for (const View &c : vs)
        if (c.tile.contains(anchor.toPoint())) v = &c;
    if (!m_freeZoom) {
        // Free zoom starts from the picture as it is shown now.
        const QRectF pic = pictureIn(v->tile, img);
        m_zoom = view::FreeZoom{pic.width() / img.width(), pic.topLeft() - QPointF(v->tile.topLeft())};
        m_freeZoom = true;
    } else {
        m_zoom = view::clampPan(m_zoom, img, v->tile.size());
    }
    const QPointF local = anchor - QPointF(v->tile.topLeft());
    m_zoom = view::clampPan(view::zoomAbout(m_zoom, view::steppedZoom(m_zoom.zoom, steps), local), img, v->tile.size());
    m_composite = QImage();
    m_panel->update();
    emit changed();
}

void CompareWorkspace::endFreeZoom()
{
    if (!m_freeZoom) return;
    m_freeZoom = false;
    m_composite = QImage();
    m_panel->update();
    emit changed();
}

QString CompareWorkspace::zoomText() const { return m_freeZoom ? view::zoomText(m_zoom.zoom) : QString(); }

bool CompareWorkspace::mousePress(QMouseEvent *e)
{
    if (e->button() != Qt::LeftButton) return false;
    const QPoint pos = e->position().toPoint();
    const QSize img = imageSize();
    if (m_mode == view::CompareMode::Wipe && count() >= 2 && !img.isEmpty()) {
        const View v = views(m_panel->size()).front();
        const QRect shown = pictureIn(v.tile, img).toAlignedRect().intersected(v.tile);
        const int line = view::wipeLine(m_wipe, shown);
        const int at = m_wipe.orientation == view::WipeOrientation::Vertical ? pos.x() : pos.y();
        if (std::abs(at - line) <= kWipeGrab) {
            m_draggingWipe = true;
            return true;
        }
    }
    if (m_freeZoom) {
        m_panStart = pos;
        m_panOffset = m_zoom.offset;
        return true;
    }
    return false;
}

bool CompareWorkspace::mouseMove(QMouseEvent *e)
{
    const QPoint pos = e->position().toPoint();
    const QSize img = imageSize();
    if (m_draggingWipe && (e->buttons() & Qt::LeftButton) && !img.isEmpty()) {
        const View v = views(m_panel->size()).front();
        const QRect shown = pictureIn(v.tile, img).toAlignedRect().intersected(v.tile);
        m_wipe.position = view::wipePositionAt(m_wipe.orientation, shown, pos);
        m_composite = QImage();
        m_panel->update();
        return true;
    }
    if (m_panStart.x() >= 0 && (e->buttons() & Qt::LeftButton) && !img.isEmpty()) {
        const View v = views(m_panel->size()).front();
        m_zoom.offset = m_panOffset + QPointF(pos - m_panStart);
        m_zoom = view::clampPan(m_zoom, img, v.tile.size());
        m_composite = QImage();
        m_panel->update();
        return true;
    }
    return false;
}

bool CompareWorkspace::mouseRelease(QMouseEvent *e)
{
    if (e->button() != Qt::LeftButton) return false;
    const bool mine = m_draggingWipe || m_panStart.x() >= 0;
    m_draggingWipe = false;
    m_panStart = QPoint(-1, -1);
    return mine;
}

bool CompareWorkspace::wheel(QWheelEvent *e)
{
    const int d = e->angleDelta().y();
    if (d == 0) return false;
    zoomSteps(d > 0 ? 1 : -1, e->position());
    return true;
}

QImage CompareWorkspace::composedImage() const { return m_composite; }

} // namespace kavri::ui
