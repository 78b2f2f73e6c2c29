#include "ui/KavriFormatDialog.h"

#include "formats/FormatNames.h"
#include "formats/FrameSize.h"
#include "formats/SizeGuess.h"

#include "ui/ColourTab.h"
#include "ui/DialogWidgets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSize>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <limits>

namespace {

using kavri::ui::checkBox;

constexpr int kMaxTextNumber = 99999;
constexpr int kContainer8 = 0;
constexpr int kContainer16 = 1;

QLineEdit *numberField(const char *name, QWidget *parent)
{
    auto *le = new QLineEdit(parent);
    le->setObjectName(QLatin1String(name));
    le->setValidator(new QIntValidator(0, kMaxTextNumber, le));
    le->setMaximumWidth(80);
    return le;
}

} // namespace

const QList<KavriFormatDialog::res_sizes> &KavriFormatDialog::presets()
{
    // The sizes themselves live with the engine, which proposes them when it guesses a file's size.
    static const QList<res_sizes> list = [] {
        QList<res_sizes> l{{QStringLiteral("(Keep as is)"), -1, -1}};
        for (const kavri::SizePreset &p : kavri::kSizePresets)
            l.append({QString::fromLatin1(p.name), p.width, p.height});
        return l;
    }();
    return list;
}

KavriFormatDialog::KavriFormatDialog(VideoProps &props, QWidget *parent) : QDialog(parent), m_props(props)
{
    qRegisterMetaType<res_sizes>("res_sizes");
    setObjectName(QStringLiteral("FormatDialogClass"));
    setWindowTitle(QStringLiteral("Select Format"));

    // Frame size.
    auto *size = new QGroupBox(QStringLiteral("Frame Size"), this);
    size->setObjectName(QStringLiteral("groupBoxSize"));
    m_resolutions = new QComboBox(size);
    m_resolutions->setObjectName(QStringLiteral("comboResolutions"));
    const bool sizeKnown = props.width > 0 && props.height > 0;
    m_resolutions->addItem(sizeKnown ? QStringLiteral("(Keep as is)") : QStringLiteral("Select, please"),
                           QVariant::fromValue(presets().first()));
    for (qsizetype i = 1; i < presets().size(); ++i) {
        const res_sizes &r = presets()[i];
        m_resolutions->addItem(QStringLiteral("%1\t( %2 x %3 )").arg(r.name).arg(r.width).arg(r.height),
                               QVariant::fromValue(r));
    }
    m_width = numberField("le_width", size);
    m_height = numberField("le_height", size);
    m_anamorph = checkBox("chk_anamorph", QStringLiteral("anamorphic"), props.anamorphic, size);
    auto *lbResolution = new QLabel(QStringLiteral("Resolution"), size);
    lbResolution->setObjectName(QStringLiteral("lb_resolution"));
    auto *lbSize = new QLabel(QStringLiteral("Size"), size);
    lbSize->setObjectName(QStringLiteral("lb_size"));
    auto *sizeRow = new QHBoxLayout;
    sizeRow->addWidget(m_width);
    sizeRow->addWidget(new QLabel(QStringLiteral("x"), size));
    sizeRow->addWidget(m_height);
    sizeRow->addSpacing(12);
    sizeRow->addWidget(m_anamorph);
    sizeRow->addStretch(1);
    auto *sizeForm = new QFormLayout(size);
    sizeForm->addRow(lbResolution, m_resolutions);
    sizeForm->addRow(lbSize, sizeRow);
    lbResolution->setBuddy(m_resolutions);
    lbSize->setBuddy(m_width);

    // What the file's size says: the sizes that fit it, and how the typed one fits.
    m_fileSize = kavri::knownFileSize(props.fileName);
    // Read once: the hints come from the start of the file and its side file, which typing does not change.
    if (m_fileSize) m_hints = kavri::guessHintsFor(props.fileName);
    m_guesses = new QComboBox(size);
    m_guesses->setObjectName(QStringLiteral("comboGuesses"));
    auto *lbGuesses = new QLabel(QStringLiteral("Fits the File"), size);
    lbGuesses->setObjectName(QStringLiteral("lb_guesses"));
    lbGuesses->setBuddy(m_guesses);
    m_fileSizeText = new QLabel(size);
    m_fileSizeText->setObjectName(QStringLiteral("lbl_fileSize"));
    m_frameFit = new QLabel(size);
    m_frameFit->setObjectName(QStringLiteral("lbl_frameFit"));
    m_fileSizeText->setText(m_fileSize ? QStringLiteral("%1 bytes").arg(*m_fileSize) : QStringLiteral("size unknown"));
    auto *fileRow = new QHBoxLayout;
    fileRow->addWidget(m_fileSizeText);
    fileRow->addSpacing(12);
    fileRow->addWidget(m_frameFit);
    fileRow->addStretch(1);
    sizeForm->addRow(lbGuesses, m_guesses);
    sizeForm->addRow(QStringLiteral("File"), fileRow);

    // Frame rate.
    auto *rate = new QGroupBox(QStringLiteral("Frame Rate"), this);
    rate->setObjectName(QStringLiteral("groupBoxRate"));
    m_rate = new QDoubleSpinBox(rate);
    m_rate->setObjectName(QStringLiteral("spin_rate"));
    m_rate->setRange(0.0, 100.0);
    m_rate->setDecimals(3);
    m_rate->setValue(25.0);
    auto *rateForm = new QFormLayout(rate);
    rateForm->addRow(QStringLiteral("Frames / Second"), m_rate);

    // Layout and sample encoding.
    m_tabs = new QTabWidget(this);
    auto *video = new QWidget(m_tabs);
    video->setObjectName(QStringLiteral("tab_videoformat"));
    m_format = new QComboBox(video);
    m_format->setObjectName(QStringLiteral("cb_format"));
    for (int v = 1; v <= kavri::kLayoutCount; ++v) m_format->addItem(kavri::displayName(v));
    m_flipped = checkBox("chk_vertically_flipped", QStringLiteral("Vertically Flipped"), props.flipped, video);
    m_swap = checkBox("chk_swap", QStringLiteral("Swap UV"), props.swapUV, video);
    m_bits = new QSpinBox(video);
    m_bits->setObjectName(QStringLiteral("spin_bits"));
    m_bits->setRange(1, 16);
    m_bits->setValue(8);
    m_bits->setMaximumWidth(80);
    auto *lbBits = new QLabel(QStringLiteral("Bit Depth (Value)"), video);
    lbBits->setObjectName(QStringLiteral("lb_bits"));
    lbBits->setBuddy(m_bits);
    auto *videoForm = new QFormLayout(video);
    videoForm->addRow(m_format);
    auto *flags = new QHBoxLayout;
    flags->addWidget(m_flipped);
    flags->addWidget(m_swap);
    flags->addStretch(1);
    videoForm->addRow(flags);
    videoForm->addRow(lbBits, m_bits);

    auto *experts = new QWidget(m_tabs);
    experts->setObjectName(QStringLiteral("tab_experts"));
    m_endian = checkBox("chk_endian", QStringLiteral("Toggle Endianness"), props.toggleEndianness, experts);
    m_signed = checkBox("chk_signed", QStringLiteral("Signed Values"), props.signedValues, experts);
    m_container = new QComboBox(experts);
    m_container->setObjectName(QStringLiteral("cb_container"));
    m_container->addItems({QStringLiteral("8bit"), QStringLiteral("16bit")});
    m_headerBytes = numberField("le_headerBytes", experts);
    m_headerBytes->setPlaceholderText(QStringLiteral("0 bytes"));
    m_container->setMaximumWidth(100);
    auto *expertForm = new QFormLayout(experts);
    auto *expertFlags = new QHBoxLayout;
    expertFlags->addWidget(m_endian);
    expertFlags->addWidget(m_signed);
    expertFlags->addStretch(1);
    expertForm->addRow(expertFlags);
    expertForm->addRow(QStringLiteral("Bit Depth (Container)"), m_container);
    expertForm->addRow(QStringLiteral("Header Bytes"), m_headerBytes);
    // Padded buffers (GPU dumps): a row stride and a start for each plane, in bytes.
    std::array<uint64_t, 4> strides{};
    for (size_t i = 0; i < 4; ++i) strides[i] = props.planeStride[i];
    m_strides = new QLineEdit(kavri::planeBytesText(strides), experts);
    m_strides->setObjectName(QStringLiteral("le_strides"));
    m_strides->setPlaceholderText(QStringLiteral("packed rows"));
    m_strides->setToolTip(QStringLiteral("Row stride of each plane in bytes, separated by commas"));
    m_planeOffsets = new QLineEdit(kavri::planeBytesText(props.planeOffset), experts);
    m_planeOffsets->setObjectName(QStringLiteral("le_planeOffsets"));
    m_planeOffsets->setPlaceholderText(QStringLiteral("one after another"));
    m_planeOffsets->setToolTip(
        QStringLiteral("Start of each plane in bytes from the start of the frame, separated by commas"));
    expertForm->addRow(QStringLiteral("Plane Strides"), m_strides);
    expertForm->addRow(QStringLiteral("Plane Offsets"), m_planeOffsets);

    m_tabs->addTab(video, QStringLiteral("Video Format"));
    m_tabs->addTab(experts, QStringLiteral("Expert Settings"));
    m_colour = new kavri::ui::ColourTab(props.colour, m_tabs);
    m_tabs->addTab(m_colour, QStringLiteral("Colour"));
    m_tabs->setCurrentIndex(0);

    auto *apply = new QPushButton(QStringLiteral("Apply"), this);
    apply->setObjectName(QStringLiteral("applyButton"));
    auto *ok = new QPushButton(QStringLiteral("OK"), this);
    ok->setObjectName(QStringLiteral("okButton"));
    ok->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(apply);
    buttons->addWidget(ok);
    buttons->addWidget(cancel);

    auto *top = new QHBoxLayout;
    top->addWidget(size, 3);
    top->addWidget(rate, 1);
    m_problem = new QLabel(this);
    m_problem->setObjectName(QStringLiteral("lbl_problem"));
    m_problem->setWordWrap(true);
    m_problem->setStyleSheet(QStringLiteral("color: #b00000"));
    m_problem->hide();
    auto *main = new QVBoxLayout(this);
    main->addLayout(top);
    main->addWidget(m_tabs);
    main->addWidget(m_problem);
    main->addLayout(buttons);
    main->setSizeConstraint(QLayout::SetFixedSize);

    // Fill from the record before the signals are wired, so that filling triggers no adjustments of its own
    // beyond the ones applied explicitly below.
    m_width->setText(QString::number(props.width));
    m_height->setText(QString::number(props.height));
    if (props.frameRate >= 0.0) m_rate->setValue(props.frameRate);
    if (kavri::isValidFormat(props.format)) m_format->setCurrentIndex(props.format - 1);
    if (props.bitDepth >= 1) m_bits->setValue(props.bitDepth);
    m_container->setCurrentIndex(props.containerBits == 16 ? kContainer16 : kContainer8);
    m_headerBytes->setText(QString::number(props.headerBytes));

    connect(m_resolutions, &QComboBox::currentIndexChanged, this, &KavriFormatDialog::resolution_changed);
    connect(m_bits, &QSpinBox::valueChanged, this, &KavriFormatDialog::oon_bits_changed);
    connect(m_format, &QComboBox::currentIndexChanged, this, &KavriFormatDialog::oon_color_changed);
    connect(apply, &QPushButton::clicked, this, &KavriFormatDialog::oon_apply);
    connect(ok, &QPushButton::clicked, this, &KavriFormatDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &KavriFormatDialog::reject);
    oon_color_changed(m_format->currentIndex());

    // Connected after the adjustments above, so that the count is worked out from the settled controls.
    connect(m_width, &QLineEdit::textChanged, this, &KavriFormatDialog::updateFrameFit);
    connect(m_height, &QLineEdit::textChanged, this, &KavriFormatDialog::updateFrameFit);
    connect(m_strides, &QLineEdit::textChanged, this, &KavriFormatDialog::updateFrameFit);
    connect(m_planeOffsets, &QLineEdit::textChanged, this, &KavriFormatDialog::updateFrameFit);
    connect(m_format, &QComboBox::currentIndexChanged, this, &KavriFormatDialog::updateGuesses);
    connect(m_bits, &QSpinBox::valueChanged, this, &KavriFormatDialog::updateGuesses);
    connect(m_container, &QComboBox::currentIndexChanged, this, &KavriFormatDialog::updateGuesses);
    connect(m_headerBytes, &QLineEdit::textChanged, this, &KavriFormatDialog::updateGuesses);
    connect(m_guesses, &QComboBox::currentIndexChanged, this, &KavriFormatDialog::guess_chosen);
    // Choosing the entry already shown again (after typing over its size) fills the fields again.
    connect(m_guesses, &QComboBox::activated, this, &KavriFormatDialog::guess_chosen);
    updateGuesses();

    kavri::ui::chainTabOrder({m_resolutions, m_width, m_height, m_anamorph, m_guesses, m_rate, m_tabs, m_format,
                              m_flipped, m_swap, m_bits, m_endian, m_signed, m_container, m_headerBytes, apply, ok,
                              cancel});
    m_format->setFocus();
}

