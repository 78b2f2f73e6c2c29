#include "ui/StatusText.h"

#include "formats/FrameSize.h"
#include "formats/StreamPath.h"

#include <QFileInfo>
#include <cmath>

namespace kavri::ui {

QString statusLine(const VideoProps &p)
{
    const int hz = int(p.frameRate + 0.5);
    if (p.fileName == QLatin1String("-")) return QString::asprintf("%ix%i@%iHz  stdin", p.width, p.height, hz);
    // A named pipe or a device has no size or count to show.
    if (isStreamPath(p.fileName)) return QString::asprintf("%ix%i@%iHz  pipe", p.width, p.height, hz);
    const uint64_t frames = p.frameCount;
    int minutes = 0, seconds = 0, hundredths = 0;
    // A rate of 0 has no duration; show zero rather than dividing by it.
    if (p.frameRate > 0) {
        const double secs = std::trunc(double(frames) / p.frameRate);
        const uint64_t s = secs < 1e18 ? uint64_t(secs) : 0;
        minutes = int(s / 60);
        seconds = int(s % 60);
        hundredths = int(std::fmod(double(frames) * 1000.0 / p.frameRate, 1000.0) / 10.0);
    }
    return QString::asprintf("%ix%i@%iHz  %lld frame%s   %i'%i\"%02i   %1.3fMB", p.width, p.height, hz,
                             static_cast<long long>(frames), frames == 1 ? "" : "s", minutes, seconds, hundredths,
                             double(p.fileSize) / 1024.0 / 1024.0);
}

QString waitingText(const QString &path)
{
    if (path == QLatin1String("-")) return QStringLiteral("Waiting for data on standard input...");
    return QStringLiteral("Waiting for data from '%1'...").arg(QFileInfo(path).fileName());
}

QString windowTitle(const QString &file, const QString &diff)
{
    auto name = [](const QString &f) {
        return f == QLatin1String("-") ? QStringLiteral("stdin") : QFileInfo(f).fileName();
    };
    if (diff.isEmpty()) return name(file);
    return name(file) + QLatin1String(" vs. ") + name(diff);
}

QString viewStatus(const VideoProps &p, int32_t channel, bool hasDifference, int32_t diffView)
{
    QString text = QStringLiteral("%1 bit").arg(p.bitDepth);
    if (isValidFormat(p.format)) {
        const LayoutKind kind = layoutInfo(p.format).kind;
        const bool rgb = kind == LayoutKind::InterleavedRgb || kind == LayoutKind::PlanarRgb;
        // Selections count the unpacked components, which are Y U V or R G B whatever the storage order.
        static const char *const yuvNames[] = {"Y", "U", "V"};
        static const char *const rgbNames[] = {"R", "G", "B"};
        if (kind == LayoutKind::Luma)
            text += QStringLiteral("  luma");
        else if (channel >= 1 && channel <= 3)
            text += QStringLiteral("  ") + QLatin1String((rgb ? rgbNames : yuvNames)[channel - 1]);
        else
            text += QStringLiteral("  full colour");
        // The colour reading in use, when it is not the player's own conversion ("BT.709 limited").
        if (!p.colour.isDefault() && (kind == LayoutKind::Luma || channel < 1 || channel > 3))
            text += QStringLiteral("  ") + displayName(p.colour);
    }
    if (hasDifference)
        text += diffView == 1   ? QStringLiteral("  A")
                : diffView == 2 ? QStringLiteral("  B")
                                : QStringLiteral("  difference");
    return text;
}

QString formatProblem(const VideoProps &p)
{
    if (p.frameBytes != 0 && p.width > 0 && p.height > 0 && !displayPictureFits(p.width, p.height))
        return pictureTooWideText(p.width, p.height);
    if (p.fileName == QLatin1String("-") || p.frameBytes == 0 || p.frameCount > 0) return QString();
    const uint64_t after = p.fileSize > p.headerBytes ? p.fileSize - p.headerBytes : 0;
    if (after >= p.frameBytes) return QString();
    if (p.headerBytes > 0)
        return QStringLiteral("the file holds %1 bytes after its %2-byte header, less than one frame of %3 bytes")
            .arg(after)
            .arg(p.headerBytes)
            .arg(p.frameBytes);
    return QStringLiteral("the file holds %1 bytes, less than one frame of %2 bytes").arg(after).arg(p.frameBytes);
}

} // namespace kavri::ui
