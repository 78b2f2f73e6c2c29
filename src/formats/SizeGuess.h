// Proposes frame sizes (and, when asked, layouts and depths) under which a file holds a whole number of
// frames: the sizes the player offers, the sizes raw sequences commonly have, and the one the file names.
#pragma once

#include "formats/VideoFormat.h"

#include <QString>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace kavri {

struct SizePreset {
    const char *name;
    int32_t width;
    int32_t height;
};

// The sizes the format dialog offers, in the order it lists them.
inline constexpr std::array<SizePreset, 14> kSizePresets = {{
    {"QCIF", 176, 144},
    {"QVGA", 320, 240},
    {"CIF", 352, 288},
    {"SIF", 352, 240},
    {"qWVGA", 416, 240},
    {"VGA", 640, 480},
    {"SD480", 720, 480},
    {"PAL", 768, 576},
    {"SD576", 720, 576},
    {"WVGA", 832, 480},
    {"XGA", 1024, 768},
    {"HD720", 1280, 720},
    {"HD1080", 1920, 1080},
    {"Ultra HD", 3840, 2160},
}};

// Further sizes raw sequences often have: broadcast, cinema and the larger codec test pictures.
inline constexpr std::array<SizePreset, 5> kCommonSizes = {{
    {"4CIF", 704, 576},
    {"2K DCI", 2048, 1080},
    {"WQXGA", 2560, 1600},
    {"4K DCI", 4096, 2160},
    {"8K UHD", 7680, 4320},
}};

// What the file itself says about its format: the size, layout and depth its "vix" header, ".hdr" side
// file or name gives. Used only to rank candidates, never to make one.
struct GuessHints {
    int32_t width = -1; // -1: no size named
    int32_t height = -1;
    // By layout value; a header or side file names one layout, a name scores several (the detector's vote).
    std::array<double, kLayoutCount + 1> layoutScore{};
    int32_t bitDepth = -1; // -1: no depth named
    // Bytes before the first frame, when a header or side file says so.
    std::optional<uint32_t> headerBytes;
};

// The hints of the file at `path`, read the way the player detects a format. Reads the start of the file
// and its side file, never a stream (see isStreamPath), whose name alone is used.
GuessHints guessHintsFor(const QString &path);

struct GuessRequest {
    uint64_t fileSize = 0;
    uint32_t headerBytes = 0;
    videoFormat_t format = FMT_UNKNOWN; // FMT_UNKNOWN: try every layout
    int32_t bitDepth = 0;               // 0: try 8, 10 and 16 bits where the layout takes them
    int32_t containerBits = 0;          // 0: the container the depth needs
};

struct SizeCandidate {
    int32_t width = 0;
    int32_t height = 0;
    videoFormat_t format = FMT_UNKNOWN;
    int32_t bitDepth = 0;
    int32_t containerBits = 0;
    uint32_t frameBytes = 0;
    uint64_t frames = 0;
    bool hint = false; // the size is the one the file names
    QString name;      // "CIF", "HD1080", ...; empty for a size only the file names
};

// The depths a layout is tried at when none is given: v210 is 10-bit by construction, the others are
// stored as 8, 10 or 16 bits.
std::vector<int32_t> guessDepths(videoFormat_t format);

// The candidates that divide the bytes after the header into at least one whole frame, best first: the
// size the file names, then (with several layouts or depths) the layouts and depth the file names, then
// how plausible the frame count is and how common the size is.
std::vector<SizeCandidate> guessSizes(const GuessRequest &request, const GuessHints &hints = {});

// Whole frames of `frameBytes` after the header, and the bytes left over. Both 0 without a frame size or
// when the header takes the whole file.
struct FrameFit {
    uint64_t frames = 0;
    uint64_t leftover = 0;
};
FrameFit fitFrames(uint64_t fileSize, uint32_t headerBytes, uint32_t frameBytes);

// The size of a regular file at `path`; nothing for an empty path, a stream, or a file that is not there.
std::optional<uint64_t> knownFileSize(const QString &path);

} // namespace kavri
