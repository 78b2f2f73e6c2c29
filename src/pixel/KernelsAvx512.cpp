// The row kernels compiled for AVX-512 (F, BW, VL, DQ, VBMI), with hand-written loops for the most
// used families. They compute exactly the portable arithmetic:
//  - samples that fit in 16 signed bits are multiplied with vpmaddwd, two products a 32-bit lane
//    (chroma: m1*u + m2*v in one instruction; luma: (y_even, y_odd) pairs against (m0, 0) / (0, m0)),
//    which equals the 32-bit products whenever coefficients and samples fit in int16;
//  - the clamp to 0..255 is the saturation of two packs (int32 -> int16 -> uint8), the bytes are put
//    in pixel order by vpermb/vpshufb and the tone table is a 256-byte vpermi2b lookup;
//  - pixels are loaded, blended and stored whole, so the fourth byte keeps its value.
// Rows or blocks these kernels cannot take exactly (an up shift, coefficients beyond int16, unsigned
// 16-bit samples with bit 15 set) go to the compiler-vectorised templates of this same set.
#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's AVX-512 headers start many intrinsics from _mm512_undefined_epi32(), which its own
// -Wmaybe-uninitialized then reports at every use (a compiler bug, not a fault of this file).
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
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
    __m512i m00, m10, m20;    // (m0, 0) pairs: luma of even pixels
    __m512i m00o, m10o, m20o; // (0, m0) pairs: luma of odd pixels
    __m512i uvR, uvG, uvB;    // (m1, m2) pairs
    __m512i aR, aG, aB;
    __m128i shift;
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
    if (p.toneBytes) {
        v.t0 = _mm512_loadu_si512(p.toneBytes);
        v.t1 = _mm512_loadu_si512(p.toneBytes + 64);
        v.t2 = _mm512_loadu_si512(p.toneBytes + 128);
        v.t3 = _mm512_loadu_si512(p.toneBytes + 192);
    }
    return v;
}

// Sh >= 0: the shift as an immediate (one uop instead of two); -1: the shift from the parameters.
template <int Sh>
inline __m512i sra(const Vec &v, __m512i sum)
{
    if constexpr (Sh >= 0)
        return _mm512_srai_epi32(sum, Sh);
    else
        return _mm512_sra_epi32(sum, v.shift);
}

inline __m512i toneBytes(const Vec &v, __m512i px)
{
    const __m512i lo = _mm512_permutex2var_epi8(v.t0, px, v.t1);
    const __m512i hi = _mm512_permutex2var_epi8(v.t2, px, v.t3);
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(px), lo, hi);
}

template <bool Tone>
inline void store(const Vec &v, uint8_t *d, __m512i px)
{
    if (Tone) px = toneBytes(v, px);
    // Loaded, blended and stored whole: a byte-masked store was much slower on the AMD CPU measured once
    // the picture outgrew the caches (a 2160p 4:2:0 frame took 60 % longer), and no faster elsewhere.
    _mm512_storeu_si512(d, _mm512_mask_blend_epi8(kColourBytes, _mm512_loadu_si512(d), px));
}

// Byte gather of the paired kernels. After the two packs, 128-bit lane k of BG holds the blue of the
// even pixels 8k, 8k+2, 8k+4, 8k+6, of the odd ones 8k+1 .. 8k+7, then green likewise; RR holds red
// in the same order. Output pixel p (of 16) takes its bytes from lane (p / 8) + 2h for half h.
// Tables here are constant-initialised: code compiled for AVX-512 must not run before the CPU check,
// so this file has no dynamic initialisers.
struct PairOrder {
    alignas(64) uint8_t idx[2][64];
    constexpr PairOrder() : idx{}
    {
        for (int h = 0; h < 2; ++h)
            for (int p = 0; p < 16; ++p) {
                const int k = p / 8 + 2 * h, q = p % 8, j = q / 2, odd = q % 2;
                idx[h][4 * p] = uint8_t(16 * k + 4 * odd + j);
                idx[h][4 * p + 1] = uint8_t(16 * k + 8 + 4 * odd + j);
                idx[h][4 * p + 2] = uint8_t(64 + 16 * k + 4 * odd + j);
                idx[h][4 * p + 3] = 0;
            }
    }
};
constexpr PairOrder kPairOrder;

// vpermt2w indices interleaving the 16 words of two vectors: u0 v0 u1 v1 ...
alignas(64) constexpr uint16_t kInterleave16[32] = {0, 32, 1, 33, 2,  34, 3,  35, 4,  36, 5,  37, 6,  38, 7,  39,
                                                    8, 40, 9, 41, 10, 42, 11, 43, 12, 44, 13, 45, 14, 46, 15, 47};

