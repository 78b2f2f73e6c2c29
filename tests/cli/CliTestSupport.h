// Runs kavri-cli in-process and captures what it prints.
#pragma once

#include "cli/Cli.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace kavri::test {

struct CliRun {
    int rc = -1;
    QString out, err;
    QJsonObject json() const { return QJsonDocument::fromJson(out.toUtf8()).object(); }
};

inline CliRun runCli(const QStringList &args)
{
    CliRun r;
    QTextStream out(&r.out), err(&r.err);
    r.rc = cli::runCli(args, out, err);
    out.flush();
    err.flush();
    return r;
}

} // namespace kavri::test
