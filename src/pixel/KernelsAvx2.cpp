// The row kernels compiled for AVX2, with hand-written loops for 8-bit 4:2:0 / 4:2:2 planar and nv12
// (the most common files), for the high-dynamic-range rows and for sited chroma. Same arithmetic as the portable rows:
// products with vpmaddwd where samples and coefficients fit in int16, the clamp by the saturation of two packs. AVX2
// has no byte-masked store, so a pixel's fourth byte is loaded and stored back unchanged with its colour bytes.
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
// With chroma of their own for the even and the odd pixels (uvE, uvO: the pairs of pixels 2j and 2j + 1);
// with uvE = uvO the compiler shares the chroma products.
template <int Sh>
inline void pairs8Apart(const Vec &v, __m256i uvE, __m256i uvO, __m256i yw, uint8_t *d)
{
    const __m256i crE = _mm256_add_epi32(_mm256_madd_epi16(uvE, v.uvR), v.aR);
    const __m256i cgE = _mm256_add_epi32(_mm256_madd_epi16(uvE, v.uvG), v.aG);
    const __m256i cbE = _mm256_add_epi32(_mm256_madd_epi16(uvE, v.uvB), v.aB);
    const __m256i crO = _mm256_add_epi32(_mm256_madd_epi16(uvO, v.uvR), v.aR);
    const __m256i cgO = _mm256_add_epi32(_mm256_madd_epi16(uvO, v.uvG), v.aG);
    const __m256i cbO = _mm256_add_epi32(_mm256_madd_epi16(uvO, v.uvB), v.aB);
    auto sum = [&](__m256i k, __m256i c) {
        const __m256i s = _mm256_add_epi32(_mm256_madd_epi16(yw, k), c);
        if constexpr (Sh >= 0)
            return _mm256_srai_epi32(s, Sh);
        else
            return _mm256_sra_epi32(s, v.shift);
    };
    const __m256i r16 = _mm256_packs_epi32(sum(v.m00, crE), sum(v.m00o, crO));
    const __m256i g16 = _mm256_packs_epi32(sum(v.m10, cgE), sum(v.m10o, cgO));
    const __m256i b16 = _mm256_packs_epi32(sum(v.m20, cbE), sum(v.m20o, cbO));
    const __m256i bg = _mm256_shuffle_epi8(_mm256_packus_epi16(b16, g16), v.bgOrder);
    const __m256i rw = _mm256_shuffle_epi8(_mm256_packus_epi16(r16, r16), v.rOrder);
    const __m256i lo = _mm256_unpacklo_epi16(bg, rw), hi = _mm256_unpackhi_epi16(bg, rw);
    put(v, d, _mm256_permute2x128_si256(lo, hi, 0x20));
    put(v, d + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
}

template <int Sh>
inline void pairs8(const Vec &v, __m256i uv, __m256i yw, uint8_t *d)
{
    pairs8Apart<Sh>(v, uv, uv, yw, d);
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

// Sited chroma two to one (RowKernels.h), 16 pixels a step: across in 16-bit lanes, both words of a
// pair at once (cosited: the pair itself and the rounded mean of two; centred: (a + 3b + 2) >> 2), exact
// for words up to sitedPairLimit(); then the paired kernel with chroma apart.
template <int LK, bool Centre, int Sh>
void sitedBody(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(luma);
    uint8_t *d = static_cast<uint8_t *>(dst);
    const __m256i two = _mm256_set1_epi16(2);
    constexpr size_t lumaBytes = LK == kLuma8 ? 1 : 2;
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const uint32_t *s = pairs + i / 2;
        const __m256i s1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s));
        const __m256i s2 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s + 1));
        __m256i e, o;
        if (Centre) {
            const __m256i t = _mm256_add_epi16(_mm256_add_epi16(s1, s1), _mm256_add_epi16(s1, two));
            e = _mm256_srli_epi16(_mm256_add_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(s - 1)), t), 2);
            o = _mm256_srli_epi16(_mm256_add_epi16(t, s2), 2);
        } else {
            e = s1;
            o = _mm256_avg_epu16(s1, s2);
        }
        const uint8_t *yi = y + size_t(i) * lumaBytes;
        __m256i yw;
        if constexpr (LK == kLuma8) {
            yw = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i *>(yi)));
        } else {
            const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(yi));
            if constexpr (LK == kLuma16) {
                // Codes with bit 15 set are not int16: such a block goes to the template.
                if (!_mm256_testz_si256(x, _mm256_set1_epi16(int16_t(0x8000)))) {
                    sitedRow<LK, 1, Centre>(p, yi, s, d + size_t(i) * 4, 16);
                    continue;
                }
                yw = x;
            } else {
                yw = LK == kLumaUyvy8 ? _mm256_srli_epi16(x, 8) : _mm256_and_si256(x, _mm256_set1_epi16(0xff));
            }
        }
        pairs8Apart<Sh>(v, e, o, yw, d + size_t(i) * 4);
    }
    if (i < n) sitedRow<LK, 1, Centre>(p, y + size_t(i) * lumaBytes, pairs + i / 2, d + size_t(i) * 4, n - i);
}

