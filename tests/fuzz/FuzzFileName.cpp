// The file-name vote on arbitrary names, bare and inside folders whose names also vote. The paths name
// nothing on disk, so only the name is read.
#include "FuzzSupport.h"
#include "formats/FormatDetector.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString name = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    static const QString kRoot = QStringLiteral("/nonexistent-kavri-fuzz/");
    for (const QString &path :
         {kRoot + name, kRoot + name + QStringLiteral("/x.yuv"), kRoot + QStringLiteral("a_1920x1080/") + name}) {
        kavri::FormatDetector detector;
        kavri::fuzz::checkValidated(detector.detect(path));
    }
    return 0;
}
