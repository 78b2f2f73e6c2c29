// Start-up care for descriptor 0: a process started with standard input closed must neither read from
// "-" nor let the next file it opens (an X11 socket, a settings file) take descriptor 0 and be read as video.
#pragma once

#include <QStringList>

namespace kavri {

// Call first thing in main, before anything opens a file. When descriptor 0 is closed it is filled with
// /dev/null (so no later open() is handed 0) and true is returned: standard input has nothing to give.
bool guardStandardInput();

// The one-line refusal for a "-" that cannot be read, named after the program.
QString closedStandardInputMessage(const QString &program);

} // namespace kavri