// 16 chroma pairs (uv: dword = u | v << 16) and 32 luma words (yw: dword = y_even | y_odd << 16) to
// 32 pixels at d. The saturating packs are the clamp to 0..255.
// The same with chroma of their own for the even and the odd pixels (uvE, uvO: the pairs of pixels 2j
// and 2j + 1); with uvE = uvO the compiler shares the chroma products.
template <bool Tone, int Sh>
inline void pairs16Apart(const Vec &v, __m512i uvE, __m512i uvO, __m512i yw, uint8_t *d)
{
    const __m512i crE = _mm512_add_epi32(_mm512_madd_epi16(uvE, v.uvR), v.aR);
    const __m512i cgE = _mm512_add_epi32(_mm512_madd_epi16(uvE, v.uvG), v.aG);
    const __m512i cbE = _mm512_add_epi32(_mm512_madd_epi16(uvE, v.uvB), v.aB);
    const __m512i crO = _mm512_add_epi32(_mm512_madd_epi16(uvO, v.uvR), v.aR);
    const __m512i cgO = _mm512_add_epi32(_mm512_madd_epi16(uvO, v.uvG), v.aG);
    const __m512i cbO = _mm512_add_epi32(_mm512_madd_epi16(uvO, v.uvB), v.aB);
    const __m512i r16 = _mm512_packs_epi32(sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m00), crE)),
                                           sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m00o), crO)));
    const __m512i g16 = _mm512_packs_epi32(sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m10), cgE)),
                                           sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m10o), cgO)));
    const __m512i b16 = _mm512_packs_epi32(sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m20), cbE)),
                                           sra<Sh>(v, _mm512_add_epi32(_mm512_madd_epi16(yw, v.m20o), cbO)));
    const __m512i bg = _mm512_packus_epi16(b16, g16), rr = _mm512_packus_epi16(r16, r16);
    store<Tone>(v, d, _mm512_permutex2var_epi8(bg, _mm512_load_si512(kPairOrder.idx[0]), rr));
    store<Tone>(v, d + 64, _mm512_permutex2var_epi8(bg, _mm512_load_si512(kPairOrder.idx[1]), rr));
}

template <bool Tone, int Sh>
inline void pairs16(const Vec &v, __m512i uv, __m512i yw, uint8_t *d)
{
    pairs16Apart<Tone, Sh>(v, uv, uv, yw, d);
}

// 16 pixels from their 32-bit sums: packs clamp, then each lane's b0..3 g0..3 r0..3 become pixels.
template <bool Tone, int Sh>
inline void single16Sums(const Vec &v, __m512i r, __m512i g, __m512i b, uint8_t *d)
{
    const __m512i bg = _mm512_packs_epi32(sra<Sh>(v, b), sra<Sh>(v, g));
    const __m512i rr = _mm512_packs_epi32(sra<Sh>(v, r), sra<Sh>(v, r));
    const __m512i bytes = _mm512_packus_epi16(bg, rr);
    const __m512i order = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
    store<Tone>(v, d, _mm512_shuffle_epi8(bytes, order));
}

// 16 pixels with their own chroma (4:4:4 and planar RGB): y as dwords.
template <bool Tone, int Sh>
inline void single16(const Vec &v, __m512i uv, __m512i y, uint8_t *d)
{
    const __m512i r =
        _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvR), v.aR), _mm512_madd_epi16(y, v.m00));
    const __m512i g =
        _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvG), v.aG), _mm512_madd_epi16(y, v.m10));
    const __m512i b =
        _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(uv, v.uvB), v.aB), _mm512_madd_epi16(y, v.m20));
    single16Sums<Tone, Sh>(v, r, g, b, d);
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

template <int K, int SX, bool Tone, int Sh>
void planarBody(const RowParams &p, const void *c0, const void *c1, const void *c2, void *dst, int32_t n)
{
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
            // u and v words interleaved in one step: dword j = u_j | v_j << 16
            u32 = _mm512_permutex2var_epi16(_mm512_castsi256_si512(ul), _mm512_load_si512(kInterleave16),
                                            _mm512_castsi256_si512(vl));
            v32 = u32;
            if (SX == 1)
                yv = _mm512_loadu_si512(y + i * 4);
            else {
                const __m256i yl = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(y + i * 2));
                yv = S ? _mm512_cvtepi16_epi32(yl) : _mm512_cvtepu16_epi32(yl);
            }
            if (!S) {
                // Unsigned words with bit 15 set are not int16: leave such a block to the template.
                const __m512i any = _mm512_or_si512(u32, yv);
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
        const __m512i uv = Wide ? u32 : wordPairs(u32, v32);
        if (SX == 1)
            pairs16<Tone, Sh>(v, uv, yv, d + size_t(i) * 8);
        else
            single16<Tone, Sh>(v, uv, S ? _mm512_and_si512(yv, _mm512_set1_epi32(0xffff)) : yv, d + size_t(i) * 4);
    }
    if (i < n)
        planarRow<K, SX, Tone>(p, y + size_t(i) * G * B, u + size_t(i) * B, w + size_t(i) * B, d + size_t(i) * G * 4,
                               n - i);
}

template <int K, bool Tone, int Sh>
void nv12Body(const RowParams &p, const void *yRow, const void *uvRow, void *dst, int32_t n)
{
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(yRow);
    const uint8_t *uv = static_cast<const uint8_t *>(uvRow);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(uv + 2 * i));
        const __m256i l = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(y + 2 * i));
        pairs16<Tone, Sh>(v, S ? _mm512_cvtepi8_epi16(c) : _mm512_cvtepu8_epi16(c),
                          S ? _mm512_cvtepi8_epi16(l) : _mm512_cvtepu8_epi16(l), d + size_t(i) * 8);
    }
    if (i < n) nv12Row<K, Tone>(p, y + 2 * i, uv + 2 * i, d + size_t(i) * 8, n - i);
}

