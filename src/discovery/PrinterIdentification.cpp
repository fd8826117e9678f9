#include "discovery/PrinterIdentification.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"

#include <arpa/inet.h>

namespace talvo {

const OidMap& PrinterIdentification::printerQueryOids()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.2.1.1.1.0"), QString(kSNMPDescKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.2.0"), QString(kSNMPObjIDKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.4.0"), QString(kPrinterContactKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.6.0"), QString(kPrinterLocationKey)},
        {QStringLiteral(".1.3.6.1.2.1.43.5.1.1.16.1"), QString(kPrinterNameFromPrtMibKey)},
    };
    return oids;
}

const OidMap& PrinterIdentification::olderKnownNetworkOids()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.5.2.99"), QString(CacheEnabledKey)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.100"), QString(AddressCache1Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.101"), QString(AddressCache2Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.102"), QString(AddressCache3Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.103"), QString(AddressCache4Key)},
    };
    return oids;
}

const OidMap& PrinterIdentification::newerKnownNetworkOids()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.5.2.22510000"), QString(CacheEnabledKey)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22521000"), QString(AddressCache1Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22522000"), QString(AddressCache2Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22523000"), QString(AddressCache3Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22524000"), QString(AddressCache4Key)},
    };
    return oids;
}

void PrinterIdentification::identify(const IdentifyRequest& request, Output& out)
{
    ask(Stage::Identity, request.address, request, out);
}

void PrinterIdentification::learnFrom(uint32_t address, Output& out)
{
    if (m_learnNetworks)
        ask(Stage::OlderCache, address, {}, out);
}

void PrinterIdentification::ask(Stage stage, uint32_t address, IdentifyRequest request, Output& out)
{
    const uint64_t tag = m_nextTag++;
    const OidMap& oids = stage == Stage::Identity     ? printerQueryOids()
                         : stage == Stage::OlderCache ? olderKnownNetworkOids()
                                                      : newerKnownNetworkOids();
    m_pending.emplace(tag, Pending{stage, address, std::move(request)});
    out.queries.push_back({address, m_community, oids, tag});
}

void PrinterIdentification::completed(const snmp::Completion& completion, Clock::time_point now, Output& out)
{
    const auto found = m_pending.find(completion.tag);
    if (found == m_pending.end())
        return;
    Pending pending = std::move(found->second);
    m_pending.erase(found);
    const snmp::Answer& answer = completion.answer;
    const bool agentAnswered = answer.outcome == snmp::Outcome::Answered;

    switch (pending.stage) {
    case Stage::Identity:
        if (answer.outcome == snmp::Outcome::Cancelled) {
            // The engine stopped before the agent could answer: the printer
            // is asked again when it next replies.
            out.abandoned.push_back(pending.address);
            return;
        }
        report(std::move(pending.request), answer, out);
        if (agentAnswered) {
            out.answered.push_back(pending.address);
            learnFrom(pending.address, out);
        }
        return;
    case Stage::OlderCache:
    case Stage::NewerCache:
        break;
    }

    if (answer.good()) {
        const LearnedNetwork learned = learnedNetwork(answer.values);
        if (learned.lesson == Lesson::Learned) {
            out.learnedNetworks.push_back(learned.address);
        } else if (learned.lesson == Lesson::Unsearchable) {
            if (const std::size_t n = m_unsearchableLog.admit(now))
                qCInfo(lcDiscovery).noquote()
                    << "known network from" << stringForInetAddr(pending.address)
                    << "not searched:" << answer.values.value(AddressCache1Key).toString()
                    << QStringLiteral("(%1 such)").arg(n);
        }
    }
    // Older firmware answers its numbering; newer firmware answers the older
    // numbering with an error, and only then is asked the newer one.
    if (pending.stage == Stage::OlderCache && agentAnswered && m_learnNetworks)
        ask(Stage::NewerCache, pending.address, {}, out);
}

void PrinterIdentification::refused(uint64_t tag, Output& out)
{
    const auto found = m_pending.find(tag);
    if (found == m_pending.end())
        return;
    if (found->second.stage == Stage::Identity)
        out.abandoned.push_back(found->second.address);
    m_pending.erase(found);
}

void PrinterIdentification::report(IdentifyRequest request, const snmp::Answer& answer, Output& out)
{
    QVariantMap& printer = request.printer;
    // The SNMP values (and the answer's status entries) win over what
    // discovery or a walkup announcement claimed.
    if (answer.good()) {
        const QVariantMap result = answer.resultDictionary();
        for (auto it = result.cbegin(); it != result.cend(); ++it)
            printer.insert(it.key(), it.value());
    }
    uriDescAndQueueNameForSocketPrinter(printer);
    DiscoveryEvent event;
    event.kind = DiscoveryEvent::Kind::PrinterDiscovered;
    if (request.report == IdentifyRequest::Report::Beaconed) {
        printer.insert(kQueueConnectionTypeStrKey, QString(kQueueTypeRawTCP));
        event.kind = DiscoveryEvent::Kind::PrinterBeaconed;
    }
    event.printer = std::move(printer);
    out.events.push_back(std::move(event));
}

PrinterIdentification::LearnedNetwork PrinterIdentification::learnedNetwork(const QVariantMap& values)
{
    if (!values.contains(CacheEnabledKey) || !values.value(CacheEnabledKey).toBool())
        return {Lesson::CacheOff, 0};
    // Only the first cache entry is used; the printers' other entries are
    // fetched but never read.
    const auto address = parseIPv4Address(values.value(AddressCache1Key).toString());
    // An empty cache entry reads 0.0.0.0 on many printers: nothing to say.
    if (!address || *address == 0)
        return {Lesson::NoAddress, 0};
    if (!isSearchableNetworkAddress(*address))
        return {Lesson::Unsearchable, *address};
    return {Lesson::Learned, *address};
}

bool PrinterIdentification::isSearchableNetworkAddress(uint32_t address)
{
    const uint32_t host = ntohl(address);
    const uint32_t firstOctet = host >> 24;
    return firstOctet != 0 && firstOctet != 127 && firstOctet < 224;
}

} // namespace talvo
