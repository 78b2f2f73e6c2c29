// Opening a sequence through a real KavriLoader on its own thread, owned by a headless sink, the way the
// player opens it; shared by the commands that play.
#pragma once

#include "cli/Cli.h"
#include "loader/HeadlessFrameSink.h"
#include "loader/KavriLoader.h"

namespace kavri::cli {

class LoaderSession {
public:
    LoaderSession() = default;
    ~LoaderSession();
    LoaderSession(const LoaderSession &) = delete;
    LoaderSession &operator=(const LoaderSession &) = delete;

    // Creates the loader for FILE (and DIFF), applies the format options over what it found, replaces the
    // rate when `rate` > 0, validates and attaches the sink. False with a one-line message otherwise.
    bool open(const ParsedArgs &args, const QString &file, const QString &diff, double rate, QString &error);

    // Waits until `done` holds; false when no frame has arrived for `idleMs` (a stalled source) or the
    // loader could not show a frame.
    bool waitWhileProgressing(const std::function<bool()> &done, int idleMs);
    // Why waitWhileProgressing gave up, as a message.
    QString stallReason(int idleMs) const;

    KavriLoader *loader() const { return m_loader; }
    HeadlessFrameSink &sink() { return m_sink; }
    const VideoProps &props() const { return m_props; }

private:
    KavriLoader *m_loader = nullptr;
    HeadlessFrameSink m_sink;
    VideoProps m_props;
};

} // namespace kavri::cli
