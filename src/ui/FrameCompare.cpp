// The window's side of comparing sequences: making the workspace, its actions and their state, adding
// files, and the mode in the status line. Kept apart from frame.cpp, which only calls in here.
#include "formats/Settings.h"
#include "loader/KavriLoader.h"
#include "ui/ActionTable.h"
#include "ui/CompareWorkspace.h"
#include "ui/PlaybackController.h"
#include "ui/SequenceTools.h"
#include "ui/frame.h"

#include <QAction>
#include <QCursor>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QSettings>
#include <QStatusBar>

using namespace kavri;

namespace {
const char *const kCompareFilter = "Raw Video Files (*.yuv *.rgb *.bgr *.nv12 *.v210 *.y4m *.bw *.raw);;All files (*)";
} // namespace

void frame::setUpCompare()
{
    m_compare = new ui::CompareWorkspace(m_panel, m_playback, this);
    m_compare->setFormatAsker(
        [this](KavriLoader *l, std::function<void()> changed) { m_tools->askForFormat(l, changed); });
    m_panel->setCompositor(m_compare);
    m_compareMenu = new QMenu(QStringLiteral("Compare"), this);
    m_compareMenu->setObjectName(QStringLiteral("menuCompare"));
    for (std::string_view item : ui::kCompareMenu) {
        if (item == "-")
            m_compareMenu->addSeparator();
        else
            m_compareMenu->addAction(action(QByteArray(item.data(), qsizetype(item.size())).constData()));
    }
    connect(m_compare, &ui::CompareWorkspace::changed, this, [this] {
        updateStatus();
        updateCompareActions();
    });
}

void frame::updateCompareActions()
{
    if (!m_compare) return;
    const bool open = m_loader != nullptr;
    const int n = open ? m_compare->count() : 0;
    action("actionCompare_With")->setEnabled(open && !m_loader->isStdin() && n < kMaxCompared);
    action("actionCompare_Remove")->setEnabled(n >= 2);
    // The number keys belong to the workspace only while there is one to choose from.
    for (int i = 1; i <= kMaxCompared; ++i)
        action(QStringLiteral("actionCompare_Single_%1").arg(i).toLatin1().constData())->setEnabled(n >= 2 && i <= n);
    for (const char *name : {"actionCompare_Side_by_Side", "actionCompare_Wipe", "actionCompare_Wipe_Horizontal",
                             "actionCompare_Flicker", "actionCompare_Auto_Flicker", "actionCompare_Difference",
                             "actionCompare_Next_Pair", "actionCompare_Swap_Pair"})
        action(name)->setEnabled(n >= 2);
    for (const char *name : {"actionZoom_In", "actionZoom_Out"}) action(name)->setEnabled(open);
    action("actionZoom_Fit")->setEnabled(open && m_compare->freeZoomOn());
    if (n < 2) action("actionCompare_Auto_Flicker")->setChecked(false);
    // A window with one sequence keeps its menus as they always were.
    auto *viewMenu = findChild<QMenu *>(QStringLiteral("menuView"));
    const bool shown = viewMenu && viewMenu->actions().contains(m_compareMenu->menuAction());
    if (viewMenu && n >= 2 && !shown) viewMenu->addMenu(m_compareMenu);
    if (viewMenu && n < 2 && shown) viewMenu->removeAction(m_compareMenu->menuAction());
}

QString frame::compareStatus() const
{
    if (!m_compare) return {};
    QString s;
    for (const QString &part : {m_compare->modeText(), m_compare->zoomText()})
        if (!part.isEmpty()) s += QStringLiteral("  ") + part;
    return s;
}

