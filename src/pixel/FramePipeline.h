// One frame on its way from the file to the screen: the buffers it is read into, the comparison against a
// second file, the conversion as shown and the readout of the shown frame. The player's loader and
// kavri-cli both go through here, so the two cannot disagree on what a frame looks like or reads as.
#pragma once

#include "formats/VideoProps.h"
#include "pixel/ColorConversion.h"
#include "pixel/DifferencePicture.h"

#include <QString>

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>

namespace kavri {

namespace pixel {
struct RowPlan;
}

// A frame buffer aligned to a cache line (the vector kernels load whole lines; a split load costs about a
// quarter of the time for 16-bit containers).
struct FreeAligned {
    void operator()(uint8_t *p) const;
};
using AlignedBuffer = std::unique_ptr<uint8_t[], FreeAligned>;
// A zeroed buffer of at least `size` bytes (null for 0), so a short first read shows black rather than
// whatever the heap held. Throws std::bad_alloc when the memory is not there or `size` is above
// largestAllocation().
AlignedBuffer allocateAligned(size_t size);

// The largest frame-sized buffer allocateAligned hands out: half the physical memory. A frame beyond that
// cannot be played anyway (a player holds several frame-sized buffers), and where the system promises
// memory it does not have, asking for it would not fail here but get the process killed later, while
// the buffer is filled. setLargestAllocation replaces the ceiling (0 restores it), so a test can reach
// it without the memory.
size_t largestAllocation();
void setLargestAllocation(size_t bytes);

// The words for a frame whose buffers could not be had: "a 65535x65535 frame needs 4294836225 bytes a
// buffer, more memory than this computer can give it".
QString notEnoughMemoryText(int32_t width, int32_t height, uint64_t bufferBytes);

// Reads frame `index` (frameBytes bytes after headerBytes + index * frameBytes, where each frame is preceded
// by frameHeaderBytes bytes of its own that are skipped) into `buffer`.
// Returns the bytes actually read; a short read leaves the rest of the buffer as it was.
size_t readFrameAt(std::istream &in, uint64_t index, uint32_t frameBytes, uint32_t headerBytes, uint8_t *buffer,
                   uint32_t frameHeaderBytes = 0);
// Reads `frameBytes` bytes at `offset` into `buffer`, the same way.
size_t readBytesAt(std::istream &in, uint64_t offset, uint32_t frameBytes, uint8_t *buffer);

// What the viewer has chosen for the shown picture.
struct ViewSettings {
    int32_t channel = 0; // 0 full colour, 1..3 one component as grey
    // The tone curve of a file's own picture; kDefaultValue stands for a default as in setToneCurve.
    int32_t brightness = 0, contrast = 0, gamma = 256;
    // With a second file: 1 shows the first file, 2 the second, anything else the difference picture.
    int32_t view = 0;
    // The gain of the difference picture's table (the contrast slider while a difference is shown).
    int32_t differenceContrast = 0;
};

// Whether a pipeline with a second file shows the difference picture under `view`.
inline bool showsDifference(const ViewSettings &view, bool hasSecond)
{
    return hasSecond && view.view != 1 && view.view != 2;
}

// The brightness, contrast and gamma sliders. While the difference picture is shown the contrast slider
// moves the difference table's gain, and brightness and gamma have nothing to act on (they are kept for
// when a file's own picture comes back).
enum class ToneSlider { Brightness, Contrast, Gamma };
void moveToneSlider(ViewSettings &view, bool hasSecond, ToneSlider slider, int32_t value);

class FramePipeline {
public:
    enum class Buffer { First = 0, Second = 1, Difference = 2 };

    // Sizes the buffers for a validated record (once per record, never per frame) and sets up the
    // converter and, when `withSecond`, the difference picture. The record's interlaced field switches
    // the deinterlace filter on. When the buffers cannot be had it throws std::bad_alloc and leaves the
    // pipeline empty (no buffers, frame size 0), never half set up.
    void setup(const VideoProps &props, bool withSecond);
    // Frees the buffers; setup builds them again.
    void release();

    // The record of the samples in buffer(): the set-up record itself, or for a layout read through its
    // descriptor (P010, NV21, ...) the original layout its samples unpack into. The conversion, the
    // difference picture, the statistics and the metrics work on these.
    const VideoProps &props() const { return m_props; }
    // The record as set up: the layout as stored in the file.
    const VideoProps &storedProps() const { return m_stored; }
    bool hasSecond() const { return m_hasSecond; }
    // Bytes of a stored frame, and the size of the buffers it is read into.
    uint32_t frameBytes() const { return m_frameBytes; }
    uint32_t allocationSize() const { return m_allocSize; }
    // Bytes of the samples in buffer() (the frame bytes of props()).
    uint32_t sampleBytes() const { return m_sampleBytes; }

    // The samples of the frames in native byte order (First, and Second with a comparison) and the
    // difference picture.
    uint8_t *buffer(Buffer which) { return m_buffers[int(which)].get(); }
    const uint8_t *buffer(Buffer which) const { return m_buffers[int(which)].get(); }
    // Where the stored bytes of a frame are read to (First or Second); toNative() brings them into buffer().
    // The same buffer for the original layouts; a buffer of its own for a descriptor-read layout, which
    // keeps the stored bytes for the readout.
    uint8_t *readBuffer(Buffer which) { return described() ? m_raw[int(which) & 1].get() : buffer(which); }
    const uint8_t *readBuffer(Buffer which) const { return described() ? m_raw[int(which) & 1].get() : buffer(which); }
    // Whether frames are unpacked after reading (a descriptor-read layout, or planes with strides).
    bool described() const { return m_unpacks; }
    // Exchanges the read buffers with a reader's spare ones of the allocation size, so a frame read ahead
    // into a spare becomes the current frame without a copy. `second` is left alone without a comparison.
    void exchangeInput(AlignedBuffer &first, AlignedBuffer &second);