// Packed 4:2:2, 8-bit: a dword holds one pair (U Y0 V Y1 or Y0 U Y1 V); its two 16-bit halves give
// the (u, v) and (y0, y1) word pairs by a byte shift.
template <int K, bool UFirst, bool Tone, int Sh>
void packedBody(const RowParams &p, const void *row, void *dst, int32_t n)
{
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *s = static_cast<const uint8_t *>(row);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m512i x = _mm512_loadu_si512(s + 4 * i);
        const __m512i lowBytes =
            S ? _mm512_srai_epi16(_mm512_slli_epi16(x, 8), 8) : _mm512_and_si512(x, _mm512_set1_epi16(0xff));
        const __m512i highBytes = S ? _mm512_srai_epi16(x, 8) : _mm512_srli_epi16(x, 8);
        pairs16<Tone, Sh>(v, UFirst ? lowBytes : highBytes, UFirst ? highBytes : lowBytes, d + size_t(i) * 8);
    }
    if (i < n) packedRow<K, UFirst, Tone>(p, s + 4 * i, d + size_t(i) * 8, n - i);
}

// Interleaved three-byte RGB: 16 pixels from 48 bytes (a masked load never touches the bytes beyond),
// rearranged by vpermb into (s0, s1) word pairs and s2 words.
template <int K, bool Tone, int Sh>
void rgb3Body(const RowParams &p, const void *row, void *dst, int32_t n)
{
    constexpr bool S = K == kS8;
    const Vec v = vecOf(p);
    const uint8_t *s = static_cast<const uint8_t *>(row);
    uint8_t *d = static_cast<uint8_t *>(dst);
    alignas(64) uint8_t idx01[64], idx2[64];
    for (int j = 0; j < 16; ++j) {
        idx01[4 * j] = uint8_t(3 * j), idx01[4 * j + 1] = 63, idx01[4 * j + 2] = uint8_t(3 * j + 1),
                  idx01[4 * j + 3] = 63;
        idx2[4 * j] = uint8_t(3 * j + 2), idx2[4 * j + 1] = 63, idx2[4 * j + 2] = 63, idx2[4 * j + 3] = 63;
    }
    const __m512i i01 = _mm512_load_si512(idx01), i2 = _mm512_load_si512(idx2);
    // (s0, s1) against (m0, m1) and (s2, 0) against (m2, 0)
    const __m512i kR01 = pairOf(p.m[0][0], p.m[0][1]), kG01 = pairOf(p.m[1][0], p.m[1][1]),
                  kB01 = pairOf(p.m[2][0], p.m[2][1]);
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
        const __m512i r =
            _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kR01), _mm512_madd_epi16(b, kR2)), v.aR);
        const __m512i g =
            _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kG01), _mm512_madd_epi16(b, kG2)), v.aG);
        const __m512i bl =
            _mm512_add_epi32(_mm512_add_epi32(_mm512_madd_epi16(a, kB01), _mm512_madd_epi16(b, kB2)), v.aB);
        single16Sums<Tone, Sh>(v, r, g, bl, d + size_t(i) * 4);
    }
    if (i < n) rgbRow<K, 3, Tone>(p, s + 3 * i, d + size_t(i) * 4, n - i);
}

// v210: four groups (16 words) a step. The three 10-bit fields of every word are cut out, fields 0
// and 1 paired into one vector of words and field 2 into another, and vpermt2w picks each plane's
// samples in order.
struct V210Order {
    alignas(64) uint16_t y[32], u[32], v[32];
    constexpr V210Order() : y{}, u{}, v{}
    {
        for (int g = 0; g < 4; ++g) {
            const int w = 4 * g;
            const uint16_t ys[6] = {uint16_t(2 * w + 1),       uint16_t(2 * (w + 1)), uint16_t(32 + 2 * (w + 1)),
                                    uint16_t(2 * (w + 2) + 1), uint16_t(2 * (w + 3)), uint16_t(32 + 2 * (w + 3))};
            const uint16_t us[3] = {uint16_t(2 * w), uint16_t(2 * (w + 1) + 1), uint16_t(32 + 2 * (w + 2))};
            const uint16_t vs[3] = {uint16_t(32 + 2 * w), uint16_t(2 * (w + 2)), uint16_t(2 * (w + 3) + 1)};
            for (int k = 0; k < 6; ++k) y[6 * g + k] = ys[k];
            for (int k = 0; k < 3; ++k) u[3 * g + k] = us[k], v[3 * g + k] = vs[k];
        }
    }
};
constexpr V210Order kV210Order;

void v210UnpackFast(const uint32_t *words, uint16_t *y, uint16_t *u, uint16_t *v, int32_t n)
{
    const __m512i mask = _mm512_set1_epi32(0x3ff);
    const __m512i iy = _mm512_load_si512(kV210Order.y), iu = _mm512_load_si512(kV210Order.u);
    const __m512i iv = _mm512_load_si512(kV210Order.v);
    int32_t g = 0;
    for (; g + 4 <= n; g += 4) {
        const __m512i w = _mm512_loadu_si512(words + 4 * g);
        const __m512i f01 = _mm512_or_si512(_mm512_and_si512(w, mask),
                                            _mm512_slli_epi32(_mm512_and_si512(_mm512_srli_epi32(w, 10), mask), 16));
        const __m512i f2 = _mm512_and_si512(_mm512_srli_epi32(w, 20), mask);
        _mm512_mask_storeu_epi16(y + 6 * g, 0xffffff, _mm512_permutex2var_epi16(f01, iy, f2));
        _mm512_mask_storeu_epi16(u + 3 * g, 0xfff, _mm512_permutex2var_epi16(f01, iu, f2));
        _mm512_mask_storeu_epi16(v + 3 * g, 0xfff, _mm512_permutex2var_epi16(f01, iv, f2));
    }
    if (g < n) v210Unpack(words + 4 * g, y + 6 * g, u + 3 * g, v + 3 * g, n - g);
}

