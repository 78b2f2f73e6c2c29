// The row kernels compiled for AVX2, with hand-written loops for 8-bit 4:2:0 / 4:2:2 planar and nv12
// (the most common files). Same arithmetic as the portable rows: products with vpmaddwd where samples
// and coefficients fit in int16, the clamp by the saturation of two packs. AVX2 has no byte-masked
// store, so a pixel's fourth byte is loaded and stored back unchanged with its colour bytes.
#define KAVRI_KERNEL_NS avx2
#define KAVRI_KERNEL_NAME "avx2"
#define KAVRI_KERNEL_CUSTOMISE customise
#include "pixel/RowKernels.inc"

#include <immintrin.h>

namespace kavri::pixel::avx2 {
namespace {

inline bool fits16(uint32_t v) { return int32_t(v) >= -32768 && int32_t(v) <= 32767; }

inline bool usable(const RowParams &p)
{
    if (p.up != 0) return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (!fits16(p.m[i][j])) return false;
    return true;
}

inline __m256i pairOf(uint32_t lo, uint32_t hi) { return _mm256_set1_epi32(int32_t((lo & 0xffffu) | (hi << 16))); }

struct Vec {
    __m256i m00, m10, m20, m00o, m10o, m20o, uvR, uvG, uvB, aR, aG, aB, bgOrder, rOrder, top;
    __m128i shift;
};

Vec vecOf(const RowParams &p)
{
    Vec v;
    v.m00 = pairOf(p.m[0][0], 0), v.m10 = pairOf(p.m[1][0], 0), v.m20 = pairOf(p.m[2][0], 0);
    v.m00o = pairOf(0, p.m[0][0]), v.m10o = pairOf(0, p.m[1][0]), v.m20o = pairOf(0, p.m[2][0]);
    v.uvR = pairOf(p.m[0][1], p.m[0][2]), v.uvG = pairOf(p.m[1][1], p.m[1][2]), v.uvB = pairOf(p.m[2][1], p.m[2][2]);
    v.aR = _mm256_set1_epi32(int32_t(p.add[0])), v.aG = _mm256_set1_epi32(int32_t(p.add[1]));
    v.aB = _mm256_set1_epi32(int32_t(p.add[2]));
    // Per 128-bit lane after the packs: bg = b_e0..3 b_o0..3 g_e0..3 g_o0..3, rr = r_e0..3 r_o0..3 ..
    // Pixel q of the lane (q even: e(q/2), odd: o(q/2)) takes its blue/green pair and its red word.
    v.bgOrder = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 8, 4, 12, 1, 9, 5, 13, 2, 10, 6, 14, 3, 11, 7, 15));
    v.rOrder = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, -1, 4, -1, 1, -1, 5, -1, 2, -1, 6, -1, 3, -1, 7, -1));
    v.top = _mm256_set1_epi32(int32_t(0xff000000u));
    v.shift = _mm_cvtsi32_si128(p.shift);
    return v;
}

inline void put(const Vec &v, uint8_t *d, __m256i px)
{
    const __m256i old = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(d));
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(d), _mm256_or_si256(_mm256_and_si256(old, v.top), px));
}

