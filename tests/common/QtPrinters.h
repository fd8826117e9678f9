#pragma once

// Readable failure messages for Qt values in GoogleTest assertions.

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <ostream>

inline void PrintTo(const QString& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}

inline void PrintTo(const QByteArray& b, std::ostream* os)
{
    *os << '"' << b.toStdString() << '"';
}

inline void PrintTo(const QStringList& l, std::ostream* os)
{
    *os << '[' << l.join(QStringLiteral(", ")).toStdString() << ']';
}

inline void PrintTo(const QVariant& v, std::ostream* os)
{
    const QJsonValue json = QJsonValue::fromVariant(v);
    if (json.isObject() || json.isArray())
        *os << QJsonDocument::fromVariant(v).toJson(QJsonDocument::Compact).toStdString();
    else
        *os << v.typeName() << '(' << v.toString().toStdString() << ')';
}

inline void PrintTo(const QVariantMap& m, std::ostream* os)
{
    PrintTo(QVariant(m), os);
}
