#include "support/TempFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <atomic>
#include <stdexcept>

namespace kavri::test {

namespace {

// A number written in five letters that no word the name detector looks for is made of (no digit, so
// no "422" or "3x4" either; a process number written in digits once voted a test's file into 4:2:2).
QString lettersOf(qint64 n)
{
    static const char kDigits[] = "jkqwz";
    QString s;
    do {
        s.prepend(QLatin1Char(kDigits[n % 5]));
        n /= 5;
    } while (n > 0);
    return s;
}

} // namespace

TempDir::TempDir()
{
    static std::atomic<int> count{0};
    m_path = QDir(QDir::tempPath())
                 .filePath(QStringLiteral("kavri-test-%1-%2")
                               .arg(lettersOf(QCoreApplication::applicationPid()), lettersOf(count++)));
    // A folder left by an earlier process of the same number is not ours to keep.
    QDir(m_path).removeRecursively();
    if (!QDir().mkpath(m_path)) throw std::runtime_error("cannot make test folder " + m_path.toStdString());
}

TempDir::~TempDir() { QDir(m_path).removeRecursively(); }

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
