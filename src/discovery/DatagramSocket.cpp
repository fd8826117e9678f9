#include "discovery/DatagramSocket.h"

#include "discovery/DiscoveryLog.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

Q_LOGGING_CATEGORY(lcDiscovery, "talvo.discovery")

namespace talvo {

void logSystemError(int error)
{
    qCWarning(lcDiscovery) << "NSGenericException" << strerror(error);
}

sockaddr_in Datagram::sourceAddress() const
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(sourcePort);
    address.sin_addr.s_addr = source;
    return address;
}

Datagram readWithAddresses(int fd, int bufferSize)
{
    Datagram d;
    d.bytes.resize(bufferSize);
    sockaddr_in from{};
    iovec iov{d.bytes.data(), static_cast<size_t>(bufferSize)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo)) + 64];
    msghdr msg{};
    msg.msg_name = &from;
    msg.msg_namelen = sizeof from;
    msg.msg_iov = &iov;
    msg.msg_iovlen = 1;
    msg.msg_control = control;
    msg.msg_controllen = sizeof control;

    const ssize_t n = ::recvmsg(fd, &msg, MSG_DONTWAIT);
    if (n < 0) {
        d.error = errno;
        d.bytes.clear();
        return d;
    }
    d.count = static_cast<int>(n);
    d.bytes.resize(d.count);
    d.source = from.sin_addr.s_addr;
    d.sourcePort = ntohs(from.sin_port);
    if (msg.msg_flags & MSG_CTRUNC)
        qCWarning(lcDiscovery, "ancillary buffer too small!");
    d.truncated = (msg.msg_flags & MSG_TRUNC) != 0;
    if (d.truncated)
        return d;
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
            in_pktinfo info{};
            std::memcpy(&info, CMSG_DATA(c), sizeof info);
            d.destination = info.ipi_addr.s_addr;
            d.interfaceIndex = info.ipi_ifindex;
        } else {
            qCWarning(lcDiscovery, "Received unknown ancillary data: level = %d, type = %d", c->cmsg_level,
                      c->cmsg_type);
        }
    }
    return d;
}

std::vector<InterfaceNetwork> interfaceNetworks()
{
    std::vector<InterfaceNetwork> networks;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        logSystemError(errno);
        return networks;
    }
    for (const ifaddrs* i = list; i; i = i->ifa_next) {
        if (!(i->ifa_flags & (IFF_UP | IFF_BROADCAST | IFF_RUNNING)) || (i->ifa_flags & IFF_LOOPBACK))
            continue;
        // An interface without a netmask gives no network.
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || !i->ifa_netmask)
            continue;
        sockaddr_in address{};
        sockaddr_in mask{};
        std::memcpy(&address, i->ifa_addr, sizeof address);
        std::memcpy(&mask, i->ifa_netmask, sizeof mask);
        networks.push_back({address.sin_addr.s_addr, mask.sin_addr.s_addr});
    }
    ::freeifaddrs(list);
    return networks;
}

int openDiscoverySocket()
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        logSystemError(errno);
        return -1;
    }
    const int on = 1;
    auto step = [](int result) {
        if (result != 0)
            logSystemError(errno);
    };
    step(::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on));
    step(::setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on));
    // A request to a busy network is answered by hundreds of printers at
    // once: the default receive buffer holds a few hundred replies and drops
    // the rest until the next broadcast. Beyond rmem_max only a privileged
    // process (the installer runs as root) may go; others get what it allows.
    const int receiveBuffer = 4 * 1024 * 1024;
    if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receiveBuffer, sizeof receiveBuffer) != 0)
        step(::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer));
    step(::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK));
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    any.sin_port = 0;
    step(::bind(fd, reinterpret_cast<sockaddr*>(&any), sizeof any));
    return fd;
}

} // namespace talvo