// Four to one, 8 pixels a step: lane j (pixel 4q + r) weighs pairs a and a + 1 of the eight loaded from
// pair k - 1, with the siting's weights reduced by their common factor as per-lane multiplies; then each
// pixel with its own chroma.
template <int LK, bool Centre, int Sh>
void sitedBody4(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(luma);
    uint8_t *d = static_cast<uint8_t *>(dst);
    constexpr int down = Centre ? 3 : 2;
    const __m256i ia = Centre ? _mm256_setr_epi32(0, 0, 1, 1, 1, 1, 2, 2) : _mm256_setr_epi32(1, 1, 1, 1, 2, 2, 2, 2);
    const __m256i ib = _mm256_add_epi32(ia, _mm256_set1_epi32(1));
    const __m256i wa = Centre
                           ? _mm256_setr_epi32(0x30003, 0x10001, 0x70007, 0x50005, 0x30003, 0x10001, 0x70007, 0x50005)
                           : _mm256_setr_epi32(0x40004, 0x30003, 0x20002, 0x10001, 0x40004, 0x30003, 0x20002, 0x10001);
    const __m256i wb = _mm256_sub_epi16(_mm256_set1_epi16(int16_t(1 << down)), wa);
    const __m256i round = _mm256_set1_epi16(int16_t(1 << (down - 1)));
    const __m256i order =
        _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 4, 8, -1, 1, 5, 9, -1, 2, 6, 10, -1, 3, 7, 11, -1));
    const auto sra = [&](__m256i x) {
        if constexpr (Sh >= 0)
            return _mm256_srai_epi32(x, Sh);
        else
            return _mm256_sra_epi32(x, v.shift);
    };
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(pairs + i / 4 - 1));
        const __m256i a = _mm256_mullo_epi16(_mm256_permutevar8x32_epi32(l, ia), wa);
        const __m256i b = _mm256_mullo_epi16(_mm256_permutevar8x32_epi32(l, ib), wb);
        const __m256i uv = _mm256_srli_epi16(_mm256_add_epi16(_mm256_add_epi16(a, b), round), down);
        const uint8_t *yi = y + size_t(i) * (LK == kLuma8 ? 1 : 2);
        __m256i y32;
        if constexpr (LK == kLuma8) {
            y32 = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(yi)));
        } else {
            y32 = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(yi)));
            if (!_mm256_testz_si256(y32, _mm256_set1_epi32(0x8000))) {
                sitedRow<LK, 2, Centre>(p, yi, pairs + i / 4, d + size_t(i) * 4, 8);
                continue;
            }
        }
        const __m256i r =
            _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(uv, v.uvR), v.aR), _mm256_madd_epi16(y32, v.m00));
        const __m256i g =
            _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(uv, v.uvG), v.aG), _mm256_madd_epi16(y32, v.m10));
        const __m256i bl =
            _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(uv, v.uvB), v.aB), _mm256_madd_epi16(y32, v.m20));
        // Per 128-bit lane: b0..3 g0..3 r0..3 r0..3 after the packs, then each pixel's blue, green, red.
        const __m256i bytes =
            _mm256_packus_epi16(_mm256_packs_epi32(sra(bl), sra(g)), _mm256_packs_epi32(sra(r), sra(r)));
        put(v, d + size_t(i) * 4, _mm256_shuffle_epi8(bytes, order));
    }
    if (i < n)
        sitedRow<LK, 2, Centre>(p, y + size_t(i) * (LK == kLuma8 ? 1 : 2), pairs + i / 4, d + size_t(i) * 4, n - i);
}

template <int LK, int SX, bool Centre>
void sitedFast(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    if (!usable(p)) return sitedRow<LK, SX, Centre>(p, luma, pairs, dst, n);
    if constexpr (SX == 1)
        sitedBody<LK, Centre, -1>(p, luma, pairs, dst, n);
    else if constexpr (LK == kLuma8 || LK == kLuma16)
        sitedBody4<LK, Centre, -1>(p, luma, pairs, dst, n);
    else
        sitedRow<LK, SX, Centre>(p, luma, pairs, dst, n);
}

