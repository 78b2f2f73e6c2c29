#include "formats/FormatSource.h"

#include "formats/FormatDetector.h"
#include "formats/RememberedFormats.h"

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

} // namespace kavri
