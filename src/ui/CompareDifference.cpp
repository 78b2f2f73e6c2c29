#include "ui/CompareDifference.h"

#include "formats/FrameSize.h"
#include "formats/VideoFormat.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace kavri::ui {

namespace {

// Whether two records describe samples that can be differenced as they are.
bool sameSamples(const VideoProps &x, const VideoProps &y)
{
    return x.format == y.format && x.width == y.width && x.height == y.height && x.bitDepth == y.bitDepth &&
           x.containerBits == y.containerBits && x.signedValues == y.signedValues;
}

// The layouts the difference engine reads at 8 bits only.
bool eightBitOnly(videoFormat_t f)
{
    return f == YUV_uyvy || f == YUV_yuyv || f == YUV_yuy2 || f == YUV_nv12 || f == RGBA_i444 || f == BGRA_i444;
}

bool differenceable(videoFormat_t f, int32_t bits) { return isCoreLayout(f) && !(bits > 8 && eightBitOnly(f)); }

// The planar layout holding the same components at the same subsampling.
videoFormat_t planarOf(videoFormat_t f)
{
    switch (f) {
    case YUV_uyvy:
    case YUV_yuyv:
    case YUV_yuy2: return YUV_p422;
    case YUV_nv12: return YUV_p420;
    case RGBA_i444: return RGBA_planar;
    case BGRA_i444: return BGRA_planar;
    default: return f;
    }
}

uint64_t samplesNeeded(const VideoProps &p) { return allocationSize(p.format, p.containerBits, p.width, p.height); }

} // namespace

bool CompareDifference::commonRecord(const VideoProps &a, const VideoProps &b, VideoProps &common, QString &error)
{
    error.clear();
    if (a.width != b.width || a.height != b.height) {
        error = QStringLiteral("the two sequences differ in size");
        return false;
    }
    if (sameSamples(a, b)) {
        common = a;
    } else if (a.signedValues || b.signedValues) {
        // Shifting a two's-complement sample is not what a conversion does; signed samples are differenced
        // only against samples of the same record.
        error = QStringLiteral("signed samples are differenced only against samples of the same layout and depth");
        return false;
    } else {
        const int32_t bits = std::max(a.bitDepth, b.bitDepth);
        // The first's layout, so the picture looks like the single-file difference of the first; then the
        // second's where the first's cannot hold the depth (v210 at 12 bits); then the planar layout of the
        // first's kind, for a packed one the engine reads at 8 bits only.
        const videoFormat_t candidates[] = {a.format, b.format, planarOf(a.format)};
        bool found = false;
        for (videoFormat_t layout : candidates) {
            VideoProps t, unused;
            QString why;
            if (!differenceable(layout, bits)) continue;
            if (pixel::conversionTarget(a, layout, bits, t, why) &&
                pixel::conversionTarget(b, layout, bits, unused, why)) {
                common = t;
                found = true;
                break;
            }
            if (error.isEmpty()) error = why;
        }
        if (!found) {
            if (error.isEmpty()) error = QStringLiteral("no layout holds both at %1 bits").arg(bits);
            return false;
        }
    }
    // The samples are in memory in native order, with no header: only the picture's description stays.
    common.toggleEndianness = false;
    common.flipped = a.flipped;
    common.interlaced = a.interlaced;
    common.colour = a.colour;
    common.frameRate = a.frameRate;
    common.frameCount = 1;
    common.fileName.clear();
    common.diffFileName.clear();
    return true;
}

bool CompareDifference::prepare(const VideoProps &a, const VideoProps &b)
{
    if (m_prepared && sameSamples(a, m_a) && sameSamples(b, m_b) && a.colour == m_a.colour &&
        a.interlaced == m_a.interlaced && a.flipped == m_a.flipped)
        return true;
    m_prepared = false;
    m_a = a;
    m_b = b;
    if (!commonRecord(a, b, m_common, m_error)) return false;
    const VideoProps *sides[2] = {&a, &b};
    for (int s = 0; s < 2; ++s) {
        m_convert[s] = !sameSamples(*sides[s], m_common);
        if (m_convert[s] && !m_converter[s].setup(*sides[s], m_common, false, m_error)) return false;
    }
    try {
        m_pipeline.setup(m_common, true);
    } catch (const std::bad_alloc &) {
        m_error = notEnoughMemoryText(m_common.width, m_common.height, samplesNeeded(m_common));
        return false;
    }
    // The engine leaves the samples of a partial chroma block at an odd edge unwritten: they show "no
    // difference" rather than whatever the buffer held.
    if (uint8_t *dst = m_pipeline.buffer(FramePipeline::Buffer::Difference);
        dst && !m_common.signedValues && m_common.format != YUV_v210) {
        const uint32_t mid = uint32_t(1) << (m_common.bitDepth - 1);
        const uint64_t bytes = samplesNeeded(m_common);
        if (m_common.containerBits > 8)
            std::fill_n(reinterpret_cast<uint16_t *>(dst), bytes / 2, uint16_t(mid));
        else
            std::memset(dst, int(mid), size_t(bytes));
    }
    m_error.clear();
    m_prepared = true;
    return true;
}

bool CompareDifference::compute(const CompareSamples &a, const CompareSamples &b, int32_t contrast, QImage &picture)
{
    if (!a.samples || !b.samples || !a.props || !b.props) {
        m_error = QStringLiteral("no frame to compare yet");
        return false;
    }
    if (!prepare(*a.props, *b.props)) return false;
    const CompareSamples *sides[2] = {&a, &b};
    const FramePipeline::Buffer into[2] = {FramePipeline::Buffer::First, FramePipeline::Buffer::Second};
    const uint64_t room = samplesNeeded(m_common);
    for (int s = 0; s < 2; ++s) {
        const CompareSamples &side = *sides[s];
        if (side.bytes < samplesNeeded(*side.props)) {
            m_error = QStringLiteral("a frame's samples are incomplete");
            return false;
        }
        uint8_t *dst = m_pipeline.buffer(into[s]);
        if (m_convert[s])
            m_converter[s].convert(side.samples, int64_t(samplesNeeded(*side.props)), dst);
        else
            std::memcpy(dst, side.samples, size_t(room));
    }
    const QSize size(m_common.width, m_common.height);
    if (picture.size() != size || picture.format() != QImage::Format_RGB32) {
        QImage made;
        try {
            made = QImage(size, QImage::Format_RGB32);
        } catch (const std::bad_alloc &) {
        }
        if (made.isNull()) {
            m_error = notEnoughMemoryText(size.width(), size.height(), uint64_t(size.width()) * size.height() * 4);
            return false;
        }
        picture = std::move(made);
    }
    ViewSettings view;
    view.view = 0; // the difference, not one of the two
    view.differenceContrast = contrast;
    m_pipeline.show(view, picture.bits());
    return true;
}

int CompareDifference::components() const
{
    // A Bayer mosaic is compared as its one plane of samples, like luma.
    return isValidFormat(m_common.format) && layoutInfo(m_common.format).kind == LayoutKind::Luma ? 1 : 3;
}

} // namespace kavri::ui
