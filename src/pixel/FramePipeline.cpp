#include "pixel/FramePipeline.h"

#include "formats/FrameSize.h"

#include <algorithm>

namespace kavri {

size_t readFrameAt(std::istream &in, uint64_t index, uint32_t frameBytes, uint32_t headerBytes, uint8_t *buffer)
{
    in.clear();
    in.seekg(std::streamoff(headerBytes + index * uint64_t(frameBytes)), std::ios::beg);
    if (!in) return 0;
    in.read(reinterpret_cast<char *>(buffer), std::streamsize(frameBytes));
    return size_t(in.gcount());
}

void FramePipeline::setup(const VideoProps &props, bool withSecond)
{
    m_props = props;
    m_hasSecond = withSecond;
    m_frameBytes = kavri::frameBytes(props.format, props.containerBits, props.width, props.height);
    const uint32_t alloc = allocationSize(props.format, props.containerBits, props.width, props.height);
    m_first.assign(alloc, 0);
    m_second.assign(withSecond ? alloc : 0, 0);
    m_diff.assign(withSecond ? alloc : 0, 0);
    m_converter.setDescription(props);
    // The difference picture walks the stored rows of the first plane, which are `width` samples long.
    if (withSecond)
        m_difference.setup(props.format, props.width, props.height, props.width, props.bitDepth, props.signedValues);
}

bool FramePipeline::read(std::istream &first, std::istream *second, uint64_t index)
{
    // Samples are brought to native byte order right after the read, so the difference, the conversion
    // and the readout all see native words (a difference of byte-swapped words would be meaningless).
    const size_t n = readFrameAt(first, index, m_frameBytes, m_props.headerBytes, m_first.data());
    if (n == 0) return false;
    m_converter.swapToNative(m_first.data());
    if (!m_hasSecond) return true;
    if (!second || readFrameAt(*second, index, m_frameBytes, m_props.headerBytes, m_second.data()) != n) return false;
    m_converter.swapToNative(m_second.data());
    return true;
}

const DifferencePicture &FramePipeline::compare()
{
    if (m_hasSecond) {
        m_difference.compute(m_first.data(), m_second.data(), m_diff.data());
    }
    return m_difference;
}

void FramePipeline::show(const ViewSettings &view, uint8_t *dst)
{
    m_lastView = view.view;
    uint8_t *src = m_first.data();
    bool isSigned = m_props.signedValues;
    if (m_hasSecond) {
        m_converter.setToneCurve(ColorConversion::kDefaultValue, ColorConversion::kDefaultValue,
                                 ColorConversion::kDefaultValue);
        m_difference.buildTable(view.contrast);
        compare();
        if (view.view == 1) {
            src = m_first.data();
        } else if (view.view == 2) {
            src = m_second.data();
        } else {
            // The difference picture is centred on mid-grey already: always converted as unsigned.
            src = m_diff.data();
            isSigned = false;
        }
    } else {
        m_converter.setToneCurve(view.brightness, view.contrast, view.gamma);
    }
    m_converter.setUnsigned(!isSigned);
    m_converter.setChannelSelection(view.channel);
    m_converter.convertNativeFrame(src, dst);
    if (m_props.interlaced) deinterlaceFilter(dst, m_props.width, m_props.height);
}

bool FramePipeline::readout(int32_t x, int32_t y, int32_t &c1, int32_t &c2, int32_t &c3, int32_t *alpha) const
{
    // Negative coordinates fail as large unsigned ones.
    if (uint32_t(x) >= uint32_t(m_props.width) || uint32_t(y) >= uint32_t(m_props.height)) return false;
    const int32_t row = m_props.flipped ? m_props.height - 1 - y : y;
    if (!m_hasSecond) return m_converter.readNative(m_first.data(), x, row, c1, c2, c3, alpha);
    if (m_lastView == 2) return m_converter.readNative(m_second.data(), x, row, c1, c2, c3, alpha);
    if (m_lastView == 1) return m_converter.readNative(m_first.data(), x, row, c1, c2, c3, alpha);
    return m_difference.readDifference(m_first.data(), m_second.data(), x, row, c1, c2, c3, alpha);
}

} // namespace kavri
