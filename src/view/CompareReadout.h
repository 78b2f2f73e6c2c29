// The magnifier's readout when several sequences are shown together: the stored values of each at one
// image pixel, and how each differs from the first. Pure, so every combination of layouts and depths can
// be checked in a table.
#pragma once

#include "formats/VideoProps.h"
#include "view/OverlayText.h"

#include <QString>
#include <QStringList>
#include <cstdint>
#include <vector>

namespace kavri::view {

struct CompareSample {
    QString name;        // file name shown before the values
    NativeValues values; // space FMT_UNKNOWN: nothing could be read at the pixel
    int32_t bits = 8;    // significant bits of the stored samples
};

// Reads the stored values at image pixel (x, y) of one frame held in native byte order, as the player's
// readout does for a packed record (rows from the top unless the record is flipped). False outside the
// picture or the buffer.
bool readNativeAt(const uint8_t *frame, int64_t bytes, const VideoProps &props, int32_t x, int32_t y,
                  NativeValues &out);

// Component letters a layout's values are reported in: Y U V for the YUV layouts, R G B for the RGB
// layouts, Y for a luma or mosaic plane.
std::vector<char> componentLetters(colorSpace_t space);

// One line per sequence: its number, name and values; from the second on, the difference of each
// component it shares with the first, brought to the first's depth (rounded) so an 8-bit and a 10-bit
// sequence compare in the first's units.
QString compareReadoutText(const std::vector<CompareSample> &samples, bool hex);

} // namespace kavri::view
