// How the samples of a sequence are to be read as colour: the matrix from Y'CbCr to R'G'B', the range
// of the codes, where the chroma samples sit, and the transfer of the signal. The default reading is
// the player's own fixed conversion; every other reading takes the described path in src/pixel.
#pragma once

#include <QString>
#include <cstdint>
#include <optional>

namespace kavri {

enum class ColourMatrix : uint8_t { Default, BT601, BT709, BT2020, SMPTE240M, YCgCo };
enum class ColourRange : uint8_t { Full, Limited };
enum class ChromaSiting : uint8_t { Nearest, Left, Center, TopLeft };
enum class ColourTransfer : uint8_t { SDR, PQ, HLG };

constexpr int32_t kDefaultPeakNits = 1000;

struct ColourDescription {
    ColourMatrix matrix = ColourMatrix::Default;
    ColourRange range = ColourRange::Full;
    ChromaSiting chroma = ChromaSiting::Nearest;
    ColourTransfer transfer = ColourTransfer::SDR;
    int32_t peakNits = kDefaultPeakNits;

    // The reading that goes through the fixed conversion (the peak alone plays no part in SDR).
    bool isDefault() const
    {
        return matrix == ColourMatrix::Default && range == ColourRange::Full && chroma == ChromaSiting::Nearest &&
               transfer == ColourTransfer::SDR;
    }
    bool operator==(const ColourDescription &) const = default;
};

// Values given on a command line, each applied over the description the file opened with.
struct ColourOverrides {
    std::optional<ColourMatrix> matrix;
    std::optional<ColourRange> range;
    std::optional<ChromaSiting> chroma;
    std::optional<ColourTransfer> transfer;
    std::optional<int32_t> peakNits;
    bool any() const { return matrix || range || chroma || transfer || peakNits; }
    void applyTo(ColourDescription &c) const
    {
        if (matrix) c.matrix = *matrix;
        if (range) c.range = *range;
        if (chroma) c.chroma = *chroma;
        if (transfer) c.transfer = *transfer;
        if (peakNits) c.peakNits = *peakNits;
    }
};

// Keywords as the options, side files and settings write them ("bt709", "limited", "topleft", "pq").
QString keyword(ColourMatrix m);
QString keyword(ColourRange r);
QString keyword(ChromaSiting c);
QString keyword(ColourTransfer t);
std::optional<ColourMatrix> matrixFromKeyword(const QString &word);
std::optional<ColourRange> rangeFromKeyword(const QString &word);
std::optional<ChromaSiting> chromaFromKeyword(const QString &word);
std::optional<ColourTransfer> transferFromKeyword(const QString &word);

// Peaks accepted from any source, in cd/m2.
constexpr int32_t kMinPeakNits = 100;
constexpr int32_t kMaxPeakNits = 10000;

// "BT.709 limited", "default full", "BT.2020 limited PQ 1000 nits": the reading in a few words.
QString displayName(const ColourDescription &c);

// The compact stored form, "matrix=bt709 range=limited chroma=left transfer=pq peak=1000", and its
// reader. Unknown keys and values are skipped, so a later program version's additions never make a
// stored description unreadable; what is missing keeps its default.
QString toStoredText(const ColourDescription &c);
ColourDescription fromStoredText(const QString &text);

// The colour words a file name carries as whole words (bt601, bt709, bt2020, pq, hlg, tv/limited,
// pc/full); fields the name does not mention keep the values of `base`. `found` tells whether any word
// was there.
ColourDescription colourFromFileName(const QString &path, const ColourDescription &base, bool *found = nullptr);

} // namespace kavri
