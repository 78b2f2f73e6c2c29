// The row kernels compiled for AVX-512 (F, BW, VL, DQ, VBMI), with hand-written loops for the most
// used families. They compute exactly the portable arithmetic:
//  - samples that fit in 16 signed bits are multiplied with vpmaddwd, two products a 32-bit lane
//    (chroma: m1*u + m2*v in one instruction; luma: (y_even, y_odd) pairs against (m0, 0) / (0, m0)),
//    which equals the 32-bit products whenever coefficients and samples fit in int16;
//  - the clamp to 0..255 is vpmaxsd/vpminsd, the tone table a 256-byte vpermi2b lookup;
//  - pixels are stored with a byte-masked store, so the fourth byte is never written.
// Rows or blocks these kernels cannot take exactly (an up shift, coefficients beyond int16, unsigned
// 16-bit samples with bit 15 set) go to the compiler-vectorised templates of this same set.
#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's AVX-512 headers start many intrinsics from _mm512_undefined_epi32(), which its own
// -Wmaybe-uninitialized then reports at every use (a compiler bug, not a fault of this file).
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#define KAVRI_KERNEL_NS avx512
#define KAVRI_KERNEL_NAME "avx512"
#define KAVRI_KERNEL_CUSTOMISE customise
#include "pixel/RowKernels.inc"

#include <immintrin.h>
#include <type_traits>

namespace kavri::pixel::avx512 {
namespace {

constexpr __mmask64 kColourBytes = 0x7777777777777777ull; // bytes 0..2 of every pixel

struct Vec {
    __m512i m00, m10, m20;       // (m0, 0) pairs: luma of even pixels
    __m512i m00o, m10o, m20o;    // (0, m0) pairs: luma of odd pixels
    __m512i uvR, uvG, uvB;       // (m1, m2) pairs
    __m512i aR, aG, aB;
    __m128i shift;
    __m512i zero, top;
    __m512i t0, t1, t2, t3; // tone table
};

inline bool fits16(uint32_t v) { return int32_t(v) >= -32768 && int32_t(v) <= 32767; }

inline bool usable(const RowParams &p)
{
    if (p.up != 0) return false;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (!fits16(p.m[i][j])) return false;
    return true;
}

inline __m512i pairOf(uint32_t lo, uint32_t hi) { return _mm512_set1_epi32(int32_t((lo & 0xffffu) | (hi << 16))); }

Vec vecOf(const RowParams &p)
{
    Vec v{};
    v.m00 = pairOf(p.m[0][0], 0), v.m10 = pairOf(p.m[1][0], 0), v.m20 = pairOf(p.m[2][0], 0);
    v.m00o = pairOf(0, p.m[0][0]), v.m10o = pairOf(0, p.m[1][0]), v.m20o = pairOf(0, p.m[2][0]);
    v.uvR = pairOf(p.m[0][1], p.m[0][2]), v.uvG = pairOf(p.m[1][1], p.m[1][2]), v.uvB = pairOf(p.m[2][1], p.m[2][2]);
    v.aR = _mm512_set1_epi32(int32_t(p.add[0])), v.aG = _mm512_set1_epi32(int32_t(p.add[1]));
    v.aB = _mm512_set1_epi32(int32_t(p.add[2]));
    v.shift = _mm_cvtsi32_si128(p.shift);
    v.zero = _mm512_setzero_si512();
    v.top = _mm512_set1_epi32(255);
    if (p.toneBytes) {
        v.t0 = _mm512_loadu_si512(p.toneBytes);
        v.t1 = _mm512_loadu_si512(p.toneBytes + 64);
        v.t2 = _mm512_loadu_si512(p.toneBytes + 128);
        v.t3 = _mm512_loadu_si512(p.toneBytes + 192);
    }
    return v;
}

inline __m512i level(const Vec &v, __m512i sum)
{
    return _mm512_min_epi32(_mm512_max_epi32(_mm512_sra_epi32(sum, v.shift), v.zero), v.top);
}

inline __m512i packPixels(__m512i r, __m512i g, __m512i b)
{
    return _mm512_or_si512(_mm512_slli_epi32(r, 16), _mm512_or_si512(_mm512_slli_epi32(g, 8), b));
}

inline __m512i toneBytes(const Vec &v, __m512i px)
{
    const __m512i lo = _mm512_permutex2var_epi8(v.t0, px, v.t1);
    const __m512i hi = _mm512_permutex2var_epi8(v.t2, px, v.t3);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(px), lo, hi);
}

template <bool Tone> inline void store(const Vec &v, uint8_t *d, __m512i px)
{
    if (Tone) px = toneBytes(v, px);
    _mm512_mask_storeu_epi8(d, kColourBytes, px);
}

// 16 chroma pairs (uv: dword = u | v << 16) and 32 luma words (yw: dword = y_even | y_odd << 16) to
// 32 pixels at d.
template <bool Tone> inline void pairs16(const Vec &v, __m512i uv, __m512i yw, uint8_t *d)
{
    const __m512i cr = _mm512_add_epi32(_mm512_madd_epi16(uv, v.uvR), v.aR);
    const __m512i cg = _mm512_add_epi32(_mm512_madd_epi16(uv, v.uvG), v.aG);
    const __m512i cb = _mm512_add_epi32(_mm512_madd_epi16(uv, v.uvB), v.aB);
    const __m512i pe = packPixels(level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m00), cr)),
                                  level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m10), cg)),
                                  level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m20), cb)));
    const __m512i po = packPixels(level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m00o), cr)),
                                  level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m10o), cg)),
                                  level(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m20o), cb)));
    const __m512i lo = _mm512_set_epi32(23, 7, 22, 6, 21, 5, 20, 4, 19, 3, 18, 2, 17, 1, 16, 0);
    const __m512i hi = _mm512_set_epi32(31, 15, 30, 14, 29, 13, 28, 12, 27, 11, 26, 10, 25, 9, 24, 8);
    store<Tone>(v, d, _mm512_permutex2var_epi32(pe, lo, po));
    store<Tone>(v, d + 64, _mm512_permutex2var_epi32(pe, hi, po));
}