// High-dynamic-range rows, 8 pixels a step: the portable row's single-precision steps one by one (no
// fused multiply-add, the same order), its table lookups as gathers. A row's last pixels go through a
// zero-padded copy; the tone table, when there is one, is a byte pass over the row afterwards.
void hdrRowFast(const HdrParams &h, const uint16_t *c0, const uint16_t *c1, const uint16_t *c2, void *dst, int32_t n)
{
    __m256 a[3][3], b[3], m[9];
    for (int i = 0; i < 3; ++i) {
        b[i] = _mm256_set1_ps(h.b[i]);
        for (int j = 0; j < 3; ++j) a[i][j] = _mm256_set1_ps(h.a[i][j]);
    }
    for (int i = 0; i < 9; ++i) m[i] = _mm256_set1_ps(h.prim[i]);
    const __m256 scale = _mm256_set1_ps(65535.0f), half = _mm256_set1_ps(0.5f);
    const __m256 zero = _mm256_setzero_ps(), one = _mm256_set1_ps(1.0f);
    const __m256i low = _mm256_set1_epi32(0xff), top = _mm256_set1_epi32(int32_t(0xff000000u));
    const __m256i first = _mm256_set1_epi32(int32_t(kHdrCodeFirst)), zeroI = _mm256_setzero_si256();
    const int *code = reinterpret_cast<const int *>(h.toCode);
    const auto eight = [&](const uint16_t *p0, const uint16_t *p1, const uint16_t *p2) {
        const __m256 s0 =
            _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p0))));
        const __m256 s1 =
            _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p1))));
        const __m256 s2 =
            _mm256_cvtepi32_ps(_mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p2))));
        __m256 lin[3];
        for (int i = 0; i < 3; ++i) {
            __m256 e = _mm256_add_ps(_mm256_mul_ps(a[i][0], s0), _mm256_mul_ps(a[i][1], s1));
            e = _mm256_add_ps(_mm256_add_ps(e, _mm256_mul_ps(a[i][2], s2)), b[i]);
            const __m256 q = _mm256_add_ps(_mm256_mul_ps(e, scale), half);
            const __m256i idx = _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(q, zero), scale));
            lin[i] = _mm256_i32gather_ps(h.toLinear, idx, 4);
        }
        __m256i px = _mm256_setzero_si256();
        for (int i = 0; i < 3; ++i) {
            __m256 l = _mm256_add_ps(_mm256_mul_ps(m[3 * i], lin[0]), _mm256_mul_ps(m[3 * i + 1], lin[1]));
            l = _mm256_add_ps(l, _mm256_mul_ps(m[3 * i + 2], lin[2]));
            l = _mm256_min_ps(_mm256_max_ps(l, zero), one);
            const __m256i at = _mm256_max_epi32(
                _mm256_sub_epi32(_mm256_srli_epi32(_mm256_castps_si256(l), kHdrCodeShift), first), zeroI);
            const __m256i c = _mm256_and_si256(_mm256_i32gather_epi32(code, at, 1), low);
            px = _mm256_or_si256(px, _mm256_slli_epi32(c, 16 - 8 * i));
        }
        return px;
    };
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t x = 0;
    for (; x + 8 <= n; x += 8) {
        const __m256i px = eight(c0 + x, c1 + x, c2 + x);
        __m256i *at = reinterpret_cast<__m256i *>(d + size_t(x) * 4);
        _mm256_storeu_si256(at, _mm256_or_si256(_mm256_and_si256(_mm256_loadu_si256(at), top), px));
    }
    if (x < n) {
        alignas(32) uint16_t t0[8] = {}, t1[8] = {}, t2[8] = {};
        alignas(32) uint32_t out[8];
        for (int32_t i = x; i < n; ++i) t0[i - x] = c0[i], t1[i - x] = c1[i], t2[i - x] = c2[i];
        _mm256_store_si256(reinterpret_cast<__m256i *>(out), eight(t0, t1, t2));
        kavri_u32a *px = reinterpret_cast<kavri_u32a *>(d);
        for (int32_t i = x; i < n; ++i) put(px + i, out[i - x]);
    }
    if (h.toneBytes)
        for (int32_t i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c) d[4 * size_t(i) + size_t(c)] = h.toneBytes[d[4 * size_t(i) + size_t(c)]];
}

} // namespace

KernelSet customise(KernelSet k)
{
    k.planar[kU8][1][0] = planar420Fast<kU8>;
    k.planar[kS8][1][0] = planar420Fast<kS8>;
    k.nv12[0][0] = nv12Fast<kU8>;
    k.nv12[1][0] = nv12Fast<kS8>;
    k.hdrRow = hdrRowFast;
    for (int c = 0; c < 2; ++c) {
        const bool centre = c == 1;
        k.sitedRow[kLuma8][0][c] = centre ? sitedFast<kLuma8, 1, true> : sitedFast<kLuma8, 1, false>;
        k.sitedRow[kLuma16][0][c] = centre ? sitedFast<kLuma16, 1, true> : sitedFast<kLuma16, 1, false>;
        k.sitedRow[kLumaUyvy8][0][c] = centre ? sitedFast<kLumaUyvy8, 1, true> : sitedFast<kLumaUyvy8, 1, false>;
        k.sitedRow[kLumaYuyv8][0][c] = centre ? sitedFast<kLumaYuyv8, 1, true> : sitedFast<kLumaYuyv8, 1, false>;
        k.sitedRow[kLuma8][1][c] = centre ? sitedFast<kLuma8, 2, true> : sitedFast<kLuma8, 2, false>;
        k.sitedRow[kLuma16][1][c] = centre ? sitedFast<kLuma16, 2, true> : sitedFast<kLuma16, 2, false>;
    }
    return k;
}

} // namespace kavri::pixel::avx2
