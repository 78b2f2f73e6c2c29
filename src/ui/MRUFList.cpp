#include "ui/MRUFList.h"

#include "formats/Settings.h"

#include <QAction>
#include <QFileInfo>
#include <QMenu>
#include <QSettings>

MRUFList::MRUFList(IMRUFListParent *parent, QMenu *menu, QObject *owner) : QObject(owner), m_parent(parent)
{
    menu->addSeparator();
    for (int i = 0; i < kMaxEntries; ++i) {
        auto *a = new QAction(menu);
        a->setVisible(false);
        connect(a, &QAction::triggered, this, &MRUFList::openRecentFile);
        menu->addAction(a);
        m_actions.push_back(a);
    }
    refresh();
}

QStringList MRUFList::withRecent(QStringList list, const QString &path)
{
    list.removeAll(path);
    list.prepend(path);
    while (list.size() > kMaxEntries) list.removeLast();
    return list;
}

void MRUFList::add(const QString &path)
{
    QSettings s;
    kavri::settings::RecentFileList.write(s, withRecent(kavri::settings::RecentFileList.read(s), path));
    refresh();
}

void MRUFList::refresh()
{
    QSettings s;
    const QStringList list = kavri::settings::RecentFileList.read(s);
    for (size_t i = 0; i < m_actions.size(); ++i) {
        QAction *a = m_actions[i];
        if (qsizetype(i) < list.size()) {
            const QString &p = list[qsizetype(i)];
            a->setText(QStringLiteral("&%1 %2").arg(int(i + 1) % 10).arg(QFileInfo(p).fileName()));
            a->setStatusTip(p);
            a->setData(p);
            a->setVisible(true);
        } else {
            a->setVisible(false);
        }
    }
}

void MRUFList::openRecentFile()
{
    if (auto *a = qobject_cast<QAction *>(sender())) {
        const QString path = a->data().toString();
        emit mruf(path);
        if (m_parent) m_parent->oon_mrufile(path);
    }
}
