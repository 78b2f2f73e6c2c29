// Holds a worker thread at a point the test chooses, so that a test acts while a job is known to be
// part-way, without any timing: the worker calls pauseOnce(), the test waits for reached() and then
// release()s it. The worker waits at most kLimitMs, so that a test that never releases it (or code that
// wrongly waits for the worker) ends in a failure (timedOut()) rather than a hang.
#pragma once

#include <QSemaphore>
#include <atomic>

namespace kavri::test {

class WorkGate {
public:
    static constexpr int kLimitMs = 20000;

    // Worker side: the first call stops until release(); later calls pass.
    void pauseOnce()
    {
        if (m_used.exchange(true)) return;
        m_reached.release();
        if (!m_go.tryAcquire(1, kLimitMs)) m_timedOut.store(true);
    }
    // Test side: true once the worker stands at the gate.
    bool reached(int ms = kLimitMs) { return m_reached.tryAcquire(1, ms); }
    void release() { m_go.release(); }
    bool timedOut() const { return m_timedOut.load(); }

private:
    QSemaphore m_reached, m_go;
    std::atomic<bool> m_used{false}, m_timedOut{false};
};

} // namespace kavri::test
