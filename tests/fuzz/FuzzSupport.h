// Shared by the fuzz targets: the checks every record must pass after parsing, and buffers that end
// exactly at an unreadable page, so that a read one byte past the end faults even without a sanitizer.
#pragma once

#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "formats/VideoProps.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#ifdef __unix__
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace kavri::fuzz {

// Whatever a parser left in the record, validation must come back with a consistent answer: a playable
// record has a frame size that its own rules give, a finite rate and a container that holds its depth.
inline void checkValidated(VideoProps props)
{
    props.fileName = QStringLiteral("-"); // never a file on disk
    props.diffFileName.clear();
    const uint32_t mask = validateProps(props);
    if (!(props.frameRate >= 0.0 && props.frameRate <= kMaxFrameRate)) std::abort();
    if (!isPlayable(mask)) return;
    if (props.bitDepth < 1 || props.bitDepth > kMaxBitDepth) std::abort();
    if (props.containerBits != 8 && props.containerBits != 16) std::abort();
    if (props.containerBits < props.bitDepth) std::abort();
    if (props.frameBytes != frameBytes(props.format, props.containerBits, props.width, props.height)) std::abort();
    if (allocationSize(props.format, props.containerBits, props.width, props.height) < props.frameBytes) std::abort();
}

// `size` bytes whose last byte is followed by a page that cannot be read or written.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size) : m_size(size)
    {
#ifdef __unix__
        const size_t page = size_t(::sysconf(_SC_PAGESIZE));
        const size_t dataPages = (size + page - 1) / page;
        m_mapped = (dataPages + 1) * page;
        void *p = ::mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED) std::abort();
        m_base = static_cast<uint8_t *>(p);
        if (::mprotect(m_base + dataPages * page, page, PROT_NONE) != 0) std::abort();
        m_data = m_base + dataPages * page - size;
#else
        m_fallback.resize(size);
        m_data = m_fallback.data();
#endif
    }
    ~GuardedBuffer()
    {
#ifdef __unix__
        ::munmap(m_base, m_mapped);
#endif
    }
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;

    uint8_t *data() { return m_data; }
    size_t size() const { return m_size; }
    // Fills the buffer by repeating `bytes` (zeros when there are none).
    void fill(const uint8_t *bytes, size_t n)
    {
        if (n == 0) {
            std::memset(m_data, 0, m_size);
            return;
        }
        for (size_t i = 0; i < m_size; i += n) std::memcpy(m_data + i, bytes, std::min(n, m_size - i));
    }

private:
    size_t m_size;
    uint8_t *m_data = nullptr;
#ifdef __unix__
    uint8_t *m_base = nullptr;
    size_t m_mapped = 0;
#else
    std::vector<uint8_t> m_fallback;
#endif
};

} // namespace kavri::fuzz
