// What the player's scopes draw for one frame, from its stored samples: the statistics of every component,
// a waveform (luma, or the three colour components side by side for RGB layouts) and a vectorscope (the
// two colour differences against each other), with the places the 75 % colour bars land on it for the
// colour reading in use. Plain counts; the widgets turn them into pictures.
#pragma once

#include "formats/ColourDescription.h"
#include "pixel/FrameStatistics.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kavri::pixel {

// The level (0..levels-1) a value of the picture (0..1 for black to white) is counted at.
int32_t pictureLevel(double value, int32_t levels);

// Counts of samples by column band and level: `parts` panels of `columns` columns each, side by side,
// and `levels` levels (level 0 the lowest code). Column by column (neighbouring pixels fall in the same
// column, so the counters they touch lie together): counts[((part * columns) + column) * levels + level].
struct Waveform {
    int32_t parts = 0, columns = 0, levels = 0;
    std::vector<std::string> names; // a name for each part
    std::vector<uint32_t> counts;
    uint32_t at(int32_t part, int32_t column, int32_t level) const
    {
        return counts[size_t(part * columns + column) * size_t(levels) + size_t(level)];
    }
};

// Counts of (U, V) pairs on a size x size grid: cell (u, v) at counts[v * size + u], u from the lowest
// code of the blue difference on the left, v from the lowest code of the red difference at index 0.
// Empty when the frame has no colour differences (luma alone).
struct Vectorscope {
    int32_t size = 0;
    std::vector<uint32_t> counts;
    uint32_t at(int32_t u, int32_t v) const { return counts[size_t(v) * size_t(size) + size_t(u)]; }
};

// Where a colour bar's samples land on the vectorscope, as a fraction 0..1 of the grid in each
// direction (the same mapping the counts use, so a bar's pixels fall in the cell of its target).
struct ScopeTarget {
    char name; // 'R', 'M', 'B', 'C', 'G', 'Y'
    double u, v;
};

// The six 75 % bars (red, magenta, blue, cyan, green, yellow) of a colour reading at a depth: their
// colour differences through the reading's matrix (the default reading as full-range BT.709, which is
// what the player's fixed conversion reads), coded for its range.
std::array<ScopeTarget, 6> colourBarTargets(const ColourDescription &colour, int32_t bits);

// The fraction of the vectorscope grid a code of a depth lands at (0 the lowest code).
double scopePosition(int32_t code, int32_t bits, bool isSigned);

struct ScopeData {
    FrameStatistics statistics;
    int32_t bits = 8;
    bool isSigned = false;
    Waveform waveform;
    Vectorscope vectorscope;
    std::array<ScopeTarget, 6> targets{};
};

struct ScopeOptions {
    int32_t waveformColumns = 512; // at most; fewer for narrower pictures
    int32_t waveformLevels = 256;
    int32_t vectorscopeSize = 256;
    // The waveform and vectorscope look at every row while a frame has no more samples than this, and at
    // evenly spaced rows above it (the statistics always count every sample).
    int64_t sampleBudget = int64_t(1) << 21;
    int32_t threads = 1; // for the statistics, as computeFrameStatistics takes it
    // The waveform of a YUV layout shows red, green and blue of the picture side by side (each pixel
    // through the colour reading, with the chroma sample that covers it) instead of luma. Not for v210,
    // whose waveform stays luma.
    bool yuvParade = false;
};

// Everything the scopes show of a frame of `bytes` bytes in native byte order.
ScopeData computeScopeData(const StatisticsFormat &format, const ColourDescription &colour, const uint8_t *frame,
                           size_t bytes, const ScopeOptions &options = {});

} // namespace kavri::pixel
