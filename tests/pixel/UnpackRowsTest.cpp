// The one-pass unpack of the common newer layouts: each set of row loops against the rows' definition
// written out here, at every length around the vector widths; whole frames of every newer layout
// through each set against the reference unpack, at awkward sizes, with strided planes and short
// buffers; and which frames take the one-pass path at all.
#include "pixel/UnpackRows.h"
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/PatternGenerator.h"
#include "pixel/PlaneGeometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

using namespace kavri;
using namespace kavri::pixel;

namespace {

std::vector<const UnpackRowKernels *> rowSets()
{
    std::vector<const UnpackRowKernels *> sets = {&portableUnpackRows()};
    if (const UnpackRowKernels *s = avx2UnpackRows()) sets.push_back(s);
    if (const UnpackRowKernels *s = avx512UnpackRows()) sets.push_back(s);
    return sets;
}

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed)
{
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (uint8_t &b : v) b = uint8_t(rng());
    return v;
}

// Word i of a little-endian row, as the rows define it.
uint16_t valueAt(const std::vector<uint8_t> &src, size_t i, int32_t shift, uint16_t mask)
{
    return uint16_t(((src[2 * i] | (src[2 * i + 1] << 8)) >> shift) & mask);
}

// Lengths below, at and just past each set's vector widths, and long rows with tails.
std::vector<int32_t> lengths()
{
    std::vector<int32_t> n;
    for (int32_t i = 0; i <= 140; ++i) n.push_back(i);
    for (int32_t i : {191, 192, 193, 255, 256, 257, 959, 960, 961}) n.push_back(i);
    return n;
}

struct WordValue {
    int32_t shift;
    uint16_t mask;
};
// P010 and Y210 (10 bits at the top), P012 and Y212, P016 and Y216, and bits kept below the value.
constexpr WordValue kWordValues[] = {{6, 0x3ff}, {4, 0xfff}, {0, 0xffff}, {0, 0x3ff}, {3, 0x1fff}};

constexpr uint16_t kUntouched = 0xa5a5;

// A row's outputs: n samples, then guard samples that must stay as they were.
struct Out {
    std::vector<uint16_t> v;
    explicit Out(int32_t n) : v(size_t(n) + 40, kUntouched) {}
    uint16_t *data() { return v.data(); }
};

void expectGuard(const Out &o, int32_t n, const char *what)
{
    for (size_t i = size_t(n); i < o.v.size(); ++i) ASSERT_EQ(o.v[i], kUntouched) << what << " written past " << n;
}

} // namespace

TEST(UnpackRows, EachSetFollowsTheRowDefinitionAtEveryLength)
{
    for (const UnpackRowKernels *set : rowSets())
        for (const WordValue wv : kWordValues)
            for (int32_t n : lengths()) {
                SCOPED_TRACE(std::string(set->name) + " n=" + std::to_string(n) + " shift=" + std::to_string(wv.shift));
                // Sources of exactly the bytes a row reads, so reading further is caught under ASan.
                const auto w1 = randomBytes(2 * size_t(n), uint32_t(n) * 7 + 1);
                Out y(n);
                set->words(w1.data(), wv.shift, wv.mask, y.data(), n);
                for (int32_t i = 0; i < n; ++i) ASSERT_EQ(y.v[size_t(i)], valueAt(w1, size_t(i), wv.shift, wv.mask));
                expectGuard(y, n, "words");

                const auto w2 = randomBytes(4 * size_t(n), uint32_t(n) * 7 + 2);
                Out a(n), b(n);
                set->wordPairs(w2.data(), wv.shift, wv.mask, a.data(), b.data(), n);
                for (int32_t i = 0; i < n; ++i) {
                    ASSERT_EQ(a.v[size_t(i)], valueAt(w2, 2 * size_t(i), wv.shift, wv.mask)) << i;
                    ASSERT_EQ(b.v[size_t(i)], valueAt(w2, 2 * size_t(i) + 1, wv.shift, wv.mask)) << i;
                }
                expectGuard(a, n, "wordPairs a");
                expectGuard(b, n, "wordPairs b");

                const auto w4 = randomBytes(8 * size_t(n), uint32_t(n) * 7 + 3);
                Out yy(2 * n), c1(n), c2(n);
                set->wordQuads(w4.data(), wv.shift, wv.mask, yy.data(), c1.data(), c2.data(), n);
                for (int32_t i = 0; i < n; ++i) {
                    ASSERT_EQ(yy.v[2 * size_t(i)], valueAt(w4, 4 * size_t(i), wv.shift, wv.mask)) << i;
                    ASSERT_EQ(c1.v[size_t(i)], valueAt(w4, 4 * size_t(i) + 1, wv.shift, wv.mask)) << i;
                    ASSERT_EQ(yy.v[2 * size_t(i) + 1], valueAt(w4, 4 * size_t(i) + 2, wv.shift, wv.mask)) << i;
                    ASSERT_EQ(c2.v[size_t(i)], valueAt(w4, 4 * size_t(i) + 3, wv.shift, wv.mask)) << i;
                }
                expectGuard(yy, 2 * n, "wordQuads y");
                expectGuard(c1, n, "wordQuads b");
                expectGuard(c2, n, "wordQuads c");

                const auto b2 = randomBytes(2 * size_t(n), uint32_t(n) * 7 + 4);
                std::vector<uint8_t> ba(size_t(n) + 40, 0x5a), bb(size_t(n) + 40, 0x5a);
                set->bytePairs(b2.data(), ba.data(), bb.data(), n);
                for (int32_t i = 0; i < n; ++i) {
                    ASSERT_EQ(ba[size_t(i)], b2[2 * size_t(i)]) << i;
                    ASSERT_EQ(bb[size_t(i)], b2[2 * size_t(i) + 1]) << i;
                }
                for (size_t i = size_t(n); i < ba.size(); ++i) ASSERT_TRUE(ba[i] == 0x5a && bb[i] == 0x5a) << i;
            }
}

