// The pixel engine at exact buffer ends: a record chosen by the first bytes (layout, size, depth, flags,
// view, kernel set), frames made of the rest, in buffers of exactly the allocation size that end at a
// guard page. Conversion, readout and the difference picture all run over them.
#include "FuzzSupport.h"
#include "pixel/ColorConversion.h"
#include "pixel/DifferencePicture.h"

namespace {

constexpr size_t kControlBytes = 10;

int32_t pick(uint8_t b, int32_t lo, int32_t hi) { return lo + int32_t(b) % (hi - lo + 1); }

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace kavri;
    if (size < kControlBytes) return 0;
    VideoProps p;
    p.fileName = QStringLiteral("-");
    p.format = videoFormat_t(pick(data[0], 0, 29)); // a few values outside 1..27 too
    p.width = pick(data[1], 1, 70);
    p.height = pick(data[2], 1, 70);
    p.bitDepth = pick(data[3], 1, 16);
    p.containerBits = (data[4] & 1) ? 16 : 8;
    const uint8_t flags = data[5];
    p.signedValues = flags & 1;
    p.flipped = flags & 2;
    p.swapUV = flags & 4;
    p.toggleEndianness = flags & 8;
    p.interlaced = flags & 16;
    const bool withSecond = flags & 32;
    const int32_t channel = pick(data[6], 0, 3);
    const int32_t tone = int32_t(int8_t(data[7])) * 4;
    static const char *const kSets[] = {"portable", "avx2", "avx512"};
    const char *kernels = kSets[data[8] % 3];
    const int32_t gain = int32_t(int8_t(data[9])) * 8;
    data += kControlBytes;
    size -= kControlBytes;

    if (!isPlayable(validateProps(p))) return 0;
    const uint32_t alloc = allocationSize(p.format, p.containerBits, p.width, p.height);
    if (alloc == 0 || alloc > (1u << 24)) return 0;

    fuzz::GuardedBuffer a(alloc), b(alloc), diff(alloc), rgb(size_t(p.width) * size_t(p.height) * 4);
    a.fill(data, size / 2);
    b.fill(data + size / 2, size - size / 2);

    ColorConversion::X2RGBColorConv conv;
    conv.setDescription(p);
    if (!conv.setKernelVariant(kernels)) conv.setKernelVariant("portable"); // the CPU or build lacks it
    conv.setThreadCount(1);
    conv.setUnsigned(!p.signedValues);
    conv.setToneCurve(tone, -tone, 256 + tone);
    conv.setChannelSelection(channel);
    conv.swapToNative(a.data());
    conv.swapToNative(b.data());

    const int32_t xs[] = {0, p.width / 2, p.width - 1, p.width, -1};
    const int32_t ys[] = {0, p.height / 2, p.height - 1, p.height, -1};
    int32_t c1, c2, c3, alpha;
    if (withSecond) {
        DifferencePicture d;
        d.setup(p.format, p.width, p.height, p.width, p.bitDepth, p.signedValues);
        d.buildTable(gain);
        d.compute(a.data(), b.data(), diff.data());
        for (int32_t x : xs)
            for (int32_t y : ys) d.readDifference(a.data(), b.data(), x, y, c1, c2, c3, &alpha);
        conv.setUnsigned(true);
        conv.convertNativeFrame(diff.data(), rgb.data());
    } else {
        conv.convertNativeFrame(a.data(), rgb.data());
    }
    for (int32_t x : xs)
        for (int32_t y : ys) conv.readNative(a.data(), x, y, c1, c2, c3, &alpha);
    if (p.interlaced) ::deinterlaceFilter(rgb.data(), p.width, p.height);
    return 0;
}
