// The player's command line: parsed into a KavriStartupConfig, surplus files opened in further players.
#pragma once

#include "formats/VideoProps.h"

#include <QStringList>

namespace kavri {

struct ParsedCommandLine {
    KavriStartupConfig config;
    QStringList furtherFiles; // each opens in a player process of its own
};

// Parses the argument list as the toolkit gives it (element 0 is the program). The rules are lenient on
// purpose: the last argument is never an option (it is the file), an option whose value would be the
// last argument does not match, an unknown -f keyword is examined again as an argument of its own,
// options are case-sensitive, unparsable numbers read as 0, and whatever matches nothing is skipped.
ParsedCommandLine parseCommandLine(const QStringList &arguments);

// What the player is asked for when its only argument is "--help" or "--version" and no file of that name
// exists: a name that exists is always a file to open, so no sequence ever becomes unreachable.
enum class InfoRequest { None, Help, Version };
InfoRequest infoRequest(const QStringList &arguments, bool (*exists)(const QString &path));

// The usage text printed for "--help": the options, the -f keywords, and the keys and mouse bindings.
QString playerUsage();
// The version line printed for "--version".
QString playerVersionLine();

// Starts one detached player per file: the program's own path with that one argument.
void startFurtherPlayers(const QString &program, const QStringList &files);

// Arguments of a new player process for an open request: "--diff DIFF EXTRA... FILE", "EXTRA... FILE",
// or none for an empty player.
QStringList openRequestArguments(const QString &file, const QString &diff, const QStringList &extra);

} // namespace kavri
