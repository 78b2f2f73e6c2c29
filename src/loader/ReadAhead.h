// Reads the next frame of a file while the loader converts the current one. Reading a frame is a copy
// out of the page cache, about as long as a 4:2:0 conversion on one core; overlapping the two is what
// lets a 4K sequence play at a few hundred frames a second.
//
// The frame is read in chunks at fixed offsets: a thread of the reader's own takes chunks from the start,
// and the loader, once its conversion is done, takes the rest itself instead of waiting, so neither core
// sits idle whichever of the two jobs turns out longer.
//
// While a read is pending the streams' positions belong to the reader: the loader must take() or drop()
// it before it moves a stream, and takes the frame only if it moved nothing since start().
#pragma once

#include "loader/FrameStream.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class ReadAhead {
public:
    struct Result {
        int64_t first = 0;  // bytes read from the first stream
        int64_t second = 0; // and from the second, when there is one
    };
    // Whether the streams had reached their end before the pending read; playback decides from these
    // whether the frame before was the last one, as if the read had not happened yet.
    struct Before {
        bool firstAtEnd = false;
        bool secondAtEnd = false;
    };

    ReadAhead() = default;
    ~ReadAhead();
    ReadAhead(const ReadAhead &) = delete;
    ReadAhead &operator=(const ReadAhead &) = delete;

    // Starts reading `n` bytes at the current position of `first` (a file) into `firstDst` and, when
    // `second` is given, of `second` into `secondDst`. The thread is made on the first call and kept.
    void start(std::shared_ptr<FrameStream> first, uint8_t *firstDst, std::shared_ptr<FrameStream> second,
               uint8_t *secondDst, int64_t n);
    // A read has been started and not yet taken or dropped.
    bool pending() const { return m_pending; }
    const Before &before() const { return m_before; }
    // Finishes the pending read (helping with the chunks nobody has taken yet), moves the streams past
    // what was read, as a plain read would have, and returns the counts; pending() is false afterwards.
    Result take();
    // The same, for a read nobody wants any more: the streams are about to be moved elsewhere.
    void drop() { take(); }

    // Bytes per chunk: large enough that the calls cost nothing, small enough to share a 1080p frame.
    static constexpr int64_t kChunkBytes = int64_t(512) << 10;

private:
    struct Chunk {
        int stream; // 0 first, 1 second
        int64_t at; // offset in the frame
        int64_t length;
    };
    // Claims and reads chunks until none is left; returns how many this call read.
    int readChunks();
    void loop();

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_cond;
    bool m_stop = false;
    uint64_t m_job = 0;        // bumped by start(); the reader's thread wakes on a change
    bool m_open = false;       // a job has chunks the reader's thread may still claim
    bool m_readerBusy = false; // the reader's thread is inside a job; take() waits it out
    bool m_pending = false;    // loader thread only
    Before m_before;

    // The job: fixed while it runs.
    std::shared_ptr<FrameStream> m_streams[2];
    uint8_t *m_dst[2] = {nullptr, nullptr};
    uint64_t m_base[2] = {0, 0}; // where each stream's read starts
    int64_t m_bytes = 0;
    std::vector<Chunk> m_chunks;
    std::vector<int64_t> m_got; // per chunk, written by whoever read it
    std::atomic<int> m_next{0};
    int m_finished = 0; // guarded by m_mutex
};
