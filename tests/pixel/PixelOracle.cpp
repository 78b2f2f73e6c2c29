#include "PixelOracle.h"

#include "formats/FrameSize.h"

#include <cstring>
#include <sstream>

#if defined(__unix__) || defined(__APPLE__)
#include <sys/mman.h>
#include <unistd.h>
#define KAVRI_TEST_GUARD_PAGES 1
#endif

namespace kavri::test {

GuardedBuffer::GuardedBuffer(size_t size) : m_size(size)
{
#ifdef KAVRI_TEST_GUARD_PAGES
    const size_t page = size_t(sysconf(_SC_PAGESIZE));
    const size_t body = (size + page - 1) / page * page;
    m_mapped = body + page;
    void *p = mmap(nullptr, m_mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p != MAP_FAILED) {
        m_base = static_cast<uint8_t *>(p);
        mprotect(m_base + body, page, PROT_NONE);
        m_data = m_base + body - size;
        return;
    }
    m_mapped = 0;
#endif
    m_fallback.resize(size ? size : 1);
    m_data = m_fallback.data();
}

GuardedBuffer::~GuardedBuffer()
{
#ifdef KAVRI_TEST_GUARD_PAGES
    if (m_base) munmap(m_base, m_mapped);
#endif
}

std::string ConvCase::describe() const
{
    std::ostringstream s;
    s << layoutInfo(layout).shortName << ' ' << width << 'x' << height << " bits " << bits << " container " << container
      << (isSigned ? " signed" : "") << (flip ? " flip" : "") << (bigEndian ? " BE" : "") << (swapUV ? " swapUV" : "")
      << (interlaced ? " interlaced" : "") << " sel " << selection << " tone(" << brightness << ',' << contrast << ','
      << gamma << ')';
    return s.str();
}

void putSample(std::vector<uint8_t> &frame, int32_t containerBits, int64_t i, int32_t value)
{
    if (containerBits == 8) {
        frame[size_t(i)] = uint8_t(value);
    } else {
        frame[size_t(2 * i)] = uint8_t(value);
        frame[size_t(2 * i + 1)] = uint8_t(value >> 8);
    }
}

namespace {

struct Model {
    const ConvCase &c;
    const uint8_t *frame;
    int64_t size; // bytes
    int32_t W, H;

