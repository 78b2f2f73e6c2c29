#include "pixel/UnpackRows.h"

#include "pixel/RowKernels.h"

#include <cstring>
#include <string_view>

namespace kavri::pixel {

namespace portable {
namespace {

inline uint16_t wordAt(const uint8_t *src, int64_t i)
{
    // Byte by byte, so the value does not depend on the machine's byte order.
    return uint16_t(src[2 * i] | (src[2 * i + 1] << 8));
}

void words(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *dst, int32_t n)
{
    for (int32_t i = 0; i < n; ++i) dst[i] = uint16_t((wordAt(src, i) >> shift) & mask);
}

void wordPairs(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *a, uint16_t *b, int32_t n)
{
    for (int32_t i = 0; i < n; ++i) {
        a[i] = uint16_t((wordAt(src, 2 * int64_t(i)) >> shift) & mask);
        b[i] = uint16_t((wordAt(src, 2 * int64_t(i) + 1) >> shift) & mask);
    }
}

void bytePairs(const uint8_t *src, uint8_t *a, uint8_t *b, int32_t n)
{
    for (int32_t i = 0; i < n; ++i) {
        a[i] = src[2 * size_t(i)];
        b[i] = src[2 * size_t(i) + 1];
    }
}

void wordQuads(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *y, uint16_t *b, uint16_t *c, int32_t n)
{
    for (int32_t i = 0; i < n; ++i) {
        const int64_t w = 4 * int64_t(i);
        y[2 * i] = uint16_t((wordAt(src, w) >> shift) & mask);
        b[i] = uint16_t((wordAt(src, w + 1) >> shift) & mask);
        y[2 * i + 1] = uint16_t((wordAt(src, w + 2) >> shift) & mask);
        c[i] = uint16_t((wordAt(src, w + 3) >> shift) & mask);
    }
}

} // namespace

const UnpackRowKernels &unpackRows()
{
    static const UnpackRowKernels set{"portable", words, wordPairs, bytePairs, wordQuads};
    return set;
}

} // namespace portable

const UnpackRowKernels &portableUnpackRows() { return portable::unpackRows(); }

// A faster set runs where the conversion's set of the same name may run: both come from files compiled
// for the same instruction sets.
const UnpackRowKernels *avx2UnpackRows()
{
#if defined(KAVRI_HAVE_AVX2)
    if (avx2Kernels()) return &avx2::unpackRows();
#endif
    return nullptr;
}

const UnpackRowKernels *avx512UnpackRows()
{
#if defined(KAVRI_HAVE_AVX512)
    if (avx512Kernels()) return &avx512::unpackRows();
#endif
    return nullptr;
}

const UnpackRowKernels &bestUnpackRows()
{
    static const UnpackRowKernels *const best = [] {
        const std::string_view name = bestKernels().name;
        const UnpackRowKernels *set = name == "avx512" ? avx512UnpackRows()
                                      : name == "avx2" ? avx2UnpackRows()
                                                       : nullptr;
        return set ? set : &portableUnpackRows();
    }();
    return *best;
}

} // namespace kavri::pixel
