// talvo-printers probe ADDRESS: the manual address probe of the pane, its
// outcome printed once.

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "foundation/NetworkAddress.h"
#include "queue/PrinterProbe.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <future>

namespace talvo::cli {
namespace {

// Runs the probe on its own thread, as the pane does, and waits for it;
// nullopt when no thread could be started.
std::optional<ProbeOutcome> probeAndWait(const QString& address, const QVariantMap& settings)
{
    std::promise<ProbeOutcome> outcome;
    PrinterProbe probe(ProbeSettings::fromPluginSettings(settings));
    if (!probe.start(address, [&outcome](const ProbeOutcome& o) { outcome.set_value(o); }))
        return std::nullopt;
    return outcome.get_future().get();
}

} // namespace

int runProbe(const Context& context)
{
    const QString address = context.parser.positionalArguments().value(1).trimmed();
    if (address.isEmpty()) {
        err() << "talvo-printers: probe takes an IPv4 address or host name" << Qt::endl;
        return kBadArguments;
    }
    // Refused here, before any lookup or program runs. A well-formed name
    // that does not resolve is still a probe outcome (invalid-address).
    if (!isIPv4OrHostNameText(address)) {
        err() << "talvo-printers: probe: \"" << displayText(address)
              << "\" is neither an IPv4 address (four decimal octets) nor a host name" << Qt::endl;
        return kBadArguments;
    }
    if (!context.json)
        err() << "Probing " << address << " (SNMP, then TCP port 9100, then ping)" << Qt::endl;

    const auto probed = probeAndWait(address, context.settings);
    if (!probed) {
        err() << "talvo-printers: cannot start the probe's thread" << Qt::endl;
        return kFailed;
    }
    const ProbeOutcome& outcome = *probed;
    if (context.json) {
        QJsonObject object{{QStringLiteral("result"), probeResultName(outcome.result)}};
        if (!outcome.printer.isEmpty())
            object.insert(QStringLiteral("printer"), printerToJson(outcome.printer));
        out() << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
    } else if (outcome.printer.isEmpty()) {
        out() << probeResultName(outcome.result) << Qt::endl;
    } else {
        out() << probeResultName(outcome.result) << "  " << printerToText(outcome.printer) << Qt::endl;
    }
    return kOk;
}

} // namespace talvo::cli
