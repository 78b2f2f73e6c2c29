#include "formats/SizeGuess.h"

#include "formats/FormatDetector.h"
#include "formats/FrameSize.h"
#include "formats/PixelDescriptor.h"
#include "formats/StreamPath.h"
#include "formats/Validation.h"

#include <QFileInfo>
#include <algorithm>
#include <tuple>

namespace kavri {

namespace {

struct RankedSize {
    int32_t width;
    int32_t height;
};

// Every preset and common size, most common in raw sequences first: the everyday broadcast and test sizes,
// then the codec test and cinema sizes, then the computer-screen sizes that raw captures rarely have.
// Ties in everything else are settled by this order, so the answer for a given file never varies.
constexpr RankedSize kByHowCommon[] = {
    {1920, 1080}, {1280, 720}, {3840, 2160}, {352, 288},   {176, 144},   {720, 576},   {720, 480},
    {416, 240},   {832, 480},  {2560, 1600}, {4096, 2160}, {2048, 1080}, {7680, 4320}, {704, 576},
    {352, 240},   {640, 480},  {320, 240},   {768, 576},   {1024, 768},
};
constexpr int kUnranked = int(std::size(kByHowCommon));

int commonRank(int32_t width, int32_t height)
{
    for (int i = 0; i < kUnranked; ++i)
        if (kByHowCommon[i].width == width && kByHowCommon[i].height == height) return i;
    return kUnranked;
}

// A sequence of more frames than this (over an hour at 25 frames a second) is far less likely than a
// larger picture; counts beyond it rank lower the further they go.
constexpr uint64_t kMaxPlausibleFrames = 100000;

int implausibility(uint64_t frames)
{
    int octaves = 0;
    for (uint64_t f = frames; f > kMaxPlausibleFrames; f /= 2) ++octaves;
    return octaves;
}

// Without a hint, 8-bit samples are the commonest, then 10-bit ones in 16-bit words.
int depthRank(int32_t bits) { return bits == 8 ? 0 : bits == 10 ? 1 : 2; }

struct SizeEntry {
    int32_t width;
    int32_t height;
    QString name;
};

std::vector<SizeEntry> sizesToTry(const GuessHints &hints)
{
    std::vector<SizeEntry> sizes;
    auto addOnce = [&sizes](int32_t w, int32_t h, const QString &name) {
        for (const SizeEntry &s : sizes)
            if (s.width == w && s.height == h) return;
        sizes.push_back({w, h, name});
    };
    for (const SizePreset &p : kSizePresets) addOnce(p.width, p.height, QLatin1String(p.name));
    for (const SizePreset &p : kCommonSizes) addOnce(p.width, p.height, QLatin1String(p.name));
    if (hints.width > 0 && hints.height > 0) addOnce(hints.width, hints.height, QString());
    return sizes;
}

struct Depth {
    int32_t bits;
    int32_t container;
};

std::vector<Depth> depthsToTry(const GuessRequest &r, const GuessHints &hints, videoFormat_t format)
{
    // v210 stores 10-bit samples in its own words whatever depth or container is asked for.
    if (layoutInfo(format).kind == LayoutKind::V210) return {{10, containerBitsFor(10)}};
    if (r.bitDepth > 0) {
        const bool containerHolds = (r.containerBits == 8 || r.containerBits == 16) && r.containerBits >= r.bitDepth;
        return {{r.bitDepth, containerHolds ? r.containerBits : containerBitsFor(r.bitDepth)}};
    }
    std::vector<int32_t> depths = guessDepths(format);
    // A depth the file names is tried as well (a "12bit" name), though it takes the bytes of another.
    if (hints.bitDepth >= 1 && hints.bitDepth <= kMaxBitDepth &&
        std::find(depths.begin(), depths.end(), hints.bitDepth) == depths.end())
        depths.push_back(hints.bitDepth);
    std::vector<Depth> out;
    for (int32_t bits : depths) out.push_back({bits, containerBitsFor(bits)});
    return out;
}

} // namespace

std::vector<int32_t> guessDepths(videoFormat_t format)
{
    if (!isValidFormat(format)) return {};
    if (layoutInfo(format).kind == LayoutKind::V210) return {10};
    // A layout that names its depth (P010, Y210, RGB565, ...) is stored at that depth only.
    if (const int32_t own = pixelDescriptor(format)->fixedDepth) return {own};
    return {8, 10, 16};
}

GuessHints guessHintsFor(const QString &path)
{
    GuessHints h;
    if (path.isEmpty() || path == QLatin1String("-")) return h;
    FormatDetector detector;
    const VideoProps &found = detector.detect(path);
    if (detector.source() == FormatDetector::Source::Name) {
        if (const auto size = frameSizeNamedIn(path)) {
            h.width = size->width;
            h.height = size->height;
        }
        for (const LayoutInfo &l : kLayouts) h.layoutScore[size_t(l.value)] = detector.score(l.value);
        // A word naming a layout after the original 27 decides over the vote.
        if (isDescribedLayout(found.format)) h.layoutScore[size_t(found.format)] = 1000.0;
    } else {
        if (found.width > 0 && found.height > 0) {
            h.width = found.width;
            h.height = found.height;
        }
        if (isValidFormat(found.format)) h.layoutScore[size_t(found.format)] = 1.0;
        h.headerBytes = found.headerBytes;
    }
    if (found.bitDepth > 0) h.bitDepth = found.bitDepth;
    return h;
}

std::vector<SizeCandidate> guessSizes(const GuessRequest &r, const GuessHints &hints)
{
    std::vector<SizeCandidate> out;
    if (r.headerBytes >= r.fileSize) return out;
    const uint64_t payload = r.fileSize - r.headerBytes;

    std::vector<videoFormat_t> formats;
    if (isValidFormat(r.format))
        formats.push_back(r.format);
    else
        for (const LayoutInfo &l : kLayouts) formats.push_back(l.value);

    const std::vector<SizeEntry> sizes = sizesToTry(hints);
    for (videoFormat_t f : formats) {
        for (const Depth &d : depthsToTry(r, hints, f)) {
            for (const SizeEntry &s : sizes) {
                const uint32_t bytes = frameBytes(f, d.container, s.width, s.height);
                if (bytes == 0 || payload % bytes != 0) continue;
                SizeCandidate c;
                c.width = s.width;
                c.height = s.height;
                c.format = f;
                c.bitDepth = d.bits;
                c.containerBits = d.container;
                c.frameBytes = bytes;
                c.frames = payload / bytes;
                c.hint = s.width == hints.width && s.height == hints.height;
                c.name = s.name;
                out.push_back(c);
            }
        }
    }

    // Index of each layout in the table, so that equally hinted layouts keep the table's order.
    auto layoutRank = [](videoFormat_t f) {
        for (size_t i = 0; i < kLayouts.size(); ++i)
            if (kLayouts[i].value == f) return int(i);
        return int(kLayouts.size());
    };
    auto key = [&](const SizeCandidate &c) {
        const double score = hints.layoutScore[size_t(c.format)];
        const bool depthNamed = r.bitDepth <= 0 && c.bitDepth == hints.bitDepth;
        return std::make_tuple(!c.hint, -score, !depthNamed, implausibility(c.frames), depthRank(c.bitDepth),
                               layoutRank(c.format), commonRank(c.width, c.height));
    };
    std::stable_sort(out.begin(), out.end(),
                     [&](const SizeCandidate &a, const SizeCandidate &b) { return key(a) < key(b); });
    return out;
}

FrameFit fitFrames(uint64_t fileSize, uint32_t headerBytes, uint32_t frameBytes)
{
    if (frameBytes == 0 || headerBytes >= fileSize) return {};
    const uint64_t payload = fileSize - headerBytes;
    return {payload / frameBytes, payload % frameBytes};
}

std::optional<uint64_t> knownFileSize(const QString &path)
{
    if (path.isEmpty() || isStreamPath(path)) return std::nullopt;
    const QFileInfo info(path);
    if (!info.exists() || !info.isFile()) return std::nullopt;
    const qint64 size = info.size();
    return size >= 0 ? std::optional<uint64_t>(uint64_t(size)) : std::nullopt;
}

} // namespace kavri
