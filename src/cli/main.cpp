#include "cli/Cli.h"
#include "formats/Settings.h"
#include "loader/StandardInput.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    // Before anything opens a file: a closed descriptor 0 is filled with /dev/null, and "-" refused.
    if (kavri::guardStandardInput()) {
        for (int i = 1; i < argc; ++i) {
            if (std::strcmp(argv[i], "-") == 0) {
                std::fprintf(stderr, "%s\n",
                             qPrintable(kavri::closedStandardInputMessage(QStringLiteral("kavri-cli"))));
                return 1;
            }
        }
    }
    QCoreApplication app(argc, argv);
    kavri::settings::initSettingsStore();
    QTextStream out(stdout);
    QTextStream err(stderr);
    return kavri::cli::runCli(app.arguments().mid(1), out, err);
}
