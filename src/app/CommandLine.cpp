#include "app/CommandLine.h"

#include "formats/FormatNames.h"

#include <QProcess>

namespace kavri {

ParsedCommandLine parseCommandLine(const QStringList &args)
{
    ParsedCommandLine r;
    KavriStartupConfig &c = r.config;
    const qsizetype n = args.size();
    qsizetype next = 1;
    qsizetype i = 1;
    auto is = [&](const char *shortName, const char *longName) {
        return args[i] == QLatin1String(shortName) || args[i] == QLatin1String(longName);
    };
    while (i < n - 1) {
        // A value is taken only when it is not the last argument, which is always the file.
        const bool hasValue = i + 1 < n - 1;
        if (hasValue && is("-w", "--width")) {
            c.width = args[i + 1].toInt();
        } else if (hasValue && is("-h", "--height")) {
            c.height = args[i + 1].toInt();
        } else if (hasValue && is("-r", "--rate")) {
            c.rate = args[i + 1].toDouble();
        } else if (hasValue && is("-f", "--format")) {
            const videoFormat_t f = formatFromKeyword(args[i + 1]);
            if (f == FMT_UNKNOWN) {
                // The unknown keyword is looked at again as an argument in its own right.
                next = i + 1;
                i += 1;
                continue;
            }
            c.format = f;
        } else if (is("-p", "--play")) {
            c.play = true;
            next = i + 1;
            i += 1;
            continue;
        } else if (hasValue && is("-d", "--diff")) {
            c.diff = args[i + 1];
        } else if (hasValue && is("-l", "--link")) {
            c.link = args[i + 1];
        } else {
            i += 1;
            continue;
        }
        next = i + 2;
        i += 2;
    }
    if (next < n) {
        c.file = args[next];
        r.furtherFiles = args.mid(next + 1);
    }
    return r;
}

void startFurtherPlayers(const QString &program, const QStringList &files)
{
    for (const QString &f : files) QProcess::startDetached(program, {f});
}

QStringList openRequestArguments(const QString &file, const QString &diff, const QStringList &extra)
{
    if (!file.isEmpty() && !diff.isEmpty()) return QStringList{QStringLiteral("--diff"), diff} + extra + QStringList{file};
    if (!file.isEmpty()) return extra + QStringList{file};
    return {};
}

} // namespace kavri
