#include "discovery/BonjourInstances.h"

#include <algorithm>

namespace talvo {
namespace {

// kRetryDelay doubled for each failure after the first, up to kMaxRetryDelay.
BonjourInstances::Clock::duration retryDelay(unsigned failures)
{
    std::chrono::seconds delay = BonjourInstances::kRetryDelay;
    for (unsigned i = 1; i < failures && delay < BonjourInstances::kMaxRetryDelay; ++i)
        delay *= 2;
    return std::min(delay, BonjourInstances::kMaxRetryDelay);
}

} // namespace

BonjourInstances::Begin BonjourInstances::announced(const QString& instance, const Service& service,
                                                    Clock::time_point now)
{
    if (m_pending.contains(instance) || m_evaluated.contains(instance))
        return Begin::Known;
    // Announced again while waiting: something changed, so it is tried at
    // once, keeping its count of failures.
    Tracked tracked{service, now, 0};
    if (const auto waiting = m_waiting.find(instance); waiting != m_waiting.end()) {
        tracked.failures = waiting->second.failures;
        m_waiting.erase(waiting);
    }
    if (m_pending.size() >= kMaxPending) {
        wait(instance, std::move(tracked));
        return Begin::Busy;
    }
    tracked.when = now + kLookupDeadline;
    m_pending.emplace(instance, std::move(tracked));
    return Begin::Resolve;
}

void BonjourInstances::wait(const QString& instance, Tracked tracked)
{
    if (m_waiting.size() >= kMaxRemembered)
        return; // its next announcement tries again
    m_waiting.insert_or_assign(instance, std::move(tracked));
}

void BonjourInstances::withdrawn(const QString& instance)
{
    m_pending.erase(instance);
    m_waiting.erase(instance);
    m_evaluated.erase(instance);
}

void BonjourInstances::evaluated(const QString& instance)
{
    if (m_pending.erase(instance) == 0)
        return;
    if (m_evaluated.size() >= kMaxRemembered) {
        const auto oldest =
            std::min_element(m_evaluated.begin(), m_evaluated.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; });
        m_evaluated.erase(oldest);
    }
    m_evaluated.emplace(instance, ++m_evaluations);
}

void BonjourInstances::failed(const QString& instance, Clock::time_point now)
{
    const auto found = m_pending.find(instance);
    if (found == m_pending.end())
        return;
    Tracked tracked = std::move(found->second);
    m_pending.erase(found);
    ++tracked.failures;
    tracked.when = now + retryDelay(tracked.failures);
    wait(instance, std::move(tracked));
}

std::vector<QString> BonjourInstances::expired(Clock::time_point now)
{
    std::vector<QString> gone;
    for (const auto& [instance, tracked] : m_pending) {
        if (tracked.when <= now)
            gone.push_back(instance);
    }
    for (const QString& instance : gone)
        failed(instance, now);
    return gone;
}

std::vector<std::pair<QString, BonjourInstances::Service>> BonjourInstances::due(Clock::time_point now)
{
    std::vector<std::pair<Clock::time_point, QString>> ready;
    for (const auto& [instance, tracked] : m_waiting) {
        if (tracked.when <= now)
            ready.emplace_back(tracked.when, instance);
    }
    std::sort(ready.begin(), ready.end());
    std::vector<std::pair<QString, Service>> begun;
    for (const auto& [when, instance] : ready) {
        if (m_pending.size() >= kMaxPending)
            break;
        auto node = m_waiting.extract(instance);
        node.mapped().when = now + kLookupDeadline;
        begun.emplace_back(instance, node.mapped().service);
        m_pending.insert(std::move(node));
    }
    return begun;
}

std::optional<BonjourInstances::Clock::time_point> BonjourInstances::nextDeadline() const
{
    std::optional<Clock::time_point> next;
    const auto consider = [&next](const std::map<QString, Tracked>& tracked) {
        for (const auto& [instance, t] : tracked) {
            if (!next || t.when < *next)
                next = t.when;
        }
    };
    consider(m_pending);
    // With no room, a retry that fell due would only wake the loop for
    // nothing: the next answer or deadline of a pending one makes room.
    if (m_pending.size() < kMaxPending)
        consider(m_waiting);
    return next;
}

void BonjourInstances::clear()
{
    m_pending.clear();
    m_waiting.clear();
    m_evaluated.clear();
}

} // namespace talvo
