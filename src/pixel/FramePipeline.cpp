#include "pixel/FramePipeline.h"

#include "formats/FramePlacement.h"
#include "formats/FrameSize.h"
#include "formats/Validation.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/UnpackRows.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#endif
#if defined(Q_OS_UNIX) || defined(__unix__) || defined(__APPLE__)
#include <unistd.h>
#endif

namespace kavri {

namespace {
constexpr size_t kBufferAlignment = 64;
// Frames of a few megabytes and more go on 2 MiB pages where the system offers them on request: the
// copy out of the page cache and the conversion then walk a handful of pages instead of thousands,
// which is worth about a tenth of the frame time at 4K.
constexpr size_t kHugePage = size_t(2) << 20;
} // namespace

void FreeAligned::operator()(uint8_t *p) const { std::free(p); }

namespace {
std::atomic<size_t> g_largestAllocation{0};

size_t halfThePhysicalMemory()
{
#if defined(_SC_PHYS_PAGES) && defined(_SC_PAGESIZE)
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0) return size_t(pages) / 2 * size_t(pageSize);
#endif
    return std::numeric_limits<size_t>::max() / 2;
}
} // namespace

size_t largestAllocation()
{
    const size_t set = g_largestAllocation.load();
    if (set != 0) return set;
    static const size_t half = halfThePhysicalMemory();
    return half;
}

void setLargestAllocation(size_t bytes) { g_largestAllocation.store(bytes); }

QString notEnoughMemoryText(int32_t width, int32_t height, uint64_t bufferBytes)
{
    return QStringLiteral("a %1x%2 frame needs %3 bytes a buffer, more memory than this computer can give it")
        .arg(width)
        .arg(height)
        .arg(bufferBytes);
}

AlignedBuffer allocateAligned(size_t size)
{
    if (size == 0) return {};
    if (size > largestAllocation()) throw std::bad_alloc();
    const size_t align = size >= kHugePage ? kHugePage : kBufferAlignment;
    const size_t rounded = (size + align - 1) / align * align;
    void *p = std::aligned_alloc(align, rounded);
    if (!p) throw std::bad_alloc();
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    if (align == kHugePage) ::madvise(p, rounded, MADV_HUGEPAGE); // advice only: a refusal changes nothing
#endif
    std::memset(p, 0, rounded);
    return AlignedBuffer(static_cast<uint8_t *>(p));
}

size_t readFrameAt(std::istream &in, uint64_t index, uint32_t frameBytes, uint32_t headerBytes, uint8_t *buffer,
                   uint32_t frameHeaderBytes)
{
    return readBytesAt(in, frameOffset(headerBytes, frameHeaderBytes, frameBytes, index), frameBytes, buffer);
}

size_t readBytesAt(std::istream &in, uint64_t offset, uint32_t frameBytes, uint8_t *buffer)
{
    in.clear();
    in.seekg(std::streamoff(offset), std::ios::beg);
    if (!in) return 0;
    in.read(reinterpret_cast<char *>(buffer), std::streamsize(frameBytes));
    return size_t(in.gcount());
}