void frame::compareFiles(const QStringList &files)
{
    QStringList problems;
    for (const QString &f : files) {
        const QString why = m_compare->add(f);
        if (!why.isEmpty()) problems << why;
    }
    if (problems.isEmpty()) return;
    statusBar()->showMessage(problems.join(QLatin1Char(' ')), 10000);
    // Not modal: a file that cannot join leaves the workspace as it is, and nothing waits for the answer.
    auto *box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Kavri"),
                                QStringLiteral("A file could not be compared."), QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("compareProblem"));
    box->setInformativeText(problems.join(QLatin1Char('\n')));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void frame::oon_compare()
{
    if (!m_compare || !m_loader) return;
    const QString name = sender() ? sender()->objectName() : QString();
    ui::CompareWorkspace &w = *m_compare;
    const QPoint cursor = m_panel->mapFromGlobal(QCursor::pos());
    const QPointF anchor = m_panel->rect().contains(cursor) ? QPointF(cursor) : QPointF(m_panel->rect().center());
    if (name == QLatin1String("actionCompare_With")) {
        QSettings s;
        QString dir = settings::LastUsedDiffDir.read(s);
        if (dir.isEmpty()) dir = QFileInfo(m_openFile).absolutePath();
        const QStringList chosen = QFileDialog::getOpenFileNames(this, QStringLiteral("Compare with ..."), dir,
                                                                 QString::fromLatin1(kCompareFilter));
        if (chosen.isEmpty()) return;
        settings::LastUsedDiffDir.write(s, QFileInfo(chosen.front()).absolutePath());
        compareFiles(chosen);
    } else if (name == QLatin1String("actionCompare_Remove")) {
        const QStringList f = w.files();
        QStringList items;
        for (int i = 1; i < f.size(); ++i) items << QStringLiteral("%1 %2").arg(i + 1).arg(QFileInfo(f[i]).fileName());
        bool ok = false;
        const QString item = QInputDialog::getItem(this, QStringLiteral("Remove Compared Sequence"),
                                                   QStringLiteral("Sequence:"), items, 0, false, &ok);
        if (ok) w.remove(int(items.indexOf(item)) + 1);
    } else if (name == QLatin1String("actionCompare_Side_by_Side")) {
        w.setMode(view::CompareMode::SideBySide);
    } else if (name.startsWith(QLatin1String("actionCompare_Single_"))) {
        w.showSingle(name.right(1).toInt() - 1);
    } else if (name == QLatin1String("actionCompare_Wipe") || name == QLatin1String("actionCompare_Wipe_Horizontal")) {
        view::Wipe wipe = w.wipe();
        wipe.orientation = name.endsWith(QLatin1String("Horizontal")) ? view::WipeOrientation::Horizontal
                                                                      : view::WipeOrientation::Vertical;
        w.setWipe(wipe);
        w.setMode(view::CompareMode::Wipe);
    } else if (name == QLatin1String("actionCompare_Flicker")) {
        w.toggleFlicker();
    } else if (name == QLatin1String("actionCompare_Auto_Flicker")) {
        w.setAutoFlicker(action("actionCompare_Auto_Flicker")->isChecked());
    } else if (name == QLatin1String("actionCompare_Difference")) {
        w.setMode(view::CompareMode::Difference);
    } else if (name == QLatin1String("actionCompare_Next_Pair")) {
        // Pairs in order (1,2) (1,3) .. (2,3) ..: the first is kept while the second runs through the rest.
        const int n = w.count();
        auto [a, b] = w.pair();
        if (++b >= n) {
            a = (a + 1) % (n - 1);
            b = a + 1;
        }
        w.setPair(a, b);
    } else if (name == QLatin1String("actionCompare_Swap_Pair")) {
        const auto [a, b] = w.pair();
        w.setPair(b, a);
    } else if (name == QLatin1String("actionZoom_In")) {
        w.zoomSteps(1, anchor);
    } else if (name == QLatin1String("actionZoom_Out")) {
        w.zoomSteps(-1, anchor);
    } else if (name == QLatin1String("actionZoom_Fit")) {
        w.endFreeZoom();
    }
    updateViewStatus();
    updateCompareActions();
}
