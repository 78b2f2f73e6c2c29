#include "ui/KavriCopyDlg.h"

#include "tools/CopyWork.h"
#include "tools/SequenceNames.h"

#include "ui/DialogWidgets.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QThreadPool>
#include <QVBoxLayout>
#include <algorithm>
#include <climits>
#include <utility>

namespace {

int spinValue(uint64_t v) { return int(std::min<uint64_t>(v, uint64_t(INT_MAX))); }

} // namespace

KavriCopyDlg::KavriCopyDlg(const VideoProps &props, QWidget *parent) : QDialog(parent), m_props(props) {}

KavriCopyDlg::~KavriCopyDlg() { dropWork(); }

void KavriCopyDlg::dropWork()
{
    if (!m_work) return;
    CopyWork *work = std::exchange(m_work, nullptr);
    disconnect(work, nullptr, this, nullptr);
    // A job still queued is taken back and deleted here; a running one is cancelled and deletes itself
    // when it has stopped, so that the GUI thread never waits for the disk.
    if (QThreadPool::globalInstance()->tryTake(work)) {
        delete work;
        return;
    }
    work->abandon();
}

void KavriCopyDlg::addCommonControls(QBoxLayout *layout)
{
    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_ok = new QPushButton(QStringLiteral("OK"), this);
    m_ok->setObjectName(QStringLiteral("okButton"));
    m_ok->setDefault(true);
    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setObjectName(QStringLiteral("cancelButton"));
    // Cancel stays usable while a job runs and takes the focus from the disabled controls then; a second
    // Enter must not cancel the job that the first one started.
    m_cancel->setAutoDefault(false);
    auto *row = new QHBoxLayout;
    row->addWidget(m_progress, 1);
    row->addWidget(m_ok);
    row->addWidget(m_cancel);
    layout->addLayout(row);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_status->setWordWrap(true);
    m_status->hide();
    layout->addWidget(m_status);
    connect(m_ok, &QPushButton::clicked, this, &KavriCopyDlg::accept);
    connect(m_cancel, &QPushButton::clicked, this, &KavriCopyDlg::reject);
    connect(m_fileButton, &QPushButton::clicked, this, &KavriCopyDlg::oon_choose_file);
}

QString KavriCopyDlg::statusText() const { return m_status ? m_status->text() : QString(); }

QString KavriCopyDlg::writtenText(uint64_t frames, const QString &path)
{
    const QString shown = QDir::toNativeSeparators(path);
    if (frames == 1) return QStringLiteral("Wrote 1 frame to %1").arg(shown);
    return QStringLiteral("Wrote %1 frames to %2").arg(frames).arg(shown);
}

void KavriCopyDlg::setStatusText(const QString &text)
{
    m_status->setText(text);
    m_status->setVisible(!text.isEmpty());
}

void KavriCopyDlg::setControlsEnabled(bool on)
{
    setInputsEnabled(on);
    m_fileButton->setEnabled(on);
    m_ok->setEnabled(on);
}

void KavriCopyDlg::setOutputPath(const QString &path)
{
    m_output = path;
    showOutput(path);
}

void KavriCopyDlg::showFailure(QWidget *parent, const QString &detail)
{
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Kavri"), QStringLiteral("Something went wrong, sorry."),
                    QMessageBox::Ok, parent);
    box.setInformativeText(QStringLiteral("Choose the fuck you want, but it must be a valid location."));
    if (!detail.isEmpty()) box.setDetailedText(detail);
    box.exec();
}

void KavriCopyDlg::oon_choose_file()
{
    const QString ext = QFileInfo(m_props.fileName).suffix();
    // Overwriting is asked once, on OK, for chosen and typed names alike.
    const QString chosen = QFileDialog::getSaveFileName(this, QStringLiteral("Save as ..."), m_output,
                                                        QStringLiteral("Same type (*.%1)").arg(ext), nullptr,
                                                        QFileDialog::DontConfirmOverwrite);
    if (!chosen.isEmpty()) setOutputPath(chosen);
}

