// The layouts after the original 27 are shown, compared, measured and read back through the original
// layout their samples unpack into (P010 into 16-bit 4:2:0 planes of 10-bit values, NV21 into 4:2:0
// planes, Y210 into 4:2:2 planes, RGB565 into 8-bit RGB planes, a Bayer mosaic into one luma plane). The
// unpack is driven by the pixel descriptor alone; its inverse, the pack, writes any described layout.
#pragma once

#include "formats/PixelDescriptor.h"
#include "formats/VideoProps.h"
#include "pixel/NativeReadout.h"

#include <cstdint>
#include <memory>

namespace kavri::pixel {

// Whether frames of a record are unpacked after reading: a described layout, or any layout whose record
// gives its planes strides or offsets (the unpacked frame then has the layout's packed rows).
bool needsUnpack(const VideoProps &stored);

// Where the planes of a stored frame of the record lie (its strides and offsets applied).
PlaneLayout storedPlanes(const VideoProps &stored);

// The record of the samples a described layout unpacks into: the canonical layout at the layout's depth,
// in native byte order. The 27 original layouts are their own canonical record (returned unchanged).
VideoProps canonicalProps(const VideoProps &stored);

// The record the picture of a described frame is converted from, where it is not canonicalProps (the
// conversion per pixel is the same):
// - a 4:2:0 layout of odd height is shown through 4:2:2 planes, each chroma row on both picture rows it
//   covers, because the original 4:2:0 layout holds its last chroma row only in part and its conversion
//   blacks out half of the last picture row;
// - a 4:2:0 or 4:2:2 layout of odd width through 4:4:4 planes, each chroma sample on the pixels it
//   covers, because the original layouts keep W / 2 chroma columns and the last pixel takes the column
//   before its own (or none at all at width 1), where these layouts store the last column.
// Both rules are kept for the original layouts, whose files are written that way. The samples
// (canonicalProps) stay as they are, so the difference, the statistics and the metrics read what they
// read before.
VideoProps shownProps(const VideoProps &stored);
// Unpacks stored rows [y0, y1) of a described frame into a frame of y1 - y0 rows of shownProps (its planes
// one after the other). With the record's interlaced flag a 4:2:0 layout shown through planes of full
// height takes the chroma rows of each field, as the interlaced 4:2:0 conversion does. False (nothing
// written) for rows outside the frame or a buffer under the band's bytes; a row the stored bytes do not
// hold whole is left as it was.
bool unpackShownRows(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, int32_t y0, int32_t y1,
                     uint8_t *dst, int64_t dstBytes);

// Unpacks one stored frame of a described layout (in the file's byte order, `srcBytes` bytes) into a
// buffer of the canonical record's allocation size. Subsampled chroma that the canonical layout has no
// room for (the last column of an odd width) is dropped; 4:4:0 chroma is repeated on both rows it covers;
// samples narrower than the canonical depth (RGB565) are widened by repeating their top bits. Signed
// samples are sign-extended into the canonical container. `threads` as for the converter: 0 the shared
// pool, 1 the caller only.
void unpackFrame(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst, int64_t dstBytes,
                 int32_t threads = 0);

// unpackFrame with the given row loops (to compare the sets); unpackFrame takes bestUnpackRows().
struct UnpackRowKernels;
void unpackFrameWith(const UnpackRowKernels &rows, const VideoProps &stored, const uint8_t *src, int64_t srcBytes,
                     uint8_t *dst, int64_t dstBytes, int32_t threads = 0);

// Whether unpackFrame reads each stored row of such a frame once for all its components (semi-planar
// and Y210-style rows in little-endian words of the canonical size, every row whole in both buffers);
// the other frames go component by component.
bool unpacksInOnePass(const VideoProps &stored, int64_t srcBytes, int64_t dstBytes);

// The frames whose stored rows each unpack into the canonical rows of the same number and no others
// (the one-pass shapes without vertical chroma subsampling: Y210 and its kin, NV16, P210, NV24, P410):
// the plan is worked out once for a record, then any band of rows can be unpacked on any thread into a
// small frame of its own, just before the band is converted. Null for any other frame.
struct RowPlan;
std::shared_ptr<const RowPlan> planOwnRows(const VideoProps &stored, int64_t srcBytes, int64_t dstBytes);
// Bytes of a canonical frame of `rows` rows of such a frame.
int64_t ownRowsBytes(const RowPlan &plan, int32_t rows);
// Unpacks stored rows [y0, y1) of a frame planned by planOwnRows, on the calling thread, into `dst` as a
// canonical frame of y1 - y0 rows (its planes one after the other): the samples unpackFrame gives those
// rows. False (nothing written) for rows outside the frame or a buffer under ownRowsBytes.
bool unpackOwnRows(const RowPlan &plan, const UnpackRowKernels &rows, const uint8_t *src, int32_t y0, int32_t y1,
                   uint8_t *dst, int64_t dstBytes);

// The reference unpack: the same result as unpackFrame, one sample at a time through readComponent.
void unpackFrameReference(const VideoProps &stored, const uint8_t *src, int64_t srcBytes, uint8_t *dst,
                          int64_t dstBytes);

// Writes one frame of a described layout (frameBytes of the record, in the record's byte order) from a
// frame of its canonical record: the inverse of the unpack for every sample the layout stores. Bytes
// no sample reaches are 0. False for a layout without a writer (v210) or short buffers.
bool packFrame(const VideoProps &stored, const uint8_t *canonical, int64_t canonicalBytes, uint8_t *dst,
               int64_t dstBytes);
// The reference pack: the same result as packFrame, each sample written through writeComponent.
bool packFrameReference(const VideoProps &stored, const uint8_t *canonical, int64_t canonicalBytes, uint8_t *dst,
                        int64_t dstBytes);

// The stored values at pixel (x, row) of a described layout, read from the stored frame: Y U V (or R G B)
// and alpha, each from the sample that covers the pixel; a Bayer layout gives its one mosaic sample in c[0]
// and the colour of its filter (0 red, 1 green, 2 blue) in c[1].
bool readDescribed(const VideoProps &stored, const uint8_t *frame, int64_t bytes, int32_t x, int32_t row,
                   StoredSample &out);

// Bilinear demosaic of a mosaic frame (`mosaic`: the canonical luma plane of `props`, in its container)
// into three full planes R, G, B in the same container: a sample's own colour is kept, a missing colour
// is the rounded mean of the nearest samples of that colour in the 3x3 neighbourhood (two or four),
// the picture mirrored at its edges.
void demosaicBilinear(Cfa cfa, const VideoProps &props, const uint8_t *mosaic, uint8_t *rgbPlanes, int32_t threads = 0);

} // namespace kavri::pixel
