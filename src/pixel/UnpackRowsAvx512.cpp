// The unpack rows compiled for AVX-512: thirty-two words a step, each output gathered from two loaded
// vectors by one two-source permute (vpermt2w, vpermt2b); the tails go through the portable rows.
#include "pixel/UnpackRows.h"

#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's AVX-512 headers start some intrinsics (the 256-bit cast among them) from an undefined
// vector, which its own -Wmaybe-uninitialized then reports at every use (a compiler bug).
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#include <immintrin.h>

namespace kavri::pixel::avx512 {
namespace {

inline __m512i load(const uint8_t *p) { return _mm512_loadu_si512(p); }
inline void store(void *p, __m512i v) { _mm512_storeu_si512(p, v); }
inline void store(void *p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }

// Word (or byte) indices into the 64 words (128 bytes) of two vectors: from `first`, every `step`-th.
inline __m512i wordIndices(int first, int step)
{
    alignas(64) uint16_t idx[32];
    for (int i = 0; i < 32; ++i) idx[i] = uint16_t((first + i * step) & 63);
    return _mm512_load_si512(idx);
}
inline __m512i byteIndices(int first, int step)
{
    alignas(64) uint8_t idx[64];
    for (int i = 0; i < 64; ++i) idx[i] = uint8_t((first + i * step) & 127);
    return _mm512_load_si512(idx);
}

inline __m512i value(__m512i w, __m128i sh, __m512i m) { return _mm512_and_si512(_mm512_srl_epi16(w, sh), m); }

void words(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *dst, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m512i m = _mm512_set1_epi16(int16_t(mask));
    int32_t i = 0;
    for (; i + 32 <= n; i += 32) store(dst + i, value(load(src + 2 * size_t(i)), sh, m));
    portable::unpackRows().words(src + 2 * size_t(i), shift, mask, dst + i, n - i);
}

void wordPairs(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *a, uint16_t *b, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m512i m = _mm512_set1_epi16(int16_t(mask));
    const __m512i even = wordIndices(0, 2), odd = wordIndices(1, 2);
    int32_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const uint8_t *s = src + 4 * size_t(i);
        const __m512i p = value(load(s), sh, m), q = value(load(s + 64), sh, m);
        store(a + i, _mm512_permutex2var_epi16(p, even, q));
        store(b + i, _mm512_permutex2var_epi16(p, odd, q));
    }
    portable::unpackRows().wordPairs(src + 4 * size_t(i), shift, mask, a + i, b + i, n - i);
}

void bytePairs(const uint8_t *src, uint8_t *a, uint8_t *b, int32_t n)
{
    const __m512i even = byteIndices(0, 2), odd = byteIndices(1, 2);
    int32_t i = 0;
    for (; i + 64 <= n; i += 64) {
        const uint8_t *s = src + 2 * size_t(i);
        const __m512i p = load(s), q = load(s + 64);
        store(a + i, _mm512_permutex2var_epi8(p, even, q));
        store(b + i, _mm512_permutex2var_epi8(p, odd, q));
    }
    portable::unpackRows().bytePairs(src + 2 * size_t(i), a + i, b + i, n - i);
}

void wordQuads(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *y, uint16_t *b, uint16_t *c, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m512i m = _mm512_set1_epi16(int16_t(mask));
    // The 16 b's (words 1, 5, 9...) and the 16 c's (3, 7, 11...), each in the low half of a permute.
    const __m512i luma = wordIndices(0, 2), first = wordIndices(1, 4), second = wordIndices(3, 4);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const uint8_t *s = src + 8 * size_t(i);
        const __m512i p = value(load(s), sh, m), q = value(load(s + 64), sh, m);
        store(y + 2 * size_t(i), _mm512_permutex2var_epi16(p, luma, q));
        store(b + i, _mm512_castsi512_si256(_mm512_permutex2var_epi16(p, first, q)));
        store(c + i, _mm512_castsi512_si256(_mm512_permutex2var_epi16(p, second, q)));
    }
    portable::unpackRows().wordQuads(src + 8 * size_t(i), shift, mask, y + 2 * size_t(i), b + i, c + i, n - i);
}

} // namespace

const UnpackRowKernels &unpackRows()
{
    static const UnpackRowKernels set{"avx512", words, wordPairs, bytePairs, wordQuads};
    return set;
}

} // namespace kavri::pixel::avx512
