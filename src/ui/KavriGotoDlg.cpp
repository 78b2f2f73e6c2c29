#include "ui/KavriGotoDlg.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

KavriGotoDlg::KavriGotoDlg(uint64_t current, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("gotoDialog"));
    setWindowTitle(QStringLiteral("Go to frame"));
    resize(271, 77);
    auto *layout = new QHBoxLayout(this);
    auto *label = new QLabel(QStringLiteral("frame "), this);
    m_spin = new QSpinBox(this);
    m_spin->setObjectName(QStringLiteral("spin_frame"));
    m_spin->setRange(0, 999999999);
    m_spin->setValue(int(std::min<uint64_t>(current, 999999999)));
    auto *ok = new QPushButton(QStringLiteral("OK"), this);
    ok->setObjectName(QStringLiteral("okButton"));
    ok->setDefault(true);
    auto *cancel = new QPushButton(QStringLiteral("Cancel"), this);
    cancel->setObjectName(QStringLiteral("cancelButton"));
    layout->addWidget(label);
    layout->addWidget(m_spin, 1);
    layout->addWidget(ok);
    layout->addWidget(cancel);
    connect(m_spin, &QSpinBox::valueChanged, this, &KavriGotoDlg::value_changed);
    connect(ok, &QPushButton::clicked, this, &QDialog::accept);
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    m_spin->selectAll();
    m_spin->setFocus();
}

int KavriGotoDlg::value() const { return m_spin->value(); }

void KavriGotoDlg::value_changed(int) {}
