// The player's main window.
#pragma once

#include "formats/VideoProps.h"

#include <QMainWindow>

class QLabel;

class frame : public QMainWindow {
    Q_OBJECT
public:
    explicit frame(const KavriStartupConfig *config, QWidget *parent = nullptr);
    ~frame() override;

    static QString emptyTitle();

signals:
    void notify_load(QString file, QString diff, QStringList extra);
    void do_load_on_startup(QString file, QString diff, KavriStartupConfig *config);
    void closed();

private slots:
    void oon_load_on_startup(QString file, QString diff, KavriStartupConfig *config);

protected:
    void closeEvent(QCloseEvent *e) override;

private:
    void showEmptyState();

    KavriStartupConfig m_config;
    QLabel *m_statusLabel = nullptr;
};
