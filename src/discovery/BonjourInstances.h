#pragma once

// Which Bonjour services to resolve now, and when to give up on one and let
// its next announcement try again: the bookkeeping of the Bonjour method,
// without DNS-SD. Services are named by their instance name, type and domain.
//
//     talvo::BonjourInstances instances;
//     if (instances.announced(u"Office._printer._tcp.local."_s, now) == BonjourInstances::Begin::Resolve)
//         startResolve(...);
//     ...
//     instances.evaluated(name);            // resolved and looked up: done for now
//     instances.failed(name);               // an error: its next announcement tries again
//     for (const QString& name : instances.expired(now)) dropLookup(name);
//
// Not thread-safe: one thread owns it.

#include <QString>

#include <chrono>
#include <map>
#include <optional>
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
    // evaluated again when announced again).
    static constexpr std::size_t kMaxRemembered = 4096;

    enum class Begin {
        Resolve, // start resolving it now
        Known,   // being resolved, or evaluated already: nothing to do
        Busy,    // too many in progress: its next announcement tries again
    };
    Begin announced(const QString& instance, Clock::time_point now);
    // The service went away: when it comes back it is evaluated afresh.
    void withdrawn(const QString& instance);
    // Resolved, looked up and evaluated.
    void evaluated(const QString& instance);
    // A resolve or look-up failed: its next announcement tries again.
    void failed(const QString& instance);
    // The pending services whose deadline passed by `now`; they count as failed.
    std::vector<QString> expired(Clock::time_point now);

    std::optional<Clock::time_point> nextDeadline() const;
    std::size_t pending() const { return m_pending.size(); }
    bool isPending(const QString& instance) const { return m_pending.contains(instance); }
    // Forgets everything (a new browse evaluates every service again).
    void clear();

private:
    std::map<QString, Clock::time_point> m_pending; // instance -> deadline
    std::map<QString, uint64_t> m_evaluated;        // instance -> order evaluated
    uint64_t m_evaluations = 0;
};

} // namespace talvo
