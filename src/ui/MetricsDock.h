// The metrics panel: PSNR, SSIM, MS-SSIM and weighted PSNR of every frame of the open pair, worked out
// in the background by the engine's metrics and drawn as a graph with a cursor at the shown frame.
#pragma once

#include "formats/VideoProps.h"
#include "pixel/SequenceMetrics.h"
#include "ui/PassGate.h"

#include <QDockWidget>
#include <QHash>

#include <atomic>
#include <memory>
#include <thread>

class QChart;
class QChartView;
class QComboBox;
class QLabel;
class QLineSeries;
class QProgressBar;
class QPushButton;
class QTimer;
class QValueAxis;
struct frame_t;

namespace kavri::ui {

class MetricsDock : public QDockWidget {
    Q_OBJECT
public:
    explicit MetricsDock(QWidget *parent = nullptr);
    ~MetricsDock() override;

    // From the loader's thread for every delivered frame: moves the cursor (queued). The pair itself comes
    // from the window through setPair whenever its loader is set up.
    void frameShown(const frame_t *f);
    // Works out the pair's metrics unless they are cached for the files as they are now; a record
    // without a second file clears the panel.
    void setPair(const VideoProps &props);
    void cancel();
    // While the window plays the background pass waits (after the frame it is on), so that it never takes
    // CPU time from playback; it goes on when playback stops. Any thread.
    void setPlaying(bool playing);
    // Whether the pass is waiting for playback to stop now.
    bool passWaiting() const { return m_gate.waiting(); }
    bool passHeld() const { return m_gate.held(); }

    bool busy() const { return m_worker.joinable() && !m_finished; }
    // The finished table (empty while computing or without a pair).
    const pixel::SequenceSummary &summary() const { return *m_summary; }
    void setMetric(pixel::Metric m);
    bool exportCsv(const QString &path) const;
    bool exportPng(const QString &path) const;
    QChartView *chartView() const { return m_view; }
    uint64_t cursorFrame() const { return m_cursor; }

signals:
    // The user asked for this frame (a click on the graph, or the worst / first mismatch buttons).
    void frameRequested(quint64 frame);
    // The background pass ended (finished, failed or cancelled).
    void computed();
    // The user closed the panel.
    void closed();
    // The pass began (true) or ended (false) waiting for playback to stop.
    void passPaused(bool waiting);

protected:
    void closeEvent(QCloseEvent *e) override;

private:
    void start(const VideoProps &props, const QString &key);
    void finish(std::shared_ptr<const pixel::SequenceSummary> table, const QString &error);
    void redraw();
    void moveCursor(uint64_t frame);
    void updateSummaryText();
    void updateProgressText();

    QChart *m_chart = nullptr;
    QChartView *m_view = nullptr;
    QValueAxis *m_axisX = nullptr, *m_axisY = nullptr;
    QLineSeries *m_series[3] = {nullptr, nullptr, nullptr};
    QLineSeries *m_cursorLine = nullptr;
    QComboBox *m_metricBox = nullptr;
    QProgressBar *m_progress = nullptr;
    QPushButton *m_cancel = nullptr, *m_worst = nullptr, *m_mismatch = nullptr, *m_csv = nullptr, *m_png = nullptr;
    QLabel *m_text = nullptr;

    pixel::Metric m_metric = pixel::Metric::Psnr;
    std::shared_ptr<const pixel::SequenceSummary> m_summary;
    QStringList m_componentNames;
    QString m_key, m_error;
    uint64_t m_cursor = 0;
    std::atomic<uint64_t> m_pendingCursor{0};
    std::atomic<bool> m_cursorQueued{false};
    // While playing, the cursor moves at most this often: each move repaints the whole chart on the
    // window's thread, which at the frame rate would take time from the frames being shown.
    QTimer *m_cursorTimer = nullptr;

    std::thread m_worker;
    PassGate m_gate;
    std::atomic<bool> m_finished{true};
    uint64_t m_generation = 0;
    // Finished tables by pair (file names, sizes, modification times and the record).
    static QHash<QString, std::shared_ptr<const pixel::SequenceSummary>> &cache();
};

} // namespace kavri::ui
