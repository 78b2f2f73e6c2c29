#include "formats/StreamPath.h"

#include <QFile>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#else
#include <QFileInfo>
#endif

namespace kavri {

bool isStreamPath(const QString &path)
{
    if (path == QLatin1String("-")) return true;
    if (path.isEmpty()) return false;
#ifdef Q_OS_UNIX
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) return false;
    return !S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode);
#else
    const QFileInfo fi(path);
    return fi.exists() && !fi.isFile() && !fi.isDir();
#endif
}

int openStreamNonBlocking(const QString &path)
{
#ifdef Q_OS_UNIX
    int fd;
    do {
        fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    return fd;
#else
    Q_UNUSED(path);
    return -1;
#endif
}

} // namespace kavri