void FramePipeline::setup(const VideoProps &props, bool withSecond)
{
    m_stored = props;
    // Buffers, the conversion and the difference walk take the sample size from the same container.
    kavri::normaliseContainer(m_stored);
    // A descriptor-read layout is unpacked into its canonical record after every read; everything past
    // the read sees that record.
    m_props = pixel::canonicalProps(m_stored);
    m_unpacks = pixel::needsUnpack(m_stored);
    m_hasSecond = withSecond;
    m_frameBytes = kavri::recordFrameBytes(m_stored);
    // Planes at strides of their own are read whole; the allocation slack is for packed odd heights.
    m_allocSize = hasPlaneGeometry(m_stored)
                      ? m_frameBytes
                      : kavri::allocationSize(m_stored.format, m_stored.containerBits, m_stored.width, m_stored.height);
    const uint32_t sampleAlloc =
        kavri::allocationSize(m_props.format, m_props.containerBits, m_props.width, m_props.height);
    m_sampleBytes = kavri::frameBytes(m_props.format, m_props.containerBits, m_props.width, m_props.height);
    m_stored.frameBytes = m_frameBytes; // where the frames lie follows from it (frameDataOffset)
    // The old buffers go first, so a large record never needs both sets at once.
    release();
    try {
        const bool described = this->described();
        m_buffers[int(Buffer::First)] = allocateAligned(sampleAlloc);
        if (described) m_raw[0] = allocateAligned(m_allocSize);
        if (withSecond) {
            m_buffers[int(Buffer::Second)] = allocateAligned(sampleAlloc);
            m_buffers[int(Buffer::Difference)] = allocateAligned(sampleAlloc);
            if (described) m_raw[1] = allocateAligned(m_allocSize);
        }
        if (pixelDescriptor(m_stored.format)->cfa != Cfa::None)
            m_mosaicRgb = allocateAligned(
                size_t(kavri::allocationSize(RGB_planar, m_props.containerBits, m_props.width, m_props.height)));
    } catch (const std::bad_alloc &) {
        release();
        m_frameBytes = m_allocSize = m_sampleBytes = 0;
        throw;
    }
    m_rowPlan = m_unpacks ? pixel::planOwnRows(m_stored, m_allocSize, m_sampleBytes) : nullptr;
    m_showProps = pixel::shownProps(m_stored);
    m_showsOwnRecord = m_unpacks && m_showProps.format != m_props.format;
    m_showConverter.setDescription(m_showProps);
    m_shown = Buffer::First;
    m_converter.setDescription(m_props);
    m_converter.setUnsigned(!props.signedValues);
    VideoProps rgb = m_props;
    rgb.format = RGB_planar;
    m_mosaicConverter.setDescription(rgb);
    m_mosaicConverter.setUnsigned(!props.signedValues);
    // The difference picture walks the stored rows of the first plane, which are `width` samples long;
    // its setup builds the table with the default gain.
    if (withSecond) {
        m_difference.setup(m_props.format, m_props.width, m_props.height, m_props.width, m_props.bitDepth,
                           m_props.signedValues);
        m_differenceGain = ColorConversion::kDefaultValue;
    }
}

void moveToneSlider(ViewSettings &view, bool hasSecond, ToneSlider slider, int32_t value)
{
    const bool difference = showsDifference(view, hasSecond);
    switch (slider) {
    case ToneSlider::Brightness:
        if (!difference) view.brightness = value;
        break;
    case ToneSlider::Contrast: (difference ? view.differenceContrast : view.contrast) = value; break;
    case ToneSlider::Gamma:
        if (!difference) view.gamma = value;
        break;
    }
}

void FramePipeline::release()
{
    for (AlignedBuffer &b : m_buffers) b.reset();
    for (AlignedBuffer &b : m_raw) b.reset();
    m_mosaicRgb.reset();
    m_shownFrame.reset();
    m_shownFrameBytes = 0;
    m_rowPlan.reset();
    m_samplesPending = false;
}

void FramePipeline::exchangeInput(AlignedBuffer &first, AlignedBuffer &second)
{
    AlignedBuffer *read = described() ? m_raw : m_buffers;
    std::swap(read[0], first);
    if (m_hasSecond) std::swap(read[1], second);
}

void FramePipeline::setDeinterlace(bool on)
{
    m_props.interlaced = on;
    m_stored.interlaced = on;
    m_showProps.interlaced = on;
    m_converter.setDescription(m_props);
    m_showConverter.setDescription(m_showProps);
}

void FramePipeline::setColour(const ColourDescription &colour)
{
    m_props.colour = colour;
    m_stored.colour = colour;
    m_showProps.colour = colour;
    m_converter.setDescription(m_props);
    m_showConverter.setDescription(m_showProps);
    VideoProps rgb = m_props;
    rgb.format = RGB_planar;
    m_mosaicConverter.setDescription(rgb);
}

bool FramePipeline::read(std::istream &first, std::istream *second, uint64_t index)
{
    uint8_t *a = readBuffer(Buffer::First);
    if (!a) return false;
    // Each file's frames lie where its own header puts them (see frameDataOffset).
    const size_t n = readBytesAt(first, frameDataOffset(m_stored, index), m_frameBytes, a);
    if (n == 0) return false;
    if (m_hasSecond && (!second || readBytesAt(*second, frameDataOffset(m_stored, index, true), m_frameBytes,
                                               readBuffer(Buffer::Second)) != n))
        return false;
    toNative();
    return true;
}

void FramePipeline::toNative()
{
    m_samplesPending = false;
    if (described()) {
        for (Buffer b : {Buffer::First, Buffer::Second})
            if (readBuffer(b) && buffer(b))
                pixel::unpackFrame(m_stored, readBuffer(b), m_allocSize, buffer(b), m_sampleBytes,
                                   m_converter.threadCount());
        return;
    }
    if (uint8_t *a = buffer(Buffer::First)) m_converter.swapToNative(a);
    if (uint8_t *b = buffer(Buffer::Second)) m_converter.swapToNative(b);
}

