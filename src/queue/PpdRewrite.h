#pragma once

// The PPD rewrite that instantiates a model's PPD for one printer: the
// defaults of the options in the "InstallableOptions" group are set from the
// printer's SNMP answers, through the vendor lines of the PPD:
//
//     *?OIDMemory: ".1.3.6.1.4.1.58101.3.1.1.0"     which object reports the option
//     *OIDMemory 512MB: "524288"                    which answer means which choice
//
// Pure functions over the text; the SNMP answers come from a callback, so the
// rewrite is tested and fuzzed without processes.
//
//     if (talvo::ppd::needsInstantiation(text)) {
//         auto result = talvo::ppd::setInstallableDefaults(text, [&](const QString& oid) {
//             return talvo::doSNMPQueryOn(address, community, oid, version);
//         });
//         if (!result.ok()) fail(result.error); else write(result.text);
//     }
//
// The scanning rules are the ones the printer setup has always applied, odd
// corners included: the keyword runs to the next "/", the default keeps its
// line break, choices split at "/" or ":", the first choice in file order
// whose mapping line holds the answer wins, and only the group is replaced.
// What used to crash (a range error) is an error result instead; a repeated
// option block, which used to make the scan loop for ever, is read once; an
// OID that is too long or not numeric is not asked.

#include <QMap>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <functional>
#include <optional>

namespace talvo::ppd {

inline constexpr char kInstallableGroupOpen[] = "*OpenGroup: InstallableOptions";
inline constexpr char kInstallableGroupClose[] = "*CloseGroup: InstallableOptions";

// An OID longer than this is not queried (net-snmp itself takes at most 128
// sub-identifiers; real ones are a few dozen characters).
inline constexpr qsizetype kMaxOidLength = 256;

// Option keyword -> [its default as written, with the line break that
// follows it; then its choice keywords in file order]. An option after which
// no "*Default" text is left in the group has an empty list.
using OptionTable = QMap<QString, QStringList>;

struct OptionTableResult
{
    OptionTable options;
    QString error; // the group is malformed: no table
    bool ok() const { return error.isEmpty(); }
};

// The option table of the InstallableOptions group text (both markers
// included).
OptionTableResult buildOptionTable(QStringView group);

// True when the PPD has SNMP query lines at all ("*?OID" anywhere); a PPD
// without them is used as it is.
bool needsInstantiation(QStringView text);

// The printer's answer for an OID: nullopt when it gave none (no answer,
// time-out, unknown object); an empty answer is an answer.
using ValueForOid = std::function<std::optional<QString>(const QString& oid)>;

struct RewriteResult
{
    QString text;  // the whole PPD with the new defaults
    QString error; // why the PPD cannot be instantiated (a malformed group)
    bool ok() const { return error.isEmpty(); }
};

// Asks `valueForOid` once per option of the group that has a query line with
// a well-formed OID, and sets the option's default inside the group to the
// first of its choices (in file order, never the default itself) whose
// mapping line holds exactly the answer. Everything outside the group, and
// every option whose answer maps to nothing, stays as it was.
RewriteResult setInstallableDefaults(const QString& text, const ValueForOid& valueForOid);

} // namespace talvo::ppd
