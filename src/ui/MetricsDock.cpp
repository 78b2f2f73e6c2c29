#include "ui/MetricsDock.h"

#include "formats/FrameSize.h"
#include "loader/Frame.h"
#include "pixel/FramePipeline.h"
#include "ui/MetricsPair.h"

#include <QChart>
#include <QChartView>
#include <QCloseEvent>
#include <QComboBox>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLegendMarker>
#include <QLineSeries>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QValueAxis>

#include <cmath>
#include <fstream>
#include <functional>

#ifdef __linux__
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace kavri::ui {

using namespace kavri::pixel;

namespace {

// Infinite PSNR (no difference) is drawn at this height.
constexpr double kPsnrCeiling = 100.0;
// The cursor's steps while playing: ten a second are enough to follow, and cost a sixth of sixty.
constexpr int kPlayingCursorMs = 100;

// A chart view that reports the value under a left click.
class ClickableChartView : public QChartView {
public:
    ClickableChartView(QChart *chart, std::function<void(QPointF)> onClick)
        : QChartView(chart), m_onClick(std::move(onClick))
    {
    }

protected:
    void mousePressEvent(QMouseEvent *e) override
    {
        if (e->button() == Qt::LeftButton && chart()->plotArea().contains(e->position()))
            m_onClick(chart()->mapToValue(e->position()));
        QChartView::mousePressEvent(e);
    }

private:
    std::function<void(QPointF)> m_onClick;
};

QString pairKey(const VideoProps &p)
{
    const QFileInfo a(p.fileName), b(p.diffFileName);
    return QStringLiteral("%1|%2|%3|%4|%5|%6|%7x%8|%9|%10")
        .arg(a.absoluteFilePath())
        .arg(a.size())
        .arg(a.lastModified().toMSecsSinceEpoch())
        .arg(b.absoluteFilePath())
        .arg(b.size())
        .arg(b.lastModified().toMSecsSinceEpoch())
        .arg(p.width)
        .arg(p.height)
        .arg(int(p.format))
        .arg(QStringLiteral("%1/%2/%3/%4/%5")
                 .arg(p.bitDepth)
                 .arg(p.containerBits)
                 .arg(p.signedValues)
                 .arg(p.toggleEndianness)
                 .arg(p.headerBytes));
}

} // namespace

QHash<QString, std::shared_ptr<const SequenceSummary>> &MetricsDock::cache()
{
    static QHash<QString, std::shared_ptr<const SequenceSummary>> table;
    return table;
}

MetricsDock::MetricsDock(QWidget *parent)
    : QDockWidget(tr("Metrics"), parent), m_summary(std::make_shared<SequenceSummary>())
{
    setObjectName(QStringLiteral("metricsDock"));
    auto *body = new QWidget(this);
    auto *layout = new QVBoxLayout(body);

    auto *top = new QHBoxLayout;
    m_metricBox = new QComboBox(body);
    m_metricBox->setObjectName(QStringLiteral("metricBox"));
    m_metricBox->addItems({tr("PSNR (dB)"), tr("SSIM"), tr("MS-SSIM"), tr("Weighted PSNR 6:1:1 (dB)")});
    m_progress = new QProgressBar(body);
    m_progress->setObjectName(QStringLiteral("metricsProgress"));
    m_cancel = new QPushButton(tr("Cancel"), body);
    m_cancel->setObjectName(QStringLiteral("metricsCancel"));
    top->addWidget(m_metricBox);
    top->addWidget(m_progress, 1);
    top->addWidget(m_cancel);
    layout->addLayout(top);

    m_chart = new QChart;
    m_chart->legend()->setAlignment(Qt::AlignBottom);
    m_axisX = new QValueAxis;
    m_axisY = new QValueAxis;
    m_axisX->setLabelFormat(QStringLiteral("%d"));
    m_axisX->setTitleText(tr("frame"));
    m_chart->addAxis(m_axisX, Qt::AlignBottom);
    m_chart->addAxis(m_axisY, Qt::AlignLeft);
    for (int k = 0; k < 3; ++k) {
        m_series[k] = new QLineSeries;
        m_chart->addSeries(m_series[k]);
        m_series[k]->attachAxis(m_axisX);
        m_series[k]->attachAxis(m_axisY);
    }
    m_cursorLine = new QLineSeries;
    m_cursorLine->setName(tr("shown"));
    m_cursorLine->setPen(QPen(Qt::darkGray, 1, Qt::DashLine));
    m_chart->addSeries(m_cursorLine);
    m_cursorLine->attachAxis(m_axisX);
    m_cursorLine->attachAxis(m_axisY);
    // A click on a component's legend entry hides or shows its line.
    for (int k = 0; k < 3; ++k)
        for (QLegendMarker *marker : m_chart->legend()->markers(m_series[k]))
            connect(marker, &QLegendMarker::clicked, this, [this, k] {
                m_series[k]->setVisible(!m_series[k]->isVisible());
                for (QLegendMarker *mk : m_chart->legend()->markers(m_series[k])) mk->setVisible(true);
                for (QLegendMarker *mk : m_chart->legend()->markers(m_series[k]))
                    mk->setBrush(m_series[k]->isVisible() ? m_series[k]->pen().color() : QColor(Qt::lightGray));
            });
    m_view = new ClickableChartView(m_chart, [this](QPointF v) {
        if (m_summary->frames().empty()) return;
        const double last = double(m_summary->frames().back().frame);
        const double first = double(m_summary->frames().front().frame);
        emit frameRequested(quint64(std::lround(std::clamp(v.x(), first, last))));
    });
    m_view->setObjectName(QStringLiteral("metricsChart"));
    m_view->setRenderHint(QPainter::Antialiasing);
    m_view->setMinimumSize(360, 220);
    layout->addWidget(m_view, 1);

    auto *buttons = new QHBoxLayout;
    m_worst = new QPushButton(tr("Worst frame"), body);
    m_worst->setObjectName(QStringLiteral("metricsWorst"));
    m_mismatch = new QPushButton(tr("First mismatch"), body);
    m_mismatch->setObjectName(QStringLiteral("metricsFirstMismatch"));
    m_csv = new QPushButton(tr("Export CSV..."), body);
    m_png = new QPushButton(tr("Export PNG..."), body);
    for (QPushButton *b : {m_worst, m_mismatch, m_csv, m_png}) buttons->addWidget(b);
    layout->addLayout(buttons);
    m_text = new QLabel(body);
    m_text->setObjectName(QStringLiteral("metricsSummary"));
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_text);
    setWidget(body);

    connect(m_metricBox, &QComboBox::currentIndexChanged, this, [this](int i) { setMetric(Metric(i)); });
    connect(m_cancel, &QPushButton::clicked, this, &MetricsDock::cancel);
    connect(m_worst, &QPushButton::clicked, this, [this] {
        const std::vector<int64_t> w = m_summary->worst(m_metric, 1);
        if (!w.empty()) emit frameRequested(quint64(w.front()));
    });
    connect(m_mismatch, &QPushButton::clicked, this, [this] {
        const SequenceSummary::Mismatch mm = m_summary->firstMismatch();
        if (mm.frame >= 0) emit frameRequested(quint64(mm.frame));
    });
    connect(m_csv, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getSaveFileName(this, tr("Export metrics"), QString(), tr("CSV (*.csv)"));
        if (!path.isEmpty()) exportCsv(path);
    });
    connect(m_png, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getSaveFileName(this, tr("Export graph"), QString(), tr("PNG (*.png)"));
        if (!path.isEmpty()) exportPng(path);
    });
    m_cursorTimer = new QTimer(this);
    m_cursorTimer->setSingleShot(true);
    m_cursorTimer->setInterval(kPlayingCursorMs);
    connect(m_cursorTimer, &QTimer::timeout, this, [this] { moveCursor(m_pendingCursor.load()); });
    redraw();
}

