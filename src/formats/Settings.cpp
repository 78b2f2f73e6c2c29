#include "formats/Settings.h"

#include "formats/RememberedFormats.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <cstdio>
#include <memory>

#if defined(Q_OS_UNIX)
#include <sys/stat.h>
#endif

namespace kavri::settings {

namespace {

#if defined(Q_OS_UNIX)
// The files QSettings reads for this application in `dir`: its own and the organisation's fallback.
QStringList storeFiles(const QString &dir)
{
    const QString ext =
        QSettings::defaultFormat() == QSettings::IniFormat ? QStringLiteral(".ini") : QStringLiteral(".conf");
    const QString org = QLatin1String(kOrganizationName);
    return {dir + QLatin1Char('/') + org + QLatin1Char('/') + QLatin1String(kApplicationName) + ext,
            dir + QLatin1Char('/') + org + ext};
}

// Something other than a regular file where the store's file belongs: a FIFO would block the first read
// of every process forever, a device would be read (or written) as settings.
QString specialStoreFile(const QString &dir)
{
    for (const QString &f : storeFiles(dir)) {
        struct stat st {};
        if (::stat(QFile::encodeName(f).constData(), &st) == 0 && !S_ISREG(st.st_mode)) return f;
    }
    return {};
}
#endif

} // namespace

void useSettingsDirectory(const QString &directory)
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, directory);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, directory);
    // The native store on Windows and macOS is not a file in a directory; make it one so the redirect
    // holds on every platform.
    QSettings::setDefaultFormat(QSettings::IniFormat);
}

void initSettingsStore()
{
    QCoreApplication::setOrganizationName(QLatin1String(kOrganizationName));
    QCoreApplication::setOrganizationDomain(QLatin1String(kOrganizationDomain));
    QCoreApplication::setApplicationName(QLatin1String(kApplicationName));
    // The store decodes every value when it first reads its file and keeps that in a process-wide
    // cache. A value of a type not yet registered decodes as invalid, and the next write of *any* key
    // would then write it back as invalid: the remembered formats would be lost. So the types are
    // known before the first QSettings exists.
    registerFormatTypes();
    const QByteArray dir = qgetenv(kConfigDirEnv);
    if (!dir.isEmpty()) useSettingsDirectory(QString::fromLocal8Bit(dir));
#if defined(Q_OS_UNIX)
    const QString base = !dir.isEmpty() ? QString::fromLocal8Bit(dir)
                                        : QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    const QString bad = specialStoreFile(base);
    if (bad.isEmpty()) return;
    // Run on defaults in a private, empty store that lives as long as the process; the odd file is
    // never opened, so nothing blocks and nothing is overwritten.
    static std::unique_ptr<QTemporaryDir> privateStore;
    privateStore = std::make_unique<QTemporaryDir>();
    std::fprintf(stderr, "kavri: the settings file '%s' is not a regular file; using default settings\n",
                 qPrintable(QDir::toNativeSeparators(bad)));
    useSettingsDirectory(privateStore->path());
#endif
}

} // namespace kavri::settings
