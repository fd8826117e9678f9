#pragma once

// Which Bonjour services to resolve now, and when to try one again: the
// bookkeeping of the Bonjour method, without DNS-SD. Services are named by
// their instance name, type and domain, and carry what a resolve needs.
//
//     talvo::BonjourInstances instances;
//     using Begin = talvo::BonjourInstances::Begin;
//     if (instances.announced(u"Office._printer._tcp.local."_s, service, now) == Begin::Resolve)
//         startResolve(service);
//     ...
//     instances.evaluated(name);            // resolved and looked up: done for now
//     instances.failed(name, now);          // an error: tried again a little later
//     for (const QString& name : instances.expired(now)) dropLookup(name);
//     for (const auto& [name, service] : instances.due(now)) startResolve(service);
//
// A service announced once stays announced for as long as the browse runs:
// DNS-SD reports it again only after it went away. So one that could not be
// evaluated (a resolve or look-up that failed or expired, or no room for one)
// waits here and is resolved again on its own: at once when room frees, after
// a failure with a delay that doubles up to kMaxRetryDelay. Not thread-safe:
// one thread owns it.

#include <QByteArray>
#include <QString>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace talvo {

class BonjourInstances
{
public:
    using Clock = std::chrono::steady_clock;

    // A resolve or look-up the daemon has not answered by then is given up.
    static constexpr std::chrono::seconds kLookupDeadline{5};
    // Each pending resolve or look-up holds a daemon connection: a network
    // announcing thousands of services cannot make us hold thousands.
    static constexpr std::size_t kMaxPending = 32;
    // Services evaluated and remembered, so one seen on several interfaces is
    // evaluated once; the oldest are forgotten past this (they are then
    // evaluated again when announced again). Services waiting for another
    // try are bounded alike; past it, one waits for its next announcement.
    static constexpr std::size_t kMaxRemembered = 4096;
    // After a failure a service is tried again this much later, twice as
    // late after each further failure, never later than kMaxRetryDelay.
    static constexpr std::chrono::seconds kRetryDelay{10};
    static constexpr std::chrono::seconds kMaxRetryDelay{300};

    // A service as the browse reported it: what a resolve asks for.
    struct Service
    {
        QByteArray name;
        QByteArray type;
        QByteArray domain;
        uint32_t interfaceIndex = 0;

        bool operator==(const Service&) const = default;
    };

    enum class Begin {
        Resolve, // start resolving it now
        Known,   // being resolved, or evaluated already: nothing to do
        Busy,    // too many in progress: it waits for room
    };
    // A service that waits for another try is resolved at once when there is room.
    Begin announced(const QString& instance, const Service& service, Clock::time_point now);
    // The service went away: whatever was in progress for it is dropped, and
    // when it comes back (at a new address, say) it is evaluated afresh.
    void withdrawn(const QString& instance);
    // Resolved, looked up and evaluated.
    void evaluated(const QString& instance);
    // A resolve or look-up failed: it is tried again later.
    void failed(const QString& instance, Clock::time_point now);
    // The pending services whose deadline passed by `now`; they count as failed.
    std::vector<QString> expired(Clock::time_point now);
    // The waiting services to resolve again by `now`, as many as there is
    // room for, earliest first; they are pending from now on.
    std::vector<std::pair<QString, Service>> due(Clock::time_point now);

    // The next deadline or retry; a retry counts only while there is room.
    std::optional<Clock::time_point> nextDeadline() const;
    std::size_t pending() const { return m_pending.size(); }
    std::size_t waiting() const { return m_waiting.size(); }
    bool isPending(const QString& instance) const { return m_pending.contains(instance); }
    // Forgets everything (a new browse evaluates every service again).
    void clear();

private:
    struct Tracked
    {
        Service service;
        Clock::time_point when; // pending: its deadline; waiting: its next try
        unsigned failures = 0;
    };
    void wait(const QString& instance, Tracked tracked);

    std::map<QString, Tracked> m_pending;
    std::map<QString, Tracked> m_waiting;
    std::map<QString, uint64_t> m_evaluated; // instance -> order evaluated
    uint64_t m_evaluations = 0;
};

} // namespace talvo