MetricsDock::~MetricsDock() { cancel(); }

void MetricsDock::closeEvent(QCloseEvent *e)
{
    QDockWidget::closeEvent(e);
    emit closed();
}

void MetricsDock::frameShown(const frame_t *f)
{
    // Loader thread: one queued call at a time carries the latest index; frames shown meanwhile only
    // move the index it will read.
    m_pendingCursor.store(f->frameIndex);
    if (!m_cursorQueued.exchange(true))
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_cursorQueued.store(false);
                if (!m_gate.held())
                    moveCursor(m_pendingCursor.load());
                else if (!m_cursorTimer->isActive())
                    m_cursorTimer->start();
            },
            Qt::QueuedConnection);
}

void MetricsDock::setPair(const VideoProps &props)
{
    if (props.diffFileName.isEmpty() || props.frameCount == 0) {
        cancel();
        m_key.clear();
        m_summary = std::make_shared<SequenceSummary>();
        m_error = tr("Open a difference to see its metrics.");
        redraw();
        return;
    }
    m_componentNames.clear();
    if (isValidFormat(props.format))
        for (std::string_view letter : layoutInfo(props.format).letters)
            m_componentNames << QString::fromLatin1(letter.data(), qsizetype(letter.size()));
    const QString key = pairKey(props);
    if (key == m_key && (busy() || !m_summary->frames().empty())) return;
    cancel();
    m_key = key;
    m_error.clear();
    if (auto hit = cache().value(key)) {
        finish(hit, QString());
        return;
    }
    start(props, key);
}

