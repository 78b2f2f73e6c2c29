// "Preferences": the display and behaviour settings. Reads every key when built, writes them all on OK.
#pragma once

#include "formats/Settings.h"

#include <QDialog>
#include <QStringList>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;

class KavriSettingsDlg : public QDialog {
    Q_OBJECT
public:
    explicit KavriSettingsDlg(QWidget *parent = nullptr);

    // The keys written by the last accept(), in the order they were written.
    const QStringList &writtenKeys() const { return m_written; }

public slots:
    void accept() override;
    void oon_opendiw(int state);
    void updateButton();

private:
    template <typename T>
    void write(QSettings &s, const kavri::settings::Key<T> &key, const T &value);

    QCheckBox *m_esc = nullptr;
    QLineEdit *m_anamorphic = nullptr;
    QCheckBox *m_hex = nullptr;
    QSpinBox *m_grid = nullptr;
    QSpinBox *m_hevcDepth = nullptr;
    QComboBox *m_cuSize = nullptr;
    QCheckBox *m_hevc = nullptr;
    QCheckBox *m_diffNewWindow = nullptr;
    QCheckBox *m_link = nullptr;
    QStringList m_written;
};
