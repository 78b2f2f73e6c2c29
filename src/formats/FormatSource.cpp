#include "formats/FormatSource.h"

#include "formats/FormatDetector.h"
#include "formats/RememberedFormats.h"
#include "formats/Validation.h"

namespace kavri {

ResolvedFormat resolveFormat(const QString &path, bool useRemembered)
{
    ResolvedFormat r;
    if (path == QLatin1String("-")) {
        r.props.fileName = path;
        r.source = QStringLiteral("default");
        return r;
    }
    // A record remembered for this very path wins over everything the file or its name says: once a
    // user has corrected a wrongly named file, the correction sticks.
    if (useRemembered) {
        if (const std::optional<VideoProps> remembered = lookupRemembered(path)) {
            r.props = *remembered;
            r.props.fileName = path;
            r.source = QStringLiteral("remembered");
            return r;
        }
    }
    FormatDetector detector;
    r.props = detector.detect(path);
    r.source = detector.sourceName();
    return r;
}

ResolvedFormat resolvePair(const QString &path, const QString &diffPath, bool useRemembered)
{
    ResolvedFormat found = resolveFormat(path, useRemembered);
    if (diffPath.isEmpty() || path == QLatin1String("-")) return found;
    // Validation measures the files, so it is tried on copies that name both paths.
    VideoProps trial = found.props;
    trial.fileName = path;
    trial.diffFileName = diffPath;
    if (isPlayable(validateProps(trial))) return found;
    ResolvedFormat other = resolveFormat(diffPath, false);
    trial = other.props;
    trial.fileName = path;
    trial.diffFileName = diffPath;
    if (!isPlayable(validateProps(trial))) return found;
    other.props.fileName = path;
    return other;
}

} // namespace kavri