// 8 chroma pairs (dword u | v << 16) and 16 luma words (dword y_even | y_odd << 16): 16 pixels.
// Sh >= 0: the shift as an immediate (the default reading's 8); -1: the shift from the parameters (a
// described reading's finer scale).
template <int Sh>
inline void pairs8(const Vec &v, __m256i uv, __m256i yw, uint8_t *d)
{
    const __m256i cr = _mm256_add_epi32(_mm256_madd_epi16(uv, v.uvR), v.aR);
    const __m256i cg = _mm256_add_epi32(_mm256_madd_epi16(uv, v.uvG), v.aG);
    const __m256i cb = _mm256_add_epi32(_mm256_madd_epi16(uv, v.uvB), v.aB);
    auto sum = [&](__m256i k, __m256i c) {
        const __m256i s = _mm256_add_epi32(_mm256_madd_epi16(yw, k), c);
        if constexpr (Sh >= 0)
            return _mm256_srai_epi32(s, Sh);
        else
            return _mm256_sra_epi32(s, v.shift);
    };
    const __m256i r16 = _mm256_packs_epi32(sum(v.m00, cr), sum(v.m00o, cr));
    const __m256i g16 = _mm256_packs_epi32(sum(v.m10, cg), sum(v.m10o, cg));
    const __m256i b16 = _mm256_packs_epi32(sum(v.m20, cb), sum(v.m20o, cb));
    const __m256i bg = _mm256_shuffle_epi8(_mm256_packus_epi16(b16, g16), v.bgOrder);
    const __m256i rw = _mm256_shuffle_epi8(_mm256_packus_epi16(r16, r16), v.rOrder);
    const __m256i lo = _mm256_unpacklo_epi16(bg, rw), hi = _mm256_unpackhi_epi16(bg, rw);
    put(v, d, _mm256_permute2x128_si256(lo, hi, 0x20));
    put(v, d + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
}

template <int K, int Sh>
void planar420Body(const RowParams &p, const void *c0, const void *c1, const void *c2, void *dst, int32_t n)
{
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(c0), *u = static_cast<const uint8_t *>(c1);
    const uint8_t *w = static_cast<const uint8_t *>(c2);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i uv8 = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(u + i)),
                                              _mm_loadl_epi64(reinterpret_cast<const __m128i *>(w + i)));
        const __m128i y8 = _mm_loadu_si128(reinterpret_cast<const __m128i *>(y + 2 * i));
        pairs8<Sh>(v, S ? _mm256_cvtepi8_epi16(uv8) : _mm256_cvtepu8_epi16(uv8),
                   S ? _mm256_cvtepi8_epi16(y8) : _mm256_cvtepu8_epi16(y8), d + size_t(i) * 8);
    }
    if (i < n) planarRow<K, 1, false>(p, y + 2 * i, u + i, w + i, d + size_t(i) * 8, n - i);
}

template <int K, int Sh>
void nv12Body(const RowParams &p, const void *yRow, const void *uvRow, void *dst, int32_t n)
{
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(yRow), *uv = static_cast<const uint8_t *>(uvRow);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(uv + 2 * i));
        const __m128i l = _mm_loadu_si128(reinterpret_cast<const __m128i *>(y + 2 * i));
        pairs8<Sh>(v, S ? _mm256_cvtepi8_epi16(c) : _mm256_cvtepu8_epi16(c),
                   S ? _mm256_cvtepi8_epi16(l) : _mm256_cvtepu8_epi16(l), d + size_t(i) * 8);
    }
    if (i < n) nv12Row<K, false>(p, y + 2 * i, uv + 2 * i, d + size_t(i) * 8, n - i);
}

template <int K>
void planar420Fast(const RowParams &p, const void *c0, const void *c1, const void *c2, void *dst, int32_t n)
{
    if (!usable(p)) return planarRow<K, 1, false>(p, c0, c1, c2, dst, n);
    if (p.shift == 8) return planar420Body<K, 8>(p, c0, c1, c2, dst, n);
    planar420Body<K, -1>(p, c0, c1, c2, dst, n);
}

template <int K>
void nv12Fast(const RowParams &p, const void *yRow, const void *uvRow, void *dst, int32_t n)
{
    if (!usable(p)) return nv12Row<K, false>(p, yRow, uvRow, dst, n);
    if (p.shift == 8) return nv12Body<K, 8>(p, yRow, uvRow, dst, n);
    nv12Body<K, -1>(p, yRow, uvRow, dst, n);
}

} // namespace

KernelSet customise(KernelSet k)
{
    k.planar[kU8][1][0] = planar420Fast<kU8>;
    k.planar[kS8][1][0] = planar420Fast<kS8>;
    k.nv12[0][0] = nv12Fast<kU8>;
    k.nv12[1][0] = nv12Fast<kS8>;
    return k;
}

} // namespace kavri::pixel::avx2
