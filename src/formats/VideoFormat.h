// The sample layouts of a raw sequence, described as data: names, suffixes, plane structure. The first 27
// are the player's original layouts; the ones after them are described further by their pixel descriptor
// (formats/PixelDescriptor.h), which says where every sample lies. Byte counts, the name tables, the pixel
// kernels, the readout and the test-pattern writer all read these tables, so a layout is described in
// exactly one place.
#pragma once

#include <array>
#include <cstdint>
#include <span>
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
    // Layouts read through their pixel descriptor; each is shown, compared and read out through the
    // original layout its samples unpack into (its `canonical` layout).
    YUV_nv21 = 28,
    YUV_nv16 = 29,
    YUV_nv61 = 30,
    YUV_nv24 = 31,
    YUV_nv42 = 32,
    YUV_p010 = 33,
    YUV_p012 = 34,
    YUV_p016 = 35,
    YUV_p210 = 36,
    YUV_p216 = 37,
    YUV_p410w = 38, // P410: 16-bit words, 4:4:4 semi-planar (YUV_p410 is planar 4:1:0)
    YUV_p416 = 39,
    YUV_yv12 = 40,
    YUV_yv16 = 41,
    YUV_yv24 = 42,
    YUV_p440 = 43,
    YUV_y210 = 44,
    YUV_y212 = 45,
    YUV_y216 = 46,
    YUV_y410 = 47,
    YUV_ayuv = 48,
    YUV_vuya = 49,
    RGB_x2rgb10 = 50,
    RGB_x2bgr10 = 51,
    RGBA_64 = 52,
    BGRA_64 = 53,
    RGB_565 = 54,
    BAYER_rggb = 55,
    BAYER_bggr = 56,
    BAYER_grbg = 57,
    BAYER_gbrg = 58,
    BAYER_rggb10p = 59,
    BAYER_bggr10p = 60,
    BAYER_grbg10p = 61,
    BAYER_gbrg10p = 62,
};

// The readout reports the layout of its values as the open file's layout number.
using colorSpace_t = videoFormat_t;

