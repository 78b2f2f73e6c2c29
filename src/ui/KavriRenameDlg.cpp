#include "ui/KavriRenameDlg.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

KavriRenameDlg::KavriRenameDlg(const QString &oldName, const QString &proposal, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("renameDialog"));
    setWindowTitle(QStringLiteral("Normalize File Name"));
    auto *label = new QLabel(QStringLiteral("Rename <b>") + oldName.toHtmlEscaped() + QStringLiteral("</b> to:"), this);
    label->setObjectName(QStringLiteral("label"));
    label->setTextFormat(Qt::RichText);
    m_edit = new QLineEdit(proposal, this);
    m_edit->setObjectName(QStringLiteral("lineEdit"));
    m_edit->setMinimumWidth(fontMetrics().horizontalAdvance(proposal) + 40);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    buttons->button(QDialogButtonBox::Ok)->setObjectName(QStringLiteral("okButton"));
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("cancelButton"));
    auto *main = new QVBoxLayout(this);
    main->addWidget(label);
    main->addWidget(m_edit);
    main->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    // The stem is what users usually change; the format part stays as proposed.
    m_edit->setFocus();
}

QString KavriRenameDlg::newName() const { return m_edit->text().trimmed(); }

void KavriRenameDlg::showRenameError(QWidget *parent, const QString &oldPath, const QString &newPath,
                                     const QString &reason)
{
    QMessageBox box(QMessageBox::Critical, QStringLiteral("Kavri"), QStringLiteral("Error!"), QMessageBox::Ok, parent);
    box.setInformativeText(QStringLiteral("Could not rename file<br><b>") + oldPath.toHtmlEscaped() +
                           QStringLiteral("</b><br>to<br><b>") + newPath.toHtmlEscaped() + QStringLiteral("</b>."));
    if (!reason.isEmpty()) box.setDetailedText(reason);
    box.exec();
}
