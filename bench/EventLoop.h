// What the window benchmarks share: turning the event loop until something holds.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <functional>

namespace kavri::bench {

// Runs the event loop until `done` holds or `ms` have passed; false when the time ran out.
inline bool spinUntil(const std::function<bool()> &done, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!done()) {
        if (t.elapsed() > ms) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

// Runs the event loop for `ms` as the application's own loop would: asleep between events. spinUntil
// polls, which keeps a core busy, so a measurement taken during it counts against the player a core
// that the real program leaves to the loaders.
inline void runFor(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace kavri::bench
