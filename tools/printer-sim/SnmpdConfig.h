#pragma once

// The snmpd.conf of an snmpd that plays a printer's SNMP agent, written from
// plain values. The simulator and the test fixtures both use it, so the
// directives that make a stock snmpd usable as a printer live in one place.
//
//     talvo::sim::SnmpdConfig config;
//     config.agentAddresses = {QStringLiteral("udp:10.77.0.20:161")};
//     config.persistentDir = dir + QStringLiteral("/persistent");
//     config.sysObjectId = QStringLiteral(".1.3.6.1.4.1.58101.1.4000");
//     config.overrides.push_back({oid, QStringLiteral("octet_str"), SnmpdConfig::quoted(name)});
//     file.write(config.text());
//     // snmpd -f -Lo -C -I -smux -c FILE, then config.commandLineAddresses()

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace talvo::sim {

struct SnmpdOverride
{
    QString oid;   // numeric, leading dot
    QString type;  // snmpd's word: integer, octet_str, object_id, counter, ...
    QString value; // written as it stands: quote texts with SnmpdConfig::quoted()
};

// An SNMPv3 user with authentication and privacy ("createUser" + "rouser").
struct SnmpdUser
{
    QString name;
    QString authProtocol; // SHA or MD5
    QString authPassphrase;
    QString privProtocol; // DES or AES
    QString privPassphrase;
};

struct SnmpdConfig
{
    // Where snmpd listens, such as "udp:10.77.0.20:161": "agentaddress"
    // lines, or its command line for a long list (see commandLineAddresses).
    QStringList agentAddresses;
    // Where snmpd keeps its state; without it snmpd would use the machine's.
    QString persistentDir;
    // The SNMPv1/v2c read community; empty: none.
    QString community{QStringLiteral("public")};
    std::vector<SnmpdUser> users{};
    QString sysDescr{};
    QString sysObjectId{};
    QString sysContact{};
    QString sysName{};
    QString sysLocation{};
    std::vector<SnmpdOverride> overrides{};
    // snmpd logs a line per request ("Connection from UDP: ..."); off for
    // benchmarks, where thousands of them would only fill the log.
    bool logRequests = true;

    // The file's text. Line breaks inside values become blanks: a value can
    // never start a directive of its own.
    QByteArray text() const;

    // snmpd joins its "agentaddress" lines into one text of at most 2,560
    // bytes, cuts the rest and then fails on the cut address. A list longer
    // than that is left out of the file and must follow snmpd's options on
    // its command line, which has no such limit; empty for a short list.
    QStringList commandLineAddresses() const;

    // A text in double quotes with '"' and '\' escaped, as snmpd reads an
    // octet_str value (a bare "0x..." would be read as hex).
    static QString quoted(const QString& text);
};

} // namespace talvo::sim