// Sited chroma, vertically: 32 pairs a step in 16-bit lanes, where (16 - wv) a + wv b of codes up to
// 4095 always fits; the two components' words then interleaved into pairs by vpermt2w.
struct PairInterleave {
    alignas(64) uint16_t idx[2][32];
    constexpr PairInterleave() : idx{}
    {
        for (int h = 0; h < 2; ++h)
            for (int j = 0; j < 16; ++j) {
                idx[h][2 * j] = uint16_t(16 * h + j);
                idx[h][2 * j + 1] = uint16_t(32 + 16 * h + j);
            }
    }
};
constexpr PairInterleave kPairInterleave;

template <int CK, int WV>
void sitedWeighFast(const void *a1, const void *a2, const void *b1, const void *b2, int32_t wvAny, uint32_t max,
                    int32_t down, uint32_t *pairs, int32_t n)
{
    const int32_t wv = WV >= 0 ? WV : wvAny;
    if (wv < 0 || wv > 16 || down < 0 || down > 4 || (CK == kChromaPlanes16 && max > 4095))
        return sitedWeigh<CK, WV>(a1, a2, b1, b2, wvAny, max, down, pairs, n);
    const bool both = wv != 0;
    const __m512i wa = _mm512_set1_epi16(int16_t(16 - wv)), wb = _mm512_set1_epi16(int16_t(wv));
    const __m512i top = _mm512_set1_epi16(int16_t(max));
    const __m128i drop = _mm_cvtsi32_si128(down), up = _mm_cvtsi32_si128(4 - down);
    // The sums reach 16 * 4095 = 65520: unsigned 16-bit words, shifted logically.
    const auto weigh = [&](__m512i a, __m512i b) {
        return both ? _mm512_srl_epi16(_mm512_add_epi16(_mm512_mullo_epi16(a, wa), _mm512_mullo_epi16(b, wb)), drop)
                    : _mm512_sll_epi16(a, up);
    };
    const uint8_t *pa1 = static_cast<const uint8_t *>(a1), *pa2 = static_cast<const uint8_t *>(a2);
    const uint8_t *pb1 = static_cast<const uint8_t *>(both ? b1 : a1),
                  *pb2 = static_cast<const uint8_t *>(both ? b2 : a2);
    int32_t k = 0;
    if constexpr (CK == kChromaPairs8) {
        const auto load = [](const uint8_t *p) {
            return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p)));
        };
        for (; k + 16 <= n; k += 16) _mm512_storeu_si512(pairs + k, weigh(load(pa1 + 2 * k), load(pb1 + 2 * k)));
    } else {
        const __m512i lo = _mm512_load_si512(kPairInterleave.idx[0]), hi = _mm512_load_si512(kPairInterleave.idx[1]);
        const auto load = [&](const uint8_t *p, int32_t at) {
            if constexpr (CK == kChromaPlanes8)
                return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(p + at)));
            else
                return _mm512_min_epu16(_mm512_loadu_si512(p + 2 * size_t(at)), top);
        };
        for (; k + 32 <= n; k += 32) {
            const __m512i u = weigh(load(pa1, k), load(pb1, k)), v = weigh(load(pa2, k), load(pb2, k));
            _mm512_storeu_si512(pairs + k, _mm512_permutex2var_epi16(u, lo, v));
            _mm512_storeu_si512(pairs + k + 16, _mm512_permutex2var_epi16(u, hi, v));
        }
    }
    if (k < n) {
        const size_t at = size_t(k) * (CK == kChromaPlanes8 ? 1 : 2);
        sitedWeigh<CK, WV>(pa1 + at, CK == kChromaPairs8 ? nullptr : pa2 + at, pb1 + at,
                           CK == kChromaPairs8 ? nullptr : pb2 + at, wvAny, max, down, pairs + k, n - k);
    }
}

// Sited chroma (RowKernels.h), weighed across in 16-bit lanes, both words of a pair at once, exact for
// words up to sitedPairLimit(): two to one cosited takes the pair itself (even pixels) and the rounded
// mean of two (vpavgw, odd pixels); centred (a + 3b + 2) >> 2 and (3b + c + 2) >> 2; four to one the
// weights reduced by their common factor, as per-lane multiplies. 32 pixels a step for two to one (the
// paired kernel with chroma apart), 16 for four to one.
template <int LK>
inline const uint8_t *sitedLumaAt(const uint8_t *y, int32_t i)
{
    return y + size_t(i) * (LK == kLuma8 ? 1 : 2);
}

// The chroma pairs of the even (e) and odd (o) pixels of 32 from the pairs before (s0), at (s1) and after
// (s2) each pixel pair, both chroma words at once: cosited takes the pair itself and the mean of two,
// centred (a + 3b + 2) >> 2 and (3b + c + 2) >> 2.
template <bool Centre>
inline void weighAcross(__m512i s0, __m512i s1, __m512i s2, __m512i &e, __m512i &o)
{
    if (Centre) {
        const __m512i two = _mm512_set1_epi16(2);
        const __m512i t = _mm512_add_epi16(_mm512_add_epi16(s1, s1), _mm512_add_epi16(s1, two));
        e = _mm512_srli_epi16(_mm512_add_epi16(s0, t), 2);
        o = _mm512_srli_epi16(_mm512_add_epi16(t, s2), 2);
    } else {
        e = s1;
        o = _mm512_avg_epu16(s1, s2);
    }
}

