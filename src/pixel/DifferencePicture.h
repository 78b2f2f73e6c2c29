// The difference of two frames of one layout as a frame of that layout centred on mid-grey, with the
// per-component mean squared error, PSNR and position of the first difference.
#pragma once

#include "formats/VideoFormat.h"

#include <array>
#include <cstdint>
#include <vector>

class DifferencePicture {
public:
    DifferencePicture();
    virtual ~DifferencePicture();

    // Stores the geometry and builds the table with the default gain. The sample positions follow from
    // the layout and width (rowStride is kept for the caller's reference only); samples are read with
    // the container the depth needs (8-bit up to 8 bits, else 16-bit), from buffers of allocationSize
    // bytes for that container.
    void setup(videoFormat_t layout, int32_t width, int32_t height, int32_t rowStride, int32_t bits, bool isSigned);
    // Rebuilds the difference table with a contrast-like gain (0x7fffffff = 0).
    void buildTable(int32_t gain);
    // Forms the difference frame of `a` minus `b` into `dst` (into `a` when dst is null) and the metrics.
    // Both frames must be in native byte order. Alpha samples are not differenced (dst keeps its own).
    void compute(uint8_t *a, const uint8_t *b, uint8_t *dst);
    // a - b per component at column x of stored row `row`; alpha gets 2^bits - 1 or the alpha difference.
    bool readDifference(const uint8_t *a, const uint8_t *b, int32_t x, int32_t row, int32_t &c1, int32_t &c2,
                        int32_t &c3, int32_t *alpha) const;

    double psnr[3] = {0, 0, 0};
    double mse[3] = {0, 0, 0};
    int32_t firstDiffX[3] = {-1, -1, -1};
    int32_t firstDiffY[3] = {-1, -1, -1};

    const std::vector<int32_t> &table() const { return m_table; }
    int32_t rowStride() const { return m_rowStride; }

private:
    void computeV210(const uint8_t *a, const uint8_t *b, uint8_t *dst, uint64_t sums[3]);

    videoFormat_t m_layout = YUV_p420;
    int32_t m_width = 0, m_height = 0, m_rowStride = 0, m_bits = 8;
    bool m_signed = false;
    int32_t m_mid = 128;
    std::vector<int32_t> m_table;
    std::array<uint8_t, 256> m_table8{};
};
