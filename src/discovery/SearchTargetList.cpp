#include "discovery/SearchTargetList.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/NetworkAddress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace talvo {

bool SearchTargetList::add(const BroadcastAddr& target)
{
    std::lock_guard lock(m_mutex);
    if (broadcastKnown(target.broadCastAddr()))
        return false;
    m_targets.push_back(target);
    return true;
}

bool SearchTargetList::broadcastKnown(uint32_t broadCastAddr) const
{
    std::lock_guard lock(m_mutex);
    return std::any_of(m_targets.begin(), m_targets.end(),
                       [&](const BroadcastAddr& t) { return t.broadCastAddr() == broadCastAddr; });
}

QStringList SearchTargetList::knownSearchSubnets() const
{
    std::lock_guard lock(m_mutex);
    QStringList subnets;
    for (const BroadcastAddr& t : m_targets)
        subnets << stringForInetAddr(t.broadCastAddr());
    return subnets;
}

std::size_t SearchTargetList::size() const
{
    std::lock_guard lock(m_mutex);
    return m_targets.size();
}

std::optional<std::size_t> SearchTargetList::indexFor(uint32_t source) const
{
    std::optional<std::size_t> best;
    int bestScore = 0;
    for (std::size_t i = 0; i < m_targets.size(); ++i) {
        const BroadcastAddr& t = m_targets[i];
        if (t.hasNetmask()) {
            if (t.addressMatchesWithNetmask(source))
                return i;
        } else if (const int score = t.bitsMatchingBroadcastAddr(source); score > bestScore) {
            best = i;
            bestScore = score;
        }
    }
    return best;
}

std::optional<BroadcastAddr> SearchTargetList::findBroadCastAddrForDstAddr(uint32_t, uint32_t source) const
{
    std::lock_guard lock(m_mutex);
    if (const auto i = indexFor(source))
        return m_targets[*i];
    return std::nullopt;
}

SearchTargetList::Offer SearchTargetList::offerPrinter(const QVariantMap& printer, uint32_t source)
{
    std::lock_guard lock(m_mutex);
    const auto i = indexFor(source);
    if (!i)
        return Offer::NoTarget;
    return m_targets[*i].addPrinter(printer) ? Offer::Known : Offer::New;
}

bool SearchTargetList::printerInAnyBroadcast(uint32_t address) const
{
    std::lock_guard lock(m_mutex);
    return std::any_of(m_targets.begin(), m_targets.end(),
                       [&](const BroadcastAddr& t) { return t.findPrinter(address); });
}

void SearchTargetList::sendToAll(const std::function<int(const BroadcastAddr&, const QByteArray&)>& send)
{
    std::lock_guard lock(m_mutex);
    std::vector<uint32_t> unreachable;
    for (BroadcastAddr& t : m_targets) {
        const int error = send(t, t.getBroadcastPacket());
        if (error == EHOSTUNREACH || error == ENETDOWN || error == ENETUNREACH) {
            qCWarning(lcDiscovery).noquote()
                << "removing unreachable broadcast address:" << stringForInetAddr(t.broadCastAddr());
            unreachable.push_back(t.broadCastAddr());
        } else if (error != 0) {
            qCWarning(lcDiscovery, "broadcast error: %s", strerror(error));
        }
    }
    std::erase_if(m_targets, [&](const BroadcastAddr& t) {
        return std::find(unreachable.begin(), unreachable.end(), t.broadCastAddr()) != unreachable.end();
    });
}

} // namespace talvo
