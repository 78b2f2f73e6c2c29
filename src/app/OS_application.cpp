#include "app/OS_application.h"

#include "app/CommandLine.h"
#include "ui/frame.h"

#include <QFileOpenEvent>
#include <QProcess>

OS_application::OS_application(int &argc, char **argv) : QApplication(argc, argv)
{
    m_program = QCoreApplication::applicationFilePath();
    const kavri::ParsedCommandLine parsed = kavri::parseCommandLine(arguments());
    m_config = parsed.config;
    kavri::startFurtherPlayers(m_program, parsed.furtherFiles);

    auto *w = new frame(&m_config);
    m_windows.push_back(w);
    connect(w, &frame::notify_load, this, &OS_application::oon_load);
    connect(w, &frame::closed, this, &OS_application::oon_window_closed);
    w->show();
}

OS_application::~OS_application()
{
    for (frame *w : m_windows) delete w;
    m_windows.clear();
}

void OS_application::oon_load(QString file, QString diff, QStringList extra)
{
    QProcess::startDetached(m_program, kavri::openRequestArguments(file, diff, extra));
}

void OS_application::oon_window_closed()
{
    auto *w = qobject_cast<frame *>(sender());
    std::erase(m_windows, w);
    if (w) w->deleteLater();
}

bool OS_application::event(QEvent *e)
{
    // A file handed over by the operating system never replaces what a running window shows.
    if (e->type() == QEvent::FileOpen) {
        oon_load(static_cast<QFileOpenEvent *>(e)->file(), QString(), QStringList());
        return true;
    }
    return QApplication::event(e);
}
