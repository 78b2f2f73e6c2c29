// The row loops of the unpack for the common shapes of the newer layouts, one set per instruction set:
// a stored row is read once and every component it holds is written to its canonical plane in the same
// pass. The words are little-endian; a value is (word >> shift) & mask. Each set gives the same bytes
// as the portable one, which is written for clarity. Internal to src/pixel and its tests.
#pragma once

#include <cstdint>

namespace kavri::pixel {

struct UnpackRowKernels {
    const char *name;
    // n words: dst[i] = f(w[i]) (the luma plane of P010 and its kin).
    void (*words)(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *dst, int32_t n);
    // n pairs of words a b: a[i] = f(w[2i]), b[i] = f(w[2i + 1]) (a chroma plane of P010 and its kin).
    void (*wordPairs)(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *a, uint16_t *b, int32_t n);
    // n pairs of bytes a b (the chroma plane of NV21 and its kin).
    void (*bytePairs)(const uint8_t *src, uint8_t *a, uint8_t *b, int32_t n);
    // n groups of four words y b y c, two pixels each: y[2i] = f(w[4i]), y[2i + 1] = f(w[4i + 2]),
    // b[i] = f(w[4i + 1]), c[i] = f(w[4i + 3]) (a row of Y210 and its kin).
    void (*wordQuads)(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *y, uint16_t *b, uint16_t *c,
                      int32_t n);
};

// The portable set (the reference of the others) and the AVX2 and AVX-512 sets where this build has
// them and the CPU can run them (null otherwise).
const UnpackRowKernels &portableUnpackRows();
const UnpackRowKernels *avx2UnpackRows();
const UnpackRowKernels *avx512UnpackRows();
// The set of the same name as the conversion's kernel set (so KAVRI_KERNELS chooses both).
const UnpackRowKernels &bestUnpackRows();

namespace portable {
const UnpackRowKernels &unpackRows();
}
namespace avx2 {
const UnpackRowKernels &unpackRows();
}
namespace avx512 {
const UnpackRowKernels &unpackRows();
}

} // namespace kavri::pixel