namespace {

struct Record {
    int32_t bits, container;
    bool isSigned, bigEndian;
};

std::vector<Record> recordsOf(int32_t v)
{
    const PixelDescriptor &d = *pixelDescriptor(v);
    if (d.fixedDepth)
        return {{d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, false},
                {d.fixedDepth, d.fixedDepth > 8 ? 16 : 8, false, true}};
    return {{8, 8, false, false},  {10, 16, false, false}, {10, 16, true, false},
            {12, 16, false, true}, {16, 16, false, false}, {6, 8, false, false}};
}

VideoProps recordOf(int32_t v, int32_t w, int32_t h, const Record &r)
{
    PatternSpec s;
    s.layout = videoFormat_t(v);
    s.width = w;
    s.height = h;
    s.bits = r.bits;
    s.containerBits = r.container;
    s.isSigned = r.isSigned;
    s.bigEndian = r.bigEndian;
    return patternRecord(s);
}

// The stored record with every plane's rows padded by `pad` bytes, the planes in reverse order.
VideoProps stridedOf(const VideoProps &rec, int32_t pad)
{
    const PixelDescriptor &d = *pixelDescriptor(rec.format);
    const PlaneLayout packed = planeLayout(d, rec.containerBits, rec.width, rec.height);
    VideoProps s = rec;
    uint64_t at = 12;
    for (int p = packed.planes - 1; p >= 0; --p) {
        s.planeStride[size_t(p)] = uint32_t(packed.rowBytes[size_t(p)] + pad);
        s.planeOffset[size_t(p)] = at;
        at += uint64_t(s.planeStride[size_t(p)]) * uint64_t(packed.rows[size_t(p)]);
    }
    return s;
}

} // namespace

// Random stored bytes (every bit pattern, including bits outside a value) through every set, on one
// thread and on the pool, equal the reference unpack sample for sample; rows the reference leaves alone
// (outside a short buffer) stay as they were.
TEST(UnpackRows, WholeFramesOfEverySetEqualTheReferenceUnpack)
{
    const int32_t sizes[][2] = {{1, 1},  {2, 2},   {3, 5},   {17, 9},  {33, 4},
                                {65, 3}, {66, 34}, {129, 6}, {130, 7}, {257, 3}};
    int32_t onePass = 0;
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v)
        for (const Record &r : recordsOf(v))
            for (const auto &sz : sizes)
                for (int variant = 0; variant < 3; ++variant) {
                    VideoProps rec = recordOf(v, sz[0], sz[1], r);
                    if (variant == 1) rec = stridedOf(rec, 40);
                    const int64_t full = int64_t(recordFrameBytes(rec));
                    ASSERT_GT(full, 0);
                    // variant 2: the stored frame is a few bytes short, its last row incomplete.
                    if (variant == 2 && full <= 3) continue;
                    const int64_t bytes = variant == 2 ? full - 3 : full;
                    SCOPED_TRACE(std::string(layoutInfo(videoFormat_t(v)).shortName) + " " + std::to_string(sz[0]) +
                                 "x" + std::to_string(sz[1]) + " " + std::to_string(r.bits) + "/" +
                                 std::to_string(r.container) + (r.isSigned ? " signed" : "") +
                                 (r.bigEndian ? " BE" : "") + " variant " + std::to_string(variant));
                    const auto src = randomBytes(size_t(bytes), uint32_t(v * 1000 + sz[0] * 31 + sz[1] + variant));
                    const VideoProps canon = canonicalProps(rec);
                    const int64_t canonBytes =
                        allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
                    std::vector<uint8_t> ref(size_t(canonBytes), 0x3c);
                    unpackFrameReference(rec, src.data(), bytes, ref.data(), canonBytes);
                    const bool fast = unpacksInOnePass(rec, bytes, canonBytes);
                    onePass += fast;
                    // A row the short frame does not hold whole is left alone by the unpack, where the
                    // reference reads the samples that are there: such frames go component by component,
                    // and every set must give what the portable set gives on one thread.
                    if (variant == 2 && !fast) {
                        std::fill(ref.begin(), ref.end(), 0x3c);
                        unpackFrameWith(portableUnpackRows(), rec, src.data(), bytes, ref.data(), canonBytes, 1);
                    }
                    for (const UnpackRowKernels *set : rowSets())
                        for (int32_t threads : {1, 0}) {
                            std::vector<uint8_t> got(size_t(canonBytes), 0x3c);
                            unpackFrameWith(*set, rec, src.data(), bytes, got.data(), canonBytes, threads);
                            ASSERT_EQ(got, ref) << set->name << " threads " << threads;
                        }
                }
    // The one-pass path was taken (and so compared) for a good share of the frames above.
    EXPECT_GT(onePass, 300);
}

