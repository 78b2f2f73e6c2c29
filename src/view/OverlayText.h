// The texts the draw panel shows over the frame, as pure functions: the readout under the magnifier
// (position, coding-unit partition, stored sample values) and the two corner texts (time and format,
// difference metrics). Kept free of widgets so every format can be checked in a table.
#pragma once

#include "formats/VideoFormat.h"

#include <QPoint>
#include <QString>
#include <cstdint>
#include <vector>

namespace kavri::view {

// ---- coding-unit overlay ----

inline constexpr int kMaxHevcDepth = 8; // 2^7 x 2^7 = 16384 minimum blocks per CU at most

// Raster index (row * n + column of a minimum block inside a CU) to its z-scan position, for n = 2^(depth-1)
// minimum blocks per side. The walk visits the quadrants top-left, top-right, bottom-left, bottom-right.
std::vector<uint16_t> buildZScanTable(int depth);

struct HevcOverlay {
    int cuSize = 64;
    int depth = 5;
    std::vector<uint16_t> zscan; // from buildZScanTable(depth)
};
// Brings settings into a usable range: a CU size of at least 1 and a depth that leaves minimum blocks of at
// least one pixel (and at most kMaxHevcDepth).
HevcOverlay makeHevcOverlay(int cuSize, int depth);

struct CuPartition {
    int64_t cu = 0;
    int part = 0;
};
// Coding unit (numbered row by row over the picture) and partition index holding image pixel `p`.
CuPartition cuPartitionAt(QPoint p, int imageWidth, const HevcOverlay &hevc);

// ---- readout ----

// "@x,y", with the overlay also the CU and partition; empty for a pixel outside the picture.
QString positionText(QPoint p, int imageWidth, const HevcOverlay *hevc);

struct NativeValues {
    colorSpace_t space = FMT_UNKNOWN;
    int32_t c1 = 0, c2 = 0, c3 = 0;
    int32_t alpha = -1; // negative: no alpha to show
};
// The stored values labelled by the layout code the loader reported, in decimal or hexadecimal.
QString valueText(const NativeValues &v, bool hex);

// ---- corner texts ----

struct TimeTextInput {
    uint64_t frameIndex = 0;
    double frameRate = 0.0;
    QString formatName; // empty: none
    bool deinterlaced = false;
};
// Frame number, minutes'seconds"hundredths, the format and whether the frame was deinterlaced.
QString timeText(const TimeTextInput &in);

struct DifferenceTextInput {
    int components = 3; // 1 (luma only) or 3
    double psnr[3] = {0, 0, 0};
    double mse[3] = {0, 0, 0};
    // Position of the first differing sample per component; -1 when the component has none.
    int32_t firstColumn[3] = {-1, -1, -1};
    int32_t firstRow[3] = {-1, -1, -1};
};
// PSNR and MSE per component, then the positions of the first differences (omitted when there is none).
QString differenceText(const DifferenceTextInput &in);

} // namespace kavri::view
