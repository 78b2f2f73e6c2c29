// The player's main window: the draw panel, the lower panel with play/stop, slider and link icon, the
// menus and the status line. It is the shell: playback state, the link to a partner, full screen and the
// sequence tools are parts of their own, and the window wires them to its actions, its loader and its
// panel.
#pragma once

#include "formats/VideoProps.h"
#include "loader/KavriLoader.h"
#include "ui/LinkWidget.h"
#include "ui/MRUFList.h"
#include "view/KavriDrawPanel.h"
#include "view/PanelGeometry.h"

#include <QMainWindow>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>

class QAction;
class QActionGroup;
class QLabel;
class QMenu;
class QPushButton;
class QVBoxLayout;
class QHBoxLayout;
class KavriSlider;
class BrightnessPanel;
class FullScreenMode;
class LinkController;
class PlaybackController;
class QShortcut;
class SequenceTools;
namespace kavri::ui {
class MetricsDock;
class ScopesDock;
class CompareWorkspace;
} // namespace kavri::ui
struct frame_t;

class frame : public QMainWindow,
              public MRUFList::IMRUFListParent,
              public KavriDrawPanel::IDragHandler,
              public LinkWidget::IDragHandler {
    Q_OBJECT
public:
    explicit frame(const KavriStartupConfig *config, QWidget *parent = nullptr);
    ~frame() override;

    static QString emptyTitle();
    QAction *action(const char *objectName) const;
    KavriDrawPanel *drawPanel() const { return m_panel; }
    QString statusText() const;

    // MRUFList::IMRUFListParent
    void oon_mrufile(QString path) override;
    // KavriDrawPanel::IDragHandler
    void startFrameDrag() override;
    // LinkWidget::IDragHandler
    QByteArray linkDragPayload() override;
    void linkDragSucceeded() override;
    void linkDragFailed() override;
    bool isLinked() const;
    // Joins the link `name`: the initiator writes to the link's queue and reads its back channel.
    void startLink(const QString &name, bool initiator);
    void endLink();

    KavriLoader *loader() const { return m_loader; }
    uint64_t currentFrame() const;
    bool isPlaying() const;
    PlaybackController *playback() const { return m_playback; }
    // Enables and disables the actions from the window's state (no file: no playback, tools or format;
    // a stream: no extract, reverse, normalize, difference or go-to; no difference: no difference views)
    // and gives Esc to one owner at a time: the brightness panel, then full screen, then quit.
    void updateActions();

signals:
    // Requests to the loader (direct connections: they only post commands).
    void play();
    void pause();
    void stop();
    void reload();
    void seek(uint64_t frame, bool b_remote, bool b_dragged);

    void notify_load(QString file, QString diff, QStringList extra);
    void do_load_on_startup(QString file, QString diff, KavriStartupConfig *config);
    void do_load_later(QString file, QString diff, KavriStartupConfig *config);
    void draw_panel_force_size(QSize size);
    void update_slider(int value);
    void closed();
    // The status line's facts come back after a hint (queued from the loader thread).
    void clear_hint();

public slots:
    void oon_load_on_startup(QString file, QString diff, KavriStartupConfig *config);
    void oon_load_later(QString file, QString diff, KavriStartupConfig *config);

    // Called by the loader: oon_new_frame on its thread for every delivered frame, the other two queued.
    void oon_new_frame(frame_t *frame);
    // On the loader's thread too, when the pause after a frame of playback begins.
    void oon_frame_pause(const frame_t *frame, qint64 pauseNs);
    void oon_load_init();
    void oon_stopped();
    // The loader could not show a frame of the current record (its memory could not be had).
    void oon_cannot_show(const QString &reason);

    void oon_play_pause();
    void oon_stop();
    void oon_prev();
    void oon_next();
    void oon_first_frame();
    void oon_last_frame();
    void oon_ffw();
    void oon_fbw();
    void oon_slider_dragged(int value);
    void oon_goto();
    void oon_reload();
    void oon_next_channel();
    void oon_deinterlace(bool on);
    void oon_diff();
    void oon_next_diff_component();
    void oon_prev_diff_component();
    void oon_brightcon();
    void oon_bcg_reset();

    void oon_link();
    void oon_link_failed(const QString &reason);

    void oon_open();
    void oon_close();
    void oon_close_file();
    void oon_new_window();
    void oon_fullscreen(bool on);
    void oon_stay_on_top();
    void oon_metrics(bool on);
    void oon_scopes(bool on);
    void oon_maintain_ar();
    void oon_menu_size();
    void oon_magnify();
    void oon_magnifier_on();
    void oon_magnifier_off();
    void oon_movie_size_changed();
    void oon_about();
    void oon_online_help();
    void oon_save_frame();
    void oon_copy();
    void oon_timecode(bool on);
    void oon_loop(bool on);
    void oon_grid(bool on);

    // Sequence tools: format dialog, preferences, extract, reverse and file-name normalisation.
    void oon_format();
    void oon_settings();
    void oon_extract();
    void oon_reverse();
    void oon_normalize_filename();
    void oon_format_changed();
    // File > Export Frames: a range of frames as pictures, in another layout or as y4m.
    void oon_export_frames();

    // Comparing sequences in this window: every File, View > Compare and free-zoom action goes to the
    // workspace by its name.
    void oon_compare();

public:
    kavri::ui::CompareWorkspace *compareWorkspace() const { return m_compare; }

protected:
    void closeEvent(QCloseEvent *e) override;
    void dragEnterEvent(QDragEnterEvent *e) override;
    void dropEvent(QDropEvent *e) override;
    void dragLeaveEvent(QDragLeaveEvent *e) override;

private:
    void createActions();
    void createMenus();
    void showEmptyState();
    void loadFiles(const QStringList &files);
    // Opens `file` (with `diff` for a difference view) in this window; false when it cannot be read.
    bool openSequence(const QString &file, const QString &diff, const KavriStartupConfig *config);
    // Why the last openSequence was refused, as "\n" and the reason; empty when the file simply failed to open.
    QString m_openRefusal;
    void closeLoader();
    void wireParts();
    void updatePlayIcon();
    void updateStatus();
    void updateViewStatus();
    // Changes the loader's view (channel, tone, deinterlace, difference view) in one place.
    void changeView(const std::function<void(KavriLoader::View &)> &edit);
    // The brightness panel's sliders as the view of a newly opened file sees them.
    void applyToneOfPanel();
    void enteredFullScreen();
    void leftFullScreen();
    // Checks the step's item, fixes the panel to the step's size and so fits the window around it.
    void showAtZoomStep(kavri::view::ZoomStep step);
    std::optional<kavri::view::ZoomStep> checkedZoomStep();
    // The step of the open record (100 % unless one is remembered), or the largest that fits the screen.
    void fitToRecordZoom();
    // The largest panel the available screen leaves room for, with this window's menus, bars and frame.
    QSize roomForPanel() const;
    bool isFullScreenMode() const;

    // The compare workspace: made once, its actions enabled from its state, its files added with a
    // message for each that cannot join (src/ui/FrameCompare.cpp).
    void setUpCompare();
    void updateCompareActions();
    void compareFiles(const QStringList &files);
    QString compareStatus() const;

    KavriStartupConfig m_config;
    std::map<QString, QAction *> m_actions;
    QActionGroup *m_sizeGroup = nullptr;
    QWidget *m_central = nullptr;
    QVBoxLayout *m_verticalLayout = nullptr;
    KavriDrawPanel *m_panel = nullptr;
    QWidget *m_lowerPanel = nullptr;
    QHBoxLayout *m_horizontalLayout = nullptr;
    KavriSlider *m_slider = nullptr;
    QPushButton *m_playPause = nullptr;
    QPushButton *m_stop = nullptr;
    LinkWidget *m_link = nullptr;
    QLabel *m_statusLabel = nullptr;
    QLabel *m_viewLabel = nullptr; // bit depth, channel and difference view beside the status line
    MRUFList *m_recent = nullptr;
    QList<QKeySequence> m_fullscreenShortcuts;
    QString m_openFile; // empty when no file is open
    QString m_diffFile;
    KavriLoader *m_loader = nullptr;
    BrightnessPanel *m_bcg = nullptr;
    QShortcut *m_bcgEscape = nullptr;
    PlaybackController *m_playback = nullptr;
    LinkController *m_linkPart = nullptr;
    FullScreenMode *m_fullScreen = nullptr;
    std::unique_ptr<SequenceTools> m_tools;
    // Read on the loader thread while it builds the corner texts of a new frame.
    std::atomic<bool> m_deinterlaceOn{false};
    std::atomic<bool> m_diffOpen{false};
    // A stream was opened and has not delivered its first frame: the status bar says so until it does.
    std::atomic<bool> m_waitingForData{false};
    // Made on first use; read on the loader thread to hand it each frame shown.
    std::atomic<kavri::ui::MetricsDock *> m_metricsDock{nullptr};
    // The scopes panel, made on first use; read on the loader thread to offer it each frame shown.
    std::atomic<kavri::ui::ScopesDock *> m_scopesDock{nullptr};
    // Further sequences shown with the open one, and the free zoom; read on the loader thread.
    kavri::ui::CompareWorkspace *m_compare = nullptr;
    QMenu *m_compareMenu = nullptr; // in View only while two or more sequences are open
};
