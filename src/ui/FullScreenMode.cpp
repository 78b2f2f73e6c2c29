#include "ui/FullScreenMode.h"

#include <QApplication>
#include <QEvent>
#include <QWidget>

FullScreenMode::FullScreenMode(QWidget *window, QList<QWidget *> bars, QObject *parent)
    : QObject(parent), m_window(window), m_bars(std::move(bars))
{
    m_cursorTimer.setSingleShot(true);
    connect(&m_cursorTimer, &QTimer::timeout, this, &FullScreenMode::hideCursor);
}

FullScreenMode::~FullScreenMode()
{
    // The override cursor and the filter belong to the application: they must not outlive the window.
    if (m_on) {
        qApp->removeEventFilter(this);
        showCursor();
    }
}

void FullScreenMode::enter()
{
    if (m_on) return;
    m_on = true;
    for (QWidget *b : m_bars) b->hide();
    emit entered();
    m_window->showFullScreen();
    m_cursorTimer.start(kCursorHideMs);
    m_window->setMouseTracking(true);
    // Mouse moves over any child (the panel above all) restore the cursor.
    qApp->installEventFilter(this);
}

void FullScreenMode::leave()
{
    if (!m_on) return;
    m_on = false;
    m_window->showNormal();
    for (QWidget *b : m_bars) b->show();
    m_cursorTimer.stop();
    showCursor();
    m_window->setMouseTracking(false);
    qApp->removeEventFilter(this);
    emit left();
}

void FullScreenMode::hideCursor()
{
    if (!m_on || m_cursorHidden) return;
    QApplication::setOverrideCursor(Qt::BlankCursor);
    m_cursorHidden = true;
}

void FullScreenMode::showCursor()
{
    if (!m_cursorHidden) return;
    QApplication::restoreOverrideCursor();
    m_cursorHidden = false;
}

bool FullScreenMode::eventFilter(QObject *watched, QEvent *e)
{
    if (m_on && e->type() == QEvent::MouseMove) {
        showCursor();
        m_cursorTimer.start(kCursorHideMs);
    }
    return QObject::eventFilter(watched, e);
}
