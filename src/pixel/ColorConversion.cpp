// Placeholder bodies; the kernels are being written.
#include "pixel/ColorConversion.h"

namespace ColorConversion {

X2RGBColorConv::X2RGBColorConv() { setToneCurve(kDefaultValue, kDefaultValue, kDefaultValue); }
X2RGBColorConv::~X2RGBColorConv() = default;
void X2RGBColorConv::setDescription(const VideoProps &props) { m_props = props; }
void X2RGBColorConv::setToneCurve(int32_t b, int32_t c, int32_t g)
{
    m_brightness = b == kDefaultValue ? 0 : b;
    m_contrast = c == kDefaultValue ? 0 : c;
    m_gamma = g == kDefaultValue ? 256 : g;
    for (int i = 0; i < 256; ++i) m_toneTable[size_t(i)] = i;
}
void X2RGBColorConv::setChannelSelection(int32_t s) { m_channelSelection = s; }
void X2RGBColorConv::setUnsigned(bool u) { m_signed = !u; }
void X2RGBColorConv::convertFrame(uint8_t *, uint8_t *) {}
bool X2RGBColorConv::readNative(const uint8_t *, int32_t, int32_t, int32_t &, int32_t &, int32_t &, int32_t *) const
{
    return false;
}

} // namespace ColorConversion

void deinterlaceFilter(uint8_t *, int32_t, int32_t) {}
