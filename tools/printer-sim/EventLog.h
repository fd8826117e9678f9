#pragma once

// What the simulator does, as one JSON object per line on standard output,
// each line flushed at once so a test or the demo can follow it live. Keys
// keep the order written here.
//
//     talvo::sim::EventLog::ready(3, 2);
//     // {"event":"ready","printers":3,"agents":2}
//     talvo::sim::EventLog::reply(QStringLiteral("10.77.0.20"), QStringLiteral("normal"));
//     // {"event":"reply","printer":"10.77.0.20","kind":"normal"}

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace talvo::sim {

class EventLog
{
public:
    static void ready(int printers, int agents);
    static void request(const QString& from, const QString& to, unsigned interfaceIndex,
                        const QString& replyAddr, const QStringList& known);
    static void reply(const QString& printer, const QString& kind);
    static void dropped(const QString& from, const QString& to, qsizetype size, const QString& reason);

    // A JSON string literal, quotes included.
    static QByteArray jsonString(const QString& text);
};

} // namespace talvo::sim
