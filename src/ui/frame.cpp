#include "ui/frame.h"

#include "formats/RememberedFormats.h"
#include "formats/Settings.h"
#include "formats/Validation.h"
#include "kavri_config.h"
#include "link/KavriLink.h"
#include "loader/KavriLoader.h"
#include "ui/ActionTable.h"
#include "ui/BrightnessPanel.h"
#include "ui/ColourMenu.h"
#include "ui/CompareWorkspace.h"
#include "ui/ExportFramesDlg.h"
#include "ui/FullScreenMode.h"
#include "ui/KavriGotoDlg.h"
#include "ui/KavriSettingsDlg.h"
#include "ui/KavriSlider.h"
#include "ui/LinkController.h"
#include "ui/MetricsDock.h"
#include "ui/PlaybackController.h"
#include "ui/SaveFrame.h"
#include "ui/ScopesDock.h"
#include "ui/SequenceTools.h"
#include "ui/StatusText.h"
#include "view/OverlayText.h"
#include "view/PanelGeometry.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QClipboard>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QDir>
#include <QDrag>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QImageWriter>
#include <QLabel>
#include <QLayout>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QScreen>
#include <QSettings>
#include <QShortcut>
#include <QSlider>
#include <QStatusBar>
#include <QUrl>
#include <QVBoxLayout>
#include <climits>

using namespace kavri;

namespace {

// How long a hint stays in the status bar before the status line returns.
constexpr int kHintMs = 5000;
const char *const kVersionText = KAVRI_VERSION_STRING " (Beta)";
const char *const kOpenFilter =
    "Raw Video Files (*.yuv *.uyvy *.yuy2 *.nv12 *.v210 *.yv12 *.yv16 *.yv24 *.422 *.420 *.444 *.rgb *.bgr *.brg "
    "*.gbr *.grb *.rgba *.bgra *.brga *.gbra *.grba *.cif *.qcif *.vix *.bw *.raw *.gray);;YUV Files (*.yuv *.uyvy "
    "*.yuy2 *.nv12 *.v210 *.yv12 *.yv16 *.yv24 *.422 *.420 *.444);;RGB files (*.rgb *.bgr *.brg *.grb *.gbr *.rgba "
    "*.bgra *.brga *.grba *.gbra);;Luminance files (*.bw *.y *.gray);;All files (*.*)";
const char *const kSaveFilter = "PNG (*.png);;Bitmap (*.bmp);;JPEG (*.jpg *jpeg);;TIFF (*.tif *.tiff)";
const char *const kLinkMime = "kavriSynchPacket";

QString toQ(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

// A warning box titled "Kavri" with one OK button and the detail as informative text.
void warn(QWidget *parent, const QString &text, const QString &detail, bool windowModal = false)
{
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Kavri"), text, QMessageBox::Ok, parent);
    if (!detail.isEmpty()) box.setInformativeText(detail);
    if (windowModal) box.setWindowModality(Qt::WindowModal);
    box.exec();
}

} // namespace

namespace {
const std::pair<const char *, view::ZoomStep> kZoomActions[] = {{"action25", view::ZoomStep::Z25},
                                                                {"action33", view::ZoomStep::Z33},
                                                                {"action50", view::ZoomStep::Z50},
                                                                {"action100", view::ZoomStep::Z100},
                                                                {"action200", view::ZoomStep::Z200}};
} // namespace

frame::frame(const KavriStartupConfig *config, QWidget *parent) : QMainWindow(parent)
{
    if (config) m_config = *config;
    setObjectName(QStringLiteral("frameClass"));
    setWindowIcon(QIcon(QStringLiteral(":/frame/kavri.ico")));
    setAcceptDrops(true);

    m_central = new QWidget(this);
    m_central->setObjectName(QStringLiteral("centralWidget"));
    m_verticalLayout = new QVBoxLayout(m_central);
    m_verticalLayout->setObjectName(QStringLiteral("verticalLayout"));
    m_verticalLayout->setContentsMargins(0, 0, 0, 0);
    m_verticalLayout->setSpacing(0);
    m_panel = new KavriDrawPanel(m_central);
    m_panel->setObjectName(QStringLiteral("graphicsView"));
    m_panel->setDragHandler(this);
    m_verticalLayout->addWidget(m_panel, 1);

    m_lowerPanel = new QWidget(m_central);
    m_lowerPanel->setObjectName(QStringLiteral("lowerPanel"));
    m_horizontalLayout = new QHBoxLayout(m_lowerPanel);
    m_horizontalLayout->setObjectName(QStringLiteral("horizontalLayout"));
    m_horizontalLayout->setContentsMargins(8, 4, 8, 4);
    m_slider = new KavriSlider(m_lowerPanel);
    m_slider->setObjectName(QStringLiteral("horizontalSlider"));
    m_playPause = new QPushButton(m_lowerPanel);
    m_playPause->setObjectName(QStringLiteral("playpause_button"));
    m_stop = new QPushButton(m_lowerPanel);
    m_stop->setObjectName(QStringLiteral("stop_button"));
    for (QPushButton *b : {m_playPause, m_stop}) {
        b->setFlat(true);
        b->setIconSize(QSize(24, 24));
        b->setFixedSize(30, 30);
        b->setFocusPolicy(Qt::NoFocus);
    }
    m_link = new LinkWidget(m_lowerPanel);
    m_link->setDragHandler(this);
    m_horizontalLayout->addWidget(m_slider, 1);
    m_horizontalLayout->addWidget(m_playPause);
    m_horizontalLayout->addWidget(m_stop);
    m_horizontalLayout->addWidget(m_link);
    m_verticalLayout->addWidget(m_lowerPanel);
    setCentralWidget(m_central);

    menuBar()->setObjectName(QStringLiteral("menuBar"));
    statusBar()->setObjectName(QStringLiteral("statusBar"));
    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("lbl_status"));
    statusBar()->addWidget(m_statusLabel, 1);
    m_viewLabel = new QLabel(this);
    m_viewLabel->setObjectName(QStringLiteral("lbl_view"));
    statusBar()->addPermanentWidget(m_viewLabel);

