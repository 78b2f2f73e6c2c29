#include "cli/Json.h"

#include <charconv>
#include <cmath>

namespace kavri::cli {

QString jsonQuote(const QString &s)
{
    QString r;
    r.reserve(s.size() + 2);
    r += QLatin1Char('"');
    for (QChar c : s) {
        switch (c.unicode()) {
        case '"': r += QLatin1String("\\\""); break;
        case '\\': r += QLatin1String("\\\\"); break;
        case '\n': r += QLatin1String("\\n"); break;
        case '\r': r += QLatin1String("\\r"); break;
        case '\t': r += QLatin1String("\\t"); break;
        default:
            if (c.unicode() < 0x20)
                r += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            else
                r += c;
        }
    }
    r += QLatin1Char('"');
    return r;
}

JsonValue::JsonValue(double v)
{
    if (std::isnan(v)) {
        m_text = QStringLiteral("\"nan\"");
    } else if (std::isinf(v)) {
        m_text = v > 0 ? QStringLiteral("\"inf\"") : QStringLiteral("\"-inf\"");
    } else {
        // Shortest text that reads back as the same double; a whole number keeps a ".0" so that readers
        // see a real number.
        char buf[64];
        const auto res = std::to_chars(buf, buf + sizeof buf, v);
        m_text = QString::fromLatin1(buf, res.ptr - buf);
        if (!m_text.contains(QLatin1Char('.')) && !m_text.contains(QLatin1Char('e'))) m_text += QLatin1String(".0");
    }
}

JsonValue::JsonValue(const QString &s) : m_text(jsonQuote(s)) {}

JsonValue JsonValue::raw(const QString &jsonText) { return JsonValue(Raw{}, jsonText); }

JsonValue JsonValue::array(std::initializer_list<JsonValue> items) { return array(QList<JsonValue>(items)); }

JsonValue JsonValue::array(const QList<JsonValue> &items)
{
    QStringList parts;
    for (const JsonValue &v : items) parts << v.text();
    return raw(QLatin1Char('[') + parts.join(QLatin1String(", ")) + QLatin1Char(']'));
}

JsonObject &JsonObject::add(const char *key, const JsonValue &value)
{
    m_members << jsonQuote(QString::fromUtf8(key)) + QLatin1String(": ") + value.text();
    return *this;
}

QString JsonObject::toString() const
{
    return QLatin1Char('{') + m_members.join(QLatin1String(", ")) + QLatin1Char('}');
}

} // namespace kavri::cli
