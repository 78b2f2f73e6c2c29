// Frames painted per second by the real player window next to the frames its loader delivered, while a
// sequence plays at its rate. Run it under the platform to be judged (Xvfb, a desktop, or "offscreen"):
//
//   kavri_paint_rate FILE WIDTH HEIGHT [--bits N] [--rate R] [--seconds S] [--zoom 25|33|50|100|200]
//                    [--window WxH] [--fullscreen] [--diff FILE2 [--metrics]] [--scopes]
//
// With --diff the window shows the difference against FILE2; --metrics opens the metrics panel, whose
// pass over the whole pair then runs in the background while the rate is measured. --scopes opens the
// scopes panel (histogram, waveform, vectorscope, statistics) and also reports how many frames a second
// its pictures followed, and the frames it skipped.
// Prints one JSON line. The settings store goes to a temporary folder, so nothing of the user's changes.
#include "EventLoop.h"
#include "formats/Settings.h"
#include "formats/Validation.h"
#include "loader/KavriLoader.h"
#include "ui/ScopesDock.h"
#include "ui/frame.h"
#include "view/KavriDrawPanel.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTemporaryDir>
#include <QTimer>
#include <atomic>
#include <cstdio>

namespace {

using kavri::bench::runFor;
using kavri::bench::spinUntil;

class PaintCounter : public QObject {
public:
    std::atomic<uint64_t> paints{0};
    bool eventFilter(QObject *, QEvent *e) override
    {
        if (e->type() == QEvent::Paint) ++paints;
        return false;
    }
};

int usage()
{
    std::fprintf(stderr, "usage: kavri_paint_rate FILE WIDTH HEIGHT [--bits N] [--rate R] [--seconds S] "
                         "[--zoom 25|33|50|100|200] [--window WxH] [--fullscreen] [--diff FILE2 [--metrics]] "
                         "[--scopes] [--pq]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir settings;
    qputenv(kavri::settings::kConfigDirEnv, settings.path().toLocal8Bit());
    kavri::settings::initSettingsStore();
    QApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    if (args.size() < 3) return usage();
    KavriStartupConfig config;
    config.file = args[0];
    config.width = args[1].toInt();
    config.height = args[2].toInt();
    config.format = YUV_p420;
    config.rate = 60.0;
    int bits = 8, seconds = 5, zoom = 100;
    QSize window;
    bool fullscreen = false, metrics = false, scopes = false, pq = false;
    for (int i = 3; i < args.size(); ++i) {
        const QString &a = args[i];
        const QString v = i + 1 < args.size() ? args[i + 1] : QString();
        if (a == "--bits")
            bits = v.toInt(), ++i;
        else if (a == "--rate")
            config.rate = v.toDouble(), ++i;
        else if (a == "--seconds")
            seconds = v.toInt(), ++i;
        else if (a == "--zoom")
            zoom = v.toInt(), ++i;
        else if (a == "--window")
            window = QSize(v.section('x', 0, 0).toInt(), v.section('x', 1, 1).toInt()), ++i;
        else if (a == "--fullscreen")
            fullscreen = true;
        else if (a == "--diff")
            config.diff = v, ++i;
        else if (a == "--metrics")
            metrics = true;
        else if (a == "--scopes")
            scopes = true;
        else if (a == "--pq")
            pq = true;
        else
            return usage();
    }

    frame w(&config);
    w.show();
    if (!spinUntil([&] { return w.loader() && w.loader()->isInitialized(); }, 20000)) {
        std::fprintf(stderr, "the file did not open\n");
        return 1;
    }
    KavriLoader *loader = w.loader();
    if (bits != 8) {
        loader->pendingProps().bitDepth = bits;
        loader->pendingProps().containerBits = bits > 8 ? 16 : 8;
        if (!kavri::isPlayable(loader->validate())) {
            std::fprintf(stderr, "not playable at %d bits\n", bits);
            return 1;
        }
    }
    if (pq) {
        // The usual reading of HDR10 material: BT.2020 limited range through PQ, tone-mapped for a 1000-nit
        // peak.
        kavri::ColourDescription c;
        c.matrix = kavri::ColourMatrix::BT2020;
        c.range = kavri::ColourRange::Limited;
        c.transfer = kavri::ColourTransfer::PQ;
        c.peakNits = 1000;
        loader->setColour(c);
    }
    if (QAction *z = w.action(QStringLiteral("action%1").arg(zoom).toLatin1().constData())) z->trigger();
    if (window.isValid()) w.resize(window);
    if (fullscreen) w.action("actionFullscreen")->trigger();
    if (metrics) w.action("actionMetrics")->trigger();
    if (scopes) w.action("actionScopes")->trigger();
    loader->setLoop(true);
    runFor(500); // let the window settle at its size

    PaintCounter counter;
    w.drawPanel()->installEventFilter(&counter);
    std::atomic<uint64_t> delivered{0};
    uint64_t scopesShown = 0;
    auto *dock = w.findChild<kavri::ui::ScopesDock *>();
    if (dock) QObject::connect(dock, &kavri::ui::ScopesDock::shown, &counter, [&] { ++scopesShown; });
    QObject::connect(
        loader, &KavriLoader::new_frame, &counter, [&](frame_t *) { ++delivered; }, Qt::DirectConnection);
    // The counting starts with playback under way, so start-up does not count against the rate.
    w.oon_play_pause();
    runFor(500);
    const uint64_t paints0 = counter.paints.load(), frames0 = delivered.load(), scopes0 = scopesShown;
    const uint64_t skipped0 = dock ? dock->feed().skipped() : 0;
    QElapsedTimer t;
    t.start();
    runFor(seconds * 1000);
    const double s = t.nsecsElapsed() / 1e9;
    const uint64_t paints = counter.paints.load() - paints0, frames = delivered.load() - frames0;
    const uint64_t scopesFrames = scopesShown - scopes0, skipped = dock ? dock->feed().skipped() - skipped0 : 0;
    w.oon_play_pause();
    const QSize panel = w.drawPanel()->size();
    std::printf("{\"platform\": \"%s\", \"video\": \"%dx%d\", \"bits\": %d, \"rate\": %.3f, \"zoom\": %d, "
                "\"panel\": \"%dx%d\", \"metrics\": %s, \"seconds\": %.3f, \"delivered_fps\": %.2f, "
                "\"painted_fps\": %.2f, \"pq\": %s, \"scopes\": %s, \"scopes_fps\": %.2f, \"scopes_skipped\": %llu}\n",
                qPrintable(QGuiApplication::platformName()), config.width, config.height, bits, config.rate, zoom,
                panel.width(), panel.height(), metrics ? "true" : "false", s, frames / s, paints / s,
                pq ? "true" : "false", scopes ? "true" : "false", scopesFrames / s, (unsigned long long)skipped);
    return 0;
}
