#include "loader/ReadAhead.h"

ReadAhead::~ReadAhead()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_cond.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

void ReadAhead::start(std::shared_ptr<FrameStream> first, uint8_t *firstDst, std::shared_ptr<FrameStream> second,
                      uint8_t *secondDst, int64_t n)
{
    drop();
    m_before.firstAtEnd = first && first->atEnd();
    m_before.secondAtEnd = second && second->atEnd();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_streams[0] = std::move(first);
        m_streams[1] = std::move(second);
        m_dst[0] = firstDst;
        m_dst[1] = secondDst;
        m_bytes = n;
        // The lists keep their capacity from frame to frame: no allocation once the first frame is read.
        m_chunks.clear();
        for (int s = 0; s < 2; ++s) {
            if (!m_streams[s]) continue;
            m_base[s] = m_streams[s]->position();
            for (int64_t at = 0; at < n; at += kChunkBytes)
                m_chunks.push_back({s, at, at + kChunkBytes <= n ? kChunkBytes : n - at});
        }
        m_got.assign(m_chunks.size(), 0);
        m_next.store(0);
        m_finished = 0;
        m_open = true;
        ++m_job;
    }
    if (!m_thread.joinable()) m_thread = std::thread([this] { loop(); });
    m_cond.notify_all();
    m_pending = true;
}

int ReadAhead::readChunks()
{
    const int count = int(m_chunks.size());
    int done = 0;
    for (int i = m_next.fetch_add(1); i < count; i = m_next.fetch_add(1)) {
        const Chunk &c = m_chunks[size_t(i)];
        m_got[size_t(i)] =
            m_streams[c.stream]->readAt(m_base[c.stream] + uint64_t(c.at), m_dst[c.stream] + c.at, c.length);
        ++done;
    }
    return done;
}

ReadAhead::Result ReadAhead::take()
{
    if (!m_pending) return {};
    const int mine = readChunks();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_finished += mine;
    m_cond.wait(lock, [this] { return m_finished == int(m_chunks.size()) && !m_readerBusy; });
    m_open = false;
    m_pending = false;

    // A stream's count runs up to its first short chunk, as one sequential read would have stopped there.
    Result r;
    int64_t *counts[2] = {&r.first, &r.second};
    for (int s = 0; s < 2; ++s) {
        if (!m_streams[s]) continue;
        bool stopped = false;
        for (size_t i = 0; i < m_chunks.size() && !stopped; ++i) {
            if (m_chunks[i].stream != s) continue;
            *counts[s] += m_got[i];
            stopped = m_got[i] < m_chunks[i].length;
        }
        m_streams[s]->advance(*counts[s], m_bytes);
        // The streams are the loader's again; the reader keeps no reference that could outlive them.
        m_streams[s].reset();
    }
    return r;
}

void ReadAhead::loop()
{
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        // A job the loader has already finished alone is skipped: its lists may be rebuilt at any time.
        m_cond.wait(lock, [&] { return m_stop || (m_job != seen && m_open); });
        if (m_stop) return;
        seen = m_job;
        m_readerBusy = true;
        lock.unlock();
        const int done = readChunks();
        lock.lock();
        m_readerBusy = false;
        m_finished += done;
        m_cond.notify_all();
    }
}
