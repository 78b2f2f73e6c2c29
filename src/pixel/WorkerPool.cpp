#include "pixel/WorkerPool.h"

namespace kavri::pixel {

WorkerPool &WorkerPool::shared()
{
    static WorkerPool pool([] {
        const int32_t hw = int32_t(std::thread::hardware_concurrency());
        return hw <= 1 ? 0 : (hw - 1 > 7 ? 7 : hw - 1);
    }());
    return pool;
}

WorkerPool::WorkerPool(int32_t threads)
{
    for (int32_t i = 0; i < threads; ++i) m_threads.emplace_back([this] { workerLoop(); });
}

WorkerPool::~WorkerPool()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    for (std::thread &t : m_threads) t.join();
}

void WorkerPool::workerLoop()
{
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [&] { return m_stop || m_generation != seen; });
        if (m_stop) return;
        seen = m_generation;
        if (m_active >= m_allowed) continue;
        ++m_active;
        while (m_next < m_bands) {
            const int32_t band = m_next++;
            const std::function<void(int32_t)> *fn = m_fn;
            lock.unlock();
            (*fn)(band);
            lock.lock();
            if (--m_unfinished == 0) m_done.notify_all();
        }
        --m_active;
    }
}

void WorkerPool::run(int32_t bands, int32_t helpers, const std::function<void(int32_t)> &fn)
{
    if (bands <= 0) return;
    std::unique_lock<std::mutex> busy(m_busy, std::try_to_lock);
    if (!busy.owns_lock() || helpers <= 0 || m_threads.empty() || bands == 1) {
        for (int32_t i = 0; i < bands; ++i) fn(i);
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_fn = &fn;
    m_next = 0;
    m_bands = bands;
    m_unfinished = bands;
    m_allowed = helpers;
    ++m_generation;
    lock.unlock();
    m_wake.notify_all();
    lock.lock();
    while (m_next < m_bands) {
        const int32_t band = m_next++;
        lock.unlock();
        fn(band);
        lock.lock();
        --m_unfinished;
    }
    m_done.wait(lock, [&] { return m_unfinished == 0; });
    m_fn = nullptr;
    m_bands = 0;
}

} // namespace kavri::pixel
