// Full screen for one window: hides its bars, hides the mouse cursor after a while without movement and
// shows it again on the next move, and brings everything back on leaving. The window decides what the
// picture and the keys do in either state (entered() and left()).
#pragma once

#include <QList>
#include <QObject>
#include <QTimer>

class QWidget;

class FullScreenMode : public QObject {
    Q_OBJECT
public:
    // `bars`: what full screen hides (menu bar, status bar, controls).
    FullScreenMode(QWidget *window, QList<QWidget *> bars, QObject *parent = nullptr);
    ~FullScreenMode() override;

    bool isOn() const { return m_on; }
    bool isCursorHidden() const { return m_cursorHidden; }
    void enter();
    void leave();

    static constexpr int kCursorHideMs = 3000;

signals:
    void entered();
    void left();

protected:
    bool eventFilter(QObject *watched, QEvent *e) override;

private:
    void hideCursor();
    void showCursor();

    QWidget *m_window;
    QList<QWidget *> m_bars;
    QTimer m_cursorTimer;
    bool m_on = false;
    bool m_cursorHidden = false;
};
