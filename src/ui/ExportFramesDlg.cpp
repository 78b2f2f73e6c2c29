#include "ui/ExportFramesDlg.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QThread>
#include <QVBoxLayout>
#include <algorithm>
#include <climits>

using kavri::tools::ExportJob;
using kavri::tools::ExportKind;

namespace {

int spinValue(uint64_t v) { return int(std::min<uint64_t>(v, uint64_t(INT_MAX))); }

QString keywordOf(videoFormat_t f)
{
    const std::string_view k = kavri::layoutInfo(f).keyword;
    return QString::fromLatin1(k.data(), qsizetype(k.size()));
}

// The layouts a y4m stream holds.
constexpr videoFormat_t kY4mLayouts[] = {YUV_p420, YUV_p422, YUV_p444, BW};

} // namespace

ExportFramesDlg::ExportFramesDlg(const VideoProps &props, uint64_t shownFrame, QWidget *parent)
    : QDialog(parent), m_props(props)
{
    setWindowTitle(QStringLiteral("Export Frames"));
    const int lastFrame = spinValue(props.frameCount > 0 ? props.frameCount - 1 : 0);
    const int shown = std::min(spinValue(shownFrame), lastFrame);
    auto *form = new QFormLayout;
    m_first = new QSpinBox(this);
    m_first->setObjectName(QStringLiteral("firstFrame"));
    m_first->setRange(0, lastFrame);
    m_first->setValue(shown);
    m_last = new QSpinBox(this);
    m_last->setObjectName(QStringLiteral("lastFrame"));
    m_last->setRange(0, lastFrame);
    m_last->setValue(shown);
    form->addRow(QStringLiteral("First frame:"), m_first);
    form->addRow(QStringLiteral("Last frame:"), m_last);
    m_kind = new QComboBox(this);
    m_kind->setObjectName(QStringLiteral("kind"));
    m_kind->addItem(QStringLiteral("PNG pictures, as shown"), int(ExportKind::ShownPng));
    m_kind->addItem(QStringLiteral("PNG pictures, 16-bit stored samples"), int(ExportKind::NativePng));
    m_kind->addItem(QStringLiteral("Raw file, in a layout"), int(ExportKind::Raw));
    m_kind->addItem(QStringLiteral("y4m file"), int(ExportKind::Y4m));
    form->addRow(QStringLiteral("Format:"), m_kind);
    m_layout = new QComboBox(this);
    m_layout->setObjectName(QStringLiteral("layout"));
    form->addRow(QStringLiteral("Layout:"), m_layout);
    m_bits = new QSpinBox(this);
    m_bits->setObjectName(QStringLiteral("bits"));
    m_bits->setRange(0, 16);
    m_bits->setSpecialValueText(QStringLiteral("as the layout or the file"));
    form->addRow(QStringLiteral("Bits:"), m_bits);
    m_output = new QLineEdit(this);
    m_output->setObjectName(QStringLiteral("output"));
    m_choose = new QPushButton(QStringLiteral("..."), this);
    m_choose->setObjectName(QStringLiteral("chooseButton"));
    auto *outRow = new QHBoxLayout;
    outRow->addWidget(m_output, 1);
    outRow->addWidget(m_choose);
    form->addRow(QStringLiteral("Output:"), outRow);
    auto *hint = new QLabel(QStringLiteral("Pictures take one file a frame: put a frame number such as %05d in "
                                           "the name. Raw and y4m write one file."),
                            this);
    hint->setWordWrap(true);

    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("progressBar"));
    m_progress->setRange(0, 100);
    m_progress->setValue(0);
    m_ok = new QPushButton(QStringLiteral("Export"), this);
    m_ok->setObjectName(QStringLiteral("okButton"));
    m_ok->setDefault(true);
    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setObjectName(QStringLiteral("cancelButton"));
    m_cancel->setAutoDefault(false);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_progress, 1);
    buttons->addWidget(m_ok);
    buttons->addWidget(m_cancel);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(hint);
    layout->addLayout(buttons);
    layout->addWidget(m_status);

    connect(m_kind, &QComboBox::currentIndexChanged, this, &ExportFramesDlg::oon_kind_changed);
    connect(m_layout, &QComboBox::currentIndexChanged, this, [this] {
        if (m_output->text() == m_proposed) {
            m_proposed = proposedOutput(m_props, kind(), videoFormat_t(m_layout->currentData().toInt()));
            m_output->setText(m_proposed);
        }
    });
    connect(m_first, &QSpinBox::valueChanged, this, [this](int v) {
        if (m_last->value() < v) m_last->setValue(v);
    });
    connect(m_last, &QSpinBox::valueChanged, this, [this](int v) {
        if (m_first->value() > v) m_first->setValue(v);
    });
    connect(m_choose, &QPushButton::clicked, this, &ExportFramesDlg::oon_choose_file);
    connect(m_ok, &QPushButton::clicked, this, &ExportFramesDlg::accept);
    connect(m_cancel, &QPushButton::clicked, this, &ExportFramesDlg::reject);
    oon_kind_changed();
}

ExportFramesDlg::~ExportFramesDlg()
{
    // The job checks the flag between frames, so the wait is one frame's work at most; it must end before
    // the dialog it reports to goes.
    if (m_thread) {
        m_stop.store(true);
        m_thread->wait();
        delete m_thread;
    }
}

