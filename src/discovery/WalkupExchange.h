#pragma once

// The host's rules of the walkup exchange on UDP port 1204, with no socket,
// thread, timer or SNMP of its own: the owner feeds it each received datagram
// and carries out what it returns. A printer's announcement (type 0) is
// answered with the user's name and remembered; the printer's selection
// (type 2) of that name turns into "identify this printer". Because anyone on
// the network can send datagrams, a reply only ever goes to the address that
// sent the announcement, and only when that address is a host on one of this
// machine's directly connected networks; a selection counts only from the
// printer that announced itself.
//
//     talvo::WalkupExchange walkup;
//     walkup.setVendorWord(u"talvo"_s);
//     walkup.setUserName(userName);
//     walkup.setConnectedNetworks({{hostAddress, netmask}});       // network order
//     const auto actions = walkup.handle({bytes, source, sourcePort, arrivedOn, ifIndex,
//                                         std::chrono::steady_clock::now()});
//     if (actions.reply)
//         sendTo(actions.reply->datagram, actions.reply->destination, actions.reply->port);
//     if (actions.selected)
//         identify(actions.selected->printerAddress, actions.selected->printer);
//
// Not thread-safe: one thread owns the exchange and makes every call.

#include "foundation/LogThrottle.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace talvo {

struct WalkupPacket;

// One datagram as the walkup socket received it.
struct WalkupDatagram
{
    QByteArray bytes;
    uint32_t source = 0;      // network order: the UDP source address
    uint16_t sourcePort = 0;  // host order
    uint32_t destination = 0; // network order: the address it arrived on (ours or a broadcast address)
    int interfaceIndex = 0;
    std::chrono::steady_clock::time_point now; // when it was received
};

class WalkupExchange
{
public:
    using Clock = std::chrono::steady_clock;

    // Printers on a few LANs announce at once; more than this is a flood.
    static constexpr std::size_t kMaxAnnouncements = 64;
    // A printer announces repeatedly while its walkup screen is open; an
    // entry not refreshed for this long belongs to a panel nobody uses.
    static constexpr Clock::duration kAnnouncementLifetime = std::chrono::minutes(10);

    // One of this host's IPv4 networks: its address on it and the netmask,
    // both in network order.
    struct ConnectedNetwork
    {
        uint32_t address = 0;
        uint32_t netmask = 0;
    };

    // A datagram to send from the walkup socket.
    struct Reply
    {
        QByteArray datagram;
        uint32_t destination = 0; // network order
        uint16_t port = 0;        // host order
    };
    // An announcement that was answered, for clients that show them. Model
    // and MAC address are empty when the announcement carried none.
    struct Announced
    {
        uint32_t printerAddress = 0; // network order
        QString model;
        QString macAddress;
    };
    // A printer whose user picked this host: identify it and report it.
    struct Selected
    {
        uint32_t printerAddress = 0; // network order
        uint32_t arrivedOn = 0;      // network order: where the selection arrived
        // "in_addr_t" (arrivedOn, by design not the printer's), "ipAddr", and
        // "printerModel" and "macAddr" when the announcement carried them.
        QVariantMap printer;
    };
    // What one datagram asks of the owner; all empty when it is dropped.
    struct Actions
    {
        std::optional<Reply> reply;
        std::optional<Announced> announced;
        std::optional<Selected> selected;
    };

    // The first bytes of every packet, lower case ("talvo"). Takes effect
    // from the next datagram.
    void setVendorWord(const QString& vendorWord) { m_vendorWord = vendorWord; }
    // The name sent to printers, from the next announcement on.
    void setUserName(const QString& userName) { m_userName = userName; }
    // The networks printers may answer from. Remembered printers that are no
    // longer on one of them are forgotten.
    void setConnectedNetworks(std::vector<ConnectedNetwork> networks);

    // Decides what one received datagram leads to. Announcements that have
    // expired by `datagram.now` are forgotten first. Dropped datagrams are
    // logged, rate-limited.
    Actions handle(const WalkupDatagram& datagram);

    // The printers remembered as announced and not selected yet, as of the
    // last handled datagram.
    std::size_t announcementCount() const { return m_announcements.size(); }

private:
    // What a selection needs of an announcement; never the datagram whole.
    struct Announcement
    {
        QString model;
        QString macAddress;
        Clock::time_point lastAnnounced;
    };

    Actions handleAnnouncement(const WalkupPacket& packet, const WalkupDatagram& datagram);
    Actions handleSelection(const WalkupPacket& packet, const WalkupDatagram& datagram);
    void forgetExpired(Clock::time_point now);
    // True when `address` (network order) may be a printer to answer: a
    // host's address on a connected network, not that network's broadcast or
    // network address, and not 0.0.0.0, 255.255.255.255, loopback or multicast.
    bool isConnectedHost(uint32_t address) const;

    QString m_vendorWord;
    QString m_userName;
    std::vector<ConnectedNetwork> m_networks;
    std::map<uint32_t, Announcement> m_announcements; // by printer address, network order

    LogThrottle m_badAnnouncementLog;
    LogThrottle m_tableFullLog;
    LogThrottle m_badSelectionLog;
    LogThrottle m_hostPacketLog;
};

} // namespace talvo
