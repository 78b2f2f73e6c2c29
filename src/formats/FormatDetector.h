// Works out the format record of a raw file from the header inside it (y4m or vix), its ".hdr" side file, or its name.
#pragma once

#include "formats/VideoProps.h"

#include <QString>
#include <QStringList>
#include <array>
#include <optional>
#include <vector>

namespace kavri {

// One row of the name vote: a pattern searched case-insensitively in the lower-cased path, and the
// weight it adds to its layout's score when it occurs.
struct KeywordRow {
    const char *pattern;
    double weight;
};

// The keyword rows of each layout (index = videoFormat_t value, index 0 unused), in the order in which
// they are added. Repeated rows are intentional: they are what breaks ties between the planar RGB orders.
using KeywordTable = std::array<std::vector<KeywordRow>, kLayoutCount + 1>;
KeywordTable buildKeywordTable();

// The whole words of a file name that name a layout after the original 27 (its keyword and the names
// other tools give it, such as "p010le"); empty for the 27, which the vote decides.
QStringList layoutWords(videoFormat_t layout);

struct NamedFrameSize {
    int32_t width;
    int32_t height;
};

// The frame size `path` states by its name, read as detect() reads it (a number pair, then "qcif", "sif",
// "cif", then "720p"), except that a bare "1080" or "1080p" counts as 1920x1080, which detect() leaves out.
std::optional<NamedFrameSize> frameSizeNamedIn(const QString &path);

class FormatDetector {
public:
    // Which description decided the record of the last detect().
    enum class Source { None, Y4mHeader, VixHeader, SideFile, Name };

    // Fills and returns the record for `path` (exactly as it will be opened; directories take part in
    // the vote). Absent numbers are -1 (width, height, bit depth) or -1.0 (rate) when the name decided.
    const VideoProps &detect(const QString &path);

    Source source() const { return m_source; }
    // "y4m", "vix", "hdr" or "name" for the last detect(); empty before the first.
    QString sourceName() const;
    // Why a file that carries a y4m header cannot be read (a header we do not read, or a frame without its
    // FRAME line); empty otherwise. The record is then the unplayable default.
    const QString &error() const { return m_error; }
    // Score of a layout 1..27 in the last name vote (0.0 outside that range or when no vote ran).
    double score(int layout) const;
    const VideoProps &result() const { return m_result; }

private:
    void readName(const QString &path);

    std::array<double, kLayoutCount + 1> m_score{};
    double m_bestScore = -1.0;
    VideoProps m_result;
    Source m_source = Source::None;
    QString m_error;
};

} // namespace kavri
