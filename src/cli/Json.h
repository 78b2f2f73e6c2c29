// A small JSON writer that keeps keys in the order they are added, so output reads like the documentation.
#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <initializer_list>

namespace kavri::cli {

class JsonValue {
public:
    JsonValue() : m_text(QStringLiteral("null")) {}
    JsonValue(bool b) : m_text(b ? QStringLiteral("true") : QStringLiteral("false")) {}
    JsonValue(int v) : m_text(QString::number(v)) {}
    JsonValue(int64_t v) : m_text(QString::number(qlonglong(v))) {}
    JsonValue(uint32_t v) : m_text(QString::number(v)) {}
    JsonValue(uint64_t v) : m_text(QString::number(qulonglong(v))) {}
    // Non-finite numbers have no JSON form; they are written as the strings "inf", "-inf", "nan".
    JsonValue(double v);
    JsonValue(const QString &s);
    JsonValue(const char *s) : JsonValue(QString::fromUtf8(s)) {}
    static JsonValue raw(const QString &jsonText);
    static JsonValue array(std::initializer_list<JsonValue> items);
    static JsonValue array(const QList<JsonValue> &items);

    const QString &text() const { return m_text; }

private:
    struct Raw {};
    JsonValue(Raw, QString t) : m_text(std::move(t)) {}
    QString m_text;
};

class JsonObject {
public:
    JsonObject &add(const char *key, const JsonValue &value);
    QString toString() const; // one line: {"a": 1, "b": "x"}
    operator JsonValue() const { return JsonValue::raw(toString()); }

private:
    QStringList m_members;
};

QString jsonQuote(const QString &s);

} // namespace kavri::cli