template <int LK, bool Centre, int Sh>
void sitedBody1(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(luma);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    // The pairs before, at and after each pixel pair from whole vectors (the previous, this and the next
    // sixteen pairs) by vpalignd.
    __m512i before = _mm512_set1_epi32(int32_t(pairs[-1])), at = _mm512_loadu_si512(pairs);
    for (; i + 32 <= n; i += 32) {
        const uint32_t *s = pairs + i / 2;
        const __m512i next = _mm512_loadu_si512(s + 16);
        const __m512i s1 = at, s2 = _mm512_alignr_epi32(next, at, 1);
        const __m512i s0 = _mm512_alignr_epi32(at, before, 15);
        before = at;
        at = next;
        __m512i e, o;
        weighAcross<Centre>(s0, s1, s2, e, o);
        const uint8_t *yi = sitedLumaAt<LK>(y, i);
        __m512i yw;
        if constexpr (LK == kLuma8) {
            yw = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(yi)));
        } else if constexpr (LK == kLuma16) {
            yw = _mm512_loadu_si512(yi);
            // Codes with bit 15 set are not int16: such a block goes to the template.
            if (_mm512_test_epi16_mask(yw, _mm512_set1_epi16(int16_t(0x8000)))) {
                sitedRow<LK, 1, Centre>(p, yi, s, d + size_t(i) * 4, 32);
                continue;
            }
        } else {
            const __m512i x = _mm512_loadu_si512(yi);
            yw = LK == kLumaUyvy8 ? _mm512_srli_epi16(x, 8) : _mm512_and_si512(x, _mm512_set1_epi16(0xff));
        }
        pairs16Apart<false, Sh>(v, e, o, yw, d + size_t(i) * 4);
    }
    if (i < n) sitedRow<LK, 1, Centre>(p, sitedLumaAt<LK>(y, i), pairs + i / 2, d + size_t(i) * 4, n - i);
}

// Four to one: lane j (pixel 4q + r of 16) weighs pairs a and a + 1 of the 16 loaded from pair k - 1.
struct SitedQuad {
    alignas(64) uint32_t a[2][16], b[2][16];
    alignas(64) uint16_t wa[2][32], wb[2][32];
    constexpr SitedQuad() : a{}, b{}, wa{}, wb{}
    {
        constexpr uint16_t coA[4] = {4, 3, 2, 1}, ceA[4] = {3, 1, 7, 5};
        for (int c = 0; c < 2; ++c)
            for (int j = 0; j < 16; ++j) {
                const int q = j / 4, r = j % 4;
                a[c][j] = uint32_t(q + (c && r < 2 ? 0 : 1));
                b[c][j] = a[c][j] + 1;
                const uint16_t w = c ? ceA[r] : coA[r], total = c ? 8 : 4;
                wa[c][2 * j] = wa[c][2 * j + 1] = w;
                wb[c][2 * j] = wb[c][2 * j + 1] = uint16_t(total - w);
            }
    }
};
constexpr SitedQuad kSitedQuad;

template <int LK, bool Centre, int Sh>
void sitedBody2(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(luma);
    uint8_t *d = static_cast<uint8_t *>(dst);
    constexpr int c = Centre ? 1 : 0, down = Centre ? 3 : 2;
    const __m512i ia = _mm512_load_si512(kSitedQuad.a[c]), ib = _mm512_load_si512(kSitedQuad.b[c]);
    const __m512i wa = _mm512_load_si512(kSitedQuad.wa[c]), wb = _mm512_load_si512(kSitedQuad.wb[c]);
    const __m512i round = _mm512_set1_epi16(1 << (down - 1));
    int32_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const __m512i l = _mm512_loadu_si512(pairs + i / 4 - 1);
        const __m512i a = _mm512_mullo_epi16(_mm512_permutexvar_epi32(ia, l), wa);
        const __m512i b = _mm512_mullo_epi16(_mm512_permutexvar_epi32(ib, l), wb);
        const __m512i uv = _mm512_srli_epi16(_mm512_add_epi16(_mm512_add_epi16(a, b), round), down);
        const uint8_t *yi = sitedLumaAt<LK>(y, i);
        __m512i y32;
        if constexpr (LK == kLuma8) {
            y32 = _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(yi)));
        } else {
            y32 = _mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(yi)));
            if (_mm512_test_epi32_mask(y32, _mm512_set1_epi32(0x8000))) {
                sitedRow<LK, 2, Centre>(p, yi, pairs + i / 4, d + size_t(i) * 4, 16);
                continue;
            }
        }
        single16<false, Sh>(v, uv, y32, d + size_t(i) * 4);
    }
    if (i < n) sitedRow<LK, 2, Centre>(p, sitedLumaAt<LK>(y, i), pairs + i / 4, d + size_t(i) * 4, n - i);
}

