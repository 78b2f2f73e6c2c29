// Files made for a test in a directory of its own, removed with it.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

namespace kavri::test {

class TempDir {
public:
    QString path(const QString &name) const { return m_dir.filePath(name); }
    // Writes `bytes` under `name` and returns the full path.
    QString write(const QString &name, const QByteArray &bytes) const;
    // A file of `size` bytes whose byte i is (i * 7 + 3) & 0xff: enough to tell frames apart.
    QString writeSized(const QString &name, qint64 size) const;
    QString dir() const { return m_dir.path(); }

private:
    QTemporaryDir m_dir;
};

// The whole content of a file, empty when it cannot be read.
inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace kavri::test
