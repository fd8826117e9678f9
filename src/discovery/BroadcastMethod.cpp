#include "discovery/BroadcastMethod.h"

#include "discovery/BroadcastPacket.h"
#include "discovery/DatagramSocket.h"
#include "discovery/DiscoveryLog.h"
#include "foundation/NetworkAddress.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace talvo {

BroadcastMethod::~BroadcastMethod()
{
    stop();
}

void BroadcastMethod::addSearchTarget(const BroadcastAddr& target, DiscoveryClock::time_point now)
{
    if (m_rules.addTarget(target, now) != BroadcastDiscovery::AddResult::Added)
        return;
    qCDebug(lcDiscovery).noquote() << "search target added:" << stringForInetAddr(target.broadCastAddr());
    m_newTargets.push_back(target.broadCastAddr());
}

void BroadcastMethod::addSearchAddress(uint32_t address, DiscoveryClock::time_point now)
{
    // The local address that reaches `address` is the one a connected UDP
    // socket is given; connecting sends nothing.
    uint32_t local = 0;
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        logSystemError(errno);
    } else {
        const int on = 1;
        if (::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)
            logSystemError(errno);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(broadcast::sorlenDiscoveryUDPPortNum);
        to.sin_addr.s_addr = address;
        if (::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0)
            logSystemError(errno);
        sockaddr_in me{};
        socklen_t length = sizeof me;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&me), &length) != 0)
            logSystemError(errno);
        local = me.sin_addr.s_addr;
        ::close(fd);
    }
    addSearchTarget(BroadcastAddr(local, address, BroadcastAddr::kNoNetmask), now);
}

void BroadcastMethod::addSubnetsForInterfaces(DiscoveryClock::time_point now)
{
    for (const InterfaceNetwork& n : interfaceNetworks())
        addSearchTarget(BroadcastAddr(n.address, n.address | ~n.netmask, n.netmask), now);
}

Status BroadcastMethod::start(DiscoveryClock::time_point now)
{
    if (m_socket >= 0)
        return Status::ok();
    m_socket = openDiscoverySocket();
    if (m_socket < 0)
        return Status::error(QStringLiteral("cannot open the discovery socket: %1")
                                 .arg(QString::fromLocal8Bit(std::strerror(errno))));
    // The first request goes out at once; every target is in it.
    m_newTargets.clear();
    m_nextBroadcast = now;
    return Status::ok();
}

void BroadcastMethod::stop()
{
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
}

void BroadcastMethod::addDescriptors(std::vector<pollfd>& fds) const
{
    if (m_socket >= 0)
        fds.push_back({m_socket, POLLIN, 0});
}

std::optional<DiscoveryClock::time_point> BroadcastMethod::nextDeadline() const
{
    if (m_socket < 0)
        return std::nullopt;
    if (!m_newTargets.empty())
        return DiscoveryClock::time_point::min();
    return m_nextBroadcast;
}

void BroadcastMethod::process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out)
{
    if (m_socket < 0)
        return;
    if (now >= m_nextBroadcast) {
        m_newTargets.clear();
        broadcast();
        // The schedule keeps its phase: a late pass does not shift later ticks.
        while (m_nextBroadcast <= now)
            m_nextBroadcast += kBroadcastInterval;
    } else if (!m_newTargets.empty()) {
        // A new target is asked at once, alone: the others keep their tick.
        const std::vector<uint32_t> added = std::exchange(m_newTargets, {});
        for (BroadcastDiscovery::Request& request : m_rules.buildRequests()) {
            if (std::find(added.begin(), added.end(), request.to) != added.end())
                send(request);
        }
    }
    if (isReady(fds, m_socket))
        readReplies(now, out);
}

void BroadcastMethod::broadcast()
{
    if (m_socket < 0)
        return;
    for (const BroadcastDiscovery::Request& request : m_rules.buildRequests())
        send(request);
}

void BroadcastMethod::send(const BroadcastDiscovery::Request& request)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(broadcast::sorlenDiscoveryUDPPortNum);
    to.sin_addr.s_addr = request.to;
    const ssize_t sent =
        ::sendto(m_socket, request.datagram.constData(), static_cast<size_t>(request.datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&to), sizeof to);
    if (sent < 0)
        m_rules.sendFailed(request.to, errno);
}

void BroadcastMethod::readReplies(DiscoveryClock::time_point now, MethodOutput& out)
{
    for (int i = 0; i < kMaxRepliesPerPass; ++i) {
        const Datagram d = readWithAddresses(m_socket, 1500);
        if (d.count < 0) {
            if (d.error != EAGAIN) {
                if (m_readErrorLog.admit(now))
                    qCWarning(lcDiscovery, "readSorlenDiscoveryReplies: readResult = (%d) %s", d.error,
                              std::strerror(d.error));
            }
            return;
        }
        if (d.count == 0)
            continue;
        const BroadcastDiscovery::Decision decision =
            m_rules.onReply({d.bytes, d.source, d.destination}, now);
        switch (decision.verdict) {
        case BroadcastDiscovery::Verdict::Identify:
            out.identify.push_back({decision.printer, decision.address, IdentifyRequest::Report::Discovered});
            break;
        case BroadcastDiscovery::Verdict::LearnOnly:
            out.learnFrom.push_back(decision.address);
            break;
        case BroadcastDiscovery::Verdict::Dropped:
        case BroadcastDiscovery::Verdict::Known:
            break;
        }
    }
}

} // namespace talvo
