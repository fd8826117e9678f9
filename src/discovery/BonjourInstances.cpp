#include "discovery/BonjourInstances.h"

#include <algorithm>

namespace talvo {

BonjourInstances::Begin BonjourInstances::announced(const QString& instance, Clock::time_point now)
{
    if (m_pending.contains(instance) || m_evaluated.contains(instance))
        return Begin::Known;
    if (m_pending.size() >= kMaxPending)
        return Begin::Busy;
    m_pending.emplace(instance, now + kLookupDeadline);
    return Begin::Resolve;
}

void BonjourInstances::withdrawn(const QString& instance)
{
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

void BonjourInstances::failed(const QString& instance)
{
    m_pending.erase(instance);
}

std::vector<QString> BonjourInstances::expired(Clock::time_point now)
{
    std::vector<QString> gone;
    for (auto it = m_pending.begin(); it != m_pending.end();) {
        if (it->second <= now) {
            gone.push_back(it->first);
            it = m_pending.erase(it);
        } else {
            ++it;
        }
    }
    return gone;
}

std::optional<BonjourInstances::Clock::time_point> BonjourInstances::nextDeadline() const
{
    if (m_pending.empty())
        return std::nullopt;
    return std::min_element(m_pending.cbegin(), m_pending.cend(),
                            [](const auto& a, const auto& b) { return a.second < b.second; })
        ->second;
}

void BonjourInstances::clear()
{
    m_pending.clear();
    m_evaluated.clear();
}

} // namespace talvo
