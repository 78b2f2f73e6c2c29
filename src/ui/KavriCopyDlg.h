// "Extract Video" and "Reverse Video": write a frame range, or all frames in reverse order, of the open
// file to a new file on the global thread pool, with a progress bar.
#pragma once

#include "formats/VideoProps.h"

#include <QDialog>
#include <memory>

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
    bool isRunning() const { return m_work != nullptr && !m_finished; }

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
    QString m_output;
    std::unique_ptr<CopyWork> m_work;
    bool m_finished = false;
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
