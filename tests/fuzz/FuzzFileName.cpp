// The file-name vote on arbitrary names, bare and inside folders whose names also vote. The paths name
// nothing on disk, so only the name is read.
#include "FuzzSupport.h"
#include "formats/FormatDetector.h"
#include "formats/SizeGuess.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString name = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    static const QString kRoot = QStringLiteral("/nonexistent-kavri-fuzz/");
    for (const QString &path :
         {kRoot + name, kRoot + name + QStringLiteral("/x.yuv"), kRoot + QStringLiteral("a_1920x1080/") + name}) {
        kavri::FormatDetector detector;
        kavri::fuzz::checkValidated(detector.detect(path));
    }
    // A size guess over a file of three frames of the size the name states lists that size first, and
    // every candidate it lists divides the file exactly.
    const kavri::GuessHints hints = kavri::guessHintsFor(kRoot + name);
    if ((hints.width > 0) != (hints.height > 0)) std::abort();
    const uint32_t bytes = kavri::frameBytes(YUV_p420, 8, hints.width, hints.height);
    if (bytes > 0) {
        kavri::GuessRequest request;
        request.fileSize = uint64_t(bytes) * 3;
        request.format = YUV_p420;
        request.bitDepth = 8;
        const auto candidates = kavri::guessSizes(request, hints);
        if (candidates.empty() || !candidates.front().hint || candidates.front().frames != 3) std::abort();
        if (candidates.front().width != hints.width || candidates.front().height != hints.height) std::abort();
        for (const kavri::SizeCandidate &c : candidates)
            if (uint64_t(c.frameBytes) * c.frames != request.fileSize) std::abort();
    }
    return 0;
}
