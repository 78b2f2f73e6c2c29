// The link of one window to a partner player: the sender of our commands, the receiver of the partner's,
// and the handshake by which a drag of the link icon or a difference in a new window sets them up. No
// widgets: the window shows what it reports.
#pragma once

#include "link/KavriLink.h"
#include "link/LinkProtocol.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QString>
#include <memory>

class LinkController : public QObject {
    Q_OBJECT
public:
    explicit LinkController(QObject *parent = nullptr);
    ~LinkController() override;

    bool isLinked() const { return bool(m_sender); }
    // Joins the link `name`: the initiator writes to the link's queue and reads its back channel, the
    // joiner the other way round. A link that cannot be made reports failed().
    void start(const QString &name, bool initiator);
    // Tells the partner "quit" and stops listening.
    void end();
    void send(kavri::link::Command c, uint32_t argument = 0);

    // The drag of the link icon: the payload names a new link whose queue we write; the partner's drop
    // acknowledges it, after which we listen on its back channel.
    QByteArray dragPayload();
    void dragSucceeded();
    void dragFailed();
    // Whether a dropped payload may start a link here.
    bool acceptsDrop(const QString &name) const;

signals:
    void linked_changed(bool linked);
    void failed(const QString &reason);
    void remote_play();
    void remote_pause();
    void remote_stop();
    void remote_reload();
    void remote_seek(unsigned int frame);

private:
    void listenTo(const QString &queue);
    void partnerQuit();
    void setLinked(bool on);

    std::unique_ptr<KavriLinkSender> m_sender;
    QPointer<KavriReceive> m_receiver;
    QString m_pendingLink;
    bool m_shownLinked = false;
};
