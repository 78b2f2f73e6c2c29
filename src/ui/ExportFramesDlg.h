// File > Export Frames: a frame range of the open sequence written as PNG pictures (as shown, or of the
// stored samples at 16 bits), one file a frame named by a printf-style pattern, or as one file in any
// layout or as y4m through the conversion. The work runs on a thread of its own with a progress bar;
// Cancel (or Esc, or closing the dialog) stops it, and a run that does not finish leaves nothing behind.
#pragma once

#include "formats/VideoProps.h"
#include "tools/FrameExport.h"

#include <QDialog>
#include <atomic>
#include <functional>
#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QThread;

class ExportFramesDlg : public QDialog {
    Q_OBJECT
public:
    // `props`: the open sequence's validated record; `shownFrame` the frame on screen, the range's default.
    ExportFramesDlg(const VideoProps &props, uint64_t shownFrame, QWidget *parent = nullptr);
    ~ExportFramesDlg() override;

    // The job the controls describe now.
    kavri::tools::ExportJob job() const;
    bool isRunning() const { return m_state == State::Running || m_state == State::Cancelling; }
    // What the last run did, or why it could not run; "Cancelling ..." while a cancel is awaited.
    QString statusText() const;
    // The outcome of the last run.
    const kavri::tools::CopyResult &result() const { return m_result; }

    // Called on the worker thread with every progress report (in percent) before the dialog hears of it;
    // lets a test hold a run part-way.
    void setWorkerHook(std::function<void(int)> hook) { m_hook = std::move(hook); }

    // The output name proposed for a kind of export and a layout, beside the input.
    static QString proposedOutput(const VideoProps &props, kavri::tools::ExportKind kind, videoFormat_t layout);

public slots:
    void accept() override;
    void reject() override;

private slots:
    void oon_kind_changed();
    void oon_choose_file();
    void oon_finished();

private:
    enum class State { Idle, Running, Cancelling };

    kavri::tools::ExportKind kind() const;
    void setControlsEnabled(bool on);
    void setStatus(const QString &text);

    VideoProps m_props;
    QSpinBox *m_first = nullptr;
    QSpinBox *m_last = nullptr;
    QComboBox *m_kind = nullptr;
    QComboBox *m_layout = nullptr;
    QSpinBox *m_bits = nullptr;
    QLineEdit *m_output = nullptr;
    QPushButton *m_choose = nullptr;
    QProgressBar *m_progress = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_ok = nullptr;
    QPushButton *m_cancel = nullptr;
    QString m_proposed; // the last name proposed, replaced on a change of kind while not edited
    State m_state = State::Idle;
    QThread *m_thread = nullptr;
    std::atomic<bool> m_stop{false};
    kavri::tools::CopyResult m_result;
    std::function<void(int)> m_hook;
};
