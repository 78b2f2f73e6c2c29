#include "ui/SaveFrame.h"

#include <QFileInfo>
#include <QStringList>

namespace kavri::ui {

QString saveFrameFileName(const QString &chosen)
{
    static const QStringList known = {"png", "bmp", "tif", "jpg", "tiff", "jpeg"};
    const QString suffix = QFileInfo(chosen).suffix();
    return known.contains(suffix, Qt::CaseSensitive) ? chosen : chosen + QLatin1String(".png");
}

QByteArray saveFrameFormat(const QString &fileName)
{
    const QString s = QFileInfo(fileName).suffix();
    if (s == QLatin1String("jpg") || s == QLatin1String("jpeg")) return "JPG";
    if (s == QLatin1String("tif") || s == QLatin1String("tiff")) return "TIFF";
    if (s == QLatin1String("bmp")) return "BMP";
    return "PNG";
}

QString dragFrameFileName(uint64_t frameIndex, qint64 processId)
{
    return QStringLiteral("frame_%1%2.jpg").arg(frameIndex, 8, 10, QLatin1Char('0')).arg(processId);
}

} // namespace kavri::ui
