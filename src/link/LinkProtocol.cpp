#include "link/LinkProtocol.h"

#include <QUuid>
#include <cstring>

namespace kavri::link {

namespace {
struct Word {
    Command command;
    const char *text;
};
// "ping" keeps an idle link alive so that a partner that was killed can be told from a quiet one.
constexpr Word kWords[] = {{Command::Play, "play"}, {Command::Pause, "paus"},  {Command::Stop, "stop"},
                           {Command::Seek, "seek"}, {Command::Reload, "relo"}, {Command::Quit, "quit"},
                           {Command::Ping, "ping"}};
} // namespace

Message makeMessage(Command c, uint32_t argument)
{
    Message m{};
    for (const Word &w : kWords)
        if (w.command == c) std::memcpy(m.command, w.text, 4);
    m.argument = argument;
    return m;
}

std::optional<Command> parseMessage(const Message &m)
{
    // The command field is compared as a zero-terminated string; an unterminated field matches nothing.
    if (std::memchr(m.command, 0, sizeof m.command) == nullptr) return std::nullopt;
    for (const Word &w : kWords)
        if (std::strcmp(m.command, w.text) == 0) return w.command;
    return std::nullopt;
}

QString newLinkName() { return QString::fromLatin1(QUuid::createUuid().toString().toLatin1()); }

} // namespace kavri::link