    // The deinterlace switch: the filter over the converted picture and the per-field chroma of 4:2:0.
    void setDeinterlace(bool on);
    bool deinterlace() const { return m_props.interlaced; }

    // The colour reading of the picture (matrix, range, siting, transfer). The samples do not change, so
    // the frame in the buffers can be converted again at once with the new reading.
    void setColour(const ColourDescription &colour);

    // Reads frame `index` of the first stream (and of the second, with a comparison) and brings it to
    // native byte order. False when the first read is empty or the two reads differ in length.
    bool read(std::istream &first, std::istream *second, uint64_t index);
    // For frames read into the buffers by other means: brings them to native byte order. Samples are
    // swapped right after the read, so the difference, the conversion and the readout all see native
    // words (a difference of byte-swapped words would be meaningless).
    void toNative();

    // The comparison of the two frames just read: the difference picture and its metrics.
    const DifferencePicture &compare();

    // Compares (with a second file), picks the source by the view and converts it into `dst` (width x
    // height x 4 bytes, the fourth byte untouched; skipped when null), then deinterlaces when the switch
    // is on. The difference picture is centred on mid-grey already: it is converted as unsigned and
    // without the tone curve, whose place the difference table's gain takes. Returns the buffer shown.
    Buffer show(const ViewSettings &view, uint8_t *dst);
    // toNative() followed by show(view, dst): the same picture. Where a frame's stored rows each unpack into
    // their own canonical rows (Y210 and its kin) or its picture has a record of its own (shownProps),
    // only the first file is shown and the converter can take the frame a band at a time, each band of
    // stored rows is unpacked into a small buffer of the converting thread just before it is converted,
    // and the unpacked frame is not written at all: the samples of a large frame, the stored bytes and the
    // picture no longer fit the cache together. The samples are then unpacked into buffer(First) only
    // when samples(First) asks for them.
    Buffer toNativeAndShow(const ViewSettings &view, uint8_t *dst);
    // buffer(which), with the samples of the frame in the read buffers unpacked first if the last
    // toNativeAndShow left them out. The thread that shows frames calls it (it writes the buffer).
    const uint8_t *samples(Buffer which);
    // Whether buffer(First) is waiting for samples() to unpack the frame's samples.
    bool samplesPending() const { return m_samplesPending; }
    // The buffer the last show took its picture from.
    Buffer shown() const { return m_shown; }

    // The readout for picture coordinates (x, y) of the frame last shown (row 0 at the top): the stored
    // values of the shown buffer, or the difference of the two frames while the difference is shown.
    // False outside the picture, before setup, or where the layout gives no value; alpha is written only
    // where there is one.
    bool readout(int32_t x, int32_t y, int32_t &c1, int32_t &c2, int32_t &c3, int32_t *alpha) const;

    const DifferencePicture &difference() const { return m_difference; }
    ColorConversion::X2RGBColorConv &converter() { return m_converter; }

private:
    void applyTone(int32_t brightness, int32_t contrast, int32_t gamma);
    // Compares (with a second file), chooses the buffer to show and sets the converter up for it.
    Buffer prepareShow(const ViewSettings &view);
    // Shows a file's frame through the record of its own picture (pixel::shownProps) where that differs
    // from the samples' record, each band unpacked from the stored bytes just before it is converted
    // (another colour reading, which converts whole frames: the whole frame unpacked first). False where
    // it does not apply (sited chroma too) or the memory is not there: the caller then converts the
    // samples.
    bool showThroughOwnRecord(Buffer source, uint8_t *dst);

    VideoProps m_props;
    VideoProps m_stored;
    bool m_unpacks = false;
    bool m_hasSecond = false;
    bool m_samplesPending = false; // buffer(First) not yet unpacked from the stored bytes (toNativeAndShow)
    uint32_t m_frameBytes = 0;
    uint32_t m_allocSize = 0;
    uint32_t m_sampleBytes = 0;
    AlignedBuffer m_buffers[3];
    AlignedBuffer m_raw[2];    // stored bytes of a descriptor-read layout
    AlignedBuffer m_mosaicRgb; // a Bayer frame demosaicked, as 16-bit RGB planes, for the conversion
    std::shared_ptr<const pixel::RowPlan> m_rowPlan; // stored rows that unpack one by one (null otherwise)
    Buffer m_shown = Buffer::First;
    ColorConversion::X2RGBColorConv m_converter;
    ColorConversion::X2RGBColorConv m_mosaicConverter; // RGB planes of a demosaicked Bayer frame
    // The record a file's picture is converted from where it is not the samples' (4:2:0 of odd height).
    VideoProps m_showProps;
    bool m_showsOwnRecord = false;
    ColorConversion::X2RGBColorConv m_showConverter;
    AlignedBuffer m_shownFrame; // the whole frame in m_showProps, for readings that convert whole frames
    int64_t m_shownFrameBytes = 0;
    DifferencePicture m_difference;
    // What the tone table and the difference table were last built from: a table is rebuilt only when a
    // setting changes, not for every frame.
    int32_t m_tone[3] = {ColorConversion::kDefaultValue, ColorConversion::kDefaultValue,
                         ColorConversion::kDefaultValue};
    int32_t m_differenceGain = ColorConversion::kDefaultValue;
};

} // namespace kavri
