// kavri-cli: commands over the player's own engine and loader code.
#pragma once

#include "cli/CliArgs.h"

#include <QTextStream>

namespace kavri::cli {

enum ExitCode { kExitOk = 0, kExitFailure = 1, kExitUsage = 2 };

struct Context {
    ParsedArgs args;
    QTextStream &out;
    QTextStream &err;
    // Reports a runtime failure on one line ("kavri-cli: MESSAGE") and gives the exit status 1.
    int fail(const QString &message);
    // Notes something the user should know on standard error without failing.
    void warn(const QString &message);
};

struct Command {
    const char *name;
    const char *arguments; // shown after the options in the usage line, e.g. "FILE"
    const char *summary;
    std::vector<OptionSpec> options;
    int (*run)(Context &);
};

// Runs one command line (without the program name); output goes to `out`, messages to `err`.
int runCli(const QStringList &args, QTextStream &out, QTextStream &err);

const std::vector<Command> &commands();

} // namespace kavri::cli
