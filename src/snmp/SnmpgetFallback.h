#pragma once

// Reading one SNMP value with net-snmp's snmpget tool: SNMPv1 with the
// configured community first, then the two fixed SNMPv3 credentials, with the
// version that answered remembered by the caller for the next call.
//
//     int version = talvo::snmpget::kUnknown;   // kept per printer
//     auto name = talvo::doSNMPQueryOn(u"10.0.0.5"_s, u"public"_s, u".1.3.6.1.2.1.1.5.0"_s, version);
//     // version is now kVersion1, kVersion3SHA, kVersion3MD5 or kNone

#include "foundation/SystemCommand.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace talvo {
namespace snmpget {

enum VersionCode : int {
    kUnknown = 0,     // probe first
    kVersion1 = 1,    // SNMPv1 with the community
    kVersion3SHA = 2, // SNMPv3 authPriv, SHA and DES
    kVersion3MD5 = 3, // SNMPv3 authPriv, MD5 and DES
    kNone = 4,        // nothing answered: no command is run
};

// sysName.0: asked to find out which version a printer answers.
inline constexpr char kProbeOid[] = ".1.3.6.1.2.1.1.5.0";

// A community snmpget can be given: not empty, not only blanks.
bool isUsableCommunity(const QString& community);

// The whole argument vector for one value; empty for a code that runs nothing,
// a host that would be read as an option, or SNMPv1 without a usable
// community.
QStringList arguments(int version, const QString& community, const QString& host, const QString& oid);

// The value in snmpget's "-Onqv" output as the printer sent it: quoted strings
// unescaped (\" and \\), strings net-snmp printed as hex (it does for any
// byte that is not printable, UTF-8 included, over several lines when long)
// turned back into text, other values (numbers, OIDs) as printed. nullopt for
// no output and for the "No Such Object/Instance" and end-of-view answers.
// The lone control character U+0001 becomes the empty string.
std::optional<QString> parseValue(const QByteArray& output);

} // namespace snmpget

// Reads one value, probing the version first when `version` is kUnknown
// (v1, then SHA, then MD5 on sysName.0; kNone when none answers, which is
// final: later calls run nothing). nullopt when nothing was obtained; SNMPv1
// without a usable community runs nothing (logged).
// Blocks for up to 3 s per command run; a stop request ends it at once.
std::optional<QString> doSNMPQueryOn(const QString& host, const QString& community, const QString& oid,
                                     int& version, const ProcessOptions& options = {});

} // namespace talvo
