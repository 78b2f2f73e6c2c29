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
    if (!isValidFormat(layout) || width <= 0 || height <= 0) return p;
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
