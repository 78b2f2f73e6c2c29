#include "ui/KavriSettingsDlg.h"

#include "formats/Settings.h"
#include "kavri_config.h"

#include "ui/DialogWidgets.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QDialogButtonBox>
#include <QDoubleValidator>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QSpinBox>
#include <QUrl>
#include <QVBoxLayout>

namespace {

using kavri::ui::checkBox;

// CU sizes by item index.
constexpr int kCuSizes[] = {32, 64, 128};

} // namespace

KavriSettingsDlg::KavriSettingsDlg(QWidget *parent) : QDialog(parent)
{
    namespace ks = kavri::settings;
    setObjectName(QStringLiteral("settingsDialog"));
    setWindowTitle(QStringLiteral("Preferences"));
    QSettings s;

    auto *app = new QGroupBox(QStringLiteral("Application"), this);
    auto *update = new QPushButton(QStringLiteral("Check for update ..."), app);
    update->setObjectName(QStringLiteral("updateButton"));
    update->setToolTip(QStringLiteral("Opens the release page in your browser"));
    m_esc = checkBox("cb_esc", QStringLiteral("\"Esc\" exits kavri"), ks::EscapeExits.read(s), app);
    auto *appLayout = new QVBoxLayout(app);
    auto *updateRow = new QHBoxLayout;
    updateRow->addWidget(update);
    updateRow->addStretch(1);
    appLayout->addLayout(updateRow);
    appLayout->addWidget(m_esc);

    auto *display = new QGroupBox(QStringLiteral("Display"), this);
    m_anamorphic = new QLineEdit(display);
    m_anamorphic->setObjectName(QStringLiteral("le_anamorphic"));
    auto *validator = new QDoubleValidator(m_anamorphic);
    validator->setLocale(QLocale::c());
    m_anamorphic->setValidator(validator);
    m_anamorphic->setText(QString::number(ks::AnamorphicScale.read(s)));
    m_anamorphic->setMaximumWidth(80);
    m_hex = checkBox("cb_hex", QStringLiteral("Hexadecimal value display"), ks::HexValues.read(s), display);
    m_grid = new QSpinBox(display);
    m_grid->setObjectName(QStringLiteral("spinBox_gridSize"));
    m_grid->setRange(4, 128);
    m_grid->setValue(ks::Gridsize.read(s));
    m_grid->setSuffix(QStringLiteral(" pixel"));
    auto *displayForm = new QFormLayout(display);
    displayForm->addRow(QStringLiteral("Anamorphic factor"), m_anamorphic);
    displayForm->addRow(m_hex);
    displayForm->addRow(QStringLiteral("Grid size"), m_grid);

    auto *hevc = new QGroupBox(QStringLiteral("HEVC"), this);
    hevc->setObjectName(QStringLiteral("groupBox_hevc"));
    m_hevcDepth = new QSpinBox(hevc);
    m_hevcDepth->setObjectName(QStringLiteral("spinBox_hevc_depth"));
    m_hevcDepth->setRange(1, 6);
    m_hevcDepth->setValue(ks::HevcDepth.read(s));
    m_cuSize = new QComboBox(hevc);
    m_cuSize->setObjectName(QStringLiteral("comboBox_cu_cize"));
    for (int size : kCuSizes) m_cuSize->addItem(QString::number(size));
    // A stored size other than 32, 64 or 128 shows the default.
    const int stored = ks::HevcSize.read(s);
    int item = 1;
    for (int i = 0; i < 3; ++i)
        if (kCuSizes[i] == stored) item = i;
    m_cuSize->setCurrentIndex(item);
    m_hevc = checkBox("checkBox_hevc", QStringLiteral("Show HEVC CU# and PartIdx"), ks::Hevc.read(s), hevc);
    auto *hevcForm = new QFormLayout(hevc);
    hevcForm->addRow(QStringLiteral("Maximal Depth:"), m_hevcDepth);
    hevcForm->addRow(QStringLiteral("CU Size:"), m_cuSize);
    hevcForm->addRow(m_hevc);

    auto *metrics = new QGroupBox(QStringLiteral("Error Metrics"), this);
    m_diffNewWindow = checkBox("openDifferenceInNewWindowCheckBox", QStringLiteral("Open difference in new window"),
                               ks::DiffInNewWindow.read(s), metrics);
    m_link = checkBox("cb_link", QStringLiteral("Link difference player to this one"), ks::DiffInNewWindowLink.read(s),
                      metrics);
    auto *metricsLayout = new QVBoxLayout(metrics);
    metricsLayout->addWidget(m_diffNewWindow);
    metricsLayout->addWidget(m_link);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setObjectName(QStringLiteral("okButton"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cancelButton"));

    auto *grid = new QGridLayout;
    grid->addWidget(app, 0, 0);
    grid->addWidget(display, 1, 0);
    grid->addWidget(hevc, 0, 1);
    grid->addWidget(metrics, 1, 1);
    auto *main = new QVBoxLayout(this);
    main->addLayout(grid);
    main->addWidget(buttons);
    main->setSizeConstraint(QLayout::SetFixedSize);

    connect(update, &QPushButton::clicked, this, &KavriSettingsDlg::updateButton);
    connect(m_diffNewWindow, &QCheckBox::stateChanged, this, &KavriSettingsDlg::oon_opendiw);
    connect(buttons, &QDialogButtonBox::accepted, this, &KavriSettingsDlg::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &KavriSettingsDlg::reject);
    oon_opendiw(m_diffNewWindow->checkState());
    kavri::ui::chainTabOrder(
        {update, m_esc, m_anamorphic, m_hex, m_grid, m_hevcDepth, m_cuSize, m_hevc, m_diffNewWindow, m_link});
}

void KavriSettingsDlg::oon_opendiw(int state)
{
    // Linking only means something for a difference that opens in a player of its own; the choice is kept
    // while it does not apply.
    m_link->setEnabled(state != Qt::Unchecked);
}

void KavriSettingsDlg::updateButton()
{
    // The player never asks the network itself; the user's browser shows the release page.
    QDesktopServices::openUrl(QUrl(QStringLiteral(KAVRI_RELEASES_URL)));
}

template <typename T>
void KavriSettingsDlg::write(QSettings &s, const kavri::settings::Key<T> &key, const T &value)
{
    key.write(s, value);
    m_written << QLatin1String(key.name);
}

void KavriSettingsDlg::accept()
{
    namespace ks = kavri::settings;
    QSettings s;
    m_written.clear();
    // A factor that does not convert is stored as 0.
    bool ok = false;
    double factor = QLocale::c().toDouble(m_anamorphic->text().trimmed(), &ok);
    if (!ok) factor = 0.0;
    write(s, ks::HexValues, m_hex->isChecked());
    write(s, ks::EscapeExits, m_esc->isChecked());
    write(s, ks::AnamorphicScale, factor);
    write(s, ks::DiffInNewWindow, m_diffNewWindow->isChecked());
    write(s, ks::HevcDepth, m_hevcDepth->value());
    write(s, ks::HevcSize, int(kCuSizes[std::clamp(m_cuSize->currentIndex(), 0, 2)]));
    write(s, ks::Hevc, m_hevc->isChecked());
    write(s, ks::Gridsize, m_grid->value());
    write(s, ks::DiffInNewWindowLink, m_link->isChecked());
    s.sync();
    QDialog::accept();
}
