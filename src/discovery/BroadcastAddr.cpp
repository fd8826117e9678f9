#include "discovery/BroadcastAddr.h"

#include "discovery/BroadcastPacket.h"
#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <QStringList>

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cmath>

namespace talvo {

BroadcastAddr::BroadcastAddr(uint32_t replyAddr, uint32_t broadCastAddr, uint32_t netMask)
    : m_broadCastAddr(broadCastAddr), m_replyAddr(replyAddr), m_netMask(netMask)
{}

QString BroadcastAddr::description() const
{
    return QStringLiteral("BroadcastAddr object for address %1 reply address: %2")
        .arg(stringForInetAddr(m_broadCastAddr), stringForInetAddr(m_replyAddr));
}

bool BroadcastAddr::findPrinter(uint32_t address) const
{
    return std::find(m_knownPrinters.begin(), m_knownPrinters.end(), address) != m_knownPrinters.end();
}

bool BroadcastAddr::addPrinter(const QVariantMap& printer)
{
    const auto address = static_cast<uint32_t>(printer.value(kIPAddressNumberKey).toULongLong());
    if (findPrinter(address))
        return true;
    appendKnownPrinter(address);
    return false;
}

void BroadcastAddr::appendKnownPrinter(uint32_t address)
{
    m_knownPrinters.push_back(address);
    setNextBroadcastDate(0);
}

void BroadcastAddr::removeKnownPrinter(uint32_t address)
{
    std::erase(m_knownPrinters, address);
}

int BroadcastAddr::bitsMatchingBroadcastAddr(uint32_t address) const
{
    const uint32_t differing = ntohl(address) ^ ntohl(m_broadCastAddr);
    return std::countl_zero(differing);
}

bool BroadcastAddr::addressMatchesWithNetmask(uint32_t address) const
{
    if (!hasNetmask()) {
        qCWarning(
            lcDiscovery,
            "Someone attempted to call addressMatchesReplyAddr for an address that doesn't have a netmask!");
        return false;
    }
    return (address & m_netMask) == (m_replyAddr & m_netMask);
}

void BroadcastAddr::setNextBroadcastDate(int reason)
{
    const int old = m_noReplyCount;
    if (reason == 0)
        m_noReplyCount = 0;
    else if (reason == 1)
        m_noReplyCount = std::min(m_noReplyCount + 1, 6);
    if (m_noReplyCount == old)
        return;
    const double seconds = std::max(std::pow(2.0, m_noReplyCount), 2.0);
    m_nextBroadcastDate =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

double BroadcastAddr::getTimeToNextBroadcast() const
{
    if (m_nextBroadcastDate == Clock::time_point::min())
        return -HUGE_VAL;
    return std::chrono::duration<double>(m_nextBroadcastDate - Clock::now()).count();
}

QByteArray BroadcastAddr::getBroadcastPacket()
{
    QStringList known;
    for (const uint32_t printer : m_knownPrinters)
        known << stringForInetAddr(printer);
    broadcast::Request request = broadcast::buildRequest(m_replyAddr, known);
    if (request.exceeded)
        qCWarning(lcDiscovery).noquote() << "Packet length exceeded for" << description();
    setNextBroadcastDate(1);
    return request.datagram;
}

} // namespace talvo
