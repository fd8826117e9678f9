#include "discovery/BroadcastDiscovery.h"

#include "discovery/BroadcastPacket.h"
#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace talvo {

BroadcastDiscovery::Decision BroadcastDiscovery::onReply(const Reply& reply, Clock::time_point now)
{
    const auto parsed = broadcast::parseReply(reply.bytes);
    // A printer names its own address in its reply, and the URI and every
    // later query are built from it: a reply whose address is not the one it
    // came from, or not an address at all, would send them elsewhere.
    const auto claimed = parsed ? parseIPv4Address(parsed->address) : std::nullopt;
    if (!parsed || claimed != reply.source) {
        if (const std::size_t n = m_malformedLog.admit(now))
            qCInfo(lcDiscovery).noquote() << "dropped" << n << "malformed discovery replies, the last from"
                                          << stringForInetAddr(reply.source);
        return {};
    }
    if (m_printers.contains(reply.source))
        return {Verdict::Known, {}, reply.source};

    const auto target = targetFor(reply.source);
    if (!target) {
        if (const std::size_t n = m_strangerLog.admit(now)) {
            const QString text = QStringLiteral("can't figure out where packet came from: %1")
                                     .arg(stringForInetAddr(reply.source));
            qCWarning(lcDiscovery).noquote()
                << (n == 1 ? text : text + QStringLiteral(" (%1 such replies)").arg(n));
        }
        return {};
    }
    if (m_printers.size() >= kMaxKnownPrinters && !makeRoom()) {
        if (const std::size_t n = m_fullLog.admit(now))
            qCWarning(lcDiscovery).noquote() << "printer table full:" << n << "new printers dropped";
        return {};
    }
    BroadcastAddr& owner = m_targets[*target];
    owner.appendKnownPrinter(reply.source);
    m_printers.emplace(reply.source, Printer{owner.broadCastAddr(), false});
    m_unanswered.push_back(reply.source);
    // Printers forgotten and heard again leave stale entries behind: sweep
    // them out before they outnumber the table.
    if (m_unanswered.size() > 2 * kMaxKnownPrinters)
        std::erase_if(m_unanswered, [this](uint32_t a) {
            const auto found = m_printers.find(a);
            return found == m_printers.end() || found->second.answered;
        });

    QVariantMap printer = broadcast::printerFromReply(*parsed);
    printer.insert(kIPAddrStrKey, stringForInetAddr(reply.source));
    printer.insert(kIPAddressNumberKey, static_cast<qulonglong>(reply.source));
    const bool supported = m_printerModels.contains(parsed->model);
    return {supported ? Verdict::Identify : Verdict::LearnOnly, printer, reply.source};
}

void BroadcastDiscovery::printerAnswered(uint32_t address)
{
    if (const auto found = m_printers.find(address); found != m_printers.end())
        found->second.answered = true;
}

bool BroadcastDiscovery::makeRoom()
{
    while (!m_unanswered.empty()) {
        const uint32_t oldest = m_unanswered.front();
        m_unanswered.pop_front();
        const auto found = m_printers.find(oldest);
        if (found != m_printers.end() && !found->second.answered) {
            forget(oldest);
            return true;
        }
    }
    return false;
}

void BroadcastDiscovery::forget(uint32_t address)
{
    const auto found = m_printers.find(address);
    if (found == m_printers.end())
        return;
    for (BroadcastAddr& t : m_targets) {
        if (t.broadCastAddr() == found->second.target)
            t.removeKnownPrinter(address);
    }
    m_printers.erase(found);
}

BroadcastDiscovery::AddResult BroadcastDiscovery::addTarget(const BroadcastAddr& target,
                                                            Clock::time_point now)
{
    const bool known = std::any_of(m_targets.begin(), m_targets.end(), [&](const BroadcastAddr& t) {
        return t.broadCastAddr() == target.broadCastAddr();
    });
    if (known)
        return AddResult::Known;
    if (m_targets.size() >= kMaxSearchTargets) {
        if (const std::size_t n = m_targetsFullLog.admit(now))
            qCWarning(lcDiscovery).noquote()
                << "search targets full:" << n << "networks not searched, the last"
                << stringForInetAddr(target.broadCastAddr());
        return AddResult::Full;
    }
    m_targets.push_back(target);
    return AddResult::Added;
}

std::vector<BroadcastDiscovery::Request> BroadcastDiscovery::buildRequests()
{
    std::vector<Request> requests;
    requests.reserve(m_targets.size());
    for (BroadcastAddr& t : m_targets)
        requests.push_back({t.broadCastAddr(), t.getBroadcastPacket()});
    return requests;
}

void BroadcastDiscovery::sendFailed(uint32_t to, int error)
{
    if (error != EHOSTUNREACH && error != ENETDOWN && error != ENETUNREACH) {
        qCWarning(lcDiscovery, "broadcast error: %s", std::strerror(error));
        return;
    }
    qCWarning(lcDiscovery).noquote() << "removing unreachable broadcast address:" << stringForInetAddr(to);
    const auto gone = std::find_if(m_targets.begin(), m_targets.end(),
                                   [&](const BroadcastAddr& t) { return t.broadCastAddr() == to; });
    if (gone == m_targets.end())
        return;
    // Its printers stay known: they answered, and a target learned again
    // finds them known rather than announcing them twice.
    m_targets.erase(gone);
}

QStringList BroadcastDiscovery::knownSearchSubnets() const
{
    QStringList subnets;
    for (const BroadcastAddr& t : m_targets)
        subnets << stringForInetAddr(t.broadCastAddr());
    return subnets;
}

std::optional<std::size_t> BroadcastDiscovery::targetFor(uint32_t source) const
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

} // namespace talvo