    createActions();
    createMenus();

    connect(m_panel, &KavriDrawPanel::notify_size_changed, this, &frame::oon_movie_size_changed);
    // A new frame size: fit the window around the picture at 1:1 (the window system keeps it on screen).
    connect(m_panel, &KavriDrawPanel::size_changed, this, &frame::oon_movie_size_changed, Qt::QueuedConnection);
    connect(this, &frame::draw_panel_force_size, m_panel, &KavriDrawPanel::on_force_size);
    connect(m_panel, &KavriDrawPanel::magnifier_on, this, &frame::oon_magnifier_on);
    connect(m_panel, &KavriDrawPanel::magnifier_off, this, &frame::oon_magnifier_off);
    connect(this, &frame::update_slider, m_slider, &QSlider::setValue, Qt::QueuedConnection);
    connect(m_playPause, &QPushButton::clicked, this, &frame::oon_play_pause);
    connect(m_stop, &QPushButton::clicked, this, &frame::oon_stop);
    connect(m_slider, &QSlider::sliderMoved, this, &frame::oon_slider_dragged);
    connect(m_link, &LinkWidget::clicked, this, &frame::oon_link);
    connect(this, &frame::do_load_on_startup, this, &frame::oon_load_on_startup, Qt::QueuedConnection);
    connect(this, &frame::do_load_later, this, &frame::oon_load_later, Qt::QueuedConnection);
    connect(this, &frame::clear_hint, statusBar(), &QStatusBar::clearMessage, Qt::QueuedConnection);
    wireParts();
    setUpCompare();

    QSettings s;
    action("actionLoop")->setChecked(settings::Loop.read(s));
    action("actionTimecode")->setChecked(settings::Timestamps.read(s));
    action("actionMaintain_Aspect_Ratio")->setChecked(m_panel->maintainAspectRatio());
    updateActions();
    resize(720, 520);
    restoreGeometry(settings::WindowPosition.read(s));

    showEmptyState();
    if (!m_config.file.isEmpty()) emit do_load_on_startup(m_config.file, m_config.diff, &m_config);
}

frame::~frame()
{
    // The loader delivers to the parts until it is gone, and the link reports to the window's widgets:
    // both end while those are still here.
    closeLoader();
    endLink();
}

void frame::wireParts()
{
    m_playback = new PlaybackController(this);
    // The loader takes its requests from the window's signals.
    connect(m_playback, &PlaybackController::play, this, &frame::play);
    connect(m_playback, &PlaybackController::pause, this, &frame::pause);
    connect(m_playback, &PlaybackController::stop, this, &frame::stop);
    connect(m_playback, &PlaybackController::reload_file, this, &frame::reload);
    connect(m_playback, &PlaybackController::seek, this, &frame::seek);
    connect(m_playback, &PlaybackController::playing_changed, this, &frame::updatePlayIcon);
    connect(m_playback, &PlaybackController::hint, this,
            [this](const QString &text) { statusBar()->showMessage(text, 2 * kHintMs); });

    m_linkPart = new LinkController(this);
    connect(m_playback, &PlaybackController::to_partner, m_linkPart, &LinkController::send);
    connect(m_linkPart, &LinkController::remote_play, m_playback, &PlaybackController::remotePlay);
    connect(m_linkPart, &LinkController::remote_pause, m_playback, &PlaybackController::remotePause);
    connect(m_linkPart, &LinkController::remote_stop, m_playback, &PlaybackController::remoteStop);
    connect(m_linkPart, &LinkController::remote_reload, m_playback, &PlaybackController::remoteReload);
    connect(m_linkPart, &LinkController::remote_seek, m_playback, &PlaybackController::remoteSeek);
    connect(m_linkPart, &LinkController::failed, this, &frame::oon_link_failed);
    connect(m_linkPart, &LinkController::linked_changed, this, [this](bool linked) {
        m_link->setLinked(linked);
        m_playback->setLinked(linked);
    });

    m_fullScreen = new FullScreenMode(this, {menuBar(), statusBar(), m_lowerPanel}, this);
    connect(m_fullScreen, &FullScreenMode::entered, this, &frame::enteredFullScreen);
    connect(m_fullScreen, &FullScreenMode::left, this, &frame::leftFullScreen);

    m_tools = std::make_unique<SequenceTools>(this);
}

uint64_t frame::currentFrame() const { return m_playback->currentFrame(); }
bool frame::isPlaying() const { return m_playback->isPlaying(); }
bool frame::isFullScreenMode() const { return m_fullScreen->isOn(); }

QString frame::emptyTitle() { return QStringLiteral("kavri ") + QLatin1String(kVersionText); }

QAction *frame::action(const char *name) const
{
    const auto it = m_actions.find(QLatin1String(name));
    return it == m_actions.end() ? nullptr : it->second;
}

QString frame::statusText() const { return m_statusLabel->text(); }

void frame::createActions()
{
    for (const ui::ActionSpec &entry : ui::kActions) {
        auto *a = new QAction(toQ(entry.text), this);
        a->setObjectName(toQ(entry.name));
        if (!entry.shortcut.empty()) a->setShortcut(QKeySequence(toQ(entry.shortcut)));
        a->setCheckable(entry.checkable);
        if (entry.checkable) a->setChecked(entry.checked);
        if (!entry.statusTip.empty()) a->setStatusTip(toQ(entry.statusTip));
        if (!entry.whatsThis.empty()) a->setWhatsThis(toQ(entry.whatsThis));
        // Shortcuts work in full screen too, where the menu bar is hidden.
        addAction(a);
        m_actions[a->objectName()] = a;
    }
    // Each action drives the slot its table entry names.
    for (const ui::ActionSpec &entry : ui::kActions) {
        QAction *a = action(toQ(entry.name).toLatin1().constData());
        if (entry.slot.triggered) connect(a, &QAction::triggered, this, entry.slot.triggered);
        if (entry.slot.toggled) connect(a, &QAction::toggled, this, entry.slot.toggled);
        if (entry.slot.triggeredChecked) connect(a, &QAction::triggered, this, entry.slot.triggeredChecked);
    }
    m_sizeGroup = new QActionGroup(this);
    m_sizeGroup->setExclusionPolicy(QActionGroup::ExclusionPolicy::None);
    for (const char *n : {"action25", "action33", "action50", "action100", "action200"})
        m_sizeGroup->addAction(action(n));
    m_fullscreenShortcuts = action("actionFullscreen")->shortcuts();
}

