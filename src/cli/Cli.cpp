#include "cli/Cli.h"

#include "cli/Commands.h"
#include "kavri_config.h"

#include <new>

namespace kavri::cli {

int Context::fail(const QString &message)
{
    err << "kavri-cli: " << message << Qt::endl;
    return kExitFailure;
}

void Context::warn(const QString &message) { err << "kavri-cli: " << message << Qt::endl; }

const std::vector<Command> &commands()
{
    static const std::vector<Command> table = {
        infoCommand(),    rememberCommand(), forgetCommand(), benchCommand(),   playCommand(),    synthCommand(),
        renderCommand(),  pixelCommand(),    diffCommand(),   extractCommand(), reverseCommand(), normalizeCommand(),
        metricsCommand(), statsCommand(),    guessCommand(),  formatsCommand(), convertCommand(),
    };
    return table;
}

namespace {

const OptionSpec kHelpOption{nullptr, "--help", nullptr, "describe this command's options"};

QString usageLine(const Command &c)
{
    return QStringLiteral("usage: kavri-cli %1 [options] %2").arg(QLatin1String(c.name), QLatin1String(c.arguments));
}

void printMainHelp(QTextStream &out)
{
    out << "usage: kavri-cli COMMAND [options] FILE...\n"
           "       kavri-cli COMMAND --help | --help | --version\n\n"
           "Commands over raw video sequences, using the Kavri player's own engine:\n";
    for (const Command &c : commands())
        out << "  " << QString::fromLatin1(c.name).leftJustified(12) << c.summary << '\n';
    out << "\nExit status: 0 success, 1 runtime failure, 2 usage error. Output is JSON.\n";
    out.flush();
}

} // namespace

int runCli(const QStringList &args, QTextStream &out, QTextStream &err)
{
    if (args.isEmpty()) {
        printMainHelp(err);
        return kExitUsage;
    }
    const QString name = args.first();
    if (name == QLatin1String("--help") || name == QLatin1String("help")) {
        printMainHelp(out);
        return kExitOk;
    }
    if (name == QLatin1String("--version")) {
        out << "kavri-cli " << KAVRI_VERSION_STRING << Qt::endl;
        return kExitOk;
    }
    const Command *cmd = nullptr;
    for (const Command &c : commands())
        if (name == QLatin1String(c.name)) cmd = &c;
    if (!cmd) {
        err << "kavri-cli: unknown command '" << name << "' (see kavri-cli --help)" << Qt::endl;
        return kExitUsage;
    }
    std::vector<OptionSpec> optionList = cmd->options;
    optionList.push_back(kHelpOption);
    try {
        Context ctx{parseArgs(args.mid(1), optionList), out, err};
        if (ctx.args.has("--help")) {
            out << usageLine(*cmd) << "\n" << cmd->summary << "\n\nOptions:\n" << optionHelp(optionList);
            out.flush();
            return kExitOk;
        }
        const int rc = cmd->run(ctx);
        out.flush();
        return rc;
    } catch (const std::bad_alloc &) {
        // Frame-sized allocations say which frame was too large where they happen; this is the last
        // resort for any other, so that the answer is still a message and exit status 1, never an abort.
        out.flush();
        err << "kavri-cli: " << name << ": not enough memory" << Qt::endl;
        return kExitFailure;
    } catch (const UsageError &e) {
        err << "kavri-cli " << name << ": " << QString::fromStdString(e.what()) << " (see kavri-cli " << name
            << " --help)" << Qt::endl;
        return kExitUsage;
    }
}

} // namespace kavri::cli
