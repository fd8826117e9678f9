#include "printer-sim/EventLog.h"

#include <cstdio>

namespace talvo::sim {
namespace {

// Builds one line by hand: QJsonObject would sort the keys.
class Line
{
public:
    explicit Line(const char* event) { text(QStringLiteral("event"), QLatin1StringView(event)); }
    Line& text(const QString& key, const QString& value)
    {
        m_fields << EventLog::jsonString(key) + ':' + EventLog::jsonString(value);
        return *this;
    }
    Line& number(const QString& key, qint64 value)
    {
        m_fields << EventLog::jsonString(key) + ':' + QByteArray::number(value);
        return *this;
    }
    Line& list(const QString& key, const QStringList& values)
    {
        QByteArrayList items;
        for (const QString& value : values)
            items << EventLog::jsonString(value);
        m_fields << EventLog::jsonString(key) + ":[" + items.join(',') + ']';
        return *this;
    }
    ~Line()
    {
        const QByteArray line = '{' + m_fields.join(',') + "}\n";
        std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
        std::fflush(stdout);
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

private:
    QByteArrayList m_fields;
};

} // namespace

QByteArray EventLog::jsonString(const QString& text)
{
    QByteArray out = "\"";
    for (const char c : text.toUtf8()) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (byte < 0x20) {
            out += "\\u00";
            out += QByteArray::number(byte, 16).rightJustified(2, '0');
        } else {
            out += c;
        }
    }
    return out + '"';
}

void EventLog::ready(int printers, int agents)
{
    Line("ready").number(QStringLiteral("printers"), printers).number(QStringLiteral("agents"), agents);
}

void EventLog::request(const QString& from, const QString& to, unsigned interfaceIndex,
                       const QString& replyAddr, const QStringList& known)
{
    Line("request")
        .text(QStringLiteral("from"), from)
        .text(QStringLiteral("to"), to)
        .number(QStringLiteral("interface"), interfaceIndex)
        .text(QStringLiteral("replyAddr"), replyAddr)
        .list(QStringLiteral("known"), known);
}

void EventLog::reply(const QString& printer, const QString& kind)
{
    Line("reply").text(QStringLiteral("printer"), printer).text(QStringLiteral("kind"), kind);
}

void EventLog::dropped(const QString& from, const QString& to, qsizetype size, const QString& reason)
{
    Line("dropped")
        .text(QStringLiteral("from"), from)
        .text(QStringLiteral("to"), to)
        .number(QStringLiteral("size"), size)
        .text(QStringLiteral("reason"), reason);
}

} // namespace talvo::sim
