#include "app/CommandLine.h"

#include "formats/FormatNames.h"
#include "kavri_config.h"
#include "ui/ActionTable.h"

#include <QProcess>
#include <QTextStream>

namespace kavri {

namespace {
// The colour options: taken with a value they know; any other value leaves the pair unmatched (and
// skipped, as the player's command line skips what it does not understand).
bool colourOption(const QString &option, const QString &value, ColourOverrides &o)
{
    if (option == QLatin1String("--matrix")) {
        if (const auto m = matrixFromKeyword(value)) return o.matrix = m, true;
    } else if (option == QLatin1String("--range")) {
        if (const auto r = rangeFromKeyword(value)) return o.range = r, true;
    } else if (option == QLatin1String("--chroma")) {
        if (const auto c = chromaFromKeyword(value)) return o.chroma = c, true;
    } else if (option == QLatin1String("--transfer")) {
        if (const auto t = transferFromKeyword(value)) return o.transfer = t, true;
    } else if (option == QLatin1String("--peak")) {
        bool ok = false;
        const int n = value.toInt(&ok);
        if (ok && n >= kMinPeakNits && n <= kMaxPeakNits) return o.peakNits = n, true;
    }
    return false;
}
} // namespace

ParsedCommandLine parseCommandLine(const QStringList &args)
{
    ParsedCommandLine r;
    KavriStartupConfig &c = r.config;
    const qsizetype n = args.size();
    qsizetype next = 1;
    qsizetype i = 1;
    auto is = [&](const char *shortName, const char *longName) {
        return args[i] == QLatin1String(shortName) || args[i] == QLatin1String(longName);
    };
    while (i < n - 1) {
        // A value is taken only when it is not the last argument, which is always the file.
        const bool hasValue = i + 1 < n - 1;
        if (hasValue && is("-w", "--width")) {
            c.width = args[i + 1].toInt();
        } else if (hasValue && is("-h", "--height")) {
            c.height = args[i + 1].toInt();
        } else if (hasValue && is("-r", "--rate")) {
            c.rate = args[i + 1].toDouble();
        } else if (hasValue && is("-f", "--format")) {
            const videoFormat_t f = formatFromKeyword(args[i + 1]);
            if (f == FMT_UNKNOWN) {
                // The unknown keyword is looked at again as an argument in its own right.
                next = i + 1;
                i += 1;
                continue;
            }
            c.format = f;
        } else if (is("-p", "--play")) {
            c.play = true;
            next = i + 1;
            i += 1;
            continue;
        } else if (hasValue && colourOption(args[i], args[i + 1], c.colour)) {
            // taken
        } else if (hasValue && is("-d", "--diff")) {
            c.diff = args[i + 1];
        } else if (hasValue && is("-c", "--compare")) {
            // Repeatable: each one more sequence shown with the file.
            c.compare << args[i + 1];
        } else if (hasValue && is("-l", "--link")) {
            c.link = args[i + 1];
        } else {
            i += 1;
            continue;
        }
        next = i + 2;
        i += 2;
    }
    if (next < n) {
        c.file = args[next];
        r.furtherFiles = args.mid(next + 1);
    }
    return r;
}

InfoRequest infoRequest(const QStringList &args, bool (*exists)(const QString &path))
{
    if (args.size() != 2) return InfoRequest::None;
    const QString &a = args[1];
    const InfoRequest r = a == QLatin1String("--help")      ? InfoRequest::Help
                          : a == QLatin1String("--version") ? InfoRequest::Version
                                                            : InfoRequest::None;
    // A file that happens to carry the option's name still opens: the last argument is always the file.
    if (r != InfoRequest::None && exists && exists(a)) return InfoRequest::None;
    return r;
}

QString playerVersionLine() { return QStringLiteral("kavri %1").arg(QLatin1String(KAVRI_VERSION_STRING)); }

QString playerUsage()
{
    QString text;
    QTextStream out(&text);
    out << "Usage: kavri [-w N] [-h N] [-r RATE] [-f KEYWORD] [-p] [-d DIFFFILE] [-c FILE]... [-l LINK] [colour "
           "options] FILE "
           "[FILE ...]\n"
           "       kavri --help | --version\n\n"
           "  -w, --width N      frame width in pixels\n"
           "  -h, --height N     frame height in pixels\n"
           "  -r, --rate RATE    frames per second\n"
           "  -f, --format KEY   sample layout (keywords below)\n"
           "  -p, --play         start playing at once\n"
           "  -d, --diff FILE    show the difference against a second file\n"
           "  -c, --compare FILE show FILE with the first in lock-step (up to three times)\n"
           "  -l, --link NAME    link with the player that offers NAME\n"
           "  --matrix M         colour matrix: default bt601 bt709 bt2020 smpte240m ycgco\n"
           "  --range R          full or limited code range\n"
           "  --chroma S         chroma siting: nearest left center topleft\n"
           "  --transfer T       sdr pq hlg (PQ and HLG are tone-mapped for an SDR display)\n"
           "  --peak NITS        peak of PQ/HLG material, 100..10000 (default 1000)\n"
           "FILE may be - for standard input; each further file opens in a player of its own.\n\n"
           "Layout keywords:";
    for (const LayoutInfo &l : kLayouts) out << ' ' << formatKeyword(l.value);
    out << "\n\nKeys:\n";
    for (const ui::ActionSpec &a : ui::kActions) {
        if (a.shortcut.empty()) continue;
        out << "  " << QString::fromLatin1(a.shortcut.data(), qsizetype(a.shortcut.size())).leftJustified(14)
            << QString::fromLatin1(a.text.data(), qsizetype(a.text.size())) << '\n';
    }
    out << "  Q W E S       move the magnifier by one pixel\n"
           "  Alt (held)    magnifier while held\n"
           "  Delete        clear the drawn marks\n"
           "\nMouse:\n"
           "  wheel         magnifier on and its factor\n"
           "  middle click  magnifier on/off\n"
           "  left drag     move the magnifier; outside it, drag the frame out as a picture\n"
           "  right drag    draw marks on the frame\n"
           "  Ctrl+wheel    free zoom about the mouse; left drag then pans\n"
           "  Shift+drop    compare the dropped file with the open one\n";
    return text;
}

void startFurtherPlayers(const QString &program, const QStringList &files)
{
    for (const QString &f : files) QProcess::startDetached(program, {f});
}

QStringList openRequestArguments(const QString &file, const QString &diff, const QStringList &extra)
{
    if (!file.isEmpty() && !diff.isEmpty())
        return QStringList{QStringLiteral("--diff"), diff} + extra + QStringList{file};
    if (!file.isEmpty()) return extra + QStringList{file};
    return {};
}

} // namespace kavri