template <int LK, int SX, bool Centre>
void sitedFast(const RowParams &p, const void *luma, const uint32_t *pairs, void *dst, int32_t n)
{
    if (!usable(p)) return sitedRow<LK, SX, Centre>(p, luma, pairs, dst, n);
    if constexpr (SX == 1)
        sitedBody1<LK, Centre, -1>(p, luma, pairs, dst, n);
    else if constexpr (LK == kLuma8 || LK == kLuma16)
        sitedBody2<LK, Centre, -1>(p, luma, pairs, dst, n);
    else
        sitedRow<LK, SX, Centre>(p, luma, pairs, dst, n);
}

// Two-to-one sited chroma from planes in one pass (RowKernels.h), 64 pixels a step: the weighing of
// sitedWeighFast for the next 32 pairs and the conversion of sitedBody1 for this step's, the pairs kept
// in registers. Stops where the next pairs would pass the chroma row's end.
template <int CK, bool Centre>
int32_t sitedPlanesFast(const RowParams &p, const void *luma, const void *const rows[4], int32_t wv, uint32_t max,
                        int32_t down, int32_t cols, void *dst, int32_t n)
{
    constexpr int LK = CK == kChromaPlanes8 ? kLuma8 : kLuma16;
    if (!usable(p) || cols < 64 || n < 64 || wv < 0 || wv > 16 || down < 0 || down > 4 ||
        (CK == kChromaPlanes16 && max > 4095))
        return 0;
    const Vec v = vecOf(p);
    const uint8_t *y = static_cast<const uint8_t *>(luma);
    uint8_t *d = static_cast<uint8_t *>(dst);
    const uint8_t *ua = static_cast<const uint8_t *>(rows[0]), *va = static_cast<const uint8_t *>(rows[1]);
    const uint8_t *ub = wv ? static_cast<const uint8_t *>(rows[2]) : ua;
    const uint8_t *vb = wv ? static_cast<const uint8_t *>(rows[3]) : va;
    const __m512i wa = _mm512_set1_epi16(int16_t(16 - wv)), wb = _mm512_set1_epi16(int16_t(wv));
    const __m512i top = _mm512_set1_epi16(int16_t(max));
    const __m512i lo = _mm512_load_si512(kPairInterleave.idx[0]), hi = _mm512_load_si512(kPairInterleave.idx[1]);
    const auto load = [&](const uint8_t *r, int32_t k) {
        if constexpr (CK == kChromaPlanes8)
            return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(r + k)));
        else
            return _mm512_min_epu16(_mm512_loadu_si512(r + 2 * size_t(k)), top);
    };
    // Pairs k .. k + 15 and k + 16 .. k + 31.
    const __m128i drop = _mm_cvtsi32_si128(down);
    const auto pairsAt = [&](int32_t k, __m512i &p0, __m512i &p1) {
        const __m512i u = _mm512_srl_epi16(
            _mm512_add_epi16(_mm512_mullo_epi16(load(ua, k), wa), _mm512_mullo_epi16(load(ub, k), wb)), drop);
        const __m512i w = _mm512_srl_epi16(
            _mm512_add_epi16(_mm512_mullo_epi16(load(va, k), wa), _mm512_mullo_epi16(load(vb, k), wb)), drop);
        p0 = _mm512_permutex2var_epi16(u, lo, w);
        p1 = _mm512_permutex2var_epi16(u, hi, w);
    };
    // 32 pixels from the pairs before (s0), at (s1) and after (s2) each pixel pair.
    const auto convert = [&](__m512i s0, __m512i s1, __m512i s2, const uint8_t *yi, uint8_t *out) {
        __m512i e, o;
        weighAcross<Centre>(s0, s1, s2, e, o);
        const __m512i yw = LK == kLuma8
                               ? _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(yi)))
                               : _mm512_loadu_si512(yi);
        pairs16Apart<false, -1>(v, e, o, yw, out);
    };
    constexpr size_t lumaBytes = LK == kLuma8 ? 1 : 2;
    __m512i c0, c1;
    pairsAt(0, c0, c1);
    // The pair before the first is the first (the clamp at the picture's left edge).
    __m512i before = _mm512_broadcastd_epi32(_mm512_castsi512_si128(c0));
    int32_t i = 0;
    for (; i + 64 <= n && i / 2 + 64 <= cols; i += 64) {
        __m512i n0, n1;
        pairsAt(i / 2 + 32, n0, n1);
        const uint8_t *yi = y + size_t(i) * lumaBytes;
        uint8_t *out = d + size_t(i) * 4;
        if (LK == kLuma16 &&
            _mm512_test_epi16_mask(_mm512_or_si512(_mm512_loadu_si512(yi), _mm512_loadu_si512(yi + 64)),
                                   _mm512_set1_epi16(int16_t(0x8000)))) {
            // Codes with bit 15 set are not int16: these 64 pixels go to the template, from the pairs.
            alignas(64) uint32_t pairs[64];
            _mm512_store_si512(pairs, before);
            _mm512_store_si512(pairs + 16, c0);
            _mm512_store_si512(pairs + 32, c1);
            _mm512_store_si512(pairs + 48, n0);
            sitedRow<LK, 1, Centre>(p, yi, pairs + 16, out, 64);
        } else {
            convert(_mm512_alignr_epi32(c0, before, 15), c0, _mm512_alignr_epi32(c1, c0, 1), yi, out);
            convert(_mm512_alignr_epi32(c1, c0, 15), c1, _mm512_alignr_epi32(n0, c1, 1), yi + 32 * lumaBytes,
                    out + 128);
        }
        before = c1;
        c0 = n0;
        c1 = n1;
    }
    return i;
}

