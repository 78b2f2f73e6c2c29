// The two ends of a player link inside one process: the sender writes this window's commands to the
// partner's queue; KavriReceive reads the partner's commands on a thread of its own.
#pragma once

#include "link/LinkQueue.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <memory>

struct LinkTiming {
    int pingMs = 1000;        // an idle sender says it is alive this often
    int silenceMs = 5000;     // a receiver that hears nothing this long takes the partner for gone
    int receiveSliceMs = 200; // how long one wait for a message may take (bounds how fast a stop is seen)
};

// Writes commands to the queue `name`. Used only on the GUI thread; it never waits for the queue.
// Destroying it tells the partner "quit" and removes the queue.
class KavriLinkSender : public QObject {
    Q_OBJECT
public:
    explicit KavriLinkSender(const QString &name, LinkTiming timing = {}, QObject *parent = nullptr);
    ~KavriLinkSender() override;

    bool isOpen() const { return bool(m_queue); }
    const QString &name() const { return m_name; }
    const QString &error() const { return m_error; }
    // False when the message was dropped (queue full or broken).
    bool send(kavri::link::Command c, uint32_t argument = 0);

private:
    QString m_name;
    QString m_error;
    std::unique_ptr<kavri::link::LinkQueue> m_queue;
    QTimer m_ping;
};

class KavriReceive : public QObject {
    Q_OBJECT
public:
    explicit KavriReceive(const QString &name, LinkTiming timing = {});
    ~KavriReceive() override;

    // Moves a new receiver onto a thread of its own and starts it; the thread and the receiver delete
    // themselves when the receiver finishes.
    static KavriReceive *start(const QString &name, LinkTiming timing = {});
    // Asks the loop to end; it does within one receive slice.
    void requestStop() { m_stop = true; }
    const QString &name() const { return m_name; }

signals:
    void finished();
    void remote_seek(uint frame);
    void remote_play();
    void remote_pause();
    void remote_stop();
    void remote_reload();
    void receiver_quit(QString name);
    // The queue could not be opened (another owner's, another geometry, a name the system refuses).
    void link_failed(QString reason);

public slots:
    void run();

private:
    QString m_name;
    LinkTiming m_timing;
    std::atomic<bool> m_stop{false};
};
