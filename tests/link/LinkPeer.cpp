// A small partner process for link tests: joins the link named on its command line as a player would
// (receiver on NAME, sender on NAME_back), prints every command it receives as one line, and sends the
// commands it reads from standard input ("play", "paus", "stop", "relo", "seek N", "quit").
#include "link/KavriLink.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTextStream>
#include <cstdio>
#include <unistd.h>

using namespace kavri::link;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) return 2;
    const QString name = QString::fromLatin1(argv[1]);
    LinkTiming t;
    t.pingMs = 100;
    t.silenceMs = 2000;
    auto *sender = new KavriLinkSender(backChannel(name), t);
    KavriReceive *r = KavriReceive::start(name, t);
    QTextStream out(stdout);
    auto say = [&out](const QString &s) { out << s << Qt::endl; };
    QObject::connect(r, &KavriReceive::remote_play, &app, [&] { say("play"); });
    QObject::connect(r, &KavriReceive::remote_pause, &app, [&] { say("paus"); });
    QObject::connect(r, &KavriReceive::remote_stop, &app, [&] { say("stop"); });
    QObject::connect(r, &KavriReceive::remote_reload, &app, [&] { say("relo"); });
    QObject::connect(r, &KavriReceive::remote_seek, &app, [&](uint f) { say(QString("seek %1").arg(f)); });
    QObject::connect(r, &KavriReceive::receiver_quit, &app, [&] {
        say("quit");
        delete sender;
        sender = nullptr;
        app.quit();
    });
    say("ready");
    QSocketNotifier in(STDIN_FILENO, QSocketNotifier::Read);
    QByteArray pending;
    auto perform = [&](const QString &cmd) {
        if (!sender) return;
        if (cmd == "play")
            sender->send(Command::Play);
        else if (cmd == "paus")
            sender->send(Command::Pause);
        else if (cmd == "stop")
            sender->send(Command::Stop);
        else if (cmd == "relo")
            sender->send(Command::Reload);
        else if (cmd.startsWith("seek "))
            sender->send(Command::Seek, cmd.mid(5).toUInt());
        else if (cmd == "quit") {
            delete sender;
            sender = nullptr;
            r->requestStop();
            app.quit();
        }
    };
    QObject::connect(&in, &QSocketNotifier::activated, &app, [&] {
        // Raw reads, so that several lines arriving together are all seen.
        char buf[256];
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof buf);
        if (n <= 0) {
            in.setEnabled(false);
            return;
        }
        pending.append(buf, n);
        qsizetype nl;
        while ((nl = pending.indexOf('\n')) >= 0) {
            perform(QString::fromLatin1(pending.left(nl)).trimmed());
            pending.remove(0, nl + 1);
        }
    });
    const int rc = app.exec();
    delete sender;
    return rc;
}