void frame::createMenus()
{
    std::map<QString, QMenu *> menus;
    for (const ui::MenuSpec &entry : ui::kMenus) {
        auto *m = new QMenu(toQ(entry.title), this);
        m->setObjectName(toQ(entry.name));
        menus[m->objectName()] = m;
    }
    for (const ui::MenuSpec &entry : ui::kMenus) {
        QMenu *m = menus[toQ(entry.name)];
        for (std::string_view item : entry.items) {
            if (item.empty()) break;
            if (item == "-")
                m->addSeparator();
            else if (item.substr(0, 4) == "menu")
                m->addMenu(menus[toQ(item)]);
            else
                m->addAction(action(toQ(item).toLatin1().constData()));
        }
    }
    for (std::string_view name : ui::kMenuBar) menuBar()->addMenu(menus[toQ(name)]);
    // View > Colour: the reading of the shown sequence; a change is remembered and shown without
    // stopping playback.
    menus[QStringLiteral("menuView")]->addMenu(
        new ui::ColourMenu([this] { return m_loader ? m_loader->pendingProps().colour : ColourDescription{}; },
                           [this](const ColourDescription &c) {
                               if (!m_loader) return;
                               m_loader->setColour(c);
                               updateStatus();
                           },
                           this));
    m_recent = new MRUFList(this, menus[QStringLiteral("menuFile")], this);
}

void frame::updateActions()
{
    const bool open = m_loader != nullptr;
    const bool stream = open && m_loader->isStdin();
    const bool tools = !SequenceTools::toolInput(m_loader, m_openFile).isEmpty();
    for (const char *name : {"actionPlay", "actionStop", "actionPrev", "actionNext", "actionFirst_Frame",
                             "actionLast_Frame", "actionFast_Forward", "actionFast_Backward", "actionReload",
                             "actionFormat", "actionCloseFile", "actionCopy_Frame", "actionSave_Frame"})
        action(name)->setEnabled(open);
    // A stream has no frame to go to and cannot be cut, reversed, renamed or compared against a file.
    action("actionGo_to_frame")->setEnabled(open && !stream);
    action("actionDifference_against")->setEnabled(open && !stream);
    for (const char *name : {"actionExtract", "actionReverse", "actionNormalize_File_Name", "actionExport_Frames"})
        action(name)->setEnabled(tools);
    const bool difference = open && m_loader->hasDifference();
    action("actionNext_Diff_Component")->setEnabled(difference);
    action("actionPrevious_Diff_Component")->setEnabled(difference);
    m_playPause->setEnabled(open);
    m_stop->setEnabled(open);

    // Esc has one owner at a time: the open brightness panel, then full screen, then quit (when the
    // preference lets Esc quit).
    const bool panelOpen = m_bcg && action("actionBrightness_Contrast_etc")->isChecked();
    const bool full = m_fullScreen->isOn();
    if (m_bcgEscape) m_bcgEscape->setEnabled(panelOpen);
    QList<QKeySequence> fullKeys = m_fullscreenShortcuts;
    if (full && !panelOpen) fullKeys << QKeySequence(Qt::Key_Escape);
    action("actionFullscreen")->setShortcuts(fullKeys);
    QSettings s;
    const bool quitByEsc = !panelOpen && !full && settings::EscapeExits.read(s);
    action("actionQuit")->setShortcut(quitByEsc ? QKeySequence(Qt::Key_Escape) : QKeySequence());
    updateCompareActions();
}

void frame::showEmptyState()
{
    m_openFile.clear();
    setWindowTitle(emptyTitle());
    m_statusLabel->setText(QStringLiteral("[No File]"));
    if (m_viewLabel) m_viewLabel->clear();
    m_slider->setRange(0, 0);
    m_slider->setValue(0);
    m_playPause->setIcon(QIcon(QStringLiteral(":/frame/play.png")));
    m_stop->setIcon(QIcon(QStringLiteral(":/frame/stop.png")));
    updateActions();
}

void frame::oon_load_on_startup(QString file, QString diff, KavriStartupConfig *config)
{
    if (file.isEmpty()) {
        warn(this, QStringLiteral("Kavri"), QStringLiteral("empty filename given!"));
        return;
    }
    if (!openSequence(file, diff, config))
        warn(this, QStringLiteral("Kavri"), QStringLiteral("The file(s) could not be opened: ") + file + m_openRefusal);
}

void frame::oon_load_later(QString file, QString diff, KavriStartupConfig *config)
{
    oon_load_on_startup(file, diff, config);
}

void frame::loadFiles(const QStringList &files)
{
    // The first file opens here; every further one in a player of its own.
    QStringList failed;
    bool openedHere = false;
    for (const QString &f : files) {
        if (f.isEmpty()) {
            warn(this, QStringLiteral("Kavri"), QStringLiteral("empty filename given!"));
            continue;
        }
        if (openedHere) {
            emit notify_load(f, QString(), QStringList());
            continue;
        }
        if (openSequence(f, QString(), nullptr))
            openedHere = true;
        else
            failed << f + m_openRefusal;
    }
    if (!failed.isEmpty())
        warn(this, QStringLiteral("Kavri"), QStringLiteral("The file(s) could not be opened: ") + failed.join(", "));
}

