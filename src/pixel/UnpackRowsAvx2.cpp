// The unpack rows compiled for AVX2: sixteen words a step, spread within 128-bit lanes by a byte shuffle
// and then put in order across the lanes; the tails go through the portable rows.
#include "pixel/UnpackRows.h"

#include <immintrin.h>

namespace kavri::pixel::avx2 {
namespace {

inline __m256i load(const uint8_t *p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)); }
inline void store(void *p, __m256i v) { _mm256_storeu_si256(reinterpret_cast<__m256i *>(p), v); }
inline void store(void *p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v); }

// Within each lane: the even words (or bytes) to the low half, the odd ones to the high half.
inline __m256i evenOddWords()
{
    return _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15, 0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7,
                            10, 11, 14, 15);
}
inline __m256i evenOddBytes()
{
    return _mm256_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15, 0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7,
                            9, 11, 13, 15);
}

// Two vectors of interleaved a b pairs, shuffled by `order` into [a | b] halves, give all a's and all b's.
inline void split(__m256i p, __m256i q, __m256i order, __m256i &a, __m256i &b)
{
    p = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(p, order), 0xd8);
    q = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(q, order), 0xd8);
    a = _mm256_permute2x128_si256(p, q, 0x20);
    b = _mm256_permute2x128_si256(p, q, 0x31);
}

void words(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *dst, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m256i m = _mm256_set1_epi16(int16_t(mask));
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) store(dst + i, _mm256_and_si256(_mm256_srl_epi16(load(src + 2 * size_t(i)), sh), m));
    portable::unpackRows().words(src + 2 * size_t(i), shift, mask, dst + i, n - i);
}

void wordPairs(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *a, uint16_t *b, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m256i m = _mm256_set1_epi16(int16_t(mask));
    const __m256i order = evenOddWords();
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const uint8_t *s = src + 4 * size_t(i);
        __m256i va, vb;
        split(_mm256_and_si256(_mm256_srl_epi16(load(s), sh), m),
              _mm256_and_si256(_mm256_srl_epi16(load(s + 32), sh), m), order, va, vb);
        store(a + i, va);
        store(b + i, vb);
    }
    portable::unpackRows().wordPairs(src + 4 * size_t(i), shift, mask, a + i, b + i, n - i);
}

void bytePairs(const uint8_t *src, uint8_t *a, uint8_t *b, int32_t n)
{
    const __m256i order = evenOddBytes();
    int32_t i = 0;
    for (; i + 32 <= n; i += 32) {
        const uint8_t *s = src + 2 * size_t(i);
        __m256i va, vb;
        split(load(s), load(s + 32), order, va, vb);
        store(a + i, va);
        store(b + i, vb);
    }
    portable::unpackRows().bytePairs(src + 2 * size_t(i), a + i, b + i, n - i);
}

void wordQuads(const uint8_t *src, int32_t shift, uint16_t mask, uint16_t *y, uint16_t *b, uint16_t *c, int32_t n)
{
    const __m128i sh = _mm_cvtsi32_si128(shift);
    const __m256i m = _mm256_set1_epi16(int16_t(mask));
    // Within a lane (two groups y0 b0 y1 c0 y2 b1 y3 c1): y0 y1 y2 y3 b0 b1 c0 c1.
    const __m256i order = _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 10, 11, 6, 7, 14, 15, 0, 1, 4, 5, 8, 9, 12,
                                           13, 2, 3, 10, 11, 6, 7, 14, 15);
    // The chroma halves as 32-bit pairs b01 c01 b23 c23 | b45 c45 b67 c67, put as b's then c's.
    const __m256i pairs = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const uint8_t *s = src + 8 * size_t(i);
        __m256i vy, vc;
        split(_mm256_and_si256(_mm256_srl_epi16(load(s), sh), m),
              _mm256_and_si256(_mm256_srl_epi16(load(s + 32), sh), m), order, vy, vc);
        vc = _mm256_permutevar8x32_epi32(vc, pairs);
        store(y + 2 * size_t(i), vy);
        store(b + i, _mm256_castsi256_si128(vc));
        store(c + i, _mm256_extracti128_si256(vc, 1));
    }
    portable::unpackRows().wordQuads(src + 8 * size_t(i), shift, mask, y + 2 * size_t(i), b + i, c + i, n - i);
}

} // namespace

const UnpackRowKernels &unpackRows()
{
    static const UnpackRowKernels set{"avx2", words, wordPairs, bytePairs, wordQuads};
    return set;
}

} // namespace kavri::pixel::avx2
