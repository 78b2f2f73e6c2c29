// Build-time helper: writes our 256-pixel icon at the sizes the XDG icon theme looks for, so the package
// ships sharp small icons without keeping a copy of each in the tree.
// Usage: kavri_icon_sizes SOURCE.png OUTDIR SIZE... (writes OUTDIR/NxN/apps/kavri.png)
#include <QDir>
#include <QImage>
#include <cstdio>

int main(int argc, char **argv)
{
    if (argc < 4) {
        std::fprintf(stderr, "usage: %s SOURCE.png OUTDIR SIZE...\n", argv[0]);
        return 2;
    }
    const QImage source(QString::fromLocal8Bit(argv[1]));
    if (source.isNull()) {
        std::fprintf(stderr, "%s: cannot read %s\n", argv[0], argv[1]);
        return 1;
    }
    // Scaling in 8-bit premultiplied ARGB keeps the rounded corners' edges from fringing.
    const QImage base = source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    for (int i = 3; i < argc; ++i) {
        const int size = QString::fromLocal8Bit(argv[i]).toInt();
        if (size <= 0) {
            std::fprintf(stderr, "%s: bad size %s\n", argv[0], argv[i]);
            return 2;
        }
        const QString dir = QStringLiteral("%1/%2x%2/apps").arg(QString::fromLocal8Bit(argv[2])).arg(size);
        const QImage icon = base.size() == QSize(size, size)
                                ? base
                                : base.scaled(size, size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
        if (!QDir().mkpath(dir) ||
            !icon.convertToFormat(QImage::Format_ARGB32).save(dir + QStringLiteral("/kavri.png"), "PNG")) {
            std::fprintf(stderr, "%s: cannot write the %dx%d icon in %s\n", argv[0], size, size, argv[2]);
            return 1;
        }
    }
    return 0;
}