// Entry points: the exact-arithmetic check, then the body with the usual shifts as immediates.
template <int K, int SX, bool Tone>
void planarFast(const RowParams &p, const void *c0, const void *c1, const void *c2, void *dst, int32_t n)
{
    if (!usable(p)) return planarRow<K, SX, Tone>(p, c0, c1, c2, dst, n);
    if (p.shift == 8) return planarBody<K, SX, Tone, 8>(p, c0, c1, c2, dst, n);
    if (p.shift == 10) return planarBody<K, SX, Tone, 10>(p, c0, c1, c2, dst, n);
    planarBody<K, SX, Tone, -1>(p, c0, c1, c2, dst, n);
}

template <int K, bool Tone>
void nv12Fast(const RowParams &p, const void *yRow, const void *uvRow, void *dst, int32_t n)
{
    if (!usable(p)) return nv12Row<K, Tone>(p, yRow, uvRow, dst, n);
    if (p.shift == 8) return nv12Body<K, Tone, 8>(p, yRow, uvRow, dst, n);
    nv12Body<K, Tone, -1>(p, yRow, uvRow, dst, n);
}

template <int K, bool UFirst, bool Tone>
void packedFast(const RowParams &p, const void *row, void *dst, int32_t n)
{
    if (!usable(p)) return packedRow<K, UFirst, Tone>(p, row, dst, n);
    if (p.shift == 8) return packedBody<K, UFirst, Tone, 8>(p, row, dst, n);
    packedBody<K, UFirst, Tone, -1>(p, row, dst, n);
}

