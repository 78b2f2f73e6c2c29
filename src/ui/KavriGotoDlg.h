// "Go to frame": asks for a frame number.
#pragma once

#include <QDialog>

class QSpinBox;

class KavriGotoDlg : public QDialog {
    Q_OBJECT
public:
    KavriGotoDlg(uint64_t current, QWidget *parent = nullptr);
    int value() const;

public slots:
    void value_changed(int value);

private:
    QSpinBox *m_spin = nullptr;
};