    // Sample i of a `bytes`-wide container, signed or not; indices outside the buffer are a test bug.
    int32_t sample(int64_t i, int bytes, bool isSigned) const
    {
        if (i < 0 || (i + 1) * bytes > size) throw std::runtime_error("oracle read outside the frame");
        if (bytes == 1) return isSigned ? int32_t(int8_t(frame[i])) : int32_t(frame[i]);
        const uint16_t v = uint16_t(frame[2 * i] | (frame[2 * i + 1] << 8));
        return isSigned ? int32_t(int16_t(v)) : int32_t(v);
    }
};

// Chroma plane rows that are wholly inside the buffer.
int32_t fitting(int64_t start, int32_t cols, int32_t rows, int64_t samples)
{
    if (cols <= 0) return 0;
    int64_t n = (samples - start) / cols;
    if (samples <= start) n = 0;
    return int32_t(n < rows ? n : rows);
}

} // namespace

std::vector<uint8_t> oracleConvert(const ConvCase &c, const uint8_t *frame, size_t frameSize,
                                   const std::vector<uint8_t> &before, const std::array<int32_t, 256> &tone,
                                   int32_t storedB, int32_t storedC, int32_t storedG)
{
    std::vector<uint8_t> out = before;
    const int32_t W = c.width, H = c.height, b = c.bits;
    const videoFormat_t f = c.layout;
    const LayoutInfo &info = layoutInfo(f);
    const int32_t down = b >= 8 ? b - 8 : 0, up = b >= 8 ? 0 : 8 - b;
    Model m{c, frame, int64_t(frameSize), W, H};

    if (f == BGRA_i444 && c.container == 8 && down == 0 && !c.flip && c.selection == 0 && storedB == 0 &&
        storedC == 0 && storedG == 0) {
        std::memcpy(out.data(), frame, size_t(W) * H * 4);
        return out;
    }

    static const int32_t yuv[12] = {257, 2, 404, 257, -47, -119, 257, 476, -1, 0, -128, -128};
    static const int32_t rgb[12] = {256, 0, 0, 0, 256, 0, 0, 0, 256, 0, 0, 0};
    static const int32_t comp[3][12] = {{256, 0, 0, 256, 0, 0, 256, 0, 0, 0, 0, 0},
                                        {0, 256, 0, 0, 256, 0, 0, 256, 0, 0, 0, 0},
                                        {0, 0, 256, 0, 0, 256, 0, 0, 256, 0, 0, 0}};
    const bool isRgb = f >= RGB_i444 && f <= GBRA_planar;
    const int32_t *mx = c.selection >= 1 && c.selection <= 3 ? comp[c.selection - 1] : (isRgb ? rgb : yuv);

    // Container the kernel reads with.
    int bytes = (down == 0 && c.container == 8) ? 1 : 2;
    if (f == RGB_i444) bytes = down == 0 ? 1 : 2;
    if (f == RGBA_i444 || f == BGRA_i444 || f == YUV_nv12) bytes = 1;
    const int32_t half = c.isSigned && f != YUV_v210 ? (1 << b) / 2 : 0;
    const int64_t alloc = allocationSize(f, c.container, W, H);
    const int64_t samples = alloc / bytes;

    auto store = [&](int32_t x, int32_t r, int32_t red, int32_t green, int32_t blue) {
        uint8_t *px = &out[(size_t(r) * W + x) * 4];
        px[0] = uint8_t(tone[size_t(blue)]);
        px[1] = uint8_t(tone[size_t(green)]);
        px[2] = uint8_t(tone[size_t(red)]);
    };
    auto clamp = [](int32_t v) { return v < 0 ? 0 : (v > 255 ? 255 : v); };
    // The normal per-pixel arithmetic; sums wrap like 32-bit integers.
    auto convert = [&](int32_t x, int32_t r, int32_t c1, int32_t c2, int32_t c3) {
        int32_t o[3];
        for (int k = 0; k < 3; ++k) o[k] = (mx[9 + k] * (1 << down)) >> up;
        const int64_t in[3] = {c1 + half + o[0], c2 + half + o[1], c3 + half + o[2]};
        int32_t res[3];
        for (int k = 0; k < 3; ++k) {
            const int64_t sum = mx[3 * k] * in[0] + mx[3 * k + 1] * in[1] + mx[3 * k + 2] * in[2] + 128;
            res[k] = clamp(int32_t(uint32_t(uint64_t(sum) << up)) >> (down + 8));
        }
        store(x, r, res[0], res[1], res[2]);
    };

    for (int32_t r = 0; r < H; ++r) {
        const int32_t s = c.flip ? H - 1 - r : r;
        for (int32_t x = 0; x < W; ++x) {
            switch (info.kind) {
            case LayoutKind::PlanarYuv: {
                const int sx = info.chromaShiftX, sy = info.chromaShiftY;
                const int32_t cols = W >> sx, rows = sy ? (H + 1) / 2 : H;
                const int64_t uStart = int64_t(W) * H;
                int64_t vStart = uStart + int64_t(rows) * cols;
                if (sy && (H & 1)) vStart -= cols / 2;
                int32_t crow = (f == YUV_p420 && c.interlaced) ? 2 * (s / 4) + s % 2 : (sy ? s / 2 : s);
                if (crow > rows - 1) crow = rows - 1;
                const int32_t ccol = (x >> sx) < cols ? (x >> sx) : cols - 1;
                auto chroma = [&](int64_t start) {
                    const int32_t fit = fitting(start, cols, rows, samples);
                    if (fit == 0 || ccol < 0) return 0;
                    const int32_t rr = crow < fit ? crow : fit - 1;
                    return m.sample(start + int64_t(rr) * cols + ccol, bytes, c.isSigned);
                };
                int32_t u = chroma(uStart), v = chroma(vStart);
                if (c.swapUV) std::swap(u, v);
                convert(x, r, m.sample(int64_t(s) * W + x, bytes, c.isSigned), u, v);
                break;
            }
            case LayoutKind::PlanarRgb: {
                int32_t plane[3];
                for (int k = 0; k < 3; ++k)
                    plane[k] = m.sample(int64_t(k) * W * H + int64_t(s) * W + x, bytes, c.isSigned);
                if (c.swapUV) std::swap(plane[1], plane[2]);
                convert(x, r, plane[info.rgbSource[0]], plane[info.rgbSource[1]], plane[info.rgbSource[2]]);
                break;
            }
            case LayoutKind::InterleavedRgb: {
                const int n = info.samplesPerPixel;
                const int64_t i = (int64_t(s) * W + x) * n;
                convert(x, r, m.sample(i + info.rgbSource[0], bytes, c.isSigned),
                        m.sample(i + info.rgbSource[1], bytes, c.isSigned),
                        m.sample(i + info.rgbSource[2], bytes, c.isSigned));
                break;
            }
            case LayoutKind::Packed422: {
                if (x >= 2 * (W / 2)) { // no stored sample: black
                    uint8_t *px = &out[(size_t(r) * W + x) * 4];
                    px[0] = px[1] = px[2] = 0;
                    break;
                }
                const int64_t g = int64_t(s) * (W / 2) * 4 + (x / 2) * 4;
                const bool uFirst = f == YUV_uyvy;
                const int32_t y = m.sample(g + (uFirst ? 1 + 2 * (x & 1) : 2 * (x & 1)), bytes, c.isSigned);
                int32_t u = m.sample(g + (uFirst ? 0 : 1), bytes, c.isSigned);
                int32_t v = m.sample(g + (uFirst ? 2 : 3), bytes, c.isSigned);
                if (c.swapUV) std::swap(u, v);
                convert(x, r, y, u, v);
                break;
            }
            case LayoutKind::SemiPlanar: {
                const int32_t pairs = W / 2;
                const int32_t pair = (x / 2) < pairs ? x / 2 : pairs - 1;
                int32_t u = 0, v = 0;
                if (pair >= 0) {
                    const int64_t base = int64_t(W) * H + int64_t(r / 2) * W + 2 * pair; // chroma not flipped
                    u = m.sample(base, 1, c.isSigned);
                    v = m.sample(base + 1, 1, c.isSigned);
                }
                if (c.swapUV) std::swap(u, v);
                const int32_t y = m.sample(int64_t(s) * W + x, 1, c.isSigned);
                int32_t o[3];
                for (int k = 0; k < 3; ++k) o[k] = (mx[9 + k] * (1 << down)) >> up;
                const int64_t in[3] = {y + half + o[0], u + half + o[1], v + half + o[2]};
                int32_t res[3];
                for (int k = 0; k < 3; ++k)
                    res[k] =
                        clamp(int32_t((mx[3 * k] * in[0] + mx[3 * k + 1] * in[1] + mx[3 * k + 2] * in[2] + 512) >> 8));
                store(x, r, res[0], res[1], res[2]);
                break;
            }
            case LayoutKind::V210: {
                const int64_t rowBytes = ((int64_t(W) * 8) / 3 + 127) / 128 * 128;
                const int64_t base = int64_t(s) * rowBytes + (x / 6) * 16;
                auto word = [&](int k) {
                    return uint32_t(m.sample(base + 4 * k, 1, false)) |
                           uint32_t(m.sample(base + 4 * k + 1, 1, false)) << 8 |
                           uint32_t(m.sample(base + 4 * k + 2, 1, false)) << 16 |
                           uint32_t(m.sample(base + 4 * k + 3, 1, false)) << 24;
                };
                auto field = [&](int k, int sh) { return int32_t((word(k) >> sh) & 0x3ff); };
                static const int ys[6][2] = {{0, 10}, {1, 0}, {1, 20}, {2, 10}, {3, 0}, {3, 20}};
                static const int us[3][2] = {{0, 0}, {1, 10}, {2, 20}};
                static const int vs[3][2] = {{0, 20}, {2, 0}, {3, 10}};
                const int p = x % 6;
                const int32_t y = field(ys[p][0], ys[p][1]);
                int32_t u = field(us[p / 2][0], us[p / 2][1]), v = field(vs[p / 2][0], vs[p / 2][1]);
                if (c.swapUV) std::swap(u, v);
                const int64_t in[3] = {y + 4 * mx[9], u + 4 * mx[10], v + 4 * mx[11]};
                int32_t res[3];
                for (int k = 0; k < 3; ++k)
                    res[k] =
                        clamp(int32_t((mx[3 * k] * in[0] + mx[3 * k + 1] * in[1] + mx[3 * k + 2] * in[2] + 512) >> 10));
                store(x, r, res[0], res[1], res[2]);
                break;
            }
            case LayoutKind::Luma: {
                const int32_t v =
                    (int32_t(uint32_t(m.sample(int64_t(s) * W + x, bytes, c.isSigned) + half) << up) >> down) & 0xff;
                store(x, r, v, v, v);
                break;
            }
            }
        }
    }
    if ((f == YUV_p420 || f == YUV_p410) && (H & 1))
        std::memset(&out[(size_t(H - 1) * W + W / 2) * 4], 0, size_t(W / 2) * 4);
    return out;
}

} // namespace kavri::test
