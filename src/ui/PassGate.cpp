#include "ui/PassGate.h"

namespace kavri::ui {

void PassGate::setHeld(bool held)
{
    {
        std::lock_guard lock(m_mutex);
        m_held = held;
    }
    m_wake.notify_all();
}

bool PassGate::held() const
{
    std::lock_guard lock(m_mutex);
    return m_held;
}

void PassGate::stop()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopped = true;
    }
    m_wake.notify_all();
}

void PassGate::rearm()
{
    std::lock_guard lock(m_mutex);
    m_stopped = false;
}

bool PassGate::stopped() const
{
    std::lock_guard lock(m_mutex);
    return m_stopped;
}

bool PassGate::waiting() const
{
    std::lock_guard lock(m_mutex);
    return m_waiting;
}

void PassGate::setOnWait(std::function<void(bool)> fn)
{
    std::lock_guard lock(m_mutex);
    m_onWait = std::move(fn);
}

bool PassGate::proceed()
{
    std::unique_lock lock(m_mutex);
    if (m_stopped) return false;
    if (!m_held) return true;
    m_waiting = true;
    const std::function<void(bool)> onWait = m_onWait;
    // Told outside the lock: the callback may post to another thread that asks waiting() meanwhile.
    lock.unlock();
    if (onWait) onWait(true);
    lock.lock();
    m_wake.wait(lock, [this] { return m_stopped || !m_held; });
    m_waiting = false;
    const bool go = !m_stopped;
    lock.unlock();
    if (onWait) onWait(false);
    return go;
}

} // namespace kavri::ui