template <int K, bool Tone>
void rgb3Fast(const RowParams &p, const void *row, void *dst, int32_t n)
{
    if (!usable(p)) return rgbRow<K, 3, Tone>(p, row, dst, n);
    if (p.shift == 8) return rgb3Body<K, Tone, 8>(p, row, dst, n);
    rgb3Body<K, Tone, -1>(p, row, dst, n);
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

// Byte 4p + c of quarter q takes byte 16q + p: each of 16 codes repeated over its pixel's bytes.
struct GreySpread {
    alignas(64) uint8_t idx[4][64];
    constexpr GreySpread() : idx{}
    {
        for (int q = 0; q < 4; ++q)
            for (int b = 0; b < 64; ++b) idx[q][b] = uint8_t(16 * q + b / 4);
    }
};
constexpr GreySpread kGreySpread;

// 8-bit luma through a table: 64 samples a step, the table by vpermi2b, each byte then spread to the
// three colour bytes of its pixel. Only the plain scale (no shifts) the 8-bit rows use.
template <int K>
void lumaToneFast(const RowParams &p, const void *row, void *dst, int32_t n)
{
    if (p.up != 0 || p.shift != 0) return lumaRow<K, true>(p, row, dst, n);
    Vec v{};
    v.t0 = _mm512_loadu_si512(p.toneBytes), v.t1 = _mm512_loadu_si512(p.toneBytes + 64);
    v.t2 = _mm512_loadu_si512(p.toneBytes + 128), v.t3 = _mm512_loadu_si512(p.toneBytes + 192);
    const __m512i half = _mm512_set1_epi8(char(p.add[0] & 0xff));
    const uint8_t *s = static_cast<const uint8_t *>(row);
    uint8_t *d = static_cast<uint8_t *>(dst);
    int32_t i = 0;
    for (; i + 64 <= n; i += 64) {
        const __m512i codes = toneBytes(v, _mm512_add_epi8(_mm512_loadu_si512(s + i), half));
        for (int q = 0; q < 4; ++q)
            store<false>(v, d + size_t(i + 16 * q) * 4,
                         _mm512_permutexvar_epi8(_mm512_load_si512(kGreySpread.idx[q]), codes));
    }
    if (i < n) lumaRow<K, true>(p, s + i, d + size_t(i) * 4, n - i);
}

// High-dynamic-range rows, 16 pixels a step: the portable row's single-precision steps one by one (no
// fused multiply-add, the same order), its table lookups as gathers. Indices are clamped before any
// gather, so lanes past the row's end (loaded as zero codes) read inside the tables; only the store
// is masked. The code table is read as 32-bit words at byte offsets, hence its three spare bytes.
void hdrRowFast(const HdrParams &h, const uint16_t *c0, const uint16_t *c1, const uint16_t *c2, void *dst, int32_t n)
{
    __m512 a[3][3], b[3], m[9];
    for (int i = 0; i < 3; ++i) {
        b[i] = _mm512_set1_ps(h.b[i]);
        for (int j = 0; j < 3; ++j) a[i][j] = _mm512_set1_ps(h.a[i][j]);
    }
    for (int i = 0; i < 9; ++i) m[i] = _mm512_set1_ps(h.prim[i]);
    const __m512 scale = _mm512_set1_ps(65535.0f), half = _mm512_set1_ps(0.5f);
    const __m512 zero = _mm512_setzero_ps(), one = _mm512_set1_ps(1.0f);
    const __m512i low = _mm512_set1_epi32(0xff);
    const __m512i first = _mm512_set1_epi32(int32_t(kHdrCodeFirst)), zeroI = _mm512_setzero_si512();
    Vec v{};
    if (h.toneBytes) {
        v.t0 = _mm512_loadu_si512(h.toneBytes), v.t1 = _mm512_loadu_si512(h.toneBytes + 64);
        v.t2 = _mm512_loadu_si512(h.toneBytes + 128), v.t3 = _mm512_loadu_si512(h.toneBytes + 192);
    }
    uint8_t *d = static_cast<uint8_t *>(dst);
    for (int32_t x = 0; x < n; x += 16) {
        const __mmask16 lanes = n - x >= 16 ? __mmask16(0xffff) : __mmask16((1u << (n - x)) - 1);
        const __m512 s0 = _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(lanes, c0 + x)));
        const __m512 s1 = _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(lanes, c1 + x)));
        const __m512 s2 = _mm512_cvtepi32_ps(_mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(lanes, c2 + x)));
        __m512 lin[3];
        for (int i = 0; i < 3; ++i) {
            __m512 e = _mm512_add_ps(_mm512_mul_ps(a[i][0], s0), _mm512_mul_ps(a[i][1], s1));
            e = _mm512_add_ps(_mm512_add_ps(e, _mm512_mul_ps(a[i][2], s2)), b[i]);
            const __m512 q = _mm512_add_ps(_mm512_mul_ps(e, scale), half);
            const __m512i idx = _mm512_cvttps_epi32(_mm512_min_ps(_mm512_max_ps(q, zero), scale));
            lin[i] = _mm512_i32gather_ps(idx, h.toLinear, 4);
        }
        __m512i px = _mm512_setzero_si512();
        for (int i = 0; i < 3; ++i) {
            __m512 l = _mm512_add_ps(_mm512_mul_ps(m[3 * i], lin[0]), _mm512_mul_ps(m[3 * i + 1], lin[1]));
            l = _mm512_add_ps(l, _mm512_mul_ps(m[3 * i + 2], lin[2]));
            l = _mm512_min_ps(_mm512_max_ps(l, zero), one);
            const __m512i at = _mm512_max_epi32(
                _mm512_sub_epi32(_mm512_srli_epi32(_mm512_castps_si512(l), kHdrCodeShift), first), zeroI);
            const __m512i code = _mm512_and_si512(_mm512_i32gather_epi32(at, h.toCode, 1), low);
            px = _mm512_or_si512(px, _mm512_slli_epi32(code, 16 - 8 * i));
        }
        if (h.toneBytes) px = toneBytes(v, px);
        // Bytes 0..2 of every pixel in the row: bit i of `lanes` spread to bits 4i .. 4i+2.
        if (lanes == 0xffff)
            store<false>(v, d + size_t(x) * 4, px);
        else
            _mm512_mask_storeu_epi8(d + size_t(x) * 4, _cvtu64_mask64(_pdep_u64(lanes, 0x1111111111111111ull) * 7), px);
    }
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
    k.luma[kU8][1] = lumaToneFast<kU8>;
    k.luma[kS8][1] = lumaToneFast<kS8>;
    k.toneRow = toneRowFast;
    k.v210Unpack = v210UnpackFast;
    k.diffRow8[0] = diffRow8Fast<false>;
    k.diffRow8[1] = diffRow8Fast<true>;
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
    k.sitedPlanes[0][0] = sitedPlanesFast<kChromaPlanes8, false>;
    k.sitedPlanes[0][1] = sitedPlanesFast<kChromaPlanes8, true>;
    k.sitedPlanes[1][0] = sitedPlanesFast<kChromaPlanes16, false>;
    k.sitedPlanes[1][1] = sitedPlanesFast<kChromaPlanes16, true>;
    k.sitedWeigh[kChromaPlanes8][0] = sitedWeighFast<kChromaPlanes8, 0>;
    k.sitedWeigh[kChromaPlanes8][1] = sitedWeighFast<kChromaPlanes8, 4>;
    k.sitedWeigh[kChromaPlanes8][2] = sitedWeighFast<kChromaPlanes8, 8>;
    k.sitedWeigh[kChromaPlanes8][3] = sitedWeighFast<kChromaPlanes8, 12>;
    k.sitedWeigh[kChromaPlanes8][4] = sitedWeighFast<kChromaPlanes8, -1>;
    k.sitedWeigh[kChromaPlanes16][0] = sitedWeighFast<kChromaPlanes16, 0>;
    k.sitedWeigh[kChromaPlanes16][1] = sitedWeighFast<kChromaPlanes16, 4>;
    k.sitedWeigh[kChromaPlanes16][2] = sitedWeighFast<kChromaPlanes16, 8>;
    k.sitedWeigh[kChromaPlanes16][3] = sitedWeighFast<kChromaPlanes16, 12>;
    k.sitedWeigh[kChromaPlanes16][4] = sitedWeighFast<kChromaPlanes16, -1>;
    k.sitedWeigh[kChromaPairs8][0] = sitedWeighFast<kChromaPairs8, 0>;
    k.sitedWeigh[kChromaPairs8][1] = sitedWeighFast<kChromaPairs8, 4>;
    k.sitedWeigh[kChromaPairs8][2] = sitedWeighFast<kChromaPairs8, 8>;
    k.sitedWeigh[kChromaPairs8][3] = sitedWeighFast<kChromaPairs8, 12>;
    k.sitedWeigh[kChromaPairs8][4] = sitedWeighFast<kChromaPairs8, -1>;
    return k;
}

} // namespace kavri::pixel::avx512