void MetricsDock::start(const VideoProps &props, const QString &key)
{
    m_summary = std::make_shared<SequenceSummary>();
    m_gate.rearm();
    m_finished = false;
    const uint64_t generation = ++m_generation;
    m_gate.setOnWait([this, generation](bool waiting) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, waiting] {
                if (generation != m_generation) return;
                updateProgressText();
                updateSummaryText();
                emit passPaused(waiting);
            },
            Qt::QueuedConnection);
    });
    m_progress->setRange(0, int(std::min<uint64_t>(props.frameCount, INT_MAX)));
    m_progress->setValue(0);
    m_cancel->setEnabled(true);
    updateProgressText();
    redraw();
    m_worker = std::thread([this, props, key, generation] {
        auto post = [this, generation](std::function<void()> fn) {
            QMetaObject::invokeMethod(
                this,
                [this, generation, fn] {
                    if (generation == m_generation) fn();
                },
                Qt::QueuedConnection);
        };
        QString error;
        auto table = std::make_shared<SequenceSummary>();
        try {
            FramePipeline a, b;
            // The difference file at its own depth where it states one, as kavri-cli metrics --bits2.
            const MetricsSecondFile second = metricsSecondFile(props);
            if (!second.error.isEmpty()) throw std::runtime_error(second.error.toStdString());
            const VideoProps &pb = second.props;
            a.setup(props, false);
            b.setup(pb, false);
            std::ifstream fa(QFile::encodeName(props.fileName).toStdString(), std::ios::binary);
            std::ifstream fb(QFile::encodeName(props.diffFileName).toStdString(), std::ios::binary);
#ifdef __linux__
            // Below playback: the pass takes what the loader and the window leave of the CPU.
            setpriority(PRIO_PROCESS, pid_t(syscall(SYS_gettid)), 10);
#endif
            FrameMetricsEngine engine;
            // On this thread alone: the shared pool stays free for the conversion of shown frames.
            engine.setUsePool(false);
            // Held between the bands of a frame too: playback starting in the middle of a 1080p frame
            // (tens of milliseconds of work) gets the core back at once.
            engine.setBetweenJobs([this] { return m_gate.proceed(); });
            MetricsFormat format;
            // Measured on the samples as unpacked: a descriptor-read layout is compared in its canonical layout.
            format.layout = a.props().format;
            format.width = props.width;
            format.height = props.height;
            format.bitsA = a.props().bitDepth;
            format.bitsB = b.props().bitDepth;
            format.containerA = a.props().containerBits;
            format.containerB = b.props().containerBits;
            format.isSigned = props.signedValues;
            std::string why;
            if (!engine.setup(format, kAllMetrics, &why)) throw std::runtime_error(why);
            *table = SequenceSummary(kAllMetrics, engine.bits());
            const uint64_t count = std::min(props.frameCount, pb.frameCount);
            const uint64_t step = std::max<uint64_t>(1, count / 100);
            for (uint64_t i = 0; i < count && m_gate.proceed(); ++i) {
                if (!a.read(fa, nullptr, i) || !b.read(fb, nullptr, i)) break;
                FrameMetrics m =
                    engine.compute(a.buffer(FramePipeline::Buffer::First), b.buffer(FramePipeline::Buffer::First));
                if (m_gate.stopped()) break; // the frame was given up half way
                m.frame = int64_t(i);
                table->add(m);
                if ((i + 1) % step == 0)
                    post([this, i] { m_progress->setValue(int(std::min<uint64_t>(i + 1, INT_MAX))); });
            }
        } catch (const std::exception &e) {
            error = QString::fromStdString(e.what());
        }
        const bool stopped = m_gate.stopped();
        if (stopped) error = tr("Cancelled.");
        m_finished = true;
        post([this, table, error, key, stopped] {
            if (!stopped && error.isEmpty()) cache().insert(key, table);
            finish(table, error);
        });
    });
}

