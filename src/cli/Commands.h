// The commands of kavri-cli, each defined in a file of its own.
#pragma once

#include "cli/Cli.h"

namespace kavri::cli {

Command infoCommand();
Command rememberCommand();
Command forgetCommand();
Command benchCommand();
Command playCommand();
Command synthCommand();
Command renderCommand();
Command pixelCommand();
Command diffCommand();
Command metricsCommand();
Command extractCommand();
Command reverseCommand();
Command normalizeCommand();
Command statsCommand();
Command guessCommand();
Command formatsCommand();
Command convertCommand();

} // namespace kavri::cli
