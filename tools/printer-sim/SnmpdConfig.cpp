#include "printer-sim/SnmpdConfig.h"

#include <utility>

namespace talvo::sim {
namespace {

QString oneLine(QString text)
{
    for (QChar& c : text) {
        if (c == u'\n' || c == u'\r')
            c = u' ';
    }
    return text;
}

} // namespace

QString SnmpdConfig::quoted(const QString& text)
{
    QString result = QStringLiteral("\"");
    for (const QChar c : text) {
        if (c == u'"' || c == u'\\')
            result += u'\\';
        result += c;
    }
    return result + u'"';
}

QStringList SnmpdConfig::commandLineAddresses() const
{
    // Below snmpd's 2,560 bytes, with room for its own additions.
    constexpr qsizetype kMaxJoinedLength = 2000;
    return agentAddresses.join(u',').size() > kMaxJoinedLength ? agentAddresses : QStringList();
}

QByteArray SnmpdConfig::text() const
{
    QStringList lines;
    // No MIB files (numeric OIDs only, and no "Cannot find module" noise), and
    // state of its own rather than the machine's.
    lines << QStringLiteral("[snmp] mibs :")
          << QStringLiteral("[snmp] persistentDir ") + persistentDir
          // Bursts of thousands of requests must not be dropped.
          << QStringLiteral("[snmp] serverRecvBuf 4194304");
    if (commandLineAddresses().isEmpty()) {
        for (const QString& address : agentAddresses)
            lines << QStringLiteral("agentaddress ") + address;
    } else {
        lines << QStringLiteral("# %1 agent addresses: on the command line").arg(agentAddresses.size());
    }
    if (!community.isEmpty())
        lines << QStringLiteral("rocommunity ") + community + QStringLiteral(" default");
    for (const SnmpdUser& user : users) {
        lines << QStringLiteral("createUser %1 %2 %3 %4 %5")
                     .arg(user.name, user.authProtocol, quoted(user.authPassphrase), user.privProtocol,
                          quoted(user.privPassphrase))
              << QStringLiteral("rouser %1 priv").arg(user.name);
    }
    const std::pair<const char*, const QString&> system[] = {{"sysdescr", sysDescr},
                                                             {"sysobjectid", sysObjectId},
                                                             {"syscontact", sysContact},
                                                             {"sysname", sysName},
                                                             {"syslocation", sysLocation}};
    for (const auto& [word, value] : system) {
        if (!value.isEmpty())
            lines << QLatin1StringView(word) + u' ' + value;
    }
    for (const SnmpdOverride& o : overrides)
        lines << QStringLiteral("override %1 %2 %3").arg(o.oid, o.type, o.value);
    if (!logRequests)
        lines << QStringLiteral("dontLogTCPWrappersConnects yes");
    for (QString& line : lines)
        line = oneLine(line);
    return lines.join(u'\n').toUtf8() + '\n';
}

} // namespace talvo::sim