void KavriFormatDialog::setProblem(const QString &text)
{
    m_problem->setText(text);
    m_problem->setVisible(!text.isEmpty());
}

void KavriFormatDialog::resolution_changed(int index)
{
    if (index < 0) return;
    const res_sizes r = m_resolutions->itemData(index).value<res_sizes>();
    const bool keep = index == 0 || r.width < 0 || r.height < 0;
    m_width->setText(QString::number(keep ? m_props.width : r.width));
    m_height->setText(QString::number(keep ? m_props.height : r.height));
}

void KavriFormatDialog::oon_bits_changed(int bits)
{
    // Values above 8 bits only fit a 16-bit container; 8 bits or fewer may be stored in either.
    if (bits > 8) m_container->setCurrentIndex(kContainer16);
    m_container->setEnabled(bits <= 8 && m_format->currentIndex() + 1 != YUV_v210);
}

void KavriFormatDialog::oon_color_changed(int index)
{
    // v210 is by definition unsigned 10-bit in its own 32-bit words: depth, sign and container are fixed.
    const bool v210 = index + 1 == YUV_v210;
    if (v210) {
        m_bits->setValue(10);
        m_signed->setChecked(false);
    }
    m_bits->setEnabled(!v210);
    m_signed->setEnabled(!v210);
    m_endian->setEnabled(!v210);
    oon_bits_changed(m_bits->value());
}

