#include "ui/PlaybackController.h"
#include "formats/RememberedFormats.h"
#include "loader/KavriLoader.h"
#include "support/TempFiles.h"

#include <gtest/gtest.h>

namespace {

// What the controller asked of the loader and of the partner, in order, as short words.
struct Recorder {
    QStringList log;
    explicit Recorder(PlaybackController &c)
    {
        QObject::connect(&c, &PlaybackController::play, [this] { log << "play"; });
        QObject::connect(&c, &PlaybackController::pause, [this] { log << "pause"; });
        QObject::connect(&c, &PlaybackController::stop, [this] { log << "stop"; });
        QObject::connect(&c, &PlaybackController::reload_file, [this] { log << "reload"; });
        QObject::connect(&c, &PlaybackController::seek, [this](uint64_t f, bool remote, bool dragged) {
            log << QStringLiteral("seek %1%2%3").arg(f).arg(remote ? " remote" : "").arg(dragged ? " dragged" : "");
        });
        QObject::connect(&c, &PlaybackController::to_partner, [this](kavri::link::Command cmd, uint32_t arg) {
            static const char *const names[] = {"Play", "Pause", "Stop", "Seek", "Reload", "Quit", "Ping"};
            log << QStringLiteral("partner %1 %2").arg(QLatin1String(names[int(cmd)])).arg(arg);
        });
        QObject::connect(&c, &PlaybackController::hint, [this](const QString &) { log << "hint"; });
    }
    QStringList take() { return std::exchange(log, {}); }
};

class Playback : public ::testing::Test {
protected:
    kavri::test::TempDir dir;
    KavriLoader *loader = nullptr;
    PlaybackController controller;
    Recorder rec{controller};

    // A ten-frame 64x48 4:2:0 file at 25 Hz; the loader is never started, so nothing is delivered.
    void SetUp() override
    {
        KavriLoader::Options o;
        o.useRemembered = false;
        o.rememberFormats = false;
        loader = new KavriLoader(dir.writeSized("p_64x48_25Hz.yuv", 4608 * 10), QString(), o);
        ASSERT_EQ(loader->frameCount(), 10u);
        controller.setLoader(loader);
    }
    void TearDown() override { delete loader; }
};

TEST(PlaybackWithoutFile, AsksNothing)
{
    PlaybackController c;
    Recorder rec(c);
    c.playPause();
    c.stopPlayback();
    c.seekTo(3);
    c.step(1);
    c.fastStep(1);
    c.seekPicked(4, true);
    c.reload();
    c.remotePlay();
    c.remoteSeek(2);
    EXPECT_EQ(rec.take(), QStringList());
    EXPECT_FALSE(c.isPlaying());
}

TEST_F(Playback, SeeksAreClampedToTheSequenceAndPassedOn)
{
    const struct {
        const char *name;
        uint64_t shown;
        std::function<void(PlaybackController &)> request;
        QStringList want;
    } cases[] = {
        {"before the start", 0, [](PlaybackController &c) { c.seekTo(-5); }, {"seek 0", "partner Seek 0"}},
        {"past the end", 0, [](PlaybackController &c) { c.seekTo(1000); }, {"seek 9", "partner Seek 9"}},
        {"next", 3, [](PlaybackController &c) { c.step(1); }, {"seek 4", "partner Seek 4"}},
        {"previous at the start", 0, [](PlaybackController &c) { c.step(-1); }, {"seek 0", "partner Seek 0"}},
        {"one second on", 2, [](PlaybackController &c) { c.fastStep(1); }, {"seek 9", "partner Seek 9"}},
        {"one second back", 9, [](PlaybackController &c) { c.fastStep(-1); }, {"seek 0", "partner Seek 0"}},
        // A picked frame goes as picked: the loader and the partner clamp it to their own lengths.
        {"slider",
         0,
         [](PlaybackController &c) { c.seekPicked(1000, true); },
         {"seek 1000 dragged", "partner Seek 1000"}},
        {"reload", 0, [](PlaybackController &c) { c.reload(); }, {"reload", "partner Reload 0"}},
        {"stop", 0, [](PlaybackController &c) { c.stopPlayback(); }, {"stop", "partner Stop 0"}},
    };
    for (const auto &c : cases) {
        controller.frameShown(c.shown);
        c.request(controller);
        EXPECT_EQ(rec.take(), c.want) << c.name;
        EXPECT_FALSE(controller.isPlaying()) << c.name;
    }
}

TEST_F(Playback, PlayPauseTogglesAndTellsThePartner)
{
    controller.playPause();
    EXPECT_TRUE(controller.isPlaying());
    controller.frameShown(6);
    controller.playPause();
    EXPECT_FALSE(controller.isPlaying());
    EXPECT_EQ(rec.take(), (QStringList{"play", "partner Play 0", "pause", "partner Pause 0"}));
    // A seek ends playback: the next play-pause plays again.
    controller.playPause();
    controller.seekTo(2);
    EXPECT_FALSE(controller.isPlaying());
    controller.playPause();
    EXPECT_TRUE(controller.isPlaying());
    rec.take();
    // With a rate of 0 there is nothing to play at: a hint instead, and nothing changes.
    controller.playPause();
    loader->pendingProps().frameRate = 0.0;
    controller.playPause();
    EXPECT_EQ(rec.take(), (QStringList{"pause", "partner Pause 0", "hint"}));
    EXPECT_FALSE(controller.isPlaying());
}

// Linked, a pause is followed by a seek to the frame on screen, so both players end on the same frame.
TEST_F(Playback, ALinkedPauseSendsTheFrameOnScreen)
{
    controller.setLinked(true);
    controller.playPause();
    controller.frameShown(4);
    controller.playPause();
    EXPECT_EQ(rec.take(), (QStringList{"play", "partner Play 0", "pause", "partner Pause 0", "partner Seek 4"}));
}

TEST_F(Playback, APartnersCommandsAreNeverSentBack)
{
    controller.setLinked(true);
    controller.remotePlay();
    EXPECT_TRUE(controller.isPlaying());
    controller.remotePause();
    controller.remoteSeek(7);
    controller.remoteStop();
    controller.remoteReload();
    EXPECT_EQ(rec.take(), (QStringList{"play", "pause", "seek 7 remote", "stop", "reload"}));
}

} // namespace
