#include "formats/CompareSet.h"

#include <QFileInfo>
#include <algorithm>

namespace kavri {

uint64_t lockStepCount(const std::vector<uint64_t> &frameCounts)
{
    if (frameCounts.empty()) return 0;
    return *std::min_element(frameCounts.begin(), frameCounts.end());
}

bool lockStepHasFrame(uint64_t index, const std::vector<uint64_t> &frameCounts)
{
    return index < lockStepCount(frameCounts);
}

bool lockStepReady(uint64_t index, const std::vector<std::optional<uint64_t>> &delivered)
{
    if (delivered.empty()) return false;
    return std::all_of(delivered.begin(), delivered.end(),
                       [index](const std::optional<uint64_t> &d) { return d && *d == index; });
}

QString sizeMismatchMessage(const QStringList &files, const std::vector<QSize> &sizes)
{
    const size_t n = std::min(size_t(files.size()), sizes.size());
    for (size_t i = 1; i < n; ++i) {
        if (sizes[i] == sizes[0]) continue;
        return QStringLiteral("%1 is %2x%3, but %4 is %5x%6: sequences compared must have the same size.")
            .arg(QFileInfo(files[qsizetype(i)]).fileName())
            .arg(sizes[i].width())
            .arg(sizes[i].height())
            .arg(QFileInfo(files[0]).fileName())
            .arg(sizes[0].width())
            .arg(sizes[0].height());
    }
    return {};
}

} // namespace kavri
