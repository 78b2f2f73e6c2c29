// Frames delivered, composed and painted per second by the real player window showing several sequences
// in lock-step, while they play at their rate. Run it under the platform to be judged (Xvfb, a desktop,
// or "offscreen"):
//
//   kavri_compare_rate [--mode side|wipe|diff] [--rate R] [--seconds S] [--panel WxH] FILE FILE [FILE [FILE]]
//
// Every file's format comes from its name (size, layout and depth words), as when it is opened by hand.
// "composed_fps" counts pictures made from a new set of frames that every sequence holds; "painted_fps"
// the panel's paint events; "cpu_ms_per_composed" the process's CPU time (every thread) per composed
// picture, which a loaded machine disturbs less than the rates. Prints one JSON line. The settings store goes to a
// temporary folder.
#include "EventLoop.h"
#include "formats/Settings.h"
#include "loader/KavriLoader.h"
#include "ui/CompareWorkspace.h"
#include "ui/frame.h"
#include "view/KavriDrawPanel.h"

#include <QAction>
#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QTemporaryDir>
#include <atomic>
#include <cstdio>
#include <ctime>

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
    std::fprintf(stderr, "usage: kavri_compare_rate [--mode side|wipe|diff] [--rate R] [--seconds S] [--panel WxH] "
                         "FILE FILE [FILE [FILE]]\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir settings;
    qputenv(kavri::settings::kConfigDirEnv, settings.path().toLocal8Bit());
    kavri::settings::initSettingsStore();
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    QStringList files;
    QString mode = QStringLiteral("side");
    double rate = 60.0;
    int seconds = 5;
    QSize window(1536, 864);
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        const QString v = i + 1 < args.size() ? args[i + 1] : QString();
        if (a == "--mode")
            mode = v, ++i;
        else if (a == "--rate")
            rate = v.toDouble(), ++i;
        else if (a == "--seconds")
            seconds = v.toInt(), ++i;
        else if (a == "--panel")
            window = QSize(v.section('x', 0, 0).toInt(), v.section('x', 1, 1).toInt()), ++i;
        else if (a.startsWith("--"))
            return usage();
        else
            files << a;
    }
    if (files.size() < 2 || files.size() > 4 || (mode != "side" && mode != "wipe" && mode != "diff")) return usage();

    KavriStartupConfig config;
    config.file = files.front();
    config.rate = rate;
    config.compare = files.mid(1);
    frame w(&config);
    w.show();
    kavri::ui::CompareWorkspace *ws = w.compareWorkspace();
    if (!spinUntil([&] { return w.loader() && w.loader()->isInitialized() && ws->count() == files.size(); }, 30000)) {
        std::fprintf(stderr, "the files did not open together\n");
        return 1;
    }
    KavriLoader *loader = w.loader();
    w.action("actionMaintain_Aspect_Ratio")->setChecked(true);
    w.drawPanel()->setMaintainAspectRatio(true);
    // The panel gets the size asked for, whatever zoom step the record opened at.
    w.drawPanel()->on_force_size(window);
    if (mode == "wipe") w.action("actionCompare_Wipe")->trigger();
    if (mode == "diff") w.action("actionCompare_Difference")->trigger();
    // Four sequences share the shortest length; loop so the run never reaches the end.
    loader->setLoop(true);
    runFor(800);

    PaintCounter counter;
    w.drawPanel()->installEventFilter(&counter);
    std::atomic<uint64_t> delivered{0};
    QObject::connect(
        loader, &KavriLoader::new_frame, &counter, [&](frame_t *) { ++delivered; }, Qt::DirectConnection);
    w.oon_play_pause();
    runFor(800);
    const uint64_t paints0 = counter.paints.load(), frames0 = delivered.load(), composed0 = ws->composedCount();
    QElapsedTimer t;
    t.start();
    const std::clock_t cpu0 = std::clock();
    runFor(seconds * 1000);
    const double s = t.nsecsElapsed() / 1e9;
    const double cpu = double(std::clock() - cpu0) / CLOCKS_PER_SEC;
    const uint64_t paints = counter.paints.load() - paints0, frames = delivered.load() - frames0,
                   composed = ws->composedCount() - composed0;
    w.oon_play_pause();
    const QSize panel = w.drawPanel()->size();
    const VideoProps &p = loader->pendingProps();
    std::printf("{\"platform\": \"%s\", \"sequences\": %d, \"mode\": \"%s\", \"video\": \"%dx%d\", \"bits\": %d, "
                "\"rate\": %.3f, \"panel\": \"%dx%d\", \"seconds\": %.3f, \"delivered_fps\": %.2f, "
                "\"composed_fps\": %.2f, \"painted_fps\": %.2f, \"cpu_ms_per_composed\": %.2f}\n",
                qPrintable(QGuiApplication::platformName()), int(files.size()), qPrintable(mode), p.width, p.height,
                p.bitDepth, rate, panel.width(), panel.height(), s, frames / s, composed / s, paints / s,
                composed > 0 ? cpu * 1000.0 / double(composed) : 0.0);
    return 0;
}
