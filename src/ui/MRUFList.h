// The recent-files list of the File menu, kept newest first under "recentFileList".
#pragma once

#include <QObject>
#include <QStringList>
#include <vector>

class QAction;
class QMenu;

class MRUFList : public QObject {
    Q_OBJECT
public:
    static constexpr int kMaxEntries = 10;

    // The owner opens a file chosen from the list.
    class IMRUFListParent {
    public:
        virtual ~IMRUFListParent() = default;
        virtual void oon_mrufile(QString path) = 0;
    };

    // Adds kMaxEntries hidden actions at the end of `menu`; they show the stored list.
    MRUFList(IMRUFListParent *parent, QMenu *menu, QObject *owner = nullptr);

    // Moves `path` to the front of the stored list (without duplicates, at most kMaxEntries) and
    // rebuilds the menu entries.
    void add(const QString &path);
    void refresh();
    const std::vector<QAction *> &actions() const { return m_actions; }

    // The list after adding `path`: every equal entry removed, `path` first, cut to kMaxEntries.
    static QStringList withRecent(QStringList list, const QString &path);

signals:
    void mruf(QString path);

private slots:
    void openRecentFile();

private:
    IMRUFListParent *m_parent;
    std::vector<QAction *> m_actions;
};