void KavriFormatDialog::copyToRecord()
{
    m_props.headerBytes = m_headerBytes->text().toUInt();
    // Text that is not a list of byte counts leaves the record's strides and offsets as they were.
    std::array<uint64_t, 4> list{};
    if (kavri::parsePlaneBytes(m_strides->text(), uint64_t(std::numeric_limits<int32_t>::max()), list))
        for (size_t i = 0; i < 4; ++i) m_props.planeStride[i] = uint32_t(list[i]);
    if (kavri::parsePlaneBytes(m_planeOffsets->text(), uint64_t(1) << 40, list)) m_props.planeOffset = list;
    m_props.bitDepth = m_bits->value();
    m_props.containerBits = m_container->currentText() == QLatin1String("16bit") ? 16 : 8;
    m_props.toggleEndianness = m_endian->isChecked();
    m_props.signedValues = m_signed->isChecked();
    m_props.swapUV = m_swap->isChecked();
    m_props.flipped = m_flipped->isChecked();
    m_props.format = videoFormat_t(m_format->currentIndex() + 1);
    m_props.frameRate = m_rate->value();
    m_props.anamorphic = m_anamorph->isChecked();
    m_props.width = m_width->text().toInt();
    m_props.height = m_height->text().toInt();
    m_props.colour = m_colour->description();
}

