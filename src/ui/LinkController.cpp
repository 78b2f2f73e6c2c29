#include "ui/LinkController.h"

LinkController::LinkController(QObject *parent) : QObject(parent) {}

LinkController::~LinkController() { end(); }

void LinkController::setLinked(bool on)
{
    if (m_shownLinked == on) return;
    m_shownLinked = on;
    emit linked_changed(on);
}

void LinkController::start(const QString &name, bool initiator)
{
    const QString out = initiator ? name : kavri::link::backChannel(name);
    const QString in = initiator ? kavri::link::backChannel(name) : name;
    auto sender = std::make_unique<KavriLinkSender>(out);
    if (!sender->isOpen()) {
        const QString why = sender->error();
        end();
        emit failed(why);
        return;
    }
    m_sender = std::move(sender);
    listenTo(in);
}

void LinkController::listenTo(const QString &queue)
{
    KavriReceive *r = KavriReceive::start(queue);
    m_receiver = r;
    connect(r, &KavriReceive::remote_play, this, &LinkController::remote_play);
    connect(r, &KavriReceive::remote_pause, this, &LinkController::remote_pause);
    connect(r, &KavriReceive::remote_stop, this, &LinkController::remote_stop);
    connect(r, &KavriReceive::remote_reload, this, &LinkController::remote_reload);
    connect(r, &KavriReceive::remote_seek, this, &LinkController::remote_seek);
    connect(r, &KavriReceive::receiver_quit, this, &LinkController::partnerQuit);
    connect(r, &KavriReceive::link_failed, this, [this](const QString &why) {
        end();
        emit failed(why);
    });
    setLinked(true);
}

void LinkController::end()
{
    m_sender.reset(); // tells the partner "quit" and removes our queue
    if (m_receiver) m_receiver->requestStop();
    m_receiver = nullptr;
    setLinked(false);
}

void LinkController::partnerQuit()
{
    m_receiver = nullptr;
    m_sender.reset();
    setLinked(false);
}

void LinkController::send(kavri::link::Command c, uint32_t argument)
{
    if (m_sender) m_sender->send(c, argument);
}

QByteArray LinkController::dragPayload()
{
    m_pendingLink = kavri::link::newLinkName();
    m_sender = std::make_unique<KavriLinkSender>(m_pendingLink);
    if (!m_sender->isOpen()) {
        const QString why = m_sender->error();
        m_sender.reset();
        end();
        emit failed(why);
    }
    return m_pendingLink.toLatin1();
}

void LinkController::dragSucceeded()
{
    if (m_sender) listenTo(kavri::link::backChannel(m_pendingLink));
}

void LinkController::dragFailed()
{
    m_sender.reset();
    setLinked(false);
}

bool LinkController::acceptsDrop(const QString &name) const
{
    // A window links to one partner at a time, and only to a name that looks like one of ours.
    return !isLinked() && name.startsWith(QLatin1Char('{')) && name.size() <= 64;
}
