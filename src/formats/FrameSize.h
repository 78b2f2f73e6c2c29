// Byte counts of a stored frame, the size of a frame buffer, and the number of frames in a file.
#pragma once

#include "formats/VideoFormat.h"
#include "formats/VideoProps.h"

#include <QString>
#include <cstdint>

namespace kavri {

// Bytes of one frame as the file stores it. Odd sizes truncate (a 3x3 8-bit 4:2:0 frame is 13 bytes),
// 4:1:x drops the remainder of width/4 and v210 rows are padded to 128 bytes. 0 for a layout outside
// 1..27, for a non-positive size, and for a frame that would not fit in 32 bits.
uint32_t frameBytes(int32_t format, int32_t containerBits, int32_t width, int32_t height);

// Whether a record gives its planes strides or offsets of their own.
bool hasPlaneGeometry(const VideoProps &p);

// Bytes of one frame of a record: frameBytes of its layout, or, where the record gives plane strides or
// offsets, the end of its last plane. 0 in the cases frameBytes gives 0 and for a stride shorter than a row.
uint32_t recordFrameBytes(const VideoProps &p);

// Reads "2048,1024,1024": up to four byte counts, one a plane, each at most `largest`; blanks around the
// numbers are fine, an empty text gives all 0. False (and `out` untouched) for anything else.
bool parsePlaneBytes(const QString &text, uint64_t largest, std::array<uint64_t, 4> &out);
// The counts as text, up to the last that is not 0 ("" when all are 0).
QString planeBytesText(const std::array<uint64_t, 4> &values);

// Bytes to allocate for one frame buffer: frameBytes plus, for 4:2:0, nv12 and 4:1:0 with an odd
// height, slack for the cut chroma row (deliberately not scaled by the bytes per sample).
// 0 in the same cases as frameBytes.
uint32_t allocationSize(int32_t format, int32_t containerBits, int32_t width, int32_t height);

// The widest picture whose display row (four bytes a pixel) an image can address with an int, as the
// drawing code does: far beyond any real sequence, but a side file can claim anything.
constexpr int32_t kMaxPictureWidth = (INT32_MAX - 31) / 32;

// Whether the display picture of a width x height frame can be addressed: a row within
// kMaxPictureWidth, and the whole picture within what a pointer difference can span.
bool displayPictureFits(int32_t width, int32_t height);
// Why a picture that displayPictureFits refuses cannot be shown, in words for a message.
QString pictureTooWideText(int32_t width, int32_t height);

// Number of whole frames after the header, with the file's size through *fileSize. A file that cannot
// be opened has size 0; a header at or beyond the end of the file, or frameBytes 0, gives 0 frames.
uint64_t frameCountOf(const QString &path, uint32_t frameBytes, uint32_t headerBytes, uint64_t *fileSize);

// The frame count of a sequence and, with a difference file (non-empty `diffPath`), of the pair: the
// smaller of the two counts, with the size of the file it came from (the difference file's on a tie).
uint64_t frameCountOfPair(const QString &path, const QString &diffPath, uint32_t frameBytes, uint32_t headerBytes,
                          uint64_t *fileSize);

} // namespace kavri
