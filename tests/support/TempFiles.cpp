#include "support/TempFiles.h"

#include <QFile>
#include <stdexcept>

namespace kavri::test {

QString TempDir::write(const QString &name, const QByteArray &bytes) const
{
    const QString p = path(name);
    QFile f(p);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write test file " + p.toStdString());
    return p;
}

QString TempDir::writeSized(const QString &name, qint64 size) const
{
    QByteArray b(size, Qt::Uninitialized);
    for (qint64 i = 0; i < size; ++i) b[i] = char((i * 7 + 3) & 0xff);
    return write(name, b);
}

} // namespace kavri::test
