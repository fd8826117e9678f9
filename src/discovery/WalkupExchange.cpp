#include "discovery/WalkupExchange.h"

#include "discovery/DiscoveryLog.h"
#include "discovery/WalkupPacket.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <QtEndian>

#include <algorithm>
#include <utility>

namespace talvo {
namespace {

// A /31 is a point-to-point link: both of its addresses are hosts.
constexpr uint32_t kPointToPointMask = 0xfffffffeu;

// "192.168.1.66:1204 (ipaddr 192.168.1.50)": who sent it and who it claims to be.
QString sender(const WalkupDatagram& datagram, const WalkupPacket& packet)
{
    return QStringLiteral("%1:%2 (ipaddr %3)")
        .arg(stringForInetAddr(datagram.source))
        .arg(datagram.sourcePort)
        .arg(stringForInetAddr(packet.srcIpAddr));
}

} // namespace

void WalkupExchange::setConnectedNetworks(std::vector<ConnectedNetwork> networks)
{
    m_networks = std::move(networks);
    // A selection is only taken from a printer we could have answered now.
    std::erase_if(m_announcements, [this](const auto& entry) { return !isConnectedHost(entry.first); });
}

bool WalkupExchange::isConnectedHost(uint32_t address) const
{
    const uint32_t a = qFromBigEndian(address);
    if (a == 0 || a == 0xffffffffu || (a >> 24) == 127 || (a >> 28) == 0xe)
        return false;
    for (const ConnectedNetwork& network : m_networks) {
        const uint32_t mask = qFromBigEndian(network.netmask);
        // A mask of zero would make the whole Internet "connected".
        if (mask == 0)
            continue;
        const uint32_t base = qFromBigEndian(network.address) & mask;
        if ((a & mask) != base)
            continue;
        // The network's broadcast and network addresses name no single host
        // (on a /32 that is the host's own address).
        if (mask != kPointToPointMask && (a == base || a == (base | ~mask)))
            return false;
        return true;
    }
    return false;
}

void WalkupExchange::forgetExpired(Clock::time_point now)
{
    std::erase_if(m_announcements, [now](const auto& entry) {
        return now - entry.second.lastAnnounced >= kAnnouncementLifetime;
    });
}

WalkupExchange::Actions WalkupExchange::handle(const WalkupDatagram& datagram)
{
    forgetExpired(datagram.now);
    // The codec logs why a malformed datagram is dropped.
    const std::optional<WalkupPacket> packet = WalkupPacket::fromDatagram(
        datagram.bytes, datagram.source, datagram.destination, datagram.interfaceIndex, m_vendorWord);
    if (!packet)
        return {};
    switch (packet->pktWalkupType) {
    case 0:
        return handleAnnouncement(*packet, datagram);
    case 1:
        if (const std::size_t n = m_hostPacketLog.admit(datagram.now)) {
            const QString repeats = n > 1 ? QStringLiteral("; %1 since the last line").arg(n) : QString();
            qCInfo(lcDiscovery, "Received walkup packet type 1, ignored (type 1 only comes from hosts)%s",
                   qUtf8Printable(repeats));
        }
        return {};
    case 2:
        return handleSelection(*packet, datagram);
    default:
        return {}; // the codec logged the unknown type
    }
}

WalkupExchange::Actions WalkupExchange::handleAnnouncement(const WalkupPacket& packet,
                                                           const WalkupDatagram& datagram)
{
    // The user's name goes only to the address that really sent the
    // announcement, and only when that is a neighbour: otherwise a forged
    // announcement could have it sent anywhere, or make us flood a network.
    const uint32_t printer = packet.srcIpAddr;
    const char* refusal = nullptr;
    if (printer != datagram.source)
        refusal = "its ipaddr tag names another address than its source";
    else if (!isConnectedHost(printer))
        refusal = "its source is not a host on a directly connected network";
    if (refusal) {
        if (const std::size_t n = m_badAnnouncementLog.admit(datagram.now))
            qCWarning(lcDiscovery, "Walkup announcement from %s dropped: %s; %zu dropped since the last line",
                      qUtf8Printable(sender(datagram, packet)), refusal, n);
        return {};
    }

    // Past the bound only printers already remembered are answered, so a
    // flood of invented printers cannot push out the real ones.
    const auto found = m_announcements.find(printer);
    if (found == m_announcements.end() && m_announcements.size() >= kMaxAnnouncements) {
        if (const std::size_t n = m_tableFullLog.admit(datagram.now))
            qCWarning(
                lcDiscovery,
                "Walkup announcement from %s dropped: %zu printers are waiting for a selection already; "
                "%zu dropped since the last line",
                qUtf8Printable(sender(datagram, packet)), m_announcements.size(), n);
        return {};
    }

    // A new printer is worth a line; its repeats, every few seconds, are not.
    const QString model = packet.value(walkupModelKey);
    const QString macAddress = packet.value(walkupMacAddrKey);
    const QString address = stringForInetAddr(printer);
    if (found == m_announcements.end())
        qCInfo(lcDiscovery, "Received type 0 walkup packet from: %s, model = %s", qUtf8Printable(address),
               qUtf8Printable(model));
    else
        qCDebug(lcDiscovery, "Received type 0 walkup packet from: %s, model = %s", qUtf8Printable(address),
                qUtf8Printable(model));
    m_announcements.insert_or_assign(printer, Announcement{model, macAddress, datagram.now});

    Actions actions;
    actions.reply = Reply{WalkupPacket::type1ReplyTo(packet, m_userName).packetData(m_vendorWord), printer,
                          sorlenWalkupUDPPortNum};
    actions.announced = Announced{printer, model, macAddress};
    return actions;
}

WalkupExchange::Actions WalkupExchange::handleSelection(const WalkupPacket& packet,
                                                        const WalkupDatagram& datagram)
{
    // Only the printer that announced itself may select: anyone else's
    // selection would have us query and report a printer of their choosing.
    // A refused selection leaves the session running for the real one.
    const uint32_t printer = packet.srcIpAddr;
    const auto found = m_announcements.find(printer);
    const char* refusal = nullptr;
    if (printer != datagram.source)
        refusal = "its ipaddr tag names another address than its source";
    else if (found == m_announcements.end())
        refusal = "no announcement from that printer is remembered";
    if (refusal) {
        if (const std::size_t n = m_badSelectionLog.admit(datagram.now))
            qCWarning(lcDiscovery, "Walkup selection from %s dropped: %s; %zu dropped since the last line",
                      qUtf8Printable(sender(datagram, packet)), refusal, n);
        return {};
    }

    // The name picked is only logged: the printer shows this host's name.
    const QString address = stringForInetAddr(printer);
    qCInfo(lcDiscovery, "Received type 2 walkup packet from: %s, user = %s", qUtf8Printable(address),
           qUtf8Printable(packet.value(walkupUserNameKey)));

    // What the announcement gave, each value only when it carried one.
    const Announcement& announcement = found->second;
    QVariantMap printerInfo{{QString(kIPAddressNumberKey), static_cast<qulonglong>(datagram.destination)},
                            {QString(kIPAddrStrKey), address}};
    if (!announcement.model.isEmpty())
        printerInfo.insert(kPrinterModelStrKey, announcement.model);
    if (!announcement.macAddress.isEmpty())
        printerInfo.insert(kMacAddrStrKey, announcement.macAddress);
    m_announcements.erase(found);

    Actions actions;
    actions.selected = Selected{printer, datagram.destination, std::move(printerInfo)};
    return actions;
}

} // namespace talvo
