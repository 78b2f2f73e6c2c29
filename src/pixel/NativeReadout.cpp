#include "pixel/NativeReadout.h"

#include "pixel/PlaneGeometry.h"

#include <cstring>

namespace kavri::pixel {

namespace {

// The readout's own positions. They differ from the conversion's on purpose in three ways: the 4:2:2
// chroma is addressed as if its planes were W samples wide and H/2 rows high, 4:2:0 always uses chroma
// row y/2 (no per-field rule), and the chroma swap is not applied.
bool positions(videoFormat_t layout, int64_t W, int64_t H, int64_t x, int64_t y, int64_t pos[4])
{
    pos[3] = -1;
    const int64_t i = y * W + x;
    switch (layout) {
    case YUV_p420:
        pos[0] = i;
        pos[1] = W * H + (y / 2) * (W / 2) + x / 2;
        pos[2] = W * H + (y / 2 + H / 2) * (W / 2) + x / 2;
        return true;
    case YUV_p422:
        pos[0] = i;
        pos[1] = (H + y / 2) * W + x;
        pos[2] = (H + H / 2 + y / 2) * W + x;
        return true;
    case YUV_p410:
        pos[0] = i;
        pos[1] = W * H + (y / 2) * (W / 4) + x / 4;
        pos[2] = W * H + (y / 2 + H / 2) * (W / 4) + x / 4;
        return true;
    case YUV_p411:
        pos[0] = i;
        pos[1] = W * H + y * (W / 4) + x / 4;
        pos[2] = W * H + (W / 4) * H + y * (W / 4) + x / 4;
        return true;
    case YUV_uyvy:
    case YUV_yuyv:
    case YUV_yuy2: {
        const int64_t g = y * (W / 2) * 4 + (x / 2) * 4;
        const bool uFirst = layout == YUV_uyvy;
        pos[0] = g + (uFirst ? ((x & 1) ? 3 : 1) : ((x & 1) ? 2 : 0));
        pos[1] = g + (uFirst ? 0 : 1);
        pos[2] = g + (uFirst ? 2 : 3);
        return true;
    }
    case YUV_nv12:
        pos[0] = i;
        pos[1] = (H + y / 2) * W + (x & ~int64_t(1));
        pos[2] = pos[1] + 1;
        return true;
    case RGB_i444: pos[0] = 3 * i, pos[1] = 3 * i + 1, pos[2] = 3 * i + 2; return true;
    case BGR_i444: pos[0] = 3 * i + 2, pos[1] = 3 * i + 1, pos[2] = 3 * i; return true;
    case RGBA_i444: pos[0] = 4 * i, pos[1] = 4 * i + 1, pos[2] = 4 * i + 2, pos[3] = 4 * i + 3; return true;
    case BGRA_i444: pos[0] = 4 * i + 2, pos[1] = 4 * i + 1, pos[2] = 4 * i, pos[3] = 4 * i + 3; return true;
    case BW: pos[0] = i, pos[1] = pos[2] = -1; return true;
    default:
        if (layout == YUV_p444 || layoutInfo(layout).kind == LayoutKind::PlanarRgb) {
            pos[0] = i, pos[1] = (H + y) * W + x, pos[2] = (2 * H + y) * W + x;
            if (layoutInfo(layout).hasAlpha) pos[3] = (y + 3 * H) * W + x;
            return true;
        }
        return false;
    }
}

int32_t readAt(const uint8_t *frame, int64_t pos, bool wide, bool isSigned)
{
    if (wide) {
        uint16_t v;
        std::memcpy(&v, frame + pos * 2, 2);
        return isSigned ? int32_t(int16_t(v)) : int32_t(v);
    }
    return isSigned ? int32_t(int8_t(frame[pos])) : int32_t(frame[pos]);
}

} // namespace

bool readStored(const uint8_t *frame, int64_t bufferBytes, videoFormat_t layout, int32_t width, int32_t height,
                int32_t bits, bool isSigned, int32_t x, int32_t row, StoredSample &out)
{
    if (!frame || !isCoreLayout(layout) || bits < 1 || bits > 16) return false;
    if (x < 0 || row < 0 || x >= width || row >= height) return false;
    out = StoredSample{};
    if (layout == YUV_v210) {
        // Group of six pixels in four little-endian words; f(w, s) = (w >> s) & 0x3ff.
        const int64_t words = v210RowBytes(width) / 4;
        const int64_t first = words * row + 4 * (x / 6);
        if ((first + 4) * 4 > bufferBytes) return false;
        uint32_t w[4];
        for (int k = 0; k < 4; ++k) {
            const uint8_t *b = frame + (first + k) * 4;
            w[k] = uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24;
        }
        auto f = [&](int k, int s) { return int32_t((w[k] >> s) & 0x3ffu); };
        static constexpr int8_t kY[6][2] = {{0, 10}, {1, 0}, {1, 20}, {2, 10}, {3, 0}, {3, 20}};
        static constexpr int8_t kU[3][2] = {{0, 0}, {1, 10}, {2, 20}};
        static constexpr int8_t kV[3][2] = {{0, 20}, {2, 0}, {3, 10}};
        const int p = x % 6;
        out.c[0] = f(kY[p][0], kY[p][1]);
        out.c[1] = f(kU[p / 2][0], kU[p / 2][1]);
        out.c[2] = f(kV[p / 2][0], kV[p / 2][1]);
        return true;
    }
    const bool wide = bits > 8;
    if ((layout == RGBA_i444 || layout == BGRA_i444) && wide) return false;
    int64_t pos[4];
    if (!positions(layout, width, height, x, row, pos)) return false;
    const int64_t samples = bufferBytes / (wide ? 2 : 1);
    for (int k = 0; k < 4; ++k)
        if (pos[k] >= samples) return false;
    for (int k = 0; k < 3; ++k) out.c[k] = pos[k] < 0 ? 0 : readAt(frame, pos[k], wide, isSigned);
    if (pos[3] >= 0) {
        out.hasAlpha = true;
        out.alpha = readAt(frame, pos[3], wide, isSigned);
    }
    return true;
}

} // namespace kavri::pixel