void KavriFormatDialog::accept()
{
    copyToRecord();
    QDialog::accept();
    emit format_changed();
}

void KavriFormatDialog::oon_apply()
{
    copyToRecord();
    emit format_changed();
}

videoFormat_t KavriFormatDialog::chosenFormat() const
{
    // The list may carry each layout's value; without it, entry i is layout i + 1, as copyToRecord reads it.
    const QVariant value = m_format->currentData();
    if (value.isValid()) return videoFormat_t(value.toInt());
    return videoFormat_t(m_format->currentIndex() + 1);
}

int32_t KavriFormatDialog::chosenContainerBits() const
{
    return m_container->currentText() == QLatin1String("16bit") ? 16 : 8;
}

void KavriFormatDialog::updateFrameFit()
{
    if (!m_fileSize) {
        m_frameFit->clear();
        return;
    }
    // The frame as typed, strides and plane offsets included.
    VideoProps typed;
    typed.format = chosenFormat();
    typed.containerBits = chosenContainerBits();
    typed.width = m_width->text().toInt();
    typed.height = m_height->text().toInt();
    std::array<uint64_t, 4> list{};
    if (kavri::parsePlaneBytes(m_strides->text(), uint64_t(std::numeric_limits<int32_t>::max()), list))
        for (size_t i = 0; i < 4; ++i) typed.planeStride[i] = uint32_t(list[i]);
    if (kavri::parsePlaneBytes(m_planeOffsets->text(), uint64_t(1) << 40, list)) typed.planeOffset = list;
    const uint32_t bytes = kavri::recordFrameBytes(typed);
    if (bytes == 0) {
        m_frameFit->clear();
        return;
    }
    const kavri::FrameFit fit = kavri::fitFrames(*m_fileSize, m_headerBytes->text().toUInt(), bytes);
    QString text = QStringLiteral("%1 bytes a frame, %2 %3")
                       .arg(bytes)
                       .arg(fit.frames)
                       .arg(fit.frames == 1 ? QStringLiteral("frame") : QStringLiteral("frames"));
    if (fit.leftover > 0) text += QStringLiteral(" and %1 bytes over").arg(fit.leftover);
    m_frameFit->setText(text);
}

