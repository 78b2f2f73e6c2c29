#include "ui/ScopesDock.h"

#include "loader/Frame.h"
#include "view/ScopeViews.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

namespace kavri::ui {

namespace {

// The table's columns, in order.
constexpr const char *kColumns[] = {"Min", "Max", "Mean", "Std dev", "Zeros", "Clipped"};

QString readingName(const ScopeResult &r)
{
    const LayoutInfo &info = layoutInfo(r.format.layout);
    return QStringLiteral("%1, %2 bits, %3")
        .arg(QString::fromLatin1(info.keyword.data(), qsizetype(info.keyword.size())))
        .arg(r.data.bits)
        .arg(displayName(r.colour));
}

} // namespace

ScopesDock::ScopesDock(QWidget *parent) : QDockWidget(tr("Scopes"), parent), m_feed(std::make_unique<ScopeFeed>())
{
    setObjectName(QStringLiteral("scopesDock"));
    m_feed->setEnabled(false); // until shown
    auto *body = new QWidget(this);
    auto *outer = new QVBoxLayout(body);
    auto *top = new QHBoxLayout;
    m_title = new QLabel(tr("No frame"), body);
    m_log = new QCheckBox(tr("Logarithmic histogram"), body);
    m_parade = new QCheckBox(tr("RGB parade"), body);
    m_parade->setToolTip(tr("The waveform of a YUV frame as red, green and blue of the picture"));
    top->addWidget(m_title, 1);
    top->addWidget(m_log);
    top->addWidget(m_parade);
    outer->addLayout(top);

    auto *grid = new QGridLayout;
    m_histogram = new view::HistogramView(body);
    m_waveform = new view::WaveformView(body);
    m_vectorscope = new view::VectorscopeView(body);
    m_table = new QTableWidget(0, int(std::size(kColumns)), body);
    QStringList headers;
    for (const char *c : kColumns) headers << tr(c);
    m_table->setHorizontalHeaderLabels(headers);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_histogram->setToolTip(tr("Histogram of every component"));
    m_waveform->setToolTip(tr("Waveform: luma, or red, green and blue side by side"));
    m_vectorscope->setToolTip(tr("Vectorscope: U across, V up; boxes mark the 75 % colour bars"));
    grid->addWidget(m_histogram, 0, 0);
    grid->addWidget(m_waveform, 0, 1);
    grid->addWidget(m_vectorscope, 1, 0);
    grid->addWidget(m_table, 1, 1);
    outer->addLayout(grid, 1);
    setWidget(body);

    connect(m_log, &QCheckBox::toggled, m_histogram, &view::HistogramView::setLogarithmic);
    // From the next frame the worker takes (RGB layouts always show the parade).
    connect(m_parade, &QCheckBox::toggled, this, [this](bool on) { m_feed->setYuvParade(on); });
    // Emitted on the feed's worker thread: queued to this one, at most one waiting.
    connect(m_feed.get(), &ScopeFeed::resultReady, this, &ScopesDock::showResult, Qt::QueuedConnection);
}

ScopesDock::~ScopesDock() = default;

void ScopesDock::frameShown(const frame_t *f)
{
    if (f) m_behind.store(!m_feed->offerShown(*f));
}

void ScopesDock::framePause(const frame_t *f, qint64 pauseNs)
{
    if (f) m_behind.store(!m_feed->offerInPause(*f, std::chrono::nanoseconds(pauseNs)));
}

void ScopesDock::setPlaying(bool playing)
{
    m_playing = playing;
    m_feed->setMinimumGap(playing ? std::chrono::nanoseconds(std::chrono::seconds(1)) / kPlayingRate
                                  : std::chrono::nanoseconds(0));
    // The last frame of playback may well have been skipped; a result still on its way asks by itself.
    if (!playing && m_behind.load() && !m_feed->isBusy() && isVisible()) emit frameWanted();
}

void ScopesDock::clear()
{
    m_feed->forget();
    m_shownFrame = -1;
    m_title->setText(tr("No frame"));
    m_histogram->setData(nullptr);
    m_waveform->setData(nullptr);
    m_vectorscope->setData(nullptr);
    m_table->setRowCount(0);
}

void ScopesDock::showResult()
{
    const std::shared_ptr<const ScopeResult> r = m_feed->take();
    if (!r) return;
    // The views keep the result alive through the part they draw.
    const view::ScopeDataPtr data(r, &r->data);
    m_histogram->setData(data);
    m_waveform->setData(data);
    m_vectorscope->setData(data);
    fillTable(r->data.statistics);
    m_shownFrame = qint64(r->frameIndex);
    m_title->setText(tr("Frame %1 — %2").arg(r->frameIndex).arg(readingName(*r)));
    emit shown(m_shownFrame);
    // A frame shown while this one was worked out was skipped: with playback stopped nothing else comes,
    // so it is asked for again.
    if (!m_playing && m_behind.load() && isVisible()) emit frameWanted();
}

void ScopesDock::fillTable(const pixel::FrameStatistics &s)
{
    m_table->setRowCount(int(s.components.size()));
    QStringList names;
    for (int row = 0; row < int(s.components.size()); ++row) {
        const pixel::ComponentStatistics &c = s.components[size_t(row)];
        names << QString::fromStdString(c.name);
        const QString cells[] = {QString::number(c.min),          QString::number(c.max),
                                 QString::number(c.mean, 'f', 2), QString::number(c.stddev, 'f', 2),
                                 QString::number(c.zeros),        QString::number(c.clipped)};
        for (int col = 0; col < int(std::size(cells)); ++col) {
            QTableWidgetItem *item = m_table->item(row, col);
            if (!item) {
                item = new QTableWidgetItem;
                item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
                m_table->setItem(row, col, item);
            }
            item->setText(cells[col]);
        }
    }
    m_table->setVerticalHeaderLabels(names);
}

void ScopesDock::closeEvent(QCloseEvent *e)
{
    QDockWidget::closeEvent(e);
    emit closed();
}

void ScopesDock::showEvent(QShowEvent *e)
{
    QDockWidget::showEvent(e);
    m_feed->setEnabled(true);
}

void ScopesDock::hideEvent(QHideEvent *e)
{
    // Hidden scopes cost nothing: the feed stops copying frames.
    m_feed->setEnabled(false);
    QDockWidget::hideEvent(e);
}

} // namespace kavri::ui
