#pragma once

// One simulated printer as the command line or a JSON file describes it: its
// discovery reply, its SNMP agent's settings, and how it misbehaves.
//
//     auto parsed = talvo::sim::SimulatedPrinter::fromOption(
//         QStringLiteral("model=Model 4000,address=10.77.0.20,reply=duplicate"));
//     if (!parsed.value) fail(parsed.error);
//     talvo::sim::SimulatedPrinter printer = *parsed.value;
//     printer.sysObjectId = ...;                  // defaults needing the settings
//     for (const QByteArray& datagram : printer.replyDatagrams()) send(datagram);
//     talvo::sim::SnmpdConfig agent = printer.agentConfig();

#include "printer-sim/SnmpdConfig.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <optional>
#include <vector>

namespace talvo::sim {

// A value, or the reason there is none.
template <typename T> struct Parsed
{
    std::optional<T> value;
    QString error;
};

enum class SnmpMode {
    Normal,     // a real snmpd
    NoSuchName, // a real snmpd lacking the Printer-MIB name
    Silent,     // a socket on port 161 that never answers
    None,       // nothing on port 161
};

enum class ReplyMode { Normal, Duplicate, BadMagic, BadLength, LongText, Length0x80, Short, Silent };

enum class CacheFirmware { V3_5, V3_0 };

struct SimulatedPrinter
{
    QString model;
    QString address;           // dotted IPv4, an address of the namespace
    uint32_t addressValue = 0; // the same, network order
    QString replyAddress;      // the address text the reply carries
    QString mac;
    QString sysName;
    bool sysNameGiven = false; // false: the default, which agents may share
    QString sysObjectId;       // empty until the model's default is filled in
    QString community{QStringLiteral("public")};
    SnmpMode snmp = SnmpMode::Normal;
    QString cache; // the known-network cache entry 1; empty: cache off
    CacheFirmware cacheFirmware = CacheFirmware::V3_5;
    ReplyMode reply = ReplyMode::Normal;

    // From "key=value,key=value,..." (a value runs to the next comma).
    static Parsed<SimulatedPrinter> fromOption(const QString& text);
    // From a JSON array of objects with the same keys, string values only.
    static Parsed<std::vector<SimulatedPrinter>> fromJson(const QByteArray& json);
    // The model's first "SysObjID" in the settings' "SupportedPrinters", or
    // the vendor's "unknown model" OID for a model not there.
    static QString defaultObjectId(const QVariantMap& settings, const QString& model);
    // The keys, for the help text.
    static QStringList keys();

    // The datagrams sent for one request (none, one, or two for "duplicate").
    std::vector<QByteArray> replyDatagrams() const;
    // The name of `reply` as the command line spells it.
    QString replyKind() const;

    bool hasAgent() const { return snmp == SnmpMode::Normal || snmp == SnmpMode::NoSuchName; }
    // The agent's settings but its addresses and folder.
    SnmpdConfig agentConfig() const;
    // Printers with equal keys can share one agent: every setting that reaches
    // its configuration, the sysName only when it was given.
    QString agentGroupKey() const;
};

} // namespace talvo::sim
