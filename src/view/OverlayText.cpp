#include "view/OverlayText.h"

#include "formats/PixelDescriptor.h"

#include <algorithm>
#include <cmath>

namespace kavri::view {

namespace {

// Appends the raster indices of the n x n square at (x0, y0) of a CU n0 blocks wide, in z-order.
void zWalk(int x0, int y0, int n, int n0, std::vector<int> &order)
{
    if (n == 1) {
        order.push_back(y0 * n0 + x0);
        return;
    }
    const int h = n / 2;
    zWalk(x0, y0, h, n0, order);
    zWalk(x0 + h, y0, h, n0, order);
    zWalk(x0, y0 + h, h, n0, order);
    zWalk(x0 + h, y0 + h, h, n0, order);
}

} // namespace

std::vector<uint16_t> buildZScanTable(int depth)
{
    depth = std::clamp(depth, 1, kMaxHevcDepth);
    const int n = 1 << (depth - 1);
    std::vector<int> order;
    order.reserve(size_t(n) * size_t(n));
    zWalk(0, 0, n, n, order);
    std::vector<uint16_t> table(order.size());
    for (size_t i = 0; i < order.size(); ++i) table[size_t(order[i])] = uint16_t(i);
    return table;
}

HevcOverlay makeHevcOverlay(int cuSize, int depth)
{
    HevcOverlay h;
    h.cuSize = std::max(1, cuSize);
    h.depth = std::clamp(depth, 1, kMaxHevcDepth);
    // A depth beyond the CU size would make the minimum block zero pixels wide.
    while (h.depth > 1 && (h.cuSize >> (h.depth - 1)) == 0) --h.depth;
    h.zscan = buildZScanTable(h.depth);
    return h;
}

CuPartition cuPartitionAt(QPoint p, int imageWidth, const HevcOverlay &hevc)
{
    const int S = std::max(1, hevc.cuSize);
    const int d = std::clamp(hevc.depth, 1, kMaxHevcDepth);
    const int m = std::max(1, S >> (d - 1));
    const int n = 1 << (d - 1);
    const int64_t perRow = (int64_t(std::max(0, imageWidth)) + S - 1) / S;
    CuPartition r;
    r.cu = perRow * (p.y() / S) + p.x() / S;
    // A CU size that is not a power of two leaves a ragged edge of blocks outside the table.
    const int col = std::min((p.x() % S) / m, n - 1), row = std::min((p.y() % S) / m, n - 1);
    const size_t raster = size_t(row) * size_t(n) + size_t(col);
    r.part = raster < hevc.zscan.size() ? hevc.zscan[raster] : 0;
    return r;
}

QString positionText(QPoint p, int imageWidth, const HevcOverlay *hevc)
{
    if (p.x() < 0 || p.y() < 0) return {};
    if (!hevc) return QString::asprintf("@%i,%i", p.x(), p.y());
    const CuPartition c = cuPartitionAt(p, imageWidth, *hevc);
    return QString::asprintf("@%i,%i\n[CU #%i, part %i]", p.x(), p.y(), int(c.cu), c.part);
}

QString valueText(const NativeValues &v, bool hex)
{
    // %x wants an unsigned number; a negative difference shows as its two's complement.
    const unsigned u1 = unsigned(v.c1), u2 = unsigned(v.c2), u3 = unsigned(v.c3), ua = unsigned(v.alpha);
    auto rgb = [&] {
        return hex ? QString::asprintf("R: 0x%x\nG: 0x%x\nB: 0x%x", u1, u2, u3)
                   : QString::asprintf("R: % 3i\nG: % 3i\nB: % 3i", v.c1, v.c2, v.c3);
    };
    switch (int(v.space)) {
    case 0: return {};
    case RGB_i444:
    case BGR_i444:
    case RGB_planar:
    case BGR_planar:
    case BRG_planar:
    case GRB_planar:
    case GBR_planar: return rgb();
    case RGBA_i444:
    case BGRA_i444:
    case RGBA_planar:
    case BGRA_planar:
    case GRBA_planar:
    case GBRA_planar:
        if (v.alpha < 0) return rgb();
        return hex ? QString::asprintf("R: 0x%x\nG: 0x%x\nB: 0x%x\nA: 0x%x", u1, u2, u3, ua)
                   : QString::asprintf("R: % 3i\nG: % 3i\nB: % 3i\nA: % 3i", v.c1, v.c2, v.c3, v.alpha);
    case BW: return hex ? QString::asprintf("Luma: 0x%x", u1) : QString::asprintf("Luma: % 3i", v.c1);
    default:
        if (isDescribedLayout(int(v.space))) {
            // The newer layouts: a mosaic sample is labelled with the colour of its filter (in c2); the
            // others by their family, with alpha where the layout stores one.
            const LayoutInfo &info = layoutInfo(v.space);
            if (pixelDescriptor(int(v.space))->cfa != Cfa::None) {
                const char *site = v.c2 == 0 ? "R" : v.c2 == 1 ? "G" : "B";
                return hex ? QString::asprintf("%s: 0x%x", site, u1) : QString::asprintf("%s: % 3i", site, v.c1);
            }
            const bool alpha = info.hasAlpha && v.alpha >= 0;
            if (info.kind == LayoutKind::PlanarRgb || info.kind == LayoutKind::InterleavedRgb) {
                if (!alpha) return rgb();
                return hex ? QString::asprintf("R: 0x%x\nG: 0x%x\nB: 0x%x\nA: 0x%x", u1, u2, u3, ua)
                           : QString::asprintf("R: % 3i\nG: % 3i\nB: % 3i\nA: % 3i", v.c1, v.c2, v.c3, v.alpha);
            }
            if (alpha)
                return hex ? QString::asprintf("Y: 0x%x\nU: 0x%x\nV: 0x%x\nA: 0x%x", u1, u2, u3, ua)
                           : QString::asprintf("Y: % 3i\nU: % 3i\nV: % 3i\nA: % 3i", v.c1, v.c2, v.c3, v.alpha);
        }
        // Everything else, RBG_planar, RBGA_planar and BRGA_planar included, is labelled Y, U, V.
        return hex ? QString::asprintf("Y: 0x%x\nU: 0x%x\nV: 0x%x", u1, u2, u3)
                   : QString::asprintf("Y: % 3i\nU: % 3i\nV: % 3i", v.c1, v.c2, v.c3);
    }
}

QString timeText(const TimeTextInput &in)
{
    uint64_t minutes = 0;
    int seconds = 0, hundredths = 0;
    if (in.frameRate > 0.0) {
        // Counted in hundredths from the start; the small bias keeps an exact 0.29 s from printing as 0.28.
        const double t100 = std::floor(double(in.frameIndex) * 100.0 / in.frameRate + 1e-7);
        if (t100 < 1e17) {
            const uint64_t total = uint64_t(t100);
            hundredths = int(total % 100);
            seconds = int(total / 100 % 60);
            minutes = total / 6000;
        }
    }
    return QStringLiteral("%1  %2'%3\"%4%5%6")
        .arg(qulonglong(in.frameIndex), 4, 10, QLatin1Char('0'))
        .arg(qulonglong(minutes))
        .arg(seconds, 2, 10, QLatin1Char('0'))
        .arg(hundredths, 2, 10, QLatin1Char('0'))
        .arg(in.formatName.isEmpty() ? QString() : QStringLiteral("   ") + in.formatName)
        .arg(in.deinterlaced ? QStringLiteral("    deinterlaced") : QString());
}

namespace {

QString psnrText(double v) { return std::isinf(v) ? QStringLiteral("inf") : QString::number(v, 'f', 3); }
// Six significant digits: a single differing sample in a large frame gives an MSE far below 0.001, and
// it must not read as zero.
QString mseText(double v) { return QString::number(v, 'g', 6); }

} // namespace

QString differenceText(const DifferenceTextInput &in)
{
    const int n = in.components == 1 ? 1 : 3;
    bool any = false;
    for (int k = 0; k < n; ++k) any = any || (in.firstColumn[k] >= 0 && in.firstRow[k] >= 0);
    QString first;
    if (any) {
        first = QStringLiteral("\n1st @ ");
        for (int k = 0; k < n; ++k) {
            const bool has = in.firstColumn[k] >= 0 && in.firstRow[k] >= 0;
            const bool last = k == n - 1;
            if (has)
                first += QString::fromLatin1(last ? "%1,%2 " : "%1,%2 | ").arg(in.firstColumn[k]).arg(in.firstRow[k]);
            else if (!last)
                // Blanks roughly as wide as the numbers they stand for, so the bars stay in columns.
                first += k == 0 ? QStringLiteral("      | ") : QStringLiteral("     | ");
        }
    }
    if (n == 1) return QStringLiteral("PSNR:  %1\nMSE: %2%3").arg(psnrText(in.psnr[0]), mseText(in.mse[0]), first);
    return QStringLiteral("PSNR:  %1  %2  %3\nMSE: %4   %5   %6%7")
        .arg(psnrText(in.psnr[0]), psnrText(in.psnr[1]), psnrText(in.psnr[2]), mseText(in.mse[0]), mseText(in.mse[1]),
             mseText(in.mse[2]), first);
}

} // namespace kavri::view
