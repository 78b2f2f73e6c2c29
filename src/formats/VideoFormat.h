// The 27 sample layouts of a raw sequence, described as data: names, suffixes, plane structure.
// Byte counts, the name tables, the pixel kernels, the readout and the test-pattern writer all read
// this one table, so a layout is described in exactly one place.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

enum videoFormat_t : int32_t {
    FMT_UNKNOWN = 0,
    YUV_p420 = 1,
    YUV_p422 = 2,
    YUV_p444 = 3,
    YUV_p410 = 4,
    YUV_p411 = 5,
    YUV_uyvy = 6,
    YUV_yuyv = 7,
    YUV_yuy2 = 8,
    YUV_nv12 = 9,
    YUV_v210 = 10,
    RGB_i444 = 11,
    RGBA_i444 = 12,
    BGR_i444 = 13,
    BGRA_i444 = 14,
    RGB_planar = 15,
    RGBA_planar = 16,
    RBG_planar = 17,
    RBGA_planar = 18,
    BGR_planar = 19,
    BGRA_planar = 20,
    BRG_planar = 21,
    BRGA_planar = 22,
    GRB_planar = 23,
    GRBA_planar = 24,
    GBR_planar = 25,
    GBRA_planar = 26,
    BW = 27,
};

// The readout reports the layout of its values as the open file's layout number.
using colorSpace_t = videoFormat_t;