// Which frames the one-pass rows take: the common shapes in little-endian words of their canonical
// size; everything needing a sign, a byte swap, a widening or a mask of 8-bit samples, and the 4:2:0
// frames of odd height (whose chroma planes overlap in the canonical frame), go component by component.
TEST(UnpackRows, OnePassTakesTheCommonShapesOnly)
{
    struct Case {
        videoFormat_t layout;
        int32_t w, h, bits, container;
        bool isSigned, bigEndian;
        bool onePass;
    };
    const Case cases[] = {
        {YUV_p010, 1920, 1080, 10, 16, false, false, true},
        {YUV_p010, 1921, 1080, 10, 16, false, false, true},
        {YUV_p010, 1920, 1081, 10, 16, false, false, false}, // odd height of 4:2:0
        {YUV_p010, 1920, 1080, 10, 16, false, true, false},  // big-endian words
        {YUV_p016, 64, 32, 16, 16, false, false, true},
        {YUV_p210, 65, 33, 10, 16, false, false, true}, // 4:2:2: no overlap at an odd height
        {YUV_p410w, 7, 3, 10, 16, false, false, true},
        {YUV_nv21, 1920, 1080, 8, 8, false, false, true},
        {YUV_nv21, 1920, 1080, 8, 16, false, false, true},
        {YUV_nv21, 1920, 1080, 10, 16, true, false, false}, // signed
        {YUV_nv21, 1920, 1080, 6, 8, false, false, false},  // 6 bits in bytes: masked
        {YUV_nv21, 1920, 1079, 8, 8, false, false, false},
        {YUV_nv16, 33, 9, 8, 8, false, false, true},
        {YUV_nv61, 33, 9, 8, 8, false, false, true},
        {YUV_nv42, 5, 5, 8, 8, false, false, true},
        {YUV_y210, 1920, 1080, 10, 16, false, false, true},
        {YUV_y210, 1919, 1079, 10, 16, false, false, true},
        {YUV_y216, 3, 1, 16, 16, false, false, true},
        {YUV_y210, 1920, 1080, 10, 16, false, true, false},
        {YUV_yv12, 64, 32, 8, 8, false, false, false}, // planar: the plain rows are copies already
        {YUV_y410, 64, 32, 10, 16, false, false, false},
        {RGB_565, 64, 32, 8, 8, false, false, false},
        {BAYER_rggb, 64, 32, 8, 8, false, false, false},
    };
    for (const Case &c : cases) {
        const VideoProps rec = recordOf(c.layout, c.w, c.h, {c.bits, c.container, c.isSigned, c.bigEndian});
        SCOPED_TRACE(std::string(layoutInfo(c.layout).shortName) + " " + std::to_string(c.w) + "x" +
                     std::to_string(c.h) + " " + std::to_string(c.bits) + "/" + std::to_string(c.container));
        const int64_t bytes = recordFrameBytes(rec);
        const VideoProps canon = canonicalProps(rec);
        const int64_t canonBytes = allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
        EXPECT_EQ(unpacksInOnePass(rec, bytes, canonBytes), c.onePass);
        // A stored frame or a canonical buffer too short for its last rows never takes it (the rows
        // that are there are unpacked component by component).
        EXPECT_FALSE(unpacksInOnePass(rec, bytes / 2, canonBytes));
        EXPECT_FALSE(unpacksInOnePass(rec, bytes, canonBytes / 2));
        // Strided planes take it as the packed ones do.
        const VideoProps strided = stridedOf(rec, 64);
        EXPECT_EQ(unpacksInOnePass(strided, recordFrameBytes(strided), canonBytes), c.onePass);
    }
}

