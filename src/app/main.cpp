#include "app/CommandLine.h"
#include "app/OS_application.h"
#include "formats/Settings.h"
#include "loader/StandardInput.h"

#include <QFileInfo>
#include <cstdio>

int main(int argc, char **argv)
{
    // Before anything opens a file: a closed descriptor 0 is filled with /dev/null, so the display
    // connection can never become "standard input".
    const bool stdinClosed = kavri::guardStandardInput();
    // "--help" and "--version" are answered before anything else starts: no window, no settings store.
    QStringList args;
    for (int i = 0; i < argc; ++i) args << QString::fromLocal8Bit(argv[i]);
    const auto request = kavri::infoRequest(args, [](const QString &p) { return QFileInfo::exists(p); });
    if (request != kavri::InfoRequest::None) {
        const QString text =
            request == kavri::InfoRequest::Help ? kavri::playerUsage() : kavri::playerVersionLine() + QLatin1Char('\n');
        std::fputs(text.toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (stdinClosed) {
        const KavriStartupConfig c = kavri::parseCommandLine(args).config;
        if (c.file == QLatin1String("-") || c.diff == QLatin1String("-")) {
            std::fprintf(stderr, "%s\n", qPrintable(kavri::closedStandardInputMessage(QStringLiteral("kavri"))));
            return 1;
        }
    }
    kavri::settings::initSettingsStore();
    int rc = 0;
    {
        OS_application app(argc, argv);
        rc = app.exec();
    }
    return rc;
}
