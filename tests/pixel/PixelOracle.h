// Test helpers for the pixel engine: buffers that fault on any access past their end, and a slow
// per-pixel model of the conversion written straight from the layout rules, used as the oracle the
// kernels are compared with.
#pragma once

#include "formats/VideoFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavri::test {

// `size` bytes placed against the end of the accessible memory: the next byte lies on a page that
// cannot be read or written, so an over-read faults even without a sanitizer.
class GuardedBuffer {
public:
    explicit GuardedBuffer(size_t size);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer &) = delete;
    GuardedBuffer &operator=(const GuardedBuffer &) = delete;
    uint8_t *data() { return m_data; }
    const uint8_t *data() const { return m_data; }
    size_t size() const { return m_size; }

private:
    uint8_t *m_base = nullptr;
    size_t m_mapped = 0;
    uint8_t *m_data = nullptr;
    size_t m_size = 0;
    std::vector<uint8_t> m_fallback;
};

struct ConvCase {
    videoFormat_t layout = YUV_p420;
    int32_t width = 2, height = 2, bits = 8, container = 8;
    bool isSigned = false, flip = false, bigEndian = false, swapUV = false, interlaced = false;
    int32_t selection = 0;
    int32_t brightness = 0x7fffffff, contrast = 0x7fffffff, gamma = 0x7fffffff;
    std::string describe() const;
};

// Expected destination for a frame in native byte order; `before` is the destination's content
// before the conversion (what unwritten bytes keep). `tone` is the converter's tone table and
// `storedGamma` etc. the values it stored (for the block-copy condition).
std::vector<uint8_t> oracleConvert(const ConvCase &c, const uint8_t *frame, size_t frameSize,
                                   const std::vector<uint8_t> &before, const std::array<int32_t, 256> &tone,
                                   int32_t storedBrightness, int32_t storedContrast, int32_t storedGamma);

// Writes a sample of the container (1 or 2 bytes, little-endian) at sample index i.
void putSample(std::vector<uint8_t> &frame, int32_t containerBits, int64_t i, int32_t value);

} // namespace kavri::test
