#include "formats/FormatSource.h"

#include "formats/FormatDetector.h"
#include "formats/RememberedFormats.h"
#include "formats/Validation.h"
#include "formats/Y4mHeader.h"

#include <QFile>
#include <QFileInfo>

namespace kavri {

namespace {
bool startsWithY4mSignature(const QString &path)
{
    if (!QFileInfo(path).isFile()) return false;
    QFile f(path);
    return f.open(QIODevice::ReadOnly) && hasY4mSignature(f.read(qint64(sizeof(kY4mSignature) - 1)));
}

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
    // A y4m file describes itself completely, so its header wins even over a remembered record: a record
    // stored while the file was open would otherwise hide a header rewritten since.
    const bool y4m = startsWithY4mSignature(path);
    // A record remembered for this very path wins over everything else the file or its name says: once a
    // user has corrected a wrongly named file, the correction sticks.
    if (useRemembered && !y4m) {
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
    r.error = detector.error();
    // A side file's colour keys come with the record; otherwise the name's words may give one.
    if (r.props.colour != ColourDescription{})
        r.colourSource = r.source == QLatin1String("y4m") ? QStringLiteral("y4m") : QStringLiteral("hdr");
    else
        colourFromName(path, r);
    return r;
}

ResolvedFormat resolvePair(const QString &path, const QString &diffPath, bool useRemembered)
{
    ResolvedFormat found = resolveFormat(path, useRemembered);
    if (diffPath.isEmpty() || path == QLatin1String("-") || !found.error.isEmpty()) return found;
    // A y4m file on either side keeps its own header; what is left to go wrong is a y4m difference file
    // we cannot read, or one whose frames are of another size than the record's.
    auto placementError = [&diffPath](ResolvedFormat &r) {
        if (r.error.isEmpty()) r.error = secondFilePlacement(r.props, diffPath).error;
        return r;
    };
    // Validation measures the files, so it is tried on copies that name both paths.
    VideoProps trial = found.props;
    trial.fileName = path;
    trial.diffFileName = diffPath;
    // A y4m file is never read with another file's record.
    if (isPlayable(validateProps(trial)) || found.source == QLatin1String("y4m")) return placementError(found);
    ResolvedFormat other = resolveFormat(diffPath, false);
    if (!other.error.isEmpty()) return placementError(found);
    // The first file has no y4m header of its own (or its record would be playable): it is raw, whatever
    // the difference file's header says of its own start.
    if (other.source == QLatin1String("y4m")) other.props.headerBytes = other.props.frameHeaderBytes = 0;
    trial = other.props;
    trial.fileName = path;
    trial.diffFileName = diffPath;
    if (!isPlayable(validateProps(trial))) return placementError(found);
    other.props.fileName = path;
    return placementError(other);
}

} // namespace kavri
