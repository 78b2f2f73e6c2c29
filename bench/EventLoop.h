// What the window benchmarks share: turning the event loop until something holds.
#pragma once

#include <QCoreApplication>
#include <QElapsedTimer>
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

} // namespace kavri::bench
