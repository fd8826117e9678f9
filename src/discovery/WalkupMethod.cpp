#include "discovery/WalkupMethod.h"

#include "discovery/DatagramSocket.h"
#include "discovery/DiscoveryLog.h"
#include "discovery/WalkupPacket.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/Settings.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace talvo {

QString defaultWalkupUserName()
{
    const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (!found)
        return qEnvironmentVariable("LOGNAME", qEnvironmentVariable("USER"));
    const QString fullName =
        QString::fromLocal8Bit(found->pw_gecos ? found->pw_gecos : "").section(u',', 0, 0).trimmed();
    return fullName.isEmpty() ? QString::fromLocal8Bit(found->pw_name) : fullName;
}

WalkupMethod::~WalkupMethod()
{
    stop();
}

Status WalkupMethod::start(DiscoveryClock::time_point)
{
    if (m_socket >= 0)
        return Status::ok();
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return Status::error(QStringLiteral("cannot create the walkup socket: %1")
                                 .arg(QString::fromLocal8Bit(std::strerror(errno))));
    const int on = 1;
    if (::setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0)
        logSystemError(errno);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    any.sin_port = htons(sorlenWalkupUDPPortNum);
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        const int error = errno;
        ::close(fd);
        return Status::error(QStringLiteral("cannot listen on UDP port 1204: %1")
                                 .arg(QString::fromLocal8Bit(std::strerror(error))));
    }
    m_socket = fd;
    m_exchange.setVendorWord(vendor());
    std::vector<WalkupExchange::ConnectedNetwork> networks;
    for (const InterfaceNetwork& n : interfaceNetworks())
        networks.push_back({n.address, n.netmask});
    m_exchange.setConnectedNetworks(std::move(networks));
    return Status::ok();
}

void WalkupMethod::stop()
{
    if (m_socket >= 0)
        ::close(m_socket);
    m_socket = -1;
}

void WalkupMethod::addDescriptors(std::vector<pollfd>& fds) const
{
    if (m_socket >= 0)
        fds.push_back({m_socket, POLLIN, 0});
}

void WalkupMethod::process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out)
{
    if (m_socket < 0 || !isReady(fds, m_socket))
        return;
    for (int i = 0; i < kMaxDatagramsPerPass && m_socket >= 0; ++i) {
        // Every datagram is read whole, whatever its size: 64 KiB holds any.
        const Datagram d = readWithAddresses(m_socket, 65536);
        if (d.count < 0) {
            if (d.error != EAGAIN && d.error != EINTR) {
                // A socket that fails to read ends the session: say so.
                const QString reason = QString::fromLocal8Bit(std::strerror(d.error));
                stop();
                out.events.push_back({DiscoveryEvent::Kind::WalkupEnded, {}, reason});
            }
            return;
        }
        const WalkupExchange::Actions actions =
            m_exchange.handle({d.bytes, d.source, d.sourcePort, d.destination, d.interfaceIndex, now});
        if (actions.reply)
            send(*actions.reply, now);
        if (actions.announced) {
            const QVariantMap announcement{
                {kIPAddrStrKey, stringForInetAddr(actions.announced->printerAddress)},
                {kPrinterModelStrKey, actions.announced->model},
                {kMacAddrStrKey, actions.announced->macAddress}};
            out.events.push_back({DiscoveryEvent::Kind::WalkupAnnounced, announcement, {}});
        }
        if (actions.selected) {
            out.identify.push_back({actions.selected->printer, actions.selected->printerAddress,
                                    IdentifyRequest::Report::Beaconed});
            // The session ends with the selection; the datagrams still
            // waiting are left to the socket's end.
            stop();
            out.events.push_back({DiscoveryEvent::Kind::WalkupSelected, {}, {}});
        }
    }
}

void WalkupMethod::send(const WalkupExchange::Reply& reply, DiscoveryClock::time_point now)
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(reply.port);
    to.sin_addr.s_addr = reply.destination;
    if (::sendto(m_socket, reply.datagram.constData(), static_cast<std::size_t>(reply.datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0) {
        const int error = errno;
        if (m_sendErrorLog.admit(now))
            logSystemError(error);
    }
}

} // namespace talvo