QString ExportFramesDlg::proposedOutput(const VideoProps &props, ExportKind kind, videoFormat_t layout)
{
    const QFileInfo fi(props.fileName);
    const QDir folder = fi.absoluteDir();
    const QString base = fi.completeBaseName().isEmpty() ? QStringLiteral("frames") : fi.completeBaseName();
    switch (kind) {
    case ExportKind::ShownPng: return folder.filePath(base + QStringLiteral("_%05d.png"));
    case ExportKind::NativePng: return folder.filePath(base + QStringLiteral("_stored_%05d.png"));
    case ExportKind::Y4m: return folder.filePath(base + QStringLiteral(".y4m"));
    case ExportKind::Raw: break;
    }
    if (!kavri::isValidFormat(layout)) return folder.filePath(base + QStringLiteral(".yuv"));
    const std::string_view suffix = kavri::layoutInfo(layout).suffix;
    return folder.filePath(base + QLatin1Char('_') + keywordOf(layout) +
                           QString::fromLatin1(suffix.data(), qsizetype(suffix.size())));
}

ExportKind ExportFramesDlg::kind() const { return ExportKind(m_kind->currentData().toInt()); }

void ExportFramesDlg::oon_kind_changed()
{
    const ExportKind k = kind();
    const bool converted = k == ExportKind::Raw || k == ExportKind::Y4m;
    {
        const QSignalBlocker block(m_layout);
        m_layout->clear();
        if (k == ExportKind::Y4m) {
            for (videoFormat_t f : kY4mLayouts) m_layout->addItem(keywordOf(f), int(f));
        } else if (k == ExportKind::Raw) {
            for (const kavri::LayoutInfo &info : kavri::kLayouts)
                m_layout->addItem(keywordOf(info.value), int(info.value));
        }
        const int own = m_layout->findData(int(m_props.format));
        m_layout->setCurrentIndex(own >= 0 ? own : 0);
    }
    m_layout->setEnabled(converted);
    m_bits->setEnabled(converted);
    const QString next = proposedOutput(m_props, k, videoFormat_t(m_layout->currentData().toInt()));
    if (m_output->text().isEmpty() || m_output->text() == m_proposed) m_output->setText(next);
    m_proposed = next;
}

void ExportFramesDlg::oon_choose_file()
{
    const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Export Frames"), m_output->text());
    if (!path.isEmpty()) m_output->setText(path);
}

ExportJob ExportFramesDlg::job() const
{
    ExportJob j;
    j.source = m_props;
    j.kind = kind();
    j.output = m_output->text();
    j.first = uint64_t(m_first->value());
    j.last = uint64_t(m_last->value());
    if (j.kind == ExportKind::Raw || j.kind == ExportKind::Y4m) {
        j.layout = videoFormat_t(m_layout->currentData().toInt());
        j.bits = m_bits->value();
    }
    return j;
}

QString ExportFramesDlg::statusText() const { return m_status->text(); }

void ExportFramesDlg::setStatus(const QString &text) { m_status->setText(text); }

void ExportFramesDlg::setControlsEnabled(bool on)
{
    for (QWidget *w :
         {static_cast<QWidget *>(m_first), static_cast<QWidget *>(m_last), static_cast<QWidget *>(m_kind),
          static_cast<QWidget *>(m_output), static_cast<QWidget *>(m_choose), static_cast<QWidget *>(m_ok)})
        w->setEnabled(on);
    const bool converted = kind() == ExportKind::Raw || kind() == ExportKind::Y4m;
    m_layout->setEnabled(on && converted);
    m_bits->setEnabled(on && converted);
}

void ExportFramesDlg::accept()
{
    if (isRunning()) return;
    const ExportJob j = job();
    // Everything that can be checked is checked before the first byte is written; the reason stays in
    // the dialog, which waits for another try.
    if (const QString why = kavri::tools::checkExport(j); !why.isEmpty()) {
        setStatus(why);
        return;
    }
    m_stop.store(false);
    m_result = {};
    m_progress->setValue(0);
    setStatus(QString());
    setControlsEnabled(false);
    m_state = State::Running;
    auto hook = m_hook;
    m_thread = QThread::create([this, j, hook] {
        m_result = kavri::tools::exportFrames(
            j,
            [this, hook](int percent) {
                if (hook) hook(percent);
                QMetaObject::invokeMethod(
                    this, [this, percent] { m_progress->setValue(percent); }, Qt::QueuedConnection);
            },
            &m_stop);
    });
    connect(m_thread, &QThread::finished, this, &ExportFramesDlg::oon_finished);
    m_thread->start();
}

void ExportFramesDlg::oon_finished()
{
    if (!m_thread) return;
    m_thread->wait();
    m_thread->deleteLater();
    m_thread = nullptr;
    const bool cancelling = m_state == State::Cancelling;
    m_state = State::Idle;
    setControlsEnabled(true);
    m_cancel->setEnabled(true);
    if (m_result.ok) {
        m_progress->setValue(100);
        const ExportJob j = job();
        const QString where = j.kind == ExportKind::Raw || j.kind == ExportKind::Y4m
                                  ? QDir::toNativeSeparators(j.output)
                                  : QDir::toNativeSeparators(kavri::tools::frameFileName(j.output, j.first)) +
                                        (j.last > j.first ? QStringLiteral(" ...") : QString());
        setStatus(QStringLiteral("Wrote %1 frame%2 to %3.")
                      .arg(m_result.framesWritten)
                      .arg(m_result.framesWritten == 1 ? "" : "s")
                      .arg(where));
        QDialog::accept();
        return;
    }
    m_progress->setValue(0);
    setStatus(m_result.error);
    if (cancelling || m_result.cancelled) QDialog::reject();
}

void ExportFramesDlg::reject()
{
    if (!isRunning()) {
        QDialog::reject();
        return;
    }
    // The dialog stays until the job has stopped and removed what it wrote.
    m_stop.store(true);
    m_state = State::Cancelling;
    m_cancel->setEnabled(false);
    setStatus(QStringLiteral("Cancelling ..."));
}
