#pragma once

// The manual address probe: what answers at an address the user typed. SNMP
// identification through snmpget first, then a TCP connect to port 9100, then
// ping; the findings classified into one outcome with the printer dictionary
// the pane keeps for queue creation.
//
//     talvo::PrinterProbe probe(talvo::ProbeSettings::fromPluginSettings(settings));
//     probe.start(u"10.0.0.5"_s, [receiver](const talvo::ProbeOutcome& outcome) {
//         // on the probe's thread: hand it over to your own
//         QMetaObject::invokeMethod(receiver, [=] { receiver->show(outcome); }, Qt::QueuedConnection);
//     });
//     probe.stop(); // a new keystroke: children killed, socket closed, no completion
//
//     // or blocking, on a thread of your own:
//     std::optional<talvo::ProbeOutcome> o = talvo::probeAddressText(u"printer-a"_s, settings, stopToken);

#include "foundation/Worker.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>

namespace talvo {

// What the probe found, in the words of the command line ("supported", ...).
enum class ProbeResult {
    Supported,      // SNMP named a supported model
    Unsupported,    // SNMP named a model that is not supported
    UnknownPrinter, // no SNMP, but TCP port 9100 accepts connections
    NotPrinter,     // SNMP without a model, or only ping answers
    NoHost,         // nothing answers
    InvalidAddress, // neither four decimal octets nor a host name that resolves both ways
};
QString probeResultName(ProbeResult result);

struct ProbeOutcome
{
    ProbeResult result = ProbeResult::InvalidAddress;
    // Supported and unsupported: the printer identified over SNMP. Unknown
    // printer, not a printer, no host: the bare manual printer at the address
    // (queue creation may still be asked for it with a model of the user's
    // choice). Invalid address: empty.
    QVariantMap printer;
};

struct ProbeSettings
{
    // The SNMPv1 read community ("DiscoverySettings"/"snmpGetCommunity").
    QString community;
    // sysObjectID as written in "SupportedPrinters"/"SysObjID" -> model name.
    QHash<QString, QString> modelsBySysObjectId;
    // The names of "SupportedPrinters".
    QStringList supportedModels;

    static ProbeSettings fromPluginSettings(const QVariantMap& settings);
};

// The sysObjectID table of the supported printers: each "SysObjID" (a string,
// or an array of strings) maps to its model; a later model with the same OID
// replaces an earlier one.
QHash<QString, QString> printerModelSNMPOidDict(const QVariantMap& supportedPrinters);

// The model the SNMP answers name: the sysObjectID (leading "." removed, as
// stored in "sysObjId") in the table, else the sysDescr up to its first ";",
// whatever that is as long as it is not empty; nullopt when neither gives one.
// The table is also tried with a leading "." on the OID, since settings write
// their OIDs that way.
std::optional<QString> modelFromSnmpAnswers(const QString& sysObjId, const std::optional<QString>& sysDescr,
                                            const QHash<QString, QString>& modelsBySysObjectId);

// The address typed, in network byte order: four decimal octets
// (parseIPv4Address) are the address, with no lookup; a well-formed host name
// (isHostNameText) must resolve forward and backward; any other text is
// nullopt without a lookup. Blocks while a name is looked up; a stop returns
// nullopt at once.
std::optional<uint32_t> resolveManualAddress(const QString& text, std::stop_token stop = {});

// A typed address resolved as the manual mode shows it: the address, and the
// name reverse DNS gives it (empty when it has none).
struct ResolvedAddress
{
    uint32_t address = 0; // network order
    QString name;
};
// Four decimal octets are the address itself (its name looked up, if any);
// a well-formed host name must resolve forward and backward. One forward and
// one reverse lookup in all. nullopt for any other text, a name that does not
// resolve both ways, or a stop (which returns at once).
std::optional<ResolvedAddress> resolveTypedAddress(const QString& text, std::stop_token stop = {});

// "in_addr_t", "ipAddr", "queueType" "Raw TCP" and, when the address has a
// name, "dnsName". Blocks for the reverse lookup; a stop abandons it.
QVariantMap manualPrinterDictWithAddress(uint32_t address, std::stop_token stop = {});

// ping -q -n -c 1 -w 4 ADDR: stops at the first reply, 4 s deadline.
QStringList pingArguments(uint32_t address);
// True when ping got a reply. A stop kills ping at once (false).
bool pingHost(uint32_t address, std::stop_token stop = {});

// True when a TCP connection to the address's port 9100 opens within the
// time (non-blocking connect). A stop closes the socket at once (false).
bool connectsOnPort9100(uint32_t address, std::chrono::milliseconds timeout, std::stop_token stop = {});

// The snmpget version code (snmpget::VersionCode) the host answers: v1, SHA
// and MD5 asked at once, v1 winning over SHA over MD5, as if asked in turn.
// kNone when none answers; kUnknown when stopped.
int findSnmpVersion(const QString& host, const QString& community, std::stop_token stop = {});

// The probe of one address, on the calling thread. nullopt when stopped.
std::optional<ProbeOutcome> testForPrinterAtAddress(uint32_t address, const ProbeSettings& settings,
                                                    std::stop_token stop = {});
// The same for a typed text; an unresolvable text is InvalidAddress.
std::optional<ProbeOutcome> probeAddressText(const QString& text, const ProbeSettings& settings,
                                             std::stop_token stop = {});

// At most one probe at a time, on a thread of its own. Starting a new probe
// stops the running one first. The completion runs on the probe's thread,
// once per probe that was not stopped; it must not call back into this object
// (post the outcome to your own thread first).
class PrinterProbe
{
public:
    using Completion = std::function<void(const ProbeOutcome&)>;

    explicit PrinterProbe(ProbeSettings settings);
    ~PrinterProbe();
    PrinterProbe(const PrinterProbe&) = delete;
    PrinterProbe& operator=(const PrinterProbe&) = delete;

    // False (and no completion will come) when no thread could be started.
    bool start(const QString& addressText, Completion completion);
    // Stops the running probe and waits for its thread (its children are
    // killed and its socket closed first, so this is quick).
    void stop();
    bool isRunning() const;

private:
    ProbeSettings m_settings;
    Worker<ProbeOutcome> m_worker;
};

} // namespace talvo