// The frames unpacked band by band: every newer layout whose stored rows unpack one by one, at awkward
// sizes and in bands of several heights, gives in each band's own frame the rows of the reference unpack;
// rows outside the frame or a band buffer too small are refused without a write.
TEST(UnpackRows, BandsOfOwnRowsEqualTheReferenceRows)
{
    const int32_t sizes[][2] = {{1, 1}, {2, 2}, {3, 5}, {17, 9}, {33, 40}, {130, 7}};
    int32_t planned = 0;
    for (int v = kCoreLayoutCount + 1; v <= kLayoutCount; ++v)
        for (const Record &r : recordsOf(v))
            for (const auto &sz : sizes) {
                const VideoProps rec = recordOf(v, sz[0], sz[1], r);
                const int64_t bytes = int64_t(recordFrameBytes(rec));
                const VideoProps canon = canonicalProps(rec);
                const int64_t canonBytes = allocationSize(canon.format, canon.containerBits, canon.width, canon.height);
                const auto plan = planOwnRows(rec, bytes, canonBytes);
                if (!plan) continue;
                ++planned;
                SCOPED_TRACE(std::string(layoutInfo(videoFormat_t(v)).shortName) + " " + std::to_string(sz[0]) + "x" +
                             std::to_string(sz[1]) + " " + std::to_string(r.bits) + "/" + std::to_string(r.container));
                const int32_t W = rec.width, H = rec.height, sb = canon.containerBits / 8;
                const auto src = randomBytes(size_t(bytes), uint32_t(v * 1000 + W * 31 + H));
                std::vector<uint8_t> ref(size_t(canonBytes), 0);
                unpackFrameReference(rec, src.data(), bytes, ref.data(), canonBytes);
                const ChromaPlanes whole = chromaPlanes(canon.format, W, H, canonBytes / sb);
                for (const UnpackRowKernels *set : rowSets())
                    for (int32_t height : {1, 3, 16})
                        for (int32_t y0 = 0; y0 < H; y0 += height) {
                            const int32_t y1 = std::min(H, y0 + height), n = y1 - y0;
                            const int64_t need = ownRowsBytes(*plan, n);
                            ASSERT_EQ(need, allocationSize(canon.format, canon.containerBits, W, n));
                            std::vector<uint8_t> band(size_t(need) + 8, 0x5a);
                            ASSERT_TRUE(unpackOwnRows(*plan, *set, src.data(), y0, y1, band.data(), need));
                            const ChromaPlanes part = chromaPlanes(canon.format, W, n, need / sb);
                            const int64_t wholeStart[3] = {0, whole.uStart, whole.vStart};
                            const int64_t partStart[3] = {0, part.uStart, part.vStart};
                            for (int k = 0; k < 3; ++k) {
                                const int32_t cols = k ? whole.cols : W;
                                for (int32_t j = 0; j < n; ++j)
                                    ASSERT_EQ(0, std::memcmp(band.data() + (partStart[k] + int64_t(j) * cols) * sb,
                                                             ref.data() + (wholeStart[k] + int64_t(y0 + j) * cols) * sb,
                                                             size_t(cols) * sb))
                                        << set->name << " component " << k << " row " << y0 + j;
                            }
                            for (size_t i = size_t(need); i < band.size(); ++i) ASSERT_EQ(band[i], 0x5a);
                        }
                std::vector<uint8_t> band(size_t(ownRowsBytes(*plan, 2)), 0x5a);
                const std::vector<uint8_t> untouched = band;
                EXPECT_FALSE(unpackOwnRows(*plan, portableUnpackRows(), src.data(), H - 1, H + 1, band.data(),
                                           int64_t(band.size())));
                EXPECT_FALSE(
                    unpackOwnRows(*plan, portableUnpackRows(), src.data(), -1, 1, band.data(), int64_t(band.size())));
                EXPECT_FALSE(unpackOwnRows(*plan, portableUnpackRows(), src.data(), 0, 1, band.data(),
                                           ownRowsBytes(*plan, 1) - 1));
                EXPECT_EQ(band, untouched);
            }
    EXPECT_GT(planned, 50);
}