namespace kavri {

constexpr int kLayoutCount = 27;

// How the samples of a frame are arranged in storage.
enum class LayoutKind : uint8_t {
    PlanarYuv,      // Y plane, then U and V planes subsampled by the chroma shifts
    Packed422,      // two pixels in one 4-sample unit (UYVY / YUYV)
    SemiPlanar,     // nv12: Y plane, then one plane of U V pairs
    V210,           // 10-bit 4:2:2, six pixels in four little-endian 32-bit words
    InterleavedRgb, // R G B (A) samples per pixel, in the layout's own order
    PlanarRgb,      // three (or four) full planes in the layout's own order
    Luma,           // one luma plane
};

struct LayoutInfo {
    videoFormat_t value;
    std::string_view shortName;   // stored in remembered formats
    std::string_view suffix;      // canonical file-name suffix
    std::string_view displayName; // format dialog entry, irregular blanks included
    std::string_view keyword;     // command-line keyword (-f)
    LayoutKind kind;
    uint8_t chromaShiftX;    // log2 of horizontal chroma subsampling (planar YUV, packed, nv12, v210)
    uint8_t chromaShiftY;    // log2 of vertical chroma subsampling
    uint8_t samplesPerPixel; // interleaved RGB: 3 or 4; planar RGB: number of planes; otherwise 0
    bool hasAlpha;
    // Channel letters in storage order ("" for luma only).
    std::array<std::string_view, 3> letters;
    // Storage position (plane, or sample within a pixel) that feeds red, green and blue.
    // For planar RGB this is the conversion's plane assignment, which for BRG and GBR is deliberately
    // the swapped one (BRG reads as G,B,R; GBR as B,R,G); the readout uses the same assignment.
    std::array<uint8_t, 3> rgbSource;
};

inline constexpr std::array<LayoutInfo, kLayoutCount> kLayouts = {{
    // clang-format off
    {YUV_p420,    "YUV_p420",    "_P420.yuv",  "YUV, planar, 4:2:0",        "yuv420", LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p422,    "YUV_p422",    "_P422.yuv",  "YUV, planar, 4:2:2",        "yuv422", LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p444,    "YUV_p444",    "_P444.yuv",  "YUV, planar, 4:4:4",        "yuv444", LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p410,    "YUV_p410",    "_P410.yuv",  "YUV, planar, 4:1:0",        "yuv410", LayoutKind::PlanarYuv,      2, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p411,    "YUV_p411",    "_P411.yuv",  "YUV, planar, 4:1:1",        "yuv411", LayoutKind::PlanarYuv,      2, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_uyvy,    "YUV_uyvy",    "_UYVY.yuv",  "YUV, 4:2:2, UYVY ordering", "uyvy",   LayoutKind::Packed422,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_yuyv,    "YUV_yuyv",    "_YUYV.yuv",  "YUV, 4:2:2, YUYV ordering", "yuyv",   LayoutKind::Packed422,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_yuy2,    "YUV_yuy2",    "_YUY2.yuv",  "YUV, 4:2:2, YUY2 ordering", "yuy2",   LayoutKind::Packed422,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_nv12,    "YUV_nv12",    ".nv12",      "YUV, 4:2:0, NV12 ordering", "nv12",   LayoutKind::SemiPlanar,     1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_v210,    "YUV_v210",    ".v210",      "YUV, 4:2:2, v210 ordering", "v210",   LayoutKind::V210,           1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {RGB_i444,    "RGB_i444",    "_I444.rgb",  "RGB, interleaved,  4:4:4",  "rgb",    LayoutKind::InterleavedRgb, 0, 0, 3, false, {"R", "G", "B"}, {0, 1, 2}},
    {RGBA_i444,   "RGBA_i444",   "_I444.rgba", "RGBA, interleaved, 4:4:4",  "rgba",   LayoutKind::InterleavedRgb, 0, 0, 4, true,  {"R", "G", "B"}, {0, 1, 2}},
    {BGR_i444,    "BGR_i444",    "_I444.bgr",  "BGR, interleaved,  4:4:4",  "bgr",    LayoutKind::InterleavedRgb, 0, 0, 3, false, {"B", "G", "R"}, {2, 1, 0}},
    {BGRA_i444,   "BGRA_i444",   "_I444.bgra", "BGRA, interleaved, 4:4:4",  "bgra",   LayoutKind::InterleavedRgb, 0, 0, 4, true,  {"B", "G", "R"}, {2, 1, 0}},
    {RGB_planar,  "RGB_planar",  "_P444.rgb",  "RGB, planar,  4:4:4",       "rgbp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"R", "G", "B"}, {0, 1, 2}},
    {RGBA_planar, "RGBA_planar", "_P444.rgba", "RGBA, planar, 4:4:4",       "rgbap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"R", "G", "B"}, {0, 1, 2}},
    {RBG_planar,  "RBG_planar",  "_P444.rbg",  "RBG, planar,  4:4:4",       "rbgp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"R", "B", "G"}, {0, 2, 1}},
    {RBGA_planar, "RBGA_planar", "_P444.rbga", "RBGA, planar, 4:4:4",       "rbgap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"R", "B", "G"}, {0, 2, 1}},
    {BGR_planar,  "BGR_planar",  "_P444.bgr",  "BGR, planar,  4:4:4",       "bgrp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"B", "G", "R"}, {2, 1, 0}},
    {BGRA_planar, "BGRA_planar", "_P444.bgra", "BGRA, planar, 4:4:4",       "bgrap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"B", "G", "R"}, {2, 1, 0}},
    {BRG_planar,  "BRG_planar",  "_P444.brg",  "BRG, planar,  4:4:4",       "brgp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"B", "R", "G"}, {2, 0, 1}},
    {BRGA_planar, "BRGA_planar", "_P444.brga", "BRGA, planar, 4:4:4",       "brgap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"B", "R", "G"}, {2, 0, 1}},
    {GRB_planar,  "GRB_planar",  "_P444.grb",  "GRB, planar,   4:4:4",      "grbp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"G", "R", "B"}, {1, 0, 2}},
    {GRBA_planar, "GRBA_planar", "_P444.grba", "GRBA, planar,  4:4:4",      "grbap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"G", "R", "B"}, {1, 0, 2}},
    {GBR_planar,  "GBR_planar",  "_P444.gbr",  "GBR, planar,   4:4:4",      "gbrp",   LayoutKind::PlanarRgb,      0, 0, 3, false, {"G", "B", "R"}, {1, 2, 0}},
    {GBRA_planar, "GBRA_planar", "_P444.gbra", "GBRA, planar,  4:4:4",      "gbrap",  LayoutKind::PlanarRgb,      0, 0, 4, true,  {"G", "B", "R"}, {1, 2, 0}},
    {BW,          "BW",          ".bw",        "Luminance Only",            "luma",   LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    // clang-format on
}};

constexpr bool isValidFormat(int32_t value) { return value >= 1 && value <= kLayoutCount; }

// The table entry of a layout; only for values 1..27.
constexpr const LayoutInfo &layoutInfo(videoFormat_t value) { return kLayouts[size_t(value) - 1]; }

} // namespace kavri