bool frame::openSequence(const QString &file, const QString &diff, const KavriStartupConfig *config)
{
    // A file its own header describes as unreadable (a y4m file with a layout we do not read) says why,
    // on a line after the usual message.
    QString why;
    KavriLoader *l = KavriLoader::create(file, diff, KavriLoader::Options{}, &why);
    m_openRefusal = why.isEmpty() ? QString() : QStringLiteral("\n") + why;
    if (!l) return false;
    closeLoader();
    m_loader = l;
    m_openFile = file;
    m_diffFile = diff;
    VideoProps &p = l->pendingProps();
    bool changed = false;
    if (config) {
        if (config->width > 0 && config->height > 0) {
            p.width = config->width;
            p.height = config->height;
            changed = true;
        }
        if (config->rate > 0) {
            p.frameRate = config->rate;
            changed = true;
        }
        if (config->format != FMT_UNKNOWN) {
            p.format = config->format;
            changed = true;
        }
        if (config->colour.any()) {
            config->colour.applyTo(p.colour);
            changed = true;
        }
    }
    if (changed) l->validate();
    if (!isPlayable(l->validityMask())) m_tools->askForFormat(l, [this] { oon_format_changed(); });
    l->setLoop(action("actionLoop")->isChecked());
    {
        // The view the window shows: its deinterlace switch, and the brightness panel's sliders when the
        // panel is there (what the panel shows is what the new file gets).
        KavriLoader::View v = l->view();
        v.deinterlace = action("actionDeinterlace")->isChecked();
        if (m_bcg) {
            const bool second = l->hasDifference();
            moveToneSlider(v.picture, second, ToneSlider::Brightness, m_bcg->brightnessSlider()->value());
            moveToneSlider(v.picture, second, ToneSlider::Contrast, m_bcg->contrastSlider()->value());
            moveToneSlider(v.picture, second, ToneSlider::Gamma, m_bcg->gammaSlider()->value());
        }
        l->setView(v);
    }
    m_deinterlaceOn = action("actionDeinterlace")->isChecked();
    m_diffOpen = !diff.isEmpty();
    m_panel->setCornerTextsShown(action("actionTimecode")->isChecked(), !diff.isEmpty());
    // The picture is widened when the record says it is anamorphic.
    m_panel->setAnamorphic(l->pendingProps().anamorphic);
    m_playback->setLoader(l);
    l->attach(this, m_panel);
    m_compare->setPrimary(l);
    if (config) compareFiles(config->compare);
    setWindowTitle(ui::windowTitle(file, diff));
    if (file != QLatin1String("-")) setWindowFilePath(QFileInfo(file).canonicalFilePath());
    m_recent->add(file);
    if (config && !config->link.isEmpty() && !isLinked()) startLink(config->link, false);
    if (config && config->play)
        m_playback->startPlaying();
    else
        emit seek(0, false, false);
    updatePlayIcon();
    updateStatus();
    updateActions();
    return true;
}

void frame::closeLoader()
{
    if (!m_loader) return;
    KavriLoader *l = m_loader;
    m_compare->setPrimary(nullptr);
    m_loader = nullptr;
    m_playback->setLoader(nullptr);
    l->detach();
}

void frame::updateStatus()
{
    if (!m_loader) return;
    m_statusLabel->setText(ui::statusLine(m_loader->pendingProps()));
    updateViewStatus();
    // With sequences compared, the shortest sets the count.
    const uint64_t n = m_playback->frameCount();
    m_slider->setRange(0, n > 0 ? int(std::min<uint64_t>(n - 1, uint64_t(INT_MAX))) : 0);
}

void frame::updateViewStatus()
{
    if (!m_loader) {
        m_viewLabel->clear();
        return;
    }
    m_viewLabel->setText(ui::viewStatus(m_loader->pendingProps(), m_loader->channelSelection(),
                                        m_loader->hasDifference(), m_loader->diffView()) +
                         compareStatus());
}

void frame::updatePlayIcon()
{
    m_playPause->setIcon(QIcon(isPlaying() ? QStringLiteral(":/frame/pause.png") : QStringLiteral(":/frame/play.png")));
}

void frame::oon_frame_pause(const frame_t *f, qint64 pauseNs)
{
    if (kavri::ui::ScopesDock *scopes = m_scopesDock.load()) scopes->framePause(f, pauseNs);
}

void frame::oon_new_frame(frame_t *f)
{
    // Runs on the loader thread: only atomics, the panel's locked swap and queued signals.
    m_playback->frameShown(f->frameIndex);
    if (kavri::ui::MetricsDock *dock = m_metricsDock.load()) dock->frameShown(f);
    if (kavri::ui::ScopesDock *scopes = m_scopesDock.load()) scopes->frameShown(f);
    // The corner texts go into the panel's spare pair and appear together with the frame they describe.
    view::TimeTextInput t;
    t.frameIndex = f->frameIndex;
    t.deinterlaced = m_deinterlaceOn.load();
    bool lumaOnly = false;
    if (f->props) {
        t.frameRate = f->props->frameRate;
        if (isValidFormat(f->props->format)) t.formatName = toQ(layoutInfo(f->props->format).displayName).simplified();
        // A Bayer mosaic is compared as its one plane of samples, like luma.
        lumaOnly = isValidFormat(f->props->format) && layoutInfo(f->props->format).kind == LayoutKind::Luma;
    }
    QString diffText;
    if (m_diffOpen.load()) {
        view::DifferenceTextInput d;
        d.components = lumaOnly ? 1 : 3;
        for (int k = 0; k < 3; ++k) {
            d.psnr[k] = f->psnr[k];
            d.mse[k] = f->mse[k];
            d.firstColumn[k] = firstDifferenceColumn(f->firstDiff[k]);
            d.firstRow[k] = firstDifferenceRow(f->firstDiff[k]);
        }
        diffText = view::differenceText(d);
    }
    m_panel->setCornerTexts(view::timeText(t), diffText);
    m_panel->presentFrame(f->frameIndex);
    m_compare->primaryShown(*f);
    if (m_waitingForData.exchange(false)) emit clear_hint();
    if (!(f->flags & kFrameDragged)) emit update_slider(int(std::min<uint64_t>(f->frameIndex, uint64_t(INT_MAX))));
}

