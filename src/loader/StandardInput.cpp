#include "loader/StandardInput.h"

#if defined(Q_OS_UNIX) || defined(__unix__) || defined(__APPLE__)
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace kavri {

bool guardStandardInput()
{
#if defined(Q_OS_UNIX) || defined(__unix__) || defined(__APPLE__)
    if (::fcntl(0, F_GETFD) != -1 || errno != EBADF) return false;
    // open() returns the lowest free descriptor, which is 0 now.
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd > 0) ::close(fd); // someone else took 0 meanwhile; nothing more to do
    return true;
#else
    return false;
#endif
}

QString closedStandardInputMessage(const QString &program)
{
    return QStringLiteral("%1: standard input is closed, so \"-\" has nothing to read").arg(program);
}

} // namespace kavri