// 16 pixels with their own chroma (4:4:4 and planar RGB): y as dwords.
template <bool Tone> inline void single16(const Vec &v, __m512i uv, __m512i y, uint8_t *d)
{
    const __m512i r = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvR), v.aR), _mm512_madd_epi16(y, v.m00));
    const __m512i g = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvG), v.aG), _mm512_madd_epi16(y, v.m10));
    const __m512i b = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvB), v.aB), _mm512_madd_epi16(y, v.m20));
    store<Tone>(v, d, packPixels(level(v, r), level(v, g), level(v, b)));
}

inline __m512i bytesToDwords(const void *p, bool isSigned)
{
    const __m128i b = _mm_loadu_si128(static_cast<const __m128i *>(p));
    return isSigned ? _mm512_cvtepi8_epi32(b) : _mm512_cvtepu8_epi32(b);
}

inline __m512i wordPairs(__m512i u32, __m512i v32)
{
    return _mm512_or_si512(_mm512_and_si512(u32, _mm512_set1_epi32(0xffff)), _mm512_slli_epi32(v32, 16));
}

template <int K, int SX, bool Tone>
void planarFast(const RowParams &p, const void *c0, const void *c1, const void *c2, void *dst, int32_t n)
{
    if (!usable(p)) return planarRow<K, SX, Tone>(p, c0, c1, c2, dst, n);
    constexpr bool S = K == kS8 || K == kS16;
    constexpr bool Wide = K == kU16 || K == kS16;
    constexpr int G = 1 << SX;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(c0);
    const uint8_t *u = static_cast<const uint8_t *>(c1);
    const uint8_t *w = static_cast<const uint8_t *>(c2);
    uint8_t *d = static_cast<uint8_t *>(dst);
    constexpr int B = Wide ? 2 : 1;
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m512i u32, v32, yv;
        if (Wide) {
            const __m256i ul = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(u + i * 2));
            const __m256i vl = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(w + i * 2));
            u32 = S ? _mm512_cvtepi16_epi32(ul) : _mm512_cvtepu16_epi32(ul);
            v32 = S ? _mm512_cvtepi16_epi32(vl) : _mm512_cvtepu16_epi32(vl);
            if (SX == 1)
                yv = _mm512_loadu_si512(y + i * 4);
            else {
                const __m256i yl = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(y + i * 2));
                yv = S ? _mm512_cvtepi16_epi32(yl) : _mm512_cvtepu16_epi32(yl);
            }
            if (!S) {
                // Unsigned words with bit 15 set are not int16: leave such a block to the template.
                const __m512i any = _mm512_or_si512(_mm512_or_si512(u32, v32), yv);
                if (_mm512_test_epi32_mask(any, _mm512_set1_epi32(0x80008000))) {
                    planarRow<K, SX, Tone>(p, y + size_t(i) * G * B, u + size_t(i) * B, w + size_t(i) * B,
                                           d + size_t(i) * G * 4, 16);
                    continue;
                }
            }
        } else {
            u32 = bytesToDwords(u + i, S);
            v32 = bytesToDwords(w + i, S);
            if (SX == 1) {
                const __m256i yl = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(y + i * 2));
                yv = S ? _mm512_cvtepi8_epi16(yl) : _mm512_cvtepu8_epi16(yl);
            } else {
                yv = bytesToDwords(y + i, S);
            }
        }
        const __m512i uv = wordPairs(u32, v32);
        if (SX == 1)
            pairs16<Tone>(v, uv, yv, d + size_t(i) * 8);
        else
            single16<Tone>(v, uv, S ? _mm512_and_si512(yv, _mm512_set1_epi32(0xffff)) : yv, d + size_t(i) * 4);
    }
    if (i < n)
        planarRow<K, SX, Tone>(p, y + size_t(i) * G * B, u + size_t(i) * B, w + size_t(i) * B, d + size_t(i) * G * 4,
                               n - i);
}