void frame::oon_load_init()
{
    // A reload has counted the file again on the loader thread; the record the window owns takes it up.
    if (m_loader) m_loader->adoptRecount();
    updateStatus();
    // An open metrics panel follows the pair (a new file, a changed format, a reload that grew it).
    if (kavri::ui::MetricsDock *dock = m_metricsDock.load(); dock && dock->isVisible() && m_loader)
        dock->setPair(m_loader->pendingProps());
    fitToRecordZoom();
    if (m_loader && m_loader->isStdin() && !m_loader->hasShownAFrame()) {
        m_waitingForData = true;
        statusBar()->showMessage(ui::waitingText(m_openFile));
    }
}

void frame::fitToRecordZoom()
{
    // A file opens at the step remembered for it (100 % when none), or the largest one that fits on the
    // screen; the record keeps what the user chose.
    if (!m_loader || isFullScreenMode() || isMaximized()) return;
    const VideoProps &p = m_loader->pendingProps();
    const QSize video = view::zoomVideoSize({p.width, p.height}, m_panel->anamorphic(), m_panel->anamorphicScale());
    if (video.isEmpty()) return;
    const view::ZoomStep wanted = view::stepOfFactor(p.scaleX).value_or(view::ZoomStep::Z100);
    showAtZoomStep(view::largestStepThatFits(wanted, video, roomForPanel()));
}

QSize frame::roomForPanel() const
{
    const QScreen *s = screen();
    if (!s) return {QWIDGETSIZE_MAX, QWIDGETSIZE_MAX};
    // What the window needs besides the panel: menus, controls, status bar, and the frame the window
    // manager draws around it.
    const QSize chrome = frameGeometry().size() - m_panel->size();
    return s->availableGeometry().size() - chrome;
}

void frame::showAtZoomStep(view::ZoomStep step)
{
    if (!m_loader) return;
    const VideoProps &p = m_loader->pendingProps();
    const QSize video = view::zoomVideoSize({p.width, p.height}, m_panel->anamorphic(), m_panel->anamorphicScale());
    if (video.isEmpty()) return;
    for (const auto &st : kZoomActions) action(st.first)->setChecked(st.second == step);
    m_compare->endFreeZoom(); // a zoom step shows the whole picture again
    // Narrower than the window's controls, the picture stands in the middle rather than at the left.
    m_verticalLayout->setAlignment(m_panel, Qt::AlignHCenter);
    emit draw_panel_force_size(view::zoomTarget(step, video));
}

void frame::oon_cannot_show(const QString &reason)
{
    m_playback->playbackEnded();
    warn(this, QStringLiteral("The frame cannot be shown."), reason);
}

void frame::oon_stopped() { m_playback->playbackEnded(); }
void frame::oon_play_pause() { m_playback->playPause(); }
void frame::oon_stop() { m_playback->stopPlayback(); }
void frame::oon_prev() { m_playback->step(-1); }
void frame::oon_next() { m_playback->step(1); }
void frame::oon_first_frame() { m_playback->seekTo(0); }
void frame::oon_last_frame() { m_playback->seekTo(int64_t(m_playback->frameCount()) - 1); }
void frame::oon_ffw() { m_playback->fastStep(1); }
void frame::oon_fbw() { m_playback->fastStep(-1); }
void frame::oon_slider_dragged(int value) { m_playback->seekPicked(uint64_t(std::max(value, 0)), true); }
void frame::oon_reload() { m_playback->reload(); }

void frame::oon_goto()
{
    if (!m_loader || m_loader->isStdin()) return;
    KavriGotoDlg dlg(currentFrame(), this);
    if (dlg.exec() == QDialog::Accepted) m_playback->seekPicked(uint64_t(dlg.value()), false);
}

void frame::changeView(const std::function<void(KavriLoader::View &)> &edit)
{
    if (!m_loader) return;
    KavriLoader::View v = m_loader->view();
    edit(v);
    m_loader->setView(v);
    updateViewStatus();
}

void frame::oon_next_channel()
{
    changeView([](KavriLoader::View &v) { v.picture.channel = (v.picture.channel + 1) % 4; });
}

void frame::oon_deinterlace(bool on)
{
    m_deinterlaceOn = on;
    changeView([on](KavriLoader::View &v) { v.deinterlace = on; });
}

void frame::oon_next_diff_component()
{
    if (m_loader && m_loader->hasDifference())
        changeView([](KavriLoader::View &v) { v.picture.view = (v.picture.view + 1) % 3; });
}

void frame::oon_prev_diff_component()
{
    if (m_loader && m_loader->hasDifference())
        changeView([](KavriLoader::View &v) { v.picture.view = (v.picture.view + 2) % 3; });
}

void frame::oon_diff()
{
    if (!m_loader || m_loader->isStdin()) return;
    QSettings s;
    QString dir = settings::LastUsedDiffDir.read(s);
    if (dir.isEmpty()) dir = QFileInfo(m_openFile).absolutePath();
    const QString suffix = QFileInfo(m_openFile).suffix();
    const QString filter = QStringLiteral("Same Type (*%1%2")
                               .arg(suffix.isEmpty() ? QString() : QStringLiteral("."),
                                    suffix == QLatin1String("vix") ? QString() : suffix) +
                           QStringLiteral(");;") + QString::fromLatin1(kOpenFilter);
    const QString other = QFileDialog::getOpenFileName(this, QStringLiteral("Difference against ..."), dir, filter);
    if (other.isEmpty()) return;
    settings::LastUsedDiffDir.write(s, QFileInfo(other).absolutePath());
    if (settings::DiffInNewWindow.read(s)) {
        QStringList extra;
        if (settings::DiffInNewWindowLink.read(s) && !isLinked()) {
            const QString name = kavri::link::newLinkName();
            startLink(name, true);
            if (isLinked()) extra << QStringLiteral("--link") << name;
        }
        emit notify_load(m_openFile, other, extra);
        return;
    }
    KavriStartupConfig keep;
    const VideoProps &p = m_loader->pendingProps();
    keep.width = p.width;
    keep.height = p.height;
    keep.rate = p.frameRate;
    keep.format = p.format;
    if (!openSequence(m_openFile, other, &keep))
        warn(this, QStringLiteral("Kavri"),
             QStringLiteral("The file(s) could not be opened: ") + other + m_openRefusal);
}

