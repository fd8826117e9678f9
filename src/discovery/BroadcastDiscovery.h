#pragma once

// The rules of the broadcast discovery, without sockets or threads: which
// search targets there are and what each one's request says, which reply
// means a new printer, and how much a network can make us keep.
//
//     talvo::BroadcastDiscovery rules;
//     rules.setPrinterModels({u"Model 4000"_s});
//     rules.addTarget(talvo::BroadcastAddr(local, local | ~mask, mask));
//     for (const auto& request : rules.buildRequests())
//         send(request.to, request.datagram);              // every 10 s
//     auto decision = rules.onReply({bytes, source, destination}, now);
//     if (decision.verdict == talvo::BroadcastDiscovery::Verdict::Identify)
//         identify(decision.printer, decision.address);
//
// A reply is a new printer only once per address. The printers a reply can
// make us remember are bounded: once the table is full, the oldest printer
// whose agent never answered makes room (a flood of spoofed replies cannot
// lock real printers out for good); a printer whose agent answered is never
// forgotten. Not thread-safe: one thread owns it.

#include "discovery/BroadcastAddr.h"

#include "foundation/LogThrottle.h"

#include <QByteArray>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>
#include <vector>

namespace talvo {

class BroadcastDiscovery
{
public:
    using Clock = std::chrono::steady_clock;

    // Far more printers than any real network has; a flood of replies from
    // spoofed sources stops here.
    static constexpr std::size_t kMaxKnownPrinters = 10'000;
    // Local networks, the user's targets and networks learned from printers:
    // each costs a request every 10 s, so a printer cannot make us send to
    // thousands of them.
    static constexpr std::size_t kMaxSearchTargets = 256;

    struct Reply
    {
        QByteArray bytes;
        uint32_t source = 0;      // network order
        uint32_t destination = 0; // network order; not consulted
    };
    enum class Verdict {
        Dropped,   // malformed, from nowhere we asked, or the table is full
        Known,     // answered before: nothing to do
        Identify,  // a new printer of a supported model: identify and announce it
        LearnOnly, // a new printer of another model: only ask it for its networks
    };
    struct Decision
    {
        Verdict verdict = Verdict::Dropped;
        QVariantMap printer; // Identify and LearnOnly: model, address text, MAC, queue type, in_addr_t
        uint32_t address = 0;
    };

    void setPrinterModels(const QStringList& models) { m_printerModels = models; }

    Decision onReply(const Reply& reply, Clock::time_point now);
    // The printer's agent answered: it is real, and never makes room for others.
    void printerAnswered(uint32_t address);
    // Forgets a printer (its identity was never asked): its next reply is new.
    void forgetPrinter(uint32_t address) { forget(address); }
    std::size_t knownPrinterCount() const { return m_printers.size(); }
    bool printerInAnyBroadcast(uint32_t address) const { return m_printers.contains(address); }

    enum class AddResult { Added, Known, Full };
    AddResult addTarget(const BroadcastAddr& target, Clock::time_point now);
    struct Request
    {
        uint32_t to = 0; // network order
        QByteArray datagram;
    };
    // One request per target, in order; each lists the target's known printers.
    std::vector<Request> buildRequests();
    // A send to `to` failed with errno `error`: a target the network calls
    // unreachable is removed with its printers' entries in its request.
    void sendFailed(uint32_t to, int error);

    const std::vector<BroadcastAddr>& targets() const { return m_targets; }
    QStringList knownSearchSubnets() const;

    // The target a reply from `source` belongs to: the first local network
    // holding it, else the remote target sharing the most leading bits (the
    // earlier on a tie, none when no bit matches).
    std::optional<std::size_t> targetFor(uint32_t source) const;

private:
    struct Printer
    {
        uint32_t target = 0; // its target's broadcast address
        bool answered = false;
    };
    bool makeRoom();
    void forget(uint32_t address);

    QStringList m_printerModels;
    std::vector<BroadcastAddr> m_targets;
    std::unordered_map<uint32_t, Printer> m_printers;
    // Printers whose agents never answered, oldest first: the ones to forget
    // when the table is full. Entries of printers that answered or were
    // forgotten stay until they reach the front.
    std::deque<uint32_t> m_unanswered;
    LogThrottle m_malformedLog;
    LogThrottle m_strangerLog;
    LogThrottle m_fullLog;
    LogThrottle m_targetsFullLog;
};

} // namespace talvo
