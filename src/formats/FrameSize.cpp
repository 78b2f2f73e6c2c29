#include "formats/FrameSize.h"

#include "formats/PixelDescriptor.h"
#include "formats/StreamPath.h"

#include <QFile>
#include <QStringList>
#include <cstddef>
#include <limits>

namespace kavri {

namespace {

// The byte-count rules are written in 32-bit terms; evaluating them in 64 bits gives the same result
// wherever the 32-bit arithmetic does not overflow, and lets an absurd size be refused instead of
// wrapping into a plausible-looking count.
uint32_t narrow(int64_t bytes)
{
    if (bytes <= 0 || bytes > int64_t(std::numeric_limits<uint32_t>::max())) return 0;
    return uint32_t(bytes);
}

int64_t rawFrameBytes(int32_t format, int32_t containerBits, int64_t w, int64_t h)
{
    const int64_t B = containerBits / 8;
    const int64_t S = B * w * h;
    switch (format) {
    case YUV_p420:
    case YUV_nv12: return (S * 3) / 2;
    case YUV_p422:
    case YUV_uyvy:
    case YUV_yuyv:
    case YUV_yuy2: return S * 2;
    case YUV_p444:
    case RGB_i444:
    case BGR_i444:
    case RGB_planar:
    case RBG_planar:
    case BGR_planar:
    case BRG_planar:
    case GRB_planar:
    case GBR_planar: return S * 3;
    case RGBA_i444:
    case BGRA_i444:
    case RGBA_planar:
    case RBGA_planar:
    case BGRA_planar:
    case BRGA_planar:
    case GRBA_planar:
    case GBRA_planar: return S * 4;
    case BW: return S;
    case YUV_p410: {
        const int64_t q = w / 4;
        const int64_t c = (q * h) / 2;
        return B * (w * h + 2 * c);
    }
    case YUV_p411: return B * (w + 2 * (w / 4)) * h;
    case YUV_v210: {
        // Six pixels take 16 bytes (8/3 bytes a pixel); each row is padded to a multiple of 128 bytes.
        const int64_t r = ((w * 8) / 3 + 127) & ~int64_t(127);
        return r * h;
    }
    default: return 0;
    }
}

} // namespace

uint32_t frameBytes(int32_t format, int32_t containerBits, int32_t width, int32_t height)
{
    if (!isValidFormat(format) || width <= 0 || height <= 0) return 0;
    // Every layout takes at least a byte a pixel, so more than 2^32 pixels or a container wider than
    // 32 bits cannot fit; refusing them first keeps the 64-bit arithmetic below from overflowing.
    if (int64_t(width) * height > (int64_t(1) << 32) || containerBits < 0 || containerBits > 32) return 0;
    // The layouts after the original ones take their size from their descriptor: whole samples for
    // every subsampled chroma row and column, rows one after the other.
    if (isDescribedLayout(format))
        return narrow(planeLayout(*pixelDescriptor(format), containerBits, width, height).frameBytes);
    return narrow(rawFrameBytes(format, containerBits, width, height));
}

bool hasPlaneGeometry(const VideoProps &p)
{
    for (size_t i = 0; i < 4; ++i)
        if (p.planeStride[i] || p.planeOffset[i]) return true;
    return false;
}

bool parsePlaneBytes(const QString &text, uint64_t largest, std::array<uint64_t, 4> &out)
{
    std::array<uint64_t, 4> v{};
    if (!text.trimmed().isEmpty()) {
        const QStringList parts = text.split(QLatin1Char(','));
        if (parts.size() > 4) return false;
        for (qsizetype i = 0; i < parts.size(); ++i) {
            bool ok = false;
            const QString t = parts[i].trimmed();
            const qulonglong n = t.toULongLong(&ok);
            if (!ok || t.startsWith(QLatin1Char('+')) || n > largest) return false;
            v[size_t(i)] = n;
        }
    }
    out = v;
    return true;
}

QString planeBytesText(const std::array<uint64_t, 4> &values)
{
    int last = -1;
    for (int i = 0; i < 4; ++i)
        if (values[size_t(i)]) last = i;
    QStringList parts;
    for (int i = 0; i <= last; ++i) parts << QString::number(values[size_t(i)]);
    return parts.join(QLatin1Char(','));
}

uint32_t recordFrameBytes(const VideoProps &p)
{
    const uint32_t packed = frameBytes(p.format, p.containerBits, p.width, p.height);
    if (packed == 0 || !hasPlaneGeometry(p)) return packed;
    return narrow(
        planeLayout(*pixelDescriptor(p.format), p.containerBits, p.width, p.height, p.planeStride, p.planeOffset)
            .frameBytes);
}

uint32_t allocationSize(int32_t format, int32_t containerBits, int32_t width, int32_t height)
{
    if (frameBytes(format, containerBits, width, height) == 0) return 0;
    const int64_t B = containerBits / 8;
    const int64_t w = width, h = height;
    switch (format) {
    case YUV_p420:
    case YUV_nv12: return narrow((B * w * h * 3) / 2 + (h & 1) * w * 2);
    case YUV_p410: return narrow(B * (w * h + 2 * ((w / 4) * h / 2)) + ((h & 1) * w * 2) / 4);
    default: return frameBytes(format, containerBits, width, height);
    }
}

uint64_t frameCountOf(const QString &path, uint32_t frameBytes, uint32_t headerBytes, uint64_t *fileSize)
{
    uint64_t size = 0;
    QFile f(path);
    // A pipe has no size, and opening one would wait for its writer.
    if (!isStreamPath(path) && f.open(QIODevice::ReadOnly)) {
        const qint64 s = f.size();
        size = s > 0 ? uint64_t(s) : 0;
    }
    if (fileSize) *fileSize = size;
    if (frameBytes == 0 || headerBytes >= size) return 0;
    return (size - headerBytes) / frameBytes;
}

uint64_t frameCountOfPair(const QString &path, const QString &diffPath, uint32_t frameBytes, uint32_t headerBytes,
                          uint64_t *fileSize)
{
    uint64_t size = 0;
    uint64_t count = frameCountOf(path, frameBytes, headerBytes, &size);
    if (!diffPath.isEmpty()) {
        uint64_t diffSize = 0;
        const uint64_t diffCount = frameCountOf(diffPath, frameBytes, headerBytes, &diffSize);
        if (diffCount <= count) {
            count = diffCount;
            size = diffSize;
        }
    }
    if (fileSize) *fileSize = size;
    return count;
}

bool displayPictureFits(int32_t width, int32_t height)
{
    if (width <= 0 || height <= 0 || width > kMaxPictureWidth) return false;
    const uint64_t bytes = uint64_t(width) * uint64_t(height) * 4;
    return bytes <= uint64_t(std::numeric_limits<std::ptrdiff_t>::max());
}

QString pictureTooWideText(int32_t width, int32_t height)
{
    return QStringLiteral("a %1x%2 picture cannot be displayed (at most %3 pixels a row)")
        .arg(width)
        .arg(height)
        .arg(kMaxPictureWidth);
}

} // namespace kavri