void frame::oon_brightcon()
{
    if (!m_bcg) {
        m_bcg = new BrightnessPanel(m_panel);
        const std::pair<QSlider *, ToneSlider> sliders[] = {{m_bcg->brightnessSlider(), ToneSlider::Brightness},
                                                            {m_bcg->contrastSlider(), ToneSlider::Contrast},
                                                            {m_bcg->gammaSlider(), ToneSlider::Gamma}};
        for (const auto &[slider, which] : sliders)
            connect(slider, &QSlider::valueChanged, this, [this, which = which](int value) {
                if (!m_loader) return;
                const bool second = m_loader->hasDifference();
                changeView([&](KavriLoader::View &v) { moveToneSlider(v.picture, second, which, value); });
            });
        connect(m_bcg, &BrightnessPanel::resetPressed, this, &frame::oon_bcg_reset);
        m_bcg->move(0, 0);
        // While the panel is open, Esc closes the panel rather than leaving full screen or the player.
        m_bcgEscape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
        connect(m_bcgEscape, &QShortcut::activated, this,
                [this] { action("actionBrightness_Contrast_etc")->trigger(); });
    }
    const bool show = action("actionBrightness_Contrast_etc")->isChecked();
    m_bcg->setVisible(show);
    if (show) m_bcg->raise();
    updateActions();
}

void frame::oon_bcg_reset()
{
    if (m_bcg) m_bcg->resetAll();
}

void frame::oon_mrufile(QString path) { loadFiles({path}); }

void frame::oon_open()
{
    QSettings s;
    const QStringList files = QFileDialog::getOpenFileNames(
        this, QStringLiteral("Open Video File"), settings::LastUsedDir.read(s), QString::fromLatin1(kOpenFilter));
    if (files.isEmpty()) return;
    settings::LastUsedDir.write(s, QFileInfo(files.first()).absolutePath());
    loadFiles(files);
}

void frame::oon_close() { close(); }

void frame::oon_close_file()
{
    closeLoader();
    m_diffOpen = false;
    m_openFile.clear();
    m_diffFile.clear();
    // The magnifier goes with the file: turned off while the panel still shows a frame (the start-up
    // picture refuses it), and its action unchecked either way.
    m_panel->setMagnifier(false, false);
    m_panel->resetToStartup();
    oon_magnifier_off();
    if (kavri::ui::MetricsDock *dock = m_metricsDock.load()) dock->setPair(VideoProps());
    if (kavri::ui::ScopesDock *scopes = m_scopesDock.load()) scopes->clear();
    showEmptyState();
}

void frame::oon_new_window() { emit notify_load(QString(), QString(), QStringList()); }

void frame::oon_fullscreen(bool)
{
    if (m_fullScreen->isOn())
        m_fullScreen->leave();
    else
        m_fullScreen->enter();
}

void frame::enteredFullScreen()
{
    // The panel fills the screen (the picture keeps its aspect ratio inside it) rather than staying at
    // the size of the zoom step.
    m_verticalLayout->setAlignment(m_panel, Qt::Alignment());
    emit draw_panel_force_size(QSize(-1, -1));
    m_central->setMouseTracking(true);
    action("actionFullscreen")->setChecked(true);
    updateActions();
}

void frame::leftFullScreen()
{
    m_central->setMouseTracking(false);
    action("actionFullscreen")->setChecked(false);
    updateActions();
    // Back at the zoom step that was chosen before.
    if (const std::optional<view::ZoomStep> step = checkedZoomStep()) showAtZoomStep(*step);
}

void frame::oon_metrics(bool on)
{
    kavri::ui::MetricsDock *dock = m_metricsDock.load();
    if (!dock && on) {
        dock = new kavri::ui::MetricsDock(this);
        addDockWidget(Qt::BottomDockWidgetArea, dock);
        connect(dock, &kavri::ui::MetricsDock::frameRequested, this,
                [this](quint64 n) { m_playback->seekPicked(n, false); });
        connect(dock, &kavri::ui::MetricsDock::closed, action("actionMetrics"),
                [this] { action("actionMetrics")->setChecked(false); });
        // The panel's background pass waits while the window plays.
        connect(m_playback, &PlaybackController::playing_changed, dock, &kavri::ui::MetricsDock::setPlaying);
        dock->setPlaying(m_playback->isPlaying());
        m_metricsDock.store(dock);
    }
    if (!dock) return;
    dock->setVisible(on);
    if (on) dock->setPair(m_loader ? m_loader->pendingProps() : VideoProps());
}

void frame::oon_scopes(bool on)
{
    kavri::ui::ScopesDock *dock = m_scopesDock.load();
    if (!dock && on) {
        dock = new kavri::ui::ScopesDock(this);
        addDockWidget(Qt::RightDockWidgetArea, dock);
        connect(dock, &kavri::ui::ScopesDock::closed, action("actionScopes"),
                [this] { action("actionScopes")->setChecked(false); });
        connect(m_playback, &PlaybackController::playing_changed, dock, &kavri::ui::ScopesDock::setPlaying);
        connect(dock, &kavri::ui::ScopesDock::frameWanted, this, [this] {
            if (m_loader && !isPlaying()) m_loader->setView(m_loader->view());
        });
        dock->setPlaying(isPlaying());
        m_scopesDock.store(dock);
    }
    if (!dock) return;
    dock->setVisible(on);
    // A paused frame is converted again (the view handed back unchanged), so the scopes show it at once.
    if (on && m_loader && !isPlaying()) m_loader->setView(m_loader->view());
}

