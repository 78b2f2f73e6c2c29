// Without libFuzzer: feeds every file of the folders (or files) given on the command line to the target
// once, so the seed corpus and every crash ever found are replayed by the ordinary test run.
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    int replayed = 0;
    for (int i = 1; i < argc; ++i) {
        const QString arg = QString::fromLocal8Bit(argv[i]);
        QStringList files;
        if (QFileInfo(arg).isDir()) {
            QDirIterator it(arg, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) files << it.next();
        } else if (QFileInfo(arg).isFile()) {
            files << arg;
        }
        files.sort();
        for (const QString &f : files) {
            if (f.endsWith(QLatin1String("README")) || QFileInfo(f).fileName() == QLatin1String(".gitkeep")) continue;
            QFile in(f);
            if (!in.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "cannot read %s\n", qPrintable(f));
                return 1;
            }
            const QByteArray bytes = in.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()), size_t(bytes.size()));
            ++replayed;
        }
    }
    std::printf("replayed %d inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}
