#include "cli/CliArgs.h"

#include <cmath>

namespace kavri::cli {

namespace {
QString quoted(const QString &s) { return QLatin1Char('\'') + s + QLatin1Char('\''); }
} // namespace

ParsedArgs parseArgs(const QStringList &args, const std::vector<OptionSpec> &optionList)
{
    ParsedArgs r;
    bool optionsEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        QString a = args[i];
        if (optionsEnded || a == QLatin1String("-") || !a.startsWith(QLatin1Char('-')) || a.size() < 2) {
            r.m_positionals << a;
            continue;
        }
        if (a == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString inlineValue;
        bool hasInline = false;
        if (a.startsWith(QLatin1String("--"))) {
            const qsizetype eq = a.indexOf(QLatin1Char('='));
            if (eq > 0) {
                inlineValue = a.mid(eq + 1);
                a = a.left(eq);
                hasInline = true;
            }
        }
        const OptionSpec *entry = nullptr;
        for (const OptionSpec &s : optionList)
            if ((s.shortName && a == QLatin1String(s.shortName)) || a == QLatin1String(s.longName)) entry = &s;
        if (!entry) throw UsageError(("unknown option " + quoted(a)).toStdString());
        const QString key = QLatin1String(entry->longName);
        if (!entry->valueName) {
            if (hasInline) throw UsageError(("option " + quoted(a) + " takes no value").toStdString());
            r.m_values.insert(key, QString());
            continue;
        }
        if (hasInline) {
            r.m_values.insert(key, inlineValue);
        } else {
            if (i + 1 >= args.size())
                throw UsageError(("option " + quoted(a) + " needs a value (" + entry->valueName + ")").toStdString());
            r.m_values.insert(key, args[++i]);
        }
    }
    return r;
}

int ParsedArgs::intValue(const char *name, int def, int min, int max) const
{
    return int(int64Value(name, def, min, max));
}

long long ParsedArgs::int64Value(const char *name, long long def, long long min, long long max) const
{
    if (!has(name)) return def;
    bool ok = false;
    const long long v = value(name).toLongLong(&ok);
    if (!ok || v < min || v > max)
        throw UsageError(QStringLiteral("option '%1' needs a whole number from %2 to %3, not '%4'")
                             .arg(QLatin1String(name))
                             .arg(min)
                             .arg(max)
                             .arg(value(name))
                             .toStdString());
    return v;
}

double ParsedArgs::doubleValue(const char *name, double def, double min, double max) const
{
    if (!has(name)) return def;
    bool ok = false;
    const double v = value(name).toDouble(&ok);
    if (!ok || !std::isfinite(v) || v < min || v > max)
        throw UsageError(QStringLiteral("option '%1' needs a number from %2 to %3, not '%4'")
                             .arg(QLatin1String(name))
                             .arg(min)
                             .arg(max)
                             .arg(value(name))
                             .toStdString());
    return v;
}

QString optionHelp(const std::vector<OptionSpec> &optionList)
{
    QString r;
    for (const OptionSpec &s : optionList) {
        QString left = s.shortName ? QLatin1String(s.shortName) + QLatin1String(", ") : QLatin1String("    ");
        left += QLatin1String(s.longName);
        if (s.valueName) left += QLatin1Char(' ') + QLatin1String(s.valueName);
        r +=
            QLatin1String("  ") + left.leftJustified(28) + QLatin1Char(' ') + QLatin1String(s.help) + QLatin1Char('\n');
    }
    return r;
}

} // namespace kavri::cli