const DifferencePicture &FramePipeline::compare()
{
    if (m_hasSecond && samples(Buffer::First))
        m_difference.compute(buffer(Buffer::First), buffer(Buffer::Second), buffer(Buffer::Difference));
    return m_difference;
}

void FramePipeline::applyTone(int32_t brightness, int32_t contrast, int32_t gamma)
{
    if (m_tone[0] == brightness && m_tone[1] == contrast && m_tone[2] == gamma) return;
    m_converter.setToneCurve(brightness, contrast, gamma);
    m_mosaicConverter.setToneCurve(brightness, contrast, gamma);
    m_showConverter.setToneCurve(brightness, contrast, gamma);
    m_tone[0] = brightness;
    m_tone[1] = contrast;
    m_tone[2] = gamma;
}

FramePipeline::Buffer FramePipeline::prepareShow(const ViewSettings &view)
{
    Buffer source = Buffer::First;
    if (m_hasSecond) {
        compare();
        source = view.view == 1 ? Buffer::First : view.view == 2 ? Buffer::Second : Buffer::Difference;
    }
    m_shown = source;
    if (!buffer(source)) return source;
    if (source == Buffer::Difference) {
        if (view.differenceContrast != m_differenceGain) {
            m_difference.buildTable(view.differenceContrast);
            m_differenceGain = view.differenceContrast;
        }
        applyTone(ColorConversion::kDefaultValue, ColorConversion::kDefaultValue, ColorConversion::kDefaultValue);
        m_converter.setUnsigned(true);
    } else {
        applyTone(view.brightness, view.contrast, view.gamma);
        m_converter.setUnsigned(!m_props.signedValues);
    }
    m_converter.setChannelSelection(view.channel);
    return source;
}

FramePipeline::Buffer FramePipeline::show(const ViewSettings &view, uint8_t *dst)
{
    const Buffer source = prepareShow(view);
    const uint8_t *src = samples(source);
    if (!src || !dst) return source;
    if (showThroughOwnRecord(source, dst)) return source;
    if (m_mosaicRgb && source != Buffer::Difference) {
        // A Bayer mosaic is shown in colour: demosaicked into RGB planes, then converted as RGB.
        m_mosaicConverter.setUnsigned(!m_props.signedValues);
        m_mosaicConverter.setThreadCount(m_converter.threadCount());
        m_mosaicConverter.setChannelSelection(view.channel);
        pixel::demosaicBilinear(pixelDescriptor(m_stored.format)->cfa, m_props, src, m_mosaicRgb.get(),
                                m_converter.threadCount());
        m_mosaicConverter.convertNativeFrame(m_mosaicRgb.get(), dst);
    } else {
        m_converter.convertNativeFrame(src, dst);
    }
    if (m_props.interlaced) deinterlaceFilter(dst, m_props.width, m_props.height);
    return source;
}

namespace {

// `buffer` (of `have` bytes) grown to at least `bytes` and kept for the next frame; null, and nothing
// kept, when the memory is not there.
uint8_t *grown(AlignedBuffer &buffer, int64_t &have, int64_t bytes)
{
    if (bytes > have) {
        try {
            buffer = allocateAligned(size_t(bytes));
            have = bytes;
        } catch (const std::bad_alloc &) {
            buffer.reset();
            have = 0;
            return nullptr;
        }
    }
    return buffer.get();
}

// A band's samples for the converting thread: its own buffer, reused from frame to frame so that it stays
// in that core's cache.
uint8_t *bandBuffer(int64_t bytes)
{
    thread_local AlignedBuffer band;
    thread_local int64_t have = 0;
    return grown(band, have, bytes);
}

} // namespace

