#include "link/LinkQueue.h"

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/interprocess/ipc/message_queue.hpp>
#include <boost/interprocess/permissions.hpp>

namespace bip = boost::interprocess;

namespace kavri::link {

struct LinkQueue::Impl {
    std::unique_ptr<bip::message_queue> queue;
};

LinkQueue::LinkQueue(QString name, std::unique_ptr<Impl> impl) : m_name(std::move(name)), m_impl(std::move(impl)) {}
LinkQueue::~LinkQueue() = default;

std::unique_ptr<LinkQueue> LinkQueue::open(const QString &name, QString *error)
{
    try {
        bip::permissions ownerOnly;
        ownerOnly.set_permissions(0600);
        const std::string n = name.toStdString();
        auto impl = std::make_unique<Impl>();
        impl->queue = std::make_unique<bip::message_queue>(bip::open_or_create, n.c_str(), kQueueCapacity,
                                                           sizeof(Message), ownerOnly);
        if (impl->queue->get_max_msg() != kQueueCapacity || impl->queue->get_max_msg_size() != sizeof(Message)) {
            if (error) *error = QStringLiteral("queue '%1' exists with another geometry").arg(name);
            return nullptr;
        }
        return std::unique_ptr<LinkQueue>(new LinkQueue(name, std::move(impl)));
    } catch (const std::exception &e) {
        if (error) *error = QStringLiteral("cannot open queue '%1': %2").arg(name, QString::fromLocal8Bit(e.what()));
        return nullptr;
    }
}

void LinkQueue::remove(const QString &name) { bip::message_queue::remove(name.toStdString().c_str()); }

bool LinkQueue::trySend(const Message &m, unsigned priority)
{
    try {
        return m_impl->queue->try_send(&m, sizeof m, priority);
    } catch (const std::exception &) {
        return false;
    }
}

LinkQueue::Result LinkQueue::receive(Message &out, int timeoutMs)
{
    try {
        Message buffer[2]; // room for an oversized message, which is then dropped
        bip::message_queue::size_type got = 0;
        unsigned prio = 0;
        const auto deadline =
            boost::posix_time::microsec_clock::universal_time() + boost::posix_time::milliseconds(timeoutMs);
        if (!m_impl->queue->timed_receive(buffer, sizeof(Message), got, prio, deadline)) return Result::Timeout;
        if (got != sizeof(Message)) return Result::Timeout;
        out = buffer[0];
        return Result::Message;
    } catch (const std::exception &) {
        return Result::Broken;
    }
}

} // namespace kavri::link
