#include "link/KavriLink.h"
#include "support/QtWait.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <boost/interprocess/ipc/message_queue.hpp>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace kavri::link;

namespace {

constexpr int kWaitMs = 15000; // generous: these waits end as soon as the event happens

LinkTiming fast()
{
    LinkTiming t;
    t.pingMs = 100;
    t.silenceMs = 1500;
    t.receiveSliceMs = 50;
    return t;
}

TEST(LinkProtocol, MessagesRoundTrip)
{
    const struct {
        Command c;
        const char *word;
    } rows[] = {{Command::Play, "play"}, {Command::Pause, "paus"},  {Command::Stop, "stop"},
                {Command::Seek, "seek"}, {Command::Reload, "relo"}, {Command::Quit, "quit"}};
    for (const auto &r : rows) {
        const Message m = makeMessage(r.c, 77);
        EXPECT_STREQ(m.command, r.word);
        EXPECT_EQ(m.command[5], 0);
        EXPECT_EQ(m.argument, 77u);
        EXPECT_EQ(parseMessage(m), r.c);
    }
    Message odd{};
    std::memcpy(odd.command, "jump", 4);
    EXPECT_EQ(parseMessage(odd), std::nullopt);
    Message unterminated;
    std::memset(unterminated.command, 'p', 8);
    EXPECT_EQ(parseMessage(unterminated), std::nullopt);
    EXPECT_NE(newLinkName(), newLinkName());
    EXPECT_EQ(backChannel("{x}"), "{x}_back");
}

TEST(LinkQueue, OwnerOnlyAndGeometryChecked)
{
    const QString name = newLinkName();
    auto q = LinkQueue::open(name);
    ASSERT_TRUE(q);
    struct stat st {};
    ASSERT_EQ(::stat(("/dev/shm/" + name.toStdString()).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    q.reset();
    LinkQueue::remove(name);

    const QString other = newLinkName();
    {
        boost::interprocess::message_queue foreign(boost::interprocess::create_only, other.toStdString().c_str(), 5,
                                                   64);
    }
    QString error;
    EXPECT_FALSE(LinkQueue::open(other, &error));
    EXPECT_TRUE(error.contains("geometry")) << error.toStdString();
    LinkQueue::remove(other);
}

TEST(LinkQueue, FullQueueDropsInsteadOfBlocking)
{
    const QString name = newLinkName();
    auto q = LinkQueue::open(name);
    ASSERT_TRUE(q);
    for (unsigned i = 0; i < kQueueCapacity; ++i) ASSERT_TRUE(q->trySend(makeMessage(Command::Seek, i), 0));
    EXPECT_FALSE(q->trySend(makeMessage(Command::Seek, 999), 0));
    q.reset();
    LinkQueue::remove(name);
}

TEST(LinkInProcess, CommandsArriveInOrderAndBadMessagesAreIgnored)
{
    const QString name = newLinkName();
    auto sender = std::make_unique<KavriLinkSender>(name, fast());
    ASSERT_TRUE(sender->isOpen()) << sender->error().toStdString();
    KavriReceive *r = KavriReceive::start(name, fast());
    QSignalSpy play(r, &KavriReceive::remote_play), seek(r, &KavriReceive::remote_seek),
        quit(r, &KavriReceive::receiver_quit);
    // Untrusted input: an unknown word and a short message.
    {
        auto raw = LinkQueue::open(name);
        Message junk{};
        std::memcpy(junk.command, "jump", 4);
        raw->trySend(junk, 0);
        boost::interprocess::message_queue mq(boost::interprocess::open_only, name.toStdString().c_str());
        const char shortMsg[4] = {'p', 'l', 'a', 'y'};
        mq.try_send(shortMsg, sizeof shortMsg, 0);
    }
    sender->send(Command::Play);
    sender->send(Command::Seek, 4000000000u);
    KAVRI_TRY_COMPARE(seek.count(), 1, kWaitMs);
    EXPECT_EQ(play.count(), 1);
    EXPECT_EQ(seek.at(0).at(0).toUInt(), 4000000000u);
    sender.reset(); // says "quit" and removes the queue
    KAVRI_TRY_COMPARE(quit.count(), 1, kWaitMs);
    EXPECT_FALSE(QFileInfo::exists("/dev/shm/" + name));
}

TEST(LinkInProcess, SilentPartnerCountsAsGone)
{
    const QString name = newLinkName();
    KavriReceive *r = KavriReceive::start(name, fast());
    QSignalSpy quit(r, &KavriReceive::receiver_quit);
    KAVRI_TRY_COMPARE(quit.count(), 1, kWaitMs);
    EXPECT_FALSE(QFileInfo::exists("/dev/shm/" + name)) << "a stale queue is cleaned up";
}

class LinkPeerProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString bin = QStringLiteral(KAVRI_LINK_PEER);
        if (!QFileInfo::exists(bin)) GTEST_SKIP() << "peer not built at " << bin.toStdString();
        name = newLinkName();
        sender = std::make_unique<KavriLinkSender>(name, fast());
        peer.setProgram(bin);
        peer.setArguments({name});
        peer.start();
        ASSERT_TRUE(peer.waitForStarted(kWaitMs));
        ASSERT_TRUE(waitLine("ready"));
        receiver = KavriReceive::start(backChannel(name), fast());
    }
    void TearDown() override
    {
        if (receiver) receiver->requestStop();
        sender.reset();
        if (peer.state() != QProcess::NotRunning) {
            peer.kill();
            peer.waitForFinished(kWaitMs);
        }
        // A killed peer never removes its back channel; the test that made the names cleans them up.
        if (!name.isEmpty()) {
            LinkQueue::remove(backChannel(name));
            LinkQueue::remove(name);
#if defined(__linux__)
            EXPECT_FALSE(QFileInfo::exists(QStringLiteral("/dev/shm/") + backChannel(name)));
#endif
        }
    }
    bool waitLine(const QString &expected)
    {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < kWaitMs) {
            if (peer.canReadLine() || peer.waitForReadyRead(200)) {
                while (peer.canReadLine()) {
                    const QString line = QString::fromLatin1(peer.readLine()).trimmed();
                    if (line == expected) return true;
                    ADD_FAILURE() << "unexpected line " << line.toStdString() << ", wanted " << expected.toStdString();
                    return false;
                }
            }
        }
        return false;
    }
    QString name;
    std::unique_ptr<KavriLinkSender> sender;
    KavriReceive *receiver = nullptr;
    QProcess peer;
};

