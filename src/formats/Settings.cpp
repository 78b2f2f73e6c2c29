#include "formats/Settings.h"

#include "formats/RememberedFormats.h"

#include <QCoreApplication>

namespace kavri::settings {

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
}

} // namespace kavri::settings
