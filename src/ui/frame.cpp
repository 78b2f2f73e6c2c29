#include "ui/frame.h"

#include "formats/Settings.h"

#include <QCloseEvent>
#include <QLabel>
#include <QSettings>
#include <QStatusBar>

namespace {
const char *const kVersionText = "0.7.1 (Beta)";
}

frame::frame(const KavriStartupConfig *config, QWidget *parent) : QMainWindow(parent)
{
    if (config) m_config = *config;
    setObjectName(QStringLiteral("frameClass"));
    resize(640, 420);
    m_statusLabel = new QLabel(this);
    statusBar()->addWidget(m_statusLabel);
    QSettings s;
    restoreGeometry(kavri::settings::WindowPosition.read(s));
    showEmptyState();

    connect(this, &frame::do_load_on_startup, this, &frame::oon_load_on_startup, Qt::QueuedConnection);
    if (!m_config.file.isEmpty()) emit do_load_on_startup(m_config.file, m_config.diff, &m_config);
}

frame::~frame() = default;

QString frame::emptyTitle() { return QStringLiteral("kavri ") + QLatin1String(kVersionText); }

void frame::showEmptyState()
{
    setWindowTitle(emptyTitle());
    m_statusLabel->setText(QStringLiteral("[No File]"));
}

void frame::oon_load_on_startup(QString file, QString, KavriStartupConfig *)
{
    // Until the loader exists, show which file was asked for.
    setWindowTitle(file == QLatin1String("-") ? QStringLiteral("stdin") : file.section(QLatin1Char('/'), -1));
}

void frame::closeEvent(QCloseEvent *e)
{
    QSettings s;
    kavri::settings::WindowPosition.write(s, saveGeometry());
    e->accept();
    emit closed();
}
