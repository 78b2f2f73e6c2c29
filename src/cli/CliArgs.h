// Strict option parsing for kavri-cli: every option is declared, anything else is a usage error.
#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <stdexcept>
#include <vector>

namespace kavri::cli {

struct OptionSpec {
    const char *shortName; // "-w", or nullptr
    const char *longName;  // "--width"
    const char *valueName; // "N" for an option with a value, nullptr for a flag
    const char *help;
};

// A mistake in the command's words: reported on one line, exit status 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class ParsedArgs {
public:
    bool has(const char *longName) const { return m_values.contains(QLatin1String(longName)); }
    QString value(const char *longName) const { return m_values.value(QLatin1String(longName)); }
    const QStringList &positionals() const { return m_positionals; }

    // Typed readers; a value that does not convert or lies outside the range is a UsageError naming the option.
    int intValue(const char *longName, int def, int min, int max) const;
    long long int64Value(const char *longName, long long def, long long min, long long max) const;
    double doubleValue(const char *longName, double def, double min, double max) const;

    QMap<QString, QString> m_values; // by long name; a flag has an empty value
    QStringList m_positionals;
};

// "-" alone is a positional (standard input); "--" ends the options; "--name=value" is accepted.
ParsedArgs parseArgs(const QStringList &args, const std::vector<OptionSpec> &optionList);

QString optionHelp(const std::vector<OptionSpec> &optionList);

} // namespace kavri::cli