template <int K, bool Tone>
void nv12Fast(const RowParams &p, const void *yRow, const void *uvRow, void *dst, int32_t n)
{
    if (!usable(p)) return nv12Row<K, Tone>(p, yRow, uvRow, dst, n);
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(yRow);
    const uint8_t *uv = static_cast<const uint8_t *>(uvRow);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(uv + 2 * i));
        const __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(y + 2 * i));
        pairs16<Tone>(v, S ? _mm512_cvtepi8_epi16(c) : _mm512_cvtepu8_epi16(c),
                      S ? _mm512_cvtepi8_epi16(l) : _mm512_cvtepu8_epi16(l), d + size_t(i) * 8);
    }
    if (i < n) nv12Row<K, Tone>(p, y + 2 * i, uv + 2 * i, d + size_t(i) * 8, n - i);
}

// Packed 4:2:2, 8-bit: a dword holds one pair (U Y0 V Y1 or Y0 U Y1 V); its two 16-bit halves give
// the (u, v) and (y0, y1) word pairs by a byte shift.
template <int K, bool UFirst, bool Tone> void packedFast(const RowParams &p, const void *row, void *dst, int32_t n)
{
    if (!usable(p)) return packedRow<K, UFirst, Tone>(p, row, dst, n);
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *s = static_cast<const uint8_t *>(row);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m512i x = _mm512_loadu_si512(s + 4 * i);
        const __m512i lowBytes = S ? _mm512_srai_epi16(_mm512_slli_epi16(x, 8), 8) : _mm512_and_si512(x, _mm512_set1_epi16(0xff));
        const __m512i highBytes = S ? _mm512_srai_epi16(x, 8) : _mm512_srli_epi16(x, 8);
        pairs16<Tone>(v, UFirst ? lowBytes : highBytes, UFirst ? highBytes : lowBytes, d + size_t(i) * 8);
    }
    if (i < n) packedRow<K, UFirst, Tone>(p, s + 4 * i, d + size_t(i) * 8, n - i);
}

