// One frame on its way from the file to the screen: reading it into a buffer of the allocation size,
// the comparison against a second file, the conversion as shown and the readout of the shown frame.
// The player's loader and kavri-cli both go through here, so the two cannot disagree.
#pragma once

#include "formats/VideoProps.h"
#include "pixel/ColorConversion.h"
#include "pixel/DifferencePicture.h"

#include <cstddef>
#include <cstdint>
#include <istream>
#include <vector>

namespace kavri {

// Reads frame `index` (frameBytes bytes after headerBytes + index * frameBytes) into `buffer`.
// Returns the bytes actually read; a short read leaves the rest of the buffer as it was.
size_t readFrameAt(std::istream &in, uint64_t index, uint32_t frameBytes, uint32_t headerBytes, uint8_t *buffer);

// What the viewer has chosen for the shown picture.
struct ViewSettings {
    int32_t channel = 0; // 0 full colour, 1..3 one component as grey
    int32_t brightness = 0, contrast = 0, gamma = 256;
    // With a second file: 1 shows the first file, 2 the second, anything else the difference picture.
    int32_t view = 0;
};

class FramePipeline {
public:
    // Sizes the buffers for a validated record and sets up the converter and, when `withSecond`, the
    // difference picture. The record's interlaced field also switches the deinterlace filter on.
    void setup(const VideoProps &props, bool withSecond);

    const VideoProps &props() const { return m_props; }
    bool hasSecond() const { return m_hasSecond; }
    uint32_t frameBytes() const { return m_frameBytes; }

    // Reads frame `index` of the first stream (and of the second, with a comparison). False when the
    // first read is empty or the two reads differ in length.
    bool read(std::istream &first, std::istream *second, uint64_t index);

    // The comparison of the two frames just read (both in native byte order): the difference picture
    // and its metrics.
    const DifferencePicture &compare();

    // Converts the frame just read into `dst` (width x height x 4 bytes, the fourth byte untouched),
    // then deinterlaces it when the record is interlaced. With a comparison, the view picks the source;
    // brightness and gamma are then ignored and the contrast sets the difference table's gain.
    void show(const ViewSettings &view, uint8_t *dst);

    // The readout for picture coordinates (x, y) of the frame last shown (row 0 at the top): the stored
    // values of the viewed buffer, or the difference of the two frames while the difference is viewed.
    // False outside the picture or where the layout gives no value; alpha is written only where there is one.
    bool readout(int32_t x, int32_t y, int32_t &c1, int32_t &c2, int32_t &c3, int32_t *alpha) const;

    const DifferencePicture &difference() const { return m_difference; }

private:

    VideoProps m_props;
    bool m_hasSecond = false;
    uint32_t m_frameBytes = 0;
    std::vector<uint8_t> m_first, m_second, m_diff;
    int32_t m_lastView = 0;
    ColorConversion::X2RGBColorConv m_converter;
    DifferencePicture m_difference;
};

} // namespace kavri