TEST_F(LinkPeerProcess, CommandsCrossBothWays)
{
    QSignalSpy play(receiver, &KavriReceive::remote_play), pause(receiver, &KavriReceive::remote_pause),
        stop(receiver, &KavriReceive::remote_stop), reload(receiver, &KavriReceive::remote_reload),
        seek(receiver, &KavriReceive::remote_seek);
    sender->send(Command::Play);
    EXPECT_TRUE(waitLine("play"));
    sender->send(Command::Pause);
    EXPECT_TRUE(waitLine("paus"));
    sender->send(Command::Seek, 70000);
    EXPECT_TRUE(waitLine("seek 70000"));
    sender->send(Command::Stop);
    EXPECT_TRUE(waitLine("stop"));
    sender->send(Command::Reload);
    EXPECT_TRUE(waitLine("relo"));

    peer.write("play\npaus\nseek 12\nstop\nrelo\n");
    KAVRI_TRY_COMPARE(reload.count(), 1, kWaitMs);
    EXPECT_EQ(play.count(), 1);
    EXPECT_EQ(pause.count(), 1);
    EXPECT_EQ(stop.count(), 1);
    ASSERT_EQ(seek.count(), 1);
    EXPECT_EQ(seek.at(0).at(0).toUInt(), 12u);
}

TEST_F(LinkPeerProcess, QuitEndsThePartner)
{
    QSignalSpy quit(receiver, &KavriReceive::receiver_quit);
    sender.reset();
    EXPECT_TRUE(waitLine("quit"));
    EXPECT_TRUE(peer.waitForFinished(kWaitMs));
    // The partner's sender said quit on its way out.
    KAVRI_TRY_COMPARE(quit.count(), 1, kWaitMs);
    receiver = nullptr;
}

TEST_F(LinkPeerProcess, KilledPartnerLeavesUsResponsiveAndUnlinked)
{
    QSignalSpy quit(receiver, &KavriReceive::receiver_quit);
    ::kill(pid_t(peer.processId()), SIGKILL);
    peer.waitForFinished(kWaitMs);
    // Sending to a partner that no longer reads never blocks.
    for (unsigned i = 0; i < 2 * kQueueCapacity; ++i) sender->send(Command::Seek, i);
    KAVRI_TRY_COMPARE(quit.count(), 1, kWaitMs);
    receiver = nullptr;
}

} // namespace