void MetricsDock::cancel()
{
    if (!m_worker.joinable()) return;
    m_gate.stop();
    m_worker.join();
    ++m_generation; // what the stopped pass queued is dropped
    m_finished = true;
    m_error = tr("Cancelled.");
    m_cancel->setEnabled(false);
    redraw();
    emit computed();
}

void MetricsDock::finish(std::shared_ptr<const SequenceSummary> table, const QString &error)
{
    if (m_worker.joinable()) m_worker.join();
    m_summary = std::move(table);
    m_error = error;
    m_cancel->setEnabled(false);
    m_progress->setRange(0, 1);
    m_progress->setValue(1);
    updateProgressText();
    redraw();
    emit computed();
}

void MetricsDock::setPlaying(bool playing)
{
    m_gate.setHeld(playing);
    QMetaObject::invokeMethod(
        this,
        [this] {
            updateProgressText();
            updateSummaryText();
            // Stopped: the cursor goes to the frame shown last at once.
            if (!m_gate.held() && m_cursor != m_pendingCursor.load()) moveCursor(m_pendingCursor.load());
        },
        Qt::QueuedConnection);
}

void MetricsDock::updateProgressText()
{
    m_progress->setFormat(busy() && m_gate.held() ? tr("%v of %m frames, paused while playing") : tr("%p%"));
}

void MetricsDock::setMetric(Metric m)
{
    m_metric = m;
    if (m_metricBox->currentIndex() != int(m)) m_metricBox->setCurrentIndex(int(m));
    redraw();
}

void MetricsDock::redraw()
{
    const std::vector<FrameMetrics> &frames = m_summary->frames();
    const int components = pixel::metricComponents(m_metric);
    double low = std::numeric_limits<double>::infinity(), high = -low;
    for (int k = 0; k < 3; ++k) {
        QList<QPointF> points;
        if (k < components) {
            points.reserve(qsizetype(frames.size()));
            for (const FrameMetrics &f : frames) {
                double v = f.value(m_metric, k);
                if (std::isinf(v)) v = kPsnrCeiling;
                points.append(QPointF(double(f.frame), v));
                low = std::min(low, v);
                high = std::max(high, v);
            }
        }
        m_series[k]->replace(points);
        const QString letter = k < m_componentNames.size() ? m_componentNames[k] : QString();
        m_series[k]->setName(components == 1    ? m_metricBox->currentText()
                             : letter.isEmpty() ? tr("component %1").arg(k + 1)
                                                : letter);
        for (QLegendMarker *mk : m_chart->legend()->markers(m_series[k])) mk->setVisible(k < components);
    }
    if (frames.empty()) {
        low = 0;
        high = 1;
    } else if (high - low < 1e-9) {
        low -= 0.5;
        high += 0.5;
    }
    const double pad = (high - low) * 0.05;
    m_axisY->setRange(low - pad, high + pad);
    m_axisX->setRange(0, frames.empty() ? 1 : double(frames.back().frame));
    // Whole frame numbers only: five ticks over an empty graph's 0..1 would read 0 0 0 0 1.
    m_axisX->setTickCount(frames.size() < 5 ? 2 : 5);
    m_chart->setTitle(m_metricBox->currentText());
    moveCursor(m_cursor);
    m_worst->setEnabled(!frames.empty());
    m_mismatch->setEnabled(!m_summary->identical());
    m_csv->setEnabled(!frames.empty());
    m_png->setEnabled(!frames.empty());
    updateSummaryText();
}

