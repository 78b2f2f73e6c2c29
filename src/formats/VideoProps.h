// The format record of one sequence and the start-up values taken from the command line.
#pragma once

#include "formats/ColourDescription.h"
#include "formats/VideoFormat.h"

#include <QString>
#include <QStringList>
#include <array>
#include <cstdint>
#include <memory>
#include <vector>

// Where each frame's samples start in a file whose frames are not evenly spaced (a y4m file with FRAME
// lines of different lengths); shared, never changed once made.
using FrameStarts = std::shared_ptr<const std::vector<uint64_t>>;

// Fixed-point unit of the display scale factors: 4096 = 1.0.
constexpr int32_t kScaleOne = 4096;

struct VideoProps {
    int32_t width = 0;
    int32_t height = 0;
    double frameRate = 0.0;  // frames per second; negative = not given
    uint64_t frameCount = 0; // whole frames in the file (computed)
    uint64_t fileSize = 0;   // bytes (computed with the frame count)
    videoFormat_t format = YUV_p420;
    int32_t bitDepth = 0;      // significant bits per sample, 1..16
    int32_t containerBits = 0; // storage bits per sample: 8 or 16
    uint32_t frameBytes = 0;   // bytes per stored frame (computed)
    bool interlaced = false;
    QString fileName;
    QString diffFileName;
    bool flipped = false;
    bool anamorphic = false;
    bool toggleEndianness = false;
    bool signedValues = false;
    bool swapUV = false;
    uint32_t headerBytes = 0;
    uint32_t frameHeaderBytes = 0; // bytes before every frame (a y4m file's "FRAME\n"), skipped on reading
    // The same two for the difference file, which may have a header of its own (computed with the count).
    uint32_t diffHeaderBytes = 0;
    uint32_t diffFrameHeaderBytes = 0;
    // Set (computed with the count) only for a y4m file whose FRAME lines differ in length: then these,
    // not the spacing above, say where each frame starts, and how many whole frames there are.
    FrameStarts frameStarts;
    FrameStarts diffFrameStarts;
    uint64_t timeStamp = 0; // seconds since 1970, time of last use
    int32_t scaleX = kScaleOne;
    int32_t scaleY = kScaleOne;
    // Row stride of each plane in bytes (GPU dumps, padded buffers); 0 = rows packed one after another.
    std::array<uint32_t, 4> planeStride{};
    // Where each plane starts, in bytes from the start of the frame; 0 = right after the plane before.
    std::array<uint64_t, 4> planeOffset{};
    // How the samples are read as colour; the default is the player's fixed conversion. Stored beside
    // the record, not in it (see RememberedFormats.h).
    kavri::ColourDescription colour;

    VideoProps() = default;
    VideoProps(const VideoProps &other) = default;
    // Assignment keeps this record's difference file name: a remembered or detected record installed
    // over a pending one must not drop the difference path the loader already holds.
    VideoProps &operator=(const VideoProps &other);
};

struct KavriStartupConfig {
    QString file; // "-" = standard input
    QString diff;
    QString link;
    bool play = false;
    int32_t width = 0;  // 0 = not given
    int32_t height = 0; // 0 = not given
    double rate = -1.0; // -1 = not given
    videoFormat_t format = FMT_UNKNOWN;
    kavri::ColourOverrides colour; // --matrix, --range, --chroma, --transfer, --peak
    QStringList compare;           // -c/--compare: further sequences shown with the file, in lock-step
};
