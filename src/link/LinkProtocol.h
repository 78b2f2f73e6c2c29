// The player link's wire format: 12-byte messages on two named queues per link, one per direction.
#pragma once

#include <QString>
#include <cstdint>
#include <optional>

namespace kavri::link {

// A command word of up to four significant letters, zero-padded to 8 bytes, and a 32-bit argument
// in host byte order (the frame index of "seek").
struct Message {
    char command[8];
    uint32_t argument;
};
static_assert(sizeof(Message) == 12, "the wire format is 12 bytes");

enum class Command { Play, Pause, Stop, Seek, Reload, Quit, Ping };

constexpr unsigned kQueueCapacity = 100;
constexpr unsigned kPriorityCommand = 0;
constexpr unsigned kPriorityQuit = 10;

Message makeMessage(Command c, uint32_t argument = 0);
// The command of a received message; none for a word this program does not know (such messages are ignored).
std::optional<Command> parseMessage(const Message &m);

// A fresh link name (a new UUID in braces): every link gets queues no earlier run can have left behind.
QString newLinkName();
// The queue for the other direction.
inline QString backChannel(const QString &linkName) { return linkName + QLatin1String("_back"); }

} // namespace kavri::link