void MetricsDock::moveCursor(uint64_t frame)
{
    m_cursor = frame;
    m_cursorLine->replace({QPointF(double(frame), m_axisY->min()), QPointF(double(frame), m_axisY->max())});
}

void MetricsDock::updateSummaryText()
{
    if (busy()) {
        m_text->setText(m_gate.held() ? tr("Paused while the window plays, so that playback keeps its rate; the "
                                           "metrics go on when it stops.")
                                      : tr("Working out the metrics of every frame..."));
        return;
    }
    if (m_summary->frames().empty()) {
        m_text->setText(m_error.isEmpty() ? tr("Open a difference to see its metrics.") : m_error);
        return;
    }
    const SequenceSummary &s = *m_summary;
    auto three = [](double a, double b, double c, int digits) {
        auto one = [digits](double v) {
            return std::isinf(v) ? QStringLiteral("inf") : QString::number(v, 'f', digits);
        };
        return QStringLiteral("%1 / %2 / %3").arg(one(a), one(b), one(c));
    };
    QString text = tr("%1 frames. Mean PSNR %2 dB (of the mean MSE %3), min %4; mean SSIM %5, min %6; "
                      "mean MS-SSIM %7; weighted PSNR %8 dB.")
                       .arg(s.frames().size())
                       .arg(three(s.mean(Metric::Psnr, 0), s.mean(Metric::Psnr, 1), s.mean(Metric::Psnr, 2), 3))
                       .arg(three(s.psnrOfMeanMse(0), s.psnrOfMeanMse(1), s.psnrOfMeanMse(2), 3))
                       .arg(three(s.min(Metric::Psnr, 0), s.min(Metric::Psnr, 1), s.min(Metric::Psnr, 2), 3))
                       .arg(three(s.mean(Metric::Ssim, 0), s.mean(Metric::Ssim, 1), s.mean(Metric::Ssim, 2), 5))
                       .arg(three(s.min(Metric::Ssim, 0), s.min(Metric::Ssim, 1), s.min(Metric::Ssim, 2), 5))
                       .arg(three(s.mean(Metric::MsSsim, 0), s.mean(Metric::MsSsim, 1), s.mean(Metric::MsSsim, 2), 5))
                       .arg(std::isinf(s.mean(Metric::Wpsnr, 0)) ? QStringLiteral("inf")
                                                                 : QString::number(s.mean(Metric::Wpsnr, 0), 'f', 3));
    const SequenceSummary::Mismatch mm = s.firstMismatch();
    text += QLatin1Char(' ');
    text += mm.frame < 0 ? tr("Identical.")
                         : tr("First mismatch: frame %1, component %2 at (%3, %4).")
                               .arg(mm.frame)
                               .arg(mm.component + 1)
                               .arg(mm.x)
                               .arg(mm.y);
    m_text->setText(text);
}

bool MetricsDock::exportCsv(const QString &path) const
{
    QFile f(path);
    if (m_summary->frames().empty() || !f.open(QIODevice::WriteOnly | QIODevice::Truncate)) return false;
    std::string text = metricsCsvHeader(m_summary->metrics());
    for (const FrameMetrics &m : m_summary->frames()) text += metricsCsvRow(m, m_summary->metrics());
    text += metricsCsvSummaryRows(*m_summary);
    return f.write(text.data(), qint64(text.size())) == qint64(text.size());
}

bool MetricsDock::exportPng(const QString &path) const { return m_view->grab().save(path, "PNG"); }

} // namespace kavri::ui
