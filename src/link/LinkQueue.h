// One direction of a player link: a named interprocess queue of 100 messages of 12 bytes, readable and
// writable by the owning user only. Every operation is bounded in time, so a partner that died —
// even while holding the queue's lock — never hangs this process.
#pragma once

#include "link/LinkProtocol.h"

#include <memory>

namespace kavri::link {

class LinkQueue {
public:
    // Opens the queue, creating it when the partner has not yet: usable as soon as either side sets up.
    // An existing queue of another geometry is refused. Returns null with a reason on failure.
    static std::unique_ptr<LinkQueue> open(const QString &name, QString *error = nullptr);
    static void remove(const QString &name);
    ~LinkQueue();

    const QString &name() const { return m_name; }
    // Never waits for room: a full queue drops the message (false).
    bool trySend(const Message &m, unsigned priority);
    // Waits up to `timeoutMs` for a message. Messages of another size are dropped.
    enum class Result { Message, Timeout, Broken };
    Result receive(Message &out, int timeoutMs);

private:
    struct Impl;
    LinkQueue(QString name, std::unique_ptr<Impl> impl);
    QString m_name;
    std::unique_ptr<Impl> m_impl;
};

} // namespace kavri::link
