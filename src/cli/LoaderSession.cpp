#include "cli/LoaderSession.h"

#include "cli/SequenceOptions.h"
#include "formats/StreamPath.h"
#include "formats/Validation.h"

#include <QFile>

namespace kavri::cli {

LoaderSession::~LoaderSession()
{
    if (m_loader) m_loader->detach();
}

bool LoaderSession::open(const ParsedArgs &args, const QString &file, const QString &diff, double rate, QString &error)
{
    // Check the options before touching any file, so that a usage error is reported as one.
    VideoProps scratch;
    applyFormatOptions(args, scratch);

    KavriLoader::Options options;
    options.useRemembered = !args.has("--no-remembered");
    options.rememberFormats = false; // measuring a file must not change what the player remembers of it
    QString refused;
    m_loader = KavriLoader::create(file, diff, options, &refused);
    if (!m_loader && !refused.isEmpty()) {
        error = QStringLiteral("'%1' cannot be read: %2").arg(file, refused);
        return false;
    }
    if (!m_loader) {
        // Name the file that failed the probe, with the system's reason.
        QFile main(file);
        const bool mainOk = isStreamPath(file) || main.open(QIODevice::ReadOnly);
        QFile other(mainOk ? diff : file);
        other.open(QIODevice::ReadOnly);
        error = QStringLiteral("cannot open '%1': %2").arg(other.fileName(), other.errorString());
        return false;
    }
    VideoProps &pending = m_loader->pendingProps();
    applyFormatOptions(args, pending);
    if (rate > 0) pending.frameRate = rate;
    const uint32_t mask = m_loader->validate();
    m_props = pending;
    if (!isPlayable(mask)) {
        error = QStringLiteral("'%1' is not playable: %2").arg(file, unplayableReason(pending, mask));
        return false;
    }
    m_loader->attach(&m_sink, &m_sink);
    return true;
}

bool LoaderSession::waitWhileProgressing(const std::function<bool()> &done, int idleMs)
{
    uint64_t seen = m_sink.framesDelivered();
    int idle = 0;
    constexpr int kSliceMs = 250;
    const auto doneOrFailed = [&] { return !m_sink.failure().isEmpty() || done(); };
    while (!m_sink.waitUntil(doneOrFailed, kSliceMs)) {
        const uint64_t now = m_sink.framesDelivered();
        idle = now == seen ? idle + kSliceMs : 0;
        seen = now;
        if (idle >= idleMs) return false;
    }
    return m_sink.failure().isEmpty();
}

QString LoaderSession::stallReason(int idleMs) const
{
    const QString failure = m_sink.failure();
    if (!failure.isEmpty()) return failure;
    return QStringLiteral("no frame arrived for %1 s").arg(idleMs / 1000);
}

} // namespace kavri::cli
