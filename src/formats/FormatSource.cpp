#include "formats/FormatSource.h"

#include "formats/FormatDetector.h"
#include "formats/RememberedFormats.h"
#include "formats/Validation.h"

namespace kavri {

namespace {
// The colour words of the name, where nothing stronger gave a description.
void colourFromName(const QString &path, ResolvedFormat &r)
{
    bool named = false;
    const ColourDescription c = colourFromFileName(path, r.props.colour, &named);
    if (!named) return;
    r.props.colour = c;
    r.colourSource = QStringLiteral("name");
}
} // namespace

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
            if (!r.props.colour.isDefault())
                r.colourSource = QStringLiteral("remembered");
            else
                colourFromName(path, r);
            return r;
        }
    }
    FormatDetector detector;
    r.props = detector.detect(path);
    r.source = detector.sourceName();
    // A side file's colour keys come with the record; otherwise the name's words may give one.
    if (r.props.colour != ColourDescription{})
        r.colourSource = QStringLiteral("hdr");
    else
        colourFromName(path, r);
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