// Interleaved three-byte RGB: 16 pixels from 48 bytes (a masked load never touches the bytes beyond),
// rearranged by vpermb into (s0, s1) word pairs and s2 words.
template <int K, bool Tone> void rgb3Fast(const RowParams &p, const void *row, void *dst, int32_t n)
{
    if (!usable(p)) return rgbRow<K, 3, Tone>(p, row, dst, n);
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *s = static_cast<const uint8_t *>(row);
    uint8_t *d = static_cast<uint8_t *>(dst);
    alignas(64) uint8_t idx01[64], idx2[64];
    for (int j = 0; j < 16; ++j) {
        idx01[4 * j] = uint8_t(3 * j), idx01[4 * j + 1] = 63, idx01[4 * j + 2] = uint8_t(3 * j + 1), idx01[4 * j + 3] = 63;
        idx2[4 * j] = uint8_t(3 * j + 2), idx2[4 * j + 1] = 63, idx2[4 * j + 2] = 63, idx2[4 * j + 3] = 63;
    }
    const __m512i i01 = _mm512_load_si512(idx01), i2 = _mm512_load_si512(idx2);
    // (s0, s1) against (m0, m1) and (s2, 0) against (m2, 0)
    const __m512i kR01 = pairOf(p.m[0][0], p.m[0][1]), kG01 = pairOf(p.m[1][0], p.m[1][1]), kB01 = pairOf(p.m[2][0], p.m[2][1]);
    const __m512i kR2 = pairOf(p.m[0][2], 0), kG2 = pairOf(p.m[1][2], 0), kB2 = pairOf(p.m[2][2], 0);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        // byte 48 .. 63 are masked off and read as zero; index 63 therefore yields a zero byte
        const __m512i x = _mm512_maskz_loadu_epi8(0x0000ffffffffffffull, s + 3 * i);
        __m512i a = _mm512_permutexvar_epi8(i01, x), b = _mm512_permutexvar_epi8(i2, x);
        if (S) {
            a = _mm512_srai_epi16(_mm512_slli_epi16(a, 8), 8);
            b = _mm512_srai_epi16(_mm512_slli_epi16(b, 8), 8);
        }
        const __m512i r = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kR01), _mm512_madd_epi16(b, kR2)), v.aR);
        const __m512i g = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kG01), _mm512_madd_epi16(b, kG2)), v.aG);
        const __m512i bl = _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kB01), _mm512_madd_epi16(b, kB2)), v.aB);
        store<Tone>(v, d + size_t(i) * 4, packPixels(level(v, r), level(v, g), level(v, bl)));
    }
    if (i < n) rgbRow<K, 3, Tone>(p, s + 3 * i, d + size_t(i) * 4, n - i);
}

void toneRowFast(void *dst, int32_t n, const uint8_t *table)
{
    Vec v{};
    v.t0 = _mm512_loadu_si512(table), v.t1 = _mm512_loadu_si512(table + 64);
    v.t2 = _mm512_loadu_si512(table + 128), v.t3 = _mm512_loadu_si512(table + 192);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) store<true>(v, d + size_t(i) * 4, _mm512_loadu_si512(d + size_t(i) * 4));
    if (i < n) {
        const __mmask64 m = _cvtu64_mask64((n - i) >= 16 ? ~0ull : ((1ull << (4 * (n - i))) - 1));
        const __m512i px = _mm512_maskz_loadu_epi8(m, d + size_t(i) * 4);
        _mm512_mask_storeu_epi8(d + size_t(i) * 4, m & kColourBytes, toneBytes(v, px));
    }
}

