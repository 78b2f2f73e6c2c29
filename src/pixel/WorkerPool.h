// A small persistent pool that runs the bands of one job on the pool's threads and the caller.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kavri::pixel {

class WorkerPool {
public:
    // The process-wide pool: one thread fewer than the hardware has (the caller works too), at most 7.
    static WorkerPool &shared();

    explicit WorkerPool(int32_t threads);
    ~WorkerPool();
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    int32_t threadCount() const { return int32_t(m_threads.size()); }

    // Calls fn(0) .. fn(bands - 1), spread over at most `helpers` pool threads plus the caller, and
    // returns when all have finished. While another caller is using the pool the bands run on the
    // calling thread alone, so two converters never wait for each other.
    void run(int32_t bands, int32_t helpers, const std::function<void(int32_t)> &fn);

private:
    void workerLoop();
    bool takeBand(const std::function<void(int32_t)> *&fn, int32_t &band);

    std::vector<std::thread> m_threads;
    std::mutex m_busy; // held by the caller for the whole of one job
    std::mutex m_mutex;
    std::condition_variable m_wake, m_done;
    const std::function<void(int32_t)> *m_fn = nullptr;
    int32_t m_next = 0, m_bands = 0, m_unfinished = 0, m_allowed = 0, m_active = 0;
    uint64_t m_generation = 0;
    bool m_stop = false;
};

} // namespace kavri::pixel