bool FramePipeline::showThroughOwnRecord(Buffer source, uint8_t *dst)
{
    const uint8_t *stored = readBuffer(source);
    if (!m_showsOwnRecord || source == Buffer::Difference || !dst || !stored) return false;
    m_showConverter.setUnsigned(!m_props.signedValues);
    m_showConverter.setChannelSelection(m_converter.channelSelection());
    m_showConverter.setThreadCount(m_converter.threadCount());
    if (!m_showConverter.readsDefault()) {
        // Sited chroma would weigh the spread samples as if they were the file's own, which loses the
        // interpolation everywhere: the samples' record, which keeps it, is the better picture there.
        if (m_showProps.colour.chroma != ChromaSiting::Nearest) return false;
        const int64_t need =
            kavri::allocationSize(m_showProps.format, m_showProps.containerBits, m_showProps.width, m_showProps.height);
        if (need <= 0 || !grown(m_shownFrame, m_shownFrameBytes, need)) return false;
        if (!pixel::unpackShownRows(m_stored, stored, m_allocSize, 0, m_showProps.height, m_shownFrame.get(), need))
            return false;
        m_showConverter.convertNativeFrame(m_shownFrame.get(), dst);
        if (m_props.interlaced) deinterlaceFilter(dst, m_props.width, m_props.height);
        return true;
    }
    std::atomic<bool> failed{false};
    const bool shown = m_showConverter.convertNativeBands(dst, [&](int32_t s0, int32_t s1) -> const uint8_t * {
        VideoProps part = m_showProps;
        part.height = s1 - s0;
        const int64_t need = kavri::allocationSize(part.format, part.containerBits, part.width, part.height);
        uint8_t *band = bandBuffer(need);
        if (band && pixel::unpackShownRows(m_stored, stored, m_allocSize, s0, s1, band, need)) return band;
        failed.store(true);
        return nullptr;
    });
    if (!shown || failed.load()) return false;
    if (m_props.interlaced) deinterlaceFilter(dst, m_props.width, m_props.height);
    return true;
}

FramePipeline::Buffer FramePipeline::toNativeAndShow(const ViewSettings &view, uint8_t *dst)
{
    // A second file is compared before anything is shown, so both frames are needed whole first.
    const uint8_t *stored = readBuffer(Buffer::First);
    // Another colour reading converts whole frames, so the samples are unpacked whole first.
    const bool wholeFrames = !m_props.colour.isDefault() && view.channel == 0;
    if ((!m_rowPlan && !m_showsOwnRecord) || wholeFrames || m_hasSecond || !dst || !stored || !buffer(Buffer::First)) {
        toNative();
        return show(view, dst);
    }
    const Buffer source = prepareShow(view);
    if (m_showsOwnRecord) {
        if (!showThroughOwnRecord(source, dst)) {
            toNative();
            return show(view, dst);
        }
        m_samplesPending = true;
        return source;
    }
    const pixel::RowPlan &plan = *m_rowPlan;
    const pixel::UnpackRowKernels &rows = pixel::bestUnpackRows();
    std::atomic<bool> failed{false};
    const bool banded = m_converter.convertNativeBands(dst, [&](int32_t s0, int32_t s1) -> const uint8_t * {
        const int64_t need = pixel::ownRowsBytes(plan, s1 - s0);
        uint8_t *band = bandBuffer(need);
        if (band && pixel::unpackOwnRows(plan, rows, stored, s0, s1, band, need)) return band;
        failed.store(true);
        return nullptr;
    });
    if (!banded || failed.load()) {
        toNative();
        return show(view, dst);
    }
    // The samples of the whole frame are unpacked only if someone asks for them (samples()).
    m_samplesPending = true;
    if (m_props.interlaced) deinterlaceFilter(dst, m_props.width, m_props.height);
    return source;
}

const uint8_t *FramePipeline::samples(Buffer which)
{
    if (which == Buffer::First && m_samplesPending) {
        m_samplesPending = false;
        if (readBuffer(Buffer::First) && buffer(Buffer::First))
            pixel::unpackFrame(m_stored, readBuffer(Buffer::First), m_allocSize, buffer(Buffer::First), m_sampleBytes,
                               m_converter.threadCount());
    }
    return buffer(which);
}

bool FramePipeline::readout(int32_t x, int32_t y, int32_t &c1, int32_t &c2, int32_t &c3, int32_t *alpha) const
{
    // Negative coordinates fail as large unsigned ones.
    if (uint32_t(x) >= uint32_t(m_props.width) || uint32_t(y) >= uint32_t(m_props.height)) return false;
    const uint8_t *first = buffer(Buffer::First);
    if (!first) return false;
    const int32_t row = m_props.flipped ? m_props.height - 1 - y : y;
    if (m_shown == Buffer::Difference)
        return m_difference.readDifference(first, buffer(Buffer::Second), x, row, c1, c2, c3, alpha);
    if (isDescribedLayout(m_stored.format)) {
        // The stored values, read from the stored bytes through the layout's descriptor.
        pixel::StoredSample s;
        if (!pixel::readDescribed(m_stored, readBuffer(m_shown), m_allocSize, x, row, s)) return false;
        c1 = s.c[0];
        c2 = s.c[1];
        c3 = s.c[2];
        if (alpha && s.hasAlpha) *alpha = s.alpha;
        return true;
    }
    return m_converter.readNative(buffer(m_shown), x, row, c1, c2, c3, alpha);
}

} // namespace kavri