void KavriFormatDialog::updateGuesses()
{
    {
        // Refilling the list is not a choice of the user's.
        const QSignalBlocker quiet(m_guesses);
        m_guesses->clear();
        if (!m_fileSize) {
            m_guesses->addItem(QStringLiteral("(size unknown)"));
        } else {
            kavri::GuessRequest request;
            request.fileSize = *m_fileSize;
            request.headerBytes = m_headerBytes->text().toUInt();
            request.format = chosenFormat();
            request.bitDepth = m_bits->value();
            request.containerBits = chosenContainerBits();
            const auto candidates = kavri::guessSizes(request, m_hints);
            m_guesses->addItem(candidates.empty() ? QStringLiteral("(no known size fits)")
                                                  : QStringLiteral("(%1 fitting)").arg(candidates.size()));
            for (const kavri::SizeCandidate &c : candidates) {
                QString text = QStringLiteral("%1 x %2, %3 %4")
                                   .arg(c.width)
                                   .arg(c.height)
                                   .arg(c.frames)
                                   .arg(c.frames == 1 ? QStringLiteral("frame") : QStringLiteral("frames"));
                if (!c.name.isEmpty()) text = c.name + QStringLiteral("  ") + text;
                if (c.hint) text += QStringLiteral(", named by the file");
                m_guesses->addItem(text, QSize(c.width, c.height));
            }
        }
        m_guesses->setEnabled(m_guesses->count() > 1);
    }
    updateFrameFit();
}

void KavriFormatDialog::guess_chosen(int index)
{
    const QSize s = m_guesses->itemData(index).toSize();
    if (!s.isValid()) return;
    m_width->setText(QString::number(s.width()));
    m_height->setText(QString::number(s.height()));
}
