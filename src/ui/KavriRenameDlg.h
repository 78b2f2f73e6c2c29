// "Normalize File Name": shows the proposed canonical name of the open file for editing.
#pragma once

#include <QDialog>

class QLineEdit;

class KavriRenameDlg : public QDialog {
    Q_OBJECT
public:
    KavriRenameDlg(const QString &oldName, const QString &proposal, QWidget *parent = nullptr);
    QString newName() const;

    // The box that reports a rename that did not happen; `reason` goes behind "Show Details...".
    static void showRenameError(QWidget *parent, const QString &oldPath, const QString &newPath,
                                const QString &reason = {});

private:
    QLineEdit *m_edit = nullptr;
};
