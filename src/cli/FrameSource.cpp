#include "cli/FrameSource.h"

#include "formats/FrameSize.h"
#include "formats/StreamPath.h"

#include <QFile>
#include <QRegularExpression>
#include <new>

namespace kavri::cli {

std::vector<OptionSpec> frameSelectionSpecs()
{
    return {
        {nullptr, "--frame", "N", "frame number, from 0 (default 0)"},
        {nullptr, "--diff", "FILE2", "compare against FILE2, read with the same format record"},
        {nullptr, "--view", "V", "with --diff: 0 the difference (default), 1 FILE, 2 FILE2"},
    };
}

void parseFrameRange(const QString &text, uint64_t &first, uint64_t &last)
{
    static const QRegularExpression re(QStringLiteral("^(\\d+)-(\\d+)$"));
    const QRegularExpressionMatch m = re.match(text);
    bool okA = false, okB = false;
    if (m.hasMatch()) {
        first = m.captured(1).toULongLong(&okA);
        last = m.captured(2).toULongLong(&okB);
    }
    if (!okA || !okB)
        throw UsageError(QStringLiteral("option '--frames': '%1' is not a range A-B").arg(text).toStdString());
    if (first > last) throw UsageError("option '--frames': A must not be greater than B");
}

ViewSettings viewSettingsFrom(const ParsedArgs &a)
{
    ViewSettings v;
    v.channel = a.intValue("--channel", 0, 0, 3);
    // Wide enough for any slider position; the limits keep the tone arithmetic in range.
    v.brightness = a.intValue("--brightness", 0, -1024, 1024);
    v.contrast = a.intValue("--contrast", 0, -4096, 16384);
    // A still picture has one contrast: the difference table's gain when the difference is shown.
    v.differenceContrast = v.contrast;
    v.gamma = a.intValue("--gamma", 256, 0, 65536);
    v.view = a.intValue("--view", 0, 0, 2);
    if (a.has("--view") && !a.has("--diff")) throw UsageError("option '--view' needs '--diff FILE2'");
    return v;
}

bool openFrameSource(const ParsedArgs &args, const QString &file, const QString &diff, FrameSource &src, QString &error)
{
    if (file == QLatin1String("-") || diff == QLatin1String("-")) {
        error = QStringLiteral("frames cannot be picked from standard input; give a file");
        return false;
    }
    for (const QString &path : {file, diff}) {
        if (!path.isEmpty() && isStreamPath(path)) {
            error = QStringLiteral("frames cannot be picked from a pipe or a device ('%1'); give a file").arg(path);
            return false;
        }
    }
    if (!openSequence(args, file, diff, src.seq, error)) return false;
    const QString reason = unplayableReason(src.seq.props, src.seq.mask);
    if (!reason.isEmpty()) {
        error = QStringLiteral("'%1' is not playable: %2").arg(file, reason);
        return false;
    }
    src.first.open(QFile::encodeName(file).toStdString(), std::ios::binary);
    if (!diff.isEmpty()) src.second.open(QFile::encodeName(diff).toStdString(), std::ios::binary);
    if (!src.first || (!diff.isEmpty() && !src.second)) {
        error = QStringLiteral("cannot read '%1'").arg(src.first ? diff : file);
        return false;
    }
    try {
        src.pipeline.setup(src.seq.props, !diff.isEmpty());
    } catch (const std::bad_alloc &) {
        const VideoProps &p = src.seq.props;
        error = QStringLiteral("'%1' cannot be read: %2")
                    .arg(file, notEnoughMemoryText(p.width, p.height,
                                                   allocationSize(p.format, p.containerBits, p.width, p.height)));
        return false;
    }
    return true;
}

bool readFrame(FrameSource &src, uint64_t index, QString &error)
{
    const uint64_t count = src.seq.props.frameCount;
    if (index >= count) {
        error = QStringLiteral("frame %1 is out of range (%2 frame%3, 0..%4)")
                    .arg(index)
                    .arg(count)
                    .arg(count == 1 ? "" : "s")
                    .arg(count - 1);
        return false;
    }
    if (!src.pipeline.read(src.first, src.pipeline.hasSecond() ? &src.second : nullptr, index)) {
        error = QStringLiteral("frame %1 could not be read").arg(index);
        return false;
    }
    return true;
}

} // namespace kavri::cli