void frame::oon_stay_on_top()
{
    const bool top = action("actionStay_on_top")->isChecked();
    if (bool(windowFlags() & Qt::WindowStaysOnTopHint) == top) return;
    const QRect g = geometry();
    setWindowFlag(Qt::WindowStaysOnTopHint, top);
    setGeometry(g);
    show();
}

void frame::oon_maintain_ar() { m_panel->setMaintainAspectRatio(action("actionMaintain_Aspect_Ratio")->isChecked()); }

void frame::oon_menu_size()
{
    if (!m_loader) return;
    const VideoProps &p = m_loader->pendingProps();
    const QSize video = view::zoomVideoSize({p.width, p.height}, m_panel->anamorphic(), m_panel->anamorphicScale());
    if (video.isEmpty()) return;
    QObject *src = sender();
    // Choosing 100 % also re-applies the stay-on-top state.
    if (src == action("action100")) oon_stay_on_top();
    for (const auto &st : kZoomActions) {
        if (src != action(st.first)) continue;
        showAtZoomStep(st.second);
        // The file reopens at its last zoom: the factor travels in its remembered record.
        const int32_t factor = view::zoomFactor(st.second);
        VideoProps &rec = m_loader->pendingProps();
        if (rec.scaleX != factor || rec.scaleY != factor) {
            rec.scaleX = rec.scaleY = factor;
            if (isPlayable(m_loader->validityMask()) && !m_loader->isStdin()) {
                VideoProps copy = rec;
                storeRemembered(copy);
            }
        }
        return;
    }
    const bool smaller = src == action("actionSmaller");
    if (isFullScreenMode()) {
        if (smaller) action("actionFullscreen")->trigger();
        return;
    }
    const std::optional<view::ZoomStep> step =
        smaller ? view::smallerStep(m_panel->size(), video) : view::largerStep(m_panel->size(), video);
    if (!step) return;
    for (const auto &st : kZoomActions)
        if (st.second == *step) action(st.first)->trigger();
}

std::optional<view::ZoomStep> frame::checkedZoomStep()
{
    for (const auto &st : kZoomActions)
        if (action(st.first)->isChecked()) return st.second;
    return std::nullopt;
}

void frame::oon_movie_size_changed()
{
    // Fit the window around the panel's wanted (or forced) size. The layout is brought up to date first:
    // left to the next turn of the event loop it would still hold the previous size, and a shrinking
    // window would lag one step behind, grey around the picture.
    if (isFullScreenMode() || isMaximized()) return;
    // Both layouts, inner first: each caches the hint of what it holds until its own turn would come.
    m_panel->updateGeometry();
    m_verticalLayout->invalidate();
    m_verticalLayout->activate();
    m_central->updateGeometry();
    if (QLayout *l = layout()) {
        l->invalidate();
        l->activate();
    }
    resize(sizeHint().expandedTo(minimumSizeHint()));
}

void frame::oon_magnify() { m_panel->setMagnifier(action("actionMagnifier")->isChecked(), true); }

void frame::oon_magnifier_on()
{
    action("actionMagnifier")->setChecked(true);
    // A hint, not a state: after a few seconds the status line with the sequence's facts comes back.
    statusBar()->showMessage(QStringLiteral("Magnifier: use 'Q','E','W','S' and mouse wheel!"), kHintMs);
}

void frame::oon_magnifier_off()
{
    action("actionMagnifier")->setChecked(false);
    statusBar()->clearMessage();
}

