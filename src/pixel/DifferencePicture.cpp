// Placeholder bodies; the kernels are being written.
#include "pixel/DifferencePicture.h"

DifferencePicture::DifferencePicture() = default;
DifferencePicture::~DifferencePicture() = default;
void DifferencePicture::setup(videoFormat_t layout, int32_t w, int32_t h, int32_t stride, int32_t bits, bool s)
{
    m_layout = layout;
    m_width = w;
    m_height = h;
    m_rowStride = stride;
    m_bits = bits;
    m_signed = s;
}
void DifferencePicture::buildTable(int32_t) {}
void DifferencePicture::compute(uint8_t *, const uint8_t *, uint8_t *) {}
bool DifferencePicture::readDifference(const uint8_t *, const uint8_t *, int32_t, int32_t, int32_t &, int32_t &,
                                       int32_t &, int32_t *) const
{
    return false;
}
