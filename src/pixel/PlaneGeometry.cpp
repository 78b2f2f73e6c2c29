#include "pixel/PlaneGeometry.h"

namespace kavri::pixel {

int32_t rowsInside(int64_t start, int32_t cols, int32_t rows, int64_t total)
{
    if (cols <= 0 || rows <= 0 || start >= total) return 0;
    const int64_t fit = (total - start) / cols;
    return fit < rows ? int32_t(fit) : rows;
}

ChromaPlanes chromaPlanes(videoFormat_t layout, int32_t width, int32_t height, int64_t bufferSamples)
{
    ChromaPlanes p;
    if (!isCoreLayout(layout) || width <= 0 || height <= 0) return p;
    const int64_t luma = int64_t(width) * height;
    p.uStart = luma;
    if (layout == YUV_nv12) {
        p.cols = width;
        p.rows = (height + 1) / 2;
        p.shiftX = p.shiftY = 1;
        p.vStart = p.uStart;
    } else {
        const LayoutInfo &info = layoutInfo(layout);
        if (info.kind != LayoutKind::PlanarYuv) return p;
        p.shiftX = info.chromaShiftX;
        p.shiftY = info.chromaShiftY;
        p.cols = width >> p.shiftX;
        p.rows = p.shiftY ? (height + 1) / 2 : height;
        p.vStart = p.uStart + int64_t(p.rows) * p.cols;
        // With an odd height the stored chroma planes hold half a row less than (H+1)/2 full rows:
        // the second plane starts half a chroma row early.
        if (p.shiftY && (height & 1)) p.vStart -= p.cols / 2;
    }
    p.uFit = rowsInside(p.uStart, p.cols, p.rows, bufferSamples);
    p.vFit = rowsInside(p.vStart, p.cols, p.rows, bufferSamples);
    return p;
}

} // namespace kavri::pixel

namespace kavri::pixel {

int32_t componentGrids(videoFormat_t layout, int32_t W, int32_t H, int64_t samples, SampleGrid grids[3],
                       double count[3])
{
    if (!isCoreLayout(layout) || W <= 0 || H <= 0) return 0;
    const int64_t pixels = int64_t(W) * H;
    for (int k = 0; k < 3; ++k) {
        grids[k] = SampleGrid{};
        count[k] = double(pixels);
    }
    const LayoutInfo &info = layoutInfo(layout);
    switch (info.kind) {
    case LayoutKind::PlanarYuv:
    case LayoutKind::PlanarRgb:
        grids[0] = {0, W, H, W, 1};
        if (info.kind == LayoutKind::PlanarYuv) {
            const ChromaPlanes c = chromaPlanes(layout, W, H, samples);
            grids[1] = {c.uStart, c.cols, c.uFit, c.cols, 1};
            grids[2] = {c.vStart, c.cols, c.vFit, c.cols, 1};
            // Chroma counts: halves and quarters taken as integers, as the planes' nominal sizes.
            const double chroma = double(W >> c.shiftX) * double(c.shiftY ? H / 2 : H);
            count[1] = count[2] = chroma;
        } else {
            // All twelve orders in stored plane order; the alpha plane is not part of the difference.
            grids[1] = {pixels, W, H, W, 1};
            grids[2] = {2 * pixels, W, H, W, 1};
        }
        return 3;
    case LayoutKind::Packed422: {
        const int64_t stride = int64_t(W / 2) * 4;
        const bool uFirst = layout == YUV_uyvy;
        // Luma of pixel x sits at 2x + 1 (U Y V Y) or 2x (Y U Y V) within the row.
        grids[0] = {uFirst ? 1 : 0, 2 * (W / 2), H, stride, 2};
        grids[1] = {uFirst ? 0 : 1, W / 2, H, stride, 4};
        grids[2] = {uFirst ? 2 : 3, W / 2, H, stride, 4};
        count[1] = count[2] = double(W / 2) * H;
        return 3;
    }
    case LayoutKind::SemiPlanar: {
        const ChromaPlanes c = chromaPlanes(layout, W, H, samples);
        grids[0] = {0, W, H, W, 1};
        grids[1] = {c.uStart, W / 2, c.uFit, W, 2};
        grids[2] = {c.uStart + 1, W / 2, c.uFit, W, 2};
        count[1] = count[2] = double(W / 2) * double(H / 2);
        return 3;
    }
    case LayoutKind::InterleavedRgb: {
        const int32_t n = info.samplesPerPixel;
        for (int k = 0; k < 3; ++k) grids[k] = {k, W, H, int64_t(W) * n, n};
        return 3;
    }
    case LayoutKind::Luma: grids[0] = {0, W, H, W, 1}; return 1;
    case LayoutKind::V210: count[1] = count[2] = double(W / 2) * H; return 0;
    }
    return 0;
}

} // namespace kavri::pixel