void frame::oon_about()
{
    QMessageBox box(this);
    box.setWindowTitle(QStringLiteral("About Kavri"));
    box.setIconPixmap(
        QPixmap(QStringLiteral(":/frame/kavri.png")).scaled(64, 64, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    box.setTextFormat(Qt::RichText);
    box.setText(QStringLiteral("Kavri raw video sequence player. Should play any raw data format with all the "
                               "frills.<br>Built with QT %1<br>Version %2, revision %3<br>Icons and pictures drawn "
                               "for Kavri by its developers.<br><a href=\"%4\">%4</a><br>(Check for updates under "
                               "\"Settings\".)")
                    .arg(QLatin1String(qVersion()), QLatin1String(kVersionText),
                         QStringLiteral("$Rev: 871 $").section(QLatin1Char(' '), 1, 1),
                         QLatin1String(KAVRI_HOMEPAGE_URL)));
    box.exec();
}

void frame::oon_online_help() { QDesktopServices::openUrl(QUrl(QLatin1String(KAVRI_HELP_URL))); }

void frame::oon_save_frame()
{
    const QImage img = m_panel->currentFrame();
    if (img.isNull()) return;
    QSettings s;
    QString dir = settings::LastUsedPictureDir.read(s);
    if (dir.isEmpty()) dir = settings::LastUsedDir.read(s);
    const QString chosen =
        QFileDialog::getSaveFileName(this, QStringLiteral("Save as ..."), dir, QString::fromLatin1(kSaveFilter));
    if (chosen.isEmpty()) return;
    settings::LastUsedPictureDir.write(s, QFileInfo(chosen).absolutePath());
    const QString name = ui::saveFrameFileName(chosen);
    if (!img.save(name, ui::saveFrameFormat(name).constData()))
        warn(this, QStringLiteral("Could not save frame"),
             QStringLiteral("Choose the fuck you want, but it must be a valid location."), true);
}

void frame::oon_copy()
{
    const QImage img = m_panel->currentFrame();
    if (!img.isNull()) QApplication::clipboard()->setImage(img);
}

void frame::oon_timecode(bool on)
{
    QSettings s;
    settings::Timestamps.write(s, on);
    m_panel->setCornerTextsShown(on, m_diffOpen.load());
    // A paused picture gets its texts from a fresh delivery of the same frame.
    if (m_loader && !isPlaying()) emit seek(currentFrame(), false, false);
}

void frame::oon_grid(bool on) { m_panel->setGrid(on); }

void frame::oon_loop(bool on)
{
    if (m_loader) m_loader->setLoop(on);
    QSettings s;
    settings::Loop.write(s, on);
}

void frame::startFrameDrag()
{
    const QImage img = m_panel->currentFrame();
    if (img.isNull()) return;
    const QString path =
        QDir::tempPath() + QLatin1Char('/') + ui::dragFrameFileName(currentFrame(), QCoreApplication::applicationPid());
    if (!img.save(path, "JPG")) return;
    auto *mime = new QMimeData;
    mime->setUrls({QUrl::fromLocalFile(path)});
    auto *drag = new QDrag(this);
    drag->setMimeData(mime);
    const QPixmap pm = QPixmap::fromImage(img.scaled(160, 120, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    drag->setPixmap(pm);
    drag->setHotSpot(QPoint(pm.width() / 2, pm.height() / 2));
    drag->exec(Qt::CopyAction);
}

void frame::dragEnterEvent(QDragEnterEvent *e)
{
    if (e->mimeData()->hasFormat(QLatin1String(kLinkMime))) {
        setStyleSheet(QStringLiteral("background-color: #7d93ca;"));
        e->acceptProposedAction();
        return;
    }
    if (e->mimeData()->hasUrls()) e->acceptProposedAction();
}

void frame::dragLeaveEvent(QDragLeaveEvent *e)
{
    setStyleSheet(QStringLiteral("background-color: auto;"));
    QMainWindow::dragLeaveEvent(e);
}

void frame::dropEvent(QDropEvent *e)
{
    if (e->mimeData()->hasFormat(QLatin1String(kLinkMime))) {
        setStyleSheet(QStringLiteral("background-color: auto;"));
        const QString name = QString::fromLatin1(e->mimeData()->data(QLatin1String(kLinkMime)));
        // A window links to one partner at a time, and never to itself.
        if (e->source() == m_link || !m_linkPart->acceptsDrop(name)) {
            e->ignore();
            return;
        }
        startLink(name, false);
        if (isLinked())
            e->acceptProposedAction();
        else
            e->ignore();
        return;
    }
    QStringList files;
    for (const QUrl &u : e->mimeData()->urls())
        if (u.isLocalFile()) files << u.toLocalFile();
    if (files.isEmpty()) return;
    e->acceptProposedAction();
    // With Shift held, the files join the open one in a compare workspace.
    if ((e->modifiers() & Qt::ShiftModifier) && m_loader) {
        compareFiles(files);
        return;
    }
    loadFiles(files);
}

void frame::closeEvent(QCloseEvent *e)
{
    if (isFullScreenMode()) m_fullScreen->leave();
    endLink();
    closeLoader();
    QSettings s;
    settings::WindowPosition.write(s, saveGeometry());
    e->accept();
    emit closed();
}

// ---- player link ----

bool frame::isLinked() const { return m_linkPart->isLinked(); }
void frame::startLink(const QString &name, bool initiator) { m_linkPart->start(name, initiator); }
void frame::endLink() { m_linkPart->end(); }
QByteArray frame::linkDragPayload() { return m_linkPart->dragPayload(); }
void frame::linkDragSucceeded() { m_linkPart->dragSucceeded(); }
void frame::linkDragFailed() { m_linkPart->dragFailed(); }

void frame::oon_link_failed(const QString &reason)
{
    warn(this, QStringLiteral("The players could not be linked."), reason);
}

void frame::oon_link()
{
    if (!isLinked()) return;
    if (QMessageBox::question(this, QStringLiteral("Synchronized Playing"),
                              QStringLiteral("Really unlink the players?")) == QMessageBox::Yes)
        endLink();
}

void frame::oon_format()
{
    m_tools->editFormat(m_loader, [this] { oon_format_changed(); });
}

void frame::oon_format_changed()
{
    if (!m_loader) return;
    // validate() remembers a playable record and has the loader rebuild its buffers for it, which ends
    // playback.
    if (m_loader->isRunning()) m_playback->endForSeek();
    const uint32_t mask = m_loader->validate();
    setWindowTitle(ui::windowTitle(m_openFile, m_diffFile));
    updateStatus();
    if (!isPlayable(mask) || !m_loader->isRunning()) return;
    const uint64_t n = m_loader->frameCount();
    emit seek(n > 0 ? std::min<uint64_t>(currentFrame(), n - 1) : 0, false, false);
}

void frame::oon_settings()
{
    KavriSettingsDlg dlg(this);
    if (dlg.exec() != QDialog::Accepted) return;
    updateActions();
    if (m_panel->anamorphic()) m_panel->setAnamorphic(true); // picks up a changed factor
    // The grid size and the coding-unit overlay take effect at once, not at the next start.
    QSettings st;
    m_panel->setGrid(m_panel->gridOn());
    m_panel->setHevcOverlay(settings::Hevc.read(st), settings::HevcDepth.read(st), settings::HevcSize.read(st));
    m_panel->update();
}

void frame::oon_extract() { m_tools->extract(m_loader, m_openFile, currentFrame()); }
void frame::oon_reverse() { m_tools->reverse(m_loader, m_openFile); }

void frame::oon_normalize_filename()
{
    const QString to = m_tools->normalize(m_loader, m_openFile);
    if (to.isEmpty()) return;
    const QString diff = m_diffFile;
    openSequence(to, diff, nullptr);
}

void frame::oon_export_frames()
{
    if (SequenceTools::toolInput(m_loader, m_openFile).isEmpty()) return;
    ExportFramesDlg dlg(m_loader->pendingProps(), currentFrame(), this);
    dlg.exec();
}
