// Where the samples of every layout lie, as data: per component its plane, the distance between its
// samples, its place in a word and its depth; per layout the chroma subsampling, the word size and the
// packing. A generic reader driven only by this table reads any layout; it is the reference that the
// fast paths are tested against, and the layouts after the original 27 are read, written and sized
// through it alone. Adding a layout is one row here and one in the name table (VideoFormat.h).
#pragma once

#include "formats/VideoFormat.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace kavri {

// How a row of samples is stored.
enum class Packing : uint8_t {
    Words, // every sample lies in a word of wordBytes, at a bit shift
    V210,  // six 4:2:2 pixels in four little-endian 32-bit words, rows padded to 128 bytes
    Raw10, // MIPI RAW10: four 10-bit samples in five bytes (four high bytes, then a byte of low bits)
};

// The colour filter of a Bayer layout, named by its top-left 2x2 block read row by row.
enum class Cfa : uint8_t { None, RGGB, BGGR, GRBG, GBRG };

struct ComponentDesc {
    uint8_t plane = 0;  // storage plane
    uint8_t step = 1;   // words from one sample of this component to the next in its row
    uint8_t offset = 0; // words before the first sample within a row of its plane
    uint8_t shift = 0;  // right shift of the value inside its word
    uint8_t depth = 0;  // significant bits; 0 = the layout's depth
};

// Components are numbered Y, U, V (or R, G, B), then alpha, whatever their storage order. Components 1
// and 2 of a YUV layout are subsampled by the chroma shifts; a Bayer layout has one component, the mosaic.
struct PixelDescriptor {
    videoFormat_t value = FMT_UNKNOWN;
    Packing packing = Packing::Words;
    uint8_t wordBytes = 0;  // 1, 2 or 4; 0 = the record's container (8 or 16 bits)
    uint8_t fixedDepth = 0; // the depth the layout implies (P010: 10); 0 = the record's depth
    uint8_t log2ChromaW = 0, log2ChromaH = 0;
    uint8_t planes = 1;
    uint8_t components = 3; // 1, 3 or 4 (the fourth is alpha)
    Cfa cfa = Cfa::None;
    // The original layout the samples unpack into to be shown, compared and measured (itself for the 27).
    videoFormat_t canonical = FMT_UNKNOWN;
    std::array<ComponentDesc, 4> comp{};
};

// The descriptor of a layout (1..kLayoutCount); null otherwise.
const PixelDescriptor *pixelDescriptor(int32_t value);

// Whether a layout is read through its descriptor rather than by the original kernels.
inline bool isDescribedLayout(int32_t value) { return value > kCoreLayoutCount && value <= kLayoutCount; }

// Bytes a word takes for a layout stored in `containerBits` containers.
inline int32_t wordBytesOf(const PixelDescriptor &d, int32_t containerBits)
{
    return d.wordBytes ? d.wordBytes : (containerBits > 8 ? 2 : 1);
}

// Depth of component `c` for a record of `bits` significant bits.
inline int32_t componentDepth(const PixelDescriptor &d, int c, int32_t bits)
{
    if (d.comp[size_t(c)].depth) return d.comp[size_t(c)].depth;
    return d.fixedDepth ? d.fixedDepth : bits;
}

// Whether component c is subsampled (the chroma of a YUV layout).
inline bool isChromaComponent(const PixelDescriptor &d, int c)
{
    return (c == 1 || c == 2) && (d.log2ChromaW || d.log2ChromaH);
}

// The samples of one component as a grid in its plane: columns and rows (whole samples, rounded up for
// subsampled chroma, as the tools that write these layouts do).
struct ComponentGrid {
    int32_t cols = 0, rows = 0;
};
ComponentGrid componentGrid(const PixelDescriptor &d, int c, int32_t width, int32_t height);

// Where each plane of a frame lies, in bytes from the start of the frame.
struct PlaneLayout {
    int32_t planes = 0;
    std::array<int64_t, 4> start{};
    std::array<int64_t, 4> rowBytes{};
    std::array<int32_t, 4> rows{};
    int64_t frameBytes = 0;
};

// The planes of a frame of a described layout, rows packed one after the other. frameBytes 0 for an
// invalid size or one whose planes would not fit in 64 bits.
PlaneLayout planeLayout(const PixelDescriptor &d, int32_t containerBits, int32_t width, int32_t height);

// The planes of a frame whose rows have a stride of their own (0 = packed) and whose planes start at
// given offsets (0 = after the plane before; plane 0 at its offset). frameBytes 0 when a stride is
// shorter than the plane's row or the frame would not fit in 64 bits.
PlaneLayout planeLayout(const PixelDescriptor &d, int32_t containerBits, int32_t width, int32_t height,
                        const std::array<uint32_t, 4> &strides, const std::array<uint64_t, 4> &offsets);

// Reads sample (col, row) of component c from a stored frame (in the file's byte order: `bigEndian`
// words are read most significant byte first). Returns false where the sample lies outside `bytes`.
// The value is the component's bits, unsigned; a caller with signed samples sign-extends from
// componentDepth.
bool readComponent(const PixelDescriptor &d, const PlaneLayout &pl, const uint8_t *frame, int64_t bytes, bool bigEndian,
                   int c, int32_t bits, int32_t col, int32_t row, uint32_t &value);

// Writes a sample; the inverse of readComponent. Other bits of a shared word are kept.
bool writeComponent(const PixelDescriptor &d, const PlaneLayout &pl, uint8_t *frame, int64_t bytes, bool bigEndian,
                    int c, int32_t bits, int32_t col, int32_t row, uint32_t value);

// The colour of the filter over mosaic sample (x, y): 0 red, 1 green, 2 blue.
int32_t cfaColour(Cfa cfa, int32_t x, int32_t y);

} // namespace kavri
