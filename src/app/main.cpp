#include "app/CommandLine.h"
#include "app/OS_application.h"
#include "formats/Settings.h"

#include <QFileInfo>
#include <cstdio>

int main(int argc, char **argv)
{
    // "--help" and "--version" are answered before anything else starts: no window, no settings store.
    QStringList args;
    for (int i = 0; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
    const auto request = kavri::infoRequest(args, [](const QString &p) { return QFileInfo::exists(p); });
    if (request != kavri::InfoRequest::None) {
        const QString text = request == kavri::InfoRequest::Help ? kavri::playerUsage()
                                                                 : kavri::playerVersionLine() + QLatin1Char('\n');
        std::fputs(text.toLocal8Bit().constData(), stdout);
        return 0;
    }
    kavri::settings::initSettingsStore();
    int rc = 0;
    {
        OS_application app(argc, argv);
        rc = app.exec();
    }
    return rc;
}
