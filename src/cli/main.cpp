#include "cli/Cli.h"
#include "formats/Settings.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    kavri::settings::initSettingsStore();
    QTextStream out(stdout);
    QTextStream err(stderr);
    return kavri::cli::runCli(app.arguments().mid(1), out, err);
}
