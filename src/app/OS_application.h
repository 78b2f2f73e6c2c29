// The application object: parses the command line, starts further players, owns the main windows and
// turns every open request from outside a window into a new player process.
#pragma once

#include "formats/VideoProps.h"

#include <QApplication>
#include <deque>

class frame;

class OS_application : public QApplication {
    Q_OBJECT
public:
    OS_application(int &argc, char **argv);
    ~OS_application() override;

    const KavriStartupConfig &startupConfig() const { return m_config; }

public slots:
    void oon_load(QString file, QString diff, QStringList extra);
    void oon_window_closed();

protected:
    bool event(QEvent *e) override;

private:
    std::deque<frame *> m_windows;
    KavriStartupConfig m_config;
    QString m_program;
};