namespace kavri {

// The original layouts, whose numbers, names and behaviour never change.
constexpr int kCoreLayoutCount = 27;
// Every layout, the original ones first.
constexpr int kLayoutCount = 62;

// How the samples of a frame are arranged in storage.
enum class LayoutKind : uint8_t {
    PlanarYuv,      // Y plane, then U and V planes subsampled by the chroma shifts
    Packed422,      // two pixels in one 4-sample unit (UYVY / YUYV)
    SemiPlanar,     // nv12: Y plane, then one plane of U V pairs
    V210,           // 10-bit 4:2:2, six pixels in four little-endian 32-bit words
    InterleavedRgb, // R G B (A) samples per pixel, in the layout's own order
    PlanarRgb,      // three (or four) full planes in the layout's own order
    Luma,           // one luma plane (also the mosaic of a Bayer layout, whose stored samples are one plane)
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
    // The descriptor-read layouts. Their kind, subsampling and letters are those of the samples as
    // shown (the canonical layout's), so code that asks "is this RGB" or "how many components" gets the
    // answer for the picture.
    {YUV_nv21,    "YUV_nv21",    ".nv21",      "YUV, 4:2:0, NV21 ordering", "nv21",   LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_nv16,    "YUV_nv16",    ".nv16",      "YUV, 4:2:2, NV16 ordering", "nv16",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_nv61,    "YUV_nv61",    ".nv61",      "YUV, 4:2:2, NV61 ordering", "nv61",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_nv24,    "YUV_nv24",    ".nv24",      "YUV, 4:4:4, NV24 ordering", "nv24",   LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_nv42,    "YUV_nv42",    ".nv42",      "YUV, 4:4:4, NV42 ordering", "nv42",   LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p010,    "YUV_p010",    ".p010",      "YUV, 4:2:0, P010 (10-bit)", "p010",   LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p012,    "YUV_p012",    ".p012",      "YUV, 4:2:0, P012 (12-bit)", "p012",   LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p016,    "YUV_p016",    ".p016",      "YUV, 4:2:0, P016 (16-bit)", "p016",   LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p210,    "YUV_p210",    ".p210",      "YUV, 4:2:2, P210 (10-bit)", "p210",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p216,    "YUV_p216",    ".p216",      "YUV, 4:2:2, P216 (16-bit)", "p216",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p410w,   "YUV_p410w",   ".p410w",     "YUV, 4:4:4, P410 (10-bit)", "p410w",  LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p416,    "YUV_p416",    ".p416",      "YUV, 4:4:4, P416 (16-bit)", "p416",   LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_yv12,    "YUV_yv12",    ".yv12",      "YUV, planar, 4:2:0, YV12",  "yv12",   LayoutKind::PlanarYuv,      1, 1, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_yv16,    "YUV_yv16",    ".yv16",      "YUV, planar, 4:2:2, YV16",  "yv16",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_yv24,    "YUV_yv24",    ".yv24",      "YUV, planar, 4:4:4, YV24",  "yv24",   LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_p440,    "YUV_p440",    "_P440.yuv",  "YUV, planar, 4:4:0",        "yuv440", LayoutKind::PlanarYuv,      0, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_y210,    "YUV_y210",    ".y210",      "YUV, 4:2:2, Y210 (10-bit)", "y210",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_y212,    "YUV_y212",    ".y212",      "YUV, 4:2:2, Y212 (12-bit)", "y212",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_y216,    "YUV_y216",    ".y216",      "YUV, 4:2:2, Y216 (16-bit)", "y216",   LayoutKind::PlanarYuv,      1, 0, 0, false, {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_y410,    "YUV_y410",    ".y410",      "YUV, 4:4:4, Y410 (10-bit)", "y410",   LayoutKind::PlanarYuv,      0, 0, 0, true,  {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_ayuv,    "YUV_ayuv",    ".ayuv",      "YUV, 4:4:4, AYUV ordering", "ayuv",   LayoutKind::PlanarYuv,      0, 0, 0, true,  {"Y", "U", "V"}, {0, 1, 2}},
    {YUV_vuya,    "YUV_vuya",    ".vuya",      "YUV, 4:4:4, VUYA ordering", "vuya",   LayoutKind::PlanarYuv,      0, 0, 0, true,  {"Y", "U", "V"}, {0, 1, 2}},
    {RGB_x2rgb10, "RGB_x2rgb10", ".x2rgb10",   "RGB, 10-bit in 32, X2RGB10","x2rgb10",LayoutKind::PlanarRgb,      0, 0, 3, false, {"R", "G", "B"}, {0, 1, 2}},
    {RGB_x2bgr10, "RGB_x2bgr10", ".x2bgr10",   "BGR, 10-bit in 32, X2BGR10","x2bgr10",LayoutKind::PlanarRgb,      0, 0, 3, false, {"R", "G", "B"}, {0, 1, 2}},
    {RGBA_64,     "RGBA_64",     ".rgba64",    "RGBA, interleaved, 16-bit", "rgba64", LayoutKind::PlanarRgb,      0, 0, 4, true,  {"R", "G", "B"}, {0, 1, 2}},
    {BGRA_64,     "BGRA_64",     ".bgra64",    "BGRA, interleaved, 16-bit", "bgra64", LayoutKind::PlanarRgb,      0, 0, 4, true,  {"R", "G", "B"}, {0, 1, 2}},
    {RGB_565,     "RGB_565",     ".rgb565",    "RGB, 5:6:5 in 16 bits",     "rgb565", LayoutKind::PlanarRgb,      0, 0, 3, false, {"R", "G", "B"}, {0, 1, 2}},
    {BAYER_rggb,  "BAYER_rggb",  ".rggb",      "Bayer, RGGB",               "rggb",   LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_bggr,  "BAYER_bggr",  ".bggr",      "Bayer, BGGR",               "bggr",   LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_grbg,  "BAYER_grbg",  ".grbg",      "Bayer, GRBG",               "grbg",   LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_gbrg,  "BAYER_gbrg",  ".gbrg",      "Bayer, GBRG",               "gbrg",   LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_rggb10p,"BAYER_rggb10p",".rggb10p", "Bayer, RGGB, MIPI RAW10",   "rggb10p",LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_bggr10p,"BAYER_bggr10p",".bggr10p", "Bayer, BGGR, MIPI RAW10",   "bggr10p",LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_grbg10p,"BAYER_grbg10p",".grbg10p", "Bayer, GRBG, MIPI RAW10",   "grbg10p",LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    {BAYER_gbrg10p,"BAYER_gbrg10p",".gbrg10p", "Bayer, GBRG, MIPI RAW10",   "gbrg10p",LayoutKind::Luma,           0, 0, 0, false, {"", "", ""},    {0, 0, 0}},
    // clang-format on
}};

constexpr bool isValidFormat(int32_t value) { return value >= 1 && value <= kLayoutCount; }
// One of the 27 original layouts, which the pixel kernels read directly.
constexpr bool isCoreLayout(int32_t value) { return value >= 1 && value <= kCoreLayoutCount; }

// The rows of the 27 original layouts.
constexpr std::span<const LayoutInfo> coreLayouts()
{
    return std::span<const LayoutInfo>(kLayouts).first(kCoreLayoutCount);
}

// The table entry of a layout; only for values 1..kLayoutCount.
constexpr const LayoutInfo &layoutInfo(videoFormat_t value) { return kLayouts[size_t(value) - 1]; }

} // namespace kavri
