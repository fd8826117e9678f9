#pragma once

// One search target of the broadcast discovery: the address a request is sent
// to (a local network's broadcast address, or one remote address), the local
// address it is reached through, the network's mask, and the printers that
// have answered on it.
//
//     talvo::BroadcastAddr lan(replyAddr, broadcastAddr, netmask);
//     QByteArray request = lan.getBroadcastPacket();
//     bool known = lan.addPrinter(printer);      // by its "in_addr_t"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <chrono>
#include <cstdint>
#include <vector>

namespace talvo {

class BroadcastAddr
{
public:
    using Clock = std::chrono::steady_clock;
    // A netmask of all ones: a single remote address, not a network.
    static constexpr uint32_t kNoNetmask = 0xffffffffu;

    BroadcastAddr(uint32_t replyAddr, uint32_t broadCastAddr, uint32_t netMask);

    uint32_t broadCastAddr() const { return m_broadCastAddr; }
    uint32_t replyAddr() const { return m_replyAddr; }
    bool hasNetmask() const { return m_netMask != kNoNetmask; }
    bool operator==(const BroadcastAddr& other) const { return m_broadCastAddr == other.m_broadCastAddr; }
    QString description() const;

    const std::vector<uint32_t>& getKnownPrinters() const { return m_knownPrinters; }
    bool findPrinter(uint32_t address) const;
    // Adds the printer's "in_addr_t"; true when it was known already.
    bool addPrinter(const QVariantMap& printer);
    // The same for an address its owner knows to be new (no search), and the
    // way back for a printer that is forgotten.
    void appendKnownPrinter(uint32_t address);
    void removeKnownPrinter(uint32_t address);

    // Leading bits, from the most significant, in which `address` equals the
    // broadcast address (0 to 32).
    int bitsMatchingBroadcastAddr(uint32_t address) const;
    // True when `address` is on this target's network (false and a log line
    // for a target without a netmask).
    bool addressMatchesWithNetmask(uint32_t address) const;

    // The back-off schedule: 0 = a new printer answered (count back to 0),
    // 1 = a request was built (count up, at most 6). When the count changes,
    // the next date becomes now + max(2^count, 2) seconds. Sending ignores the
    // date on purpose: every target is asked on every tick.
    void setNextBroadcastDate(int reason);
    int noReplyCount() const { return m_noReplyCount; }
    Clock::time_point getNextBroadcastDate() const { return m_nextBroadcastDate; }
    double getTimeToNextBroadcast() const;

    // The request for this target, listing its known printers; counts as a
    // request built for the back-off.
    QByteArray getBroadcastPacket();

private:
    uint32_t m_broadCastAddr;
    uint32_t m_replyAddr;
    uint32_t m_netMask;
    int m_noReplyCount = 0;
    Clock::time_point m_nextBroadcastDate = Clock::time_point::min();
    std::vector<uint32_t> m_knownPrinters;
};

} // namespace talvo