void KavriCopyDlg::accept()
{
    if (isRunning()) return;
    if (m_state == State::Done) {
        QDialog::accept();
        return;
    }
    const QString input = m_props.fileName;
    bool overwrite = false;
    if (kavri::tools::isSameFile(input, m_output)) {
        showFailure(this, QStringLiteral("The output is the input file itself."));
        return;
    }
    const QFileInfo out(m_output);
    if (out.exists() || out.isSymLink()) {
        const auto answer = QMessageBox::question(
            this, QStringLiteral("Kavri"),
            QStringLiteral("%1 exists already.\nDo you want to replace it?").arg(QDir::toNativeSeparators(m_output)),
            QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
        if (answer != QMessageBox::Yes) return;
        overwrite = true;
    }
    if (const QString why = kavri::tools::checkOutput(input, m_output, overwrite); !why.isEmpty()) {
        showFailure(this, why);
        return;
    }
    dropWork();
    m_work = makeWork(overwrite);
    m_state = State::Running;
    connect(m_work, &CopyWork::status, this, &KavriCopyDlg::oon_status, Qt::QueuedConnection);
    setControlsEnabled(false);
    m_cancel->setEnabled(true);
    m_progress->setValue(0);
    setStatusText(QString());
    QThreadPool::globalInstance()->start(m_work);
}

void KavriCopyDlg::reject()
{
    if (m_state == State::Cancelling) return;
    if (m_state != State::Running) {
        QDialog::reject();
        return;
    }
    // The job stops before its next chunk and removes what it wrote; the dialog closes once it reports
    // back, so nothing is still being written (or removed) when the dialog is gone.
    m_work->cancel();
    if (QThreadPool::globalInstance()->tryTake(m_work)) {
        // Never started: nothing was written.
        delete std::exchange(m_work, nullptr);
        m_state = State::Idle;
        setControlsEnabled(true);
        QDialog::reject();
        return;
    }
    m_state = State::Cancelling;
    m_cancel->setEnabled(false);
    setStatusText(QStringLiteral("Cancelling ..."));
}

void KavriCopyDlg::oon_status(int percent)
{
    if (!isRunning() || !m_work) return;
    m_progress->setValue(std::clamp(percent, 0, 100));
    if (percent < 100) return;
    const bool ok = m_work->succeeded();
    const bool cancelled = m_work->wasCancelled();
    const uint64_t frames = m_work->framesWritten();
    const QString written = m_work->job().output;
    const QString detail = m_work->errorText();
    dropWork();
    if (ok) {
        // Even when a cancel came too late to stop it, the file is there, and the dialog says so.
        m_state = State::Done;
        setStatusText(writtenText(frames, written));
        m_cancel->setEnabled(false);
        m_ok->setEnabled(true);
        m_ok->setFocus();
        return;
    }
    m_state = State::Idle;
    setControlsEnabled(true);
    m_cancel->setEnabled(true);
    m_progress->setValue(0);
    setStatusText(QString());
    if (cancelled) {
        QDialog::reject();
        return;
    }
    showFailure(this, detail);
}

KavriExtractDlg::KavriExtractDlg(const VideoProps &props, uint64_t currentFrame, QWidget *parent)
    : KavriCopyDlg(props, parent)
{
    setObjectName(QStringLiteral("ExtractDialog"));
    setWindowTitle(QStringLiteral("Extract Video"));
    const uint64_t last = props.frameCount > 0 ? props.frameCount - 1 : 0;

    auto *range = new QGroupBox(QStringLiteral("Frames"), this);
    m_from = new QSpinBox(range);
    m_from->setObjectName(QStringLiteral("spinFrom"));
    m_to = new QSpinBox(range);
    m_to->setObjectName(QStringLiteral("spinTo"));
    m_from->setRange(0, spinValue(last));
    m_to->setRange(0, spinValue(last));
    m_to->setValue(spinValue(last));
    m_from->setValue(spinValue(std::min(currentFrame, last)));
    m_to->setMinimum(m_from->value());
    m_from->setMaximum(m_to->value());
    auto *rangeForm = new QFormLayout(range);
    rangeForm->addRow(QStringLiteral("From Frame:"), m_from);
    rangeForm->addRow(QStringLiteral("To Frame(including)"), m_to);

    auto *output = new QGroupBox(QStringLiteral("Output"), this);
    m_outputField = new QLineEdit(output);
    m_outputField->setObjectName(QStringLiteral("le_outputfile"));
    m_outputField->setMinimumWidth(420);
    m_fileButton = new QPushButton(QStringLiteral("Choose output file ..."), output);
    m_fileButton->setObjectName(QStringLiteral("fileButton"));
    auto *outRow = new QHBoxLayout(output);
    outRow->addWidget(m_outputField, 1);
    outRow->addWidget(m_fileButton);

    auto *main = new QVBoxLayout(this);
    main->addWidget(range);
    main->addWidget(output);
    addCommonControls(main);

    // The range cannot be inverted: each end bounds the other.
    connect(m_from, &QSpinBox::valueChanged, this, [this](int v) {
        m_to->setMinimum(v);
        oon_range_changed();
    });
    connect(m_to, &QSpinBox::valueChanged, this, [this](int v) {
        m_from->setMaximum(v);
        oon_range_changed();
    });
    connect(m_outputField, &QLineEdit::textEdited, this, [this](const QString &t) {
        m_nameEdited = true;
        setOutputPath(t);
    });
    setOutputPath(kavri::tools::proposedExtractName(m_props, uint64_t(m_from->value()), uint64_t(m_to->value())));
    kavri::ui::chainTabOrder({m_from, m_to, m_outputField, m_fileButton, m_ok, m_cancel});
}

void KavriExtractDlg::oon_range_changed()
{
    // The proposal follows the range until the user names the file.
    if (m_nameEdited) return;
    setOutputPath(kavri::tools::proposedExtractName(m_props, uint64_t(m_from->value()), uint64_t(m_to->value())));
}

CopyWork *KavriExtractDlg::makeWork(bool overwrite)
{
    return new ExtractWork(m_props, outputPath(), uint64_t(m_from->value()), uint64_t(m_to->value()), overwrite);
}

void KavriExtractDlg::showOutput(const QString &path)
{
    if (m_outputField->text() != path) m_outputField->setText(path);
}

void KavriExtractDlg::setInputsEnabled(bool on)
{
    m_from->setEnabled(on);
    m_to->setEnabled(on);
    m_outputField->setEnabled(on);
}

KavriReverseDlg::KavriReverseDlg(const VideoProps &props, QWidget *parent) : KavriCopyDlg(props, parent)
{
    setObjectName(QStringLiteral("ReverseDialog"));
    setWindowTitle(QStringLiteral("Reverse Video"));
    auto *output = new QGroupBox(QStringLiteral("Output"), this);
    m_label = new QLabel(output);
    m_label->setObjectName(QStringLiteral("label_file"));
    m_label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_label->setMinimumWidth(420);
    m_label->setWordWrap(true);
    m_fileButton = new QPushButton(QStringLiteral("Choose output file ..."), output);
    m_fileButton->setObjectName(QStringLiteral("fileButton"));
    auto *outRow = new QHBoxLayout(output);
    outRow->addWidget(m_label, 1);
    outRow->addWidget(m_fileButton);
    auto *main = new QVBoxLayout(this);
    main->addWidget(output);
    addCommonControls(main);
    setOutputPath(kavri::tools::proposedReverseName(m_props));
    kavri::ui::chainTabOrder({m_fileButton, m_ok, m_cancel});
}

CopyWork *KavriReverseDlg::makeWork(bool overwrite) { return new ReverseWork(m_props, outputPath(), overwrite); }

void KavriReverseDlg::showOutput(const QString &path) { m_label->setText(QDir::toNativeSeparators(path)); }

void KavriReverseDlg::setInputsEnabled(bool) {}
