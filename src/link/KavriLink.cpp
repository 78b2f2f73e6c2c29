#include "link/KavriLink.h"

#include <QElapsedTimer>
#include <QThread>

using namespace kavri::link;

KavriLinkSender::KavriLinkSender(const QString &name, LinkTiming timing, QObject *parent)
    : QObject(parent), m_name(name), m_queue(LinkQueue::open(name, &m_error))
{
    if (!m_queue) return;
    connect(&m_ping, &QTimer::timeout, this, [this] { send(Command::Ping); });
    m_ping.start(timing.pingMs);
}

KavriLinkSender::~KavriLinkSender()
{
    if (!m_queue) return;
    m_queue->trySend(makeMessage(Command::Quit), kPriorityQuit);
    m_queue.reset();
    LinkQueue::remove(m_name);
}

bool KavriLinkSender::send(Command c, uint32_t argument)
{
    return m_queue && m_queue->trySend(makeMessage(c, argument), c == Command::Quit ? kPriorityQuit : kPriorityCommand);
}

KavriReceive::KavriReceive(const QString &name, LinkTiming timing) : m_name(name), m_timing(timing) {}
KavriReceive::~KavriReceive() = default;

KavriReceive *KavriReceive::start(const QString &name, LinkTiming timing)
{
    auto *thread = new QThread;
    auto *r = new KavriReceive(name, timing);
    r->moveToThread(thread);
    QObject::connect(thread, &QThread::started, r, &KavriReceive::run);
    QObject::connect(r, &KavriReceive::finished, thread, &QThread::quit);
    QObject::connect(r, &KavriReceive::finished, r, &QObject::deleteLater);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
    return r;
}

void KavriReceive::run()
{
    QString error;
    std::unique_ptr<LinkQueue> queue = LinkQueue::open(m_name, &error);
    if (!queue) {
        // Not ours to remove: the queue may belong to another user or another program.
        emit link_failed(error);
        emit receiver_quit(m_name);
        emit finished();
        return;
    }
    QElapsedTimer silence;
    silence.start();
    bool partnerGone = false;
    while (!m_stop && !partnerGone) {
        Message m{};
        const LinkQueue::Result r = queue->receive(m, m_timing.receiveSliceMs);
        if (r == LinkQueue::Result::Broken) {
            partnerGone = true;
            break;
        }
        if (r == LinkQueue::Result::Timeout) {
            // A partner killed without a chance to say "quit" falls silent; so does its pinger.
            if (silence.elapsed() > m_timing.silenceMs) partnerGone = true;
            continue;
        }
        silence.restart();
        const std::optional<Command> c = parseMessage(m);
        if (!c) continue; // unknown words are ignored
        switch (*c) {
        case Command::Play: emit remote_play(); break;
        case Command::Pause: emit remote_pause(); break;
        case Command::Stop: emit remote_stop(); break;
        case Command::Seek: emit remote_seek(m.argument); break;
        case Command::Reload: emit remote_reload(); break;
        case Command::Ping: break;
        case Command::Quit: partnerGone = true; break;
        }
    }
    queue.reset();
    if (partnerGone) {
        // The partner removes its queue when it leaves properly; after a crash nobody else will.
        LinkQueue::remove(m_name);
        emit receiver_quit(m_name);
    }
    emit finished();
}