// 64 samples a step: differences as int16, squares summed with vpmaddwd, the clamp to 0..255 by the
// saturating pack, the table by vpermi2b.
template <bool S>
uint64_t diffRow8Fast(const uint8_t *a, const uint8_t *b, uint8_t *dst, int32_t n, const uint8_t *table, int32_t mid)
{
    Vec v{};
    v.t0 = _mm512_loadu_si512(table), v.t1 = _mm512_loadu_si512(table + 64);
    v.t2 = _mm512_loadu_si512(table + 128), v.t3 = _mm512_loadu_si512(table + 192);
    const __m512i vmid = _mm512_set1_epi16(int16_t(mid));
    const __m512i order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
    uint64_t sum = 0;
    int32_t i = 0;
    while (i + 64 <= n) {
        // int32 lanes hold at most 2 * 255^2 per step: flushed to 64 bits every 1024 steps
        __m512i acc = _mm512_setzero_si512();
        for (int steps = 0; steps < 1024 && i + 64 <= n; ++steps, i += 64) {
            const __m512i xa = _mm512_loadu_si512(a + i), xb = _mm512_loadu_si512(b + i);
            const __m256i a0 = _mm512_castsi512_si256(xa), a1 = _mm512_extracti64x4_epi64(xa, 1);
            const __m256i b0 = _mm512_castsi512_si256(xb), b1 = _mm512_extracti64x4_epi64(xb, 1);
            const __m512i d0 = S ? _mm512_sub_epi16(_mm512_cvtepi8_epi16(a0), _mm512_cvtepi8_epi16(b0))
                                 : _mm512_sub_epi16(_mm512_cvtepu8_epi16(a0), _mm512_cvtepu8_epi16(b0));
            const __m512i d1 = S ? _mm512_sub_epi16(_mm512_cvtepi8_epi16(a1), _mm512_cvtepi8_epi16(b1))
                                 : _mm512_sub_epi16(_mm512_cvtepu8_epi16(a1), _mm512_cvtepu8_epi16(b1));
            acc = _mm512_add_epi32(acc, _mm512_add_epi32(_mm512_madd_epi16(d0, d0), _mm512_madd_epi16(d1, d1)));
            // packus works per 128-bit lane; the qword permute restores the sample order
            const __m512i idx = _mm512_permutexvar_epi64(
                order, _mm512_packus_epi16(_mm512_add_epi16(d0, vmid), _mm512_add_epi16(d1, vmid)));
            _mm512_storeu_si512(dst + i, toneBytes(v, idx));
        }
        const __m512i lo = _mm512_cvtepu32_epi64(_mm512_castsi512_si256(acc));
        const __m512i hi = _mm512_cvtepu32_epi64(_mm512_extracti64x4_epi64(acc, 1));
        sum += uint64_t(_mm512_reduce_add_epi64(_mm512_add_epi64(lo, hi)));
    }
    if (i < n) sum += diffRow8<std::conditional_t<S, int8_t, uint8_t>>(a + i, b + i, dst + i, n - i, table, mid);
    return sum;
}

} // namespace

KernelSet customise(KernelSet k)
{
    for (int t = 0; t < 2; ++t) {
        const bool tone = t == 1;
        k.planar[kU8][1][t] = tone ? planarFast<kU8, 1, true> : planarFast<kU8, 1, false>;
        k.planar[kS8][1][t] = tone ? planarFast<kS8, 1, true> : planarFast<kS8, 1, false>;
        k.planar[kU16][1][t] = tone ? planarFast<kU16, 1, true> : planarFast<kU16, 1, false>;
        k.planar[kS16][1][t] = tone ? planarFast<kS16, 1, true> : planarFast<kS16, 1, false>;
        k.planar[kU8][0][t] = tone ? planarFast<kU8, 0, true> : planarFast<kU8, 0, false>;
        k.planar[kS8][0][t] = tone ? planarFast<kS8, 0, true> : planarFast<kS8, 0, false>;
        k.planar[kU16][0][t] = tone ? planarFast<kU16, 0, true> : planarFast<kU16, 0, false>;
        k.planar[kS16][0][t] = tone ? planarFast<kS16, 0, true> : planarFast<kS16, 0, false>;
        k.nv12[0][t] = tone ? nv12Fast<kU8, true> : nv12Fast<kU8, false>;
        k.nv12[1][t] = tone ? nv12Fast<kS8, true> : nv12Fast<kS8, false>;
        k.packedUFirst[kU8][t] = tone ? packedFast<kU8, true, true> : packedFast<kU8, true, false>;
        k.packedUFirst[kS8][t] = tone ? packedFast<kS8, true, true> : packedFast<kS8, true, false>;
        k.packedYFirst[kU8][t] = tone ? packedFast<kU8, false, true> : packedFast<kU8, false, false>;
        k.packedYFirst[kS8][t] = tone ? packedFast<kS8, false, true> : packedFast<kS8, false, false>;
        k.rgb3[kU8][t] = tone ? rgb3Fast<kU8, true> : rgb3Fast<kU8, false>;
        k.rgb3[kS8][t] = tone ? rgb3Fast<kS8, true> : rgb3Fast<kS8, false>;
    }
    k.toneRow = toneRowFast;
    k.diffRow8[0] = diffRow8Fast<false>;
    k.diffRow8[1] = diffRow8Fast<true>;
    return k;
}

} // namespace kavri::pixel::avx512
