// "Extract Video" and "Reverse Video": write a frame range, or all frames in reverse order, of the open
// file to a new file on the global thread pool, with a progress bar. Cancel (or Esc, or closing the
// dialog) stops a running job, which leaves nothing behind, and closes the dialog once the job has
// stopped; a finished job says what it wrote, and OK then closes the dialog.
#pragma once

#include "formats/VideoProps.h"

#include <QDialog>

class CopyWork;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSpinBox;

// What both dialogs share: the output name, the chooser, the checks before writing, the worker and its
// progress.
class KavriCopyDlg : public QDialog {
    Q_OBJECT
public:
    ~KavriCopyDlg() override;

    QString outputPath() const { return m_output; }
    void setOutputPath(const QString &path);
    // From OK until the job has stopped, also while a cancel is awaited.
    bool isRunning() const { return m_state == State::Running || m_state == State::Cancelling; }
    // The line below the progress bar: "Cancelling ..." while a cancel is awaited, and what was written
    // once the job succeeded; empty otherwise.
    QString statusText() const;

    // The sentence that confirms a finished job.
    static QString writtenText(uint64_t frames, const QString &path);

    // The failure box the dialogs show; `detail` goes behind "Show Details...".
    static void showFailure(QWidget *parent, const QString &detail);

public slots:
    void accept() override;
    void reject() override;
    void oon_status(int percent);
    void oon_choose_file();

protected:
    KavriCopyDlg(const VideoProps &props, QWidget *parent);
    // Builds the worker for the current settings (the output is checked already).
    virtual CopyWork *makeWork(bool overwrite) = 0;
    virtual void showOutput(const QString &path) = 0;
    virtual void setInputsEnabled(bool on) = 0;
    // Buttons and progress bar, added below the dialog's own controls.
    void addCommonControls(class QBoxLayout *layout);

    VideoProps m_props;
    QProgressBar *m_progress = nullptr;
    QPushButton *m_fileButton = nullptr;
    QPushButton *m_ok = nullptr;
    QPushButton *m_cancel = nullptr;

private:
    enum class State { Idle, Running, Cancelling, Done };

    void setStatusText(const QString &text);
    void setControlsEnabled(bool on);
    // Lets go of the job without waiting for it (see CopyWork::abandon).
    void dropWork();

    QString m_output;
    QLabel *m_status = nullptr;
    CopyWork *m_work = nullptr;
    State m_state = State::Idle;
};

class KavriExtractDlg : public KavriCopyDlg {
    Q_OBJECT
public:
    KavriExtractDlg(const VideoProps &props, uint64_t currentFrame, QWidget *parent = nullptr);

public slots:
    void oon_range_changed();

protected:
    CopyWork *makeWork(bool overwrite) override;
    void showOutput(const QString &path) override;
    void setInputsEnabled(bool on) override;

private:
    QSpinBox *m_from = nullptr;
    QSpinBox *m_to = nullptr;
    QLineEdit *m_outputField = nullptr;
    bool m_nameEdited = false;
};

class KavriReverseDlg : public KavriCopyDlg {
    Q_OBJECT
public:
    explicit KavriReverseDlg(const VideoProps &props, QWidget *parent = nullptr);

protected:
    CopyWork *makeWork(bool overwrite) override;
    void showOutput(const QString &path) override;
    void setInputsEnabled(bool on) override;

private:
    QLabel *m_label = nullptr;
};
