// Files made for a test in a directory of its own, removed with it.
#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

namespace kavri::test {

// The directory's name is "kavri-test-<process>-<count>" under the system's temporary folder, the numbers
// written in letters that form no word the name detector knows: it reads whole paths, and a random "x16b"
// or "3x4", or a process number holding "422", in a folder name would give a test's file a depth, a size
// or a layout it was not meant to have.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    QString path(const QString &name) const { return m_path + QLatin1Char('/') + name; }
    // Writes `bytes` under `name` and returns the full path.
    QString write(const QString &name, const QByteArray &bytes) const;
    // A file of `size` bytes whose byte i is (i * 7 + 3) & 0xff: enough to tell frames apart.
    QString writeSized(const QString &name, qint64 size) const;
    QString dir() const { return m_path; }

private:
    QString m_path;
};

// The whole content of a file, empty when it cannot be read.
inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace kavri::test
