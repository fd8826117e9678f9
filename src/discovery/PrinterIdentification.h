#pragma once

// What the engine asks a printer's SNMP agent and what the answers mean,
// without sockets: a printer to identify or an address to learn from goes in,
// SNMP queries come out; each finished query goes in, and a completed printer
// dictionary, a learned network or the next query comes out.
//
//     talvo::PrinterIdentification rules;
//     rules.setCommunity(u"public"_s);
//     talvo::PrinterIdentification::Output out;
//     rules.identify({printer, address, IdentifyRequest::Report::Discovered}, out);
//     for (auto& q : out.queries) transport.submit(q, now);
//     ...
//     rules.completed(completion, out);   // out.events, out.learnedNetworks, out.queries
//
// A printer is asked for its identity first, then (when broadcast discovery
// is on) for the networks in its known-network cache, older firmware's
// numbering before newer: each query is sent only once the one before it was
// answered, so an address that never answers (a printer that is gone, or a
// spoofed one) costs one packet. A printer is reported once its identity
// query ended, whatever the outcome: with its SNMP values when the agent gave
// them, else with what discovery knew. Not thread-safe: one thread owns it.

#include "discovery/DiscoveryMethod.h"
#include "snmp/SnmpTransport.h"

#include "foundation/LogThrottle.h"

#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

namespace talvo {

class PrinterIdentification
{
public:
    using Clock = std::chrono::steady_clock;

    struct Output
    {
        std::vector<snmp::Query> queries;      // to send
        std::vector<DiscoveryEvent> events;    // printers to report
        std::vector<uint32_t> learnedNetworks; // network order: new search targets
        std::vector<uint32_t> answered;        // agents that answered: real printers
        std::vector<uint32_t> abandoned;       // identities never asked (stopped or refused)
    };

    // The read community of every later query.
    void setCommunity(const QString& community) { m_community = community; }
    // With broadcast discovery off, no printer is asked for its networks.
    void setLearnNetworks(bool on) { m_learnNetworks = on; }

    void identify(const IdentifyRequest& request, Output& out);
    void learnFrom(uint32_t address, Output& out);
    void completed(const snmp::Completion& completion, Clock::time_point now, Output& out);
    // The transport would not keep the query `tag`: it ends as if cancelled.
    void refused(uint64_t tag, Output& out);
    std::size_t pendingCount() const { return m_pending.size(); }

    // The identity and known-network queries' OIDs and result keys.
    static const OidMap& printerQueryOids();
    static const OidMap& olderKnownNetworkOids();
    static const OidMap& newerKnownNetworkOids();

    // What a good known-network answer teaches: the cache's first entry, when
    // the cache is on and the entry is an address worth searching.
    enum class Lesson { Learned, CacheOff, NoAddress, Unsearchable };
    struct LearnedNetwork
    {
        Lesson lesson = Lesson::NoAddress;
        uint32_t address = 0; // network order, when learned
    };
    static LearnedNetwork learnedNetwork(const QVariantMap& values);
    // A unicast or directed-broadcast IPv4 address: never 0.0.0.0/8,
    // loopback, multicast, the reserved 240/4 or the all-ones broadcast.
    static bool isSearchableNetworkAddress(uint32_t address);

private:
    enum class Stage { Identity, OlderCache, NewerCache };
    struct Pending
    {
        Stage stage = Stage::Identity;
        uint32_t address = 0;
        IdentifyRequest request; // Identity only
    };
    void ask(Stage stage, uint32_t address, IdentifyRequest request, Output& out);
    void report(IdentifyRequest request, const snmp::Answer& answer, Output& out);

    QString m_community;
    bool m_learnNetworks = false;
    uint64_t m_nextTag = 1;
    std::unordered_map<uint64_t, Pending> m_pending;
    LogThrottle m_unsearchableLog;
};

} // namespace talvo
