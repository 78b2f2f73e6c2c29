#include "view/CompareReadout.h"

#include "formats/PixelDescriptor.h"
#include "formats/VideoFormat.h"
#include "pixel/LayoutUnpack.h"
#include "pixel/NativeReadout.h"
#include <algorithm>

namespace kavri::view {

bool readNativeAt(const uint8_t *frame, int64_t bytes, const VideoProps &props, int32_t x, int32_t y, NativeValues &out)
{
    if (!frame || x < 0 || y < 0 || x >= props.width || y >= props.height) return false;
    const int32_t row = props.flipped ? props.height - 1 - y : y;
    pixel::StoredSample s;
    const bool ok = isDescribedLayout(props.format)
                        ? pixel::readDescribed(props, frame, bytes, x, row, s)
                        : pixel::readStored(frame, bytes, props.format, props.width, props.height, props.bitDepth,
                                            props.signedValues, x, row, s);
    if (!ok) return false;
    out.space = props.format;
    out.c1 = s.c[0];
    out.c2 = s.c[1];
    out.c3 = s.c[2];
    out.alpha = s.hasAlpha ? s.alpha : -1;
    return true;
}

std::vector<char> componentLetters(colorSpace_t space)
{
    if (!isValidFormat(space)) return {};
    switch (layoutInfo(space).kind) {
    case LayoutKind::InterleavedRgb:
    case LayoutKind::PlanarRgb: return {'R', 'G', 'B'};
    case LayoutKind::Luma: return {'Y'};
    default: return {'Y', 'U', 'V'};
    }
}

namespace {
int32_t component(const NativeValues &v, size_t i) { return i == 0 ? v.c1 : i == 1 ? v.c2 : v.c3; }

// `value` of `from` bits in units of `to` bits; a narrowing shift rounds half up.
int32_t toDepth(int32_t value, int32_t from, int32_t to)
{
    if (from == to) return value;
    if (from < to) return int32_t(uint32_t(value) << (to - from));
    const int s = from - to;
    return (value + (1 << (s - 1))) >> s;
}

QString number(int32_t v, bool hex)
{
    return hex ? QStringLiteral("0x%1").arg(unsigned(v), 0, 16) : QString::number(v);
}
} // namespace

QString compareReadoutText(const std::vector<CompareSample> &samples, bool hex)
{
    QStringList lines;
    const std::vector<char> first = samples.empty() ? std::vector<char>{} : componentLetters(samples[0].values.space);
    for (size_t i = 0; i < samples.size(); ++i) {
        const CompareSample &s = samples[i];
        QString line = QStringLiteral("%1 %2:").arg(i + 1).arg(s.name);
        const std::vector<char> letters = componentLetters(s.values.space);
        if (letters.empty()) {
            lines << line + QStringLiteral(" -");
            continue;
        }
        for (size_t c = 0; c < letters.size(); ++c)
            line += QStringLiteral(" %1 %2").arg(QLatin1Char(letters[c])).arg(number(component(s.values, c), hex));
        if (s.values.alpha >= 0) line += QStringLiteral(" A %1").arg(number(s.values.alpha, hex));
        if (i > 0 && !first.empty()) {
            QString diff;
            for (size_t c = 0; c < first.size(); ++c) {
                // A component only the first has (a luma file against a YUV one) has no difference.
                const auto it = std::find(letters.begin(), letters.end(), first[c]);
                if (it == letters.end()) continue;
                const int32_t mine =
                    toDepth(component(s.values, size_t(it - letters.begin())), s.bits, samples[0].bits);
                const int32_t d = mine - component(samples[0].values, c);
                diff += QStringLiteral(" %1%2")
                            .arg(QLatin1Char(first[c]))
                            .arg(d > 0 ? QStringLiteral("+%1").arg(d) : QString::number(d));
            }
            if (!diff.isEmpty()) line += QStringLiteral("  \u0394") + diff;
        }
        lines << line;
    }
    return lines.join(QLatin1Char('\n'));
}

} // namespace kavri::view
