#pragma once

// The broadcast discovery's search targets, shared by the main thread (timer,
// additions from the user), the work thread (reply matching, networks learned
// from printers) and Bonjour handling. One recursive lock guards the list and
// every target in it.
//
//     talvo::SearchTargetList targets;
//     targets.add(talvo::BroadcastAddr(reply, bcast, mask));
//     targets.sendToAll([&](const BroadcastAddr& t, const QByteArray& request) { return send(...); });
//     switch (targets.offerPrinter(printer, source)) { ... }

#include "discovery/BroadcastAddr.h"

#include <QStringList>

#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace talvo {

class SearchTargetList
{
public:
    // Appends the target unless one with the same broadcast address exists;
    // true when it was added.
    bool add(const BroadcastAddr& target);
    bool broadcastKnown(uint32_t broadCastAddr) const;
    // The dotted broadcast addresses, in list order.
    QStringList knownSearchSubnets() const;
    std::size_t size() const;

    // The target a reply from `source` belongs to: the first local network
    // holding the address, else the remote target sharing the most leading
    // bits with it (the earlier on a tie, none when no bit matches). The
    // destination is not consulted.
    std::optional<BroadcastAddr> findBroadCastAddrForDstAddr(uint32_t destination, uint32_t source) const;

    enum class Offer { NoTarget, Known, New };
    // Offers a printer that answered from `source` to its target.
    Offer offerPrinter(const QVariantMap& printer, uint32_t source);

    bool printerInAnyBroadcast(uint32_t address) const;

    // Builds every target's request and hands it to `send`, which returns 0
    // or the errno of a failed send. Targets the network reports unreachable
    // are logged and removed, with their known printers.
    void sendToAll(const std::function<int(const BroadcastAddr&, const QByteArray&)>& send);

private:
    std::optional<std::size_t> indexFor(uint32_t source) const;

    mutable std::recursive_mutex m_mutex;
    std::vector<BroadcastAddr> m_targets;
};

} // namespace talvo
